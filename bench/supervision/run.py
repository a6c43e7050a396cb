"""Measures every launcher and our own operations in one run; writes the raw results as JSON.

bubblewrap gives each measurement its own PID namespace, /tmp and home directory: some launchers,
including ours, signal whole process groups by design. The contenders alternate, in reverse order
every other time. To compare two builds of the launcher, pass the bundle of one as --other-stage:

    run.py --bench BUILD/bench --stage BUILD/stage --other-stage BEFORE/stage --output out.json \\
        --only start --counts 100,500 --contenders threads,launcher,other
"""

import argparse
import json
import os
import re
import subprocess
import sys
import tempfile
import time

import contenders

SCENARIOS = "start,stop,restart,idle,storm,log,operations"
HERE = os.path.dirname(os.path.abspath(__file__))


class Namespace:
    """Runs inside.py, each time in a new namespace."""

    def __init__(self, programs, stage, other_stage):
        self._passwd = tempfile.NamedTemporaryFile("w", suffix=".passwd")
        self._passwd.write(f"bench:x:{os.getuid()}:{os.getgid()}::/tmp/home:/bin/sh\n")
        self._passwd.flush()
        self._command = [
            "bwrap",
            "--unshare-pid",
            "--as-pid-1",
            "--new-session",
            "--die-with-parent",
            "--ro-bind",
            "/",
            "/",
            "--proc",
            "/proc",
            "--dev",
            "/dev",
            "--tmpfs",
            "/tmp",
            "--ro-bind",
            self._passwd.name,
            "/etc/passwd",
            "--ro-bind",
            programs,
            contenders.PROGRAMS,
            "--ro-bind",
            stage,
            "/tmp/stage",
            "--ro-bind",
            HERE,
            "/tmp/scripts",
            "--dir",
            "/tmp/home",
        ]
        if other_stage:
            self._command += ["--ro-bind", other_stage, "/tmp/other_stage"]
        self._command += [sys.executable, "-B", "/tmp/scripts/inside.py"]

    def begin(self, scenario, contender, **options):
        pairs = [f"{key}={int(value)}" for key, value in options.items()]
        return subprocess.Popen(
            [*self._command, scenario, contender, *pairs], stdout=subprocess.PIPE, text=True
        )

    def run(self, scenario, contender, **options):
        return self.end(self.begin(scenario, contender, **options))

    @staticmethod
    def end(process):
        output, _ = process.communicate()
        if process.returncode != 0:
            sys.exit(f"{process.args[-3:]} failed")
        return json.loads(output)


def order(names, repetition):
    names = list(names)
    return names if repetition % 2 == 0 else names[::-1]


def instructions(command):
    """The number of instructions that the command executes, counted by callgrind."""
    tool = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null"]
    output = subprocess.run([*tool, *command], check=True, capture_output=True, text=True).stderr
    return int(re.search(r"Collected : (\d+)", output)[1])


class Measurement:
    def __init__(self, namespace, bench, profile):
        self._namespace = namespace
        self._bench = bench
        self._profile = profile
        self.results = []

    def _keep(self, scenario, contender, result, **options):
        values = {
            **options,
            **{key: value for key, value in result.items() if not isinstance(value, list)},
        }
        print(scenario, contender, *(f"{key}={value}" for key, value in values.items()), flush=True)
        self.results.append({"scenario": scenario, "contender": contender, **options, **result})

    def _sequence(self, scenario, names, options, repetitions=None):
        for repetition in range(repetitions or self._profile["repetitions"]):
            for name in order(names, repetition):
                result = self._namespace.run(scenario, name, **options)
                self._keep(scenario, name, result, **options)

    def _side_by_side(self, scenario, names, copies, options):
        """Measures all contenders at the same time, for scenarios that mostly sleep."""
        processes = [
            (name, self._namespace.begin(scenario, name, **options))
            for name in names
            for _ in range(copies)
        ]
        for name, process in processes:
            self._keep(scenario, name, self._namespace.end(process), **options)

    def start(self):
        for count in self._profile["counts"]:
            # Starting few helpers takes no longer than a disturbance, so it is repeated more often.
            repetitions = self._profile["repetitions_of_few"] if count <= 10 else None
            self._sequence("start", self._profile["start"], {"n": count}, repetitions)

    def stop(self):
        for count in self._profile["stop_counts"]:
            # Without helpers, only the launcher's own exit is measured.
            names = self._profile["stop"] if count > 0 else ["launcher"]
            self._sequence("stop", names, {"n": count})

    def restart(self):
        profile = self._profile
        for neighbours in profile["neighbours"]:
            # Idle neighbours cost a single thread in a loop nothing.
            names = [name for name in profile["restart"] if name != "loop" or neighbours == 0]
            self._sequence(
                "restart", names, {"neighbours": neighbours, "restarts": profile["restarts"]}
            )
            self._side_by_side(
                "restart",
                profile["restart_peers"],
                profile["repetitions"],
                {
                    "neighbours": neighbours,
                    "restarts": profile["restarts"] // profile["repetitions"],
                },
            )

    def idle(self):
        self._side_by_side("idle", self._profile["idle"], 1, self._profile["idle_options"])

    def storm(self):
        self._sequence("storm", self._profile["storm"], self._profile["storm_options"])

    def log(self):
        """Runs the benchmark of the logging libraries, which interleaves them itself."""
        output = subprocess.run(
            [
                f"{self._bench}/qv7log_bench",
                "--benchmark_format=json",
                f"--benchmark_repetitions={self._profile['repetitions_of_few']}",
                f"--benchmark_min_time={self._profile['log_seconds']}",
                "--benchmark_enable_random_interleaving=true",
            ],
            check=True,
            capture_output=True,
            text=True,
        ).stdout
        for run in json.loads(output)["benchmarks"]:
            if run["run_type"] != "iteration":
                continue
            operation, library = re.match("(Write|Filter)([^/]*)", run["name"]).groups()
            if operation == "Write":
                self._keep(
                    "log",
                    library.lower(),
                    {"records_per_s": run["items_per_second"]},
                    threads=run["threads"],
                )
            else:
                self._keep("filter", library.lower(), {"ns": run["cpu_time"]})

    def operations(self):
        program = f"{self._bench}/instructions"
        names = subprocess.run([program], check=True, capture_output=True, text=True).stdout.split()
        for name in self._profile.get("operations", names):
            count = 2 if "1000-items" in name else 50
            once, twice = (instructions([program, name, str(n)]) for n in (count, 2 * count))
            nanoseconds = [
                float(
                    subprocess.run(
                        [program, name, str(20 * count)], check=True, capture_output=True, text=True
                    ).stdout
                )
                for _ in range(self._profile["repetitions"])
            ]
            self._keep(
                "operations",
                name,
                {"instructions": round((twice - once) / count), "nanoseconds": nanoseconds},
            )


def full_profile():
    everyone = [*contenders.FLOORS, *contenders.LAUNCHER, *contenders.LEAN]
    return {
        "repetitions": 5,
        "repetitions_of_few": 15,
        "counts": [1, 10, 100, 500, 1000],
        "start": everyone + list(contenders.SCRIPTS),
        "stop_counts": [0, 1, 10, 100],
        "stop": [*contenders.LAUNCHER, *contenders.LEAN],
        "neighbours": [0, 100],
        "restarts": 200,
        "restart": [*contenders.FLOORS, *contenders.LAUNCHER],
        "restart_peers": list(contenders.LEAN),
        "idle": everyone,
        "idle_options": {"n": 100, "windows": 5, "seconds": 20},
        "storm": ["threads", *contenders.LAUNCHER, *contenders.LEAN],
        "storm_options": {"n": 200, "seconds": 4},
        "log_seconds": 0.5,
    }


def short_profile():
    """One peer and small numbers, to show that everything works. No figure is judged."""
    few = ["loop", "threads", "launcher", "runit"]
    return {
        "repetitions": 1,
        "repetitions_of_few": 1,
        "counts": [1, 10],
        "start": few,
        "stop_counts": [0, 1],
        "stop": ["launcher", "runit"],
        "neighbours": [0, 5],
        "restarts": 5,
        "restart": few[:3],
        "restart_peers": ["runit"],
        "idle": few,
        "idle_options": {"n": 5, "windows": 1, "seconds": 1},
        "storm": ["threads", "launcher", "runit"],
        "storm_options": {"n": 10, "seconds": 3},
        "log_seconds": 0.01,
        "operations": ["expression-made", "json-lookups-of-1000-items"],
    }


def replaced(path, content):
    """The results of an earlier run with those of `content` in place of the same scenarios."""
    with open(path, encoding="utf-8") as file:
        earlier = json.load(file)
    scenarios = {result["scenario"] for result in content["results"]}
    kept = [result for result in earlier["results"] if result["scenario"] not in scenarios]
    return {
        "short": earlier["short"],
        "load": earlier["load"],
        "seconds": {**earlier["seconds"], **content["seconds"]},
        "results": kept + content["results"],
        "again": sorted({*earlier.get("again", []), *content["seconds"]}),
    }


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--bench", required=True, help="the benchmark directory of the build")
    parser.add_argument("--stage", required=True, help="directory of the installed bundle")
    parser.add_argument(
        "--other-stage", help="directory of another build, to compare with as `other`"
    )
    parser.add_argument("--output", required=True)
    parser.add_argument(
        "--load", default="not noted", help="the load before the build, to be noted"
    )
    parser.add_argument("--short", action="store_true")
    parser.add_argument("--only", help="some of these, comma-separated: " + SCENARIOS)
    parser.add_argument(
        "--again",
        action="store_true",
        help="keep the other scenarios in OUTPUT, which an earlier run has written",
    )
    parser.add_argument("--contenders", help="comma-separated; default: all")
    parser.add_argument("--counts", help="comma-separated; default: all")
    parser.add_argument("--repetitions", type=int)
    arguments = parser.parse_args()

    profile = short_profile() if arguments.short else full_profile()
    if arguments.contenders:
        chosen = arguments.contenders.split(",")
        for key in ("start", "stop", "restart", "restart_peers", "idle", "storm"):
            pool = profile[key] + (["other"] if key != "restart_peers" else [])
            profile[key] = [name for name in pool if name in chosen]
    if arguments.counts:
        profile["counts"] = [int(count) for count in arguments.counts.split(",")]
    if arguments.repetitions:
        profile["repetitions"] = profile["repetitions_of_few"] = arguments.repetitions

    namespace = Namespace(arguments.bench + "/supervision", arguments.stage, arguments.other_stage)
    measurement = Measurement(namespace, arguments.bench, profile)
    seconds = {}
    for scenario in (arguments.only or SCENARIOS).split(","):
        begin = time.monotonic()
        getattr(measurement, scenario)()
        seconds[scenario] = round(time.monotonic() - begin, 1)
        print(f"{scenario}: {seconds[scenario]} s", flush=True)
    content = {
        "short": arguments.short,
        "load": arguments.load,
        "seconds": seconds,
        "results": measurement.results,
    }
    if arguments.again:
        content = replaced(arguments.output, content)
    with open(arguments.output, "w", encoding="utf-8") as file:
        json.dump(content, file, indent=1)


if __name__ == "__main__":
    main()
