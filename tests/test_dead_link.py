#!/usr/bin/env python3
"""Networks that go dead without a word. A device lives in a network namespace of its own, and from
one moment on everything it sends is dropped; and a name server that never answers is the only one of
such a namespace. Needs root and the command ip; else it is skipped (exit code 77)."""

import ipaddress
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time
import unittest

from programs import Program

HOST = os.environ["DRIVER_HOST"]
SIMULATOR = os.environ["DEVICE_SIMULATOR"]
SPACE = f"dl{os.getpid()}"
# Of the range for tests of networks, and different for each run: one that was killed leaves its own.
NETWORK = f"198.18.{os.getpid() // 63 % 256}.{os.getpid() % 63 * 4}"
OURS, THEIRS = (str(ipaddress.ip_address(NETWORK) + host) for host in (1, 2))
PORT = "1502"
LOST_WITHIN = 12  # seconds, as promised
LOOKUP_LASTS = 10  # seconds that the system's resolver waits for its name server
RESOLV_CONF = pathlib.Path("/etc/netns") / SPACE / "resolv.conf"
SILENT_NAME_SERVER = """
import socket
server = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
server.bind(("127.0.0.1", 53))
print("ready", flush=True)
while True:
    print("asked", server.recv(512), flush=True)
"""


def ip(*words, space=None):
    subprocess.run(["ip", *(["-n", space] if space else []), *words], check=True,
                   capture_output=True)


def set_up_network():
    link = SPACE + "v"
    ip("netns", "add", SPACE)
    ip("link", "add", link, "type", "veth", "peer", "name", "v", "netns", SPACE)
    ip("addr", "add", OURS + "/30", "dev", link)
    ip("link", "set", link, "up")
    ip("addr", "add", THEIRS + "/30", "dev", "v", space=SPACE)
    ip("link", "set", "v", "up", space=SPACE)
    ip("link", "set", "lo", "up", space=SPACE)
    RESOLV_CONF.parent.mkdir(parents=True)
    RESOLV_CONF.write_text("nameserver 127.0.0.1\n")


class DeadLink(unittest.TestCase):
    def start(self, *command):
        program = Program(command, stderr=subprocess.STDOUT)
        self.addCleanup(program.close)
        return program

    def wait_for(self, program, pattern):
        for line in program.stdout:
            if re.search(pattern, line):
                return time.monotonic()
        self.fail(f"it ended without '{pattern}'")

    def check(self, *command, first):
        simulator = self.start("ip", "netns", "exec", SPACE, SIMULATOR, "--address", THEIRS,
                               "--port", PORT, "--quiet")
        self.wait_for(simulator, "listening on")
        host = self.start(HOST, *command, "--host", THEIRS, "--port", PORT)
        self.wait_for(host, first)
        ip("route", "add", "blackhole", OURS + "/32", space=SPACE)
        cut = time.monotonic()
        lost = self.wait_for(host, "connection lost")
        ip("route", "del", "blackhole", OURS + "/32", space=SPACE)
        self.assertLess(lost - cut, LOST_WITHIN)
        self.wait_for(host, "connected")

    def test_without_orders(self):
        self.check("connect", first="connected")

    def test_with_orders_running(self):
        self.check("listen", "--register", "100", "--register-type", "holdingRegisters",
                   "--interval", "200", first="258")


class SilentNameServer(unittest.TestCase):
    def setUp(self):
        self.server = self.start(sys.executable, "-c", SILENT_NAME_SERVER)
        self.assertEqual(self.server.stdout.readline(), "ready\n")

    def start(self, *command):
        program = Program(["ip", "netns", "exec", SPACE, *command])
        self.addCleanup(program.close)
        return program

    def ask(self, limit):
        host = self.start(HOST, "connect", "--host", "device.example", "--port", PORT, "--timeout",
                          str(limit))
        self.assertIn("asked", self.server.stdout.readline())
        return host, time.monotonic()

    def test_limit_holds(self):
        host, asked = self.ask(300)
        errors = host.communicate()[1]
        self.assertLess(time.monotonic() - asked, LOOKUP_LASTS / 2)
        self.assertEqual(host.returncode, 3)
        self.assertIn("no answer within 300 ms", errors)

    def test_signal_ends_it(self):
        host, asked = self.ask(60000)
        self.assertEqual(host.end()[0], 0)
        self.assertLess(time.monotonic() - asked, LOOKUP_LASTS / 2)


if __name__ == "__main__":
    if os.geteuid() != 0 or not shutil.which("ip"):
        print("skipped: it needs root and the command ip")
        sys.exit(77)
    try:
        try:
            set_up_network()
        except subprocess.CalledProcessError as error:
            print("skipped: no network namespaces here:", error.stderr.decode())
            sys.exit(77)
        unittest.main(verbosity=2)
    finally:
        subprocess.run(["ip", "netns", "del", SPACE], check=False)
        shutil.rmtree(RESOLV_CONF.parent, ignore_errors=True)
