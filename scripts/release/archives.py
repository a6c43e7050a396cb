"""Writes archives whose bytes depend only on their content, and reads archives within archives.

    archives.py zip OUT DIRECTORY...   writes a zip of the directories, each under its own name
    archives.py normalize TAR_GZ       rewrites a tar.gz: sorted, and owned by root

Every member gets the time SOURCE_DATE_EPOCH.
"""

import bz2
import gzip
import io
import lzma
import os
import pathlib
import sys
import tarfile
import time
import zipfile


def epoch():
    return int(os.environ["SOURCE_DATE_EPOCH"])


def write_zip(out, directories):
    """Symbolic links are refused, because not every program that unpacks a zip restores them."""
    date = time.gmtime(epoch())[:6]
    with zipfile.ZipFile(out, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as archive:
        for directory in directories:
            for path in sorted([directory, *directory.rglob("*")]):
                if path.is_symlink():
                    raise ValueError(f"{path} is a symbolic link")
                name = path.relative_to(directory.parent).as_posix()
                entry = zipfile.ZipInfo(name + "/" * path.is_dir(), date)
                entry.create_system = 3  # The attributes are those of Unix.
                executable = path.is_dir() or path.stat().st_mode & 0o100
                kind = 0o040000 if path.is_dir() else 0o100000
                entry.external_attr = (kind | (0o755 if executable else 0o644)) << 16
                entry.compress_type = zipfile.ZIP_STORED if path.is_dir() else zipfile.ZIP_DEFLATED
                archive.writestr(entry, b"" if path.is_dir() else path.read_bytes())


def normalize(path):
    """Rewrites a tar.gz, so that neither its builder nor the file system leaves a trace in it."""
    content = io.BytesIO()
    result = tarfile.open(fileobj=content, mode="w", format=tarfile.GNU_FORMAT)
    with tarfile.open(path) as source, result:
        for member in sorted(source.getmembers(), key=lambda member: member.name):
            plain = tarfile.TarInfo(member.name)
            plain.type, plain.linkname = member.type, member.linkname
            plain.mode, plain.size, plain.mtime = member.mode, member.size, epoch()
            plain.uname = plain.gname = "root"
            result.addfile(plain, source.extractfile(member) if member.isreg() else None)
    path.write_bytes(gzip.compress(content.getvalue(), 9, mtime=0))


def walk(name, content):
    """Yields the name and the bytes of `content`, and of all members if it is an archive or
    compressed, to any depth. Raises ValueError for a kind of archive that it cannot open."""
    yield name, content
    if content[:2] == b"\x1f\x8b":
        yield from walk(name + " (unpacked)", gzip.decompress(content))
    elif content[:6] == b"\xfd7zXZ\x00":
        yield from walk(name + " (unpacked)", lzma.decompress(content))
    elif content[:3] == b"BZh":
        yield from walk(name + " (unpacked)", bz2.decompress(content))
    elif content[:4] == b"\x28\xb5\x2f\xfd":
        raise ValueError(f"{name} is compressed with zstd, which this Python cannot read")
    elif content[:4] == b"PK\x03\x04":
        with zipfile.ZipFile(io.BytesIO(content)) as archive:
            for entry in archive.infolist():
                yield from walk(f"{name}: {entry.filename}", archive.read(entry))
    elif content[:8] == b"!<arch>\n":
        for member, data in ar_members(content):
            yield from walk(f"{name}: {member}", data)
    elif content[257:262] == b"ustar":
        with tarfile.open(fileobj=io.BytesIO(content)) as archive:
            for member in archive.getmembers():
                data = archive.extractfile(member).read() if member.isreg() else b""
                yield from walk(f"{name}: {member.name}", data)


def ar_members(content):
    """The name and the bytes of each member of an ar archive, such as a .deb."""
    at = 8
    while at < len(content):
        header = content[at : at + 60]
        size = int(header[48:58])
        yield header[:16].decode().rstrip(" /"), content[at + 60 : at + 60 + size]
        at += 60 + size + size % 2


def main(arguments):
    command, *paths = arguments
    paths = [pathlib.Path(path) for path in paths]
    if command == "zip":
        write_zip(paths[0], paths[1:])
    else:
        normalize(paths[0])


if __name__ == "__main__":
    main(sys.argv[1:])
