"""Starts and stops kqftpd for tests with real clients, and reads what it logged."""

import json
import os
import re
import signal
import socket
import sqlite3
import struct
import subprocess
import time

# Offsets in the stored records: the base's own bytes first, then the counters.
RECORD_OWN = 16
RECORD_COUNTERS = RECORD_OWN + 56
TIME_OWN = 4
COUNTERS = [  # name, offset in the counter block, size
    ("CurrentConnectionsIn", 0, 4), ("CurrentConnectionsOut", 4, 4), ("ConnectionsIn", 8, 4),
    ("ConnectionsOutSuccesses", 12, 4), ("ConnectionsOutFails", 16, 4), ("DataInBytes", 20, 8),
    ("DataOutBytes", 28, 8), ("CommandsIn", 36, 8), ("CommandsOut", 44, 8), ("SSLSuccesses", 52, 4),
    ("SSLFails", 56, 4), ("LoginSuccesses", 60, 4), ("LoginFails", 64, 4), ("DirsCreated", 68, 4),
    ("DirsDeleted", 72, 4), ("DirsMoved", 76, 4), ("DirsRead", 80, 4), ("FilesCreated", 84, 4),
    ("FilesAppended", 88, 4), ("FilesDeleted", 92, 4), ("FilesMoved", 96, 4), ("FilesRead", 100, 4),
]

# A line of the event log without its end: time, kind, session and thread, remote and local end, event, detail, comment.
END = r"(?:[0-9.]+|\[[0-9a-f:]+\]):\d+"
EVENT_LINE = re.compile(r"\d{4}(-\d\d){2} \d\d(:\d\d){2}\.\d{3}\t(Service\t{4}|"
                        r"(Normal|Debug)\t[0-9A-F]{8}-[0-9A-F]{8}\t(END)?\t(END)?\t)[^\t]+\t[^\t]*\t[^\t]*"
                        .replace("END", END))

USER = "anna"
PASSWORD = "a good password"
ADMIN = "root"


def free_port():
    """A port that nobody has now."""
    with socket.create_server(("127.0.0.1", 0)) as finder:
        return finder.getsockname()[1]


def wait_for(condition, seconds, what, describe=lambda: ""):
    """Waits until condition() is true; fails with a message when that takes too long."""
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError("waited %g s for %s %s" % (seconds, what, describe()))
        time.sleep(0.02)


def expect(name, actual, wanted):
    if actual != wanted:
        raise AssertionError("%s: %s, wanted %s" % (name, actual, wanted))


class Kqftpd:
    """One server process over a folder of its own: homes below home/, logs in logs/."""

    def __init__(self, build, folder, emulator="", **settings):
        """emulator: the program that runs a Windows build's kqftpd.exe here; it sees the build's folder, and folder
        must be beneath that."""
        program = os.path.join(build, "bin", "kqftpd")
        self.command = [emulator, program + ".exe"] if emulator else [program]
        # Wine makes Ctrl-C of it, which is how such a program is asked to stop there.
        self.stop_signal = signal.SIGINT if emulator else signal.SIGTERM
        self.folder = folder
        self.home = os.path.join(folder, "home")
        self.logs = os.path.join(folder, "logs")
        os.makedirs(self.home, exist_ok=True)
        os.makedirs(self.logs, exist_ok=True)
        self.settings_file = os.path.join(folder, "settings.json")
        stored = subprocess.run(self.command + ["--hash-password"], input=PASSWORD + "\n", text=True,
                                capture_output=True, check=True).stdout.strip()
        users = [{"name": USER, "password": stored, "home": self.home, "rights": "read,write,delete"},
                 {"name": ADMIN, "password": stored, "home": self.home, "rights": "read,write,delete,admin"}]
        self.settings = {"listen": "127.0.0.1:0", "max_sessions": 1000,
                         "max_sessions_per_address": 0, "log_folder": self.logs, "users": users}
        self.settings.update(settings)
        self.process = None
        self.port = 0

    def start(self):
        with open(self.settings_file, "w") as file:
            json.dump(self.settings, file)
        self.process = subprocess.Popen(self.command + ["--settings", self.settings_file],
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        line = self.process.stdout.readline()
        if not line.startswith("listening on "):
            raise AssertionError("kqftpd said: " + line)
        self.port = int(line.strip().rsplit(":", 1)[1])
        return self

    def stop(self, within=2.0):
        """Asks it to stop; returns how long the server took, and fails when that is too long or it did not end well."""
        start = time.monotonic()
        self.process.send_signal(self.stop_signal)
        code = self.process.wait(timeout=60)
        took = time.monotonic() - start
        self.process.stdout.close()
        if code != 0 or took > within:
            raise AssertionError("kqftpd ended with %d after %.2f s (wanted 0 within %g s)" % (code, took, within))
        return took

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()

    def end(self):
        """Whatever went before: no process is left."""
        if self.process is not None and self.process.poll() is None:
            self.kill()

    def descriptors(self):
        return len(os.listdir("/proc/%d/fd" % self.process.pid))

    def describe_descriptors(self):
        folder = "/proc/%d/fd" % self.process.pid
        return sorted(os.readlink(os.path.join(folder, name)) for name in os.listdir(folder))

    def threads(self):
        return len(os.listdir("/proc/%d/task" % self.process.pid))

    def resident_kib(self):
        with open("/proc/%d/status" % self.process.pid) as status:
            for line in status:
                if line.startswith("VmRSS:"):
                    return int(line.split()[1])
        return 0

    # --- what it logged

    def event_lines(self):
        """The lines of the event log, split at TAB: time, kind, session, remote, local, event, detail, comment."""
        lines = []
        for name in sorted(os.listdir(self.logs)):
            if name.endswith(".db") or "-wal" in name or "-shm" in name:
                continue
            with open(os.path.join(self.logs, name), encoding="latin-1", newline="\n") as log:
                lines += [self._event_fields(line) for line in log]
        return lines

    @staticmethod
    def _event_fields(line):
        if not line.endswith("\n") or not EVENT_LINE.fullmatch(line[:-1]):
            raise AssertionError("no line of an event log: %r" % line)
        return line[:-1].split("\t")

    def _rows(self, table):
        rows = []
        for name in os.listdir(self.logs):
            if not name.endswith(".db"):
                continue
            database = sqlite3.connect(os.path.join(self.logs, name))
            rows += [row[0] for row in database.execute("SELECT data FROM %s" % table)]
            database.close()
        return rows

    def sessions(self):
        """One dictionary of counters per record of the session log."""
        return [read_counters(row, RECORD_COUNTERS) for row in self._rows("records")]

    def activity(self):
        return [read_counters(row, TIME_OWN) for row in self._rows("units")]

    def check_logs(self):
        """When it has stopped: the session log, the activity log and the event log agree. Returns the records of the
        sessions."""
        sessions = self.sessions()
        expect("activity sums", total(self.activity()), total(sessions))
        accepted = sum(1 for line in self.event_lines() if line[5] == "Connection Accepted" and line[6] == "")
        expect("event log, connections accepted", accepted, len(sessions))
        return sessions


def read_counters(row, start):
    return {name: struct.unpack_from("<I" if size == 4 else "<Q", row, start + offset)[0]
            for name, offset, size in COUNTERS}


def total(records):
    """The sums of all counters that only grow."""
    return {name: sum(record[name] for record in records) for name, _, _ in COUNTERS[2:]}
