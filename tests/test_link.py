#!/usr/bin/env python3
"""What lies between the module and its device, end to end: every command of the module through each
link option. CTest passes the programs in the environment."""

import json
import os
import pathlib
import socket
import socketserver
import ssl
import struct
import subprocess
import sys
import tempfile
import threading
import unittest

from programs import PATIENCE, Device, Program, parse, table

sys.path.append(str(pathlib.Path(__file__).parent / "devices"))
from certificates import AUTHORITY, USUAL, Certificates  # noqa: E402
from gateway import Gateway, crc  # noqa: E402
from serial_device import SerialDevice  # noqa: E402
import raw_device  # noqa: E402  its tables, and what it answers

HOST = os.environ["DRIVER_HOST"]
ORDERS = [(command, json.loads(values), json.loads(result))
          for command, values, result in table("link_orders")]


def order(number, device, command, values):
    names = ("registerType", "register", "data" if command == "write" else "dataSize")
    return {"id": number, "device": device, "command": command,
            "parameters": dict(zip(names, values))}


def connect(device, **parameters):
    return {"id": "to " + device, "device": device, "command": "connect", "parameters": parameters}


def run(lines):
    """Exit code, and what has come of each order."""
    done = subprocess.run([HOST, "run", "-"], input="".join(json.dumps(each) + "\n" for each in lines),
                          capture_output=True, encoding="utf-8", timeout=PATIENCE)
    came = {}
    for event in map(parse, done.stdout.splitlines()):
        if event["event"] == "result":
            value = event["value"]
            came[event["id"]] = value["info"][-24:] if isinstance(value, dict) else value
        elif event["event"] == "error":
            came[event["id"]] = f"{event['code']} {event.get('exceptionCode', event['message'])}"
    return done.returncode, came


class UnitDevice(socketserver.ThreadingTCPServer):
    """Answers some units only; register 1000 holds the unit that is asked."""

    daemon_threads = True
    allow_reuse_address = True
    request_queue_size = 300

    def __init__(self, units):
        self.units, self.ids = units, []
        super().__init__(("127.0.0.1", 0), self.Client)
        threading.Thread(target=self.serve_forever, args=(0.02,), daemon=True).start()

    class Client(socketserver.StreamRequestHandler):
        def handle(self):
            while len(header := self.rfile.read(7)) == 7:
                transaction, _, length, unit = struct.unpack(">HHHB", header)
                pdu = self.rfile.read(length - 1)
                self.server.ids.append(transaction)
                if unit in self.server.units:
                    reply = raw_device.answer(pdu[0], pdu[1:])
                    if pdu == b"\x03\x03\xe8\x00\x01":
                        reply = b"\x03\x02" + struct.pack(">H", unit)
                    head = struct.pack(">HHHB", transaction, 0, len(reply) + 1, unit)
                    self.wfile.write(head + reply)

        def finish(self):
            pass  # what is left to flush when the other side has gone is lost

    def handle_error(self, request, client_address):
        pass  # what the other side refuses is no fault of the device


class OneConnection(UnitDevice):
    """Closes every connection but the first at once."""

    connections = 0

    def verify_request(self, request, client_address):
        self.connections += 1
        return self.connections == 1


class RtuDevice(UnitDevice):
    """The same as RTU frames. Each third reply is spoiled, if told to."""

    spoils = False

    class Client(UnitDevice.Client):
        SIZES = {1: 6, 2: 6, 3: 6, 4: 6, 5: 6, 6: 6, 17: 2}

        def handle(self):
            while len(head := self.rfile.read(2)) == 2:
                size = self.SIZES.get(head[1])
                frame = head + self.rfile.read(size - 2 if size else 5)
                frame += b"" if size else self.rfile.read(frame[6])
                assert self.rfile.read(2) == crc(frame)
                self.server.ids.append(frame[0])
                reply = frame[:1] + raw_device.answer(frame[1], frame[2:])
                if frame[0] not in self.server.units:
                    continue
                check = crc(reply)
                if self.server.spoils and len(self.server.ids) % 3 == 0:
                    check = check[::-1]
                self.wfile.write(reply + check)


class TlsDevice(UnitDevice):
    """Answers unit 0 over TLS, with a certificate that it is given."""

    def __init__(self, certificate, key, clients_of=None, newest=ssl.TLSVersion.TLSv1_3):
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.context.set_ciphers("DEFAULT:@SECLEVEL=0")
        self.context.maximum_version = newest
        self.context.load_cert_chain(certificate, key)
        if clients_of is not None:
            self.context.verify_mode = ssl.CERT_REQUIRED
            self.context.load_verify_locations(clients_of)
        super().__init__({0})

    class Client(UnitDevice.Client):
        def setup(self):
            self.request = self.server.context.wrap_socket(self.request, server_side=True)
            super().setup()

        def finish(self):
            self.request.close()
            super().finish()


def half_records(context, server, cut):
    """Answers requests with their number, as a value; behind the first reply come the first bytes of
    a stale one, and its others behind the second request."""
    number, rest = 0, b""
    while True:
        client = server.accept()[0]
        arrived, leaving = ssl.MemoryBIO(), ssl.MemoryBIO()
        tls = context.wrap_bio(arrived, leaving, server_side=True)

        def call(function, *values, client=client, arrived=arrived, leaving=leaving):
            while True:
                try:
                    return function(*values)
                except ssl.SSLWantReadError:
                    client.sendall(leaving.read())
                    arrived.write(client.recv(4096)) or arrived.write_eof()
                except ssl.SSLError:
                    return None

        def reply(value, tls=tls, leaving=leaving):
            tls.write(bytes.fromhex("aabb000000050003020000")[:-2] + struct.pack(">H", value))
            return leaving.read()

        call(tls.do_handshake)
        while call(tls.read, 12):
            number += 1
            whole = reply(number)
            stale = reply(999) if number == 1 else b""
            client.sendall(rest + whole + stale[:cut])
            rest = stale[cut:]
        client.close()
        rest = b""


class LinkTest(unittest.TestCase):
    def check_orders(self, link, identity=b"raw device", **endpoint):
        """All commands of the module, one after the other."""
        orders = [order(n, "d", command, values) for n, (command, values, _) in enumerate(ORDERS)]
        code, came = run([{"device": "d", "link": link}, connect("d", **endpoint), *orders])
        self.assertEqual(code, 1)  # as some are answered by exceptions
        for number, (*given, expected) in enumerate(ORDERS):
            with self.subTest(link=link, order=given):
                if given[0] == "deviceInformation":
                    self.assertIn(identity, bytes.fromhex(came[number]))
                else:
                    self.assertEqual(came.get(number), expected)

    def serve(self, device):
        self.addCleanup(device.server_close)
        self.addCleanup(device.shutdown)
        return device


class Units(LinkTest):
    def device(self, units):
        return self.serve(UnitDevice(units))

    def test_one_unit_only(self):
        device = self.device({5})
        port = device.server_address[1]
        self.check_orders({"unit": 5}, host="127.0.0.1", port=port)
        self.assertEqual(set(device.ids), {0xAABB})
        device.ids.clear()
        self.check_orders({"unit": 5, "transactionIds": True}, host="127.0.0.1", port=port)
        self.assertEqual(device.ids, list(range(1, len(ORDERS) + 1)))

    def test_every_unit(self):
        port = self.device(range(248)).server_address[1]
        lines = []
        for unit in map(str, range(248)):
            lines += [{"device": unit, "link": {"unit": int(unit)}},
                      connect(unit, host="127.0.0.1", port=port),
                      order(unit, unit, "read", ("holdingRegisters", 1000, 1))]
            lines += [order(f"{unit}, {n}", unit, *given) for n, (*given, _) in enumerate(ORDERS)]
        came = run(lines)[1]
        self.assertEqual([came[str(unit)] for unit in range(248)], [[unit] for unit in range(248)])
        for n, (command, values, expected) in enumerate(ORDERS):
            answers = [came.get(f"{unit}, {n}") for unit in range(248)]
            if command == "deviceInformation":
                answers = [b"raw device" in bytes.fromhex(answer) for answer in answers]
                expected = True
            with self.subTest(command=command, values=values):
                self.assertEqual(answers, [expected] * 248)

    def test_many_units_behind_one_connection(self):
        units = range(1, 33)
        for ids in (False, True):
            device = self.serve(OneConnection(units))
            lines = []
            for unit in units:
                name = str(unit)
                link = {"unit": unit, "share": True, "transactionIds": ids}
                lines += [{"device": name, "link": link},
                          connect(name, host="127.0.0.1", port=device.server_address[1])]
                lines += [order(100 * unit + n, name, "read", ("holdingRegisters", 1000, 1))
                          for n in range(3)]
            code, came = run(lines)
            read = {key: value for key, value in came.items() if isinstance(key, int)}
            self.assertEqual(code, 0)
            self.assertEqual(read, {100 * unit + n: [unit] for unit in units for n in range(3)})
            self.assertEqual(device.connections, 1)

    def test_rtu(self):
        device = self.serve(RtuDevice({7}))
        port = device.server_address[1]
        self.check_orders({"unit": 7, "rtu": True}, host="127.0.0.1", port=port)
        device.spoils = True
        orders = [order(n, "d", "read", ("holdingRegisters", 100, 1)) for n in range(9)]
        came = run([{"device": "d", "link": {"unit": 7, "rtu": True}},
                    connect("d", host="127.0.0.1", port=port), *orders])[1]
        values = [came[n] if came[n] == [258] else came[n].split()[0] for n in range(9)]
        self.assertEqual(values, [[258], [258], "bad_reply"] * 3)

    def test_gateway(self):
        line = socket.create_connection(self.serve(RtuDevice({7, 9})).server_address)
        self.addCleanup(line.close)
        port = self.serve(Gateway(line.fileno())).server_address[1]
        for link in ({"unit": 7}, {"unit": 9, "transactionIds": True}):
            self.check_orders(link, host="127.0.0.1", port=port)
        came = run([{"device": "d", "link": {"unit": 8}}, connect("d", host="127.0.0.1", port=port),
                    order(1, "d", "read", ("holdingRegisters", 100, 1))])[1]
        self.assertEqual(came[1], "device_exception 11")

    def test_another_make(self):
        server = ["/usr/bin/python3", os.path.dirname(__file__) + "/devices/pymodbus_server.py", "9999"]
        for frames, link in (("tcp", {"unit": 5, "transactionIds": True}), ("rtu", {"unit": 5, "rtu": True})):
            device = Device([*server, frames])
            self.addCleanup(device.close)
            self.check_orders(link, b"Pymodbus", host="127.0.0.1", port=device.port)
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        ours, others = folder.name + "/ours", folder.name + "/others"
        line = Program(["socat", "-d", "-d", f"pty,raw,echo=0,link={ours}", f"pty,raw,echo=0,link={others}"])
        self.addCleanup(line.close)
        while "starting data transfer" not in line.stderr.readline():
            self.assertIsNone(line.poll())
        device = Device([*server, "rtu", others])
        self.addCleanup(device.close)
        self.check_orders({"unit": 5, "serial": ours}, b"Pymodbus")

    def test_a_module_without_units(self):
        done = subprocess.run([HOST, "--plugin", os.environ["SAMPLE_MODULE"], "get", "--host=a",
                               "--name=level", "--unit=1"], capture_output=True, encoding="utf-8")
        self.assertEqual(done.returncode, 2)
        self.assertIn("this module does not speak", done.stderr)


class Serial(LinkTest):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.name = folder.name + "/line"

    def read(self, options=""):
        came = run([{"device": "d", "link": {"serial": self.name + options, "unit": 5}}, connect("d"),
                    order(1, "d", "read", ("holdingRegisters", 100, 1))])[1]
        return f"{came['to d']}; {came[1]}"

    def test_all_commands(self):
        for options, echoes in ((",9600,8N2", False), (",115200,8O1,echo", True)):
            device = SerialDevice(self.name, {5}, echoes)
            self.check_orders({"serial": self.name + options, "unit": 5})
            device.unplug()

    def test_units_that_share_a_line(self):
        device = SerialDevice(self.name, {1, 2, 3})
        lines = []
        for unit in map(str, range(1, 5)):
            lines += [{"device": unit, "link": {"serial": self.name, "unit": int(unit), "share": True}},
                      connect(unit), order(unit, unit, "read", ("holdingRegisters", 100, 1))]
        came = run(lines)[1]
        device.unplug()
        self.assertEqual([came[unit] for unit in "123"], [[258]] * 3)
        self.assertIn("no answer within 2000 ms", came["4"])

    def test_what_is_wrong_with_the_line(self):
        for says, how in (("there is no such device; ", {}),
                          ("(what came back is not what was sent; ", {"units": {5}, "options": ",echo"}),
                          ("bad_reply ", {"units": {5}, "echoes": True}),
                          ("bad_reply ", {"units": {5}, "spoil": lambda reply: reply[:-1] + b"\0"}),
                          ("no answer within 2000 ms", {"units": {6}})):
            with self.subTest(says):
                options = how.pop("options", "")
                device = SerialDevice(self.name, **how) if how else None
                self.assertIn(says, self.read(options))
                if device:
                    device.unplug()

    def test_unplugged_and_in_use(self):
        device = SerialDevice(self.name, {5})
        host = Program([HOST, "listen", f"--serial={self.name}", "--unit=5", "--register=40101", "--plain"],
                       stderr=subprocess.STDOUT)
        self.addCleanup(host.close)
        self.assertIn("258", host.stdout.readline())
        self.assertIn("it is in use already", self.read())
        device.unplug()
        lines = iter(host.stdout.readline, "")
        self.assertTrue(any("connection lost (the serial line has gone; " in line for line in lines))
        device = SerialDevice(self.name, {5})
        self.assertTrue(any("connected again" in line for line in lines))
        self.assertTrue(any("258" in line for line in lines))
        self.assertEqual(host.end()[0], 0)
        device.unplug()


class Tls(LinkTest):
    REFUSED = [  # what is wrong with both sides, what is said of it
        ({"clients_of": "authority"}, {}, "wants a certificate of ours; "),
        ({"clients_of": "stranger"}, {"tlsCert": "ours", "tlsKey": "ours"},
         "does not know the authority of our certificate; "),
        ({"newest": ssl.TLSVersion.TLSv1_1}, {}, "no TLS 1.2 or newer; "),
    ]

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.files = Certificates(folder.name)
        for name in ("authority", "stranger"):
            cls.files.issue(name, **AUTHORITY)
        cls.files.issue("good", "authority")
        cls.files.issue("ours", "authority", extendedKeyUsage="clientAuth")

    def device(self, name="good", shown="pem", clients_of=None, **options):
        if clients_of:
            options["clients_of"] = self.files.file(clients_of, "pem")
        device = TlsDevice(self.files.file(name, shown), self.files.file(name, "key"), **options)
        return self.serve(device).server_address[1]

    def link(self, **options):
        for option, kind in (("tlsCert", "pem"), ("tlsKey", "key")):
            if option in options:
                options[option] = self.files.file(options[option], kind)
        return {"tls": True, "tlsCa": self.files.file("authority", "pem"), **options}

    def read(self, port, host="127.0.0.1", **link):
        code, came = run([{"device": "d", "link": self.link(**link)},
                          connect("d", host=host, port=port),
                          order(1, "d", "read", ("holdingRegisters", 100, 1))])
        return f"{came['to d']}; {came[1]}"

    def test_all_commands(self):
        port = self.device()
        self.check_orders(self.link(), host="127.0.0.1", port=port)
        self.check_orders(self.link(transactionIds=True, tlsName="pump.example"), host="localhost",
                          port=port)

    def test_bad_certificates(self):
        for number, (how, says) in enumerate(table("certificates")):
            how, name = {"issuer": "authority", **json.loads(how)}, f"bad{number}"
            with self.subTest(how):
                shown, altered = how.pop("shown", "pem"), how.pop("altered", False)
                extensions = {key: how.pop(key) for key in set(how) & set(USUAL)}
                self.files.issue(name, **how, **(USUAL | extensions))
                if altered:
                    self.files.alter(name)
                came = self.read(self.device(name, shown))
                self.assertRegex(came, f"cannot connect to .*certificate( of '\\w+')? {says}; ")

    def test_who_is_believed(self):
        self.files.issue("own")
        self.files.issue("between", "authority", **AUTHORITY)
        self.files.issue("below", "between")
        self.files.issue("old", "authority", size=2048, **USUAL, keyUsage="keyEncipherment")
        pathlib.Path(self.files.file("below", "mixed")).write_text("".join(
            pathlib.Path(self.files.file(name, "pem")).read_text()
            for name in ("below", "authority", "between")))
        for name, shown, believed in (("own", "pem", "own"), ("below", "chain", "authority"),
                                      ("below", "mixed", "authority"), ("below", "pem", "between"),
                                      ("below", "chain", "below"), ("old", "pem", "authority")):
            with self.subTest(name=name, shown=shown, believed=believed):
                came = self.read(self.device(name, shown), tlsCa=self.files.file(believed, "pem"))
                self.assertIn("; [258]", came)

    def test_what_the_device_refuses(self):
        for device, link, says in self.REFUSED:
            with self.subTest(device=device, link=link):
                came = self.read(self.device(**device), **link)
                self.assertIn(says, came)
        known = self.device(clients_of="authority")
        self.check_orders(self.link(tlsCert="ours", tlsKey="ours"), host="127.0.0.1", port=known)

    def test_half_a_record_answers_nothing(self):
        device = TlsDevice(self.files.file("good", "pem"), self.files.file("good", "key"))
        device.server_close()
        for cut in (3, 5, 10):  # a header has 5 bytes
            with self.subTest(cut=cut), socket.create_server(("127.0.0.1", 0)) as server:
                threading.Thread(target=half_records, args=(device.context, server, cut),
                                 daemon=True).start()
                orders = [order(n, "d", "read", ("holdingRegisters", 5, 1)) for n in (1, 2, 3)]
                came = run([{"device": "d", "link": self.link()},
                            connect("d", host="127.0.0.1", port=server.getsockname()[1]), *orders])[1]
                self.assertEqual([came[n] for n in (1, 2, 3)], [[1], [2], [3]])

    def test_what_is_only_tls(self):
        alerting = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(alerting.close)

        def alert():
            with alerting.accept()[0] as client:
                client.recv(4096)
                client.sendall(bytes.fromhex("15030100020246"))
        threading.Thread(target=alert, daemon=True).start()
        for port, says in ((self.device(), "before any answer; it may have no room for one more, or want TLS"),
                           (alerting.getsockname()[1], "the device answers in TLS; connect with 'tls'")):
            came = run([connect("d", host="127.0.0.1", port=port),
                        order(1, "d", "read", ("holdingRegisters", 100, 1))])[1]
            self.assertIn(says, came[1])

    def test_what_is_no_tls(self):
        for answer, says in ((b"HTTP/1.0 400 Bad Request\r\n\r\n", "does not speak TLS; check the port"),
                             (b"", "closed the connection in the TLS handshake; check that TLS is")):
            with self.subTest(answer), socket.create_server(("127.0.0.1", 0)) as server:
                def serve(server=server, answer=answer):
                    with server.accept()[0] as client:
                        client.recv(4096)
                        client.sendall(answer)
                threading.Thread(target=serve, daemon=True).start()
                self.assertIn(says, self.read(server.getsockname()[1]))


if __name__ == "__main__":
    unittest.main(verbosity=2)
