#!/usr/bin/env python3
"""A DHCPv6 server that answers as it is told, for answers that no ordinary server gives.

dhcpv6_peer.py INTERFACE TYPE=ANSWER...: the answer to messages of that type (RFC 3315, 5.3), "grant" (with an
address) or "deny" (without). ":HEX" behind it adds a status code option with that value.
"""
import socket
import struct
import sys

PREFIX = bytes.fromhex("20010db8010000000000000000000000")[:15]
TIMERS = struct.pack(">II", 3, 5)  # T1 and T2, in seconds


def option(code, value):
    return struct.pack(">HH", code, len(value)) + value


def reply(request, answer):
    """The last byte of the DNS server's address tells which type of message was answered."""
    asked, rest = {}, request[4:]
    while rest:
        code, length = struct.unpack(">HH", rest[:4])
        asked[code], rest = rest[4:4 + length], rest[4 + length:]
    kind, _, status = answer.partition(":")
    address = option(5, PREFIX + b"\x88" + struct.pack(">II", 600, 600)) if kind == "grant" else b""
    data = (b"\x02" if request[0] == 1 else b"\x07") + request[1:4]
    data += option(1, asked[1]) + option(2, b"\x00\x03\x00\x01\x02\xba\xd0\x00\x00\x02")
    data += option(3, asked[3][:4] + TIMERS + address) + option(23, PREFIX + request[:1])
    return data + (option(13, bytes.fromhex(status)) if status else b"")


def main():
    answers = dict(word.split("=") for word in sys.argv[2:])
    wire = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)
    wire.bind(("::", 547))
    group = socket.inet_pton(socket.AF_INET6, "ff02::1:2") + struct.pack("@I", socket.if_nametoindex(sys.argv[1]))
    wire.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_JOIN_GROUP, group)
    print("serving", flush=True)
    while True:
        request, device = wire.recvfrom(2000)
        wire.sendto(reply(request, answers[str(request[0])]), device)


main()
