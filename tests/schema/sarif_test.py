"""Validates what `launchlist check --sarif` prints against the published schema of SARIF 2.1.0.

sarif_test.py LAUNCHLIST LISTS
"""

import json
import pathlib
import subprocess
import sys
import unittest

import jsonschema

SCHEMA = pathlib.Path(__file__).parent / "published" / "sarif-schema-2.1.0.json"


def sarif(*lists):
    output = subprocess.run(
        [LAUNCHLIST, "check", "--sarif", *lists], capture_output=True, check=False
    ).stdout
    return json.loads(output)


class Sarif(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        schema = json.loads(SCHEMA.read_text(encoding="utf-8"))
        validator = jsonschema.validators.validator_for(schema)
        validator.check_schema(schema)
        cls.validator = validator(schema, format_checker=validator.FORMAT_CHECKER)

    def test_every_list_and_an_unreadable_one(self):
        lists = sorted(LISTS.glob("*.json"))
        self.assertGreater(len(lists), 100)
        log = sarif("/nowhere", *lists)
        self.validator.validate(log)
        results = log["runs"][0]["results"]
        self.assertGreater(len(results), 100)
        self.assertEqual({"error", "warning"}, {result["level"] for result in results})
        rules = log["runs"][0]["tool"]["driver"]["rules"]
        for result in results:
            self.assertEqual(result["ruleId"], rules[result["ruleIndex"]]["id"])
        self.assertFalse(log["runs"][0]["invocations"][0]["executionSuccessful"])

    def test_a_list_without_mistakes(self):
        log = sarif(LISTS / "good.json")
        self.validator.validate(log)
        self.assertEqual([], log["runs"][0]["results"])

    def test_the_schema_rejects_other_logs(self):
        log = sarif(LISTS / "empty.json")
        self.assertTrue(self.validator.is_valid(log))
        (result,) = log["runs"][0]["results"]
        for name, value in (("level", "fatal"), ("ruleIndex", -2), ("line", 1), ("message", {})):
            wrong = {**log, "runs": [{**log["runs"][0], "results": [{**result, name: value}]}]}
            self.assertFalse(self.validator.is_valid(wrong), name)


if __name__ == "__main__":
    LAUNCHLIST = sys.argv[1]
    LISTS = pathlib.Path(sys.argv[2])
    unittest.main(argv=sys.argv[:1])
