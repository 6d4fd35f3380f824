"""One AT exchange with python3-serial, as its documentation has it: serial_at.py DEVICE COMMAND. Runs in the router."""

import sys

import serial

with serial.Serial(sys.argv[1], 115200, timeout=0.5, exclusive=True) as port:
    port.write(f"{sys.argv[2]}\r\n".encode())
    reply = b""
    while b"OK" not in reply and b"ERROR" not in reply:
        part = port.read(port.in_waiting or 1)
        if not part:
            sys.exit(1)
        reply += part
print(reply.decode())
