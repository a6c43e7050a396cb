"""Writes docs/benchmarks.md and its charts from the results of run.py.

    report.py RESULTS FOLDER

FOLDER gets benchmarks.md and charts/*.svg.
"""

import json
import os
import platform
import statistics
import subprocess
import sys

import contenders
from inside import percentile

PEERS = ["daemontools", "runit", "s6", "supervisor"]
PACKAGES = PEERS + ["libspdlog-dev", "libjsoncpp-dev", "valgrind"]
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


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    lines += ["| " + " | ".join(row) + " |" for row in rows]
    return "\n".join(lines) + "\n"


def output_of(*command):
    return subprocess.run(command, check=False, capture_output=True, text=True).stdout.strip()


class Results:
    def __init__(self, path):
        with open(path, encoding="utf-8") as file:
            content = json.load(file)
        self.short = content["short"]
        self.seconds = content["seconds"]
        self._results = content["results"]

    def select(self, scenario, **wanted):
        return [result for result in self._results
                if result["scenario"] == scenario
                and all(result.get(key) == value for key, value in wanted.items())]

    def values(self, scenario, key, **wanted):
        """Every value that the selected results have of `key`."""
        return sorted({result[key] for result in self.select(scenario, **wanted)
                       if result.get(key) is not None})

    def names(self, scenario, **wanted):
        """The contenders in the order of contenders.py."""
        found = {result["contender"] for result in self.select(scenario, **wanted)}
        known = [name for name in contenders.ALL if name in found]
        return known + sorted(found - set(known))

    def figure(self, scenario, key, **wanted):
        values = [result[key] for result in self.select(scenario, **wanted)]
        return Figure(values) if values else None

    def restart_figure(self, share, **wanted):
        """Of each run; of all together where the runs are too short for a percentile."""
        runs = [result["latencies_ms"] for result in self.select("restart", **wanted)]
        if runs and min(map(len, runs)) < 100:
            runs = [sum(runs, [])]
        return Figure([percentile(run, share) for run in runs]) if runs else None

    def windows(self, scenario, key, contender):
        return Figure([window[key] for result in self.select(scenario, contender=contender)
                       for window in result["windows"]])


def cell(figure, digits=None):
    return "–" if figure is None else figure.text(digits)


def machine():
    cpu = "unknown"
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        for line in file:
            if line.startswith("model name"):
                cpu = line.split(":", 1)[1].strip()
                break
    with open("/proc/meminfo", encoding="utf-8") as file:
        memory = round(int(file.readline().split()[1]) / 2**20)
    with open("/etc/os-release", encoding="utf-8") as file:
        system = dict(line.rstrip().split("=", 1) for line in file if "=" in line)
    versions = output_of("dpkg-query", "-W", "-f", "${Package} ${Version}\n", *PACKAGES)
    rows = [
        ("Processor", f"{cpu}, {len(os.sched_getaffinity(0))} of {os.cpu_count()} CPUs"),
        ("Memory", f"{memory} GiB"),
        ("Kernel", f"Linux {platform.release()}"),
        ("System", system["PRETTY_NAME"].strip('"') + ", " + " ".join(platform.libc_ver())),
        ("Compiler", output_of("c++", "--version").splitlines()[0] + ", CMake preset bench"),
        ("Packages", ", ".join(versions.splitlines())),
        ("Date", output_of("date", "-u", "+%Y-%m-%d")),
        ("Load before the run", LOAD),
    ]
    return table(["", ""], rows)


LOAD = os.environ.get("BENCH_LOAD", "not noted")


def by_count(results, scenario, key, names, digits=None):
    """A row for each contender, a column for each N, and the ratios to ours."""
    counts = results.values(scenario, "n")
    rows = []
    for name in names:
        figures = [results.figure(scenario, key, contender=name, n=n) for n in counts]
        rows.append([TITLES[name], *(cell(figure, digits) for figure in figures)])
    ratios = []
    for name in names:
        row = [TITLES[name]]
        for n in counts:
            ours = results.figure(scenario, key, contender="launcher", n=n)
            theirs = results.figure(scenario, key, contender=name, n=n)
            row.append("–" if theirs is None else ratio(theirs.median, ours.median))
        ratios.append(row)
    head = [f"N = {n}" for n in counts]
    return (table(["", *head], rows) + "\nAs a multiple of the launcher's:\n\n"
            + table(["", *head], ratios))


def start(results):
    return f"""## Start of N helpers

Milliseconds from the launcher's own start until the last of N helpers has run its first line.

![Start](charts/start.svg)

{by_count(results, "start", "start_ms", results.names("start"))}"""


def memory(results):
    return f"""## Memory of the supervising side

KiB of proportional set size once all N run and everything sleeps; the helpers are left out. A page
that several processes share counts for each in part, also one shared with the harness, which
flatters supervisor: both are Python programs.

![Memory](charts/memory.svg)

{by_count(results, "start", "pss_kib", results.names("start"), 0)}"""


def restart(results):
    parts = ["""## Restart

Milliseconds from a helper's end to its next start. The launcher and the floors pause for 50 ms,
s6 for a second, and supervisor polls once a second, whatever the helper's life; theirs ends at once
(s6: after 1.05 s). daemontools and runit hold back only what lived for less than a second, so their
helper lives for 1.05 s, and the figure holds no pause. Percentiles of each run of 200 restarts, then
median, minimum and maximum of the runs. Restarts of the peers take seconds: five of each run side by
side, and the percentiles are those of all their restarts together.

![Restart](charts/restart.svg)
"""]
    for neighbours in results.values("restart", "neighbours"):
        rows = []
        for name in results.names("restart", neighbours=neighbours):
            wanted = {"contender": name, "neighbours": neighbours}
            runs = results.select("restart", **wanted)
            count = sum(len(run["latencies_ms"]) for run in runs)
            rows.append([TITLES[name], f"{len(runs)} × {count // len(runs)}",
                         *(results.restart_figure(share, **wanted).text(2)
                           for share in (50, 99, 100))])
        title = "Alone" if neighbours == 0 else f"With {neighbours} idle neighbours"
        parts.append(f"{title}:\n\n"
                     + table(["", "restarts", "p50", "p99", "max"], rows))
    return "\n".join(parts)


def idle(results):
    sample = results.select("idle")[0]
    rows = [[TITLES[name], results.windows("idle", "cpu_ms", name).text(2),
             results.windows("idle", "switches", name).text(0)]
            for name in results.names("idle")]
    return f"""## Idle

What {sample["n"]} helpers cost that do nothing: CPU time and context switches of the supervising
side in {sample["seconds"]} s. {len(sample["windows"])} such windows of one run, in which all sleep
side by side.

{table(["", "CPU ms", "context switches"], rows)}"""


def stop(results):
    rows = by_count(results, "stop", "stop_ms", results.names("stop"))
    return f"""## Stop

Milliseconds from the request to stop until the last process has gone. The launcher ends one item
after another and pauses for 50 ms at each, by design. N = 0 is what its own end takes.

{rows}"""


def storm(results):
    sample = results.select("storm")[0]
    rows = []
    for name in results.names("storm"):
        figures = [results.figure("storm", key, contender=name).text(digits) for key, digits in
                   (("starts_per_s", None), ("cpu_share", 2), ("cpu_ms_per_start", 2))]
        runs = results.select("storm", contender=name)
        latencies = sum((run["latencies_ms"] for run in runs), [])
        rows.append([TITLES[name], *figures, str(len(latencies)),
                     *(number(percentile(latencies, share)) if latencies else "–"
                       for share in (50, 99, 100))])
    return f"""## A storm

{sample["n"]} helpers that end at once, for {sample["seconds"]} s in each run, and another helper
among them whose restarts are watched; their percentiles are those of all runs together. The CPU share
(1 is one processor busy) is the whole machine's: the supervising side, the helpers, and what else the
system does. The peers start a helper again once a second at most, so only the CPU time of a start
compares with ours. The watched helper lives for 20 ms, or for 1.05 s under daemontools, runit and s6.

![Storm](charts/storm.svg)

{table(["", "starts a second", "CPU share", "CPU ms a start", "restarts", "p50 ms", "p99", "max"],
       rows)}"""


def log(results):
    if not results.select("log"):
        return ""
    rows = []
    for threads in results.values("log", "threads"):
        ours = results.figure("log", "records_per_s", contender="qv7log", threads=threads)
        theirs = results.figure("log", "records_per_s", contender="spdlog", threads=threads)
        rows.append([str(threads), ours.text(0), theirs.text(0),
                     ratio(ours.median, theirs.median)])
    filtered = {name: results.figure("filter", "ns", contender=name).text(1)
                for name in ("qv7log", "spdlog")}
    return f"""## The log

Records a second that are with the system when the call returns; spdlog's file sink for several
threads flushes after each record for that. A record below the threshold costs {filtered["qv7log"]}
and {filtered["spdlog"]} ns.

![Log](charts/log.svg)

{table(["threads", "qv7log", "spdlog", "qv7log / spdlog"], rows)}"""


def operations(results):
    found = {result["contender"]: result for result in results.select("operations")}
    rows = [[name.replace("-", " "), f"{result['instructions']:,}",
             Figure(result["nanoseconds"]).text()] for name, result in found.items()]
    made = found["expression-made"]
    walk = found["json-lookups-of-1000-items"]
    # Per item: its number, "/name" twice as HasObject and GetObject, and "argc" in the child.
    share = 4000 * made["instructions"] / walk["instructions"]
    milliseconds = 4000 * statistics.median(made["nanoseconds"]) / 1e6
    return f"""## Single operations

Instructions are counted by callgrind and come out the same in every run of one build; the time is
that of the same operation without it.

{table(["operation", "instructions", "ns"], rows)}
A path lookup makes a new expression for "/" on every call. A launch list of 1000 items takes 4000
lookups, one of every four in the child: {4000 * made["instructions"]:,} instructions or
{number(milliseconds)} ms for the expressions, {100 * share:.0f} % of all that the lookups execute.
"""


def verdict(met):
    return "met" if met else "**missed**"


# What it took while each fork copied the stacks of all threads; it must not become worse.
STORM_SHARE = 0.68


def goals(results):
    rows = []

    def add(text, figure, met):
        rows.append([text, figure, verdict(met)])

    def start_of(name, n):
        return results.figure("start", "start_ms", contender=name, n=n).median

    counts = results.values("start", "n")
    rivals = [name for name in results.names("start")
              if name in {**contenders.LEAN, **contenders.SCRIPTS}]
    for n in counts:
        best = min(rivals, key=lambda name: start_of(name, n))
        factor = start_of(best, n) / start_of("launcher", n)
        add(f"start of {n}: ahead of every peer", f"{factor:.2f}× ahead of {TITLES[best]}",
            factor > 1)
    for n, most in ((100, 1.5), (1000, 3)):
        if n in counts:
            factor = start_of("launcher", n) / start_of("loop", n)
            add(f"start of {n}: within {most} times the loop floor", f"{factor:.2f}×",
                factor <= most)

    def pss(n):
        return results.figure("start", "pss_kib", contender="launcher", n=n).median

    add("memory with 10 helpers under 3 MiB", f"{pss(10) / 1024:.2f} MiB", pss(10) < 3072)
    first, last = 10, counts[-1]
    if last > first:
        each = (pss(last) - pss(first)) / (last - first)
        add("memory of a further item under 12 KiB", f"{each:.1f} KiB", each < 12)

    for share, allowed in ((50, 0.2), (99, 3)):
        ours, floor = (results.restart_figure(share, contender=name, neighbours=0).median
                       for name in ("launcher", "threads"))
        add(f"restart p{share} within {allowed} ms of the thread floor",
            f"{ours - floor:+.2f} ms", ours - floor <= allowed)

    cpu = results.windows("idle", "cpu_ms", "launcher").high
    switches = results.windows("idle", "switches", "launcher").high
    add("idle: no CPU time, no context switch", f"{number(cpu)} ms, {switches:.0f}",
        cpu == 0 and switches == 0)

    def stop_of(n):
        return results.figure("stop", "stop_ms", contender="launcher", n=n).median

    for n in results.values("stop", "n"):
        if n > 0:
            each = (stop_of(n) - stop_of(0)) / n
            add(f"stop of {n}: at most 51 ms an item, besides the launcher's own end",
                f"{each:.2f} ms ({stop_of(n) / n:.2f} with it)", each <= 51)

    ours, floor = (results.figure("storm", "cpu_ms_per_start", contender=name).median
                   for name in ("launcher", "threads"))
    add(f"storm: a start takes at most {STORM_SHARE} times the thread floor's CPU time",
        f"{ours / floor:.2f}×", ours / floor <= STORM_SHARE)

    for threads in results.values("log", "threads"):
        ours, theirs = (results.figure("log", "records_per_s", contender=name,
                                       threads=threads).median for name in ("qv7log", "spdlog"))
        add(f"log, {threads} threads: as many records a second as spdlog"
            if threads > 1 else "log, 1 thread: as many records a second as spdlog",
            f"{ours / theirs:.2f}×", ours >= theirs)
    filtered = results.figure("filter", "ns", contender="qv7log").median
    add("log: a filtered record under 5 ns", f"{filtered:.1f} ns", filtered < 5)
    return "## Goals\n\n" + table(["goal", "measured", ""], rows)


SETTINGS = """## Who is compared

All run as root in a PID namespace of their own, take turns in the opposite order every other time
(unless said otherwise), and keep no log of the helpers. A peer with run scripts appears in its
leanest form, in which the helper itself stands in for the script, and with the usual shell script
("sh") that executes it.

| | setting |
|---|---|
| loop floor | one thread forks, executes and waits in a loop ([source](../bench/supervision/floor_loop.cpp)); the physical limit |
| thread floor | a thread per helper does the same, untuned ([source](../bench/supervision/floor_threads.cpp)); the limit of the design |
| launcher | the installed bundle in release mode, jsoncpp and the C++ library linked in as on macOS; log level ERROR, as without a log.ini |
| daemontools | `svscan`, one folder per helper; starts a helper once a second at most |
| runit | `runsvdir`, the same; the folder's time lies in the past, or it would wait for a second |
| s6 | `s6-svscan` with room for all; pauses for a second after each end |
| supervisor | `autorestart=true`, `startsecs=0`, `stopsignal=KILL`, no log files; needs no script; polls once a second |

The helper is a static program that writes one record and sleeps
([source](../bench/supervision/helper.cpp)).
"""


def commands(results):
    duration = sum(results.seconds.values())
    return f"""## Exact commands

    scripts/bench.sh            # this page; {duration / 60:.0f} minutes of measuring
    scripts/bench.sh --short    # one peer, small numbers, shows that the harness works

The first installs the peers, builds in release mode, installs the bundle, and runs

    bench/supervision/run.py --bench BUILD/bench --stage BUILD/stage --output results.json
    bench/supervision/report.py results.json docs

Every measurement is one `inside.py SCENARIO CONTENDER OPTION=NUMBER...` in a namespace that
`bwrap --unshare-pid --as-pid-1 --new-session` makes.
"""


def page(results):
    note = ("**A short run: it shows that the harness works. Its figures mean nothing.**\n\n"
            if results.short else "")
    parts = [
        f"""# Speed and cost, side by side

{note}Written by `scripts/bench.sh`; do not edit. What was tuned, tried and left out:
[tuning.md](tuning.md). A figure is a median with minimum and maximum of the runs in brackets (5 runs;
15 for the log and for starts of up to 10), unless said otherwise; a ratio is one of such medians.
""",
        goals(results), machine(), SETTINGS, start(results), memory(results), restart(results),
        idle(results), stop(results), storm(results), log(results), operations(results),
        commands(results),
    ]
    parts[2] = "## The machine\n\n" + parts[2]
    return "\n".join(part for part in parts if part)


# Charts. One colour for each contender in all of them.

COLOURS = {
    "loop": "#bbbbbb", "threads": "#777777", "launcher": "#d62728", "daemontools": "#1f77b4",
    "runit": "#2ca02c", "s6": "#9467bd", "supervisor": "#ff7f0e", "qv7log": "#d62728",
    "spdlog": "#1f77b4",
}


def gnuplot(path, lines):
    head = [
        "set terminal svg size 760,420 font 'sans-serif,13' background '#ffffff'",
        f"set output '{path}'",
        "set grid ytics lc '#dddddd'",
        "set border 3",
        "set tics nomirror",
    ]
    subprocess.run(["gnuplot"], input="\n".join(head + lines) + "\n", text=True, check=True)


def data(name, rows):
    return [f"${name} << END", *(" ".join(map(str, row)) for row in rows), "END"]


def chart_by_count(results, path, key, title):
    counts = results.values("start", "n")
    names = [name for name in results.names("start") if name in COLOURS]
    lines, plots = [], []
    for name in names:
        rows = []
        for n in counts:
            figure = results.figure("start", key, contender=name, n=n)
            rows.append((n, figure.median, figure.low, figure.high))
        lines += data(name, rows)
        width = 3 if name == "launcher" else 1.5
        plots.append(f"${name} using 1:2:3:4 with yerrorlines lw {width} pt 7 ps 0.5 "
                     f"lc '{COLOURS[name]}' title '{TITLES[name]}'")
    lines += [
        f"set title '{title}'",
        "set logscale xy",
        "set xlabel 'helpers'",
        f"set xrange [{counts[0] * 0.8}:{counts[-1] * 1.3}]",
        "set xtics (" + ", ".join(map(str, counts)) + ")",
        "set key outside right",
        "plot " + ", ".join(plots),
    ]
    gnuplot(path, lines)


def chart_bars(path, title, rows, labels, log_scale=False):
    """rows: a name and the figures of its bars, one for each label. A label that has a colour gives
    it to its bars; else all bars have the colour of their row, the later ones paler."""
    lines, plots = [], []
    width = 0.8 / len(labels)
    for i, label in enumerate(labels):
        offset = (i - (len(labels) - 1) / 2) * width
        lines += data(f"bars{i}", [
            (position + offset, figures[i].median, figures[i].low, figures[i].high,
             COLOURS[label if label in COLOURS else name].replace("#", "0x"),
             f'"{number(figures[i].median)}"')
            for position, (name, figures) in enumerate(rows)])
        solid = 1 if label in COLOURS else 1 - 0.5 * i
        plots += [
            f"$bars{i} using 1:2:({width * 0.9}):5 with boxes fs solid {solid} noborder "
            "lc rgb variable notitle",
            f"$bars{i} using 1:3:(0):($4-$3) with vectors nohead lw 1.5 lc '#000000' notitle",
            f"$bars{i} using 1:4:6 with labels offset 0,0.7 font ',11' notitle",
        ]
        if label in COLOURS:
            plots.append(f"NaN with boxes fs solid 1 noborder lc '{COLOURS[label]}' "
                         f"title '{label}'")
    ticks = ", ".join(f"'{TITLES.get(name, name)}' {i}" for i, (name, _) in enumerate(rows))
    lines += [
        f"set title '{title}'",
        "set logscale y; set yrange [0.5:*]" if log_scale else "set yrange [0:*]",
        f"set xrange [-0.6:{len(rows) - 0.4}]",
        f"set xtics ({ticks})",
        "set key outside right",
        "plot " + ", ".join(plots),
    ]
    gnuplot(path, lines)


def charts(results, folder):
    os.makedirs(folder, exist_ok=True)
    chart_by_count(results, folder + "/start.svg", "start_ms", "Milliseconds until N helpers run")
    chart_by_count(results, folder + "/memory.svg", "pss_kib",
                   "Memory of the supervising side, KiB")
    chart_bars(folder + "/restart.svg",
               "Milliseconds from a helper’s end to its next start, alone: p50, and p99 paler",
               [(name, [results.restart_figure(share, contender=name, neighbours=0)
                        for share in (50, 99)])
                for name in results.names("restart", neighbours=0)],
               ["p50", "p99"], log_scale=True)
    chart_bars(folder + "/storm.svg", "CPU milliseconds a start while 200 helpers end at once",
               [(name, [results.figure("storm", "cpu_ms_per_start", contender=name)])
                for name in results.names("storm")], ["CPU ms a start"])
    if results.select("log"):
        chart_bars(folder + "/log.svg", "Log records a second",
                   [(f"{threads} threads" if threads > 1 else "1 thread",
                     [results.figure("log", "records_per_s", contender=name, threads=threads)
                      for name in ("qv7log", "spdlog")])
                    for threads in results.values("log", "threads")], ["qv7log", "spdlog"])


def main():
    path, folder = sys.argv[1:]
    results = Results(path)
    charts(results, folder + "/charts")
    with open(folder + "/benchmarks.md", "w", encoding="utf-8") as file:
        file.write(page(results))


if __name__ == "__main__":
    main()
