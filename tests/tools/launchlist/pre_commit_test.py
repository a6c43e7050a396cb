"""Runs the hooks of .pre-commit-hooks.yaml with pre-commit, in a repository that uses them.

    pre_commit_test.py LAUNCHLIST

Needs git, and pre-commit in the Python that runs this; scripts/check/pre_commit.sh has both.
"""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

HOOKS = pathlib.Path(__file__).resolve().parents[3] / ".pre-commit-hooks.yaml"

CONFIGURATION = """repos:
  - repo: {repository}
    rev: {revision}
    hooks:
      - id: launchlist-fix
      - id: launchlist-check
        args: [--fail-on, error]
"""

WITH_A_GAP = '{"1": {"name": "a", "program": "/bin/sh"}}'
CORRECT = '{"0": {"name": "a", "program": "/bin/sh"}}'
WITH_AN_ERROR = '{"0": {"name": "a", "program": "/bin/sh"}, "1": []}'
WITH_A_WARNING = '{"0": {"name": "a", "program": "/bin/sh", "color": 1}}'


class PreCommit(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)
        self.environment = {
            **os.environ,
            "HOME": directory.name,
            "PATH": f"{pathlib.Path(LAUNCHLIST).parent}:{os.environ['PATH']}",
            "PRE_COMMIT_HOME": str(self.directory / "cache"),
            "GIT_CONFIG_NOSYSTEM": "1",
            "GIT_AUTHOR_NAME": "a",
            "GIT_AUTHOR_EMAIL": "a@example.org",
            "GIT_COMMITTER_NAME": "a",
            "GIT_COMMITTER_EMAIL": "a@example.org",
        }
        hooks = self.repository("hooks", {".pre-commit-hooks.yaml": HOOKS.read_text("utf-8")})
        self.git(hooks, "commit", "--quiet", "--message", "hooks")
        self.configuration = CONFIGURATION.format(
            repository=hooks, revision=self.git(hooks, "rev-parse", "HEAD").strip()
        )

    def run_in(self, directory, *command, statuses=(0,)):
        result = subprocess.run(
            command,
            cwd=directory,
            env=self.environment,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            check=False,
        )
        self.assertIn(result.returncode, statuses, result.stdout)
        return result.stdout

    def git(self, directory, *arguments):
        return self.run_in(directory, "git", *arguments)

    def repository(self, name, files):
        path = self.directory / name
        path.mkdir()
        self.git(path, "init", "--quiet")
        for file, text in files.items():
            (path / file).parent.mkdir(exist_ok=True)
            (path / file).write_text(text, "utf-8")
        self.git(path, "add", "--all")
        return path

    def run_hooks(self, files, status):
        """The files after the hooks have run, and what was printed."""
        self.user = self.repository(
            f"user {len(list(self.directory.iterdir()))}",
            {**files, ".pre-commit-config.yaml": self.configuration},
        )
        output = self.run_in(
            self.user, sys.executable, "-m", "pre_commit", "run", "--all-files", statuses=(status,)
        )
        return {name: (self.user / name).read_text("utf-8") for name in files}, output

    def test_correct_lists_and_other_files_pass(self):
        files = {"launch-list.json": CORRECT, "a/b.launch-list.json": WITH_A_WARNING, "x.json": "["}
        after, output = self.run_hooks(files, 0)
        self.assertEqual(files, after)
        self.assertEqual(2, output.count("Passed"), output)

    def test_mistakes_are_corrected_or_reported(self):
        files = {"launch-list.json": WITH_A_GAP, "a/launch-list.json": WITH_AN_ERROR}
        after, output = self.run_hooks(files, 1)
        self.assertEqual({**files, "launch-list.json": CORRECT}, after)
        self.assertIn("files were modified by this hook", output)
        self.assertIn("a/launch-list.json:1:49: error: /1: the item must be an object", output)

    def test_the_manifest_is_valid(self):
        self.run_in(self.directory, sys.executable, "-m", "pre_commit", "validate-manifest", HOOKS)


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    LAUNCHLIST = os.path.abspath(sys.argv.pop(1))
    unittest.main()
