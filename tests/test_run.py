#!/usr/bin/env python3
"""driver-host run end to end. CTest passes the programs in the environment."""

import collections
import json
import os
import subprocess
import sys
import tempfile
import unittest

from programs import PATIENCE, Program, free_port, parse

EXAMPLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "examples", "")
HOST, SIMULATOR = os.environ["DRIVER_HOST"], os.environ["DEVICE_SIMULATOR"]
HOLDING = {"registerType": "holdingRegisters", "register": 100}


def order(name, device, command, **parameters):
    return {"id": name, "device": device, "command": command, "parameters": parameters}


def connect(device, port):
    return order("to " + device, device, "connect", host="127.0.0.1", port=port)


def lines(orders):
    return "".join(json.dumps(each) + "\n" for each in orders)


def summary(event):
    """What matters of an event: id, kind, and value, error code or success."""
    last = {"result": "value", "error": "code", "finished": "ok"}.get(event["event"])
    return event.get("id"), event["event"], event.get(last)


class Run(unittest.TestCase):
    def start(self, *command, stdin=subprocess.DEVNULL):
        program = Program(command, stdin=stdin)
        self.addCleanup(program.close)
        return program

    def device(self, *options, port=0):
        """A simulated device and its port."""
        program = self.start(SIMULATOR, "--port", str(port), "--quiet", *options)
        return program, int(program.stdout.readline().rpartition(":")[2])

    def run_all(self, text, code, orders="-"):
        """The events of a whole run."""
        done = subprocess.run([HOST, "run", orders], input=text, capture_output=True,
                              encoding="utf-8", timeout=PATIENCE)
        self.assertEqual(done.returncode, code, done.stderr)
        return [parse(line) for line in done.stdout.split("\n")[:-1]]

    def begin(self, *orders):
        host = self.start(HOST, "run", "-", stdin=subprocess.PIPE)
        return self.give(host, *orders)

    def give(self, host, *orders):
        host.stdin.write(lines(orders))
        host.stdin.flush()
        return host

    def wait_for(self, host, *wanted):
        """The next event whose summary begins so."""
        for event in map(parse, host.stdout):
            if summary(event)[:len(wanted)] == wanted:
                return event
        self.fail(f"{wanted} did not come")

    def test_two_devices_at_once(self):
        odd, odd_id = 'pump "1"\\ \u20ac\n\x01', '\u2028"'
        host = self.begin(connect(odd, self.device()[1]),
                          connect("b", self.device("--set", "holdingRegisters:100=7")[1]),
                          order(1, odd, "read", **HOLDING, dataSize=2),
                          order(odd_id, "b", "read", **HOLDING),
                          order("l", "b", "listen", **HOLDING, recurrentInterval=5))
        wanted = {"to " + odd: (odd, True), "to b": ("b", True), 1: (odd, [258, 772]),
                  odd_id: ("b", [7]), "l": ("b", [7])}
        results = {}
        while results.keys() != wanted.keys():
            event = self.wait_for(host)
            if event["event"] == "result":
                results[event["id"]] = event["device"], event["value"]
        self.assertEqual(results, wanted)
        self.give(host, {"id": "l", "stop": True})
        self.assertEqual(self.wait_for(host, "l", "finished", True)["results"], {"values": [7]})
        self.give(host, order("l", "b", "listen", **HOLDING)).stdin.close()
        ends = [event["id"] for event in map(parse, host.stdout) if event.get("ok")]
        self.assertEqual(ends, ["l", "to " + odd, "to b"])
        self.assertEqual(host.wait(PATIENCE), 0)

    def test_thousands_at_once(self):
        count = 5000
        orders = [connect(d, self.device()[1]) for d in "ab"]
        orders += [order(n, "ab"[n % 2], "read", **HOLDING) for n in range(count)]
        seen = collections.defaultdict(list)
        for event in self.run_all(lines(orders), 0):
            seen[event["id"]].append(summary(event)[1:])
        wanted = [("started", None), ("result", [258]), ("finished", True)]
        self.assertEqual([n for n in range(count) if seen[n] != wanted], [])

    def test_device_comes_back_and_statistics(self):
        device, port = self.device()
        host = self.begin(connect("d", port), order(1, "d", "read", **HOLDING))
        self.wait_for(host, 1, "finished", True)
        device.kill()
        device.wait()
        self.wait_for(host, "to d", "error", "not_connected")
        self.wait_for(host, "to d", "result", False)
        self.device(port=port)
        self.wait_for(host, "to d", "result", True)
        self.give(host, order(2, "d", "read", **HOLDING))
        self.wait_for(host, 2, "finished", True)
        self.give(host, {"id": 3, "device": "d", "statistics": True})
        counted = self.wait_for(host, 3, "result")["value"]
        self.assertEqual((counted["done"], counted["reconnects"], counted["timeouts"]), (2, 1, 0))
        self.wait_for(host, 3, "finished", True)

    def test_waits_for_a_device(self):
        port = free_port()
        link = {"device": "d", "link": {"keepTrying": True}}
        host = self.begin(link, connect("d", port))
        told = self.wait_for(host, "to d", "error", "not_connected")["message"]
        self.assertEqual(told, "no connection yet (Connection refused), trying again")
        self.give(host, link)
        self.assertIn("disconnect first", self.wait_for(host, None, "error", "usage")["message"])
        self.device(port=port)
        self.wait_for(host, "to d", "result", True)

    def test_examples(self):
        ports = [str(self.device()[1]) for _ in range(2)]
        done = subprocess.run([sys.executable, EXAMPLES + "two_devices.py", HOST,
                               *("127.0.0.1:" + port for port in ports)],
                              capture_output=True, encoding="utf-8", timeout=PATIENCE)
        self.assertEqual((done.returncode, done.stderr, done.stdout), (
            0, "", "source, from register 100: [258, 772]\ntarget took them: True\n"
                   "target, from register 4: [0, 258, 772, 0]\n"))
        with open(EXAMPLES + "orders.jsonl", encoding="utf-8") as orders, \
                tempfile.NamedTemporaryFile("w", encoding="utf-8") as file:
            file.write(orders.read().replace("1502", ports[0]).replace("1503", ports[1]))
            file.flush()
            results = {e["id"]: e.get("value") for e in self.run_all("", 0, file.name)
                       if e["event"] == "result"}
        self.assertEqual([results[n] for n in ("r1", "w2", "r2")], [[258, 772], [1], [258, 772]])


if __name__ == "__main__":
    unittest.main(verbosity=2)
