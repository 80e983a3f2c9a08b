"""Passes the library's log records to logging, under "veltra"."""

import ctypes
import logging
from typing import Any, Optional

LEVELS = {2: logging.DEBUG, 3: logging.INFO, 4: logging.WARNING, 5: logging.ERROR}
NONE = 6  # above every level of the library

_loggers = {b"Veltra": logging.getLogger("veltra"), b"Oak": logging.getLogger("veltra.http")}
_level = logging.WARNING
_library: Optional[ctypes.CDLL] = None


def _take(level: int, tag: bytes, message: bytes, _context: Optional[int]) -> None:
    # Runs on any thread, including the library's own. An exception would have nowhere to go.
    try:
        logger = _loggers.get(tag, _loggers[b"Veltra"])
        logger.log(LEVELS.get(level, logging.ERROR), "%s", message.decode("utf-8", "replace"))
    except Exception:
        pass


# Lives as long as the interpreter, since the library may call it until then.
_handler: Any = ctypes.CFUNCTYPE(None, ctypes.c_int, ctypes.c_char_p, ctypes.c_char_p,
                                 ctypes.c_void_p)(_take)


def begin(library: ctypes.CDLL) -> None:
    """From now on log records go to logging."""
    global _library
    _library = library
    set_log_level(_level)


def end() -> None:
    """Once this returns no log record arrives any more, nor goes to standard error instead."""
    global _library
    if _library is not None:
        library, _library = _library, None
        library.qlog_set_handler(None, None, NONE)


def set_log_level(level: int) -> None:
    """Sets the lowest level of the library's log records that reach the loggers "veltra" and, for the
    HTTP client, "veltra.http"; initially logging.WARNING.

    logging.INFO and logging.DEBUG show what users write and what the model answers. So the loggers'
    own levels don't decide alone: they filter what this level lets through.
    """
    global _level
    _level = level
    if _library is not None:
        least = min((own for own, shown in LEVELS.items() if shown >= level), default=NONE)
        _library.qlog_set_handler(_handler, None, least)
