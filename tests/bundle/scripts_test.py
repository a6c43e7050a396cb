"""Runs the scripts for macOS where something is missing or wrong, in a copy of the project.

Each must end with one sentence that says what to do, and leave nothing half-built behind. Linux only:
the tools that a case takes away or replaces are those of Linux.
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

# What the scripts use before they look for their tools.
BASIC_TOOLS = "bash basename cat cmp cut dirname env grep id mkdir rm uname".split()


class ScriptTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.project = pathlib.Path(folder.name) / "a project"
        for name in ("scripts", "cmake"):
            shutil.copytree(ROOT / name, self.project / name)
        self.tools = self.project / "tools"
        self.tools.mkdir()
        self.environment = {"PATH": f"{self.tools}:{os.environ['PATH']}", "HOME": folder.name}
        self.build = self.project / "build"

    def tool(self, name, text):
        """Puts a shell script before the tool `name` of the system."""
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
        """The script ends with exactly this on stderr, and status 1."""
        result = self.run_script(name, *arguments)
        self.assertRegex(result.stderr, rf"\A{re.escape(os.path.basename(name))}: {pattern}\n\Z")
        self.assertEqual(result.returncode, 1)
        self.assertFalse((self.build / "macos" / "Kestrane.app").exists())
        self.assertEqual(list(self.build.rglob("*partial*")), [])


@unittest.skipUnless(sys.platform == "linux", "the tools replaced here are those of Linux")
class Scripts(ScriptTest):
    def have_compiler(self, zig="/bin/false"):
        """An environment that is complete, with `zig` as the compiler."""
        python = self.build / "venv/zig/bin/python"
        python.parent.mkdir(parents=True)
        python.write_text(f"#!/bin/sh\necho {zig}\n")
        python.chmod(0o755)
        shutil.copy(ROOT / "scripts/requirements/zig.txt", self.build / "venv/zig/requirements.txt")

    def have_sources(self):
        folder = self.build / "cache/sources"
        folder.mkdir(parents=True)
        for name in SOURCES:
            shutil.copy(ROOT / "build/cache/sources" / name, folder)

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

    def test_no_virtual_environment(self):
        self.tool(
            "python3", "[ $1 = -c ] || { echo 'The environment was not created' >&2; exit 1; }"
        )
        self.expect_failure("python3 cannot make an environment .*python3-venv.*")
        self.assertFalse((self.build / "venv/zig").exists())

    def test_python_without_its_modules_for_environments(self):
        self.tool("python3", "exit 1")
        self.tool("apt-get", "exit 100")
        self.expect_failure("These packages are missing .*: python3-venv; .*")

    def test_wheel_that_cannot_be_had(self):
        self.environment |= {"PIP_NO_INDEX": "1", "PIP_FIND_LINKS": "/nowhere"}
        self.expect_failure("pip cannot get the wheels .* check the network .*")
        self.assertFalse((self.build / "venv/zig").exists())

    def test_wheel_with_a_wrong_checksum(self):
        (self.project / "ziglang-0.15.2-py3-none-any.whl").write_bytes(b"something else")
        self.environment |= {"PIP_NO_INDEX": "1", "PIP_FIND_LINKS": self.project.as_uri()}
        self.expect_failure(
            "A wheel has another checksum than scripts/requirements/zig.txt says .*"
        )
        self.assertFalse((self.build / "venv/zig").exists())

    def test_environment_of_an_interrupted_run_is_made_anew(self):
        self.have_compiler()
        (self.build / "venv/zig/requirements.txt").unlink()
        self.environment |= {"PIP_NO_INDEX": "1", "PIP_FIND_LINKS": "/nowhere"}
        self.expect_failure("pip cannot get the wheels .*")
        self.assertFalse((self.build / "venv/zig").exists())

    def test_source_package_that_cannot_be_had(self):
        self.have_compiler()
        self.tool("apt-get", "echo 'E: Unable to fetch' >&2; exit 100")
        self.expect_failure("The source package libjsoncpp 1.9.5-4 cannot be had .*")
        self.assertFalse((self.build / "deps").exists())

    def test_source_package_that_apt_does_not_leave(self):
        self.have_compiler()
        self.tool("apt-get", "exit 0")
        self.expect_failure("The source package libjsoncpp 1.9.5-4 cannot be had .*")

    def test_source_package_with_a_wrong_checksum(self):
        self.have_compiler()
        self.tool("apt-get", f"echo something else >{SOURCES[0]}")
        self.expect_failure(f"The checksum of {SOURCES[0]} is not the one .*")
        self.assertFalse((self.build / "cache/sources" / SOURCES[0]).exists())

    def test_changed_source_in_the_cache_is_not_used(self):
        self.have_compiler()
        self.have_sources()
        with (self.build / "cache/sources" / SOURCES[1]).open("ab") as file:
            file.write(b"more")
        self.tool("apt-get", "exit 100")
        self.expect_failure("The source package googletest 1.12.1-0.2 cannot be had .*")

    def test_library_that_does_not_build(self):
        self.have_compiler()
        self.have_sources()
        self.expect_failure(f"{re.escape(SOURCES[0])} does not build .*")
        self.assertEqual(list((self.build / "deps").glob("*/")), [])

    def test_build_that_fails_leaves_no_older_bundle(self):
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
        self.expect_failure(
            "The tests built for macOS run on a Mac only; .*", "macos/build.sh", "--test"
        )

    def test_unknown_argument(self):
        self.expect_failure("The one argument known is --test.", "macos/build.sh", "--tset")

    def test_check_without_a_bundle(self):
        self.expect_failure(
            "There is no bundle build/macos/Kestrane.app; .*", "macos/check_bundle.sh"
        )

    def test_signing_on_linux(self):
        self.expect_failure("Only a Mac can sign; .*", "macos/sign_bundle.sh")


@unittest.skipUnless(sys.platform == "linux", "a Mac has a codesign of its own")
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

    def test_stops_at_the_first_that_fails(self):
        self.environment["FAIL_AT"] = "Any.app/Contents/Frameworks/liba.dylib"
        result = self.run_script("macos/sign_bundle.sh", "-", "Any.app")
        self.assertEqual(result.returncode, 1)
        self.assertRegex(
            result.stderr, r"^sign_bundle.sh: codesign cannot sign Any.app/.*liba.dylib;"
        )
        self.assertEqual(len(self.calls()), 1)


if __name__ == "__main__":
    unittest.main()
