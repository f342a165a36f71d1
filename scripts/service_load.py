#!/usr/bin/env python3
"""One service with many cameras of four ports each, a stream both ways at each port: TCP clients at two, pseudo terminals at the
others. Counts processor time, memory, threads and sockets; every byte that comes back is checked by its place in the stream. See
service_load.sh.

Fails when a byte is lost, a ledger does not balance, or there are more threads than Docs/service.md says. The other bounds are those of a
quiet machine: --strict makes them failures.
"""
import argparse
import json
import os
import sys
import time

import service_parts as parts
from service_parts import Failure, LINE

PORTS = ("bulk4", "bulk5", "bulk6", "bulk7")
MOST = {"linear": 1.10, "port_KiB": 128, "reload_ms": 200, "stop_ms": 200}
IDLE = 2  # seconds
OWN_THREADS = 5  # the program's, those of clients, web page and devices, and one that looks for interruptions
MOST_THREADS = {"threads_of_a_camera": 2, "threads_of_a_port": 3}


def entry(folder, index, port):
    if PORTS.index(port) % 2 == 0:
        return 'host = "tcp://:0"\nbaud = 115200'
    return f'host = "pty:{folder}/c{index}-{port}"\nbaud = 115200'


def entries(cameras, folder, ports=PORTS):
    return [(f"c{index}", camera.address, {port: entry(folder, index, port) for port in ports})
            for index, camera in enumerate(cameras)]


def open_streams(service, count, ports=PORTS):
    streams = []
    for index in range(count):
        for port in ports:
            place = service.find(rf" c{index} {port} is (\S+)")[1].group(1)
            where = int(place.rpartition(":")[2]) if place.startswith("tcp") else place.removeprefix("pty:")
            streams.append(parts.Stream(f"c{index} {port}", where))
    return streams


class Run:
    """One service with a number of cameras, from start to stop."""

    def __init__(self, options, cameras, rate):
        self.options = options
        self.cameras = cameras
        self.rate = rate
        self.figures = {"cameras": len(cameras), "rate": rate}

    def measure(self):
        with parts.service(self.options.tool, lambda folder: entries(self.cameras, folder), self.options.apart) as service:
            folder = service.file.rpartition("/")[0]
            self.wait_for_ports(service)
            self.figures["KiB_idle"] = service.system.memory()
            before = service.system.cpu()
            time.sleep(IDLE)
            self.figures["cpu_idle_percent"] = (service.system.cpu() - before) / IDLE * 100
            streams = open_streams(service, len(self.cameras))
            self.count_threads(service)
            self.stream(service, streams)
            self.figures["KiB"] = service.system.memory()
            self.reload(service, folder, streams)
            wrong = parts.ledger_faults(service.ports())
            if wrong:
                raise Failure(f"ledgers: {wrong[:3]}")
            for stream in streams:  # bytes are under way when it ends
                stream.send(200)
            self.figures["stop_ms"] = service.stop() * 1e3
            for stream in streams:
                stream.close()
        return self.figures

    def wait_for_ports(self, service):
        last = service.begin
        for index in range(len(self.cameras)):
            for port in PORTS:
                last = max(last, service.find(rf" c{index} {port} is ")[0])
        self.figures["connected_ms"] = (last - service.begin) * 1e3

    def count_threads(self, service):
        count = len(self.cameras)
        threads = service.system.threads()
        of_ports = sum(number for name, number in threads.items() if name.startswith("Bridge"))
        self.figures["threads_of_a_port"] = of_ports / (count * len(PORTS))
        terminals = count * len(PORTS) / 2  # each has a thread that reads
        # Rounded: a sanitizer has a thread too.
        self.figures["threads_of_a_camera"] = round((sum(threads.values()) - of_ports - terminals - OWN_THREADS) / count)
        self.figures["threads"] = sum(threads.values())
        self.figures["sockets_of_a_camera"] = service.system.udp_sockets() / count
        self.figures["files"] = service.system.files()

    def stream(self, service, streams):
        own = parts.Process("self")
        processes = {"service": [service.system], "clients": [own],
                     "cameras": [parts.Process(camera.process.pid) for camera in self.cameras]}
        before = {name: sum(one.cpu() for one in group) for name, group in processes.items()}
        begin = time.monotonic()
        try:
            drain = parts.run_streams(streams, self.rate, lambda: time.monotonic() < begin + self.options.seconds)
        except Failure as failure:
            raise Failure(f"{failure}; {service.reason()}") from failure
        took = time.monotonic() - begin
        megabytes = sum(stream.received for stream in streams) / 1e6
        self.figures.update({
            "MB_each_way": megabytes, "seconds": took, "drain_ms": drain * 1e3,
            "longest_ms": max(stream.longest for stream in streams) * 1e3,
            **{f"cpu_{name}_percent": (sum(one.cpu() for one in group) - before[name]) / took * 100
               for name, group in processes.items()}})
        self.figures["cpu_ms_per_MB"] = self.figures["cpu_service_percent"] * took * 10 / (2 * megabytes)

    def reload(self, service, folder, streams):
        """Without a change; then one port gets another entry, and only its client may notice."""
        self.figures["reload_ms"] = service.reload() * 1e3
        changed = entries(self.cameras, folder)
        changed[0][2]["bulk7"] += "\nstop = 1"
        service.write(changed)
        begin, start = time.monotonic(), len(service.lines)
        service.reload()
        self.figures["reload_port_ms"] = (service.find(r" c0 bulk7 is ", start)[0] - begin) * 1e3
        gone = next(stream for stream in streams if stream.name == "c0 bulk7")
        gone.close()
        streams.remove(gone)
        begin = time.monotonic()
        parts.run_streams(streams, self.rate, lambda: time.monotonic() < begin + 2 * parts.TURN)


def memory_of(options, cameras, ports):
    """KiB of a service of these cameras and ports that have had traffic."""
    with parts.service(options.tool, lambda folder: entries(cameras, folder, ports)) as service:
        streams = open_streams(service, len(cameras), ports)
        begin = time.monotonic()
        parts.run_streams(streams, LINE * options.rate, lambda: time.monotonic() < begin + 2)
        memory = service.system.memory()
        for stream in streams:
            stream.close()
        service.stop()
    return memory


def measure_memory(options, cameras):
    """What a port more and what a camera more take: its description and its connection are a camera's."""
    one_port, all_ports = memory_of(options, cameras, PORTS[:1]), memory_of(options, cameras, PORTS)
    one_camera = memory_of(options, cameras[:1], PORTS[:1])
    port = (all_ports - one_port) / (len(cameras) * (len(PORTS) - 1))
    return {"port_KiB": port, "camera_KiB": (one_port - one_camera) / (len(cameras) - 1) - port}


def judge(all_figures):
    """Bounds that are not reached, each with the figure."""
    missed = []
    smallest, largest = all_figures[0], all_figures[-1]
    if len(all_figures) > 1:
        largest["linear"] = largest["cpu_ms_per_MB"] / smallest["cpu_ms_per_MB"]
    for figures in all_figures:
        missed += [f"{figures['cameras']} cameras: {name} {figures[name]:.2f}, at most {bound}"
                   for name, bound in MOST.items() if figures.get(name, 0) > bound]
        for name, most in MOST_THREADS.items():
            if figures[name] > most:
                raise Failure(f"{figures['cameras']} cameras: {name} {figures[name]}, at most {most}")
    return missed


def show(figures):
    print("  ".join(f"{name} {value:.4g}" if isinstance(value, float) else f"{name} {value}"
                    for name, value in figures.items()), flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--tool", required=True)
    parser.add_argument("--camera", required=True)
    parser.add_argument("--cameras", default="8,16,32,64", help="how many, several numbers with commas")
    parser.add_argument("--rate", type=float, default=1, help="share of the line's rate")
    parser.add_argument("--seconds", type=float, default=10)
    parser.add_argument("--collect", type=int, default=10, help="milliseconds; see kyserial-camera")
    parser.add_argument("--apart", action="store_true", help="the service on one core, everything else on the others")
    parser.add_argument("--strict", action="store_true")
    parser.add_argument("--json", help="file that gets the figures")
    options = parser.parse_args()
    parts.allow_files(8192)
    cores = sorted(os.sched_getaffinity(0))
    if options.apart and len(cores) > 1:
        os.sched_setaffinity(0, cores[1:])
    all_figures = []
    for count in [int(number) for number in options.cameras.split(",")]:
        with parts.cameras(options.camera, count, "--collect", str(options.collect)) as cameras:
            memory = measure_memory(options, cameras) if not all_figures and count > 1 else {}
            all_figures.append({**Run(options, cameras, LINE * options.rate).measure(), **memory})  # leaves bytes in the cameras
            show(all_figures[-1])
    missed = judge(all_figures)
    for line in missed:
        print("not reached: " + line)
    if options.json:
        with open(options.json, "w", encoding="utf-8") as file:
            json.dump(all_figures, file, indent=1)
    print("no byte is lost")
    return 1 if missed and options.strict else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Failure as failure:
        print(f"FAILED: {failure}")
        sys.exit(1)
