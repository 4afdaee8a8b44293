#!/usr/bin/env python3
"""How driver-host ends, and what it writes: tables/outcomes.txt. CTest passes the programs in the
environment."""

import contextlib
import itertools
import json
import os
import pathlib
import re
import resource
import signal
import socket
import subprocess
import sys
import tempfile
import unittest

from programs import PATIENCE, Device, Program, parse, table

HERE = pathlib.Path(__file__).parent
RAW_DEVICE = str(HERE / "devices" / "raw_device.py")
EXITS = ("0", "1", "2", "3", "4", "129", "130", "143")
CODES = ("usage", "not_connected", "timeout", "device_exception", "bad_reply", "stopped")
SIGNALS = {"HUP": signal.SIGHUP, "INT": signal.SIGINT, "TERM": signal.SIGTERM}
HOLDING = {"registerType": "holdingRegisters", "register": 100}
ORDERS = {  # id: command, parameters
    "c": ("connect", {"host": "127.0.0.1"}), "r": ("read", HOLDING), "r?": ("read", {}),
    "r9999": ("read", {**HOLDING, "register": 9999}), "r64": ("read", {**HOLDING, "dataSize": 64}),
    "rx": ("read", {**HOLDING, "registerType": "x"}),
    "l": ("listen", {**HOLDING, "recurrentInterval": 20}),
}


class Socket:
    """A port where nobody listens, or one that says and does only what it is told."""

    def __init__(self, backlog=None):
        self.socket = socket.socket()
        self.socket.bind(("127.0.0.1", 0))
        self.port = self.socket.getsockname()[1]
        self.client = self.socket
        if backlog is not None:
            self.socket.listen(backlog)

    def fill(self):
        """From here on it answers no attempt to connect."""
        self.client = socket.create_connection(self.socket.getsockname())
        return self

    def connecting(self):
        """The attempt is in the list of connections, with its state: 02 is SYN_SENT."""
        while f":{self.port:04X} 02 " not in pathlib.Path("/proc/net/tcp").read_text():
            pass

    def asked(self):
        self.client = self.socket.accept()[0]
        self.client.recv(12)

    def refused(self):
        self.client.sendall(bytes.fromhex("aabb00000003008302"))

    def answered(self):
        self.client.sendall(bytes.fromhex("aabb0000000500030201 02"))

    def unconfirmed(self):
        """Register 5 and 2, where 1 was written."""
        self.client.sendall(bytes.fromhex("aabb00000006000600050002"))

    def close(self):
        self.client.close()
        self.socket.close()


def raw_device(port=0):
    return Device([sys.executable, RAW_DEVICE, str(port)])


def make_device(name):
    own = {"": Socket, "refused": Socket, "silent": lambda: Socket(1), "raw": raw_device,
           "deaf": lambda: Socket(0).fill()}
    return own[name]() if name in own else Device(
        [os.environ["DEVICE_SIMULATOR"], "--port=0", "--quiet", "--misbehave", name, "--every=1"])


def summary(event):
    kind = event["event"]
    last = {"started": kind, "result": event.get("value"), "error": event.get("code"),
            "connection": "again" if event.get("connected") else "lost",
            "finished": "ok" if event.get("ok") else "failed"}[kind]
    return f"{event['id']}:{last}" if "id" in event else str(last)


class Play:
    """One row: a driver-host, its device, and what was heard so far."""

    def __init__(self, line, device, output):
        for short, long in (("@", f"--host 127.0.0.1 --port {device.port}"), ("SCRIPT", RAW_DEVICE),
                            ("%", "--register-type holdingRegisters --register"),
                            ("MANY", ",".join(["1"] * 122)),
                            ("MODULE", os.environ["FIXTURE_MODULE"])):
            line = re.sub(rf"(?<= ){short}(?= |$)", long, line)
        words = [word.replace("NONE", "") for word in line.split()]
        orders = [word for word in words[1:] if word.lstrip("-") in ORDERS]
        words = ["run", "-"] if orders else words + ["--format", "json"]
        self.device, self.events, self.messages = device, [], []
        self.errors = tempfile.TemporaryFile("w+", encoding="utf-8")
        self.host = Program([os.environ["DRIVER_HOST"], "--no-color", *words], encoding=None,
                            stdin=subprocess.PIPE, stdout=output, stderr=self.errors)
        self.give(*orders)

    def close(self):
        for each in (self.host, self.errors, self.device):
            each.close()

    def give(self, *orders):
        for order in orders:
            command, parameters = ORDERS[order.lstrip("-")]
            parameters = {**parameters, "port": self.device.port} if order == "c" else parameters
            line = {"id": order, "device": "d", "command": command, "parameters": parameters}
            line = {"id": order[1:], "stop": True} if order.startswith("-") else line
            self.host.stdin.write(json.dumps(line).encode() + b"\n")
        self.host.stdin.flush()

    def listen(self, until=None):
        for event in map(parse, self.host.stdout):
            self.events.append(summary(event))
            self.messages.append(event.get("message", ""))
            if self.events[-1] == until:
                return
        assert until is None, f"'{until}' did not come, but {self.events}"

    def twice(self):
        """Both are delivered as soon as it goes on, and SIGINT's handler comes second."""
        self.host.send_signal(signal.SIGSTOP)
        os.waitpid(self.host.pid, os.WUNTRACED)
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGCONT):
            self.host.send_signal(number)

    def waiting(self):
        """It has told on standard error that it waits for its device."""
        while b"trying again" not in os.pread(self.errors.fileno(), 4096, 0):
            pass

    def revive(self):
        self.device.close()
        self.device = raw_device(self.device.port)

    def do(self, word):
        if word in SIGNALS:
            self.host.send_signal(SIGNALS[word])
        elif word == "pipe":
            self.host.stdout.close()
        elif word.startswith("-"):
            self.give(word)
        elif hasattr(self, word) or hasattr(self.device, word):
            getattr(self if hasattr(self, word) else self.device, word)()
        else:
            self.listen(word)


class Outcomes(unittest.TestCase):
    def setUp(self):
        rows = table("outcomes")
        self.never = {(row[1], row[2]) for row in rows if row[0] == "never"}
        self.rows = [(row + ["", ""])[:6] for row in rows if row[0] != "never"]

    def test_table(self):
        with open("/dev/full", "wb") as full:
            for line, device, acts, *expected in self.rows:
                with self.subTest(line, device=device, acts=acts):
                    self.check(full if acts == "full" else subprocess.PIPE, line,
                               make_device(device), acts.replace("full", "").split(), *expected)

    def check(self, output, line, device, acts, code, events, words):
        with contextlib.closing(Play(line, device, output)) as play:
            for word in acts:
                play.do(word)
            if not {*SIGNALS, "twice", "pipe"}.intersection(acts):
                play.host.stdin.close()
            if output == subprocess.PIPE and "pipe" not in acts:
                play.listen()
            self.assertEqual(str(play.host.wait(PATIENCE)), code)
            self.assertEqual(" ".join(each for each, _ in itertools.groupby(play.events)), events)
            play.errors.seek(0)
            errors = play.errors.read()
            self.assertRegex(errors + "\n".join(play.messages) if words else errors, words or "^$")

    def test_few_descriptors(self):
        """What it stands on would abort it: it says so first, or goes its usual way."""
        ends = []
        with contextlib.closing(Socket()) as device:
            for count in range(4, 24):
                done = subprocess.run(
                    [os.environ["DRIVER_HOST"], "read", "--host", "localhost", "--register=0",
                     "--register-type=inputStatus", f"--port={device.port}"], encoding="utf-8",
                    stdin=subprocess.DEVNULL, capture_output=True, timeout=PATIENCE, check=False,
                    preexec_fn=lambda n=count: resource.setrlimit(resource.RLIMIT_NOFILE, (n, n)))
                ends.append(done.returncode)
                self.assertRegex(done.stderr, {
                    2: f"the limit of {count} leaves .*; raise it, such as with 'ulimit -n 1024'\n$",
                    3: "refused; check host and port"}[done.returncode])
        self.assertEqual(ends, [2] * 15 + [3] * 5)

    def test_many_devices_and_few_descriptors(self):
        with contextlib.closing(Socket(50)) as device:
            lines = [{"id": n, "device": str(n), "command": "connect",
                      "parameters": {"host": "127.0.0.1", "port": device.port}} for n in range(50)]
            host = subprocess.Popen([os.environ["DRIVER_HOST"], "run", "-"], stdin=subprocess.PIPE,
                                    stdout=subprocess.PIPE, stderr=subprocess.PIPE, encoding="utf-8")
            # An order has ended before the limit comes: the sanitizers look at memory by a pipe when
            # they see a type for the first time.
            first = {"id": "a", "device": "0", "command": "deviceInformation"}
            host.stdin.write(json.dumps(first) + "\n")
            host.stdin.flush()
            while '"finished"' not in host.stdout.readline():
                self.assertIsNone(host.poll())
            resource.prlimit(host.pid, resource.RLIMIT_NOFILE, (40, 40))
            out, _ = host.communicate("\n".join(map(json.dumps, lines)), PATIENCE)
        told = {parse(line).get("message") for line in out.splitlines()} - {None}
        self.assertRegex(" ".join(told), "^connect failed: cannot connect to 127.0.0.1:[0-9]+: Too many "
                                         "open files; raise that limit, such as with 'ulimit -n 4096'$")

    def test_table_is_whole(self):
        """Each exit code, kind of error and way to be stopped has a row for each of these."""
        seen = set(self.never)
        for line, _, acts, code, events, _ in self.rows:
            told = {event.rpartition(":")[2] for event in events.split()}
            seen.update((line.split()[0], each) for each in (code, *told, *acts.split()))
        cells = itertools.product(("read", "listen", "run"), (*EXITS, *CODES, *SIGNALS, "pipe"))
        self.assertEqual(set(cells) - seen, set())


if __name__ == "__main__":
    unittest.main(verbosity=2)
