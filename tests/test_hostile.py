#!/usr/bin/env python3
"""driver-host beside devices that send what nobody asked for, and after pauses that it could not
help: its own, and those of whoever reads its output. CTest passes the program in the environment."""

import array
import contextlib
import fcntl
import json
import os
import resource
import signal
import socket
import subprocess
import termios
import threading
import time
import unittest

from programs import Program, parse

HOST = os.environ["DRIVER_HOST"]
HOLDING = {"registerType": "holdingRegisters", "register": 100}
REGISTER = {"registerType": "singleRegister", "register": 100}
REQUEST_SIZE = 12
MEMORY = 250_000 * 1024  # bytes of addresses, less than a flood fills in a moment
PAUSE = 3  # seconds, longer than the time limit of an order
MANY = 200  # devices, more than the program looks at in one go
SMALL_PIPE, LONGEST_LINE = 4096, 500  # bytes


def order(name, device, command, **parameters):
    line = {"id": name, "device": device, "command": command, "parameters": parameters}
    return json.dumps(line) + "\n"


def connect(device, server):
    return order("to " + device, device, "connect", host="127.0.0.1",
                 port=server.getsockname()[1])


def reply(request, value):
    """To a read of one register, or to the write of one."""
    if request[7] == 6:
        return request
    return request[:4] + b"\0\5" + request[6:8] + bytes([2, value >> 8, value & 255])


class Link:
    """A connection of driver-host's, at the device's end."""

    def __init__(self, server):
        self.connection = server.accept()[0]
        self.connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def request(self):
        """Empty when the connection has ended."""
        with contextlib.suppress(ConnectionError):
            return self.connection.recv(REQUEST_SIZE, socket.MSG_WAITALL)
        return b""

    def send(self, data):
        """False when the connection has ended."""
        with contextlib.suppress(OSError):
            self.connection.sendall(data)
            return True
        return False

    def flood(self):
        request = self.request()
        self.send(reply(request, 7))
        while request and self.send(reply(request, 7) * 6000):
            pass

    def answer_all(self):
        while request := self.request():
            self.send(reply(request, 8))


class Hostile(unittest.TestCase):
    def serve(self, serve=None):
        """A port, and what each of its connections does."""
        server = socket.create_server(("127.0.0.1", 0), backlog=MANY)
        self.addCleanup(server.close)
        if serve:
            threading.Thread(target=self.serve_all, args=(server, serve), daemon=True).start()
        return server

    def serve_all(self, server, serve):
        with contextlib.suppress(OSError):  # the end of the test
            while True:
                link = Link(server)
                with link.connection:
                    serve(link)

    def accept(self, server):
        link = Link(server)
        self.addCleanup(link.connection.close)
        return link

    def begin(self, orders, **options):
        host = Program([HOST, "run", "-"], stdin=subprocess.PIPE, **options)
        self.addCleanup(host.close)
        return self.give(host, orders)

    def give(self, host, orders):
        host.stdin.write(orders)
        host.stdin.flush()
        return host

    def events(self, host, kind, count=1):
        """The next events of this kind. None of an order must be an error."""
        found = []
        while len(found) < count:
            event = parse(host.stdout.readline())
            self.assertFalse(event["event"] == "error" and "id" in event, event)
            if event["event"] == kind:
                found.append(event)
        return found

    def stop(self, host):
        host.send_signal(signal.SIGSTOP)
        os.waitpid(host.pid, os.WUNTRACED)


class Floods(Hostile):
    def test_beside_a_healthy_device(self):
        def limit():
            resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))

        count = 1000
        host = self.begin(connect("flood", self.serve(Link.flood))
                          + connect("well", self.serve(Link.answer_all))
                          + "".join(order(n, "flood", "read", **HOLDING) for n in range(count))
                          + order("l", "well", "listen", **HOLDING, recurrentInterval=1),
                          preexec_fn=limit)
        ended = values = 0
        while (ended < count or values < count) and (line := host.stdout.readline()):
            event = parse(line)
            ended += event["device"] == "flood" and event["event"] == "finished"
            values += event["id"] == "l" and event.get("value") == [8]
            self.assertNotEqual((event["device"], event["event"]), ("well", "error"), event)
        _, errors = host.communicate()
        self.assertIn(host.returncode, (0, 1), errors)
        self.assertEqual((ended, values >= count), (count, True), errors)


class Copies(Hostile):
    def test_no_request_leaves_where_bytes_wait(self):
        """The device is one reply behind, for good; only on a new connection it is not."""
        server = self.serve()
        host = self.begin(connect("d", server) + order(1, "d", "read", **HOLDING))
        link = self.accept(server)
        last = reply(link.request(), 1)
        link.send(last)
        self.events(host, "finished")
        for name in range(2, 62):  # of order and copy, either may be seen first
            self.stop(host)
            self.give(host, order(name, "d", "read", **HOLDING))
            link.send(last)
            host.send_signal(signal.SIGCONT)
            if link.request():
                link.send(last)
            else:
                link = self.accept(server)
                last = reply(link.request(), name)
                link.send(last)
            event, = self.events(host, "result")
            self.assertEqual((event["id"], event["value"]), (name, [name]))


class Pauses(Hostile):
    def ask_many(self):
        """A host with a request out to each of many devices, those requests and their links."""
        server = self.serve()
        names = [str(n) for n in range(MANY)]
        host = self.begin("".join(connect(name, server) for name in names))
        links = [self.accept(server) for _ in names]
        self.events(host, "result", MANY)
        self.give(host, "".join(order(name, name, "write", **REGISTER, data=2) if int(name) % 2
                                else order(name, name, "read", **HOLDING) for name in names))
        self.events(host, "started", MANY)
        return host, [(link, link.request()) for link in links]

    def answer_all(self, host, requests):
        for link, request in requests:
            link.send(reply(request, 7))
        time.sleep(PAUSE)
        host.send_signal(signal.SIGCONT)
        ended = [event["id"] for event in self.events(host, "finished", MANY)]
        self.assertEqual(set(ended), {str(n) for n in range(MANY)})

    def test_of_the_process(self):
        host, requests = self.ask_many()
        self.stop(host)
        self.answer_all(host, requests)

    def test_of_the_reader(self):
        host, requests = self.ask_many()
        fcntl.fcntl(host.stdout, fcntl.F_SETPIPE_SZ, SMALL_PIPE)
        self.give(host, "no order\n" * 500)
        filled = array.array("i", [0])
        while filled[0] < SMALL_PIPE - LONGEST_LINE:
            fcntl.ioctl(host.stdout, termios.FIONREAD, filled)
        self.answer_all(host, requests)


if __name__ == "__main__":
    unittest.main(verbosity=2)
