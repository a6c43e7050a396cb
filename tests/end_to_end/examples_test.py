"""The jq filters among the examples of launchlist(1), on the output of launchlist."""

import json
import re
import shutil
import subprocess
import unittest

import namespace
from launcher import END, STAY, LauncherTest, item, numbered
from launchlist_test import launchlist
from namespace import STAGE

PAGE = STAGE + "/share/man/man1/launchlist.1"


def filter_of(command):
    """The filter in the example that passes the JSON of this command to jq."""
    with open(PAGE, encoding="utf-8") as file:
        page = file.read()
    found = re.findall(
        rf"^\.Dl \$ launchlist {command} --json \| jq -r '(.*)'$", page, re.MULTILINE
    )
    (text,) = found
    return text.replace(r"\(dq", '"')


@unittest.skipIf(shutil.which("jq") is None, "jq is not installed")
class Jq(LauncherTest):
    def names(self, command, output):
        """What the example prints."""
        result = subprocess.run(
            ["jq", "-r", filter_of(command)],
            input=output.encode(),
            capture_output=True,
            check=False,
        )
        self.assertEqual((0, b""), (result.returncode, result.stderr))
        return result.stdout.decode().splitlines()

    def test_the_names_of_items(self):
        launcher = self.start(
            numbered(
                item("stays", STAY, "stays"),
                item("no program", "/nonexistent"),
                item("looper", END, "exit", "3"),
            )
        )
        self.wait_for_starts(1, "stays")
        # The log has the end of the fifth run before the sixth starts.
        self.wait_for_starts(6, "exit")
        status = launchlist("status", "--json", statuses=(0, 1))
        (entry,) = json.loads(status)["launchers"]
        stopped = [each["name"] for each in entry["items"] if each["state"] != "running"]
        self.assertIn("no program", stopped)
        self.assertNotIn("stays", stopped)
        self.assertEqual(stopped, self.names("status", status))
        report = launchlist("report", "--json")
        self.assertEqual(["looper"], self.names("report", report))
        launcher.kill()


if __name__ == "__main__":
    namespace.main()
