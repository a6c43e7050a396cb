"""Threads of a program, switched at system calls; waiting; signals.

A thread is a stack of frames: code of the program that runs or has called the model, and functions
of the model that wait or have called the program. Only the top frame can run.

Signals that the program handles are blocked in the process that runs it. The scheduler takes them
between two system calls, never inside one. SIGCHLD is always blocked, so that it can end the wait
for a child. Before an execv, the signal mask becomes the program's own again.
"""

import signal
import time
from dataclasses import dataclass, field
from types import GeneratorType

from memory import STACKS

# The stack of any thread but the main one: "Threading Programming Guide", 512 KiB.
THREAD_STACK = 512 * 1024
MAIN_STACK = 8 * 1024 * 1024
RED_ZONE = 512  # below the stack pointer, kept clear when a handler or destructor runs
UNTOUCHED = b"\xa5" * 4096  # at the end of each stack, to detect an overflow

POLL = 0.001


class Wait:
    """A condition, checked whenever something happens.

    polled: nothing in this process shows when it becomes true, so it is checked every millisecond.
    children: it becomes true only when a child ends.
    """

    __slots__ = ("ready", "deadline", "polled", "children", "seen")

    def __init__(self, ready, deadline=None, polled=False, children=False):
        self.ready = ready
        self.deadline = deadline
        self.polled = polled
        self.children = children
        self.seen = -1


ANYTHING = Wait(lambda: True)


class Invoke:
    """A call of the program's function with this address."""

    __slots__ = ("address", "arguments")

    def __init__(self, address, *arguments):
        self.address = address
        self.arguments = arguments


class ProgramFrame:
    """Code of the program: a call to begin, or where to continue and the result to return there."""

    __slots__ = ("context", "begin", "result", "stack")

    def __init__(self, begin, stack):
        self.begin = begin
        self.stack = stack
        self.context = None
        self.result = None


class ModelFrame:
    """A function of the model. One that interrupts returns no result to the frame below."""

    __slots__ = ("generator", "wait", "interrupts", "value")

    def __init__(self, generator, interrupts=False):
        self.generator = generator
        self.interrupts = interrupts
        self.wait = ANYTHING
        self.value = None


@dataclass(eq=False)
class Thread:
    address: int  # of what pthread_t points to
    stack: int  # its first address
    stack_size: int
    frames: list = field(default_factory=list)
    handling: set = field(default_factory=set)
    done: bool = False
    result: int = 0

    def stack_pointer(self):
        """Where a new call may put its frame."""
        for frame in reversed(self.frames):
            if isinstance(frame, ProgramFrame):
                return frame.stack - RED_ZONE
        return self.stack + self.stack_size - 256


class ProcessEnds(Exception):
    """The program has ended; the argument is its exit status."""


class Scheduler:
    def __init__(self, machine):
        self._machine = machine
        self.threads = []
        self.current = None
        self.handlers = {}  # signal: address of the handler
        self.blocked = set()  # what the program has blocked itself
        self._pending = []
        self._child_ends = 0
        self._free_stacks = []
        self._next_stack = STACKS[0] + THREAD_STACK
        self._loaded = None  # the frame whose registers the processor has
        signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGCHLD})

    # Threads.

    def new_thread(self, stack_size=THREAD_STACK):
        """A thread without frames; None if there is no room for its stack."""
        if stack_size == THREAD_STACK and self._free_stacks:
            stack = self._free_stacks.pop()
        elif self._next_stack + stack_size > sum(STACKS):
            return None
        else:
            stack = self._next_stack
            self._next_stack += stack_size
        self._machine.memory.write(stack, UNTOUCHED)
        thread = Thread(self._machine.new_thread_block(), stack, stack_size)
        self.threads.append(thread)
        return thread

    def start(self, thread, generator):
        thread.frames.append(ModelFrame(generator))

    def find(self, address):
        return next((thread for thread in self.threads if thread.address == address), None)

    def remove(self, thread):
        self.threads.remove(thread)

    def end_thread(self, thread, result):
        self.check_stack(thread)
        thread.done = True
        thread.result = result
        if thread.stack_size == THREAD_STACK:
            self._free_stacks.append(thread.stack)

    def check_stack(self, thread):
        if self._machine.memory.read(thread.stack, len(UNTOUCHED)) != UNTOUCHED:
            raise OverflowError(f"a stack of {thread.stack_size} bytes is too small")

    def running(self):
        return [thread for thread in self.threads if not thread.done]

    def after_fork(self):
        """Keeps only the thread that has forked: the child has no other."""
        self.threads = [self.current]
        self._pending = []

    # Running.

    def run(self):
        """Runs the threads in turn until the program ends; returns its exit status."""
        try:
            while True:
                self._take_signals()
                ran = False
                for thread in list(self.threads):
                    if not thread.done and self._can_run(thread):
                        ran = True
                        self._step(thread)
                if not ran:
                    self._idle()
        except ProcessEnds as end:
            return end.args[0]

    def _can_run(self, thread):
        if not thread.frames:
            return False
        frame = thread.frames[-1]
        if isinstance(frame, ProgramFrame):
            return True
        wait = frame.wait
        if wait.children:
            if wait.seen == self._child_ends:
                return False
            wait.seen = self._child_ends
        if wait.deadline is not None and time.monotonic() >= wait.deadline:
            return True
        return wait.ready()

    def _step(self, thread):
        """Runs a thread until it waits, yields or ends."""
        self.current = thread
        while thread.frames:
            frame = thread.frames[-1]
            if isinstance(frame, ProgramFrame):
                if not self._run_program(thread, frame):
                    return
            elif not self._run_model(thread, frame):
                return

    def _run_model(self, thread, frame):
        """Runs a function of the model; returns whether the thread can continue at once."""
        try:
            request = frame.generator.send(frame.value)
        except StopIteration as stop:
            if thread.frames and thread.frames[-1] is frame:
                thread.frames.pop()
            if not frame.interrupts:
                self._give_result(thread, stop.value)
            return True
        frame.value = None
        if isinstance(request, Invoke):
            begin = (request.address, request.arguments)
            thread.frames.append(ProgramFrame(begin, thread.stack_pointer()))
            return True
        frame.wait = request
        if request.children:
            request.seen = self._child_ends
        return False

    @staticmethod
    def _give_result(thread, value):
        if thread.frames:
            below = thread.frames[-1]
            if isinstance(below, ProgramFrame):
                below.result = value
            else:
                below.value = value

    def _run_program(self, thread, frame):
        """Runs code of the program until it calls a function that blocks, or returns. The result is
        whether the thread can continue at once."""
        machine = self._machine
        self._load(frame)
        machine.set_current_thread(thread.address)
        if frame.begin is not None:
            address, arguments = frame.begin
            frame.begin = None
            entered = machine.begin(address, arguments, frame.stack)
        else:
            entered = machine.resume(frame.result)
            frame.result = None
        if entered is None:  # the function has returned
            thread.frames.pop()
            self._loaded = None
            self._give_result(thread, machine.returned())
            return True
        frame.stack = entered.stack
        if entered.generator is None:  # the thread yields
            frame.result = entered.result
            return False
        thread.frames.append(ModelFrame(entered.generator))
        return True

    def _load(self, frame):
        if self._loaded is frame:
            return
        if self._loaded is not None:
            self._loaded.context = self._machine.save_context(self._loaded.context)
        if frame.context is not None:
            self._machine.restore_context(frame.context)
        self._loaded = frame

    # Waiting and signals.

    def _idle(self):
        """Waits until a condition may have become true or a signal arrives."""
        end = None
        for thread in self.running():
            frame = thread.frames[-1]
            deadline = frame.wait.deadline
            if frame.wait.polled:
                deadline = min(deadline or 1e300, time.monotonic() + POLL)
            if deadline is not None and (end is None or deadline < end):
                end = deadline
        wanted = self._wanted_signals()
        if end is None:
            self._note(signal.sigwaitinfo(wanted))
        else:
            self._note(signal.sigtimedwait(wanted, max(0.0, end - time.monotonic())))

    def _wanted_signals(self):
        return {signal.SIGCHLD, *(n for n in self.handlers if n not in self.blocked)}

    def _note(self, info):
        if info is None:
            return
        if info.si_signo == signal.SIGCHLD:
            self._child_ends += 1
        if info.si_signo in self.handlers:
            self._pending.append(info.si_signo)

    def _take_signals(self):
        info = signal.sigtimedwait(self._wanted_signals(), 0)
        while info is not None:
            self._note(info)
            info = signal.sigtimedwait(self._wanted_signals(), 0)
        for number in list(self._pending):
            for thread in self.running():
                if number not in thread.handling and thread.frames:
                    self._pending.remove(number)
                    self._interrupt(thread, number)
                    break

    def _interrupt(self, thread, number):
        """Makes a thread run the handler next. The caller chooses the first thread that is not in
        this handler already, which is usually the main thread."""

        def handle():
            thread.handling.add(number)
            yield Invoke(self.handlers[number], self._machine.signal_number(number))
            thread.handling.discard(number)

        thread.frames.append(ModelFrame(handle(), interrupts=True))

    def set_handler(self, number, address):
        """Makes the program handle a signal from now on."""
        self.handlers[number] = address
        signal.pthread_sigmask(signal.SIG_BLOCK, {number})

    def remove_handler(self, number):
        if self.handlers.pop(number, None) is not None and number not in self.blocked:
            if number != signal.SIGCHLD:
                signal.pthread_sigmask(signal.SIG_UNBLOCK, {number})

    def unblock_for_exec(self):
        """Gives the process the mask that the program has set; returns the previous one."""
        return signal.pthread_sigmask(signal.SIG_SETMASK, self.blocked)


def is_generator(value):
    return isinstance(value, GeneratorType)
