#!/usr/bin/env python3
"""Prints the WBEM library benchmark tables (markdown) from the JSON files run.sh wrote:
the median of every repetition of every round, and for the main figures the range."""
import glob
import json
import os
import statistics
import sys
from collections import defaultdict


def load(folder, prefix):
    runs = defaultdict(list)
    for path in sorted(glob.glob(os.path.join(folder, prefix + "*.json"))):
        with open(path) as f:
            data = json.load(f)
        for b in data["benchmarks"]:
            if b.get("run_type") != "iteration" or b.get("error_occurred"):
                continue
            runs[b["run_name"]].append(b)
    return runs


def med(values):
    return statistics.median(values)


def span(values, fmt):
    return f"{fmt.format(med(values))} ({fmt.format(min(values))}–{fmt.format(max(values))})"


def xml_table(folder):
    runs = load(folder, "xml_")
    if not runs:
        return
    print("| parser | request | size | CPU time per request, median (range) | MB/s | peak heap KiB | of which the decoded request KiB | samples |")
    print("|---|---|---|---|---|---|---|---|")
    for name, bs in runs.items():
        _, parser, variant_doc = name.split("/", 2)
        variant, doc = variant_doc.rsplit("/", 1)
        # CPU time: the programs are single-threaded, and on a shared machine the wall clock
        # also counts the time other processes held the core.
        us = [b["cpu_time"] for b in bs]  # microseconds
        mbs = [b["doc_B"] / b["cpu_time"] for b in bs]
        size = bs[0]["doc_B"]
        print(f"| {parser}/{variant} | {doc} | {size / 1024:.1f} KiB | {span(us, '{:.2f}')} µs | "
              f"{med(mbs):.0f} | {med([b['peak_KiB'] for b in bs]):.0f} | "
              f"{med([b['result_KiB'] for b in bs]):.0f} | {len(bs)} |")


def http_tables(folder):
    runs = load(folder, "http_")
    if not runs:
        return
    print()
    print("| server | connections | requests/s, median (range) | wall µs per request | server CPU µs per request, median (range) | client CPU µs per request | reconnects per 1000 | samples |")
    print("|---|---|---|---|---|---|---|---|")
    for name, bs in runs.items():
        if "/Post/" not in name:
            continue
        parts = name.split("/")
        server = parts[1] + "/" + parts[2]
        conns = int(parts[4].split(":")[1])
        rps = [b["items_per_second"] for b in bs]
        cpu = [b["server_cpu_us_per_req"] for b in bs]
        client = [b["cpu_time"] / conns for b in bs]
        print(f"| {server} | {conns} | {span(rps, '{:.0f}')} | {1e6 / med(rps):.1f} | "
              f"{span(cpu, '{:.1f}')} | {med(client):.1f} | "
              f"{med([b['reconnects_per_1k'] for b in bs]):.0f} | {len(bs)} |")
    print()
    print("| server | stream | wall ms, median (range) | MB/s | server CPU ms | chunks on the wire | trailer received | server RSS before → peak (KiB) | samples |")
    print("|---|---|---|---|---|---|---|---|---|")
    for name, bs in runs.items():
        if "/Stream" not in name:
            continue
        parts = name.split("/")
        server = parts[1] + "/" + parts[2]
        mode = "gathered into 64 KiB" if parts[3] == "StreamGathered" else "piece by piece"
        ms = [b["real_time"] for b in bs]
        print(f"| {server} | {mode} | {span(ms, '{:.0f}')} | "
              f"{med([b['bytes_per_second'] for b in bs]) / 1e6:.0f} | "
              f"{med([b['server_cpu_ms'] for b in bs]):.0f} | {med([b['wire_chunks'] for b in bs]):.0f} | "
              f"{'yes' if min(b['trailer'] for b in bs) > 0 else 'no'} | "
              f"{med([b['rss_before_KiB'] for b in bs]):.0f} → {max(b['rss_peak_KiB'] for b in bs):.0f} | "
              f"{len(bs)} |")


def main():
    folder = sys.argv[1] if len(sys.argv) > 1 else "build/h-wbem/bench/wbem/results"
    xml_table(folder)
    http_tables(folder)
    for path in sorted(glob.glob(os.path.join(folder, "checks_*.md"))):
        print()
        print(f"<!-- {os.path.basename(path)} -->")
        with open(path) as f:
            print(f.read().rstrip())


if __name__ == "__main__":
    main()
