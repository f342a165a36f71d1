"""Starts kyserial-camera for the tests that judge it from outside."""

import os
import subprocess
import sys
import threading


class Camera:
    """A running camera; ends with the 'with' block. Its lines of output are in 'lines'."""

    PATIENCE = 60  # seconds; a test that needs them has failed anyway

    def __init__(self, program, address, *options, broadcast=False):
        self.address = address
        self.lines = []
        self._changed = threading.Condition()
        self._ended = False
        self._process = subprocess.Popen(
            [program, "--address", address, *([] if broadcast else ["--no-broadcast"]), *options],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self._reader = threading.Thread(target=self._read)
        self._reader.start()

    def _read(self):
        for line in self._process.stdout:
            with self._changed:
                self.lines.append(line.rstrip("\n"))
                self._changed.notify_all()
        with self._changed:
            self._ended = True
            self._changed.notify_all()

    def wait_for(self, start):
        """The first line that begins so."""
        def find():
            return next((line for line in self.lines if line.startswith(start)), None)
        with self._changed:
            self._changed.wait_for(lambda: self._ended or find(), self.PATIENCE)
            assert find(), f"no line '{start}...' in {self.lines}"
            return find()

    def command(self, line):
        """Has a line of the console carried out, and returns the answer."""
        with self._changed:
            before = len(self.lines)
        self._process.stdin.write(line + "\n")
        self._process.stdin.flush()
        with self._changed:
            assert self._changed.wait_for(lambda: self._ended or len(self.lines) > before, self.PATIENCE)
            return self.lines[before]

    def statistics(self):
        words = self.command("stats").split()[1:]
        return {name: int(number) for name, number in (word.split("=") for word in words)}

    def __enter__(self):
        self.wait_for(f"kyserial-camera: ready at {self.address}:3956")
        return self

    def __exit__(self, *_):
        self._process.terminate()
        self._process.wait(self.PATIENCE)
        self._reader.join()
        self._process.stdin.close()
        self._process.stdout.close()

    @property
    def status(self):
        return self._process.returncode


def skip(reason):
    """Ends a test program as CTest knows a skipped one (SKIP_RETURN_CODE)."""
    print(f"skipped: {reason}")
    sys.exit(77)


def own_address(net):
    """A loopback address that is this process's alone."""
    return f"127.{net}.{os.getpid() // 250 % 250 + 1}.{os.getpid() % 250 + 1}"
