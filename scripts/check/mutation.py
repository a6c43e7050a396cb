"""Makes small changes to our sources and checks that the tests notice them.

    mutation.py COUNT SEED [FILE...]

Tries about COUNT changed sources ("mutants") whose machine code differs from the original. They are
spread over all sources, or over the given ones, in proportion to their size. Each mutant is linked
into the fast tests that use its source. The tests run until one fails, those of the same directory
first; mutants on which none fails are listed. The same seed gives the same sample.

mutation_explained.txt lists the mutants that no test can distinguish from the original. They are
counted separately.

Every test runs in its own PID namespace, since a mutant may signal any process.
"""

import collections
import concurrent.futures
import contextlib
import hashlib
import io
import json
import os
import pathlib
import random
import re
import resource
import shlex
import shutil
import subprocess
import sys
import tempfile
import threading
import time

from universalmutator import mutator

DIRECTORIES = ("util", "json", "config", "logging", "launcher", "qv7log", "tools")
RULES = ["universal.rules", "c_like.rules", "cpp.rules"]
MIN_PER_FILE = 3
MAX_SURVIVORS = 0.05
SECONDS = 40  # A test that runs longer counts as failed.
MEMORY = 4 << 30
FILE_SIZE = 256 << 20

ROOT = pathlib.Path.cwd()
BUILD = ROOT / "build" / "mutation"
EXPLAINED = pathlib.Path(__file__).with_name("mutation_explained.txt")

Mutant = collections.namedtuple("Mutant", "path line old new")
# A test, the program that it runs, and the command that links the program.
Test = collections.namedtuple("Test", "name command program link")
# One compilation of a source: the command, the object, and the archive that contains the object.
Compilation = collections.namedtuple("Compilation", "command source object archive")


def output_of(*command, **options):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, **options).stdout


def source_paths():
    # Sources for macOS are not compiled here.
    return [
        path
        for path in output_of("git", "ls-files", "*.cpp").split()
        if path.split("/")[0] in DIRECTORIES and "_mac." not in path
    ]


def lines_of(path):
    return (ROOT / path).read_text(encoding="utf-8").splitlines(keepends=True)


def is_code(line):
    return line.strip() not in ("", "{", "}") and not line.lstrip().startswith("//")


def mutants_of(path, seed):
    """All mutants of a source, in an order that depends on the seed."""
    lines = lines_of(path)
    # The mutator prints the rules that it applies.
    with contextlib.redirect_stdout(io.StringIO()):
        changes = mutator.mutants_regexp(lines, RULES, ignorePatterns=[])
    found = [
        Mutant(path, number, lines[number - 1], new)
        for number, new, *_ in changes
        if is_code(lines[number - 1])
    ]
    random.Random(f"{seed} {path}").shuffle(found)
    return found


def quotas(paths, count):
    """The number of mutants for each source."""
    sizes = {path: sum(map(is_code, lines_of(path))) for path in paths}
    total = sum(sizes.values())
    return {path: max(MIN_PER_FILE, -(-count * size // total)) for path, size in sizes.items()}


def build():
    """Builds the sources, optimized so that most equivalent mutants give the same code."""
    options = ["-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-Os"]
    subprocess.run(
        ["cmake", "-S", ROOT, "-B", BUILD, "-G", "Ninja", *options],
        check=True,
        stdout=subprocess.DEVNULL,
    )
    subprocess.run(["cmake", "--build", BUILD], check=True, stdout=subprocess.DEVNULL)


def compilations():
    """The compilations of each source, which may be part of several libraries."""
    found = collections.defaultdict(list)
    for entry in json.loads((BUILD / "compile_commands.json").read_text(encoding="utf-8")):
        command = shlex.split(entry["command"])
        target = command[command.index("-o") + 1]
        directory, library = re.fullmatch(r"(?:(.*)/)?CMakeFiles/([^/]+)\.dir/.*", target).groups()
        archive = f"{directory}/lib{library}.a"
        path = os.path.relpath(entry["file"], ROOT)
        found[path].append(Compilation(command, entry["file"], target, archive))
    return found


def fast_tests():
    """The tests that run a program of the build directory; the end-to-end tests do not."""
    shown = json.loads(output_of("ctest", "--test-dir", BUILD, "--show-only=json-v1"))
    tests = []
    for entry in shown["tests"]:
        programs = [word for word in entry["command"] if is_built_program(word)]
        if programs:
            target = os.path.relpath(programs[0], BUILD)
            commands = output_of("ninja", "-C", BUILD, "-t", "commands", target)
            link = shlex.split(commands.splitlines()[-1])
            # CMake's command is ": && LINKER ... && :".
            link = link[link.index("&&") + 1 : len(link) - link[::-1].index("&&") - 1]
            tests.append(Test(entry["name"], entry["command"], programs[0], link))
    return tests


def is_built_program(word):
    return BUILD in pathlib.Path(word).parents and os.path.isfile(word) and os.access(word, os.X_OK)


def passes(command):
    sandbox = ["bwrap", "--unshare-pid", "--die-with-parent", "--new-session"]
    sandbox += ["--ro-bind", "/", "/", "--proc", "/proc", "--dev", "/dev"]
    sandbox += ["--size", str(FILE_SIZE), "--tmpfs", "/tmp", "--ro-bind", BUILD, BUILD]
    sandbox += ["--ro-bind", ROOT, ROOT, "--chdir", "/tmp"]
    try:
        result = subprocess.run(
            sandbox + command,
            check=False,
            timeout=SECONDS,
            preexec_fn=limit_resources,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            env={**os.environ, "GTEST_FAIL_FAST": "1"},
        )
        return result.returncode == 0
    except subprocess.TimeoutExpired:
        return False


def tests_by_time():
    """The fast tests, the fastest first. All of them must pass without a change."""
    timed = []
    for test in fast_tests():
        begin = time.monotonic()
        if not passes(test.command):
            sys.exit(f"{test.name} fails without any change")
        timed.append((time.monotonic() - begin, test))
    return [test for _, test in sorted(timed)]


def is_explained(mutant):
    """Whether mutation_explained.txt has the mutant: a path, the new line, and then the reason."""
    for block in EXPLAINED.read_text(encoding="utf-8").split("\n\n"):
        path, *lines = block.strip().splitlines()
        if path == mutant.path and lines[0].strip() == shown(mutant.new):
            return True
    return False


def shown(line):
    return " ".join(line.split())


def limit_resources():
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
    resource.setrlimit(resource.RLIMIT_FSIZE, (FILE_SIZE, FILE_SIZE))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


class Judge:
    """Decides on the mutants of one source."""

    def __init__(self, path, ways, tests):
        self.path = path
        self.ways = ways
        *_, directory, name = path[: -len(".cpp")].split("/")
        self.tests = sorted(
            (test for test in tests if any(uses(test.link, way) for way in ways)),
            key=lambda test: (
                test.name != f"{directory}_{name}_test",
                not test.name.startswith(directory + "_"),
            ),
        )
        self.directory = pathlib.Path(tempfile.mkdtemp(dir=BUILD, prefix="mutants-"))
        self.seen = {self.code([BUILD / way.object for way in ways])}

    def code(self, objects):
        return hashlib.sha256(b"".join(path.read_bytes() for path in objects)).digest()

    def compile(self, mutant):
        """One object for each compilation of the source; None if the mutant does not compile."""
        lines = lines_of(self.path)
        lines[mutant.line - 1] = mutant.new
        # The object may contain the name of the source, so it stays the same.
        source = self.directory / os.path.basename(self.path)
        source.write_text("".join(lines), encoding="utf-8")
        objects = []
        for number, way in enumerate(self.ways):
            objects.append(self.directory / str(number) / os.path.basename(way.object))
            objects[-1].parent.mkdir(exist_ok=True)
            exchange = {way.source: str(source), way.object: str(objects[-1])}
            command = [exchange.get(word, word) for word in way.command]
            if subprocess.run(
                command, cwd=BUILD, check=False, stderr=subprocess.DEVNULL
            ).returncode:
                return None
        return objects

    def link(self, test, objects):
        """Links a test's program with the mutant in place of the source."""
        program = self.directory / "program"
        command = list(test.link)
        command[command.index("-o") + 1] = str(program)
        for way, changed in zip(self.ways, objects):
            exchange = {way.object: str(changed)}
            if way.archive in command:
                exchange[way.archive] = self.archive(way, changed)
            command = [exchange.get(word, word) for word in command]
        linked = subprocess.run(command, cwd=BUILD, check=False, stderr=subprocess.DEVNULL)
        return str(program) if linked.returncode == 0 else None

    def archive(self, way, changed):
        """Copies the archive and replaces the source's object with the mutant's."""
        copy = changed.parent / os.path.basename(way.archive)
        shutil.copy(BUILD / way.archive, copy)
        subprocess.run(["ar", "rs", copy, changed], check=True)
        return str(copy)

    def verdict(self, mutant):
        objects = self.compile(mutant)
        if objects is None:
            return "does not build"
        code = self.code(objects)
        if code in self.seen:
            return "same code"
        self.seen.add(code)
        for test in self.tests:
            program = self.link(test, objects)
            if program is None:
                return "does not build"
            if not passes([program if word == test.program else word for word in test.command]):
                return "killed by " + test.name
        return "explained" if is_explained(mutant) else "survived"

    def run(self, mutants, quota):
        """Judges mutants until `quota` of them were killed, survived or are explained."""
        results = []
        counted = 0
        for mutant in mutants:
            if counted == quota:
                break
            results.append((mutant, self.verdict(mutant)))
            counted += results[-1][1].startswith(("killed", "survived", "explained"))
        shutil.rmtree(self.directory)
        return results


def uses(link, way):
    return way.object in link or way.archive in link


def report(results):
    with open(BUILD / "results.json", "w", encoding="utf-8") as file:
        json.dump([{**m._asdict(), "verdict": verdict} for m, verdict in results], file, indent=1)
    verdicts = collections.Counter(verdict.split(" by ")[0] for _, verdict in results)
    survived = verdicts["survived"]
    counted = survived + verdicts["killed"] + verdicts["explained"]
    print(
        f"\n{counted} mutants: {verdicts['killed']} killed, {survived} survived "
        f"({100 * survived / counted:.1f} %), {verdicts['explained']} explained; "
        f"{verdicts['does not build']} do not build, {verdicts['same code']} give the same code"
    )
    return 0 if survived < MAX_SURVIVORS * counted else 1


def main():
    count, seed, *chosen = sys.argv[1:]
    build()
    ways = compilations()
    tests = tests_by_time()
    results = []
    printing = threading.Lock()

    def judge(path, mutants, quota):
        found = Judge(path, ways[path], tests).run(mutants, quota)
        verdicts = collections.Counter(verdict.split(" by ")[0] for _, verdict in found)
        with printing:
            results.extend(found)
            print(f"{path}: {dict(verdicts)}", flush=True)
            for mutant, verdict in found:
                if verdict == "survived":
                    print(f"{path}:{mutant.line}: survived")
                    print(f"  - {shown(mutant.old)}\n  + {shown(mutant.new)}", flush=True)

    wanted = sorted(quotas(chosen or source_paths(), int(count)).items(), key=lambda e: -e[1])
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        jobs = [pool.submit(judge, path, mutants_of(path, seed), quota) for path, quota in wanted]
        for job in jobs:
            job.result()
    sys.exit(report(results))


main()
