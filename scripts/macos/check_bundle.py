"""Checks a bundle against its promises (docs/macos.md); scripts/macos/check_bundle.sh runs this.

    check_bundle.py BUNDLE LIST

LIST is the file of the symbols that may be imported from libSystem. Prints each broken promise on a
separate line; the exit status is 1 if there is any.
"""

import hashlib
import pathlib
import plistlib
import struct
import sys
import xml.parsers.expat

import lief

LAUNCHER = "Contents/MacOS/launcher"
LOG_LIBRARY = "Contents/Frameworks/libqv7log.dylib"
PROFILE = "Contents/Frameworks/qv7api.ini"
PLIST = "Contents/Info.plist"

ARCHITECTURES = {
    lief.MachO.Header.CPU_TYPE.ARM64: "arm64",
    lief.MachO.Header.CPU_TYPE.X86_64: "x86_64",
}
OLDEST_SYSTEM = "11.0"
RUN_PATH = "@executable_path/../Frameworks"
INSTALL_NAME = "@rpath/libqv7log.dylib"
LIB_SYSTEM = "/usr/lib/libSystem.B.dylib"
SYSTEM_LIBRARIES = {LIB_SYSTEM, "/usr/lib/libc++.1.dylib"}
LOG_FUNCTIONS = {"_InitLogger", "_GetLogger"}
# Names that the linker adds to every image.
LINKER_NAMES = {"___dso_handle", "__mh_dylib_header"}

# The bits of a symbol's type that mark a debugging entry (N_STAB).
STAB = 0xE0

PLIST_VALUES = {
    "CFBundleIdentifier": "com.kestrane.desktop",
    "CFBundleExecutable": "launcher",
    "CFBundlePackageType": "APPL",
    "LSBackgroundOnly": True,
    "LSMinimumSystemVersion": OLDEST_SYSTEM,
}


def check_bundle(bundle, allowed):
    """Yields a sentence for each broken promise. `allowed` are libSystem's permitted symbols."""
    for path in (LAUNCHER, LOG_LIBRARY, PROFILE):
        if not (bundle / path).is_file():
            yield f"{path} is missing"
        elif path != PROFILE and not is_mach_o(bundle / path):
            yield f"{path} is not a Mach-O file"
    yield from check_plist(bundle / PLIST)
    for file in sorted(bundle.rglob("*")):
        if file.is_file() and is_mach_o(file):
            yield from check_file(file, str(file.relative_to(bundle)), allowed)


def is_mach_o(file):
    """Whether the file contains machine code, for one architecture or several."""
    with file.open("rb") as stream:
        return stream.read(4) in (b"\xca\xfe\xba\xbe", b"\xcf\xfa\xed\xfe")


def check_plist(path):
    try:
        plist = plistlib.loads(path.read_bytes())
    except (OSError, ValueError, xml.parsers.expat.ExpatError) as error:
        yield f"{PLIST} cannot be read: {error}"
        return
    for key, value in PLIST_VALUES.items():
        if plist.get(key) != value:
            yield f"{PLIST}: {key} is {plist.get(key)!r}, not {value!r}"
    for key in ("CFBundleVersion", "CFBundleShortVersionString"):
        if not plist.get(key):
            yield f"{PLIST}: {key} is missing"


def check_file(file, name, allowed):
    slices = lief.MachO.parse(str(file))
    if not slices:
        yield f"{name} cannot be read"
        return
    found = sorted(ARCHITECTURES.get(s.header.cpu_type, str(s.header.cpu_type)) for s in slices)
    if found != sorted(ARCHITECTURES.values()):
        yield f"{name} contains {' and '.join(found)}, not arm64 and x86_64"
    content = file.read_bytes()
    for image in slices:
        architecture = ARCHITECTURES.get(image.header.cpu_type, str(image.header.cpu_type))
        problems = [
            *check_minimum(image),
            *check_names(image, name),
            *check_imports(image, name, allowed),
            *check_exports(image, name),
            *check_signature(image, content[image.fat_offset :], architecture),
        ]
        yield from (f"{name} ({architecture}): {problem}" for problem in problems)


def check_minimum(image):
    minimum = image.build_version or image.version_min
    if minimum is None:
        yield "it does not state a minimum system"
        return
    version = ".".join(map(str, (minimum.minos if image.build_version else minimum.version)[:2]))
    if version != OLDEST_SYSTEM:
        yield f"its minimum system is macOS {version}, not {OLDEST_SYSTEM}"


def check_names(image, name):
    """Run paths, install name and needed libraries."""
    is_library = name == LOG_LIBRARY
    run_paths = [command.path for command in image.rpaths]
    # A program that uses no library of the bundle needs no run path.
    permitted = {LAUNCHER: [[RUN_PATH]], LOG_LIBRARY: [[]]}.get(name, [[], [RUN_PATH]])
    if run_paths not in permitted:
        yield f"its run paths are {run_paths}"
    id_dylib = image.get(lief.MachO.LoadCommand.TYPE.ID_DYLIB)
    if is_library and (id_dylib is None or id_dylib.name != INSTALL_NAME):
        yield f"its install name is {id_dylib and id_dylib.name}, not {INSTALL_NAME}"
    libraries = {library.name for library in image.libraries} - {id_dylib and id_dylib.name}
    for library in sorted(libraries - SYSTEM_LIBRARIES - (set() if is_library else {INSTALL_NAME})):
        yield f"it needs {library}"


def check_imports(image, name, allowed):
    """Checks what the image imports from others."""
    own = {s.name for s in image.symbols if s.numberof_sections and not s.raw_type & STAB}
    imported = {}
    for binding in image.bindings:
        library = binding.library.name if binding.has_library else None
        imported.setdefault(library, set()).add(binding.symbol.name)
    for symbol in sorted(imported.get(LIB_SYSTEM, set()) - allowed):
        yield f"it imports {symbol} from libSystem, which is not in the reviewed list"
    # The loader searches every image for a weak symbol. One that the image does not define itself
    # could come from anywhere.
    for symbol in sorted(imported.get(None, set()) - own):
        yield f"it imports {symbol} from any library that defines it"
    from_log = imported.get(INSTALL_NAME, set())
    if from_log - LOG_FUNCTIONS or (name == LAUNCHER and from_log != LOG_FUNCTIONS):
        yield f"it imports {' '.join(sorted(from_log)) or 'nothing'} from libqv7log"


def check_exports(image, name):
    """Checks what the logging library exports."""
    if name != LOG_LIBRARY:
        return
    exported = {symbol.name for symbol in image.exported_symbols} - LINKER_NAMES
    for symbol in sorted(exported - LOG_FUNCTIONS):
        yield f"it exports {symbol}"
    for symbol in sorted(LOG_FUNCTIONS - exported):
        yield f"it does not export {symbol}"


def check_signature(image, content, architecture):
    """Checks the signature. Apple silicon runs only code that has one and matches it."""
    if not image.has_code_signature:
        if architecture == "arm64":
            yield "it has no signature"
        return
    start = image.code_signature.data_offset
    end = start + image.code_signature.data_size
    try:
        directories = list(code_directories(content[start:end]))
        good = directories and all(covers(d, content[:start]) for d in directories)
    except (struct.error, KeyError):
        good = False
    if not good:
        yield "its signature does not match its content"


def code_directories(blob):
    """The code directories of a signature, all of which must be valid."""
    magic, _, count = struct.unpack_from(">III", blob)
    if magic != 0xFADE0CC0:
        return
    for index in range(count):
        kind, offset = struct.unpack_from(">II", blob, 12 + 8 * index)
        if kind == 0 or 0x1000 <= kind < 0x1005:
            yield blob[offset:]


def covers(directory, content):
    """Whether the code directory contains the hash of every page of `content`."""
    magic, _, _, _, hashes, _, _, pages, limit = struct.unpack_from(">IIIIIIIII", directory)
    size, kind, _, page_bits = struct.unpack_from("BBBB", directory, 36)
    if magic != 0xFADE0C02 or limit != len(content):
        return False
    page = 1 << page_bits
    hash_of = {1: hashlib.sha1, 2: hashlib.sha256}[kind]
    return pages == -(-limit // page) and all(
        hash_of(content[i * page : min((i + 1) * page, limit)]).digest()
        == directory[hashes + i * size : hashes + (i + 1) * size]
        for i in range(pages)
    )


def read_list(path):
    """The names in the file, one a line; "#" begins a comment."""
    lines = (line.split("#")[0].strip() for line in path.read_text().splitlines())
    return {line for line in lines if line}


def main(arguments):
    lief.logging.disable()
    bundle, symbols = map(pathlib.Path, arguments)
    problems = list(check_bundle(bundle, read_list(symbols)))
    for problem in problems:
        print(problem, file=sys.stderr)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
