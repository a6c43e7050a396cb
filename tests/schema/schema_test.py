"""Validates good and bad launch lists against the JSON Schema.

    schema_test.py SCHEMA LISTS-DIRECTORY LIST...

Lists in LISTS-DIRECTORY/good and every LIST must be valid, and those in LISTS-DIRECTORY/bad
invalid.
"""

import json
import pathlib
import sys
import unittest

import jsonschema


class Schema(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        schema = json.loads(SCHEMA.read_text())
        jsonschema.Draft202012Validator.check_schema(schema)
        cls.validator = jsonschema.Draft202012Validator(schema)

    def test_accepts_every_good_list(self):
        lists = sorted((LISTS / "good").glob("*.json")) + EXAMPLES
        self.assertGreater(len(lists), len(EXAMPLES))
        for path in lists:
            with self.subTest(path.name):
                self.validator.validate(json.loads(path.read_text()))

    def test_rejects_every_bad_list(self):
        lists = sorted((LISTS / "bad").glob("*.json"))
        self.assertTrue(lists)
        for path in lists:
            with self.subTest(path.name):
                self.assertFalse(self.validator.is_valid(json.loads(path.read_text())))


if __name__ == "__main__":
    SCHEMA, LISTS, *EXAMPLES = map(pathlib.Path, sys.argv[1:])
    unittest.main(argv=sys.argv[:1])
