"""How threads that are in the library and the end of the interpreter get along."""

import os
import threading
from typing import Callable

from .errors import NotEnabled

PATIENCE = 1.0  # seconds for a call to give up: a name look-up can't be cut short


class Threads:
    """Those that are in a call. A thread that came back from the library into an interpreter which is
    being taken down would be in danger, and would report its cancelled call to nobody: it stays here.
    """

    def __init__(self) -> None:
        self.begin()

    def begin(self) -> None:
        self._condition = threading.Condition()
        self._inside = 0
        self._ending = False

    def __enter__(self) -> None:
        with self._condition:
            if not self._ending:
                self._inside += 1
                return
        _stay()
        raise NotEnabled("the interpreter ends")

    def __exit__(self, *_: object) -> None:
        with self._condition:
            self._inside -= 1
            self._condition.notify_all()
            if not self._ending:
                return
        _stay()

    def end(self, cancel: Callable[[], None]) -> None:
        with self._condition:
            self._ending = True
            cancel()
            self._condition.wait_for(lambda: self._inside == 0, PATIENCE)


def _stay() -> None:
    """For good, unless this is the main thread: functions that host code runs at exit may call too."""
    if threading.current_thread() is not threading.main_thread():
        threading.Event().wait()


threads = Threads()
if hasattr(os, "register_at_fork"):
    os.register_at_fork(after_in_child=threads.begin)  # with none of the parent's other threads
