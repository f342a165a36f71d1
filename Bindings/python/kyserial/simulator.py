"""A camera without hardware."""
import ctypes
from ctypes import byref

from ._handle import buffer_of, make, when_gone
from ._library import Adapter, SimOptions, simulator
from .device import Device, port_number
from .errors import check

_PLUGS = ("nothing", "loopback", "lens", "i2c", "flash")
_TRANSPORTS = ("gige vision", "alternate", "neither")


class SimulatedCamera(Device):
    """A simulated camera with nothing on its ports: see plug(). A context manager.

    transport is "gige vision", "alternate" or "neither"; without UARTs bulk port 0 is driven through features;
    unlimited_line_rate lets lines take no time.
    """

    def __init__(self, transport="gige vision", uart_count=2, unlimited_line_rate=False):
        self._lib = simulator()
        options = SimOptions(ctypes.sizeof(SimOptions), _TRANSPORTS.index(transport), uart_count,
                             unlimited_line_rate)
        self._camera = make(lambda out: self._lib.KySimCameraCreate(byref(options), out))
        self._camera_finalizer = when_gone(self, self._lib.KySimCameraDestroy, self._camera)
        table = Adapter(size=ctypes.sizeof(Adapter))
        check(self._lib.KySimCameraGetAdapter(self._camera, byref(table)))
        self._start(table)

    def close(self):
        """Ends the camera. Raises WRONG_STATE while something is open on it."""
        super().close()
        self._camera_finalizer()

    def plug(self, port, what):
        """Puts something on a port: "nothing", "loopback", "lens", "i2c" (an EEPROM at 0x50 and a sensor at 0x48) or
        "flash", and sets the port to the protocol that it speaks."""
        check(self._lib.KySimCameraPlug(self._camera, port_number(port), _PLUGS.index(what)))

    def inject(self, port, data):
        """Lets bytes arrive at a port from its line."""
        buffer, length = buffer_of(data)
        check(self._lib.KySimCameraInject(self._camera, port_number(port), buffer, length))

    def take_wire(self, port):
        """What has gone out on a port's line since the last call."""
        buffer = (ctypes.c_uint8 * 1048576)()
        count = ctypes.c_uint32()
        check(self._lib.KySimCameraTakeWire(self._camera, port_number(port), buffer, len(buffer), byref(count)))
        return bytes(buffer[:count.value])

    def set_connected(self, connected):
        """Cuts the connection, or brings it back."""
        check(self._lib.KySimCameraSetConnected(self._camera, connected))

    def wait_for_events(self):
        """Waits until every event that the camera has raised so far has been reported."""
        check(self._lib.KySimCameraWaitForEvents(self._camera))
