#!/usr/bin/env python3
"""driver-host with a module of a protocol of its own: what it shows and does comes from what the
module declares. CTest passes the program and the module in the environment."""

import json
import os
import pathlib
import re
import socket
import subprocess
import threading
import unittest

from programs import PATIENCE, Program
from sample_device import Server

HOST = [os.environ["DRIVER_HOST"], "--plugin", os.environ["SAMPLE_MODULE"], "--no-color"]
USAGE = "\ntry 'driver-host get --help'\n"


def run(*arguments):
    done = subprocess.run([*HOST, *arguments], stdin=subprocess.DEVNULL, capture_output=True,
                          encoding="utf-8", timeout=PATIENCE)
    return done.returncode, done.stdout, done.stderr


class SampleModule(unittest.TestCase):
    def setUp(self):
        self.device = Server(0)
        self.addCleanup(self.device.server_close)
        self.endpoint = ["--host", "127.0.0.1", "--port", str(self.device.server_address[1])]
        threading.Thread(target=self.device.serve_forever, args=(0.01,)).start()
        self.addCleanup(self.device.shutdown)

    def test_info(self):
        info = json.loads(run("info", "--format", "json")[1])
        self.assertEqual(info["interface"], "fr.vexo.rd.box.SampleModule")
        self.assertEqual([(command["name"], command["stopName"]) for command in info["commands"]],
                         [("connect", "disconnect"), ("get", ""), ("watch", "stopWatching")])

    def test_page_shows_this_module(self):
        folder = os.path.dirname(__file__)
        page, module, host = (pathlib.Path(folder, name).read_text(encoding="utf-8") for name in (
            "../../docs/host-kit.md", "sample_module.cpp", "sample_host.cpp"))
        pieces = re.findall(r"^```cpp\n(.*?)^```", page, re.M | re.S)
        self.assertGreater(len(pieces), 9)
        for piece in pieces:
            self.assertIn(piece, module + host)

    def test_help_shows_the_declared_options_and_no_others(self):
        output = run("get", "--help")[1]
        options = [line.split("  ")[1] for line in output.splitlines() if line.startswith("  --")]
        self.assertEqual(options[:2], ["--name TEXT, required", "--times 1..1000, default 1"])
        self.assertIn("--port 1..65535, default 4000", options)
        self.assertNotRegex(output.lower(), "modbus|register|coil")

    def test_get(self):
        for arguments, *wanted in (
                ("--name level", 0, "20.5\n", ""),
                ("--name outdoor_temperature --times 0x10", 0, "-4\n", ""),
                ("--name nothing", 1, "", "the device answered exception 1, no such name\n"),
                ("--name volume", 1, "", "the device's reply does not fit the request; "
                                         "--verbose shows the reply and what "
                                         "the module says of it\n"),
                ("--name silence", 1, "", "no answer within 2000 ms; check that the device is on "
                                          "and reachable\n"),
                ("--name two\nlines", 1, "", "parameter 'name' must be one word\n"),
                ("--name level --times 70000", 2, "",
                 "--times: '70000' is not a number 0 to 65535" + USAGE),
                ("--times 2", 2, "", "get needs --name" + USAGE)):
            with self.subTest(arguments):
                code, output, errors = run("get", *self.endpoint, *arguments.split(" "))
                self.assertEqual([code, output, errors.partition(": ")[2]], wanted)
        self.assertEqual(b"".join(self.device.asked), b"GET level 1\nGET outdoor_temperature 16\n"
                                                      b"GET nothing 1\nGET volume 1\n"
                                                      b"GET silence 1\n")

    def test_watch(self):
        """A failed measurement does not end it."""
        for arguments, *wanted in (
                ("--name rising --interval 5 --until 3", 0, ["1", "3"],
                 "watch failed: the device answered exception 1, no such name\n"),
                ("--name rising --interval 5 --count 2", 0, ["4", "5"], "watch: 2 done, 0 f"),
                ("--name rising --interval 0", 2, [], "--interval: '0' is not")):
            with self.subTest(arguments):
                code, output, errors = run("watch", *self.endpoint, *arguments.split(" "))
                self.assertEqual([code, [line.split()[-1] for line in output.splitlines()]],
                                 wanted[:2])
                self.assertIn(wanted[2], errors)

    def test_program_of_ones_own(self):
        for name, *wanted in (("level", 0, "20.5\n"),
                              ("rot", 1, "the device answered exception 1, no such name\n")):
            done = subprocess.run(
                [os.environ["SAMPLE_HOST"], HOST[2], *self.endpoint[1::2], name],
                capture_output=True, encoding="utf-8", timeout=PATIENCE)
            self.assertEqual([done.returncode, done.stdout], wanted, done.stderr)

    def test_no_device(self):
        with socket.socket() as deaf:
            deaf.bind(("127.0.0.1", 0))
            self.endpoint[3] = str(deaf.getsockname()[1])
            code, output, errors = run("get", "--name", "level", *self.endpoint)
        self.assertEqual((code, output), (3, ""))
        self.assertIn(f"cannot connect to 127.0.0.1:{self.endpoint[3]}: ", errors)

    def test_stopped_connect_tells_it_once(self):
        orders = [{"id": "1", "device": "gauge", "command": "connect",
                   "parameters": {"host": "127.0.0.1", "port": self.endpoint[3]}},
                  {"id": "2", "device": "gauge", "command": "get", "parameters": {"name": "level"}}]
        done = subprocess.run([*HOST, "run", "-"], input="\n".join(map(json.dumps, orders)),
                              capture_output=True, encoding="utf-8", timeout=PATIENCE)
        events = [json.loads(line) for line in done.stdout.splitlines()]
        self.assertEqual([e["value"] for e in events if e["event"] == "result"],
                         [True, "20.5", False])

    def test_connect_lasts_until_it_is_stopped(self):
        program = Program([*HOST, "connect", *self.endpoint])
        self.addCleanup(program.close)
        self.assertIn("connected to 127.0.0.1:", program.stdout.readline())
        self.assertEqual(program.end()[:2], (0, ""))


if __name__ == "__main__":
    unittest.main()
