"""Runs the benchmarks, compares them with what is to be reached and writes the results down. scripts/bench.sh
builds what it needs and starts it."""

import argparse
import json
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import time

import draw
import targets

ROOT = pathlib.Path(__file__).resolve().parent.parent
BASELINE = ROOT / "Benchmarks" / "baseline.json"
# Paths whose instructions are counted, by the names that HotPaths knows.
HOT_PATHS = ["RingPush/256", "RingPushAndRead/256", "UartWrite/1", "BulkRegisterWrite/256", "BulkFeatureWrite/256",
             "UartEvent", "FifoWriteAndRead/256"]
GROWTH = 1.10
REPEATS = 5


def run(command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, **options).stdout


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


def count_system_calls(binaries):
    """System calls a round trip: what more round trips cost more, so that start and end do not count."""
    if shutil.which("strace") is None:
        return {}
    counts = []
    for turns in (500, 2500):
        command = ["strace", "-f", "-c", "-o", "/dev/stdout", binaries / "TransportBenchmark", "--trips", "fifo1024"]
        total = re.search(r"^100\.00.*?(\d+)\s+(?:\d+\s+)?total$", run(command + [str(turns)]), re.M)
        counts.append(int(total.group(1)))
    return {"trip.system_calls": (counts[1] - counts[0]) / 2000}


def measure_engines(binaries, quick):
    program = binaries / "EngineBenchmark"
    if not program.exists():
        return {}
    report = json.loads(run([program, "--benchmark_format=json", f"--benchmark_repetitions={REPEATS}",
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


def measure_bridges(binaries, quick):
    figures = {}
    for count in (8, 64) if quick else (1, 8, 64, 256):
        seconds = 1 if quick else 2
        runs = [read_figures(run([binaries / "BridgeBenchmark", str(count), str(seconds)]))
                for _ in range(1 if quick else REPEATS)]
        figures.update(median_of(runs))
    return figures


def measure_start(binaries):
    times = []
    for _ in range(20):
        start = time.perf_counter()
        run([binaries / "kyserial", "ports"])
        times.append((time.perf_counter() - start) * 1e3)
    library = binaries.parent / "lib" / "libKySerial.so"
    stripped = binaries.parent / "stripped.so"
    run(["strip", "-o", stripped, library.resolve()])
    return {"start.ports_ms": statistics.median(times), "size.library_KiB": stripped.stat().st_size / 1024}


def measure_wine(binaries, quick):
    if not binaries or not (binaries / "TransportBenchmark.exe").exists():
        return {}
    wine = ROOT / "scripts" / "wine.sh"
    figures = {}
    for program in ("TransportBenchmark.exe", "WaitBenchmark.exe"):
        command = [wine, binaries / program] + ["--quick"] * quick
        try:
            figures.update(read_figures(run(command, timeout=120), "wine."))
        except subprocess.TimeoutExpired as error:
            print(f"wine: {error}", file=sys.stderr)
    figures.update(measure_idle_wine(wine, binaries / "IdleBenchmark.exe", 1 if quick else 4))
    return figures


def measure_idle_wine(wine, program, seconds):
    """64 bridges at 64 pseudo terminals, which Wine knows as COM ports."""
    sys.path.insert(0, str(ROOT / "Tests" / "Host" / "Windows"))
    import with_com_ports

    with_com_ports.PREFIX = pathlib.Path(os.environ.get("WINEPREFIX", with_com_ports.PREFIX))
    ports = []
    try:
        ports = [with_com_ports.Port() for _ in range(64)]
        for port in ports:
            port.mend()
        # The links of ports that Wine does not know go when it starts; a program that is there keeps it up.
        keeper = subprocess.Popen([wine, "cmd", "/c", "pause"], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL)
        time.sleep(3)
        for port in ports:
            port.mend()
        text = run([wine, program, str(seconds)] + [port.name for port in ports], timeout=60)
        keeper.communicate(b"\n", timeout=30)
        return read_figures(text, "wine.")
    finally:
        for port in ports:
            port.release()


def count_instructions(binaries):
    """Instructions of one turn of each hot path. Two runs of different length: start and end do not count."""
    counts = {}
    for name in HOT_PATHS:
        totals = []
        for turns in (1000, 3000):
            command = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", binaries / "HotPaths", name,
                       str(turns)]
            log = subprocess.run(command, check=True, capture_output=True, text=True).stderr
            totals.append(int(re.search(r"Collected : (\d+)", log).group(1)))
        counts[name] = (totals[1] - totals[0]) / 2000
    return counts


def check(binaries, update):
    counts = count_instructions(binaries)
    if update:
        BASELINE.write_text(json.dumps(counts, indent=2, sort_keys=True) + "\n")
    baseline = json.loads(BASELINE.read_text())
    grown = 0
    for name, count in counts.items():
        before = baseline.get(name)
        share = count / before if before else 1
        grown += share > GROWTH
        note = "  more than 10 % above" if share > GROWTH else "" if before else "  not in the baseline"
        print(f"{name:28} {count:9.1f} instructions, baseline {before}{note}")
    return 1 if grown else 0


def write_results(figures, folder):
    folder.mkdir(parents=True, exist_ok=True)
    lines = []
    for name, (title, rows) in targets.TABLES.items():
        measured = [(what, how(figures), bound) for what, how, bound in rows]
        measured = [(what, number, bound) for what, number, bound in measured if number is not None]
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


def describe_machine():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        model = re.search(r"model name\s*: (.*)", file.read()).group(1)
    compiler = run(["c++", "--version"]).splitlines()[0]
    return f"{os.cpu_count()} x {model}, Linux {os.uname().release}, {compiler}; load {os.getloadavg()[0]:.1f} at the end."


def insert_into_page(tables):
    """Between the marks of Docs/performance.md."""
    page = ROOT / "Docs" / "performance.md"
    head, rest = page.read_text().split("<!-- figures -->")
    tail = rest.split("<!-- end of figures -->")[1]
    page.write_text(f"{head}<!-- figures -->\n{describe_machine()}\n\n{tables}\n<!-- end of figures -->{tail}")


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
    steps = {
        "transport": lambda: measure_transport(arguments.binaries, quick),
        "servers": lambda: read_figures(run([arguments.binaries / "ServerBenchmark"] + ["--quick"] * quick)),
        "engines": lambda: measure_engines(arguments.binaries, quick),
        "relay": lambda: read_figures(run([arguments.binaries / "RelayBenchmark"] + ["--quick"] * quick, timeout=120)),
        "bridges": lambda: measure_bridges(arguments.binaries, quick),
        "start": lambda: measure_start(arguments.binaries),
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
        except (subprocess.SubprocessError, OSError) as error:
            print(f"{name}: {error}", file=sys.stderr)
        load = os.getloadavg()[0]
        print(f"{name}: {time.perf_counter() - start:.0f} s, load {load:.1f}", file=sys.stderr)
    tables = write_results(figures, folder)
    (folder / "figures.json").write_text(json.dumps(dict(sorted(figures.items())), indent=1) + "\n")
    if arguments.write:
        insert_into_page(tables)
    print(tables)
    return 0


if __name__ == "__main__":
    sys.exit(main())
