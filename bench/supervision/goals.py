"""The table of goals: each goal, the measured figure, and whether it was met.

Each function yields (goal, figure, met) for one subject.
"""

import contenders
from markdown import table
from results import TITLES, number


def start_goals(results):
    def median_of(name, n):
        return results.figure("start", "start_ms", contender=name, n=n).median

    rivals = [
        name for name in results.names("start") if name in {**contenders.LEAN, **contenders.SCRIPTS}
    ]
    counts = results.values("start", "n")
    for n in counts:
        best = min(rivals, key=lambda name, n=n: median_of(name, n))
        factor = median_of(best, n) / median_of("launcher", n)
        figure = f"{factor:.2f}× faster than {TITLES[best]}"
        yield f"start of {n}: faster than every peer", figure, factor > 1
    for n, most in ((100, 1.5), (1000, 3)):
        if n in counts:
            factor = median_of("launcher", n) / median_of("loop", n)
            goal = f"start of {n}: within {most} times the loop floor"
            yield goal, f"{factor:.2f}×", factor <= most


def memory_goals(results):
    def median_of(n):
        return results.figure("start", "pss_kib", contender="launcher", n=n).median

    few, most = 10, results.values("start", "n")[-1]
    memory = median_of(few)
    yield f"memory with {few} helpers below 3 MiB", f"{memory / 1024:.2f} MiB", memory < 3072
    if most > few:
        each = (median_of(most) - memory) / (most - few)
        yield "memory of each further item below 12 KiB", f"{each:.1f} KiB", each < 12


def restart_goals(results):
    for share, allowed in ((50, 0.2), (99, 3)):
        ours, floor = (
            results.restart_figure(share, contender=name, neighbours=0).median
            for name in ("launcher", "threads")
        )
        goal = f"restart p{share} within {allowed} ms of the thread floor"
        yield goal, f"{ours - floor:+.2f} ms", ours - floor <= allowed


def idle_goals(results):
    cpu = results.windows("idle", "cpu_ms", "launcher").high
    switches = results.windows("idle", "switches", "launcher").high
    figure = f"{number(cpu)} ms, {switches:.0f}"
    yield "idle: no CPU time, no context switch", figure, cpu == 0 and switches == 0


def stop_goals(results):
    def median_of(n):
        return results.figure("stop", "stop_ms", contender="launcher", n=n).median

    for n in results.values("stop", "n"):
        if n > 0:
            each = (median_of(n) - median_of(0)) / n
            goal = f"stop of {n}: at most 51 ms per item, without the launcher's own exit"
            yield goal, f"{each:.2f} ms ({median_of(n) / n:.2f} with it)", each <= 51


# The CPU time of a start as a multiple of the thread floor's, measured when each fork still copied
# the stacks of all threads. It must not grow.
STORM_SHARE = 0.68


def storm_goals(results):
    ours, floor = (
        results.figure("storm", "cpu_ms_per_start", contender=name).median
        for name in ("launcher", "threads")
    )
    goal = f"storm: a start takes at most {STORM_SHARE} times the thread floor's CPU time"
    yield goal, f"{ours / floor:.2f}×", ours / floor <= STORM_SHARE


def log_goals(results):
    for threads in results.values("log", "threads"):
        ours, theirs = (
            results.figure("log", "records_per_s", contender=name, threads=threads).median
            for name in ("qv7log", "spdlog")
        )
        writers = "1 thread" if threads == 1 else f"{threads} threads"
        goal = f"log, {writers}: as many records per second as spdlog"
        yield goal, f"{ours / theirs:.2f}×", ours >= theirs
    ours, theirs = (
        results.figure("filter", "ns", contender=name).median for name in ("qv7log", "spdlog")
    )
    goal = "log: a filtered record takes at most half as long as with spdlog"
    yield goal, f"{ours / theirs:.2f}×", ours / theirs <= 0.5


SUBJECTS = (
    start_goals,
    memory_goals,
    restart_goals,
    idle_goals,
    stop_goals,
    storm_goals,
    log_goals,
)


def goals(results):
    rows = [
        [goal, figure, "met" if met else "**missed**"]
        for subject in SUBJECTS
        for goal, figure, met in subject(results)
    ]
    return "## Goals\n\n" + table(["goal", "measured", ""], rows)
