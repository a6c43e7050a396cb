"""Pages of memory: mmap(2), mprotect(2)."""

import values
from libsystem.errors import fail
from libsystem.registry import function
from memory import EXECUTE, READ, WRITE

PROTECTIONS = (("PROT_READ", READ), ("PROT_WRITE", WRITE), ("PROT_EXEC", EXECUTE))


def protection(flags):
    return sum(ours for name, ours in PROTECTIONS if flags & values.OTHERS[name])


@function("_mmap")
def mmap(call):
    """mmap(2), of new memory."""
    flags = call.u32(3)
    if not flags & values.OTHERS["MAP_ANON"] or call.u64(0) != 0:
        raise NotImplementedError("mmap of a file or at an address")
    if call.u64(1) == 0:
        return fail(call, "EINVAL")
    shared = bool(flags & values.OTHERS["MAP_SHARED"])
    return call.machine.memory.map_extra(call.u64(1), shared, protection(call.u32(2)))


@function("_munmap")
def munmap(call):
    """munmap(2), of a whole mapping."""
    if not call.machine.memory.unmap_extra(call.u64(0), call.u64(1)):
        raise NotImplementedError("munmap of a part")
    return 0


@function("_mprotect")
def mprotect(call):
    """mprotect(2)."""
    call.machine.memory.protect(call.u64(0), call.u64(1), protection(call.u32(2)))
    return 0
