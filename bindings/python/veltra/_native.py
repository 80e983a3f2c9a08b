"""The library as ctypes sees it: where it is found, what its functions take, how it is released.

ctypes releases the interpreter lock in each of these functions, so other Python threads run while one
waits in the library.
"""

import atexit
import ctypes
import os
import pathlib
import sys
import threading
from ctypes import POINTER, c_char_p, c_int, c_int32, c_int64, c_size_t, c_uint32, c_uint64, c_void_p
from typing import Any, Optional

from . import _records
from ._exit import threads
from ._version import __version__

SUCCEEDED = 0


class KeyPair(ctypes.Structure):
    _fields_ = [("app_key", c_char_p), ("secret_key", c_char_p)]


class HttpOptions(ctypes.Structure):
    _fields_ = [("size", c_size_t), ("connect_timeout_ms", c_uint32), ("total_timeout_ms", c_uint32),
                ("max_response_bytes", c_uint64), ("ca_file", c_char_p), ("proxy", c_char_p),
                ("allow_plain_http", c_int)]


# Texts that the caller must free have the type c_void_p: as c_char_p they would be copied, and the
# address for veltra_free would be lost.
FUNCTIONS: "dict[str, tuple[Any, list[Any]]]" = {
    "veltra_version": (c_char_p, []),
    "veltra_free": (None, [c_void_p]),
    "veltra_enable": (None, []),
    "veltra_disable": (None, []),
    "veltra_is_usable": (c_int, []),
    "veltra_call_new": (c_void_p, []),
    "veltra_call_free": (None, [c_void_p]),
    "veltra_call_set_time_limit": (None, [c_void_p, c_uint32]),
    "veltra_call_cancel": (None, [c_void_p]),
    "veltra_call_attempts": (c_int32, [c_void_p]),
    "veltra_call_http_status": (c_int32, [c_void_p]),
    "veltra_call_milliseconds": (c_uint32, [c_void_p]),
    "veltra_call_retryable": (c_int, [c_void_p]),
    "veltra_call_gateway_code": (c_char_p, [c_void_p]),
    "veltra_call_gateway_message": (c_char_p, [c_void_p]),
    "veltra_call_detail": (c_char_p, [c_void_p]),
    "veltra_call_trace_id": (c_char_p, [c_void_p]),
    "veltra_cancel_all": (None, []),
    "veltra_set_http_options": (c_int32, [POINTER(HttpOptions)]),
    "veltra_set_domain": (c_int32, [c_char_p, c_void_p]),
    "veltra_login": (c_int32, [POINTER(KeyPair), c_size_t, c_char_p, c_void_p]),
    "veltra_logout": (None, []),
    "veltra_set_phrases": (c_int32, [POINTER(c_char_p), c_size_t]),
    "veltra_set_phrase_keys": (c_int32, [POINTER(c_uint64), c_size_t, c_uint32]),
    "veltra_phrase_key": (c_uint64, [c_char_p]),
    "veltra_query_new": (c_void_p, [c_char_p]),
    "veltra_query_free": (None, [c_void_p]),
    "veltra_query_set_value": (c_int32, [c_void_p, c_char_p, c_char_p]),
    "veltra_query_set_filter": (c_int32, [c_void_p, c_int32]),
    "veltra_query_add_sensitive": (c_int32, [c_void_p, c_char_p]),
    "veltra_query_set_trace_id": (c_int32, [c_void_p, c_char_p]),
    "veltra_query_run": (c_int32, [c_void_p, POINTER(c_void_p), POINTER(c_size_t), c_void_p]),
    "veltra_feedback_new": (c_void_p, [c_char_p]),
    "veltra_feedback_free": (None, [c_void_p]),
    "veltra_feedback_set_satisfaction": (c_int32, [c_void_p, c_int32]),
    "veltra_feedback_set_error_type": (c_int32, [c_void_p, c_int32]),
    "veltra_feedback_set_comments": (c_int32, [c_void_p, c_char_p]),
    "veltra_feedback_set_country": (c_int32, [c_void_p, c_char_p]),
    "veltra_feedback_add_picture": (c_int32, [c_void_p, c_char_p, c_size_t]),
    "veltra_feedback_submit": (c_int32, [c_void_p, POINTER(c_void_p), c_void_p]),
    "veltra_feedback_withdraw": (c_int32, [c_char_p, c_void_p]),
    "veltra_convert_time": (c_int32, [c_char_p, c_int64, c_int, c_char_p]),
    "veltra_set_first_day_of_week": (c_int32, [c_int32]),
    "qlog_set_handler": (None, [c_void_p, c_void_p, c_int]),
}

_lock = threading.RLock()
_library: Optional[ctypes.CDLL] = None


def library() -> ctypes.CDLL:
    """Returns the library, loading it on first use: a process may import this package, fork, and use
    the library in each child. A child can't use a library that its parent has used."""
    global _library
    if _library is not None:  # without the lock, which a forked child might find taken
        return _library
    with _lock:
        if _library is None:
            loaded = _load()
            _records.begin(loaded)
            atexit.register(_let_go, loaded)
            _library = loaded
        return _library


def _load() -> ctypes.CDLL:
    loaded = ctypes.CDLL(_find())
    try:
        for name, (result, arguments) in FUNCTIONS.items():
            function = getattr(loaded, name)
            function.restype, function.argtypes = result, arguments
    except AttributeError as missing:
        raise OSError(f"{loaded._name} is too old for veltra {__version__}: {missing}") from None
    version = loaded.veltra_version().decode()
    if version.split(".")[0] != __version__.split(".")[0]:
        raise OSError(f"{loaded._name} is version {version}, which doesn't go with veltra {__version__}")
    return loaded


def _find() -> str:
    """The path in VELTRA_LIBRARY, else the file in this folder, else a name for the loader."""
    named = os.environ.get("VELTRA_LIBRARY")
    if named:
        return named
    name = "Veltra.dll" if sys.platform == "win32" else "libveltra.so.1"
    beside = pathlib.Path(__file__).resolve().parent / name
    return str(beside) if beside.exists() else name


def _let_go(loaded: ctypes.CDLL) -> None:
    """Called when the interpreter ends. From now on it receives no log records: a thread of the library
    that enters an interpreter which is gone would crash the process. Threads inside the library, all
    of them daemons by now, are asked to leave."""
    _records.end()
    threads.end(loaded.veltra_cancel_all)
