"""Compares the output of launchlist with what the launcher does."""

import json
import shutil
import subprocess
import unittest

import namespace
from launcher import BUNDLE, SANITIZE, STAY, WORK, LauncherTest, item, numbered

LAUNCHLIST = BUNDLE + "/Contents/MacOS/launchlist"

# Functions that start another program or signal it.
DANGEROUS = (
    "fork vfork clone execl execle execlp execv execve execvp execvpe fexecve posix_spawn "
    "posix_spawnp system popen kill killpg raise tgkill sigqueue pthread_kill ptrace"
).split()


def launchlist(*arguments, statuses=(0,)):
    """The standard output of launchlist, as text."""
    run = subprocess.run([LAUNCHLIST, *arguments], capture_output=True, check=False)
    if run.returncode not in statuses:
        raise AssertionError(f"{arguments}: status {run.returncode}: {run.stderr!r}")
    return run.stdout.decode()


def explained(path):
    return json.loads(launchlist("explain", "--json", path))


class Explain(LauncherTest):
    def check_arguments(self, entry):
        """Asserts that the reported vector is the one that the program gets."""
        launcher = self.start(numbered({"name": "a", "program": STAY, **entry}))
        (start,) = self.wait_for_starts(1)
        self.assertEqual(1, launcher.stop())
        (step,) = explained(WORK + "/list.json")["items"]
        reported = [argument.encode() for argument in step["arguments"]]
        # Linux adds an empty argument to an empty vector.
        self.assertEqual(start.arguments, reported or [b""])
        if reported:
            echoed = subprocess.run(
                ["sh", "-c", f"printf '%s\\0' {step['command']}"],
                stdout=subprocess.PIPE,
                check=True,
            ).stdout
            self.assertEqual(start.arguments, echoed.split(b"\0")[:-1])

    def test_each_json_type_as_an_argument(self):
        texts = ["", "plain", " blanks and\ttabs\n", "$HOME `id` \"quoted\" 'too' \\", "é€😀"]
        hostile = ["\x1b[31m", "\u202e", "\x7f\u009b", "before\0after", "-n", "~", "*", "#"]
        others = [None, True, False, 0, -42, 2**63 - 1, -(2**63), 2**64 - 1, 1.5, -0.25, 1e300]
        self.check_arguments(item("a", STAY, *texts, *hostile, *others))

    def test_counts_of_every_type(self):
        args = {"0": "x", "1": "y", "3": "w"}
        for argc in (0, 1, 4, 5, -1, 1.9, True, False, None, 2**32 + 1, -(2**32) + 2):
            with self.subTest(argc):
                self.check_arguments({"argc": argc, "args": args})
        self.check_arguments({"args": args})
        self.check_arguments({"argc": 2})
        self.check_arguments({"argc": 2, "args": None})
        self.check_arguments({"argc": 0, "args": []})

    def test_as_many_arguments_as_are_sure_to_fit(self):
        count = 61_438
        launcher = self.start(numbered({"name": "a", "program": STAY, "argc": count}))
        (start,) = self.wait_for_starts(1)
        self.assertEqual(1, launcher.stop())
        self.assertEqual([STAY.encode()] + [b""] * count, start.arguments)
        launchlist("check", WORK + "/list.json", statuses=(1,))
        for more, fate in ((count + 1, "may-overrun-stack"), (65_535, "overruns-stack")):
            path = self.write(
                WORK + "/list.json",
                json.dumps(numbered({"name": "a", "program": STAY, "argc": more})),
            )
            self.assertEqual(fate, explained(path)["items"][0]["fate"])

    def test_fifty_thousand_arguments(self):
        launcher = self.start(numbered(item("a", STAY, *map(str, range(50_000)))))
        (start,) = self.wait_for_starts(1)
        self.assertEqual(1, launcher.stop())
        (step,) = explained(WORK + "/list.json")["items"]
        self.assertEqual(start.arguments, [argument.encode() for argument in step["arguments"]])

    def test_failed_conversions_abort_the_child(self):
        entries = [
            {"argc": "1"},
            {"argc": {}},
            {"argc": 1e30},
            {"argc": 2**64 - 1},
            {"argc": 1, "args": ["x"]},
            {"argc": 1, "args": True},
            {"argc": 2, "args": {"0": "x", "1": ["y"]}},
        ]
        for entry in entries:
            with self.subTest(entry):
                launcher = self.start(numbered({"name": "a", "program": STAY, **entry}))
                self.wait_for(lambda log=launcher.log: len(log()) >= 3, "a restart")
                launcher.kill()
                self.assertEqual([], self.starts())
                (step,) = explained(WORK + "/list.json")["items"]
                self.assertNotIn("arguments", step)
                self.assertEqual("aborts-child", step["fate"])
                launchlist("check", WORK + "/list.json", statuses=(2,))

    def test_which_items_start(self):
        entries = numbered(item("a", STAY, "a"), {"program": STAY}, item("b", STAY, "b"))
        entries["4"] = item("late", STAY, "late")
        launcher = self.start(entries)
        self.wait_for_starts(2)
        self.assertEqual(1, launcher.stop())
        started = {tuple(start.arguments) for start in self.starts()}
        result = explained(WORK + "/list.json")
        self.assertEqual("no", result["launcher_ends"])
        self.assertEqual([0, 1, 2], [step["index"] for step in result["items"]])
        reported = [step["arguments"] for step in result["items"] if "arguments" in step]
        self.assertEqual(started, {tuple(text.encode() for text in vector) for vector in reported})

    def test_lists_that_end_the_launcher(self):
        for text in (
            b"",
            b"{",
            b"[]",
            b'"x"',
            b'{"0": []}',
            b'{"0": {"name": {}}}',
            b"\xef\xbb\xbf{}",
        ):
            with self.subTest(text):
                launcher = self.start(text)
                self.assertEqual(0, launcher.wait())
                path = WORK + "/list.json"
                result = json.loads(launchlist("explain", "--json", path, statuses=(2,)))
                self.assertEqual("yes", result["launcher_ends"])
                self.assertEqual([0], [outcome["exit_status"] for outcome in result["outcomes"]])
                launchlist("check", path, statuses=(2,))

    def test_lists_that_start_nothing(self):
        for text in (b"null", b"{}", b"{} x", b'{"1": {"name": "a"}}', b'{"0": null}', b"{}\0["):
            with self.subTest(text):
                launcher = self.start(text)
                self.assertEqual(1, launcher.stop())
                result = explained(WORK + "/list.json")
                self.assertEqual("no", result["launcher_ends"])
                self.assertFalse(any("arguments" in step for step in result["items"]))


class Program(LauncherTest):
    @unittest.skipIf(SANITIZE, "the functions of sanitizers start programs")
    def test_it_imports_no_function_that_starts_or_signals_a_program(self):
        nm = shutil.which("nm")
        if nm is None:
            self.skipTest("nm is not installed")
        symbols = subprocess.run(
            [nm, "-D", "--undefined-only", LAUNCHLIST], stdout=subprocess.PIPE, check=True
        ).stdout.decode()
        imported = {line.split()[-1].split("@")[0] for line in symbols.splitlines() if line.strip()}
        self.assertIn("read", imported)
        self.assertEqual(set(), imported & set(DANGEROUS))


if __name__ == "__main__":
    namespace.main()
