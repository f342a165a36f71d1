"""Line settings: the camera's features of a port, and those of a bridge."""
import contextlib

from . import errors
from ._library import LineSettings

_PARITIES = {"N": "None", "E": "Even", "O": "Odd"}


class LineFeatures:
    """Rate, parity and stop bits of one port, as the camera's features have them."""

    def __init__(self, device, port):
        self._device = device
        self._uart = port < 2
        self._name = f"Uart{port}" if self._uart else f"Bulk{port - 2}"

    @contextlib.contextmanager
    def _prefix(self):
        """What the features' names begin with. A camera with a selector for its bulk ports has it set meanwhile."""
        selected = None
        if not self._uart:
            try:
                selected = self._device.get_feature("BulkSelector")
            except errors.KySerialError:
                pass  # each port has features of its own then
        if selected is None:
            yield self._name
            return
        self._device.set_feature("BulkSelector", self._name)
        try:
            yield "Bulk"
        finally:
            self._device.set_feature("BulkSelector", selected)

    def _get(self, suffix):
        with self._prefix() as prefix:
            return self._device.get_feature(prefix + suffix)

    def _set(self, suffix, value):
        with self._prefix() as prefix:
            self._device.set_feature(prefix + suffix, value)

    @property
    def baudrate(self):
        """Bits per second."""
        return int(self._get("BaudRate").removeprefix("Baud"))

    @baudrate.setter
    def baudrate(self, value):
        self._set("BaudRate", f"Baud{value}")

    @property
    def parity(self):
        """"N", "E" or "O"."""
        return self._get("Parity")[:1]

    @parity.setter
    def parity(self, value):
        if value not in _PARITIES:
            raise errors.failure(errors.BAD_PARAMETER, f"parity is N, E or O, not {value}")
        self._set("Parity", _PARITIES[value])

    @property
    def stopbits(self):
        """1 or 2."""
        return 2 if self._get("NumOfStopBits") == "Two" else 1

    @stopbits.setter
    def stopbits(self, value):
        if value not in (1, 2):
            raise errors.failure(errors.BAD_PARAMETER, f"1 or 2 stop bits, not {value}")
        self._set("NumOfStopBits", "Two" if value == 2 else "One")


def line_settings(baudrate=9600, parity="N", bytesize=8, stopbits=1):
    """Line settings as the library takes them."""
    if parity not in _PARITIES:
        raise errors.failure(errors.BAD_PARAMETER, f"parity is N, E or O, not {parity}")
    size = LineSettings.stopbits.offset + LineSettings.stopbits.size
    return LineSettings(size, baudrate, "NEO".index(parity), bytesize, stopbits)
