"""Checks that dependencies between the directories point one way only.

    includes.py              checks every source of the repository
    includes.py --self-test  checks that the check works

A file may include headers of its own directory and of those that LAYERS lists for it. Only the
public header of qv7log is known elsewhere; the tools, which read logs, also know its record format.
Tests, benchmarks and examples may include everything, but nothing includes them.
"""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

# Each directory and those whose headers it may include.
LAYERS = {
    "util": set(),
    "json": {"util"},
    "config": {"util"},
    "qv7log": set(),
    "logging": {"util", "config", "qv7log"},
    "launcher": {"util", "json", "config", "qv7log", "logging"},
    "tools": {"util", "json", "config", "qv7log", "logging", "launcher"},
}
LAUNCHLIST = "tools/launchlist"
LAUNCHLIST_LAYERS = {
    "base": set(),
    "list": {"base"},
    "log": {"base"},
    "processes": {"base"},
    "status": {"base", "list", "log", "processes"},
    "output": {"base", "list", "log", "status"},
    "commands": {"base", "list", "log", "processes", "status", "output"},
}
FREE = {"bench", "examples", "tests"}

PUBLIC_LOG_HEADER = "qv7log/include/qv7log.h"
LOG_HEADERS_FOR_TOOLS = {
    PUBLIC_LOG_HEADER,
    "qv7log/calendar.h",
    "qv7log/record_format.h",
    "qv7log/record_reader.h",
}

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')


def problem(path, header):
    """Why `path` may not include `header`, or None. Both are relative to the repository."""
    top, other = path.split("/")[0], header.split("/")[0]
    if other in FREE:
        return None if top in FREE else f"{other}/ is not part of the program"
    if top in FREE:
        return None
    if other not in LAYERS:
        return "headers are included by their path from the top of the repository"
    if top != other and other not in LAYERS[top]:
        return f"{top}/ must not depend on {other}/"
    if other == "qv7log" != top:
        known = LOG_HEADERS_FOR_TOOLS if top == "tools" else {PUBLIC_LOG_HEADER}
        if header not in known:
            return f"{header} is private to qv7log/"
    return problem_in_launchlist(path, header)


def problem_in_launchlist(path, header):
    if not (path.startswith(LAUNCHLIST + "/") and header.startswith(LAUNCHLIST + "/")):
        return None
    part, other = (name.split("/")[2] for name in (path, header))
    # main.cpp belongs to no part and may use all of them.
    if part in LAUNCHLIST_LAYERS and other != part and other not in LAUNCHLIST_LAYERS[part]:
        return f"{LAUNCHLIST}/{part} must not depend on {LAUNCHLIST}/{other}"
    return None


def check(root, paths):
    """Prints every forbidden include in the files; returns how many there are."""
    count = 0
    for path in paths:
        top = path.split("/")[0]
        if top not in LAYERS and top not in FREE:
            print(f"{path}: LAYERS in {pathlib.Path(__file__).name} does not have {top}/")
            count += 1
            continue
        for number, line in enumerate((root / path).read_text(encoding="utf-8").splitlines(), 1):
            match = INCLUDE.match(line)
            reason = match and problem(path, match[1])
            if reason:
                print(f'{path}:{number}: "{match[1]}": {reason}')
                count += 1
    return count


class SelfTest(unittest.TestCase):
    PERMITTED = [
        ("json/a.cpp", "json/b.h"),
        ("json/a.cpp", "util/util.h"),
        ("logging/a.cpp", "qv7log/include/qv7log.h"),
        ("launcher/main.cpp", "logging/log.h"),
        ("qv7log/a.cpp", "qv7log/private.h"),
        ("tools/launchlist/log/a.cpp", "qv7log/record_reader.h"),
        ("tools/launchlist/log/a.cpp", "tools/launchlist/base/text.h"),
        ("tools/launchlist/output/a.cpp", "tools/launchlist/list/check.h"),
        ("tools/launchlist/commands/a.cpp", "tools/launchlist/output/report.h"),
        ("tools/launchlist/status/a.cpp", "tools/launchlist/processes/processes.h"),
        ("tools/launchlist/output/a.cpp", "tools/launchlist/status/status.h"),
        ("tools/launchlist/main.cpp", "tools/launchlist/commands/a.h"),
        ("tools/launchlist/list/a.cpp", "launcher/launch_item.h"),
        ("tests/qv7log/a_test.cpp", "qv7log/private.h"),
        ("bench/a.cpp", "launcher/child_proc.h"),
    ]
    FORBIDDEN = [
        ("util/a.cpp", "json/json_object.h"),
        ("json/a.cpp", "config/locations.h"),
        ("config/a.cpp", "logging/log.h"),
        ("config/a.cpp", "json/json_object.h"),
        ("logging/a.cpp", "launcher/main.h"),
        ("launcher/a.cpp", "tools/launchlist/list/check.h"),
        ("qv7log/a.cpp", "util/util.h"),
        ("launcher/a.cpp", "qv7log/record_reader.h"),
        ("logging/a.cpp", "qv7log/record.h"),
        ("tools/launchlist/log/a.cpp", "qv7log/record.h"),
        ("tools/launchlist/base/a.cpp", "tools/launchlist/log/history.h"),
        ("tools/launchlist/list/a.cpp", "tools/launchlist/log/history.h"),
        ("tools/launchlist/log/a.cpp", "tools/launchlist/list/check.h"),
        ("tools/launchlist/log/a.cpp", "tools/launchlist/output/report.h"),
        ("tools/launchlist/list/a.cpp", "tools/launchlist/main.h"),
        ("tools/launchlist/processes/a.cpp", "tools/launchlist/log/log_time.h"),
        ("tools/launchlist/output/a.cpp", "tools/launchlist/processes/processes.h"),
        ("tools/launchlist/output/a.cpp", "tools/launchlist/commands/a.h"),
        ("launcher/a.cpp", "tests/support/fake.h"),
        ("launcher/a.cpp", "child_proc.h"),
    ]

    def test_permitted(self):
        for path, header in self.PERMITTED:
            with self.subTest(path=path, header=header):
                self.assertIsNone(problem(path, header))

    def test_forbidden(self):
        for path, header in self.FORBIDDEN:
            with self.subTest(path=path, header=header):
                self.assertIsNotNone(problem(path, header))

    def test_counts_what_is_found_in_files(self):
        with tempfile.TemporaryDirectory() as directory:
            root = pathlib.Path(directory)
            (root / "util").mkdir()
            (root / "new").mkdir()
            (root / "util/a.h").write_text(
                '#include "util/b.h"\n  #  include "json/c.h"\n#include <json/json.h>\n'
                '// #include "json/d.h"\n',
                encoding="utf-8",
            )
            (root / "new/e.h").write_text("", encoding="utf-8")
            self.assertEqual(1, check(root, ["util/a.h"]))
            self.assertEqual(1, check(root, ["new/e.h"]))


def main():
    if sys.argv[1:] == ["--self-test"]:
        unittest.main(argv=[sys.argv[0]], verbosity=0, buffer=True)
    root = pathlib.Path.cwd()
    tracked = subprocess.run(
        ["git", "ls-files", "*.cpp", "*.h"], check=True, stdout=subprocess.PIPE, text=True
    ).stdout.splitlines()
    sys.exit(1 if check(root, [path for path in tracked if (root / path).is_file()]) else 0)


if __name__ == "__main__":
    main()
