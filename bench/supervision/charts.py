"""The charts of docs/benchmarks.md, drawn by gnuplot."""

import os
import subprocess

from results import TITLES, number

# The colour of each contender in every chart.
COLOURS = {
    "loop": "#bbbbbb",
    "threads": "#777777",
    "launcher": "#d62728",
    "daemontools": "#1f77b4",
    "runit": "#2ca02c",
    "s6": "#9467bd",
    "supervisor": "#ff7f0e",
    "qv7log": "#d62728",
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
        plots.append(
            f"${name} using 1:2:3:4 with yerrorlines lw {width} pt 7 ps 0.5 "
            f"lc '{COLOURS[name]}' title '{TITLES[name]}'"
        )
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
    """Draws bars. Each of `rows` is a name with one figure for each label. The bars of a label that
    has a colour get that colour; other bars get the colour of their row, later ones paler."""
    lines, plots = [], []
    width = 0.8 / len(labels)
    for i, label in enumerate(labels):
        offset = (i - (len(labels) - 1) / 2) * width
        lines += data(
            f"bars{i}",
            [
                (
                    position + offset,
                    figures[i].median,
                    figures[i].low,
                    figures[i].high,
                    COLOURS[label if label in COLOURS else name].replace("#", "0x"),
                    f'"{number(figures[i].median)}"',
                )
                for position, (name, figures) in enumerate(rows)
            ],
        )
        solid = 1 if label in COLOURS else 1 - 0.5 * i
        plots += [
            f"$bars{i} using 1:2:({width * 0.9}):5 with boxes fs solid {solid} noborder "
            "lc rgb variable notitle",
            f"$bars{i} using 1:3:(0):($4-$3) with vectors nohead lw 1.5 lc '#000000' notitle",
            f"$bars{i} using 1:4:6 with labels offset 0,0.7 font ',11' notitle",
        ]
        if label in COLOURS:
            plots.append(
                f"NaN with boxes fs solid 1 noborder lc '{COLOURS[label]}' title '{label}'"
            )
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


def charts(results, directory):
    os.makedirs(directory, exist_ok=True)
    chart_by_count(
        results, directory + "/start.svg", "start_ms", "Milliseconds until N helpers run"
    )
    chart_by_count(
        results, directory + "/memory.svg", "pss_kib", "Memory of the supervising side, KiB"
    )
    chart_bars(
        directory + "/restart.svg",
        "Milliseconds from a helper’s exit to its next start, alone: p50, and p99 paler",
        [
            (
                name,
                [results.restart_figure(share, contender=name, neighbours=0) for share in (50, 99)],
            )
            for name in results.names("restart", neighbours=0)
        ],
        ["p50", "p99"],
        log_scale=True,
    )
    chart_bars(
        directory + "/storm.svg",
        "CPU milliseconds per start while 200 helpers end at once",
        [
            (name, [results.figure("storm", "cpu_ms_per_start", contender=name)])
            for name in results.names("storm")
        ],
        ["CPU ms per start"],
    )
    if results.select("log"):
        chart_bars(
            directory + "/log.svg",
            "Log records per second",
            [
                (
                    f"{threads} threads" if threads > 1 else "1 thread",
                    [
                        results.figure("log", "records_per_s", contender=name, threads=threads)
                        for name in ("qv7log", "spdlog")
                    ],
                )
                for threads in results.values("log", "threads")
            ],
            ["qv7log", "spdlog"],
        )
