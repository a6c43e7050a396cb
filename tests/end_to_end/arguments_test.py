"""The argument vector and the environment of an item's program."""

import os
import re
import resource
import signal

import namespace
from launcher import (
    ABORTED,
    MANY,
    SANITIZER_OPTIONS,
    STAY,
    WORK,
    LauncherTest,
    item,
    nameless,
    numbered,
)
from log import end_text, read_lines, start_text, without_nameless
from namespace import HELPERS


class ArgumentVector(LauncherTest):
    def arguments_of(self, entry):
        """The arguments of an item's program, without argv[0]."""
        launcher = self.start(numbered({"name": "a", "program": STAY, **entry}))
        (start,) = self.wait_for_starts(1)
        self.assertEqual(1, launcher.stop())
        self.assertEqual(
            [("DEBUG", start_text("a")), ("ERROR", end_text("a", start.pid, 9))], launcher.log()
        )
        self.assertEqual(STAY.encode(), start.arguments[0])
        return start.arguments[1:]

    def test_each_json_type_as_an_argument(self):
        texts = [
            ("", ""),
            ("plain", "plain"),
            (" blanks and\ttabs\n", " blanks and\ttabs\n"),
            ("$HOME `id` \"quoted\" 'too' \\", "$HOME `id` \"quoted\" 'too' \\"),
            ("é€😀", "é€😀"),
            ("before\0after", "before"),
            (None, ""),
            (True, "true"),
            (False, "false"),
            (0, "0"),
            (-42, "-42"),
            (2**63 - 1, "9223372036854775807"),
            (-(2**63), "-9223372036854775808"),
            (2**64 - 1, "18446744073709551615"),
            (1.5, "1.5"),
            (-0.25, "-0.25"),
        ]
        values = [value for value, _ in texts]
        self.assertEqual(
            [text.encode() for _, text in texts],
            self.arguments_of(item("a", STAY, *values)),
        )

    def test_argc_is_the_number_of_arguments(self):
        args = {"0": "x", "1": "y", "3": "w"}
        cases = [
            ({"args": args}, []),
            ({"argc": 0, "args": args}, []),
            ({"argc": 1, "args": args}, [b"x"]),
            ({"argc": 2, "args": args}, [b"x", b"y"]),
            ({"argc": 4, "args": args}, [b"x", b"y", b"", b"w"]),
            ({"argc": 5, "args": args}, [b"x", b"y", b"", b"w", b""]),
            ({"argc": 2, "args": {"0": "x"}}, [b"x", b""]),
            ({"argc": 2, "args": {}}, [b"", b""]),
            ({"argc": 2, "args": None}, [b"", b""]),
            ({"argc": 2}, [b"", b""]),
            ({"argc": 1.9, "args": args}, [b"x"]),
            ({"argc": True, "args": args}, [b"x"]),
            ({"argc": False, "args": args}, []),
            ({"argc": None, "args": args}, []),
            ({"argc": 2**32 + 1, "args": args}, [b"x"]),
            # "args" is not read.
            ({"argc": 0, "args": []}, []),
        ]
        for entry, expected in cases:
            with self.subTest(entry):
                self.assertEqual(expected, self.arguments_of(entry))

    def test_fifty_thousand_arguments(self):
        half = {str(i): f"a{i}" for i in range(25_000)}
        self.assertEqual(
            [text.encode() for text in half.values()] + [b""] * 25_000,
            self.arguments_of({"argc": 50_000, "args": half}),
        )

    def test_argc_of_minus_one_gives_an_empty_vector(self):
        # Linux adds an empty argument to an empty vector.
        launcher = self.start(numbered({"name": "a", "program": STAY, "argc": -1}))
        (start,) = self.wait_for_starts(1)
        self.assertEqual([b""], start.arguments)
        self.assertEqual(1, launcher.stop())

    def test_failed_conversions_abort_the_child(self):
        entries = [
            {"argc": "1"},
            {"argc": {}},
            {"argc": []},
            {"argc": 1e30},
            {"argc": 2**64 - 1},
            {"argc": 1, "args": ["x"]},
            {"argc": 1, "args": "x"},
            {"argc": 1, "args": 7},
            {"argc": 1, "args": True},
            {"argc": 1, "args": {"0": {}}},
            {"argc": 2, "args": {"0": "x", "1": ["y"]}},
        ]
        for entry in entries:
            with self.subTest(entry):
                launcher = self.start(numbered({"name": "a", "program": STAY, **entry}))
                self.wait_for(lambda log=launcher.log: len(log()) >= 3, "a restart")
                log = launcher.log()
                launcher.kill()
                pid = int(re.search(r"a (\d+) is killed", log[1][1])[1])
                self.assertIn(log[1][1], [end_text("a", pid, status) for status in ABORTED])
                self.assertEqual(["DEBUG", "ERROR", "DEBUG"], [level for level, _ in log[:3]])
                self.assertEqual([start_text("a")] * 2, [log[0][1], log[2][1]])
                self.assertEqual([], self.starts())


class Program(LauncherTest):
    def test_the_path_is_passed_unchanged(self):
        roundabout = f"{HELPERS}/../helpers/./stay"
        os.symlink(STAY, WORK + "/42")
        os.symlink(STAY, WORK + "/true")
        programs = {roundabout: roundabout, "./42": "./42", "42": "42", 42: "42", True: "true"}
        for program, path in programs.items():
            with self.subTest(program):
                launcher = self.start(numbered({"name": "a", "program": program}))
                (start,) = self.wait_for_starts(1)
                self.assertEqual([path.encode()], start.arguments)
                self.assertEqual(1, launcher.stop())

    def test_an_object_or_array_aborts_the_launcher_but_not_its_children(self):
        for program in ({}, [STAY]):
            with self.subTest(program):
                launcher = self.start(
                    numbered(item("b"), *nameless(MANY), {"name": "a", "program": program})
                )
                self.assertEqual(-signal.SIGABRT, launcher.wait())
                self.assertEqual(
                    [("DEBUG", start_text("b"))],
                    without_nameless(launcher.log()),
                )
                self.assert_left_behind(["stay"])


class Inheritance(LauncherTest):
    def inherited(self, **options):
        launcher = self.start(numbered({"name": "a", "program": HELPERS + "/inherit"}), **options)
        self.wait_for_starts(1)
        self.assertEqual(1, launcher.stop())
        lines = read_lines(WORK + "/inherited")
        return (
            launcher,
            [line for line in lines if not line.startswith("environment ")],
            [line for line in lines if line.startswith("environment ")],
        )

    def test_the_log_is_descriptor_0_and_nothing_else_is_open(self):
        launcher, state, _ = self.inherited(before=lambda: os.umask(0o027))
        self.assertEqual(
            [
                f"descriptor 0: inode {os.stat(launcher.log_path).st_ino} write-only append",
                f"group {launcher.pid}",
                "mask 027",
            ],
            state,
        )

    def test_without_a_log_nothing_is_open(self):
        self.write(self.home + "/Library/Logs", "not a directory")
        launcher, state, _ = self.inherited(level_file=None, before=lambda: os.umask(0o022))
        self.assertEqual([f"group {launcher.pid}", "mask 022"], state)
        self.assertEqual(1, len(self.events()))

    def test_the_process_group_is_the_launchers(self):
        leader = self.spawn(["/bin/sleep", "1000"])
        self.wait_for(lambda: os.getpgid(leader) == leader, "the new process group")
        _, state, _ = self.inherited(before=lambda: os.setpgid(0, leader))
        self.assertIn(f"group {leader}", state)
        self.assert_left_behind(["sleep"])

    def test_other_descriptors_stay_open(self):
        def open_descriptor_7():
            os.dup2(os.open("/dev/null", os.O_RDONLY), 7)

        _, state, _ = self.inherited(before=open_descriptor_7)
        self.assertIn(f"descriptor 7: inode {os.stat('/dev/null').st_ino}", state)

    def test_standard_descriptors_may_be_closed_already(self):
        launcher, state, _ = self.inherited(before=lambda: os.closerange(0, 3))
        self.assertIn(
            f"descriptor 0: inode {os.stat(launcher.log_path).st_ino} write-only append", state
        )

    def test_the_resource_limits_are_the_launchers(self):
        limits = (1000, 1100)
        launcher = self.start(
            numbered(item("a")),
            before=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, limits),
        )
        (start,) = self.wait_for_starts(1)
        self.assertEqual(limits, resource.prlimit(start.pid, resource.RLIMIT_NOFILE))
        self.assertEqual(1, launcher.stop())

    def test_the_environment_is_the_launchers(self):
        variables = {"HOME": "/nowhere", "PATH": "/bin", "EMPTY": "", "A": "b=c"}
        _, _, environment = self.inherited(environment=variables)
        variables["KESTRANE_TEST_STARTS"] = self.starts_path
        variables.update(SANITIZER_OPTIONS)
        self.assertEqual(
            sorted(f"environment {name}={value}" for name, value in variables.items()),
            sorted(environment),
        )


if __name__ == "__main__":
    namespace.main()
