#!/usr/bin/env python3
"""Runs bridges under random traffic and faults, and accounts for every byte; see soak.sh.

What is written to a bridge goes to a loop-back plug on the camera and comes back. So each byte that is read has to be
the next one written, but for those that the bridge says it has lost. Once a second, something goes wrong:

  drop, double, delay   datagrams of the camera: commands, acknowledges, events, acknowledges of events
  slow, freeze          the camera takes its time, or hears and says nothing
  stop                  the bridge's process stands still
  busy                  the camera refuses what is written; the bridge has to log that it is lost
  unplug                the camera goes away; what is written meanwhile has to be counted as lost, byte by byte
  leave                 the user of the pty goes without reading what has come, and more comes; both have to be counted
                        as unread. The client of the Camera Link port closes it and opens it again, at another rate.

Traffic goes on meanwhile, except that it comes to rest before the last three: of bytes that are inside a camera that
goes away their number is unknown. After every fault it comes to rest, and the bridge's ledger has to be that of
its user: bytes taken, delivered and lost of each way, by reason, and none on its way. In the end the bridge is interrupted
in the middle of a transfer, and its last ledger has to balance. SIGINT and SIGTERM end it early, with its account.
"""
import argparse
import collections
import ctypes
import json
import os
import random
import select
import signal
import subprocess
import sys
import tempfile
import threading
import time

PATIENCE = 60  # seconds for anything to happen; who needs them has failed
GROWTH = 2048  # KiB of memory between the first tenth of the time and its end: what a heap may fluctuate by
RATES = [4, 8, 16]  # the client library's numbers for 38400, 57600 and 115200 bit/s
PORTS = {"pty": "bulk5", "clser": "bulk4"}  # a loop-back plug hangs on each


class Failure(Exception):
    pass


def wait_until(condition, what):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            raise Failure(f"not in time: {what}")
        time.sleep(0.01)


class Program:
    """A process whose lines of output are looked at as they come."""

    def __init__(self, *command):
        self.last = ""
        self.log = tempfile.TemporaryFile()
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=self.log,
                                        text=True, start_new_session=True)
        self.count = 0
        self.reader = threading.Thread(target=self.read)
        self.reader.start()

    def read(self):
        for line in self.process.stdout:
            self.last = line.strip()
            self.count += 1

    def log_size(self):
        return os.fstat(self.log.fileno()).st_size

    def log_end(self):
        self.log.seek(max(self.log_size() - 1000, 0))
        return self.log.read().decode(errors="replace")

    def resources(self):
        """Memory in KiB, open handles, threads."""
        folder = f"/proc/{self.process.pid}"
        with open(f"{folder}/status", encoding="ascii") as file:
            status = dict(line.split(":", 1) for line in file)
        return int(status["VmRSS"].split()[0]), len(os.listdir(f"{folder}/fd")), int(status["Threads"])

    def end(self):
        self.process.send_signal(signal.SIGINT)
        status = self.process.wait(PATIENCE)
        self.reader.join()
        return status


class Camera(Program):
    def __init__(self, program):
        super().__init__(program, "--port", "0", "--no-broadcast")
        wait_until(lambda: "ready at" in self.last or self.process.poll() is not None, "the camera")
        self.address = "gev://" + self.last.split("ready at ")[1].split(",")[0]

    def command(self, line):
        before = self.count
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()
        wait_until(lambda: self.count > before, f"the camera's answer to {line}")
        if self.last.startswith("error"):
            raise Failure(f"{line}: {self.last}")


class Bridge(Program):
    def __init__(self, tool, camera, port, *options):
        super().__init__(tool, "bridge", "--device", camera.address, "--port", port, "--reconnect", "--quiet",
                         "--stats-json", "--stats-interval", "200", "--log-level", "error", *options)
        wait_until(lambda: self.last.startswith("{") or self.process.poll() is not None, "the bridge")

    def statistics(self):
        return json.loads(self.last)


class Terminal:
    """A user of the pty."""

    def __init__(self, path):
        self.path = path
        self.open()

    def open(self):
        self.file = os.open(self.path, os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)

    def close(self):
        os.close(self.file)

    def write(self, data):
        while data:
            select.select([], [self.file], [], PATIENCE)
            data = data[os.write(self.file, data):]

    def read(self, wait):
        if not select.select([self.file], [], [], wait)[0]:
            return b""
        return os.read(self.file, 4096)


class Client:
    """A client of the Camera Link port."""

    def __init__(self, library, name, dice):
        self.library = ctypes.CDLL(os.path.abspath(library))
        self.name = name.encode()
        self.dice = dice
        self.reference = ctypes.c_void_p()
        self.open()

    def check(self, result, what):
        if result != 0:
            raise Failure(f"{what}: {result}")

    def open(self):
        number = ctypes.c_uint32()
        self.check(self.library.clGetNumSerialPorts(ctypes.byref(number)), "clGetNumSerialPorts")
        for index in range(number.value):
            text = ctypes.create_string_buffer(300)
            size = ctypes.c_uint32(len(text))
            self.check(self.library.clGetSerialPortIdentifier(index, text, ctypes.byref(size)), "identifier")
            if text.value == self.name:
                self.check(self.library.clSerialInit(index, ctypes.byref(self.reference)), "clSerialInit")
                self.check(self.library.clSetBaudRate(self.reference, self.dice.choice(RATES)), "clSetBaudRate")
                return
        raise Failure("the port is not there")

    def close(self):
        self.library.clSerialClose(self.reference)

    def write(self, data):
        size = ctypes.c_uint32(len(data))
        self.check(self.library.clSerialWrite(self.reference, data, ctypes.byref(size), 1000 * PATIENCE), "write")

    def read(self, wait):
        buffer = ctypes.create_string_buffer(4096)
        size = ctypes.c_uint32(1)
        self.library.clSerialReadEx(self.reference, buffer, ctypes.byref(size), int(1000 * wait))
        rest = ctypes.c_uint32(0)
        self.check(self.library.clGetNumBytesAvail(self.reference, ctypes.byref(rest)), "clGetNumBytesAvail")
        data = buffer.raw[:size.value]
        if rest.value > 0:
            rest.value = min(rest.value, len(buffer))
            self.check(self.library.clSerialReadEx(self.reference, buffer, ctypes.byref(rest), 0), "read")
            data += buffer.raw[:rest.value]
        return data


class Soak(threading.Thread):
    """One bridge, its camera and its user."""

    def __init__(self, flavour, options, folder):
        super().__init__()
        self.flavour = flavour
        self.options = options
        self.dice = random.Random(options.seed * 2 + (flavour == "pty"))
        self.camera = Camera(options.camera)
        link = os.path.join(folder, "terminal") if flavour == "pty" else f"Soak{os.getpid()}"
        self.bridge = Bridge(options.tool, self.camera, PORTS[flavour], f"--{flavour}", link,
                             *(["--baud", "115200"] if flavour == "pty" else []))
        self.user = Terminal(link) if flavour == "pty" else Client(options.library, link, self.dice)
        self.expected = bytearray()
        self.written = self.read = self.lost = self.refused = self.unread = self.abandoned = self.fault_count = 0
        self.faults = collections.Counter()
        self.samples = []
        self.error = ""

    def run(self):
        try:
            self.work()
        except Exception as error:  # pylint: disable=broad-except
            self.error = f"{type(error).__name__} after {self.fault_count} faults: {error}"
            print(f"{self.flavour}: {self.error}", flush=True)

    def work(self):
        begin = time.monotonic()
        interval = max(self.options.seconds / 60, 1)
        next_fault = begin + 0.5
        next_sample = begin + self.options.seconds / 10
        while (now := time.monotonic()) < begin + self.options.seconds and not self.options.stop:
            if now >= next_fault:
                self.make_fault()
                next_fault += 1
            if now >= next_sample:
                self.rest()
                self.samples.append((self.bridge.resources(), self.camera.resources()))
                next_sample += interval
                if len(self.samples) % 10 == 0:
                    self.report()
            self.relay()
            time.sleep(self.dice.random() * 0.06)
        self.check_ledger()

    def relay(self):
        """A few bytes there; what has come is taken."""
        if len(self.expected) < 600:
            data = self.dice.randbytes(self.dice.randint(1, self.dice.choice([4, 40, 250])))
            self.user.write(data)
            self.written += len(data)
            self.expected += data
        self.take(0)

    def take(self, wait):
        data = self.user.read(wait)
        self.read += len(data)
        if not self.expected.startswith(data):
            raise Failure(f"byte {self.read} is another one than was written; {self.faults}")
        del self.expected[:len(data)]

    def rest(self):
        """Until everything that is under way has come."""
        end = time.monotonic() + PATIENCE
        while self.expected:
            if time.monotonic() > end:
                raise Failure(f"{len(self.expected)} bytes are missing at {self.read}; {self.faults}")
            self.take(0.05)

    def make_fault(self):
        kind = self.dice.choices(
            ["drop", "double", "delay", "slow", "freeze", "stop", "busy", "unplug", "leave"],
            [4, 2, 3, 2, 1, 1, 1, 1, 1])[0]
        self.faults[kind] += 1
        self.fault_count += 1
        nth = self.dice.randint(2, 5)
        what = self.dice.choice(["command", "ack", "event", "event-ack"])
        time_ms = self.dice.randint(5, 80)
        if kind in ("drop", "double"):
            self.camera.command(f"{kind} {what} {nth}")
        elif kind == "delay":
            self.camera.command(f"delay {what} {nth} {time_ms}")
        elif kind == "slow":
            self.camera.command(f"slow {nth} {time_ms}")
        elif kind == "freeze":
            self.camera.command("freeze")
            self.go_on(0.1)
            self.camera.command("thaw")
        elif kind == "stop":
            self.bridge.process.send_signal(signal.SIGSTOP)
            time.sleep(0.1 + self.dice.random() * 0.2)  # a write would wait for the process that stands still
            self.bridge.process.send_signal(signal.SIGCONT)
        else:
            self.rest()
            {"busy": self.refuse, "unplug": self.unplug, "leave": self.leave}[kind]()
        self.go_on(0.4)
        self.camera.command("clear")
        self.check_ledger()

    def check_ledger(self):
        """The bridge's ledger is that of its user, as soon as the traffic has come to rest."""
        self.rest()
        reached = self.written - self.lost - self.refused
        wanted = {
            "to_device": {"taken": self.written, "delivered": reached, "on_the_way": 0,
                          "lost": {"away": self.lost, "refused": self.refused, "stopped": 0}},
            "from_device": {"taken": self.read + self.unread, "delivered": self.read, "on_the_way": 0,
                            "lost": {"overrun": 0, "cleared": 0, "refused": 0, "unread": self.unread, "stopped": 0}}}

        def differences():
            found = self.bridge.statistics()
            return {f"{way} {name}": (found[way][name], value)
                    for way, ledger in wanted.items() for name, value in ledger.items() if found[way][name] != value}

        try:
            wait_until(lambda: not differences(), "the ledger")
        except Failure as failure:
            raise Failure(f"the ledger has (found, wanted) {differences()}; {self.faults}") from failure

    def go_on(self, seconds):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            self.relay()
            time.sleep(0.02)

    def refuse(self):
        before = self.bridge.log_size()
        self.camera.command("busy 1")
        count = self.dice.randint(1, 100)  # goes to the camera in one piece
        self.user.write(self.dice.randbytes(count))
        self.written += count
        self.refused += count
        wait_until(lambda: self.bridge.log_size() > before, "what the bridge logs about a refusal")
        time.sleep(0.05)  # in case it was two pieces
        self.camera.command("clear")

    def unplug(self):
        before = self.bridge.statistics()["reconnections"]
        self.camera.command("unplug")
        wait_until(lambda: not self.bridge.statistics()["connected"], "that the bridge sees the camera go")
        count = self.dice.randint(0, 400)
        if count:
            self.user.write(self.dice.randbytes(count))
        self.written += count
        self.lost += count
        wait_until(lambda: self.bridge.statistics()["to_device"]["lost"]["away"] >= self.lost, "the count of lost bytes")
        self.camera.command("plug")
        wait_until(lambda: self.bridge.statistics()["reconnections"] > before, "that the camera is back")

    def leave(self):
        if self.flavour == "pty":
            left = self.dice.randint(1, 300)
            self.user.write(self.dice.randbytes(left))
            self.written += left
            wait_until(lambda: self.bridge.statistics()["from_device"]["delivered"] == self.read + left,
                       "the bytes that are left unread")
            self.unread += left
            self.abandoned += left
        self.user.close()
        if self.flavour == "pty":
            count = self.dice.randint(1, 200)
            self.camera.command(f"inject {PORTS['pty']} {self.dice.randbytes(count).hex()}")
            self.unread += count
            wait_until(lambda: self.bridge.statistics()["unread_bytes"] >= self.unread, "the count of unread bytes")
        self.user.open()

    def end(self):
        """The bridge's own account has to be that of its user."""
        if not self.error:
            self.user.write(self.dice.randbytes(300))
            self.user.close()
            status = self.bridge.end()
            counts = self.bridge.statistics()
            self.judge(status == 0, f"the bridge ended with status {status}")
            self.judge(counts["final"], "the last report is not the final one")
            self.judge(counts["to_device"]["lost"]["away"] == self.lost, "lost bytes")
            for way in ("to_device", "from_device"):
                ledger = counts[way]
                self.judge(ledger["taken"] == ledger["delivered"] + sum(ledger["lost"].values()), f"the last ledger {way}")
                self.judge(ledger["on_the_way"] == 0, f"bytes on their way {way}")
            self.judge(self.written <= counts["to_device"]["taken"] <= self.written + 300, "bytes taken")
            self.judge(counts["to_device"]["lost"]["refused"] == self.refused, "refused bytes")
            self.judge(self.read == self.written - self.lost - self.refused - self.abandoned, "bytes read")
            if self.error:
                self.error += f"; {counts}"
            self.check_resources()
        else:
            self.camera.command("stats")
            self.error += f"; {self.bridge.last}; {self.camera.last}; {self.bridge.log_end()}"
            self.bridge.process.kill()
            self.bridge.process.wait()
        self.camera.end()

    def judge(self, good, what):
        if not good:
            self.error += f"wrong: {what}; "

    def check_resources(self):
        for index, name in enumerate(["the bridge", "the camera"]):
            memory, files, threads = zip(*(sample[index] for sample in self.samples))
            print(f"{self.flavour}: {name}: memory {memory[0]} KiB, at the end {memory[-1]}, at most {max(memory)}; "
                  f"handles {files[0]}, {files[-1]}, {max(files)}; threads {threads[0]}, {threads[-1]}, {max(threads)}")
            self.judge(memory[-1] <= memory[0] + GROWTH, f"{name} has grown")
            self.judge(files[-1] == files[0], f"{name} has other handles")
            self.judge(threads[-1] == threads[0], f"{name} has other threads")

    def report(self):
        faults = ", ".join(f"{count} {name}" for name, count in sorted(self.faults.items()))
        print(f"{self.flavour}: {self.written} bytes written, {self.read} read, {self.lost} counted as lost, "
              f"{self.refused} logged as refused, "
              f"{self.unread} came for nobody; {self.fault_count} faults: {faults}")
        sys.stdout.flush()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--seconds", type=float, default=10)
    parser.add_argument("--seed", type=int, default=1)
    for name in ("--tool", "--camera", "--library"):
        parser.add_argument(name, required=True)
    options = parser.parse_args()
    options.stop = False

    def stop(_number, _frame):
        options.stop = True

    signal.signal(signal.SIGTERM, stop)
    signal.signal(signal.SIGINT, stop)
    with tempfile.TemporaryDirectory() as folder:
        soaks = [Soak(flavour, options, folder) for flavour in PORTS]
        for soak in soaks:
            soak.start()
        for soak in soaks:
            soak.join()
        for soak in soaks:
            soak.end()
            soak.report()
            print(f"{soak.flavour}: {'FAILED: ' + soak.error if soak.error else 'every byte is accounted for'}")
    return 1 if any(soak.error for soak in soaks) else 0


sys.exit(main())
