"""Cameras on the network."""
import ctypes
from ctypes import byref
from typing import NamedTuple

from . import errors
from ._handle import make, number, text, when_gone
from ._library import (FEATURE_FUNCTION, FOUND_FUNCTION, TEXT_FUNCTION, CameraOptions, CameraSearch, CameraState, cameras)
from .device import Device, port_name
from .errors import check

_CONTROLS = ("unknown", "free", "taken", "exclusive")
_KINDS = ("other", "integer", "float", "boolean", "enumeration", "string", "register", "command")


class FoundDevice(NamedTuple):
    """A camera that answered. device is what open_device() takes; control is "free", "taken", "exclusive" (others may not
    even read) or "unknown", controller the "ADDRESS:PORT" of the application in control, empty when it is not known."""

    device: str
    address: str
    port: int
    mac: str
    serial_number: str
    user_name: str
    vendor: str
    model: str
    version: str
    information: str
    interface: str
    control: str
    controller: str


class Feature(NamedTuple):
    """A feature of a camera: kind is "integer", "float", "boolean", "enumeration", "string", "register", "command" or
    "other"; the last three say what can be done with it now."""

    name: str
    kind: str
    category: str
    visibility: str
    tool_tip: str
    available: bool
    readable: bool
    writable: bool


class State(NamedTuple):
    """The connection to a camera. generation is 1 for the first connection, one more for each later one; losses is how often
    it was lost."""

    is_connected: bool
    generation: int
    losses: int


class PortInfo(NamedTuple):
    """A port of a camera, as serial.tools.list_ports has those of a computer: url is what serial_for_url() takes."""

    device: str
    name: str
    url: str


def _word(value):
    return value.decode(errors="replace")


def _found(form):
    controller = _word(form.controller)
    return FoundDevice(
        _word(form.device), _word(form.address), form.port, _word(form.mac), _word(form.serial_number),
        _word(form.user_name), _word(form.vendor), _word(form.model), _word(form.version), _word(form.information),
        _word(form.interface), _CONTROLS[form.control], f"{controller}:{form.controller_port}" if controller else "")


def _feature(form):
    return Feature(_word(form.name), _KINDS[form.kind], _word(form.category), _word(form.visibility),
                   _word(form.tool_tip), bool(form.access & 1), bool(form.access & 2), bool(form.access & 4))


def _collect(kind, convert, call):
    """The list of what a function gives to its function."""
    entries = []
    check(call(kind(lambda _, form: entries.append(convert(form)))))
    return entries


def list_devices(timeout=1.0, address=None, interface=None, port=3956, ask_control=True):
    """Looks for cameras and gives a list of FoundDevice; a camera comes once for each interface that reaches it.

    timeout is seconds to wait for answers; address asks one camera instead of all that a broadcast reaches; interface is the
    name or address of the only interface to look on.
    """
    search = CameraSearch(size=ctypes.sizeof(CameraSearch), time=int(timeout * 1000), address=address and address.encode(),
                          interface=interface and interface.encode(), port=port, ask_control=ask_control)
    return _collect(FOUND_FUNCTION, lambda form: _found(form.contents),
                    lambda function: cameras().KyCameraFind(byref(search), function, None, None))


class Camera(Device):
    """A camera on the network: Camera("gev://192.168.1.20"), or by its MAC address, serial number, user name or model.

    read_only takes no control, which another application may have. interface names the own network interface; search_time
    is seconds for a search by name. Other arguments are members of KyCameraOptions: timeout=100 (ms), attempts=8 ...

    A lost camera is connected again by itself when it is back (reconnect=False: by reconnect()). Ports on it raise
    NoConnectionError then and have to be made anew. A context manager.
    """

    def __init__(self, name, read_only=False, interface=None, search_time=1.0, reconnect=True, **options):
        self._lib = cameras()
        form = CameraOptions()
        check(self._lib.KyCameraOptionsInit(byref(form)))
        form.read_only, form.reconnect, form.search_time = read_only, reconnect, int(search_time * 1000)
        form.interface = interface and interface.encode()
        for option, value in options.items():
            if option not in (field for field, _ in CameraOptions._fields_[5:]):
                raise TypeError(f"Camera() has no argument {option}")
            setattr(form, option, value)
        self._camera = make(lambda out: self._lib.KyCameraOpen(name.encode(), byref(form), out))
        self._finalizer = when_gone(self, self._lib.KyCameraClose, self._camera)
        self._handle = number(self._lib.KyCameraGetDevice, self._camera, ctypes.c_uint64)

    def close(self):
        """Gives the camera back, lost or not. Raises WRONG_STATE while something is open on it; a second call does
        nothing."""
        if self._finalizer.alive:
            check(self._lib.KyCameraClose(self._camera))
            self._finalizer.detach()

    @property
    def state(self):
        """The State of the connection."""
        form = self._state()
        check(self._lib.KyCameraGetState(self._camera, byref(form)))
        return State(form.is_connected != 0, form.generation, form.losses)

    @staticmethod
    def _state(is_connected=0, generation=0):
        return CameraState(size=ctypes.sizeof(CameraState), is_connected=is_connected, generation=generation)

    def _generation(self):
        return self.state.generation

    def wait_for_change(self, state, timeout):
        """Waits until the connection is another one than in a State, for timeout seconds at most. Returns the new State,
        or None."""
        form = self._state(state.is_connected, state.generation)
        code = self._lib.KyCameraWaitForChange(self._camera, byref(form), int(timeout * 1000))
        if code == errors.TIMED_OUT:
            return None
        check(code)
        return State(form.is_connected != 0, form.generation, form.losses)

    def wait_until_connected(self, timeout):
        """Waits until the camera is there, for timeout seconds at most. Returns whether it is."""
        state = self.state
        while not state.is_connected:
            changed = self.wait_for_change(state, timeout)
            if changed is None:
                return False
            state = changed
        return True

    def reconnect(self):
        """Connects a lost camera again now."""
        check(self._lib.KyCameraReconnect(self._camera))

    @property
    def information(self):
        """What the camera says about itself: a FoundDevice."""
        return _collect(FOUND_FUNCTION, lambda form: _found(form.contents),
                        lambda function: self._lib.KyCameraGetInformation(self._camera, function, None))[0]

    def list_features(self):
        """The features for users, as a list of Feature."""
        return _collect(FEATURE_FUNCTION, lambda form: _feature(form.contents),
                        lambda function: self._lib.KyCameraListFeatures(self._camera, function, None, None))

    def describe_feature(self, name):
        """One Feature, also one that is not listed."""
        return _collect(FEATURE_FUNCTION, lambda form: _feature(form.contents),
                        lambda function: self._lib.KyCameraDescribeFeature(self._camera, name.encode(), function, None))[0]

    def list_entries(self, name):
        """The entries that an enumeration offers now."""
        return _collect(TEXT_FUNCTION, _word,
                        lambda function: self._lib.KyCameraListEntries(self._camera, name.encode(), function, None))

    def get_feature(self, name):
        """The value of one of the camera's features as text."""
        return text(self._lib.KyCameraGetFeature, self._camera, name.encode())

    def execute(self, name):
        """Executes a command of the camera."""
        check(self._lib.KyCameraExecute(self._camera, name.encode()))

    def list_ports(self):
        """The byte ports that the camera offers, as a list of PortInfo."""
        from .port import Port  # pylint: disable=import-outside-toplevel: ports know devices
        device = self.information.device
        place = device.split("://", 1)[1].split("?", 1)[0]
        return [PortInfo(device, port_name(port), f"ky://{place}/{port_name(port)}")
                for port in range(10) if Port.is_supported(self, port)]


def open_device(name, **options):
    """Opens a Camera: "gev://192.168.1.20", an address, or a MAC address, serial number, user name or model."""
    return Camera(name, **options)
