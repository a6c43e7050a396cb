"""The model of libSystem, one module per subject."""

from libsystem import (  # noqa: F401  (each declares its functions)
    accounts,
    clock,
    files,
    formats,
    loader,
    locales,
    logging,
    numbers,
    pages,
    process_table,
    processes,
    signals,
    stdio,
    threads,
)

STARTERS = [loader, locales, stdio, signals, processes]


def prepare(machine):
    """Lets the modules fill the program's memory. Must be called before its images are bound."""
    for module in STARTERS:
        module.prepare(machine)
