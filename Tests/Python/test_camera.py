"""Cameras on the network, and cameras that are lost."""
import os

import pytest

import kyserial

PATIENCE = 60
ROUNDS = 50 if "KYSERIAL_FULL_RESTART_TEST" in os.environ else 3
QUICK = {"heartbeat_period": 20, "timeout": 20, "attempts": 25}


def test_a_camera_is_listed_with_who_controls_it(network_camera):
    address, port = network_camera.place.split(":")
    search = {"timeout": PATIENCE, "address": address, "port": int(port)}  # the answer ends the search
    found, = kyserial.list_devices(**search)
    assert (found.device, found.vendor, found.control, found.controller) == (network_camera.device, "Korvo", "free", "")
    assert len(found.mac) == 17 and found.serial_number
    with kyserial.open_device(network_camera.device):
        found, = kyserial.list_devices(**search)
        assert found.control == "taken" and found.controller.startswith(address + ":")
    found, = kyserial.list_devices(ask_control=False, **search)
    assert found.control == "unknown"


def test_its_ports_talk_to_the_lens(network_camera):
    with kyserial.open_device(network_camera.device) as camera:
        assert camera.information.device == network_camera.device
        names = {port.name: port.url for port in camera.list_ports()}
        assert names["uart0"] == f"ky://{network_camera.place}/uart0"
        with kyserial.Port(camera, "uart0", timeout=PATIENCE) as port:
            assert port.is_connected
            port.write(b"ID?\r\n")
            assert port.readline() == b"ID KYLENS 1.0\r\n"
    camera.close()


def test_its_features_are_listed_read_and_written(network_camera):
    with kyserial.open_device(network_camera.place) as camera:
        features = {feature.name: feature for feature in camera.list_features()}
        assert features["BulkSelector"].kind == "enumeration" and features["BulkSelector"].writable
        assert camera.describe_feature("DeviceVendorName")[1:2] == ("string",)
        assert not camera.describe_feature("DeviceVendorName").writable
        assert camera.list_entries("BulkSelector") == [f"Bulk{number}" for number in range(8)]
        camera.set_feature("BulkSelector", "Bulk4")
        assert camera.get_feature("BulkSelector") == "Bulk4"
        with pytest.raises(kyserial.KySerialError) as error:
            camera.execute("BulkSelector")
        assert error.value.code == 0x8002
        with pytest.raises(kyserial.KySerialError):
            camera.get_feature("NoSuchFeature")


def test_it_says_what_is_wrong(network_camera):
    with pytest.raises(kyserial.KySerialError):
        kyserial.open_device("gev://1.2.3")
    with pytest.raises(TypeError):
        kyserial.open_device(network_camera.device, colour="red")
    with kyserial.open_device(network_camera.device) as camera:
        with pytest.raises(kyserial.KySerialError) as error:
            kyserial.open_device(network_camera.device)
        assert error.value.code == 0x8006
        with kyserial.open_device(network_camera.device, read_only=True) as reader:
            assert reader.get_feature("DeviceVendorName") == "Korvo"
        with kyserial.Port(camera, "bulk1"):
            with pytest.raises(kyserial.KySerialError) as error:
                camera.close()
            assert error.value.code == kyserial.errors.WRONG_STATE


def talk(port):
    port.write(b"ID?\r\n")
    assert port.readline() == b"ID KYLENS 1.0\r\n"


@pytest.mark.parametrize("name", ["uart0", "bulk1"])
def test_the_usual_loop_recovers_on_an_open_camera(camera, name):
    camera.plug(name, "lens")
    for _ in range(50):
        with kyserial.Port(camera, name, timeout=None) as port:
            talk(port)
            camera.set_connected(False)
            assert not port.is_connected
            with pytest.raises(ConnectionError):
                port.read(1)
        assert port.closed
        with pytest.raises(ConnectionError):
            kyserial.Port(camera, name)
        camera.set_connected(True)
    with kyserial.Port(camera, name, timeout=PATIENCE) as port:
        talk(port)


def test_bytes_that_came_before_the_loss_are_given_first(camera):
    with kyserial.Port(camera, "bulk1", timeout=None) as port:
        camera.inject("bulk1", b"last")
        camera.wait_for_events()
        camera.set_connected(False)
        assert port.read(10) == b"last"
        with pytest.raises(ConnectionError):
            port.read(10)
        with pytest.raises(ConnectionError):
            port.readline()
    camera.set_connected(True)


def test_the_usual_loop_recovers_on_the_network(network_camera):
    with kyserial.open_device(network_camera.device, **QUICK) as camera:
        for _ in range(ROUNDS):
            with pytest.raises(ConnectionError), kyserial.Port(camera, "uart0", timeout=None) as port:
                talk(port)
                network_camera.command("unplug")
                port.read(1)
            network_camera.command("plug")
            assert camera.wait_until_connected(PATIENCE)
        with kyserial.Port(camera, "uart0", timeout=PATIENCE) as port:
            talk(port)
        assert camera.state == (True, ROUNDS + 1, ROUNDS)


def test_an_absence_that_nobody_saw_ends_a_port(network_camera):
    with kyserial.open_device(network_camera.device, **QUICK) as camera:
        with kyserial.Port(camera, "uart0", timeout=None) as port:
            state = camera.state
            network_camera.command("restart 50")
            while camera.state.generation == state.generation:
                camera.wait_for_change(state, PATIENCE)
            assert not port.is_connected
            with pytest.raises(ConnectionError):
                port.read(1)
        with kyserial.Port(camera, "uart0", timeout=PATIENCE) as port:
            talk(port)


def test_the_usual_loop_recovers_with_a_camera_that_is_opened_anew(network_camera):
    for _ in range(ROUNDS):
        with pytest.raises(ConnectionError):
            with kyserial.open_device(network_camera.device, **QUICK) as camera, \
                    kyserial.Port(camera, "uart0", timeout=None) as port:
                talk(port)
                network_camera.command("unplug")
                port.read(1)
        network_camera.command("plug")
        network_camera.command("release")
    with kyserial.open_device(network_camera.device, **QUICK) as camera:
        with kyserial.Port(camera, "uart0", timeout=PATIENCE) as port:
            talk(port)
