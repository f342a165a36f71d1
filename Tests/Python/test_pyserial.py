"""The port as pySerial's Serial: what pySerial documents for its own."""
import pathlib
import threading
import time

import pytest

import serial
import serial.urlhandler
from kyserial import pyserial
from serial.serialutil import SerialBase

PATIENCE = 20
LOOP = "ky://sim/uart0?plug=loopback"


def test_the_handler_that_is_installed_into_pyserial_is_the_same(monkeypatch):
    folder = pathlib.Path(pyserial.__file__).parents[1] / "serial" / "urlhandler"
    monkeypatch.setattr(serial.urlhandler, "__path__", [*serial.urlhandler.__path__, str(folder)])
    monkeypatch.setattr(serial, "protocol_handler_packages", ["serial.urlhandler"])
    with serial.serial_for_url("ky://sim/uart0") as port:
        assert isinstance(port, pyserial.Serial)


def test_the_url_gives_a_port_that_talks_to_the_lens():
    with serial.serial_for_url("ky://sim/uart0", timeout=PATIENCE) as port:
        assert isinstance(port, SerialBase)
        assert (port.is_open, port.name, port.baudrate) == (True, "ky://sim/uart0", 9600)
        assert port.write(b"ID?\r\n") == 5
        assert port.readline() == b"ID KYLENS 1.0\r\n"
    assert not port.is_open


def test_a_camera_on_the_network(network_camera):
    with serial.serial_for_url(f"ky://{network_camera.place}/uart0", timeout=PATIENCE) as port, \
            serial.serial_for_url(f"ky://{network_camera.place}/uart1", timeout=0) as other:
        port.write(b"ID?\r\n")
        assert port.readline() == b"ID KYLENS 1.0\r\n"
        assert other.read(1) == b""
    network_camera.command("unplug")
    with pytest.raises(serial.SerialException):
        serial.serial_for_url(f"ky://{network_camera.place}/uart0")


@pytest.mark.parametrize("url", ["ky://sim", "ky://sim/", "ky://sim/uart7", "ky://sim/uart0?colour=red", "ky:///uart0",
                                 "ky://sim/uart0?plug=nonsense"])
def test_a_url_without_sense_is_refused(url):
    with pytest.raises((serial.SerialException, ValueError)):
        serial.serial_for_url(url)
    serial.serial_for_url("ky://sim/uart0").close()  # nothing is left claimed


def test_it_is_opened_and_closed_when_asked():
    port = serial.serial_for_url(LOOP, do_not_open=True, timeout=PATIENCE)
    assert not port.is_open
    for call in (port.read, lambda: port.write(b"x"), port.flush, lambda: port.in_waiting, port.reset_input_buffer,
                 lambda: port.cts):
        with pytest.raises(serial.SerialException):
            call()
    port.open()
    with pytest.raises(serial.SerialException):
        port.open()
    port.write(b"x")
    assert port.read() == b"x"
    port.close()
    port.close()
    port.open()
    assert port.is_open
    port.close()
    with pytest.raises(serial.SerialException):
        pyserial.Serial().open()


def test_settings_are_applied_and_restored():
    with serial.serial_for_url(LOOP, timeout=1) as port:
        settings = port.get_settings()
        port.apply_settings({"baudrate": 115200, "parity": "E", "stopbits": 2, "timeout": 3})
        assert (port.baudrate, port.parity, port.stopbits, port.timeout) == (115200, "E", 2, 3)
        assert port._ky.baudrate == 115200 and port._ky.parity == "E" and port._ky.stopbits == 2
        port.apply_settings(settings)
        assert port.get_settings() == settings
        assert port._ky.baudrate == 9600
        for name, value in (("baudrate", -1), ("baudrate", 12345), ("parity", "M"), ("stopbits", 1.5), ("bytesize", 7),
                            ("timeout", -1), ("timeout", "x")):
            with pytest.raises(ValueError):
                setattr(port, name, value)


def test_reads_end_in_time():
    with serial.serial_for_url(LOOP, timeout=0) as port:
        assert port.read(10) == b""
        port.timeout = 0.05
        start = time.monotonic()
        assert port.read(10) == b""
        assert time.monotonic() - start >= 0.05
        port.timeout = None
        port.inter_byte_timeout = 0.2
        port.write(b"abc")
        assert port.read(10) == b"abc"


def test_a_read_and_a_write_are_cancelled():
    with serial.serial_for_url(LOOP, timeout=None) as port:
        threading.Timer(0.05, port.cancel_read).start()
        assert port.read(1) == b""
        threading.Timer(0.2, port.cancel_write).start()  # the line takes two seconds
        assert port.write(bytes(2000)) < 2000


def test_a_write_that_takes_too_long_says_so():
    with serial.serial_for_url(LOOP, write_timeout=0.02) as port:
        with pytest.raises(serial.SerialTimeoutException):
            port.write(bytes(2000))


def test_a_lost_camera_raises(network_camera):
    with serial.serial_for_url(f"ky://{network_camera.place}/uart0", timeout=None) as port:
        network_camera.command("unplug")
        with pytest.raises(serial.SerialException):
            port.read(1)
        with pytest.raises(serial.SerialException):
            port.write(b"x")
    assert not port.is_open
