#!/usr/bin/python3
"""Holds the reports of a directory against the schema and against what a schema cannot say; then holds the schema
against reports that it must refuse: check_reports.py SCHEMA DIRECTORY"""

import base64
import codecs
import copy
import json
import pathlib
import sys

import jsonschema

# One replacement for each wrong byte.
codecs.register_error("each_byte", lambda wrong: ("\ufffd" * (wrong.end - wrong.start), wrong.end))


def without_duplicates(members):
    keys = [key for key, _ in members]
    assert len(keys) == len(set(keys)), f"a key stands twice among {keys}"
    return dict(members)


def exact(of, key):
    """The bytes of a text."""
    return base64.b64decode(of[key + "_base64"]) if key + "_base64" in of else of.get(key, "").encode()


def check_texts(value):
    """Exact bytes stand beside a text only where it is no UTF-8, and are what it was made of."""
    if isinstance(value, list):
        for item in value:
            check_texts(item)
    if not isinstance(value, dict):
        return
    for key, member in value.items():
        check_texts(member)
        if key.endswith("_base64"):
            text = value[key.removesuffix("_base64")]
            made = base64.b64decode(member, validate=True).decode("utf-8", "each_byte")
            assert text == made, f"{key} stands for {made!r}, and the text beside it is {text!r}"


def check_order(report):
    paths = [exact(change, "path") for change in report["changes"]]
    assert paths == sorted(set(paths)), f"the changes are not sorted by path, one a path: {paths}"
    warnings = [(warning["code"].encode(), exact(warning, "path")) for warning in report["warnings"]]
    assert warnings == sorted(warnings), f"the warnings are not sorted by code, then path: {warnings}"


def check(file, validator):
    text = file.read_bytes()
    assert text.endswith(b"}\n") and text.count(b"\n") == 1, "it is not one object and a line end"
    report = json.loads(text.decode("utf-8", "strict"), object_pairs_hook=without_duplicates)
    errors = [f"{error.json_path}: {error.message}" for error in validator.iter_errors(report)]
    assert not errors, "the schema refuses it:\n  " + "\n  ".join(errors)
    check_texts(report)
    check_order(report)
    return report


# What is wrong with a plan that would change something, and how to make it so.
WRONG_PLANS = [
    ("an unknown member", lambda plan: plan.update(extra=1)),
    ("an unknown member of a change", lambda plan: plan["changes"][0].update(size=1)),
    ("null for an absent error", lambda plan: plan.update(error=None)),
    ("null for an absent diff", lambda plan: plan["changes"][0].update(diff=None)),
    ("an error with status 2", lambda plan: plan.update(error="no")),
    ("status 1 without an error", lambda plan: plan.update(status=1)),
    ("status 0 with changes", lambda plan: plan.update(status=0)),
    ("status 2 without changes", lambda plan: plan.update(changes=[])),
    ("status 255", lambda plan: plan.update(status=255)),
    ("a truth for a number", lambda plan: plan["installer"].update(status=False)),
    ("no list of warnings", lambda plan: plan.pop("warnings")),
    ("no installer", lambda plan: plan.pop("installer")),
    ("another version", lambda plan: plan.update(version=2)),
    ("an unknown kind of change", lambda plan: plan["changes"][0].update(change="none")),
    ("a mode of three digits", lambda plan: plan["changes"][0].update(mode="755")),
    ("an owner by name", lambda plan: plan["changes"][0].update(owner="root:root")),
    ("a relative path", lambda plan: plan["changes"][0].update(path="etc/quorin")),
    ("a trailing slash", lambda plan: plan["changes"][0].update(path="/etc/quorin/")),
    ("a component ..", lambda plan: plan["changes"][0].update(path="/etc/../quorin")),
    ("exact bytes of a text that is UTF-8", lambda plan: plan["changes"][0].update(path_base64="L2V0Yw==")),
    ("a link with another mode", lambda plan: plan["changes"][0].update(type="link", mode="0755")),
    ("an unknown code", lambda plan: plan["warnings"].append({"code": "odd", "refuses": False, "text": "x"})),
    ("no-idl that does not refuse", lambda plan: plan["warnings"].append({"code": "no-idl", "refuses": False, "text": "x"})),
    ("blanks that refuse", lambda plan: plan["warnings"].append({"code": "blanks", "refuses": True, "text": "x"})),
]


def check_strictness(plan, validator):
    for sentence, spoil in WRONG_PLANS:
        wrong = copy.deepcopy(plan)
        spoil(wrong)
        assert not validator.is_valid(wrong), f"the schema takes a report with {sentence}"


def main():
    schema = json.loads(pathlib.Path(sys.argv[1]).read_text())
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    reports = {}
    for file in sorted(pathlib.Path(sys.argv[2]).glob("*.json")):
        try:
            reports[file.stem] = check(file, validator)
        except (AssertionError, ValueError) as problem:
            sys.exit(f"json_reports: the report {file.stem}: {problem}\n{file.read_bytes()!r}")
    try:
        check_strictness(reports["system-layout"], validator)
    except AssertionError as problem:
        sys.exit(f"json_reports: {problem}")


main()
