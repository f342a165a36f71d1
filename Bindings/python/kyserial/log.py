"""The library's log, of which a process has one."""
import logging

from ._library import LOG_FUNCTION, lib
from .errors import check

DEBUG, INFO, WARNING, ERROR, FATAL = 10000, 20000, 30000, 40000, 50000

_in_use = None  # the library calls it until it is replaced


def set_priority(priority):
    """Writes lines of this priority and above; WARNING at first. FATAL + 1 writes none."""
    check(lib.KyLogSetPriority(priority))


def to_logging(logger=None):
    """Sends the lines to a logger of Python's logging, "kyserial" when none is given."""
    target = logger if logger is not None else logging.getLogger("kyserial")

    def write(_context, record):
        line = record.contents
        target.log(min(line.priority // 1000, logging.CRITICAL), "%s: %s", line.function.decode(errors="replace"),
                   line.message.decode(errors="replace"))

    _set(LOG_FUNCTION(write))


def to_stderr():
    """Sends the lines to standard error, where they go at first."""
    _set(None)


def _set(function):
    global _in_use
    check(lib.KyLogSetSink(function, None))
    _in_use = function
