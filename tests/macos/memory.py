"""The memory of a program: one range of the emulator that Python reads and writes directly.

Slicing a Python mmap costs a tenth of a call into the emulator, and after a fork the system gives
the child its own copy of a private mapping.
"""

import ctypes
import errno
import mmap
import struct

from unicorn import UC_PROT_EXEC, UC_PROT_READ, UC_PROT_WRITE

PAGE = 0x1000  # of Intel; Apple silicon has larger ones

BASE = 0x1_0000_0000
IMAGES = BASE, 0x1_0000_0000
DATA = 0x2_0000_0000, 0x1000_0000
HEAP = 0x2_1000_0000, 0x1_0000_0000
STACKS = 0x3_2000_0000, 0x1_0000_0000
END = sum(STACKS)
SHARED = 0x10_0000_0000

MAX_TEXT = 1 << 28

MAP_NORESERVE = 0x4000  # of Linux; Python has a name for it only since 3.13

READ, WRITE, EXECUTE = UC_PROT_READ, UC_PROT_WRITE, UC_PROT_EXEC

_U64 = struct.Struct("<Q")
_U32 = struct.Struct("<I")


def pages(size):
    """The size rounded up to whole pages."""
    return (size + PAGE - 1) & ~(PAGE - 1)


def address_of(buffer):
    return ctypes.addressof(ctypes.c_char.from_buffer(buffer))


class Memory:
    def __init__(self, emulator):
        self._emulator = emulator
        flags = mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS | MAP_NORESERVE
        self._arena = mmap.mmap(-1, END - BASE, flags=flags)
        self._arena_address = address_of(self._arena)
        self._extra = {}  # first address: mmap
        self._next_extra = SHARED
        self._next_data = DATA[0]
        for first, size in (DATA, HEAP, STACKS):
            self.map(first, size, READ | WRITE)

    def map(self, address, size, protection):
        """Makes a part of the arena visible to the program."""
        self._emulator.mem_map_ptr(address, size, protection, self._arena_address + address - BASE)

    def map_extra(self, size, shared, protection):
        """New zeroed pages outside the arena, as from mmap(2) with MAP_ANON."""
        size = pages(size)
        flags = mmap.MAP_ANONYMOUS | (mmap.MAP_SHARED if shared else mmap.MAP_PRIVATE)
        address = self._next_extra
        self._next_extra += size + PAGE
        self._extra[address] = mmap.mmap(-1, size, flags=flags)
        self._emulator.mem_map_ptr(address, size, protection, address_of(self._extra[address]))
        return address

    def unmap_extra(self, address, size):
        """Releases pages that map_extra returned; False for anything else."""
        if address not in self._extra or len(self._extra[address]) != pages(size):
            return False
        self._emulator.mem_unmap(address, pages(size))
        del self._extra[address]
        return True

    def protect(self, address, size, protection):
        self._emulator.mem_protect(address, pages(size), protection)

    def _place(self, address, size):
        if BASE <= address and address + size <= END:
            return self._arena, address - BASE
        for first, extra in self._extra.items():
            if first <= address and address + size <= first + len(extra):
                return extra, address - first
        raise BadAddress(address)

    def read(self, address, size):
        buffer, offset = self._place(address, size)
        return buffer[offset : offset + size]

    def write(self, address, data):
        buffer, offset = self._place(address, len(data))
        buffer[offset : offset + len(data)] = data

    def u64(self, address):
        return _U64.unpack(self.read(address, 8))[0]

    def u32(self, address):
        return _U32.unpack(self.read(address, 4))[0]

    def set_u64(self, address, value):
        self.write(address, _U64.pack(value & 0xFFFF_FFFF_FFFF_FFFF))

    def set_u32(self, address, value):
        self.write(address, _U32.pack(value & 0xFFFF_FFFF))

    def text(self, address):
        """The bytes up to a NUL."""
        buffer, offset = self._place(address, 1)
        end = buffer.find(b"\0", offset, offset + MAX_TEXT)
        if end < 0:
            raise BadAddress(address)
        return buffer[offset:end]

    def wide_text(self, address):
        """The characters up to a NUL, as numbers."""
        found = []
        while character := self.u32(address):
            found.append(character)
            address += 4
        return found

    def new(self, content):
        """Memory that the model shows to the program; never freed."""
        size = content if isinstance(content, int) else len(content)
        address = self._next_data
        self._next_data += (size + 15) & ~15
        if not isinstance(content, int):
            self.write(address, content)
        return address

    def new_text(self, text):
        return self.new(text + b"\0")

    def new_vector(self, texts):
        """A vector of texts terminated by a null pointer, like argv."""
        pointers = [self.new_text(text) for text in texts] + [0]
        return self.new(struct.pack(f"<{len(pointers)}Q", *pointers))


class BadAddress(OSError):
    """The program passed an address that is not mapped. A system call fails with EFAULT."""

    def __init__(self, address):
        super().__init__(errno.EFAULT, f"address {address:#x}")
