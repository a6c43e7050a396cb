"""Breaks programs and the model on purpose and checks that the tests then fail.

Run by scripts/macos/test.sh --self-test. Each case runs a test program unchanged, which must pass,
and again with one thing changed.
"""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
MACOS = os.path.join(os.path.dirname(os.path.dirname(HERE)), "build/macos")

sys.path.insert(0, HERE)

import stage  # noqa: E402  (the path is set just before)

# A run of run.py in which one definition of the model is replaced first.
BROKEN_MODEL = """
import sys
sys.path.insert(0, {here!r})
import libsystem
{change}
import run
run.run({architecture!r}, {directory!r}, {program!r}, [{program!r}, *sys.argv[1:]])
"""


class SelfTest(unittest.TestCase):
    def setUp(self):
        # A directory without cached images, whose reports are not mistaken for those of the tests.
        self.directory = tempfile.mkdtemp(dir=MACOS)
        self.addCleanup(shutil.rmtree, self.directory)
        os.symlink(f"{MACOS}/guest", f"{self.directory}/guest")

    def run_program(self, architecture, program, change="", arguments=()):
        """The exit status and the output of a test program."""
        code = BROKEN_MODEL.format(
            here=HERE, change=change, architecture=architecture, directory=self.directory,
            program=program,
        )  # fmt: skip
        command = [
            "bwrap",
            "--unshare-pid",
            "--die-with-parent",
            "--new-session",
            "--ro-bind",
            "/",
            "/",
        ]
        command += ["--proc", "/proc", "--dev", "/dev", "--tmpfs", "/tmp"]
        command += ["--bind", self.directory, self.directory, sys.executable, "-IB", "-c", code]
        done = subprocess.run(
            [*command, *arguments],
            env={**os.environ, "DYLD_LIBRARY_PATH": f"{MACOS}/{architecture}/qv7log"},
            stdin=subprocess.DEVNULL,
            capture_output=True,
            timeout=3600,
            check=False,
        )
        return done.returncode, (done.stdout + done.stderr).decode(errors="replace")

    @staticmethod
    def each():
        return [(name, f"{MACOS}/{name}/tests") for name in ("arm64", "x86_64")]

    def passes(self, *arguments, **options):
        status, output = self.run_program(*arguments, **options)
        self.assertEqual(0, status, output)

    def fails(self, *texts, program, **options):
        """Asserts that the program passes, and that with the change it fails in this way."""
        change = options.pop("change")
        self.passes(program=program, **options)
        status, output = self.run_program(program=program, change=change, **options)
        self.assertNotEqual(0, status, output)
        for text in texts:
            self.assertIn(text, output)

    def end_to_end(self, architecture, launcher):
        """The exit status and output of one end-to-end case with this launcher."""
        run = f"{MACOS}/{architecture}/run"
        staged = f"{self.directory}/{architecture}"
        shutil.copytree(f"{run}/stage", staged)
        script = f"{staged}/Kestrane.app/Contents/MacOS/launcher"
        stage.write_script(script, architecture, launcher)
        test = f"{stage.ROOT}/tests/end_to_end/plain_test.py"
        done = subprocess.run(
            [
                shutil.which("python3"),
                "-B",
                test,
                "Plain.test_an_invalid_list_exits_with_a_record",
            ],
            env={
                **os.environ,
                "KESTRANE_STAGE": staged,
                "KESTRANE_HELPERS": f"{run}/helpers",
                "KESTRANE_OTHER_LOG": f"{run}/other_log",
                "KESTRANE_DEADLINE": "300",
            },
            capture_output=True,
            check=False,
        )
        shutil.rmtree(staged)
        return done.returncode, done.stdout.decode(errors="replace")

    def test_a_changed_constant(self):
        launcher = f"{stage.BUNDLE}/Contents/MacOS/launcher"
        broken = f"{self.directory}/broken"
        with open(launcher, "rb") as file:
            content = file.read()
        text = b"Error while parsing saved json string."
        self.assertIn(text, content)
        with open(broken, "wb") as file:
            file.write(content.replace(text, text.replace(b"json", b"Json")))
        for architecture, _ in self.each():
            status, output = self.end_to_end(architecture, launcher)
            self.assertEqual(0, status, output)
            status, output = self.end_to_end(architecture, broken)
            self.assertEqual(1, status, output)
            self.assertIn("saved Json string", output)

    def test_an_import_bound_to_another_function(self):
        change = (
            "import images; find = images.read_binding\n"
            "images.FORMAT = 'broken'  # nothing of it is kept for the program as it is\n"
            "def read(binding, base):\n"
            "    found = find(binding, base)\n"
            "    found.name = {'_memcmp': '_memchr'}.get(found.name, found.name)\n"
            "    return found\n"
            "images.read_binding = read"
        )
        for architecture, tests in self.each():
            # Searching for a delimiter of several characters compares memory.
            self.fails(
                "[  FAILED  ] TokenizeAt.FindsOccurrencesFromTheLeftWithoutOverlap",
                architecture=architecture,
                program=f"{tests}/util/util_split_test",
                change=change,
            )

    def test_a_wrong_errno(self):
        change = "import values; values._TO_MACOS[2] = 13"
        for architecture, tests in self.each():
            # The logger creates a directory only if an error says that it does not exist.
            self.fails(
                "Expected: (log) != (nullptr)",
                "[  FAILED  ] LogV.WritesLevelsFromTheThresholdOnAndAllWithVerbose",
                architecture=architecture,
                program=f"{tests}/qv7log/qv7log_logger_test",
                change=change,
            )

    def test_an_import_without_a_model(self):
        change = "from libsystem.registry import FUNCTIONS; del FUNCTIONS['_clock_gettime']"
        for architecture, tests in self.each():
            self.fails(
                "there is no model of clock_gettime",
                architecture=architecture,
                program=f"{tests}/util/util_path_test",
                change=change,
            )


if __name__ == "__main__":
    unittest.main()
