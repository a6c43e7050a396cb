"""Checks the SBOM of a release, and its checksums.

    check_sbom.py DIST

DIST is the directory of the files. The SBOM must follow SPDX 2.3, and state the right checksum of every
artefact; SHA256SUMS must do so for every file. Prints each problem on a separate line; the exit
status is 1 if there is any.
"""

import hashlib
import json
import pathlib
import sys

from spdx_tools.spdx.parser.error import SPDXParsingError
from spdx_tools.spdx.parser.parse_anything import parse_file
from spdx_tools.spdx.validation.document_validator import validate_full_spdx_document

# What describes the artefacts, and is therefore not one itself.
DOCUMENTS = {"RELEASE-NOTES.md", "SHA256SUMS"}


def sha256(path):
    return hashlib.sha256(path.read_bytes()).hexdigest()


def format_problems(path):
    """Yields what the reference implementation of SPDX reports."""
    try:
        document = parse_file(str(path))
    except SPDXParsingError as error:
        yield from error.get_messages()
        return
    except json.JSONDecodeError as error:
        yield f"it cannot be read: {error}"
        return
    for message in validate_full_spdx_document(document, "SPDX-2.3"):
        yield message.validation_message


def artefact_problems(sbom, path):
    """Each artefact must be described, with its checksum, and nothing else that looks like one."""
    described = {p["packageFileName"]: p for p in sbom["packages"] if "packageFileName" in p}
    present = {p.name: p for p in path.parent.iterdir() if p != path and p.name not in DOCUMENTS}
    for name in sorted({*described, *present}):
        if name not in present:
            yield f"{name} does not exist"
        elif name not in described:
            yield f"{name} is not described"
        elif described[name].get("checksums") != [
            {"algorithm": "SHA256", "checksumValue": sha256(present[name])}
        ]:
            yield f"the checksum of {name} is wrong"


def checksum_problems(dist):
    """SHA256SUMS must contain every other file, and nothing else."""
    lines = (dist / "SHA256SUMS").read_text(encoding="utf-8").splitlines()
    stated = {name: checksum for checksum, name in (line.split(maxsplit=1) for line in lines)}
    present = {p.name: sha256(p) for p in dist.iterdir() if p.name != "SHA256SUMS"}
    for name in sorted({*stated, *present}):
        if stated.get(name) != present.get(name):
            yield f"SHA256SUMS is wrong about {name}"


def problems(dist):
    paths = list(dist.glob("*.spdx.json"))
    if len(paths) != 1:
        yield f"there are {len(paths)} SBOMs, not one"
        return
    name = paths[0].name
    invalid = list(format_problems(paths[0]))
    yield from (f"{name}: {problem}" for problem in invalid)
    if not invalid:
        sbom = json.loads(paths[0].read_text(encoding="utf-8"))
        yield from (f"{name}: {problem}" for problem in artefact_problems(sbom, paths[0]))
    yield from checksum_problems(dist)


def main(arguments):
    found = list(problems(pathlib.Path(arguments[0])))
    for problem in found:
        print(problem, file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
