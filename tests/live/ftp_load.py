#!/usr/bin/env python3
"""Many clients at once against kqftpd with mixed work, then the books are checked: no error, no file lost, no
descriptor, thread or byte leaked, and every connection counted once in the totals, the session log and the activity
log.

usage: ftp_load.py BUILD_DIR [--minutes M] [--clients N] [--crash] [--stop-at-work]
  --crash         kill -9 in the middle; after a restart on the same port the logs open and hold what was logged
  --stop-at-work  SIGTERM while all clients are at work: the server ends within 2 s with every session recorded
"""

import argparse
import ftplib
import hashlib
import io
import os
import random
import shutil
import sqlite3
import tempfile
import threading
import time
import traceback

from kqftpd import ADMIN, Kqftpd, PASSWORD, USER, expect, total, wait_for


class Books:
    """What the clients did, to be compared with what the server says it did."""

    def __init__(self):
        self.lock = threading.Lock()
        self.controls = 0   # control connections made
        self.forgotten = 0  # connections that the system forgot before the server saw them
        self.passive = 0    # passive data connections made
        self.active = 0     # active data connections made
        self.logins = 0
        self.stored = 0
        self.retrieved = 0
        self.errors = []

    def add(self, **amounts):
        with self.lock:
            for name, amount in amounts.items():
                setattr(self, name, getattr(self, name) + amount)


class Client(threading.Thread):
    """Logs in, moves files, looks around, leaves; again and again until told to stop."""

    def __init__(self, number, port, books, stop, hold=False):
        super().__init__(daemon=True)
        self.random = random.Random(number)
        self.number = number
        self.folder = "client-%d-%d" % (number, time.monotonic_ns())
        self.port = port
        self.books = books
        self.stop = stop
        self.hold = hold    # connections may break: the server is about to be stopped
        self.files = {}
        self.at_work = threading.Event()

    def run(self):
        while not self.stop.is_set():
            try:
                self.session()
            except Exception:  # whatever it is, it is reported with the client's number
                if self.hold:
                    time.sleep(0.1)
                    continue
                with self.books.lock:
                    self.books.errors.append("client %d: %s" % (self.number, traceback.format_exc()))
                return

    def connect(self):
        """A port has a backlog, and Linux forgets connections that find it full while it answers with SYN cookies:
        such a client takes itself for connected and waits for a greeting that does not come. It tries again, as people
        do. Its farewell may still make the connection whole, so the server may see it or not."""
        while True:
            ftp = ftplib.FTP()
            try:
                ftp.connect("127.0.0.1", self.port, timeout=15)
            except TimeoutError:
                ftp.close()
                self.books.add(forgotten=1)
                continue
            ftp.sock.settimeout(60)
            return ftp

    def session(self):
        ftp = self.connect()
        self.books.add(controls=1)
        ftp.login(USER, PASSWORD)
        self.books.add(logins=1)
        passive = self.random.random() < 0.8
        ftp.set_pasv(passive)
        try:
            ftp.cwd(self.folder)
        except ftplib.error_perm:
            ftp.mkd(self.folder)
            ftp.cwd(self.folder)
        for _ in range(self.random.randint(1, 12)):
            if self.stop.is_set():
                break
            self.at_work.set()
            self.random.choice([self.store, self.store, self.retrieve, self.retrieve, self.list, self.rename,
                                self.delete, self.noop])(ftp, "passive" if passive else "active")
        self.check_listing(ftp, "passive" if passive else "active")
        if self.random.random() < 0.8:
            ftp.quit()
        else:
            ftp.close()

    def store(self, ftp, way):
        name = "file-%d" % self.random.randint(0, 9)
        data = self.random.randbytes(self.random.choice([0, 1, 1000, 65536, 300000]))
        ftp.storbinary("STOR " + name, io.BytesIO(data))
        self.files[name] = hashlib.sha256(data).digest()
        self.books.add(stored=1, **{way: 1})

    def retrieve(self, ftp, way):
        if not self.files:
            return
        name = self.random.choice(sorted(self.files))
        value = hashlib.sha256()
        ftp.retrbinary("RETR " + name, value.update)
        self.books.add(retrieved=1, **{way: 1})
        if value.digest() != self.files[name]:
            raise AssertionError(name + " differs")

    def list(self, ftp, way):
        ftp.retrlines("LIST", lambda line: None)
        self.books.add(**{way: 1})

    def rename(self, ftp, way):
        if self.files:
            old = self.random.choice(sorted(self.files))
            new = "renamed-%d" % self.random.randint(0, 9)
            ftp.rename(old, new)
            self.files[new] = self.files.pop(old)

    def delete(self, ftp, way):
        if self.files:
            name = self.random.choice(sorted(self.files))
            ftp.delete(name)
            del self.files[name]

    def noop(self, ftp, way):
        ftp.voidcmd("NOOP")

    def check_listing(self, ftp, way):
        names = sorted(name for name, _ in ftp.mlsd() if name not in (".", ".."))
        self.books.add(**{way: 1})
        if names != sorted(self.files):
            raise AssertionError("files lost or found: %s" % (set(names) ^ set(self.files)))


def run_clients(server, count, seconds, hold=False):
    books = Books()
    stop = threading.Event()
    clients = [Client(number, server.port, books, stop, hold) for number in range(count)]
    for client in clients:
        client.start()
    if hold:
        return books, stop, clients
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline and not books.errors:
        time.sleep(0.2)
    stop.set()
    for client in clients:
        client.join(120)
    if books.errors:
        raise AssertionError("%d clients failed, the first: %s" % (len(books.errors), books.errors[0]))
    return books, stop, clients


def check_books(server, books):
    """The logs and the clients agree."""
    sessions = server.check_logs()
    by_session = total(sessions)
    if not books.controls <= len(sessions) <= books.controls + books.forgotten:
        raise AssertionError("sessions recorded: %d, wanted %d (and %d forgotten ones at most)" %
                             (len(sessions), books.controls, books.forgotten))
    expect("connections in", by_session["ConnectionsIn"], len(sessions) + books.passive)
    expect("connections out", by_session["ConnectionsOutSuccesses"], books.active)
    expect("logins", by_session["LoginSuccesses"], books.logins)
    expect("files created", by_session["FilesCreated"], books.stored)
    expect("files read", by_session["FilesRead"], books.retrieved)
    return by_session


def site_stat(server):
    """The totals as the running server tells an administrator; counted by the caller as one control connection."""
    ftp = ftplib.FTP()
    ftp.connect("127.0.0.1", server.port, timeout=30)
    ftp.login(ADMIN, PASSWORD)
    text = ftp.sendcmd("SITE STAT")
    ftp.quit()
    return text


def load(server, options):
    warm_up, _, _ = run_clients(server, options.clients, 5)
    time.sleep(2)
    before = (server.descriptors(), server.threads(), server.resident_kib())
    books, _, _ = run_clients(server, options.clients, options.minutes * 60)
    for name in ("controls", "forgotten", "passive", "active", "logins", "stored", "retrieved"):
        setattr(books, name, getattr(books, name) + getattr(warm_up, name))
    # The purger's connection to each of the two data logs leaves one descriptor that SQLite keeps for the next one.
    wait_for(lambda: server.descriptors() <= before[0] + 2, 20, "descriptors to go back to %d" % before[0],
             server.describe_descriptors)
    after = (server.descriptors(), server.threads(), server.resident_kib())
    text = site_stat(server)
    books.controls += 1
    books.logins += 1
    took = server.stop()
    sums = check_books(server, books)
    # Pool threads are kept for use again: there is one for each session of those that overlapped at any time.
    if after[1] > max(before[1], options.clients) + options.clients // 10 or after[2] > before[2] * 1.25 + 8192:
        raise AssertionError("threads or memory grew: %s, then %s" % (before, after))
    print("load: %d clients, %g min, %d sessions, %d data connections, %d files stored, %d retrieved" %
          (options.clients, options.minutes, books.controls, books.passive + books.active, books.stored,
           books.retrieved))
    print("      %d connections forgotten by the system" % books.forgotten)
    print("      %d bytes in, %d bytes out, %d commands; stopped in %.2f s" %
          (sums["DataInBytes"], sums["DataOutBytes"], sums["CommandsIn"], took))
    print("      descriptors, threads, resident KiB: %s, then %s" % (before, after))
    print(text)


def crash(server, options):
    books, stop, clients = run_clients(server, options.clients, 0, hold=True)
    wait_for(lambda: books.controls > options.clients * 3, 60, "some sessions to have ended")
    # Sessions the log has told us about before the crash must be there after it.
    database = sqlite3.connect(next(os.path.join(server.logs, name) for name in os.listdir(server.logs)
                                    if name.endswith(".db") and "session" in name.lower()))
    stored = database.execute("SELECT count(*) FROM records").fetchone()[0]
    database.close()
    port = server.port
    server.kill()
    stop.set()
    for client in clients:
        client.join(120)
    server.settings["listen"] = "127.0.0.1:%d" % port
    start = time.monotonic()
    server.start()
    took = time.monotonic() - start
    kept = len(server.sessions())
    if kept < stored or stored == 0:
        raise AssertionError("%d sessions were logged, %d are left" % (stored, kept))
    more, _, _ = run_clients(server, 20, 3)
    server.stop()
    new = len(server.sessions()) - kept
    if not more.controls <= new <= more.controls + more.forgotten:
        raise AssertionError("%d sessions recorded after the restart, wanted %d" % (new, more.controls))
    server.activity()
    print("crash: %d sessions were in the log, %d after kill -9; the port was there again after %.2f s" %
          (stored, kept, took))


def stop_at_work(server, options):
    books, stop, clients = run_clients(server, options.clients, 0, hold=True)
    # On a busy machine a few may still wait for the port.
    wait_for(lambda: sum(client.at_work.is_set() for client in clients) >= options.clients * 0.9, 120,
             "the clients to be at work")
    took = server.stop()
    stop.set()
    for client in clients:
        client.join(120)
    recorded = len(server.check_logs())
    print("stop: %d clients at work, %d sessions recorded, ended in %.2f s" % (options.clients, recorded, took))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--minutes", type=float, default=0.25)
    parser.add_argument("--clients", type=int, default=200)
    parser.add_argument("--crash", action="store_true")
    parser.add_argument("--stop-at-work", action="store_true")
    options = parser.parse_args()
    folder = tempfile.mkdtemp(prefix="kqftpd-load-")
    server = Kqftpd(options.build, folder)
    try:
        server.start()
        task = crash if options.crash else stop_at_work if options.stop_at_work else load
        task(server, options)
    finally:
        server.end()
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    main()
