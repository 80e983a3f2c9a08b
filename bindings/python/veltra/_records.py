"""The library's records in logging, under "veltra"."""

import ctypes
import logging
from typing import Any, Optional

LEVELS = {2: logging.DEBUG, 3: logging.INFO, 4: logging.WARNING, 5: logging.ERROR}
NONE = 6  # above every level of the library

_loggers = {b"Veltra": logging.getLogger("veltra"), b"Oak": logging.getLogger("veltra.http")}
_level = logging.WARNING
_library: Optional[ctypes.CDLL] = None


def _take(level: int, tag: bytes, message: bytes, _context: Optional[int]) -> None:
    # From any thread, the library's own too. An exception would have nowhere to go.
    try:
        logger = _loggers.get(tag, _loggers[b"Veltra"])
        logger.log(LEVELS.get(level, logging.ERROR), "%s", message.decode("utf-8", "replace"))
    except Exception:
        pass


# Lives as long as the interpreter, as what the library may call must.
_handler: Any = ctypes.CFUNCTYPE(None, ctypes.c_int, ctypes.c_char_p, ctypes.c_char_p,
                                 ctypes.c_void_p)(_take)


def begin(library: ctypes.CDLL) -> None:
    """From now on records come to logging."""
    global _library
    _library = library
    set_log_level(_level)


def end() -> None:
    """No record comes any more once this returns, nor goes to standard error in its place."""
    global _library
    if _library is not None:
        library, _library = _library, None
        library.qlog_set_handler(None, None, NONE)


def set_log_level(level: int) -> None:
    """Sets from which level on the library's records come to the loggers "veltra" and, from the HTTP
    client, "veltra.http": logging.WARNING at first.

    logging.INFO and logging.DEBUG show what users write and what the model answers. That is why the
    loggers' own levels don't decide alone: they filter what this level lets through.
    """
    global _level
    _level = level
    if _library is not None:
        least = min((own for own, shown in LEVELS.items() if shown >= level), default=NONE)
        _library.qlog_set_handler(_handler, None, least)
