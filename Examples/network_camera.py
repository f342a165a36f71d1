"""A camera on the network: finds cameras, or connects one and asks the lens on its first UART.

network_camera.py                       the cameras that answer
network_camera.py gev://192.168.1.20    this one, also by its MAC address, serial number, user name or model
"""
import sys

import kyserial

if len(sys.argv) > 1:
    with kyserial.open_device(sys.argv[1]) as camera, kyserial.Port(camera, "uart0", timeout=20) as port:
        port.write(b"STATUS?\r\n")
        print(port.readline().decode().strip())
else:
    for found in kyserial.list_devices():
        print(found.device, found.model, found.serial_number, found.control)
