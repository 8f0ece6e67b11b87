#!/usr/bin/env python3
"""Runs a command with its standard input on a terminal of its own, which gives a program under Wine a console; its
output goes where ours goes.

usage: on_terminal.py COMMAND [ARGUMENT...]
"""
import os
import pty
import subprocess
import sys
import threading


def drain(terminal):
    """What the console draws is read, so that it never waits, and dropped."""
    try:
        while os.read(terminal, 4096):
            pass
    except OSError:  # the other side was closed by the last process that had it
        pass


def main():
    ours, theirs = pty.openpty()
    process = subprocess.Popen(sys.argv[1:], stdin=theirs, start_new_session=True)
    os.close(theirs)
    threading.Thread(target=drain, args=(ours,), daemon=True).start()
    return process.wait()


if __name__ == "__main__":
    sys.exit(main())
