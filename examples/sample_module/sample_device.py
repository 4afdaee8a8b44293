#!/usr/bin/env python3
"""A device for the sample module: sample_device.py PORT; 0 is any free one."""

import socketserver
import sys

ANSWERS = {b"level": b"level 20.5\n", b"outdoor_temperature": b"outdoor_temperature -4\n",
           b"volume": b"level 20.5\n"}  # the last one answers another question


class Device(socketserver.StreamRequestHandler):
    def handle(self):
        for line in self.rfile:
            name = line.split()[1]
            self.server.asked.append(line)
            if name == b"silence":
                continue
            answer = ANSWERS.get(name, name + b" !1\n")
            if name == b"rising":  # another value each time, and none the second time
                times = self.server.asked.count(line)
                answer = b"rising !1\n" if times == 2 else b"rising %d\n" % times
            cut = 3 if name == b"outdoor_temperature" else len(answer)  # a reply in two pieces
            self.wfile.write(answer[:cut])
            self.wfile.write(answer[cut:])


class Server(socketserver.ThreadingTCPServer):
    allow_reuse_address = True
    daemon_threads = True

    def __init__(self, port):
        super().__init__(("127.0.0.1", port), Device)
        self.asked = []


if __name__ == "__main__":
    with Server(int(sys.argv[1])) as server:
        print("listening on %s:%d" % server.server_address, flush=True)
        server.serve_forever()
