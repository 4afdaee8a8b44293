#!/usr/bin/env python3
"""Copies two registers to another device: two_devices.py DRIVER-HOST HOST:PORT HOST:PORT"""

import json
import subprocess
import sys


class DriverHost:
    """Gives orders to many devices, and pairs what comes back with them by their ids."""

    def __init__(self, program):
        self.process = subprocess.Popen([program, "run", "-", "--quiet"], encoding="utf-8",
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.ended = {}

    def order(self, name, device, command, **parameters):
        order = {"id": name, "device": device, "command": command, "parameters": parameters}
        print(json.dumps(order), file=self.process.stdin, flush=True)

    def results(self, name):
        while name not in self.ended:
            event = json.loads(self.process.stdout.readline())
            if event["event"] == "error":
                sys.exit(event["message"])
            if event["event"] == "finished":
                self.ended[event["id"]] = event["results"]
        return self.ended.pop(name)


def main(program, source, target):
    host = DriverHost(program)
    for device, endpoint in [("source", source), ("target", target)]:
        address, port = endpoint.rsplit(":", 1)
        host.order("connect " + device, device, "connect", host=address, port=int(port))
    host.order("read", "source", "read", register=100, dataSize=2, registerType="holdingRegisters")
    values = host.results("read")["values"]
    print("source, from register 100:", values)
    host.order("write", "target", "write", register=5, data=values,
               registerType="multipleRegisters")
    host.order("check", "target", "read", register=4, dataSize=4, registerType="holdingRegisters")
    print("target took them:", host.results("write")["values"] == [1])
    print("target, from register 4:", host.results("check")["values"])
    host.process.stdin.close()  # the connections end with it
    return host.process.wait()


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]) if len(sys.argv) == 4 else __doc__)
