#!/usr/bin/python3
"""A device of another make, pymodbus: pymodbus_server.py COUNT, so many items in each table. What
is written can be read as inputs too."""

import asyncio
import logging
import sys

from pymodbus.datastore import (ModbusSequentialDataBlock, ModbusServerContext,
                                ModbusSlaveContext)
from pymodbus.server import StartAsyncTcpServer

count = int(sys.argv[1])
logging.disable() # nobody reads it, and a full pipe would stop the device


def table():
    return ModbusSequentialDataBlock(0, [0] * count)


async def serve():
    bits, words = table(), table()
    store = ModbusSlaveContext(di=bits, co=bits, hr=words, ir=words, zero_mode=True)
    server = await StartAsyncTcpServer(context=ModbusServerContext(slaves=store, single=True),
                                       address=("127.0.0.1", 0), defer_start=True)
    serving = asyncio.ensure_future(server.serve_forever())
    await server.serving
    print("listening on 127.0.0.1:%d" % server.server.sockets[0].getsockname()[1], flush=True)
    await serving


asyncio.run(serve())
