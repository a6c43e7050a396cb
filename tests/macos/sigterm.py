"""Sends a program SIGTERM at chosen calls of the model, as the environment variable KESTRANE_PLAN asks.

A plan is a sequence of:

    signal THREAD CALL    sends SIGTERM to that thread at its call with this number
    hold THREAD CALL      holds the thread there until no other thread can run
    trace yes             records every call

A thread is main, s0, s1, ... in order of creation, or c0, c1, ... for the first child of a supervisor
before it calls execv; c0.2 is its second child. A call that has to wait counts twice: when it begins
and when it waits. Functions of the guest library, such as malloc, do not count.

Threads switch where they wait and when they have created a thread. Each reading of the clock advances
it by two milliseconds, and pauses take no time. So the same plan gives the same run. Before the first
signal, the first child of s0 is killed once all threads wait, so that a plan can name calls of a
restart. KESTRANE_RECORD names the file for the record, whose lines are those of
tests/moments/moments.cpp: a size in four bytes, then text.
"""

import fcntl
import mmap
import os
import signal
import struct

import values
from libsystem.threads import awaited_object
from scheduling import ANYTHING, ModelFrame, Wait

# Beyond the descriptors that the launcher passes to its helpers.
PRIVATE_DESCRIPTOR = 200
STATUS_OF_RECORDED_END = 99
MAX_UNKILLED = 16
# Calls of the guest library that belong to no call of the program.
UNCOUNTED = ("host_tick", "host_fail")
# The first time in nanoseconds that the program reads. Between two readings, more time passes than the
# log lets pass between two checks of its file.
START = 1_700_000_000 * 10**9
STEP = 2 * 10**6
# Added to the deadline of a thread that sleeps, which keeps the order of the deadlines.
NEVER = 1e15


class Moments:
    def __init__(self, machine, plan, record):
        self._machine = machine
        self._scheduler = machine.scheduler
        self._signals = {}
        self._holds = {}
        self._traced = False
        self._read(plan.split())
        with open(record, "r+b") as file:
            self._record = mmap.mmap(file.fileno(), 0)
        self._names = {}  # of threads
        self._counts = {}  # calls, by the thread's name
        self._calls = {}  # the name of each thread's latest call
        self._due = set()  # threads that wait where the plan signals them
        self._held = {}  # threads, and whether they may continue
        self._yielded = set()  # threads that let others run first
        self._forks = {}
        self._had_child = set()
        self._pipe = None
        self._child = None  # the name, in a forked child
        self._main_has_waited = False
        self._child_ended_once = False
        self._sent = 0
        self._extra_signals = 0
        self._unkilled = 0
        self._time = START

    def _read(self, words):
        while words:
            kind, thread = words[:2]
            if kind == "trace":
                self._traced = True
                words = words[2:]
                continue
            steps = {"signal": self._signals, "hold": self._holds}[kind]
            steps.setdefault(thread, set()).add(int(words[2]))
            words = words[3:]

    def _note(self, text):
        data = text.encode() + b"\n"
        (size,) = struct.unpack("<I", self._record[:4])
        self._record[4 + size : 4 + size + len(data)] = data
        self._record[:4] = struct.pack("<I", size + len(data))

    def time(self):
        self._time += STEP
        return self._time

    # Names and numbers.

    def _name(self, thread):
        if self._child is not None:
            return self._child
        if thread not in self._names:
            count = len(self._names)
            self._names[thread] = "main" if count == 0 else f"s{count - 1}"
        return self._names[thread]

    def _count(self, thread, call):
        """Counts a call; returns its number."""
        name = self._name(thread)
        self._counts[name] = self._counts.get(name, 0) + 1
        self._calls[name] = call
        if self._traced:
            self._note(f"at {name} {self._counts[name]} {call}")
        return self._counts[name]

    def _take(self, steps, thread):
        """Whether the plan has a step for the thread's latest call; each is taken once."""
        name = self._name(thread)
        numbers = steps.get(name, set())
        number = self._counts[name]
        if number not in numbers:
            return False
        numbers.remove(number)
        return True

    def _phase(self):
        if self._child is not None:
            return "restart" if self._main_has_waited else "launching"
        if signal.SIGTERM not in self._scheduler.handlers:
            return "no-handler"
        if len(self._scheduler.threads) == 1 and len(self._names) == 1:
            return "start"
        if self._sent > 0:
            return "stop"
        supervisors = [t for t in self._names if self._names[t] != "main"]
        if not self._main_has_waited or len(self._had_child) < len(supervisors):
            return "launching"
        waiting = all(self._reason(t)[0] == "child" and not self._is_over(t) for t in supervisors)
        return "steady" if waiting else "restart"

    # Calls.

    def call(self, name, implementation, call):
        """Makes a call of the model; the result is that of the function."""
        thread = self._scheduler.current
        name = name[1:]
        if name in UNCOUNTED:
            return implementation(call)
        if name == "host_wait_while":
            is_mutex = awaited_object(call)[0] == "mutex"
            name = "pthread_mutex_lock" if is_mutex else "pthread_cond_wait"
        self._count(thread, name)
        held = self._take(self._holds, thread)
        if held or self._take(self._signals, thread):
            return self._interrupted(thread, name, implementation, call, held)
        return self._made(thread, name, implementation, call)

    def _interrupted(self, thread, name, implementation, call, held):
        if held:
            yield from self._hold(thread)
        if not held or self._take(self._signals, thread):
            yield from self._deliver(thread, planned=True)
        result = self._made(thread, name, implementation, call)
        if hasattr(result, "send"):
            result = yield from result
        return result

    def _hold(self, thread):
        self._held[thread] = False
        yield Wait(lambda: self._held[thread])
        del self._held[thread]

    def _made(self, thread, name, implementation, call):
        result = implementation(call)
        if name == "kill":
            self._after_kill(call, result)
        if name == "pthread_create":
            return self._let_begin(thread, result)
        return self._waiting(thread, name, result) if hasattr(result, "send") else result

    def _let_begin(self, thread, result):
        """Lets a new thread run until it waits."""
        self._yielded.add(thread)
        yield Wait(lambda: thread not in self._yielded)
        return result

    def _after_kill(self, call, result):
        """Makes the effect of a kill certain before the thread continues."""
        pid, number = call.i32(0), call.i32(1)
        self._note(f"kill {pid} {number}")
        if result == 0 and pid > 0 and number == values.SIGNALS["SIGKILL"]:
            await_end(pid)

    def _waiting(self, thread, name, generator):
        """Runs a function that may wait, and counts its first wait as a call."""
        value, counted = None, False
        while True:
            try:
                request = generator.send(value)
            except StopIteration as stop:
                return stop.value
            value = None
            if isinstance(request, Wait) and self._child is None and request is not ANYTHING:
                if request.deadline is not None:
                    request.deadline += NEVER
                if not counted and not request.ready():
                    counted = True
                    yield from self._begin_wait(thread, name, request)
                # A child may have ended meanwhile, and no signal would tell the thread again.
                if not request.ready():
                    yield request
                if thread in self._due:
                    self._due.remove(thread)
                    yield from self._deliver(thread, planned=True)
            else:
                value = yield request

    def _begin_wait(self, thread, name, wait):
        self._count(thread, name + ", waiting")
        if wait.what[0] == "notification" and self._name(thread) == "main":
            self._main_has_waited = True
        if wait.what[0] == "child":
            self._had_child.add(thread)
        if self._take(self._holds, thread):
            yield from self._hold(thread)
        if self._take(self._signals, thread):
            self._due.add(thread)

    def _deliver(self, thread, planned):
        if planned:
            name = self._name(thread)
            phase = self._phase()
            self._note(f"signal {name} {self._counts[name]} {phase} {self._calls[name]}")
            self._sent += 1
            if signal.SIGTERM not in self._scheduler.handlers:
                os.kill(os.getpid(), signal.SIGTERM)
        yield from self._scheduler.handle(thread, signal.SIGTERM)
        self._note(f"handled {self._name(thread)}")

    # Processes.

    def before_fork(self):
        """A pipe whose reading end shows when the child has called execv or ended."""
        if self._child is None:
            ends = os.pipe()
            self._pipe = [fcntl.fcntl(e, fcntl.F_DUPFD_CLOEXEC, PRIVATE_DESCRIPTOR) for e in ends]
            for end in ends:
                os.close(end)

    def after_fork(self, pid):
        if self._child is not None:
            return
        reader, writer = self._pipe
        name = self._name(self._scheduler.current)
        self._forks[name] = self._forks.get(name, 0) + 1
        if pid == 0:
            os.close(reader)
            count = self._forks[name]
            self._child = f"c{name[1:]}" + (f".{count}" if count > 1 else "")
            return
        os.close(writer)
        if pid > 0:
            if not os.read(reader, 1):
                await_end(pid)
            self._note(f"child {pid} {name}")
        os.close(reader)

    def before_exec(self):
        if self._child is not None:
            os.write(self._pipe[1], b"x")

    # What waits for what, when no thread can run.

    def _frame(self, thread):
        """The frame in which a thread waits, or waited before a handler that is about to run."""
        for frame in reversed(thread.frames):
            if isinstance(frame, ModelFrame) and frame.interrupts:
                continue
            return frame if isinstance(frame, ModelFrame) else None
        return None

    def _reason(self, thread):
        frame = self._frame(thread)
        return frame.wait.what if frame is not None else ("nothing",)

    def _is_over(self, thread):
        what, *child = self._reason(thread)
        return what == "child" and has_ended(child[0])

    def _running(self):
        return [thread for thread in self._scheduler.running() if thread.frames]

    def _waited_for(self, thread):
        what, *other = self._reason(thread)
        if what == "join":
            return other[0]
        if what == "mutex":
            return self._scheduler.find(other[0])
        return None

    def _end_of_chain(self, thread):
        """The last thread of the chain in which each waits for the next; None if it is a cycle."""
        for _ in range(len(self._scheduler.threads) + 1):
            following = self._waited_for(thread)
            if following is None or following.done:
                return thread
            thread = following
        return None

    def idle(self):
        """Called when no thread can run. Returns whether one may be able to now."""
        if self._child is not None:
            return False
        if any(self._is_over(thread) for thread in self._running()):
            return False  # SIGCHLD is on its way
        if self._yielded:
            self._yielded.pop()
            return True
        sleepers = [t for t in self._running() if (self._frame(t).wait.deadline or 0) > NEVER]
        if sleepers:
            sleeper = min(sleepers, key=lambda t: self._frame(t).wait.deadline)
            if sleeper not in self._due:
                self._frame(sleeper).wait.deadline = 0.0
                return True
        for thread in self._running():
            if thread in self._due and not self._holds_left(thread):
                self._due.remove(thread)
                self._interrupt(thread, planned=True)
                return True
        for thread, may_continue in self._held.items():
            if not may_continue:
                self._held[thread] = True
                return True
        return self._quiet()

    def _holds_left(self, thread):
        """Whether the plan holds another thread at a call that it has not reached."""
        return any(numbers for name, numbers in self._holds.items() if name != self._name(thread))

    def _interrupt(self, thread, planned):
        thread.frames.append(ModelFrame(self._deliver(thread, planned), interrupts=True))

    def _quiet(self):
        """The launcher would wait forever. Does what a user could do to end the wait, or ends it."""
        running = self._running()
        main = next(t for t in self._names if self._names[t] == "main")
        first = next((t for t in running if self._name(t) == "s0"), None)
        if (
            self._sent == 0
            and not self._child_ended_once
            and first is not None
            and self._reason(first)[0] == "child"
        ):
            self._child_ended_once = True
            self._note("restart")
            return self._end_child(first)
        handling = [t for t in running if t.handling]
        for thread in handling:
            last = self._end_of_chain(thread)
            if last is not None and self._reason(last)[0] == "child":
                return self._end_unkilled(last)
        if not handling:
            last = self._end_of_chain(main)
            if last is main and self._reason(main)[0] == "notification":
                return self._end_lost(main)
            if last is not None and self._reason(last)[0] == "child":
                return self._end_unkilled(last)
        self._note("hung")
        for thread in running:
            what, *other = self._reason(thread)
            named = [self._name(o) if o in self._names else str(o) for o in other]
            handler = ", handler," if thread.handling else ""
            call = self._calls.get(self._name(thread))
            self._note(
                f"waits {self._name(thread)}{handler} in {call} for {what} {' '.join(named)}"
            )
        return self._end()

    def _end_lost(self, main):
        for name, numbers in self._signals.items():
            for number in sorted(numbers):
                self._note(f"unreached {name} {number}")
            numbers.clear()
        if self._sent == 0:
            # The plan signals a child, or nothing.
            self._note("ordinary")
            self._sent += 1
        elif self._extra_signals > 0:
            self._note("ignored")
            return self._end()
        else:
            self._extra_signals += 1
            self._note("lost")
        self._interrupt(main, planned=False)
        return True

    def _end_child(self, thread):
        child = self._reason(thread)[1]
        os.kill(child, signal.SIGKILL)
        await_end(child)
        return False  # the signal about the end is on its way

    def _end_unkilled(self, thread):
        self._unkilled += 1
        if self._unkilled > MAX_UNKILLED:
            self._note("endless")
            return self._end()
        self._note("unkilled")
        return self._end_child(thread)

    @staticmethod
    def _end():
        os._exit(STATUS_OF_RECORDED_END)


def await_end(pid):
    """Waits until the process has ended, and leaves its wait status to others."""
    try:
        os.waitid(os.P_PID, pid, os.WEXITED | os.WNOWAIT)
    except ChildProcessError:
        pass


def has_ended(pid):
    try:
        return os.waitid(os.P_PID, pid, os.WEXITED | os.WNOWAIT | os.WNOHANG) is not None
    except ChildProcessError:
        return True
