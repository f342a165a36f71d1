"""Handlers for pySerial's serial_for_url(), for serial.protocol_handler_packages."""
