"""What is to be reached, table by table. Each row: what, how to get it from the figures, bound, peers in brackets."""


def ratio(upper, lower):
    """The quotient of two figures; None when one was not measured."""
    return lambda figures: figures[upper] / figures[lower] if figures.get(lower) and upper in figures else None


def value(name):
    return lambda figures: figures.get(name)


def growth(count):
    """What a bridge among so many costs, times what one costs alone in its process."""
    def compute(figures):
        many, one = figures.get(f"bridges{count}.cpu_percent"), figures.get("bridges1.cpu_percent")
        return many / count / one if many and one else None
    return compute


def of_the_possible(size, capacity=1024):
    """The speed as a part of what one raw futex round trip for every filling of the queue would allow."""
    def compute(figures):
        speed, trip = figures.get(f"one.fifo{capacity}.{size}B_MBs"), figures.get("one.futex.trip_us")
        return speed / ((capacity - 1) / trip) if speed and trip else None
    return compute


def per_sleep(figures):
    """Processor time of a bridge for each time that it is woken, times socat's."""
    names = [f"relay.{who}.messages_{what}" for who in ("bridge", "socat") for what in ("cpu_percent", "sleeps")]
    if not all(figures.get(name) for name in names):
        return None
    bridge_time, bridge_sleeps, socat_time, socat_sleeps = (figures[name] for name in names)
    return (bridge_time / bridge_sleeps) / (socat_time / socat_sleeps)


def at_most(bound):
    return ("at most", bound)


def at_least(bound):
    return ("at least", bound)


def counts():
    rows = []
    for name, what in HOT_PATHS.items():
        rows.append((f"{what}: instructions", value(f"count.{name}.instructions"), None))
    for name, what in HOT_PATHS.items():
        rows.append((f"{what}: system calls", value(f"count.{name}.system_calls"), at_most(0)))
    for name, what in HOT_PATHS.items():
        rows.append((f"{what}: allocations", value(f"count.{name}.allocations"), at_most(0)))
    return rows


def network(cores):
    udp, where = f"{cores}.net.udp_us", "one core" if cores == "one" else "two cores"
    return [
        (f"{where}: register read, times UDP", ratio(f"{cores}.net.read_us", udp), at_most(1.3)),
        (f"{where}: register write, times UDP", ratio(f"{cores}.net.write_us", udp), at_most(1.3)),
        (f"{where}: the system calls of a register alone, times UDP", ratio(f"{cores}.net.calls_us", udp), None),
        (f"{where}: register read by Aravis, times UDP", ratio(f"{cores}.net.aravis_us", udp), None),
        (f"{where}: UART byte with its event, times UDP", ratio(f"{cores}.net.uart_us", udp), at_most(3)),
        (f"{where}: byte on the line until its event, times UDP", ratio(f"{cores}.net.event_us", udp), None),
        (f"{where}: feature read as text, times Aravis",
         ratio(f"{cores}.net.feature_us", f"{cores}.net.aravis_feature_us"), at_most(1.0)),
        (f"{where}: connection to a description of 1 MiB, times reading it",
         ratio(f"{cores}.net.connect_mib_us", f"{cores}.net.read_mib_us"), at_most(1.5)),
        (f"{where}: list of 1,300 features with values and entries, times Aravis",
         ratio(f"{cores}.net.list_us", f"{cores}.net.aravis_list_us"), at_most(0.5)),
    ]


def evaluator():
    return [
        ("feature read as text without a network, times Aravis", ratio("genapi.text_us", "genapi.aravis_text_us"),
         at_most(1.0)),
        ("the longest use of a feature (its whole budget), us", value("genapi.budget_us"), at_most(100000)),
    ]


def throughput(cores):
    rows = [
        ("1 byte, times a pipe", ratio(f"{cores}.fifo65536.1B_MBs", f"{cores}.pipe.1B_MBs"), 7),
        ("256 bytes, times AF_UNIX", ratio(f"{cores}.fifo65536.256B_MBs", f"{cores}.unix.256B_MBs"), 3),
        ("4096 bytes, times a pipe", ratio(f"{cores}.fifo65536.4096B_MBs", f"{cores}.pipe.4096B_MBs"), 1.5),
    ]
    rows = [(what, how, at_least(bound) if cores == "one" else None) for what, how, bound in rows]
    for size in (1, 16, 256, 4096, 16384):
        rows.append((f"{size} bytes, times message_queue",
                     ratio(f"{cores}.fifo65536.{size}B_MBs", f"{cores}.boost.{size}B_MBs"), at_least(0.9)))
    return rows


PLACES = {"one-sim": "one core, camera in the program", "one-net": "one core, camera on the network",
          "sim": "camera in the program", "net": "camera on the network", "wine-sim": "Wine, camera in the program",
          "wine-net": "Wine, camera on the network"}


def beyond_the_line():
    """Commands to a lens. A bridge to a terminal device gives what its user writes to the camera every 10 ms."""
    ways = {"term": ("kyserial term", 0.25), "pty": ("pty", 10.25), "tcp": ("TCP", 0.25),
            "clser": ("Camera Link", 0.25)}
    return [(f"{where}: {name}, {rate} bit/s", value(f"line.{place}.{way}_{rate}_ms"), at_most(bound))
            for place, where in PLACES.items() for way, (name, bound) in ways.items() for rate in (9600, 115200)]


def times_the_line(names, bound):
    return [(f"{where}: {what}", value(f"line.{place}.{name}"), at_most(bound) if bound else None)
            for place, where in PLACES.items() for name, what in names.items()]


STREAMS = {f"{name}_{way}": f"16 KiB {what} {port}"
           for name, port in (("uart", "a UART"), ("bulk0", "bulk port 0"), ("bulk1", "a bulk port of features"))
           for way, what in (("down", "to"), ("up", "from"))}
MEMORIES = {
    "eeprom_write": "EEPROM, 256 bytes written and compared",
    "eeprom_read": "EEPROM, 256 bytes read",
    "flash_write": "flash memory, 64 KiB erased, written and compared",
    "flash_read": "flash memory, 64 KiB read",
    "flash_erase": "flash memory, 64 KiB erased",
}
STARTS = {
    "ports_ms": "kyserial ports",
    "features_ms": "kyserial features list",
    "i2c_detect_ms": "kyserial i2c detect",
    "first_byte_ms": "a bridge, from its start to the answer of the lens",
}

# Paths whose instructions are counted, by the names that HotPaths knows.
HOT_PATHS = {
    "RingPush/256": "256 bytes pushed",
    "RingPushAndRead/256": "256 bytes pushed and read",
    "UartWrite/1": "UART byte written",
    "UartEvent": "UART byte received",
    "BulkRegisterWrite/256": "register bulk chunk of 256",
    "BulkFeatureWrite/256": "feature bulk message of 256",
    "FifoWriteAndRead/256": "SharedFifo, 256 bytes written and read",
}

TABLES = {
    "trip": ("One byte there and back, two sleeping processes", [
        ("one core: 1024, times a raw futex", ratio("one.fifo1024.trip_us", "one.futex.trip_us"), at_most(1.05)),
        ("one core: 1024, times a futex that looks up every 50 ms",
         ratio("one.fifo1024.trip_us", "one.futex50.trip_us"), at_most(1.05)),
        ("two cores: 1024, times a raw futex",
         ratio("spread.fifo1024.trip_us", "spread.futex.trip_us"), at_most(1.05)),
        ("one core: pipe, times a raw futex", ratio("one.pipe.trip_us", "one.futex.trip_us"), None),
        ("one core: AF_UNIX, times a raw futex", ratio("one.unix.trip_us", "one.futex.trip_us"), None),
        ("one core: message_queue, times a raw futex", ratio("one.boost.trip_us", "one.futex.trip_us"), None),
        ("one core: straightforward form, times a raw futex",
         ratio("one.bytes1024.trip_us", "one.futex.trip_us"), None),
        ("one core: a futex after offering the processor, times raw",
         ratio("one.futexyield.trip_us", "one.futex.trip_us"), None),
        ("beside a program that computes: 1024, us", value("beside.fifo1024.trip_us"), None),
        ("the same, a raw futex, us", value("beside.futex.trip_us"), None),
        ("the same, a futex after offering the processor, us", value("beside.futexyield.trip_us"), None),
        ("system calls a round trip", value("trip.system_calls"), at_most(4)),
    ]),
    "throughput-one": ("MB/s at capacity 65536, one core", throughput("one")),
    "throughput-two": ("MB/s at capacity 65536, two cores", throughput("spread")),
    "small": ("Capacity 1024", [
        ("one core: 256 bytes, times the straightforward form",
         ratio("one.fifo1024.256B_MBs", "one.bytes1024.256B_MBs"), at_least(5)),
        ("one core: 16 KiB, times the straightforward form",
         ratio("one.fifo1024.16384B_MBs", "one.bytes1024.16384B_MBs"), at_least(7)),
        ("one core: 1 byte, times the straightforward form",
         ratio("one.fifo1024.1B_MBs", "one.bytes1024.1B_MBs"), None),
        ("one core: 16 bytes, times the straightforward form",
         ratio("one.fifo1024.16B_MBs", "one.bytes1024.16B_MBs"), None),
        ("one core: 16 KiB, part of what a raw futex allows", of_the_possible(16384), None),
        ("two cores: 256 bytes, times the straightforward form",
         ratio("spread.fifo1024.256B_MBs", "spread.bytes1024.256B_MBs"), None),
        ("64 servers at 115200 bit/s, % of a core", value("servers64.cpu_percent"), at_most(5)),
        ("runs in which they lost bytes", value("servers64.lost"), at_most(0)),
    ]),
    "ring": ("Receive ring, ns", [
        ("256 bytes pushed", value("engine.RingPush/256"), at_most(18)),
        ("256 bytes pushed and read", value("engine.RingPushAndRead/256"), at_most(33)),
        ("256 bytes pushed one by one", value("engine.RingPushByteByByte/256"), None),
        ("peer: memcpy of 256 bytes", value("engine.CopyBytes/256"), None),
        ("peer: a mutex taken and given back", value("engine.MutexPair"), None),
        ("peer: boost spsc_queue, 256 bytes in and out", value("engine.SpscPushAndPop/256"), None),
    ]),
    "wake": ("A thread that waits inside the process", [
        ("a reader woken by an event, times a futex", ratio("wake.ring_us", "wake.futex_us"), at_most(1.05)),
        ("the same, times a futex with a time-out", ratio("wake.ring_us", "wake.timed_us"), None),
        ("an event of the library, times a futex", ratio("wake.event_us", "wake.futex_us"), None),
        ("mutex and condition variable, times a futex", ratio("wake.condition_us", "wake.futex_us"), None),
        ("UART: wake-ups a byte whose event comes later", value("wake.uart_sleeps"), at_most(1)),
        ("register bulk: wake-ups a chunk of 256", value("wake.bulk_sleeps"), at_most(1)),
    ]),
    "engines": ("Engines, own time in ns", [
        ("UART, one byte", value("engine.UartWrite/1.own"), at_most(60)),
        ("UART, a byte of 1000", value("engine.UartWrite/1000.own_per_call"), at_most(60)),
        ("adapter calls for 1000 UART bytes", value("engine.UartWrite/1000.calls"), at_most(1000)),
        ("register bulk, a chunk of 256", value("engine.BulkRegisterWrite/256.own"), at_most(300)),
        ("adapter calls for 600 bytes", value("engine.BulkRegisterWrite/600.calls"), at_most(3)),
        ("feature bulk, a message of 256", value("engine.BulkFeatureWrite/256.own"), at_most(300)),
    ]),
    "counts": ("Instructions, calls and allocations of one turn, nobody waiting", counts()),
    "relay": ("A bridge to a pseudo terminal", [
        ("host to device, one byte: ms, median", value("relay.bridge.down_ms_median"), at_most(10.25)),
        ("host to device, one byte: ms, 99 of 100", value("relay.bridge.down_ms_p99"), at_most(10.6)),
        ("device to host: us, median, times socat",
         ratio("relay.bridge.up_us_median", "relay.socat.up_us_median"), at_most(1)),
        ("device to host: us, median, times ser2net",
         ratio("relay.bridge.up_us_median", "relay.ser2net.up_us_median"), None),
        ("device to host: CPU a megabyte, times socat",
         ratio("relay.bridge.up_cpu_ms_per_MB", "relay.socat.up_cpu_ms_per_MB"), at_most(1)),
        ("device to host: CPU a megabyte, times ser2net",
         ratio("relay.bridge.up_cpu_ms_per_MB", "relay.ser2net.up_cpu_ms_per_MB"), None),
        ("CPU at 115200 bit/s both ways, a stream, times socat",
         ratio("relay.bridge.stream_cpu_percent", "relay.socat.stream_cpu_percent"), at_most(0.75)),
        ("the same, times ser2net",
         ratio("relay.bridge.stream_cpu_percent", "relay.ser2net.stream_cpu_percent"), None),
        ("CPU at 115200 bit/s both ways, 256-byte messages, times socat",
         ratio("relay.bridge.messages_cpu_percent", "relay.socat.messages_cpu_percent"), at_most(0.75)),
        ("the same, times ser2net",
         ratio("relay.bridge.messages_cpu_percent", "relay.ser2net.messages_cpu_percent"), None),
        ("wake-ups a 256-byte message: bridge", value("relay.bridge.messages_sleeps"), None),
        ("wake-ups a 256-byte message: socat", value("relay.socat.messages_sleeps"), None),
        ("CPU a wake-up, 256-byte messages, times socat", per_sleep, None),
    ]),
    "bridges": ("Many bridges in one process", [
        ("1: CPU at 115200 bit/s both ways, % of a core", value("bridges1.cpu_percent"), None),
        ("8: CPU each, times one alone", growth(8), at_most(1.1)),
        ("64: CPU each, times one alone", growth(64), at_most(1.1)),
        ("256: CPU each, times one alone", growth(256), at_most(1.1)),
        ("64 idle: % of a core", value("bridges64.idle_cpu_percent"), at_most(1)),
        ("64: KiB in memory each", value("bridges64.resident_KiB_each"), at_most(110)),
        ("64: ms until all have stopped", value("bridges64.stop_all_ms"), at_most(100)),
        ("256: bytes lost", value("bridges256.lost"), at_most(0)),
    ]),
    "scale": ("Cameras on the network in one process, each with a port over TCP", [
        ("1: ms until the port is open", value("scale1.connected_ms"), None),
        ("8: ms until all ports are open", value("scale8.connected_ms"), None),
        ("64: ms until all ports are open", value("scale64.connected_ms"), None),
        ("64: threads for a camera more, without its port's", value("scale64.threads_each"), at_most(2)),
        ("64: UDP sockets for a camera more", value("scale64.sockets_each"), None),
        ("64: KiB in memory for a camera and a port more", value("scale64.KiB_each"), None),
    ]),
    "network": ("Network adapter", network("one") + network("spread") + evaluator()),
    "line-commands": ("A lens command and its answer, ms beyond the line's own time", beyond_the_line()),
    "line-streams": ("16 KiB at 115200 bit/s over TCP, times the line's own time", times_the_line(STREAMS, 1.02)),
    "line-memories": ("Programs at a memory on a bus, times the bus's and the memory's own time",
                      times_the_line(MEMORIES, None)),
    "line-starts": ("Short programs, ms", times_the_line(STARTS, None)),
    "wine": ("Windows build under Wine", [
        ("kernel calls a write with room", value("wine.calls.write"), at_most(3)),
        ("kernel calls a read with data", value("wine.calls.read"), at_most(3)),
        ("kernel calls a round trip (two events: 4)", value("wine.calls.trip"), None),
        ("one core: round trip, times two events",
         ratio("wine.one.fifo1024.trip_us", "wine.one.event.trip_us"), at_most(4.5)),
        ("one core: named pipe, times two events",
         ratio("wine.one.pipe.trip_us", "wine.one.event.trip_us"), None),
        ("wait inside a process, times an address wait",
         ratio("wine.inner.wait_us", "wine.inner.address_us"), at_most(1.1)),
        ("mutex and condition variable, times an address wait",
         ratio("wine.inner.condition_us", "wine.inner.address_us"), None),
        ("host to device and back, one byte: ms, median", value("wine.relay.echo_ms_median"), at_most(10.25)),
        ("host to device and back, one byte: ms, 99 of 100", value("wine.relay.echo_ms_p99"), at_most(10.6)),
        ("a wait of 10 ms and nothing else: ms, median", value("wine.inner.quiet_ms"), None),
        ("a wait of 10 ms and nothing else: ms, 99 of 100", value("wine.inner.quiet_p99_ms"), None),
        ("64 idle bridges: % of a core", value("wine.idle64.cpu_percent"), at_most(2)),
    ]),
    "size": ("Start and size", [
        ("kyserial ports: ms", value("start.ports_ms"), at_most(20)),
        ("libKySerial.so, stripped: KiB", value("size.library_KiB"), at_most(600)),
    ]),
}
