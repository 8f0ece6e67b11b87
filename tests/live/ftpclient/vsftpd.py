"""Starts and stops a vsftpd of its own for tests: anonymous users, everything in one folder."""

import os
import pwd
import shutil
import signal
import socket
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
from kqftpd import free_port, wait_for

SETTINGS = """listen=YES
background=NO
listen_address=127.0.0.1
anonymous_enable=YES
no_anon_password=YES
write_enable=YES
anon_upload_enable=YES
anon_mkdir_write_enable=YES
anon_other_write_enable=YES
anon_world_readable_only=NO
anon_umask=022
utf8_filesystem=YES
seccomp_sandbox=NO
isolate=NO
isolate_network=NO
ssl_enable=YES
allow_anon_ssl=YES
force_anon_data_ssl=NO
force_anon_logins_ssl=NO
require_ssl_reuse=NO
ssl_ciphers=HIGH
"""
USER = "ftp"


def find():
    """The program, or None."""
    return shutil.which("vsftpd", path=os.environ.get("PATH", "") + ":/usr/sbin")


class Vsftpd:
    """One server; what clients may change is in home."""

    def __init__(self, folder, certificate, key, implicit=False):
        self.root = os.path.join(folder, "root")
        self.home = os.path.join(self.root, "home")
        empty = os.path.join(folder, "empty")
        for path in (self.home, empty):
            os.makedirs(path)
        self.port = free_port()
        self.file = os.path.join(folder, "vsftpd.conf")
        lines = {"listen_port": self.port, "anon_root": self.root, "secure_chroot_dir": empty,
                 "rsa_cert_file": certificate, "rsa_private_key_file": key,
                 "implicit_ssl": "YES" if implicit else "NO"}
        if os.geteuid() == 0:
            lines["ftp_username"] = USER
            os.chown(self.home, pwd.getpwnam(USER).pw_uid, -1)
            for path in (folder, self.root):
                os.chmod(path, 0o755)
        else:
            lines["run_as_launching_user"] = "YES"
        with open(self.file, "w") as file:
            file.write(SETTINGS + "".join("%s=%s\n" % line for line in lines.items()))
        self.process = None

    def start(self):
        self.process = subprocess.Popen([find(), self.file], start_new_session=True)
        wait_for(self.answers, 10, "vsftpd")
        return self

    def answers(self):
        if self.process.poll() is not None:
            raise AssertionError("vsftpd ended with %d" % self.process.returncode)
        try:
            with socket.create_connection(("127.0.0.1", self.port), timeout=1):
                return True
        except OSError:
            return False

    def end(self):
        """The listener and the processes of its sessions, which are its group."""
        if self.process is not None and self.process.poll() is None:
            os.killpg(self.process.pid, signal.SIGTERM)
            self.process.wait(timeout=10)
