#!/usr/bin/python3
"""A device of another make, pymodbus: pymodbus_server.py COUNT [FRAMES [LINE]], so many items in each
table. What is written can be read as inputs too. With FRAMES, tcp or rtu, the tables are those of the
raw device; with a LINE it serves that serial line."""

import asyncio
import logging
import sys

from pymodbus.datastore import (ModbusSequentialDataBlock, ModbusServerContext,
                                ModbusSlaveContext)
from pymodbus.server import StartAsyncSerialServer, StartAsyncTcpServer
from pymodbus.transaction import ModbusRtuFramer, ModbusSocketFramer

import raw_device

count = int(sys.argv[1])
logging.disable() # nobody reads it, and a full pipe would stop the device


def table(values=None):
    return ModbusSequentialDataBlock(0, values[:count] if values else [0] * count)


def tables():
    if len(sys.argv) > 2:
        return {"di": table(raw_device.INPUTS), "co": table(raw_device.COILS),
                "hr": table(raw_device.HOLDING), "ir": table(raw_device.INPUT)}
    bits, words = table(), table()
    return {"di": bits, "co": bits, "hr": words, "ir": words}


async def serve():
    store = ModbusSlaveContext(**tables(), zero_mode=True)
    context = ModbusServerContext(slaves=store, single=True)
    framer = ModbusRtuFramer if "rtu" in sys.argv[2:] else ModbusSocketFramer
    if len(sys.argv) > 3:
        server = await StartAsyncSerialServer(context=context, framer=framer, port=sys.argv[3],
                                              defer_start=True)
        await server.start()
        print("listening on the line:0", flush=True)
        await server.serve_forever()
    server = await StartAsyncTcpServer(context=context, framer=framer, address=("127.0.0.1", 0),
                                       defer_start=True)
    serving = asyncio.ensure_future(server.serve_forever())
    await server.serving
    print("listening on 127.0.0.1:%d" % server.server.sockets[0].getsockname()[1], flush=True)
    await serving


asyncio.run(serve())
