"""Prints one row a case: median time, ratio to the yardstick, system allocations per operation.

A case is named "operation/who/size".
"""

import json
import sys


YARDSTICKS = (
    "std::string", "std::map", "std::multimap", "snprintf", "malloc", "c-ares", "ldns", "3 x std::map",
    "EVP_Digest", "MD5_Update", "SHA1_Update",
)


def results(path):
    with open(path) as file:
        return json.load(file)["benchmarks"]


def split_name(name):
    operation, who, *size = name.split("/")
    return operation, who, size[0] if size else ""


def cells(who, nanoseconds, allocations):
    return f"  {who:20} {nanoseconds:11.1f} {allocations:8.2f}"


def main():
    times = {b["run_name"]: b["cpu_time"] for b in results(sys.argv[1]) if b.get("aggregate_name") == "median"}
    ours, theirs = {}, {}
    for result in results(sys.argv[2]):
        operation, who, size = split_name(result["run_name"])
        cell = (who, times[result["run_name"]], result["allocations"])
        if who in YARDSTICKS:
            theirs.setdefault((operation, size), []).append(cell)
        else:
            ours[operation, size] = cell
    print(f"{'operation':26} {'size':>6}  {'ours':20} {'ns':>11} {'allocs':>8}  {'yardstick':20} {'ns':>11} {'allocs':>8}  ratio")
    for key, own in ours.items():
        line = f"{key[0]:26} {key[1]:>6}" + cells(*own)
        for yardstick in theirs.get(key, []):
            line += cells(*yardstick) + f" {own[1] / yardstick[1]:6.2f}"
        print(line)


main()
