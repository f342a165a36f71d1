"""The web page of the service in a browser without a window, and its metrics under the eyes of Prometheus.

Usage: judge_page.py KYSERIAL [CHROMIUM] [--promtool PROMTOOL] [--picture FILE]
"""
import argparse
import base64
import json
import os
import re
import shutil
import socket
import subprocess
import tempfile
import time
import urllib.error
import urllib.request

HOSTILE = "<img src=x onerror=document.title='taken'>"  # a name of a device
TOKEN = "a-token-for-this-test"
STATUS = "STATUS READY ZOOM 0 FOCUS 1000 IRIS 100"
CONFIGURATION = f"""
name = "line-3"
web = ":0"
web_token = "{TOKEN}"
[[device]]
name = "lens"
device = "sim"
[[device.port]]
port = "uart0"
host = "rfc2217://:0"
[[device.port]]
port = "bulk1"
host = "tcp://:0"
clients = "shared"
terminal = true
[[device]]
name = "OTHER"
device = "sim"
[[device.port]]
port = "uart0"
host = "tcp://:0"
"""


class Service:
    """A running service."""

    def __init__(self, program, folder, name, other):
        file = os.path.join(folder, "service.toml")
        with open(file, "w", encoding="utf-8") as configuration:
            configuration.write(CONFIGURATION.replace("line-3", name).replace("OTHER", other))
        self.process = subprocess.Popen([program, "serve", file], stderr=subprocess.PIPE, text=True)
        self.page = self.find(r"web page is (http://\S+)")
        self.port = int(self.find(r"lens bulk1 is tcp://127\.0\.0\.1:(\d+)"))

    def find(self, pattern):
        for line in self.process.stderr:
            found = re.search(pattern, line)
            if found:
                return found.group(1)
        raise AssertionError("the service has ended")

    def end(self):
        self.process.terminate()
        self.process.communicate(timeout=60)
        assert self.process.returncode == 0


class Browser:
    """Chromium without a window, over its pipe for tests."""

    def __init__(self, program, folder):
        commands_in, self.commands = os.pipe()
        self.replies, replies_out = os.pipe()
        for one in (commands_in, replies_out):
            os.set_inheritable(one, True)
        places = f"exec 3<&{commands_in} 4>&{replies_out}; exec \"$0\" \"$@\""
        self.process = subprocess.Popen(
            ["bash", "-c", places, program, "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
             "--no-first-run", "--user-data-dir=" + folder, "--remote-debugging-pipe", "--window-size=1200,760"],
            close_fds=False, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
        os.close(commands_in)
        os.close(replies_out)
        self.number = 0
        self.buffer = b""
        self.session = None

    def call(self, method, **parameters):
        self.number += 1
        message = {"id": self.number, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.commands, json.dumps(message).encode() + b"\0")
        while True:
            while b"\0" not in self.buffer:
                piece = os.read(self.replies, 65536)
                assert piece, "the browser has ended"
                self.buffer += piece
            reply, self.buffer = self.buffer.split(b"\0", 1)
            reply = json.loads(reply)
            if reply.get("id") == self.number:
                assert "error" not in reply, reply
                return reply["result"]

    def open(self, page):
        self.session = None
        target = self.call("Target.createTarget", url=page)["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]

    def ask(self, expression):
        """The value of an expression in the page."""
        reply = self.call("Runtime.evaluate", expression=expression, awaitPromise=True, returnByValue=True)
        assert "exceptionDetails" not in reply, reply
        return reply["result"].get("value")

    def wait(self, expression):
        """Until an expression in the page is true."""
        end = time.monotonic() + 60
        while not self.ask(expression):
            assert time.monotonic() < end, (expression, self.ask("document.body && document.body.innerText"))
            time.sleep(0.05)

    def end(self):
        self.session = None
        self.call("Browser.close")
        os.close(self.commands)
        self.process.wait(timeout=60)


def read_line(client):
    line = b""
    while not line.endswith(b"\n"):
        line += client.recv(1)
    return line.decode().strip()


def received(shown):
    """The bytes of all lines from the device, joined: they come in pieces of any size."""
    return f"[...{shown}.matchAll(/< ((?:[0-9a-f]{{2}} )+)/g)].map((line) => line[1]).join('')"


def look(browser, service, picture):
    """A client's bytes are shown; the terminal sends with the token only; the names of devices are text."""
    browser.open(service.page + "#lens/bulk1")
    browser.wait("document.getElementById('connection')?.textContent === 'live'")
    browser.wait("document.querySelectorAll('tr.port').length === 3")
    browser.wait("[...document.querySelectorAll('tr.port')].every((row) => row.innerText.includes('runs'))")
    assert picture or HOSTILE in browser.ask("document.getElementById('ports').innerText")
    assert browser.ask("document.images.length") == 0 and browser.ask("document.title").startswith("line-")
    with socket.create_connection(("127.0.0.1", service.port)) as client:
        client.sendall(b"STATUS?\r\n")
        assert read_line(client) == STATUS
        shown = "document.getElementById('traffic').innerText"
        browser.wait(f"{shown}.includes('> 53 54 41 54 55 53 3f 0d 0a')")
        browser.wait(f"{received(shown)}.includes('{STATUS.encode().hex(' ')}')")
        browser.wait("!document.getElementById('terminal').hidden")
        send = ("document.getElementById('text').value = 'ZOOM 250'; document.getElementById('token').value = '{}';"
                "document.querySelector('#terminal button').click()")
        browser.ask(send.format("another-token-12345"))
        browser.wait("document.getElementById('answer').textContent.includes('the token is wrong')")
        assert "ZOOM 250" not in browser.ask(shown)
        browser.ask(send.format(TOKEN))
        browser.wait(f"{shown}.includes('ZOOM 250')")
        assert read_line(client) == "OK"  # clients see what the page has caused
        browser.wait(f"{received(shown)}.includes('4f 4b 0d 0a')")
        browser.wait("[...document.querySelectorAll('tr.port')][1].innerText.includes('19 B')")
        if picture:
            traffic_for_picture(client, browser)
            shot = browser.call("Page.captureScreenshot", format="png")["data"]
            with open(picture, "wb") as file:
                file.write(base64.b64decode(shot))
    browser.ask("location.hash = '#lens/uart0'")
    browser.wait("document.getElementById('title').textContent === 'lens uart0'")
    browser.wait("document.querySelectorAll('tr.chosen').length === 1 && document.getElementById('terminal').hidden")


def traffic_for_picture(client, browser):
    for step in range(40):
        for _ in range(step * 7 % 11 + 1):
            client.sendall(b"STATUS?\r\n")
            read_line(client)
        time.sleep(1)
    browser.wait("document.getElementById('connection').textContent === 'live'")


def foreign(browser, service):
    """A page of another origin neither reads nor sends anything."""
    browser.open("data:text/html,<p>another</p>")
    for request in ("", ", {method: 'POST', body: 'ZOOM 1\\r\\n', headers: {'X-KySerial-Token': '" + TOKEN + "'}}"):
        answer = browser.ask(f"fetch('{service.page}send?device=lens&port=bulk1'{request})"
                             ".then(() => 'answered', () => 'refused')")
        assert answer == "refused", answer


def status_of(url, data=None, **headers):
    request = urllib.request.Request(url, data=data, headers=headers)
    try:
        return urllib.request.urlopen(request, timeout=60).status
    except urllib.error.HTTPError as error:
        return error.code


def requests(service):
    """What a request has to have before it sends anything."""
    send = service.page + "send?device=lens&port=bulk1"
    good = {"X-KySerial-Token": TOKEN}
    assert status_of(send, b"x") == 403
    assert status_of(send, b"x", **{"X-KySerial-Token": TOKEN + "x"}) == 403
    assert status_of(send, b"x", **good, Host="evil.example") == 403
    assert status_of(send, b"x", **good, Origin="http://evil.example") == 403
    assert status_of(send, None, **good) == 405
    assert status_of(service.page + "status", b"x", **good) == 405
    assert status_of(service.page + "send?device=lens&port=uart0", b"x", **good) == 403  # no terminal
    assert status_of(service.page + "send?device=lens&port=bulk7", b"x", **good) == 404
    assert status_of(service.page + "traffic?device=lens&port=bulk7") == 404
    assert status_of(service.page + "traffic?device=lens&port=bulk1&after=-1") == 400
    assert status_of(service.page + "traffic?device=%zz") == 400


def metrics(service, promtool):
    """Prometheus' own reader and linter take both formats."""
    plain = urllib.request.urlopen(service.page + "metrics", timeout=60)
    assert plain.headers["Content-Type"].startswith("text/plain; version=0.0.4")
    text = plain.read()
    if promtool:
        subprocess.run([promtool, "check", "metrics"], input=text, check=True)
    accept = {"Accept": "application/openmetrics-text; version=1.0.0"}
    request = urllib.request.Request(service.page + "metrics", headers=accept)
    text = urllib.request.urlopen(request, timeout=60).read().decode()
    try:
        from prometheus_client.openmetrics import parser
    except ImportError:
        print("the OpenMetrics reader is not installed (python3-prometheus-client)")
        return
    families = {family.name: family for family in parser.text_string_to_metric_families(text)}
    delivered = families["kyserial_port_delivered_bytes"]
    assert delivered.type == "counter" and len(delivered.samples) == 6
    assert {sample.labels["device"] for sample in delivered.samples} >= {"lens"}


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("program")
    arguments.add_argument("chromium", nargs="?")
    arguments.add_argument("--promtool")
    arguments.add_argument("--picture")
    given = arguments.parse_args()
    folder = tempfile.mkdtemp()
    names = ("line-3", "focus") if given.picture else (f"line-{os.getpid()}", HOSTILE)
    service = Service(given.program, folder, *names)
    try:
        requests(service)
        metrics(service, given.promtool)
        if given.chromium:
            browser = Browser(given.chromium, os.path.join(folder, "browser"))
            look(browser, service, given.picture)
            foreign(browser, service)
            browser.end()
        service.end()
    finally:
        service.process.kill()
        shutil.rmtree(folder, ignore_errors=True)


main()
