"""The kqftpd program from outside: switches, signals, exit codes.

usage: program_test.py KQFTPD [EMULATOR]
  EMULATOR  runs a KQFTPD made for Windows; it sees the working folder
"""
import contextlib
import ftplib
import hashlib
import io
import json
import os
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest

EMULATOR = sys.argv[2:]
PROGRAM = EMULATOR + sys.argv[1:2]
del sys.argv[1:]
STOP_LIMIT = 10.0 if EMULATOR else 2.0  # seconds
STOP = signal.SIGINT if EMULATOR else signal.SIGTERM  # Wine makes Ctrl-C of the former
needs_reload = unittest.skipIf(EMULATOR, "Wine makes no Ctrl-Break, which asks for a reload there")


def on_this_side(path):
    """Where a path that the program printed is found here."""
    if not EMULATOR or path[1:2] != ":":
        return path
    drive = os.path.join(os.environ["KQNET_WINE_PREFIX"], "dosdevices", path[:2].lower())
    return os.path.join(drive, *path[3:].split("\\"))


class Server:
    """A running kqftpd, and the clients made for it."""

    def __init__(self, *switches):
        self.process = subprocess.Popen([*PROGRAM, "--print-port", *switches], stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, text=True)
        self.clients = []
        self.port = int(self.process.stdout.readline())
        self.listening = self.process.stdout.readline().strip()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()
        for client in self.clients:
            client.close()

    def client(self, user="demo", password="demo"):
        client = ftplib.FTP(timeout=20)
        self.clients.append(client)
        client.connect("127.0.0.1", self.port)
        client.login(user, password)
        return client

    def stop(self, how=STOP):
        start = time.monotonic()
        self.process.send_signal(how)
        return self.process.wait(20), time.monotonic() - start


def run(*switches, text=""):
    return subprocess.run([*PROGRAM, *switches], input=text, capture_output=True, text=True, timeout=60)


def wait_until(condition):
    deadline = time.monotonic() + 20
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError("waited for too long")
        time.sleep(0.01)


def wait_until_it_waits(pid):
    """Until the process sleeps, as it does when it reads its input."""
    def sleeps():
        with open(f"/proc/{pid}/stat", encoding="ascii") as stat:
            return stat.read().rpartition(")")[2].split()[0] == "S"
    wait_until(sleeps)


class ProgramTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(dir=os.getcwd() if EMULATOR else None)
        self.addCleanup(self.folder.cleanup)
        self.home = os.path.join(self.folder.name, "home")
        os.mkdir(self.home)

    def write_settings(self, **changes):
        hashed = run("--hash-password", text="secret\n").stdout.strip()
        user = {"name": "ann", "password": hashed, "home": "home", "rights": "read,write"}
        settings = {"listen": "127.0.0.1:0", "log_folder": "logs", "users": [user], **changes}
        path = os.path.join(self.folder.name, "ftp.json")
        with open(path, "w", encoding="utf-8") as file:
            json.dump(settings, file)
        return path

    def test_demonstration_serves_and_its_folder_goes_with_it(self):
        with Server("--port", "0") as server:
            self.assertEqual(server.listening, f"listening on 127.0.0.1:{server.port}")
            folder = on_this_side(server.process.stdout.readline().split()[1])
            client = server.client()
            self.assertEqual(sorted(client.nlst()), ["incoming", "readme.txt"])
            client.quit()
            self.assertTrue(os.path.isdir(folder))
            self.assertEqual(server.stop()[0], 0)
            self.assertFalse(os.path.exists(folder))

    def test_named_demonstration_folder_stays(self):
        with Server("--port", "0", "--folder", self.home) as server:
            server.client().storbinary("STOR new", io.BytesIO(b"kept"))
            self.assertEqual(server.stop(signal.SIGINT)[0], 0)
        with open(os.path.join(self.home, "files", "new"), "rb") as file:
            self.assertEqual(file.read(), b"kept")
        self.assertTrue(os.path.exists(os.path.join(self.home, "logs", "kqftpd.log")))

    def test_two_demonstrations_find_two_ports(self):
        with Server() as first, Server() as second:
            self.assertNotEqual(first.port, second.port)

    def test_stop_with_clients_at_work_is_quick(self):
        with Server("--port", "0") as server:
            clients = [server.client() for _ in range(20)]
            uploads = [client.transfercmd(f"STOR f{number}") for number, client in enumerate(clients[:10])]
            code, seconds = server.stop()
            self.assertEqual(code, 0)
            self.assertLess(seconds, STOP_LIMIT)
            for connection in uploads:
                connection.close()

    def test_silent_clients_of_many_addresses_lock_nobody_out(self):
        path = self.write_settings(max_sessions=40)
        with Server("--settings", path) as server, contextlib.ExitStack() as silent:
            for number in range(120):  # 15 of each address, and a few that would not fit from one more
                origin = ("127.0.0.%d" % (2 + number // 15), 0)
                silent.enter_context(socket.create_connection(("127.0.0.1", server.port), 5, origin))
            for _ in range(3):
                server.client("ann", "secret").voidcmd("NOOP")
            self.assertEqual(server.stop()[0], 0)

    @needs_reload
    def test_settings_file_is_served_and_read_again(self):
        path = self.write_settings()
        with Server("--settings", path) as server:
            before = server.client("ann", "secret")
            self.write_settings(greeting="Changed")
            server.process.send_signal(signal.SIGHUP)
            self.assertEqual(server.process.stdout.readline(), f"listening on 127.0.0.1:{server.port}\n")
            before.voidcmd("NOOP")
            self.assertEqual(server.client("ann", "secret").getwelcome(), "220 Changed")
            self.assertEqual(server.stop()[0], 0)
        self.assertTrue(os.path.exists(os.path.join(self.folder.name, "logs", "kqftpd-sessions.db")))

    @needs_reload
    def test_changed_rules_count_for_new_clients_only(self):
        path = self.write_settings()
        with Server("--settings", path) as server:
            before = server.client("ann", "secret")
            self.write_settings(connection_rules=["-ipmask=127.0.0.0/255.0.0.0"])
            server.process.send_signal(signal.SIGHUP)
            server.process.stdout.readline()
            with self.assertRaisesRegex(ftplib.error_temp, "421 Your address is not served"):
                server.client("ann", "secret")
            before.voidcmd("NOOP")
            self.write_settings(connection_rules=[])
            server.process.send_signal(signal.SIGHUP)
            server.process.stdout.readline()
            server.client("ann", "secret").voidcmd("NOOP")
            before.voidcmd("NOOP")
            self.assertEqual(server.stop()[0], 0)
        bad = run("--settings", self.write_settings(connection_rules=["+ip=1.2.3"]), "--check")
        self.assertIn("connection_rules[0]: is not a rule", bad.stderr)

    @needs_reload
    def test_moved_log_begins_anew_at_sighup_even_with_damaged_settings(self):
        path = self.write_settings()
        log = os.path.join(self.folder.name, "logs", "kqftpd.log")
        with Server("--settings", path) as server:
            for broken in (False, True):
                os.rename(log, log + ".moved")
                if broken:
                    with open(path, "w", encoding="utf-8") as file:
                        file.write("{")
                server.process.send_signal(signal.SIGHUP)
                wait_until(lambda: os.path.exists(log))
                server.client("ann", "secret").quit()
            self.assertEqual(server.stop()[0], 0)
        with open(log, encoding="utf-8") as file:
            self.assertIn("\tLogin Success\t", file.read())

    @needs_reload
    def test_damaged_settings_read_again_change_nothing(self):
        path = self.write_settings()
        with Server("--settings", path) as server:
            with open(path, "w", encoding="utf-8") as file:
                file.write("{")
            server.process.send_signal(signal.SIGHUP)
            server.client("ann", "secret").voidcmd("NOOP")
            self.assertEqual(server.stop()[0], 0)

    def test_check_names_the_wrong_key(self):
        good = run("--settings", self.write_settings(), "--check")
        self.assertEqual((good.returncode, good.stdout), (0, "settings are good\n"))
        bad = run("--settings", self.write_settings(max_sesions=1), "--check")
        self.assertEqual(bad.returncode, 2)
        self.assertIn("max_sesions: is not a known key", bad.stderr)
        missing = run("--settings", "/nowhere/ftp.json")
        self.assertEqual(missing.returncode, 2)
        self.assertIn("/nowhere/ftp.json: cannot be read", missing.stderr)

    def test_check_names_everything_that_cannot_work(self):
        path = self.write_settings(listen="203.0.113.7:2121", tls_certificate="a.crt", tls_key="a.key")
        os.rmdir(self.home)
        bad = run("--settings", path, "--check")
        self.assertEqual((bad.returncode, bad.stdout), (2, ""))
        for fault in ("listen: 203.0.113.7 is no address of this machine", "tls_certificate: ", "users[0].home: "):
            self.assertIn(f"ftp.json: {fault}", bad.stderr)
        self.assertIn('(account "ann")', bad.stderr)

    def test_logs_that_cannot_be_had_are_said(self):
        with open(os.path.join(self.folder.name, "logs"), "w", encoding="utf-8"):
            pass
        refused = run("--settings", self.write_settings(require_logs=True))
        self.assertEqual(refused.returncode, 3)
        self.assertRegex(refused.stderr, "kqftpd: log_folder: .*logs is not a folder\n")

    def check_update(self, body):
        """Exit code and texts of an update check that one request is answered with this version file."""
        with socket.create_server(("127.0.0.1", 0)) as listener:
            def answer():
                connection = listener.accept()[0]
                with connection:
                    self.request = b""
                    while not self.request.endswith(b"\r\n\r\n"):
                        self.request += connection.recv(4096)
                    connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n%s" % (len(body), body))
            thread = threading.Thread(target=answer)
            thread.start()
            path = self.write_settings(update_host="127.0.0.1", update_port=listener.getsockname()[1],
                                       update_path="/kqftpd.txt")
            done = run("--settings", path, "--check-update")
            thread.join()
        return done.returncode, done.stdout, done.stderr

    def test_update_check_says_what_it_found(self):
        rest = b"\r\nFaster\r\ndownloads.example\r\n80\r\n/setup\r\n"
        code, out, _ = self.check_update(b"4000000000" + rest)
        self.assertEqual((code, out), (0, "version 4000000000 is available: Faster\n"))
        self.assertTrue(self.request.startswith(b"GET /kqftpd.txt HTTP/1.1\r\n"))
        self.assertIn(b"\r\nReferer: kqftpd ", self.request)
        code, out, _ = self.check_update(b"1" + rest)
        self.assertEqual((code, out), (0, "this is the newest version\n"))
        code, out, err = self.check_update(b"nothing")
        self.assertEqual((code, out), (4, ""))
        self.assertIn("the update check failed", err)

    def test_update_check_needs_a_host(self):
        without = run("--settings", self.write_settings(), "--check-update")
        self.assertEqual(without.returncode, 2)
        self.assertIn("update_host: must be set", without.stderr)

    def test_port_taken_is_said(self):
        with socket.create_server(("127.0.0.1", 0)) as other:
            port = other.getsockname()[1]
            taken = run("--port", str(port))
        self.assertEqual(taken.returncode, 3)
        self.assertIn(f"cannot listen on 127.0.0.1:{port}", taken.stderr)

    @unittest.skipIf(EMULATOR, "nothing shows there when they have begun to wait")
    def test_update_check_and_hashing_end_when_they_are_asked_to(self):
        with socket.create_server(("127.0.0.1", 0)) as silent:
            path = self.write_settings(update_host="127.0.0.1", update_port=silent.getsockname()[1])
            for switches in (["--hash-password"], ["--settings", path, "--check-update"]):
                for how in {signal.SIGINT, STOP}:
                    process = subprocess.Popen([*PROGRAM, *switches], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                                               stderr=subprocess.DEVNULL)
                    if "--check-update" in switches:
                        silent.accept()[0].recv(1)  # it has begun; the connection may go
                    else:
                        wait_until_it_waits(process.pid)
                    process.send_signal(how)
                    self.assertNotEqual(process.wait(20), 0, (switches, how))
                    process.stdin.close()

    def test_password_without_its_line_end_is_hashed(self):
        for text in ("secret", "secret\n", "secret\r\n", "secret\nmore\n"):
            hashed = subprocess.run([*PROGRAM, "--hash-password"], input=text.encode(), capture_output=True,
                                    timeout=60).stdout.decode().strip()
            _, cost, block, parallel, salt, wanted = hashed.split("$")
            for password, fits in ((b"secret", True), (b"secret\r", False)):
                made = hashlib.scrypt(password, salt=bytes.fromhex(salt), n=int(cost), r=int(block), p=int(parallel),
                                      dklen=len(wanted) // 2)
                self.assertEqual(made.hex() == wanted.lower(), fits, (text, password))
        self.assertEqual(run("--hash-password", text="\r\n").returncode, 2)

    @unittest.skipIf(EMULATOR, "Wine has no terminal of this kind")
    def test_password_is_not_shown_and_the_terminal_set_back(self):
        import pty
        import termios

        def is_shown(terminal):
            return bool(termios.tcgetattr(terminal)[3] & termios.ECHO)

        def type_in(*lines, end=None):
            """What the terminal shows, and the exit code."""
            process, terminal = pty.fork()
            if process == 0:
                os.execv(PROGRAM[0], [PROGRAM[0], "--hash-password"])
            shown = b""
            try:
                for prompt, line in lines:
                    while prompt not in shown:
                        shown += os.read(terminal, 4096)
                    wait_until(lambda: not is_shown(terminal))
                    os.write(terminal, line)
                if end:
                    wait_until(lambda: b"Again" in shown or not is_shown(terminal))
                    os.kill(process, end)
                code = os.waitstatus_to_exitcode(os.waitpid(process, 0)[1])
                self.assertTrue(is_shown(terminal))
                try:
                    while block := os.read(terminal, 4096):
                        shown += block
                except OSError:
                    pass  # that is how the end of a terminal looks
                return shown, code
            finally:
                os.close(terminal)

        shown, code = type_in((b"Password: ", b"secret\n"), (b"Again: ", b"secret\n"))
        self.assertEqual(code, 0)
        self.assertIn(b"scrypt$", shown)
        self.assertNotIn(b"secret", shown)
        shown, code = type_in((b"Password: ", b"secret\n"), (b"Again: ", b"Secret\n"))
        self.assertEqual(code, 2)
        self.assertIn(b"the two are not the same", shown)
        for end in (signal.SIGINT, signal.SIGTERM):
            self.assertEqual(type_in((b"Password: ", b"half of it"), end=end)[1], -end)

    def test_wrong_switches_are_refused(self):
        for switches in (["--nonsense"], ["--port", "65536"], ["--port", "x"], ["--block-time", "0"]):
            self.assertNotEqual(run(*switches).returncode, 0)
        self.assertEqual(run("--hash-password").returncode, 2)
        self.assertNotEqual(run("--hash-password", text="a\n").stdout, run("--hash-password", text="a\n").stdout)


if __name__ == "__main__":
    unittest.main()
