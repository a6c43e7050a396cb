"""Validates the JSON output of launchlist against its published schemas.

    output_schema_test.py LAUNCHLIST SCHEMAS LISTS STATUS

SCHEMAS contains check.schema.json and so on; LISTS contains launch lists. STATUS is what a unit test
proves to be the output of `status` for one of everything.
"""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

import jsonschema


def run(*arguments):
    return subprocess.run([LAUNCHLIST, *arguments], capture_output=True, check=False).stdout


class OutputSchema(unittest.TestCase):
    def validator(self, name):
        schema = json.loads((SCHEMAS / f"{name}.schema.json").read_text(encoding="utf-8"))
        jsonschema.Draft202012Validator.check_schema(schema)
        return jsonschema.Draft202012Validator(schema)

    def test_every_list_is_checked_and_explained_as_the_schema_says(self):
        check, explain = self.validator("check"), self.validator("explain")
        lists = sorted(LISTS.glob("*.json"))
        self.assertGreater(len(lists), 100)
        check.validate(json.loads(run("check", "--json", "/nowhere", *lists)))
        for path in lists:
            with self.subTest(path.name):
                explain.validate(json.loads(run("explain", "--json", path)))

    def test_omitted_arguments_are_counted(self):
        items = {str(i): {"name": str(i), "program": "/bin/sh", "argc": 60_000} for i in range(4)}
        with tempfile.NamedTemporaryFile("w", encoding="utf-8") as file:
            json.dump(items, file)
            file.flush()
            output = json.loads(run("explain", "--json", file.name))
        explain = self.validator("explain")
        explain.validate(output)
        self.assertEqual(60_001, len(output["items"][2]["arguments"]))
        self.assertEqual(60_001, output["items"][3]["argument_count"])
        output["items"][3]["arguments"] = []
        self.assertFalse(explain.is_valid(output))

    def test_every_kind_of_status_is_as_the_schema_says(self):
        status = self.validator("status")
        status.validate(json.loads(run("status", "--json")))
        output = json.loads(STATUS.read_text(encoding="utf-8"))
        status.validate(output)
        launcher = output["launchers"][0]
        states = {item["state"] for item in launcher["items"]}
        schema = status.schema["$defs"]["item"]["properties"]["state"]["enum"]
        self.assertEqual(set(schema), states)
        for broken in (
            {**output, "format_version": 2},
            {**output, "more": 1},
            {**output, "launchers": [{**launcher, "pid": "100"}]},
            {
                **output,
                "launchers": [{**launcher, "items": [{**launcher["items"][0], "process": None}]}],
            },
        ):
            self.assertFalse(status.is_valid(broken))

    def test_the_schema_is_not_empty(self):
        check, explain = self.validator("check"), self.validator("explain")
        self.assertFalse(check.is_valid({"format_version": 1}))
        self.assertFalse(check.is_valid({"format_version": 2, "lists": []}))
        output = json.loads(run("explain", "--json", LISTS / "good.json"))
        self.assertTrue(explain.is_valid(output))
        output["outcomes"][0]["signal"] = 9
        self.assertFalse(explain.is_valid(output), "a launcher that keeps running has no signal")


if __name__ == "__main__":
    LAUNCHLIST = sys.argv[1]
    SCHEMAS, LISTS, STATUS = map(pathlib.Path, sys.argv[2:])
    unittest.main(argv=sys.argv[:1])
