#!/usr/bin/env python3
"""The service beside ser2net and socat: processor time for a megabyte, and how much later a byte is than for a program that has the
port itself. Each has eight TCP clients at eight ports; what is sent comes back at the line's rate, in the same pieces. The service has the
ports of two simulated cameras on the network; the others have pseudo terminals, with a program at the other ends that sends back what it
gets. See service_load.sh.
"""
import argparse
import contextlib
import json
import os
import pty
import select
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import time
import tty

import service_parts as parts

PORTS = ("bulk4", "bulk5", "bulk6", "bulk7")
COUNT = 2 * len(PORTS)
QUESTION = b"STATUS?\r"
RATE_FEATURE = "baud = 115200"


class Terminals:
    """Pseudo terminals whose other ends send back what they get, in a process of its own: so much every period, or at once."""

    def __init__(self, period):
        pairs = [pty.openpty() for _ in range(COUNT)]
        for _, user in pairs:
            tty.setraw(user)
        self.paths = [os.ttyname(user) for _, user in pairs]
        self.users = [user for _, user in pairs]
        self.child = os.fork()
        if self.child == 0:
            signal.signal(signal.SIGTERM, signal.SIG_DFL)
            masters = [master for master, _ in pairs]
            with contextlib.suppress(OSError):
                self.echo_slowly(masters, period) if period else self.echo(masters)
            os._exit(0)
        for master, _ in pairs:
            os.close(master)

    @staticmethod
    def echo(masters):
        while True:
            for master in select.select(masters, [], [])[0]:
                os.write(master, os.read(master, 4096))

    @staticmethod
    def echo_slowly(masters, period):
        waiting = {master: b"" for master in masters}
        for master in masters:
            os.set_blocking(master, False)
        begin, passed = time.monotonic(), 0
        while True:
            now = time.monotonic() - begin
            room = int(now * parts.LINE) - passed
            passed += room
            for master in masters:
                piece, waiting[master] = waiting[master][:room], waiting[master][room:]
                if piece:
                    os.write(master, piece)
                with contextlib.suppress(BlockingIOError):
                    waiting[master] += os.read(master, 4096)
            time.sleep(max(period - (time.monotonic() - begin - now), 0))

    def close(self):
        os.kill(self.child, signal.SIGTERM)
        os.waitpid(self.child, 0)
        for user in self.users:
            os.close(user)


def free_ports(count):
    with contextlib.ExitStack() as stack:
        probes = [stack.enter_context(socket.create_server(("127.0.0.1", 0))) for _ in range(count)]
        return [probe.getsockname()[1] for probe in probes]


def listens(number):
    with contextlib.suppress(ConnectionError), socket.create_connection(("127.0.0.1", number)):
        return True
    return False


@contextlib.contextmanager
def through_service(options, period):
    extra = ["--collect", str(int(period * 1000))] if period else ["--fast"]
    with parts.cameras(options.camera, COUNT // len(PORTS), *extra) as cameras:
        entries = [(f"c{index}", camera.address, {port: f'host = "tcp://:0"\n{RATE_FEATURE}' for port in PORTS})
                   for index, camera in enumerate(cameras)]
        with parts.service(options.tool, entries) as service:
            yield [service.tcp_port(name, port) for name, _, ports in entries for port in ports], [service.system]
            service.stop()


@contextlib.contextmanager
def through_programs(start, period):
    terminals = Terminals(period)
    numbers = free_ports(COUNT)
    programs = [subprocess.Popen(command, stderr=subprocess.DEVNULL) for command in start(terminals.paths, numbers)]
    try:
        if len(programs) == 1:  # the others take one client and end with it
            for number in numbers:
                parts.wait_until(lambda number=number: listens(number), "that the peer listens")
        time.sleep(1)
        yield numbers, [parts.Process(program.pid) for program in programs]
    finally:
        for program in programs:
            program.kill()  # ser2net waits for its clients else
            program.wait(parts.PATIENCE)
        terminals.close()


def through_ser2net(_options, period):
    def start(paths, numbers):
        command = ["ser2net", "-n", "-u"]
        for index, (path, number) in enumerate(zip(paths, numbers)):
            command += ["-Y", f"connection: &con{index}#  accepter: tcp,127.0.0.1,{number}#  "
                              f"connector: serialdev,{path},115200n81,local#"]
        return [command]

    return through_programs(start, period)


def through_socat(_options, period):
    return through_programs(lambda paths, numbers: [
        ["socat", f"TCP-LISTEN:{number},bind=127.0.0.1,reuseaddr,nodelay", f"{path},raw,echo=0,b115200"]
        for path, number in zip(paths, numbers)], period)


SUBJECTS = {"service": through_service, "ser2net": through_ser2net, "socat": through_socat}


def open_streams(numbers):
    return [parts.Stream(f"stream {index}", number) for index, number in enumerate(numbers)]


def measure_cost(subject, options, period):
    """Milliseconds of processor time for a megabyte, both ways counted."""
    with subject(options, period) as (numbers, processes):
        streams = open_streams(numbers)
        before = sum(process.cpu() for process in processes)
        begin = time.monotonic()
        parts.run_streams(streams, parts.LINE, lambda: time.monotonic() < begin + options.seconds)
        used = sum(process.cpu() for process in processes) - before
        megabytes = 2 * sum(stream.received for stream in streams) / 1e6
        for stream in streams:
            stream.close()
        return used * 1e3 / megabytes


def round_trips(count, send, receive):
    """Microseconds until the answer is there, the median."""
    times = []
    for _ in range(count):
        begin = time.perf_counter()
        send(QUESTION)
        got = 0
        while got < len(QUESTION):
            got += len(receive())
        times.append((time.perf_counter() - begin) * 1e6)
        time.sleep(0.002)
    return statistics.median(times)


def measure_latency(subject, options):
    with subject(options, 0) as (numbers, _):
        with socket.create_connection(("127.0.0.1", numbers[0]), parts.PATIENCE) as client:
            client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            return round_trips(options.trips, client.sendall, lambda: client.recv(4096))


def measure_direct(options):
    """The same for programs that have the ports themselves: a terminal, and a camera's port through the library for Python."""
    terminals = Terminals(0)
    user = terminals.users[0]
    figures = {"terminal": round_trips(options.trips, lambda data: os.write(user, data), lambda: os.read(user, 4096))}
    terminals.close()
    if options.library:
        os.environ["KYSERIAL_LIBRARY_PATH"] = options.library
        sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "Bindings", "python"))
        import kyserial  # pylint: disable=import-outside-toplevel

        with parts.cameras(options.camera, 1, "--fast") as cameras, kyserial.open_device(cameras[0].address) as device, \
                kyserial.Port(device, "bulk4", timeout=parts.PATIENCE) as port:
            figures["camera"] = round_trips(options.trips, port.write, lambda: port.read(len(QUESTION)))
    return figures


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--tool", required=True)
    parser.add_argument("--camera", required=True)
    parser.add_argument("--library", help="folder of libKySerialC and libKyGigEC")
    parser.add_argument("--seconds", type=float, default=4)
    parser.add_argument("--trips", type=int, default=300)
    parser.add_argument("--repeats", type=int, default=3)
    parser.add_argument("--json", help="file that gets the figures")
    options = parser.parse_args()
    subjects = {name: subject for name, subject in SUBJECTS.items() if name == "service" or shutil.which(name)}
    runs = {}
    for _ in range(options.repeats):
        found = {f"direct {name}: us": value for name, value in measure_direct(options).items()}
        for name, subject in subjects.items():
            for period in (0.001, 0.010):
                found[f"{name}: CPU ms a MB, pieces of {period * 1000:.0f} ms"] = measure_cost(subject, options, period)
            found[f"{name}: us there and back"] = measure_latency(subject, options)
            direct = found.get("direct camera: us" if name == "service" else "direct terminal: us")
            if direct is not None:
                found[f"{name}: us added"] = found[f"{name}: us there and back"] - direct
        for name, value in found.items():
            runs.setdefault(name, []).append(value)
    figures = {name: statistics.median(values) for name, values in runs.items()}
    for name, value in figures.items():
        peer_ratio = ""
        subject, _, what = name.partition(":")
        if subject in subjects and subject != "service" and value > 0:
            peer_ratio = f"   the service takes {figures['service:' + what] / value:.2f} of it" if "service:" + what in figures else ""
        print(f"{name:45} {value:8.1f}{peer_ratio}")
    if options.json:
        with open(options.json, "w", encoding="utf-8") as file:
            json.dump(figures, file, indent=1)


if __name__ == "__main__":
    try:
        main()
    except parts.Failure as failure:
        print(f"FAILED: {failure}")
        sys.exit(1)
