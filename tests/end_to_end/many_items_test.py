"""Two hundred items at once."""

import signal
import time

import namespace
from launcher import STAY, LauncherTest, item, numbered
from log import end_text, start_text
from processes import processes

COUNT = 200


class ManyItems(LauncherTest):
    def test_all_start_and_all_are_killed(self):
        names = [str(i) for i in range(COUNT)]
        launcher = self.start(numbered(*(item(name, STAY, name) for name in names)))
        pids = {start.arguments[1].decode(): start.pid for start in self.wait_for_starts(COUNT)}
        self.assertEqual(COUNT + 1, len(processes()))
        launcher.settle()

        began = time.monotonic()
        launcher.send(signal.SIGTERM)
        self.wait_for(lambda: not launcher.running(), "the launcher to end", 60)
        self.assertEqual(1, launcher.wait())
        # Items stop one after another, each with its pause of 50 ms.
        self.assertGreaterEqual(time.monotonic() - began, COUNT * 0.050)
        log = launcher.log()
        self.assertEqual(sorted(("DEBUG", start_text(name)) for name in names), sorted(log[:COUNT]))
        self.assertEqual(
            sorted(("ERROR", end_text(name, pids[name], 9)) for name in names),
            sorted(log[COUNT:]),
        )


if __name__ == "__main__":
    namespace.main()
