#!/usr/bin/env python3
"""A hostile neighbour: sends damaged and lying frames to the device, always the same ones for one seed.

garbage.py SEED COUNT TRUNK VLAN XID: LLDP and raw junk leave by TRUNK, DHCP, DHCPv6 and ARP by VLAN. XID is the
transaction id, a number, of half of the DHCP junk, which so gets past the first check.
"""
import random
import socket
import struct
import sys

DEVICE = bytes.fromhex("02a0b71a2b3c")
ALL = b"\xff" * 6
LLDP_GROUP = bytes.fromhex("0180c200000e")
SERVER = bytes([10, 100, 0, 1])
LEASED = bytes([10, 100, 0, 77])
COOKIE = b"\x63\x82\x53\x63"


def junk(most):
    return random.randbytes(random.randint(0, most))


def length_of(value, most):
    """Half of the lengths lie."""
    return random.choice([len(value), random.randrange(most)])


def dhcp(xid):
    message = bytes([random.choice([2, 2, 1])]) + random.randbytes(3)
    message += random.choice([xid, random.randbytes(4)]) + random.randbytes(228)
    message += random.choice([COOKIE, COOKIE, junk(4)]) + bytes([53, 1, random.choice([2, 5, 6, 7, 255])])
    for _ in range(random.randrange(20)):
        value = junk(12)
        message += bytes([random.choice([1, 3, 6, 51, 52, 54, 58, 59, 66, random.randrange(256)])])
        message += bytes([length_of(value, 256)]) + value
    message = message[:random.choice([1400, random.randrange(1400)])]
    udp = struct.pack(">HHHH", 67, 68, length_of(message, 65528) + 8, 0)
    ip = struct.pack(">BBHHHBBH4s4s", random.choice([0x45, 0x45, 0x4F, 0x40]), 0, len(message) + 28, 0, 0, 64,
                     random.choice([17, 17, 6]), 0, SERVER, random.choice([ALL[:4], LEASED]))
    return random.choice([ALL, DEVICE]), 0x0800, with_checksum(ip) + udp + message


def with_checksum(ip):
    """The device's kernel passes nothing on to an ordinary socket without it."""
    total = sum(struct.unpack(">10H", ip))
    total = (total & 0xFFFF) + (total >> 16)
    return ip[:10] + struct.pack(">H", ~(total + (total >> 16)) & 0xFFFF) + ip[12:]


def dhcp6(_):
    """Replies mostly. The kernel adds the headers."""
    message = bytes([random.choice([7, 7, 2, 255])]) + random.randbytes(3)
    for _ in range(random.randrange(12)):
        value = random.choice([junk(40), b"\x05voice\x07example\x00"])
        message += struct.pack(">HH", random.choice([1, 2, 3, 5, 13, 23, 24, 31]), length_of(value, 65536)) + value
    return None, 546, message[:random.choice([1500, random.randrange(1, 60)])]


def arp(_):
    """Replies of all kinds but one: none claims the device's own address, that would be a true conflict."""
    frame = bytes.fromhex("0001080006040002") + random.randbytes(6) + bytes([10, 100, 1]) + junk(20)
    return random.choice([ALL, DEVICE]), 0x0806, frame[:random.randrange(60)]


def lldp(_):
    """Capabilities of an endpoint come first, so that no policy of such a frame may count."""
    data = bytes.fromhex("fe070012bb01002303")
    for _ in range(random.randrange(30)):
        value = random.choice([b"", b"\x00\x12\xbb\x01", b"\x00\x12\xbb\x02", b"\x00\x12\x0f"]) + junk(20)
        data += struct.pack(">H", random.choice([1, 2, 5, 8, 127, 127]) << 9 | length_of(value, 512)) + value
    return LLDP_GROUP, 0x88CC, data[:random.choice([1490, random.randrange(8)])]


def raw(_):
    kind = random.choice([0x0800, 0x0806, 0x888E, 0x86DD])
    return random.choice([ALL, DEVICE, LLDP_GROUP]), kind, junk(1400)


def main():
    seed, count, trunk, vlan = int(sys.argv[1]), int(sys.argv[2]), sys.argv[3], sys.argv[4]
    xid = struct.pack(">I", int(sys.argv[5]))
    random.seed(seed)
    wires = {name: socket.socket(socket.AF_PACKET, socket.SOCK_RAW) for name in (trunk, vlan)}
    udp = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)
    for _ in range(count):
        build = random.choice([dhcp, dhcp6, arp, lldp, raw, raw])
        name = trunk if build is lldp else random.choice([trunk, vlan]) if build is raw else vlan
        destination, kind, payload = build(xid)
        if build is dhcp6:
            udp.sendto(payload, ("fe80::a0:b7ff:fe1a:2b3c", kind, 0, socket.if_nametoindex(name)))
        else:
            frame = destination + b"\x02\xba\xd0\x00\x00\x01" + struct.pack(">H", kind) + payload
            wires[name].sendto(frame, (name, 0))


main()
