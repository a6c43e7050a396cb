"""Mach-O files: parsed once with lief, then placed and bound in a program's memory.

The result of parsing is kept in a cache directory, under a name derived from the file's content,
because parsing takes longer than many programs run.

Sources: the public header <mach-o/loader.h>, which the compiler ships, and lief's documentation.
"""

import hashlib
import os
import pickle
import struct
import sys
from dataclasses import dataclass, field

from memory import EXECUTE, PAGE, READ, WRITE, pages

FORMAT = 3  # of the cached files; increase it when ImageFile changes


@dataclass
class Segment:
    offset: int  # from the first segment
    size: int
    protection: int
    content: bytes


@dataclass
class Binding:
    offset: int
    name: str
    addend: int
    weak: bool  # the first image with the name supplies it; otherwise the named library does
    library: str


@dataclass
class ImageFile:
    """The parsed content of one slice. All positions are offsets from the first segment."""

    preferred: int
    segments: list
    rebases: list
    bindings: list
    exports: dict
    locals: dict  # functions that are not exported; only for messages
    initialisers: list  # (offset of the pointer, or of the function; whether it is a pointer)
    thread_variables: list  # offsets of the descriptors
    thread_size: int
    thread_content: bytes
    unwind: tuple  # (offset, size) of __unwind_info and of __eh_frame
    entry: int | None
    libraries: list
    run_paths: list


@dataclass
class Image:
    path: str
    file: ImageFile
    address: int
    size: int
    thread_offset: int = 0  # of its block of thread-local variables in a thread
    symbols: list = field(default_factory=list)

    def export(self, name):
        offset = self.file.exports.get(name)
        return None if offset is None else self.address + offset


def read_image(path, architecture, cache):
    """The ImageFile of one slice, from the cache if it is there."""
    with open(path, "rb") as file:
        content = file.read()
    key = hashlib.sha256(content).hexdigest()[:40]
    kept = f"{cache}/{key}.{architecture}.{FORMAT}.{sys.version_info[1]}"
    try:
        with open(kept, "rb") as file:
            return pickle.load(file)
    except OSError:
        pass
    image = parse(content, path, architecture)
    try:
        os.makedirs(cache, exist_ok=True)
        partial = f"{kept}.{os.getpid()}"
        with open(partial, "wb") as file:
            pickle.dump(image, file, pickle.HIGHEST_PROTOCOL)
        os.rename(partial, kept)
    except OSError:
        pass  # a read-only file system
    return image


def slice_of(path, architecture):
    import lief  # slow to load, and not needed for cached images

    lief.logging.disable()
    cpu = {"arm64": lief.MachO.Header.CPU_TYPE.ARM64, "x86_64": lief.MachO.Header.CPU_TYPE.X86_64}
    files = lief.MachO.parse(path)
    found = files.take(cpu[architecture]) if files is not None else None
    if found is None:
        raise ValueError(f"{path} has no slice for {architecture}")
    return found


def parse(content, path, architecture):
    binary = slice_of(path, architecture)
    loaded = [s for s in binary.segments if s.name != "__PAGEZERO" and s.virtual_size]
    base = min(s.virtual_address for s in loaded)
    sections = {section.name: section for section in binary.sections}
    variables, size, initial = thread_part(binary, base)
    return ImageFile(
        preferred=base,
        segments=[
            Segment(
                s.virtual_address - base, pages(s.virtual_size), protection(s), bytes(s.content)
            )
            for s in loaded
            if s.name != "__LINKEDIT"
        ],
        rebases=[
            r.address - base for r in binary.relocations if type(r).__name__ == "RelocationDyld"
        ],
        bindings=[read_binding(b, base) for b in binary.bindings],
        exports={
            s.name: s.value - base
            for s in binary.symbols
            if s.value and s.raw_type & 1 and s.raw_type & 0xE == 0xE
        },
        locals={
            s.name: s.value - base for s in binary.symbols if s.value and s.raw_type & 0xE == 0xE
        },
        initialisers=initialisers(binary, base),
        thread_variables=variables,
        thread_size=size,
        thread_content=initial,
        unwind=tuple(
            (sections[name].virtual_address - base, sections[name].size)
            if name in sections
            else (0, 0)
            for name in ("__unwind_info", "__eh_frame")
        ),
        entry=(
            binary.main_command.entrypoint + binary.imagebase - base
            if binary.has_main_command
            else None
        ),
        libraries=[library.name for library in binary.libraries if library.name],
        run_paths=[rpath.path for rpath in binary.rpaths],
    )


def protection(segment):
    names = ((1, READ), (2, WRITE), (4, EXECUTE))
    return sum(ours for theirs, ours in names if segment.init_protection & theirs)


def read_binding(binding, base):
    return Binding(
        offset=binding.address - base,
        name=binding.symbol.name,
        addend=binding.addend,
        weak=not binding.has_library,
        library=binding.library.name if binding.has_library else "",
    )


def initialisers(binary, base):
    """Sections of pointers (__mod_init_func) or of 32-bit offsets (__init_offsets)."""
    found = []
    for section in binary.sections:
        start = section.virtual_address - base
        if section.name == "__mod_init_func":
            found += [(start + 8 * i, True) for i in range(section.size // 8)]
        if section.name == "__init_offsets":
            offsets = struct.unpack(f"<{section.size // 4}I", bytes(section.content))
            found += [(offset, False) for offset in offsets]
    return found


def thread_part(binary, base):
    """The descriptors of thread-local variables, and the size and content of a thread's block."""
    descriptors, parts = [], []
    for section in binary.sections:
        if section.name == "__thread_vars":
            start = section.virtual_address - base
            descriptors += [start + 24 * i for i in range(section.size // 24)]
        if section.name in ("__thread_data", "__thread_bss"):
            parts.append(section)
    if not parts:
        return descriptors, 0, b""
    first = min(part.virtual_address for part in parts)
    size = max(part.virtual_address + part.size for part in parts) - first
    content = bytearray(size)
    for part in parts:
        if part.name == "__thread_data":
            at = part.virtual_address - first
            content[at : at + part.size] = bytes(part.content)
    return descriptors, size, bytes(content).rstrip(b"\0")


def place(memory, path, file, address):
    """Copies an image to its address and relocates its pointers."""
    size = 0
    for segment in file.segments:
        memory.map(address + segment.offset, segment.size, segment.protection)
        memory.write(address + segment.offset, segment.content)
        size = max(size, segment.offset + segment.size)
    distance = address - file.preferred
    if distance:
        for offset in file.rebases:
            memory.set_u64(address + offset, memory.u64(address + offset) + distance)
    return Image(path, file, address, size)


def bind(memory, image, find):
    """Writes the address of each imported symbol, except where `find` returns None."""
    for binding in image.file.bindings:
        address = find(image, binding)
        if address is not None:
            memory.set_u64(image.address + binding.offset, address + binding.addend)


def initialiser_addresses(memory, image):
    for offset, is_pointer in image.file.initialisers:
        yield memory.u64(image.address + offset) if is_pointer else image.address + offset


def resolve_library(name, run_paths, executable_directory):
    """The path of a library as the loader finds it: dyld(1), "@executable_path", "@rpath" and
    DYLD_LIBRARY_PATH."""
    directories = [d for d in os.environ.get("DYLD_LIBRARY_PATH", "").split(":") if d]
    candidates = [f"{directory}/{os.path.basename(name)}" for directory in directories]
    if name.startswith("@rpath/"):
        candidates += [run_path + name[len("@rpath") :] for run_path in run_paths]
    else:
        candidates.append(name)
    for candidate in candidates:
        path = candidate.replace("@executable_path", executable_directory)
        if os.path.exists(path):
            return path
    raise FileNotFoundError(f"Library not loaded: {name}")


def next_address(images):
    """The address for the next image."""
    end = max(image.address + image.size for image in images)
    return (end + 16 * PAGE) & ~(16 * PAGE - 1)
