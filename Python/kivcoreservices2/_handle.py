"""Ownership of the library's objects: used by one thread at a time, released once, never used afterwards."""
from __future__ import annotations

import os
import threading
import weakref
from types import TracebackType
from typing import Any, Callable, Optional


class Handle:
    """An object of the library: who may use it, and how it is released.

    `release` is called once: by `close`, or when the owner is collected, or at the end of the interpreter. It must not
    reference the owner, which would then never be collected. A child of fork() releases nothing: it has only a copy.
    """

    def __init__(self, owner: object, release: "Callable[[], Any]") -> None:
        self._name = type(owner).__name__
        self._lock = threading.Lock()
        self._user = 0
        self._finalizer = weakref.finalize(owner, _release_in, os.getpid(), release)

    @property
    def closed(self) -> bool:
        return not self._finalizer.alive

    def __enter__(self) -> None:
        """Takes the object for one call. Waits for another thread; a callback of the same call is refused."""
        if self._user == threading.get_ident():
            raise RuntimeError(f"a callback of this {self._name} must not use it")
        self._lock.acquire()
        self._user = threading.get_ident()
        if self.closed:
            self.__exit__()
            raise ValueError(f"this {self._name} is closed")

    def __exit__(self, *_: object) -> None:
        self._user = 0
        self._lock.release()

    def close(self) -> None:
        """Releases the object; a second call is harmless."""
        if self.closed:
            return
        try:
            with self:
                self._finalizer()
        except ValueError:
            pass  # another thread closed it meanwhile


def _release_in(process: int, release: "Callable[[], Any]") -> None:
    if os.getpid() == process:
        release()


class Closing:
    """What every class with a handle has: close() and `with`."""

    _handle: Handle

    @property
    def closed(self) -> bool:
        return self._handle.closed

    def close(self) -> None:
        """Releases the memory and the file; a second call is harmless."""
        self._handle.close()

    def __enter__(self) -> Any:
        if self.closed:
            raise ValueError(f"this {type(self).__name__} is closed")
        return self

    def __exit__(self, kind: "Optional[type[BaseException]]", error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()
