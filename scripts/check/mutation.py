"""Changes our sources in small ways and looks whether the tests notice.

    mutation.py COUNT SEED [FILE...]

Takes about COUNT changed sources ("mutants") that compile to other code than the original, spread
over all sources, or the given ones, in proportion to their lines. Links each into the fast tests
that use it, runs these, those of the source's own folder first, until one fails, and lists the
mutants that none fails on. The same seed gives the same sample.

mutation_explained.txt has the mutants that no test can tell from the original. They are counted
apart.

Every test runs in a PID namespace of its own: what kills a process may now kill another one.
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

FOLDERS = ("util", "json", "config", "logging", "launcher", "qv7log", "tools")
RULES = ["universal.rules", "c_like.rules", "cpp.rules"]
LEAST_PER_FILE = 3
MOST_SURVIVORS = 0.05
SECONDS = 40  # For one test; what runs longer hangs.
MEMORY = 4 << 30
FILE_SIZE = 256 << 20

ROOT = pathlib.Path.cwd()
BUILD = ROOT / "build" / "mutation"
EXPLAINED = pathlib.Path(__file__).with_name("mutation_explained.txt")

Mutant = collections.namedtuple("Mutant", "path line old new")
# A test, the program of ours that it runs, and how that one is linked.
Test = collections.namedtuple("Test", "name command program link")
# One compilation of a source: the command, the object, and the archive that holds it.
Compilation = collections.namedtuple("Compilation", "command source object archive")


def output_of(*command, **options):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, **options).stdout


def source_paths():
    # Those of the other platform are not compiled here.
    return [
        path
        for path in output_of("git", "ls-files", "*.cpp").split()
        if path.split("/")[0] in FOLDERS and "_mac." not in path
    ]


def lines_of(path):
    return (ROOT / path).read_text(encoding="utf-8").splitlines(keepends=True)


def is_code(line):
    return line.strip() not in ("", "{", "}") and not line.lstrip().startswith("//")


def mutants_of(path, seed):
    """All mutants of a source, in an order of the seed's own."""
    lines = lines_of(path)
    # It prints which rules it takes.
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
    """How many mutants each source gives."""
    sizes = {path: sum(map(is_code, lines_of(path))) for path in paths}
    total = sum(sizes.values())
    return {path: max(LEAST_PER_FILE, -(-count * size // total)) for path, size in sizes.items()}


def build():
    """Builds everything as it is, with the optimisation by which most equal code comes out equal."""
    options = ["-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-Os"]
    subprocess.run(
        ["cmake", "-S", ROOT, "-B", BUILD, "-G", "Ninja", *options],
        check=True,
        stdout=subprocess.DEVNULL,
    )
    subprocess.run(["cmake", "--build", BUILD], check=True, stdout=subprocess.DEVNULL)


def compilations():
    """How each source is compiled; a source may be part of several libraries."""
    found = collections.defaultdict(list)
    for entry in json.loads((BUILD / "compile_commands.json").read_text(encoding="utf-8")):
        command = shlex.split(entry["command"])
        target = command[command.index("-o") + 1]
        folder, library = re.fullmatch(r"(?:(.*)/)?CMakeFiles/([^/]+)\.dir/.*", target).groups()
        archive = f"{folder}/lib{library}.a"
        path = os.path.relpath(entry["file"], ROOT)
        found[path].append(Compilation(command, entry["file"], target, archive))
    return found


def fast_tests():
    """The tests that run a program of the build folder; end-to-end tests have an installed one."""
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
    """The fast tests, the fastest first; all of them pass."""
    timed = []
    for test in fast_tests():
        begin = time.monotonic()
        if not passes(test.command):
            sys.exit(f"Without any change {test.name} fails")
        timed.append((time.monotonic() - begin, test))
    return [test for _, test in sorted(timed)]


def is_explained(mutant):
    """Whether the table has it: blocks of a path, the new line, and the reason below them."""
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
    """Says what becomes of the mutants of one source."""

    def __init__(self, path, ways, tests):
        self.path = path
        self.ways = ways
        *_, folder, name = path[: -len(".cpp")].split("/")
        self.tests = sorted(
            (test for test in tests if any(uses(test.link, way) for way in ways)),
            key=lambda test: (
                test.name != f"{folder}_{name}_test",
                not test.name.startswith(folder + "_"),
            ),
        )
        self.folder = pathlib.Path(tempfile.mkdtemp(dir=BUILD, prefix="mutants-"))
        self.seen = {self.code([BUILD / way.object for way in ways])}

    def code(self, objects):
        return hashlib.sha256(b"".join(path.read_bytes() for path in objects)).digest()

    def compile(self, mutant):
        """The objects, one for each way to compile the source; None if it does not compile."""
        lines = lines_of(self.path)
        lines[mutant.line - 1] = mutant.new
        # Under the name of the source, which the object may hold.
        source = self.folder / os.path.basename(self.path)
        source.write_text("".join(lines), encoding="utf-8")
        objects = []
        for number, way in enumerate(self.ways):
            objects.append(self.folder / str(number) / os.path.basename(way.object))
            objects[-1].parent.mkdir(exist_ok=True)
            exchange = {way.source: str(source), way.object: str(objects[-1])}
            command = [exchange.get(word, word) for word in way.command]
            if subprocess.run(
                command, cwd=BUILD, check=False, stderr=subprocess.DEVNULL
            ).returncode:
                return None
        return objects

    def link(self, test, objects):
        """The program of a test with the mutant in place of the source."""
        program = self.folder / "program"
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
        """A copy of the archive with the mutant: nothing of the source is left in it."""
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
        """Judges mutants until enough of them count."""
        results = []
        counted = 0
        for mutant in mutants:
            if counted == quota:
                break
            results.append((mutant, self.verdict(mutant)))
            counted += results[-1][1].startswith(("killed", "survived", "explained"))
        shutil.rmtree(self.folder)
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
        f"{verdicts['does not build']} do not build, {verdicts['same code']} are the same code"
    )
    return 0 if survived < MOST_SURVIVORS * counted else 1


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
