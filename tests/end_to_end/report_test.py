"""Compares the output of `launchlist report` with launcher runs whose events the test knows."""

import collections
import json
import os
import signal
import time

import mixed_list
import namespace
from launcher import END, STAY, WORK, LauncherTest, item, numbered
from launchlist_test import launchlist

DEBUG = "[LOG]\nLEVEL=DEBUG\n"
ERROR = None  # The default level.


def certain_launchers(report):
    """Without the processes that may also be children. On a slow machine, a child may write so late
    that the log does not show what it is."""
    return [entry for entry in report["launchers"] if entry["may_be_child_of"] is None]


class Report(LauncherTest):
    def report(self, *arguments):
        """The report on the launcher's log, with its items by name."""
        report = json.loads(launchlist("report", "--json", *arguments))
        report["items"] = {entry["name"]: entry for entry in report["items"]}
        return report

    def run_mixed_list(self, **options):
        launcher = mixed_list.run(self, (signal.SIGTERM, signal.SIGTERM), **options)
        mixed_list.wait_until_settled(self)
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
            # Where the system pipes cores to a program, limits on their size do not apply.
            11 | 0x80: "killed by SIGSEGV, core dumped",
            15: "killed by SIGTERM",
            768: "exit status 3",
        }
        self.assertEqual(1, len(report["launchers"]))
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
                # The stop ends each program that is running with signal 9.
                self.assertEqual(
                    {words[status]: count for status, count in ends[name].items() if status != 9},
                    {way["how"]: way["count"] for way in entry["causes"]},
                )
                self.assertEqual(ends[name][9], entry["stops"])
                # A child that is killed between fork and exec notes no start.
                starts = self.starts(*arguments)
                self.assertIn(entry["starts"] - len(starts), (0, 1))
                self.assertEqual(sum(ends[name].values()), entry["ends"])
                self.assertEqual(entry["starts"] - 1, entry["restarts"])
                self.assertIn(entry["state"], ("stopped", "ended"))
                self.assertEqual(0, entry["failed_starts"])
        self.assertEqual(1, report["items"]["stays"]["stops"])
        self.assertEqual(0, report["items"]["stays"]["crashes"])
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
        certain = certain_launchers(report)
        self.assertEqual([launcher.pid], [entry["process"] for entry in certain])
        doubtful = len(report["launchers"]) - len(certain)
        self.assertEqual(len(chain) - 1 - doubtful, report["items"]["bad"]["failed_starts"])
        self.assertEqual(0, report["items"]["bad"]["ends"])
        self.assertEqual(0, report["items"]["good"]["failed_starts"])
        # Only a later record of the launcher itself would show that it still runs.
        self.assertIn(report["items"]["good"]["state"], ("running", "started", "unknown"))
        self.assertEqual(0, report["items"]["bad"]["running_ms"])
        self.assertNotIn(report["items"]["bad"]["state"], ("running", "stopped", "ended"))

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
        self.assertEqual(2, len(report["launchers"]))
        for name in names:
            self.assertEqual(2, report["items"][name]["starts"])
            self.assertEqual(1, report["items"][name]["ends"])
            self.assertEqual(0, report["items"][name]["crashes"])
            self.assertEqual(0, report["items"][name]["failed_starts"])
        self.assertEqual("vanished", report["launchers"][0]["end"])
        self.assertNotEqual("vanished", report["launchers"][1]["end"])

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
        self.assertEqual(1, open(page, encoding="utf-8").read().count("<script>"))


class Truth(LauncherTest):
    """Runs one list in several ways and checks every statement of the report against the events."""

    def run_list(self, level, finish):
        """Runs the list, ends the launcher with `finish`, and returns what is true."""
        began = time.time()
        launcher = self.start(
            numbered(
                item("stays", STAY, "stays"),
                item("killed", STAY, "killed"),
                item("crashes", END, "exit", "3"),
                item("missing", WORK + "/missing"),
                item("clean", END, "exit", "0"),
            ),
            level_file=level,
        )
        for count in (1, 2):
            child = self.wait_for_starts(count, "killed")[-1]
            self.wait_for_starts(5 * count, "exit", "3")
            os.kill(child.pid, signal.SIGKILL)
        self.wait_for_starts(3, "killed")
        self.wait_for_starts(8, "exit", "0")
        # Long enough for an item that stays to count as running.
        self.holds_for(1.2, launcher.running, "the launcher ended")
        finish(launcher)
        ended = time.time()
        self.kill_all()
        mixed_list.wait_until_settled(self)
        return {"milliseconds": 1000 * (ended - began), "launcher": launcher}

    def check(self, level, finish, is_stopped):
        truth = self.run_list(level, finish)
        if is_stopped:
            self.assertEqual(1, self.ended[truth["launcher"].pid])
        log = truth["launcher"].records()
        report = json.loads(launchlist("report", "--json"))
        items = {entry["name"]: entry for entry in report["items"]}
        self.assertEqual(0, report["unread"])
        self.check_launchers(report, truth, level, is_stopped)
        ends = collections.Counter()
        for record in log:
            if " is killed. ret = " in record.text and record.pid == truth["launcher"].pid:
                name = record.text.split("] ", 1)[1].split(" ", 1)[0]
                ends[name, int(record.text.rsplit(" ", 1)[1])] += 1
        window = items["crashes"]["running_ms"] + items["crashes"]["down_ms"]
        window += items["crashes"]["unknown_ms"]
        for name, entry in items.items():
            with self.subTest(name):
                parts = entry["running_ms"] + entry["down_ms"] + entry["unknown_ms"]
                self.assertEqual(window, parts)
                self.assertLessEqual(entry["running_ms"], truth["milliseconds"])
                self.assertEqual(
                    entry["ends"],
                    entry["crashes"]
                    + entry["clean_ends"]
                    + entry["stops"]
                    + entry["possible_stops"]
                    + entry["unknown_ends"],
                )
                self.assertEqual(ends[name, 0], entry["clean_ends"])
                if not is_stopped:
                    self.assertEqual(0, entry["stops"])
                    self.assertNotEqual("stopped", entry["state"])
                else:
                    self.assertNotIn(entry["state"], ("running", "started"))
        self.check_items(items, ends, level, is_stopped)

    def check_launchers(self, report, truth, level, is_stopped):
        certain = certain_launchers(report)
        self.assertEqual([truth["launcher"].pid], [entry["process"] for entry in certain])
        (entry,) = certain
        self.assertEqual(level is not None, entry["has_debug_records"])
        if is_stopped:
            self.assertIn(entry["end"], ("stopped",) if level else ("stopped", "unknown"))
        else:
            self.assertIn(entry["end"], ("running", "unknown"))

    def check_items(self, items, ends, level, is_stopped):
        # Two kills from outside, and another one by the stop.
        killed = items["killed"]
        self.assertEqual(2 + is_stopped, ends["killed", 9])
        self.assertEqual(2, killed["crashes"] + (0 if is_stopped else killed["possible_stops"]))
        self.assertEqual(ends["crashes", 768], items["crashes"]["crashes"])
        # Without DEBUG records, the last crash need not be followed by a stop.
        severities = ("troubled",) if is_stopped and level else ("troubled", "broken")
        self.assertIn(items["crashes"]["severity"], severities)
        if "stays" in items:
            self.assertEqual(0, items["stays"]["crashes"])
            self.assertEqual("healthy", items["stays"]["severity"])
        if level:
            self.assertGreater(items["missing"]["failed_starts"], 3)
            self.assertGreaterEqual(items["stays"]["running_ms"], 1000)
            self.assertEqual(len(self.starts("killed")), killed["starts"])
        for name in ("missing",) if "missing" in items else ():
            self.assertEqual(0, items[name]["running_ms"])
            self.assertNotIn(items[name]["state"], ("running", "started"))
            self.assertEqual(0, items[name]["crashes"])

    @staticmethod
    def stop(launcher):
        # launcher.stop() would wait for all threads to sleep, which never happens.
        launcher.send_to_thread(launcher.pid, signal.SIGTERM)
        launcher.wait()

    @staticmethod
    def kill_launcher(launcher):
        launcher.send(signal.SIGKILL)
        launcher.wait()

    def test_stopped_at_debug(self):
        self.check(DEBUG, self.stop, True)

    def test_stopped_at_error(self):
        self.check(ERROR, self.stop, True)

    def test_killed_at_debug(self):
        self.check(DEBUG, self.kill_launcher, False)

    def test_killed_at_error(self):
        self.check(ERROR, self.kill_launcher, False)

    def test_killed_with_its_group_at_debug(self):
        self.check(DEBUG, lambda launcher: launcher.kill(), False)

    def test_killed_with_its_group_at_error(self):
        self.check(ERROR, lambda launcher: launcher.kill(), False)


if __name__ == "__main__":
    namespace.main()
