"""What a user waits for beside the time that the line itself takes: commands to a lens, streams, memories on the
buses. The programs are used as users use them; the camera takes the line's time for each byte."""

import contextlib
import os
import pathlib
import select
import socket
import statistics
import subprocess
import sys
import tempfile
import time
import tty

BITS = 10  # of a character on the line, start and stop included
COMMAND, ANSWER = b"ZOOM?\r", b"ZOOM 0\r\n"
STREAM = 16384
DETECT = ["i2c", "detect", "-y", "--port", "bulk2"]  # without -y it asks, and takes the end of its input for a no
WAIT = 60  # seconds until something is given up; a stream to a UART needs 15 under Wine
I2C_BYTE = 9 / 100_000  # seconds, acknowledge included
SPI_BYTE = 8 * 2 / 16_700_000
EEPROM_CYCLE, FLASH_PROGRAM, FLASH_ERASE = 0.005, 0.001, 0.050  # the simulated memories' own times


class Place:
    """Where the programs run, and where the camera is."""

    def __init__(self, program, device, is_windows=False, judge=None):
        self.program = program  # a list: Wine's start may be before the program
        self.device = device
        self.is_windows = is_windows
        self.judge = judge  # a program that has ended by a signal may still control the camera: what finds out

    def wait_until_free(self):
        """A Windows program that this script ends does not get to give the camera back, which frees itself when it has heard
        nothing from that program for a while. Until then it refuses the next one."""
        if self.judge:
            command = [self.judge, *DETECT, "--device", self.device]  # wants control
            eventually(lambda: subprocess.run(command, capture_output=True).returncode == 0 or None)

    def command(self, *words, device=True):
        return [*self.program, *words] + (["--device", self.device] if device else [])

    def port_command(self, *words):
        """Of a program that has a port open for a while; what it loses is in its log."""
        return self.command(*words, "-q", "--log-level", "error")


class Channel:
    """Two descriptors that lead to a port."""

    def __init__(self, reader, writer):
        self.reader, self.writer = reader, writer

    def read(self, size):
        received = b""
        end = time.monotonic() + WAIT
        while len(received) < size:
            if not select.select([self.reader], [], [], max(0, end - time.monotonic()))[0]:
                raise ValueError(f"{len(received)} of {size} bytes came")
            chunk = os.read(self.reader, size - len(received))
            if not chunk:
                raise ValueError("the port has closed")
            received += chunk
        return received

    def exchange(self, data, size):
        """Writes data and reads size bytes, both at the same time."""
        os.set_blocking(self.writer, False)
        received, written = 0, 0
        end = time.monotonic() + WAIT
        while received < size:
            readers, writers, _ = select.select([self.reader], [self.writer] if written < len(data) else [], [],
                                                max(0, end - time.monotonic()))
            if not readers and not writers:
                raise ValueError(f"{received} of {size} bytes came")
            if writers:
                written += os.write(self.writer, data[written:written + 4096])
            if readers:
                received += len(os.read(self.reader, 65536))


@contextlib.contextmanager
def running(command, after=lambda: None, **options):
    errors = tempfile.TemporaryFile("w+", errors="replace")
    program = subprocess.Popen([str(word) for word in command], stderr=errors, **options)
    try:
        yield program
    except ValueError as error:  # what the program says of it, the log of the library among it
        errors.seek(0)
        raise ValueError("; ".join([str(error), *errors.read().splitlines()[-2:]])) from error
    finally:
        if program.stdin:
            program.stdin.close()
        program.terminate()
        try:
            program.wait(WAIT)
        except subprocess.TimeoutExpired:
            program.kill()
        after()


def eventually(what):
    """What the function returns, as soon as it is something."""
    end = time.monotonic() + WAIT
    while time.monotonic() < end:
        with contextlib.suppress(OSError):
            result = what()
            if result is not None:
                return result
        time.sleep(0.001)
    raise ValueError("nothing has come up")


@contextlib.contextmanager
def through_term(place, port, rate):
    with running(place.port_command("term", "--quiet-time", "never", "--port", port, "--baud", rate), place.wait_until_free,
                 stdin=subprocess.PIPE, stdout=subprocess.PIPE) as program:
        yield Channel(program.stdout.fileno(), program.stdin.fileno())


@contextlib.contextmanager
def through_pty(place, port, rate):
    with tempfile.TemporaryDirectory() as folder:
        link = pathlib.Path(folder) / "port"
        with running(place.port_command("bridge", "--port", port, "--baud", rate, "--pty", link)):
            terminal = eventually(lambda: os.open(link, os.O_RDWR | os.O_NOCTTY))
            try:
                tty.setraw(terminal)
                yield Channel(terminal, terminal)
            finally:
                os.close(terminal)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


@contextlib.contextmanager
def through_tcp(place, port, rate):
    number = free_port()
    with running(place.port_command("bridge", "--port", port, "--baud", rate, "--tcp", f"127.0.0.1:{number}"),
                 place.wait_until_free):
        with eventually(lambda: socket.create_connection(("127.0.0.1", number))) as client:
            client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            yield Channel(client.fileno(), client.fileno())


@contextlib.contextmanager
def through_camera_link(place, port, rate):
    name = f"LineTime{os.getpid()}"
    listed = lambda: name if name.encode() in subprocess.run(
        place.command("clser", "list", device=False), capture_output=True).stdout else None
    with running(place.port_command("bridge", "--port", port, "--baud", rate, "--clser", name)):
        eventually(listed)
        with running(place.command("clser", "term", "-q", "--quiet-time", "never", "--baud", rate, name, device=False),
                     stdin=subprocess.PIPE, stdout=subprocess.PIPE) as program:
            yield Channel(program.stdout.fileno(), program.stdin.fileno())


WAYS = {"term": through_term, "pty": through_pty, "tcp": through_tcp, "clser": through_camera_link}


def measure_commands(place, way, rate, repeats):
    """Milliseconds that a command and its answer take beyond the line's time."""
    line = (len(COMMAND) + len(ANSWER)) * BITS / rate
    times = []
    with WAYS[way](place, "uart0", rate) as channel:
        for _ in range(repeats + 1):
            start = time.perf_counter()
            os.write(channel.writer, COMMAND)
            if channel.read(len(ANSWER)) != ANSWER:
                raise ValueError("the lens answered something else")
            times.append(time.perf_counter() - start - line)
            time.sleep(0.003)  # a user's pause: the next command meets a port at rest
    return statistics.median(times[1:]) * 1e3  # the first waits for the program


def measure_streams(place, repeats):
    """Times of 16 KiB, as a multiple of the line's own time."""
    figures = {}
    question, identity = b"ID?\r", b"ID KYLENS 1.0\r\n"
    remark, refusal = b"x" * 63 + b"\r", b"ERR 1 UNKNOWN COMMAND\r\n"
    for port, name in (("uart0", "uart"), ("bulk0", "bulk0"), ("bulk1", "bulk1")):
        for what, sent, answer in (("down", remark, refusal), ("up", question, identity)):
            count = STREAM // max(len(sent), len(answer))
            # The longer direction decides; the other one's first command or last answer is before or after it.
            line = (count * max(len(sent), len(answer)) + min(len(sent), len(answer))) * BITS / 115200
            times = []
            with through_tcp(place, port, 115200) as channel:
                for _ in range(repeats):
                    start = time.perf_counter()
                    channel.exchange(sent * count, count * len(answer))
                    times.append((time.perf_counter() - start) / line)
            figures[f"{name}_{what}"] = statistics.median(times)
    return figures


def time_command(place, *words):
    start = time.perf_counter()
    subprocess.run([str(word) for word in place.command(*words)], check=True, stdin=subprocess.DEVNULL, capture_output=True,
                   timeout=120)
    return time.perf_counter() - start


def measure_memories(place, repeats):
    """Times of whole programs at a memory, as a multiple of the bus's and the memory's own time."""
    own = {
        # 32 pages of an address, an offset and 8 bytes; then a read that compares: it begins with a write of the offset.
        "eeprom_write": 32 * (10 * I2C_BYTE + EEPROM_CYCLE) + (3 + 256) * I2C_BYTE,
        "eeprom_read": (3 + 256) * I2C_BYTE,
        # Read, erase 16 sectors, program 512 halves of a page (a message takes no whole one), read again.
        "flash_write": 2 * 65536 * SPI_BYTE + 16 * FLASH_ERASE + 512 * (FLASH_PROGRAM + 132 * SPI_BYTE),
        "flash_read": 65536 * SPI_BYTE,
        "flash_erase": 16 * FLASH_ERASE,
    }
    times = {name: [] for name in own}
    with tempfile.TemporaryDirectory() as folder:
        small, large, back = (pathlib.Path(folder) / name for name in ("small", "large", "back"))
        for _ in range(repeats):
            small.write_bytes(os.urandom(256))
            large.write_bytes(os.urandom(65536))
            at = ("--port", "bulk3")
            times["eeprom_write"].append(time_command(place, "i2c", "eeprom", "write", "-y", "--port", "bulk2", small))
            times["eeprom_read"].append(time_command(place, "i2c", "eeprom", "read", "--port", "bulk2", back))
            times["flash_write"].append(time_command(place, "spi", "flash", "write", "-y", "--erase", *at, large))
            times["flash_read"].append(time_command(place, "spi", "flash", "read", *at, back))
            times["flash_erase"].append(time_command(place, "spi", "flash", "erase", "-y", "--size", "65536", *at))
    figures = {f"{name}_ms": statistics.median(values) * 1e3 for name, values in times.items()}
    figures.update({name: statistics.median(values) / own[name] for name, values in times.items()})
    return figures


def measure_starts(place, repeats):
    """Milliseconds of short programs, and until a bridge passes its first byte."""
    figures = {}
    for name, words in (("ports", ["ports"]), ("features", ["features", "list"]),
                        ("i2c_detect", DETECT)):
        figures[f"{name}_ms"] = statistics.median(time_command(place, *words) for _ in range(repeats)) * 1e3
    times = []
    for _ in range(repeats):
        start = time.perf_counter()
        with through_tcp(place, "uart0", 115200) as channel:
            os.write(channel.writer, COMMAND)
            channel.read(len(ANSWER))
            times.append(time.perf_counter() - start)
    figures["first_byte_ms"] = statistics.median(times) * 1e3
    return figures


def measure_all_commands(place, repeats):
    return {f"{way}_{rate}_ms": measure_commands(place, way, rate, repeats)
            for way in (("term", "tcp") if place.is_windows else WAYS) for rate in (9600, 115200)}


def measure_place(place, quick, parts):
    """A part that fails leaves its rows out, and says why."""
    figures = {}
    for part in parts:
        count = 1 if quick else {measure_all_commands: 40, measure_streams: 3}.get(part, 5)
        try:
            figures.update(part(place, count))
        except (subprocess.SubprocessError, OSError, ValueError) as error:
            print(f"line: {part.__name__} of {place.program[-1]}, {place.device}: {error}", file=sys.stderr)
    return figures


@contextlib.contextmanager
def camera(program):
    """A camera on the loopback network; its device name."""
    number = free_port()
    with running([program, "--port", number], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL):
        name = f"gev://127.0.0.1:{number}"
        eventually(lambda: name if subprocess.run([program.parent / "kyserial", "ports", "--device", name],
                                                  capture_output=True).returncode == 0 else None)
        yield name


PARTS = (measure_all_commands, measure_streams, measure_memories, measure_starts)


def measure_on_one_core(binaries, quick):
    """Where no thread has to be woken on another processor."""
    figures = {}
    cores = os.sched_getaffinity(0)
    os.sched_setaffinity(0, {max(cores)})  # of the programs that are started from here too
    try:
        with camera(binaries / "kyserial-camera") as name:
            for where, device in (("one-sim", "sim"), ("one-net", name)):
                place = Place([binaries / "kyserial"], device)
                figures.update(with_name(where, measure_place(place, quick, PARTS[:3])))
    finally:
        os.sched_setaffinity(0, cores)
    return figures


def with_name(where, figures):
    return {f"line.{where}.{what}": figure for what, figure in figures.items()}


def measure(binaries, wine, quick):
    """wine: the start of a Windows kyserial, a list, or None."""
    figures = measure_on_one_core(binaries, quick)
    with camera(binaries / "kyserial-camera") as name:
        places = {"sim": Place([binaries / "kyserial"], "sim"), "net": Place([binaries / "kyserial"], name)}
        if wine:
            places.update({"wine-sim": Place(wine, "sim", True), "wine-net": Place(wine, name, True, binaries / "kyserial")})
        for where, place in places.items():
            figures.update(with_name(where, measure_place(place, quick, PARTS)))
    return figures
