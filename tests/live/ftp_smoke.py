#!/usr/bin/env python3
"""Real clients against kqftpd: curl and lftp upload, list, resume, rename, append and download trees with files from
0 bytes to 1 GiB in passive, extended passive and active mode, four clients at once; then the same with TLS (and files
up to 8 MiB), turned on by AUTH TLS and from the first byte, with Python's ftplib as a third client. Every file is
compared by its SHA-256; each client lists by a pattern and sets permissions; what the server logged is read at the end.
Prints one line per step and ends with 1 at the first difference.

usage: ftp_smoke.py BUILD_DIR [--largest MIB] [--emulator PROGRAM]
  --largest MIB       size of the largest file (1024)
  --emulator PROGRAM  runs the kqftpd.exe of a Windows build, while the clients stay on this side
"""

import argparse
import concurrent.futures
import ftplib
import hashlib
import io
import os
import random
import shutil
import socket
import ssl
import subprocess
import tempfile
import time

from kqftpd import Kqftpd, USER, PASSWORD, free_port, total

SIZES = [0, 1, 2, 1023, 1024, 65535, 65536, 1000003, 8 << 20]
LARGEST_TLS = 8 << 20
STOP_LIMIT_EMULATED = 10.0  # seconds; beside other tests, all of whose waits go through one process of Wine


def digest(path):
    value = hashlib.sha256()
    with open(path, "rb") as file:
        while piece := file.read(1 << 20):
            value.update(piece)
    return value.hexdigest()


def make_file(path, size, seed):
    """A file of that size whose every MiB differs."""
    generator = random.Random(seed)
    block = generator.randbytes(1 << 20)
    with open(path, "wb") as file:
        for number in range(size >> 20):
            file.write(number.to_bytes(8, "little") + block[8:])
        file.write(block[:size & ((1 << 20) - 1)])


def make_tree(folder, largest):
    os.makedirs(os.path.join(folder, "sub", "deep er"))
    for number, size in enumerate(SIZES):
        make_file(os.path.join(folder, "file-%d" % size), size, number)
    make_file(os.path.join(folder, "sub", "with blanks and (signs) #1"), 4097, 100)
    make_file(os.path.join(folder, "sub", "deep er", "\u00fcml\u00e4ut"), 12345, 101)
    make_file(os.path.join(folder, "large"), largest, 102)


def files_of(folder):
    return sorted(os.path.relpath(os.path.join(path, name), folder)
                  for path, _, names in os.walk(folder) for name in names)


def compare(expected, actual, who):
    names = files_of(expected)
    if names != files_of(actual):
        raise AssertionError("%s: trees differ: %s" % (who, set(names) ^ set(files_of(actual))))
    for name in names:
        if digest(os.path.join(expected, name)) != digest(os.path.join(actual, name)):
            raise AssertionError("%s: %s differs" % (who, name))


def run(who, command, **options):
    result = subprocess.run(command, capture_output=True, text=True, timeout=900, **options)
    if result.returncode != 0:
        raise AssertionError("%s: %s\nended with %d\n%s\n%s" % (who, command, result.returncode, result.stdout[-3000:],
                                                               result.stderr[-3000:]))
    return result.stdout


class Curl:
    """curl in one of its ways to make data connections."""

    MODES = {"epsv": [], "pasv": ["--disable-epsv"], "eprt": ["--ftp-port", "-"],
             "port": ["--ftp-port", "-", "--disable-eprt"]}

    def __init__(self, server, mode, tls=""):
        self.who = " ".join(["curl", mode, tls]).strip()
        self.base = ["curl", "--silent", "--show-error", "--fail", "--user", USER + ":" + PASSWORD,
                     "--ftp-create-dirs"] + self.MODES[mode]
        self.url = "ftp://127.0.0.1:%d" % server.port
        if tls:
            self.base += ["--insecure", "--ssl-reqd"]
        if tls == "implicit":
            self.url = "ftps://127.0.0.1:%d" % server.tls_port

    def call(self, *arguments):
        return run(self.who, self.base + list(arguments))

    def url_of(self, path):
        quoted = "".join(byte if byte.isalnum() or byte in "/-_." else "".join("%%%02X" % code for code in byte.encode())
                         for byte in path)
        return self.url + "/" + quoted

    def upload(self, tree, remote):
        """All in one session, like the downloads; whatever else it does has a session of its own."""
        pairs = []
        for name in files_of(tree):
            pairs += ["--upload-file", os.path.join(tree, name), self.url_of(remote + "/" + name)]
        self.call(*pairs)

    def download(self, remote, names, target):
        pairs = []
        for name in names:
            pairs += ["--output", os.path.join(target, name), self.url_of(remote + "/" + name)]
        self.call("--create-dirs", *pairs)

    def get(self, remote, local):
        self.call("--output", local, self.url_of(remote))

    def list(self, remote):
        return self.call("--list-only", self.url_of(remote) + "/").split("\n")

    def resume_upload(self, local, remote):
        """Sends the first half, then lets curl find out how much the server has."""
        half = local + ".half"
        size = os.path.getsize(local)
        with open(local, "rb") as source, open(half, "wb") as target:
            target.write(source.read(size // 2))
        self.call("--upload-file", half, self.url_of(remote))
        os.remove(half)
        self.call("--continue-at", "-", "--upload-file", local, self.url_of(remote))

    def resume_download(self, remote, local, original):
        with open(original, "rb") as source, open(local, "wb") as target:
            target.write(source.read(os.path.getsize(original) // 3))
        self.call("--continue-at", "-", "--output", local, self.url_of(remote))

    def append(self, local, remote):
        self.call("--append", "--upload-file", local, self.url_of(remote))

    def rename(self, old, new):
        self.call("--quote", "RNFR /" + old, "--quote", "RNTO /" + new, self.url + "/", "--output", os.devnull)

    def find(self, pattern):
        return self.call("--list-only", "--request", "NLST " + pattern, self.url + "/").split()

    def chmod(self, mode, path):
        self.call("--quote", "SITE CHMOD %s %s" % (mode, path), self.url + "/", "--output", os.devnull)


class Lftp:
    """lftp in one of its ways to make data connections."""

    MODES = {"epsv": "set ftp:passive-mode on; set ftp:prefer-epsv on",
             "pasv": "set ftp:passive-mode on; set ftp:prefer-epsv off",
             "port": "set ftp:passive-mode off"}

    TLS = {"": "set ftp:ssl-allow off",
           "explicit": "set ftp:ssl-force on; set ftp:ssl-protect-data on; set ssl:verify-certificate no",
           "implicit": "set ftp:ssl-protect-data on; set ssl:verify-certificate no"}

    def __init__(self, server, mode, tls=""):
        self.who = " ".join(["lftp", mode, tls]).strip()
        url = "ftps://127.0.0.1:%d" % server.tls_port if tls == "implicit" else "ftp://127.0.0.1:%d" % server.port
        self.setup = ("set cmd:fail-exit on; set net:max-retries 1; %s; %s; open -u %s,'%s' %s; " %
                      (self.TLS[tls], self.MODES[mode], USER, PASSWORD, url))

    def call(self, script):
        return run(self.who, ["lftp", "-c", self.setup + script])

    def upload(self, tree, remote):
        self.call("mirror --reverse '%s' '%s'" % (tree, remote))

    def download(self, remote, names, target):
        self.call("mirror '%s' '%s'" % (remote, target))

    def list(self, remote):
        return self.call("cls -1 '%s/'" % remote).replace(remote + "/", "").split("\n")

    def resume_upload(self, local, remote):
        half = local + ".half"
        with open(local, "rb") as source, open(half, "wb") as target:
            target.write(source.read(os.path.getsize(local) // 2))
        self.call("put '%s' -o '%s'; put -c '%s' -o '%s'" % (half, remote, local, remote))
        os.remove(half)

    def resume_download(self, remote, local, original):
        with open(original, "rb") as source, open(local, "wb") as target:
            target.write(source.read(os.path.getsize(original) // 3))
        self.call("get -c '%s' -o '%s'" % (remote, local))

    def get(self, remote, local):
        self.call("get '%s' -o '%s'" % (remote, local))

    def rename(self, old, new):
        self.call("mv '%s' '%s'" % (old, new))

    def find(self, pattern):
        return self.call("nlist '%s'" % pattern).split()

    def chmod(self, mode, path):
        self.call("chmod %s '%s'" % (mode, path))

    def hash(self, path):
        return self.call("quote XSHA256 '%s'" % path).split()[1]


class ImplicitFTP(ftplib.FTP_TLS):
    """ftplib itself knows AUTH TLS only: the handshake comes with the connection here."""

    def connect(self, host, port, timeout):
        self.sock = self.context.wrap_socket(socket.create_connection((host, port), timeout))
        self.host = host
        self.af = self.sock.family
        self.file = self.sock.makefile("r", encoding=self.encoding)
        self.welcome = self.getresp()
        return self.welcome


class Ftplib:
    """Python's ftplib, always with TLS."""

    MODES = {"passive": True, "active": False}

    def __init__(self, server, mode, tls):
        self.who = " ".join(["ftplib", mode, tls])
        context = ssl.create_default_context()
        context.check_hostname = False
        context.verify_mode = ssl.CERT_NONE
        if tls == "implicit":
            self.ftp = ImplicitFTP(context=context)
            self.ftp.connect("127.0.0.1", server.tls_port, 120)
            self.ftp.login(USER, PASSWORD, secure=False)  # it would say AUTH TLS
        else:
            self.ftp = ftplib.FTP_TLS(context=context, timeout=120)
            self.ftp.connect("127.0.0.1", server.port)
            self.ftp.login(USER, PASSWORD)
        self.ftp.prot_p()
        self.ftp.set_pasv(self.MODES[mode])

    def upload(self, tree, remote):
        folders = {""} | {os.path.dirname(name) for name in files_of(tree)}
        for folder in sorted(folders):
            self.ftp.mkd((remote + "/" + folder).rstrip("/"))
        for name in files_of(tree):
            self.put(os.path.join(tree, name), remote + "/" + name)

    def download(self, remote, names, target):
        for name in names:
            path = os.path.join(target, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            self.get(remote + "/" + name, path)

    def put(self, local, remote, command="STOR", start=None):
        with open(local, "rb") as file:
            file.seek(start or 0)
            self.ftp.storbinary(command + " " + remote, file, rest=start)

    def get(self, remote, local, start=None):
        with open(local, "ab" if start else "wb") as file:
            self.ftp.retrbinary("RETR " + remote, file.write, rest=start)

    def list(self, remote):
        return [name for name, facts in self.ftp.mlsd(remote) if facts["type"] in ("file", "dir")]

    def resume_upload(self, local, remote):
        half = os.path.getsize(local) // 2
        with open(local, "rb") as file:
            self.ftp.storbinary("STOR " + remote, io.BytesIO(file.read(half)))
        self.put(local, remote, start=self.ftp.size(remote))

    def resume_download(self, remote, local, original):
        third = os.path.getsize(original) // 3
        with open(original, "rb") as source, open(local, "wb") as target:
            target.write(source.read(third))
        self.get(remote, local, start=third)

    def rename(self, old, new):
        self.ftp.rename(old, new)

    def append(self, local, remote):
        self.put(local, remote, "APPE")

    def find(self, pattern):
        return self.ftp.nlst(pattern)

    def chmod(self, mode, path):
        self.ftp.sendcmd("SITE CHMOD %s %s" % (mode, path))

    def hash(self, path):
        return self.ftp.sendcmd("XSHA256 " + path).split()[1]

    def quit(self):
        self.ftp.quit()


def exercise(client, tree, work):
    """Everything one client does, in a remote folder of its own."""
    started = time.monotonic()
    remote = client.who.replace(" ", "-")
    mine = os.path.join(work, remote)
    os.makedirs(mine)
    names = files_of(tree)

    client.upload(tree, remote)
    listed = [name.rstrip("/") for name in client.list(remote) if name]
    if sorted(listed) != sorted(os.listdir(tree)):
        raise AssertionError("%s: listed %s" % (client.who, listed))
    back = os.path.join(mine, "back")
    client.download(remote, names, back)
    compare(tree, back, client.who)

    original = os.path.join(tree, "file-1000003")
    copy = os.path.join(mine, "copy")
    shutil.copy(original, copy)
    client.resume_upload(copy, remote + "/resumed")
    client.resume_download(remote + "/resumed", os.path.join(mine, "resumed"), original)
    if digest(original) != digest(os.path.join(mine, "resumed")):
        raise AssertionError(client.who + ": the resumed file differs")

    client.rename(remote + "/resumed", remote + "/renamed")
    if hasattr(client, "append"):
        client.append(original, remote + "/renamed")
        with open(original, "rb") as file:
            expected = hashlib.sha256(file.read() * 2).hexdigest()
    else:
        expected = digest(original)
    client.get(remote + "/renamed", os.path.join(mine, "second"))
    if digest(os.path.join(mine, "second")) != expected:
        raise AssertionError(client.who + ": the appended file differs")
    found = client.find(remote + "/file-*5")
    if found != [remote + "/file-65535"]:
        raise AssertionError("%s: the pattern found %s" % (client.who, found))
    client.chmod("640", remote + "/renamed")
    if hasattr(client, "hash") and client.hash(remote + "/renamed").lower() != expected:
        raise AssertionError(client.who + ": the server's hash differs")
    if hasattr(client, "quit"):
        client.quit()
    shutil.rmtree(mine)
    print("%-25s  ok, %d files, %.1f s" % (client.who, len(names), time.monotonic() - started), flush=True)


def tls_clients(server):
    """Every client in every way that it has with TLS."""
    modes = list(Curl.MODES)
    if run("curl", ["curl", "--version"]).startswith("curl 7."):
        print("curl with TLS in active mode: left out, this curl speaks no TLS on connections that it accepts")
        modes = ["epsv", "pasv"]
    clients = []
    for tls in ("explicit", "implicit"):
        clients += [Curl(server, mode, tls) for mode in modes] + [Lftp(server, mode, tls) for mode in Lftp.MODES]
        clients += [Ftplib(server, mode, tls) for mode in Ftplib.MODES]
    return clients


def exercise_all(clients, tree, folder):
    with concurrent.futures.ThreadPoolExecutor(4) as four:
        for done in [four.submit(exercise, client, tree, folder) for client in clients]:
            done.result()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--largest", type=int, default=1024)
    parser.add_argument("--emulator", default="")
    options = parser.parse_args()
    largest = options.largest << 20
    # An emulator sees the build's folder only.
    folder = tempfile.mkdtemp(prefix="kqftpd-smoke-", dir=options.build if options.emulator else None)
    tls_port = free_port()
    server = Kqftpd(options.build, os.path.join(folder, "server"), options.emulator,
                    listen_tls="127.0.0.1:%d" % tls_port)
    server.tls_port = tls_port
    try:
        tree = os.path.join(folder, "tree")
        make_tree(tree, largest)
        server.start()
        clients = [Curl(server, mode) for mode in Curl.MODES] + [Lftp(server, mode) for mode in Lftp.MODES]
        exercise_all(clients, tree, folder)
        if largest > LARGEST_TLS:
            make_file(os.path.join(tree, "large"), LARGEST_TLS, 102)
        exercise_all(tls_clients(server), tree, folder)
        took = server.stop(STOP_LIMIT_EMULATED) if options.emulator else server.stop()
        failures = [line for line in server.event_lines() if line[5].endswith("Fail")]
        if failures:
            raise AssertionError("the event log holds failures: %s" % failures[:3])
        sessions = server.check_logs()
        sums = total(sessions)
        print("stopped in %.2f s; %d sessions, %d bytes in, %d bytes out" %
              (took, len(sessions), sums["DataInBytes"], sums["DataOutBytes"]))
        print("smoke: ok")
    finally:
        server.end()
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    main()
