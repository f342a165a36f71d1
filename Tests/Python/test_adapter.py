"""Adapters written in Python."""
import gc
import logging

import pytest

import kyserial
from kyserial import errors


class EchoCamera(kyserial.DeviceAdapter):
    """Bulk port 1 through features, with its output joined to its input."""

    def __init__(self):
        self.features = {"BulkSelector": "Bulk1", "BulkMode": "UART", "EventNotification": "Off",
                         "EventSelector": "Bulk1UpstreamData"}
        self.upstream = b""
        self.interests = []
        self.trouble = None
        super().__init__()

    def is_connected(self):
        return True

    is_korvo_video_interface = is_connected

    def is_feature_available(self, name):
        return name in self.features or name in self._blocks()

    def is_register_feature_available(self, name):
        return name in self._blocks()

    def is_integer_feature_available(self, name):
        return name == "EventBulk1UpstreamDataLength"

    def is_feature_readable(self, name):
        return True

    is_feature_writable = is_feature_readable

    def is_enum_entry_available(self, name, entry):
        return (name, entry) in (("BulkMode", "UART"), ("BulkSelector", "Bulk1"), ("EventNotification", "On"),
                                 ("EventSelector", "Bulk1UpstreamData"))

    @staticmethod
    def _blocks():
        return "Bulk1DownstreamData", "EventBulk1UpstreamDataBuffer", "EventBulk1UpstreamDataLength"

    def get_feature_as_string(self, name):
        return self.features[name]

    def set_feature_from_string(self, name, value):
        if self.trouble:
            raise self.trouble
        self.features[name] = value

    def get_register_length(self, name):
        return 64

    def get_integer_value(self, name):
        return len(self.upstream)

    def get_register_data(self, name, length):
        return self.upstream.ljust(64, b"\0")[:length]

    def set_register_data(self, name, data):
        size = int.from_bytes(data[4:8], "little")
        self.upstream = data[8:8 + size]
        self.notify_feature_invalidated("EventBulk1UpstreamDataBuffer")

    def register_feature_interest(self, name):
        self.interests.append(name)


def test_a_port_works_on_it():
    with EchoCamera() as camera:
        with kyserial.Port(camera, "bulk1", timeout=20) as port:
            port.write(b"hello")
            assert port.read(5) == b"hello"
        assert any("Upstream" in name for name in camera.interests)
        assert camera.features["EventNotification"] == "Off"  # put back


def test_its_exceptions_reach_the_caller():
    with EchoCamera() as camera:
        camera.trouble = kyserial.KySerialError(0x1234, "The lens cap is on.")
        with pytest.raises(kyserial.KySerialError) as error:
            camera.set_feature("BulkMode", "UART")
        assert (error.value.code, error.value.name, error.value.text) == (0x1234, "UNKNOWN", "The lens cap is on.")
        camera.trouble = RuntimeError("unplugged")
        with pytest.raises(kyserial.KySerialError) as error:
            camera.set_feature("BulkMode", "UART")
        assert (error.value.code, error.value.text) == (errors.FAILURE, "RuntimeError: unplugged")


def test_what_it_does_not_define_is_unsupported():
    class Bare(kyserial.DeviceAdapter):
        """Nothing at all."""

    with Bare() as camera:
        assert not kyserial.Port.is_supported(camera, "uart0")
        with pytest.raises(kyserial.KySerialError) as error:
            camera.get_feature("BulkMode")
        assert error.value.code == errors.UNSUPPORTED
        assert "get_feature_as_string" in error.value.text


def test_events_reach_the_ports():
    class Uart(kyserial.DeviceAdapter):
        """UART 0 through registers, which only receives."""

        def is_korvo_video_interface(self):
            return True

        is_gige_vision = is_korvo_video_interface

        def read_register(self, address):
            return 0xFFFFFFFF if address == 0xB8FC else 0

        def write_register(self, address, value):
            pass

    with Uart() as camera:
        with kyserial.Port(camera, "uart0", timeout=0) as port:
            camera.notify_event(0x9000, bytes([2, 0, 0, 0, ord("k"), 0, 1, 0]))
            assert port.read(1) == b"k"


def test_a_device_in_use_cannot_be_closed():
    camera = EchoCamera()
    port = kyserial.Port(camera, "bulk1")
    with pytest.raises(kyserial.KySerialError) as error:
        camera.close()
    assert error.value.code == errors.WRONG_STATE
    port.close()
    camera.close()
    camera.close()
    gc.collect()


def test_the_log_goes_to_pythons_logging(caplog):
    kyserial.log.set_priority(kyserial.log.ERROR)
    kyserial.log.to_logging()
    try:
        with caplog.at_level(logging.ERROR, "kyserial"), EchoCamera() as camera:
            with pytest.raises(kyserial.KySerialError):
                kyserial.Port(camera, 42)
        assert any("No such port." in record.getMessage() for record in caplog.records)
    finally:
        kyserial.log.to_stderr()
