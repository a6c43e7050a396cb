"""Everything before the first item: arguments, reading the list, the logging library."""

import os
import shutil
import signal

import namespace
from launcher import APPLICATION, END, WORK, LauncherTest, item, numbered
from log import Event, end_text, read_lines, start_text
from namespace import OTHER_LOG

# LOG_ERR of the user facility.
ERROR_EVENT = 8 + 3


class Arguments(LauncherTest):
    def test_too_few_cause_only_a_system_event(self):
        for arguments in ([], [APPLICATION]):
            with self.subTest(arguments):
                launcher = self.start_with(arguments)
                self.assertEqual(0, launcher.wait())
                self.assertEqual(
                    [Event(ERROR_EVENT, "Morvel Launcher : wrong parameters.")],
                    self.events(),
                )
                self.assertFalse(os.path.exists(self.home + "/Library"))

    def test_extra_ones_are_ignored(self):
        path = self.write(WORK + "/list.json", "{}")
        launcher = self.start_with([APPLICATION, path, "third", "fourth"])
        self.assertEqual(1, launcher.stop())
        self.assertEqual([], launcher.log())


class List(LauncherTest):
    def test_an_unreadable_one_exits_silently(self):
        paths = {
            "missing": WORK + "/missing.json",
            "in a missing directory": WORK + "/missing/list.json",
            "empty path": "",
            "empty": self.write(WORK + "/empty.json", ""),
        }
        for what, path in paths.items():
            with self.subTest(what):
                launcher = self.start_with([APPLICATION, path])
                self.assertEqual(0, launcher.wait())
                self.assertEqual([], self.events())
                self.assertFalse(os.path.exists(self.home + "/Library"))

    def test_reading_a_directory_never_ends(self):
        launcher = self.start_with([APPLICATION, WORK])
        self.wait_for(lambda: launcher.catches(signal.SIGTERM), "the launcher's handler")
        self.holds_for(1.0, launcher.running, "the launcher exited")
        # SIGTERM does not end the read loop either.
        launcher.send(signal.SIGTERM)
        self.holds_for(0.3, launcher.running, "the launcher exited after SIGTERM")
        self.assertFalse(os.path.exists(self.home + "/Library"))
        launcher.send(signal.SIGKILL)
        self.assertEqual(-signal.SIGKILL, launcher.wait())


class LoggingLibrary(LauncherTest):
    def test_a_failed_start_causes_a_system_event_and_items_still_run(self):
        self.write(self.home + "/Library/Logs", "not a directory")
        launcher = self.start(numbered(item("a")), level_file=None)
        self.wait_for_starts(1)
        self.assertEqual(
            [
                Event(
                    ERROR_EVENT,
                    f"Morvel Launcher for {APPLICATION} : Failed to initialize logger",
                )
            ],
            self.events(),
        )
        self.assertEqual(1, launcher.stop())

    def start_with_other_library(self, environment):
        contents = self.copy_bundle(WORK + "/bundle")
        (library,) = os.listdir(OTHER_LOG)
        shutil.copy(f"{OTHER_LOG}/{library}", f"{contents}/Frameworks/{library}")
        launcher = self.start(
            numbered(item("a")), program=contents + "/MacOS/launcher", environment=environment
        )
        self.wait_for_starts(1)
        self.assertEqual(1, launcher.stop())
        self.assertFalse(os.path.exists(launcher.log_path))
        return read_lines(WORK + "/log_calls")

    def test_another_library_can_replace_ours(self):
        self.assertEqual(
            [f"InitLogger {self.log_path()}", "GetLogger 2 launcher 1 null"],
            self.start_with_other_library({}),
        )

    def test_get_logger_is_not_called_after_a_failed_start(self):
        self.assertEqual(
            [f"InitLogger {self.log_path()}"],
            self.start_with_other_library({"KESTRANE_TEST_LOG": "-1"}),
        )
        self.assertEqual(1, len(self.events()))


class Levels(LauncherTest):
    def seen_at(self, level_file):
        """The levels of the records that the launcher writes with this level file."""
        launcher = self.start(numbered(item("a", END, "exit", "3")), level_file=level_file)
        # The end of the first child is logged before the second one starts.
        first = self.wait_for_starts(2)[0]
        launcher.kill()
        records = [
            ("DEBUG", start_text("a")),
            ("ERROR", end_text("a", first.pid, 3 * 256)),
        ]
        log = launcher.log()
        seen = {level for level, _ in log}
        self.assertEqual([record for record in records if record[0] in seen], log[: len(seen)])
        return seen

    def test_each_name(self):
        both = {"DEBUG", "ERROR"}
        levels = {
            "DEBUG": both,
            "MESSAGE": {"ERROR"},
            "WARNING": {"ERROR"},
            "ERROR": {"ERROR"},
            "CRITICAL": set(),
            "VERBOSE": both,
        }
        for name, seen in levels.items():
            with self.subTest(name):
                self.assertEqual(seen, self.seen_at(f"[LOG]\nLEVEL={name}\n"))

    def test_spellings_of_the_level_file(self):
        files = [
            "[log]\nlevel=DEBUG\n",
            "[ LOG ]\r\n  LEVEL=DEBUG\r\n",
            "[LOG]\nLEVEL=DEBUG=ERROR",
            "[LOG]\nLEVEL=\nLEVEL=DEBUG\n",
        ]
        for text in files:
            with self.subTest(text):
                self.assertEqual({"DEBUG", "ERROR"}, self.seen_at(text))

    def test_any_other_content_means_level_error(self):
        files = [
            None,
            "",
            "LEVEL=DEBUG\n",
            "[LOG]\nLEVEL=debug\n",
            "[LOG]\nLEVEL=Debug\n",
            "[LOG]\nLEVEL = DEBUG\n",
            "[LOG]\nLEVEL= DEBUG\n",
            "[LOG]\nLEVEL=TRACE\n",
            "[LOG]\nLEVEL=1\n",
            "[OTHER]\nLEVEL=DEBUG\n",
            "[OTHER]\n[LOG]\n[LOG]\nLEVEL=DEBUG\n",
            "[LOG]\nLEVEL=" + "x" * 1024 + "\n",
        ]
        for text in files:
            with self.subTest(text):
                self.assertEqual({"ERROR"}, self.seen_at(text))


if __name__ == "__main__":
    namespace.main()
