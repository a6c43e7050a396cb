"""Runs the release's scripts where they must refuse, and on a Mac made of stubs."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).parents[2]

SECRETS = {
    "SIGNING_CERTIFICATE": "Y2VydGlmaWNhdGU=",
    "SIGNING_PASSWORD": "password",
    "SIGNING_IDENTITY": "Developer ID Application: Model",
}
NOTARY_SECRETS = {"NOTARY_KEY": "key", "NOTARY_KEY_ID": "id", "NOTARY_ISSUER": "issuer"}

# Each tool notes its call. ditto creates its destination.
STUBS = {
    "uname": "echo Darwin",
    "uuidgen": "echo 0-0-0",
    "security": "true",
    "codesign": "true",
    "xcrun": 'case "$1" in notarytool) echo "status: $ANSWER" ;; esac',
    "ditto": 'if [ "$1" = -x ]; then mkdir -p "$4/Kestrane.app/Contents/MacOS"; '
    "else eval 'touch \"${'$#'}\"'; fi",
}


class ReleaseTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.project = pathlib.Path(directory.name) / "a projäct"
        for name in ("scripts", "cmake", "packaging"):
            shutil.copytree(ROOT / name, self.project / name)
        for name in ("CMakeLists.txt", "CHANGELOG.md"):
            shutil.copy(ROOT / name, self.project)
        self.tools = self.project.parent / "tools"
        self.tools.mkdir()
        self.calls = self.project.parent / "calls"
        self.environment = {
            "PATH": f"{self.tools}:{os.environ['PATH']}",
            "HOME": directory.name,
            "CALLS": str(self.calls),
            "GIT_CONFIG_GLOBAL": "/dev/null",
            "GIT_CONFIG_SYSTEM": "/dev/null",
        }

    def tool(self, name, text):
        path = self.tools / name
        path.write_text(f'#!/bin/bash\necho "{name} $*" >>"$CALLS"\n{text}\n')
        path.chmod(0o755)

    def run_script(self, name, *arguments, **variables):
        return subprocess.run(
            [self.project / "scripts" / name, *arguments],
            env={**self.environment, **variables},
            capture_output=True,
            text=True,
            check=False,
        )

    def expect_failure(self, result, text):
        self.assertIn(text, result.stderr)
        self.assertEqual(1, result.returncode)


def run_step(command, directory=ROOT, **options):
    """Runs a command after the steps of release.sh have been defined."""
    steps = f"cd '{ROOT}'; . scripts/lib/base.sh; . scripts/release/steps.sh; cd '{directory}'; "
    return subprocess.run(
        ["bash", "-euc", steps + command], capture_output=True, text=True, check=True, **options
    )


class ReuseObjects(unittest.TestCase):
    FILES = (".ninja_log", ".ninja_deps", "launcher/main.cpp.o", "launcher/launcher", "lib.a")

    def reuse(self, reuse):
        """The files that are copied from a build directory, with their times."""
        with tempfile.TemporaryDirectory() as name:
            directory = pathlib.Path(name)
            for index, file in enumerate(self.FILES):
                path = directory / "from" / file
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(file)
                os.utime(path, ns=(0, 1_000_000_007 + index))
            run_step(f"reuse={reuse}; reuse_objects from to/macos; reuse_objects no to", directory)
            to = directory / "to/macos"
            files = [path for path in to.rglob("*") if path.is_file()]
            return {path.relative_to(to).as_posix(): path.stat().st_mtime_ns for path in files}

    def test_object_files_keep_the_times_by_which_ninja_judges_them(self):
        expected = {name: 1_000_000_007 + i for i, name in enumerate(self.FILES[:3])}
        self.assertEqual(expected, self.reuse("yes"))

    def test_nothing_is_reused_unasked(self):
        self.assertEqual({}, self.reuse(""))


class CxxLibraries(unittest.TestCase):
    """The debug information is made from programs with the same C++ library as the shipped ones."""

    SHIPPED = ("qv7log/libqv7log.dylib", "launcher/launcher", "tools/launchlist/launchlist")

    def libraries(self, links):
        """What steps.sh finds in (program, variant of the library) pairs."""
        lines = [
            f"zig ld -dynamic -o {program} main.cpp.o /x/o/{variant}/libc++abi.a "
            f"/x/o/{variant}/libc++.a -lSystem\n"
            for program, variant in links
        ]
        output = "[1/2] Linking\n" + "".join(lines)
        return run_step("cxx_libraries", input=output).stdout.split()

    def test_another_variant_in_the_examples_does_not_matter(self):
        ours = [(program, "a") for program in self.SHIPPED]
        example = [("examples/indexer", "b")]
        for links in (example + ours, ours + example, ours):
            expected = ["/x/o/a/libc++abi.a", "/x/o/a/libc++.a"]
            self.assertEqual(expected, self.libraries(links))

    def test_variants_of_all_shipped_programs_are_found(self):
        links = [(program, program[0]) for program in self.SHIPPED]
        self.assertEqual(6, len(self.libraries(links)))


PLACEHOLDER = "Kestrane maintainers <maintainers@kestrane.invalid>"


class Release(ReleaseTest):
    """Every case ends before anything is built: uname, the first tool after the version is known,
    says that this is a Mac."""

    ACCEPTED = "A release is built on Linux"

    def setUp(self):
        super().setUp()
        self.tool("uname", "echo Darwin")
        self.git("init", "--quiet")
        self.replace("packaging/CMakeLists.txt", PLACEHOLDER, "Margaret <margaret@example.org>")
        self.commit()

    def git(self, *arguments):
        identity = ["-c", "user.name=x", "-c", "user.email=x@example.org"]
        command = ["git", *identity, *arguments]
        subprocess.run(
            command, cwd=self.project, env=self.environment, check=True, stdout=subprocess.DEVNULL
        )

    def commit(self):
        self.git("add", "--all")
        self.git("commit", "--quiet", "--message", "a commit")

    def replace(self, name, old, new):
        path = self.project / name
        path.write_text(path.read_text().replace(old, new))

    def version(self):
        text = (self.project / "CMakeLists.txt").read_text()
        return text.split("VERSION ")[2].split()[0]

    def test_a_clean_tagged_tree_is_accepted(self):
        self.git("tag", f"v{self.version()}")
        self.expect_failure(self.run_script("release.sh"), self.ACCEPTED)

    def test_a_changed_tree_is_refused(self):
        self.git("tag", f"v{self.version()}")
        (self.project / "new.cpp").write_text("")
        self.expect_failure(self.run_script("release.sh"), "not committed")
        self.expect_failure(self.run_script("release.sh", "--snapshot"), self.ACCEPTED)

    def test_an_untagged_tree_is_refused(self):
        self.git("tag", "v99.0.0")
        self.expect_failure(self.run_script("release.sh"), f"not tagged v{self.version()}")
        self.expect_failure(self.run_script("release.sh", "--snapshot"), self.ACCEPTED)

    def test_a_placeholder_for_the_maintainer_is_refused(self):
        for address in (PLACEHOLDER, "Margaret", ""):
            with self.subTest(address):
                text = f'set(CPACK_DEBIAN_PACKAGE_MAINTAINER "{address}")\n'
                (self.project / "packaging/CMakeLists.txt").write_text(text)
                self.commit()
                self.git("tag", "--force", f"v{self.version()}")
                result = self.run_script("release.sh")
                self.expect_failure(result, f'The maintainer "{address}" is a placeholder')
                self.assertIn("CPACK_DEBIAN_PACKAGE_MAINTAINER", result.stderr)
                self.expect_failure(self.run_script("release.sh", "--snapshot"), self.ACCEPTED)

    def test_a_version_without_changes_is_refused(self):
        self.replace("CHANGELOG.md", f"## {self.version()}", "## 99.0.0")
        self.commit()
        self.git("tag", f"v{self.version()}")
        self.expect_failure(self.run_script("release.sh"), "CHANGELOG.md has no section")
        self.expect_failure(self.run_script("release.sh", "--snapshot"), "CHANGELOG.md has no")

    def test_unknown_arguments_are_refused(self):
        self.expect_failure(self.run_script("release.sh", "--snapshto"), 'argument "--snapshto"')

    def test_a_release_is_complete_and_built_from_its_sources_only(self):
        self.git("tag", f"v{self.version()}")
        for option in ("--linux", "--reuse"):
            with self.subTest(option):
                text = "supported only with --snapshot"
                self.expect_failure(self.run_script("release.sh", option), text)
                result = self.run_script("release.sh", "--snapshot", option)
                self.expect_failure(result, self.ACCEPTED)


class Sign(ReleaseTest):
    def setUp(self):
        super().setUp()
        for name, text in STUBS.items():
            self.tool(name, text)
        # Only the calls are of interest here; tests/bundle tests what the check finds.
        for name in ("sign_bundle.sh", "check_bundle.sh"):
            script = self.project / "scripts/macos" / name
            script.write_text(f'#!/bin/bash\necho "{name} $*" >>"$CALLS"\n')
        self.dist = self.project / "build/dist"
        self.dist.mkdir(parents=True)
        (self.dist / "kestrane-launcher-1.0-macos.zip").write_text("unsigned")
        (self.dist / "RELEASE-NOTES.md").write_text("- A change.\n")
        (self.dist / "SHA256SUMS").write_text("outdated\n")
        self.signed = self.dist / "kestrane-launcher-1.0-macos-signed.zip"

    def notes(self):
        return (self.dist / "RELEASE-NOTES.md").read_text()

    def expect_checksums(self):
        subprocess.run(["sha256sum", "--check", "--quiet", "SHA256SUMS"], cwd=self.dist, check=True)
        listed = (self.dist / "SHA256SUMS").read_text().split()[1::2]
        others = {path.name for path in self.dist.iterdir()} - {"SHA256SUMS"}
        self.assertEqual(others, set(listed))

    def test_without_secrets_the_notes_say_that_the_bundle_is_not_signed(self):
        result = self.run_script("release/sign.sh")
        self.assertEqual(0, result.returncode, result.stderr)
        self.assertIn("not signed by a developer", self.notes())
        self.assertNotIn("codesign", self.calls.read_text())
        self.assertFalse(self.signed.exists())
        self.expect_checksums()

    def test_without_a_notary_key_the_notes_say_that_the_bundle_is_not_notarized(self):
        result = self.run_script("release/sign.sh", **SECRETS)
        self.assertEqual(0, result.returncode, result.stderr)
        self.assertIn("signed but not notarized", self.notes())
        self.assertNotIn("notarytool", self.calls.read_text())
        self.assertTrue(self.signed.exists())
        self.expect_checksums()

    def test_signs_notarizes_and_staples_in_this_order(self):
        result = self.run_script("release/sign.sh", **SECRETS, **NOTARY_SECRETS, ANSWER="Accepted")
        self.assertEqual(0, result.returncode, result.stderr)
        calls = self.calls.read_text()
        steps = ["import", "sign_bundle.sh Developer ID", "check_bundle.sh", "notarytool submit"]
        steps += ["stapler staple", "-signed.zip", "delete-keychain"]
        places = [calls.index(step) for step in steps]
        self.assertEqual(sorted(places), places, calls)
        self.assertIn("notarized by Apple", self.notes())
        self.expect_checksums()

    def test_a_bundle_that_apple_rejects_is_not_published(self):
        result = self.run_script("release/sign.sh", **SECRETS, **NOTARY_SECRETS, ANSWER="Invalid")
        self.expect_failure(result, "did not accept the bundle")
        self.assertNotIn("stapler", self.calls.read_text())
        self.assertIn("delete-keychain", self.calls.read_text())
        self.assertFalse(self.signed.exists())

    def test_nothing_to_sign_is_refused(self):
        (self.dist / "kestrane-launcher-1.0-macos.zip").unlink()
        self.expect_failure(self.run_script("release/sign.sh"), "no bundle in build/dist")


class Publish(ReleaseTest):
    def test_publishes_only_the_tag_that_was_built(self):
        self.tool("gh", "true")
        dist = self.project / "build/dist"
        dist.mkdir(parents=True)
        (dist / "kestrane-launcher-1.0.0.spdx.json").write_text("{}")
        (dist / "RELEASE-NOTES.md").write_text("")
        self.expect_failure(self.run_script("release/publish.sh", "v1.0.1"), "v1.0.1")
        self.assertFalse(self.calls.exists())
        self.assertEqual(0, self.run_script("release/publish.sh", "v1.0.0").returncode)
        self.assertIn("release create v1.0.0 --verify-tag", self.calls.read_text())


if __name__ == "__main__":
    unittest.main()
