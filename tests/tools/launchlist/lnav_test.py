"""Tests that lnav reads the launcher's log with the format file.

lnav_test.py FORMAT_DIRECTORY
"""

import csv
import io
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

HERE = pathlib.Path(__file__).resolve().parent
SKIPPED = 77

# The log's records as lnav must read them: level, program, process, item, child, status.
RECORDS = [
    ("debug", "launcher", "100", "agent", "", ""),
    ("debug", "launcher", "100", "a is empty", "", ""),
    ("debug", "launcher", "100", "a 1 is killed. ret = 1, status = 9", "", ""),
    ("error", "launcher", "100", "agent", "4712", "9"),
    ("error", "launcher", "100", "Failed to fork x 1 is killed. ret = 1, status = 9", "5", "768"),
    ("error", "launcher", "100", "abandoned", "", ""),
    ("error", "launcher", "100", "no program", "", ""),
    ("error", "launcher", "100", "", "", ""),
    ("error", "launcher", "100", "", "", ""),
    ("info", "indexer", "77", "", "", ""),
    ("warning", "indexer", "77", "", "", ""),
    ("critical", "indexer", "77", "", "", ""),
    ("trace", "indexer", "77", "", "", ""),
    ("debug", "indexer", "77", "", "", ""),
]
# The level, program and text of each record.
TEXTS = [
    ("DEBUG", "launcher[100]", "[LAUNCHER  ] Start to fork agent"),
    ("DEBUG", "launcher[100]", "[LAUNCHER  ] Start to fork a is empty"),
    ("DEBUG", "launcher[100]", "[LAUNCHER  ] Start to fork a 1 is killed. ret = 1, status = 9"),
    ("ERROR", "launcher[100]", "[LAUNCHER  ] agent 4712 is killed. ret = 4712, status = 9"),
    (
        "ERROR",
        "launcher[100]",
        "[LAUNCHER  ] Failed to fork x 1 is killed. ret = 1, status ="
        " 9 5 is killed. ret = 5, status = 768",
    ),
    ("ERROR", "launcher[100]", "[LAUNCHER  ] Failed to fork abandoned"),
    ("ERROR", "launcher[100]", "[LAUNCHER  ] program path of no program is empty"),
    ("ERROR", "launcher[100]", "[LAUNCHER  ] There is an item has no name."),
    ("ERROR", "launcher[100]", "[QV7LOG    ] 12 records were lost"),
    ("MESSAGE", "indexer[77]", "[OTHER     ] news"),
    ("WARNING", "indexer[77]", "[OTHER     ] news"),
    ("CRITICAL", "indexer[77]", "[OTHER     ] news"),
    ("VERBOSE", "indexer[77]", "[OTHER     ] news"),
    ("DEBUG", "indexer[77]", "[OTHER     ] news"),
]
LOG = "".join(
    f"2026-11-21T02:00:00.{100 + number}Z {level:8} {program} {text}\n"
    for number, (level, program, text) in enumerate(TEXTS)
)


def lnav(directory, *arguments):
    """Runs lnav with its own home directory and our format only."""
    config = pathlib.Path(directory) / "share"
    (config / "formats").mkdir(parents=True, exist_ok=True)
    if not (config / "formats/kestrane").exists():
        shutil.copytree(FORMATS, config / "formats/kestrane")
    return subprocess.run(
        ["lnav", "-I", str(config), "-n", *arguments],
        env={**os.environ, "HOME": directory, "TERM": "dumb"},
        stdin=subprocess.DEVNULL,
        capture_output=True,
        text=True,
        check=False,
    )


class Lnav(unittest.TestCase):
    maxDiff = None

    def test_the_format_is_valid(self):
        with tempfile.TemporaryDirectory() as directory:
            result = lnav(directory, "-C")
            self.assertEqual(("", 0), (result.stderr, result.returncode))

    def test_the_fields_of_each_record(self):
        with tempfile.TemporaryDirectory() as directory:
            log = pathlib.Path(directory) / "qv7log"
            log.write_text(LOG, encoding="utf-8")
            query = (
                ";SELECT log_level, program, process, ifnull(item, ''), ifnull(child, ''), "
                "ifnull(status, ''), log_time_msecs "
                "FROM kestrane_launcher"
            )
            result = lnav(directory, "-c", query, "-c", ":write-csv-to -", str(log))
            self.assertEqual("", result.stderr)
            rows = list(csv.reader(io.StringIO(result.stdout)))[1:]
        self.assertEqual(RECORDS, [tuple(row[:-1]) for row in rows])
        self.assertEqual(list(range(14)), [int(row[-1]) - 1795226400100 for row in rows])

    def test_the_documented_installation_and_query(self):
        guide = (HERE.parents[2] / "docs/launchlist.md").read_text(encoding="utf-8")
        (installation,) = re.findall(r"`(lnav [^`]* -i [^`]*)`", guide)
        (query,) = re.findall(r"-c '(;SELECT [^']*)'", guide)
        with tempfile.TemporaryDirectory() as directory:
            prefix = pathlib.Path(directory) / "prefix"
            shutil.copytree(FORMATS, prefix / "share/lnav/formats/kestrane")
            environment = {
                **{name: os.environ[name] for name in ("PATH", "LANG") if name in os.environ},
                "HOME": directory,
                "TERM": "dumb",
            }

            def execute(*arguments):
                return subprocess.run(
                    arguments,
                    env=environment,
                    stdin=subprocess.DEVNULL,
                    capture_output=True,
                    text=True,
                    check=False,
                )

            log = str(HERE / "logs/mixed.1")
            rows = ("lnav", "-n", "-c", query, "-c", ":write-csv-to -", log)
            self.assertNotIn("crasher,6", execute(*rows).stdout, "lnav knows the format already")
            words = installation.replace("/some/directory", str(prefix)).split()
            installed = execute(*words)
            self.assertEqual(0, installed.returncode, installed.stderr)
            self.assertIn("crasher,6\n", execute(*rows).stdout)

    def test_a_log_of_the_tests(self):
        with tempfile.TemporaryDirectory() as directory:
            query = (
                ";SELECT item, count(*) FROM kestrane_launcher WHERE status > 0 "
                "GROUP BY item ORDER BY 2 DESC"
            )
            result = lnav(
                directory, "-c", query, "-c", ":write-csv-to -", str(HERE / "logs/mixed.1")
            )
        self.assertEqual("crasher,6", result.stdout.splitlines()[1])


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    FORMATS = sys.argv.pop(1)
    if shutil.which("lnav") is None:
        print("skipped: lnav is not installed")
        sys.exit(SKIPPED)
    unittest.main()
