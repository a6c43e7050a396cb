"""Checks that the ELF programs and libraries below the given directories are hardened.

    check_hardening.py DIRECTORY...

Prints each missing protection on a separate line; the exit status is 1 if there is any. The reasons for
the options are in cmake/KestraneShipped.cmake.
"""

import pathlib
import re
import subprocess
import sys

# The only run path that a program may have: libraries of its bundle.
RUN_PATHS = {"$ORIGIN/../Frameworks"}


def readelf(file, *options):
    command = ["readelf", "--wide", *options, str(file)]
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def problems(file):
    """Yields a sentence for each protection that the file does not have."""
    kind = re.search(r"Type:\s+(\w+)", readelf(file, "--file-header")).group(1)
    segments = readelf(file, "--program-headers")
    dynamic = readelf(file, "--dynamic")
    imported = set(re.findall(r"\bUND (\w+)", readelf(file, "--dyn-syms")))

    if kind != "DYN":
        yield "it is loaded at a fixed address (not a PIE)"
    stack = re.search(r"GNU_STACK.*?\b(R?W?E?)\s+0x\w+$", segments, re.MULTILINE)
    if stack is None or "E" in stack.group(1):
        yield "its stack is executable"
    if re.search(r"\bLOAD\b.*\bRWE\b", segments):
        yield "a segment is writable and executable"
    if "GNU_RELRO" not in segments:
        yield "its relocated data stays writable (no RELRO)"
    elif not re.search(r"\(BIND_NOW\)|\(FLAGS(_1)?\).*\b(BIND_)?NOW\b", dynamic):
        yield "its import table stays writable (only partial RELRO)"
    if "(TEXTREL)" in dynamic:
        yield "its code is relocated"
    if "__stack_chk_fail" not in imported:
        yield "its stack is not protected"
    # __stack_chk_fail ends differently.
    if not any(name.endswith("_chk") for name in imported):
        yield "it is not fortified"
    for path in re.findall(r"\((?:RPATH|RUNPATH)\).*\[(.*)\]", dynamic):
        if path not in RUN_PATHS:
            yield f"it searches for libraries in {path}"


def elf_files(directory):
    for file in sorted(directory.rglob("*")):
        if file.is_file() and not file.is_symlink():
            with file.open("rb") as stream:
                if stream.read(4) == b"\x7fELF":
                    yield file


def main(arguments):
    directories = [pathlib.Path(argument) for argument in arguments]
    files = [(file, directory) for directory in directories for file in elf_files(directory)]
    if not files:
        print("There is no ELF file to check.", file=sys.stderr)
        return 1
    found = [f"{f.relative_to(d)}: {problem}" for f, d in files for problem in problems(f)]
    for problem in found:
        print(problem, file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
