"""Runs the server of README.md as a reader would: connects, is echoed, says QUIT, and ends it by Enter.

usage: echo_server.py PROGRAM
"""

import socket
import subprocess
import sys

PORT = 7000  # the one in the text

server = subprocess.Popen([sys.argv[1]], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
try:
    line = server.stdout.readline()
    if line != "port 7000; Enter ends\n":
        raise AssertionError("the server said " + repr(line))
    with socket.create_connection(("127.0.0.1", PORT), timeout=30) as client:
        client.settimeout(30)
        stream = client.makefile("rwb")
        for text in (b"hello\r\n", b"\r\n", b"a longer line with \xc3\xa4\r\n"):
            stream.write(text)
            stream.flush()
            if stream.readline() != text:
                raise AssertionError("no echo of " + repr(text))
        stream.write(b"QUIT\r\n")
        stream.flush()
        if stream.read() != b"":
            raise AssertionError("QUIT was answered")
    server.communicate("\n", timeout=30)
    if server.returncode != 0:
        raise AssertionError("ended with %d" % server.returncode)
finally:
    server.kill()
