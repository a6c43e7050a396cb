# shellcheck shell=bash
# Builds jsoncpp, GoogleTest and CLI11 from source, for targets that the machine's own packages do not
# serve; to be sourced after base.sh.

# Debian's source packages: name, version, file, SHA-256 and, unless it is bookworm, the suite.
# Debian's patches change only the build and the documentation, so the original file is used without
# them.
jsoncpp_source="libjsoncpp 1.9.5-4 libjsoncpp_1.9.5.orig.tar.gz f409856e5920c18d0c2fb85276e24ee607d2a09b5e7d5f0a371368903c275da2"
# shellcheck disable=SC2034  # For scripts/check/jsoncpp_versions.sh.
newest_jsoncpp_source="libjsoncpp 1.9.8-2 libjsoncpp_1.9.8.orig.tar.gz b7226fba8351038b2ba8c21765fbfb641470cf7c78effc10ff2b76e83c777419 sid"
googletest_source="googletest 1.12.1-0.2 googletest_1.12.1.orig.tar.gz 81964fe578e9bd7c94dfdb09c8e4d6e6759e19967e397dbea48d1c10e45d0df2"
cli11_source="cli11 2.1.2+ds-1 cli11_2.1.2+ds.orig.tar.xz 8143d20b688e98ccce8e24562d3b68e5f47c12e896c42c7ca8553dbde5bed55d"

# Where a Mac, which has no apt-get, downloads the same files.
debian_pool=https://deb.debian.org/debian/pool/main

# download PACKAGE VERSION FILE SUITE: downloads the file of a source package into the current directory.
# apt-get uses a separate package list, so that the machine's lists are not changed.
download() {
    local package=$1 version=$2 file=$3 suite=$4
    if ! command -v apt-get >/dev/null; then
        local directory=${package:0:1}
        [ "${package:0:3}" != lib ] || directory=${package:0:4}
        curl --fail --location --silent --output "$file" "$debian_pool/$directory/$package/$file"
        return
    fi
    mkdir -p lists/partial cache/archives/partial
    echo "deb-src http://deb.debian.org/debian $suite main" >sources.list
    local options=(-o "Dir::Etc::SourceList=$PWD/sources.list" -o Dir::Etc::SourceParts=/dev/null
        -o "Dir::State::Lists=$PWD/lists" -o "Dir::Cache=$PWD/cache" -o APT::Sandbox::User=)
    apt-get "${options[@]}" update &&
        apt-get "${options[@]}" source --download-only --tar-only "$package=$version"
}

# fetch_source PACKAGE VERSION FILE SHA256 [SUITE]: puts the verified file into build/cache/sources.
fetch_source() {
    local sources=$PWD/build/cache/sources file=$3
    local work=$sources/$1.partial log=$sources/$1.log
    [ ! -f "$sources/$file" ] || [ "$(sha256 "$sources/$file")" != "$4" ] || return 0
    echo "Downloading $file"
    rm -rf "$work"
    mkdir -p "$work"
    if ! (cd "$work" && download "$1" "$2" "$file" "${5:-bookworm}") >"$log" 2>&1 || [ ! -f "$work/$file" ]; then
        rm -rf "$work"
        fail "The source package $1 $2 cannot be downloaded (see $log); check the network, or put $file into $sources, and start again."
    fi
    if [ "$(sha256 "$work/$file")" != "$4" ]; then
        rm -rf "$work"
        fail "The checksum of $file differs from scripts/lib/libraries.sh; check where the file came from, or put the right one into $sources, and start again."
    fi
    mv "$work/$file" "$sources/"
    rm -rf "$work" "$log"
}

# build_library ARCHIVE DIRECTORY CMAKE_ARGUMENT...: unpacks ARCHIVE into DIRECTORY and builds it there,
# without a compiler cache that turns paths into relative ones (scripts/release/steps.sh).
build_library() {
    local -x CCACHE_BASEDIR=
    local file=$PWD/$1 directory=$2
    shift 2
    mkdir -p "$directory"
    (cd "$directory" && cmake -E tar xf "$file") &&
        cmake -S "$directory"/* -B "$directory/build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
            -DBUILD_SHARED_LIBS=OFF -DBUILD_OBJECT_LIBS=OFF -DJSONCPP_WITH_TESTS=OFF \
            -DCLI11_BUILD_TESTS=OFF -DCLI11_BUILD_EXAMPLES=OFF -DCLI11_BUILD_DOCS=OFF \
            -DCMAKE_PROJECT_INCLUDE="$PWD/cmake/KestraneShipped.cmake" \
            -DCMAKE_INSTALL_LIBDIR=lib "$@" &&
        cmake --build "$directory/build" --target install
}

# build_libraries NAME CMAKE_ARGUMENT...: builds the libraries, static, into build/deps/NAME. Does
# nothing if they exist and were built by the same arguments, compiler and sources.
build_libraries() {
    local prefix=build/deps/$1 recipe source file
    shift
    recipe="$* $(cat "${BASH_SOURCE[0]}" cmake/macos-*.cmake cmake/KestraneShipped.cmake scripts/requirements/zig.txt | cksum)"
    [ "$(cat "$prefix/recipe" 2>/dev/null)" != "$recipe" ] || return 0
    for source in "$jsoncpp_source" "$googletest_source" "$cli11_source"; do
        # shellcheck disable=SC2086  # package, version, file and checksum are words
        fetch_source $source
    done
    rm -rf "$prefix" "$prefix.partial"
    mkdir -p "$prefix.partial"
    for source in "$jsoncpp_source" "$googletest_source" "$cli11_source"; do
        file=$(echo "$source" | cut -d' ' -f3)
        echo "Building $file for $prefix"
        if ! build_library "build/cache/sources/$file" "$prefix.partial/${file%%_*}" "$@" \
            -DCMAKE_INSTALL_PREFIX="$PWD/$prefix.partial/prefix" >"$prefix.log" 2>&1; then
            rm -rf "$prefix.partial"
            fail "Building $file failed (see $prefix.log); check the compiler named there and start again."
        fi
    done
    echo "$recipe" >"$prefix.partial/prefix/recipe"
    mv "$prefix.partial/prefix" "$prefix"
    rm -rf "$prefix.partial" "$prefix.log"
}

# build_linux_libraries: builds the libraries that the packages for Linux contain.
build_linux_libraries() {
    build_libraries linux
}

# need_libcxx: notes the missing packages of Clang and libc++.
need_libcxx() {
    need_command clang++ clang llvm
    if ! echo '#include <string>' | clang++ -stdlib=libc++ -x c++ -fsyntax-only - 2>/dev/null; then
        note_missing libc++-dev llvm
        note_missing libc++abi-dev llvm
    fi
}

# build_libcxx_libraries: builds the libraries with Clang and libc++ for the preset "libcxx".
build_libcxx_libraries() {
    build_libraries libcxx -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_CXX_FLAGS=-stdlib=libc++
}
