#!/usr/bin/env python3
"""Measures this driver and its peers side by side: run.py BUILD_FOLDER RESULTS_FILE.

One small device on a core of its own, and the same work through each client. Runs that take time
are interleaved, so that what disturbs the machine disturbs all of them. Instructions come from
callgrind between marks that the programs set; system calls from strace, as the difference between a
long and a short run. Prints tables, and writes what they were made from as JSON."""

import concurrent.futures
import datetime
import itertools
import json
import os
import platform
import re
import subprocess
import sys
import tempfile
import time

import tables

BUILD, RESULTS = sys.argv[1:3]
MODULE = os.path.join(BUILD, "lib/plugins/libp_driver_modbus.so")
CORES = sorted(os.sched_getaffinity(0))
CLIENT_CORES = CORES[:-1] or CORES  # the last one is the device's

READ_CLIENTS = ["socket", "libmodbus", "qtserialbus", "driver", "driver-text", "driver-spin"]
QUANTITIES = [1, 10, 63, 125]
# The driver refuses longer replies.
MOST_FOR = {"driver": 63, "driver-text": 1, "driver-spin": 63}
UNCOUNTED = ["driver-spin"]  # it looks as often as the device is slow
COUNTED_QUANTITIES = [1, 63]  # where instructions and system calls are counted too
READ_ROUNDS, READS = 25, 4000
COUNTED_READS = 500

PEERS = ["epoll_reads", "goburrow_reads", "libmodbus_reads"]  # programs that only read
SCALE_CLIENTS = ["driver", "driver-glib", "qtserialbus"]
DEVICES = [1, 10, 100, 1000]
THREADED_DEVICES = [100, 1000]
LISTENED, READ = "50", "read"  # listened to every 50 ms, or read after read
SCALE_ROUNDS, SCALE_SECONDS = 5, 0.5
# What one small computer carries: interval, devices, seconds.
CARRIED = [("100", 1000, 1), ("1000", 1000, 3), ("1000", 10000, 3)]
COUNTED_SECONDS = 4
CODEC_REPETITIONS = 1000


def program(name):
    return os.path.join(BUILD, "bin", name)


def output(command, cores=None):
    """Standard output of a program that runs on these cores."""
    pin = ["taskset", "-c", ",".join(map(str, cores))] if cores else []
    return subprocess.run(pin + command, check=True, stdout=subprocess.PIPE, text=True,
                          timeout=120).stdout


def progress(what):
    print(what + " ...", file=sys.stderr, flush=True)


class Callgrind:
    """Runs a program under callgrind, which counts between the program's own marks only."""

    def __init__(self, command):
        with tempfile.TemporaryDirectory() as folder:
            done = subprocess.run(
                ["valgrind", "--tool=callgrind", "--instr-atstart=no",
                 f"--callgrind-out-file={folder}/out", *command],
                check=True, capture_output=True, text=True, timeout=240)
            self.output = done.stdout
            self.total = int(re.search(r"Collected : (\d+)", done.stderr)[1])
            self.dumps = dict(filter(None, (self.dump(e.path) for e in os.scandir(folder))))

    @staticmethod
    def dump(path):
        with open(path, encoding="utf-8") as file:
            text = file.read()
        name = re.search(r"^desc: Trigger: Client Request: (.*)$", text, re.M)
        return (name[1], int(re.search(r"^totals: (\d+)", text, re.M)[1])) if name else None


# --- reads


def read_command(port, client, quantity, count):
    kind, spin, _ = client.partition("-spin")
    command = [program("bench_reads"), kind, str(port), str(quantity), str(count), MODULE]
    return command + ["spin=true"] if spin else command


def read_pairs(quantities):
    return [(q, c) for q, c in itertools.product(quantities, READ_CLIENTS)
            if q <= MOST_FOR.get(c, q)]


def round_trips(port):
    """Of each round the median of the reads and the processor time of one, in microseconds."""
    times = {pair: [] for pair in read_pairs(QUANTITIES)}
    for _, (quantity, client) in itertools.product(range(READ_ROUNDS), times):
        command = read_command(port, client, quantity, READS)
        times[quantity, client].append([float(us) for us in output(command, CLIENT_CORES).split()])
    return times


def read_instructions(port, quantity, client):
    return Callgrind(read_command(port, client, quantity, COUNTED_READS)).total / COUNTED_READS


def system_calls(port, quantity, client, count):
    with tempfile.NamedTemporaryFile("r") as out:
        output(["strace", "-f", "-o", out.name, *read_command(port, client, quantity, count)])
        return sum(1 for line in out if "(" in line)


def system_calls_per_read(port, quantity, client):
    few, many = (system_calls(port, quantity, client, n) for n in (100, 100 + COUNTED_READS))
    return (many - few) / COUNTED_READS


def measure_reads(port, pool):
    progress("reads")
    counted = [pair for pair in read_pairs(COUNTED_QUANTITIES) if pair[1] not in UNCOUNTED]
    times = round_trips(port)
    instructions = dict(zip(counted, pool.map(lambda p: read_instructions(port, *p), counted)))
    calls = dict(zip(counted, pool.map(lambda p: system_calls_per_read(port, *p), counted)))
    return [{"registers": q, "client": c, "us": [us for us, _ in rounds],
             "processorUs": [us for _, us in rounds], "instructions": instructions.get((q, c)),
             "systemCalls": calls.get((q, c))} for (q, c), rounds in times.items()]


# --- many devices


def scale_command(port, client, work, devices, threads, seconds):
    if client in PEERS:
        return [program(client), str(port), str(devices), str(seconds)]
    return [program("bench_scale"), client, work, str(port), str(devices), str(threads),
            str(seconds), MODULE]


def build_goburrow():
    """True when there is a Go to build its client with, and its package."""
    build = ["go", "build", "-o", program("goburrow_reads"), "bench/peers/goburrow_reads.go"]
    place = {**os.environ, "GO111MODULE": "off", "GOPATH": "/usr/share/gocode"}
    try:
        return subprocess.run(build, env=place, stderr=subprocess.DEVNULL).returncode == 0
    except FileNotFoundError:
        return False


def scale_jobs():
    """client, work, devices, threads, whether it may use the device's core, seconds"""
    peers = PEERS if build_goburrow() else [one for one in PEERS if one != "goburrow_reads"]
    for devices, client in itertools.product(DEVICES, peers + SCALE_CLIENTS):
        yield client, READ, devices, 1, False, SCALE_SECONDS
    for devices, client in itertools.product(DEVICES, SCALE_CLIENTS):
        yield client, LISTENED, devices, 1, False, SCALE_SECONDS
    for interval, devices, seconds in CARRIED:
        yield "driver", interval, devices, 1, False, seconds
    for work, devices, threads in itertools.product([LISTENED, READ], THREADED_DEVICES, [1, 2]):
        yield "driver", work, devices, threads, True, SCALE_SECONDS


def measure_scale(port):
    """One thread beside the device; and one and two threads that share the device's core."""
    runs = {job: [] for job in scale_jobs()}
    for turn, job in itertools.product(range(SCALE_ROUNDS), runs):
        if job == next(iter(runs)):
            progress(f"many devices, round {turn + 1} of {SCALE_ROUNDS}")
        *what, everywhere, seconds = job
        command = scale_command(port, *what, seconds)
        runs[job].append(json.loads(output(command, CORES if everywhere else CLIENT_CORES)))
    keys = ("client", "work", "devices", "threads", "everywhere")
    return [{**dict(zip(keys, job)), "runs": seen} for job, seen in runs.items()]


def scale_instructions(port, client, devices):
    done = Callgrind(scale_command(port, client, READ, devices, 1, COUNTED_SECONDS))
    return {"client": client, "devices": devices,
            "instructions": done.total / json.loads(done.output)["orders"]}


def count_scale(port, pool):
    progress("instructions of many devices")
    jobs = itertools.product(["driver", "qtserialbus"], [10, 1000])
    return list(pool.map(lambda job: scale_instructions(port, *job), jobs))


# --- the codec


def measure_codec():
    progress("codec")
    timed = json.loads(output([program("bench_codec"), "--benchmark_min_time=0.05",
                               "--benchmark_format=json"], CLIENT_CORES))
    ns = {one["name"]: one["cpu_time"] for one in timed["benchmarks"]}
    counts = Callgrind([program("bench_codec")]).dumps
    loop_ns, loop = ns.pop("nothing/loop"), counts["nothing/loop"]
    rows = {}
    for name, spent in ns.items():
        what, who = name.rsplit("/", 1)
        rows.setdefault(what, {"case": what})[who] = {
            "ns": max(0, spent - loop_ns),
            "instructions": round((counts[name] - loop) / CODEC_REPETITIONS)}
    return list(rows.values())


# --- the whole


def idle_cores():
    """What a core does that has nothing to do: to wake a halted one takes a virtual machine long."""
    try:
        with open("/sys/module/haltpoll/parameters/guest_halt_poll_ns", encoding="ascii") as file:
            polled_us = int(file.read()) // 1000
    except FileNotFoundError:
        return "the processor's idle states"
    return f"halt after looking for work for {polled_us} us" if polled_us else "halt at once"


def machine():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        found = re.search(r"^model name\s*: (.*)$", file.read(), re.M)
    return {"processor": found[1] if found else platform.machine(), "cores": len(CORES),
            "kernel": platform.release(), "idleCores": idle_cores(),
            "date": datetime.date.today().isoformat(),
            "load": os.getloadavg()[0]}


def measure(port):
    with concurrent.futures.ThreadPoolExecutor(len(CORES)) as pool:
        return {"machine": machine(), "reads": measure_reads(port, pool),
                "scale": measure_scale(port), "scaleInstructions": count_scale(port, pool),
                "codec": measure_codec()}


def main():
    begin = time.monotonic()
    device = subprocess.Popen([program("bench_device")], stdout=subprocess.PIPE, text=True)
    try:
        os.sched_setaffinity(device.pid, CORES[-1:])
        results = measure(int(device.stdout.readline().rpartition(":")[2]))
    finally:
        device.kill()
        device.wait()
    os.makedirs(os.path.dirname(RESULTS), exist_ok=True)
    with open(RESULTS, "w", encoding="utf-8") as file:
        json.dump(results, file, indent=1)
    for name, text in tables.all_of(results).items():
        print(f"{name}\n\n{text}\n")
    for why in tables.disturbances(results):
        print(f"Disturbed: {why}", file=sys.stderr)
    print(f"{time.monotonic() - begin:.0f} s; the data are in {RESULTS}", file=sys.stderr)


if __name__ == "__main__":
    main()
