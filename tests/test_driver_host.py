#!/usr/bin/env python3
"""driver-host end to end: the real program and module against three devices that know nothing of
each other. CTest passes the programs in the environment."""

import csv
import io
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

from pymodbus.client import ModbusTcpClient

from programs import PATIENCE, Device, Program, free_port, parse, table

HERE = os.path.dirname(os.path.abspath(__file__))
HOST = os.environ["DRIVER_HOST"]
RAW_DEVICE = [sys.executable, os.path.join(HERE, "devices", "raw_device.py")]
DEVICES = {
    "device-simulator": [os.environ["DEVICE_SIMULATOR"], "--port", "0", "--quiet",
                         "--set", "inputRegisters:200=7,65535"],
    "libmodbus server": [os.environ["LIBMODBUS_SERVER"]],
    "raw device": RAW_DEVICE,
}
PORTS = {}
HOLDING = ["--register-type", "holdingRegisters", "--register"]


def setUpModule():
    for name, command in DEVICES.items():
        device = Device(command)
        unittest.addModuleCleanup(device.end)
        PORTS[name] = device.port


def command_line(command, port, *options):
    return [HOST, command, "--host", "127.0.0.1", "--port", str(port), *map(str, options)]


def run(command, port, *options):
    return execute(command_line(command, port, *options))


def execute(command):
    return subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, encoding="utf-8",
                          timeout=PATIENCE)


def events(text, kind="result"):
    return [event for event in map(parse, text.split("\n")[:-1]) if event["event"] == kind]


class EndToEnd(unittest.TestCase):
    def assertEnded(self, done, code):
        self.assertEqual(done.returncode, code, f"{done.args}\n{done.stdout}\n{done.stderr}")

    def on_every_device(self, check, rows=((),)):
        for device in PORTS:
            for row in rows:
                with self.subTest(device=device, row=row):
                    check(device, *row)

class Info(EndToEnd):
    def test_text(self):
        module = os.path.join(os.path.dirname(HOST), "../lib/plugins/libp_driver_modbus.so")
        done = execute([HOST, "info", "--plugin", os.path.relpath(module)])
        self.assertEnded(done, 0)
        self.assertIn("fr.vexo.rd.box.PDriverModbus", done.stdout)
        self.assertIn("Plugin MODBUS Driver", done.stdout)
        self.assertIn("f1e5000d-744a-49c0-91f8-2854bc6507eb", done.stdout)

    def test_json(self):
        done = execute([HOST, "info", "--format", "json"])
        self.assertEnded(done, 0)
        info = parse(done.stdout)
        self.assertEqual((info["name"], info["version"]), ("Plugin MODBUS Driver", "1.0"))
        self.assertEqual([command["name"] for command in info["commands"]],
                         ["connect", "listen", "read", "write", "deviceInformation"])

    def test_help_says_what_is_meant(self):
        """Sentences of the profile's and the program's own, another one for each command."""
        commands = execute([HOST, "--complete", ""]).stdout.split()
        abouts = set()
        for command in commands:
            about, *entries = execute([HOST, command, "--help"]).stdout.split("\n  -")
            abouts.add(about.split("\n")[0])
            for entry in entries:
                with self.subTest(command, entry=entry):
                    self.assertRegex(entry, r"^\S[^\n]*(  +|\d |\n {9,})[A-Z]\S* [^\n]+[\w)](\n|$)")
        self.assertEqual((len(commands), len(abouts)), (8, 8))
        self.assertNotRegex("\n".join(abouts), "(?m)one or many|^[^A-Z]")

    def test_profile(self):
        """What people are told; a wrong one is told of, and left out."""
        info = parse(execute([HOST, "info", "--format", "json"]).stdout)
        self.assertEqual([table["digit"] for table in info["tables"]], ["0", "1", "3", "4"])
        self.assertIn("one of coilsRegister, inputStatus", execute([HOST, "info"]).stdout)
        module = os.path.join(os.path.dirname(HOST), "../lib/plugins/libp_driver_modbus")
        with tempfile.TemporaryDirectory() as folder:
            shutil.copy(module + ".so", folder)
            host = [HOST, "info", "--plugin", folder + "/libp_driver_modbus.so"]
            for text, error in (
                    (None, ""), ('{"profile":3}', "profile is not a whole number 1 to 1; "),
                    ('{"profile":1,"commands":{"x":{"description":"X"}}}',
                     "commands.x: the module has no such command; ")):
                with self.subTest(text):
                    profile = folder + "/libp_driver_modbus.profile.json"
                    if text:
                        with open(profile, "w", encoding="utf-8") as file:
                            file.write(text)
                    done = execute(host)
                    self.assertEnded(done, 0)
                    self.assertIn("modbus register type: coilRegister /", done.stdout)
                    self.assertEqual(done.stderr, error and f"driver-host: {profile}: {error}"
                                                            "the profile is ignored\n")


class Read(EndToEnd):
    SERVER_IDS = {
        "device-simulator": b"\x01\xffdevice-simulator 1.0.0",
        "libmodbus server": b"\xb4\xffLMB",
        "raw device": b"\x01\xffraw device",
    }

    def test_values(self):
        self.on_every_device(self.check_values, table("reads"))

    def check_values(self, device, kind, register, count, values):
        options = ["--raw", "--register-type", kind, "--register", register, "--data-size", count]
        values = [int(value, 0) for value in values.split()]
        done = run("read", PORTS[device], "--format", "json", *options)
        self.assertEnded(done, 0)
        self.assertEqual([e["value"] for e in events(done.stdout)], [values])
        self.assertEqual([e["ok"] for e in events(done.stdout, "finished")], [True])
        lines = run("read", PORTS[device], *options).stdout.splitlines()
        self.assertEqual(len(lines), len(values))
        for line, value in zip(lines, values):
            self.assertIn(str(value), line.split())
        rows = csv.DictReader(io.StringIO(run("read", PORTS[device], "--format", "csv", *options)
                                          .stdout, newline=""), strict=True)
        self.assertEqual([int(row["value"]) for row in rows], values)

    def test_device_information(self):
        self.on_every_device(self.check_device_information)

    def check_device_information(self, device):
        done = run("deviceInformation", PORTS[device], "--format", "json")
        self.assertEnded(done, 0)
        value = events(done.stdout)[0]["value"]
        self.assertIn(self.SERVER_IDS[device], bytes.fromhex(value["info"]))
        self.assertEqual((value["ipAdress"], value["httpPort"]), ("127.0.0.1", 80))


class Write(EndToEnd):
    def write(self, device, kind, register, data, *options):
        return run("write", PORTS[device], "--register-type", kind, "--register", register,
                   "--data", data, *options)

    def assertHolds(self, device, kept, register, values):
        with ModbusTcpClient("127.0.0.1", PORTS[device]) as client:
            ask = client.read_coils if kept == "coils" else client.read_holding_registers
            wanted = list(map(int, values.split()))
            reply = ask(int(register), len(wanted), slave=0)
            found = reply.bits if kept == "coils" else reply.registers
            self.assertEqual(found[:len(wanted)], wanted)

    def test_read_back_by_another_client(self):
        self.on_every_device(self.check_write, table("writes"))

    def check_write(self, device, kind, register, data, kept, values):
        self.assertEnded(self.write(device, kind, register, data), 0)
        self.assertHolds(device, kept, register, values)

    def test_multiple_coils_travel_as_words(self):
        """Three words where three bits are due: libmodbus takes the first bits of them, stricter
        devices refuse the byte count."""
        words = ("multipleCoils", 331, "0x0500,0,0", "--raw")
        self.assertEnded(self.write("libmodbus server", *words), 0)
        self.assertHolds("libmodbus server", "coils", 331, "1 0 1")
        for device in ("device-simulator", "raw device"):
            done = self.write(device, *words)
            self.assertEnded(done, 1)
            self.assertIn("exception 3", done.stderr)


class LongRunning(EndToEnd):
    def test_append(self):
        """A header once, and whole lines only, whatever ends the program and whenever."""
        header = "time,register,value\n"
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "log.csv")
            command = command_line("listen", PORTS["raw device"], *HOLDING, 100, "--data-size", 40,
                                   "--interval", 1, "--append", path)
            for size in 1, 41, 121: # lines that it has shown before it is killed, 40 a reading
                host = Program(command)
                self.addCleanup(host.close)
                for _ in range(size):
                    host.stdout.readline()
                host.end(signal.SIGKILL)
            with open(path, encoding="utf-8") as file:
                text = file.read()
            self.assertTrue(text.startswith(header) and text.count("time") == 1)
            lines = [line.split(",")[1:] for line in text.splitlines()[1:]]
            self.assertGreaterEqual(len(lines), 160)
            self.assertEqual([int(place) for place, _ in lines], list(range(100, 140))
                             * (len(lines) // 40))
            for content, error in (("time,name\n", "has not the columns time,register,value; name"),
                                   (None, "cannot open '.*': No such file")):
                other = os.path.join(folder, "other.csv" if content else "none/other.csv")
                if content:
                    with open(other, "w", encoding="utf-8") as file:
                        file.write(content)
                done = run("listen", PORTS["raw device"], *HOLDING, 100, "--append", other)
                self.assertEnded(done, 2)
                self.assertRegex(done.stderr, "^driver-host: --append: .*" + error)
            with open(path, "a", encoding="utf-8") as file:
                file.write("torn") # by another program
            self.assertEnded(run("listen", PORTS["raw device"], *HOLDING, 100, "--count", 1,
                                 "--append", path), 0)
            with open(path, encoding="utf-8") as file:
                self.assertRegex(file.read(), "\ntorn\n[^\n]*,100,258\n$")
            full = run("listen", PORTS["raw device"], *HOLDING, 100, "--append", "/dev/full")
            self.assertEnded(full, 2)

    def test_numbers_of_the_simulator(self):
        """They are what they are to driver-host, such as 010 ten and not eight."""
        simulator = [os.environ["DEVICE_SIMULATOR"], "--quiet", "--port"]
        port = free_port()
        for text in f"0{port}", hex(port):
            with self.subTest(text):
                device = Device([*simulator, text, "--misbehave", "late", "--every", "08"])
                self.addCleanup(device.close)
                self.assertEqual(device.port, port)
                device.end()

    def test_misbehaviour_gives_no_wrong_value(self):
        for name, code in table("misbehaviours"):
            with self.subTest(name):
                self.check_misbehaviour(name, {code} - {""})

    def check_misbehaviour(self, name, codes):
        device = Device([*DEVICES["device-simulator"], "--misbehave", name, "--every", "4",
                         "--delay", "2100"])
        self.addCleanup(device.close)
        done = run("listen", device.port, *HOLDING, 100, "--interval", 20, "--count", 6,
                   "--format", "json")
        self.assertEnded(done, 0)
        self.assertEqual([e["value"] for e in events(done.stdout)], [[258]] * 6)
        self.assertEqual({e["code"] for e in events(done.stdout, "error")}, codes)


if __name__ == "__main__":
    unittest.main(verbosity=2)
