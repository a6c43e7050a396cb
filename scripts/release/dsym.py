"""The debug information of the macOS programs.

    dsym.py adopt SHIPPED LINKED DSYM   makes DSYM, which dsymutil made from LINKED, belong to SHIPPED
    dsym.py check BUNDLE DSYMS SOURCES  checks all debug information of a bundle

dsymutil needs a program whose linker noted the paths of all object files. The program that is shipped
must not contain them. It is therefore linked twice. The two must have the same code at the same
addresses; then the debug information of one is true for the other, and only the identifier (UUID) by
which debuggers find it has to be replaced. adopt works on single architectures.
"""

import pathlib
import re
import shutil
import struct
import subprocess
import sys

PROGRAMS = ("MacOS/launcher", "MacOS/launchlist", "Frameworks/libqv7log.dylib")

# A function of each program, and the source file that contains it.
CRASH_SITES = {
    "launcher": ("_main", "launcher/main.cpp", r"^int main\("),
    "launchlist": ("_main", "tools/launchlist/main.cpp", r"^int main\("),
    "libqv7log.dylib": ("_InitLogger", "qv7log/logger.cpp", r"\bInitLogger\("),
}

CPU_NAMES = {0x0100000C: "arm64", 0x01000007: "x86_64"}
LC_SYMTAB, LC_SEGMENT_64, LC_UUID = 0x2, 0x19, 0x1B


class Image:
    """One architecture of a Mach-O file. `content` is that architecture's part of the file."""

    def __init__(self, content):
        self.content = content
        magic, cpu, _, _, count = struct.unpack_from("<IIIII", content)
        if magic != 0xFEEDFACF:
            raise ValueError("not a 64-bit Mach-O file")
        self.architecture = CPU_NAMES[cpu]
        self.sections, self.uuid, self.symbols = {}, None, {}
        at = 32
        for _ in range(count):
            command, size = struct.unpack_from("<II", content, at)
            if command == LC_UUID:
                self.uuid_at = at + 8
                self.uuid = content[at + 8 : at + 24]
            elif command == LC_SEGMENT_64:
                self.read_sections(at)
            elif command == LC_SYMTAB:
                self.read_symbols(*struct.unpack_from("<IIII", content, at + 8))
            at += size

    def read_sections(self, at):
        for index in range(struct.unpack_from("<I", self.content, at + 64)[0]):
            begin = at + 72 + 80 * index
            names = self.content[begin : begin + 32]
            address, size, offset = struct.unpack_from("<QQI", self.content, begin + 32)
            kind = self.content[begin + 64]
            has_bytes = kind not in (0x1, 0xC, 0x12)  # Zero-filled sections have none.
            data = self.content[offset : offset + size] if has_bytes else b""
            self.sections[names] = (address, size, data)

    def read_symbols(self, offset, count, strings, _):
        for index in range(count):
            name, kind, _, _, value = struct.unpack_from(
                "<IBBHQ", self.content, offset + 16 * index
            )
            if kind & 0xE0 == 0 and kind & 0x0E == 0x0E:  # Defined, and not a debugging entry.
                end = self.content.index(b"\0", strings + name)
                self.symbols[self.content[strings + name : end].decode()] = value


def images(path):
    """The images of a Mach-O file, by architecture."""
    content = path.read_bytes()
    if content[:4] != b"\xca\xfe\xba\xbe":
        parts = [content]
    else:
        count = struct.unpack_from(">I", content, 4)[0]
        places = [struct.unpack_from(">IIIII", content, 8 + 20 * i)[2:4] for i in range(count)]
        parts = [content[offset : offset + size] for offset, size in places]
    return {image.architecture: image for image in map(Image, parts)}


def adopt(shipped, linked, dsym):
    """Gives the debug information file the UUID of the shipped program."""
    (ours,) = images(shipped).values()
    (theirs,) = images(linked).values()
    (debug,) = images(dsym).values()
    if ours.sections != theirs.sections:
        sys.exit(f"{shipped} and {linked} differ in more than their references to object files.")
    if debug.uuid != theirs.uuid:
        sys.exit(f"{dsym} does not describe {linked}.")
    content = debug.content
    dsym.write_bytes(content[: debug.uuid_at] + ours.uuid + content[debug.uuid_at + 16 :])


def symbolize(dsym, architecture, address):
    """The file and line of an address, as a debugger or a crash report's reader would find it."""
    symbolizer = shutil.which("llvm-symbolizer-14") or shutil.which("llvm-symbolizer")
    command = [symbolizer, f"--obj={dsym}", f"--default-arch={architecture}", "--no-inlines"]
    command += ["--output-style=GNU", "--functions=none", hex(address)]
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()


def check(bundle, dsyms, sources):
    """Yields a sentence for each program whose crashes could not be located."""
    for path in PROGRAMS:
        program = bundle / "Contents" / path
        dsym = dsyms / f"{program.name}.dSYM/Contents/Resources/DWARF" / program.name
        if not dsym.is_file():
            yield f"{program.name} has no debug information"
            continue
        shipped, debug = images(program), images(dsym)
        for architecture in sorted({*CPU_NAMES.values(), *shipped, *debug}):
            if architecture not in shipped or architecture not in debug:
                yield f"{program.name}: {architecture} is missing"
            elif shipped[architecture].uuid != debug[architecture].uuid:
                yield f"{program.name} ({architecture}): the UUID of its debug information differs"
            else:
                yield from check_crash_site(shipped[architecture], dsym, program.name, sources)


def check_crash_site(image, dsym, name, sources):
    """A crash at the start of a known function must be located at its definition."""
    symbol, source, definition = CRASH_SITES[name]
    found = symbolize(dsym, image.architecture, image.symbols[symbol])
    match = re.fullmatch(rf"/kestrane/{re.escape(source)}:(\d+)(:\d+)?", found)
    lines = (sources / source).read_text(encoding="utf-8").splitlines()
    # The first address belongs to the line with the name, or to the brace below it.
    nearby = lines[max(0, int(match.group(1)) - 2) : int(match.group(1))] if match else []
    if not any(re.search(definition, line) for line in nearby):
        yield f"{name} ({image.architecture}): {symbol} is located at {found}"


def main(arguments):
    command, *paths = arguments
    paths = [pathlib.Path(path) for path in paths]
    if command == "adopt":
        adopt(*paths)
        return 0
    problems = list(check(*paths))
    for problem in problems:
        print(problem, file=sys.stderr)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
