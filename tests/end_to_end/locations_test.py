"""Where the programs of the bundle expect their files."""

import os
import shutil

import namespace
from launcher import END, WORK, LauncherTest, item, numbered
from log import read_lines, start_text
from namespace import HELPERS


def padded(directory, length, name):
    """A directory below `directory` in which the path of `name` has `length` bytes."""
    missing = length - len(directory) - len("/" + name)
    parts = []
    while missing > 0:
        # A single remaining byte could not hold "/" and a name.
        part = min(missing, 200)
        if missing - part == 1:
            part -= 1
        parts.append("d" * (part - 1))
        missing -= part
    path = "/".join([directory] + parts)
    assert len(path + "/" + name) == length
    return path


class LocationsTest(LauncherTest):
    def locations_of(self, program):
        """What a copy of the locations helper prints when the launcher starts it."""
        launcher = self.start(numbered(item("a", program)))
        self.wait_for_starts(1)
        self.assertEqual(1, launcher.stop())
        return dict(line.split("=", 1) for line in read_lines(WORK + "/locations"))

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

    def test_a_missing_frameworks_folder_leaves_the_path_unresolved(self):
        program = self.install(WORK + "/alone/locations")
        found = self.locations_of(program)
        self.assertEqual(WORK + "/alone/../Frameworks", found["GetAppPath"])
        self.assertEqual("", found["GetSDKName"])

    def test_limits_of_the_executable_path(self):
        name = "Kestrane.app/Contents/MacOS/locations"
        # An executable path of 1,020 bytes gives "…/MacOS/../Frameworks" with 1,024, the most that is
        # resolved.
        resolved, unresolved = "/Frameworks", "/MacOS/../Frameworks"
        for length, app_path, current_path in (
            (1020, resolved, True),
            (1021, unresolved, True),
            (1023, unresolved, True),
            (1024, None, True),
            (1025, None, False),
        ):
            with self.subTest(length):
                directory = padded(f"{WORK}/{length}", length, name)
                contents = self.copy_bundle(directory)
                found = self.locations_of(self.install(f"{directory}/{name}"))
                self.assertEqual(contents + app_path if app_path else "", found["GetAppPath"])
                self.assertEqual("Kestrane" if app_path else "", found["GetSDKName"])
                self.assertEqual(
                    contents + "/MacOS" if current_path else "", found["GetCurrentPath"]
                )

    def test_a_launcher_whose_path_is_too_long_logs_without_a_product_name(self):
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
                # The level file that asks for DEBUG belongs to the product name.
                self.assertEqual(
                    sdk_name != "", ("DEBUG", start_text("a")) in launcher.log(), launcher.log()
                )
                self.assertNotEqual([], launcher.log())

    def test_the_product_name_comes_from_the_bundle(self):
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
    """The extension runs in a sandbox whose home directory is its container."""

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
    namespace.main()
