"""The text of docs/benchmarks.md, into which the figures are inserted."""

import os
import platform
import subprocess

from goals import goals
from inside import percentile
from markdown import table
from results import TITLES, Figure, number, ratio

PEERS = ["daemontools", "runit", "s6", "supervisor"]
PACKAGES = PEERS + ["libspdlog-dev", "libjsoncpp-dev", "valgrind"]


def page(results):
    note = (
        "**A short run, which only shows that the benchmarks work. Its figures mean nothing.**\n\n"
        if results.short
        else ""
    )
    parts = [
        f"""# Speed and cost, side by side

{note}Written by `scripts/measure/bench.sh`; do not edit. [tuning.md](tuning.md) describes what was tuned, and
what was tried and rejected. Unless stated otherwise, a figure is the median of 5 runs (15 for the log
and for starts of up to 10 helpers), with minimum and maximum in brackets; a ratio is one of medians.
""",
        goals(results),
        machine(results),
        SETTINGS,
        start(results),
        memory(results),
        restart(results),
        idle(results),
        stop(results),
        storm(results),
        log(results),
        operations(results),
        commands(results),
    ]
    parts[2] = "## The machine\n\n" + parts[2]
    return "\n".join(part for part in parts if part)


SETTINGS = """## Who is compared

Each contender runs as root in its own PID namespace and keeps no log of the helpers. Unless stated
otherwise, the contenders alternate, in reverse order every other time. A peer with run scripts is
measured twice: in its leanest form, in which the helper itself replaces the script, and with the usual
shell script ("sh") that executes the helper.

| | setting |
|---|---|
| loop floor | one thread forks, executes and waits in a loop ([source](../bench/supervision/floor_loop.cpp)); the physical limit |
| thread floor | one thread per helper does the same, untuned ([source](../bench/supervision/floor_threads.cpp)); the limit of the design |
| launcher | the bundle as packaged for Linux: release mode with run-time checks, jsoncpp and the C++ library linked in; log level ERROR, the default |
| daemontools | `svscan`, one directory per helper; starts a helper at most once a second |
| runit | `runsvdir`, likewise; the directory's time is in the past, because `runsvdir` would otherwise wait a second |
| s6 | `s6-svscan` with a sufficient limit; pauses for a second after each exit |
| supervisor | `autorestart=true`, `startsecs=0`, `stopsignal=KILL`, no log files, no script; polls once a second |

The helper is a static program that writes one record and sleeps
([source](../bench/supervision/helper.cpp)).
"""


def commands(results):
    duration = sum(results.seconds.values())
    return f"""## Exact commands

    scripts/measure/bench.sh                # this page; {duration / 60:.0f} minutes of measuring
    scripts/measure/bench.sh --again log    # replaces these scenarios, if something disturbed them
    scripts/measure/bench.sh --short        # one peer, small numbers: shows that the benchmarks work

The first command installs the peers, builds in release mode, installs the bundle, and runs

    bench/supervision/run.py --bench BUILD/bench --stage BUILD/stage --output results.json
    bench/supervision/report.py results.json docs

Every measurement is one `inside.py SCENARIO CONTENDER OPTION=NUMBER...` in a namespace that
`bwrap --unshare-pid --as-pid-1 --new-session` makes.
"""


def output_of(*command):
    return subprocess.run(command, check=False, capture_output=True, text=True).stdout.strip()


def machine(results):
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
        ("Load before the run", results.load),
    ]
    if results.again:
        text = ", after the complete run"
        rows.append(("Measured again", ", ".join(results.again) + text))
    return table(["", ""], rows)


def cell(figure, digits=None):
    return "–" if figure is None else figure.text(digits)


def by_count(results, scenario, key, names, digits=None):
    """A row for each contender, a column for each N, and the ratios to the launcher's figures."""
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
    return (
        table(["", *head], rows)
        + "\nAs a multiple of the launcher's figure:\n\n"
        + table(["", *head], ratios)
    )


def start(results):
    return f"""## Start of N helpers

Milliseconds from the launcher's own start until the last of N helpers has run its first line.

![Start](charts/start.svg)

{by_count(results, "start", "start_ms", results.names("start"))}"""


def memory(results):
    return f"""## Memory of the supervising side

Proportional set size in KiB once all N helpers run and every process sleeps; the helpers are not
counted. A page that several processes share is divided among them. This favours supervisor, which
shares pages with the measuring program: both are Python programs.

![Memory](charts/memory.svg)

{by_count(results, "start", "pss_kib", results.names("start"), 0)}"""


def restart(results):
    parts = [
        """## Restart

Milliseconds from a helper's exit to its next start. The launcher and the floors pause for 50 ms and s6
for a second, and supervisor polls once a second, however long the helper ran; their helper exits at
once (s6: after 1.05 s). daemontools and runit delay only a helper that ran for less than a second.
Their helper runs for 1.05 s, so their figure includes no pause. Percentiles are taken of each run of
200 restarts; the table has their median, minimum and maximum. A restart of a peer takes seconds, so
five instances of each peer run in parallel, and the percentiles are those of all their restarts.

![Restart](charts/restart.svg)
"""
    ]
    for neighbours in results.values("restart", "neighbours"):
        rows = []
        for name in results.names("restart", neighbours=neighbours):
            wanted = {"contender": name, "neighbours": neighbours}
            runs = results.select("restart", **wanted)
            count = sum(len(run["latencies_ms"]) for run in runs)
            rows.append(
                [
                    TITLES[name],
                    f"{len(runs)} × {count // len(runs)}",
                    *(results.restart_figure(share, **wanted).text(2) for share in (50, 99, 100)),
                ]
            )
        title = "Alone" if neighbours == 0 else f"With {neighbours} idle neighbours"
        parts.append(f"{title}:\n\n" + table(["", "restarts", "p50", "p99", "max"], rows))
    return "\n".join(parts)


def idle(results):
    sample = results.select("idle")[0]
    rows = [
        [
            TITLES[name],
            results.windows("idle", "cpu_ms", name).text(2),
            results.windows("idle", "switches", name).text(0),
        ]
        for name in results.names("idle")
    ]
    return f"""## Idle

CPU time and context switches of the supervising side in {sample["seconds"]} s while {sample["n"]} helpers sleep.
All contenders ran at the same time, for {len(sample["windows"])} such periods.

{table(["", "CPU ms", "context switches"], rows)}"""


def stop(results):
    rows = by_count(results, "stop", "stop_ms", results.names("stop"))
    return f"""## Stop

Milliseconds from the stop request until the last process has ended. By design, the launcher stops one
item after another, each with its pause of 50 ms. N = 0 is the time that the launcher itself takes.

{rows}"""


def storm(results):
    sample = results.select("storm")[0]
    head = "|starts per second|CPU share|CPU ms per start|restarts|p50 ms|p99|max".split("|")
    rows = []
    for name in results.names("storm"):
        figures = [
            results.figure("storm", key, contender=name).text(digits)
            for key, digits in (("starts_per_s", None), ("cpu_share", 2), ("cpu_ms_per_start", 2))
        ]
        runs = results.select("storm", contender=name)
        latencies = sum((run["latencies_ms"] for run in runs), [])
        rows.append(
            [
                TITLES[name],
                *figures,
                str(len(latencies)),
                *(
                    number(percentile(latencies, share)) if latencies else "–"
                    for share in (50, 99, 100)
                ),
            ]
        )
    return f"""## Restart storm

{sample["n"]} helpers exit at once and are restarted, for {sample["seconds"]} s in each run. The restarts of
one further helper are timed; the percentiles are those of all runs together. The CPU share
(1 is one busy processor) is that of the whole machine: supervisor, helpers and system. The peers
restart a helper at most once a second, so only the CPU time of a start can be compared with the
launcher's. The timed helper runs for 20 ms, under daemontools, runit and s6 for 1.05 s.

![Storm](charts/storm.svg)

{table(head, rows)}"""


def log(results):
    if not results.select("log"):
        return ""
    rows = []
    for threads in results.values("log", "threads"):
        ours = results.figure("log", "records_per_s", contender="qv7log", threads=threads)
        theirs = results.figure("log", "records_per_s", contender="spdlog", threads=threads)
        rows.append([str(threads), ours.text(0), theirs.text(0), ratio(ours.median, theirs.median)])
    filtered = {
        name: results.figure("filter", "ns", contender=name).text(1)
        for name in ("qv7log", "spdlog")
    }
    return f"""## The log

Records per second that have been passed to the system when the call returns; for that, spdlog's
file sink for several threads flushes after each record. A filtered record, that is, one below the
threshold, takes {filtered["qv7log"]} ns with qv7log and {filtered["spdlog"]} ns with spdlog.

![Log](charts/log.svg)

{table(["threads", "qv7log", "spdlog", "qv7log / spdlog"], rows)}"""


def operations(results):
    found = {result["contender"]: result for result in results.select("operations")}
    rows = [
        [
            name.replace("-", " "),
            f"{result['instructions']:,}",
            Figure(result["nanoseconds"]).text(),
        ]
        for name, result in found.items()
    ]
    return f"""## Single operations

callgrind counts the instructions, the same number in every run of one build. The time is that of the
same operation without callgrind.

{table(["operation", "instructions", "ns"], rows)}
A lookup by path constructs a new expression for "/" every time ("expression made").
"""
