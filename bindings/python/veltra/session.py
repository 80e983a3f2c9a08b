"""A login at a gateway, and the calls that it allows."""

import ctypes
import enum
import os
import threading
import time
import uuid
import weakref
from dataclasses import dataclass
from types import TracebackType
from typing import Callable, Iterable, Mapping, Optional, Tuple, Type, Union

from ._calls import Call, CancelToken, check, encode, int32, integer, milliseconds
from ._native import HttpOptions, KeyPair, library
from .errors import NotEnabled


class Filter(enum.IntEnum):
    """What the gateway checks for forbidden words."""
    NONE = 1
    INPUT = 2
    INPUT_AND_OUTPUT = 3
    OUTPUT = 4


@dataclass(frozen=True)
class Answer:
    """The answer to a query."""
    #: the model's text
    text: str
    #: the id by which feedback refers to the query
    trace_id: str
    #: how many exchanges were made
    attempts: int
    #: how long the query took
    milliseconds: int


class Session:
    """A login, for any number of threads and event loops at once. `veltra.connect` creates it."""

    def __init__(self) -> None:
        self._library = library()
        self._closed = False

    def __enter__(self) -> "Session":
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()

    def close(self) -> None:
        """Cancels every call under way, ends the library's thread, and wipes keys and token. Takes less
        than a second. Later calls raise NotEnabled; closing again does nothing."""
        if self._closed:
            return
        self._closed = True
        self._library.veltra_cancel_all()
        self._library.veltra_logout()
        self._library.veltra_disable()

    @property
    def usable(self) -> bool:
        """Whether the library's thread last found the service usable."""
        return not self._closed and bool(self._library.veltra_is_usable())

    def cancel_all(self) -> None:
        """Cancels every call under way in this process. Later ones are not affected."""
        self._library.veltra_cancel_all()

    def query(self, prompt_key: str, values: Mapping[str, str], *, trace_id: Optional[str] = None,
              filter: Filter = Filter.NONE, sensitive: Iterable[str] = (),
              timeout: Optional[float] = None, cancel: Optional[CancelToken] = None) -> Answer:
        """Runs the gateway's prompt template with that key, filled with the values, and waits for the answer.

        trace_id: the id under which the gateway files the query; None: a new one. sensitive: texts for
        the gateway to check in place of the values. timeout: in seconds, for the whole call. Raises a
        subclass of Error; ValueError for a text with a NUL character, before anything is sent.
        """
        work = _query(prompt_key, values, trace_id, filter, sensitive)
        return self._call(timeout, cancel).wait(work)

    async def aquery(self, prompt_key: str, values: Mapping[str, str], *,
                     trace_id: Optional[str] = None, filter: Filter = Filter.NONE,
                     sensitive: Iterable[str] = (), timeout: Optional[float] = None,
                     cancel: Optional[CancelToken] = None) -> Answer:
        """The same for asyncio, on a thread of its own. A cancelled task continues at once, and the
        library's call is cancelled with it."""
        work = _query(prompt_key, values, trace_id, filter, sensitive)
        return await self._call(timeout, cancel).wait_async(work)

    def feedback(self, trace_id: str, *, satisfaction: int = 0, error_type: int = 0,
                 comments: str = "", country: Optional[str] = None, pictures: Iterable[bytes] = (),
                 timeout: Optional[float] = None, cancel: Optional[CancelToken] = None) -> str:
        """Submits a user's feedback on the answer to a query, and returns the id for `withdraw`.

        satisfaction and error_type are numbers of the gateway's operators. pictures are the bytes of
        JPEG files, four at most. Submitting the same again creates another feedback.
        """
        work = _feedback(trace_id, satisfaction, error_type, comments, country, pictures)
        return self._call(timeout, cancel).wait(work)

    def withdraw(self, feedback_id: str, *, timeout: Optional[float] = None,
                 cancel: Optional[CancelToken] = None) -> None:
        """Withdraws feedback."""
        name = encode(feedback_id)
        self._call(timeout, cancel).wait(
            lambda call: call.check(call.library.veltra_feedback_withdraw(name, call.handle)))

    def _call(self, timeout: Optional[float], cancel: Optional[CancelToken]) -> Call:
        if self._closed:
            raise NotEnabled("the session is closed")
        return Call(timeout, cancel)

    def _log_in(self, domain: Optional[str], keys: "ctypes.Array[KeyPair]", product_version: bytes,
                timeout: Optional[float], cancel: Optional[CancelToken]) -> None:
        milliseconds(timeout)  # refused before anything is sent
        end = None if timeout is None else time.monotonic() + timeout
        if domain is not None:
            name = encode(domain)
            self._call(timeout, cancel).wait(
                lambda call: call.check(call.library.veltra_set_domain(name, call.handle)))
        left = None if end is None else max(end - time.monotonic(), 0.001)
        self._call(left, cancel).wait(lambda call: call.check(
            call.library.veltra_login(keys, len(keys), product_version, call.handle)))


_open: "Optional[weakref.ref[Session]]" = None
_open_process = 0
_open_lock = threading.Lock()


def connect(domain: Optional[str], keys: Iterable[Tuple[str, str]], *,
            ca_file: "Union[str, os.PathLike[str], None]" = None, proxy: Optional[str] = None,
            connect_timeout: Optional[float] = None, total_timeout: Optional[float] = None,
            max_response_bytes: int = 0, allow_plain_http: bool = False, product_version: str = "",
            timeout: Optional[float] = None, cancel: Optional[CancelToken] = None) -> Session:
    """Logs in at a gateway. Use the session in a `with` statement, which closes it.

    domain: scheme, host and port; None for the built-in ones. keys: pairs of app key and secret key.
    ca_file: trusted certificates in place of the system's. proxy: its URL, or "direct". connect_timeout
    and total_timeout: in seconds, for each exchange, 10 and 120 by default; timeout: for this login.

    Login, options, domain and phrases belong to the process: RuntimeError while another session is open.
    """
    options = HttpOptions(
        ctypes.sizeof(HttpOptions), milliseconds(connect_timeout), milliseconds(total_timeout),
        integer(max_response_bytes, 0, 2**64 - 1), encode(os.fspath(ca_file)) if ca_file else None,
        encode(proxy) if proxy else None, allow_plain_http)
    pairs = [KeyPair(encode(app_key), encode(secret_key)) for app_key, secret_key in keys]
    version = encode(product_version)
    session = Session()
    _claim(session)
    try:
        native = library()
        native.veltra_enable()
        check(native.veltra_set_http_options(options), "the options are not set")
        session._log_in(domain, (KeyPair * len(pairs))(*pairs), version, timeout, cancel)
    except BaseException:
        session.close()
        raise
    return session


def _claim(session: Session) -> None:
    global _open, _open_process
    with _open_lock:
        other = _open and _open()
        if other and not other._closed and _open_process == os.getpid():
            raise RuntimeError("a session is open in this process: share it, or close it first")
        _open, _open_process = weakref.ref(session), os.getpid()


# --- what calls do; their arguments are checked on the caller's thread -----------------------------


def _query(prompt_key: str, values: Mapping[str, str], trace_id: Optional[str], filter: Filter,
           sensitive: Iterable[str]) -> Callable[[Call], Answer]:
    key, texts = encode(prompt_key), [(encode(name), encode(value)) for name, value in values.items()]
    # The library would generate one as well, but log a warning.
    trace, checked = encode(trace_id or str(uuid.uuid4())), [encode(text) for text in sensitive]
    kind = Filter(filter)

    def run(call: Call) -> Answer:
        native, answer, length = call.library, ctypes.c_void_p(), ctypes.c_size_t()
        query = native.veltra_query_new(key)
        try:
            for name, value in texts:
                call.check(native.veltra_query_set_value(query, name, value))
            for text in checked:
                call.check(native.veltra_query_add_sensitive(query, text))
            call.check(native.veltra_query_set_filter(query, kind))
            call.check(native.veltra_query_set_trace_id(query, trace))
            call.check(native.veltra_query_run(query, answer, length, call.handle))
            content = ctypes.string_at(answer.value or 0, length.value)
            return Answer(content.decode("utf-8", "replace"), call.trace_id(), native.veltra_call_attempts(call.handle),
                          native.veltra_call_milliseconds(call.handle))
        finally:
            native.veltra_free(answer)
            native.veltra_query_free(query)

    return run


def _feedback(trace_id: str, satisfaction: int, error_type: int, comments: str,
              country: Optional[str], pictures: Iterable[bytes]) -> Callable[[Call], str]:
    trace, words, land = encode(trace_id), encode(comments), country and encode(country)
    files = [bytes(picture) for picture in pictures]
    int32(satisfaction), int32(error_type)

    def run(call: Call) -> str:
        native, given = call.library, ctypes.c_void_p()
        feedback = native.veltra_feedback_new(trace)
        try:
            call.check(native.veltra_feedback_set_satisfaction(feedback, satisfaction))
            call.check(native.veltra_feedback_set_error_type(feedback, error_type))
            call.check(native.veltra_feedback_set_comments(feedback, words))
            if land:
                call.check(native.veltra_feedback_set_country(feedback, land))
            for file in files:
                call.check(native.veltra_feedback_add_picture(feedback, file, len(file)))
            call.check(native.veltra_feedback_submit(feedback, given, call.handle))
            return ctypes.string_at(given.value or 0).decode("utf-8", "replace")
        finally:
            native.veltra_free(given)
            native.veltra_feedback_free(feedback)

    return run


# --- what belongs to the process: no session is needed ---------------------------------------------------------


def set_phrases(phrases: Iterable[str]) -> None:
    """Replaces the phrases that query values must not contain; none: every text passes."""
    texts = [encode(phrase) for phrase in phrases]
    check(library().veltra_set_phrases((ctypes.c_char_p * len(texts))(*texts), len(texts)),
          "the phrases are not set")


def set_phrase_keys(keys: Iterable[int], limit: int) -> None:
    """The same with keys that were computed elsewhere; limit: the number of words of the longest phrase."""
    numbers = [integer(key, 0, 2**64 - 1) for key in keys]
    check(library().veltra_set_phrase_keys((ctypes.c_uint64 * len(numbers))(*numbers), len(numbers),
                                           integer(limit, 0, 2**32 - 1)), "the keys are not set")


def phrase_key(phrase: str) -> int:
    """Computes the key of a phrase; docs/screening.md says when it has further ones."""
    return int(library().veltra_phrase_key(encode(phrase)))


def convert_time(expression: str, now: Optional[float] = None, *, start_of_day: bool = False) -> str:
    """Converts an expression such as "-1d" to "YYYY-MM-DD HH:MM:SS", local time; to an empty text if it
    leads to a date that doesn't exist. now: seconds since 1970; None: the present. start_of_day: a day
    without a clock time means 00:00:00, otherwise 23:59:59. Raises BadArgument if the expression can't
    be read."""
    moment = integer(int(time.time() if now is None else now), -2**63, 2**63 - 1)
    result = ctypes.create_string_buffer(20)
    check(library().veltra_convert_time(encode(expression), moment, start_of_day, result),
          f"can't be read as a time: {expression!r}")
    return result.value.decode()


def set_first_day_of_week(day: int) -> None:
    """Sets the first day of the week for convert_time: 0, Sunday, the initial value, to 6."""
    check(library().veltra_set_first_day_of_week(int32(day)), f"not a day of the week: {day}")


def library_version() -> str:
    """The version of the loaded library."""
    return str(library().veltra_version().decode())
