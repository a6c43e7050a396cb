"""The results of run.py as medians with their ranges."""

import json
import statistics

import contenders
from inside import percentile

TITLES = {name: contender.title for name, contender in contenders.ALL.items()}


class Figure:
    """A median with its minimum and maximum."""

    def __init__(self, values):
        self.median = statistics.median(values)
        self.low = min(values)
        self.high = max(values)
        self._is_one = len(values) == 1

    def text(self, digits=None):
        median = number(self.median, digits)
        if self._is_one:
            return median
        return f"{median} ({number(self.low, digits)}–{number(self.high, digits)})"


def number(value, digits=None):
    if digits is None:
        digits = 0 if value >= 100 or value == 0 else 1 if value >= 10 else 2
    return f"{value:,.{digits}f}"


def ratio(value, base):
    return "–" if base == 0 else f"{number(value / base)}×"


class Results:
    """The results of all scenarios, with the options of each."""

    def __init__(self, path):
        with open(path, encoding="utf-8") as file:
            content = json.load(file)
        self.short = content["short"]
        self.seconds = content["seconds"]
        self.load = content["load"]
        self.again = content.get("again", [])
        self._results = content["results"]

    def select(self, scenario, **wanted):
        return [
            result
            for result in self._results
            if result["scenario"] == scenario
            and all(result.get(key) == value for key, value in wanted.items())
        ]

    def values(self, scenario, key, **wanted):
        """The values of `key` in the selected results."""
        return sorted(
            {
                result[key]
                for result in self.select(scenario, **wanted)
                if result.get(key) is not None
            }
        )

    def names(self, scenario, **wanted):
        """The contenders in the order of contenders.py."""
        found = {result["contender"] for result in self.select(scenario, **wanted)}
        known = [name for name in contenders.ALL if name in found]
        return known + sorted(found - set(known))

    def figure(self, scenario, key, **wanted):
        values = [result[key] for result in self.select(scenario, **wanted)]
        return Figure(values) if values else None

    def restart_figure(self, share, **wanted):
        """The percentile of each run, or of all together if the runs are too short."""
        runs = [result["latencies_ms"] for result in self.select("restart", **wanted)]
        if runs and min(map(len, runs)) < 100:
            runs = [sum(runs, [])]
        return Figure([percentile(run, share) for run in runs]) if runs else None

    def windows(self, scenario, key, contender):
        return Figure(
            [
                window[key]
                for result in self.select(scenario, contender=contender)
                for window in result["windows"]
            ]
        )
