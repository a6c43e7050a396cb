"""Sends the launcher for macOS SIGTERM at every call of the model, on every thread.

    sweep.py [--items N] [--document]
    sweep.py ITEMS PLAN

A plan is that of sigterm.py; on the command line, "signal" may be omitted before its first step.
tests/end_to_end/moments.py does the same for Linux and describes the outcomes.
"""

import collections
import concurrent.futures
import os
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, f"{ROOT}/tests/end_to_end")

import moments  # noqa: E402  (the path is set just before)
import namespace  # noqa: E402
from moments import (  # noqa: E402
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


def permitted(items, *place):
    return PERMITTED.get(place, (set(), set()))[min(items, 2) - 1]


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


class Table:
    def __init__(self, items):
        self.items = items
        self.runs = 0
        self.found = collections.defaultdict(list)  # plans, by phase, thread and outcome
        self.unreached = []

    def fill(self):
        every = list(plans(self.items))
        chunks = [
            every[i : i + PLANS_PER_NAMESPACE] for i in range(0, len(every), PLANS_PER_NAMESPACE)
        ]
        with concurrent.futures.ThreadPoolExecutor(NAMESPACES_AT_ONCE) as pool:
            for results in pool.map(lambda chunk: run_plans(self.items, chunk), chunks):
                for result in results:
                    self.add(result)

    def add(self, result):
        self.runs += 1
        outcome = moments.outcome_of(result)
        if outcome is not None:
            self.found[(*moments.place_of(result), outcome)].append(result["plan"])
        elif "hold" not in result["plan"]:
            self.unreached.append(result["plan"])

    def failures(self):
        for row, found in sorted(self.found.items()):
            if row[2] not in permitted(self.items, *row[:2]):
                yield f"{': '.join(row)} is not permitted: {self.items} {moments.shortest(found)}"
        for plan in self.unreached:
            yield f"{self.items} {plan} was not reached"
        for place in PERMITTED:
            for outcome in sorted(permitted(self.items, *place)):
                if (*place, outcome) not in self.found:
                    yield f"{': '.join(place)}: {outcome} was not reached with {self.items}"

    def show(self):
        for row in sorted(self.found, key=moments.order_of):
            found = self.found[row]
            place = f"{row[0]}: {row[1]}"
            print(f"{place:32}{row[2]:66}{len(found):6}  {self.items} {moments.shortest(found)}")
        print(f"{self.runs} runs", flush=True)


def show(items, plan):
    result = run_plans(items, [plan])[0]
    outcome = moments.outcome_of(result)
    if outcome is None:
        print("The run does not reach these calls.")
        return 1
    print("\n".join(result["lines"]))
    for level, text in result["log"]:
        print(f"log {level} {text}")
    if result["left"]:
        print("left behind:", *result["left"])
    print(f"{': '.join(moments.place_of(result))}: {outcome}")
    return 0


BEGIN = "<!-- The table is written by scripts/macos/moments.sh --document. -->"


def main():
    arguments = sys.argv[1:]
    if arguments and arguments[0].isdigit():
        return show(int(arguments[0]), moments.plan_of(arguments[1:]))
    counts = [int(word) for word in arguments if word.isdigit()] or [1, 2]
    tables = {items: Table(items) for items in counts}
    for table in tables.values():
        table.fill()
        table.show()
    failures = [text for table in tables.values() for text in table.failures()]
    for failure in failures:
        print(f"FAILED: {failure}")
    if "--document" in arguments and not failures:
        moments.document(tables, BEGIN)
    return 1 if failures else 0


if __name__ == "__main__":
    if os.getpid() == 1:
        sys.exit(namespace.run_here(sys.argv[1]))
    sys.exit(main())
