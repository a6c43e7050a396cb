# What every script starts with; to be sourced. Sets `root`, the project's folder, and goes there.
# Runs with the bash of macOS, too (3.2).
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cd "$root"

# fail SENTENCE: ends the script with one sentence that says what is wrong and what to do.
fail()
{
    echo "$(basename "$0"): $1" >&2
    exit 1
}

# need TOOL PACKAGE: makes sure that TOOL can be run. Where Debian's apt-get can install PACKAGE, it
# does.
need()
{
    command -v "$1" >/dev/null && return
    if command -v apt-get >/dev/null && [ "$(id -u)" = 0 ]; then
        { apt-get update && apt-get install -y --no-install-recommends "$2"; } >/dev/null 2>&1 || true
        command -v "$1" >/dev/null && return
    fi
    fail "The program $1 is missing; install it (on Debian: apt-get install $2) and start again."
}

on_a_mac()
{
    [ "$(uname)" = Darwin ]
}

sha256()
{
    cmake -E sha256sum "$1" | cut -d' ' -f1
}
