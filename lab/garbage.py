#!/usr/bin/env python3
"""A hostile neighbour: sends damaged and lying frames to the device, always the same ones for one seed.

garbage.py SEED COUNT TRUNK VLAN [XIDS]: LLDP and raw junk leave by TRUNK, DHCP, DHCPv6 and ARP by VLAN. XIDS are
the transaction ids (4 and 3 bytes, in hex) of half of the DHCP and DHCPv6 junk, which so gets past the first check.
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
ORDINARY = [1, 3, 6, 15, 28, 42, 51, 53, 54, 58, 59, 66, 67]


def junk(most):
    return random.randbytes(random.randint(0, most))


def option():
    """A DHCP option whose length byte may claim more, or less, than there is."""
    code = random.choice(ORDINARY + [random.randrange(256)])
    value = junk(12)
    length = random.choice([len(value), len(value), random.randrange(256)])
    return bytes([code, length]) + value


def dhcp(xids):
    kind = random.choice([2, 5, 6, 7, 0, 255])
    message = bytearray(random.randbytes(236))
    message[0] = random.choice([2, 2, 2, 1, 0])
    message[4:8] = random.choice([xids[:4], random.randbytes(4)])
    message += random.choice([COOKIE, COOKIE, COOKIE, junk(4)])
    message += bytes([53, 1, kind]) + b"".join(option() for _ in range(random.randrange(20)))
    message += random.choice([b"\xff", b"", b"\x00" * 300])
    if random.random() < 0.3:
        message = message[:random.randrange(len(message))]
    udp = struct.pack(">HHHH", 67, 68, random.choice([len(message) + 8, random.randrange(65536)]), 0)
    header, protocol = random.choice([0x45, 0x45, 0x45, 0x4F, 0x40]), random.choice([17, 17, 17, 6])
    ip = struct.pack(">BBHHHBBH4s4s", header, 0, len(message) + 28, 0, 0, 64, protocol, 0,
                     SERVER, random.choice([ALL[:4], LEASED]))
    return random.choice([ALL, DEVICE]), 0x0800, with_checksum(ip) + udp + message


def with_checksum(ip):
    """The device's kernel passes nothing on to an ordinary socket without it."""
    total = sum(struct.unpack(">10H", ip))
    total = (total & 0xFFFF) + (total >> 16)
    return ip[:10] + struct.pack(">H", ~(total + (total >> 16)) & 0xFFFF) + ip[12:]


def dhcp6(xids):
    """Replies mostly. The lengths of their options may lie as well. The kernel adds the headers."""
    message = bytes([random.choice([7, 7, 7, 2, 1, 13, 255])]) + random.choice([xids[4:], random.randbytes(3)])
    for _ in range(random.randrange(12)):
        value = random.choice([junk(12), junk(40), b"\x05voice\x07example\x00"])
        length = random.choice([len(value), len(value), random.randrange(65536)])
        message += struct.pack(">HH", random.choice([1, 2, 3, 5, 13, 23, 24, 31, length]), length) + value
    return "fe80::a0:b7ff:fe1a:2b3c", 546, message[:random.choice([1500, random.randrange(1, 60)])]


def arp(_):
    """Replies of all kinds but one: none claims the device's own address, that would be a true conflict."""
    frame = bytes.fromhex("0001080006040002") + random.randbytes(6) + bytes([10, 100, 1]) + junk(1)
    return random.choice([ALL, DEVICE]), 0x0806, (frame + junk(20))[:random.randrange(60)]


def tlv():
    kind = random.choice([1, 2, 3, 5, 8, 127, 127, 127, random.randrange(1, 128)])
    med = b"\x00\x12\xbb"
    value = random.choice([b"", med, med + b"\x01", med + b"\x02", b"\x00\x12\x0f"]) + junk(20)
    length = random.choice([len(value), len(value), 0x1FF, random.randrange(512)])
    return struct.pack(">H", kind << 9 | length) + value


def lldp(_):
    """Capabilities of an endpoint come first, so that no policy of such a frame may count."""
    endpoint = bytes.fromhex("fe070012bb01002303")
    data = endpoint + b"".join(tlv() for _ in range(random.randrange(30)))
    if random.random() < 0.3:
        data = random.choice([data[:random.randrange(8)], b"\xfe", b"\x00\x00", junk(3)])
    return LLDP_GROUP, 0x88CC, data[:1490]


def raw(_):
    kind = random.choice([0x0800, 0x0806, 0x888E, 0x86DD])
    return random.choice([ALL, DEVICE, LLDP_GROUP]), kind, junk(1400)


def main():
    seed, count, trunk, vlan = int(sys.argv[1]), int(sys.argv[2]), sys.argv[3], sys.argv[4]
    xids = bytes.fromhex(sys.argv[5]) if len(sys.argv) > 5 else bytes(7)
    random.seed(seed)
    wires = {}
    for name in (trunk, vlan):
        wires[name] = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
        wires[name].bind((name, 0))
    udp = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)
    print("sending", flush=True)
    for _ in range(count):
        build, name = random.choice([(dhcp, vlan), (dhcp6, vlan), (arp, vlan), (lldp, trunk), (raw, trunk),
                                     (raw, vlan)])
        destination, kind, payload = build(xids)
        if build is dhcp6:
            udp.sendto(payload, (destination, kind, 0, socket.if_nametoindex(name)))
        else:
            wires[name].send(destination + b"\x02\xba\xd0\x00\x00\x01" + struct.pack(">H", kind) + payload)


main()
