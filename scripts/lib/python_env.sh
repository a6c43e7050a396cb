# shellcheck shell=bash
# Private Python environments; to be sourced after base.sh.

# python_env NAME: makes build/venv/NAME from the pinned wheels of scripts/requirements/NAME.txt,
# once, and sets `python` to its interpreter. A copy of the list in the environment, written last,
# marks it as complete; one without that copy is made anew.
python_env() {
    local requirements=scripts/requirements/$1.txt env=build/venv/$1
    python=$PWD/$env/bin/python
    cmp -s "$requirements" "$env/requirements.txt" && return
    need_command python3 python3 python3
    if ! python3 -c 'import ensurepip' 2>/dev/null; then
        note_missing python3-venv python
    fi
    install_or_fail
    rm -rf "$env"
    mkdir -p build/venv
    echo "Making the Python environment $env"
    if ! python3 -m venv "$env" >"$env.log" 2>&1; then
        rm -rf "$env"
        fail "python3 cannot make an environment (see $env.log); install its venv module (on Debian: apt-get install python3-venv) and start again."
    fi
    if ! "$python" -m pip install --no-deps --only-binary :all: --require-hashes \
        --requirement "$requirements" >"$env.log" 2>&1; then
        rm -rf "$env"
        if grep -q 'DO NOT MATCH THE HASHES' "$env.log"; then
            fail "A wheel has another checksum than $requirements says (see $env.log); clear pip's cache (pip cache purge), check where pip takes wheels from, and start again."
        fi
        fail "pip cannot get the wheels of $requirements (see $env.log); check the network and pip's settings and start again."
    fi
    rm "$env.log"
    cp "$requirements" "$env/requirements.txt"
}
