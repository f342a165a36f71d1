#!/usr/bin/env python3
"""Runs pySerial's own tests on a simulated camera's port with a loop-back plug, and on pySerial's loop:// beside it:

    scripts/pyserial_suite.py BUILD [FOLDER]

BUILD has KySerialC, KySimulatorC and KyGigEC. FOLDER is pySerial's source; without it, it comes as Debian's source package, of
the places that this machine's packages come from. The exit status is 1 when a test fails that loop:// passes and that
IMPOSSIBLE does not name. Run by hand: it takes a minute, and sources cannot be had everywhere.
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
CAMERA = "ky://sim/uart0?plug=loopback"
# What cameras' ports do not have. The same list is in Bindings/python/README.md.
IMPOSSIBLE = {
    "test1_RTS": "modem lines",
    "test2_DTR": "modem lines",
    "test_BytesizeSetting": "5 to 7 data bits",
    "test_init_sets_the_correct_attrs": "7 data bits",
    "test_BaudrateSetting": "300 baud",
    "test_cancel_once (test_cancel.TestCancelWrite": "300 baud",
}
RUNNER = """
import importlib, os, sys, unittest
sys.path.insert(0, os.getcwd())
import kyserial.pyserial
suite = unittest.TestSuite()
for name in sorted(os.listdir(".")):
    if name.startswith("test") and name.endswith(".py"):
        module = importlib.import_module(name[:-3])
        module.PORT = sys.argv[1]
        suite.addTest(unittest.defaultTestLoader.loadTestsFromModule(module))
result = unittest.TextTestRunner(verbosity=0, stream=open(os.devnull, "w")).run(suite)
print("run", result.testsRun, len(result.skipped))
for test, text in result.failures + result.errors:
    print("bad", test)
"""


def fetch(folder):
    """Debian's source package, unpacked."""
    lists = folder / "lists"
    (lists / "partial").mkdir(parents=True)
    places = ""
    for file in pathlib.Path("/etc/apt/sources.list.d").glob("*.sources"):
        places += "\n\n" + re.sub(r"^Types:.*$", "Types: deb-src", file.read_text(), flags=re.M)
    (folder / "source.sources").write_text(places)
    apt = ["apt-get", "-qq", "-o", "Dir::Etc::sourcelist=/dev/null", "-o", f"Dir::Etc::sourceparts={folder}", "-o",
           f"Dir::State::lists={lists}", "-o", "APT::Sandbox::User=root"]
    subprocess.run([*apt, "update"], check=False, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    # The author's archive alone: the tests are his.
    got = subprocess.run([*apt, "--tar-only", "source", "pyserial"], cwd=folder, capture_output=True, text=True)
    archives = list(folder.glob("pyserial_*.orig.tar.*"))
    if not archives:
        sys.exit("pyserial_suite: the source package cannot be had: " + got.stderr.strip())
    subprocess.run(["tar", "xf", archives[0]], cwd=folder, check=True)
    return next(folder.glob("pyserial-*/test")).parent


def run(source, build, url):
    """\\return How many tests ran and were skipped, and the names of those that failed."""
    environment = {**os.environ, "KYSERIAL_LIBRARY_PATH": str(build / "lib"),
                   "PYTHONPATH": str(ROOT / "Bindings" / "python")}
    out = subprocess.run(["/usr/bin/python3", "-B", "-c", RUNNER, url], cwd=source / "test", env=environment, text=True,
                         capture_output=True, timeout=600).stdout
    counts = re.search(r"^run (\d+) (\d+)$", out, re.M)
    if not counts:
        sys.exit(f"pyserial_suite: the tests did not run on {url}")
    return int(counts.group(1)), int(counts.group(2)), re.findall(r"^bad (.*)$", out, re.M)


def main(build, folder=None):
    with tempfile.TemporaryDirectory() as work:
        source = pathlib.Path(folder).resolve() if folder else fetch(pathlib.Path(work))
        outcomes = {url: run(source, pathlib.Path(build).resolve(), url) for url in ("loop://", CAMERA)}
    for url, (count, skipped, bad) in outcomes.items():
        print(f"{url}: {count - skipped - len(bad)} passed, {len(bad)} failed, {skipped} skipped of {count}")
    _, _, loop_bad = outcomes["loop://"]
    unexpected = 0
    for test in outcomes[CAMERA][2]:
        reason = next((why for name, why in IMPOSSIBLE.items() if test.startswith(name)), "")
        print(f"  {test}: {reason or 'NOT EXPECTED'}")
        unexpected += not reason and test not in loop_bad
    return 1 if unexpected or outcomes[CAMERA][0] < 50 else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
