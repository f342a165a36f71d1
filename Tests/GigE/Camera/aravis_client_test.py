"""Aravis's command-line client judges kyserial-camera: it describes the camera and drives it.

Usage: aravis_client_test.py CAMERA_PROGRAM
"""

import os
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import unittest

from camera_process import Camera, own_address, skip

TOOL = "arv-tool-0.8"
PROGRAM = sys.argv.pop(1)


def tool(address, *arguments):
    """The tool's output. It opens the camera by its address, without a broadcast."""
    run = subprocess.run([TOOL, "-a", address, *arguments], capture_output=True, text=True, timeout=60)
    assert run.returncode == 0, run.stderr
    return run.stdout


class AravisClientTest(unittest.TestCase):
    def setUp(self):
        self.address = own_address(91)
        self.camera = self.enterContext(Camera(PROGRAM, self.address, "--fast"))

    def control(self, *arguments):
        return [line.strip() for line in tool(self.address, "control", *arguments).splitlines() if " = " in line]

    def test_lists_every_feature(self):
        text = tool(self.address, "features")
        names = ["DeviceVendorName", "DeviceModelName", "DeviceSerialNumber", "DeviceUserID", "GevMACAddress",
                 "BulkSelector", "BulkMode", "BulkBaudRate", "BulkParity", "BulkNumOfStopBits",
                 "Uart0BaudRate", "Uart1Parity", "EventSelector", "EventNotification"]
        for bulk in range(8):
            names += [f"Bulk{bulk}DownstreamData", f"EventBulk{bulk}UpstreamDataBuffer",
                      f"EventBulk{bulk}UpstreamDataLength"]
        for name in names:
            self.assertIn(f"'{name}'", text)

    def test_reads_features(self):
        values = self.control("DeviceVendorName", "DeviceModelName", "DeviceSerialNumber", "GevMACAddress",
                              "BulkSelector", "BulkMode", "EventNotification")
        text = "\n".join(values)
        self.assertIn("DeviceVendorName = Korvo", text)
        self.assertIn("DeviceModelName = Simulated Camera", text)
        mac = 0x020000000000 | struct.unpack(">I", socket.inet_aton(self.address))[0]
        self.assertIn(f"DeviceSerialNumber = SIM{mac:012X}", text)
        self.assertIn(f"GevMACAddress = {mac}", text)
        self.assertIn("BulkSelector = Bulk0", text)
        self.assertIn("BulkMode = UART", text)
        self.assertIn("EventNotification = Off", text)

    def test_writes_features(self):
        self.control("BulkSelector=Bulk5", "BulkBaudRate=Baud57600", "BulkSelector=Bulk0",
                     "DeviceUserID=left eye")
        text = "\n".join(self.control("BulkBaudRate", "DeviceUserID", "BulkSelector=Bulk5", "BulkBaudRate"))
        self.assertIn("BulkBaudRate = Baud9600", text)
        self.assertIn("BulkBaudRate = Baud57600", text)
        self.assertIn("DeviceUserID = left eye", text)

    def test_sends_a_uart_byte_and_has_its_event_sent(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as channel:
            channel.bind((self.address, 0))
            channel.settimeout(Camera.PATIENCE)
            peer = struct.unpack(">I", socket.inet_aton(self.address))[0]
            # The channel's registers, the interrupts of UART 1, whose plug loops back, and a byte. The tool goes
            # away then, and its control with it; what it raised is on its way.
            self.control(f"R[0xB10]=0x{peer:x}", f"R[0xB00]={channel.getsockname()[1]}", "R[0xB838]=0xC",
                         "R[0xB850]=0x55")
            packet = channel.recv(2048)
        flags, command, length = struct.unpack(">xBHH", packet[:6])
        self.assertEqual((1, 0x00C2, len(packet) - 8), (flags, command, length))
        event, = struct.unpack(">H", packet[10:12])
        status, = struct.unpack("<I", packet[24:28])
        self.assertEqual(0x9000, event)
        self.assertEqual(0x4, status)
        self.assertGreater(self.camera.statistics()["events"], 0)

    def test_gets_a_description_that_is_well_formed(self):
        with tempfile.TemporaryDirectory() as folder:
            path = self.save_description(folder)
            subprocess.run(["xmllint", "--noout", path], check=True)

    def test_unpacks_the_description(self):
        with Camera(PROGRAM, own_address(93), "--zip") as camera, tempfile.TemporaryDirectory() as folder:
            plain = self.save_description(folder)
            with open(plain, encoding="utf-8") as file:
                self.assertEqual(file.read(), tool(camera.address, "genicam"))

    def test_gets_a_description_that_fits_the_schema(self):
        schema = os.environ.get("KYSERIAL_GENAPI_SCHEMA")
        if not schema:
            self.skipTest("KYSERIAL_GENAPI_SCHEMA names no GenApi 1.1 schema, and it is not ours to bring along")
        with tempfile.TemporaryDirectory() as folder:
            path = self.save_description(folder)
            subprocess.run(["xmllint", "--noout", "--schema", schema, path], check=True)

    def save_description(self, folder):
        path = os.path.join(folder, "camera.xml")
        with open(path, "w", encoding="utf-8") as file:
            file.write(tool(self.address, "genicam"))
        return path

    def test_is_refused_control_while_another_application_has_it(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
            other.connect((self.address, 3956))
            other.send(struct.pack(">BBHHHII", 0x42, 1, 0x82, 8, 1, 0x0A00, 2))
            self.assertEqual(0, struct.unpack(">H", other.recv(100)[:2])[0])
            run = subprocess.run([TOOL, "-a", self.address, "control", "R[0xB838]=0xC"], capture_output=True,
                                 text=True, timeout=60)
            self.assertIn("access-denied", (run.stdout + run.stderr).lower().replace(" ", "-"))

    def test_gets_through_with_every_twentieth_acknowledge_lost(self):
        self.camera.command("drop ack 20")
        self.assertIn("DeviceVendorName = Korvo", "\n".join(self.control("DeviceVendorName")))
        self.assertGreater(self.camera.statistics()["repeated"], 0)


if __name__ == "__main__":
    if shutil.which(TOOL) is None:
        skip(f"{TOOL} is not installed")
    unittest.main()
