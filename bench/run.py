#!/usr/bin/env python3
"""The same reads through this driver and through its peers, side by side: run.py BUILD_FOLDER.

Interleaved runs against one small device, so that what disturbs the machine disturbs all of them;
medians, and ratios with their spread. Instructions come from callgrind and system calls from strace,
each as the difference between a long and a short run, so that start-up does not count."""

import os
import re
import statistics
import subprocess
import sys
import tempfile

BUILD = sys.argv[1] if len(sys.argv) > 1 else "build/release"
MODULE = os.path.join(BUILD, "lib/plugins/libp_driver_modbus.so")
READS = os.path.join(BUILD, "bin/bench_reads")
KINDS = ["socket", "libmodbus", "qtserialbus", "driver"]
QUANTITIES = [1, 10, 63]  # the driver reads no more than 63 registers
ROUNDS, COUNT = 7, 4000
SHORT, LONG = 200, 1200


def command(kind, port, quantity, count):
    return [READS, kind, str(port), str(quantity), str(count), MODULE]


def nanoseconds(kind, port, quantity):
    done = subprocess.run(command(kind, port, quantity, COUNT), check=True, capture_output=True,
                          text=True)
    return int(done.stdout)


def instructions(kind, port, quantity, count):
    with tempfile.NamedTemporaryFile() as out:
        done = subprocess.run(["valgrind", "--tool=callgrind",
                               "--callgrind-out-file=" + out.name,
                               *command(kind, port, quantity, count)],
                              check=True, capture_output=True, text=True)
    return int(re.search(r"Collected : (\d+)", done.stderr)[1])


def system_calls(kind, port, quantity, count):
    with tempfile.NamedTemporaryFile("r") as out:
        subprocess.run(["strace", "-f", "-o", out.name, *command(kind, port, quantity, count)],
                       check=True, capture_output=True)
        return sum(1 for line in out if "(" in line)


def per_read(measure, kind, port, quantity):
    return (measure(kind, port, quantity, LONG) - measure(kind, port, quantity, SHORT)) \
        / (LONG - SHORT)


def round_trips(port, quantity):
    times = {kind: [] for kind in KINDS}
    for _ in range(ROUNDS):
        for kind in KINDS:
            times[kind].append(nanoseconds(kind, port, quantity) / 1000)
    return times


def ratio_text(ours, theirs):
    ratios = sorted(a / b for a, b in zip(ours, theirs))
    return f"{statistics.median(ratios):.2f} ({ratios[0]:.2f} to {ratios[-1]:.2f})"


def report(port):
    print("| registers | client | round trip, us | driver / client | instructions | system calls |")
    print("|---|---|---|---|---|---|")
    for quantity in QUANTITIES:
        times = round_trips(port, quantity)
        for kind in KINDS:
            print(f"| {quantity} | {kind} | {statistics.median(times[kind]):.1f} "
                  f"| {ratio_text(times['driver'], times[kind])} "
                  f"| {per_read(instructions, kind, port, quantity):,.0f} "
                  f"| {per_read(system_calls, kind, port, quantity):.1f} |", flush=True)


def main():
    cores = sorted(os.sched_getaffinity(0))
    device = subprocess.Popen([os.path.join(BUILD, "bin/bench_device")], stdout=subprocess.PIPE,
                              text=True)
    try:
        if len(cores) > 1:  # the device on a core of its own
            os.sched_setaffinity(device.pid, cores[-1:])
            os.sched_setaffinity(0, cores[:-1])
        report(int(device.stdout.readline().rpartition(":")[2]))
    finally:
        device.kill()
        device.wait()


if __name__ == "__main__":
    main()
