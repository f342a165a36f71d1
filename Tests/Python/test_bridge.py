"""Bridges to a pseudo-terminal, and as servers."""
import os
import pty
import select
import time
import tty

import pytest

import kyserial

PATIENCE = 20


@pytest.fixture
def terminal():
    """A pseudo-terminal: what a program at the far end has, and the path for the bridge."""
    far, near = pty.openpty()
    tty.setraw(near)
    path = os.ttyname(near)
    yield far, path
    os.close(far)
    os.close(near)


def read_until(far, end):
    data = b""
    while not data.endswith(end):
        assert select.select([far], [], [], PATIENCE)[0], data
        data += os.read(far, 1000)
    return data


def test_a_host_port_talks_to_the_lens(camera, terminal):
    far, path = terminal
    camera.plug("bulk1", "lens")
    with kyserial.Bridge(camera, "bulk1", host=path, baudrate=115200) as bridge:
        assert (bridge.host, bridge.server, bridge.port) == (path, "", kyserial.BULK1)
        assert bridge.line_settings == {"baudrate": 115200, "parity": "N", "bytesize": 8, "stopbits": 1}
        assert bridge.baudrate == 115200
        assert 9600 in bridge.supported_baudrates
        os.write(far, b"ID?\r\n")
        assert read_until(far, b"\n") == b"ID KYLENS 1.0\r\n"
        deadline = time.monotonic() + PATIENCE
        while bridge.statistics != (5, 15):  # bytes are counted when they have been passed on
            assert time.monotonic() < deadline, bridge.statistics
        flow = {"overrun": 0, "cleared": 0, "refused": 0, "cut_off": 0, "away": 0}
        assert bridge.flows == {"to_device": {"taken": 5, "delivered": 5, **flow},
                                "from_device": {"taken": 15, "delivered": 15, **flow}}
        bridge.reset_statistics()
        assert bridge.statistics == (0, 0)
        bridge.set_line_settings(baudrate=19200)
        assert bridge.line_settings["baudrate"] == 19200
        bridge.recover()
        with pytest.raises(kyserial.KySerialError):
            kyserial.Port(camera, "bulk1")
        with pytest.raises(kyserial.KySerialError) as error:
            bridge.hard_coded_baudrate = 9600
        assert error.value.code == kyserial.errors.WRONG_STATE
    assert bridge.flows == {way: {"taken": 0, "delivered": 0, **flow} for way in ("to_device", "from_device")}
    kyserial.Port(camera, "bulk1").close()


def test_a_server_has_its_name_and_rates(camera, unique_name):
    with kyserial.Bridge(camera, "bulk1", server=unique_name) as bridge:
        assert (bridge.server, bridge.host, bridge.line_settings) == (unique_name, "", None)
        bridge.hard_coded_baudrate = 57600
        assert bridge.hard_coded_baudrate == 57600
        with pytest.raises(kyserial.KySerialError):
            kyserial.Bridge(camera, "bulk2", server=unique_name)


class Witness:
    """Writes down what a bridge reports."""

    def __init__(self):
        self.lines = []
        self.data = {"to_device": b"", "from_device": b""}

    def traffic(self, way, time_of_it, data):
        assert abs(time_of_it - time.time()) < PATIENCE
        self.data[way] += data

    def loss(self, way, reason, count):
        self.lines.append((way, reason, count))

    def device_gone(self):
        self.lines.append("gone")

    def device_back(self, lost):
        self.lines.append(f"back {lost}")

    def settings(self, line):
        self.lines.append(line["baudrate"])


def wait_until(condition):
    deadline = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < deadline
        time.sleep(0.01)


def test_an_observer_hears_what_the_bridge_does(camera, terminal):
    far, path = terminal
    camera.plug("bulk1", "lens")
    witness = Witness()
    with kyserial.Bridge(camera, "bulk1", host=path, observer=witness, reconnect=True, generation=lambda: 1) as bridge:
        os.write(far, b"ID?\r\n")
        assert read_until(far, b"\n") == b"ID KYLENS 1.0\r\n"
        wait_until(lambda: witness.data == {"to_device": b"ID?\r\n", "from_device": b"ID KYLENS 1.0\r\n"})
        camera.set_connected(False)
        wait_until(lambda: "gone" in witness.lines)
        os.write(far, b"lost")
        wait_until(lambda: bridge.flows["to_device"]["away"] == 4)
        camera.set_connected(True)
        wait_until(lambda: "back 4" in witness.lines)
        os.write(far, b"ID?\r\n")
        assert read_until(far, b"\n") == b"ID KYLENS 1.0\r\n"
    assert witness.lines == [9600, "gone", ("to_device", "away", 4), 9600, "back 4"]


def test_an_observer_may_have_no_method_at_all(camera, terminal):
    far, path = terminal
    camera.plug("bulk1", "lens")
    with kyserial.Bridge(camera, "bulk1", host=path, observer=object()):
        os.write(far, b"ID?\r\n")
        assert read_until(far, b"\n") == b"ID KYLENS 1.0\r\n"


def test_it_says_what_is_wrong(camera):
    with pytest.raises(kyserial.KySerialError) as error:
        kyserial.Bridge(camera, "bulk1", host="no such name")
    assert error.value.code == kyserial.errors.BAD_PARAMETER
    with pytest.raises(kyserial.KySerialError) as error:
        kyserial.Bridge(camera, "bulk1", host="COM1", baudrate=4800)
    assert "9600" in error.value.text or "valid" in error.value.text
    with pytest.raises(kyserial.KySerialError):
        kyserial.Bridge(camera, "bulk1", host="COM1", parity="M")
    with pytest.raises(TypeError):
        kyserial.Bridge(camera, "bulk1")
    with pytest.raises(TypeError):
        kyserial.Bridge(camera, "bulk1", server="x", baudrate=9600)
