# shellcheck shell=bash
# A headless browser that Python drives; to be sourced after install.sh.

# python_with MODULE...: sets `python` to an interpreter that has the modules. A Python that is not
# the system's own does not see the modules of the system's packages.
python_with() {
    local candidate modules
    modules=$(printf ', %s' "$@")
    for candidate in python3 /usr/bin/python3; do
        if "$candidate" -c "import ${modules#, }" 2>/dev/null; then
            # shellcheck disable=SC2034  # used by the caller
            python=$candidate
            return
        fi
    done
    return 1
}

# need_browser MODULE...: notes which of Chromium, its driver and the Python modules are missing.
need_browser() {
    local module
    need_command chromium chromium chromium
    need_command chromedriver chromium-driver chromedriver
    for module in "$@"; do
        python_with "$module" || note_missing "python3-$module" "python-$module"
    done
    # Without any font a page shows no text.
    if [ "$(uname)" = Linux ] && [ ! -d /usr/share/fonts/truetype/dejavu ]; then
        note_missing fonts-dejavu-core -
    fi
}
