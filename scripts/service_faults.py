#!/usr/bin/env python3
"""One service with many cameras; once a second something goes wrong at one of the first two, which are fast so that floods fill their
buffers. The clients of the others go on meanwhile and have to get each byte back. See service_load.sh.

  restart       the camera starts anew; its client goes on sending
  unplug        the camera goes away; what is sent meanwhile has to be counted, byte by byte
  reload        the configuration loses a port and gets it back
  hang          a second client of a shared port never reads; it has to be disconnected, and the first one gets everything
  flood         a client sends as fast as it can, reads nothing and vanishes
  vanish        a client resets its connection in the middle of a transfer
  rubbish       telnet options that make no sense
  half          half a request for the web page
  crowd         200 connections to a port that has its client

After each, the ledgers of the camera's ports have to balance, with exactly what the clients sent and got. In the end 10,000 connections are
opened at once to a port that has its client. Memory, descriptors and threads may not grow.
"""
import argparse
import collections
import contextlib
import random
import signal
import socket
import sys
import threading
import time

import service_parts as parts
from service_parts import Failure, wait_until

GROWTH = 2048  # KiB between the middle of the time and its end: what a heap may fluctuate by
GROWTH_OF_CROWD = 4096  # KiB
VICTIMS = 2
RATE = 2000  # bytes a second of each stream that goes on
LONGEST = 30  # seconds that such a stream may have to wait, on a busy machine
RECORD = 20
HALVES = 20  # half requests at a time; the web page has 32 places
KINDS = {"restart": 1, "unplug": 1, "reload": 1, "hang": 1, "flood": 2, "vanish": 2, "rubbish": 3, "half": 1, "crowd": 1}


def entries(cameras, folder, without=None):
    found = []
    for index, camera in enumerate(cameras):
        ports = {"bulk4": 'host = "tcp://:0"\nbaud = 115200',
                 "bulk5": f'host = "pty:{folder}/c{index}-bulk5"\nbaud = 115200',
                 "bulk6": 'host = "rfc2217://:0"\nbaud = 115200',
                 "bulk7": 'host = "tcp://:0"\nbaud = 115200\nclients = "shared"'}
        if without == index:
            del ports["bulk6"]
        found.append((f"c{index}", camera.address, ports))
    return found


class Bystanders(threading.Thread):
    """Streams to the cameras that nothing happens to."""

    def __init__(self, streams):
        super().__init__()
        self.streams = streams
        self.ends = False
        self.error = None

    def run(self):
        try:
            parts.run_streams(self.streams, RATE, lambda: not self.ends)
        except Exception as error:  # pylint: disable=broad-except
            self.error = error

    def check(self, service):
        if self.error:
            raise Failure(f"a client that nothing happened to: {self.error}; {service.reason(VICTIMS)}")
        slowest = max(self.streams, key=lambda stream: stream.longest)
        if slowest.longest > LONGEST:
            raise Failure(f"{slowest.name} has waited {slowest.longest:.1f} s for bytes; {service.reason(VICTIMS)}")


class Faults:
    def __init__(self, options, service, cameras, folder):
        self.options, self.service, self.cameras, self.folder = options, service, cameras, folder
        self.dice = random.Random(options.seed)
        self.counts = collections.Counter()
        self.bytes = collections.Counter()
        self.halves = collections.deque()
        self.samples = []
        self.victim = 0
        self.ends = False
        self.places = {}
        for index in range(len(cameras)):
            for port in ("bulk4", "bulk6", "bulk7"):
                self.places[index, port] = service.tcp_port(f"c{index}", port)
            service.find(rf" c{index} bulk5 is ")

    # What the service says of the victim's port, and when it rests.

    def port(self, name):
        return self.service.ports()[f"c{self.victim}", name]

    def rested(self, name):
        """What it says when no byte is on its way and none has come for a moment."""
        last = {}

        def look():
            now = self.port(name)
            both = {way: now[way] for way in ("to_device", "from_device")}
            quiet = both == last.get("both")
            last["both"] = both
            if not quiet:
                time.sleep(0.05)
            return now if quiet and not any(ledger["on_the_way"] for ledger in both.values()) else None

        now = wait_until(look, f"that c{self.victim} {name} comes to rest")
        for way in ("to_device", "from_device"):
            if now[way]["taken"] != now[way]["delivered"] + now[way]["lost"]:
                raise Failure(f"c{self.victim} {name} {way}: {now[way]}")
        return now

    @contextlib.contextmanager
    def client(self, name):
        """One that is the writer of the port."""
        wait_until(lambda: self.port(name)["clients"]["now"] == 0, "that the last client is gone")
        client = parts.connect(self.places[self.victim, name])
        wait_until(lambda: self.port(name)["clients"]["now"] == 1, "that the client is there")
        try:
            yield client
        finally:
            client.close()

    def exchange(self, client, count):
        """Sends count bytes and gets them back, a few at a time."""
        data = self.dice.randbytes(count)
        sent = received = 0
        end = time.monotonic() + parts.PATIENCE
        while received < count:
            if time.monotonic() > end:
                raise Failure(f"{received} of {count} bytes came back")
            with contextlib.suppress(BlockingIOError):
                sent += client.send(data[sent:min(sent + 4096, received + 16384)])
            got = self.read(client, 0.01)
            if got != data[received:received + len(got)]:
                place = data.find(got[:20])
                raise Failure(f"after {received} bytes came {got[:20]!r}..., {len(got)} bytes, which were sent at {place}; "
                              f"{sent} have been sent")
            received += len(got)
        self.bytes["exchanged"] += count

    @staticmethod
    def read(client, wait):
        client.settimeout(wait)
        try:
            return client.recv(65536)
        except (TimeoutError, BlockingIOError):
            return b""
        finally:
            client.setblocking(False)

    def echoed(self, name, before):
        """What has changed when all that the camera has got has come back. A camera on a busy machine may be silent for a while."""

        def look():
            found = self.differences(before, self.port(name))
            return found["from_device"]["taken"] >= found["to_device"]["delivered"]

        wait_until(look, f"that c{self.victim} {name} gives back what it has got")
        return self.differences(before, self.rested(name))

    def differences(self, before, after):
        return {way: {name: after[way][name] - before[way][name] for name in ("taken", "delivered", "lost")}
                for way in ("to_device", "from_device")}

    # The faults.

    def send_records(self, client, goes_on):
        """Numbered records, and what of them has come back so far."""
        number = 0
        back = b""
        while goes_on():
            with contextlib.suppress(BlockingIOError):
                client.sendall(b"%0*d\n" % (RECORD - 1, number))
            number += 1
            back += self.read(client, 0.02)
        return number * RECORD, back

    def check_records(self, client, name, before, sent, back):
        found = self.echoed(name, before)
        to_device, from_device = found["to_device"], found["from_device"]
        while len(back) < to_device["delivered"] and (piece := self.read(client, 0.5)):
            back += piece
        records = [int(line) for line in back.split()]
        # Each block is written in one piece: a record comes back whole or not at all, and in order.
        good = (to_device["taken"] == sent and len(back) == to_device["delivered"] == from_device["delivered"] and
                from_device["lost"] == 0 and records == sorted(set(records)) and len(records) * RECORD == len(back))
        if not good:
            raise Failure(f"{sent} bytes sent, {len(back)} came back: {found}")
        self.bytes["lost with a camera"] += to_device["lost"]
        return to_device["lost"]

    def restart(self):
        with self.client("bulk4") as client:
            self.exchange(client, 200)
            before = self.rested("bulk4")
            self.cameras[self.victim].command(f"restart {self.dice.randint(1, 400)}")
            sent, back = self.send_records(client, lambda: self.port("bulk4")["reconnections"] == before["reconnections"])
            self.check_records(client, "bulk4", before, sent, back)
            self.exchange(client, 200)
        self.wait_for_camera()

    def unplug(self):
        with self.client("bulk4") as client:
            before = self.rested("bulk4")
            self.cameras[self.victim].command("unplug")
            wait_until(lambda: not self.service.ask()["devices"][self.victim]["connected"], "that the camera is missed")
            time.sleep(0.1)  # the ports look for it every 50 ms
            count = self.dice.randint(1, 20)
            for number in range(count):
                client.sendall(b"%0*d\n" % (RECORD - 1, number))
            wait_until(lambda: self.port("bulk4")["to_device"]["lost"] - before["to_device"]["lost"] == count * RECORD,
                       "the count of lost bytes")
            self.cameras[self.victim].command("plug")
            wait_until(lambda: self.port("bulk4")["reconnections"] > before["reconnections"], "that the camera is back")
            self.check_records(client, "bulk4", before, count * RECORD, b"")
            self.exchange(client, 200)
        self.wait_for_camera()

    def wait_for_camera(self):
        """All ports of it have come back; the shared one as the last that is opened."""
        for name in ("bulk6", "bulk7"):
            with self.client(name) as client:
                before = self.rested(name)
                end = time.monotonic() + parts.PATIENCE
                sent = 0
                while not self.read(client, 0.2).endswith(b"?"):  # bytes are dropped until its port is back
                    if time.monotonic() > end:
                        raise Failure(f"c{self.victim} {name} does not come back")
                    client.sendall(b"?")
                    sent += 1

                def is_complete():
                    """The next client must not find answers to this one."""
                    self.read(client, 0.01)
                    found = self.differences(before, self.port(name))
                    return found["to_device"]["taken"] == sent and found["from_device"]["delivered"] == found["to_device"]["delivered"]

                wait_until(is_complete, f"all answers of c{self.victim} {name}")
                self.rested(name)

    def reload(self):
        start = len(self.service.lines)
        self.service.write(entries(self.cameras, self.folder, self.victim))
        self.service.reload()
        self.service.find(rf" c{self.victim} bulk6: ended$", start)
        self.service.write(entries(self.cameras, self.folder))
        self.service.reload()
        self.places[self.victim, "bulk6"] = self.service.tcp_port(f"c{self.victim}", "bulk6", start)
        with self.client("bulk4") as client:
            self.exchange(client, 200)

    def hang(self):
        with self.client("bulk7") as client:
            before = self.rested("bulk7")
            lazy = socket.socket()
            lazy.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            lazy.connect(("127.0.0.1", self.places[self.victim, "bulk7"]))
            wait_until(lambda: self.port("bulk7")["clients"]["now"] == 2, "the second client")
            while self.port("bulk7")["clients"]["disconnected"] == before["clients"]["disconnected"]:
                self.exchange(client, 100000)
            found = self.differences(before, self.rested("bulk7"))
            if any(ledger["lost"] for ledger in found.values()):
                raise Failure(f"bytes are lost because of a client that hangs: {found}")
            lazy.close()

    def flood(self):
        before = self.rested("bulk4")
        with self.client("bulk4") as client:
            sent = 0
            end = time.monotonic() + 0.3
            data = self.dice.randbytes(65536)
            while time.monotonic() < end:
                with contextlib.suppress(BlockingIOError):
                    sent += client.send(data)
                time.sleep(0.001)
            parts.vanish(client)
        self.check_abandoned("bulk4", before, sent)

    def vanish(self):
        before = self.rested("bulk4")
        with self.client("bulk4") as client:
            sent = client.send(self.dice.randbytes(self.dice.randint(1, 30000)))
            self.read(client, self.dice.random() * 0.05)
            parts.vanish(client)
        self.check_abandoned("bulk4", before, sent)

    def check_abandoned(self, name, before, sent):
        """What has been taken of a client that is gone went to the device, and came back for nobody or has been counted."""
        wait_until(lambda: self.port(name)["clients"]["now"] == 0, "that the client is gone")
        found = self.echoed(name, before)
        to_device, from_device = found["to_device"], found["from_device"]
        # A busy machine's camera may be so late with an answer that the service gives a block up; it counts it then.
        if not to_device["delivered"] <= from_device["taken"] <= to_device["taken"] <= sent:
            raise Failure(f"a client that is gone had sent {sent} bytes: {found}")
        self.bytes["of clients that vanished"] += to_device["taken"]
        self.bytes["refused"] += to_device["lost"]
        self.bytes["unread or overrun"] += from_device["lost"]
        with self.client(name) as client:
            self.exchange(client, 200)

    def rubbish(self):
        with self.client("bulk6") as client:
            data = bytearray(self.dice.randbytes(3000))
            for place in range(0, len(data), self.dice.randint(2, 9)):
                data[place] = 255  # what follows is a command
            with contextlib.suppress(BlockingIOError, ConnectionError):  # it may be turned out for answers that it does not read
                client.send(data)
            self.read(client, 0.02)
        self.rested("bulk6")
        with self.client("bulk6") as client:  # a new connection is at its beginning again
            client.sendall(b"abc")
            back = bytearray()

            def answers():
                back.extend(self.read(client, 0.05))
                return b"abc" in back

            wait_until(answers, "an answer after rubbish")

    def half(self):
        count = self.dice.randint(1, HALVES)
        while self.halves and (len(self.halves) + count > HALVES or time.monotonic() > self.halves[0][0] + 10):
            self.end_half()
        for _ in range(count):
            client = parts.connect(self.service.web)
            client.send(b"GET /sta"[:self.dice.randint(0, 8)])
            self.halves.append((time.monotonic(), client))
        self.service.ask()

    def end_half(self):
        """The service ends it by itself after five seconds."""
        client = self.halves.popleft()[1]
        client.settimeout(parts.PATIENCE)
        with contextlib.suppress(ConnectionError):
            if client.recv(100):
                raise Failure("half a request has got an answer")
        client.close()

    def crowd(self, count=200):
        with self.client("bulk4") as client:
            before = self.port("bulk4")["clients"]["turned_away"]
            others = []
            for _ in range(count):
                others.append(parts.connect(self.places[self.victim, "bulk4"]))
            wait_until(lambda: self.port("bulk4")["clients"]["turned_away"] == before + count,
                       f"that {count} connections are turned away")
            self.exchange(client, 2000)
            for other in others:
                parts.vanish(other)

    # The run.

    def sample(self):
        wait_until(lambda: not self.halves or self.end_half(), "the ends of half requests")
        wait_until(lambda: all(port.get("clients", {}).get("now", 0) == 0 for (device, _), port in self.service.ports().items()
                               if int(device[1:]) < VICTIMS), "that no victim has a client")
        time.sleep(0.2)
        system = self.service.system
        return system.memory(), system.files(), sum(system.threads().values())

    def run(self, bystanders):
        self.samples.append(self.sample())
        begin = time.monotonic()
        next_fault = begin
        next_sample = begin + self.options.seconds / 10
        names, weights = zip(*((kind, weight) for kind, weight in KINDS.items() if kind in self.options.only))
        names_left = list(names)  # a short run has each of them
        while ((now := time.monotonic()) < begin + self.options.seconds and not self.ends) or (names_left and not self.options.brief):
            kind = names_left.pop() if names_left else self.dice.choices(names, weights)[0]
            self.victim = self.dice.randrange(VICTIMS)
            try:
                getattr(self, kind)()
            except Failure as failure:
                raise Failure(f"{kind}, after {sum(self.counts.values())} faults: {failure}") from failure
            self.counts[kind] += 1
            bystanders.check(self.service)
            if now >= next_sample:
                self.samples.append(self.sample())
                next_sample += max(self.options.seconds / 20, 5)
                print(f"{now - begin:.0f} s: {sum(self.counts.values())} faults; memory, files, threads {self.samples[-1]}", flush=True)
            next_fault = max(next_fault + self.options.pause, time.monotonic())
            time.sleep(max(next_fault - time.monotonic(), 0) if not names_left else 0)
        print(f"{time.monotonic() - begin:.0f} s with {sum(self.counts.values())} faults", flush=True)

    def check_growth(self):
        self.samples.append(self.sample())
        first, middle, last = self.samples[0], self.samples[len(self.samples) // 2], self.samples[-1]
        for place, name in enumerate(("memory in KiB", "files", "threads")):
            print(f"{name} at the start {first[place]}, in the middle {middle[place]}, at the end {last[place]}")
        # A heap grows to its working size at first, and fluctuates then: the middle is what the end is compared with.
        if (last[0] > middle[0] + GROWTH and not self.options.sanitized) or last[1:] != middle[1:]:
            raise Failure("the service has grown")

    def ten_thousand(self):
        before = self.sample()
        self.victim = 0
        begin = time.monotonic()
        self.crowd(self.options.connections)
        took = time.monotonic() - begin
        after = self.sample()
        print(f"{self.options.connections} connections in {took:.1f} s: memory {before[0]} KiB, {after[0]} then")
        if (after[0] > before[0] + GROWTH_OF_CROWD and not self.options.sanitized) or after[1:] != before[1:]:
            raise Failure(f"the service has grown: {before}, {after}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--tool", required=True)
    parser.add_argument("--camera", required=True)
    parser.add_argument("--cameras", type=int, default=4)
    parser.add_argument("--seconds", type=float, default=10)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--connections", type=int, default=10000)
    parser.add_argument("--only", nargs="+", choices=KINDS, default=list(KINDS), metavar="KIND", help="faults of these kinds alone")
    parser.add_argument("--pause", type=float, default=1, help="seconds from one fault to the next")
    parser.add_argument("--sanitized", action="store_true", help="memory may grow: a sanitizer keeps what has been freed")
    parser.add_argument("--brief", action="store_true", help="not every kind of fault, if the time does not suffice")
    options = parser.parse_args()
    parts.allow_files(options.connections + 1000)
    with parts.cameras(options.camera, VICTIMS, "--fast") as victims, \
            parts.cameras(options.camera, options.cameras - VICTIMS, "--collect", "10") as others:
        everyone = victims + others
        with parts.service(options.tool, lambda folder: entries(everyone, folder)) as service:
            folder = service.file.rpartition("/")[0]
            faults = Faults(options, service, everyone, folder)
            streams = [parts.Stream(f"c{index} {port}", f"{folder}/c{index}-bulk5" if port == "bulk5" else faults.places[index, port])
                       for index in range(VICTIMS, options.cameras) for port in ("bulk4", "bulk5", "bulk7")]
            bystanders = Bystanders(streams)
            bystanders.start()
            signal.signal(signal.SIGINT, lambda *_: setattr(faults, "ends", True))  # the time ends early; everything is looked at
            try:
                faults.run(bystanders)
                faults.check_growth()
                faults.ten_thousand()
            finally:
                bystanders.ends = True
                bystanders.join()
            bystanders.check(service)
            wrong = parts.ledger_faults(service.ports(), [f"c{index}" for index in range(VICTIMS)])
            if wrong:
                raise Failure(f"ledgers: {wrong[:3]}")
            service.stop()
    print(", ".join(f"{count} {kind}" for kind, count in sorted(faults.counts.items())))
    print(", ".join(f"{count} bytes {what}" for what, count in sorted(faults.bytes.items())))
    print(f"{sum(stream.received for stream in streams)} bytes of {len(streams)} other clients; none has waited longer than "
          f"{max(stream.longest for stream in streams):.2f} s. Every byte is accounted for")


if __name__ == "__main__":
    try:
        main()
    except Failure as failure:
        print(f"FAILED: {failure}")
        sys.exit(1)
