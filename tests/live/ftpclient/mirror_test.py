#!/usr/bin/env python3
"""kqftp against kqftpd and against vsftpd: a tree is mirrored up and down, plain, with AUTH TLS and with TLS from the
first byte, with passive and active data connections. Every file is compared by its SHA-256, and a second run must
transfer nothing. Then a transfer is interrupted with Ctrl-C and goes on where it was. Prints one line per step and ends
with 1 at the first difference.

usage: mirror_test.py BUILD_DIR
"""

import itertools
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
from ftp_smoke import compare, files_of, make_file
from kqftpd import Kqftpd, USER, PASSWORD, free_port, wait_for
import vsftpd

SIZES = [0, 1, 1023, 65536, 1000003, 3 << 20]
LARGE = 256 << 20
TOTALS = re.compile(r"^(\d+) files transferred \((\d+) bytes\), (\d+) were the same", re.M)
OLD = 1500000000  # a time of last change that no copy gets by chance


def make_tree(folder):
    os.makedirs(os.path.join(folder, "sub", "deep er", "\u00f6"))
    os.makedirs(os.path.join(folder, "empty folder"))
    for number, size in enumerate(SIZES):
        make_file(os.path.join(folder, "file-%d" % size), size, number)
    make_file(os.path.join(folder, " a leading blank"), 10, 50)
    make_file(os.path.join(folder, ".hidden"), 11, 51)
    make_file(os.path.join(folder, "-rf"), 12, 52)
    make_file(os.path.join(folder, "sub", "with blanks and (signs) #1%20"), 4097, 53)
    make_file(os.path.join(folder, "sub", "deep er", "\u00fcml\u00e4ut \u65e5\u672c"), 12345, 54)
    make_file(os.path.join(folder, "sub", "deep er", "\u00f6", "x"), 13, 55)
    for path, _, names in os.walk(folder):
        for name in names:
            os.utime(os.path.join(path, name), (OLD, OLD))


def folders_of(folder):
    return sorted(os.path.relpath(path, folder) for path, _, _ in os.walk(folder))


class Client:
    def __init__(self, build, folder, certificate):
        self.program = os.path.join(build, "bin", "kqftp")
        self.certificate = certificate
        self.password = os.path.join(folder, "password")
        with open(self.password, "w") as file:
            file.write(PASSWORD + "\n")

    def switches(self, tls, active):
        switches = ["--tls", tls, "--password-file", self.password, "--timeout", "60"]
        if tls != "none":
            switches += ["--check-certificate", self.certificate]
        return switches + (["--active"] if active else [])

    def run(self, *arguments, code=0):
        result = subprocess.run([self.program, *arguments], capture_output=True, text=True, timeout=600)
        if result.returncode != code:
            raise AssertionError("%s\nended with %d, not %d\n%s\n%s" % (arguments, result.returncode, code,
                                                                       result.stdout[-3000:], result.stderr[-3000:]))
        return result.stdout

    def mirror(self, *arguments):
        """The numbers of files transferred, of their bytes, and of files that were the same."""
        return tuple(int(number) for number in TOTALS.search(self.run(*arguments)).groups())


def check_way(client, url, tree, folder, tls, active):
    switches = client.switches(tls, active)
    count = len(files_of(tree))
    size = sum(os.path.getsize(os.path.join(tree, name)) for name in files_of(tree))
    moved = client.mirror("mirror-up", *switches, tree, url)
    if moved != (count, size, 0):
        raise AssertionError("up: %s, not %s" % (moved, (count, size, 0)))
    again = client.mirror("mirror-up", *switches, tree, url)
    if again != (0, 0, count):
        raise AssertionError("up again: %s" % (again,))
    moved = client.mirror("mirror", *switches, url, folder)
    if moved != (count, size, 0):
        raise AssertionError("down: %s, not %s" % (moved, (count, size, 0)))
    compare(tree, folder, "kqftp")
    if folders_of(tree) != folders_of(folder):
        raise AssertionError("folders differ: %s" % folders_of(folder))
    again = client.mirror("mirror", *switches, url, folder)
    if again != (0, 0, count):
        raise AssertionError("down again: %s" % (again,))


def check_server(client, name, places, tree, folder):
    """places: the URL for each way to use TLS."""
    for number, (tls, active) in enumerate(itertools.product(places, (False, True))):
        way = "%s-%s" % (tls, "active" if active else "passive")
        check_way(client, "%s/mirrors/%s" % (places[tls], way), tree, os.path.join(folder, name + way), tls, active)
        print("%s: %s" % (name, way), flush=True)


def check_single(client, url, folder):
    """The commands for single files and folders, and what becomes of the exit code."""
    switches = client.switches("explicit", False)
    source = os.path.join(folder, "single file")
    make_file(source, 70000, 60)
    client.run("mkdir", *switches, url + "/one")
    client.run("put", *switches, source, url + "/one/")
    if "single file" not in client.run("ls", *switches, "--names", url + "/one").splitlines():
        raise AssertionError("ls shows no file")
    client.run("get", *switches, url + "/one/single%20file", os.path.join(folder, "back"))
    with open(source, "rb") as first, open(os.path.join(folder, "back"), "rb") as second:
        if first.read() != second.read():
            raise AssertionError("get: the file differs")
    client.run("rmdir", *switches, url + "/one", code=1)
    client.run("rm", *switches, url + "/one/single%20file")
    client.run("rmdir", *switches, url + "/one")
    client.run("get", *switches, url + "/none", folder, code=1)
    client.run("ls", "--tls", "none", url.replace(USER, "nobody") if USER in url else url, code=3)
    client.run("ls", "http://127.0.0.1/", code=2)
    client.run("ls", "ftp://127.0.0.1:%d/" % free_port(), code=3)
    print("single files and exit codes", flush=True)


def check_untrusted(client, url, certificate):
    client.run("ls", "--tls", "explicit", "--check-certificate", certificate, "--password-file", client.password, url,
               code=4)
    print("a certificate that is not trusted", flush=True)


def check_interrupt(client, url, home, folder):
    """Ctrl-C in the middle of a large file; the next run goes on."""
    os.makedirs(os.path.join(home, "large"))
    make_file(os.path.join(home, "large", "file"), LARGE, 70)
    target = os.path.join(folder, "large")
    process = subprocess.Popen([client.program, "mirror", *client.switches("explicit", False), url + "/large", target],
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def has_part():
        names = os.listdir(target) if os.path.isdir(target) else []
        return any(name.endswith(".part") and os.path.getsize(os.path.join(target, name)) > 1 << 20 for name in names)
    wait_for(has_part, 60, "the beginning of the file")
    process.send_signal(signal.SIGINT)
    if process.wait(timeout=30) != 130:
        raise AssertionError("interrupted: ended with %d" % process.returncode)
    if os.path.exists(os.path.join(target, "file")):
        raise AssertionError("an unfinished file has its name already")
    files, size, _ = client.mirror("mirror", *client.switches("explicit", False), url + "/large", target)
    if files != 1 or not 0 < size < LARGE - (1 << 20):
        raise AssertionError("resumed: %d files, %d bytes" % (files, size))
    compare(os.path.join(home, "large"), target, "resumed")
    print("interrupted and resumed: %d of %d bytes in the second run" % (size, LARGE), flush=True)


def check_kqftpd(build, folder, tree, certificate, key):
    client = Client(build, folder, certificate)
    tls_port = free_port()
    server = Kqftpd(build, os.path.join(folder, "kqftpd"), tls_certificate=certificate, tls_key=key,
                    listen_tls="127.0.0.1:%d" % tls_port)
    server.start()
    try:
        plain = "ftp://%s@127.0.0.1:%d" % (USER, server.port)
        places = {"none": plain, "explicit": plain, "implicit": "ftp://%s@127.0.0.1:%d" % (USER, tls_port)}
        check_server(client, "kqftpd", places, tree, folder)
        check_single(client, plain, folder)
        other = os.path.join(folder, "other")
        make_certificate(other)
        check_untrusted(client, plain, other + ".crt")
        check_interrupt(client, plain, server.home, folder)
        server.stop(within=10)
    finally:
        server.end()


def check_vsftpd(build, folder, tree, certificate, key):
    client = Client(build, folder, certificate)
    servers = []
    try:
        for implicit in (False, True):
            place = os.path.join(folder, "vsftpd-%s" % implicit)
            os.mkdir(place)
            servers.append(vsftpd.Vsftpd(place, certificate, key, implicit).start())
        plain, implicit = ("ftp://127.0.0.1:%d/home" % server.port for server in servers)
        check_server(client, "vsftpd", {"none": plain, "explicit": plain, "implicit": implicit}, tree, folder)
    finally:
        for server in servers:
            server.end()


def make_certificate(prefix):
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=localhost", "-days", "2",
                    "-keyout", prefix + ".key", "-out", prefix + ".crt"], check=True, capture_output=True)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    folder = tempfile.mkdtemp(prefix="kqftp-live-")
    try:
        tree = os.path.join(folder, "tree")
        make_tree(tree)
        prefix = os.path.join(folder, "server")
        make_certificate(prefix)
        check_kqftpd(sys.argv[1], folder, tree, prefix + ".crt", prefix + ".key")
        if vsftpd.find() is None:
            sys.exit("vsftpd is missing: scripts/test installs it")
        check_vsftpd(sys.argv[1], folder, tree, prefix + ".crt", prefix + ".key")
    finally:
        shutil.rmtree(folder, ignore_errors=True)
    print("all is well")


if __name__ == "__main__":
    main()
