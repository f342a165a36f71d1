"""pySerial's socket:// and rfc2217:// clients and socat talk to ports of the service.

Usage: judge_clients.py KYSERIAL SOCAT
"""
import json
import subprocess
import sys

import serial

STATUS = b"STATUS READY ZOOM 0 FOCUS 1000 IRIS 100\r\n"


class Bridge:
    """A bridge of the simulated camera's port to clients over TCP."""

    def __init__(self, program, kind, port, *more):
        self.process = subprocess.Popen(
            [program, "bridge", "--device", "sim", "--port", port, "--" + kind, "0", "--stats-json", *more],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.host = json.loads(self.process.stdout.readline())["host"]

    def end(self):
        """Ends it. Returns its last report, in which every byte is accounted for."""
        self.process.terminate()
        report = json.loads(self.process.communicate(timeout=60)[0].strip().split("\n")[-1])
        assert self.process.returncode == 0
        for way in ("to_device", "from_device"):
            ledger = report[way]
            assert ledger["taken"] == ledger["delivered"] + sum(ledger["lost"].values()), report
        return report


def raw_client(program):
    bridge = Bridge(program, "tcp", "uart0")
    with serial.serial_for_url(bridge.host.replace("tcp://", "socket://"), timeout=60) as port:
        port.write(b"STATUS?\r\n")
        assert port.read(len(STATUS)) == STATUS
    assert bridge.end()["to_device"]["delivered"] == 9


def line_settings(program):
    for device_port in ("uart0", "bulk1"):
        bridge = Bridge(program, "rfc2217", device_port)
        with serial.serial_for_url(bridge.host, timeout=60, baudrate=115200, parity="E", stopbits=2) as port:
            port.write(b"STATUS?\r\n")
            assert port.read(len(STATUS)) == STATUS
            assert port.cts and port.dsr and port.cd
            port.baudrate = 57600
            port.parity = "O"
            port.stopbits = 1
            port.dtr = False
            port.rts = False
            try:
                port.bytesize = 7  # which the camera does not have
                raise AssertionError("seven bits were confirmed")
            except ValueError:
                pass
        assert bridge.end()["baud_rate"] == 57600


def every_byte(program):
    """All values in both directions, escapes of telnet included: bulk4 sends back what it gets."""
    data = bytes(range(256)) * 40 + b"\xff" * 300 + b"\r\n\r\0\r"
    bridge = Bridge(program, "rfc2217", "bulk4", "--sim-fast")
    with serial.serial_for_url(bridge.host, timeout=60) as port:
        port.write(data)
        assert port.read(len(data)) == data
        port.reset_output_buffer()
        port.reset_input_buffer()
    bridge.end()


def socat_client(program, socat):
    bridge = Bridge(program, "tcp", "bulk4", "--sim-fast")
    data = bytes(range(256)) * 80  # less than the pipes hold: nobody reads while it is sent
    with subprocess.Popen([socat, "-", bridge.host.replace("tcp://", "TCP:")], stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE) as client:
        client.stdin.write(data)
        client.stdin.flush()
        assert client.stdout.read(len(data)) == data
        client.stdin.close()
    assert bridge.end()["to_device"]["delivered"] == len(data)


if __name__ == "__main__":
    raw_client(sys.argv[1])
    line_settings(sys.argv[1])
    every_byte(sys.argv[1])
    socat_client(sys.argv[1], sys.argv[2])
