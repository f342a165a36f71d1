"""What service_load.py, service_faults.py and service_peers.py have in common: simulated cameras, the service, clients that check
each byte by its place in the stream, and what the system says of a process."""
import collections
import contextlib
import http.client
import json
import os
import random
import re
import resource
import select
import signal
import socket
import struct
import subprocess
import tempfile
import threading
import time
import tty
import zlib

PATIENCE = 180  # seconds for anything to happen
LINE = 11520  # bytes a second of a line at 115200 bit/s
TURN = 0.1  # seconds between two writes of a stream
TICK = os.sysconf("SC_CLK_TCK")
PATTERN = random.Random(19).randbytes(65521)  # a prime: no piece follows itself at a round distance
TWICE = PATTERN * 2


class Failure(Exception):
    pass


def wait_until(condition, what, seconds=PATIENCE):
    end = time.monotonic() + seconds
    while not (result := condition()):
        if time.monotonic() > end:
            raise Failure(f"not in time: {what}")
        time.sleep(0.01)
    return result


def allow_files(count):
    """Of this process and of those that it starts; as many as the system allows when those are fewer."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    if soft < count:
        with contextlib.suppress(ValueError):
            resource.setrlimit(resource.RLIMIT_NOFILE, (min(count, hard), hard))


class Process:
    """What the system says of a process."""

    def __init__(self, pid):
        self.folder = f"/proc/{pid}"

    def cpu(self):
        """Seconds of processor time."""
        with open(f"{self.folder}/stat", encoding="ascii", errors="replace") as file:
            fields = file.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / TICK

    def status(self, name):
        with open(f"{self.folder}/status", encoding="ascii", errors="replace") as file:
            return int(re.search(rf"^{name}:\s+(\d+)", file.read(), re.M).group(1))

    def memory(self):
        """KiB."""
        return self.status("VmRSS")

    def threads(self):
        """How many there are of each name."""
        names = collections.Counter()
        for task in os.listdir(f"{self.folder}/task"):
            with contextlib.suppress(OSError), open(f"{self.folder}/task/{task}/comm", encoding="ascii") as file:
                names[file.read().strip()] += 1
        return names

    def files(self):
        return len(os.listdir(f"{self.folder}/fd"))

    def udp_sockets(self):
        with open("/proc/net/udp", encoding="ascii") as file:
            inodes = {line.split()[9] for line in file.readlines()[1:]}
        found = 0
        for name in os.listdir(f"{self.folder}/fd"):
            with contextlib.suppress(OSError):
                link = re.fullmatch(r"socket:\[(\d+)\]", os.readlink(f"{self.folder}/fd/{name}"))
                found += link is not None and link.group(1) in inodes
        return found


class Camera:
    """A simulated camera on the loopback network. Loop-back plugs hang on bulk4 to bulk7."""

    made = 0

    def __init__(self, program, *options):
        Camera.made += 1  # two of one MAC address would be one camera
        self.process = subprocess.Popen([program, "--port", "0", "--no-broadcast", "--mac", f"02{Camera.made:010X}", *options], bufsize=0,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.waiting = b""

    def find_address(self):
        self.address = "gev://" + self.read_line().split("ready at ")[1].split(",")[0]

    def read_line(self):
        end = time.monotonic() + PATIENCE
        while b"\n" not in self.waiting:
            if not select.select([self.process.stdout], [], [], max(end - time.monotonic(), 0))[0]:
                raise Failure("the camera says nothing")
            piece = os.read(self.process.stdout.fileno(), 4096)
            if not piece:
                raise Failure("the camera has ended")
            self.waiting += piece
        line, _, self.waiting = self.waiting.partition(b"\n")
        return line.decode()

    def command(self, line):
        self.process.stdin.write(line.encode() + b"\n")
        answer = self.read_line()
        if answer.startswith("error"):
            raise Failure(f"{line}: {answer}")
        return answer


@contextlib.contextmanager
def cameras(program, count, *options):
    """count of them, in processes of their own."""
    started = []
    try:
        for _ in range(count):
            started.append(Camera(program, *options))
        for camera in started:
            camera.find_address()
        yield started
    finally:
        for camera in started:
            camera.process.stdin.close()
            camera.process.terminate()
        for camera in started:
            camera.process.wait(PATIENCE)


class Service:
    """A running service. entries: (name of a device, its address, {port: lines of its entry})."""

    def __init__(self, program, folder, entries, apart):
        self.file = os.path.join(folder, "service.toml")
        self.name = f"load-{os.getpid()}-{time.monotonic_ns()}"
        self.lines = []  # (when, text)
        self.write(entries)
        self.begin = time.monotonic()
        self.process = subprocess.Popen([*(["taskset", "-c", "0"] if apart else []), program, "serve", self.file],
                                        stderr=subprocess.PIPE, text=True)
        self.system = Process(self.process.pid)
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()
        try:
            self.web = int(self.find(r"web page is http://127\.0\.0\.1:(\d+)/")[1].group(1))
        except BaseException:
            self.process.kill()
            raise

    def write(self, entries):
        """The configuration, as it is from the next start or reload on."""
        text = [f'name = "{self.name}"\nweb = "127.0.0.1:0"']
        for name, address, ports in entries:
            text.append(f'[[device]]\nname = "{name}"\ndevice = "{address}"')
            text += [f'[[device.port]]\nport = "{port}"\n{lines}' for port, lines in ports.items()]
        with open(self.file + ".new", "w", encoding="utf-8") as file:
            file.write("\n".join(text) + "\n")
        os.rename(self.file + ".new", self.file)

    def read(self):
        for line in self.process.stderr:
            self.lines.append((time.monotonic(), line.rstrip()))

    def find(self, pattern, start=0):
        """The first line from that number on which has the pattern: when it came, and the match."""
        expression = re.compile(pattern)

        def look():
            for when, line in self.lines[start:]:
                if found := expression.search(line):
                    return when, found
            if self.process.poll() is not None:
                raise Failure(f"the service has ended: {self.lines[-3:]}")
            return None

        try:
            return wait_until(look, f"the service's line {pattern}")
        except Failure as failure:
            raise Failure(f"{failure}; it has said {[line for _, line in self.lines[-5:]]}") from failure

    def tcp_port(self, device, port, start=0):
        return int(self.find(rf" {device} {port} is \w+://127\.0\.0\.1:(\d+)$", start)[1].group(1))

    def ask(self, path="/status"):
        connection = http.client.HTTPConnection("127.0.0.1", self.web, timeout=PATIENCE)
        connection.request("GET", path)
        answer = connection.getresponse().read()
        connection.close()
        return json.loads(answer)

    def ports(self):
        """(device, port): what the status says."""
        return {(device["name"], port["port"]): port for device in self.ask()["devices"] for port in device["ports"]}

    def reload(self):
        """Seconds until it says that it has done so."""
        start, begin = len(self.lines), time.monotonic()
        self.process.send_signal(signal.SIGHUP)
        return self.find(r" reloaded ", start)[0] - begin

    def reason(self, first=0):
        """For a failure: what the service has counted as lost at the cameras from this number on, and the last that it has logged of them."""
        lost = [f"{device} {port} {way} {ledger[way]['lost']}" for (device, port), ledger in self.ports().items()
                for way in ("to_device", "from_device") if int(device[1:]) >= first and ledger[way]["lost"]]
        now = time.monotonic()
        lines = [f"{now - when:.1f} s ago: {line}" for when, line in self.lines
                 if any(int(number) >= first for number in re.findall(r"\bc(\d+)\b", line))]
        return "\n  ".join([f"counted as lost: {', '.join(lost[:20]) or 'nothing'}; the service has logged:", *lines[-20:]])

    def stop(self):
        """Seconds until the process has ended."""
        # wait() with a limit looks only every 50 ms.
        end = os.pidfd_open(self.process.pid)
        begin = time.monotonic()
        self.process.terminate()
        select.select([end], [], [], PATIENCE)
        took = time.monotonic() - begin
        os.close(end)
        if self.process.wait(PATIENCE) != 0:
            raise Failure(f"the service ended with {self.process.returncode}: {self.lines[-3:]}")
        self.reader.join()
        return took


@contextlib.contextmanager
def service(program, entries, apart=False):
    with tempfile.TemporaryDirectory() as folder:
        running = Service(program, folder, entries(folder) if callable(entries) else entries, apart)
        try:
            yield running
        finally:
            if running.process.poll() is None:
                running.process.kill()
                running.process.wait(PATIENCE)


def connect(port):
    client = socket.create_connection(("127.0.0.1", port), PATIENCE)
    client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    client.setblocking(False)
    return client


def vanish(client):
    """Closes a connection without saying goodbye."""
    client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    client.close()


class Stream:
    """A client that sends at a line's rate to a port with a loop-back plug, and has to get the same back."""

    def __init__(self, name, where):
        """where: number of a TCP port, or path of a terminal."""
        self.name = name
        self.client = connect(where) if isinstance(where, int) else None
        self.file = self.client.fileno() if self.client else os.open(where, os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)
        if not self.client:
            tty.setraw(self.file)
        self.start = zlib.crc32(name.encode()) % len(PATTERN)  # streams that were mixed up would show
        self.sent = self.received = 0
        self.heard = time.monotonic()
        self.longest = 0.0  # seconds without a byte while some were due

    def piece(self, place, size):
        place = (self.start + place) % len(PATTERN)
        return TWICE[place:place + size]

    def send(self, most):
        with contextlib.suppress(BlockingIOError):
            self.sent += os.write(self.file, self.piece(self.sent, min(most, 4096)))

    def receive(self):
        now = time.monotonic()
        if self.received < self.sent:
            self.longest = max(self.longest, now - self.heard)
        else:
            self.heard = now
        try:
            data = os.read(self.file, 65536)
        except BlockingIOError:
            return
        if not data:
            raise Failure(f"{self.name}: the port has closed after {self.received} bytes")
        if data != self.piece(self.received, len(data)):
            raise Failure(f"{self.name}: byte {self.received} or one of the {len(data)} from there on is another one")
        self.received += len(data)
        self.heard = now

    def close(self):
        if self.client:
            self.client.close()
        else:
            os.close(self.file)


def run_streams(streams, rate, goes_on):
    """All of them at so many bytes a second, evenly spread over time, until goes_on() is false and everything is back. Seconds that
    the last bytes took."""
    begin = time.monotonic()
    before = {stream: stream.sent for stream in streams}
    step = TURN / max(len(streams), 1)
    number = 0
    while goes_on():
        for index, stream in enumerate(streams):
            due = begin + number * TURN + index * step
            if (ahead := due - time.monotonic()) > 0.001:
                time.sleep(ahead)
            stream.receive()
            waiting = before[stream] + int((number + 1) * TURN * rate) - stream.sent
            if waiting > 0:
                stream.send(waiting)
        number += 1
    end = time.monotonic()
    while missing := [stream for stream in streams if stream.received < stream.sent]:
        if time.monotonic() > end + PATIENCE:
            raise Failure(f"{len(missing)} streams miss bytes, {missing[0].name} {missing[0].sent - missing[0].received}")
        for stream in missing:
            stream.receive()
        time.sleep(0.005)
    return time.monotonic() - end


def ledger_faults(ports, allows_loss=()):
    """What is wrong with the ledgers of ports at rest: a byte that is neither delivered nor counted as lost, or lost where none may be."""
    wrong = []
    for key, port in ports.items():
        for way in ("to_device", "from_device"):
            ledger = port[way]
            balanced = ledger["taken"] == ledger["delivered"] + ledger["lost"] and ledger["on_the_way"] == 0
            if not balanced or (ledger["lost"] and key[0] not in allows_loss):
                wrong.append((key, way, ledger))
    return wrong
