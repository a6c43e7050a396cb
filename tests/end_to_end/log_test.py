"""Compares what `launchlist log` says with the report and with the events that the test knows."""

import collections
import json
import os
import re
import signal

import mixed_list
import namespace
from launcher import STAY, WORK, LauncherTest, item, numbered
from launchlist_test import LAUNCHLIST, launchlist

ERROR = None  # The default level.


class Log(LauncherTest):
    def lines(self, *arguments):
        """The lines of events, without the time, by item."""
        return by_item(launchlist("log", "--utc", *arguments))

    def report(self):
        items = json.loads(launchlist("report", "--json"))["items"]
        return {entry["name"]: entry for entry in items}

    def follow(self, *arguments):
        """Follows the log into a file; returns the process id and the path of the file."""
        path = WORK + "/followed"
        if os.path.exists(path):
            os.remove(path)

        def redirect():
            descriptor = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600)
            os.dup2(descriptor, 1)
            os.dup2(descriptor, 2)

        pid = self.spawn([LAUNCHLIST, "log", "-f", "--utc", *arguments], before=redirect)
        self.wait_for(lambda: os.path.exists(path) and os.stat(path).st_size > 0, "output")
        return pid, path

    def end(self, pid):
        os.kill(pid, signal.SIGKILL)
        self.wait_for(lambda: self.reap() or pid in self.ended, "the end of launchlist")

    def run_mixed_list(self, **options):
        launcher = mixed_list.run(self, (signal.SIGTERM, signal.SIGKILL), **options)
        mixed_list.wait_until_settled(self)
        return launcher

    def test_each_event_has_a_line_that_agrees_with_the_report(self):
        for level in ("[LOG]\nLEVEL=DEBUG\n", ERROR):
            with self.subTest(level):
                launcher = self.run_mixed_list(level_file=level)
                lines = self.lines()
                self.assertEqual(len(launcher.records()), sum(map(len, lines.values())))
                self.assertEqual({"stays", "fails", "crashes", "killed"}, set(lines))
                for name, entry in self.report().items():
                    self.check_item(lines[name], entry)
                self.assertEqual(
                    ["was killed by SIGTERM", "was killed by SIGKILL"],
                    [
                        re.sub(r" after .*", "", line.split("; ")[0])
                        for line in lines["killed"]
                        if line.startswith("was killed by SIG")
                    ][:2],
                )
                # The starts of another log would look like restarts of this one.
                os.remove(launcher.log_path)
                os.remove(self.starts_path)

    def check_item(self, lines, entry):
        count = collections.Counter()
        for line in lines:
            count["starts"] += line.startswith("is starting")
            count["restarting"] += line.endswith("; restarting")
            count["stops"] += line.startswith("was killed by its launcher")
            count["possible"] += line.endswith(", perhaps by its launcher")
        self.assertEqual(entry["starts"] or 0, count["starts"])
        self.assertEqual(entry["ends"], len(lines) - count["starts"])
        # Every restart was preceded by an end, and the log shows no other one.
        self.assertEqual(entry["restarts"], count["restarting"])
        self.assertEqual(entry["stops"], count["stops"])
        self.assertEqual(entry["possible_stops"], count["possible"])

    def test_a_log_that_is_followed_shows_the_same_as_one_that_is_read(self):
        for level in ("[LOG]\nLEVEL=DEBUG\n", ERROR):
            with self.subTest(level):
                follower, path = self.follow("-n", "100000")
                with open(path, encoding="utf-8") as file:
                    self.assertEqual(f"launchlist: waiting for {self.log_path()}\n", file.read())
                launcher = self.run_mixed_list(level_file=level)
                count = len(launcher.records())
                self.wait_for(lambda: count_events(path) >= count, f"{count} events")
                self.end(follower)
                with open(path, encoding="utf-8") as file:
                    followed = file.read().split("\n", 1)[1]
                read = launchlist("log", "--utc")
                if level is ERROR:
                    # A restart shows only at the next end, which may be hours later.
                    followed, read = (
                        re.sub(r"; restarting|, perhaps by its launcher", "", text)
                        for text in (followed, read)
                    )
                self.assertEqual(read, followed)
                os.remove(launcher.log_path)
                os.remove(self.starts_path)

    def test_programs_that_cannot_be_executed(self):
        launcher = self.start(numbered(item("bad", WORK + "/missing"), item("good", STAY, "good")))
        self.wait_for_starts(1, "good")
        self.wait_for(lambda: len(launcher.records()) >= 12, "a chain of processes")
        self.kill_all()
        text = launchlist("log", "--utc")
        headers = {line for line in text.splitlines() if line.startswith("--")}
        # On a slow machine, a child may write so late that it may also be another launcher.
        (header,) = {line for line in headers if " or a child of launcher " not in line}
        self.assertTrue(header.endswith(f" UTC, launcher {launcher.pid} --"), header)
        lines = by_item(text)
        failed = [line for line in lines["bad"] if line.startswith("could not be executed")]
        self.assertEqual(self.report()["bad"]["failed_starts"], len(failed))
        self.assertEqual(["is starting"], lines["good"])
        self.assertEqual("is starting", lines["bad"][0])

    def test_two_launchers(self):
        for _ in range(2):
            launcher = self.start(numbered(item("a", STAY, "a"), item("b", STAY, "b")))
            self.wait_for_starts(2)
            launcher.send(signal.SIGKILL)
            launcher.wait()
            self.kill_all()
            with open(WORK + "/both", "ab") as file:
                file.write(open(self.log_path(), "rb").read())
        text = launchlist("log", "--utc", "--file", WORK + "/both")
        self.assertEqual(2, text.count(", launcher "))
        for name in ("a", "b"):
            self.assertEqual(["is starting", "is starting"], by_item(text)[name])

    def test_hostile_names(self):
        names = [
            "\x1b]0;owned\x07",
            "a is starting\nb",
            "\u202e",
            "",
            "x 1 is killed. ret = 1, status = 9",
        ]
        launcher = self.start(numbered(*(item(name, STAY, str(i)) for i, name in enumerate(names))))
        self.wait_for_starts(len(names))
        self.assertEqual(1, launcher.stop())
        text = launchlist("log", "--utc")
        self.assertEqual([], [c for c in text if ord(c) < 32 and c != "\n" or c == "\u202e"])
        self.assertEqual(2 * len(names) + 1, text.count("\n"))
        for shown in (
            r"\x1b]0;owned\x07",
            r'"a is starting\nb"',
            r"\u{202e}",
            '""',
            '"x 1 is killed. ret = 1, status = 9"',
        ):
            self.assertEqual(1, text.count(f" {shown} is starting\n"), shown)
        for name in names:
            self.assertEqual(
                2, sum(map(len, by_item(launchlist("log", "--utc", name)).values())), repr(name)
            )
        self.assertEqual(1, launchlist("log", r"\x1b]0;owned\x07").count("is starting"))


def by_item(text):
    lines = collections.defaultdict(list)
    for line in text.splitlines():
        if not line.startswith("-- "):
            _, name, words = line.split(" ", 2)
            lines[name].append(words)
    return lines


def count_events(path):
    with open(path, encoding="utf-8") as file:
        return sum(bool(re.match(r"[\d-]{2}:", line)) for line in file)


if __name__ == "__main__":
    namespace.main()
