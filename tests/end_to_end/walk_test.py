"""How the launch list is read and walked."""

import json
import os
import signal
import time

import harness
from harness import END, NO_NAME, PARSE_ERROR, STAY, WORK
from harness import end_text, item, nameless, numbered, start_text


class Walk(harness.LauncherTest):
    def test_starts_named_items_up_to_the_first_gap(self):
        launcher = self.start(
            {
                "0": item("sync-agent", STAY, "--mode", "background"),
                "1": {"name": "indexer", "program": STAY},
                "2": {"program": STAY},
                "4": {"name": "late", "program": STAY},
            }
        )
        starts = {len(start.arguments): start for start in self.wait_for_starts(2)}
        sync_agent, indexer = starts[3], starts[1]
        self.assertEqual([STAY.encode(), b"--mode", b"background"], sync_agent.arguments)
        self.assertEqual([STAY.encode()], indexer.arguments)
        self.assertEqual(1, launcher.stop())
        self.assertEqual(
            sorted(
                [
                    ("DEBUG", start_text("sync-agent")),
                    ("DEBUG", start_text("indexer")),
                    ("ERROR", NO_NAME),
                    ("ERROR", end_text("sync-agent", sync_agent.pid, 9)),
                    ("ERROR", end_text("indexer", indexer.pid, 9)),
                ]
            ),
            sorted(launcher.log()),
        )


if __name__ == "__main__":
    harness.main()
