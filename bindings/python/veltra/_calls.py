"""A call that talks to the gateway: its time limit, cancellation, waiting and report."""

import asyncio
import concurrent.futures
import contextvars
import threading
from typing import Callable, Optional, Set, TypeVar

from ._exit import threads
from ._native import SUCCEEDED, library
from .errors import BY_OUTCOME, Error

Result = TypeVar("Result")


def encode(text: str) -> bytes:
    """Encodes a text for the library, where it ends at the first NUL: it must not be cut silently."""
    if "\0" in text:
        raise ValueError("a text for the library must not contain a NUL character")
    return text.encode("utf-8")


def integer(number: int, low: int, high: int) -> int:
    """Checks the range: ctypes would silently cut off what doesn't fit."""
    if not low <= number <= high:
        raise ValueError(f"{number} is not from {low} to {high}")
    return number


def int32(number: int) -> int:
    return integer(number, -2**31, 2**31 - 1)


def milliseconds(seconds: Optional[float]) -> int:
    """The library takes 0 for no limit, so every limit is at least one millisecond."""
    if seconds is None:
        return 0
    if not seconds > 0:
        raise ValueError(f"{seconds} is not a time limit: it must be greater than 0, or None")
    return int(min(max(seconds * 1000, 1), 2**32 - 1))


class CancelToken:
    """Cancels calls from any thread, at any time: all that are given this token, later ones too."""

    def __init__(self) -> None:
        self._lock = threading.RLock()  # a signal handler may cancel as well, wherever it interrupted
        self._calls: Set["Call"] = set()
        self._cancelled = False

    @property
    def cancelled(self) -> bool:
        return self._cancelled

    def cancel(self) -> None:
        """Makes the calls raise Cancelled within 100 ms, without waiting for that."""
        with self._lock:
            self._cancelled = True
            for call in self._calls:
                call.cancel()

    def _add(self, call: "Call") -> None:
        with self._lock:
            self._calls.add(call)
            if self._cancelled:
                call.cancel()

    def _remove(self, call: "Call") -> None:
        with self._lock:
            self._calls.discard(call)


class Call:
    """Used once. The library's object exists while the call runs, on the thread that runs it."""

    def __init__(self, timeout: Optional[float], token: Optional[CancelToken]) -> None:
        self.library = library()
        self.handle: Optional[int] = None
        self._limit = milliseconds(timeout)
        self._token = token
        self._lock = threading.RLock()  # between a cancellation and the end of the library's object
        self._cancelled = False

    def cancel(self) -> None:
        with self._lock:
            self._cancelled = True
            self.library.veltra_call_cancel(self.handle)

    def wait(self, work: Callable[["Call"], Result]) -> Result:
        """Runs work on this thread. The main thread instead waits for another one: signal handlers run
        only on it, and not while it is in the library. So Ctrl-C cancels the call."""
        threads.refuse_at_end()
        if threading.current_thread() is not threading.main_thread():
            return self._run(work)
        try:
            future = self._start(work)
        except RuntimeError:  # no thread could be started
            return self._run(work)
        try:
            return future.result()
        finally:
            if not future.done():
                self.cancel()
                concurrent.futures.wait([future])

    async def wait_async(self, work: Callable[["Call"], Result]) -> Result:
        """Runs work on a thread of its own, so that it never waits for another call."""
        try:
            return await asyncio.wrap_future(self._start(work))
        except asyncio.CancelledError:
            self.cancel()
            raise

    def check(self, outcome: int) -> None:
        """Raises the exception for the outcome, filled from the report; nothing after a success."""
        if outcome == SUCCEEDED:
            return
        native, handle = self.library, self.handle
        error = BY_OUTCOME.get(outcome, Error)(
            _text(native.veltra_call_detail(handle)),
            attempts=native.veltra_call_attempts(handle),
            http_status=native.veltra_call_http_status(handle),
            gateway_code=_text(native.veltra_call_gateway_code(handle)),
            gateway_message=_text(native.veltra_call_gateway_message(handle)),
            retryable=bool(native.veltra_call_retryable(handle)),
            milliseconds=native.veltra_call_milliseconds(handle), trace_id=self.trace_id())
        error.outcome = outcome
        raise error

    def trace_id(self) -> str:
        return _text(self.library.veltra_call_trace_id(self.handle))

    def _start(self, work: Callable[["Call"], Result]) -> "concurrent.futures.Future[Result]":
        future: "concurrent.futures.Future[Result]" = concurrent.futures.Future()
        future.set_running_or_notify_cancel()
        context = contextvars.copy_context()  # which log filters use

        def run() -> None:
            try:
                future.set_result(context.run(lambda: self._run(work)))
            except BaseException as error:
                future.set_exception(error)

        # A daemon thread: the interpreter doesn't wait for it at exit.
        threading.Thread(target=run, name="veltra-call", daemon=True).start()
        return future

    def _run(self, work: Callable[["Call"], Result]) -> Result:
        with threads:
            try:
                self._begin()
                return work(self)
            finally:
                self._end()

    def _begin(self) -> None:
        with self._lock:
            self.handle = self.library.veltra_call_new()
            self.library.veltra_call_set_time_limit(self.handle, self._limit)
            if self._cancelled:
                self.cancel()
        if self._token:
            self._token._add(self)

    def _end(self) -> None:
        if self._token:
            self._token._remove(self)
        with self._lock:
            handle, self.handle = self.handle, None
        self.library.veltra_call_free(handle)


def check(outcome: int, detail: str) -> None:
    """For functions without a report."""
    if outcome != SUCCEEDED:
        raise BY_OUTCOME.get(outcome, Error)(detail)


def _text(text: bytes) -> str:
    return text.decode("utf-8", "replace")
