"""Devices: what ports, buses and bridges are opened on."""
import ctypes
from ctypes import byref

from . import errors
from ._handle import make, text, when_gone
from ._library import ADAPTER_FUNCTIONS, Adapter, lib
from .errors import KySerialError, check

UART0, UART1 = 0, 1
BULK0, BULK1, BULK2, BULK3, BULK4, BULK5, BULK6, BULK7 = range(2, 10)

_NAMES = ["uart0", "uart1"] + [f"bulk{number}" for number in range(8)]


def port_number(port):
    """The number of a port that is given as a number or as a name: "uart0", "bulk3"."""
    if isinstance(port, str):
        if port.lower() not in _NAMES:
            raise errors.failure(errors.BAD_PARAMETER, f"no such port: {port}")
        return _NAMES.index(port.lower())
    return int(port)


def port_name(number):
    """"uart0", "bulk3"; a number without a name as itself."""
    return _NAMES[number] if 0 <= number < len(_NAMES) else str(number)


class Device:
    """A connected camera. Made by SimulatedCamera, and by an adapter of your own, DeviceAdapter.

    A context manager; close() ends it, once nothing is open on it.
    """

    _handle = 0

    def _start(self, table):
        self._table = table  # the functions in it must stay
        self._handle = make(lambda out: lib.KyDeviceCreate(byref(table), out))
        self._finalizer = when_gone(self, lib.KyDeviceDestroy, self._handle)

    def close(self):
        """Ends the device. Raises WRONG_STATE while something is open on it; a second call does nothing."""
        if self._finalizer.alive:
            check(lib.KyDeviceDestroy(self._handle))
            self._finalizer.detach()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    @property
    def is_reachable(self):
        """Whether the camera can be reached now. It may have been away and back between two questions."""
        answer = ctypes.c_int32()
        check(lib.KyDeviceIsConnected(self._handle, byref(answer)))
        return answer.value != 0

    def _generation(self):
        """The number of the connection, where it is known: another one each time that the camera was away."""
        return 0

    def get_feature(self, name):
        """The value of one of the camera's features as text."""
        return text(lib.KyDeviceGetFeature, self._handle, name.encode())

    def set_feature(self, name, value):
        """Writes one of the camera's features: set_feature("BulkMode", "I2C")."""
        check(lib.KyDeviceSetFeature(self._handle, name.encode(), str(value).encode()))


class DeviceAdapter(Device):
    """Your own way to a camera: derive from it and define what the camera can do.

    Each function of the table is a method of the same name, in Python's manner: read_register(address) returns the
    value, write_memory(data, address) takes bytes, get_enum_entries(name) returns a list. What is not defined is
    answered with no, or UNSUPPORTED. Raise KySerialError(code, text) for a failure; any other exception becomes
    FAILURE with its text. Call super().__init__() when everything is there: questions come from then on, on any thread.
    """

    def __init__(self):
        functions = {name: kind(self._make(name)) for name, kind in ADAPTER_FUNCTIONS}
        self._start(Adapter(size=ctypes.sizeof(Adapter), **functions))

    def notify_event(self, event_id, data, timestamp=0):
        """Reports a device event, as a GigE Vision EVENT message carries it: data is its payload."""
        check(lib.KyDeviceNotifyEvent(self._handle, event_id, 0, 0, timestamp, bytes(data), len(data)))

    def notify_feature_invalidated(self, name):
        """Reports that a feature has changed that register_feature_interest() named."""
        check(lib.KyDeviceNotifyFeatureInvalidated(self._handle, name.encode()))

    def is_connected(self):
        """Whether the camera can be reached now."""
        return True

    # Beginnings and ends of interest need no answer; those who want to know define them.
    def post_write(self, milliseconds):
        """Time for whatever has to be done after a message was written."""

    def register_feature_interest(self, name):
        """Somebody wants to hear of the feature's changes."""

    def unregister_feature_interest(self, name):
        """One of them no longer does."""

    def _make(self, name):
        call = _CALLS.get(name, _plain)
        is_question = name.startswith("is_")

        def function(_context, *arguments):
            try:
                answer = call(self, name, *arguments)
                return int(bool(answer)) if is_question else errors.OK
            except KySerialError as error:
                code, reason = error.code, error.text
            except NotImplementedError:
                code, reason = errors.UNSUPPORTED, f"{type(self).__name__} has no {name}()."
            except Exception as error:  # pylint: disable=broad-except: nothing may get out into the library
                code, reason = errors.FAILURE, f"{type(error).__name__}: {error}"
            lib.KySetLastText(reason.encode())
            return 0 if is_question else code

        return function


def _method(adapter, name):
    method = getattr(adapter, name, None)
    if method is None:
        raise NotImplementedError
    return method


def _plain(adapter, name, *arguments):
    return _method(adapter, name)(*(value.decode() if isinstance(value, bytes) else value for value in arguments))


def _number(adapter, name, argument, out):
    out[0] = _plain(adapter, name, argument)


def _text(adapter, name, feature):
    check(lib.KyReturnText(str(_plain(adapter, name, feature)).encode()))


def _entries(adapter, name, feature):
    for entry in _plain(adapter, name, feature):
        check(lib.KyReturnText(str(entry).encode()))


def _write_memory(adapter, name, data, address, length):
    _method(adapter, name)(ctypes.string_at(data, length), address)


def _get_register_data(adapter, name, feature, buffer, length):
    data = _method(adapter, name)(feature.decode(), length)
    if len(data) != length:
        raise ValueError(f"{length} bytes were asked for, {len(data)} given")
    ctypes.memmove(buffer, bytes(data), length)


def _set_register_data(adapter, name, feature, data, length):
    _method(adapter, name)(feature.decode(), ctypes.string_at(data, length))


def _nothing(_adapter, _name, *_arguments):
    """Events are reported by notify_event(), to whoever listens."""


_CALLS = {
    "read_register": _number, "write_memory": _write_memory, "get_integer_value": _number,
    "get_register_length": _number, "get_enum_entries": _entries, "get_feature_as_string": _text,
    "get_string_value": _text, "get_register_data": _get_register_data, "set_register_data": _set_register_data,
    "register_event_sink": _nothing, "unregister_event_sink": _nothing}
