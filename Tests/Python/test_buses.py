"""I2C and SPI buses."""
import pytest

import kyserial

NO_ACKNOWLEDGE = 0x8F01


def patiently(transfer):
    """A transfer that is repeated while the EEPROM is busy with its last write, or a busy machine answers late."""
    for _ in range(100000):
        try:
            return transfer()
        except kyserial.KySerialError as error:
            if error.code not in (kyserial.errors.TIMED_OUT, NO_ACKNOWLEDGE):
                raise
    raise AssertionError("no answer")


@pytest.mark.parametrize("port", ["bulk0", "bulk2"])
def test_an_eeprom_gives_back_what_was_written(camera, port):
    camera.plug(port, "i2c")
    with kyserial.I2CBus(camera, port) as bus:
        assert bus.name == port
        bus.write_register(0x50, 0x10, b"KySerial")
        assert patiently(lambda: bus.read_register(0x50, 0x10, 8)) == b"KySerial"

        def in_two_steps():
            bus.write(0x50, b"\x12", stop=False)
            return bus.read(0x50, 2)

        assert patiently(in_two_steps) == b"Se"


def test_a_scan_finds_the_slaves(camera):
    camera.plug("bulk2", "i2c")
    with kyserial.I2CBus(camera, "bulk2") as bus:
        assert bus.scan() == [0x48, 0x50]


def test_i2c_says_what_is_wrong(camera):
    camera.plug("bulk2", "i2c")
    assert kyserial.I2CBus.is_supported(camera, "bulk2")
    assert not kyserial.I2CBus.is_supported(camera, "uart0")
    with pytest.raises(kyserial.KySerialError) as error:
        kyserial.I2CBus(camera, "uart0")
    assert error.value.code == kyserial.errors.UNSUPPORTED
    bus = kyserial.I2CBus(camera, "bulk2")
    with pytest.raises(kyserial.KySerialError) as error:
        bus.write(0x51, b"\0")
    assert error.value.code == NO_ACKNOWLEDGE
    assert "acknowledge" in error.value.text
    with pytest.raises(kyserial.KySerialError) as error:
        bus.read(0x50, 65536)
    assert error.value.code == kyserial.errors.BAD_PARAMETER
    bus.close()
    with pytest.raises(kyserial.KySerialError) as error:
        bus.write(0x50, b"\0")
    assert error.value.code == kyserial.errors.INVALID_HANDLE
    with kyserial.I2CBus(camera, "bulk2"):
        pass


def test_a_read_of_a_bus_without_slaves_times_out_and_keeps_what_came():
    with kyserial.SimulatedCamera("neither", unlimited_line_rate=True) as camera:
        camera.plug("bulk2", "i2c")
        with kyserial.I2CBus(camera, "bulk2") as bus:
            bus.write(0x48, b"\0")
            camera.set_connected(False)
            with pytest.raises(ConnectionError):
                bus.read(0x48, 2)
            camera.set_connected(True)


def test_a_flash_tells_its_identity(camera):
    camera.plug("bulk3", "flash")
    with kyserial.SPIBus(camera, "bulk3") as bus:
        assert bus.transfer(b"\x9f", read=3, timeout=20) == b"\xef\x30\x10"
        assert bus.transfer(b"\x9f\0\0\0", read=4, simultaneous=True, timeout=20) == b"\xff\xef\x30\x10"
        assert bus.transfer(b"\x06") == b""
        with pytest.raises(kyserial.KySerialError) as error:
            bus.transfer(bytes(256))
        assert error.value.code == kyserial.errors.BAD_PARAMETER


def test_a_bus_is_closed_once_and_says_when_the_camera_is_gone(camera):
    bus = kyserial.I2CBus(camera, "bulk2")
    bus.close()
    bus.close()
    bus = kyserial.I2CBus(camera, "bulk2")
    camera.set_connected(False)
    with pytest.raises(kyserial.NoConnectionError):
        bus.close()
    bus.close()
