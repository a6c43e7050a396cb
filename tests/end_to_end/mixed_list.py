"""A launch list with every kind of item, for the tests of what launchlist says about its log."""

import os
import signal

from launcher import END, STAY, item, numbered


def run(test, kills, **options):
    """Runs one item that stays, one that fails, one that crashes and one that is killed from outside
    with each of these two signals. Returns the launcher, which has been stopped."""
    launcher = test.start(
        numbered(
            item("stays", STAY, "stays"),
            item("fails", END, "exit", "3"),
            item("crashes", END, "signal", str(int(signal.SIGSEGV))),
            item("killed", STAY, "killed"),
        ),
        **options,
    )
    test.wait_for_starts(1, "stays")
    for count, number in enumerate(kills, 1):
        child = test.wait_for_starts(count, "killed")[-1]
        os.kill(child.pid, number)
    test.wait_for_starts(3, "killed")
    test.wait_for_starts(7, "exit")
    test.wait_for_starts(7, "signal")
    test.assertEqual(1, launcher.stop())
    return launcher


def wait_until_settled(test):
    """Waits until the log's last record is old enough to show that nothing followed."""
    test.holds_for(1.1, lambda: True, "")
