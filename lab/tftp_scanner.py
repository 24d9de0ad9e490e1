#!/usr/bin/env python3
"""A scanner: begins many transfers with a TFTP server and never goes on with them.

tftp_scanner.py HOST COUNT read|write|guess NAME: each from a port of its own. "guess" uploads wrong credentials.
Prints how many were let in.
"""
import socket
import sys


def main():
    host, count, kind, name = sys.argv[1], int(sys.argv[2]), sys.argv[3], sys.argv[4]
    request = (b"\0\1" if kind == "read" else b"\0\2") + name.encode() + b"\0octet\0"
    let_in = 0
    for number in range(count):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as scanner:
            scanner.settimeout(0.02 if number % 100 == 0 else 0.002)
            scanner.sendto(request, (host, 69))
            try:
                answer, transfer = scanner.recvfrom(600)
            except TimeoutError:
                continue
            let_in += answer[1] in (3, 4)  # data, or an acknowledgement
            if kind == "guess":
                scanner.sendto(b"\0\3\0\1username:admin\npassword:%d" % number, transfer)
    print(let_in)


main()
