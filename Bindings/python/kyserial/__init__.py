"""Serial ports, buses and bridges of machine-vision cameras.

    import kyserial

    with kyserial.SimulatedCamera() as camera:
        camera.plug("uart0", "lens")
        with kyserial.Port(camera, "uart0", timeout=1) as port:
            port.write(b"STATUS?\\r\\n")
            print(port.readline())

    for found in kyserial.list_devices():
        print(found.device, found.model, found.serial_number)
    with kyserial.open_device("gev://192.168.1.20") as camera, kyserial.Port(camera, "uart0", timeout=1) as port:
        ...

Failures are KySerialError with code, name and text.
"""
from . import errors, log
from ._library import lib as _lib
from .bridge import Bridge
from .buses import I2CBus, SPIBus
from .camera import Camera, Feature, FoundDevice, PortInfo, State, list_devices, open_device
from .device import (BULK0, BULK1, BULK2, BULK3, BULK4, BULK5, BULK6, BULK7, UART0, UART1, Device, DeviceAdapter)
from .errors import KySerialError, NoConnectionError, TimedOutError
from .port import Port
from .simulator import SimulatedCamera

__all__ = ["BULK0", "BULK1", "BULK2", "BULK3", "BULK4", "BULK5", "BULK6", "BULK7", "UART0", "UART1", "Bridge",
           "Camera", "Device", "DeviceAdapter", "Feature", "FoundDevice", "I2CBus", "KySerialError", "NoConnectionError",
           "Port", "PortInfo", "SPIBus", "SimulatedCamera", "State", "TimedOutError", "errors", "list_devices", "log",
           "open_device"]

_version = _lib.KyGetVersion()
__version__ = f"{_version >> 16}.{_version >> 8 & 255}.{_version & 255}"
