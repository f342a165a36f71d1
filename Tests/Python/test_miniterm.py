"""The terminal program of pySerial on a port of a camera."""
import threading
import time

import kyserial
from serial.tools import miniterm

PATIENCE = 20


class FakeConsole:
    """A keyboard that types lines as soon as the answer to the one before has come, and a screen that is kept."""

    def __init__(self):
        self.screen = ""
        self.changed = threading.Condition()
        self.keys = iter(())

    def setup(self):
        """Nothing to set up."""

    cleanup = cancel = setup

    def getkey(self):
        return next(self.keys)

    def write(self, text):
        with self.changed:
            self.screen += text
            self.changed.notify_all()

    def wait_for(self, text):
        with self.changed:
            assert self.changed.wait_for(lambda: text in self.screen, PATIENCE), self.screen


def test_it_talks_to_the_lens_and_stops(camera, monkeypatch):
    console = FakeConsole()
    monkeypatch.setattr(miniterm, "Console", lambda: console)
    camera.plug("uart0", "lens")

    def keys():
        yield from "ZOOM 77\n"
        console.wait_for("OK")
        yield from "STATUS?\n"
        console.wait_for("ZOOM 77 FOCUS 1000")
        yield chr(0x1D)

    console.keys = keys()
    with kyserial.Port(camera, "uart0", timeout=None) as port:
        terminal = miniterm.Miniterm(port, echo=False, eol="crlf", filters=["default"])
        terminal.set_rx_encoding("UTF-8")
        terminal.set_tx_encoding("UTF-8")
        terminal.start()
        terminal.join(True)
        start = time.monotonic()
        terminal.stop()
        terminal.join()
        assert time.monotonic() - start < PATIENCE
    assert "STATUS READY ZOOM 77" in console.screen
