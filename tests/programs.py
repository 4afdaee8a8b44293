"""Programs that the end-to-end tests start, and end, whatever happens."""

import json
import pathlib
import signal
import socket
import subprocess
import threading

PATIENCE = 100  # seconds until something that hangs is given up


def table(name):
    """The fields of each row of tables/NAME.txt."""
    path = pathlib.Path(__file__).parent / "tables" / (name + ".txt")
    lines = path.read_text(encoding="utf-8").splitlines()
    return [[field.strip() for field in line.split("|")] for line in lines
            if line and not line.startswith("#")]


def parse(line):
    """An event as a program of another make reads it: as strict as JSON is."""
    def once(pairs):
        assert len(dict(pairs)) == len(pairs), f"a key comes twice: {line}"
        return dict(pairs)

    def refuse(constant):
        raise ValueError(f"{constant} is no JSON")

    text = line.decode("utf-8") if isinstance(line, bytes) else line
    return json.loads(text, object_pairs_hook=once, parse_constant=refuse)


class Program(subprocess.Popen):
    """A program that runs on, killed when it outlives all patience."""

    def __init__(self, command, **options):
        super().__init__(command, **{"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE,
                                     "stderr": subprocess.PIPE, "encoding": "utf-8", **options})
        self.watchdog = threading.Timer(PATIENCE, self.kill)
        self.watchdog.start()

    def end(self, number=signal.SIGTERM):
        """Exit code, rest of standard output and standard error after this signal."""
        self.send_signal(number)
        output, errors = self.communicate()
        self.watchdog.cancel()
        return self.returncode, output, errors

    def close(self):
        """For addCleanup: kills it if it still runs, and closes its pipes."""
        self.watchdog.cancel()
        self.kill()
        self.__exit__(None, None, None)


class Device(Program):
    """A device that tells its port in its first line."""

    def __init__(self, command):
        super().__init__(command)
        self.port = int(self.stdout.readline().rpartition(":")[2])


def free_port():
    """A port that nobody else is given for a while: the end of a connection still lingers there."""
    with socket.create_server(("127.0.0.1", 0)) as server:
        with socket.create_connection(server.getsockname()), server.accept()[0]:
            return server.getsockname()[1]
