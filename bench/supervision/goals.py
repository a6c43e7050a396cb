"""The table of goals: what was promised, what was measured, and whether it was met."""

import contenders
from markdown import table
from results import TITLES, number


def verdict(met):
    return "met" if met else "**missed**"


def goals(results):
    rows = []

    def add(text, figure, met):
        rows.append([text, figure, verdict(met)])

    def start_of(name, n):
        return results.figure("start", "start_ms", contender=name, n=n).median

    counts = results.values("start", "n")
    rivals = [
        name for name in results.names("start") if name in {**contenders.LEAN, **contenders.SCRIPTS}
    ]
    for n in counts:
        if n <= 100:
            best = min(rivals, key=lambda name: start_of(name, n))
            factor = start_of(best, n) / start_of("launcher", n)
            add(
                f"start of {n}: ahead of every peer",
                f"{factor:.2f}× ahead of {TITLES[best]}",
                factor > 1,
            )
        else:
            factor = start_of("threads", n) / start_of("launcher", n)
            add(f"start of {n}: twice ahead of the thread floor", f"{factor:.2f}×", factor >= 2)

    def pss(n):
        return results.figure("start", "pss_kib", contender="launcher", n=n).median

    add("memory with 10 helpers under 3 MiB", f"{pss(10) / 1024:.2f} MiB", pss(10) < 3072)
    first, last = 10, counts[-1]
    if last > first:
        each = (pss(last) - pss(first)) / (last - first)
        add("memory of a further item under 12 KiB", f"{each:.1f} KiB", each < 12)

    for share, allowed in ((50, 0.2), (99, 3)):
        ours, floor = (
            results.restart_figure(share, contender=name, neighbours=0).median
            for name in ("launcher", "threads")
        )
        add(
            f"restart p{share} within {allowed} ms of the thread floor",
            f"{ours - floor:+.2f} ms",
            ours - floor <= allowed,
        )

    cpu = results.windows("idle", "cpu_ms", "launcher").high
    switches = results.windows("idle", "switches", "launcher").high
    add(
        "idle: no CPU time, no context switch",
        f"{number(cpu)} ms, {switches:.0f}",
        cpu == 0 and switches == 0,
    )

    def stop_of(n):
        return results.figure("stop", "stop_ms", contender="launcher", n=n).median

    for n in results.values("stop", "n"):
        if n > 0:
            each = (stop_of(n) - stop_of(0)) / n
            add(
                f"stop of {n}: at most 51 ms an item, besides the launcher's own end",
                f"{each:.2f} ms ({stop_of(n) / n:.2f} with it)",
                each <= 51,
            )

    for threads in results.values("log", "threads"):
        ours, theirs = (
            results.figure("log", "records_per_s", contender=name, threads=threads).median
            for name in ("qv7log", "spdlog")
        )
        add(
            f"log, {threads} threads: as many records a second as spdlog"
            if threads > 1
            else "log, 1 thread: as many records a second as spdlog",
            f"{ours / theirs:.2f}×",
            ours >= theirs,
        )
    filtered = results.figure("filter", "ns", contender="qv7log").median
    add("log: a filtered record under 5 ns", f"{filtered:.1f} ns", filtered < 5)
    return "## Goals\n\n" + table(["goal", "measured", ""], rows)
