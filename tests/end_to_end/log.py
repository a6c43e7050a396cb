"""The output of the launcher and of the test helpers: log records, system events, noted starts."""

import collections
import re

NO_NAME = "[LAUNCHER  ] There is an item has no name."
PARSE_ERROR = "[LAUNCHER  ] Error while parsing saved json string."

LogRecord = collections.namedtuple("LogRecord", "time level pid text")
Event = collections.namedtuple("Event", "priority text")
Start = collections.namedtuple("Start", "pid nanoseconds arguments")


def start_text(name):
    return f"[LAUNCHER  ] Start to fork {name}"


def end_text(name, pid, wait_status):
    return f"[LAUNCHER  ] {name} {pid} is killed. ret = {pid}, status = {wait_status}"


def without_nameless(log):
    return [entry for entry in log if entry != ("ERROR", NO_NAME)]


def parse_record(line):
    """Parses one log record. No other test code knows the format."""
    match = re.fullmatch(
        r"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z) "
        r"(DEBUG   |MESSAGE |WARNING |ERROR   |CRITICAL|VERBOSE ) launcher\[(\d+)\] (.*)",
        line,
    )
    if match is None:
        raise AssertionError(f"not a log record: {line!r}")
    return LogRecord(match[1], match[2].rstrip(), int(match[3]), match[4])


def parse_event(datagram):
    match = re.fullmatch(r"<(\d+)>\w{3} [ \d]\d \d\d:\d\d:\d\d [^:]+: (.*)", datagram.decode())
    if match is None:
        raise AssertionError(f"not a system event: {datagram!r}")
    return Event(int(match[1]), match[2])


def parse_start(line):
    """Parses a line that a helper wrote when it started (helpers/start_report.h)."""
    pid, nanoseconds, *arguments = line.split(" ")
    texts = []
    for argument in arguments:
        length, digits = argument.split(":")
        texts.append(bytes.fromhex(digits))
        assert len(texts[-1]) == int(length)
    return Start(int(pid), int(nanoseconds), texts)


def read_lines(path):
    """The complete lines of a file that may still be growing; none if it does not exist."""
    try:
        with open(path, encoding="utf-8", errors="surrogateescape", newline="\n") as file:
            return file.read().split("\n")[:-1]
    except FileNotFoundError:
        return []
