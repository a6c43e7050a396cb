"""The loader and the run time of the languages: dyld(3), crt_externs.h, atexit(3), unwinding."""

import os
import struct

import values
from libsystem.registry import function


def prepare(machine):
    """Variables that the loader sets."""
    variables = machine.system.setdefault("variables", {})
    variables["___stack_chk_guard"] = machine.memory.new(os.urandom(8))
    variables["_mach_task_self_"] = machine.memory.new(struct.pack("<I", 0x103))


@function("__NSGetExecutablePath")
def get_executable_path(call):
    """dyld(3): the path that the program was started with; -1 and its size if it is longer."""
    path = os.fsencode(call.machine.path) + b"\0"
    size = call.machine.memory.u32(call.u64(1))
    if size < len(path):
        call.machine.memory.set_u32(call.u64(1), len(path))
        return 0xFFFF_FFFF
    call.store(0, path)
    return 0


@function("__NSGetArgc")
def get_argc(call):
    """crt_externs.h: the address of main's first argument."""
    count = call.machine.system["main"][0]
    return call.machine.memory.new(struct.pack("<I", count))


@function("__NSGetArgv")
def get_argv(call):
    """crt_externs.h: the address of main's second argument."""
    return call.machine.memory.new(struct.pack("<Q", call.machine.system["main"][1]))


def environment(machine):
    """The addresses of the environment's entries, and their texts."""
    vector = machine.system["environment"]
    entries = []
    while address := machine.memory.u64(vector + 8 * len(entries)):
        entries.append((address, machine.memory.text(address)))
    return entries


@function("_getenv")
def getenv(call):
    """getenv(3)."""
    name = call.text(0) + b"="
    for address, text in environment(call.machine):
        if text.startswith(name):
            return address + len(name)
    return 0


def change_environment(machine, name, entry):
    kept = [text for _, text in environment(machine) if not text.startswith(name + b"=")]
    machine.system["environment"] = machine.memory.new_vector(kept + entry)
    return 0


@function("_setenv")
def setenv(call):
    """getenv(3)."""
    name = call.text(0)
    known = any(text.startswith(name + b"=") for _, text in environment(call.machine))
    if known and call.u32(2) == 0:
        return 0
    return change_environment(call.machine, name, [name + b"=" + call.text(1)])


@function("_unsetenv")
def unsetenv(call):
    """getenv(3)."""
    return change_environment(call.machine, call.text(0), [])


@function("_dlopen", "_dladdr")
def dlopen(_call):
    """dlopen(3), dladdr(3): nothing is found, and no program asks why."""
    return 0


@function("_dlsym")
def dlsym(call):
    """dlsym(3): the system's function, for a program that defines one of the same name."""
    name = "_" + call.text(1).decode()
    known = [name, name + "$INODE64", name + "$DARWIN_EXTSN"]
    return next((call.machine.system_symbol(n) for n in known if call.machine.has_model(n)), 0)


@function("__dyld_register_func_for_remove_image")
def register_func_for_remove_image(_call):
    """dyld(3): no image is ever removed."""


@function("__dyld_find_unwind_sections")
def find_unwind_sections(call):
    """Where the unwinder finds its tables: <mach-o/dyld_priv.h> as LLVM's libunwind declares it."""
    address = call.u64(0)
    for image in call.machine.images:
        if image.address <= address < image.address + image.size:
            (compact, compact_size), (dwarf, dwarf_size) = image.file.unwind
            fields = (
                image.address,
                image.address + dwarf if dwarf_size else 0,
                dwarf_size,
                image.address + compact if compact_size else 0,
                compact_size,
            )
            call.store(1, struct.pack("<5Q", *fields))
            return 1
    return 0


@function("_pthread_rwlock_rdlock", "_pthread_rwlock_wrlock", "_pthread_rwlock_unlock")
def rwlock(_call):
    """pthread_rwlock_rdlock(3): only the unwinder has one, and no thread is switched inside it."""
    return 0


@function("_uuid_generate_random")
def uuid_generate_random(call):
    """uuid(3): version 4."""
    data = bytearray(os.urandom(16))
    data[6] = data[6] & 0x0F | 0x40
    data[8] = data[8] & 0x3F | 0x80
    call.store(0, bytes(data))


@function("_uuid_unparse")
def uuid_unparse(call):
    """uuid(3): upper case, as the manual page of macOS says."""
    digits = call.data(0, 16).hex().upper()
    ends = (0, 8, 12, 16, 20, 32)
    parts = (digits[start:end] for start, end in zip(ends, ends[1:]))
    call.store(1, "-".join(parts).encode() + b"\0")


@function("_sysconf")
def sysconf(call):
    """sysconf(3): the size of a page."""
    if call.i32(0) != values.OTHERS["_SC_PAGESIZE"]:
        raise NotImplementedError(f"sysconf {call.i32(0)}")
    return 0x4000 if call.machine.processor.name == "arm64" else 0x1000


@function("_host_fail")
def host_fail(call):
    """The guest library has found an error in the program."""
    raise RuntimeError(call.text(0).decode())
