"""Runs one macOS program as this process: run.py ARCHITECTURE DIRECTORY FILE NAME [ARGUMENT...].

FILE is the Mach-O file. NAME is the program's argv[0], which it takes for its path. DIRECTORY
(build/macos) holds what the model needs: the guest library, the cache of images, and a directory
for reports of errors in the model.
"""

import gc
import os
import signal
import sys
import traceback

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))


def undo_python():
    """Undoes what Python has changed: it ignores two signals, catches one, and sets LC_CTYPE.
    Returns the environment that the process was given."""
    for number in (signal.SIGPIPE, signal.SIGXFSZ):
        signal.signal(number, signal.SIG_DFL)
    if signal.getsignal(signal.SIGINT) != signal.SIG_IGN:
        signal.signal(signal.SIGINT, signal.SIG_DFL)
    with open("/proc/self/environ", "rb") as file:
        return [entry for entry in file.read().split(b"\0") if entry]


def run(architecture, directory, file, arguments):
    path = arguments[0]
    environment = undo_python()
    import libsystem
    from libsystem.process_table import show_program
    from machine import BrokenProgram, Machine, Missing

    try:
        show_program(path)
        machine = Machine(
            architecture,
            f"{directory}/guest/{architecture}",
            f"{directory}/cache",
            libsystem.prepare,
        )
        machine.load_program(file, path)
        gc.freeze()
        gc.disable()
        environment = prepare_moments(machine, environment)
        status = machine.run([os.fsencode(argument) for argument in arguments], environment)
    except BrokenProgram as error:
        report(directory, architecture, f"{path}: {error}", kept=False)
        Machine.end_by_signal(signal.SIGSEGV)
    except Exception as error:
        kept = not isinstance(error, Missing)
        report(
            directory,
            architecture,
            f"{path}: {error}\n{traceback.format_exc() if kept else ''}",
            kept=True,
        )
        status = 70
    os._exit(status)


def prepare_moments(machine, environment):
    """Reads the variables of sigterm.py, if they are set; returns the others."""
    variables = dict(entry.split(b"=", 1) for entry in environment if b"=" in entry)
    plan, record = (variables.pop(name, None) for name in (b"KESTRANE_PLAN", b"KESTRANE_RECORD"))
    if plan is None or record is None:
        return environment
    from sigterm import Moments

    machine.moments = Moments(machine, plan.decode(), os.fsdecode(record))
    return [b"=".join(variable) for variable in variables.items()]


def report(directory, architecture, text, kept):
    """Writes to descriptor 2, which a program may have closed; if `kept`, also to a report file."""
    try:
        if os.isatty(2) or not os.path.samestat(os.fstat(2), os.stat("/dev/null")):
            os.write(2, f"run.py: {text}\n".encode())
    except OSError:
        pass
    if kept:
        try:
            with open(
                f"{directory}/reports/{architecture}/{os.getpid()}", "a", encoding="utf-8"
            ) as file:
                file.write(text + "\n")
        except OSError:
            pass


if __name__ == "__main__":
    run(sys.argv[1], sys.argv[2], sys.argv[3], sys.argv[4:])
