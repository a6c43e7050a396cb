"""Where the launcher and its siblings in the bundle look for their files."""

import os
import shutil

import harness
from harness import END, HELPERS, WORK
from harness import item, numbered, start_text


def padded(folder, length, name):
    """A folder below `folder`, so deep that the path of `name` in it has this many bytes."""
    missing = length - len(folder) - len("/" + name)
    parts = []
    while missing > 0:
        # Nothing may be left over that a "/" and a name do not fill.
        part = min(missing, 200)
        if missing - part == 1:
            part -= 1
        parts.append("d" * (part - 1))
        missing -= part
    path = "/".join([folder] + parts)
    assert len(path + "/" + name) == length
    return path


class LocationsTest(harness.LauncherTest):
    def locations_of(self, program):
        """What a program of the locations helper says when the launcher starts it."""
        launcher = self.start(numbered(item("a", program)))
        self.wait_for_starts(1)
        self.assertEqual(1, launcher.stop())
        return dict(line.split("=", 1) for line in harness.read_lines(WORK + "/locations"))

    def install(self, path):
        os.makedirs(os.path.dirname(path), exist_ok=True)
        return shutil.copy(HELPERS + "/locations", path)


class Locations(LocationsTest):
    def test_a_program_beside_the_launcher(self):
        contents = self.copy_bundle(WORK + "/bundle")
        program = self.install(contents + "/MacOS/kestranefindersync")
        self.assertEqual(
            {
                "GetAppPath": contents + "/Frameworks",
                "IsFinderSync": "false",
                "GetHomePath": self.home,
                "GetAppDataPath": self.home + "/Library/Application Support",
                "GetSDKName": "Kestrane",
                "GetOSXMountPath": "/Volumes/Share_tester",
                "GetCurrentPath": contents + "/MacOS",
                "GetUserName": "tester",
            },
            self.locations_of(program),
        )

    def test_without_a_frameworks_folder_the_path_stays_unresolved(self):
        program = self.install(WORK + "/alone/locations")
        found = self.locations_of(program)
        self.assertEqual(WORK + "/alone/../Frameworks", found["GetAppPath"])
        self.assertEqual("", found["GetSDKName"])

    def test_the_length_of_the_executable_path(self):
        name = "Kestrane.app/Contents/MacOS/locations"
        # The Frameworks folder is resolved while the path that leads to it has 1,024 bytes at most.
        for length, app_path, current_path in (
            (1020, "/Frameworks", True),
            (1021, "/MacOS/../Frameworks", True),
            (1023, "/MacOS/../Frameworks", True),
            (1024, "", True),
            (1025, "", False),
        ):
            with self.subTest(length):
                folder = padded(f"{WORK}/{length}", length, name)
                contents = self.copy_bundle(folder)
                found = self.locations_of(self.install(f"{folder}/{name}"))
                self.assertEqual(contents + app_path if app_path else "", found["GetAppPath"])
                self.assertEqual("Kestrane" if app_path else "", found["GetSDKName"])
                self.assertEqual(
                    contents + "/MacOS" if current_path else "", found["GetCurrentPath"]
                )

    def test_a_launcher_with_a_path_too_long_logs_without_a_product_name(self):
        name = "Kestrane.app/Contents/MacOS/launcher"
        for length, sdk_name in ((1023, "Kestrane"), (1024, "")):
            with self.subTest(length):
                contents = self.copy_bundle(padded(f"{WORK}/{length}", length, name))
                launcher = self.start(
                    numbered(item("a", END, "exit", "0")), program=contents + "/MacOS/launcher"
                )
                launcher.log_path = self.log_path(sdk_name)
                self.wait_for_starts(2)
                launcher.kill()
                # Only under its name the product has a level file, for DEBUG.
                self.assertEqual(
                    sdk_name != "", ("DEBUG", start_text("a")) in launcher.log(), launcher.log()
                )
                self.assertNotEqual([], launcher.log())

    def test_the_product_name_is_the_bundles(self):
        contents = self.copy_bundle(WORK + "/bundle")
        self.write(contents + "/Frameworks/qv7api.ini", "[SDK]\nNAME=abc\n")
        self.write(self.level_path("abc"), "[LOG]\nLEVEL=DEBUG\n")
        launcher = self.start(
            numbered(item("a")), level_file=None, program=contents + "/MacOS/launcher"
        )
        launcher.log_path = self.log_path("abc")
        self.wait_for_starts(1)
        self.assertEqual([("DEBUG", start_text("a"))], launcher.log())
        self.assertEqual(1, launcher.stop())


class FinderSync(LocationsTest):
    """The extension runs in a sandbox whose home folder is its container."""

    home = "/tmp/home/Library/Containers/com.kestrane.desktop.KestraneFinderSync/Data"

    def test_the_extension_finds_the_bundle_and_the_real_home(self):
        contents = self.copy_bundle(WORK + "/bundle")
        program = self.install(
            contents + "/PlugIns/KestraneFinderSync.appex/Contents/MacOS/KestraneFinderSync"
        )
        found = self.locations_of(program)
        self.assertEqual(
            {
                "GetAppPath": contents + "/Frameworks",
                "IsFinderSync": "true",
                "GetHomePath": self.home,
                "GetAppDataPath": self.home + "/../../../../Library/Application Support",
                "GetSDKName": "Kestrane",
                "GetOSXMountPath": "/Volumes/Share_tester",
                "GetCurrentPath": os.path.dirname(program),
                "GetUserName": "tester",
            },
            found,
        )
        self.assertEqual(
            "/tmp/home/Library/Application Support", os.path.realpath(found["GetAppDataPath"])
        )


if __name__ == "__main__":
    harness.main()
