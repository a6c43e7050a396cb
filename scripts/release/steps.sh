# shellcheck shell=bash
# The steps of scripts/release.sh; to be sourced after the scripts that it names.
# shellcheck disable=SC2154  # out, lipo and zig are set by the caller and by prepare_macos_tools

# read_arguments [--snapshot [--linux] [--reuse]]: sets `platforms`; `snapshot` if this is not a release;
# and `reuse` if object files of other builds may be used.
read_arguments() {
    snapshot='' reuse='' platforms="linux macos"
    local argument
    for argument; do
        case "$argument" in
            --snapshot) snapshot=yes ;;
            --linux) platforms=linux ;;
            --reuse) reuse=yes ;;
            *) fail "Unknown argument \"$argument\"; only --snapshot, --linux and --reuse are supported." ;;
        esac
    done
    # A release is built from its sources only, and for both platforms.
    [ -n "$snapshot" ] || [ $# -eq 0 ] || fail "$* is supported only with --snapshot."
}

# read_version: sets `version`, which consists of `number`, the version in CMakeLists.txt, and `suffix`.
# Fails if a release would not be what its tag says.
read_version() {
    number=$(sed -n 's/^project(KestraneLauncher VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
    suffix=
    local changes
    changes=$(git status --porcelain)
    if [ -n "$snapshot" ]; then
        # The tilde makes Debian's tools sort a snapshot before the release.
        suffix="~snapshot$(git log -1 --format=%cd.%h --abbrev=8 --date=format:%Y%m%d)${changes:+.changed}"
    elif [ -n "$changes" ]; then
        fail "The tree has changes that are not committed; commit them and start again, or use --snapshot."
    elif [ -z "$(git tag --points-at HEAD --list "v$number")" ]; then
        fail "This commit is not tagged v$number, the version in CMakeLists.txt; tag it and start again, or use --snapshot."
    fi
    version=$number$suffix
    write_notes >/dev/null
}

# The last commit's time stands for the time of the build. A compiler cache must not turn the paths of
# sources into relative ones, because cmake/KestraneShipped.cmake would not replace these.
set_reproducible_environment() {
    export CCACHE_BASEDIR=
    SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
    export SOURCE_DATE_EPOCH LC_ALL=C.UTF-8 TZ=UTC
    umask 022
}

# Prints who is named as the maintainer of the package.
maintainer() {
    sed -n 's/^set(CPACK_DEBIAN_PACKAGE_MAINTAINER "\(.*\)")/\1/p' packaging/CMakeLists.txt
}

# require_maintainer: a release must name somebody who can be reached. The sources contain a placeholder,
# because only a publisher knows the address.
require_maintainer() {
    local address
    address=$(maintainer)
    if [ -z "$snapshot" ] && [[ $address != *" <"*@*">" || $address == *".invalid>" ]]; then
        fail "The maintainer \"$address\" is a placeholder; set CPACK_DEBIAN_PACKAGE_MAINTAINER in packaging/CMakeLists.txt, commit, tag and start again, or use --snapshot."
    fi
}

prepare_release_tools() {
    on_a_mac && fail "A release is built on Linux, for macOS too; run this on Debian 12."
    # Programs that are linked with a newer system's libraries need that system.
    grep -q '^VERSION_CODENAME=bookworm$' /etc/os-release ||
        [ -n "$snapshot" ] || fail "The packages would not run on Debian 12; build the release there."
    need_build_tools
    need_command dpkg-shlibdeps dpkg-dev -
    need_command readelf binutils -
    need_command dsymutil-14 llvm-14 -
    need_command lintian lintian -
    install_or_fail
    prepare_macos_tools
}

# reuse_objects FROM TO: with --reuse, copies the object files of one build directory into another. Ninja
# compiles a source again unless its command is the same and no file that it reads is newer.
reuse_objects() {
    local to=$PWD/$2
    if [ -n "$reuse" ] && [ -f "$1/.ninja_log" ] && [ -f "$1/.ninja_deps" ]; then
        mkdir -p "$to"
        (cd "$1" && cp --archive .ninja_log .ninja_deps "$to" &&
            find . -name '*.o' -print0 | xargs --null cp --archive --parents --target-directory "$to")
    fi
}

build_linux() {
    build_linux_libraries
    reuse_objects build/bench build/package
    cmake --preset package -DKESTRANE_VERSION_SUFFIX="$suffix" >"$out/linux.log" ||
        fail "CMake cannot configure the build for Linux; fix the errors above and start again."
    cmake --build --preset package -j "$(getconf _NPROCESSORS_ONLN)" ||
        fail "The build for Linux failed; fix the errors above and start again."
}

# The programs of a bundle.
shipped="MacOS/launcher MacOS/launchlist Frameworks/libqv7log.dylib"
shipped_names="launcher launchlist libqv7log.dylib"

build_macos() {
    local architecture
    for architecture in $architectures; do
        build_shipped "$architecture"
        build_with_debug_map "$architecture"
        make_dsyms "$architecture"
    done
    join_dsyms
    join_slices
}

# build_release_slice ARCHITECTURE CMAKE_OPTION...
build_release_slice() {
    build_slice "$@" -DKESTRANE_BUILD_TESTS=OFF "-DKESTRANE_VERSION_SUFFIX=$suffix"
}

# build_shipped ARCHITECTURE: builds and stages the programs that are shipped. out/ARCHITECTURE.links
# receives the linker's commands.
build_shipped() {
    reuse_objects "build/macos/$1" "$out/$1"
    ZIG_VERBOSE_LINK=1 build_release_slice "$1" | tee "$out/$1.links"
    stage_slice "$1"
}

# Prints the C++ library of the programs that are shipped, from the linker's commands on standard input. The
# compiler links the examples, which keep their references to object files, with another variant.
cxx_libraries() {
    grep -E "^zig ld .* -o [^ ]*/(${shipped_names// /|}) " | grep -oE '[^ ]*/libc\+\+(abi)?\.a' |
        awk '!seen[$0]++' | tr '\n' ' '
}

# build_with_debug_map ARCHITECTURE: links the same programs for dsymutil, with the same C++ library.
# Without these options, the compiler would link a variant of that library with debug information: its
# code differs slightly, and it contains paths of this machine.
build_with_debug_map() {
    local cxx_library
    cxx_library=$(cxx_libraries <"$out/$1.links")
    [ "$(wc -w <<<"$cxx_library")" -eq 2 ] ||
        fail "The programs for $1 are not linked with one C++ library (see $out/$1.links): $cxx_library"
    build_release_slice "$1" -DKESTRANE_DEBUG_MAP=ON -DCMAKE_CXX_STANDARD_LIBRARIES="$cxx_library" \
        -DCMAKE_EXE_LINKER_FLAGS=-nostdlib++ -DCMAKE_SHARED_LINKER_FLAGS=-nostdlib++
    cmake --install "$out/$1" --prefix "$out/linked-$1" >>"$out/$1.log"
}

# make_dsyms ARCHITECTURE: makes the debug information of the shipped programs. Runs dsymutil in the
# directory of the build, because the linker notes the paths of object files relative to it.
make_dsyms() {
    local program name
    mkdir -p "$out/dsym-$1"
    for program in $shipped; do
        name=${program##*/}
        (cd "$out/$1" && dsymutil-14 -o "../dsym-$1/$name.dSYM" "../linked-$1/Kestrane.app/Contents/$program") \
            >"$out/dsymutil.log" 2>&1 || true
        # dsymutil also succeeds if it does not find an object file.
        [ ! -s "$out/dsymutil.log" ] ||
            fail "dsymutil failed (see $out/dsymutil.log); fix the errors there and start again."
        python3 -B scripts/release/dsym.py adopt "$out/stage/$1/Kestrane.app/Contents/$program" \
            "$out/linked-$1/Kestrane.app/Contents/$program" "$out/dsym-$1/$name.dSYM/Contents/Resources/DWARF/$name"
    done
}

# Joins the debug information of both architectures.
join_dsyms() {
    local program file
    cp -R "$out/dsym-arm64" "$out/$macos_dsyms"
    for program in $shipped; do
        program=${program##*/}
        file=$program.dSYM/Contents/Resources/DWARF/$program
        "$lipo" -create "$out/dsym-arm64/$file" "$out/dsym-x86_64/$file" \
            -output "$out/$macos_dsyms/$file"
    done
}

# third_party COMMAND ARGUMENT...: runs third_party.py with the linkers' lists.
third_party() {
    local lists=(linux=build/package/{launcher,launchlist,qv7log}.map)
    [[ $platforms != *macos* ]] || lists+=(macos="$out/arm64.links" macos="$out/x86_64.links")
    python3 -B scripts/release/third_party.py "$1" "$2" "${lists[@]}" "${@:3}"
}

package_linux() {
    local packaging=build/package/packaging
    third_party notices linux >"$packaging/copyright"
    write_debian_changelog >"$packaging/changelog"
    cpack --config build/package/CPackConfig.cmake -B "$out/cpack" >"$out/cpack.log" ||
        fail "CPack failed (see $out/cpack.log); fix the errors there and start again."
    cp "$out"/cpack/*.tar.gz "$out"/cpack/*.deb build/dist/
    python3 -B scripts/release/archives.py normalize build/dist/*.tar.gz
}

package_macos() {
    local resources=$out/Kestrane.app/Contents/Resources name=build/dist/kestrane-launcher-$version-macos
    mkdir -p "$resources"
    third_party notices macos >"$resources/THIRD-PARTY-NOTICES.txt"
    cp "$resources/THIRD-PARTY-NOTICES.txt" "$out/$macos_dsyms/"
    python3 -B scripts/release/archives.py zip "$name.zip" "$out/Kestrane.app"
    python3 -B scripts/release/archives.py zip "$name-dsyms.zip" "$out/$macos_dsyms"
}
macos_dsyms=Kestrane.dSYMs

# write_notes: prints the version's part of the changelog.
write_notes() {
    local notes
    notes=$(awk -v heading="## $number" '/^## / { found = $0 == heading; next } found' CHANGELOG.md | sed '1{/^$/d}')
    [ -n "$notes" ] || fail "CHANGELOG.md has no section \"## $number\"; write it and start again."
    echo "$notes"
}

# Nothing of an earlier build must get into a release.
start_empty() {
    rm -rf build/dist build/package "$out"
    mkdir -p build/dist "$out"
}

# The newest version's changes in the format of Debian's changelogs.
write_debian_changelog() {
    printf 'kestrane-launcher (%s) stable; urgency=medium\n\n' "$version"
    # Joins the lines of each change, and breaks them where Debian's tools expect it.
    write_notes | sed ':a; N; $!ba; s/\n  */ /g' | fold -s -w 74 |
        sed 's/^- /  * /; t; s/^/    /' | sed 's/ *$//'
    printf '\n -- %s  %s\n' "$(maintainer)" "$(date --rfc-email --date "@$SOURCE_DATE_EPOCH")"
}

write_documents() {
    local files
    mapfile -t files < <(ls build/dist/*)
    third_party sbom "$version" -- "${files[@]}" >"$out/sbom.json"
    mv "$out/sbom.json" "build/dist/kestrane-launcher-$version.spdx.json"
    write_notes >build/dist/RELEASE-NOTES.md
    (cd build/dist && sha256sum kestrane-* RELEASE-NOTES.md >../SHA256SUMS && mv ../SHA256SUMS .)
}

check_traces() {
    python3 -B scripts/release/check_paths.py "$PWD" build/dist/* ||
        fail "The artefacts contain traces of this machine; see above."
}

# The following check the files in build/dist, not what they were made from.

check_documents() {
    # shellcheck disable=SC2086  # platforms are words
    python3 -B scripts/release/check_contents.py "$version" build/dist $platforms ||
        fail "The artefacts do not contain what docs/release.md promises; see above."
    python_env spdx
    "$python" -B scripts/release/check_sbom.py build/dist || fail "The SBOM or a checksum is wrong; see above."
}

check_linux() {
    local tar=$out/unpacked/tar deb=$out/unpacked/deb
    mkdir -p "$tar" "$deb"
    tar -xzf build/dist/*.tar.gz --strip-components 1 -C "$tar"
    dpkg-deb --extract build/dist/*.deb "$deb"
    diff -r "$tar/lib" "$deb/usr/lib" || fail "The two packages for Linux contain different programs."
    python3 -B scripts/release/check_hardening.py "$tar" "$deb" ||
        fail "The programs for Linux are not hardened; see above."
    [ "$("$tar/bin/launchlist" --version)" = "launchlist $version" ] ||
        fail "launchlist --version does not print $version."
    lintian --fail-on error,warning,info,pedantic --display-info --pedantic build/dist/*.deb ||
        fail "lintian reports the above; fix it, or explain it in packaging/lintian-overrides."
}

check_macos() {
    local macos=$out/unpacked/macos dist=$PWD/build/dist file
    mkdir -p "$macos"
    for file in "$dist"/*.zip; do
        (cd "$macos" && cmake -E tar xf "$file")
    done
    scripts/macos/check_bundle.sh "$macos/Kestrane.app"
    python3 -B scripts/release/dsym.py check "$macos/Kestrane.app" "$macos/$macos_dsyms" . ||
        fail "The debug information does not belong to the macOS programs; see above."
}
