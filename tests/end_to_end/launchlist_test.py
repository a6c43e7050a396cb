"""Compares the output of launchlist with what the launcher does."""

import collections
import json
import os
import shutil
import signal
import subprocess

import namespace
from launcher import BUNDLE, END, STAY, WORK, LauncherTest, item, numbered

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
        # Linux replaces an empty vector by one empty argument.
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


class Report(LauncherTest):
    def report(self, *arguments):
        """The report on the launcher's log, with its items by name."""
        report = json.loads(launchlist("report", "--json", *arguments))
        report["items"] = {entry["name"]: entry for entry in report["items"]}
        return report

    def run_mixed_list(self, **options):
        """Runs one item that stays, one that fails, one that crashes and one that is killed from
        outside. Returns the launcher, which has been stopped."""
        launcher = self.start(
            numbered(
                item("stays", STAY, "stays"),
                item("fails", END, "exit", "3"),
                item("crashes", END, "signal", "11"),
                item("killed", STAY, "killed"),
            ),
            **options,
        )
        self.wait_for_starts(1, "stays")
        for count in (1, 2):
            child = self.wait_for_starts(count, "killed")[-1]
            os.kill(child.pid, signal.SIGTERM)
        self.wait_for_starts(3, "killed")
        self.wait_for_starts(7, "exit")
        self.wait_for_starts(7, "signal")
        self.assertEqual(1, launcher.stop())
        return launcher

    def ends_in_log(self, launcher):
        """The wait statuses in the log with their counts, by item."""
        ends = collections.defaultdict(collections.Counter)
        for record in launcher.records():
            if " is killed. ret = " in record.text:
                name = record.text.split("] ", 1)[1].split(" ", 1)[0]
                ends[name][int(record.text.rsplit(" ", 1)[1])] += 1
        return ends

    def test_a_run_with_every_kind_of_end(self):
        launcher = self.run_mixed_list()
        report = self.report()
        ends = self.ends_in_log(launcher)
        words = {
            9: "killed by SIGKILL",
            11: "killed by SIGSEGV",
            15: "killed by SIGTERM",
            768: "exit status 3",
        }
        self.assertEqual(1, report["launchers"])
        self.assertEqual(0, report["unread"])
        self.assertEqual(["crashes", "fails", "killed", "stays"], sorted(report["items"]))
        for name, arguments in {
            "stays": ("stays",),
            "fails": ("exit",),
            "crashes": ("signal",),
            "killed": ("killed",),
        }.items():
            with self.subTest(name):
                entry = report["items"][name]
                self.assertEqual(
                    {words[status]: count for status, count in ends[name].items()},
                    {way["how"]: way["count"] for way in entry["ended"]},
                )
                # A child that is killed between fork and exec notes no start.
                starts = self.starts(*arguments)
                self.assertIn(entry["starts"] - len(starts), (0, 1))
                self.assertEqual(sum(ends[name].values()), entry["ends"])
                self.assertEqual(entry["starts"] - 1, entry["restarts"])
                self.assertEqual("ended", entry["state"])
                self.assertEqual(0, entry["failed_starts"])
        self.assertEqual(
            {"killed by SIGKILL": 1},
            {entry["how"]: entry["count"] for entry in report["items"]["stays"]["ended"]},
        )
        self.assertIsNone(report["items"]["stays"]["loop"])
        self.assertGreaterEqual(report["items"]["fails"]["loop"]["runs"], 6)
        self.assertTrue(report["items"]["crashes"]["loop"]["crash"])

    def test_without_debug_records(self):
        launcher = self.run_mixed_list(level_file=None)
        report = self.report()
        ends = self.ends_in_log(launcher)
        for name, entry in report["items"].items():
            self.assertIsNone(entry["starts"])
            self.assertEqual(1, entry["unknown_runs"])
            self.assertEqual(sum(ends[name].values()), entry["ends"])
        self.assertIsNone(report["items"]["stays"]["longest_run_ms"])
        self.assertIn("LEVEL=DEBUG", launchlist("report"))
        self.assertIn(self.level_path(), launchlist("report"))

    def test_the_lengths_of_runs(self):
        launcher = self.start(numbered(item("a")))
        first = self.wait_for_starts(1)[0]
        self.holds_for(0.7, launcher.running, "the launcher ended")
        os.kill(first.pid, signal.SIGINT)
        second = self.wait_for_starts(2)[1]
        launcher.settle()
        os.kill(second.pid, signal.SIGINT)
        third = self.wait_for_starts(3)[2]
        self.assertEqual(1, launcher.stop())
        entry = self.report()["items"]["a"]
        length = (second.nanoseconds - first.nanoseconds) / 1e6 - 50
        self.assertEqual(3, entry["ends"])
        self.assertGreaterEqual(entry["longest_run_ms"], 700)
        self.assertLess(abs(entry["longest_run_ms"] - length), 150)
        self.assertLess(entry["shortest_run_ms"], (third.nanoseconds - second.nanoseconds) / 1e6)

    def test_programs_that_cannot_be_executed(self):
        missing = WORK + "/missing"
        launcher = self.start(numbered(item("bad", missing), item("good", STAY, "good")))
        self.wait_for_starts(1, "good")
        self.wait_for(lambda: len(launcher.records()) >= 12, "a chain of processes")
        self.kill_all()
        chain = {record.pid for record in launcher.records() if record.text.endswith(" bad")}
        report = self.report()
        self.assertEqual(1, report["launchers"])
        self.assertEqual(len(chain) - 1, report["items"]["bad"]["failed_starts"])
        self.assertEqual(0, report["items"]["bad"]["ends"])
        self.assertEqual(0, report["items"]["good"]["failed_starts"])
        self.assertEqual("running", report["items"]["good"]["state"])

    def test_two_launchers_in_one_log(self):
        names = ["a", "b"]
        entries = numbered(*(item(name, STAY, name) for name in names))
        first = self.start(entries)
        self.wait_for_starts(2)
        first.send(signal.SIGKILL)
        first.wait()
        log = open(self.log_path(), "rb").read()
        second = self.start(entries)
        self.wait_for_starts(2)
        self.assertEqual(1, second.stop())
        # Each launcher starts with an empty log here, so the two logs are concatenated.
        with open(WORK + "/both", "wb") as file:
            file.write(log + open(self.log_path(), "rb").read())
        self.kill_all()
        report = self.report(WORK + "/both")
        self.assertEqual(2, report["launchers"])
        for name in names:
            self.assertEqual(2, report["items"][name]["starts"])
            self.assertEqual(1, report["items"][name]["ends"])
            self.assertEqual(0, report["items"][name]["failed_starts"])

    def test_across_rotation(self):
        launcher = self.run_mixed_list()
        whole = self.report()
        log = open(launcher.log_path, "rb").read()
        lines = log.splitlines(keepends=True)
        cuts = [0, len(lines) // 3, 2 * len(lines) // 3, len(lines)]
        for number, (begin, end) in enumerate(zip(cuts, cuts[1:])):
            suffix = ["." + str(2 - number), ""][number == 2]
            self.write(launcher.log_path + suffix, b"".join(lines[begin:end]))
        rotated = self.report()
        self.assertEqual(3, len(rotated["files"]))
        self.assertEqual(whole["items"], rotated["items"])

    def test_control_characters_in_names_are_not_printed(self):
        name = "\x1b]0;owned\x07\u202e\n<script>"
        launcher = self.start(numbered(item(name, END, "exit", "0")))
        self.wait_for_starts(6)
        self.assertEqual(1, launcher.stop())
        self.assertEqual([name], list(self.report()["items"]))
        page = WORK + "/report.html"
        for text in (launchlist("report", "--html", page), open(page, encoding="utf-8").read()):
            self.assertEqual([], [c for c in text if c in "\x1b\x07\u202e"])
        self.assertNotIn("<script>", open(page, encoding="utf-8").read())


class Program(LauncherTest):
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
