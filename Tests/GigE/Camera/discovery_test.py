"""Two cameras answer a discovery that is broadcast, to a raw packet and to Aravis.

The broadcast must not leave this computer: everything runs in a network namespace of its own that has nothing but
the loopback interface.

Usage: discovery_test.py CAMERA_PROGRAM
"""

import os
import shutil
import socket
import struct
import subprocess
import sys

from camera_process import Camera, skip

INSIDE = "KYSERIAL_INSIDE_NAMESPACE"


def enter_namespace():
    """Starts this program again inside, and passes its status on."""
    for tool in ("unshare", "ip"):
        if shutil.which(tool) is None:
            skip(f"{tool} is not installed")
    probe = subprocess.run(["unshare", "-rn", "ip", "link", "set", "lo", "up"], capture_output=True, text=True)
    if probe.returncode != 0:
        skip("this system gives no network namespace: " + probe.stderr.strip())
    command = ["unshare", "-rn", "sh", "-c", 'ip link set lo up && exec "$@"', "sh", sys.executable, *sys.argv]
    return subprocess.run(command, env={**os.environ, INSIDE: "1"}).returncode


def discover(count):
    """The addresses that answer, once so many have."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as client:
        client.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        client.bind(("127.0.0.1", 0))
        client.settimeout(Camera.PATIENCE)
        client.sendto(struct.pack(">BBHHH", 0x42, 0x11, 0x02, 0, 0xFFFF), ("255.255.255.255", 3956))
        found = set()
        while len(found) < count:
            answer, sender = client.recvfrom(2048)
            assert struct.unpack(">HHHH", answer[:8]) == (0, 3, 248, 0xFFFF)
            assert socket.inet_ntoa(answer[8 + 0x24:8 + 0x28]) == sender[0]
            found.add(sender[0])
        return found


def main():
    program = sys.argv[1]
    with Camera(program, "127.0.0.2", broadcast=True) as first, Camera(program, "127.0.0.3", broadcast=True) as second:
        for camera in (first, second):
            assert camera.lines[0].endswith(", answers broadcasts"), camera.lines
        assert discover(2) == {"127.0.0.2", "127.0.0.3"}
        if shutil.which("arv-tool-0.8") is None:
            print("Aravis's tool is not installed; its own discovery was not tried")
            return
        listed = subprocess.run(["arv-tool-0.8"], capture_output=True, text=True, timeout=60).stdout
        assert "(127.0.0.2)" in listed and "(127.0.0.3)" in listed, listed


if __name__ == "__main__":
    if INSIDE not in os.environ:
        sys.exit(enter_namespace())
    main()
