"""Formatted output and input: printf(3), scanf(3)."""

import re
import struct

import values
from libsystem.errors import FAILED, fail
from libsystem.registry import function
from scheduling import Invoke

DIRECTIVE = re.compile(rb"%([-+ #0']*)(\*|\d+)?(?:\.(\*|\d*))?(hh|h|ll|l|q|j|z|t|L)?(.)", re.DOTALL)
BITS = {b"hh": 8, b"h": 16, b"": 32, None: 32}


class IllegalSequence(Exception):
    """A wide character that the C locale cannot encode."""


def format_text(memory, template, arguments):
    """The text that printf writes; the locale is "C"."""
    return DIRECTIVE.sub(lambda match: one_directive(memory, match, arguments), template)


def one_directive(memory, match, arguments):
    flags, width, precision, length, kind = match.groups()
    flags, kind = flags.decode(), kind.decode("latin-1")
    if kind == "%":
        return b"%"
    width = number_field(width, arguments)
    precision = number_field(precision, arguments)
    if width is not None and width < 0:
        flags, width = flags + "-", -width
    if precision is not None and precision < 0:
        precision = None
    convert = CONVERSIONS.get(kind)
    if convert is None:
        raise NotImplementedError(f"printf with {match[0]!r}")
    pattern = "%" + flags + str(width or "") + ("" if precision is None else f".{precision}")
    text = convert(memory, pattern, precision, length, kind, arguments)
    if kind in "csSCp":
        text = text.ljust(width or 0) if "-" in flags else text.rjust(width or 0)
    return text


def number_field(field, arguments):
    if field is None:
        return None
    if field == b"*":
        value = arguments.integer() & 0xFFFF_FFFF
        return value - (1 << 32) if value >> 31 else value
    return int(field or 0)


def convert_integer(_memory, pattern, precision, length, kind, arguments):
    bits = BITS.get(length, 64)
    value = arguments.integer() & (1 << bits) - 1
    if kind in "di" and value >> (bits - 1):
        value -= 1 << bits
    if precision == 0 and value == 0:
        return re.sub(r"\..*", "", pattern + "s").encode() % b""
    if precision is not None:
        pattern = pattern.replace("0", "", 1) if pattern[1:2] == "0" else pattern
    kind = "d" if kind in "iu" else kind
    if kind == "o" and "#" in pattern:
        raise NotImplementedError("printf with # and o")
    return (pattern + kind).encode() % value


def convert_float(_memory, pattern, _precision, length, kind, arguments):
    value = arguments.long_double() if length == b"L" else arguments.double()
    if kind in "aA":
        return hexadecimal(value).encode()
    return (pattern + kind).encode() % value


def hexadecimal(value):
    """The shortest digits that give the value exactly."""
    text = value.hex()
    return re.sub(r"\.?0*p", "p", text) if "p" in text else text


def convert_text(memory, _pattern, precision, length, kind, arguments):
    address = arguments.integer()
    if length == b"l" or kind == "S":
        return narrow(memory.wide_text(address))[:precision]
    if address == 0:
        return b"(null)"[:precision]
    if precision is None:
        return memory.text(address)
    found = bytearray()  # may have no NUL
    while len(found) < precision and (byte := memory.read(address + len(found), 1)) != b"\0":
        found += byte
    return bytes(found)


def narrow(characters):
    if any(character > 0xFF for character in characters):
        raise IllegalSequence
    return bytes(characters)


def convert_character(_memory, _pattern, _precision, length, kind, arguments):
    value = arguments.integer() & 0xFFFF_FFFF
    return narrow([value]) if length == b"l" or kind == "C" else bytes([value & 0xFF])


def convert_pointer(_memory, _pattern, _precision, _length, _kind, arguments):
    return b"0x%x" % arguments.integer()


CONVERSIONS = {
    **dict.fromkeys("diouxX", convert_integer),
    **dict.fromkeys("fFeEgGaA", convert_float),
    **dict.fromkeys("sS", convert_text),
    **dict.fromkeys("cC", convert_character),
    "p": convert_pointer,
}


def store_text(call, address, size, template, arguments):
    """What snprintf and its variants do."""
    try:
        text = format_text(call.machine.memory, template, arguments)
    except IllegalSequence:
        return fail(call, "EILSEQ")
    if size:
        call.machine.memory.write(address, text[: size - 1] + b"\0")
    return len(text)


@function("_snprintf")
def snprintf(call):
    """printf(3)."""
    return store_text(call, call.u64(0), call.u64(1), call.text(2), call.variadic(3))


@function("_snprintf_l")
def snprintf_l(call):
    """xprintf_l: printf_l(3). The locale, the third argument, is always the C one."""
    return store_text(call, call.u64(0), call.u64(1), call.text(3), call.variadic(4))


@function("_vsnprintf")
def vsnprintf(call):
    """printf(3)."""
    return store_text(call, call.u64(0), call.u64(1), call.text(2), call.va_list(3))


@function("_asprintf_l")
def asprintf_l(call):
    """printf_l(3): the text in memory that the program frees."""
    text = format_text(call.machine.memory, call.text(2), call.variadic(3))
    address = yield Invoke(call.machine.symbol("_malloc"), len(text) + 1)
    call.machine.memory.write(address, text + b"\0")
    call.machine.memory.set_u64(call.u64(0), address)
    return len(text)


# Input

INPUT = re.compile(rb"\s+|%(\*)?(\d+)?(hh|h|ll|l|q|j|z|t|L)?(\[\^?\]?[^]]*\]|.)|[^%\s]", re.DOTALL)
INTEGERS = {
    "d": rb"[-+]?\d+", "u": rb"[-+]?\d+", "i": rb"[-+]?(?:0[xX][0-9a-fA-F]+|\d+)",
    "x": rb"[-+]?(?:0[xX])?[0-9a-fA-F]+", "o": rb"[-+]?[0-7]+", "p": rb"(?:0[xX])?[0-9a-fA-F]+",
}  # fmt: skip
FLOAT = rb"[-+]?(?:\d+\.?\d*|\.\d+)(?:[eE][-+]?\d+)?|[-+]?(?i:inf(?:inity)?|nan)"
BASES = {"d": 10, "u": 10, "i": 0, "x": 16, "o": 8, "p": 16}


def scan(memory, text, template, arguments):
    """What sscanf does; returns the number of stored values, -1 if the text ends too early."""
    stored, at = 0, 0
    for match in INPUT.finditer(template):
        directive = match[0]
        if directive.isspace():
            at += len(text[at:]) - len(text[at:].lstrip())
            continue
        if not directive.startswith(b"%") or match[4] == b"%":
            if text[at : at + 1] != directive[:1]:
                return stored if at < len(text) or stored else -1
            at += 1
            continue
        kind = match[4].decode("latin-1")
        if kind == "n":
            memory.set_u32(arguments.integer(), at)
            continue
        found, end = scan_field(text, at, kind, int(match[2] or 0))
        if found is None:
            return stored if stored or text[at:].strip() else -1
        at = end
        if not match[1]:
            store_field(memory, arguments.integer(), kind, match[3] or b"", found)
            stored += 1
    return stored


def scan_field(text, at, kind, width):
    """The bytes of a field and where it ends; None if the text has no such field."""
    if kind[0] not in "[c":
        at += len(text[at:]) - len(text[at:].lstrip())
    if kind[0] == "[":
        pattern = kind.encode("latin-1") + b"+"
    elif kind == "c":
        pattern = b".{%d}" % (width or 1)
    elif kind == "s":
        pattern = rb"\S+"
    elif kind in INTEGERS:
        pattern = INTEGERS[kind]
    elif kind in "fegaFEGA":
        pattern = FLOAT
    else:
        raise NotImplementedError(f"scanf with {kind}")
    part = text[at : at + width] if width else text[at:]
    match = re.match(pattern, part, re.DOTALL)
    return (match[0], at + match.end()) if match else (None, at)


def store_field(memory, address, kind, length, found):
    if kind in INTEGERS:
        base = BASES[kind]
        if base == 0 and re.fullmatch(rb"[-+]?0[0-7]+", found):
            base = 8
        size = 8 if kind == "p" else BITS.get(length, 64) // 8
        memory.write(address, (int(found, base) & (1 << 8 * size) - 1).to_bytes(size, "little"))
    elif kind in "fegaFEGA":
        if length == b"L":
            raise NotImplementedError("scanf of a long double")
        memory.write(address, struct.pack("<d" if length == b"l" else "<f", float(found)))
    else:
        memory.write(address, found + (b"" if kind == "c" else b"\0"))


@function("_sscanf")
def sscanf(call):
    """scanf(3)."""
    return scan(call.machine.memory, call.text(0), call.text(1), call.variadic(2)) & FAILED


@function("_sscanf_l")
def sscanf_l(call):
    """scanf_l(3). The locale, the second argument, is always the C one."""
    return scan(call.machine.memory, call.text(0), call.text(2), call.variadic(3)) & FAILED


# Messages


def error_text(number):
    """strerror(3)."""
    return values.ERROR_TEXTS.get(number, f"Unknown error: {number}").encode()


@function("_strerror")
def strerror(call):
    """strerror(3): the text is valid until the next call."""
    machine = call.machine
    address = machine.system.setdefault("strerror", machine.memory.new(256))
    machine.memory.write(address, error_text(call.i32(0)) + b"\0")
    return address


@function("_strerror_r")
def strerror_r(call):
    """strerror(3): ERANGE if the text does not fit, EINVAL for an unknown number."""
    text, size = error_text(call.i32(0)) + b"\0", call.u64(2)
    if size:
        call.store(1, text if len(text) <= size else text[: size - 1] + b"\0")
    if call.i32(0) not in values.ERROR_TEXTS:
        return values.ERRNO["EINVAL"]
    return 0 if len(text) <= size else values.ERRNO["ERANGE"]
