# shellcheck shell=bash
# The bundles whose programs run on Linux; to be sourced at the top of the repository after base.sh,
# python_env.sh and guest.sh.

# prepare_stage: creates build/macos/ARCHITECTURE/run from build/macos (scripts/macos/build.sh).
prepare_stage() {
    [ -d build/macos/Kestrane.app ] ||
        fail "There is no bundle build/macos/Kestrane.app; build it with scripts/macos/build.sh and start again."
    need_build_tools
    need_command bwrap bubblewrap -
    install_or_fail
    prepare_guest
    # The helpers that the launcher starts are Linux programs.
    if ! { cmake --preset release && cmake --build build/release --target helper_stay helper_end \
        helper_inherit helper_locations helper_misbehave helper_short_life helper_title; } >build/macos/helpers.log; then
        fail "The helpers do not build (see build/macos/helpers.log)."
    fi
    local architecture
    for architecture in arm64 x86_64; do
        python3 -B tests/macos/stage.py "$architecture" build/release/tests/helpers/bin
    done
}
