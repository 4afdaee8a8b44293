#!/usr/bin/python3
"""driver-host reads and writes what other makes mean: types, orders and addresses as pymodbus
encodes them, and coils of any start and length, on a pymodbus server and one of modbus-serial.
NODE_PATH tells where that is; without it the test says so. THOROUGH=1 leaves nothing out."""

import itertools
import json
import math
import os
import struct
import subprocess
import unittest

from pymodbus.client import ModbusTcpClient
from pymodbus.constants import Endian
from pymodbus.payload import BinaryPayloadBuilder, BinaryPayloadDecoder

from programs import PATIENCE, Device

HERE = os.path.dirname(os.path.abspath(__file__))
COUNT = 200 # small, so that ranges meet its end
ORDERS = {"ABCD": (Endian.Big, Endian.Big), "CDAB": (Endian.Big, Endian.Little),
          "BADC": (Endian.Little, Endian.Big), "DCBA": (Endian.Little, Endian.Little)}
TYPES = {  # name: of the other make, values
    "int16": ("16bit_int", [0, -1, -32768, 32767]),
    "uint16": ("16bit_uint", [0, 1, 65535]),
    "int32": ("32bit_int", [0, -1, 305419896, -2**31, 2**31 - 1]),
    "uint32": ("32bit_uint", [0, 305419896, 2**32 - 1]),
    "int64": ("64bit_int", [0, -1, 2**53 + 1, -2**63, 2**63 - 1]),
    "uint64": ("64bit_uint", [0, 2**53 + 1, 2**64 - 1]),
    "float32": ("32bit_float", [0.0, -0.0, 21.5, 0.1, -1e38, 1e-45, math.inf, -math.inf, math.nan]),
    "float64": ("64bit_float", [0.0, -273.15, 0.1, 5e-324, 1.7e308, math.inf, math.nan]),
    "bcd16": ("16bit_uint", [0, 1907, 9999]), # the same digits in hexadecimal
    "bcd32": ("32bit_uint", [0, 12345678, 99999999]),
}
ADDRESSES = ["holdingRegisters:10", "40011", "400011"]
READ_ONLY = ["inputRegisters:10", "30011", "300011"] # here they hold the same
COILS = ["coils:{}", "coilsRegister:{}", "{:05}", "{:06}", "inputStatus:{}", "1{:04}", "1{:05}"]
THOROUGH = "THOROUGH" in os.environ
EVERY = 1 if THOROUGH else 7
SERVERS = {"pymodbus": ["/usr/bin/python3", HERE + "/devices/pymodbus_server.py"]}


def has_node():
    probe = ["node", "-e", "require('modbus-serial')"]
    try:
        return subprocess.run(probe, capture_output=True, check=False).returncode == 0
    except FileNotFoundError:
        return False


if has_node():
    SERVERS["modbus-serial"] = ["node", HERE + "/devices/node/server.js"]
else:
    print("not run on modbus-serial, which is not there")


def bits_of(kind, values):
    """So that -0 differs from 0, and NaN from nothing."""
    form = {"float32": "f", "float64": "d"}.get(kind)
    numbers = [float(value) if form else value for value in values]
    return [struct.pack(form, value) if form else value for value in numbers]


class OtherMakes(unittest.TestCase):
    compared = 0

    @classmethod
    def setUpClass(cls):
        cls.ports = {}
        for name, command in SERVERS.items():
            device = Device([*command, str(COUNT)])
            device.watchdog.cancel() # it serves many programs, each with its own
            cls.addClassCleanup(device.close)
            cls.ports[name] = device.port

    @classmethod
    def tearDownClass(cls):
        print(f"{cls.compared} values compared on {', '.join(SERVERS)}")

    def each_server(self):
        for name, port in self.ports.items():
            client = ModbusTcpClient("127.0.0.1", port=port)
            self.assertTrue(client.connect())
            self.addCleanup(client.close)
            yield name, port, client

    def host(self, command, port, *options):
        done = subprocess.run(
            [os.environ["DRIVER_HOST"], command, "--host=127.0.0.1", f"--port={port}",
             "--format=json", *map(str, options)], stdin=subprocess.DEVNULL, capture_output=True,
            encoding="utf-8", timeout=PATIENCE, check=False)
        self.assertEqual(done.returncode, 0, f"{done.args}\n{done.stderr}")
        return json.loads(done.stdout.splitlines()[0])["value"]

    def same(self, kind, found, wanted):
        self.assertEqual(bits_of(kind, found), bits_of(kind, wanted))
        type(self).compared += len(wanted)

    def test_types(self):
        for name, port, client in self.each_server():
            addresses = itertools.cycle(zip(ADDRESSES, READ_ONLY))
            for (kind, other), order in itertools.product(TYPES.items(), ORDERS):
                for pair in zip(ADDRESSES, READ_ONLY) if THOROUGH else [next(addresses)]:
                    with self.subTest(name, kind=kind, order=order, addresses=pair):
                        self.check(client, port, kind, *other, order, *pair)

    def check(self, client, port, kind, other, values, order, address, read_only):
        byte, word = ORDERS[order]
        builder = BinaryPayloadBuilder(byteorder=byte, wordorder=word)
        base = 16 if kind.startswith("bcd") else 10
        for value in values:
            getattr(builder, "add_" + other)(int(str(value), 16) if base == 16 else value)
        self.assertFalse(client.write_registers(10, builder.to_registers(), slave=0).isError())
        options = [f"--type={kind}", f"--order={order}"]
        for place in address, read_only:
            found = self.host("read", port, f"--register={place}", f"--values={len(values)}",
                              *options)
            self.same(kind, found, values)
        data = list(reversed(values)) # something else than what is there
        self.host("write", port, f"--register={address}", "--data=" + ",".join(map(repr, data)),
                  *options)
        reply = client.read_holding_registers(10, len(builder.to_registers()), slave=0)
        decoder = BinaryPayloadDecoder.fromRegisters(reply.registers, byteorder=byte,
                                                     wordorder=word)
        found = [getattr(decoder, "decode_" + other)() for _ in data]
        self.same(kind, [int(f"{n:x}") for n in found] if base == 16 else found, data)

    def test_texts_and_bits(self):
        for _, port, client in self.each_server():
            for order, sent in ("ABCD", b"PUMP 1\0\0"), ("BADC", b"UPPM1 \0\0"):
                options = ["--register=40011", "--type=string8", f"--order={order}"]
                self.host("write", port, *options, "--data=PUMP 1")
                registers = client.read_holding_registers(10, 4, slave=0).registers
                self.assertEqual(struct.pack(">4H", *registers), sent)
                self.assertEqual(self.host("read", port, *options), ["PUMP 1"])
            client.write_register(10, 0x8005, slave=0)
            found = [self.host("read", port, "--register=40011", f"--type=bit{n}")[0]
                     for n in range(16)]
            self.same("bit", found, [n in (0, 2, 15) for n in range(16)])

    def place(self, start, length):
        """Each form in turn; the old numbers count from 1."""
        form = COILS[(start + length) % len(COILS)]
        return form.format(start if ":{}" in form else start + 1)

    def test_coils(self):
        states = [(n * n + n // 3) % 5 < 2 for n in range(COUNT)]
        for name, port, client in self.each_server():
            self.assertFalse(client.write_coils(0, states, slave=0).isError())
            ranges = [(start, length) for start in range(21) for length in range(1, 41)]
            ranges = ranges[::EVERY] + [(COUNT - n, n) for n in range(1, 41, EVERY)] + [(0, COUNT)]
            for start, length in ranges:
                with self.subTest(name, start=start, length=length):
                    place = self.place(start, length)
                    found = self.host("read", port, f"--register={place}", f"--values={length}")
                    self.same("bool", found, states[start:start + length])

    def test_writing_coils(self):
        for name, port, client in self.each_server():
            for start, length in ((0, 1), (3, 9), (COUNT - 5, 5)):
                with self.subTest(name, start=start):
                    client.write_coils(0, [n % 2 == 0 for n in range(COUNT)], slave=0)
                    states = [n % 3 == 0 for n in range(length)]
                    self.host("write", port, "--register=" + COILS[start % 2].format(start),
                              "--data=" + ",".join(map(str, states)))
                    found = client.read_coils(0, COUNT, slave=0).bits[:COUNT]
                    wanted = [n % 2 == 0 for n in range(COUNT)]
                    wanted[start:start + length] = states
                    self.same("bool", found, wanted)


if __name__ == "__main__":
    unittest.main()
