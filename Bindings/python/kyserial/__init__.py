"""Serial ports, buses and bridges of machine-vision cameras.

    import kyserial

    with kyserial.SimulatedCamera() as camera:
        camera.plug("uart0", "lens")
        with kyserial.Port(camera, "uart0", timeout=1) as port:
            port.write(b"STATUS?\\r\\n")
            print(port.readline())

Failures are KySerialError with code, name and text.
"""
from . import errors, log
from ._library import lib as _lib
from .bridge import Bridge
from .buses import I2CBus, SPIBus
from .device import (BULK0, BULK1, BULK2, BULK3, BULK4, BULK5, BULK6, BULK7, UART0, UART1, Device, DeviceAdapter)
from .errors import KySerialError, NoConnectionError, TimedOutError
from .port import Port
from .simulator import SimulatedCamera

__all__ = ["BULK0", "BULK1", "BULK2", "BULK3", "BULK4", "BULK5", "BULK6", "BULK7", "UART0", "UART1", "Bridge",
           "Device", "DeviceAdapter", "I2CBus", "KySerialError", "NoConnectionError", "Port", "SPIBus",
           "SimulatedCamera", "TimedOutError", "errors", "log"]

_version = _lib.KyGetVersion()
__version__ = f"{_version >> 16}.{_version >> 8 & 255}.{_version & 255}"
