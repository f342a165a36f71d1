"""What every object of the library has in common."""
import ctypes
import weakref
from ctypes import byref

from .errors import check


def make(create):
    """A new handle from one of the library's create functions."""
    handle = ctypes.c_uint64()
    check(create(byref(handle)))
    return handle.value


def number(get, handle, kind=ctypes.c_uint32):
    """What a function with one number behind its handle gives."""
    value = kind()
    check(get(handle, byref(value)))
    return value.value


def text(get, *arguments):
    """What a function with a buffer and its size gives."""
    size = ctypes.c_uint32(256)
    while True:
        buffer = ctypes.create_string_buffer(size.value)
        room = size.value
        code = get(*arguments, buffer, byref(size))
        if code == 0x001B and size.value > room:
            continue
        check(code)
        return buffer.value.decode(errors="replace")


def buffer_of(data):
    """Bytes as the library takes them: a C array and its length."""
    view = memoryview(data).cast("B")
    return (ctypes.c_uint8 * max(len(view), 1)).from_buffer_copy(view.tobytes() or b"\0"), len(view)


class Closing:
    """A context manager. close() ends what the object does (_end) and then what its finalizer destroys, once."""

    _finalizer = None

    def _end(self):
        raise NotImplementedError

    def close(self):
        """Gives the camera's port back, with the settings it had. A second call does nothing."""
        if self._finalizer.alive:
            try:
                self._end()
            finally:
                self._finalizer()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


def when_gone(owner, destroy, handle):
    """Has a handle destroyed with its owner, or when the program ends: last made, first destroyed."""
    return weakref.finalize(owner, destroy, handle)
