"""systemd judges the service's units, and the program says to the service manager what those expect.

Usage: judge_units.py KYSERIAL UNIT... [--analyze SYSTEMD-ANALYZE]
"""
import argparse
import os
import re
import socket
import subprocess
import tempfile
import time

CONFIGURATION = """
name = "units-{}"
[[device]]
device = "sim"
[[device.port]]
port = "uart0"
host = "tcp://:0"
"""


def units(analyze, program, files, folder):
    """Nothing is wrong with a unit, and what it exposes is rated under 3.0."""
    for file in files:
        with open(file, encoding="utf-8") as unit:
            text = unit.read()
        assert text.count("/usr/bin/kyserial ") == 1, file
        name = os.path.basename(file).replace("@", "@line3")
        with open(os.path.join(folder, name), "w", encoding="utf-8") as unit:
            unit.write(text.replace("/usr/bin/kyserial ", program + " "))
        found = subprocess.run([analyze, "verify", "--man=no", os.path.join(folder, name)], capture_output=True, text=True)
        assert found.returncode == 0 and name not in found.stderr, found.stderr
        rated = subprocess.run([analyze, "security", "--offline=true", "--threshold=29", file], capture_output=True, text=True)
        assert rated.returncode == 0, rated.stdout[-300:] + rated.stderr
        exposure = re.search(r"Overall exposure level for \S+ ([0-9.]+)", rated.stdout)
        assert exposure and float(exposure.group(1)) < 3.0, rated.stdout[-300:]


def notices(program, folder, address):
    """The service says that it is ready, then that it is alive, then that it stops."""
    listener = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    listener.bind("\0" + address[1:] if address.startswith("@") else address)
    listener.settimeout(60)
    file = os.path.join(folder, "service.toml")
    with open(file, "w", encoding="utf-8") as configuration:
        configuration.write(CONFIGURATION.format(os.getpid()))
    environment = dict(os.environ, NOTIFY_SOCKET=address, WATCHDOG_USEC="400000")
    service = subprocess.Popen([program, "serve", file], env=environment, stderr=subprocess.DEVNULL)
    try:
        assert listener.recv(100) == b"READY=1"
        begin = time.monotonic()
        for _ in range(4):
            assert listener.recv(100) == b"WATCHDOG=1"
        assert time.monotonic() - begin >= 0.5  # three half times, and not one with each look
        service.terminate()
        last = b"WATCHDOG=1"
        while last == b"WATCHDOG=1":
            last = listener.recv(100)
        assert last == b"STOPPING=1"
        assert service.wait(timeout=60) == 0
    finally:
        service.kill()
        listener.close()


def journal(program, folder):
    """Where the error output is the journal, lines have its levels and no time; elsewhere they have a time."""
    file = os.path.join(folder, "service.toml")
    with open(file, "w", encoding="utf-8") as configuration:
        configuration.write(CONFIGURATION.format(os.getpid()))
    for is_journal in (True, False):
        with open(os.path.join(folder, "journal"), "w+", encoding="utf-8") as stream:
            status = os.fstat(stream.fileno())
            name = f"{status.st_dev}:{status.st_ino + (0 if is_journal else 1)}"
            service = subprocess.Popen([program, "serve", file], env=dict(os.environ, JOURNAL_STREAM=name), stderr=stream)
            end = time.monotonic() + 60
            text = ""
            while "uart0 is tcp://" not in text and time.monotonic() < end:
                time.sleep(0.01)
                with open(stream.name, encoding="utf-8") as so_far:
                    text = so_far.read()
            service.terminate()
            assert service.wait(timeout=60) == 0
            start = "<6>" if is_journal else "20"
            assert text and all(line.startswith(start) for line in text.splitlines()), text


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("program")
    arguments.add_argument("units", nargs="*")
    arguments.add_argument("--analyze")
    given = arguments.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        notices(given.program, folder, os.path.join(folder, "notify"))
        notices(given.program, folder, f"@kyserial-test-{os.getpid()}")
        journal(given.program, folder)
        if given.analyze:
            units(given.analyze, given.program, given.units, folder)
        else:
            print("systemd-analyze is not installed (systemd): the units are not rated")


main()
