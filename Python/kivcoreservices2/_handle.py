"""Ownership of the library's objects: used by one thread at a time, released once, never used afterwards."""
from __future__ import annotations

import os
import threading
import weakref
from types import TracebackType
from typing import Any, Callable, Generator, Optional, TypeVar

from .status import status_of


class Handle:
    """An object of the library: who may use it, and how it is released.

    `release` is called once: by `close`, or when the owner is collected, or at the end of the interpreter. It must not
    reference the owner, which would then never be collected. A child of fork() has only a copy, with the files of its
    parent: it may not use it, and closing it releases nothing.
    """

    def __init__(self, owner: object, release: "Callable[[], Any]") -> None:
        self._name = type(owner).__name__
        self._lock = threading.RLock()
        self._inside = False  # a call is running, in the thread that has the lock
        self._process = os.getpid()
        self._release = release
        self._finalizer = weakref.finalize(owner, _release_in, self._process, self._lock, release)

    @property
    def closed(self) -> bool:
        return not self._finalizer.alive

    def run(self, function: "Callable[..., Any]", *arguments: Any) -> Any:
        """Makes one call with the object. Waits for another thread; a callback of the same call is refused."""
        if os.getpid() != self._process:  # the lock may be held by a thread that only the parent has
            raise RuntimeError(f"this {self._name} belongs to the process that made it")
        with self._lock:  # not a `with` of Python code: an interrupt in that would leave it locked
            if self._inside:
                raise RuntimeError(f"a callback of this {self._name} must not use it")
            if self.closed:
                raise ValueError(f"this {self._name} is closed")
            self._inside = True
            try:
                return function(*arguments)
            finally:
                self._inside = False

    def close(self) -> None:
        """Releases the object; a second call is harmless."""
        if self.closed:
            return
        if os.getpid() != self._process:
            self._finalizer.detach()
            return
        try:
            self.run(self._close)
        except ValueError:
            pass  # another thread closed it meanwhile

    def _close(self) -> None:
        self._finalizer.detach()
        self._release()


_PATIENCE = 0.2  # seconds


def _release_in(process: int, lock: Any, release: "Callable[[], Any]") -> None:
    """Releases an object that was collected, or that is left at the end of the interpreter.

    A daemon thread may then still be in a call with it. If the call does not end soon, nothing is released: the process
    ends, and the thread would use released memory.
    """
    if os.getpid() != process or not lock.acquire(timeout=_PATIENCE):
        return
    try:
        release()
    finally:
        lock.release()


def callback(kind: Any, function: "Callable[[Any], Any]", errors: "list[BaseException]") -> Any:
    """Returns a callback for the library, which calls `function` with each record.

    No exception may pass through the library's frames: it is appended to `errors`, and its status ends the library's
    call. The callback is a generator, because an interrupt that comes while the library works is raised at the first
    instruction of Python: in a plain function that is before any `try`, and ctypes would print it and go on.
    """
    generator = _received(function, errors)
    next(generator)
    return kind(generator.send)


def _received(function: "Callable[[Any], Any]", errors: "list[BaseException]") -> "Generator[int, Any, None]":
    status, waits = 0, True
    while True:
        try:
            while True:
                waits = True
                record = yield status
                waits = False
                function(record.contents)
                status = 0
        except BaseException as error:
            if waits and isinstance(error, GeneratorExit):
                return  # the callback is released
            errors.append(error)
            status = status_of(error)


def raise_first(errors: "list[BaseException]") -> None:
    """Raises the exception of a callback, if there is one."""
    if not errors:
        return
    error = errors[0]
    errors.clear()
    if isinstance(error, (StopIteration, EOFError)):  # they would end the caller's loop like the end of the file
        raise RuntimeError(f"a callback raised {type(error).__name__}") from error
    raise error from None


_Self = TypeVar("_Self", bound="Closing")


class Closing:
    """What every class with a handle has: close() and `with`."""

    _handle: Handle

    @property
    def closed(self) -> bool:
        return self._handle.closed

    def close(self) -> None:
        """Releases the memory and the file; a second call is harmless."""
        self._handle.close()

    def __reduce__(self) -> Any:
        raise TypeError(f"a {type(self).__name__} cannot be copied or pickled")

    def __enter__(self: _Self) -> _Self:
        if self.closed:
            raise ValueError(f"this {type(self).__name__} is closed")
        return self

    def __exit__(self, kind: "Optional[type[BaseException]]", error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()
