#!/usr/bin/env python3
"""What driver-host listen shows on a terminal: the real program in a pseudo terminal, and a screen
that does what the program tells it. CTest passes the programs in the environment."""

import codecs
import fcntl
import json
import os
import pty
import re
import resource
import signal
import struct
import sys
import termios
import threading
import unittest

import pyte

from programs import PATIENCE, Device, table

HERE = os.path.dirname(os.path.abspath(__file__))
HOST = os.environ["DRIVER_HOST"]
RAW_DEVICE = [sys.executable, os.path.join(HERE, "devices", "raw_device.py")]
LISTEN = ["--host", "127.0.0.1", "--register-type", "holdingRegisters", "--register", "100",
          "--data-size", "3", "--interval"]


class Terminal:
    """A program on a terminal of its own."""

    def __init__(self, command, columns, rows=12, **environment):
        self.decoder = codecs.getincrementaldecoder("utf-8")()
        self.screen = pyte.HistoryScreen(columns, rows, history=10000)
        self.stream = pyte.Stream(self.screen)
        self.all = ""
        self.process, self.file = pty.fork()
        if self.process == 0:
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
            os.environ.update({"TERM": "xterm", "LC_ALL": "C.UTF-8", "NO_COLOR": "", **environment})
            os.execvp(command[0], command)
        self.watchdog = threading.Timer(PATIENCE, os.kill, (self.process, signal.SIGKILL))
        self.watchdog.start()
        self.resize(columns, rows)

    def resize(self, columns, rows=12):
        self.screen.resize(rows, columns)
        fcntl.ioctl(self.file, termios.TIOCSWINSZ, struct.pack("4H", rows, columns, 0, 0))

    def send(self, text):
        os.write(self.file, text.encode())

    def hang_up(self):
        os.close(self.file)
        self.file = os.open("/dev/null", os.O_RDWR)

    def has_echo(self):
        return bool(termios.tcgetattr(self.file)[3] & termios.ECHO)

    def close(self):
        self.watchdog.cancel()
        os.kill(self.process, signal.SIGKILL)
        os.waitpid(self.process, 0)
        os.close(self.file)

    def wait(self, pattern):
        """Reads on until the lines match; answers them."""
        while not re.search(pattern, "\n".join(self.lines), re.DOTALL | re.MULTILINE):
            if not self.read():
                raise AssertionError(f"ended without {pattern}:\n" + "\n".join(self.lines))
        return self.lines

    def end(self):
        """Exit code, once the program has ended by itself."""
        while self.read():
            pass
        return os.waitid(os.P_PID, self.process, os.WEXITED | os.WNOWAIT).si_status

    def read(self):
        try:
            text = self.decoder.decode(os.read(self.file, 65536))
        except OSError:  # nobody has the terminal open any more
            return False
        self.all += text
        self.stream.feed(text)
        return True

    @property
    def lines(self):
        """What was shown and scrolled away, and what is shown, without blanks at the end."""
        columns = range(self.screen.columns)
        gone = ["".join(line[x].data for x in columns) for line in self.screen.history.top]
        return "\n".join(line.rstrip() for line in gone + self.screen.display).rstrip("\n").split("\n")


class LiveView(unittest.TestCase):
    VALUES = [" 100 +258 +0x0102", " 101 +772 +0x0304", " 102 +1286 +0x0506"]

    def setUp(self):
        self.device = Device(RAW_DEVICE)
        self.addCleanup(self.device.close)

    def command(self, *options, interval=20):
        return [HOST, "listen", *LISTEN, str(interval), "--port", str(self.device.port), *options]

    def start(self, command, columns=80, **environment):
        terminal = Terminal(command, columns, **environment)
        self.addCleanup(terminal.close)
        return terminal

    def assertLines(self, lines, patterns):
        self.assertEqual(len(lines), len(patterns), lines)
        for line, pattern in zip(lines, patterns):
            self.assertRegex(line, pattern)

    def assertLeft(self, terminal):
        self.assertFalse(terminal.screen.cursor.hidden)
        self.assertIn(pyte.modes.DECAWM, terminal.screen.mode)
        self.assertTrue(terminal.has_echo())

    def test_resized_and_interrupted(self):
        terminal = self.start(self.command(interval=3600000))  # what follows is no reading's doing
        terminal.wait(r"trend.*\b1 done, 0 failed")
        self.assertLines(terminal.lines, [r"last change +trend$", *(v + r" +▁+$" for v in
                                          self.VALUES), rf"^127.0.0.1:{self.device.port}, every 3600000 ms, "])
        self.assertTrue(terminal.screen.cursor.hidden and not terminal.has_echo())
        terminal.resize(20)
        terminal.wait(r"value$.* 258$.*^connected, 0 failed$")
        self.assertLines(terminal.lines, ["value$", "258$", "772$", "1286$", "^connected, 0 failed$"])
        terminal.resize(120, 4)
        terminal.wait(r"\(2 more\)")
        self.assertLines(terminal.lines, [self.VALUES[0], "2 more", "connected, .* done, 0 failed$"])
        terminal.send("\x03")
        self.assertEqual(terminal.end(), 0)
        self.assertLines(terminal.lines[:4], [self.VALUES[0], "2 more", "done, 0 failed$",
                                              r"^listen: \d+ done, 0 failed, "])
        self.assertLeft(terminal)

    def test_device_goes_away(self):
        terminal = self.start(self.command("--no-color", "--verbose"), 200)
        terminal.wait("done, 0 failed")
        self.device.end(signal.SIGKILL)
        terminal.wait("^connection lost.*, connection lost, .* [1-9][0-9]* failed$")
        self.addCleanup(Device(RAW_DEVICE + [str(self.device.port)]).close)
        terminal.wait(r"^connected again.*, connected, \d+ done")
        terminal.send("\x03")
        self.assertEqual(terminal.end(), 0)
        view = next(i for i, line in enumerate(terminal.lines) if "trend" in line)
        for line in terminal.lines[:view]:
            self.assertRegex(line, r"^(\d\d:\d\d:\d\d\.\d{3} (->|<-)( [0-9a-f]{2})+|connect.*|"
                                   r"127\.0\.0\.1:\d+ .*connect.*|listen failed: .*|\(\d+ more .*)$")
        self.assertLines(terminal.lines[view + 1:view + 5], [*self.VALUES, ", connected, "])

    def test_stopped_and_continued(self):
        shell = self.start(["bash", "--norc", "--noediting", "-i"], 100)
        shell.send(" ".join(self.command()) + "\n")
        shell.wait("connected, .* done, 0 failed")
        shell.send("\x1a")
        shell.wait(r"done, 0 failed\n.*Stopped")
        self.assertLeft(shell)
        shell.send("fg\n")
        view = r"Stopped.*fg\n[^\n]*listen.*\d\n +register [^\n]*trend.*connected, .* done, 0 failed"
        shell.wait(view)
        self.assertTrue(shell.screen.cursor.hidden and not shell.has_echo())
        shell.send("\x03")
        shell.wait(view + "\nlisten: ")
        shell.send("exit\n")
        self.assertEqual(shell.end(), 0)
        self.assertLeft(shell)

    def test_killed(self):
        terminal = self.start(self.command())
        terminal.wait("done, 0 failed")
        os.kill(terminal.process, signal.SIGQUIT)
        self.assertEqual(terminal.end(), signal.SIGQUIT)
        self.assertLeft(terminal)

    def test_terminal_goes_away(self):
        for options in ([], ["--plain"], ["--format", "csv"]):
            with self.subTest(options=options):
                terminal = self.start(self.command(*options))
                terminal.wait("772")
                terminal.hang_up()
                ended = os.waitid(os.P_PID, terminal.process, os.WEXITED | os.WNOWAIT)
                self.assertEqual((ended.si_code, ended.si_status), (os.CLD_EXITED, 0))

    def test_nohup(self):
        terminal = self.start(["sh", "-c", "trap '' HUP; exec \"$@\"", "sh", *self.command()])
        count = int(re.search(r"(\d+) done", terminal.wait(" done")[-1])[1])
        os.kill(terminal.process, signal.SIGHUP)
        while count + 20 > int(re.search(r"(\d+) done", terminal.wait(" done")[-1])[1]):
            self.assertTrue(terminal.read())
        terminal.send("\x03")
        self.assertEqual(terminal.end(), 0)

    def test_not_each_reading_is_drawn(self):
        terminal = self.start(self.command("--count", "400", interval=1))
        self.assertEqual(terminal.end(), 0)
        self.assertIn("connected, 400 done, 0 failed", terminal.all)
        self.assertLess(terminal.all.count("trend"), 200)

    def test_how_it_is_shown(self):
        for row in table("live_views"):
            options, environment, wanted, unwanted = map(json.loads, row)
            with self.subTest(options=options, **environment):
                terminal = self.start(self.command("--count", "4", *options), **environment)
                self.assertEqual(terminal.end(), 0)
                for text in wanted:
                    self.assertIn(text, terminal.all)
                for text in unwanted:
                    self.assertNotIn(text, terminal.all)
                self.assertLeft(terminal)


if __name__ == "__main__":
    unittest.main(verbosity=2)
