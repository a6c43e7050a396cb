"""SIGTERM at every library call of the launcher, on every thread."""

import collections
import concurrent.futures
import json
import mmap
import os
import re
import signal
import struct
import subprocess
import sys
import time

import harness
from harness import APPLICATION, HELPERS, LAUNCHER, STAY, WORK
from harness import end_text, item, numbered

LIBRARY = HELPERS + "/moments.so"
RECORD = WORK + "/record"
RECORD_SIZE = 1 << 20
LIST = WORK + "/list.json"
# What ends a run that neither ends nor waits as the library sees it. Such a run fails the sweep.
WATCHDOG = 20

TERMINATED = "ended by signal 15"
GROUP_KILLED = "ended by signal 9, with its process group"
ABORTED = "aborted"
CRASHED = "crashed"
HUNG = "hung"
LOST = "waited for a second SIGTERM, then status 1"
UNKILLED = "waited for an unkilled child, then status 1"
UNKILLED_AND_LOST = "waited for an unkilled child and a second SIGTERM, then status 1"
LEFT = "status 1, but helpers go on"
STOPPED = "status 1"
CHILD_ENDED = "the child alone ended"

ENDS = {
    1: STOPPED,
    -signal.SIGTERM: TERMINATED,
    -signal.SIGKILL: GROUP_KILLED,
    -signal.SIGABRT: ABORTED,
    -signal.SIGSEGV: CRASHED,
    -signal.SIGBUS: CRASHED,
    -signal.SIGILL: CRASHED,
}
RECORDED_END = 99

Result = collections.namedtuple("Result", "plan phase outcome lines")


class Run(harness.LauncherTest):
    """Runs plans one after another; from standard input, results to standard output."""

    def test_plans(self):
        self.prepare()
        job = json.load(sys.stdin)
        self.items = job["items"]
        self.write(
            LIST,
            json.dumps(numbered(*(item(str(i), STAY, str(i)) for i in range(self.items)))),
        )
        for plan in job["plans"]:
            print(json.dumps(self.run_plan(plan, job.get("trace", False))), flush=True)

    def prepare(self):
        self.set_level("[LOG]\nLEVEL=DEBUG\n")
        with open(RECORD, "wb") as file:
            file.truncate(RECORD_SIZE)
        with open(RECORD, "r+b") as file:
            self.record = mmap.mmap(file.fileno(), RECORD_SIZE)

    def run_plan(self, plan, trace):
        self.record[:4] = bytes(4)
        if os.path.exists(self.log_path()):
            os.remove(self.log_path())
        # The same address space in each run, and the same environment.
        pid = os.posix_spawn(
            LAUNCHER,
            [LAUNCHER, APPLICATION, LIST],
            {
                "LD_PRELOAD": LIBRARY,
                "KESTRANE_PLAN": plan + (" trace yes" if trace else ""),
                "KESTRANE_RECORD": RECORD,
                "KESTRANE_TEST_STARTS": self.starts_path,
            },
            setpgroup=0,
        )
        signal.alarm(WATCHDOG)
        self.fixed = False
        signal.signal(signal.SIGALRM, lambda *_: self.give_up(pid))
        _, status = os.waitpid(pid, 0)
        signal.alarm(0)
        code = os.waitstatus_to_exitcode(status)
        left = self.left_behind(code)
        size = struct.unpack("<I", self.record[:4])[0]
        lines = self.record[4 : 4 + size].decode().splitlines()
        if self.fixed:
            code = None
        return {"plan": plan, "code": code, "left": left, "lines": lines, "log": self.log()}

    def log(self):
        return [
            (record.level, record.text)
            for record in map(harness.parse_record, harness.read_lines(self.log_path()))
        ]

    def give_up(self, pid):
        self.fixed = True
        os.kill(pid, signal.SIGKILL)

    def left_behind(self, code):
        """The processes that stay, once all that were killed are gone. Ends them."""
        left = []
        end = time.monotonic() + 5
        while True:
            try:
                pid, _ = os.waitpid(-1, os.WNOHANG)
            except ChildProcessError:
                return left
            if pid == 0:
                alive = [process.pid for process in harness.processes() if self.stays(process.pid)]
                if len(alive) == len(harness.processes()) or time.monotonic() > end:
                    left = alive
                    self.kill_all()
                    return left
                time.sleep(0.0005)

    def stays(self, pid):
        try:
            status = harness.read_status(f"/proc/{pid}/status")
        except (FileNotFoundError, ProcessLookupError):
            return False
        pending = int(status.get("SigPnd", "0"), 16) | int(status.get("ShdPnd", "0"), 16)
        return status["State"].startswith("S") and not pending & 1 << (signal.SIGKILL - 1)


def run_plans(items, plans, trace=False):
    environment = {**os.environ}
    done = harness.run_in_namespace(
        [os.path.abspath(__file__), "Run.test_plans"],
        env=environment,
        input=json.dumps({"items": items, "plans": plans, "trace": trace}),
        stdout=subprocess.PIPE,
        text=True,
    )
    lines = done.stdout.splitlines()
    if done.returncode != 0 or len(lines) != len(plans):
        print(done.stdout[-3000:])
        sys.exit("a namespace failed")
    return [json.loads(line) for line in lines]


def main():
    items = int(sys.argv[1])
    for result in run_plans(items, [" ".join(sys.argv[2:])], trace=False):
        print(result["code"], result["left"])
        print("\n".join(result["lines"]))
        print(result["log"])


if __name__ == "__main__":
    if os.getpid() == 1:
        sys.exit(harness.run_here(sys.argv[1]))
    main()
