"""What happens to threads inside the library when the interpreter ends."""

import os
import threading
from typing import Callable

from .errors import NotEnabled

PATIENCE = 1.0  # seconds for calls to give up: a name lookup can't be interrupted


class Threads:
    """The threads that are in a call. None may return from the library into an interpreter that is gone,
    so the exit cancels their calls and waits for them. Nobody is interested in those calls any more: such
    a thread ends by SystemExit, which Python doesn't report, and whoever joins it at exit can go on.
    """

    def __init__(self) -> None:
        self.begin()

    def begin(self) -> None:
        self._condition = threading.Condition()
        self._inside = 0
        self._ending = False

    def __enter__(self) -> None:
        with self._condition:
            self.refuse_at_end()
            self._inside += 1

    def __exit__(self, *_: object) -> None:
        with self._condition:
            self._inside -= 1
            self._condition.notify_all()
            self.refuse_at_end()

    def refuse_at_end(self) -> None:
        if self._ending and threading.current_thread() is threading.main_thread():
            raise NotEnabled("the interpreter ends")  # for the host's own functions that run at exit
        if self._ending:
            raise SystemExit

    def end(self, cancel: Callable[[], None]) -> None:
        with self._condition:
            self._ending = True
            cancel()
            self._condition.wait_for(lambda: self._inside == 0, PATIENCE)


threads = Threads()
if hasattr(os, "register_at_fork"):
    os.register_at_fork(after_in_child=threads.begin)  # where none of the parent's other threads exist
