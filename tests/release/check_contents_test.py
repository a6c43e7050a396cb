"""Leaves each promised file out of a model of a release, or makes it another one, and expects the check
to name it."""

import gzip
import io
import json
import lzma
import pathlib
import plistlib
import sys
import tarfile
import tempfile
import unittest
import zipfile

ROOT = pathlib.Path(__file__).parents[2]
sys.path.insert(0, str(ROOT / "scripts/release"))
import check_contents  # noqa: E402

NUMBER = "1.2.3"
VERSION = NUMBER + "~snapshot20260101.01234567"
SHORT = NUMBER + "~snapshot"
BUNDLE = "Kestrane.app/Contents"
LICENCE = "Permission is granted to everybody to use this work for any purpose. " * 5

TAR = f"kestrane-launcher-{VERSION}-linux-x86_64.tar.gz"
DEB = f"kestrane-launcher_{VERSION}_amd64.deb"
MACOS = f"kestrane-launcher-{VERSION}-macos.zip"
DSYMS = f"kestrane-launcher-{VERSION}-macos-dsyms.zip"
SBOM = f"kestrane-launcher-{VERSION}.spdx.json"

COMPONENTS = {"linux": ["jsoncpp", "libgcc"], "macos": ["jsoncpp", "libc++"]}
NOTICES = {
    TAR: "share/doc/kestrane-launcher/copyright",
    DEB: "share/doc/kestrane-launcher/copyright",
    MACOS: f"{BUNDLE}/Resources/THIRD-PARTY-NOTICES.txt",
    DSYMS: "Kestrane.dSYMs/THIRD-PARTY-NOTICES.txt",
}
PLATFORM = {TAR: "linux", DEB: "linux", MACOS: "macos", DSYMS: "macos"}


def notices(platform):
    text = "Kestrane launcher\n"
    for name in COMPONENTS[platform]:
        text += f"\n{'-' * 78}\n{name} 1.0\nLicence: MIT\nCopyright (c) {name} authors\n"
        text += f"Source: https://example.org\n\n{LICENCE}\n"
    return text.encode()


def linux_files():
    bundle = f"lib/kestrane/{BUNDLE}"
    files = {
        f"{bundle}/MacOS/launcher": b"\x7fELF",
        f"{bundle}/MacOS/launchlist": b"\x7fELF",
        f"{bundle}/Frameworks/libqv7log.so": b"\x7fELF",
        f"{bundle}/Frameworks/qv7api.ini": b"[SDK]",
        "bin/launchlist": f"../{bundle}/MacOS/launchlist",
        "share/bash-completion/completions/launchlist": b"complete",
        "share/fish/vendor_completions.d/launchlist.fish": b"complete",
        "share/zsh/site-functions/_launchlist": b"compdef",
        "share/lnav/formats/kestrane/kestrane_launcher.json": b"{}",
        NOTICES[TAR]: notices("linux"),
    }
    for page in (ROOT / "docs/man").glob("*.[1-9]"):
        text = page.read_text().replace("@short_version@", SHORT)
        name = f"share/man/man{page.suffix[1:]}/{page.name}.gz"
        files[name] = gzip.compress(text.encode())
    for schema in (ROOT / "docs").rglob("*.schema.json"):
        name = schema.relative_to(ROOT / "docs")
        files[f"share/kestrane-launcher/{name}"] = schema.read_bytes()
    return files


def macos_files():
    plist = {"CFBundleVersion": NUMBER, "CFBundleShortVersionString": NUMBER}
    programs = ["MacOS/launcher", "MacOS/launchlist", "Frameworks/libqv7log.dylib"]
    return {
        **{f"{BUNDLE}/{name}": b"\xca\xfe\xba\xbe" for name in programs},
        f"{BUNDLE}/Frameworks/qv7api.ini": b"[SDK]",
        f"{BUNDLE}/Info.plist": plistlib.dumps(plist),
        NOTICES[MACOS]: notices("macos"),
    }


def dsym_files():
    names = ("launcher", "launchlist", "libqv7log.dylib")
    files = {f"Kestrane.dSYMs/{n}.dSYM/Contents/Resources/DWARF/{n}": b"debug" for n in names}
    return {**files, NOTICES[DSYMS]: notices("macos")}


def tarred(files, prefix):
    out = io.BytesIO()
    with tarfile.open(fileobj=out, mode="w") as archive:
        for name, content in files.items():
            entry = tarfile.TarInfo(prefix + name)
            if isinstance(content, str):
                entry.type, entry.linkname = tarfile.SYMTYPE, content
                archive.addfile(entry)
            else:
                entry.size = len(content)
                archive.addfile(entry, io.BytesIO(content))
    return out.getvalue()


def deb(files):
    control = {"control": files["control"]}
    installed = {name: content for name, content in files.items() if name != "control"}
    members = {
        "debian-binary": b"2.0\n",
        "control.tar.gz": gzip.compress(tarred(control, "./")),
        "data.tar.xz": lzma.compress(tarred(installed, "./usr/")),
    }
    out = b"!<arch>\n"
    for name, content in members.items():
        out += f"{name:<16}{0:<12}{0:<6}{0:<6}{0o100644:<8o}{len(content):<10}`\n".encode()
        out += content + b"\n" * (len(content) % 2)
    return out


def zipped(files):
    out = io.BytesIO()
    with zipfile.ZipFile(out, "w") as archive:
        for name, content in files.items():
            archive.writestr(name, content)
    return out.getvalue()


def sbom():
    packages = [
        {
            "SPDXID": f"SPDXRef-{platform}-{name}",
            "name": name,
            "versionInfo": "1.0",
            "licenseDeclared": "MIT",
            "copyrightText": f"Copyright (c) {name} authors",
        }
        for platform, names in COMPONENTS.items()
        for name in names
    ]
    relations = []
    for artefact, platform in PLATFORM.items():
        packages.append({"SPDXID": f"SPDXRef-{artefact}", "name": artefact})
        relations += [
            {
                "spdxElementId": f"SPDXRef-{artefact}",
                "relationshipType": "STATIC_LINK",
                "relatedSpdxElement": f"SPDXRef-{platform}-{name}",
            }
            for name in COMPONENTS[platform]
        ]
    return {"packages": packages, "relationships": relations}


class CheckContents(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.dist = pathlib.Path(directory.name)
        deb_only = {
            "share/doc/kestrane-launcher/changelog.gz": gzip.compress(b"changes"),
            "control": f"Package: kestrane-launcher\nVersion: {VERSION}\n".encode(),
        }
        self.files = {
            TAR: linux_files(),
            DEB: {**linux_files(), **deb_only},
            MACOS: macos_files(),
            DSYMS: dsym_files(),
        }
        self.sbom = sbom()

    def problems(self, *platforms):
        top = TAR.removesuffix(".tar.gz") + "/"
        (self.dist / TAR).write_bytes(gzip.compress(tarred(self.files[TAR], top)))
        (self.dist / DEB).write_bytes(deb(self.files[DEB]))
        for name in (MACOS, DSYMS):
            (self.dist / name).write_bytes(zipped(self.files[name]))
        (self.dist / SBOM).write_text(json.dumps(self.sbom))
        platforms = platforms or ("linux", "macos")
        return list(check_contents.problems(VERSION, self.dist, platforms))

    def expect(self, artefact, text):
        """Exactly this problem, in this artefact."""
        problems = self.problems()
        self.assertEqual(1, len(problems), problems)
        self.assertTrue(problems[0].startswith(artefact + ": "), problems)
        self.assertIn(text, problems[0])

    def test_a_complete_release_passes(self):
        self.assertEqual([], self.problems())
        self.assertEqual(0, check_contents.main([VERSION, str(self.dist), "linux", "macos"]))

    def test_every_promised_file_is_required(self):
        for artefact, files in self.files.items():
            for name in list(files):
                if name in ("control", NOTICES[artefact]):
                    continue
                with self.subTest(artefact, file=name):
                    content = files.pop(name)
                    self.assertTrue(
                        any(p.startswith(artefact) and name in p for p in self.problems())
                    )
                    files[name] = content

    def test_an_artefact_must_exist(self):
        self.problems()
        for name in PLATFORM:
            with self.subTest(name):
                content = (self.dist / name).read_bytes()
                (self.dist / name).unlink()
                found = list(check_contents.problems(VERSION, self.dist, ("linux", "macos")))
                self.assertEqual([f"{name} is missing"], found)
                self.assertEqual(1, check_contents.main([VERSION, str(self.dist), PLATFORM[name]]))
                (self.dist / name).write_bytes(content)

    def test_notices_must_exist_in_each_artefact(self):
        for artefact, name in NOTICES.items():
            with self.subTest(artefact):
                content = self.files[artefact].pop(name)
                problems = self.problems()
                self.assertTrue(problems)
                self.assertTrue(all(p.startswith(artefact) for p in problems), problems)
                self.files[artefact][name] = content

    def test_notices_must_name_every_component(self):
        for artefact, name in NOTICES.items():
            with self.subTest(artefact):
                content = self.files[artefact][name]
                self.files[artefact][name] = content.replace(b"jsoncpp 1.0", b"jsoncpp 0.9")
                self.expect(artefact, "does not name jsoncpp 1.0")
                self.files[artefact][name] = content.replace(b"jsoncpp authors", b"somebody")
                self.expect(artefact, "does not name jsoncpp 1.0")
                self.files[artefact][name] = content

    def test_notices_must_quote_every_licence(self):
        for artefact, name in NOTICES.items():
            with self.subTest(artefact):
                content = self.files[artefact][name]
                self.files[artefact][name] = content.replace(LICENCE.encode(), b"MIT", 1)
                self.expect(artefact, "does not quote the licence of jsoncpp")
                self.files[artefact][name] = content

    def test_an_artefact_without_components_is_found(self):
        self.sbom["relationships"] = [
            r for r in self.sbom["relationships"] if DSYMS not in r["spdxElementId"]
        ]
        self.expect(DSYMS, "no component")

    def test_each_page_must_state_the_version(self):
        for artefact in (TAR, DEB):
            for name in [n for n in self.files[artefact] if "/man/" in n]:
                with self.subTest(artefact, page=name):
                    page = self.files[artefact][name]
                    text = gzip.decompress(page).replace(SHORT.encode(), b"1.2.2")
                    self.files[artefact][name] = gzip.compress(text)
                    self.expect(artefact, f"{name} does not state version {SHORT}")
                    self.files[artefact][name] = page

    def test_pages_and_schemas_must_be_those_of_the_documents(self):
        page = "share/man/man8/launcher.8.gz"
        text = gzip.decompress(self.files[TAR][page]) + b"x"
        self.files[TAR][page] = gzip.compress(text)
        self.expect(TAR, "is not docs/man/launcher.8")
        self.files[TAR] = linux_files()
        self.files[DEB]["share/kestrane-launcher/launch-list.schema.json"] += b" "
        self.expect(DEB, "launch-list.schema.json")

    def test_the_package_must_have_the_version(self):
        self.files[DEB]["control"] = b"Version: 1.2.2\n"
        self.expect(DEB, f"does not state version {VERSION}")

    def test_info_plist_must_have_the_version(self):
        name = f"{BUNDLE}/Info.plist"
        for key in ("CFBundleVersion", "CFBundleShortVersionString"):
            with self.subTest(key):
                plist = {"CFBundleVersion": NUMBER, "CFBundleShortVersionString": NUMBER}
                self.files[MACOS][name] = plistlib.dumps({**plist, key: "1.2.2"})
                self.expect(MACOS, f"{key} is '1.2.2', not '1.2.3'")
        self.files[MACOS][name] = b"<plist>"
        self.expect(MACOS, "cannot be read")

    def test_the_link_must_lead_to_the_program(self):
        self.files[TAR]["bin/launchlist"] = "../lib/launchlist"
        self.expect(TAR, "bin/launchlist does not lead to the program")

    def test_only_the_platforms_that_were_built_are_checked(self):
        self.files[MACOS].clear()
        self.assertEqual([], self.problems("linux"))
        self.assertTrue(self.problems("macos"))


if __name__ == "__main__":
    unittest.main()
