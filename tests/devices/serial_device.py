"""A device at the other end of a serial line, which is a pseudo terminal: as a test runs it."""

import os
import threading
import tty

from gateway import crc
import raw_device


class SerialDevice:
    """Answers units on a line with this name; may echo what comes, and answer otherwise."""

    def __init__(self, name, units, echoes=False, spoil=lambda reply: reply):
        self.units, self.echoes, self.spoil = units, echoes, spoil
        self.line, self.other = os.openpty()
        tty.setraw(self.other)
        os.symlink(os.ttyname(self.other), name)
        self.name = name
        self.serving = threading.Thread(target=self.serve, daemon=True)
        self.serving.start()

    def serve(self):
        while frame := os.read(self.line, 256):
            if frame.endswith(b"end"):
                return
            reply = frame[:1] + raw_device.answer(frame[1], frame[2:-2])
            good = crc(frame[:-2]) == frame[-2:] and frame[0] in self.units
            os.write(self.line, (frame if self.echoes else b"")
                     + (self.spoil(reply + crc(reply)) if good else b""))

    def unplug(self):
        os.unlink(self.name)
        os.write(self.other, b"end")
        self.serving.join()
        os.close(self.line)
        os.close(self.other)
