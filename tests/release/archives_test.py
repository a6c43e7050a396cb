"""Archives must depend on nothing but their content."""

import gzip
import io
import os
import pathlib
import sys
import tarfile
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "scripts/release"))
import archives  # noqa: E402


class Archives(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.work = pathlib.Path(directory.name)
        os.environ["SOURCE_DATE_EPOCH"] = "1700000000"

    def tree(self, parent, names, mode):
        """A directory with the files, created in this order and with this mode."""
        root = self.work / parent / "Model.app"
        root.mkdir(parents=True)
        for name in names:
            (root / name).write_text(name)
            (root / name).chmod(mode)
        return root

    def zip(self, root):
        out = root.parent / "model.zip"
        archives.write_zip(out, [root])
        return out.read_bytes()

    def test_zip_does_not_depend_on_order_time_and_umask(self):
        first = self.tree("a", ["one", "two"], 0o644)
        second = self.tree("a much longer name", ["two", "one"], 0o600)
        os.utime(second / "one", (0, 0))
        self.assertEqual(self.zip(first), self.zip(second))

    def test_zip_keeps_the_right_to_execute(self):
        self.assertNotEqual(
            self.zip(self.tree("a", ["one"], 0o644)), self.zip(self.tree("b", ["one"], 0o755))
        )

    def test_zip_refuses_symbolic_links(self):
        root = self.tree("a", ["one"], 0o644)
        (root / "link").symlink_to("one")
        with self.assertRaises(ValueError):
            self.zip(root)

    def tar(self, name, members, **attributes):
        path = self.work / name
        with tarfile.open(path, "w:gz") as archive:
            for member in members:
                entry = tarfile.TarInfo(member)
                entry.size = len(member)
                for key, value in attributes.items():
                    setattr(entry, key, value)
                archive.addfile(entry, io.BytesIO(member.encode()))
            link = tarfile.TarInfo("link")
            link.type, link.linkname = tarfile.SYMTYPE, "b"
            archive.addfile(link)
        archives.normalize(path)
        return path.read_bytes()

    def test_normalized_tar_does_not_depend_on_order_time_and_owner(self):
        first = self.tar("a.tar.gz", "ab", uid=1234, uname="somebody", mtime=1)
        second = self.tar("b.tar.gz", "ba", gid=5678, gname="staff", mtime=2)
        self.assertEqual(first, second)
        with tarfile.open(fileobj=io.BytesIO(first)) as archive:
            self.assertEqual(["a", "b", "link"], archive.getnames())
            self.assertEqual(b"b", archive.extractfile("link").read())
            self.assertEqual({1700000000}, {m.mtime for m in archive.getmembers()})

    def test_walk_refuses_what_it_cannot_open(self):
        with self.assertRaises(ValueError):
            list(archives.walk("x", gzip.compress(b"\x28\xb5\x2f\xfd....")))


if __name__ == "__main__":
    unittest.main()
