"""Lays out a bundle whose programs are scripts that run the bundle's slices: stage.py ARCHITECTURE.

build/macos/ARCHITECTURE/run/ gets three directories for the end-to-end tests: `stage` with the
bundle, `helpers` and `other_log`. Each program takes the path of its script for its own. Helpers
are Linux programs, because the launcher only starts and ends them; those that use the product's
code, or report what a program inherits, are macOS programs.
"""

import os
import shutil
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
MACOS = f"{ROOT}/build/macos"
BUNDLE = f"{MACOS}/Kestrane.app"
MACOS_HELPERS = ("inherit", "locations")

SCRIPT = """\
#!{root}/build/venv/macos/bin/python -IB
import sys
sys.path.insert(0, "{root}/tests/macos")
import run
run.run("{architecture}", "{macos}", "{file}", sys.argv)
"""


def write_script(path, architecture, file):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as script:
        script.write(SCRIPT.format(root=ROOT, architecture=architecture, macos=MACOS, file=file))
    os.chmod(path, 0o755)


def stage(architecture, helpers_of_linux):
    built = f"{MACOS}/{architecture}"
    run = f"{built}/run"
    shutil.rmtree(run, ignore_errors=True)
    contents = f"{run}/stage/Kestrane.app/Contents"
    shutil.copytree(f"{BUNDLE}/Contents", contents)
    for program in os.listdir(f"{contents}/MacOS"):
        os.remove(f"{contents}/MacOS/{program}")
        file = f"{BUNDLE}/Contents/MacOS/{program}"
        write_script(f"{contents}/MacOS/{program}", architecture, file)
    shutil.copytree(helpers_of_linux, f"{run}/helpers")
    for helper in MACOS_HELPERS:
        os.remove(f"{run}/helpers/{helper}")
        file = f"{built}/tests/helpers/bin/{helper}"
        write_script(f"{run}/helpers/{helper}", architecture, file)
    shutil.copytree(f"{built}/tests/helpers/other_log", f"{run}/other_log")
    os.makedirs(f"{MACOS}/reports", exist_ok=True)


if __name__ == "__main__":
    stage(sys.argv[1], sys.argv[2])
