"""Which environment variables the programs of the bundle read. SECURITY.md and launchlist(1) name
them."""

import os
import re
import subprocess

import namespace
from launcher import BUNDLE, END, WORK, LauncherTest, LimitedUserTest, item, numbered
from log import read_lines
from namespace import HELPERS

LAUNCHLIST = BUNDLE + "/Contents/MacOS/launchlist"
VARIABLES = WORK + "/variables"
# The launcher passes them to its helpers, so what these read is noted, too.
ENVIRONMENT = {
    "LD_PRELOAD": HELPERS + "/variables.so",
    "KESTRANE_TEST_VARIABLES": VARIABLES,
}


def variables_read():
    """The names of the variables, by the name of the program or library."""
    found = {}
    for line in read_lines(VARIABLES):
        path, name = line.split("\t")
        found.setdefault(os.path.basename(path), set()).add(name)
    return found


def read_by_launcher():
    return {
        name
        for program, names in variables_read().items()
        if program == "launcher" or program.startswith("libqv7log")
        for name in names
    }


class User(LauncherTest):
    def test_the_launcher_reads_no_variable(self):
        launcher = self.start(numbered(item("a", END, "exit", "3")), environment=ENVIRONMENT)
        self.wait_for_starts(2)
        launcher.kill()
        self.assertIn("end", variables_read(), "nothing was noted")
        self.assertEqual(set(), read_by_launcher())

    def test_launchlist_reads_only_the_variables_of_its_manual_page(self):
        self.write(WORK + "/list.json", '{"0": {"name": "a", "program": "sleep"}}')
        for arguments in (
            *(["check", WORK + "/list.json"], ["explain", WORK + "/list.json"]),
            *(["fix", WORK + "/list.json"], ["new", "a", "/bin/sh"], ["completion", "bash"]),
            *(["report"], ["log"], ["status"], ["--help"]),
        ):
            subprocess.run(
                [LAUNCHLIST, *arguments],
                env={**ENVIRONMENT, "PATH": "/usr/bin:/bin"},
                stdout=subprocess.DEVNULL,
                stderr=subprocess.DEVNULL,
                check=False,
            )
        with open(namespace.STAGE + "/share/man/man1/launchlist.1", encoding="utf-8") as page:
            documented = set(re.findall(r"(?m)^\.It Ev (\w+)$", page.read()))
        # HOME is read only for a user without an entry; TZ is read by the C library.
        self.assertEqual(documented, variables_read()["launchlist"] | {"HOME", "TZ"})


class UserWithoutEntry(LimitedUserTest):
    def test_the_launcher_reads_only_the_home_directory(self):
        self.write(VARIABLES, "")
        os.chmod(VARIABLES, 0o666)
        launcher = self.start(
            numbered(item("a", END, "exit", "3")),
            environment={**ENVIRONMENT, "HOME": self.home},
            before=lambda: self.become_limited(16),
        )
        self.wait_for_starts(2)
        launcher.kill()
        self.assertEqual({"HOME"}, read_by_launcher())


if __name__ == "__main__":
    namespace.main()
