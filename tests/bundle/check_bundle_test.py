"""Breaks each promise about the bundle and expects the check to report it.

The bundles here are small models: a program and a library in C, linked like the launcher and its
logging library. LIPO names the tool that joins architectures, ZIG the cross compiler (empty on a
Mac); scripts/macos/check_bundle.sh --self-test sets both.
"""

import functools
import os
import pathlib
import plistlib
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

import lief

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "scripts/macos"))
import check_bundle  # noqa: E402

LIPO = os.environ["LIPO"]
ZIG = os.environ["ZIG"]

LAUNCHER = """
int InitLogger(const char*);
int GetLogger(int, const char*, int, void**);
int kill(int, int);
int main(void) { return InitLogger("") + GetLogger(2, "", 1, 0) + kill(0, 0); }
"""
LIBRARY = """
int getuid(void);
int InitLogger(const char* path) { return path[0] + getuid(); }
int GetLogger(int kind, const char* name, int level, void** out) { return kind; }
"""
ALLOWED = {"_kill", "_getuid", "dyld_stub_binder"}
RUN_PATH = "-Wl,-rpath,@executable_path/../Frameworks"
INSTALL_NAME = "-Wl,-install_name,@rpath/libqv7log.dylib"

work = pathlib.Path()


def setUpModule():
    global work
    lief.logging.disable()
    work = pathlib.Path(tempfile.mkdtemp())
    unittest.addModuleCleanup(shutil.rmtree, work)


def compiler(architecture, minimum, language):
    if ZIG:
        target = {"arm64": "aarch64", "x86_64": "x86_64"}[architecture]
        return [ZIG, {"c": "cc", "c++": "c++"}[language], "-target", f"{target}-macos.{minimum}"]
    return ["clang", "-arch", architecture, f"-mmacosx-version-min={minimum}"]


@functools.cache
def link(architecture, source, *options, minimum="11.0", language="c"):
    """Builds one slice and returns its path. Equal arguments give the same file."""
    directory = pathlib.Path(tempfile.mkdtemp(dir=work))
    file = directory / ("source." + {"c": "c", "c++": "cpp"}[language])
    file.write_text(source)
    # Without an option the linker uses the output name as the install name.
    out = directory / "libqv7log.dylib"
    command = [*compiler(architecture, minimum, language), "-O2", str(file), "-o", str(out)]
    subprocess.run([*command, *options], check=True, capture_output=True)
    return out


def link_library(architecture, source=LIBRARY, install_name=INSTALL_NAME, options=(), **keywords):
    return link(architecture, source, "-shared", install_name, *options, **keywords)


def link_launcher(architecture, source=LAUNCHER, library=None, options=(RUN_PATH,), **keywords):
    library = library or link_library(architecture)
    return link(architecture, source, str(library), *options, **keywords)


def join(out, slices):
    subprocess.run([LIPO, "-create", *map(str, slices), "-output", str(out)], check=True)


def both(make, **keywords):
    """Both slices, made by `make`."""
    return [make(architecture, **keywords) for architecture in ("arm64", "x86_64")]


def one(make, broken, **keywords):
    """Both slices; only the one of the architecture `broken` is made with `keywords`."""
    return [make(a, **(keywords if a == broken else {})) for a in ("arm64", "x86_64")]


class Bundle:
    """A model bundle. Parts that a test does not supply are correct."""

    def __init__(self, launcher=None, library=None, others=None, **plist):
        self.path = pathlib.Path(tempfile.mkdtemp(dir=work)) / "Model.app"
        for part in ("MacOS", "Frameworks"):
            (self.path / "Contents" / part).mkdir(parents=True)
        join(self.path / check_bundle.LAUNCHER, launcher or both(link_launcher))
        join(self.path / check_bundle.LOG_LIBRARY, library or both(link_library))
        for name, slices in (others or {}).items():
            join(self.path / name, slices)
        (self.path / check_bundle.PROFILE).write_text("[SDK]\nNAME=Model\n")
        values = {
            **check_bundle.PLIST_VALUES,
            "CFBundleVersion": "1",
            "CFBundleShortVersionString": "1",
        }
        values.update(plist)
        values = {key: value for key, value in values.items() if value is not None}
        (self.path / check_bundle.PLIST).write_bytes(plistlib.dumps(values))

    def problems(self):
        return list(check_bundle.check_bundle(self.path, ALLOWED))


LAUNCHER_NAME = check_bundle.LAUNCHER
LIBRARY_NAME = check_bundle.LOG_LIBRARY


class CheckBundle(unittest.TestCase):
    def expect(self, bundle, *problems):
        self.assertEqual(bundle.problems(), list(problems))

    def expect_twice(self, bundle, name, problem):
        """Expects the same problem in both slices, in either order."""
        expected = [f"{name} ({a}): {problem}" for a in ("arm64", "x86_64")]
        self.assertEqual(sorted(bundle.problems()), expected)

    def test_accepts_a_correct_bundle(self):
        self.expect(Bundle())

    def test_reports_missing_files(self):
        for name in (LAUNCHER_NAME, LIBRARY_NAME, check_bundle.PROFILE):
            with self.subTest(name):
                bundle = Bundle()
                (bundle.path / name).unlink()
                self.expect(bundle, f"{name} is missing")

    def test_requires_both_architectures(self):
        self.expect(
            Bundle(launcher=[link_launcher("arm64")]),
            f"{LAUNCHER_NAME} contains arm64, not arm64 and x86_64",
        )
        self.expect(
            Bundle(library=[link_library("x86_64")]),
            f"{LIBRARY_NAME} contains x86_64, not arm64 and x86_64",
        )

    def test_requires_the_minimum_system_in_each_slice(self):
        self.expect(
            Bundle(launcher=one(link_launcher, "arm64", minimum="12.0")),
            f"{LAUNCHER_NAME} (arm64): its minimum system is macOS 12.0, not 11.0",
        )
        self.expect(
            Bundle(library=one(link_library, "x86_64", minimum="10.15")),
            f"{LIBRARY_NAME} (x86_64): its minimum system is macOS 10.15, not 11.0",
        )

    def test_requires_the_install_name(self):
        elsewhere = "/usr/local/lib/libqv7log.dylib"
        bundle = Bundle(library=both(link_library, install_name=f"-Wl,-install_name,{elsewhere}"))
        self.expect_twice(
            bundle, LIBRARY_NAME, f"its install name is {elsewhere}, not @rpath/libqv7log.dylib"
        )

    def test_requires_one_run_path(self):
        for options, run_paths in (
            ((), []),
            (("-Wl,-rpath,@loader_path",), ["@loader_path"]),
            ((RUN_PATH, "-Wl,-rpath,/opt/lib"), ["@executable_path/../Frameworks", "/opt/lib"]),
        ):
            with self.subTest(run_paths):
                bundle = Bundle(launcher=both(link_launcher, options=options))
                self.expect_twice(bundle, LAUNCHER_NAME, f"its run paths are {run_paths}")

    def test_forbids_run_paths_in_the_library(self):
        bundle = Bundle(library=both(link_library, options=("-Wl,-rpath,/opt/lib",)))
        self.expect_twice(bundle, LIBRARY_NAME, "its run paths are ['/opt/lib']")

    def test_forbids_other_libraries(self):
        stub = work / "libz.tbd"
        stub.write_text(
            "--- !tapi-tbd\ntbd-version: 4\ntargets: [ x86_64-macos, arm64-macos ]\n"
            "install-name: '/usr/lib/libz.1.dylib'\nexports:\n"
            "  - targets: [ x86_64-macos, arm64-macos ]\n    symbols: [ _zlibVersion ]\n...\n"
        )
        source = "int zlibVersion(void);\n" + LIBRARY.replace(
            "return kind;", "return zlibVersion();"
        )
        bundle = Bundle(library=both(link_library, source=source, options=(str(stub),)))
        self.expect_twice(bundle, LIBRARY_NAME, "it needs /usr/lib/libz.1.dylib")

    def test_requires_the_launcher_to_import_exactly_two_log_functions(self):
        more = LIBRARY + "int CloseLogger(void) { return 0; }\n"
        source = "int CloseLogger(void);\n" + LAUNCHER.replace("kill(0, 0)", "CloseLogger()")
        slices = [
            link_launcher(a, source=source, library=link_library(a, source=more))
            for a in ("arm64", "x86_64")
        ]
        self.expect_twice(
            Bundle(launcher=slices),
            LAUNCHER_NAME,
            "it imports _CloseLogger _GetLogger _InitLogger from libqv7log",
        )
        source = LAUNCHER.replace('GetLogger(2, "", 1, 0)', "0")
        self.expect_twice(
            Bundle(launcher=both(link_launcher, source=source)),
            LAUNCHER_NAME,
            "it imports _InitLogger from libqv7log",
        )

    def test_forbids_unlisted_system_symbols(self):
        problem = "it imports _system from libSystem, which is not in the reviewed list"
        extra = "int system(const char*);\n"
        bundle = Bundle(
            launcher=both(
                link_launcher, source=extra + LAUNCHER.replace("kill(0, 0)", 'system("")')
            )
        )
        self.expect_twice(bundle, LAUNCHER_NAME, problem)
        bundle = Bundle(
            library=both(link_library, source=extra + LIBRARY.replace("getuid()", 'system("")'))
        )
        self.expect_twice(bundle, LIBRARY_NAME, problem)

    def test_requires_a_library_for_every_symbol(self):
        source = "int mystery(void);\n" + LAUNCHER.replace("kill(0, 0)", "mystery()")
        options = (RUN_PATH, "-Wl,-undefined,dynamic_lookup")
        bundle = Bundle(launcher=both(link_launcher, source=source, options=options))
        self.expect_twice(
            bundle, LAUNCHER_NAME, "it imports _mystery from any library that defines it"
        )

    def test_requires_the_library_to_export_exactly_two_functions(self):
        bundle = Bundle(library=both(link_library, source=LIBRARY + "int g_state = 1;\n"))
        self.expect_twice(bundle, LIBRARY_NAME, "it exports _g_state")
        hidden = '__attribute__((visibility("hidden"))) int GetLogger'
        bundle = Bundle(library=both(link_library, source=LIBRARY.replace("int GetLogger", hidden)))
        self.expect_twice(bundle, LIBRARY_NAME, "it does not export _GetLogger")

    @unittest.skipUnless(ZIG, "on a Mac a separate libc++ exports these")
    def test_forbids_exporting_operator_new(self):
        source = 'extern "C" {' + LIBRARY.replace("return kind;", "*out = new int; return 0;") + "}"
        bundle = Bundle(library=both(link_library, source=source, language="c++"))
        for architecture in ("arm64", "x86_64"):
            self.assertIn(f"{LIBRARY_NAME} ({architecture}): it exports __Znwm", bundle.problems())

    def test_checks_every_program_of_the_bundle(self):
        name = "Contents/MacOS/another"
        alone = both(link, source="int main(void) { return 0; }\n")
        self.expect(Bundle(others={name: alone}))
        elsewhere = both(link_launcher, options=("-Wl,-rpath,/opt/lib",))
        bundle = Bundle(others={name: elsewhere})
        self.expect_twice(bundle, name, "its run paths are ['/opt/lib']")
        bundle = Bundle(others={name: both(link_launcher, minimum="13.0")})
        self.expect_twice(bundle, name, "its minimum system is macOS 13.0, not 11.0")

        slices = []
        for architecture in ("arm64", "x86_64"):
            library = link_library(architecture, source="int CloseLogger(void) { return 0; }\n")
            source = "int CloseLogger(void);\nint main(void) { return CloseLogger(); }\n"
            slices.append(link_launcher(architecture, source=source, library=library))
        bundle = Bundle(others={name: slices})
        self.expect_twice(bundle, name, "it imports _CloseLogger from libqv7log")

    def test_reports_unreadable_files(self):
        bundle = Bundle()
        for beginning in (b"\xcf\xfa\xed\xfe", b"\xca\xfe\xba\xbe\0\0\0\2"):
            (bundle.path / LAUNCHER_NAME).write_bytes(beginning)
            self.expect(bundle, f"{LAUNCHER_NAME} cannot be read")

    def test_requires_machine_code(self):
        bundle = Bundle()
        (bundle.path / LAUNCHER_NAME).write_text("#!/bin/sh\n")
        self.expect(bundle, f"{LAUNCHER_NAME} is not a Mach-O file")


class CheckPlist(unittest.TestCase):
    def test_requires_each_value(self):
        for key, value in check_bundle.PLIST_VALUES.items():
            for wrong in (None, "10.0"):
                with self.subTest(key, wrong=wrong):
                    expected = f"Contents/Info.plist: {key} is {wrong!r}, not {value!r}"
                    self.assertEqual(Bundle(**{key: wrong}).problems(), [expected])

    def test_requires_versions(self):
        for key in ("CFBundleVersion", "CFBundleShortVersionString"):
            with self.subTest(key):
                expected = f"Contents/Info.plist: {key} is missing"
                self.assertEqual(Bundle(**{key: None}).problems(), [expected])

    def test_reports_unreadable_files(self):
        bundle = Bundle()
        plist = bundle.path / check_bundle.PLIST
        plist.write_text("<plist>")
        self.assertRegex("\n".join(bundle.problems()), r"^Contents/Info.plist cannot be read: .*$")
        plist.unlink()
        self.assertRegex("\n".join(bundle.problems()), r"^Contents/Info.plist cannot be read: .*$")


class CheckSignature(unittest.TestCase):
    def problems_of(self, arm64):
        return Bundle(launcher=[arm64, link_launcher("x86_64")]).problems()

    def test_is_required_on_arm64(self):
        image = lief.MachO.parse(str(link_launcher("arm64"))).at(0)
        image.remove_signature()
        unsigned = work / "unsigned"
        image.write(str(unsigned))
        self.assertEqual(
            self.problems_of(unsigned), [f"{LAUNCHER_NAME} (arm64): it has no signature"]
        )

    def test_must_match_every_page(self):
        good = link_launcher("arm64").read_bytes()
        offset = lief.MachO.parse(list(good)).at(0).code_signature.data_offset
        pages = -(-offset // 4096)
        for page in range(pages):
            changed = bytearray(good)
            # Changes the last byte of the page, so that the load commands remain readable.
            changed[min((page + 1) * 4096, offset) - 1] ^= 1
            file = work / "changed"
            file.write_bytes(changed)
            with self.subTest(page=page):
                expected = [f"{LAUNCHER_NAME} (arm64): its signature does not match its content"]
                self.assertEqual(self.problems_of(file), expected)

    def test_must_have_a_code_directory(self):
        good = link_launcher("arm64").read_bytes()
        offset = lief.MachO.parse(list(good)).at(0).code_signature.data_offset
        for name, place in (("super blob", 0), ("count", 11), ("kind", 15), ("directory", 20)):
            changed = bytearray(good)
            changed[offset + place] ^= 0x10
            file = work / "changed"
            file.write_bytes(changed)
            with self.subTest(name):
                expected = [f"{LAUNCHER_NAME} (arm64): its signature does not match its content"]
                self.assertEqual(self.problems_of(file), expected)

    def test_must_cover_the_whole_content(self):
        good = link_launcher("arm64").read_bytes()
        start = lief.MachO.parse(list(good)).at(0).code_signature.data_offset
        # The first code directory: number of pages, size of the covered content, page size.
        place = start + struct.unpack_from(">I", good, start + 16)[0] + 28
        pages, limit, page_bits = struct.unpack_from(">II3xB", good, place)
        for values in ((pages - 1, limit), (pages - 1, (pages - 1) << page_bits)):
            changed = bytearray(good)
            struct.pack_into(">II", changed, place, *values)
            file = work / "changed"
            file.write_bytes(changed)
            with self.subTest(values):
                expected = [f"{LAUNCHER_NAME} (arm64): its signature does not match its content"]
                self.assertEqual(self.problems_of(file), expected)


class ReadList(unittest.TestCase):
    def test_skips_comments_and_empty_lines(self):
        file = work / "list"
        file.write_text("# A group\n_one\n\n_two$X   # 10.15\n  _three\n")
        self.assertEqual(check_bundle.read_list(file), {"_one", "_two$X", "_three"})


if __name__ == "__main__":
    unittest.main()
