"""Checks that the files of a release contain what docs/release.md promises, and state its version.

    check_contents.py VERSION DIST PLATFORM...

DIST is the directory of the files, PLATFORM is linux or macos. Prints each broken promise on a separate
line; the exit status is 1 if there is any. The manual pages and schemas must be those of docs/.
"""

import gzip
import io
import json
import pathlib
import plistlib
import re
import sys
import tarfile
import xml.parsers.expat
import zipfile

import archives

ROOT = pathlib.Path(__file__).parents[2]

BUNDLE = "Kestrane.app/Contents"
PROGRAMS = ("MacOS/launcher", "MacOS/launchlist", "Frameworks/qv7api.ini")
COMPLETIONS = (
    "share/bash-completion/completions/launchlist",
    "share/fish/vendor_completions.d/launchlist.fish",
    "share/zsh/site-functions/_launchlist",
)


# --- Reading. The members of an artefact are a dictionary: the name, and the bytes or, of a symbolic
# link, the target. Directories have no entry.


def tar_members(content, prefix):
    """The members whose names begin with `prefix`, a regular expression, without it."""
    with tarfile.open(fileobj=io.BytesIO(content)) as archive:
        for member in archive.getmembers():
            name = re.sub(f"^{prefix}", "", member.name)
            if member.issym():
                yield name, member.linkname
            elif member.isreg():
                yield name, archive.extractfile(member).read()


def deb_members(path):
    """The installed files without the leading usr/, and the control file as "control"."""
    for name, content in archives.ar_members(path.read_bytes()):
        if name.startswith("data.tar"):
            yield from tar_members(content, r"\./usr/")
        elif name.startswith("control.tar"):
            yield from ((n, c) for n, c in tar_members(content, r"\./") if n == "control")


def zip_members(path):
    with zipfile.ZipFile(path) as archive:
        for entry in archive.infolist():
            if not entry.is_dir():
                yield entry.filename, archive.read(entry)


# --- Promises


def artefacts(version, platforms):
    """The name of each artefact, how to read it, what it must contain, and where its notices are."""
    name = f"kestrane-launcher-{version}"
    notices = "share/doc/kestrane-launcher/copyright"
    if "linux" in platforms:
        archive = f"{name}-linux-x86_64"
        yield (
            f"{archive}.tar.gz",
            lambda path: tar_members(path.read_bytes(), re.escape(archive) + "/"),
            linux_problems,
            notices,
        )
        yield f"kestrane-launcher_{version}_amd64.deb", deb_members, deb_problems, notices
    if "macos" in platforms:
        notices = f"{BUNDLE}/Resources/THIRD-PARTY-NOTICES.txt"
        yield f"{name}-macos.zip", zip_members, macos_problems, notices
        notices = "Kestrane.dSYMs/THIRD-PARTY-NOTICES.txt"
        yield f"{name}-macos-dsyms.zip", zip_members, dsym_problems, notices


def missing(members, names):
    return [f"{name} is missing" for name in names if not members.get(name)]


def linux_problems(members, version):
    programs = [f"lib/kestrane/{BUNDLE}/{program}" for program in PROGRAMS]
    programs += [f"lib/kestrane/{BUNDLE}/Frameworks/libqv7log.so", *COMPLETIONS]
    yield from missing(members, [*programs, "share/lnav/formats/kestrane/kestrane_launcher.json"])
    link = "bin/launchlist"
    if members.get(link) != f"../lib/kestrane/{BUNDLE}/MacOS/launchlist":
        yield f"{link} does not lead to the program"
    yield from page_problems(members, version)
    yield from schema_problems(members)


def deb_problems(members, version):
    yield from linux_problems(members, version)
    yield from missing(members, ["share/doc/kestrane-launcher/changelog.gz"])
    control = members.get("control", b"").decode()
    if f"Version: {version}" not in control.splitlines():
        yield f"the control file does not state version {version}"


def page_problems(members, version):
    # A page's last line has no room for the commit of a snapshot.
    short = re.match(r"[0-9.]+(~[a-z]+)?", version).group()
    for source in sorted((ROOT / "docs/man").glob("*.[1-9]")):
        name = f"share/man/man{source.suffix[1:]}/{source.name}.gz"
        page = gzip.decompress(members[name]).decode() if members.get(name) else None
        if page is None:
            yield f"{name} is missing"
        elif f'.Os "Kestrane {short}"' not in page.splitlines():
            yield f"{name} does not state version {short}"
        elif page != source.read_text(encoding="utf-8").replace("@short_version@", short):
            yield f"{name} is not docs/man/{source.name}"


def schema_problems(members):
    docs = ROOT / "docs"
    for source in [docs / "launch-list.schema.json", *sorted((docs / "schema").glob("*.json"))]:
        name = f"share/kestrane-launcher/{source.relative_to(docs)}"
        if members.get(name) != source.read_bytes():
            yield f"{name} is missing, or not the schema in docs"


def macos_problems(members, version):
    programs = [*PROGRAMS, "Frameworks/libqv7log.dylib"]
    yield from missing(members, [f"{BUNDLE}/{program}" for program in programs])
    name = f"{BUNDLE}/Info.plist"
    number = re.match(r"[0-9.]+", version).group()
    try:
        plist = plistlib.loads(members.get(name, b""))
    except (ValueError, plistlib.InvalidFileException, xml.parsers.expat.ExpatError):
        yield f"{name} cannot be read"
        return
    for key in ("CFBundleVersion", "CFBundleShortVersionString"):
        if plist.get(key) != number:
            yield f"{name}: {key} is {plist.get(key)!r}, not {number!r}"


def dsym_problems(members, _):
    programs = ("launcher", "launchlist", "libqv7log.dylib")
    names = [f"Kestrane.dSYMs/{p}.dSYM/Contents/Resources/DWARF/{p}" for p in programs]
    yield from missing(members, names)


def notice_problems(members, name, artefact, sbom):
    """The notices must name each component that the artefact contains, and quote its licence."""
    text = members.get(name, b"")
    text = text.decode() if isinstance(text, bytes) else ""
    identifiers = {p["SPDXID"] for p in sbom["packages"] if p["name"] == artefact}
    linked = {
        relation["relatedSpdxElement"]
        for relation in sbom["relationships"]
        if relation["spdxElementId"] in identifiers
        and relation["relationshipType"] == "STATIC_LINK"
    }
    components = [p for p in sbom["packages"] if p["SPDXID"] in linked]
    if not components:
        yield "the SBOM names no component that it contains"
    sections = re.split(r"^-{78}$", text, flags=re.MULTILINE)
    for part in components:
        title = f"\n{part['name']} {part['versionInfo']}\nLicence: {part['licenseDeclared']}\n"
        section = [s for s in sections if s.startswith(title)]
        # After the title come the copyright, the source, and a licence of at least some lines.
        if not section or part["copyrightText"] not in section[0]:
            yield f"{name} does not name {part['name']} {part['versionInfo']}"
        elif len(section[0].partition("\nSource: ")[2].split()) < 30:
            yield f"{name} does not quote the licence of {part['name']}"


def problems(version, dist, platforms):
    """Yields a sentence for each broken promise."""
    sbom = json.loads((dist / f"kestrane-launcher-{version}.spdx.json").read_text(encoding="utf-8"))
    for name, read, check, notices in artefacts(version, platforms):
        if not (dist / name).is_file():
            yield f"{name} is missing"
            continue
        members = dict(read(dist / name))
        for problem in [
            *check(members, version),
            *notice_problems(members, notices, name, sbom),
        ]:
            yield f"{name}: {problem}"


def main(arguments):
    version, dist, *platforms = arguments
    found = list(problems(version, pathlib.Path(dist), platforms))
    for problem in found:
        print(problem, file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
