"""Compares values.py with the headers that the compiler ships."""

import os
import subprocess
import sys
import unittest

import values

HERE = os.path.dirname(os.path.abspath(__file__))
MACOS = os.path.join(os.path.dirname(os.path.dirname(HERE)), "build/macos")


def run(architecture, program, *arguments):
    command = [sys.executable, "-IB", f"{HERE}/run.py", architecture, MACOS, program, program]
    done = subprocess.run([*command, *arguments], check=True, capture_output=True, text=True)
    return done.stdout


class Values(unittest.TestCase):
    def test_each_is_the_headers(self):
        ours = {
            **values.ERRNO, **values.OPEN_FLAGS, **values.FCNTL, **values.AT, **values.SIGNALS,
            **values.OTHERS, **values.LAYOUTS,
        }  # fmt: skip
        for architecture in ("arm64", "x86_64"):
            with self.subTest(architecture):
                program = f"{MACOS}/guest/{architecture}/target_values"
                lines = run(architecture, program).splitlines()
                headers = {name: int(value) for name, value in (line.split() for line in lines)}
                self.assertEqual(headers, ours)

    def test_structures_have_the_sizes_that_are_packed(self):
        sizes = {
            "stat": values.STAT, "flock": values.FLOCK, "passwd": values.PASSWD, "tm": values.TM,
            "timespec": values.TIMESPEC, "sigaction": values.SIGACTION,
            "proc_bsdinfo": values.PROC_BSDINFO, "proc_taskinfo": values.PROC_TASKINFO,
            "proc_fileinfo": values.PROC_FILEINFO,
        }  # fmt: skip
        for name, packed in sizes.items():
            with self.subTest(name):
                self.assertLessEqual(packed.size, values.LAYOUTS[name])

    def test_every_error_has_a_text(self):
        self.assertEqual(set(values.ERRNO.values()) | {0}, set(values.ERROR_TEXTS))


if __name__ == "__main__":
    unittest.main()
