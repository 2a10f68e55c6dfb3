"""Statuses of the library as exceptions: one class for each status, all of them a StatusError."""
from __future__ import annotations

from typing import TYPE_CHECKING, Optional

if TYPE_CHECKING:
    from .packet import CaptionFault

_classes: "dict[int, type[StatusError]]" = {}


class StatusError(Exception):
    """An operation of the library failed.

    Class attributes: `status`, the 32-bit number; `name`, its name in the C headers; `text`, its meaning.
    Attributes of a failure: `operation`, the C operation that failed; `filename`, if the caller named a file.
    A failure that a place in a caption file caused also has `line` (from 1), `column` (characters from 1; 0 if it
    concerns the whole line), `offset` (bytes from the start of the file to the start of the line), `fault`, and the
    texts `found` and `expected` there; otherwise these are None.
    """

    status: int = 0
    name: str = ""
    text: str = ""
    operation: str = ""
    filename: Optional[str] = None
    line: Optional[int] = None
    column: Optional[int] = None
    offset: Optional[int] = None
    fault: Optional[CaptionFault] = None
    found: Optional[str] = None
    expected: Optional[str] = None

    def __init_subclass__(cls) -> None:
        super().__init_subclass__()
        if "status" in vars(cls):
            _classes[cls.status] = cls
            cls.__doc__ = f"{cls.name}: {cls.text}."

    def __init__(self, operation: str = "", filename: Optional[str] = None, detail: str = "") -> None:
        self.operation = operation
        self.filename = filename
        self.detail = detail
        super().__init__(operation, filename, detail)

    def __str__(self) -> str:
        what = self.text
        if self.fault is not None:
            what = self.fault.label + (f": found {self.found!r}" if self.found else "")
            what += f", expected {self.expected}" if self.expected else ""
        if self.filename is not None:  # file:line:column, as compilers write it
            places = [_shown(self.filename), self.line, self.column or None]
            place = ":".join(str(part) for part in places if part is not None) + ": "
        else:
            place = f"line {self.line}" + (f", column {self.column}: " if self.column else ": ") if self.line else ""
        detail = f": {self.detail}" if self.detail else ""
        return f"{place}{what}{detail} ({self.name}, {self.operation})"


def _shown(name: str) -> str:
    """Returns a file's name with escapes for what controls a terminal or cannot be printed."""
    return "".join(each if each.isprintable() else each.encode("unicode_escape").decode() for each in name)


def error_class(status: int) -> "type[StatusError]":
    """Returns the exception class of a failing status. A status without a class of its own has StatusError's name."""
    found = _classes.get(status)
    if found is None:
        found = type("UnknownStatusError", (StatusError,), {
            "status": status, "name": f"0x{status:08x}", "text": "a status that this package does not know"})
    return found


def status_of(error: BaseException) -> int:
    """Returns the number that a callback hands to the library for an exception; its own if it has one."""
    return error.status if isinstance(error, StatusError) and error.status else UnspecifiedError.status


class UnspecifiedError(StatusError):
    status, name, text = 0x80000000, "KIVCS2STATUS_ERR", "unspecified failure"


class ParameterError(StatusError, ValueError):
    status, name, text = 0x80000001, "KIVCS2STATUS_PARAM_ERR", "null pointer or out-of-range argument"


class NoMemoryError(StatusError, MemoryError):
    status, name, text = 0x80000002, "KIVCS2STATUS_MEMORY_ERR", "an allocation failed"


class BufferSizeError(StatusError):
    status, name, text = 0x80000003, "KIVCS2STATUS_BUFFER_SIZE_ERR", "the caller's buffer is too small"


class DataError(StatusError):
    status, name, text = 0x80000004, "KIVCS2STATUS_DATA_ERR", "malformed input, or a platform call failed"


class NoDataError(StatusError):
    status, name, text = 0x80000005, "KIVCS2STATUS_NO_DATA_ERR", "nothing available to read"


class NotFoundError(StatusError):
    status, name, text = 0x80000006, "KIVCS2STATUS_NOT_FOUND_ERR", "key, item, caption or sensor key not found"


class TimedOutError(StatusError):
    status, name, text = 0x80000007, "KIVCS2STATUS_TIMEOUT_ERR", "timed out, or would block"


class FormatError(StatusError):
    status, name, text = 0x80000008, "KIVCS2STATUS_FORMAT_ERR", "unexpected packet or caption format"


class EndOfStreamError(StatusError, EOFError):
    status, name, text = 0x80000009, "KIVCS2STATUS_EOF_ERR", "end of stream, or the peer closed"


class NoRoomError(StatusError):
    status, name, text = 0x8000000a, "KIVCS2STATUS_OVERFLOW_ERR", "no room to store the data"


class CaptionError(StatusError):
    status, name, text = 0x8000000b, "KIVCS2STATUS_CAPTION_ERR", "malformed caption line, or failed text conversion"


class HeaderError(StatusError):
    status, name, text = 0x8000000c, "KIVCS2STATUS_HEADER_ERR", "a caption file's header is malformed"


class FrameRateError(StatusError):
    status, name, text = 0x8000000d, "KIVCS2STATUS_FRAME_RATE_ERR", "frame-rate code unknown or not supported"


class WriteError(StatusError):
    status, name, text = 0x8000000e, "KIVCS2STATUS_WRITE_ERR", "a write failed"


class ReadError(StatusError):
    status, name, text = 0x8000000f, "KIVCS2STATUS_READ_ERR", "a read, seek or size query failed"


class OpenError(StatusError):
    status, name, text = 0x80000010, "KIVCS2STATUS_OPEN_ERR", "opening a file or named pipe failed"


class UnsupportedError(StatusError):
    status, name, text = 0x80000011, "KIVCS2STATUS_UNSUPPORTED_ERR", "not supported by this object or input"


class NoEntryError(StatusError):
    status, name, text = 0x80000012, "KIVCS2STATUS_NO_ENTRY_ERR", "multi-buffer entry not found"


class NoBufferError(StatusError):
    status, name, text = 0x80000013, "KIVCS2STATUS_NO_BUFFER_ERR", "no multi-buffer available"


class MutexError(StatusError):
    status, name, text = 0x80000014, "KIVCS2STATUS_MUTEX_ERR", "a mutex operation failed"


class MutexBusyError(StatusError):
    status, name, text = 0x80000015, "KIVCS2STATUS_MUTEX_BUSY_ERR", "the mutex is already locked (try-lock)"


class NamedPipeError(StatusError):
    status, name, text = 0x80000016, "KIVCS2STATUS_FIFO_ERR", "creating a named pipe failed"


class PipeError(StatusError):
    status, name, text = 0x80000017, "KIVCS2STATUS_PIPE_ERR", "a pipe operation failed"


class PixelFormatError(StatusError):
    status, name, text = 0x80000018, "KIVCS2STATUS_PIXEL_FORMAT_ERR", "pixel format not supported"


class ThreadError(StatusError):
    status, name, text = 0x80000019, "KIVCS2STATUS_THREAD_ERR", "creating a thread failed"


class SemaphoreError(StatusError):
    status, name, text = 0x8000001a, "KIVCS2STATUS_SEMAPHORE_ERR", "creating a semaphore failed"


class SemaphoreBusyError(StatusError):
    status, name, text = 0x8000001b, "KIVCS2STATUS_SEMAPHORE_BUSY_ERR", "the semaphore would block (test-wait)"


class SystemCallError(StatusError):
    status, name, text = 0x8000001c, "KIVCS2STATUS_SYSTEM_ERR", "a system call failed"


class StateError(StatusError):
    status, name, text = 0x8000001d, "KIVCS2STATUS_STATE_ERR", "wrong state for the operation"


class ConnectError(StatusError):
    status, name, text = 0x8000001e, "KIVCS2STATUS_CONNECT_ERR", "connecting failed, or a device could not be opened"


class AddressError(StatusError):
    status, name, text = 0x8000001f, "KIVCS2STATUS_ADDRESS_ERR", "address resolution failed"


class SocketError(StatusError):
    status, name, text = 0x80000020, "KIVCS2STATUS_SOCKET_ERR", "a socket call failed"


class SocketInvalidError(StatusError):
    status, name, text = 0x80000021, "KIVCS2STATUS_SOCKET_INVALID_ERR", "the socket is not open"


class ConnectionClosedError(StatusError):
    status, name = 0x80000022, "KIVCS2STATUS_CONNECTION_CLOSED_ERR"
    text = "closed or reset by the peer, or ended by an EOT byte"


class MulticastAddressError(StatusError):
    status, name, text = 0x80000023, "KIVCS2STATUS_MULTICAST_ADDRESS_ERR", "outside the multicast range 224-239"


class BindError(StatusError):
    status, name, text = 0x80000024, "KIVCS2STATUS_BIND_ERR", "bind failed"


class BindAddressError(StatusError):
    status, name, text = 0x80000025, "KIVCS2STATUS_BIND_ADDRESS_ERR", "no address to bind to"


class AcceptError(StatusError):
    status, name, text = 0x80000026, "KIVCS2STATUS_ACCEPT_ERR", "accept failed"


class PathError(StatusError):
    status, name, text = 0x80000027, "KIVCS2STATUS_PATH_ERR", "converting a resource path failed"


class NotLaunchableError(StatusError):
    status, name, text = 0x80000028, "KIVCS2STATUS_NOT_LAUNCHABLE_ERR", "the executable cannot be launched"


class ForkError(StatusError):
    status, name, text = 0x80000029, "KIVCS2STATUS_FORK_ERR", "fork or exec failed"


class NotPipedError(StatusError):
    status, name, text = 0x8000002a, "KIVCS2STATUS_NOT_PIPED_ERR", "the task's input or output is not piped"


class TaskReadError(StatusError):
    status, name, text = 0x8000002b, "KIVCS2STATUS_TASK_READ_ERR", "reading the task's output failed"


class TaskRunningError(StatusError):
    status, name, text = 0x8000002c, "KIVCS2STATUS_TASK_RUNNING_ERR", "the task is running"


class TaskNotRunningError(StatusError):
    status, name, text = 0x8000002d, "KIVCS2STATUS_TASK_NOT_RUNNING_ERR", "the task is not running"


class TaskWriteError(StatusError):
    status, name, text = 0x8000002e, "KIVCS2STATUS_TASK_WRITE_ERR", "writing the task's input failed"


class TaskServerError(StatusError):
    status, name, text = 0x8000002f, "KIVCS2STATUS_TASK_SERVER_ERR", "the task server failed"


class InvalidTimecodeError(StatusError):
    status, name = 0x80000030, "KIVCS2STATUS_INVALID_TIMECODE_ERR"
    text = "invalid, or names no frame of the current rate"


class VideoFormatError(StatusError):
    status, name, text = 0x80000031, "KIVCS2STATUS_VIDEO_FORMAT_ERR", "video format unknown"


class NodeLockedError(StatusError):
    status, name, text = 0x80000032, "KIVCS2STATUS_NODE_LOCKED_ERR", "a link-tree node, or one above it, is locked"


class NotWritableError(StatusError):
    status, name, text = 0x80000033, "KIVCS2STATUS_NOT_WRITABLE_ERR", "the socket is not writable"


__all__ = ["StatusError", *(each.__name__ for each in _classes.values())]
