#!/usr/bin/env python3
"""Everything that a kqftpd meets in its life, for as long as wanted: short and long sessions, plain and with TLS, slow
readers, hang-ups at any moment, administrators who look, stop transfers and end sessions, ports that come and go while
the settings are read again. At the end the books agree, nothing has leaked, and the latencies are printed.

usage: ftp_soak.py BUILD_DIR [--minutes M] [--scale N] [--seed N]
  --scale   times the usual number of clients (about 60 at a time)
  --seed    of the clients' choices
"""

import argparse
import ftplib
import io
import json
import os
import random
import shutil
import signal
import socket
import ssl
import statistics
import tempfile
import threading
import time
import traceback

from ftp_smoke import ImplicitFTP
from kqftpd import ADMIN, Kqftpd, PASSWORD, USER, free_port, total, wait_for

SAMPLE_SECS = 5
# A run of at least this long has three phases, with a rest after each: while clients are inside, one log-in more or less
# at a time makes 16 MiB, the memory of its password check.
PHASES_FROM_SECS = 300
SLOW_BYTES = 400000
# What a client may meet without anybody being at fault: an administrator ended its session or its transfer, or the
# port that it came by has just been taken away.
STEPPED_IN = ("421", "426")


class Notes:
    """What all clients saw, guarded by one lock."""

    def __init__(self):
        self.lock = threading.Lock()
        self.times = {}    # kind of operation -> seconds, one for each
        self.counts = {}
        self.errors = []

    def took(self, kind, start):
        with self.lock:
            self.times.setdefault(kind, []).append(time.monotonic() - start)

    def count(self, kind):
        with self.lock:
            self.counts[kind] = self.counts.get(kind, 0) + 1

    def error(self, text):
        with self.lock:
            self.errors.append(text)


class Worker(threading.Thread):
    """Does one thing again and again until told to stop."""

    def __init__(self, number, world):
        super().__init__(daemon=True)
        self.world = world
        self.random = random.Random("%d-%d" % (world.seed, number))
        self.folder = "client-%d" % number
        self.data = self.random.randbytes(300000)

    def run(self):
        while not self.world.stop.is_set():
            try:
                self.work()
                self.world.notes.count(type(self).__name__)
            except ftplib.Error as error:
                if str(error)[:3] in STEPPED_IN:
                    self.world.notes.count("stepped in")
                else:
                    self.world.notes.error("%s: %s" % (type(self).__name__, traceback.format_exc()))
            except (EOFError, ConnectionError, TimeoutError, ssl.SSLError) as error:
                # A connection that was ended by an administrator, or that the system forgot in a full backlog.
                self.world.notes.count("connection lost: " + type(error).__name__)
            except Exception:  # whatever it is, it is reported
                self.world.notes.error("%s: %s" % (type(self).__name__, traceback.format_exc()))
            self.world.stop.wait(self.random.uniform(0, self.PAUSE))

    def log_in(self, user=USER):
        """Plain, with AUTH TLS, or with TLS from the first byte."""
        kind = self.random.choice(["plain", "plain", "explicit", "implicit"])
        port = self.world.server.tls_port if kind == "implicit" else self.random.choice(self.world.ports)
        context = ssl.create_default_context()
        context.check_hostname = False
        context.verify_mode = ssl.CERT_NONE
        ftp = (ftplib.FTP() if kind == "plain" else ImplicitFTP(context=context) if kind == "implicit"
               else ftplib.FTP_TLS(context=context))
        start = time.monotonic()
        ftp.connect("127.0.0.1", port, timeout=30)
        self.world.notes.took("connect, " + kind, start)
        start = time.monotonic()
        if kind == "plain":
            ftp.login(user, PASSWORD)
        else:
            ftp.login(user, PASSWORD, secure=kind == "explicit")
            ftp.prot_p()
        self.world.notes.took("log in, " + kind, start)
        ftp.set_pasv(self.random.random() < 0.8)
        return ftp

    def timed(self, kind, operation, *arguments):
        start = time.monotonic()
        result = operation(*arguments)
        self.world.notes.took(kind, start)
        return result

    def enter_folder(self, ftp):
        try:
            ftp.cwd(self.folder)
        except ftplib.error_perm:
            ftp.mkd(self.folder)
            ftp.cwd(self.folder)

    def move_a_file(self, ftp):
        size = self.random.choice([0, 1000, 65536, len(self.data)])
        self.timed("store, up to 300 kB", ftp.storbinary, "STOR file", io.BytesIO(self.data[:size]))
        back = io.BytesIO()
        self.timed("retrieve, up to 300 kB", ftp.retrbinary, "RETR file", back.write)
        if back.getvalue() != self.data[:size]:
            raise AssertionError("what came back differs")


class Short(Worker):
    """A session of a moment."""
    PAUSE = 4.0

    def work(self):
        ftp = self.log_in()
        self.enter_folder(ftp)
        for _ in range(self.random.randint(0, 3)):
            self.move_a_file(ftp)
        self.timed("list", ftp.retrlines, "LIST", lambda line: None)
        ftp.quit()


class Long(Worker):
    """A session of up to two minutes in which little happens."""
    PAUSE = 2.0

    def work(self):
        ftp = self.log_in()
        self.enter_folder(ftp)
        end = time.monotonic() + self.random.uniform(10, 120)
        while time.monotonic() < end and not self.world.stop.wait(self.random.uniform(0.1, 4)):
            self.timed("command", ftp.voidcmd, "NOOP")
            if self.random.random() < 0.1:
                self.move_a_file(ftp)
        ftp.quit()


class SlowReader(Worker):
    """Takes a file in small pieces with pauses."""
    PAUSE = 5.0

    def work(self):
        ftp = self.log_in()
        ftp.voidcmd("TYPE I")
        with ftp.transfercmd("RETR slow") as data:
            received = 0
            while not self.world.stop.is_set():
                piece = data.recv(8192)
                if not piece:
                    break
                received += len(piece)
                self.world.stop.wait(0.2)
        if received == SLOW_BYTES:
            ftp.voidresp()
            ftp.quit()
        else:
            ftp.close()


class HangUp(Worker):
    """Goes away at any moment: before the greeting, in a handshake, in a command, in a transfer."""
    PAUSE = 4.0

    def work(self):
        moment = self.random.randrange(5)
        if moment < 3:
            port = self.world.server.tls_port if moment == 1 else self.random.choice(self.world.ports)
            with socket.create_connection(("127.0.0.1", port), timeout=30) as client:
                if moment == 1:
                    client.sendall(b"\x16\x03\x01\x02\x00\x01"[:self.random.randint(0, 6)])
                elif moment == 2:
                    client.recv(1000)
                    client.sendall(b"USER somebody\r\nPASS x"[:self.random.randint(0, 21)])
            return
        ftp = self.log_in()
        self.enter_folder(ftp)
        ftp.voidcmd("TYPE I")
        data = ftp.transfercmd("STOR broken" if moment == 3 else "RETR ../slow")
        if moment == 3:
            data.sendall(self.data[:self.random.randint(0, 100000)])
        else:
            data.recv(self.random.randint(1, 100000))
        for end in self.random.sample([data, ftp], 2):
            end.close()


class Administrator(Worker):
    """Looks, and now and then stops a transfer or ends a session."""
    PAUSE = 5.0

    def work(self):
        ftp = self.log_in(ADMIN)
        for _ in range(self.random.randint(1, 20)):
            who = self.timed("SITE WHO", ftp.sendcmd, "SITE WHO")
            others = [line.split() for line in who.splitlines()[1:-1] if line.split()[1:2] == [USER]]
            if others and self.random.random() < 0.3:
                other = self.random.choice(others)[0]
                try:
                    ftp.sendcmd(self.random.choice(["SITE STOP %s", "SITE KICK %s somebody said so"]) % other)
                except ftplib.error_perm as error:
                    if str(error)[:3] != "550":  # it has gone meanwhile
                        raise
            self.timed("SITE STAT", ftp.sendcmd, "SITE STAT")
            if self.world.stop.wait(self.random.uniform(0.1, 2)):
                break
        ftp.quit()


class World:
    """The server, who uses it, and what was seen."""
    CLIENTS = [(Short, 25), (Long, 20), (SlowReader, 5), (HangUp, 8), (Administrator, 2)]

    def __init__(self, server, options):
        self.server = server
        self.seed = options.seed
        self.notes = Notes()
        self.stop = threading.Event()
        self.ports = [server.port]
        self.second_port = free_port()
        self.scale = options.scale
        self.numbers = iter(range(1, 1 << 30))
        self.samples = []  # (descriptors, threads), while clients are inside
        self.rests = []    # resident KiB, after each phase

    def change_ports(self, second):
        """Lets the server read its settings again, with or without a second port."""
        listen = "127.0.0.1:%d" % self.server.port + (",127.0.0.1:%d" % self.second_port if second else "")
        self.server.settings["listen"] = listen
        if not second:
            self.ports = [self.server.port]
        with open(self.server.settings_file + ".new", "w") as file:
            json.dump(self.server.settings, file)
        os.replace(self.server.settings_file + ".new", self.server.settings_file)
        self.server.process.send_signal(signal.SIGHUP)
        if second:
            wait_for(lambda: self.answers(self.second_port), 30, "the second port")
            self.ports = [self.server.port, self.second_port]
        self.notes.count("settings read again")

    @staticmethod
    def answers(port):
        try:
            with socket.create_connection(("127.0.0.1", port), timeout=5) as client:
                return client.recv(3) == b"220"
        except OSError:
            return False

    def run(self, seconds):
        phases = 3 if seconds >= PHASES_FROM_SECS else 1
        for _ in range(phases):
            self.run_phase(seconds / phases)
            wait_for(lambda: sessions_now(self.server) == 1, 60, "the sessions to end")
            self.rests.append(self.resident_at_rest())

    def run_phase(self, seconds):
        """All clients come, stay for so long, and go."""
        self.stop.clear()
        workers = [kind(next(self.numbers), self) for kind, count in self.CLIENTS for _ in range(count * self.scale)]
        for worker in workers:
            worker.start()
        end = time.monotonic() + seconds
        while time.monotonic() < end and not self.notes.errors:
            time.sleep(SAMPLE_SECS)
            self.samples.append((self.server.descriptors(), self.server.threads()))
            if len(self.samples) % 4 == 0:
                self.change_ports(second=len(self.samples) % 8 == 4)
        self.stop.set()
        for worker in workers:
            worker.join(120)
            if worker.is_alive():
                self.notes.error("a client does not end: " + type(worker).__name__)
        if self.notes.errors:
            raise AssertionError("%d clients failed, the first: %s" % (len(self.notes.errors), self.notes.errors[0]))

    def resident_at_rest(self):
        """The least of a second, in which whoever asked for the sessions has gone, too."""
        least = self.server.resident_kib()
        for _ in range(10):
            time.sleep(0.1)
            least = min(least, self.server.resident_kib())
        return least


def check_flat(samples, what, place, share, allowance):
    """The median of the last third is not above that of the second third by more than share and allowance."""
    third = len(samples) // 3
    if third < 3:
        return
    before = statistics.median(sample[place] for sample in samples[third:2 * third])
    after = statistics.median(sample[place] for sample in samples[2 * third:])
    print("  %-14s median of the second third %8d, of the last third %8d" % (what, before, after))
    if after > before * (1 + share) + allowance:
        raise AssertionError(what + " grew")


def check_books(server, totals):
    """Totals, session log, activity log and event log say the same."""
    sessions = server.sessions()
    sums = total(sessions)
    if total(server.activity()) != sums:
        raise AssertionError("activity sums %s, session sums %s" % (total(server.activity()), sums))
    accepted = sum(1 for line in server.event_lines() if line[5] == "Connection Accepted" and line[6] == "")
    if len(sessions) != accepted:
        raise AssertionError("%d sessions recorded, %d accepted by the event log" % (len(sessions), accepted))
    told = dict(line.strip().split(": ", 1) for line in totals.splitlines()[1:-1])
    # The administrator's own session is not in the totals whole while it asks.
    for name, key in (("Connections in", "ConnectionsIn"), ("Logins", "LoginSuccesses"),
                      ("Files uploaded", "FilesCreated"), ("Files downloaded", "FilesRead"),
                      ("Bytes in", "DataInBytes")):
        behind = sums[key] - int(told[name])
        if not 0 <= behind <= 1000:
            raise AssertionError("%s: totals %s, sessions %d" % (name, told[name], sums[key]))
    return len(sessions), sums


def report(world, count, sums):
    print("soak: %d sessions, %d connections in, %d out, %d bytes in, %d bytes out, %d commands" %
          (count, sums["ConnectionsIn"], sums["ConnectionsOutSuccesses"], sums["DataInBytes"], sums["DataOutBytes"],
           sums["CommandsIn"]))
    print("  TLS handshakes %d, failed %d" % (sums["SSLSuccesses"], sums["SSLFails"]))
    for kind in sorted(world.notes.counts):
        print("  %-40s %7d" % (kind, world.notes.counts[kind]))
    print("  latencies in ms                 count    median       95 %       99 %    longest")
    for kind in sorted(world.notes.times):
        times = sorted(world.notes.times[kind])
        pick = [times[min(len(times) - 1, int(len(times) * share))] * 1000 for share in (0.5, 0.95, 0.99)]
        print("  %-28s %8d %9.1f %10.1f %10.1f %10.1f" % (kind, len(times), *pick, times[-1] * 1000))


def soak(server, options):
    world = World(server, options)
    world.run(options.minutes * 60)
    totals = site(server, "SITE STAT")
    took = server.stop()
    count, sums = check_books(server, totals)
    report(world, count, sums)
    check_flat(world.samples, "descriptors", 0, 0.2, 20)
    check_flat(world.samples, "threads", 1, 0.2, 10)
    print("  resident KiB   at rest " + ", ".join(str(rest) for rest in world.rests))
    if world.rests[-1] > world.rests[0] * 1.1 + 4096:
        raise AssertionError("resident KiB grew")
    print("  stopped in %.2f s" % took)


def site(server, question):
    ftp = ftplib.FTP()
    ftp.connect("127.0.0.1", server.port, timeout=30)
    ftp.login(ADMIN, PASSWORD)
    text = ftp.sendcmd(question)
    ftp.quit()
    return text


def sessions_now(server):
    return len(site(server, "SITE WHO").splitlines()) - 2


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--minutes", type=float, default=0.5)
    parser.add_argument("--scale", type=int, default=1)
    parser.add_argument("--seed", type=int, default=1)
    options = parser.parse_args()
    folder = tempfile.mkdtemp(prefix="kqftpd-soak-")
    tls_port = free_port()
    server = Kqftpd(options.build, folder, listen_tls="127.0.0.1:%d" % tls_port, hammer_attempts=0)
    server.tls_port = tls_port
    with open(os.path.join(server.home, "slow"), "wb") as file:
        file.write(random.Random(options.seed).randbytes(SLOW_BYTES))
    try:
        server.start()
        soak(server, options)
        print("soak: ok")
    finally:
        server.end()
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    main()
