"""I2C and SPI buses on bulk ports; the application is their master."""
import ctypes
import time
from ctypes import byref

from . import errors
from ._handle import Closing, buffer_of, make, when_gone
from ._library import lib
from .device import port_name, port_number
from .errors import check


class _Bus(Closing):
    """Open from its making to close(); a context manager."""

    _KIND = ""

    def __init__(self, device, port):
        self._device = device
        self.port = port_number(port)
        self._handle = make(self._function("Create"))
        self._finalizer = when_gone(self, self._function("Destroy"), self._handle)
        try:
            check(self._function("Open")(self._handle, device._handle, self.port))
        except BaseException:
            self._finalizer()
            raise

    @classmethod
    def _function(cls, name):
        return getattr(lib, f"Ky{cls._KIND}Bus{name}")

    @property
    def name(self):
        """"bulk3"."""
        return port_name(self.port)

    def _end(self):
        check(self._function("Close")(self._handle))

    @classmethod
    def is_supported(cls, device, port):
        """Whether the camera offers such a bus on the port."""
        answer = ctypes.c_int32()
        check(cls._function("IsSupported")(device._handle, port_number(port), byref(answer)))
        return answer.value != 0


class I2CBus(_Bus):
    """An I2C bus: I2CBus(camera, "bulk2"). The port's mode on the camera ("BulkMode") has to be I2C.

    fast is 400 kHz instead of 100 kHz. Slave addresses are 7-bit values. Reads raise TimedOutError when the slave does
    not answer; bytes that had come are then in its attribute data.
    """

    _KIND = "I2C"

    def __init__(self, device, port, fast=True):
        self.fast = fast
        super().__init__(device, port)

    def write(self, slave, data, stop=True):
        """One write transaction. Without stop the next one begins with a repeated start."""
        buffer, length = buffer_of(data)
        check(lib.KyI2CBusWrite(self._handle, slave, buffer, length, self.fast, stop))

    def read(self, slave, size, stop=True):
        """One read transaction of size bytes."""
        return self._read(size, lambda buffer, count: lib.KyI2CBusRead(
            self._handle, slave, buffer, size, count, self.fast, stop))

    def write_register(self, slave, offset, data):
        """Writes behind an offset: one transaction that begins with it."""
        buffer, length = buffer_of(data)
        check(lib.KyI2CBusIndirectWrite(self._handle, slave, offset, buffer, length, self.fast))

    def read_register(self, slave, offset, size, combined=True):
        """Writes an offset and reads from there; combined: with a repeated start between."""
        return self._read(size, lambda buffer, count: lib.KyI2CBusIndirectRead(
            self._handle, slave, offset, buffer, size, count, self.fast, combined))

    @staticmethod
    def _read(size, transfer):
        buffer = (ctypes.c_uint8 * max(size, 1))()
        count = ctypes.c_uint32()
        code = transfer(buffer, byref(count))
        try:
            check(code)
        except errors.TimedOutError as error:
            error.data = bytes(buffer[:count.value])
            raise
        return bytes(buffer[:count.value])

    def scan(self):
        """The addresses from 0x08 to 0x77 that acknowledge. Needs a camera that reports a missing acknowledge.

        It writes one byte, 0, to each address.
        """
        found = []
        for slave in range(0x08, 0x78):
            try:
                self.write(slave, b"\0")
                found.append(slave)
            except errors.KySerialError as error:
                if error.code == errors.NO_CONNECTION:
                    raise
        return found


class SPIBus(_Bus):
    """An SPI bus: SPIBus(camera, "bulk3"). The port's mode on the camera ("BulkMode") has to be SPI."""

    _KIND = "SPI"

    def transfer(self, data=b"", read=0, simultaneous=False, final=True, timeout=1.0):
        """Writes data (255 bytes at most) and gives read bytes (255 at most).

        simultaneous reads while it writes; final releases the slave. Raises TimedOutError when the bytes have not come
        in timeout seconds.
        """
        buffer, length = buffer_of(data)
        check(lib.KySPIBusTransfer(self._handle, buffer, length, read, simultaneous, final))
        received = bytearray()
        deadline = time.monotonic() + timeout
        while len(received) < read:
            into = (ctypes.c_uint8 * (read - len(received)))()
            count = ctypes.c_uint32()
            left = max(0, int((deadline - time.monotonic()) * 1000))
            check(lib.KySPIBusRead(self._handle, into, len(into), byref(count), left))
            received += bytes(into[:count.value])
        return bytes(received)
