"""Byte ports, with the habits of pySerial."""
import ctypes
import io
import threading
import time
from ctypes import byref

from . import errors
from ._handle import buffer_of, make, number, when_gone
from ._library import lib
from .device import port_name, port_number
from .errors import TimedOutError, check
from .line import LineFeatures

_SLICE_MS = 100  # how long a wait in the library lasts, so that closing and interrupting need not wait longer


def _end(handle):
    """Closes and destroys: what a program that has forgotten its port, or ends, leaves to do."""
    opened = ctypes.c_int32()
    if lib.KyPortIsOpened(handle, byref(opened)) == errors.OK and opened.value:
        lib.KyPortClose(handle)
    lib.KyPortDestroy(handle)


class Port(io.RawIOBase):
    """A UART or bulk port of a camera: Port(camera, "uart0", timeout=1).

    read(), write(), readline(), in_waiting, timeout and so on are those of pySerial's Serial; it may stand under
    io.BufferedReader and io.BufferedRWPair. There is no buffer on the way out: what write() has taken is in the
    camera's hands, so flush() and reset_output_buffer() have nothing to do.

    timeout and write_timeout are seconds; None waits without end, 0 does not wait. One thread may read while another
    writes.

    baudrate, bytesize, parity and stopbits are the camera's features of the port. They are only set when they are given
    here or assigned to; the camera keeps them.
    """

    def __init__(self, device, port, timeout=None, write_timeout=None, **line):
        super().__init__()
        self._device = device
        self.port = port_number(port)
        self.timeout = timeout
        self.write_timeout = write_timeout
        self._line = LineFeatures(device, self.port)
        self._cancelled = threading.Event()
        self._returned = bytearray()  # what a reader has given back; read before what the camera sends
        self._handle = make(lib.KyPortCreate)
        self._finalizer = when_gone(self, _end, self._handle)
        self._opened = False
        self._generation = device._generation()
        try:
            check(lib.KyPortOpen(self._handle, device._handle, self.port))
            self._opened = True
            for name, value in line.items():
                if not hasattr(type(self), name):
                    raise TypeError(f"Port() has no argument {name}")
                setattr(self, name, value)
        except BaseException:
            self.close()
            raise

    @property
    def name(self):
        """"uart0", "bulk3"."""
        return port_name(self.port)

    @property
    def is_open(self):
        """Whether close() has not been called."""
        return not self.closed

    @property
    def is_connected(self):
        """Whether the camera is there and has been since the port was opened. If not, the port has to be made anew:
        the camera has forgotten it."""
        self._check_open()
        return self._device.is_reachable and self._device._generation() == self._generation

    def close(self):
        """Ends reading and gives the port back, also that of a camera that is away. A second call does nothing."""
        if self.closed:
            return
        super().close()
        self.cancel_read()
        try:
            if self._opened and self._finalizer.alive:
                code = lib.KyPortClose(self._handle)
                if code != errors.NO_CONNECTION:  # the next one that opens the port closes it when the camera is back
                    check(code)
        finally:
            self._finalizer()

    def _check_open(self):
        if self.closed:
            raise errors.failure(errors.NO_CONNECTION, "The port is closed.")

    def readable(self):
        """True."""
        return True

    def writable(self):
        """True."""
        return True

    @property
    def in_waiting(self):
        """Received bytes that wait to be read."""
        self._check_open()
        return len(self._returned) + number(lib.KyPortGetRxBytesReady, self._handle)

    @property
    def out_waiting(self):
        """0: nothing waits on this side."""
        self._check_open()
        return 0

    def cancel_read(self):
        """Ends a read() of another thread, which gives what it has."""
        self._cancelled.set()

    def _wait(self, buffer, deadline, have=False):
        """Reads what is there into a C array, waiting for the first byte. Returns the count; 0 at the deadline, and where
        the caller has bytes to give also when the camera is lost: the next read raises then."""
        if self._returned:
            given = bytes(self._returned[:len(buffer)])
            ctypes.memmove(buffer, given, len(given))
            del self._returned[:len(given)]
            return len(given)
        count = ctypes.c_uint32()
        while not self._cancelled.is_set():
            left = _SLICE_MS if deadline is None else (deadline - time.monotonic()) * 1000
            slice_ms = max(0, min(_SLICE_MS, int(left) + (left > int(left))))
            code = lib.KyPortRead(self._handle, buffer, len(buffer), byref(count), slice_ms)
            if code == errors.OK and count.value > 0:
                return count.value
            if code not in (errors.OK, errors.TIMED_OUT):
                if self.closed:
                    return 0
                check(code)
            if not self.closed and not self.is_connected:
                if have:
                    return 0
                raise errors.failure(errors.NO_CONNECTION, "The camera is away, or was since the port was opened.")
            if deadline is not None and time.monotonic() >= deadline:
                return 0
        self._cancelled.clear()
        return 0

    def _deadline(self):
        return None if self.timeout is None else time.monotonic() + self.timeout

    def read(self, size=1):
        """Up to size bytes: fewer only when the time is over. size -1 reads until nothing comes for timeout."""
        self._check_open()
        if size is None or size < 0:
            return self.readall()
        data = bytearray()
        deadline = self._deadline()
        while len(data) < size:
            buffer = (ctypes.c_uint8 * min(size - len(data), 65536))()
            count = self._wait(buffer, deadline, bool(data))
            if count == 0:
                break
            data += memoryview(buffer)[:count]
        return bytes(data)

    def readinto(self, target):
        """Reads what is there, waiting for the first byte. Returns the count; 0 when the time is over."""
        self._check_open()
        view = memoryview(target).cast("B")
        if len(view) == 0:
            return 0
        buffer = (ctypes.c_uint8 * len(view))()
        count = self._wait(buffer, self._deadline())
        view[:count] = memoryview(buffer)[:count].tobytes()
        return count

    def readall(self):
        """Reads until nothing comes for the time-out, which must not be None."""
        if self.timeout is None:
            raise ValueError("reading everything needs a time-out")
        data = bytearray()
        while True:
            buffer = (ctypes.c_uint8 * 65536)()
            count = self._wait(buffer, self._deadline(), bool(data))
            if count == 0:
                return bytes(data)
            data += memoryview(buffer)[:count]

    def read_all(self):
        """What waits to be read, without waiting."""
        return self.read(self.in_waiting)

    def read_until(self, expected=b"\n", size=None):
        """Reads up to and with expected, or size bytes, or what came in time."""
        data = bytearray()
        deadline = self._deadline()
        self._check_open()
        while not data.endswith(expected) and (size is None or len(data) < size):
            buffer = (ctypes.c_uint8 * 1)()
            if self._wait(buffer, deadline, bool(data)) == 0:
                break
            data += bytes(buffer)
        return bytes(data)

    def write(self, data):
        """Sends bytes; returns their number. Raises TimedOutError when write_timeout is over before the last of them."""
        self._check_open()
        buffer, length = buffer_of(data)
        # With a time limit in small pieces: a UART takes a millisecond and more for a byte.
        piece = length if self.write_timeout is None else 16
        deadline = None if self.write_timeout is None else time.monotonic() + self.write_timeout
        done = 0
        written = ctypes.c_uint32()
        while done < length:
            if deadline is not None and done > 0 and time.monotonic() > deadline:
                raise TimedOutError(errors.TIMED_OUT, f"{done} of {length} bytes were written in time.")
            address = ctypes.addressof(buffer) + done
            check(lib.KyPortWrite(self._handle, address, min(piece, length - done), byref(written)))
            done += written.value
        return length

    def flush(self):
        """Nothing to do; see the class."""

    def reset_input_buffer(self):
        """Drops the received bytes that nobody has read."""
        self._check_open()
        self._returned.clear()
        check(lib.KyPortFlushRxBuffer(self._handle))

    def reset_output_buffer(self):
        """Nothing to do; see the class."""
        self._check_open()

    def set_buffer_size(self, rx_size):
        """Makes the receive buffer anew, for rx_size bytes; it holds 16383 at first. Waiting bytes are dropped."""
        self._check_open()
        check(lib.KyPortSetRxBufferSize(self._handle, rx_size + 1))

    @property
    def baudrate(self):
        """Bits per second."""
        return self._line.baudrate

    @baudrate.setter
    def baudrate(self, value):
        self._line.baudrate = value

    @property
    def parity(self):
        """"N", "E" or "O"."""
        return self._line.parity

    @parity.setter
    def parity(self, value):
        self._line.parity = value

    @property
    def stopbits(self):
        """1 or 2."""
        return self._line.stopbits

    @stopbits.setter
    def stopbits(self, value):
        self._line.stopbits = value

    @property
    def bytesize(self):
        """8: the camera's ports know no other."""
        return 8

    @bytesize.setter
    def bytesize(self, value):
        if value != 8:
            raise errors.failure(errors.UNSUPPORTED, "The camera's ports have eight data bits.")

    @staticmethod
    def is_supported(device, port):
        """Whether the camera offers the port."""
        answer = ctypes.c_int32()
        check(lib.KyPortIsSupported(device._handle, port_number(port), byref(answer)))
        return answer.value != 0
