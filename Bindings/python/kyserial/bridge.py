"""Bridges: a port of the camera joined to a serial port of the host, or to Camera Link serial clients."""
import ctypes
from ctypes import byref

from ._handle import Closing, make, number, text, when_gone
from ._library import GENERATION, OBSERVER_FUNCTIONS, BridgeFlow, BridgeObserver, lib
from .device import port_number
from .errors import check
from .line import line_settings


def _flows(function, handle):
    """What one of the functions that give two flows gives, as dictionaries."""
    flows = [BridgeFlow(size=ctypes.sizeof(BridgeFlow)) for _ in range(2)]
    check(function(handle, *map(byref, flows)))
    names = [name for name, _ in BridgeFlow._fields_[2:]]
    return {way: {name: getattr(flow, name) for name in names} for way, flow in zip(("to_device", "from_device"), flows)}


_WAYS = ("to_device", "from_device")
_LOSSES = ("overrun", "cleared", "refused", "cut_off", "away")


def _settings(line):
    return {"baudrate": line.baudrate, "parity": "NEO"[line.parity], "bytesize": line.bytesize, "stopbits": line.stopbits}


def _observer_table(observer):
    """The functions of an observer's methods, in the library's form; those that it lacks stay null."""
    calls = {
        "traffic": lambda _, way, time, data, count:
            observer.traffic(_WAYS[way], time / 1e6, ctypes.string_at(data, count)),
        "loss": lambda _, way, reason, count: observer.loss(_WAYS[way], _LOSSES[reason], count),
        "device_gone": lambda _: observer.device_gone(),
        "device_back": lambda _, lost: observer.device_back(lost),
        "settings": lambda _, line: observer.settings(_settings(line.contents))}
    functions = {name: kind(calls[name]) for name, kind in OBSERVER_FUNCTIONS if hasattr(observer, name)}
    return BridgeObserver(size=ctypes.sizeof(BridgeObserver), **functions)


class Bridge(Closing):
    """Relays bytes from its making to close(); a context manager.

    Bridge(camera, "uart0", host="COM5") joins a port to one of the host, on Linux also host="/dev/ttyS4" or the path of a
    pseudo-terminal, with the line settings baudrate, parity, bytesize and stopbits.
    Bridge(camera, "uart0", server="Camera 1") serves Camera Link serial clients under that name.

    observer hears what the bridge does, by those of these methods that it has: traffic(way, time, data) with the way
    "to_device" or "from_device" and seconds since 1970, loss(way, reason, count) with a reason as in flows,
    device_gone(), device_back(lost) with the number of bytes to the camera that were lost meanwhile, and
    settings(line_settings). They are called on threads of the bridge, must not use the bridge, and should return soon.

    With reconnect=True the bridge goes on when the camera was away and is back; bytes to it are dropped and counted
    meanwhile ("away"). generation, a function without arguments, may give the number of the camera's connection: then
    the bridge also notices an absence that was over before it looked.
    """

    def __init__(self, device, port, host=None, server=None, *, observer=None, reconnect=False, generation=None, **settings):
        if (host is None) == (server is None):
            raise TypeError("Bridge() takes either host or server")
        if server is not None and settings:
            raise TypeError("clients choose the line settings of a server themselves")
        line = line_settings(**settings)
        self._device = device
        self._final = None
        self._handle = make(lib.KyBridgeCreate)
        self._finalizer = when_gone(self, lib.KyBridgeDestroy, self._handle)
        self._called = []  # stays as long as the library may call it
        try:
            self._prepare(observer, reconnect, generation)
            if host is not None:
                check(lib.KyBridgeStartHost(self._handle, host.encode(), byref(line), device._handle,
                                            port_number(port)))
            else:
                check(lib.KyBridgeStartClients(self._handle, server.encode(), device._handle, port_number(port)))
        except BaseException:
            self._finalizer()
            raise

    def _prepare(self, observer, reconnect, generation):
        if observer is not None:
            self._called.append(_observer_table(observer))
            check(lib.KyBridgeSetObserver(self._handle, byref(self._called[-1])))
        if reconnect:
            self._called.append(GENERATION(lambda _: generation()) if generation is not None else None)
            check(lib.KyBridgeSetReconnect(self._handle, 1, self._called[-1], None))

    def _end(self):
        self._final = _flows(lib.KyBridgeStopAndGetFlows, self._handle)

    def recover(self):
        """To be called when a camera that was disconnected is back."""
        check(lib.KyBridgeRecover(self._handle))

    def set_line_settings(self, **settings):
        """Changes baudrate, parity, bytesize and stopbits of both sides; those not given get their defaults."""
        check(lib.KyBridgeSetLineSettings(self._handle, byref(line_settings(**settings))))

    @property
    def line_settings(self):
        """A dictionary of baudrate, parity, bytesize and stopbits; None for a bridge to clients."""
        line = line_settings()
        check(lib.KyBridgeGetLineSettings(self._handle, byref(line)))
        if line.parity < 0:
            return None
        return _settings(line)

    @property
    def hard_coded_baudrate(self):
        """The only rate that clients are offered, if it has been set."""
        return number(lib.KyBridgeGetHardCodedBaudRate, self._handle)

    @hard_coded_baudrate.setter
    def hard_coded_baudrate(self, value):
        check(lib.KyBridgeSetHardCodedBaudRate(self._handle, value))

    @property
    def supported_baudrates(self):
        """The rates that camera and bridge have in common."""
        rates = []
        for index in range(number(lib.KyBridgeGetSupportedBaudRateCount, self._handle)):
            rate = ctypes.c_uint32()
            check(lib.KyBridgeGetSupportedBaudRate(self._handle, index, byref(rate)))
            rates.append(rate.value)
        return rates

    @property
    def baudrate(self):
        """The rate that the camera was set to last."""
        return number(lib.KyBridgeGetBaudRate, self._handle)

    @property
    def server(self):
        """The server's name; empty for a bridge to a host port."""
        return text(lib.KyBridgeGetName, self._handle)

    @property
    def host(self):
        """The host port's name; empty for a bridge to clients."""
        return text(lib.KyBridgeGetHostPort, self._handle)

    @property
    def port(self):
        """The number of the camera's port."""
        return number(lib.KyBridgeGetDevicePort, self._handle, ctypes.c_int32)

    @property
    def statistics(self):
        """Bytes to the camera, and from it, since the start or reset_statistics()."""
        to_device, from_device = ctypes.c_uint64(), ctypes.c_uint64()
        check(lib.KyBridgeGetStatistics(self._handle, byref(to_device), byref(from_device)))
        return to_device.value, from_device.value

    @property
    def flows(self):
        """What became of every byte, as {"to_device": {...}, "from_device": {...}}; after close() the final account.

        "taken" bytes are "delivered", lost for one of five reasons ("overrun": pushed out of the port's receive buffer,
        "cleared": dropped by recover(), "refused" by the receiving side, "cut_off" by the end, "away": the camera was
        away), or on their way.
        """
        return self._final or _flows(lib.KyBridgeGetFlows, self._handle)

    def reset_statistics(self):
        """Starts counting anew."""
        check(lib.KyBridgeResetStatistics(self._handle))
