"""A camera's port as pySerial's Serial, for programs that are written for it. Needs pySerial.

    import serial
    port = serial.serial_for_url("ky://192.168.1.20/uart0", baudrate=115200, timeout=1)

Where pySerial is installed elsewhere than this package, serial_for_url() knows such names after "import kyserial.pyserial".

CAMERA in ky://CAMERA/PORT is an address, MAC address, serial number, user name or model, or "sim": a simulated camera of
the process. What is on a simulated port is chosen with ?plug=lens (the default), loopback or nothing.

Ports of one camera share its connection. Flow control, modem lines, breaks and RS485 do not exist on these ports: they
are remembered and have no effect.
"""
import ctypes
import threading
import time
from typing import Any, Dict, List, Optional, Tuple
from urllib.parse import parse_qs

import serial
from serial.serialutil import (EIGHTBITS, PARITY_EVEN, PARITY_NONE, PARITY_ODD, STOPBITS_ONE, STOPBITS_TWO,
                               PortNotOpenError, SerialBase, SerialException, SerialTimeoutException, to_bytes)

from . import errors
from .camera import Camera
from .device import Device
from .port import Port
from .simulator import SimulatedCamera

_handlers: List[str] = getattr(serial, "protocol_handler_packages")  # pySerial says nothing of its types
if "kyserial.urlhandler" not in _handlers:
    _handlers.append("kyserial.urlhandler")

_PIECE = 16  # bytes of a write between two looks at its time and at cancel_write()

_lock = threading.Lock()
_devices: Dict[str, List[Any]] = {}  # by camera: the device, and how many ports have it


def _acquire(name: str) -> Device:
    with _lock:
        if name not in _devices:
            _devices[name] = [SimulatedCamera() if name == "sim" else Camera(name), 0]
        _devices[name][1] += 1
        return _devices[name][0]


def _release(name: str) -> None:
    with _lock:
        entry = _devices[name]
        entry[1] -= 1
        if entry[1] == 0:
            del _devices[name]
            entry[0].close()


def _parse(url: str) -> Tuple[str, str, str]:
    """Camera, port and plug of ky://CAMERA/PORT[?plug=WHAT]."""
    scheme, _, rest = url.partition("://")
    path, _, query = rest.partition("?")
    camera, _, port = path.rpartition("/")
    options = parse_qs(query, strict_parsing=bool(query))
    plug = options.pop("plug", ["lens"])[0]
    if scheme.lower() != "ky" or not camera or not port or options:
        raise SerialException(f'expected "ky://CAMERA/PORT[?plug=WHAT]", not "{url}"')
    return camera, port, plug


class Serial(SerialBase):
    """A port of a camera; everything is as pySerial documents it for its own Serial."""

    is_open: bool
    BYTESIZES = (EIGHTBITS,)
    PARITIES = (PARITY_NONE, PARITY_EVEN, PARITY_ODD)
    STOPBITS = (STOPBITS_ONE, STOPBITS_TWO)

    def __init__(self, *args: Any, **kwargs: Any) -> None:
        self._ky: Optional[Port] = None
        self._camera = ""
        self._applied: Dict[str, Any] = {}
        self._cancel_write = threading.Event()
        super().__init__(*args, **kwargs)

    def open(self) -> None:
        """Opens the port with its settings. Raises SerialException when the camera or its port cannot be had."""
        if self.is_open:
            raise SerialException("Port is already open.")
        if self._port is None:
            raise SerialException("Port must be configured before it can be used.")
        camera, port, plug = _parse(self._port)
        try:
            device = _acquire(camera)
        except errors.KySerialError as error:
            raise SerialException(f"could not open camera {camera}: {error}") from error
        try:
            if camera == "sim":
                device.plug(port, plug)  # type: ignore[attr-defined]
            self._ky = Port(device, port)
            self._applied = {}
            self._reconfigure_port()
        except Exception as error:
            if self._ky is not None:
                self._ky.close()
                self._ky = None
            _release(camera)
            if isinstance(error, errors.KySerialError):
                raise SerialException(f"could not open port {self._port}: {error}") from error
            raise
        self._camera = camera
        self.is_open = True

    def close(self) -> None:
        """Gives the port back; that of a camera that is away too."""
        if not self.is_open:
            return
        self.is_open = False
        self.cancel_write()
        port, self._ky = self._ky, None
        try:
            if port is not None:
                port.close()
        finally:
            _release(self._camera)

    def _reconfigure_port(self) -> None:
        """Writes the settings that have changed to the camera."""
        if self._ky is None:
            return
        wanted = {"baudrate": self._baudrate, "parity": self._parity, "stopbits": self._stopbits}
        for name, value in wanted.items():
            if self._applied.get(name) != value:
                try:
                    setattr(self._ky, name, value)
                except errors.NoConnectionError as error:
                    raise SerialException(str(error)) from error
                except errors.KySerialError as error:
                    raise ValueError(f"invalid {name}: {value!r} ({error})") from error
                self._applied[name] = value

    def _open_port(self) -> Port:
        port = self._ky
        if not self.is_open or port is None:
            raise PortNotOpenError()
        return port

    @property
    def in_waiting(self) -> int:
        """Received bytes that wait to be read."""
        return self._open_port().in_waiting

    @property
    def out_waiting(self) -> int:
        """0: what write() has taken is in the camera's hands."""
        self._open_port()
        return 0

    def read(self, size: int = 1) -> bytes:
        """Up to size bytes: fewer when the time is over, or that between two bytes, or after cancel_read()."""
        port = self._open_port()
        data = bytearray()
        deadline = None if self._timeout is None else time.monotonic() + self._timeout
        while len(data) < size:
            until = deadline
            if data and self._inter_byte_timeout is not None:
                between = time.monotonic() + self._inter_byte_timeout
                until = between if until is None else min(until, between)
            # Byte by byte where the time between two counts.
            room = 1 if self._inter_byte_timeout is not None else min(size - len(data), 65536)
            buffer = (ctypes.c_uint8 * room)()
            try:
                count = port._wait(buffer, until, bool(data))
            except errors.KySerialError as error:
                raise SerialException(f"read failed: {error}") from error
            if count == 0:
                break
            data += memoryview(buffer)[:count]
        return bytes(data)

    def cancel_read(self) -> None:
        """Ends a read() of another thread, which gives what it has."""
        if self._ky is not None:
            self._ky.cancel_read()

    def cancel_write(self) -> None:
        """Ends a write() of another thread, which gives the number of bytes that have gone out."""
        self._cancel_write.set()

    def write(self, data: Any) -> int:
        """Sends bytes; returns their number. Raises SerialTimeoutException when write_timeout is over before the last
        of them."""
        port = self._open_port()
        self._cancel_write.clear()
        content = to_bytes(data)
        deadline = None if self._write_timeout is None else time.monotonic() + self._write_timeout
        done = 0
        while done < len(content) and not self._cancel_write.is_set():
            if deadline is not None and done > 0 and time.monotonic() > deadline:
                raise SerialTimeoutException("Write timeout")
            try:
                done += port.write(content[done:done + _PIECE])
            except errors.KySerialError as error:
                raise SerialException(f"write failed: {error}") from error
        return done

    def flush(self) -> None:
        """Nothing to do: what write() has taken is in the camera's hands."""
        self._open_port()

    def reset_input_buffer(self) -> None:
        """Drops the received bytes that nobody has read."""
        self._open_port().reset_input_buffer()

    def reset_output_buffer(self) -> None:
        """Nothing to do; see flush()."""
        self._open_port()

    def _update_break_state(self) -> None:
        """There is no break on these ports."""

    def _update_rts_state(self) -> None:
        """There are no modem lines on these ports."""

    def _update_dtr_state(self) -> None:
        """There are no modem lines on these ports."""

    def _no_line(self) -> bool:
        self._open_port()
        return False

    cts = dsr = ri = cd = property(_no_line, doc="False: there are no modem lines on these ports.")


def serial_class_for_url(url: str) -> Tuple[str, type]:
    """What serial_for_url() asks its handlers."""
    return url, Serial
