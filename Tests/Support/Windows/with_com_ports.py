#!/usr/bin/env python3
"""Runs a Windows program under Wine with two COM ports that are connected with each other.

Each port is a pty; what one gets, the other sends. The program finds their names in KYSERIAL_TEST_COM_PORTS. When it
makes the file that KYSERIAL_TEST_COM_UNPLUG names, the first port's device vanishes.
Wine removes the links of ports that it does not know when it starts up, so they are looked after meanwhile.
"""
import os
import pathlib
import select
import shutil
import subprocess
import sys
import tempfile
import threading
import tty

WINE = pathlib.Path(__file__).resolve().parents[3] / "scripts" / "wine.sh"
CACHE = os.environ.get("XDG_CACHE_HOME") or os.path.join(os.environ.get("HOME", "/tmp"), ".cache")
PREFIX = pathlib.Path(os.environ.get("WINEPREFIX") or os.path.join(CACHE, "kyserial-wine"))


class Port:
    """A pty with a COM name of its own."""

    def __init__(self):
        self.master, self.terminal = os.openpty()
        tty.setraw(self.terminal)
        self.device = os.ttyname(self.terminal)
        os.set_blocking(self.master, False)
        self.link, self.name = self.claim()

    def claim(self):
        for number in range(30, 100):
            link = PREFIX / "dosdevices" / f"com{number}"
            owner = pathlib.Path(f"{link}.owner")  # survives Wine's clearing; not a device name
            try:
                os.symlink(str(os.getpid()), owner)
            except FileExistsError:
                if os.path.exists(f"/proc/{os.readlink(owner)}"):
                    continue
                owner.unlink(missing_ok=True)  # of a run that was killed; the next run takes it
                continue
            return link, f"COM{number}"
        sys.exit("no COM name is free")

    def mend(self):
        try:
            if os.readlink(self.link) == self.device:
                return
            os.unlink(self.link)
        except FileNotFoundError:
            pass
        try:
            os.symlink(self.device, self.link)
        except FileExistsError:
            pass

    def vanish(self):
        os.close(self.master)
        os.close(self.terminal)

    def release(self):
        self.link.unlink(missing_ok=True)
        pathlib.Path(f"{self.link}.owner").unlink(missing_ok=True)


def relay(source, target, ended):
    """Copies in one direction and lets a full target hold the source up."""
    while not ended.is_set():
        if not select.select([source], [], [], 0.1)[0]:
            continue
        try:
            data = os.read(source, 1024)
        except (BlockingIOError, OSError):
            continue
        while data and not ended.is_set():
            if not select.select([], [target], [], 0.1)[1]:
                continue
            try:
                data = data[os.write(target, data):]
            except BlockingIOError:
                pass


def main():
    subprocess.run([str(WINE), "cmd", "/c", "ver"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
    ports = [Port(), Port()]
    ended = threading.Event()
    unplug = pathlib.Path(tempfile.mkdtemp()) / "unplug"
    try:
        for port in ports:
            port.mend()
        relays = [threading.Thread(target=relay, args=(source.master, target.master, ended), daemon=True)
                  for source, target in (ports, reversed(ports))]
        for thread in relays:
            thread.start()
        environment = dict(os.environ, KYSERIAL_TEST_COM_PORTS=" ".join(port.name for port in ports),
                           KYSERIAL_TEST_COM_UNPLUG="Z:" + str(unplug).replace("/", "\\"))
        program = subprocess.Popen([str(WINE), *sys.argv[1:]], env=environment)
        while True:
            try:
                return program.wait(timeout=0.05)
            except subprocess.TimeoutExpired:
                for port in ports:
                    port.mend()
            if unplug.exists() and not ended.is_set():
                ended.set()
                for thread in relays:
                    thread.join()
                ports[0].vanish()
    finally:
        ended.set()
        for port in ports:
            port.release()
        shutil.rmtree(unplug.parent)


if __name__ == "__main__":
    sys.exit(main())
