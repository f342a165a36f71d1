"""tshark reads along while a client goes through a full session with kyserial-camera, and finds nothing amiss.

Usage: capture_test.py CAMERA_PROGRAM
"""

import os
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import time

from camera_process import Camera, own_address, skip

PROGRAM = sys.argv[1]


class Client:
    """The least that speaks the protocol."""

    def __init__(self, address):
        self.control = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.control.connect((address, 3956))
        self.events = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.events.bind((address, 0))
        for one in (self.control, self.events):
            one.settimeout(Camera.PATIENCE)
        self.request = 0

    def command(self, code, payload=b"", flags=1):
        self.request += 1
        self.control.send(struct.pack(">BBHHH", 0x42, flags, code, len(payload), self.request) + payload)
        answer = self.control.recv(2048)
        if struct.unpack(">H", answer[2:4])[0] == 0x89:
            answer = self.control.recv(2048)
        return struct.unpack(">H", answer[:2])[0], answer[8:]

    def write(self, address, value):
        status, _ = self.command(0x82, struct.pack(">II", address, value))
        assert status == 0, hex(status)

    def event(self):
        packet, sender = self.events.recvfrom(2048)
        code, _, request = struct.unpack(">HHH", packet[2:8])
        self.events.sendto(struct.pack(">HHHH", 0, code + 1, 0, request), sender)
        return struct.unpack(">H", packet[10:12])[0], packet[24:]

    def close(self):
        self.control.close()
        self.events.close()


def session(camera):
    """Every command, refusals too, and events of every kind."""
    client = Client(camera.address)
    local = struct.unpack(">I", socket.inet_aton(camera.address))[0]
    assert len(client.command(0x02, flags=0x11)[1]) == 248
    client.write(0x0A00, 2)
    assert client.command(0x80, struct.pack(">II", 0x0A00, 0x0934))[0] == 0
    _, url = client.command(0x84, struct.pack(">IHH", 0x200, 0, 512))
    start, size = (int(text, 16) for text in url[4:].rstrip(b"\0").decode().split(";")[1:])
    for offset in range(0, size, 512):
        count = (min(512, size - offset) + 3) // 4 * 4
        assert client.command(0x84, struct.pack(">IHH", start + offset, 0, count))[0] == 0
    client.write(0x0B10, local)
    client.write(0x0B00, client.events.getsockname()[1])
    client.write(0xB838, 0xC)
    client.write(0xB850, 0x55)
    seen = [client.event()[0], client.event()[0]]
    assert seen == [0x9000, 0x9000], seen
    client.write(0xB838, 0x1800)
    assert client.command(0x86, struct.pack(">I", 0x80000000) + b"abc")[0] == 0
    assert client.event()[0] == 0x9001
    client.write(0x0954, 2)  # slow commands may be announced
    camera.command("slow 1 20")
    client.write(0x0938, 3000)
    camera.command("clear")
    assert client.command(0x80, struct.pack(">I", 0x9000))[0] == 0x8003
    assert client.command(0x40, bytes(12))[0] == 0x8001
    client.write(0x0A00, 0)
    client.close()


def packets(path, *arguments):
    run = subprocess.run(["tshark", "-r", path, *arguments], capture_output=True, text=True, timeout=120, check=True)
    return run.stdout.splitlines()


def capture(camera, path):
    recorder = subprocess.Popen(
        ["tshark", "-i", "lo", "-f", f"udp and host {camera.address}", "-w", path], stderr=subprocess.PIPE, text=True)
    lines = []
    for line in recorder.stderr:
        lines.append(line)
        if "Capturing on" in line:
            break
        if recorder.poll() is not None:
            break
    else:
        recorder.wait()
        skip("this system does not let tshark capture: " + " ".join(lines).strip())
    # The first packets of a capture come late; one that is not the session's tells that it runs.
    probe = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    deadline = time.monotonic() + Camera.PATIENCE
    while (not os.path.exists(path) or os.path.getsize(path) < 1000) and time.monotonic() < deadline:
        probe.sendto(b"probe", (camera.address, 9))
        time.sleep(0.05)
    session(camera)
    probe.sendto(b"last", (camera.address, 9))
    while not packets(path, "-Y", "udp.port == 9 and data.data == 6c:61:73:74") and time.monotonic() < deadline:
        time.sleep(0.1)
    probe.close()
    recorder.terminate()
    recorder.stderr.close()
    recorder.wait()


def main():
    if shutil.which("tshark") is None:
        skip("tshark is not installed")
    for options in (), ("--long-event-ids",):
        judge("--fast", *options)


def judge(*options):
    with tempfile.TemporaryDirectory() as folder, Camera(PROGRAM, own_address(92), *options) as camera:
        path = os.path.join(folder, "session.pcapng")
        capture(camera, path)
        seen = packets(path, "-Y", "gvcp")
        assert len(seen) > 100, f"only {len(seen)} packets of the protocol"
        for code in ("EVENTDATA", "PENDING", "WRITEMEM", "READMEM", "DISCOVERY"):
            assert any(code in line for line in seen), f"no {code}"
        bad = packets(path, "-Y", "_ws.malformed or _ws.expert.severity == error")
        assert not bad, "\n".join(bad)
        print(f"{len(seen)} packets, none malformed")


if __name__ == "__main__":
    main()
