"""The update client against nginx: version check and download through redirects.

usage: nginx_test.py KQ [EMULATOR]      (EMULATOR runs a KQ made for Windows; it sees the working folder)
"""
import os
import random
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest

EMULATOR = sys.argv[2:]
KQ = EMULATOR + sys.argv[1:2]
del sys.argv[1:]
NGINX = shutil.which("nginx") or shutil.which("nginx", path="/usr/sbin:/usr/local/sbin")
NOT_RUN = 77
INSTALLER_SIZE = 8 * 1024 * 1024 + 13

CONFIG = """
daemon off;
master_process off;
pid {folder}/nginx.pid;
error_log stderr;
events {{ worker_connections 64; }}
http {{
    access_log off;
    client_body_temp_path {folder}/body;
    proxy_temp_path {folder}/proxy;
    fastcgi_temp_path {folder}/fastcgi;
    uwsgi_temp_path {folder}/uwsgi;
    scgi_temp_path {folder}/scgi;
    server {{
        listen 127.0.0.1:{port};
        root {folder}/www;
        location = /moved {{ return 301 http://127.0.0.1:{port}/moved2; }}
        location = /moved2 {{ return 302 http://127.0.0.1:{port}/version.txt; }}
        location = /ring {{ return 302 http://127.0.0.1:{port}/ring; }}
        location = /secure {{ return 301 https://127.0.0.1/version.txt; }}
        location = /permanent {{ return 308 http://127.0.0.1:{port}/version.txt; }}
        location = /installer {{ return 307 http://127.0.0.1:{port}/files/setup.bin; }}
        location = /chunked.txt {{ ssi on; ssi_types *; }}
    }}
}}
"""


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as listener:
        return listener.getsockname()[1]


class NginxTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory(dir=os.getcwd() if EMULATOR else None)
        self.addCleanup(temporary.cleanup)
        self.folder = temporary.name
        self.port = free_port()
        self.installer = random.Random(1).randbytes(INSTALLER_SIZE)
        self.target = os.path.join(self.folder, "target")
        os.makedirs(os.path.join(self.folder, "www", "files"))
        os.mkdir(self.target)
        self.write("www/files/setup.bin", self.installer)
        version = f"7\nSeven\n127.0.0.1\n{self.port}\n/installer\n".encode()
        self.write("www/version.txt", version)
        self.write("www/chunked.txt", b"<!--# echo var='none' -->" + version)
        self.write("nginx.conf", CONFIG.format(folder=self.folder, port=self.port).encode())
        self.server = subprocess.Popen([NGINX, "-p", self.folder, "-c", os.path.join(self.folder, "nginx.conf")])
        self.addCleanup(self.stop)
        deadline = time.monotonic() + 20
        while True:
            try:
                socket.create_connection(("127.0.0.1", self.port)).close()
                return
            except OSError:
                self.assertIsNone(self.server.poll(), "nginx has ended")
                self.assertLess(time.monotonic(), deadline, "nginx does not listen")
                time.sleep(0.02)

    def stop(self):
        self.server.terminate()
        self.server.wait(20)

    def write(self, name, content):
        with open(os.path.join(self.folder, name), "wb") as file:
            file.write(content)

    def kq(self, command, path, *more):
        return subprocess.run(KQ + ["update", command, "127.0.0.1", path, "--port", str(self.port), *more],
                              capture_output=True, text=True, timeout=60)

    def test_check_directly_and_through_redirects(self):
        for path in ("/version.txt", "/moved"):
            with self.subTest(path):
                done = self.kq("check", path, "--current-version", "6")
                self.assertEqual((done.returncode, done.stdout), (0, "version 7: Seven\n"))
        self.assertEqual(self.kq("check", "/moved", "--current-version", "7").returncode, 1)

    def test_what_cannot_be_followed_fails(self):
        for path in ("/ring", "/secure", "/permanent", "/missing", "/chunked.txt"):
            with self.subTest(path):
                self.assertEqual(self.kq("check", path).returncode, 2)

    def test_download_through_redirects(self):
        done = self.kq("download", "/moved", "--folder", self.target, "--prefix", "setup")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(os.listdir(self.target), ["setup7.exe"])
        with open(os.path.join(self.target, "setup7.exe"), "rb") as file:
            self.assertTrue(file.read() == self.installer)

    def test_missing_installer_leaves_nothing(self):
        os.remove(os.path.join(self.folder, "www", "files", "setup.bin"))
        self.assertEqual(self.kq("download", "/moved", "--folder", self.target).returncode, 2)
        self.assertEqual(os.listdir(self.target), [])


if __name__ == "__main__":
    if NGINX is None:
        print("not run: there is no nginx here (package nginx-light)")
        sys.exit(NOT_RUN if os.environ.get("CI", "") in ("", "0", "false") else 1)
    unittest.main()
