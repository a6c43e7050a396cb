"""Writes the third-party notices and the SBOM (SPDX 2.3) of a release.

    third_party.py notices PLATFORM LINKED...       prints the notices for linux or macos
    third_party.py sbom VERSION LINKED... -- ARTEFACT...    prints the SBOM

LINKED are the linkers' own lists of what they linked, PLATFORM=FILE: a map by GNU ld for linux, a
linker command for macos. A file in such a list that belongs to no component below is an error, so the
licence of everything that is linked is known.
"""

import collections
import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys
import tarfile
import time
import uuid

ROOT = pathlib.Path(__file__).parents[2]
ZIG = ROOT / "build/venv/zig/bin/python"

# The launcher's sources state no licence. An artefact must not claim one.
OWN_LICENCE = "NOASSERTION"

Component = collections.namedtuple(
    "Component", "name version licence copyright source checksum notice linked"
)


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()


def sha256(path):
    return hashlib.sha256(pathlib.Path(path).read_bytes()).hexdigest()


# --- Libraries built from pinned sources (scripts/lib/libraries.sh)


def pinned(name, licence, copyright, member):
    text = (ROOT / "scripts/lib/libraries.sh").read_text(encoding="utf-8")
    line = re.search(rf'^{name}_source="(.*)"$', text, re.MULTILINE).group(1)
    package, version, file, checksum = line.split()
    with tarfile.open(ROOT / "build/cache/sources" / file) as archive:
        names = [n for n in archive.getnames() if re.fullmatch(rf"[^/]+/{member}", n)]
        notice = archive.extractfile(names[0]).read().decode()
    place = package[:4] if package.startswith("lib") else package[0]
    source = f"https://deb.debian.org/debian/pool/main/{place}/{package}/{file}"
    version = re.sub(r"[+-].*", "", version)
    return Component(name, version, licence, copyright, source, checksum, notice, "STATIC_LINK")


def jsoncpp(_):
    return pinned(
        "jsoncpp", "MIT", "2007-2010 Baptiste Lepilleur and The JsonCpp Authors", "LICENSE"
    )


def cli11(_):
    return pinned("cli11", "BSD-3-Clause", "2017-2019 University of Cincinnati", "LICENSE")


# --- What the cross compiler for macOS adds (scripts/requirements/zig.txt)


def zig_directory():
    return pathlib.Path(run(str(ZIG), "-c", "import ziglang; print(ziglang.__path__[0])"))


def zig_component(name, version, licence, copyright, notice):
    text = (ROOT / "scripts/requirements/zig.txt").read_text(encoding="utf-8")
    release = re.search(r"^ziglang==(\S+)", text, re.MULTILINE).group(1)
    checksum = re.search(r"--hash=sha256:(\w+)", text).group(1)  # The first one, for x86_64.
    source = f"https://pypi.org/project/ziglang/{release}/"
    notice = (zig_directory() / notice).read_text(encoding="utf-8")
    version = version or release
    return Component(name, version, licence, copyright, source, checksum, notice, "STATIC_LINK")


def llvm_version():
    config = (zig_directory() / "lib/libcxx/include/__config").read_text(encoding="utf-8")
    number = int(re.search(r"define _LIBCPP_VERSION (\d+)", config).group(1))
    return f"{number // 10000}.{number // 100 % 100}.{number % 100}"


LLVM_LICENCE = "Apache-2.0 WITH LLVM-exception"


def libcxx(_):
    notice = "lib/libcxx/LICENSE.TXT"
    return zig_component("libc++", llvm_version(), LLVM_LICENCE, "the LLVM contributors", notice)


def libcxxabi(_):
    notice = "lib/libcxxabi/LICENSE.TXT"
    return zig_component("libc++abi", llvm_version(), LLVM_LICENCE, "the LLVM contributors", notice)


def compiler_rt(_):
    return zig_component("compiler-rt of Zig", None, "MIT", "Zig contributors", "LICENSE")


# --- Parts of the Debian system


def debian(name, licence, copyright, linked, notice=None):
    """A component that a Debian package contains: the one of the file that was linked."""

    def make(file):
        owner = owner_of(os.path.realpath(file))
        version = run("dpkg-query", "--show", "--showformat=${Version}", owner)
        package = owner.split(":")[0]
        source = f"https://packages.debian.org/{package}"
        document = pathlib.Path(f"/usr/share/doc/{package}/copyright").read_text(encoding="utf-8")
        text = notice(document) if notice else None
        return Component(name, version, licence, copyright, source, sha256(file), text, linked)

    return make


def owner_of(file):
    """The package that contains a file. /lib is /usr/lib, but packages may use either name."""
    names = [file, file.removeprefix("/usr")]
    command = ["dpkg-query", "--search", *names]
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    return result.stdout.split(": ")[0]


def runtime_exception(document):
    """The part of the GNU compilers' licence that permits linking their run-time libraries."""
    begin = document.index("GCC RUNTIME LIBRARY EXCEPTION")
    return document[begin : document.index("\n\n\n", begin)]


GCC_LICENCE = "GPL-3.0-or-later WITH GCC-exception-3.1"
FSF = "Free Software Foundation, Inc."
libstdcxx = debian("libstdc++", GCC_LICENCE, FSF, "STATIC_LINK", runtime_exception)
libgcc = debian("libgcc", GCC_LICENCE, FSF, "STATIC_LINK", runtime_exception)
START = """These object files of the GNU C library are covered by the GNU Lesser General Public License,
with the permission to link their compiled versions into any program and to distribute that program
without restriction."""
glibc_start = debian(
    "glibc start-up code", "LGPL-2.1-or-later", FSF, "STATIC_LINK", lambda document: START
)
glibc = debian("glibc", "LGPL-2.1-or-later", FSF, "DYNAMIC_LINK")
zlib = debian("zlib", "Zlib", "Jean-loup Gailly and Mark Adler", "DYNAMIC_LINK")
libuuid = debian("libuuid", "BSD-3-Clause", "Theodore Ts'o", "DYNAMIC_LINK")


def lib_system(_):
    source = "https://developer.apple.com/macos/"
    return Component(
        "libSystem", "11.0", "NOASSERTION", "Apple Inc.", source, None, None, "DYNAMIC_LINK"
    )


# Which component a linked file belongs to; the first match counts. None stands for our own files, which
# the linkers name relative to the directory of the build.
EXPLAINED = [
    (r".*/libjsoncpp\.a", jsoncpp),
    (r".*/libc\+\+\.a", libcxx),
    (r".*/libc\+\+abi\.a", libcxxabi),
    (r".*/libcompiler_rt\.a", compiler_rt),
    (r"-lSystem", lib_system),
    (r".*/libstdc\+\+\.a", libstdcxx),
    (r".*/(libgcc|libgcc_eh)\.a|.*/crt(begin|end)S?\.o", libgcc),
    (r".*/(Scrt1|crti|crtn)\.o|.*/lib(c_nonshared|dl)\.a", glibc_start),
    (r".*/lib(c|m|mvec)\.so\.\d+|.*/ld-linux-x86-64\.so\.2", glibc),
    (r".*/libz\.so", zlib),
    (r".*/libuuid\.so", libuuid),
    # Scripts that name libraries.
    (r".*/lib(c|m)\.so", None),
    (r"[^/].*\.(o|a|so|dylib)|/tmp/\w+\.ltrans\d+\.ltrans\.o", None),
]


def linked_files(platform, path):
    """The files in a linker's list, each once, in the order of the list."""
    text = path.read_text(encoding="utf-8")
    if platform == "linux":
        files = re.findall(r"^LOAD (.+)$", text, re.MULTILINE)
    else:
        commands = re.findall(r"^zig ld .*", text, re.MULTILINE)
        files = [word for command in commands for word in command.split()[2:]]
        files = [word for word in files if re.search(r"\.(o|a|dylib|tbd)$|^-l.", word)]
    return list(dict.fromkeys(files))


def components(lists):
    """The components on each platform, from (platform, file) pairs. CLI11 has headers only, so no linker
    knows of it."""
    found = collections.defaultdict(dict)
    for platform, path in lists:
        for file in linked_files(platform, path):
            make = explain(file, path)
            if make is not None and make not in found[platform]:
                found[platform][make] = make(file)
        found[platform].setdefault(cli11, cli11(None))
    return {platform: list(made.values()) for platform, made in found.items()}


def explain(file, path):
    for pattern, make in EXPLAINED:
        if re.fullmatch(pattern, file):
            return make
    return sys.exit(
        f"{path} contains {file}; name its component in scripts/release/third_party.py."
    )


# --- Notices


def own_licence():
    if OWN_LICENCE == "NOASSERTION":
        return "No licence is declared for the launcher itself (in terms of SPDX: NOASSERTION).\n"
    return f"The licence of the launcher itself: {OWN_LICENCE}\n"


def notices(platform, lists):
    yield "Kestrane launcher\n"
    yield own_licence()
    yield "It contains the following work of others.\n"
    for part in components([pair for pair in lists if pair[0] == platform])[platform]:
        if part.linked == "STATIC_LINK":
            yield f"\n{'-' * 78}\n{part.name} {part.version}\nLicence: {part.licence}\n"
            yield f"Copyright (c) {part.copyright}\nSource: {part.source}\n\n"
            yield part.notice.strip() + "\n"


# --- SBOM


def identifier(*parts):
    return "SPDXRef-" + re.sub(r"[^A-Za-z0-9.]+", "-", "-".join(parts)).strip("-")


def platform_of(artefact):
    return "macos" if "macos" in artefact.name else "linux"


def sbom(version, lists, artefacts):
    date = time.gmtime(int(os.environ["SOURCE_DATE_EPOCH"]))
    packages, relations = [], []
    for artefact in artefacts:
        name = identifier("artefact", artefact.name)
        packages.append(
            {
                "SPDXID": name,
                "name": artefact.name,
                "versionInfo": version,
                "packageFileName": artefact.name,
                "downloadLocation": "NOASSERTION",
                "filesAnalyzed": False,
                "licenseConcluded": OWN_LICENCE,
                "licenseDeclared": OWN_LICENCE,
                "copyrightText": "NOASSERTION",
                "checksums": [{"algorithm": "SHA256", "checksumValue": sha256(artefact)}],
            }
        )
        relations.append(("SPDXRef-DOCUMENT", "DESCRIBES", name))
    for platform, parts in components(lists).items():
        for part in parts:
            name = identifier(platform, part.name)
            packages.append(described(name, part))
            relations += [
                (identifier("artefact", a.name), part.linked, name)
                for a in artefacts
                if platform_of(a) == platform
            ]
    # The identifier of a document must differ if its content does.
    content = json.dumps([packages, relations], sort_keys=True)
    return {
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"kestrane-launcher-{version}",
        "documentNamespace": f"urn:uuid:{uuid.uuid5(uuid.NAMESPACE_OID, content)}",
        "creationInfo": {
            "created": time.strftime("%Y-%m-%dT%H:%M:%SZ", date),
            "creators": [f"Tool: scripts/release/third_party.py-{version}"],
        },
        "packages": packages,
        "relationships": [
            {"spdxElementId": a, "relationshipType": kind, "relatedSpdxElement": b}
            for a, kind, b in relations
        ],
    }


def described(name, part):
    package = {
        "SPDXID": name,
        "name": part.name,
        "versionInfo": part.version,
        "downloadLocation": part.source,
        "filesAnalyzed": False,
        "licenseConcluded": part.licence,
        "licenseDeclared": part.licence,
        "copyrightText": f"Copyright (c) {part.copyright}",
    }
    if part.checksum:
        package["checksums"] = [{"algorithm": "SHA256", "checksumValue": part.checksum}]
    return package


def main(arguments):
    command, first, *rest = arguments
    artefacts = []
    if "--" in rest:
        at = rest.index("--")
        rest, artefacts = rest[:at], [pathlib.Path(name) for name in rest[at + 1 :]]
    lists = [(platform, pathlib.Path(file)) for platform, file in (x.split("=", 1) for x in rest)]
    if command == "notices":
        sys.stdout.write("".join(notices(first, lists)))
    else:
        json.dump(sbom(first, lists, artefacts), sys.stdout, indent=2)
        print()


if __name__ == "__main__":
    main(sys.argv[1:])
