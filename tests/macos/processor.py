"""The two processors: how the model calls a function, and how it reads a call's arguments.

A program calls a system function through the function's stub, which loads the function's number
and jumps to the gate (guest/gate_*.S). The gate stores the arguments in the mailbox, in the layout
below. A hook on the instruction gate_point enters the model, which leaves the result in the
mailbox, and gate_resume returns it to the caller.

Sources: "Procedure Call Standard for the Arm 64-bit Architecture", "System V Application Binary
Interface, AMD64 Architecture Processor Supplement", and Apple's "Writing ARM64 Code for Apple
Platforms" (variadic arguments go to the stack).
"""

import math
import struct

import unicorn
from unicorn import arm64_const as arm64
from unicorn import x86_const as x86

# Offsets in the mailbox.
INTEGERS = 0  # eight words; Intel fills six
NUMBER = 64  # of the function, 0 for a return from a function that the model called
STACK = 72  # the address of the first argument on the stack
FLOATS = 80  # eight numbers; ARM fills two
RETURNS_LONG_DOUBLE = 144
LONG_DOUBLE = 160

MAILBOX = struct.Struct("<10Q")


def signed(value, bits):
    value &= (1 << bits) - 1
    return value - (1 << bits) if value >> (bits - 1) else value


class Arm64:
    name = "arm64"
    integer_arguments = 8

    def __init__(self):
        self.emulator = unicorn.Uc(unicorn.UC_ARCH_ARM64, unicorn.UC_MODE_ARM)
        self.emulator.ctl_set_cpu_model(arm64.UC_CPU_ARM64_MAX)
        # Floating-point instructions trap unless this register allows them.
        control = self.emulator.reg_read(arm64.UC_ARM64_REG_CPACR_EL1)
        self.emulator.reg_write(arm64.UC_ARM64_REG_CPACR_EL1, control | 3 << 20)
        self.pc = arm64.UC_ARM64_REG_PC
        self.sp = arm64.UC_ARM64_REG_SP

    def stub(self, address, number, gate):
        """The code at this address that calls the function with this number."""
        load = 0x52800000 | number << 5 | 16  # mov w16, #number
        jump = 0x14000000 | (gate - address - 4) // 4 & 0x3FFFFFF
        return struct.pack("<II", load, jump)

    def begin_call(self, memory, arguments, stack, return_address):
        """Sets up the registers for a call; the caller then runs from the function's address."""
        for i, argument in enumerate(arguments):
            self.emulator.reg_write(arm64.UC_ARM64_REG_X0 + i, argument & (1 << 64) - 1)
        # X29 and X30 are not numbered after X28.
        self.emulator.reg_write(arm64.UC_ARM64_REG_X29, 0)
        self.emulator.reg_write(arm64.UC_ARM64_REG_LR, return_address)
        self.emulator.reg_write(self.sp, stack & ~15)

    @staticmethod
    def variadic(memory, call, _fixed):
        return StackArguments(memory, call.stack)

    @staticmethod
    def va_list(memory, address):
        return StackArguments(memory, address)

    long_double_is_double = True


class X86_64:
    name = "x86_64"
    integer_arguments = 6

    def __init__(self):
        self.emulator = unicorn.Uc(unicorn.UC_ARCH_X86, unicorn.UC_MODE_64)
        self.pc = x86.UC_X86_REG_RIP
        self.sp = x86.UC_X86_REG_RSP
        self._arguments = (
            x86.UC_X86_REG_RDI,
            x86.UC_X86_REG_RSI,
            x86.UC_X86_REG_RDX,
            x86.UC_X86_REG_RCX,
            x86.UC_X86_REG_R8,
            x86.UC_X86_REG_R9,
        )

    def stub(self, address, number, gate):
        load = b"\x41\xbb" + struct.pack("<I", number)  # mov $number, %r11d
        jump = b"\xe9" + struct.pack("<i", gate - address - 11)
        return load + jump

    def begin_call(self, memory, arguments, stack, return_address):
        for register, argument in zip(self._arguments, arguments):
            self.emulator.reg_write(register, argument & (1 << 64) - 1)
        stack = (stack & ~15) - 8
        memory.set_u64(stack, return_address)
        self.emulator.reg_write(x86.UC_X86_REG_RBP, 0)
        self.emulator.reg_write(self.sp, stack)

    @staticmethod
    def variadic(memory, call, fixed):
        return RegisterArguments(memory, call, fixed)

    @staticmethod
    def va_list(memory, address):
        return VaList(memory, address)

    long_double_is_double = False


PROCESSORS = {"arm64": Arm64, "x86_64": X86_64}


class StackArguments:
    """Variadic arguments one word apart, as on Apple silicon; its va_list is their address."""

    def __init__(self, memory, address):
        self._memory = memory
        self._address = address

    def integer(self):
        value = self._memory.u64(self._address)
        self._address += 8
        return value

    def double(self):
        return struct.unpack("<d", struct.pack("<Q", self.integer()))[0]

    long_double = double


class IntelArguments:
    """Variadic arguments on Intel: registers first, then the stack."""

    def __init__(self, memory, overflow):
        self._memory = memory
        self._overflow = overflow

    def _next_word(self):
        value = self._memory.u64(self._overflow)
        self._overflow += 8
        return value

    def long_double(self):
        self._overflow = (self._overflow + 15) & ~15
        value = extended_to_float(self._memory.read(self._overflow, 10))
        self._overflow += 16
        return value


class RegisterArguments(IntelArguments):
    """The variadic arguments of a call in progress, after `fixed` integer arguments."""

    def __init__(self, memory, call, fixed):
        super().__init__(memory, call.stack)
        self._words = list(call.words[fixed:6])
        self._floats = list(call.floats())

    def integer(self):
        return self._words.pop(0) if self._words else self._next_word()

    def double(self):
        if self._floats:
            return self._floats.pop(0)
        return struct.unpack("<d", struct.pack("<Q", self._next_word()))[0]


class VaList(IntelArguments):
    """The arguments of a va_list: offsets into saved registers, the stack, the registers."""

    def __init__(self, memory, address):
        self._integers, self._floats = struct.unpack("<II", memory.read(address, 8))
        self._saved = memory.u64(address + 16)
        super().__init__(memory, memory.u64(address + 8))

    def integer(self):
        if self._integers < 48:
            self._integers += 8
            return self._memory.u64(self._saved + self._integers - 8)
        return self._next_word()

    def double(self):
        if self._floats < 176:
            self._floats += 16
            word = self._memory.u64(self._saved + self._floats - 16)
        else:
            word = self._next_word()
        return struct.unpack("<d", struct.pack("<Q", word))[0]


def extended_to_float(data):
    """The value of an x87 number of ten bytes."""
    fraction, exponent = struct.unpack("<QH", data)
    sign = -1.0 if exponent >> 15 else 1.0
    exponent &= 0x7FFF
    if exponent == 0x7FFF:
        return sign * math.inf if fraction << 1 & (1 << 64) - 1 == 0 else math.nan
    return sign * math.ldexp(fraction, exponent - 16383 - 63)


def float_to_extended(value):
    """The x87 number of ten bytes with this value."""
    sign = 0x8000 if math.copysign(1, value) < 0 else 0
    if value == 0:
        return struct.pack("<QH", 0, sign)
    if math.isinf(value) or math.isnan(value):
        return struct.pack("<QH", (1 << 63) | (math.isnan(value) << 62), sign | 0x7FFF)
    fraction, exponent = math.frexp(abs(value))
    return struct.pack("<QH", int(math.ldexp(fraction, 64)), sign | exponent + 16382)
