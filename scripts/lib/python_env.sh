# shellcheck shell=bash
# Private Python environments with pinned packages; to be sourced after base.sh.

# python_env NAME: creates build/venv/NAME from the hashed wheels of scripts/requirements/NAME.txt, if
# it does not exist yet, and sets `python` to its interpreter. The copy of the requirements, which is
# written last, marks the environment as complete; an incomplete or outdated one is replaced.
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
    echo "Creating the Python environment $env"
    if ! python3 -m venv "$env" >"$env.log" 2>&1; then
        rm -rf "$env"
        fail "python3 cannot create an environment (see $env.log); install its venv module (on Debian: apt-get install python3-venv) and start again."
    fi
    if ! "$python" -m pip install --no-deps --only-binary :all: --require-hashes \
        --requirement "$requirements" >"$env.log" 2>&1; then
        rm -rf "$env"
        if grep -q 'DO NOT MATCH THE HASHES' "$env.log"; then
            fail "The checksum of a wheel differs from $requirements (see $env.log); clear pip's cache (pip cache purge), check where pip downloads wheels from, and start again."
        fi
        fail "pip cannot download the wheels of $requirements (see $env.log); check the network and pip's settings and start again."
    fi
    rm "$env.log"
    cp "$requirements" "$env/requirements.txt"
}

# need_schema_validator: the Python package jsonschema, which tests/schema needs: from the system's
# packages, or with Homebrew, which has none, from the environment build/venv/schema.
need_schema_validator() {
    if command -v brew >/dev/null; then
        python_env schema
    elif ! /usr/bin/python3 -c 'import jsonschema' 2>/dev/null; then
        missing+=(python3-jsonschema)
    fi
}
