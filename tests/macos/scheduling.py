"""Threads of a program, switched at system calls; waiting; signals.

A thread is a stack of frames: code of the program that runs or has called the model, and functions
of the model that wait or have called the program. Only the top frame can run.

Signals that the program handles are blocked in the process that runs it. The scheduler takes them
between two system calls, never inside one. SIGCHLD is always blocked, so that it can end the wait
for a child. Any other signal is blocked in the process while every thread of the program blocks it:
a signal to a process goes to any thread that does not block it (POSIX, "Signal Generation and
Delivery"). Before an execv, the signal mask becomes that of the calling thread.
"""

import signal
import time
from dataclasses import dataclass, field
from types import GeneratorType

import values
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
    what: what is waited for (sigterm.py): ("join", a thread), ("child", its id), ("mutex", the
        address of its owner), ("notification",) or ("time",).
    """

    __slots__ = ("ready", "deadline", "polled", "children", "what", "seen")

    def __init__(self, ready, deadline=None, polled=False, children=False, what=("nothing",)):
        self.ready = ready
        self.deadline = deadline
        self.polled = polled
        self.children = children
        self.what = what
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
    blocked: frozenset = frozenset()  # signals
    owns_stack: bool = True  # False: the program has supplied it
    pending: set = field(default_factory=set)  # signals sent to this thread while it blocked them
    joined: bool = False  # another thread joins it
    cancellable: bool = True
    cancelled: bool = False
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
        self.pending = []  # handled signals to the process that no thread has received yet
        self._child_ends = 0
        self._free_stacks = []
        self._next_stack = STACKS[0] + THREAD_STACK
        self._loaded = None  # the frame whose registers the processor has
        inherited = signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGCHLD})
        self._inherited = frozenset(inherited) & values.LINUX_SIGNALS

    # Threads.

    def new_thread(self, stack_size=THREAD_STACK, supplied=None):
        """A thread without frames, on a new stack or on the one at `supplied`; None if there is no
        room for its stack."""
        if supplied is not None:
            stack = supplied
        elif stack_size == THREAD_STACK and self._free_stacks:
            stack = self._free_stacks.pop()
        elif self._next_stack + stack_size > sum(STACKS):
            return None
        else:
            stack = self._next_stack
            self._next_stack += stack_size
        thread = Thread(self._machine.new_thread_block(), stack, stack_size)
        thread.owns_stack = supplied is None
        if thread.owns_stack:
            self._machine.memory.write(stack, UNTOUCHED)
        # The new thread inherits the mask of its creator (POSIX, pthread_create).
        thread.blocked = self._inherited if self.current is None else self.current.blocked
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
        if thread.owns_stack and thread.stack_size == THREAD_STACK:
            self._free_stacks.append(thread.stack)
        self.update_mask()

    def check_stack(self, thread):
        end = self._machine.memory.read(thread.stack, len(UNTOUCHED)) if thread.owns_stack else None
        if thread.owns_stack and end != UNTOUCHED:
            raise OverflowError(f"a stack of {thread.stack_size} bytes is too small")

    def running(self):
        return [thread for thread in self.threads if not thread.done]

    def after_fork(self):
        """Keeps only the thread that has forked: the child has no other."""
        self.threads = [self.current]
        self.pending = []
        self.current.pending.clear()
        self.update_mask()

    # Running.

    def run(self):
        """Runs the threads in turn until the program ends; returns its exit status."""
        try:
            while True:
                self._take_signals()
                ran = False
                threads = self.threads
                for thread in list(threads):
                    if self.threads is not threads:
                        break  # a forked child has only the thread that has forked
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
        moments = self._machine.moments
        if moments is not None and moments.idle():
            return
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
        return {signal.SIGCHLD, *self.handlers}

    def _note(self, info):
        if info is None:
            return
        if info.si_signo == signal.SIGCHLD:
            self._child_ends += 1
        if info.si_signo in self.handlers:
            self.pending.append(info.si_signo)

    def _take_signals(self):
        info = signal.sigtimedwait(self._wanted_signals(), 0)
        while info is not None:
            self._note(info)
            info = signal.sigtimedwait(self._wanted_signals(), 0)
        for number in list(self.pending):
            for thread in self.running():
                if number not in thread.handling | thread.blocked and thread.frames:
                    self.pending.remove(number)
                    self.interrupt(thread, number)
                    break

    def interrupt(self, thread, number):
        """Makes a thread run the handler next. The caller chooses the first thread that is not in
        this handler already, which is usually the main thread."""
        thread.frames.append(ModelFrame(self.handle(thread, number), interrupts=True))

    def handle(self, thread, number):
        """Runs the handler in a thread."""
        thread.handling.add(number)
        yield Invoke(self.handlers[number], self._machine.signal_number(number))
        thread.handling.discard(number)

    def set_handler(self, number, address):
        """Makes the program handle a signal from now on."""
        self.handlers[number] = address
        self.update_mask()

    def remove_handler(self, number):
        if self.handlers.pop(number, None) is not None:
            self.update_mask()

    def update_mask(self):
        """Blocks in the process what this module's comment says."""
        everywhere = [thread.blocked for thread in self.running()]
        blocked = frozenset.intersection(*everywhere) if everywhere else frozenset()
        signal.pthread_sigmask(
            signal.SIG_SETMASK, blocked | self.handlers.keys() | {signal.SIGCHLD}
        )

    def unblock_for_exec(self):
        """Gives the process the mask of the calling thread; returns the previous one."""
        return signal.pthread_sigmask(signal.SIG_SETMASK, self.current.blocked)


def is_generator(value):
    return isinstance(value, GeneratorType)
