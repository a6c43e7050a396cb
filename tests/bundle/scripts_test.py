"""Runs the scripts in a copy of the project where a tool is missing or fails.

Each script must end with one sentence that says what to do, and leave nothing incomplete behind.
Linux only, because the tools that are removed or replaced here are Linux tools.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).parents[2]
SOURCES = (
    "libjsoncpp_1.9.5.orig.tar.gz",
    "googletest_1.12.1.orig.tar.gz",
    "cli11_2.1.2+ds.orig.tar.xz",
)

# The commands that scripts use before they check for their tools.
BASIC_TOOLS = "bash basename cat cmp cut dirname env grep id mkdir rm uname".split()


class ScriptTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.project = pathlib.Path(directory.name) / "a projäct"
        for name in ("scripts", "cmake"):
            shutil.copytree(ROOT / name, self.project / name)
        self.tools = self.project / "tools"
        self.tools.mkdir()
        self.environment = {"PATH": f"{self.tools}:{os.environ['PATH']}", "HOME": directory.name}
        self.build = self.project / "build"

    def tool(self, name, text):
        """Replaces the system's tool `name` with a shell script."""
        (self.tools / name).write_text("#!/bin/bash\n" + text)
        (self.tools / name).chmod(0o755)

    def run_script(self, name, *arguments):
        return subprocess.run(
            [self.project / "scripts" / name, *arguments],
            env=self.environment,
            capture_output=True,
            text=True,
            check=False,
        )

    def expect_failure(self, pattern, name="macos/build.sh", *arguments):
        """Expects the script to print exactly this on stderr and to exit with status 1."""
        result = self.run_script(name, *arguments)
        self.assertRegex(result.stderr, rf"\A{re.escape(os.path.basename(name))}: {pattern}\n\Z")
        self.assertEqual(result.returncode, 1)
        self.assertFalse((self.build / "macos" / "Kestrane.app").exists())
        self.assertEqual(list(self.build.rglob("*partial*")), [])


@unittest.skipUnless(sys.platform == "linux", "replaces tools of Linux")
class Scripts(ScriptTest):
    def have_compiler(self, zig="/bin/false"):
        """Creates a complete environment with `zig` as the compiler."""
        python = self.build / "venv/zig/bin/python"
        python.parent.mkdir(parents=True)
        python.write_text(f"#!/bin/sh\necho {zig}\n")
        python.chmod(0o755)
        shutil.copy(ROOT / "scripts/requirements/zig.txt", self.build / "venv/zig/requirements.txt")

    def have_sources(self):
        directory = self.build / "cache/sources"
        directory.mkdir(parents=True)
        for name in SOURCES:
            shutil.copy(ROOT / "build/cache/sources" / name, directory)

    def test_missing_tool_that_cannot_be_installed(self):
        for name in BASIC_TOOLS:
            (self.tools / name).symlink_to(shutil.which(name))
        self.environment["PATH"] = str(self.tools)
        missing = "cmake ninja-build llvm-14; install them and start again."
        self.expect_failure(
            rf"These packages are missing and cannot be installed \(.*\): {missing}"
        )

    def test_missing_tool_and_no_network(self):
        for name in BASIC_TOOLS:
            (self.tools / name).symlink_to(shutil.which(name))
        self.tool("apt-get", "echo 'E: Unable to fetch' >&2; exit 100")
        self.environment["PATH"] = str(self.tools)
        self.expect_failure("These packages are missing and cannot be installed .*")

    def test_user_who_cannot_install_gets_one_message(self):
        for name in [*BASIC_TOOLS, "env"]:
            if name != "id":
                (self.tools / name).unlink(missing_ok=True)
                (self.tools / name).symlink_to(shutil.which(name))
        self.tool("id", "echo 1000")
        self.tool("apt-get", "echo 'E: Permission denied' >&2; exit 100")
        self.tool("sudo", "echo 'sudo: a password is required' >&2; exit 1")
        self.environment["PATH"] = str(self.tools)
        packages = r"cmake ninja-build g\+\+ python3 .*"
        message = "Packages are missing. Run this as root, then start again: apt-get install "
        any_file = self.project / "scripts/test.sh"
        for script, *arguments in (("test.sh",), ("demo.sh", any_file), ("check/soak.sh",)):
            with self.subTest(script):
                result = self.run_script(script, *arguments)
                self.assertEqual(result.returncode, 1)
                self.assertRegex(result.stderr, rf"\A{re.escape(message)}{packages}\n\Z")

    def test_no_virtual_environment(self):
        self.tool(
            "python3", "[ $1 = -c ] || { echo 'The environment was not created' >&2; exit 1; }"
        )
        self.expect_failure("python3 cannot create an environment .*python3-venv.*")
        self.assertFalse((self.build / "venv/zig").exists())

    def test_python_without_its_modules_for_environments(self):
        self.tool("python3", "exit 1")
        self.tool("apt-get", "exit 100")
        self.expect_failure("These packages are missing .*: python3-venv; .*")

    def test_wheel_that_cannot_be_downloaded(self):
        self.environment |= {"PIP_NO_INDEX": "1", "PIP_FIND_LINKS": "/missing"}
        self.expect_failure("pip cannot download the wheels .* check the network .*")
        self.assertFalse((self.build / "venv/zig").exists())

    def test_wheel_with_a_wrong_checksum(self):
        (self.project / "ziglang-0.15.2-py3-none-any.whl").write_bytes(b"something else")
        self.environment |= {"PIP_NO_INDEX": "1", "PIP_FIND_LINKS": self.project.as_uri()}
        self.expect_failure("The checksum of a wheel differs from scripts/requirements/zig.txt .*")
        self.assertFalse((self.build / "venv/zig").exists())

    def test_environment_of_an_interrupted_run_is_replaced(self):
        self.have_compiler()
        (self.build / "venv/zig/requirements.txt").unlink()
        self.environment |= {"PIP_NO_INDEX": "1", "PIP_FIND_LINKS": "/missing"}
        self.expect_failure("pip cannot download the wheels .*")
        self.assertFalse((self.build / "venv/zig").exists())

    def test_incomplete_schema_validator_is_replaced(self):
        self.tool("brew", "exit 0")
        interrupted = self.build / "venv/schema/bin/python3"
        interrupted.parent.mkdir(parents=True)
        interrupted.touch(mode=0o755)
        self.environment |= {"PIP_NO_INDEX": "1", "PIP_FIND_LINKS": "/missing"}
        message = "pip cannot download the wheels of scripts/requirements/schema.txt .*"
        self.expect_failure(message, "test.sh")
        self.assertFalse((self.build / "venv/schema").exists())

    def test_source_package_that_cannot_be_downloaded(self):
        self.have_compiler()
        self.tool("apt-get", "echo 'E: Unable to fetch' >&2; exit 100")
        self.expect_failure("The source package libjsoncpp 1.9.5-4 cannot be downloaded .*")
        self.assertFalse((self.build / "deps").exists())

    def test_source_package_that_apt_does_not_store(self):
        self.have_compiler()
        self.tool("apt-get", "exit 0")
        self.expect_failure("The source package libjsoncpp 1.9.5-4 cannot be downloaded .*")

    def test_source_package_with_a_wrong_checksum(self):
        self.have_compiler()
        self.tool("apt-get", f"echo something else >{SOURCES[0]}")
        self.expect_failure(
            f"The checksum of {SOURCES[0]} differs from scripts/lib/libraries.sh; .*"
        )
        self.assertFalse((self.build / "cache/sources" / SOURCES[0]).exists())

    def test_changed_source_in_the_cache_is_not_used(self):
        self.have_compiler()
        self.have_sources()
        with (self.build / "cache/sources" / SOURCES[1]).open("ab") as file:
            file.write(b"more")
        self.tool("apt-get", "exit 100")
        self.expect_failure("The source package googletest 1.12.1-0.2 cannot be downloaded .*")

    def test_library_that_does_not_build(self):
        self.have_compiler()
        self.have_sources()
        self.expect_failure(f"Building {re.escape(SOURCES[0])} failed .*")
        self.assertEqual(list((self.build / "deps").glob("*/")), [])

    def test_failed_build_removes_an_older_bundle(self):
        self.have_compiler()
        self.have_sources()
        (self.build / "macos/Kestrane.app").mkdir(parents=True)
        self.tool(
            "cmake",
            f"""
            [ "$1" != -E ] || exec {shutil.which("cmake")} "$@"
            [ "$2" != . ] || exit 1
            for argument; do
                case "$argument" in
                    -DCMAKE_INSTALL_PREFIX=*) mkdir -p "${{argument#*=}}" ;;
                esac
            done
            """,
        )
        self.expect_failure("CMake cannot configure the build for arm64; .*")

    def test_tests_for_macos_on_linux(self):
        self.expect_failure("The macOS tests run on a Mac only; .*", "macos/build.sh", "--test")

    def test_unknown_argument(self):
        self.expect_failure(
            'Unknown argument "--tset"; only --test is supported.', "macos/build.sh", "--tset"
        )

    def test_check_without_a_bundle(self):
        self.expect_failure(
            "The bundle build/macos/Kestrane.app does not exist; .*", "macos/check_bundle.sh"
        )

    def test_signing_on_linux(self):
        self.expect_failure("Signing needs a Mac; .*", "macos/sign_bundle.sh")


@unittest.skipUnless(sys.platform == "linux", "a Mac has a real codesign")
class SignBundle(ScriptTest):
    def setUp(self):
        super().setUp()
        self.tool("uname", "echo Darwin")
        self.tool("codesign", 'echo "$@" >>codesign.log; [ "${!#}" != "$FAIL_AT" ]')
        self.contents = self.project / "Any.app/Contents"
        for name in (
            "MacOS/launcher",
            "MacOS/another",
            "Frameworks/liba.dylib",
            "Frameworks/a.ini",
        ):
            (self.contents / name).parent.mkdir(parents=True, exist_ok=True)
            (self.contents / name).touch()

    def calls(self):
        return (self.project / "codesign.log").read_text().splitlines()

    def test_signs_from_the_inside_out(self):
        for identity, options in (("-", ""), ("Some One", " --options runtime --timestamp")):
            with self.subTest(identity):
                (self.project / "codesign.log").unlink(missing_ok=True)
                result = self.run_script("macos/sign_bundle.sh", identity, "Any.app")
                self.assertEqual((result.returncode, result.stderr), (0, ""))
                sign = f"--force --sign {identity}{options} Any.app"
                expected = [
                    f"{sign}/Contents/Frameworks/liba.dylib",
                    f"{sign}/Contents/MacOS/another",
                    sign,
                    "--verify --deep --strict Any.app",
                ]
                self.assertEqual(self.calls(), expected)

    def test_stops_at_the_first_failure(self):
        self.environment["FAIL_AT"] = "Any.app/Contents/Frameworks/liba.dylib"
        result = self.run_script("macos/sign_bundle.sh", "-", "Any.app")
        self.assertEqual(result.returncode, 1)
        self.assertRegex(
            result.stderr, r"^sign_bundle.sh: codesign cannot sign Any.app/.*liba.dylib;"
        )
        self.assertEqual(len(self.calls()), 1)


if __name__ == "__main__":
    unittest.main()
