"""The jq filters among the examples of launchlist(1), on the output of launchlist; and the status that
README.md shows."""

import json
import pathlib
import re
import shutil
import subprocess
import unittest

import namespace
from launcher import END, STAY, WORK, LauncherTest, item, numbered
from launchlist_test import launchlist
from namespace import STAGE

README = pathlib.Path(__file__).resolve().parents[2] / "README.md"
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
                # Never started, because it has no name.
                {},
                item("looper", END, "exit", "3"),
            )
        )
        self.wait_for_starts(1, "stays")
        # The log has the end of the fifth run before the sixth starts.
        self.wait_for_starts(6, "exit")
        status = launchlist("status", "--json", statuses=(0, 1))
        (entry,) = json.loads(status)["launchers"]
        stopped = [each["name"] for each in entry["items"] if each["state"] != "running"]
        self.assertIn(None, stopped)
        self.assertNotIn("stays", stopped)
        stopped[stopped.index(None)] = "null"
        self.assertEqual(stopped, self.names("status", status))
        report = launchlist("report", "--json")
        self.assertEqual(["looper"], self.names("report", report))
        launcher.kill()


def layout(text):
    """A status without what differs from one to the next: times, numbers and the width of columns."""
    text = re.sub(r"(?m)^(    (?:list|log) +).*$", r"\1PATH", text)
    text = re.sub(r"\d{4}-\d\d-\d\d", "DATE", text)
    text = re.sub(r"\d\d:\d\d:\d\d", "TIME", text)
    text = re.sub(r"\d+(\.\d)?", lambda match: "1.0" if match[1] else "1", text)
    return re.sub(r" +", " ", text)


class Readme(LauncherTest):
    def test_the_status(self):
        if not README.exists():
            self.skipTest("the sources are below the /tmp that is hidden")
        (example,) = re.findall(
            r"^```\n\$ launchlist status\n((?:(?!```).*\n)*)```$",
            README.read_text(encoding="utf-8"),
            re.MULTILINE,
        )
        names = ("sync-agent", "indexer", "thumbnailer")
        path = self.write(
            WORK + "/list.json", json.dumps(numbered(*(item(name, STAY, name) for name in names)))
        )
        launcher = self.start_with(["Kestrane Demo", path])
        self.wait_for_starts(3)
        launcher.settle()
        text = launchlist("status")
        self.assertEqual(layout(text), layout(example))
        self.assertEqual(1, launcher.stop())


if __name__ == "__main__":
    namespace.main()
