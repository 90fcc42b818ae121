#!/usr/bin/python
# -*- coding: utf-8 -*-

# Copyright Korvalen installer team. All rights reserved.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: korvalen
short_description: Installs the Korvalen add-on into an ENVI installation, or takes it back
version_added: 1.0.0
description:
  - Runs C(korvalen_admin), which rehearses an installation on a view of the disk before it touches anything,
    installs all or nothing, and takes back exactly what was before.
  - In check mode it shows what would change, and fails where the installation would be refused.
author:
  - Korvalen installer team (!UNKNOWN)
options:
  product_dir:
    description: The directory into which the product was unpacked, on the managed host. An absolute path.
    type: path
    required: true
  envi_dir:
    description: The ENVI installation, an absolute path. Where it is left out, no ENVI is touched.
    type: path
  layout:
    description:
      - Where the configuration file and the uninstall script go.
      - With C(system) to C(/etc/quorin), with C(local) to the product directory and the one above it.
    type: str
    choices: [system, local]
    default: system
  state:
    description:
      - With C(present) the product gets installed.
      - With C(absent) every path that the installation changed is brought back as it was before.
    type: str
    choices: [present, absent]
    default: present
  force:
    description:
      - Codes of warnings in spite of which it is installed.
      - Has no meaning with I(state=absent).
    type: list
    elements: str
    choices:
      - empty-backup
      - installer-complains
      - missing-script
      - no-idl
      - not-deployed
      - nounset
      - quorin-core
      - second-name
    default: []
  executable:
    description:
      - The program, as a path or as a name that is looked up in PATH.
      - A path is needed where the program was unpacked instead of installed.
    type: path
    default: korvalen_admin
attributes:
  check_mode:
    support: full
    description: Shows the changes of a rehearsal and makes none. Fails where the run would be refused.
  diff_mode:
    support: full
    description: Shows a unified diff of changed texts, and of every other change what becomes of the path.
  platform:
    support: full
    platforms: linux
    description: The systems that the program runs on.
requirements:
  - korvalen_admin on the managed host, of the package korvalen-install
  - root on the managed host
notes:
  - A change is one of the disk. An installation that stood there already and is only put on record is none.
  - What the program could not take back since somebody changed it is a warning, not a failure.
  - Two installations with the same uninstall script, that is in the system layout or with the same product directory,
    rewrite it in turn, and both are changed at each run. Give each ENVI a product directory in a directory of its own,
    and I(layout=local).
'''

EXAMPLES = r'''
- name: Install Korvalen into ENVI
  korvalen.install.korvalen:
    product_dir: /opt/korvalen
    envi_dir: /usr/local/envi54

- name: Install a product without the launch script that this site removed
  korvalen.install.korvalen:
    product_dir: /opt/korvalen
    envi_dir: /usr/local/envi54
    layout: local
    force:
      - missing-script

- name: Take it back
  korvalen.install.korvalen:
    product_dir: /opt/korvalen
    envi_dir: /usr/local/envi54
    state: absent
'''

RETURN = r'''
changes:
  description:
    - Every path of the host that was changed, or would be in check mode, sorted.
    - Always there when the program answered.
  returned: when the program answered
  type: list
  elements: dict
  contains:
    path:
      description: The path without links.
      type: str
    change:
      description: The first that holds of C(new), C(removed), C(type), C(content), C(mode) and C(owner).
      type: str
    type:
      description: C(file), C(directory) or C(link), after the change, or before a removal.
      type: str
    mode:
      description: Four octal digits.
      type: str
    owner:
      description: The numbers of user and group.
      type: str
    diff:
      description: A unified diff, for changed texts only.
      type: str
  sample:
    - path: /etc/quorin
      change: new
      type: directory
      mode: "0755"
      owner: "0:0"
notices:
  description: The warnings of the program as it gave them. Those of a run that succeeds are warnings of the task too.
  returned: when the program answered
  type: list
  elements: dict
  contains:
    code:
      description: The code, as I(force) takes it.
      type: str
    path:
      description: The path, where the warning has one.
      type: str
    refuses:
      description: Whether it refuses an installation unless it is forced.
      type: bool
    text:
      description: What is so, and what to do.
      type: str
  sample: []
installer:
  description: What the installer printed and ended with, where it was run or rehearsed.
  returned: where it was run or rehearsed
  type: dict
  contains:
    status:
      description: Its exit status.
      type: int
    output:
      description: Its standard output.
      type: str
    errors:
      description: Its standard error.
      type: str
status:
  description: The exit status of the program.
  returned: when the program was run
  type: int
  sample: 0
cmd:
  description: The command, word by word.
  returned: when the program was run
  type: list
  elements: str
  sample: [/usr/bin/korvalen_admin, install, --json, /opt/korvalen, /usr/local/envi54]
'''

import json

from ansible.module_utils.basic import AnsibleModule

JSON_VERSION = 1

CODES = [
    'empty-backup',
    'installer-complains',
    'missing-script',
    'no-idl',
    'not-deployed',
    'nounset',
    'quorin-core',
    'second-name',
]

ARGUMENTS = dict(
    product_dir=dict(type='path', required=True),
    envi_dir=dict(type='path'),
    layout=dict(type='str', choices=['system', 'local'], default='system'),
    state=dict(type='str', choices=['present', 'absent'], default='present'),
    force=dict(type='list', elements='str', choices=CODES, default=[]),
    executable=dict(type='path', default='korvalen_admin'),
)

# The command and its options by state and check mode.
COMMANDS = {
    ('present', False): ['install'],
    ('present', True): ['plan'],
    ('absent', False): ['uninstall'],
    ('absent', True): ['uninstall', '--plan'],
}

# With these the program did what it was asked to.
GOOD_STATUSES = {'install': (0,), 'plan': (0, 2), 'uninstall': (0, 2)}

# Of a change of such a kind, the answer holds only what is so after it.
BEFORE = {
    'type': 'another type',
    'content': 'other content',
    'mode': 'another mode',
    'owner': 'another owner',
}


class NoAnswer(Exception):
    """What the program printed is not what this module can act on."""


def command_line(executable, params, check_mode):
    line = [executable] + COMMANDS[(params['state'], check_mode)] + ['--json']
    if params['layout'] == 'local':
        line.append('--local')
    if line[1] == 'install':
        for code in params['force']:
            line += ['--force', code]
    line.append(params['product_dir'])
    if params['envi_dir'] is not None:
        line.append(params['envi_dir'])
    return line


def first_line(*texts):
    for text in texts:
        if text.strip():
            return text.strip().splitlines()[0]
    return 'it printed nothing'


def read_answer(status, output, errors):
    """The object that the program printed, of which the members that are always there are checked."""
    try:
        answer = json.loads(output)
    except ValueError:
        raise NoAnswer('no JSON came from it, but status %d: %s' % (status, first_line(errors, output)))
    if not isinstance(answer, dict) or 'version' not in answer:
        raise NoAnswer('its JSON is not an answer of korvalen_admin')
    if answer['version'] != JSON_VERSION:
        raise NoAnswer('its JSON is of version %s, and this module knows version %d only'
                       % (answer['version'], JSON_VERSION))
    if not isinstance(answer.get('changes'), list) or not isinstance(answer.get('warnings'), list):
        raise NoAnswer('its JSON lacks changes or warnings')
    if answer.get('status') != status:
        raise NoAnswer('it ended with status %d, but its JSON says %s: %s'
                       % (status, answer.get('status'), first_line(errors, 'no reason was given')))
    return answer


def text_of_warning(warning):
    path = warning.get('path')
    return 'korvalen_admin [%s]%s: %s' % (warning['code'], ' ' + path if path else '', warning['text'])


def find_refusal(answer, force):
    """Why an installation would be refused. The program itself says so only when it is to install."""
    for warning in answer['warnings']:
        if warning['refuses'] and warning['code'] not in force:
            return 'it would be refused because of %s%s; %s; or add %s to force' % (
                warning['code'], ': ' + warning['path'] if 'path' in warning else '',
                warning['text'], warning['code'])
    return None


def find_failure(command, answer, force):
    if 'error' in answer:
        return answer['error']
    if answer['status'] not in GOOD_STATUSES[command]:
        return 'korvalen_admin %s ended with status %d and gave no reason' % (command, answer['status'])
    return find_refusal(answer, force) if command == 'plan' else None


def diff_of(change):
    path = change['path']
    if 'diff' in change:
        return dict(before_header=path, after_header=path, prepared=change['diff'])
    shown = '%s, mode %s, owner %s\n' % (change['type'], change['mode'], change['owner'])
    if change['change'] == 'new':
        return dict(before_header=path + ' (absent)', before='', after_header=path, after=shown)
    if change['change'] == 'removed':
        return dict(before_header=path, before=shown, after_header=path + ' (absent)', after='')
    before = BEFORE.get(change['change'], 'another state') + '\n'
    return dict(before_header=path, before=before, after_header=path, after=shown)


def result_of(answer, line, wants_diff):
    result = dict(
        changed=bool(answer['changes']),
        changes=answer['changes'],
        notices=answer['warnings'],
        status=answer['status'],
        cmd=line,
    )
    if 'installer' in answer:
        result['installer'] = answer['installer']
    if wants_diff:
        result['diff'] = [diff_of(change) for change in answer['changes']]
    return result


def find_relative(params):
    for name in ('product_dir', 'envi_dir'):
        if params[name] and not params[name].startswith('/'):
            return '%s must be an absolute path, not %s' % (name, params[name])
    return None


def run_module(module):
    relative = find_relative(module.params)
    if relative:
        module.fail_json(msg=relative)
    executable = module.get_bin_path(module.params['executable'], required=True)
    line = command_line(executable, module.params, module.check_mode)
    # Each argument is a word already, and stays as it is.
    status, output, errors = module.run_command(line, expand_user_and_vars=False)
    try:
        answer = read_answer(status, output, errors)
    except NoAnswer as problem:
        module.fail_json(msg='%s cannot be used: %s' % (executable, problem), status=status, cmd=line,
                         stdout=output, stderr=errors)
    result = result_of(answer, line, module._diff)
    failure = find_failure(line[1], answer, module.params['force'])
    for warning in answer['warnings']:
        module.warn(text_of_warning(warning))
    if failure:
        module.fail_json(msg=failure, **result)
    module.exit_json(**result)


def main():
    run_module(AnsibleModule(argument_spec=ARGUMENTS, supports_check_mode=True))


if __name__ == '__main__':
    main()
