"""A client of a modem's tty that is not the product: it runs inside the router and shows the bytes as they come."""

import json

from velasim import Router

# A client of a tty: one argument per exchange, each [text to write, pattern to wait for, seconds of patience].
# It prints what it read for each, and "EOF" or an error name where the port broke.
CLIENT = r"""
import json, os, re, select, sys, termios, time, tty
fd = os.open(sys.argv[1], os.O_RDWR | os.O_NOCTTY)
tty.setraw(fd)
out = []
for text, pattern, patience in json.loads(sys.argv[2]):
    data, end = b"", ""
    limit = time.monotonic() + patience
    try:
        os.write(fd, text.encode("latin-1"))
        while not re.search(pattern.encode("latin-1"), data):
            left = limit - time.monotonic()
            if left <= 0 or not select.select([fd], [], [], left)[0]:
                end = "silence"
                break
            piece = os.read(fd, 65536)
            if not piece:
                end = "EOF"
                break
            data += piece
    except OSError as problem:
        end = os.strerror(problem.errno)
    out.append([data.decode("latin-1"), end])
print(json.dumps(out))
"""
FINAL = r"\r\n(OK|ERROR|CONNECT|POWERED DOWN|\+CME ERROR.*)\r\n$"
PATIENCE = 20.0


def talk(router: Router, port: str, *exchanges: tuple) -> list[list[str]]:
    """Opens a port once and has these exchanges on it; gives [what was read, how it ended] of each."""
    full = [(text, *rest, *(FINAL, PATIENCE)[len(rest):]) for text, *rest in exchanges]
    result = router.run("/usr/bin/python3", "-S", "-c", CLIENT, port, json.dumps(full))
    assert result.returncode == 0, result.stderr
    return json.loads(result.stdout)


def ask(router: Router, command: str, port: str = "/dev/ttyUSB2", *rest: object) -> str:
    """One command, and what the modem says to it."""
    [[reply, end]] = talk(router, port, (command + "\r\n", *rest))
    assert end == "", f"{end} after {reply!r}"
    return reply
