"""Byte ports and their pySerial habits."""
import io
import subprocess
import sys
import threading
import time

import pytest

import kyserial

PATIENCE = 20


@pytest.mark.parametrize("port", ["uart0", "bulk0", "bulk5"])
def test_a_dialogue_with_the_lens_on_each_kind_of_port(camera, port):
    camera.plug(port, "lens")
    with kyserial.Port(camera, port, timeout=PATIENCE) as lens:
        assert lens.name == port
        assert lens.write(b"ZOOM 1200\r\nSTATUS?\r\n") == 20
        assert lens.readline() == b"OK\r\n"
        assert lens.readline() == b"STATUS READY ZOOM 1200 FOCUS 1000 IRIS 100\r\n"


def test_read_gives_all_that_was_asked_for_or_what_came_in_time(camera):
    with kyserial.Port(camera, kyserial.BULK1, timeout=PATIENCE) as port:
        camera.inject("bulk1", b"abcdef")
        assert port.read(6) == b"abcdef"
        camera.inject("bulk1", b"xy")
        port.timeout = 0.05
        start = time.monotonic()
        assert port.read(3) == b"xy"
        assert time.monotonic() - start >= 0.04
        port.timeout = 0
        assert port.read(1) == b""


def test_a_read_without_a_timeout_waits_until_the_bytes_come(camera):
    with kyserial.Port(camera, "bulk1") as port:
        threading.Timer(0.25, lambda: camera.inject("bulk1", b"late")).start()
        assert port.read(4) == b"late"


def test_a_cancelled_read_ends_and_the_next_one_waits_again(camera):
    with kyserial.Port(camera, "bulk1") as port:
        port.cancel_read()
        assert port.read(1) == b""
        camera.inject("bulk1", b"x")
        assert port.read(1) == b"x"


def test_in_waiting_counts_read_all_takes_and_reset_input_buffer_drops(camera):
    with kyserial.Port(camera, "uart1", timeout=0) as port:
        assert port.in_waiting == 0
        camera.inject("uart1", b"abc")
        camera.wait_for_events()
        assert port.in_waiting == 3
        port.timeout = PATIENCE
        start = time.monotonic()
        assert port.read_all() == b"abc"
        assert port.read_all() == b""
        assert time.monotonic() - start < PATIENCE
        camera.inject("uart1", b"de")
        camera.wait_for_events()
        assert port.in_waiting == 2
        port.reset_input_buffer()
        assert port.in_waiting == 0
        assert port.out_waiting == 0
        port.reset_output_buffer()
        port.flush()


def test_the_receive_buffer_keeps_the_newest_bytes(camera):
    with kyserial.Port(camera, "bulk1", timeout=0) as port:
        port.set_buffer_size(2)
        camera.inject("bulk1", b"abcd")
        camera.wait_for_events()
        assert port.read(10) == b"cd"


def test_read_until_ends_with_what_is_expected_or_at_a_size(camera):
    with kyserial.Port(camera, "bulk1", timeout=PATIENCE) as port:
        camera.inject("bulk1", b"one>two>three")
        assert port.read_until(b">") == b"one>"
        assert port.read_until(b">", size=2) == b"tw"
        port.timeout = 0.05
        assert port.read_until(b"!") == b"o>three"


def test_readinto_gives_what_is_there(camera):
    with kyserial.Port(camera, "bulk1", timeout=PATIENCE) as port:
        camera.inject("bulk1", b"abc")
        buffer = bytearray(10)
        assert port.readinto(buffer) == 3
        assert bytes(buffer[:3]) == b"abc"


def test_readall_reads_until_nothing_comes(camera):
    with kyserial.Port(camera, "bulk1", timeout=0.1) as port:
        camera.inject("bulk1", b"abc")
        assert port.read(-1) == b"abc"
        port.timeout = None
        with pytest.raises(ValueError):
            port.readall()


def test_works_under_a_buffered_pair(camera):
    camera.plug("bulk1", "lens")
    with kyserial.Port(camera, "bulk1", timeout=PATIENCE) as port:
        pair = io.TextIOWrapper(io.BufferedRWPair(port, port), newline="\r\n", line_buffering=True)
        pair.write("ID?\r\n")
        pair.flush()
        assert pair.readline() == "ID KYLENS 1.0\r\n"


def test_what_is_written_is_on_the_wire(camera):
    with kyserial.Port(camera, "uart0") as port:
        assert port.write(bytearray(b"ab")) == 2
        assert port.write(memoryview(b"cd")) == 2
        assert port.write(b"") == 0
    assert camera.take_wire("uart0") == b"abcd"


def test_a_write_in_pieces_sends_each_byte_once(camera):
    sent = bytes(range(100))
    with kyserial.Port(camera, "uart0", write_timeout=PATIENCE) as port:
        assert port.write(sent) == 100
        port.write_timeout = 0  # time for one piece there always is
        assert port.write(b"!") == 1
    assert camera.take_wire("uart0") == sent + b"!"


def test_a_write_that_takes_too_long_says_so():
    with kyserial.SimulatedCamera() as camera:  # a line with its real speed: a millisecond for a byte
        with kyserial.Port(camera, "uart0", write_timeout=0.02) as port:
            with pytest.raises(kyserial.TimedOutError) as error:
                port.write(bytes(2000))
            assert error.value.code == kyserial.errors.TIMED_OUT
            assert "of 2000 bytes" in error.value.text


@pytest.mark.parametrize("name", ["uart0", "bulk0", "bulk3"])
def test_line_settings_are_the_cameras_features_of_the_port(camera, name):
    camera.set_feature("BulkSelector", "Bulk7")
    with kyserial.Port(camera, name, baudrate=115200, parity="E", stopbits=2, bytesize=8) as port:
        assert (port.baudrate, port.parity, port.stopbits, port.bytesize) == (115200, "E", 2, 8)
        port.parity = "N"
        assert port.parity == "N"
        if name == "uart0":
            assert camera.get_feature("Uart0BaudRate") == "Baud115200"
        assert camera.get_feature("BulkSelector") == "Bulk7"
        for setting, value in (("parity", "M"), ("stopbits", 3), ("bytesize", 7), ("baudrate", 12345)):
            with pytest.raises(kyserial.KySerialError):
                setattr(port, setting, value)
    with pytest.raises(TypeError):
        kyserial.Port(camera, name, colour="red")


def test_a_port_is_claimed_once_and_free_after_closing(camera):
    port = kyserial.Port(camera, "bulk2")
    with pytest.raises(kyserial.KySerialError) as error:
        kyserial.Port(camera, "bulk2")
    assert error.value.name == "FAILURE"
    assert "in use" in error.value.text
    port.close()
    port.close()
    assert port.closed and not port.is_open
    kyserial.Port(camera, "bulk2").close()


def test_a_closed_port_refuses(camera):
    port = kyserial.Port(camera, "bulk2")
    port.close()
    for call in (lambda: port.read(1), lambda: port.write(b"x"), port.reset_input_buffer, lambda: port.in_waiting):
        with pytest.raises(kyserial.NoConnectionError):
            call()


def test_closing_ends_a_read_of_another_thread(camera):
    port = kyserial.Port(camera, "bulk2")
    results = []
    reader = threading.Thread(target=lambda: results.append(port.read(1)))
    reader.start()
    while not reader.is_alive():
        time.sleep(0.001)
    port.close()
    reader.join(PATIENCE)
    # The reader may have come too late even to begin.
    assert not reader.is_alive() and results in ([b""], [])


def test_a_forgotten_port_gives_its_claim_back(camera):
    port = kyserial.Port(camera, "bulk2")
    del port
    kyserial.Port(camera, "bulk2").close()


def test_a_disconnected_camera_raises(camera):
    port = kyserial.Port(camera, "bulk1")
    camera.set_connected(False)
    with pytest.raises(ConnectionError) as error:
        port.write(b"x")
    assert error.value.code == kyserial.errors.NO_CONNECTION
    camera.set_connected(True)
    port.write(b"x")
    port.close()


def test_unknown_ports_are_refused(camera):
    with pytest.raises(kyserial.KySerialError) as error:
        kyserial.Port(camera, "uart2")
    assert error.value.code == kyserial.errors.BAD_PARAMETER
    assert kyserial.Port.is_supported(camera, "bulk7")
    assert not kyserial.Port.is_supported(camera, 42)


def test_a_program_may_end_with_everything_open():
    program = """if True:
        import kyserial
        camera = kyserial.SimulatedCamera()
        camera.plug("uart0", "lens")
        port = kyserial.Port(camera, "uart0", timeout=20)
        bus = kyserial.I2CBus(camera, "bulk2")
        port.write(b"ID?\\r\\n")
        print(port.readline().decode().strip())
        """
    run = subprocess.run([sys.executable, "-B", "-c", program], capture_output=True, text=True, timeout=60, check=False)
    assert (run.returncode, run.stdout) == (0, "ID KYLENS 1.0\n"), run.stderr
    assert "Traceback" not in run.stderr and "WARN" not in run.stderr
