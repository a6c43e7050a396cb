"""How the model's functions are declared, and how they read the arguments of a call.

    @function("_getpid")
    def getpid(call):
        return os.getpid()

A function that may block, or that calls functions of the program, is a generator. It yields what
it waits for (scheduling.Wait) or calls (scheduling.Invoke), and returns its result. The names are
those of the linker, which prefixes C names with an underscore.
"""

import errno
import os
import struct

import processor
import values

FUNCTIONS = {}


def function(*names):
    """Declares a function under these names."""

    def declare(implementation):
        for name in names:
            assert name not in FUNCTIONS, name
            FUNCTIONS[name] = implementation
        return implementation

    return declare


class Call:
    """The arguments of one call, valid while it lasts; floats are valid until it blocks."""

    __slots__ = ("machine", "words", "stack")

    def __init__(self, machine, words):
        self.machine = machine
        self.words = words
        self.stack = words[9]

    def u64(self, index):
        machine = self.machine
        registers = machine.processor.integer_arguments
        if index < registers:
            return self.words[index]
        return machine.memory.u64(self.stack + 8 * (index - registers))

    def i64(self, index):
        return processor.signed(self.u64(index), 64)

    def u32(self, index):
        return self.u64(index) & 0xFFFF_FFFF

    def i32(self, index):
        return processor.signed(self.u64(index), 32)

    def text(self, index):
        """The bytes up to a NUL."""
        return self.machine.memory.text(self.u64(index))

    def path(self, index):
        """A path for a system call; fails if it has PATH_MAX bytes or more: intro(2)."""
        path = self.text(index)
        if len(path) >= values.OTHERS["PATH_MAX"]:
            raise OSError(errno.ENAMETOOLONG, os.strerror(errno.ENAMETOOLONG))
        return os.fsdecode(path)

    def data(self, index, size):
        return self.machine.memory.read(self.u64(index), size)

    def store(self, index, content):
        """Writes to the address in an argument."""
        self.machine.memory.write(self.u64(index), content)

    def floats(self):
        return struct.unpack("<8d", self.machine.mailbox(processor.FLOATS, 64))

    def variadic(self, fixed):
        """The arguments after the fixed ones."""
        return self.machine.processor.variadic(self.machine.memory, self, fixed)

    def va_list(self, index):
        return self.machine.processor.va_list(self.machine.memory, self.u64(index))
