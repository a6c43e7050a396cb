"""Builds programs without one protection each and expects the check to name it."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "scripts/release"))
import check_hardening  # noqa: E402

SOURCE = """
#include <stdio.h>
#include <string.h>
int main(int argc, char** argv)
{
    char text[16];
    strcpy(text, argv[argc - 1]);
    return printf("%s", text) == argc;
}
"""
COMPILE = ["-O2", "-fPIE", "-fstack-protector-strong", "-U_FORTIFY_SOURCE", "-D_FORTIFY_SOURCE=2"]
LINK = ["-pie", "-Wl,-z,relro,-z,now,-z,noexecstack"]

BROKEN = {
    "not a PIE": ["-no-pie"],
    "stack is executable": ["-Wl,-z,execstack"],
    "no RELRO": ["-Wl,-z,norelro"],
    "only partial RELRO": ["-Wl,-z,lazy"],
    "stack is not protected": ["-fno-stack-protector"],
    "not fortified": ["-U_FORTIFY_SOURCE"],
    "searches for libraries in": ["-Wl,-rpath,/usr/local/lib"],
}


class CheckHardening(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.work = pathlib.Path(directory.name)
        (self.work / "source.c").write_text(SOURCE)

    def build(self, *options):
        out = self.work / "bin" / "program"
        out.parent.mkdir(exist_ok=True)
        command = ["cc", *COMPILE, *LINK, *options, "source.c", "-o", str(out)]
        subprocess.run(command, check=True, cwd=self.work, capture_output=True)
        return out

    def test_a_hardened_program_passes(self):
        self.assertEqual([], list(check_hardening.problems(self.build())))
        self.assertEqual(0, check_hardening.main([str(self.work / "bin")]))

    def test_the_bundle_may_be_searched_for_libraries(self):
        program = self.build("-Wl,-rpath,$ORIGIN/../Frameworks")
        self.assertEqual([], list(check_hardening.problems(program)))

    def test_each_missing_protection_is_found(self):
        for problem, options in BROKEN.items():
            with self.subTest(problem):
                found = list(check_hardening.problems(self.build(*options)))
                self.assertEqual(1, len(found), found)
                self.assertIn(problem, found[0])
                self.assertEqual(1, check_hardening.main([str(self.work / "bin")]))

    def test_nothing_to_check_is_a_failure(self):
        self.assertEqual(1, check_hardening.main([str(self.work)]))


if __name__ == "__main__":
    unittest.main()
