"""An mbap-to-rtu gateway, as a test runs it: one request at a time, units behind it, and the exception
"gateway target device failed to respond" for a unit that is silent."""

import os
import select
import socketserver
import struct
import threading

SILENT = 0x0B


def crc(frame):
    """As shifts of a whole number: the remainder by the mirrored polynomial."""
    rest = 0xFFFF
    for byte in frame:
        rest ^= byte
        for _ in range(8):
            rest = rest >> 1 ^ 0xA001 * (rest & 1)
    return struct.pack("<H", rest)


class Gateway(socketserver.ThreadingTCPServer):
    daemon_threads = True

    def __init__(self, line):
        """The line is a descriptor with RTU frames on it."""
        self.line, self.turn = line, threading.Lock()
        super().__init__(("127.0.0.1", 0), self.Client)
        threading.Thread(target=self.serve_forever, args=(0.02,), daemon=True).start()

    def ask(self, unit, pdu):
        frame = bytes([unit]) + pdu
        os.write(self.line, frame + crc(frame))
        reply = b""
        while len(reply) < 5 or crc(reply[:-2]) != reply[-2:]:
            if not select.select([self.line], [], [], 0.3)[0]:
                return bytes([pdu[0] | 0x80, SILENT])
            reply += os.read(self.line, 256)
        return reply[1:-2]

    class Client(socketserver.StreamRequestHandler):
        def handle(self):
            while len(header := self.rfile.read(7)) == 7:
                transaction, _, length, unit = struct.unpack(">HHHB", header)
                pdu = self.rfile.read(length - 1)
                with self.server.turn:
                    reply = self.server.ask(unit, pdu)
                self.wfile.write(struct.pack(">HHHB", transaction, 0, len(reply) + 1, unit) + reply)
