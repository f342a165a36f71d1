"""Runs the benchmarks, compares them with what is to be reached and writes the results down. scripts/bench.sh
builds what it needs and starts it."""

import argparse
import json
import os
import pathlib
import re
import select
import shutil
import statistics
import subprocess
import sys
import threading
import time

import draw
import line_time
import targets

ROOT = pathlib.Path(__file__).resolve().parent.parent
BASELINE = ROOT / "Benchmarks" / "baseline.json"
HISTORY = ROOT / "Docs" / "records" / "performance-history.jsonl"
TURNS = (1000, 3000)  # two runs of different length: what begins and ends a run does not count
GROWTH = 1.10
REPEATS = 5  # as in Figures.h


def run(command, timeout=120):
    return subprocess.run(command, check=True, capture_output=True, text=True, timeout=timeout).stdout


def read_figures(text, prefix=""):
    found = re.findall(r"^figure (\S+) (\S+)", text.replace("\r", ""), re.M)
    return {prefix + name: float(number) for name, number in found}


def median_of(runs):
    """One set of figures out of several."""
    names = {name for figures in runs for name in figures}
    return {name: statistics.median([figures[name] for figures in runs if name in figures]) for name in names}


def measure_transport(binaries, quick):
    figures = read_figures(run([binaries / "TransportBenchmark"] + ["--quick"] * quick))
    figures.update(count_system_calls(binaries))
    return figures


def count_calls(command):
    """System calls of a run, by strace's sum."""
    log = run(["strace", "-f", "-c", "-o", "/dev/stdout"] + command)
    return int(re.search(r"^100\.00.*?(\d+)\s+(?:\d+\s+)?total$", log, re.M).group(1))


def of_a_turn(count):
    """What one turn adds; count: what a number of turns comes to."""
    return (count(TURNS[1]) - count(TURNS[0])) / (TURNS[1] - TURNS[0])


def count_system_calls(binaries):
    if shutil.which("strace") is None:
        return {}
    program = [binaries / "TransportBenchmark", "--trips", "fifo1024"]
    # A tenth more of them go before.
    return {"trip.system_calls": of_a_turn(lambda turns: count_calls(program + [str(turns)])) / 1.1}


def count_hot_paths(binaries, quick):
    """Allocations and system calls, and instructions if there is time for them."""
    figures = {}
    for name in targets.HOT_PATHS:
        program = [binaries / "HotPaths", name]
        figures[f"count.{name}.allocations"] = of_a_turn(
            lambda turns: read_figures(run(program + [str(turns)]))["allocations"])
        if shutil.which("strace") is not None:
            figures[f"count.{name}.system_calls"] = of_a_turn(lambda turns: count_calls(program + [str(turns)]))
    if not quick and shutil.which("valgrind") is not None:
        for name, count in count_instructions(binaries).items():
            figures[f"count.{name}.instructions"] = count
    return figures


def measure_engines(binaries, quick):
    program = binaries / "EngineBenchmark"
    if not program.exists():
        return {}
    report = json.loads(run([program, "--benchmark_format=json", f"--benchmark_repetitions={2 if quick else REPEATS}",
                             f"--benchmark_min_time={0.02 if quick else 0.2}",
                             "--benchmark_report_aggregates_only=true"]))
    figures = {}
    for entry in report["benchmarks"]:
        if entry["aggregate_name"] == "median":
            name = "engine." + entry["run_name"]
            figures[name] = entry["cpu_time"]
            if "adapter_writes" in entry:
                figures[name + ".calls"] = entry["adapter_writes"]
    adapter = figures.get("engine.AdapterRegisterWrite", 0)
    for name, calls in [(n[:-6], c) for n, c in figures.items() if n.endswith(".calls")]:
        figures[name + ".own"] = figures[name] - adapter * calls
        figures[name + ".own_per_call"] = figures[name + ".own"] / calls
    return figures


def measure_network(binaries, quick):
    """Only where the adapter can be built."""
    figures = {}
    for name in ("NetworkBenchmark", "EvaluatorBenchmark"):
        program = binaries / name
        if program.exists():
            figures.update(read_figures(run([program] + ["--quick"] * quick)))
    return figures


def measure_bridges(binaries, quick):
    figures = {}
    for count in (8, 64) if quick else (1, 8, 64, 256):
        runs = [read_figures(run([binaries / "BridgeBenchmark", str(count), "1"]))
                for _ in range(1 if quick else REPEATS)]
        figures.update(median_of(runs))
    return figures


def measure_scale(binaries, quick):
    """A service with many cameras on the loopback network, each a program, and one port each: what a camera more takes."""
    sys.path.insert(0, str(ROOT / "scripts"))
    import service_parts

    def start(cameras):
        entries = [(f"c{index}", camera.address, {"bulk4": 'host = "tcp://:0"'}) for index, camera in enumerate(cameras)]
        with service_parts.service(binaries / "kyserial", entries) as service:
            connected = max(service.find(rf" c{index} bulk4 is ")[0] for index in range(len(cameras))) - service.begin
            time.sleep(0.5)  # nobody works at the start any more
            threads = service.system.threads()
            found = {"connected_ms": connected * 1e3, "sockets": service.system.udp_sockets(), "KiB": service.system.memory(),
                     "threads": sum(number for name, number in threads.items() if not name.startswith("Bridge"))}
            service.stop()
            return found

    service_parts.allow_files(8192)
    figures = {}
    for count in (1, 8) if quick else (1, 8, 64):
        with service_parts.cameras(binaries / "kyserial-camera", count, "--collect", "10") as cameras:
            runs = [start(cameras) for _ in range(1 if quick else REPEATS)]
        figures.update({f"scale{count}.{name}": number for name, number in median_of(runs).items()})
        for name in ("sockets", "KiB", "threads") if count > 1 else ():
            figures[f"scale{count}.{name}_each"] = (figures[f"scale{count}.{name}"] - figures[f"scale1.{name}"]) / (count - 1)
    return figures


def measure_start(binaries):
    times = []
    for _ in range(20):
        start = time.perf_counter()
        run([binaries / "kyserial", "ports", "--device", "sim"])
        times.append((time.perf_counter() - start) * 1e3)
    library = binaries.parent / "lib" / "libKySerial.so"
    stripped = binaries.parent / "stripped.so"
    run(["strip", "-o", stripped, library.resolve()])
    return {"start.ports_ms": statistics.median(times), "size.library_KiB": stripped.stat().st_size / 1024}


def measure_line_time(binaries, windows, quick):
    program = windows / "kyserial.exe" if windows else None
    wine = [ROOT / "scripts" / "wine.sh", program] if program and program.exists() else None
    return line_time.measure(binaries, wine, quick)


def measure_wine(binaries, quick):
    if not binaries or not (binaries / "TransportBenchmark.exe").exists():
        return {}
    wine = ROOT / "scripts" / "wine.sh"
    run([wine, "cmd", "/c", "ver"])  # the first start makes the prefix
    figures = {}
    for program in ("WaitBenchmark.exe", "TransportBenchmark.exe"):
        command = [wine, binaries / program] + ["--quick"] * quick
        try:
            figures.update(read_figures(run(command, timeout=30 if quick else 100), "wine."))
        except subprocess.TimeoutExpired as error:
            print(f"wine: {program}: {error}", file=sys.stderr)
            figures.update(read_figures((error.stdout or b"").decode(), "wine."))
        except (subprocess.SubprocessError, OSError) as error:
            print(f"wine: {program}: {error}", file=sys.stderr)
    figures.update(measure_bridges_wine(wine, binaries / "IdleBenchmark.exe", 1 if quick else 4))
    return figures


def measure_bridges_wine(wine, program, seconds):
    """64 bridges at 64 pseudo terminals, which Wine knows as COM ports: idle, and then a byte there and back."""
    sys.path.insert(0, str(ROOT / "Tests" / "Support" / "Windows"))
    import with_com_ports

    with_com_ports.PREFIX = pathlib.Path(os.environ.get("WINEPREFIX", with_com_ports.PREFIX))
    ports = []
    keeper = bridges = None
    try:
        ports = [with_com_ports.Port() for _ in range(64)]
        # The links of ports that Wine does not know go when it starts; a program that is there keeps it up.
        keeper = subprocess.Popen([wine, "cmd", "/c", "pause"], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL)
        time.sleep(3)
        for port in ports:
            port.mend()
        bridges = subprocess.Popen([wine, program, str(seconds)] + [port.name for port in ports],
                                   stdout=subprocess.PIPE, text=True)
        with_end = threading.Timer(60, bridges.kill)
        with_end.start()
        lines = []
        for line in bridges.stdout:
            lines.append(line)
            if line.strip() == "echo":
                lines += measure_echo(ports[0].master)
        bridges.wait()
        with_end.cancel()
        return read_figures("\n".join(lines), "wine.")
    finally:
        if keeper:
            try:
                keeper.communicate(b"\n", timeout=30)
            except subprocess.TimeoutExpired:
                keeper.kill()
        for port in ports:
            port.release()


def measure_echo(terminal):
    """A byte to a bridge's device and back, for two seconds: lines with figures."""
    times = []
    end = time.perf_counter() + 2
    while time.perf_counter() < end:
        start = time.perf_counter()
        os.write(terminal, b"x")
        if not select.select([terminal], [], [], 1)[0] or os.read(terminal, 1) != b"x":
            return []
        times.append((time.perf_counter() - start) * 1e3)
        time.sleep(0.005)
    times.sort()
    return [f"figure relay.echo_ms_median {statistics.median(times)}",
            f"figure relay.echo_ms_p99 {times[len(times) * 99 // 100]}"]


def count_instructions(binaries):
    """Instructions of one turn of each hot path."""
    def count(name, turns):
        command = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", binaries / "HotPaths", name,
                   str(turns)]
        log = subprocess.run(command, check=True, capture_output=True, text=True, timeout=120).stderr
        return int(re.search(r"Collected : (\d+)", log).group(1))

    return {name: of_a_turn(lambda turns, path=name: count(path, turns)) for name in targets.HOT_PATHS}


def describe_compiler():
    return run(["c++", "--version"]).splitlines()[0]


def check(binaries, update):
    counts = count_instructions(binaries)
    if update:
        BASELINE.write_text(json.dumps({"compiler": describe_compiler(), "instructions": counts}, indent=2,
                                       sort_keys=True) + "\n")
    recorded = json.loads(BASELINE.read_text())
    if recorded["compiler"] != describe_compiler():
        print(f"not compared: the baseline is of {recorded['compiler']}, this compiler is {describe_compiler()}")
        return 0
    baseline = recorded["instructions"]
    grown = 0
    for name, count in counts.items():
        before = baseline.get(name)
        share = count / before if before else 1
        grown += share > GROWTH
        note = "  more than 10 % above" if share > GROWTH else "" if before else "  not in the baseline"
        print(f"{name:28} {count:9.1f} instructions, baseline {before}{note}")
    return 1 if grown else 0


def measured_rows(figures):
    """(table, what, number, bound) of each row that was measured."""
    for name, (_, rows) in targets.TABLES.items():
        for what, how, bound in rows:
            number = how(figures)
            if number is not None:
                yield name, what, number, bound


def write_results(figures, folder):
    folder.mkdir(parents=True, exist_ok=True)
    lines = []
    found = list(measured_rows(figures))
    for name, (title, _) in targets.TABLES.items():
        measured = [row[1:] for row in found if row[0] == name]
        if not measured:
            continue
        (folder / f"{name}.svg").write_text(draw.draw(title, measured))
        lines += [f"### {title}", "", f"![{title}](performance/{name}.svg)", "", "| | measured | to reach |",
                  "|---|---|---|"]
        for what, number, bound in measured:
            goal = f"{bound[0]} {bound[1]:g}" if bound else "(peer)"
            mark = "" if draw.is_reached(number, bound) is not False else ", not reached"
            lines.append(f"| {what} | {draw.short(number)} | {goal}{mark} |")
        lines.append("")
    return "\n".join(lines)


def describe_machine(load_before):
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        model = re.search(r"model name\s*: (.*)", file.read()).group(1)
    return (f"{os.cpu_count()} x {model}, Linux {os.uname().release}, {describe_compiler()}; "
            f"{load_before:.1f} programs at work before the run.")


def add_to_history(figures, load_before):
    """A line of JSON for each run whose figures went into the documentation."""
    rows = {}
    for name, what, number, _ in measured_rows(figures):
        rows.setdefault(name, {})[what] = float(f"{number:.3g}")
    commit = run(["git", "-C", ROOT, "rev-parse", "--short", "HEAD"]).strip()
    line = {"date": time.strftime("%Y-%m-%d"), "commit": commit, "machine": describe_machine(load_before), "rows": rows}
    with open(HISTORY, "a", encoding="utf-8") as file:
        file.write(json.dumps(line) + "\n")


def insert_into_page(tables, load_before, only_some):
    """Between the marks of Docs/performance.md. Which machine, and how busy, is that of the last run of all steps."""
    page = ROOT / "Docs" / "performance.md"
    head, rest = page.read_text().split("<!-- figures -->")
    former, tail = rest.split("<!-- end of figures -->")
    machine = former.strip().split("\n", 1)[0] if only_some else describe_machine(load_before)
    page.write_text(f"{head}<!-- figures -->\n{machine}\n\n{tables}\n<!-- end of figures -->{tail}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--binaries", type=pathlib.Path, required=True)
    parser.add_argument("--wine", type=pathlib.Path)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--update-baseline", action="store_true")
    parser.add_argument("--only", help="these steps, separated by commas; other figures stay as they were")
    parser.add_argument("--write", action="store_true", help="pictures and tables into Docs/")
    arguments = parser.parse_args()
    if arguments.check or arguments.update_baseline:
        return check(arguments.binaries, arguments.update_baseline)

    figures = {}
    quick = arguments.quick
    load_before = os.getloadavg()[0]
    steps = {
        "transport": lambda: measure_transport(arguments.binaries, quick),
        "servers": lambda: read_figures(run([arguments.binaries / "ServerBenchmark"] + ["--quick"] * quick)),
        "engines": lambda: measure_engines(arguments.binaries, quick),
        "wakes": lambda: read_figures(run([arguments.binaries / "WakeBenchmark"] + ["--quick"] * quick)),
        "counts": lambda: count_hot_paths(arguments.binaries, quick),
        "network": lambda: measure_network(arguments.binaries, quick),
        "relay": lambda: read_figures(run([arguments.binaries / "RelayBenchmark"] + ["--quick"] * quick, timeout=240)),
        "scale": lambda: measure_scale(arguments.binaries, quick),
        "bridges": lambda: measure_bridges(arguments.binaries, quick),
        "start": lambda: measure_start(arguments.binaries),
        "line": lambda: measure_line_time(arguments.binaries, arguments.wine, quick),
        "wine": lambda: measure_wine(arguments.wine, quick),
    }
    folder = ROOT / "Docs" / "performance" if arguments.write else arguments.binaries.parent / "performance"
    if arguments.only:
        steps = {name: steps[name] for name in arguments.only.split(",")}
        if (folder / "figures.json").exists():
            figures = json.loads((folder / "figures.json").read_text())
    for name, step in steps.items():
        start = time.perf_counter()
        try:
            figures.update(step())
        except (subprocess.SubprocessError, OSError, AttributeError, ValueError) as error:
            print(f"{name}: {error}", file=sys.stderr)
        load = os.getloadavg()[0]
        print(f"{name}: {time.perf_counter() - start:.0f} s, load {load:.1f}", file=sys.stderr)
    tables = write_results(figures, folder)
    (folder / "figures.json").write_text(json.dumps(dict(sorted(figures.items())), indent=1) + "\n")
    if arguments.write:
        insert_into_page(tables, load_before, arguments.only)
        add_to_history(figures, load_before)
    print(tables)
    return 0


if __name__ == "__main__":
    sys.exit(main())
