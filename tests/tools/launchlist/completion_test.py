"""Tests the completion of launchlist in a shell.

completion_test.py LAUNCHLIST bash|fish|zsh
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import unittest

SKIPPED = 77

FILES = ["helpers.json", "helpers 2.json", "other"]
LISTS = {"helpers.json", "helpers 2.json"}

# What is typed, and the completions.
LINES = [
    ("re", {"report"}),
    ("c", {"check", "completion"}),
    ("qq", set()),
    ("--v", {"--version"}),
    ("log --f", {"--file", "--follow"}),
    ("log -f --u", {"--until", "--utc"}),
    ("report --sort c", {"crashes"}),
    ("report --sort=st", {"starts"}),
    ("report --json --fail-on ", {"loop"}),
    ("completion z", {"zsh"}),
    ("completion ", {"bash", "fish", "zsh"}),
    ("check he", LISTS),
    ("check --json other he", LISTS),
    ("report --html o", {"other"}),
    ("report --trace=o", {"other"}),
    ("log --file o", {"other"}),
    ("log o", set()),
    ("log --since ", set()),
    ("report --launcher o", set()),
    ("report --item a --it", {"--item"}),
    # The first argument.
    ("explain he", LISTS),
    ("fix --fail-on error he", LISTS),
    ("status he", LISTS),
    ("status --json he", LISTS),
    ("status --watch he", LISTS),
    ("status --watch 5 he", LISTS),
    ("report he", LISTS),
    ("new he", set()),
    ("log he", set()),
    # Further ones.
    ("check other he", LISTS),
    ("check - he", LISTS),
    ("explain other he", set()),
    ("status other he", set()),
    ("status --watch 5 other he", set()),
    ("report --sort name other he", LISTS),
    ("log agent he", set()),
    ("log agent --f", {"--file", "--follow"}),
    ("log -n 5 agent --file he", LISTS),
    ("completion zsh b", set()),
    ("new agent he", LISTS),
    ("new agent /bin/sh he", set()),
    ("new agent /bin/sh -c he", set()),
    ("new --into other he", set()),
    ("new --into other agent he", LISTS),
    # Options of the program are not those of launchlist.
    ("new --in", {"--into"}),
    ("new agent --in", set()),
    ("new agent /bin/sh --in", set()),
]


def launchlist(*arguments):
    return subprocess.run([LAUNCHLIST, *arguments], stdout=subprocess.PIPE, check=True).stdout


class Completion(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)
        self.files = self.directory / "files"
        self.files.mkdir()
        for name in FILES:
            (self.files / name).touch()
        self.functions = self.directory / "functions"
        self.functions.mkdir()
        # Under the name that the installation gives it.
        name = {"bash": "launchlist", "fish": "launchlist.fish", "zsh": "_launchlist"}[SHELL]
        self.script = self.functions / name
        self.script.write_bytes(launchlist("completion", SHELL))

    def complete(self, lines):
        """The completions of each line, which follows "launchlist "."""
        return {"bash": self.in_bash, "fish": self.in_fish, "zsh": self.in_zsh}[SHELL](lines)

    def in_bash(self, lines):
        results = []
        for line in lines:
            # As bash splits it.
            words = ["launchlist", *re.split(r" |(?<==)|(?==)", line)]
            completed = self.run_shell(
                ["bash", "--norc", "--noprofile", "-c"],
                'script=$1; shift; . "$script"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1))\n'
                '_launchlist; printf "%s\\n" "${COMPREPLY[@]}"',
                ["bash", str(self.script), *words],
            )
            results.append(set(completed.splitlines()) - {""})
        return results

    def in_fish(self, lines):
        results = []
        for line in lines:
            completed = self.run_shell(
                ["fish", "--no-config", "-c"],
                "source $argv[1]; complete -C $argv[2]",
                [str(self.script), "launchlist " + line],
            )
            words = {word.split("\t")[0] for word in completed.splitlines()}
            # fish completes the whole of "--sort=starts".
            results.append({re.sub("^--[a-z]+=", "", word) for word in words})
        return results

    def run_shell(self, shell, script, arguments):
        result = subprocess.run(
            [*shell, script, *arguments],
            cwd=self.files,
            env={**os.environ, "HOME": str(self.directory)},
            stdin=subprocess.DEVNULL,
            capture_output=True,
            check=False,
        )
        self.assertEqual(b"", result.stderr)
        return result.stdout.decode()

    def in_zsh(self, lines):
        """Types each line on a terminal. A function in place of compadd notes what is added."""
        noted = self.directory / "noted"
        done = self.directory / "done"
        (self.directory / ".zshrc").write_text(
            f"""
            fpath=({self.functions} $fpath)
            autoload -Uz compinit
            compinit -D -u
            compadd() {{
                if [[ ${{@[1,(i)(-|--)]}} == *-(O|A|D)\\ * ]]; then
                    builtin compadd "$@"
                    return
                fi
                local -a added
                builtin compadd -A added "$@"
                print -rl -- $added >> {noted}
                builtin compadd "$@"
            }}
            note-end() {{
                BUFFER=
                print >> {done}
            }}
            zle -N note-end
            bindkey '^X' note-end
            bindkey '^I' complete-word
            setopt no_beep
            cd {self.files}
            print ready >> {done}
            """,
            encoding="utf-8",
        )
        controller, terminal = os.openpty()
        results = []
        with subprocess.Popen(
            ["zsh", "-i"],
            env={**os.environ, "ZDOTDIR": str(self.directory), "TERM": "vt100"},
            stdin=terminal,
            stdout=terminal,
            stderr=terminal,
            start_new_session=True,
        ) as process:
            os.close(terminal)
            threading.Thread(target=drain, args=(controller,), daemon=True).start()
            self.wait_for(done, 1)
            for count, line in enumerate(lines, 2):
                noted.write_text("", encoding="utf-8")
                os.write(controller, f"launchlist {line}\t\x18".encode())
                self.wait_for(done, count)
                # Matching is left to zsh, which is given all words of a kind.
                typed = re.split("[ =]", line)[-1]
                words = noted.read_text(encoding="utf-8").replace("\\", "").splitlines()
                results.append({word for word in words if word.startswith(typed)} - {""})
            process.kill()
        return results

    def wait_for(self, path, lines):
        end = time.monotonic() + 30
        while not path.exists() or path.read_text(encoding="utf-8").count("\n") < lines:
            if time.monotonic() > end:
                self.fail(f"timed out waiting for line {lines} of {path}")
            time.sleep(0.01)

    def test_what_can_follow(self):
        for (line, expected), found in zip(LINES, self.complete([line for line, _ in LINES])):
            with self.subTest(line):
                self.assertEqual(expected, {word.rstrip("=") for word in found})

    def test_every_subcommand_and_every_option_of_the_help(self):
        text = launchlist("--help").decode().split("Subcommands:", 1)[1]
        commands = re.findall(r"^  ([a-z]+) ", text.split("Example", 1)[0], re.MULTILINE)
        self.assertIn("report", commands)
        (found, *options) = self.complete(["", *(f"{command} --" for command in commands)])
        self.assertEqual(set(commands), {word for word in found if not word.startswith("-")})
        for command, found in zip(commands, options):
            with self.subTest(command):
                text = launchlist(command, "--help").decode()
                expected = re.findall(r"^  (?:-\w,)?(--[a-z-]+)", text, re.MULTILINE)
                self.assertIn("--help", expected)
                self.assertEqual(set(expected), {word.rstrip("=") for word in found})


def drain(descriptor):
    try:
        while os.read(descriptor, 4096):
            pass
    except OSError:
        pass  # The terminal was closed.


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    LAUNCHLIST = os.path.abspath(sys.argv.pop(1))
    SHELL = sys.argv.pop(1)
    if shutil.which(SHELL) is None:
        print(f"skipped: {SHELL} is not installed")
        sys.exit(SKIPPED)
    unittest.main()
