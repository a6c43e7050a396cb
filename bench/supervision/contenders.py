"""How each measured launcher is configured, started and stopped.

Each runs with its fastest settings: it restarts helpers immediately, as far as it can, and keeps no
log of them. Paths are those inside the namespace that run.py creates.
"""

import json
import os
import signal
import subprocess

WORK = "/tmp/bench"
PROGRAMS = "/tmp/programs"
SERVICES = WORK + "/services"

STAY = "helper_stay"
END = "helper_end"
BLINK = "helper_blink"
SECOND = "helper_second"


class Contender:
    """One launcher. Helpers are given as the names of their programs."""

    # The helper that is restarted fastest: one that exits at once, unless the launcher delays that.
    restarting = END
    # The helper whose restarts are timed while the others exit at once.
    watched = BLINK

    def __init__(self, title):
        self.title = title

    def prepare(self, helpers):
        """Writes the configuration; returns the command line."""
        raise NotImplementedError

    def stop(self, pid):
        """Asks the launcher to stop with its helpers, without waiting."""
        os.kill(pid, signal.SIGTERM)


class Floor(Contender):
    def __init__(self, title, program):
        super().__init__(title)
        self._program = program

    def prepare(self, helpers):
        command = [f"{PROGRAMS}/{self._program}"]
        for program in dict.fromkeys(helpers):
            command += [f"{PROGRAMS}/{program}", str(helpers.count(program))]
        return command


class Launcher(Contender):
    """Our launcher, or another build of it."""

    def __init__(self, title, stage):
        super().__init__(title)
        self._stage = stage

    def prepare(self, helpers):
        items = {
            str(i): {"name": f"helper-{i}", "program": f"{PROGRAMS}/{program}"}
            for i, program in enumerate(helpers)
        }
        path = WORK + "/list.json"
        with open(path, "w", encoding="utf-8") as file:
            json.dump(items, file)
        return [f"{self._stage}/Kestrane.app/Contents/MacOS/launcher", "bench", path]


class ServiceDirectories(Contender):
    """A launcher with one directory for each helper, which contains a program named "run"."""

    # All but s6 restart a helper at once if it ran for a second.
    restarting = SECOND
    watched = SECOND

    def __init__(self, title, lean):
        super().__init__(title)
        self._lean = lean

    def prepare(self, helpers):
        for i, program in enumerate(helpers):
            directory = f"{SERVICES}/{i:04}"
            os.makedirs(directory)
            run = directory + "/run"
            if self._lean:
                os.symlink(f"{PROGRAMS}/{program}", run)
            else:
                with open(run, "w", encoding="utf-8") as file:
                    file.write(f"#!/bin/sh\nexec {PROGRAMS}/{program}\n")
                os.chmod(run, 0o755)
        # runsvdir waits for a second before it reads a directory that has just changed.
        os.utime(SERVICES, (1, 1))
        return self._command(len(helpers))

    def _command(self, count):
        raise NotImplementedError


class Daemontools(ServiceDirectories):
    def _command(self, count):
        return ["svscan", SERVICES]

    def stop(self, pid):
        # svscan would restart a supervise process that has ended.
        os.kill(pid, signal.SIGKILL)
        directories = [f"{SERVICES}/{name}" for name in sorted(os.listdir(SERVICES))]
        subprocess.Popen(["svc", "-dx", *directories])


class Runit(ServiceDirectories):
    def _command(self, count):
        return ["runsvdir", SERVICES]

    def stop(self, pid):
        os.kill(pid, signal.SIGHUP)


class S6(ServiceDirectories):
    def _command(self, count):
        return ["s6-svscan", "-c", str(count + 10), SERVICES]


class Supervisor(Contender):
    """Polls once a second, however long the helper ran."""

    def prepare(self, helpers):
        lines = [
            "[supervisord]",
            "nodaemon=true",
            "logfile=/dev/null",
            "logfile_maxbytes=0",
            "loglevel=critical",
            f"pidfile={WORK}/supervisord.pid",
            f"childlogdir={WORK}",
            "minfds=8192",
            "minprocs=4096",
        ]
        for i, program in enumerate(helpers):
            lines += [
                f"[program:helper-{i}]",
                f"command={PROGRAMS}/{program}",
                "autostart=true",
                "autorestart=true",
                "startsecs=0",
                "stopsignal=KILL",
                "stdout_logfile=NONE",
                "stderr_logfile=NONE",
            ]
        path = WORK + "/supervisord.conf"
        with open(path, "w", encoding="utf-8") as file:
            file.write("\n".join(lines) + "\n")
        return ["supervisord", "-c", path]


FLOORS = {
    "loop": Floor("loop floor", "floor_loop"),
    "threads": Floor("thread floor", "floor_threads"),
}
LAUNCHER = {"launcher": Launcher("launcher", "/tmp/stage")}
LEAN = {
    "daemontools": Daemontools("daemontools", lean=True),
    "runit": Runit("runit", lean=True),
    "s6": S6("s6", lean=True),
    "supervisor": Supervisor("supervisor"),
}
SCRIPTS = {
    "daemontools-sh": Daemontools("daemontools, sh", lean=False),
    "runit-sh": Runit("runit, sh", lean=False),
    "s6-sh": S6("s6, sh", lean=False),
}
# Another build of the launcher, see run.py.
OTHER = {"other": Launcher("other build", "/tmp/other_stage")}

ALL = {**FLOORS, **LAUNCHER, **LEAN, **SCRIPTS, **OTHER}
