"""Numbers: strtol(3), strtod(3), and the mathematical functions."""

import math
import re
import struct

from libsystem.errors import fail
from libsystem.registry import function

FLOAT = re.compile(
    rb"[ \t-\r]*([-+]?(?:0[xX](?:[0-9a-fA-F]+\.?[0-9a-fA-F]*|\.[0-9a-fA-F]+)(?:[pP][-+]?\d+)?"
    rb"|(?:\d+\.?\d*|\.\d+)(?:[eE][-+]?\d+)?|(?i:inf(?:inity)?|nan)))"
)


def integer(call, low, high):
    """The value of the text, limited to the type's range. Stores the end of the number."""
    text, base = call.text(0), call.i32(2)
    match = re.match(rb"[ \t-\r]*([-+]?)(0[xX](?=[0-9a-fA-F]))?", text)
    if match[2] and base not in (0, 16):
        match = re.match(rb"[ \t-\r]*([-+]?)()", text)
    if base == 0:
        base = 16 if match[2] else 8 if text[match.end() :].startswith(b"0") else 10
    allowed = b"0123456789abcdefghijklmnopqrstuvwxyz"[:base]
    end = match.end()
    while end < len(text) and text[end : end + 1].lower() in allowed:
        end += 1
    digits = text[match.end() : end]
    if call.u64(1):
        call.machine.memory.set_u64(call.u64(1), call.u64(0) + (end if digits else 0))
    if not digits:
        return 0
    value = int(digits, base)
    if low == 0:  # unsigned: a sign negates the result in its type
        return fail(call, "ERANGE", high) if value > high else -value if match[1] == b"-" else value
    value = -value if match[1] == b"-" else value
    if low <= value <= high:
        return value
    return fail(call, "ERANGE", high if value > 0 else low)


@function("_strtol", "_strtoll", "_strtoll_l")
def strtoll(call):
    """strtol(3); long has 64 bits."""
    return integer(call, -(1 << 63), (1 << 63) - 1)


@function("_strtoul", "_strtoull", "_strtoull_l")
def strtoull(call):
    """strtoul(3)."""
    return integer(call, 0, (1 << 64) - 1)


@function("_atoi")
def atoi(call):
    """atoi(3): the low half of the result of strtol."""
    match = re.match(rb"[ \t-\r]*([-+]?\d+)", call.text(0))
    value = int(match[1]) if match else 0
    return max(-(1 << 63), min(value, (1 << 63) - 1)) & 0xFFFF_FFFF


def floating(call):
    """The value of the text. Stores the end of the number."""
    text = call.text(0)
    match = FLOAT.match(text)
    if call.u64(1):
        call.machine.memory.set_u64(call.u64(1), call.u64(0) + (match.end() if match else 0))
    if match is None:
        return 0.0
    digits = match[1]
    try:
        value = float.fromhex(digits.decode()) if b"x" in digits.lower() else float(digits)
    except OverflowError:
        value = math.inf
    nonzero = re.search(rb"[1-9]", re.split(rb"[eE]", digits)[0]) is not None
    if nonzero and (math.isinf(value) or value == 0.0):
        call.machine.set_errno(34)
    return value


@function("_strtod", "_strtod_l")
def strtod(call):
    """strtod(3), strtod_l(3)."""
    return floating(call)


@function("_strtof_l")
def strtof_l(call):
    """strtod(3): the result is a float, in the low half of the register."""
    value = floating(call)
    try:
        packed = struct.pack("<f", value)
    except OverflowError:
        call.machine.set_errno(34)
        packed = struct.pack("<f", math.copysign(math.inf, value))
    return struct.unpack("<d", packed + bytes(4))[0]


@function("_strtold", "_strtold_l")
def strtold(call):
    """strtod(3), with the precision of a double."""
    return call.machine.return_long_double(floating(call))


@function("_exp2")
def exp2(call):
    """exp(3)."""
    return 2.0 ** call.floats()[0]


@function("_ceilf")
def ceilf(call):
    """ceil(3) of a float, which is in the low half of the register."""
    value = struct.unpack("<f", struct.pack("<d", call.floats()[0])[:4])[0]
    return struct.unpack("<d", struct.pack("<f", float(math.ceil(value))) + bytes(4))[0]
