"""Results of the library as exceptions."""
from ._library import lib

OK = 0x0000
NO_CONNECTION = 0x0017
NOT_READABLE = 0x0019
UNSUPPORTED = 0x001A
BUFFER_TOO_SMALL = 0x001B
WRONG_STATE = 0x001C
TIMED_OUT = 0x001E
NOT_OPEN = 0x0605
FAILURE = 0x4000
BAD_PARAMETER = 0x4001
INVALID_HANDLE = 0x4010


class KySerialError(OSError):
    """A failed operation.

    code is the library's result, or a number of the camera's own; name its name ("TIMED_OUT", or "UNKNOWN"); text
    says what went wrong and may be empty.
    """

    def __init__(self, code, text=""):
        self.code = code
        self.name = lib.KyGetCodeName(code).decode()
        self.text = text
        super().__init__(f"{self.name} ({code:#06x}): {text}" if text else f"{self.name} ({code:#06x})")


class NoConnectionError(KySerialError, ConnectionError):
    """Closed, a disconnected device, or a bridge that is not running."""


class TimedOutError(KySerialError, TimeoutError):
    """Nothing came, or nothing was confirmed, in time."""


_CLASSES = {NO_CONNECTION: NoConnectionError, TIMED_OUT: TimedOutError}


def failure(code, text=""):
    """The exception for a code."""
    return _CLASSES.get(code, KySerialError)(code, text)


def check(code):
    """Raises the exception for a result that is not OK."""
    if code != OK:
        raise failure(code, lib.KyGetLastText().decode(errors="replace"))
