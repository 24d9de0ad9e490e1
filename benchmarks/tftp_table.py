#!/usr/bin/env python3
"""Prints two lines a row, speed and processor time of each server, with the ratios of ours (at both log levels) to the
best of the others.

The speed's ratio is better above 1, that of the processor time below 1.
"""

import os
import statistics
import sys

OURS = ("basenetd-0", "basenetd-9")
SERVERS = (*OURS, "tftpd-hpa", "atftpd", "dnsmasq")


def lines(path):
    if not os.path.exists(path):
        return []
    with open(path) as file:
        return [line.split() for line in file]


def medians(folder):
    """(transfers, seconds, processor seconds) by row and server."""
    runs = {}
    for row, server, count, seconds, microseconds, repeats in lines(f"{folder}/results"):
        if repeats != "0":
            print(f"{row}, {server}: a run with {repeats} retransmissions")
        runs.setdefault(row, {}).setdefault(server, []).append(
            (int(count), float(seconds), int(microseconds) / 1e6)
        )
    return {
        row: {server: tuple(map(statistics.median, zip(*values))) for server, values in servers.items()}
        for row, servers in runs.items()
    }


def print_line(row, unit, values, better):
    others = [server for server in values if not server.startswith("basenetd")]
    best = better(others, key=values.get)
    cells = "".join(f"{values[s]:11.3f}" if s in values else f"{'-':>11}" for s in SERVERS)
    ratios = "".join(f"{values[ours] / values[best]:6.2f}" for ours in OURS)
    print(f"{row:12} {unit:>15}{cells}  {best:10}{ratios}")


def print_calls(folder, blocks):
    for server in SERVERS:
        # % time, seconds, microseconds a call, calls, perhaps errors, name
        rows = [r for r in lines(f"{folder}/calls.{server}") if len(r) >= 5 and r[3].isdigit() and r[-1] != "total"]
        counts = {r[-1]: int(r[3]) / blocks for r in rows}
        often = ", ".join(f"{name} {count:.2f}" for name, count in counts.items() if count >= 0.05)
        if counts:
            print(f"System calls a block of a read, {server}: {sum(counts.values()):.2f} ({often})")


def main():
    folder = sys.argv[1]
    sizes = {row: int(size) for row, size, *_ in lines(f"{folder}/plan")}
    results = medians(folder)
    print(f"{'transfers':12} {'':>15}" + "".join(f"{s:>11}" for s in SERVERS) + f"  {'best other':10}{'ratios':>8}")
    for row, servers in results.items():
        # Small files are told by the transfer, others by the megabyte.
        scale, unit = (1, "transfer") if sizes[row] <= 512 else (sizes[row] / 1e6, "MB")
        print_line(row, f"{unit}/s", {s: n * scale / seconds for s, (n, seconds, _) in servers.items()}, max)
        print_line("", f"CPU ms/{unit}", {s: cpu / n / scale * 1000 for s, (n, _, cpu) in servers.items()}, min)
    # The last block is shorter than 512 bytes, or empty.
    print_calls(folder, sizes.get("calls", 0) // 512 + 1)


main()
