"""Two hundred items at once."""

import signal
import time

import harness
from harness import STAY
from harness import end_text, item, numbered, start_text

COUNT = 200


class ManyItems(harness.LauncherTest):
    def test_all_start_and_all_end(self):
        names = [str(i) for i in range(COUNT)]
        launcher = self.start(numbered(*(item(name, STAY, name) for name in names)))
        pids = {start.arguments[1].decode(): start.pid for start in self.wait_for_starts(COUNT)}
        self.assertEqual(COUNT + 1, len(harness.processes()))
        launcher.settle()

        began = time.monotonic()
        launcher.send(signal.SIGTERM)
        self.wait_for(lambda: not launcher.running(), "the end of the launcher", 60)
        self.assertEqual(1, launcher.wait())
        # Each item takes its pause of 50 ms.
        self.assertGreaterEqual(time.monotonic() - began, COUNT * 0.050)
        log = launcher.log()
        self.assertEqual(sorted(("DEBUG", start_text(name)) for name in names), sorted(log[:COUNT]))
        self.assertEqual(
            sorted(("ERROR", end_text(name, pids[name], 9)) for name in names),
            sorted(log[COUNT:]),
        )


if __name__ == "__main__":
    harness.main()
