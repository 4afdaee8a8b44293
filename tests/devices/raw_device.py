#!/usr/bin/env python3
"""A Modbus TCP device on plain sockets: raw_device.py [PORT [ID]], any free port by default. It
holds what libmodbus-server holds. ID is what it tells of itself, in hexadecimal."""

import socketserver
import struct
import sys

COUNT = 9999
COILS = [int(n % 3 == 0) for n in range(COUNT)]
INPUTS = [int(n % 5 == 0) for n in range(COUNT)]
HOLDING = [0] * COUNT
HOLDING[100:110] = [(2 * n + 1) * 256 + 2 * n + 2 for n in range(10)]
INPUT = [0] * COUNT
INPUT[200:202] = [7, 65535]
SERVER_ID = b"\x01\xffraw device"


class Refused(Exception):
    """Carries the exception code."""


def checked(table, start, count, largest):
    if not 1 <= count <= largest:
        raise Refused(3)
    if start + count > len(table):
        raise Refused(2)
    return slice(start, start + count)


def pack_bits(bits):
    number = sum(bit << n for n, bit in enumerate(bits))
    return number.to_bytes((len(bits) + 7) // 8, "little")


def read_bits(table, body):
    data = pack_bits(table[checked(table, *struct.unpack(">HH", body), 2000)])
    return bytes([len(data)]) + data


def read_words(table, body):
    values = table[checked(table, *struct.unpack(">HH", body), 125)]
    return struct.pack(f">B{len(values)}H", 2 * len(values), *values)


def write_one(table, body):
    register, value = struct.unpack(">HH", body)
    if table is COILS and value not in (0, 0xFF00):
        raise Refused(3)
    table[checked(table, register, 1, 1)] = [int(value == 0xFF00) if table is COILS else value]
    return body


def write_bits(body):
    start, count, size = struct.unpack(">HHB", body[:5])
    if size != (count + 7) // 8 or size != len(body) - 5:
        raise Refused(3)
    number = int.from_bytes(body[5:], "little")
    COILS[checked(COILS, start, count, 1968)] = [number >> n & 1 for n in range(count)]
    return body[:4]


def write_words(body):
    start, count, size = struct.unpack(">HHB", body[:5])
    if size != 2 * count or size != len(body) - 5:
        raise Refused(3)
    HOLDING[checked(HOLDING, start, count, 123)] = struct.unpack(f">{count}H", body[5:])
    return body[:4]


FUNCTIONS = {
    1: lambda body: read_bits(COILS, body),
    2: lambda body: read_bits(INPUTS, body),
    3: lambda body: read_words(HOLDING, body),
    4: lambda body: read_words(INPUT, body),
    5: lambda body: write_one(COILS, body),
    6: lambda body: write_one(HOLDING, body),
    15: write_bits,
    16: write_words,
    17: lambda body: bytes([len(SERVER_ID)]) + SERVER_ID,
}


def answer(function, body):
    try:
        if function not in FUNCTIONS:
            raise Refused(1)
        return bytes([function]) + FUNCTIONS[function](body)
    except struct.error:
        return bytes([function | 0x80, 3])
    except Refused as refused:
        return bytes([function | 0x80, refused.args[0]])


class Client(socketserver.StreamRequestHandler):
    def handle(self):
        while len(header := self.rfile.read(7)) == 7:
            transaction, protocol, length, unit = struct.unpack(">HHHB", header)
            pdu = self.rfile.read(length - 1)
            reply = answer(pdu[0], pdu[1:])
            head = struct.pack(">HHHB", transaction, protocol, len(reply) + 1, unit)
            self.wfile.write(head + reply)


class Server(socketserver.ThreadingTCPServer):
    allow_reuse_address = True
    daemon_threads = True

    def handle_error(self, request, client_address):
        pass  # a client that goes away in the middle is no fault of the device


def serve(port):
    with Server(("127.0.0.1", port), Client) as server:
        print(f"listening on 127.0.0.1:{server.server_address[1]}", flush=True)
        server.serve_forever()


if __name__ == "__main__":
    if len(sys.argv) > 2:
        SERVER_ID = bytes.fromhex(sys.argv[2])
    serve(int(sys.argv[1]) if len(sys.argv) > 1 else 0)
