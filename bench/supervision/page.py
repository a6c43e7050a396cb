"""The text of docs/benchmarks.md around its figures."""

import os
import platform
import statistics
import subprocess

from goals import goals
from inside import percentile
from markdown import table
from results import TITLES, Figure, number, ratio

PEERS = ["daemontools", "runit", "s6", "supervisor"]
PACKAGES = PEERS + ["libspdlog-dev", "libjsoncpp-dev", "valgrind"]
LOAD = os.environ.get("BENCH_LOAD", "not noted")


def page(results):
    note = (
        "**A short run: it shows that the harness works. Its figures mean nothing.**\n\n"
        if results.short
        else ""
    )
    parts = [
        f"""# Speed and cost, side by side

{note}Written by `scripts/measure/bench.sh`; do not edit. What was tuned, tried and left out:
[tuning.md](tuning.md). A figure is a median with minimum and maximum of the runs in brackets (5 runs;
15 for the log and for starts of up to 10), unless said otherwise; a ratio is one of such medians.
""",
        goals(results),
        machine(),
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

    scripts/measure/bench.sh            # this page; {duration / 60:.0f} minutes of measuring
    scripts/measure/bench.sh --short    # one peer, small numbers, shows that the harness works

The first installs the peers, builds in release mode, installs the bundle, and runs

    bench/supervision/run.py --bench BUILD/bench --stage BUILD/stage --output results.json
    bench/supervision/report.py results.json docs

Every measurement is one `inside.py SCENARIO CONTENDER OPTION=NUMBER...` in a namespace that
`bwrap --unshare-pid --as-pid-1 --new-session` makes.
"""


def output_of(*command):
    return subprocess.run(command, check=False, capture_output=True, text=True).stdout.strip()


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


def cell(figure, digits=None):
    return "–" if figure is None else figure.text(digits)


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
    return (
        table(["", *head], rows)
        + "\nAs a multiple of the launcher's:\n\n"
        + table(["", *head], ratios)
    )


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
    parts = [
        """## Restart

Milliseconds from a helper's end to its next start. The launcher and the floors pause for 50 ms,
s6 for a second, and supervisor polls once a second, whatever the helper's life; theirs ends at once
(s6: after 1.05 s). daemontools and runit hold back only what lived for less than a second, so their
helper lives for 1.05 s, and the figure holds no pause. Percentiles of each run of 200 restarts, then
median, minimum and maximum of the runs. Restarts of the peers take seconds: five of each run side by
side, and the percentiles are those of all their restarts together.

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
    return f"""## A storm

{sample["n"]} helpers that end at once, for {sample["seconds"]} s in each run, and another helper
among them whose restarts are watched; their percentiles are those of all runs together. The CPU share
(1 is one processor busy) is the whole machine's: the supervising side, the helpers, and what else the
system does. The peers start a helper again once a second at most, so only the CPU time of a start
compares with ours. The watched helper lives for 20 ms, or for 1.05 s under daemontools, runit and s6.

![Storm](charts/storm.svg)

{
        table(
            [
                "",
                "starts a second",
                "CPU share",
                "CPU ms a start",
                "restarts",
                "p50 ms",
                "p99",
                "max",
            ],
            rows,
        )
    }"""


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

Records a second that are with the system when the call returns; spdlog's file sink for several
threads flushes after each record for that. A record below the threshold costs {filtered["qv7log"]}
and {filtered["spdlog"]} ns.

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
