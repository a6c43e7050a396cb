"""What may become of a launcher that gets SIGTERM, in words. docs/faults.md describes the outcomes."""

import signal

TERMINATED = "ended by signal 15"
GROUP_KILLED = "ended by signal 9, with its process group"
ABORTED = "aborted"
ABORTED_LEFT = "aborted, helpers keep running"
CRASHED = "crashed"
CRASHED_LEFT = "crashed, helpers keep running"
HUNG = "hung"
LOST = "waited for a second SIGTERM, then status 1"
UNKILLED = "waited for a child that was not killed, then status 1"
UNKILLED_AND_LOST = "waited for a child that was not killed and a second SIGTERM, then status 1"
LEFT = "status 1, but helpers keep running"
STOPPED = "status 1"
CHILD_ENDED = "the child alone ended, and was started again"
NO_EFFECT = "no effect"

# By the launcher's exit status, or the negative number of the signal that ended it.
OUTCOME_BY_STATUS = {
    1: STOPPED,
    -signal.SIGTERM: TERMINATED,
    -signal.SIGKILL: GROUP_KILLED,
    -signal.SIGABRT: ABORTED,
    -signal.SIGSEGV: CRASHED,
    -signal.SIGBUS: CRASHED,
    -signal.SIGILL: CRASHED,
}
