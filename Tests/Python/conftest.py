"""What the modules share."""
import itertools
import os
import re
import subprocess

import pytest

import kyserial

_names = itertools.count()


@pytest.fixture(autouse=True)
def quiet():
    """The library's log is silent: many of the tests are about failures."""
    kyserial.log.set_priority(kyserial.log.FATAL + 1)
    yield
    kyserial.log.set_priority(kyserial.log.WARNING)


@pytest.fixture
def camera():
    """A simulated camera whose lines take no time."""
    with kyserial.SimulatedCamera(unlimited_line_rate=True) as one:
        yield one


class CameraProgram:
    """A running kyserial-camera at a port that the system chose; commands of its console change it."""

    def __init__(self):
        self._process = subprocess.Popen(
            [os.environ["KYSERIAL_CAMERA_PROGRAM"], "--port", "0", "--no-broadcast"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        ready = next(line for line in self._process.stdout if "ready at " in line)
        self.place = re.search(r"ready at ([0-9.]+:\d+)", ready).group(1)
        self.device = f"gev://{self.place}"

    def command(self, line):
        """Has a command carried out and gives the answer."""
        self._process.stdin.write(line + "\n")
        self._process.stdin.flush()
        return self._process.stdout.readline()

    def close(self):
        self._process.kill()
        self._process.communicate()


@pytest.fixture
def network_camera():
    """A simulated camera on the network, in a process of its own."""
    program = CameraProgram()
    yield program
    program.close()


@pytest.fixture
def unique_name():
    """A name that no other test, process or run uses."""
    return f"KyPython{os.getpid()}x{next(_names)}x{os.urandom(4).hex()}"
