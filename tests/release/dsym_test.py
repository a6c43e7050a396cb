"""Makes debug information that does not belong to the programs and expects the check to find it.

The programs here are small models in C. LIPO names the tool that joins architectures, ZIG the cross
compiler; scripts/release/self_test.sh sets both.
"""

import functools
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "scripts/release"))
import dsym  # noqa: E402

LIPO = os.environ["LIPO"]
ZIG = os.environ["ZIG"]
TARGETS = {"arm64": "aarch64-macos.11.0", "x86_64": "x86_64-macos.11.0"}

# As in the real sources, the names of the functions begin a line.
SOURCES = {
    "launcher/main.cpp": "int value = 1;\nint main(void) { return value; }\n",
    "tools/launchlist/main.cpp": "int value = 2;\n\nint main(void) { return value; }\n",
    "qv7log/logger.cpp": "int value = 3;\nint InitLogger(const char* p) { return value + p[0]; }\n",
}
PROGRAMS = dict(zip(dsym.PROGRAMS, SOURCES))

work = pathlib.Path()


def setUpModule():
    global work
    work = pathlib.Path(tempfile.mkdtemp()).resolve()
    unittest.addModuleCleanup(shutil.rmtree, work)


def run(*command):
    subprocess.run([str(word) for word in command], check=True, capture_output=True)


@functools.cache
def build(architecture, source, text, *options):
    """The program of one source, linked for dsymutil and to be shipped, and its debug information,
    which belongs to the latter."""
    directory = pathlib.Path(tempfile.mkdtemp(dir=work))
    file = directory / source
    file.parent.mkdir(parents=True)
    file.write_text(text)
    zig = [ZIG, "cc", "-target", TARGETS[architecture]]
    flags = ["-x", "c", "-O2", "-g", f"-ffile-prefix-map={directory}=/kestrane"]
    flags += ["-ffile-compilation-dir=/kestrane", *options]
    run(*zig, *flags, "-c", file, "-o", directory / "model.o")
    library = ["-shared", "-Wl,-install_name,x"] if "logger" in source else []
    linked, shipped, debug = directory / "linked", directory / "shipped", directory / "dsym"
    run(*zig, *library, directory / "model.o", "-o", linked)
    run(*zig, *library, "-Wl,-S", directory / "model.o", "-o", shipped)
    run("dsymutil-14", "--flat", linked, "-o", debug)
    dsym.adopt(shipped, linked, debug)
    return linked, shipped, debug


class Dsym(unittest.TestCase):
    def setUp(self):
        self.root = pathlib.Path(tempfile.mkdtemp(dir=work))
        for source, text in SOURCES.items():
            (self.root / source).parent.mkdir(parents=True, exist_ok=True)
            (self.root / source).write_text(text)
        for program, source in PROGRAMS.items():
            self.install(program, source)

    def paths(self, program):
        name = pathlib.Path(program).name
        resources = self.root / f"{name}.dSYM/Contents/Resources/DWARF"
        return self.root / "Kestrane.app/Contents" / program, resources / name

    def install(
        self, program, source, text=None, what=(0, 1), architectures=tuple(TARGETS), options=()
    ):
        """Joins the architectures of a program and of its debug information."""
        text = text or SOURCES[source]
        for index, path in enumerate(self.paths(program)):
            if index in what:
                path.parent.mkdir(parents=True, exist_ok=True)
                parts = [build(a, source, text, *options)[index + 1] for a in architectures]
                run(LIPO, "-create", *parts, "-output", path)

    def problems(self):
        return list(dsym.check(self.root / "Kestrane.app", self.root, self.root))

    def test_matching_debug_information_passes(self):
        self.assertEqual([], self.problems())

    def test_missing_debug_information_is_found(self):
        self.paths("MacOS/launchlist")[1].unlink()
        self.assertEqual(["launchlist has no debug information"], self.problems())

    def test_a_missing_architecture_is_found(self):
        self.install("MacOS/launcher", "launcher/main.cpp", what=[1], architectures=["arm64"])
        self.assertEqual(["launcher: x86_64 is missing"], self.problems())

    def test_debug_information_of_another_build_is_found(self):
        other = SOURCES["qv7log/logger.cpp"].replace("value + ", "value * 5 + ")
        self.install("Frameworks/libqv7log.dylib", "qv7log/logger.cpp", other, what=[1])
        problems = self.problems()
        self.assertEqual(2, len(problems), problems)
        self.assertIn("UUID", problems[0])

    def test_debug_information_with_another_identifier_is_found(self):
        debug = self.paths("MacOS/launcher")[1]
        content = bytearray(debug.read_bytes())
        at = content.index(dsym.images(debug)["arm64"].uuid)
        content[at] ^= 1
        debug.write_bytes(content)
        expected = "launcher (arm64): the UUID of its debug information differs"
        self.assertEqual([expected], self.problems())

    def test_a_crash_that_is_located_elsewhere_is_found(self):
        moved = "\n\n\n" + SOURCES["launcher/main.cpp"]
        self.install("MacOS/launcher", "launcher/main.cpp", moved)
        problems = self.problems()
        self.assertEqual(2, len(problems), problems)
        self.assertIn("_main is located at /kestrane/launcher/main.cpp:", problems[0])

    def test_a_crash_that_cannot_be_located_is_found(self):
        self.install("MacOS/launcher", "launcher/main.cpp", options=["-gline-tables-only", "-g0"])
        problems = self.problems()
        self.assertEqual(2, len(problems), problems)
        self.assertIn("_main is located at ??", problems[0])

    def test_adopt_refuses_another_program(self):
        linked, shipped, debug = build("arm64", *list(SOURCES.items())[0])
        other = build("arm64", *list(SOURCES.items())[1])[1]
        with self.assertRaises(SystemExit):
            dsym.adopt(other, linked, debug)

    def test_adopt_refuses_foreign_debug_information(self):
        linked, shipped, _ = build("arm64", *list(SOURCES.items())[0])
        debug = build("arm64", *list(SOURCES.items())[1])[2]
        with self.assertRaises(SystemExit):
            dsym.adopt(shipped, linked, debug)


if __name__ == "__main__":
    unittest.main()
