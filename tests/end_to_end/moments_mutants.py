"""Checks that moments.py detects changed launchers.

Each of these changes reorders steps that the supervisors and the SIGTERM handler rely on. With any
of them, the sweep must fail; with the unchanged launcher, it must pass.
"""

import os
import pathlib
import shlex
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ["KESTRANE_BUILD"])
PROGRAM = "Kestrane.app/Contents/MacOS/launcher"

FLAG = "    m_running = false;\n"
KILL = "    kill(m_pid, SIGKILL);\n"
JOIN = """    if (m_thread != nullptr && m_thread->joinable()) {
        m_thread->join();
    }
"""
CLEAR = """    if (!g_child_map.empty()) {
        g_child_map.clear();
    }
"""
NOTIFY = "    g_process_condition.notify_all();\n"
STOP = "    Stop();\n"
LOOP = "    while (m_running) {\n        std::string program"
FORK = "        m_pid = fork();\n"
ENDED = "kItemEnded, m_name.c_str(), m_pid, result, wait_status);\n"

# Each: what it does, the source, and the replacements as pairs of old and new text, in order.
MUTANTS = [
    (
        "the flag is cleared after the kill",
        "launcher/child_proc.cpp",
        [("::Stop()\n{\n" + FLAG, "::Stop()\n{\n"), (KILL, KILL + FLAG)],
    ),
    (
        "main is notified before the map is cleared",
        "launcher/main.cpp",
        [(NOTIFY, ""), (CLEAR, NOTIFY + CLEAR)],
    ),
    (
        "the supervisor is joined before the kill",
        "launcher/child_proc.cpp",
        [(STOP + JOIN, JOIN + STOP)],
    ),
    (
        "the process id is reset after the wait",
        "launcher/child_proc.cpp",
        [(ENDED, ENDED + "    m_pid = 0;\n")],
    ),
    (
        "the flag is checked after the fork",
        "launcher/child_proc.cpp",
        [
            (LOOP, LOOP.replace("m_running", "true")),
            (FORK, FORK + "if (m_pid > 0 && !m_running) break;\n"),
        ],
    ),
]


def changed(source, changes):
    text = (ROOT / source).read_text(encoding="utf-8")
    for old, new in changes:
        if text.count(old) != 1:
            sys.exit(f"{source} must contain this exactly once: {old}")
        text = text.replace(old, new)
    return text


def build(number, source, text):
    """Returns a stage whose launcher is built from the changed text."""
    directory = BUILD / "moments_mutants" / str(number)
    shutil.rmtree(directory, ignore_errors=True)
    shutil.copytree(BUILD / "stage", directory / "stage", symlinks=True)
    changed_source = directory / pathlib.Path(source).name
    changed_source.write_text(text, encoding="utf-8")
    commands = subprocess.run(
        ["ninja", "-C", BUILD, "-t", "commands", "launcher/launcher"],
        check=True,
        stdout=subprocess.PIPE,
        text=True,
    ).stdout.splitlines()
    compile_command = next(line for line in commands if line.endswith(f" -c {ROOT / source}"))
    words = shlex.split(compile_command)
    original = words[words.index("-o") + 1]
    changed_object = f"{changed_source}.o"
    for option in ("-MD", "-MT", "-MF"):
        at = words.index(option)
        del words[at : at + (1 if option == "-MD" else 2)]
    words[words.index("-o") + 1] = changed_object
    words[words.index("-c") + 1] = str(changed_source)
    subprocess.run(words, cwd=BUILD, check=True)

    link = next(line for line in commands if " -o launcher/launcher " in line)
    words = shlex.split(link.removeprefix(": && ").removesuffix(" && :"))
    if original in words:
        words[words.index(original)] = changed_object
    else:
        # The original is in a library. With the changed object, the linker does not need it.
        words.insert(words.index("-o"), changed_object)
    program = directory / "stage" / PROGRAM
    words[words.index("-o") + 1] = str(program)
    program.unlink()
    subprocess.run(words, cwd=BUILD, check=True)
    return directory / "stage"


def is_caught(stage):
    """Whether the sweep of this launcher fails; prints why."""
    variables = {"KESTRANE_STAGE": str(stage), "KESTRANE_MOMENTS": "--items 1 --until-failure"}
    done = subprocess.run(
        [sys.executable, "-B", ROOT / "tests/end_to_end/moments.py"],
        env={**os.environ, **variables},
        stdout=subprocess.PIPE,
        text=True,
        check=False,
    )
    failures = [line for line in done.stdout.splitlines() if line.startswith("FAILED: ")]
    print("\n".join(failures[:3]) or done.stdout[-2000:])
    return done.returncode == 1 and bool(failures)


def main():
    missed = 0
    for number, (name, source, changes) in enumerate(MUTANTS):
        print(f"-- {name}", flush=True)
        missed += not is_caught(build(number, source, changed(source, changes)))
    print("-- the launcher itself", flush=True)
    missed += is_caught(BUILD / "stage")
    print(f"{len(MUTANTS)} changed launchers, {missed} wrong results")
    sys.exit(1 if missed else 0)


if __name__ == "__main__":
    main()
