"""Every linked file must belong to a known component, and every component must be described."""

import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest
import unittest.mock

ROOT = pathlib.Path(__file__).parents[2]
sys.path.insert(0, str(ROOT / "scripts/release"))
import third_party  # noqa: E402


def library(name):
    command = ["c++", f"-print-file-name={name}"]
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()


LINUX = [
    library("Scrt1.o"),
    "launcher/CMakeFiles/launcher.dir/main.cpp.o",
    "/data/build/deps/linux/lib/libjsoncpp.a",
    library("libstdc++.a"),
    library("libgcc.a"),
    library("libc.so.6"),
    library("libz.so"),
]
MACOS = [
    "launcher/libkestrane_launcher.a",
    "/data/build/deps/macos-arm64/lib/libjsoncpp.a",
    "/data/build/cache/zig/o/0123/libc++.a",
    "/data/build/cache/zig/o/0123/libc++abi.a",
    "/data/build/cache/zig/o/0123/libcompiler_rt.a",
    "-lSystem",
]


class Components(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.work = pathlib.Path(directory.name)
        os.environ["SOURCE_DATE_EPOCH"] = "1700000000"

    def lists(self, linux=LINUX, macos=MACOS):
        files = {"linux": self.work / "linux.map", "macos": self.work / "macos.txt"}
        map_file = "Archive member included\n\n" + "".join(f"LOAD {file}\n" for file in linux)
        files["linux"].write_text(map_file)
        files["macos"].write_text("zig ld -dynamic -o launcher " + " ".join(macos) + "\n")
        return list(files.items())

    def sbom(self, **lists):
        artefacts = [self.work / name for name in ("x-macos.zip", "x-linux.tar.gz", "x.deb")]
        for artefact in artefacts:
            artefact.write_text(artefact.name)
        return third_party.sbom("1.0", self.lists(**lists), artefacts)

    def test_names_every_component_with_version_licence_and_checksum(self):
        packages = [p for p in self.sbom()["packages"] if "artefact" not in p["SPDXID"]]
        expected = "jsoncpp cli11 libstdc++ libgcc glibc zlib jsoncpp cli11 libc++ libc++abi"
        expected = [*expected.split(), "glibc start-up code", "compiler-rt of Zig", "libSystem"]
        self.assertEqual(sorted(expected), sorted(p["name"] for p in packages))
        for package in packages:
            with self.subTest(package["name"]):
                self.assertTrue(package["versionInfo"][0].isdigit())
                if package["name"] != "libSystem":
                    self.assertNotEqual("NOASSERTION", package["licenseConcluded"])
                    checksum = package["checksums"][0]["checksumValue"]
                    self.assertRegex(checksum, "^[0-9a-f]{64}$")

    def test_claims_no_licence_for_the_launcher(self):
        for package in self.sbom()["packages"]:
            if "artefact" in package["SPDXID"]:
                self.assertEqual("NOASSERTION", package["licenseDeclared"])

    def test_a_licence_of_the_launcher_is_stated_everywhere(self):
        with unittest.mock.patch.object(third_party, "OWN_LICENCE", "MIT"):
            packages = [p for p in self.sbom()["packages"] if "artefact" in p["SPDXID"]]
            self.assertEqual({"MIT"}, {p["licenseDeclared"] for p in packages})
            text = "".join(third_party.notices("linux", self.lists()))
        self.assertIn("The licence of the launcher itself: MIT\n", text)
        self.assertNotIn("No licence", text)

    def test_relations_join_artefacts_and_their_own_components(self):
        document = self.sbom()
        names = [package["SPDXID"] for package in document["packages"]]
        self.assertEqual(len(set(names)), len(names))
        found = set()
        for relation in document["relationships"]:
            self.assertIn(relation["relatedSpdxElement"], names)
            found.add((relation["spdxElementId"], relation["relatedSpdxElement"]))
        self.assertIn(("SPDXRef-artefact-x-macos.zip", "SPDXRef-macos-libc"), found)
        self.assertNotIn(("SPDXRef-artefact-x.deb", "SPDXRef-macos-libc"), found)
        self.assertIn(("SPDXRef-artefact-x.deb", "SPDXRef-linux-glibc"), found)

    def test_is_the_same_each_time_and_differs_if_an_artefact_does(self):
        first = json.dumps(self.sbom())
        self.assertEqual(first, json.dumps(self.sbom()))
        self.assertNotEqual(first, json.dumps(self.sbom(macos=MACOS[:3])))

    def test_an_unknown_linked_file_is_an_error(self):
        for platform, files in (("linux", LINUX), ("macos", MACOS)):
            for unknown in ("/usr/lib/x86_64-linux-gnu/libssl.a", "/data/cache/o/01/libfoo.a"):
                with self.subTest(platform, file=unknown), self.assertRaises(SystemExit):
                    self.sbom(**{platform: [*files, unknown]})

    def test_notices_contain_the_licence_of_everything_linked_statically(self):
        for platform, texts in (
            ("linux", ["JsonCpp Authors", "University of Cincinnati", "RUNTIME LIBRARY EXCEPTION"]),
            ("macos", ["JsonCpp Authors", "University of Cincinnati", "LLVM Exceptions", "Zig"]),
        ):
            text = "".join(third_party.notices(platform, self.lists()))
            for expected in texts:
                with self.subTest(platform, text=expected):
                    self.assertIn(expected, text)

    def test_a_debian_component_is_described_by_its_package(self):
        zlib = third_party.zlib(library("libz.so"))
        self.assertTrue(re.match(r"1:1\.", zlib.version), zlib.version)
        self.assertEqual(third_party.sha256(os.path.realpath(library("libz.so"))), zlib.checksum)


if __name__ == "__main__":
    unittest.main()
