"""What the modules share."""
import itertools
import os

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


@pytest.fixture
def unique_name():
    """A name that no other test, process or run uses."""
    return f"KyPython{os.getpid()}x{next(_names)}x{os.urandom(4).hex()}"
