"""The outcomes of runs in which the launcher got SIGTERM at chosen moments, and tables of them.

moments.py makes such runs on Linux, tests/macos/sweep.py with the launcher for macOS. docs/faults.md
describes the outcomes. A result is that of Run.run_plan in moments.py.
"""

import collections
import os
import re

from outcomes import (
    ABORTED,
    ABORTED_LEFT,
    CHILD_ENDED,
    CRASHED,
    CRASHED_LEFT,
    HUNG,
    LEFT,
    LOST,
    NO_EFFECT,
    OUTCOME_BY_STATUS,
    STOPPED,
    UNKILLED,
    UNKILLED_AND_LOST,
)

WITH_HELPERS_LEFT = {ABORTED: ABORTED_LEFT, CRASHED: CRASHED_LEFT}

PHASES = ("no-handler", "start", "launching", "steady", "restart", "stop")


END_RECORD = re.compile(r"\[LAUNCHER  \] (\d+) (\d+) is killed. ret = (-?\d+), status = (\d+)")


def outcome_of(result):
    """The outcome in words; None if the run did not reach a moment of its plan."""
    lines = result["lines"]
    if result["code"] is None:
        return "neither ended nor waited"
    sent = [line.split() for line in lines if line.startswith("signal ")]
    if len(sent) != result["plan"].count("signal "):
        return None
    words = {line.split()[0] for line in lines}
    if "ignored" in words:
        return "ignored a second SIGTERM"
    if "hung" in words:
        return HUNG
    if "endless" in words:
        return "starts children again without an end"
    outcome = OUTCOME_BY_STATUS.get(result["code"], f"ended with {result['code']}")
    if outcome == STOPPED:
        return outcome_of_stop(result, words, any(step[1].startswith("c") for step in sent))
    if result["left"] and outcome in WITH_HELPERS_LEFT:
        return WITH_HELPERS_LEFT[outcome]
    return outcome + (", but left processes behind" if result["left"] else "")


def outcome_of_stop(result, words, child_signalled):
    left = result["left"]
    children = [line.split()[1:] for line in result["lines"] if line.startswith("child ")]
    ends = collections.Counter()
    unusual = 0
    for level, text in result["log"]:
        end = END_RECORD.fullmatch(text)
        if level == "ERROR" and end is None:
            return f"status 1, but logged {text}"
        if end is not None:
            ends[end[2]] += 1
            unusual += end[2] != end[3] or end[4] != "9"
    ended = [pid for pid, _ in children if int(pid) not in left]
    if any(ends[pid] != 1 for pid in ended) or unusual > child_signalled:
        return "status 1, but not each end was logged once"
    if left:
        return LEFT
    if child_signalled:
        return CHILD_ENDED if unusual else NO_EFFECT
    if "unkilled" in words:
        return UNKILLED_AND_LOST if "lost" in words else UNKILLED
    return LOST if "lost" in words else STOPPED


def place_of(result):
    """Where SIGTERM was delivered: the phase of the first one, and the kinds of threads."""
    sent = [line.split() for line in result["lines"] if line.startswith("signal ")]
    kinds = {"m": "main", "s": "supervisor", "c": "child"}
    return sent[0][3], " and ".join(sorted(kinds[step[1][0]] for step in sent))


def show_run(result):
    """Prints one run; returns the exit status."""
    outcome = outcome_of(result)
    if outcome is None:
        print("The run does not reach these moments.")
        return 1
    print("\n".join(result["lines"]))
    for level, text in result["log"]:
        print(f"log {level} {text}")
    if result["left"]:
        print("left behind:", *result["left"])
    print(f"{': '.join(place_of(result))}: {outcome}")
    return 0


class Table:
    """The findings of a sweep for a number of items. `permitted` has the permitted outcomes by phase
    and threads."""

    def __init__(self, items, permitted):
        self.items = items
        self.permitted = permitted
        self.runs = 0
        self.found = collections.defaultdict(list)  # plans, by phase, threads and outcome
        self.unreached = []

    def fill(self, results, until_failure=False):
        for result in results:
            self.runs += 1
            outcome = outcome_of(result)
            if outcome is not None:
                self.found[(*place_of(result), outcome)].append(result["plan"])
            elif "hold" not in result["plan"] and result["plan"].count("signal") == 1:
                self.unreached.append(result["plan"])
            if until_failure and self.not_permitted():
                return

    def not_permitted(self):
        return [row for row in self.found if row[2] not in self.permitted.get(row[:2], ())]

    def failures(self, complete=True):
        """What is wrong, as texts. `complete`: every permitted outcome must have been found."""
        for row in sorted(self.not_permitted()):
            yield f"{': '.join(row)} is not permitted: {self.items} {shortest(self.found[row])}"
        for plan in self.unreached:
            yield f"{self.items} {plan} was not reached"
        # Three items add no outcome to those of two.
        if complete and self.items <= 2:
            for place, outcomes in self.permitted.items():
                for outcome in sorted(outcomes):
                    if (*place, outcome) not in self.found:
                        yield f"{': '.join(place)}: {outcome} was not reached with {self.items}"

    def show(self):
        for row in sorted(self.found, key=order_of):
            plans = self.found[row]
            place = f"{row[0]}: {row[1]}"
            print(f"{place:32}{row[2]:66}{len(plans):6}  {self.items} {shortest(plans)}")


def order_of(row):
    return PHASES.index(row[0]), len(row[1].split()), row[1:]


def shortest(plans):
    """The plan with the fewest steps, as on the command line."""
    plan = min(plans, key=lambda text: (len(text.split()), [len(text), text]))
    return plan.removeprefix("signal ")


END = "<!-- end -->"


def document(tables, begin):
    """Writes the table in docs/faults.md that follows the line `begin`."""
    rows = sorted({row for table in tables.values() for row in table.found}, key=order_of)
    lines = [
        "| Phase | SIGTERM on | Outcome | "
        + " | ".join(f"{n} item{'s' * (n > 1)}" for n in tables)
        + " | Shortest run |",
        "|---" * (4 + len(tables)) + "|",
    ]
    for row in rows:
        counts = [str(len(table.found.get(row, []))) for table in tables.values()]
        items, table = next((n, table) for n, table in tables.items() if row in table.found)
        example = f"`{items} {shortest(table.found[row])}`"
        lines.append("| " + " | ".join([*row, *counts, example]) + " |")
    root = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    path = root + "/docs/faults.md"
    with open(path, encoding="utf-8") as file:
        head, rest = file.read().split(begin)
    tail = rest.split(END, 1)[1]
    with open(path, "w", encoding="utf-8") as file:
        file.write(head + begin + "\n\n" + "\n".join(lines) + "\n\n" + END + tail)


def plan_of(words):
    """The plan on a command line, which may omit "signal" before the first pair."""
    return " ".join(words if words[0] in ("signal", "hold", "order") else ["signal", *words])
