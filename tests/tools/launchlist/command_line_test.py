"""Tests what launchlist prints, byte for byte, and its exit status.

    command_line_test.py LAUNCHLIST [--renew]

Every run in the table RUNS must print the contents of its file in printed/. --renew rewrites these
files with what LAUNCHLIST prints now: read the difference before you commit it.
"""

import base64
import collections
import fcntl
import gzip
import hashlib
import json
import os
import pathlib
import re
import struct
import subprocess
import sys
import tempfile
import termios
import threading
import time
import tty
import unittest

try:
    import jsonschema
except ImportError:  # Only the system's Python may have it, and this may be another one.
    jsonschema = None

HERE = pathlib.Path(__file__).resolve().parent
PRINTED = HERE / "printed"

# The file, the arguments, the columns of the terminal (None: no terminal), the exit status.
RUNS = [
    ("check_good.txt", "check lists/good.json", None, 0),
    ("check_warnings.txt", "check lists/args_missing.json", None, 1),
    ("check.txt", "check lists/every_step.json", None, 2),
    ("check_color.txt", "check lists/every_step.json", 80, 2),
    ("check.json", "check --json lists/every_step.json", None, 2),
    ("check_good.json", "check --json lists/good.json", 80, 0),
    ("check_several.txt", "check lists/good.json lists/args_missing.json", None, 1),
    ("check_several.json", "check lists/good.json lists/args_missing.json --json", None, 1),
    ("check.sarif", "check --sarif lists/every_step.json lists/good.json", None, 2),
    ("check_fail_on.txt", "check --fail-on error lists/args_missing.json", None, 0),
    ("check_fail_on_error.json", "check --json --fail-on=error lists/root_array.json", None, 2),
    ("explain.txt", "explain lists/every_step.json", None, 2),
    ("explain_color.txt", "explain lists/every_step.json", 80, 2),
    ("explain.json", "explain --json lists/every_step.json", None, 2),
    ("explain_good.txt", "explain lists/good.json", None, 0),
    ("explain_good.json", "explain --json lists/good.json", 80, 0),
    ("explain_abort.json", "explain --json lists/program_array.json", None, 2),
    ("explain_list_type.txt", "explain lists/root_array.json", None, 2),
    ("explain_list_type.json", "explain --json lists/root_array.json", None, 2),
    ("explain_missing.txt", "explain lists/program_not_there.json", None, 2),
    ("new.txt", "new a /bin/sh -c --help", None, 0),
    ("report.txt", "report logs/mixed", None, 0),
    ("report_color.txt", "report logs/mixed", 60, 0),
    ("report_widest.txt", "report logs/mixed", 500, 0),
    ("report_narrowest.txt", "report logs/mixed", 1, 0),
    ("report_no_columns.txt", "report logs/mixed", 0, 0),
    ("report.json", "report --json logs/mixed", None, 0),
    ("report_no_starts.txt", "report logs/none logs/no_starts", None, 0),
    ("report_no_starts.json", "report logs/none logs/no_starts --json", None, 0),
    ("report_empty.txt", "report logs/empty", None, 0),
    ("report_empty.json", "report logs/empty --json", None, 0),
    (
        "report_range.txt",
        "report logs/mixed --since 2026-11-21T02:00:02 --until 2026-11-21T02:00:03",
        None,
        0,
    ),
    (
        "report_selected.txt",
        "report logs/mixed --item missing --item crasher --launcher 100 --sort name --fail-on loop",
        None,
        1,
    ),
    ("report_launcher.json", "report --json logs/mixed --launcher 90 --fail-on loop", None, 0),
    ("log.txt", "log --utc --file logs/mixed", None, 0),
    ("log_color.txt", "log --utc --file logs/mixed -n 22", 80, 0),
    ("log_names.txt", "log --utc --file logs/mixed agent missing", None, 0),
    ("log_no_starts.txt", "log --utc --file logs/no_starts", None, 0),
    ("log_raw.txt", "log --raw --file logs/mixed crasher --lines 3", None, 0),
    (
        "log_range.txt",
        "log --utc --file logs/mixed --since 2026-11-21T02:00:09 --until 2026-11-21T02:00:10.100",
        None,
        0,
    ),
]

# The file with the expected page, and the logs that the page reports on.
PAGES = [
    ("page.html", "logs/mixed"),
    ("page_no_starts.html", "logs/none logs/no_starts"),
    ("page_empty.html", "logs/empty"),
]

# The arguments, the exit status, and the whole message.
FAILURES = [
    ("check none", 3, "none: No such file or directory"),
    ("check \x1b]0;owned\x07", 3, r"\x1b]0;owned\x07: No such file or directory"),
    ("check lists", 3, "lists: Is a directory"),
    ("explain none", 3, "none: No such file or directory"),
    ("report none logs", 3, "none: No such file or directory"),
    ("report logs/empty --html none/page", 3, "none/page: No such file or directory"),
    ("report logs/empty --trace none/trace", 3, "none/trace: No such file or directory"),
    (
        "report logs/mixed --item Crasher",
        3,
        'logs/mixed: mentions no item "Crasher"; did you mean "crasher"?',
    ),
    (
        "report logs/mixed --launcher 91",
        3,
        "logs/mixed: mentions no launcher with the process id 91",
    ),
    ("log --file none", 3, "none: No such file or directory"),
    ("log --file logs -f", 3, "logs: Is a directory"),
    ("log --file logs/mixed \x1b[1m", 3, r'logs/mixed: mentions no item "\x1b[1m"'),
    (
        "log --file logs/mixed agents",
        3,
        'logs/mixed: mentions no item "agents"; did you mean "agent"?',
    ),
]

# Wrong arguments, and a part of the message; CLI11 adds the rest.
MISTAKES = [
    ("", "subcommand is required"),
    ("check", "LIST is required"),
    ("checks lists/good.json", 'unknown command "checks"; did you mean "check"?'),
    ("start \x1b]0;owned\x07", 'unknown command "start"'),
    ("explain", "LIST is required"),
    ("explain lists/good.json lists/good.json", "not expected: lists/good.json"),
    ("check - -", "LIST: - can be given only once"),
    ("check --json --sarif lists/good.json", "--json excludes --sarif"),
    ("check --fail-on mistake lists/good.json", "--fail-on: mistake not in {warning,error}"),
    ("fix", "LIST is required"),
    ("fix - -", "LIST: - can be given only once"),
    ("fix --write -", "LIST: --write cannot replace standard input"),
    ("check - lists/good.json -", "LIST: - can be given only once"),
    ("check lists/good.json --x\x1b]0;owned\x07", r"\x1b]0;owned\x07"),
    ("check --colour lists/good.json", "--colour"),
    ("report logs/mixed --since yesterday", 'invalid time "yesterday"; use 2026-11-21T02:26, 90s'),
    ("report logs/mixed --until \x1b[1m", r'invalid time "\x1b[1m"'),
    (
        "report logs/mixed --since 2026-11-22 --until 2026-11-21",
        "--until 2026-11-21 is earlier than --since 2026-11-22",
    ),
    ("status one two", "not expected: two"),
    ("status --watch 0", 'invalid number of seconds "0"; use 0.1 to 86400'),
    ("status --watch 100000", 'invalid number of seconds "100000"'),
    ("status list --watch \x1b[1m", r'invalid number of seconds "\x1b[1m"'),
    ("report logs/mixed --launcher x", "--launcher"),
    ("report logs/mixed --sort size", "size not in {worst,log,name,"),
    ("report logs/mixed --fail-on crash", "crash not in {loop}"),
    ("log --since yesterday", 'invalid time "yesterday"; use 2026-11-21T02:26, 90s'),
    ("log --until \x1b[1m", r'invalid time "\x1b[1m"'),
    (
        "log --since 2026-11-22 --until 2026-11-21",
        "--until 2026-11-21 is earlier than --since 2026-11-22",
    ),
    ("log -n few", "--lines"),
    ("log -f --until 2h", "--follow: cannot be used with --until"),
    ("log -f --file -", "--follow: standard input cannot be followed"),
]

# The lines of each help text, with runs of blanks joined, because CLI11 controls the layout.
HELPS = {
    "": """
        Checks launch lists, shows what is running, and summarizes the launcher's log.
        --version Print the version and exit
        check Find the mistakes in launch lists.
        explain Show what the launcher does with each item of a list.
        fix Correct those mistakes in launch lists that can be corrected in only one way.
        new Write an item that runs a program with its arguments.
        status Show which launchers and items are running.
        log Show the launcher's log in words, one line for each event.
        report Summarize from the log how often items ran, ended and crashed.
        completion Print the completion script for a shell.
        Example: launchlist check helpers.json && launchlist explain helpers.json
    """,
    "check": """
        Find the mistakes in launch lists.
        launchlist check [OPTIONS] LIST...
        Launch lists; - is standard input
        --json Excludes: --sarif Print JSON
        --sarif Excludes: --json Print SARIF 2.1.0, for code scanning services
        --fail-on SEVERITY
        The lowest severity for which the exit status is not 0: warning (the default) or error
        Exit status: 0 no mistakes, 1 warnings only, 2 errors, 3 a list cannot be read.
        With --fail-on error, 0 also for warnings only. Example: launchlist check helpers.json
    """,
    "fix": """
        Correct those mistakes in launch lists that can be corrected in only one way.
        launchlist fix [OPTIONS] LIST...
        Launch lists; - is standard input
        --write Replace the lists with the corrected ones
        --fail-on SEVERITY
        Exit status: 0 no mistakes remain, 1 warnings only, 2 errors, 3 a list cannot be read
        or replaced. With --fail-on error, 0 also for warnings only.
        Example: launchlist fix --write helpers.json
    """,
    "new": """
        Write an item that runs a program with its arguments.
        launchlist new [OPTIONS] NAME PROGRAM [ARG...]
        NAME REQUIRED The name of the item
        PROGRAM REQUIRED The path of the program
        ARG ... The arguments of the program
        --into LIST Append the item to LIST instead of printing it Options precede NAME:
        everything after PROGRAM is an argument, even if it begins with -.
    """,
    "explain": """
        Show what the launcher does with each item of a list.
        launchlist explain [OPTIONS] LIST
        The launch list; - is standard input
        --json Print JSON
        Exit status: 0 the launcher keeps running until SIGTERM, 2 it ends, or may end, before
        that, 3 the list cannot be read. Example: launchlist explain helpers.json
    """,
    "report": """
        Summarize from the log how often items ran, ended and crashed.
        launchlist report [OPTIONS] [LOG...]
        Logs, each with its old files LOG.1, LOG.2, ...; - is standard input; default: the log of
        default: the log of this user's launcher
        --since TIME Report only on what happened since TIME
        --until TIME Report only on what happened until TIME
        --html FILE Also write the report to FILE, as a web page
        --trace FILE Also write the runs to FILE, as a Chrome trace for Perfetto
        --force Let --html and --trace replace any regular file
        --item NAME Report only on this item and the launchers that ran it; can be repeated
        --launcher PID Report only on the launcher with this process id
        The order of the items in text and JSON
        Exit with status 1 if an item has this problem
        --json Print JSON, for programs
        TIME is in UTC, 2026-11-21 or "2026-11-21 02:26", or an age: 90s, 15m, 2h, 3d.
        A log may be compressed by gzip.
        Exit status: 0 reported, 1 --fail-on found a problem, 3 no log can be read, the log mentions
        no such item or launcher, or the output cannot be written, 64 invalid arguments.
        Example: launchlist report --since 2h --html report.html
    """,
    "log": """
        Show the launcher's log in words, one line for each event.
        launchlist log [OPTIONS] [NAME...]
        Show only the events of these items
        --file LOG Read LOG and its old files LOG.1, LOG.2, ...; - is standard input; default: the
        log of this user's launcher
        -f,--follow Wait for further events, even if there is no log yet; shows the last 10 events
        -n,--lines N Show only the last N events
        --since TIME Show only the events since TIME
        --until TIME Show only the events until TIME
        --raw Show the records as they are in the log
        --utc Show and read times in UTC
        TIME is a local time, "2026-11-21 09:00" or 09:00 for today, or an age: 90s, 15m, 2h, 3d.
        Exit status: 0 shown, 3 the log or one of its old files cannot be read, the log mentions
        no item NAME, or the output cannot be written, 64 invalid arguments.
        Example: launchlist log -f thumbnailer
    """,
    "status": """
        Show which launchers and items are running.
        launchlist status [OPTIONS] [LIST]
        Show only launchers with this list; default: all launchers of this user
        --json Print JSON, for programs
        --watch [SECONDS] Print the status every SECONDS, or at changes, until Ctrl-C
        Times are in UTC. Memory is the resident memory. CPU is the share of one processor that
        was used since the process was started or, with --watch, since the previous status. Without
        SECONDS, --watch looks for changes every 2 seconds, and prints at least every 10.
        Exit status: 0 all items run, 1 some do not, or whether they run is unknown, 3 no launcher
        runs, or the processes cannot be listed. Example: launchlist status helpers.json --watch 5
    """,
    "completion": """
        Print the completion script for a shell.
        launchlist completion [OPTIONS] SHELL
        The packages for Linux install the scripts for all three shells.
        Exit status: 0 printed, 3 the output cannot be written.
        Example: launchlist completion zsh > ~/.zfunc/_launchlist
    """,
}


# The environment without the variables that influence colours; a test sets those it needs.
ENVIRONMENT = {
    name: value for name, value in os.environ.items() if name not in ("NO_COLOR", "TERM")
}


def run(*arguments, **options):
    return subprocess.run(
        [LAUNCHLIST, *arguments],
        cwd=HERE,
        env=ENVIRONMENT,
        check=False,
        stdin=options.pop("stdin", subprocess.DEVNULL),
        stdout=options.pop("stdout", subprocess.PIPE),
        stderr=subprocess.PIPE,
        **options,
    )


def options_of(command):
    """The long names of the options in the help of a command."""
    text = run(command, "--help").stdout.decode()
    return set(re.findall(r"^  (?:-\w,)?--([a-z][-a-z]+)", text, re.MULTILINE))


def blocks(name, start):
    """The contents of the code blocks of a document that begin with `start`."""
    text = (HERE.parents[2] / name).read_text(encoding="utf-8")
    found = re.findall(r"^```.*\n((?:(?!```).*\n)*)```$", text, re.MULTILINE)
    return [block for block in found if block.startswith(start)]


def run_with_input(data, *arguments):
    return subprocess.run(
        [LAUNCHLIST, *arguments],
        cwd=HERE,
        env=ENVIRONMENT,
        check=False,
        input=data,
        capture_output=True,
    )


def run_in_terminal(arguments, columns, **variables):
    """The exit status, and the output on the terminal."""
    controller, terminal = os.openpty()
    tty.setraw(terminal)
    fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
    with subprocess.Popen(
        [LAUNCHLIST, *arguments],
        cwd=HERE,
        env={**ENVIRONMENT, **variables},
        stdout=terminal,
        stderr=subprocess.DEVNULL,
    ) as process:

        def end_output():
            process.wait()
            os.write(terminal, b"\0")

        # The terminal stays open until all is read: Linux can lose unread output of a closed one.
        threading.Thread(target=end_output).start()
        output = b""
        while not output.endswith(b"\0"):
            output += os.read(controller, 4096)
    os.close(terminal)
    os.close(controller)
    return process.returncode, output[:-1]


def as_kept(output):
    """Replaces what differs between runs: the path of the user's log.ini and the version. Writes
    escape characters as "\\e"."""
    text = output.decode().replace("\x1b", "\\e")
    text = re.sub(r'"semanticVersion": "[0-9.]+"', '"semanticVersion": "VERSION"', text)
    return re.sub(r"of /.*/log\.ini and", "of LOG.INI and", text)


def joined(text):
    return " ".join(text.split())


class CommandLine(unittest.TestCase):
    maxDiff = None

    def check_printed(self, name, output):
        if RENEW:
            (PRINTED / name).write_text(as_kept(output), encoding="utf-8")
        self.assertEqual((PRINTED / name).read_text(encoding="utf-8"), as_kept(output), name)

    def test_it_prints_what_is_expected(self):
        for name, arguments, columns, expected in RUNS:
            with self.subTest(name):
                if columns is None:
                    result = run(*arguments.split())
                    self.assertEqual(b"", result.stderr)
                    status, output = result.returncode, result.stdout
                else:
                    status, output = run_in_terminal(arguments.split(), columns)
                self.assertEqual(expected, status)
                self.check_printed(name, output)

    def test_it_writes_the_pages_that_are_expected(self):
        for name, logs in PAGES:
            with self.subTest(name), tempfile.TemporaryDirectory() as directory:
                page = pathlib.Path(directory) / "page.html"
                result = run("report", *logs.split(), "--html", str(page))
                self.assertEqual(0, result.returncode)
                self.assertEqual(run("report", *logs.split()).stdout, result.stdout)
                self.check_printed(name, page.read_bytes())

    def test_no_file_is_left_over(self):
        names = {name for name, *_ in RUNS + PAGES}
        self.assertEqual(names, {path.name for path in PRINTED.iterdir()})

    def test_colour_is_for_terminals_that_want_it(self):
        wanted = [({}, True), ({"NO_COLOR": "1"}, False), ({"NO_COLOR": ""}, True)]
        for variables, colored in wanted:
            status, output = run_in_terminal(["check", "lists/root_array.json"], 80, **variables)
            self.assertEqual(2, status)
            self.assertEqual(colored, b"\x1b[" in output, variables)

    def test_failures(self):
        for arguments, status, words in FAILURES:
            with self.subTest(arguments):
                result = run(*arguments.split())
                self.assertEqual(status, result.returncode)
                self.assertEqual(b"", result.stdout)
                self.assertEqual(f"launchlist: {words}\n", result.stderr.decode())

    def test_mistakes(self):
        for arguments, words in MISTAKES:
            with self.subTest(arguments):
                result = run(*arguments.split())
                self.assertEqual(64, result.returncode)
                self.assertEqual(b"", result.stdout)
                told = result.stderr.decode()
                self.assertNotIn("\x1b", told)
                self.assertRegex(told, '^launchlist: .*\nTry "launchlist --help".\n$')
                self.assertIn(words, told)

    def test_helps(self):
        for command, text in HELPS.items():
            with self.subTest(command):
                result = run(*command.split(), "--help")
                self.assertEqual(0, result.returncode)
                self.assertEqual(b"", result.stderr)
                for words in text.strip().splitlines():
                    self.assertIn(joined(words), joined(result.stdout.decode()))

    def test_what_cannot_be_printed_is_a_failure(self):
        if not os.path.exists("/dev/full"):
            self.skipTest("no /dev/full")
        helps = ["--help", "--version", *(f"{command} --help" for command in HELPS if command)]
        for arguments in (
            *("check lists/good.json", "explain lists/good.json", "report logs/mixed"),
            *("report --json logs/mixed", "check --sarif lists/good.json", *helps),
            *("fix lists/args_beyond_argc.json", "new a /bin/sh"),
            *("log --file logs/mixed", "log --file logs/mixed -f"),
            *("status", "status --json", "status --watch 1"),
        ):
            with self.subTest(arguments), open("/dev/full", "wb") as full:
                result = run(*arguments.split(), stdout=full)
                self.assertEqual(3, result.returncode)
                self.assertEqual(
                    b"launchlist: standard output: No space left on device\n", result.stderr
                )

    def test_the_manual_names_every_variable_that_is_read(self):
        root = HERE.parents[2]
        variables = {
            name
            for directory in ("tools/launchlist", "config")
            for source in (root / directory).rglob("*.cpp")
            for name in re.findall(r'getenv\("(\w+)"\)', source.read_text(encoding="utf-8"))
        }
        page = (root / "docs/man/launchlist.1").read_text(encoding="utf-8")
        self.assertIn("PATH", variables)
        variables.add("TZ")  # Read by localtime_r().
        self.assertEqual(variables, set(re.findall(r"^\.It Ev (\w+)$", page, re.MULTILINE)))

    def test_the_manual_describes_every_option(self):
        page = (HERE.parents[2] / "docs/man/launchlist.1").read_text(encoding="utf-8")
        synopsis, description = page.split(".Sh DESCRIPTION\n")
        tagged = " ".join(re.findall(r"^\.It (Fl .*)$", description, re.MULTILINE))
        described = set(re.findall(r"(?:^| )-([a-z][-a-z]+)", tagged))
        known = set()
        for command in HELPS:
            if not command:
                continue
            options = options_of(command)
            known |= options
            (part,) = re.findall(rf"^\.Cm {command}\n((?:\.(?!Nm).*\n)*)", synopsis, re.MULTILINE)
            with self.subTest(command):
                # The synopsis names an option with two names by its short one.
                names = {"f": "follow", "n": "lines"}
                shown = {
                    names.get(name, name.lstrip("-"))
                    for name in re.findall(r"Fl (-?[a-z][-a-z]*)", part)
                }
                self.assertEqual(options - {"help"}, shown)
        self.assertEqual(known | {"version"}, described)

    def test_the_documents_use_commands_and_options_that_exist(self):
        root = HERE.parents[2]
        uses = []
        for name in ("README.md", "docs/launchlist.md", "docs/man/launchlist.1"):
            text = (root / name).read_text(encoding="utf-8")
            uses += re.findall(
                r"^(?:\.Dl )?(?:\$ |- run: )?launchlist (\w+)([^#|&>\n]*)", text, re.MULTILINE
            )
        self.assertGreater(len(uses), 15)
        for command, arguments in uses:
            with self.subTest(command + arguments):
                self.assertIn(command, list(HELPS))
                given = set(re.findall(r"(?<= )--([a-z][-a-z]+)", arguments.split(" /")[0]))
                self.assertLessEqual(given, options_of(command))

    def test_the_documents_show_what_fix_prints(self):
        (document,) = blocks("docs/launchlist.md", "$ launchlist fix ")
        (example,) = [block for block in blocks("README.md", "{") if '"sync-agent"' in block]
        command, expected = document.split("\n", 1)
        with tempfile.TemporaryDirectory() as directory:
            for name in ("sync-agent", "indexer"):
                program = pathlib.Path(directory) / name
                program.write_text("#!/bin/sh\n", encoding="utf-8")
                program.chmod(0o755)
            # The programs of the example are not installed here.
            text = example.replace("/usr/local/libexec", directory)
            self.assertIn('"argc": 2', text)
            (pathlib.Path(directory) / "helpers.json").write_text(
                text.replace('"argc": 2', '"argc": 1'), encoding="utf-8"
            )
            result = subprocess.run(
                [LAUNCHLIST, *command.split()[2:]],
                cwd=directory,
                env=ENVIRONMENT,
                check=False,
                stdout=subprocess.PIPE,
                stderr=subprocess.STDOUT,
            )
            self.assertEqual(0, result.returncode, result.stdout)
            printed = result.stdout.decode().replace(directory, "/usr/local/libexec")
            self.assertEqual(expected, printed)

    def test_the_documents_show_what_log_prints(self):
        records = [("08:00:48.000", f"Start to fork {name}") for name in ("thumbnailer", "indexer")]
        records += [
            ("08:00:51.000", "thumbnailer 4712 is killed. ret = 4712, status = 6"),
            ("08:00:51.050", "Start to fork thumbnailer"),
            ("08:00:54.100", "indexer 4713 is killed. ret = 4713, status = 768"),
            ("08:00:54.150", "Start to fork indexer"),
        ]

        def log(*names, renamed=("", "")):
            text = "".join(
                f"2026-11-21T{time_of_day}Z {'DEBUG' if 'fork' in words else 'ERROR':8} "
                f"launcher[4711] [LAUNCHER  ] {words.replace(*renamed)}\n"
                for time_of_day, words in records
            )
            return subprocess.run(
                [LAUNCHLIST, "log", "--file", "-", *names],
                env={**ENVIRONMENT, "TZ": "UTC-1"},
                input=text.encode(),
                check=True,
                stdout=subprocess.PIPE,
            ).stdout.decode()

        (document,) = blocks("docs/launchlist.md", "$ launchlist log ")
        command, expected = document.split("\n", 1)
        self.assertEqual("$ launchlist log -f thumbnailer indexer", command)
        self.assertEqual(expected, log("thumbnailer", "indexer"))
        page = (HERE.parents[2] / "docs/man/launchlist.1").read_text(encoding="utf-8")
        (example,) = re.findall(r"^\.Bd .*\n(-- (?:.*\n)*?)\.Ed$", page, re.MULTILINE)
        self.assertEqual(log("thumbnailer"), example)
        (example,) = blocks("README.md", "-- ")
        head, *events = example.splitlines()
        lines = log("sync-agent", renamed=("thumbnailer", "sync-agent")).splitlines()
        self.assertEqual(lines[0], head)
        self.assertEqual(1, len(events))
        self.assertIn(events[0], lines)

    def test_version(self):
        result = run("--version")
        self.assertEqual(0, result.returncode)
        self.assertRegex(result.stdout.decode(), r"^launchlist \d+\.\d+\.\d+\n$")

    def test_standard_input_is_a_list(self):
        for command in ("check", "explain"):
            with self.subTest(command), open(HERE / "lists/good.json", "rb") as file:
                result = run(command, "-", stdin=file)
                self.assertEqual(0, result.returncode)
                expected = run(command, "lists/good.json").stdout
                self.assertEqual(expected.replace(b"lists/good.json", b"-"), result.stdout)

    def test_a_difference_on_a_terminal_is_safe_and_coloured(self):
        plain = run("fix", "lists/args_beyond_argc.json").stdout.decode()
        status, output = run_in_terminal(["fix", "lists/args_beyond_argc.json"], 80)
        self.assertEqual(run("fix", "lists/args_beyond_argc.json").returncode, status)
        self.assertEqual(plain, re.sub("\x1b\\[[0-9;]*m", "", output.decode()))
        self.assertIn("\x1b[1;31m-", output.decode())
        with tempfile.TemporaryDirectory() as directory:
            hostile = pathlib.Path(directory) / "list.json"
            hostile.write_text('{"1": null} // \x1b]0;owned\x07', encoding="utf-8")
            self.assertIn(b"\x1b]0;", run("fix", str(hostile)).stdout)
            _, output = run_in_terminal(["fix", str(hostile)], 80, NO_COLOR="1")
            self.assertNotIn(b"\x1b", output)
            self.assertIn(rb"\x1b]0;owned\x07", output)

    def test_raw_records_on_a_terminal_are_safe(self):
        with tempfile.TemporaryDirectory() as directory:
            log = pathlib.Path(directory) / "log"
            log.write_bytes(b"torn \x1b]0;owned\x07\n" + (HERE / "logs/mixed").read_bytes())
            arguments = ["log", "--raw", "--file", str(log)]
            self.assertEqual(log.read_bytes(), run(*arguments).stdout)
            status, output = run_in_terminal(arguments, 80, NO_COLOR="1")
            self.assertEqual(0, status)
            self.assertNotIn(b"\x1b", output)
            self.assertIn(rb"torn \x1b]0;owned\x07", output)

    def test_an_unreadable_list_does_not_keep_the_others_from_being_checked(self):
        result = run("check", "none", "lists/empty.json")
        self.assertEqual(3, result.returncode)
        self.assertEqual(b"launchlist: none: No such file or directory\n", result.stderr)
        self.assertIn(b"lists/empty.json: 1 error, 0 warnings\n", result.stdout)
        (unreadable, empty) = json.loads(run("check", "--json", "none", "lists/empty.json").stdout)[
            "lists"
        ]
        self.assertEqual({"list": "none", "error": "No such file or directory"}, unreadable)
        self.assertEqual(1, empty["errors"])

    def test_an_old_log_that_cannot_be_read_is_a_failure_and_the_rest_is_shown(self):
        with tempfile.TemporaryDirectory() as directory:
            log = pathlib.Path(directory) / "log"
            log.write_bytes((HERE / "logs/no_starts").read_bytes())
            complete = run("log", "--utc", "--file", str(log))
            self.assertEqual((0, b""), (complete.returncode, complete.stderr))
            (pathlib.Path(directory) / "log.1").mkdir()
            result = run("log", "--utc", "--file", str(log))
            self.assertEqual(3, result.returncode)
            self.assertEqual(f"launchlist: {log}.1: Is a directory\n".encode(), result.stderr)
            self.assertEqual(complete.stdout, result.stdout)

    def test_records_in_an_old_log_that_cannot_be_read_may_show_more(self):
        with tempfile.TemporaryDirectory() as directory:
            log = pathlib.Path(directory) / "log"
            log.write_text(Follow.start("b", 9), encoding="utf-8")
            pathlib.Path(f"{log}.2").write_text(
                Follow.start("a") + Follow.end("a", 768, 1), encoding="utf-8"
            )
            whole = run("log", "--utc", "--file", str(log)).stdout.decode()
            self.assertIn("a exited with status 3 after 1.0 s; not restarted\n", whole)
            self.assertNotIn("may be missing", run("report", str(log)).stdout.decode())
            old = pathlib.Path(f"{log}.1")
            old.mkdir()
            result = run("log", "--utc", "--file", str(log))
            self.assertEqual(3, result.returncode)
            self.assertEqual(whole.replace("; not restarted", ""), result.stdout.decode())
            report = run("report", str(log))
            self.assertEqual(0, report.returncode)
            self.assertIn(
                f"{old} could not be read, so records may be missing: Is a directory\n",
                report.stdout.decode(),
            )

    def test_the_page_permits_its_own_style_and_script_only(self):
        with tempfile.TemporaryDirectory() as directory:
            page = pathlib.Path(directory) / "page.html"
            self.assertEqual(0, run("report", "logs/mixed", "--html", str(page)).returncode)
            text = page.read_text(encoding="utf-8")
            for element in ("style", "script"):
                content = re.search(f"<{element}>(.*?)</{element}>", text, re.DOTALL)[1]
                digest = hashlib.sha256(content.encode()).digest()
                self.assertIn(f"{element}-src 'sha256-{base64.b64encode(digest).decode()}'", text)

    def test_a_page_replaces_no_log_and_no_other_file(self):
        with tempfile.TemporaryDirectory() as directory:
            log = pathlib.Path(directory) / "log"
            log.write_bytes((HERE / "logs/mixed").read_bytes())
            other = pathlib.Path(directory) / "notes"
            other.write_text("precious", encoding="utf-8")
            for target, *options in ((log,), (log, "--force"), (other,)):
                before = target.read_bytes()
                result = run("report", str(log), "--html", str(target), *options)
                self.assertEqual(3, result.returncode)
                self.assertEqual(before, target.read_bytes())
            result = run("report", str(log), "--html", str(other), "--force")
            self.assertEqual(0, result.returncode)
            self.assertEqual(0o600, other.stat().st_mode & 0o7777)

    def test_a_log_on_standard_input_and_compressed(self):
        log = (HERE / "logs/mixed").read_bytes()
        plain = json.loads(run_with_input(log, "report", "--json", "-").stdout)
        self.assertEqual("-", plain["files"][0]["path"])
        self.assertGreater(plain["records"], 0)
        compressed = run_with_input(
            gzip.compress(log[:500]) + gzip.compress(log[500:]), "report", "--json", "-"
        )
        if b"which this build cannot read" in compressed.stderr:
            self.assertEqual(3, compressed.returncode)
            return
        self.assertEqual(0, compressed.returncode, compressed.stderr)
        self.assertEqual(plain["items"], json.loads(compressed.stdout)["items"])
        damaged = run_with_input(gzip.compress(log)[:-20], "report", "-")
        self.assertEqual(3, damaged.returncode)
        self.assertIn(b"gzip cannot decompress it", damaged.stderr)

    def test_a_trace_has_a_track_with_the_name_of_each_item(self):
        with tempfile.TemporaryDirectory() as directory:
            path = pathlib.Path(directory) / "trace.json"
            report = json.loads(run("report", "--json", "logs/mixed", "--trace", str(path)).stdout)
            trace = json.loads(path.read_text(encoding="utf-8"))
            # Our own trace may be replaced, and nothing else.
            self.assertEqual(0, run("report", "logs/mixed", "--trace", str(path)).returncode)
            path.write_text("precious", encoding="utf-8")
            self.assertEqual(3, run("report", "logs/mixed", "--trace", str(path)).returncode)
            self.assertEqual("precious", path.read_text(encoding="utf-8"))
        events, names = [], {}
        for event in trace["traceEvents"]:
            # Viewers expect integers.
            self.assertEqual((int, int), (type(event["pid"]), type(event["tid"])), event)
            if event["ph"] == "M":
                self.assertEqual({"name", "ph", "pid", "tid", "args"}, set(event))
                names[event["name"], event["pid"], event["tid"]] = event["args"]["name"]
            else:
                self.assertEqual("X", event["ph"])
                self.assertEqual((int, int), (type(event["ts"]), type(event["dur"])), event)
                # A viewer names a track only if its name precedes its events.
                name = names["thread_name", event["pid"], event["tid"]]
                self.assertTrue(event["name"].startswith(name + ": "), event)
                events.append(event)
        self.assertEqual("launcher", names.pop(("process_name", 100, 0)))
        self.assertEqual(len(report["items"]), len(names))
        tracks = collections.defaultdict(list)
        for event in events:
            tracks[event["args"]["item"]].append(event)
        self.assertEqual({item["name"] for item in report["items"]}, set(tracks))
        for item in report["items"]:
            with self.subTest(item["name"]):
                runs = [event for event in tracks[item["name"]] if event["cat"] == "run"]
                self.assertEqual(1, len({event["tid"] for event in tracks[item["name"]]}))
                self.assertEqual({100}, {event["pid"] for event in tracks[item["name"]]})
                # Two starts of "looper" and "agent" are the last that is known of them.
                self.assertIn(len(runs) - item["ends"], (0, 1))
                self.assertEqual(
                    1000 * item["running_ms"], sum(event["dur"] for event in runs), runs
                )
                for before, after in zip(runs, runs[1:]):
                    self.assertLessEqual(before["ts"] + before["dur"], after["ts"])
        (first, *_) = tracks["crasher"]
        self.assertEqual(
            {
                "name": "crasher: killed by SIGSEGV, core dumped",
                "cat": "run",
                "ph": "X",
                "ts": 1795226401000000,
                "dur": 350000,
                "pid": 100,
                "tid": first["tid"],
                "args": {"item": "crasher", "from": "2026-11-21T02:00:01.000Z"},
            },
            first,
        )

    def test_the_order_of_items(self):
        def names(*options):
            report = json.loads(run("report", "--json", "logs/mixed", *options).stdout)
            return [item["name"] for item in report["items"]]

        in_log = names()
        self.assertEqual(in_log, names("--sort", "log"))
        self.assertEqual(sorted(in_log, key=str.encode), names("--sort", "name"))
        self.assertEqual("crasher", names("--sort", "crashes")[0])
        self.assertEqual("agent", names("--sort", "median")[0])
        self.assertNotEqual(in_log, names("--sort", "worst"))
        for order in ("worst", "starts", "ends", "crashes", "restarts", "median", "down"):
            self.assertEqual(sorted(in_log), sorted(names("--sort", order)))

    def test_reports_match_their_schema(self):
        if jsonschema is None:
            self.skipTest("no jsonschema")
        path = HERE.parents[2] / "docs/schema/report.schema.json"
        schema = json.loads(path.read_text(encoding="utf-8"))
        jsonschema.Draft202012Validator.check_schema(schema)
        validator = jsonschema.Draft202012Validator(schema)
        for logs in ("logs/mixed", "logs/none logs/no_starts", "logs/empty"):
            report = json.loads(run("report", "--json", *logs.split()).stdout)
            validator.validate(report)
            broken = {**report, "format_version": 2}
            self.assertFalse(validator.is_valid(broken))
            self.assertFalse(validator.is_valid({**report, "unknown": 1}))

    def test_ages_count_from_now(self):
        record = "{} ERROR    launcher[100] [LAUNCHER  ] a {} is killed. ret = {}, status = 0\n"
        with tempfile.NamedTemporaryFile("w", encoding="utf-8") as log:
            for child, hours in ((200, 5), (201, 3), (202, 1)):
                moment = time.gmtime(time.time() - hours * 3600)
                log.write(
                    record.format(time.strftime("%Y-%m-%dT%H:%M:%S.000Z", moment), child, child)
                )
            log.flush()
            for age, records in (("--since 2h", 1), ("--until 2h", 2), ("--since 4h", 2)):
                with self.subTest(age):
                    output = run("report", "--json", log.name, *age.split()).stdout.decode()
                    self.assertIn(f'"records": {records},', output)

    def test_without_a_log_it_takes_that_of_the_user(self):
        result = run("report")
        if result.returncode != 0:  # There may be one.
            self.assertEqual(3, result.returncode)
            self.assertRegex(result.stderr.decode(), "^launchlist: /.*/qv7log: .+\n$")


class Follow(unittest.TestCase):
    """Runs `launchlist log -f` on a log that the test writes."""

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.path = pathlib.Path(directory.name) / "logs" / "qv7log"
        self.output = b""

    def follow(self, *arguments):
        # pylint: disable=consider-using-with
        process = subprocess.Popen(
            [LAUNCHLIST, "log", "-f", "--utc", "--file", str(self.path), *arguments],
            env=ENVIRONMENT,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
        )
        os.set_blocking(process.stdout.fileno(), False)

        def end():
            process.kill()
            process.wait()
            process.stdout.close()
            process.stderr.close()

        self.addCleanup(end)
        return process

    def read(self, process):
        self.output += process.stdout.read() or b""
        return self.output.decode()

    def wait_for(self, process, condition):
        """Polls until the output fulfils the condition, and returns it."""
        end = time.monotonic() + 20
        while not condition(self.read(process)):
            if time.monotonic() > end:
                self.fail(f"timed out; printed {self.output[-1000:]!r}")
            time.sleep(0.01)
        return self.output.decode()

    def append(self, text, suffix=""):
        self.path.parent.mkdir(exist_ok=True)
        with open(str(self.path) + suffix, "a", encoding="utf-8") as file:
            file.write(text)

    @staticmethod
    def start(name, second=0, launcher=100):
        return (
            f"2026-11-21T02:00:{second:02}.000Z DEBUG    launcher[{launcher}] "
            f"[LAUNCHER  ] Start to fork {name}\n"
        )

    @staticmethod
    def end(name, wait_status, second=0, launcher=100):
        return (
            f"2026-11-21T02:00:{second:02}.000Z ERROR    launcher[{launcher}] "
            f"[LAUNCHER  ] {name} 201 is killed. ret = 201, status = {wait_status}\n"
        )

    def test_it_waits_for_a_log_and_follows_it(self):
        process = self.follow()
        self.assertEqual(
            f"launchlist: waiting for {self.path}\n", process.stderr.readline().decode()
        )
        self.append(self.start("a"))
        self.wait_for(process, lambda text: "a is starting\n" in text)
        # Torn, and then completed.
        self.append(self.end("a", 6, 3)[:40])
        self.append(self.end("a", 6, 3)[40:] + self.start("a", 3))
        text = self.wait_for(process, lambda text: "again\n" in text)
        self.assertEqual(
            "-- 2026-11-21 UTC, launcher 100 --\n"
            "02:00:00 a is starting\n"
            "02:00:03 a was killed by SIGABRT after 3.0 s; restarting\n"
            "02:00:03 a is starting again\n",
            text,
        )

    def test_an_end_without_a_restart_is_shown_after_a_second(self):
        moment = time.time()
        stamp = time.strftime("%Y-%m-%dT%H:%M:%S", time.gmtime(moment)) + (
            f".{int(moment * 1000) % 1000:03}Z"
        )
        self.append(self.start("a") + stamp + self.end("a", 256)[24:])
        process = self.follow()
        self.wait_for(process, lambda text: "exited" in text)
        self.assertGreater(time.time() - moment, 0.99)

    def test_it_begins_with_the_last_ten_events(self):
        self.append("".join(self.start(f"item-{number}") for number in range(30)))
        process = self.follow()
        text = self.wait_for(process, lambda text: "item-29" in text)
        self.assertEqual([f"item-{n}" for n in range(20, 30)], re.findall(r"item-\d+", text))

    def test_only_the_named_items_are_followed(self):
        process = self.follow("b", "none")
        self.append(self.start("a") + self.start("b"))
        text = self.wait_for(process, lambda text: "b is starting" in text)
        self.assertNotIn("a is starting", text)

    def test_every_event_appears_once_across_rotations(self):
        process = self.follow("--raw", "-n", "1000000")
        written = []
        for number in range(400):
            written.append(self.start(f"item-{number}"))
            if number % 7 == 3:
                # A process that was stopped between its check of the path and its write.
                os.rename(self.path, str(self.path) + ".new")
                for old in range(20, 0, -1):
                    if os.path.exists(f"{self.path}.{old}"):
                        os.rename(f"{self.path}.{old}", f"{self.path}.{old + 1}")
                os.rename(str(self.path) + ".new", str(self.path) + ".1")
                self.append(written[-1], ".1")
            else:
                self.append(written[-1])
            if number % 50 == 49:
                self.wait_for(process, lambda text: text.count("\n") >= len(written))
        self.assertEqual(sorted(written), sorted(self.read(process).splitlines(keepends=True)))

    def test_records_in_an_old_file_that_cannot_be_read_may_show_more(self):
        self.append(self.start("a") + self.end("a", 768, 1), ".2")
        pathlib.Path(f"{self.path}.1").mkdir()
        self.append(self.start("b", 9))
        process = self.follow()
        text = self.wait_for(process, lambda text: "b is starting" in text)
        self.assertIn("a exited with status 3 after 1.0 s\n", text)
        self.assertEqual(
            f"launchlist: {self.path}.1: Is a directory\n", process.stderr.readline().decode()
        )

    def test_a_log_that_is_truncated_or_replaced(self):
        self.append(self.start("a") + self.start("b"))
        process = self.follow()
        self.wait_for(process, lambda text: "b is starting" in text)
        self.path.write_text("", encoding="utf-8")
        self.wait_for(process, lambda text: "the log was truncated" in text)
        self.append(self.start("c"))
        self.wait_for(process, lambda text: "c is starting" in text)
        self.path.unlink()
        self.append(self.start("d"))
        text = self.wait_for(process, lambda text: "d is starting" in text)
        self.assertIn("the log was removed or replaced\n", text)
        self.assertEqual(1, text.count("a is starting"))

    def test_an_idle_log_takes_no_measurable_time(self):
        self.append(self.start("a"))
        process = self.follow()
        self.wait_for(process, lambda text: "a is starting" in text)
        stat = pathlib.Path(f"/proc/{process.pid}/stat")
        if not stat.exists() or not os.path.samefile(f"/proc/{process.pid}/exe", LAUNCHLIST):
            self.skipTest("no /proc, or not a program of this system")

        def ticks():
            fields = stat.read_text(encoding="utf-8").rsplit(")", 1)[1].split()
            return int(fields[11]) + int(fields[12])

        before = ticks()
        time.sleep(3)
        # A hundredth of a second; a loop without a pause would take three hundred of them.
        self.assertLessEqual(ticks() - before, 1)

    def test_it_ends_when_nobody_reads_its_output(self):
        process = self.follow()
        process.stderr.readline()
        process.stdout.close()
        self.append(self.start("a"))
        self.assertNotEqual(0, process.wait(20))


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    LAUNCHLIST = os.path.abspath(sys.argv.pop(1))
    RENEW = "--renew" in sys.argv
    if RENEW:
        sys.argv.remove("--renew")
    unittest.main()
