#!/usr/bin/env python3
"""What driver-host writes can be read by other programs, and drives no terminal, whatever a device
or a user puts into it: tables/json.txt. CTest passes the programs in the environment."""

import csv
import io
import json
import os
import pathlib
import pty
import re
import socketserver
import subprocess
import sys
import threading
import unittest

from programs import PATIENCE, Device, parse

HERE = pathlib.Path(__file__).parent
CONTROLS = re.compile("[\0-\x08\x0b-\x1f\x7f-\x9f]")  # all but tabs and line ends


def table(kind):
    """The rows of this kind, their first fields as the bytes that they stand for."""
    text = (HERE / "tables" / "json.txt").read_text(encoding="utf-8")
    text = re.sub(r"<(.)\*(\d+)>", lambda match: match[1] * int(match[2]), text)
    rows = [line.split(" | ")[1:] for line in text.split("\n") if line.startswith(kind + " | ")]
    return [(re.sub(rb"\\x(..)", lambda match: bytes.fromhex(match[1].decode()), first.encode()),
             *others) for first, *others in rows]


def execute(*arguments, text=b""):
    done = subprocess.run([os.environ["DRIVER_HOST"], *map(str, arguments)], input=text,
                          capture_output=True, timeout=PATIENCE)
    return done.stdout


def events(*arguments, text=b""):
    output = execute(*arguments, text=text)
    assert not CONTROLS.search(output.decode()), output
    return [parse(line) for line in output.splitlines()]


def on_terminal(*command, text=b""):
    """What a screen is given by this program."""
    screen, terminal = pty.openpty()
    with os.fdopen(screen, "rb") as shown:
        subprocess.run(command, input=text, stdout=terminal, stderr=terminal, timeout=PATIENCE,
                       env={**os.environ, "NO_COLOR": "1"}, check=False)
        os.close(terminal)
        output = b""
        try:
            while piece := shown.read1(65536):
                output += piece
        except OSError:  # that was all
            pass
    return output.decode().replace("\r\n", "\n")


def rows(*arguments):
    text = execute(*arguments, "--format", "csv").decode()
    return [row[1:] for row in csv.reader(io.StringIO(text, newline=""), strict=True)]


class TextDevice(socketserver.StreamRequestHandler):
    """Asked for N, it tells the text in that row of the table."""

    def handle(self):
        for line in self.rfile:
            name = line.split()[1]
            self.wfile.write(name + b" " + table("device")[int(name)][0] + b"\n")


class Json(unittest.TestCase):
    def test_texts_of_a_device(self):
        device = socketserver.ThreadingTCPServer(("127.0.0.1", 0), TextDevice)
        self.addCleanup(device.server_close)
        device.daemon_threads = True
        threading.Thread(target=device.serve_forever, args=(0.01,)).start()
        self.addCleanup(device.shutdown)
        for number, (sent, *told) in enumerate(table("device")):
            with self.subTest(sent):
                text, shown = [json.loads(each) for each in (told[0], told[-1])]
                command = ["get", "--plugin", os.environ["SAMPLE_MODULE"], "--name", number,
                           "--host", "127.0.0.1", "--port", device.server_address[1]]
                result, finished = events(*command, "--format", "json")
                self.assertEqual((result["value"], finished["results"]), (text, {"value": text}))
                self.assertEqual(execute(*command).decode(), shown + "\n")
                screen = on_terminal(os.environ["DRIVER_HOST"], *map(str, command), "--format=csv")
                self.assertNotRegex(screen, CONTROLS)
                self.assertEqual(rows(*command), [["name", "index", "value"], ["value", "", text]])

    def test_identification_of_a_device(self):
        for info in (b"", bytes(range(127)), bytes(range(129, 256))):
            with self.subTest(info):
                raw_device = HERE / "devices" / "raw_device.py"
                device = Device([sys.executable, str(raw_device), "0", info.hex()])
                self.addCleanup(device.close)
                command = ["deviceInformation", "--host", "127.0.0.1", "--port", device.port]
                self.assertEqual(events(*command, "--format", "json")[0]["value"]["info"],
                                 info.hex())
                self.assertIn(["deviceInformation", "info", info.hex()], rows(*command))

    def test_texts_and_numbers_of_a_user(self):
        for own, in table("user"):
            with self.subTest(own):
                other = own if own.startswith(b'"') else b'"d"'
                seen = events("run", "-", text=b'{"id":%s,"device":%s,"command":"read"}\n'
                              b'{"id":%s,"device":"d","command":%s}' % (own, other, own, other))
                self.assertEqual([event["event"] for event in seen], ["error", "finished"] * 2)
                self.assertEqual([event["id"] for event in seen], [json.loads(own)] * 4)
                self.assertEqual([seen[0]["device"], seen[2]["command"]], [json.loads(other)] * 2)

    def test_what_is_typed(self):
        for typed, shown in table("typed"):
            with self.subTest(typed):
                program, *words = typed.replace(b"driver-host", b"DRIVER_HOST").replace(
                    b"device-simulator", b"DEVICE_SIMULATOR").split()
                screen = on_terminal(os.environ[program.decode()], *words, text=(
                    '{"id":"\x9b\x7f","stop":true}\n'.encode()))
                self.assertNotRegex(screen, CONTROLS)
                self.assertIn(shown, screen)

    def test_wrong_lines(self):
        for line, name, words in table("line"):
            with self.subTest(line):
                first, *rest = events("run", "-", text=b"\n" + line)
                self.assertEqual((first["event"], first["code"], first.get("id")),
                                 ("error", "usage", json.loads(name)))
                self.assertRegex(first["message"], "^line 2: .*" + re.escape(words))
                self.assertEqual([(event["event"], event["ok"]) for event in rest],
                                 [("finished", False)] * (name == "7"))


if __name__ == "__main__":
    unittest.main(verbosity=2)
