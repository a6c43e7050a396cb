"""errno, which failed functions set: intro(2)."""

import functools

import values
from scheduling import is_generator

FAILED = 0xFFFF_FFFF_FFFF_FFFF


def fail(call, name, result=FAILED):
    """Sets errno; returns the result of the failed function."""
    call.machine.set_errno(values.ERRNO[name])
    return result


def sets_errno(result=FAILED):
    """Turns an OSError of a function, or of its generator, into errno and `result`."""

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
