"""Signals sent inside the namespace never reach a process outside."""

import os
import signal
import subprocess
import sys
import unittest

import namespace

# Runs inside as process 1. The killer is in the driver's own process group, where a leak would do
# the most harm.
DRIVER = """
import os, signal
assert os.getpid() == 1
victim = os.fork()
if victim == 0:
    signal.pause()
killer = os.fork()
if killer == 0:
    os.kill({target}, signal.SIGKILL)
    os._exit(0)
print("victim", os.waitpid(victim, 0)[1], "killer", os.waitpid(killer, 0)[1])
"""


class Isolation(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # If the isolation fails, only this process group is killed.
        os.setpgid(0, 0)

    def check(self, target, expected):
        bystander = subprocess.Popen([sys.executable, "-c", "input()"], stdin=subprocess.PIPE)
        try:
            driver = namespace.run_in_namespace(
                ["-c", DRIVER.format(target=target)], stdout=subprocess.PIPE, text=True
            )
            self.assertEqual((0, expected), (driver.returncode, driver.stdout))
            self.assertIsNone(bystander.poll(), "a process outside the namespace was killed")
        finally:
            bystander.communicate(b"\n")

    def test_kill_of_the_process_group_stays_inside(self):
        self.assertEqual(os.getpid(), os.getpgrp())
        self.check(0, f"victim {signal.SIGKILL} killer {signal.SIGKILL}\n")

    def test_kill_of_every_process_stays_inside(self):
        self.check(-1, f"victim {signal.SIGKILL} killer 0\n")


if __name__ == "__main__":
    unittest.main()
