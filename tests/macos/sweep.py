"""Sends the launcher for macOS SIGTERM at every call of the model, on every thread.

    sweep.py [--items N] [--document]
    sweep.py ITEMS PLAN

A plan is that of sigterm.py; on the command line, "signal" may be omitted before its first step.
tests/end_to_end/moments.py does the same for Linux and describes the outcomes.
"""

import concurrent.futures
import os
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, f"{ROOT}/tests/end_to_end")

import moments  # noqa: E402  (the path is set just before)
import namespace  # noqa: E402
from moments_report import Table, document, plan_of, show_run  # noqa: E402
from outcomes import (  # noqa: E402
    ABORTED,
    ABORTED_LEFT,
    CHILD_ENDED,
    GROUP_KILLED,
    LEFT,
    LOST,
    NO_EFFECT,
    STOPPED,
    TERMINATED,
    UNKILLED,
)

NAMESPACES_AT_ONCE = 2
PLANS_PER_NAMESPACE = 25


class Run(moments.Run):
    watchdog = 600

    def counting(self):
        return {}


# The permitted outcomes, by phase and thread: with one item, and with two. Each is permitted on Linux
# as well (tests/end_to_end/moments.py), except "status 1" after SIGTERM to a supervisor while the
# items are started: main exits before that supervisor starts its child.
PERMITTED = {
    ("no-handler", "main"): ({TERMINATED}, {TERMINATED}),
    ("start", "main"): ({LOST}, {LOST}),
    ("launching", "main"): ({GROUP_KILLED, STOPPED}, {GROUP_KILLED, LOST, STOPPED}),
    ("launching", "supervisor"): ({LOST}, {LEFT, LOST, STOPPED}),
    ("launching", "child"): ({NO_EFFECT}, {CHILD_ENDED, NO_EFFECT}),
    ("steady", "main"): ({STOPPED}, {STOPPED}),
    ("steady", "supervisor"): ({ABORTED}, {ABORTED, ABORTED_LEFT}),
    ("restart", "main"): ({STOPPED, UNKILLED}, {STOPPED, UNKILLED}),
    ("restart", "supervisor"): ({ABORTED}, {ABORTED}),
    ("restart", "child"): ({CHILD_ENDED, GROUP_KILLED}, {CHILD_ENDED}),
}


def permitted(items):
    """The permitted outcomes, by phase and thread."""
    found = {place: outcomes[min(items, 2) - 1] for place, outcomes in PERMITTED.items()}
    if os.environ.get("KESTRANE_ARCHITECTURE") == "x86_64":
        # Before main inserts the first item into the map, it calls ceilf; on Apple silicon that is
        # an instruction.
        found["launching", "main"] = found["launching", "main"] | {LOST}
    return found


def run_plans(items, plans, trace=False):
    return moments.run_plans(items, plans, trace, program=__file__)


def plans(items):
    """SIGTERM at every call of every thread before the ordinary stop of the launcher; and SIGTERM to
    main while it waits and a supervisor is held at one of its calls."""
    lines = run_plans(items, [""], trace=True)[0]["lines"]
    planned = moments.before(lines, "ordinary")
    for thread, number, _ in planned:
        yield f"signal {thread} {number}"
    wait = next(n for thread, n, call in planned if call == "pthread_cond_wait, waiting")
    for thread, number, _ in planned:
        if thread.startswith("s"):
            yield f"signal main {wait} hold {thread} {number}"


def results(items):
    """The results of all plans."""
    every = list(plans(items))
    chunks = [every[i : i + PLANS_PER_NAMESPACE] for i in range(0, len(every), PLANS_PER_NAMESPACE)]
    with concurrent.futures.ThreadPoolExecutor(NAMESPACES_AT_ONCE) as pool:
        for found in pool.map(lambda chunk: run_plans(items, chunk), chunks):
            yield from found


BEGIN = "<!-- The table is written by scripts/macos/moments.sh --document. -->"


def main():
    arguments = sys.argv[1:]
    if arguments and arguments[0].isdigit():
        return show_run(run_plans(int(arguments[0]), [plan_of(arguments[1:])])[0])
    counts = [int(word) for word in arguments if word.isdigit()] or [1, 2]
    tables = {items: Table(items, permitted(items)) for items in counts}
    for table in tables.values():
        table.fill(results(table.items))
        table.show()
        print(f"{table.runs} runs", flush=True)
    failures = [text for table in tables.values() for text in table.failures()]
    for failure in failures:
        print(f"FAILED: {failure}")
    if "--document" in arguments and not failures:
        document(tables, BEGIN)
    return 1 if failures else 0


if __name__ == "__main__":
    if os.getpid() == 1:
        sys.exit(namespace.run_here(sys.argv[1]))
    sys.exit(main())
