#!/usr/bin/env python3
"""Two bridges, each with its driver-host and its device, at one real broker, with passwords and TLS
as in a plant. CTest passes the programs in the environment."""

import json
import os
import pathlib
import subprocess
import tempfile
import unittest

from programs import PATIENCE, Device, Program, free_port

BRIDGE = str(pathlib.Path(__file__).resolve().parent / "bridge.py")
HOST, SIMULATOR = os.environ["DRIVER_HOST"], os.environ["DEVICE_SIMULATOR"]
HOLDING = {"register": 100, "registerType": "holdingRegisters"}
CONFIGURATION = """
listener {port} 127.0.0.1
user root
cafile {place}/cert.pem
certfile {place}/cert.pem
keyfile {place}/key.pem
password_file {place}/passwords
persistence true
persistence_location {place}/
log_type information
"""


def order(name, command, **parameters):
    return json.dumps({"id": name, "device": "d", "command": command, "parameters": parameters})


class Plant(unittest.TestCase):
    def setUp(self):
        self.place = self.enterContext(tempfile.TemporaryDirectory())
        self.port = free_port()
        pathlib.Path(self.place, "broker.conf").write_text(
            CONFIGURATION.format(place=self.place, port=self.port), encoding="utf-8")
        for command in ("openssl req -x509 -newkey rsa:2048 -nodes -keyout key.pem -out cert.pem "
                        "-subj /CN=localhost -addext subjectAltName=IP:127.0.0.1",
                        "mosquitto_passwd -b -c passwords plant secret"):
            subprocess.run(command.split(), cwd=self.place, capture_output=True, check=True)
        self.broker = self.start_broker()
        # Its session outlives the broker, so that it sees every event.
        self.seen = self.client("mosquitto_sub", "-i", "observer", "-c", "-q", "1", "-d", "-v",
                                "-t", "plant/+/events", "-t", "plant/+/status")
        self.wait_for("Subscribed")
        self.bridges = {}
        for name in ("line1", "line2"):
            self.bridges[name] = self.start_bridge(name)
            self.wait_for(f"plant/{name}/status online")

    def start(self, *command, **options):
        program = Program(command, cwd=self.place, **options)
        self.addCleanup(program.close)
        return program

    def start_broker(self):
        broker = self.start("mosquitto", "-c", "broker.conf")
        while "running" not in broker.stderr.readline():
            self.assertIsNone(broker.poll(), "the broker does not run")
        return broker

    def client(self, program, *options):
        return self.start("stdbuf", "-oL", program, "-h", "127.0.0.1", "-p", str(self.port),
                          "-u", "plant", "-P", "secret", "--cafile", "cert.pem", *options)

    def start_bridge(self, name, password="secret"):
        return self.start(BRIDGE, name, "--broker", "127.0.0.1", "--port", str(self.port),
                          "--user", "plant", "--ca", "cert.pem", "--driver-host", HOST,
                          env={**os.environ, "MQTT_PASSWORD": password})

    def give(self, name, *payload, retain=()):
        client = self.client("mosquitto_pub", "-q", "2", "-t", f"plant/{name}/orders", *retain,
                             "-m", "\n".join(payload))
        self.assertEqual(client.wait(PATIENCE), 0, client.stderr.read())

    def wait_for(self, *words):
        """The next line that the observer prints with all of them."""
        for line in self.seen.stdout:
            if all(word in line for word in words):
                return line
        self.fail(f"{words} did not come")

    def wait_until_told(self, bridge, words):
        """The same, of what a bridge tells on standard error."""
        for line in bridge.stderr:
            if words in line:
                return
        self.fail(f"'{words}' did not come")

    def wait_for_event(self, name, order_id, *words):
        return self.wait_for(f"plant/{name}/events", f'"id":"{order_id}"', *words)

    def connect(self, name, value):
        device = Device([SIMULATOR, "--port", "0", "--quiet", "--set",
                         f"holdingRegisters:100={value}"])
        self.addCleanup(device.close)
        self.give(name, order("c", "connect", host="127.0.0.1", port=device.port),
                  order("r", "read", **HOLDING))
        self.wait_for_event(name, "r", f'"value":[{value}]')
        self.wait_for_event(name, "r", '"finished","ok":true')
        return device

    def test_orders_and_a_broker_that_is_restarted(self):
        self.connect("line1", 7)
        device = self.connect("line2", 8)
        self.give("line1", order("l", "listen", **HOLDING, recurrentInterval=10))
        for _ in range(3):
            self.wait_for_event("line1", "l", '"value":[7]')
        self.give("line1", "rubbish", '{"id":"x","device":"d","command":"shout"}')
        self.wait_for("plant/line1/events", '"event":"error","code":"usage"', "no JSON")
        self.wait_for_event("line1", "x", "no command 'shout'")
        self.assertEqual(self.broker.end()[0], 0)
        for bridge in self.bridges.values():
            self.wait_until_told(bridge, "broker lost")
        device.end()  # which is told while there is no broker
        self.broker = self.start_broker()
        self.wait_for_event("line2", "c", '"code":"not_connected"')
        self.wait_until_told(self.bridges["line1"], "online")
        self.give("line1", '{"id":"l","stop":true}')
        self.wait_for_event("line1", "l", '"finished","ok":true')
        self.assertEqual(self.bridges["line1"].end()[0], 0)
        self.wait_for_event("line1", "c", '"finished","ok":true')
        self.wait_for("plant/line1/status offline")
        self.give("line2", order("l", "listen", **HOLDING))
        self.broker.end()
        code, _, errors = self.bridges["line2"].end()
        self.assertEqual((code, errors.splitlines()[-1]),
                         (1, "ended without a broker; the last events are lost"))

    def test_ends_that_nobody_asked_for(self):
        one, two = self.bridges.values()
        host = pathlib.Path(f"/proc/{one.pid}/task/{one.pid}/children").read_text(encoding="ascii")
        os.kill(int(host), 9)
        self.assertEqual(one.wait(PATIENCE), 1)
        self.assertIn("driver-host has ended with -9\n", one.stderr.read())
        self.wait_for("plant/line1/status offline")
        two.kill()
        self.wait_for("plant/line2/status offline")

    def test_what_a_bridge_does_not_take(self):
        self.give("line3", order("old", "read", **HOLDING), retain=["-r"])
        bridge = self.start_bridge("line3")
        self.wait_until_told(bridge, "a retained order is not carried out")
        self.give("line3", order("new", "read", **HOLDING))
        self.assertIn('"new"', self.wait_for("plant/line3/events {"))
        self.wait_until_told(self.start_bridge("line4", "guess"), "not authorised")
        self.assertEqual(self.start_bridge("line/5").wait(PATIENCE), 2)


if __name__ == "__main__":
    unittest.main()
