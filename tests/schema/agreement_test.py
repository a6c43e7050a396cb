"""Compares the JSON schema of launch lists with what `launchlist check` reports.

    agreement_test.py LAUNCHLIST SCHEMA LISTS...

LISTS are directories with launch lists. Lists that are not strict JSON are skipped, because a
schema says nothing about them.
"""

import json
import pathlib
import subprocess
import sys
import unittest

import jsonschema

# Kinds that depend on more than the shape of a list: on several values, on the order of the text or
# on the files of the machine. The schema must accept a list in which nothing else is wrong.
BEYOND_A_SCHEMA = {
    "zero-byte",
    "trailing-text",
    "duplicate-item",
    "duplicate-member",
    "duplicate-name",
    "program-relative",
    "program-relative-unusable",
    "program-missing",
    "program-inaccessible",
    "program-not-executable",
    "program-empty",
    "program-format",
    "program-interpreter",
    "program-foreign",
    "argument-too-long",
    "arguments-too-long",
}

# Kinds of which a schema can express some cases only: whether there are arguments at all, but not
# how many; the type of a number, but not how it is written; a path that ends in a slash, but not
# one that is a directory.
PARTLY_IN_THE_SCHEMA = {
    "item-unreached",
    "args-missing",
    "args-beyond-argc",
    "argc-value",
    "argument-text",
    "program-not-regular",
}


def reject_constant(name):
    raise ValueError(f"{name} is not JSON")


class Agreement(unittest.TestCase):
    def lists(self):
        for directory in LISTS:
            for path in sorted(directory.glob("**/*.json")):
                # check_test.cpp says what these stand for.
                text = path.read_bytes().replace(b"@MANY@", b'"0": "x"')
                try:
                    yield path, text, json.loads(text.decode(), parse_constant=reject_constant)
                except (ValueError, RecursionError):  # Not JSON, or nested too deep.
                    pass

    def test_schema_and_check_agree_on_every_list(self):
        schema = json.loads(SCHEMA.read_text(encoding="utf-8"))
        validator = jsonschema.Draft202012Validator(schema)
        seen = {True: 0, False: 0}
        for path, text, document in self.lists():
            output = subprocess.run(
                [LAUNCHLIST, "check", "--json", "-"], input=text, capture_output=True, check=False
            ).stdout
            kinds = {finding["kind"] for finding in json.loads(output)["lists"][0]["findings"]}
            errors = [error.message for error in validator.iter_errors(document)]
            with self.subTest(path.name, kinds=kinds, errors=errors):
                if errors:
                    self.assertTrue(kinds - BEYOND_A_SCHEMA, "only the schema rejects the list")
                else:
                    in_schema = kinds - BEYOND_A_SCHEMA - PARTLY_IN_THE_SCHEMA
                    self.assertFalse(in_schema, "the schema accepts what check reports")
            seen[not errors] += 1
        self.assertGreater(seen[True], 40)
        self.assertGreater(seen[False], 60)


if __name__ == "__main__":
    LAUNCHLIST = sys.argv[1]
    SCHEMA, *LISTS = map(pathlib.Path, sys.argv[2:])
    unittest.main(argv=sys.argv[:1])
