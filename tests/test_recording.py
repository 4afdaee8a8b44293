#!/usr/bin/env python3
"""Every byte of a session of each command, as recorded in tables/recording.txt, with no link option
set: what lies below the module must leave its bytes alone. CTest passes the program in the
environment; "test_recording.py --record" prints the table anew."""

import contextlib
import os
import pathlib
import signal
import socket
import sys
import threading
import unittest

from programs import Device, Program, table

HERE = pathlib.Path(__file__).parent


class Recorder:
    """Stands between the host and a device, and writes down what passes: "(" a connection, ">" what
    leaves, "<" what comes."""

    def __init__(self, device):
        self.device = device
        self.server = socket.create_server(("127.0.0.1", 0))
        self.port = self.server.getsockname()[1]
        self.heard = []
        self.news = threading.Condition()
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        while True:
            try:
                host = self.server.accept()[0]
            except OSError:
                return
            self.note("(")
            device = socket.create_connection(("127.0.0.1", self.device))
            for mark, source, target in ((">", host, device), ("<", device, host)):
                threading.Thread(target=self.pass_on, args=(mark, source, target),
                                 daemon=True).start()

    def pass_on(self, mark, source, target):
        with contextlib.suppress(OSError):  # either side may be gone already
            while data := source.recv(4096):
                self.note(mark + data.hex())
                target.sendall(data)
            target.shutdown(socket.SHUT_WR)

    def note(self, text):
        with self.news:
            self.heard.append(text)
            self.news.notify_all()

    def wait_for(self, count):
        with self.news:
            assert self.news.wait_for(lambda: len(self.heard) >= count, 100), self.heard


def record(line, device):
    """What passes while this command runs; one that goes on is ended once the keep-alive came."""
    recorder = Recorder(device)
    host = Program([os.environ["DRIVER_HOST"], *line.split(), "--host", "127.0.0.1", "--port",
                    str(recorder.port)])
    try:
        if line.startswith("connect"):
            recorder.wait_for(3)
            host.send_signal(signal.SIGINT)
        host.communicate()
    finally:
        host.close()
        recorder.server.close()
    return " ".join(recorder.heard)


class Recording(unittest.TestCase):
    def test_session(self):
        device = Device([sys.executable, str(HERE / "devices" / "raw_device.py")])
        self.addCleanup(device.close)
        for line, wanted in table("recording"):
            with self.subTest(line):
                self.assertEqual(record(line, device.port), wanted)


if __name__ == "__main__" and sys.argv[1:] == ["--record"]:
    DEVICE = Device([sys.executable, str(HERE / "devices" / "raw_device.py")])
    for row in table("recording"):
        print(row[0], "|", record(row[0], DEVICE.port))
    DEVICE.end()
elif __name__ == "__main__":
    unittest.main(verbosity=2)
