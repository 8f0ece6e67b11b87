"""Runs programs whose code may be wrong in any way: apart from the machine, within limits, and gone when the run is over."""
import os
import resource
import signal
import subprocess
import threading

LARGEST_MEMORY = 8 << 30
LARGEST_FILE = 64 << 30  # with holes: /tmp holds 1 GB
TAIL = 65536  # bytes of output that are kept

# Everything is for reading alone but the folders given, /tmp is empty and in memory, the network is a loopback alone, and
# the processes see no others.
SETUP = """
set -e
ip link set lo up
for folder in $KQ_MUTANTS_WRITABLE; do mount --bind "$folder" "$folder"; done
mount -o remount,bind,ro /
mount -t tmpfs -o size=1g tmpfs /tmp
for folder in $KQ_MUTANTS_WRITABLE; do mount -o remount,bind,rw "$folder"; done
cd "$KQ_MUTANTS_FOLDER"
unset KQ_MUTANTS_WRITABLE KQ_MUTANTS_FOLDER
set +e
"$@"
exit $? # and the shell stays, so that somebody takes the end of every process
"""


def _limit():
    resource.setrlimit(resource.RLIMIT_AS, (LARGEST_MEMORY, LARGEST_MEMORY))
    resource.setrlimit(resource.RLIMIT_FSIZE, (LARGEST_FILE, LARGEST_FILE))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def run(command, folder, writable, environment, seconds):
    """(exit code, the end of the output); None for the code when the time was over."""
    # Were the worker killed, the run would end with it.
    namespaces = ["setpriv", "--pdeathsig", "KILL", "unshare", "--mount", "--net", "--ipc", "--pid", "--fork",
                  "--kill-child", "--mount-proc"]
    if os.geteuid() != 0:
        namespaces.append("--map-root-user")
    settings = dict(os.environ, **environment, KQ_MUTANTS_WRITABLE=" ".join(map(str, writable)),
                    KQ_MUTANTS_FOLDER=str(folder), TMPDIR="/tmp")
    process = subprocess.Popen([*namespaces, "sh", "-c", SETUP, "sh", *command], env=settings, stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True,
                               preexec_fn=_limit)
    output = OUTPUT(process.stdout)
    code = None
    try:
        code = process.wait(timeout=seconds)
    except subprocess.TimeoutExpired:
        pass
    finally:
        if code is None:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
    return code, output.tail()


class OUTPUT(threading.Thread):
    """Reads what a program prints until nobody is left who could, and keeps the end."""

    def __init__(self, pipe):
        super().__init__(daemon=True)
        self.pipe, self.kept = pipe, b""
        self.start()

    def run(self):
        while piece := self.pipe.read1(TAIL):
            self.kept = (self.kept + piece)[-TAIL:]
        self.pipe.close()

    def tail(self):
        self.join()
        return self.kept.decode(errors="replace")
