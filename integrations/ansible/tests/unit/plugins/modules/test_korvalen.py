# -*- coding: utf-8 -*-

# Copyright Korvalen installer team. All rights reserved.

"""The module as a process of its own, over a program that prints what korvalen_admin would."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

MODULE = os.path.join(os.path.dirname(os.path.abspath(__file__)), '../../../../plugins/modules/korvalen.py')

# A path is expanded once, as Ansible does, and what came of it is not.
ENVIRONMENT = dict(os.environ, PATH='/usr/bin:/bin', KORVALEN_A='$KORVALEN_B', KORVALEN_B='twice')

FAKE = '''#!/bin/sh
cd "%s" || exit 99
printf '%%s\\n' "$@" >words
cat answer
cat errors >&2
exit %d
'''

PATCHED = {'path': '/opt/envi54/bin/envi', 'change': 'content', 'type': 'file', 'mode': '0755', 'owner': '0:0',
           'diff': '--- /opt/envi54/bin/envi\n+++ /opt/envi54/bin/envi\n@@ -1 +1 @@\n-a\n+b\n'}
REPLACED = {'path': '/opt/envi54/save/a.sav', 'change': 'content', 'type': 'file', 'mode': '0755', 'owner': '0:0'}
NEW = {'path': '/etc/quorin', 'change': 'new', 'type': 'directory', 'mode': '0755', 'owner': '0:0'}
REMOVED = {'path': '/opt/envi54/x.sav', 'change': 'removed', 'type': 'file', 'mode': '0644', 'owner': '7:8'}
OTHER_MODE = {'path': '/opt/m', 'change': 'mode', 'type': 'file', 'mode': '4755', 'owner': '0:0'}

STALE = {'code': 'stale-backup', 'path': '/opt/envi54/bin/envi', 'refuses': False, 'text': 'ENVI was upgraded'}
NO_IDL = {'code': 'no-idl', 'path': '/opt/envi54', 'refuses': True, 'text': 'check the ENVI directory'}
COMPLAINS = {'code': 'installer-complains', 'refuses': True, 'text': 'see what the installer prints'}
CHANGED_SINCE = {'code': 'changed-since', 'path': '/opt/envi54/bin/envi', 'refuses': False, 'text': 'it stays'}


def answer_of(command, status, changes=(), warnings=(), **more):
    return dict(version=1, command=command, status=status, changes=list(changes), warnings=list(warnings), **more)


class KorvalenTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.directory = tempfile.mkdtemp()
        self.executable = os.path.join(self.directory, 'korvalen_admin')

    def tearDown(self):
        shutil.rmtree(self.directory)

    def write(self, name, text):
        with open(os.path.join(self.directory, name), 'wb') as out:
            out.write(text if isinstance(text, bytes) else text.encode('utf-8'))

    def words(self):
        with open(os.path.join(self.directory, 'words')) as words:
            return words.read().splitlines()

    def run_module(self, answer, status=None, errors='', check=False, diff=False, **arguments):
        """Returns what the module answers when the program gives the answer, an object or a text."""
        if isinstance(answer, dict):
            status = answer['status'] if status is None else status
            answer = json.dumps(answer) + '\n'
        self.write('answer', answer)
        self.write('errors', errors)
        self.write('korvalen_admin', FAKE % (self.directory, status or 0))
        os.chmod(self.executable, 0o755)
        return self.call(check, diff, **arguments)

    def call(self, check=False, diff=False, **arguments):
        given = dict(product_dir='/opt/korvalen', envi_dir='/opt/envi54', executable=self.executable)
        given.update(arguments)
        given = dict((name, value) for name, value in given.items() if value is not None)
        given.update(_ansible_check_mode=check, _ansible_diff=diff)
        process = subprocess.Popen([sys.executable, MODULE], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, env=ENVIRONMENT)
        output, errors = process.communicate(json.dumps({'ANSIBLE_MODULE_ARGS': given}).encode('utf-8'))
        self.assertEqual(b'', errors)
        return json.loads(output.decode('utf-8'))

    def expect_failure(self, result, reason):
        self.assertEqual((True, reason), (result.get('failed'), result.get('msg')))

    def expect_success(self, result, changed):
        self.assertEqual((None, changed), (result.get('failed'), result.get('changed')), result.get('msg'))

    # What is called.

    def test_present_is_install_with_every_argument_a_word_of_its_own_that_nothing_expands(self):
        self.run_module(answer_of('install', 0), layout='local', force=['no-idl', 'second-name'],
                        product_dir='/opt/two words/$KORVALEN_A', envi_dir='/opt/~envi')
        self.assertEqual(['install', '--json', '--local', '--force', 'no-idl', '--force', 'second-name',
                          '/opt/two words/$KORVALEN_B', '/opt/~envi'], self.words())

    def test_present_in_check_mode_is_plan_which_knows_no_force(self):
        self.run_module(answer_of('plan', 0), check=True, force=['no-idl'])
        self.assertEqual(['plan', '--json', '/opt/korvalen', '/opt/envi54'], self.words())

    def test_absent_is_uninstall_and_force_has_no_meaning(self):
        self.run_module(answer_of('uninstall', 0), state='absent', force=['no-idl'])
        self.assertEqual(['uninstall', '--json', '/opt/korvalen', '/opt/envi54'], self.words())

    def test_absent_in_check_mode_is_uninstall_with_plan(self):
        self.run_module(answer_of('uninstall', 2, [REMOVED]), state='absent', check=True)
        self.assertEqual(['uninstall', '--plan', '--json', '/opt/korvalen', '/opt/envi54'], self.words())

    def test_without_an_envi_directory_none_is_given(self):
        self.run_module(answer_of('install', 0), envi_dir=None)
        self.assertEqual(['install', '--json', '/opt/korvalen'], self.words())

    def test_an_empty_envi_directory_is_left_to_the_program_to_refuse(self):
        self.run_module(answer_of('install', 1, error='empty'), envi_dir='')
        self.assertEqual(['install', '--json', '/opt/korvalen', ''], self.words())

    def test_the_program_is_found_in_path_by_its_name(self):
        result = self.call(executable='korvalen_admin_that_nobody_has')
        self.assertTrue(result['failed'])
        self.assertIn('korvalen_admin_that_nobody_has', result['msg'])
        self.assertIn('/usr/bin', result['msg'])

    def test_a_relative_directory_is_refused_before_anything_runs(self):
        self.expect_failure(self.run_module(answer_of('install', 0), product_dir='korvalen'),
                            'product_dir must be an absolute path, not korvalen')
        self.expect_failure(self.run_module(answer_of('install', 0), envi_dir='./envi54'),
                            'envi_dir must be an absolute path, not ./envi54')
        self.assertFalse(os.path.exists(os.path.join(self.directory, 'words')))

    def test_a_code_that_refuses_nothing_is_refused(self):
        result = self.run_module(answer_of('plan', 0), check=True, force=['stale-backup'])
        self.assertTrue(result['failed'])
        self.assertIn('stale-backup', result['msg'])

    # Whether it changed.

    def test_an_installation_with_changes_is_changed(self):
        result = self.run_module(answer_of('install', 0, [NEW, PATCHED],
                                           installer=dict(status=0, output='Done\n', errors='')))
        self.expect_success(result, True)
        self.assertEqual([NEW, PATCHED], result['changes'])
        self.assertEqual(dict(status=0, output='Done\n', errors=''), result['installer'])
        self.assertEqual(0, result['status'])
        self.assertNotIn('diff', result)

    def test_an_installation_without_changes_is_not(self):
        result = self.run_module(answer_of('install', 0))
        self.expect_success(result, False)
        self.assertEqual([], result['changes'])
        self.assertNotIn('installer', result)

    def test_a_plan_with_status_2_is_a_change_and_no_failure(self):
        self.expect_success(self.run_module(answer_of('plan', 2, [NEW]), check=True), True)

    def test_a_plan_with_status_0_is_no_change(self):
        self.expect_success(self.run_module(answer_of('plan', 0), check=True), False)

    def test_an_uninstallation_without_a_record_is_no_change(self):
        self.expect_success(self.run_module(answer_of('uninstall', 0), state='absent'), False)

    def test_what_uninstall_had_to_leave_is_a_warning_of_a_success(self):
        result = self.run_module(answer_of('uninstall', 2, [REMOVED], [CHANGED_SINCE]), state='absent')
        self.expect_success(result, True)
        self.assertEqual(['korvalen_admin [changed-since] /opt/envi54/bin/envi: it stays'], result['warnings'])

    def test_leaving_everything_is_no_change(self):
        result = self.run_module(answer_of('uninstall', 2, [], [CHANGED_SINCE]), state='absent', check=True)
        self.expect_success(result, False)

    # Warnings and refusals.

    def test_warnings_are_ansibles_and_notices(self):
        result = self.run_module(answer_of('install', 0, [PATCHED], [COMPLAINS, STALE]),
                                 force=['installer-complains'])
        self.expect_success(result, True)
        self.assertEqual(['korvalen_admin [installer-complains]: see what the installer prints',
                          'korvalen_admin [stale-backup] /opt/envi54/bin/envi: ENVI was upgraded'],
                         result['warnings'])
        self.assertEqual([COMPLAINS, STALE], result['notices'])

    def test_a_plan_that_would_be_refused_fails_with_the_reason_and_shows_the_plan(self):
        result = self.run_module(answer_of('plan', 2, [NEW], [STALE, NO_IDL]), check=True, diff=True)
        self.expect_failure(result, 'it would be refused because of no-idl: /opt/envi54; '
                                    'check the ENVI directory; or add no-idl to force')
        self.assertEqual([NEW], result['changes'])
        self.assertEqual(1, len(result['diff']))

    def test_so_does_a_plan_whose_refusing_warning_has_no_path(self):
        self.expect_failure(self.run_module(answer_of('plan', 2, [NEW], [COMPLAINS]), check=True),
                            'it would be refused because of installer-complains; '
                            'see what the installer prints; or add installer-complains to force')

    def test_a_plan_that_is_forced_through_every_refusal_succeeds(self):
        result = self.run_module(answer_of('plan', 2, [NEW], [NO_IDL, COMPLAINS]), check=True,
                                 force=['no-idl', 'installer-complains'])
        self.expect_success(result, True)
        self.assertEqual(2, len(result['warnings']))

    def test_a_plan_that_is_forced_through_one_of_two_refusals_fails(self):
        self.expect_failure(self.run_module(answer_of('plan', 2, [NEW], [COMPLAINS, NO_IDL]), check=True,
                                            force=['installer-complains']),
                            'it would be refused because of no-idl: /opt/envi54; '
                            'check the ENVI directory; or add no-idl to force')

    def test_an_error_is_a_failure_whose_message_is_the_reason(self):
        result = self.run_module(answer_of('install', 1, [], [STALE], error='too little space on /opt'))
        self.expect_failure(result, 'too little space on /opt')
        self.assertFalse(result['changed'])
        self.assertEqual([STALE], result['notices'])

    def test_a_failure_that_could_not_be_taken_back_is_changed(self):
        result = self.run_module(answer_of('install', 1, [PATCHED], error='cannot rename'))
        self.expect_failure(result, 'cannot rename')
        self.assertTrue(result['changed'])

    def test_a_failure_without_a_reason_is_one(self):
        self.expect_failure(self.run_module(answer_of('install', 1)),
                            'korvalen_admin install ended with status 1 and gave no reason')

    def test_status_2_of_an_installation_is_unknown_and_so_a_failure(self):
        self.expect_failure(self.run_module(answer_of('install', 2, [NEW])),
                            'korvalen_admin install ended with status 2 and gave no reason')

    # Answers that are none.

    def expect_useless(self, result, reason):
        self.expect_failure(result, '%s cannot be used: %s' % (self.executable, reason))

    def test_output_that_is_no_json_is_a_failure_with_the_first_line(self):
        result = self.run_module('Segmentation\nfault\n', status=139)
        self.expect_useless(result, 'no JSON came from it, but status 139: Segmentation')
        self.assertEqual(139, result['status'])

    def test_the_line_on_standard_error_comes_before_that_on_standard_output(self):
        self.expect_useless(self.run_module('{"version":1,', status=1, errors='korvalen_admin: cannot write\n'),
                            'no JSON came from it, but status 1: korvalen_admin: cannot write')

    def test_no_output_at_all_is_a_failure(self):
        self.expect_useless(self.run_module('', status=0), 'no JSON came from it, but status 0: it printed nothing')

    def test_bytes_that_are_no_text_are_a_failure_and_no_crash(self):
        result = self.run_module(b'\xff\xfe', status=0)
        self.assertTrue(result['failed'])
        self.assertIn('cannot be used: no JSON came from it, but status 0', result['msg'])

    def test_json_of_something_else_is_a_failure(self):
        self.expect_useless(self.run_module('[]', status=0), 'its JSON is not an answer of korvalen_admin')
        self.expect_useless(self.run_module('3', status=0), 'its JSON is not an answer of korvalen_admin')
        self.expect_useless(self.run_module('{}', status=0), 'its JSON is not an answer of korvalen_admin')

    def test_an_unknown_version_is_a_failure_whatever_else_it_says(self):
        self.expect_useless(self.run_module(dict(answer_of('install', 0), version=2)),
                            'its JSON is of version 2, and this module knows version 1 only')

    def test_an_answer_without_its_lists_is_a_failure(self):
        for lists in (dict(changes=[]), dict(warnings=[])):
            self.expect_useless(self.run_module(dict(lists, version=1, status=0)),
                                'its JSON lacks changes or warnings')

    def test_an_answer_of_another_status_is_a_failure(self):
        self.expect_useless(self.run_module(answer_of('install', 0), status=1, errors='it was cut off\n'),
                            'it ended with status 1, but its JSON says 0: it was cut off')

    # Differences.

    def diff_of(self, change):
        return self.run_module(answer_of('plan', 2, [change]), check=True, diff=True)['diff']

    def test_the_diff_of_a_changed_text_is_the_programs(self):
        self.assertEqual([dict(before_header='/opt/envi54/bin/envi', after_header='/opt/envi54/bin/envi',
                               prepared=PATCHED['diff'])], self.diff_of(PATCHED))

    def test_the_diff_of_a_new_path_goes_from_nothing_to_what_it_is(self):
        self.assertEqual([dict(before_header='/etc/quorin (absent)', before='', after_header='/etc/quorin',
                               after='directory, mode 0755, owner 0:0\n')], self.diff_of(NEW))

    def test_the_diff_of_a_removed_path_goes_from_what_it_was_to_nothing(self):
        self.assertEqual([dict(before_header='/opt/envi54/x.sav', before='file, mode 0644, owner 7:8\n',
                               after_header='/opt/envi54/x.sav (absent)', after='')], self.diff_of(REMOVED))

    def test_the_diff_of_other_changes_says_what_was_another(self):
        self.assertEqual([dict(before_header='/opt/envi54/save/a.sav', before='other content\n',
                               after_header='/opt/envi54/save/a.sav', after='file, mode 0755, owner 0:0\n')],
                         self.diff_of(REPLACED))
        self.assertEqual([dict(before_header='/opt/m', before='another mode\n',
                               after_header='/opt/m', after='file, mode 4755, owner 0:0\n')],
                         self.diff_of(OTHER_MODE))

    def test_a_run_has_its_diff_like_a_plan(self):
        result = self.run_module(answer_of('uninstall', 0, [REMOVED, PATCHED]), state='absent', diff=True)
        self.assertEqual(['/opt/envi54/x.sav', '/opt/envi54/bin/envi'],
                         [one['before_header'] for one in result['diff']])


if __name__ == '__main__':
    unittest.main()
