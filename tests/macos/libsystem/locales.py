"""Locales and characters: the "C" locale, and "C.UTF-8" once setlocale has chosen it.

Every locale_t of the programs is a null pointer, which stands for the "C" locale (xlocale(3)). Its
encoding maps each byte to the character with the same number (multibyte(3), "NONE").
"""

import os
import struct
import time
import unicodedata

import values
from libsystem.errors import FAILED, fail
from libsystem.registry import function

INCOMPLETE = 0xFFFF_FFFF_FFFF_FFFE


def character_types():
    """The classes of the 256 characters of the "C" locale: ctype(3), and <_ctype.h> for the bits."""
    bits = {
        name[-1]: number for name, number in values.OTHERS.items() if name.startswith("_CTYPE_")
    }
    types = []
    for code in range(256):
        character = chr(code)
        names = ""
        if code < 128:
            names += "AGR" if character.isalpha() else ""
            names += "L" if character.islower() else ""
            names += "U" if character.isupper() else ""
            names += "DGR" if character.isdigit() else ""
            names += "X" if character in "0123456789abcdefABCDEF" else ""
            names += "B" if character in " \t" else ""
            names += "S" if character in " \t\n\v\f\r" else ""
            names += "C" if code < 32 or code == 127 else ""
            names += "PGR" if 32 < code < 127 and not character.isalnum() else ""
            names += "R" if character == " " else ""
        value = sum(bits[name] for name in set(names))
        if "X" in names:
            value |= int(character, 16)
        types.append(value)
    return types


TYPES = character_types()


def lower(code):
    return code + 32 if 65 <= code <= 90 else code


def upper(code):
    return code - 32 if 97 <= code <= 122 else code


def prepare(machine):
    """The table that the inline functions of <ctype.h> read, and guest/characters.c."""
    layouts = values.LAYOUTS
    table = bytearray(layouts["_RuneLocale.__mapupper"] + 4 * 256 + 64)
    codes = range(256)
    for name, entries in (
        ("__runetype", TYPES),
        ("__maplower", [lower(code) for code in codes]),
        ("__mapupper", [upper(code) for code in codes]),
    ):
        struct.pack_into("<256I", table, layouts[f"_RuneLocale.{name}"], *entries)
    variables = machine.system.setdefault("variables", {})
    variables["__DefaultRuneLocale"] = machine.memory.new(bytes(table))
    machine.system["utf8"] = False


@function("_setlocale")
def setlocale(call):
    """setlocale(3): knows "C", "C.UTF-8" and names that end in ".UTF-8"; "" asks the environment."""
    machine = call.machine
    if call.u64(1) != 0:
        name = call.text(1).decode()
        if name == "":
            chosen = (os.environ.get(key) for key in ("LC_ALL", "LC_CTYPE", "LANG"))
            name = next((value for value in chosen if value), "C")
        if name not in ("C", "POSIX") and not name.endswith(".UTF-8"):
            return 0
        machine.system["utf8"] = name.endswith(".UTF-8")
    return machine.memory.new_text(b"C.UTF-8" if machine.system["utf8"] else b"C")


@function("_freelocale")
def freelocale(_call):
    """xlocale(3)."""
    return 0


@function("____mb_cur_max_l")
def mb_cur_max_l(_call):
    """multibyte(3): the size of the longest character."""
    return 1


@function("_wcwidth")
def wcwidth(call):
    """wcwidth(3), in the locale that setlocale has chosen."""
    code = call.u32(0)
    if code == 0:
        return 0
    if code < 256 and TYPES[code] & values.OTHERS["_CTYPE_R"]:
        return 1
    if not call.machine.system["utf8"] or code > 0x10FFFF:
        return FAILED
    character = chr(code)
    if unicodedata.category(character) in ("Cc", "Cs", "Cn"):
        return FAILED
    if unicodedata.category(character) in ("Mn", "Me", "Cf"):
        return 0
    return 2 if unicodedata.east_asian_width(character) in "WF" else 1


# Conversions between bytes and wide characters, in the "C" locale.


@function("_mbtowc_l")
def mbtowc_l(call):
    """mbtowc(3)."""
    if call.u64(1) == 0:
        return 0
    return convert_one(call, call.u64(0), call.u64(1), call.u64(2), FAILED)


@function("_mbrtowc_l")
def mbrtowc_l(call):
    """mbrtowc(3)."""
    if call.u64(1) == 0:
        return 0
    return convert_one(call, call.u64(0), call.u64(1), call.u64(2), INCOMPLETE)


@function("_mbrlen_l")
def mbrlen_l(call):
    """mbrlen(3)."""
    if call.u64(0) == 0:
        return 0
    return convert_one(call, 0, call.u64(0), call.u64(1), INCOMPLETE)


def convert_one(call, wide, address, size, without):
    if size == 0:
        return without
    byte = call.machine.memory.read(address, 1)[0]
    if wide:
        call.machine.memory.set_u32(wide, byte)
    return int(byte != 0)


@function("_wcrtomb_l")
def wcrtomb_l(call):
    """wcrtomb(3)."""
    if call.u64(0) == 0:
        return 1
    if call.u32(1) > 0xFF:
        return fail(call, "EILSEQ")
    call.store(0, bytes([call.u32(1)]))
    return 1


@function("_mbsnrtowcs_l")
def mbsnrtowcs_l(call):
    """mbsrtowcs(3)."""
    return to_wide(call, call.u64(2), call.u64(3))


@function("_mbsrtowcs_l")
def mbsrtowcs_l(call):
    """mbsrtowcs(3)."""
    return to_wide(call, None, call.u64(2))


def to_wide(call, size, room):
    memory, pointer = call.machine.memory, call.u64(1)
    source = memory.u64(pointer)
    text = memory.text(source) + b"\0"
    if size is not None:
        text = text[:size]
    if call.u64(0) == 0:
        return len(text.rstrip(b"\0"))
    text = text[:room]
    call.store(0, struct.pack(f"<{len(text)}I", *text))
    ended = text.endswith(b"\0")
    memory.set_u64(pointer, 0 if ended else source + len(text))
    return len(text) - ended


@function("_wcsnrtombs_l")
def wcsnrtombs_l(call):
    """wcsrtombs(3)."""
    memory, pointer = call.machine.memory, call.u64(1)
    source = memory.u64(pointer)
    codes = []
    while len(codes) < call.u64(2):
        codes.append(memory.u32(source + 4 * len(codes)))
        if codes[-1] > 0xFF:
            return fail(call, "EILSEQ")
        if codes[-1] == 0:
            break
    if call.u64(0) != 0:
        codes = codes[: call.u64(3)]
        call.store(0, bytes(codes))
        memory.set_u64(pointer, 0 if codes[-1:] == [0] else source + 4 * len(codes))
    return len(codes) - (codes[-1:] == [0])


# Message catalogues: none is installed.


@function("_catopen")
def catopen(call):
    """catopen(3)."""
    return fail(call, "ENOENT")


@function("_catgets")
def catgets(call):
    """catgets(3): the default text."""
    return call.u64(3)


@function("_catclose")
def catclose(call):
    """catclose(3)."""
    return fail(call, "EBADF")


@function("_strftime", "_strftime_l")
def strftime(call):
    """strftime(3): the locale is "C"."""
    tm = values.TM.unpack(call.data(3, values.TM.size))
    second, minute, hour, day, month, year, weekday, yearday, is_dst = tm[:9]
    parts = (
        year + 1900,
        month + 1,
        day,
        hour,
        minute,
        second,
        (weekday - 1) % 7,
        yearday + 1,
        is_dst,
    )
    text = time.strftime(os.fsdecode(call.text(2)), parts).encode()
    if len(text) + 1 > call.u64(1):
        return 0
    call.store(0, text + b"\0")
    return len(text)
