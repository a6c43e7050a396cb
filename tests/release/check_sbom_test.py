"""Breaks the SBOM and the checksums of a model of a release, and expects the check to name the fault.

scripts/release/self_test.sh runs this with the Python environment that has the reference implementation
of SPDX.
"""

import hashlib
import json
import pathlib
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "scripts/release"))
import check_sbom  # noqa: E402

ARTEFACTS = ("model-1.0-macos.zip", "model-1.0-linux.tar.gz")
SBOM = "model-1.0.spdx.json"


def sha256(content):
    return hashlib.sha256(content).hexdigest()


def package(identifier, name, licence, **more):
    return {
        "SPDXID": identifier,
        "name": name,
        "versionInfo": "1.0",
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": False,
        "licenseConcluded": licence,
        "licenseDeclared": licence,
        "copyrightText": "NOASSERTION",
        **more,
    }


def relation(first, kind, second):
    return {"spdxElementId": first, "relationshipType": kind, "relatedSpdxElement": second}


def document():
    library = package("SPDXRef-library", "library", "GPL-3.0-or-later WITH GCC-exception-3.1")
    packages, relations = [library], []
    for index, name in enumerate(ARTEFACTS):
        checksums = [{"algorithm": "SHA256", "checksumValue": sha256(name.encode())}]
        identifier = f"SPDXRef-artefact-{index}"
        packages.append(
            package(identifier, name, "NOASSERTION", packageFileName=name, checksums=checksums)
        )
        relations.append(relation("SPDXRef-DOCUMENT", "DESCRIBES", identifier))
        relations.append(relation(identifier, "STATIC_LINK", "SPDXRef-library"))
    return {
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": "model-1.0",
        "documentNamespace": "urn:uuid:6ba7b812-9dad-11d1-80b4-00c04fd430c8",
        "creationInfo": {"created": "2026-01-01T00:00:00Z", "creators": ["Tool: model-1.0"]},
        "packages": packages,
        "relationships": relations,
    }


# What is done to a document, and a part of the message.
INVALID = {
    "a missing member": (lambda d: d.pop("name"), "name"),
    "a package without a name": (lambda d: d["packages"][0].pop("name"), "name"),
    "a package without a source": (
        lambda d: d["packages"][0].pop("downloadLocation"),
        "download_location",
    ),
    "an unknown licence": (
        lambda d: d["packages"][0].update(licenseDeclared="GPL-9.0"),
        "GPL-9.0",
    ),
    "an invalid expression": (
        lambda d: d["packages"][0].update(licenseDeclared="MIT WITH"),
        "MIT WITH",
    ),
    "another version of the format": (lambda d: d.update(spdxVersion="SPDX-2"), "SPDX-2"),
    "an invalid identifier": (
        lambda d: d["packages"][0].update(SPDXID="library"),
        "SPDXRef",
    ),
    "an identifier that is used twice": (
        lambda d: d["packages"].append(package("SPDXRef-library", "other", "MIT")),
        "SPDXRef-library",
    ),
    "a relation to nothing": (
        lambda d: d["relationships"].append(
            relation("SPDXRef-library", "DEPENDS_ON", "SPDXRef-nothing")
        ),
        "SPDXRef-nothing",
    ),
    "an unknown relation": (
        lambda d: d["relationships"].append(
            relation("SPDXRef-library", "RESEMBLES", "SPDXRef-artefact-0")
        ),
        "RESEMBLES",
    ),
    "no described package": (lambda d: d["relationships"].clear(), "DESCRIBES"),
    "an invalid time": (lambda d: d["creationInfo"].update(created="yesterday"), "yesterday"),
    "an invalid checksum": (
        lambda d: d["packages"][1].update(
            checksums=[{"algorithm": "SHA256", "checksumValue": "0123"}]
        ),
        "0123",
    ),
}


class CheckSbom(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.dist = pathlib.Path(directory.name)
        for name in (*ARTEFACTS, "RELEASE-NOTES.md"):
            (self.dist / name).write_text(name)
        self.write(document())

    def write(self, sbom):
        (self.dist / SBOM).write_text(json.dumps(sbom))
        self.write_checksums()

    def write_checksums(self):
        others = sorted(p for p in self.dist.iterdir() if p.name != "SHA256SUMS")
        lines = [f"{sha256(path.read_bytes())}  {path.name}\n" for path in others]
        (self.dist / "SHA256SUMS").write_text("".join(lines))

    def problems(self):
        return list(check_sbom.problems(self.dist))

    def test_a_correct_release_passes(self):
        self.assertEqual([], self.problems())
        self.assertEqual(0, check_sbom.main([str(self.dist)]))

    def test_every_fault_of_the_format_is_found(self):
        for name, (spoil, text) in INVALID.items():
            with self.subTest(name):
                sbom = document()
                spoil(sbom)
                self.write(sbom)
                problems = self.problems()
                self.assertTrue(problems)
                self.assertTrue(all(p.startswith(SBOM) for p in problems), problems)
                self.assertIn(text, " ".join(problems))
                self.assertEqual(1, check_sbom.main([str(self.dist)]))

    def test_text_that_is_not_json_is_found(self):
        (self.dist / SBOM).write_text("{")
        self.write_checksums()
        problems = self.problems()
        self.assertEqual(1, len(problems), problems)
        self.assertIn("cannot be read", problems[0])

    def test_the_checksum_of_each_artefact_must_be_right(self):
        for name in ARTEFACTS:
            with self.subTest(name):
                (self.dist / name).write_text("another build")
                self.write_checksums()
                self.assertEqual([f"{SBOM}: the checksum of {name} is wrong"], self.problems())
                (self.dist / name).write_text(name)

    def test_an_artefact_without_a_checksum_is_found(self):
        sbom = document()
        del sbom["packages"][1]["checksums"]
        self.write(sbom)
        expected = f"{SBOM}: the checksum of {ARTEFACTS[0]} is wrong"
        self.assertEqual([expected], self.problems())

    def test_an_artefact_that_is_not_described_is_found(self):
        (self.dist / "model-1.0-windows.zip").write_text("")
        self.write_checksums()
        self.assertEqual([f"{SBOM}: model-1.0-windows.zip is not described"], self.problems())

    def test_a_missing_artefact_is_found(self):
        (self.dist / ARTEFACTS[1]).unlink()
        self.write_checksums()
        self.assertEqual([f"{SBOM}: {ARTEFACTS[1]} does not exist"], self.problems())

    def test_sha256sums_must_be_right_and_complete(self):
        sums = self.dist / "SHA256SUMS"
        lines = sums.read_text().splitlines(keepends=True)
        for index, line in enumerate(lines):
            name = line.split()[1]
            with self.subTest(name):
                expected = [f"SHA256SUMS is wrong about {name}"]
                sums.write_text("".join(lines[:index] + lines[index + 1 :]))
                self.assertEqual(expected, self.problems())
                wrong = f"{'0' * 64}  {name}\n"
                sums.write_text("".join([*lines[:index], wrong, *lines[index + 1 :]]))
                self.assertEqual(expected, self.problems())
        sums.write_text("".join(lines) + f"{'0' * 64}  other\n")
        self.assertEqual(["SHA256SUMS is wrong about other"], self.problems())

    def test_there_must_be_one_sbom(self):
        (self.dist / SBOM).unlink()
        self.assertEqual(["there are 0 SBOMs, not one"], self.problems())


if __name__ == "__main__":
    unittest.main()
