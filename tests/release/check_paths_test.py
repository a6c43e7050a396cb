"""Hides traces of a machine in every kind of archive and expects the check to find them."""

import bz2
import gzip
import io
import lzma
import pathlib
import sys
import tarfile
import tempfile
import unittest
import zipfile

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "scripts/release"))
import check_paths  # noqa: E402

ROOT = pathlib.Path("/data/projects/kestrane")
MACHINE = (ROOT, "margaret", pathlib.Path("/people/margaret"), "workstation7")

CLEAN = b"\x7fELF /usr/lib/kestrane /kestrane/launcher/main.cpp"
TRACES = {
    "build directory": b"/data/projects/kestrane/launcher/main.cpp",
    "directory beside it": b"/data/projects/other/include",
    "home directory": b"/people/margaret/.cache",
    "another home directory": b"/home/ci/work",
    "a Mac's home directory": b"/Users/ci/work",
    "temporary file": b"/tmp/ccAbCdEf.o",
    "user": b"built by margaret.",
    "host": b"on workstation7, yesterday",
}


def zipped(data):
    out = io.BytesIO()
    with zipfile.ZipFile(out, "w", zipfile.ZIP_DEFLATED) as archive:
        archive.writestr("Kestrane.app/file", data)
    return out.getvalue()


def tarred(data, uid=0, uname="root"):
    out = io.BytesIO()
    with tarfile.open(fileobj=out, mode="w") as archive:
        entry = tarfile.TarInfo("usr/file")
        entry.size, entry.uid, entry.uname = len(data), uid, uname
        archive.addfile(entry, io.BytesIO(data))
    return out.getvalue()


def deb(data):
    """An ar archive with an odd member, which gets a byte of padding, before the data."""
    members = {"debian-binary": b"2.0", "data.tar.xz": lzma.compress(tarred(data))}
    out = b"!<arch>\n"
    for name, content in members.items():
        out += f"{name:<16}{0:<12}{0:<6}{0:<6}{0o100644:<8o}{len(content):<10}`\n".encode()
        out += content + b"\n" * (len(content) % 2)
    return out


CONTAINERS = {
    "plain": lambda data: data,
    "zip": zipped,
    "gzip": gzip.compress,
    "bzip2": bz2.compress,
    "xz": lzma.compress,
    "tar.gz": lambda data: gzip.compress(tarred(data)),
    "page in a deb": lambda data: deb(gzip.compress(data)),
    "zip in a zip": lambda data: zipped(zipped(data)),
}


class CheckPaths(unittest.TestCase):
    def problems(self, data, machine=MACHINE):
        with tempfile.TemporaryDirectory() as directory:
            path = pathlib.Path(directory) / "artefact"
            path.write_bytes(data)
            return list(check_paths.check(path, list(check_paths.patterns(*machine))))

    def test_clean_files_pass(self):
        for name, pack in CONTAINERS.items():
            with self.subTest(name):
                self.assertEqual([], self.problems(pack(CLEAN)))

    def test_traces_are_found_in_every_container(self):
        for name, pack in CONTAINERS.items():
            for what, trace in TRACES.items():
                with self.subTest(name, trace=what):
                    self.assertTrue(self.problems(pack(CLEAN + b"\0" + trace + b"\0")))

    def test_a_member_must_belong_to_root(self):
        self.assertEqual([], self.problems(tarred(CLEAN)))
        self.assertTrue(self.problems(tarred(CLEAN, uid=1000)))
        self.assertTrue(self.problems(gzip.compress(tarred(CLEAN, uname="margaret"))))

    def test_names_that_occur_by_chance_are_not_searched(self):
        machine = (ROOT, "root", pathlib.Path("/root"), "vm")
        self.assertEqual([], self.problems(b"run as root in a vm", machine))
        self.assertEqual([], self.problems(b"margarets and workstation70"))

    def test_the_program_fails_on_a_trace_and_without_a_file(self):
        with tempfile.TemporaryDirectory() as directory:
            path = pathlib.Path(directory) / "artefact"
            path.write_bytes(gzip.compress(directory.encode()))
            self.assertEqual(1, check_paths.main([directory, str(path)]))
            self.assertEqual(1, check_paths.main([directory]))
            path.write_bytes(gzip.compress(CLEAN))
            self.assertEqual(0, check_paths.main([directory, str(path)]))


if __name__ == "__main__":
    unittest.main()
