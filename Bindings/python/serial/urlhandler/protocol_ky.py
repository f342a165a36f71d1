"""ky://CAMERA/PORT for pySerial's serial_for_url(): see kyserial.pyserial."""
from kyserial.pyserial import serial_class_for_url  # noqa: F401
