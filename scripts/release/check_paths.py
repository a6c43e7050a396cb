"""Checks that no file of a release names the machine that built it.

    check_paths.py ROOT FILE...

ROOT is the directory in which the files were built. Searches every file, and every member of an archive
to any depth, for ROOT, for home directories, and for the host's and the user's name; archives must
not be owned by the user. Prints each finding on a separate line; the exit status is 1 if there is any.

A short name, or one that is also an ordinary word, occurs by chance. It is searched only where it is
part of a path; scripts/check/reproducible.sh therefore builds as a user and on a host with long names.
"""

import io
import os
import pathlib
import pwd
import re
import socket
import sys
import tarfile

import archives

# Names of at least this length do not occur by chance in compressed data and machine code.
UNMISTAKABLE = 6
ORDINARY = {"debian", "ubuntu", "localhost", "builder", "runner"}

HOME = rb"/(?:home|Users|root|tmp|var/tmp|var/folders|github/workspace|__w)/[A-Za-z0-9_.-]+"

# Texts that our own documents and programs contain.
EXPECTED = [
    rb"/home/user",
]


def patterns(root, user, home, host):
    """What to search for: a name for the message, and a regular expression of bytes."""
    for directory in {str(root), str(root.resolve())}:
        yield "the build directory", re.escape(directory.encode())
    # Directories beside the project belong to the machine as well; "/" and "/usr" do not.
    if len(root.parts) > 3:
        yield "the directory of the project", re.escape(str(root.parent).encode() + b"/")
    if len(home.parts) > 2:
        yield "the user's home directory", re.escape(str(home).encode())
    yield "a private directory", HOME
    for what, name in (("the user's name", user), ("the host's name", host)):
        if len(name) >= UNMISTAKABLE and name not in ORDINARY:
            yield what, rb"(?<![A-Za-z0-9])" + re.escape(name.encode()) + rb"(?![A-Za-z0-9])"


def check(path, searched):
    """Yields a sentence for each finding in the file and its members."""
    for name, content in archives.walk(path.name, path.read_bytes()):
        for what, pattern in searched:
            found = {match.group() for match in re.finditer(pattern, content)}
            for text in sorted(t for t in found if not any(re.fullmatch(e, t) for e in EXPECTED)):
                yield f"{name} contains {what}: {text.decode(errors='replace')}"
        if content[257:262] == b"ustar":
            yield from check_owners(name, content)


def check_owners(name, content):
    with tarfile.open(fileobj=io.BytesIO(content)) as archive:
        for member in archive.getmembers():
            owner = (member.uid, member.gid, member.uname or "root", member.gname or "root")
            if owner != (0, 0, "root", "root"):
                yield f"{name}: {member.name} belongs to {owner}"


def this_machine(root):
    user = pwd.getpwuid(os.getuid())
    return list(patterns(root, user.pw_name, pathlib.Path(user.pw_dir), socket.gethostname()))


def main(arguments):
    root, *files = map(pathlib.Path, arguments)
    searched = this_machine(root)
    problems = [problem for file in files for problem in check(file, searched)]
    for problem in problems:
        print(problem, file=sys.stderr)
    return 1 if problems or not files else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
