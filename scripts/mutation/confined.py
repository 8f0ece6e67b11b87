"""Runs programs whose code may be wrong in any way: apart from the machine, within limits, and gone when the run is over."""
import os
import resource
import signal
import subprocess
import tempfile

LARGEST_MEMORY = 8 << 30
LARGEST_FILE = 2 << 30
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
    namespaces = ["unshare", "--mount", "--net", "--ipc", "--pid", "--fork", "--kill-child", "--mount-proc"]
    if os.geteuid() != 0:
        namespaces.append("--map-root-user")
    settings = dict(os.environ, **environment, KQ_MUTANTS_WRITABLE=" ".join(map(str, writable)),
                    KQ_MUTANTS_FOLDER=str(folder), TMPDIR="/tmp")
    with tempfile.TemporaryFile() as output:
        process = subprocess.Popen([*namespaces, "sh", "-c", SETUP, "sh", *command], env=settings,
                                   stdin=subprocess.DEVNULL, stdout=output, stderr=output, start_new_session=True,
                                   preexec_fn=_limit)
        try:
            code = process.wait(timeout=seconds)
        except subprocess.TimeoutExpired:
            code = None
        except BaseException:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            raise
        if code is None:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
        size = output.seek(0, os.SEEK_END)
        output.seek(max(0, size - TAIL))
        return code, output.read().decode(errors="replace")
