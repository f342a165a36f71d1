"""Other people's clients talk to ports of the service: pySerial's socket:// and rfc2217://, socat, ncat, and ser2net, which passes
on what its own clients want. tshark reads the record of a port.

Usage: judge_clients.py KYSERIAL SOCAT [--ncat NCAT] [--ser2net SER2NET] [--tshark TSHARK]
"""
import argparse
import contextlib
import json
import os
import random
import re
import socket
import subprocess
import tempfile
import time

import serial

TELNET = (b"\xff\xfb", b"\xff\xfd")  # offers and wishes
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


def through_pipes(bridge, command, data, answer):
    """A program that passes its input to the port, and what comes to its output."""
    with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as client:
        client.stdin.write(data)
        client.stdin.flush()
        first = client.stdout.read(len(answer))
        while first.startswith(TELNET):  # ncat shows its user the options that it answers
            first = first[3:] + client.stdout.read(3)
        assert first == answer, first
        client.stdin.close()
        client.terminate()
    report = bridge.end()
    assert report["to_device"]["delivered"] == len(data), report
    assert report["from_device"]["delivered"] == len(answer), report


def socat_client(program, socat):
    bridge = Bridge(program, "tcp", "bulk4", "--sim-fast")
    data = bytes(range(256)) * 80  # less than the pipes hold: nobody reads while it is sent
    through_pipes(bridge, [socat, "-", bridge.host.replace("tcp://", "TCP:")], data, data)


def ncat_client(program, ncat):
    bridge = Bridge(program, "tcp", "bulk4", "--sim-fast")
    data = bytes(range(256)) * 80
    through_pipes(bridge, [ncat, *bridge.host.rpartition("/")[2].split(":")], data, data)
    bridge = Bridge(program, "rfc2217", "bulk1")
    through_pipes(bridge, [ncat, "--telnet", *bridge.host.rpartition("/")[2].split(":")], b"STATUS?\r\n", STATUS)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


@contextlib.contextmanager
def behind(ser2net, layer, bridge, url, **settings):
    """A pySerial port at ser2net, which is a client of the bridge."""
    number = free_port()
    entry = (f"connection: &judge#  accepter: {layer}tcp,127.0.0.1,{number}#  "
             f"connector: {layer}tcp,{bridge.host.rpartition('/')[2].replace(':', ',')}#")
    process = subprocess.Popen([ser2net, "-n", "-u", "-Y", entry], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        end = time.monotonic() + 60
        while True:  # it comes up, and then connects
            try:
                port = serial.serial_for_url(f"{url}://127.0.0.1:{number}", timeout=60, **settings)
                break
            except serial.SerialException:
                assert time.monotonic() < end and process.poll() is None, "ser2net lets nobody in"
                time.sleep(0.1)
        with port:
            yield port
    finally:
        process.kill()
        process.wait()


def ser2net_client(program, ser2net):
    data = bytes(range(256)) * 40 + b"\xff" * 300
    bridge = Bridge(program, "tcp", "bulk4", "--sim-fast")
    with behind(ser2net, "", bridge, "socket") as port:
        port.write(data)
        assert port.read(len(data)) == data
    bridge.end()
    bridge = Bridge(program, "rfc2217", "bulk4", "--sim-fast")
    with behind(ser2net, "telnet(rfc2217),", bridge, "rfc2217", baudrate=38400) as port:
        port.write(data)
        assert port.read(len(data)) == data
        port.baudrate = 57600
        port.write(b"after")
        assert port.read(5) == b"after"
    report = bridge.end()
    assert report["baud_rate"] == 57600, report


LATE = 20_000_000  # ns; a thread that has sent bytes to the device may be held up before it takes the time


class Recorded:
    """A service with a port that has a loop-back plug, and is recorded."""

    def __init__(self, program, folder):
        self.record = os.path.join(folder, "traffic.pcapng")
        file = os.path.join(folder, "service.toml")
        with open(file, "w", encoding="utf-8") as configuration:
            configuration.write(f'name = "record-{os.getpid()}"\n[[device]]\nname = "lens"\ndevice = "sim"\nsim_fast = true\n'
                                f'[[device.port]]\nport = "bulk4"\nhost = "tcp://:0"\nlog = "{self.record}"\n'
                                'log_size = "64KiB"\nlog_files = 9\n')
        self.process = subprocess.Popen([program, "serve", file], stderr=subprocess.PIPE, text=True)
        for line in self.process.stderr:
            found = re.search(r"lens bulk4 is tcp://127\.0\.0\.1:(\d+)", line)
            if found:
                self.port = int(found.group(1))
                return
        raise AssertionError("the service has ended")

    def end(self):
        self.process.terminate()
        self.process.communicate(timeout=60)
        assert self.process.returncode == 0


def read_packets(tshark, file):
    """(nanoseconds since 1970, whether to the device, bytes) of each packet."""
    lines = subprocess.run([tshark, "-r", file, "-T", "fields", "-e", "frame.time_epoch", "-e", "frame.packet_flags_direction",
                            "-e", "data.data"], check=True, capture_output=True, text=True, timeout=120).stdout.splitlines()
    for line in lines:
        when, direction, data = line.split("\t")
        assert int(direction, 0) in (1, 2), line  # in, out
        seconds, fraction = when.split(".")
        assert len(fraction) == 9, line
        yield int(seconds) * 10**9 + int(fraction), int(direction, 0) == 2, bytes.fromhex(data)


def record(program, tshark):
    """Bytes, directions and times are those of the client."""
    dice = random.Random(7)
    exchanges = []  # (from when, until when, bytes)
    with tempfile.TemporaryDirectory() as folder:
        service = Recorded(program, folder)
        with socket.create_connection(("127.0.0.1", service.port), 60) as client:
            for _ in range(300):
                data = dice.randbytes(dice.randint(1, 400))
                begin = time.time_ns()
                client.sendall(data)
                back = b""
                while len(back) < len(data):
                    back += client.recv(4096)
                assert back == data
                exchanges.append((begin, time.time_ns(), data))
        service.end()
        files = [service.record.replace(".pcapng", f".{number}.pcapng") for number in range(9, 0, -1)] + [service.record]
        files = [file for file in files if os.path.exists(file)]
        assert len(files) > 1  # the record has been set aside
        packets = [packet for file in files for packet in read_packets(tshark, file)]
    for to_device in (True, False):
        passed = iter([(when, data) for when, way, data in packets if way == to_device])
        for begin, end, data in exchanges:
            found = b""
            while len(found) < len(data):
                when, piece = next(passed)
                assert begin <= when <= end + LATE, (begin, when, end)
                found += piece
            assert found == data
        assert next(passed, None) is None
    assert any(when % 1000 for when, _, _ in packets)  # finer than microseconds


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("kyserial")
    parser.add_argument("socat")
    judges = {"ncat": ncat_client, "ser2net": ser2net_client, "tshark": record}
    for name in judges:
        parser.add_argument("--" + name)
    options = parser.parse_args()
    for check in (raw_client, line_settings, every_byte):
        check(options.kyserial)
    socat_client(options.kyserial, options.socat)
    for name, check in judges.items():
        judge = getattr(options, name)
        if name == "ser2net" and all(interface == "lo" for _, interface in socket.if_nameindex()):
            print("ser2net: left out, it finds no address where there is the loopback network only")
            continue
        if judge:
            check(options.kyserial, judge)
        print(f"{name}: " + ("fine" if judge else "not installed"), flush=True)


if __name__ == "__main__":
    main()
