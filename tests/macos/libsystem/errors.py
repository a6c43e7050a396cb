"""errno: what a failed function leaves behind. intro(2)."""

import functools

import values
from scheduling import is_generator

FAILED = 0xFFFF_FFFF_FFFF_FFFF


def fail(call, name, result=FAILED):
    """Sets errno; the result of the function."""
    call.machine.set_errno(values.ERRNO[name])
    return result


def sets_errno(result=FAILED):
    """Makes a function, and what it returns to wait for, turn an OSError into errno and `result`."""

    def decorate(implementation):
        @functools.wraps(implementation)
        def run(call):
            try:
                value = implementation(call)
            except OSError as error:
                return failed(call, error)
            return waiting(call, value) if is_generator(value) else value

        return run

    def waiting(call, generator):
        try:
            return (yield from generator)
        except OSError as error:
            return failed(call, error)

    def failed(call, error):
        call.machine.set_errno(values.errno_of(error))
        return result

    return decorate
