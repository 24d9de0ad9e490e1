"""Prints what `footprint` measured: one row a candidate, and below it what became of each target."""

import sys

SET = ("wpa_supplicant", "lldpd", "dhcpcd", "dnsmasq", "chronyd", "tftpd-hpa")
BUILDS = ("x86-64", "x86-64-static", "x86-64-musl", "x86-64-uclibc-static")
BOARD_BUILDS = ("mipsel-uclibc", "mipsel-uclibc-static", "mipsel")
COLUMNS = (
    ("files", "file kB", 1000),
    ("libraries", "libraries kB", 1000),
    ("rss", "RSS KiB", 1),
    ("pss", "PSS KiB", 1),
    ("private", "private KiB", 1),
    ("private-dirty", "private dirty KiB", 1),
    ("wakeups", "wakeups", 0),
    ("frames", "frames", 0),
    ("system-calls", "system calls", 0),
    ("cpu", "CPU ms", 0),
)


def read(folder):
    results = {}
    for name in ("results", "cpu", "files"):
        with open(f"{folder}/{name}") as file:
            for candidate, what, value in map(str.split, file):
                results.setdefault(candidate, {})[what] = float(value)
    return results


def sum_up_set(results):
    for what in ("files", "rss", "pss", "private", "private-dirty"):
        results["set"][what] = sum(results[program][what] for program in SET)


def print_row(name, values, minutes):
    cells = []
    for what, _, unit in COLUMNS:
        value = values.get(what)
        if value is not None:
            value /= unit or minutes * (1e6 if what == "cpu" else 1)
        cells.append("" if value is None else f"{value:.1f}" if what == "cpu" else f"{value:.0f}")
    print(f"| {name} | " + " | ".join(cells) + " |")


def print_target(what, seen, target, unit=""):
    print(f"- {what}: {seen:.4g}{unit}, target {target:.4g}{unit}: {'met' if seen <= target else 'MISSED'}")


def print_targets(results, minutes):
    daemon = results["x86-64"]
    for build, file, rss, dirty in (("mipsel-uclibc", 135, 600, 220), ("mipsel-uclibc-static", 160, 240, 240)):
        on_board = results[build]
        print_target(f"file, {build}", on_board["files"] / 1000, file, " kB")
        print_target(f"RSS, {build} on the board", on_board["rss"], rss, " KiB")
        print_target(f"private dirty, {build} on the board", on_board["private-dirty"], dirty, " KiB")
    print_target("RSS, x86-64", daemon["rss"], 1536, " KiB")
    print_target("RSS, mipsel on the board", results["mipsel"]["rss"], 1536, " KiB")
    print_target("RSS, x86-64-static", results["x86-64-static"]["rss"], 0.95 * 1024, " KiB")
    for build in BUILDS:
        print_target(f"private dirty, {build}", results[build]["private-dirty"], 192, " KiB")
    print_target("wakeups a minute beside one a frame", (daemon["wakeups"] - daemon["frames"]) / minutes, 30)
    print_target("system calls a minute", daemon["system-calls"] / minutes, 330)
    for build in BOARD_BUILDS:
        ratio = results[build]["cpu"] / results[build + "-poller"]["cpu"]
        print_target(f"CPU, times the bare program's, {build} on the board", ratio, 1.25)


def main():
    folder = sys.argv[1]
    with open(f"{folder}/seconds") as file:
        minutes = float(file.read()) / 60
    results = read(folder)
    sum_up_set(results)
    print("| | " + " | ".join(title for _, title, _ in COLUMNS) + " |")
    print("|---|" + "---:|" * len(COLUMNS))
    for build in BOARD_BUILDS:
        print_row(f"on the board: basenetd {build}", results[build], minutes)
        print_row("on the board: the bare program", results[build + "-poller"], minutes)
    titles = {"poller": "the bare program", "set": "the six together"}
    for name in (*BUILDS, "poller", *SET, "set"):
        title = titles.get(name, f"basenetd {name}" if name in BUILDS else name)
        print_row(title, results[name], minutes)
    print()
    print("Wakeups, frames, calls and processor time are those of a minute. In the lab that is a process's own time and")
    print("the way into its kernel and back; on the board, the kernel's work for it too.")
    print()
    print_targets(results, minutes)


main()
