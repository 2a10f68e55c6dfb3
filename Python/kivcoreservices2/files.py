"""Caption files: SCC and MCC are read, faults included, and written; SRT and WebVTT are only written."""
from __future__ import annotations

import ctypes
import enum
import errno
import os
import secrets
import stat
import weakref
from ctypes import byref, c_uint8, c_uint64, c_void_p
from dataclasses import dataclass
from types import TracebackType
from typing import Any, Callable, Iterable, Iterator, List, Optional, Sequence, Union

from . import _records as records
from ._handle import Closing, Handle, callback, raise_first
from ._library import library
from .decoder import Caption, CaptionDecoder
from .packet import BytesLike, CaptionFault, CaptionPacket, Counting, ServiceEntry
from .packet import as_bool, as_bytes, as_frame, as_int, as_member, dtvcc_record, pairs_record, service_number, service_records
from .status import EndOfStreamError, NoDataError, OpenError, StatusError, WriteError, error_class

Path = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]


class CaptionKind(enum.IntEnum):
    """A kind of caption file."""

    SCC = 1
    MCC1 = 2
    MCC2 = 3  #: lines may have suffixes: ".field" and ",number"
    SRT = 4  #: written only
    WEBVTT = 5  #: written only

    @property
    def is_mcc(self) -> bool:
        return self in (CaptionKind.MCC1, CaptionKind.MCC2)


class CaptionOrder(enum.IntEnum):
    """The order in which packets are read."""

    FILE = 0  #: as in the file
    FRAME = 1  #: by frame, for which the file must have positions (not a pipe)


class CaptionReason(enum.IntEnum):
    """The source of a file's counting."""

    NONE = 0
    CALLER = 1
    HEADER = 2  #: the line "Time Code Rate="
    PACKETS = 3  #: the rate code of the CDPs
    SEPARATOR = 4  #: the separators before the frames: ";" means drop-frame


@dataclass(frozen=True)
class FileFault:
    """One fault at one place of a caption file."""

    fault: CaptionFault
    status: int  #: the status with which a strict read ends
    line: int  #: from 1
    offset: int  #: bytes from the start of the file to the start of the line
    column: int  #: characters from 1; 0 if the fault concerns the whole line
    frame: Optional[int]  #: frames since midnight, if the line has a timecode
    lost: bool  #: a line, a pair or a part of a packet is lost
    found: str  #: the text of the file here; bytes that are not UTF-8 as escapes
    expected: str  #: the text expected here

    def __str__(self) -> str:
        place = f"line {self.line}" + (f", column {self.column}" if self.column else "")
        wanted = f", expected {self.expected}" if self.expected else ""
        return f"{place}: {self.fault.label}: found {self.found!r}{wanted}" + (" (lost)" if self.lost else "")

    @classmethod
    def _of(cls, record: records.KIVCS2CaptionFileFault) -> FileFault:
        return cls(CaptionFault(record.m_fault), record.m_status, record.m_line, record.m_offset, record.m_column,
                   record.m_frame if record.m_hasFrame else None, record.m_lost,
                   bytes(record.m_found[:record.m_foundSize]).decode("utf-8", "backslashreplace"),
                   (record.m_expected or b"").decode("utf-8", "replace"))

    def as_error(self, operation: str, filename: Optional[str]) -> StatusError:
        """Returns the exception of this fault."""
        return self._place(error_class(self.status)(operation, filename))

    def _place(self, error: StatusError) -> StatusError:
        error.fault, error.line, error.column, error.offset = self.fault, self.line, self.column, self.offset
        error.found, error.expected = self.found, self.expected
        return error


@dataclass(frozen=True)
class CaptionHeader:
    """The header of a caption file. Missing texts are empty."""

    kind: Optional[CaptionKind] = None
    counting: Optional[Counting] = None
    reason: CaptionReason = CaptionReason.NONE
    field: int = 0  #: field of an SCC file: 1 or 2; 0 otherwise
    first_line: int = 0  #: the line of the first caption; 0 if there is no caption
    rate: str = ""  #: the text after "Time Code Rate="
    uuid: str = ""
    program: str = ""
    date: str = ""
    time: str = ""
    others: str = ""  #: the other lines of the header, each with a line feed; cut if longer than 1023 bytes

    @classmethod
    def _of(cls, record: records.KIVCS2CaptionFileHeader) -> CaptionHeader:
        texts = (getattr(record, f"m_{name}").decode("utf-8", "surrogateescape")
                 for name in ("rate", "uuid", "program", "date", "time", "others"))
        return cls(CaptionKind(record.m_kind), Counting(record.m_counting), CaptionReason(record.m_reason),
                   record.m_field, record.m_firstLine, *texts)

    def _record(self) -> records.KIVCS2CaptionFileHeader:
        record = records.KIVCS2CaptionFileHeader()
        for name in ("uuid", "program", "date", "time"):
            text = getattr(self, name)
            if not isinstance(text, str):
                raise TypeError(f"{name} must be str, not {type(text).__name__}")
            data = text.encode("utf-8", "surrogateescape")
            if len(data) >= records.HEADER_SIZE or any(byte in data for byte in b"\0\n\r"):
                raise ValueError(f"{name} must be one line of at most {records.HEADER_SIZE - 1} bytes")
            setattr(record, f"m_{name}", data)
        return record


@dataclass(frozen=True)
class CaptionReport:
    """Totals of a reader so far."""

    lines: int  #: lines of the file, including blank lines and comments
    packets: int  #: packets returned; in an SCC file each pair is a packet
    cdps: int  #: packets returned that have a CDP
    lost_lines: int  #: caption lines without a packet
    lost_pairs: int  #: SCC words without a pair in lines that were kept
    faults: int  #: places with a fault; several faults in a line count each
    gap_frames: int  #: frames without a packet between the first and the last
    first_frame: int  #: frame of the first packet; 0 if there is no packet
    last_frame: int


# ---- Streams ----

class _Source:
    """A caption file of the library with the stream below it. It belongs to a reader or a writer."""

    def __init__(self) -> None:
        self.file = records.KIVCS2CaptionFile()
        self.stream: Any = None  # KIVCS2FileStream or KIVCS2MemoryStream
        self.keep: "list[Any]" = []  # bytes and callbacks that the library holds pointers to
        self.temporary: Optional[str] = None

    def open(self, path: bytes, mode: bytes) -> None:
        if os.path.isdir(path):  # C opens a folder to read, and then cannot say why nothing can be read
            raise OpenError("open", os.fsdecode(path), os.strerror(errno.EISDIR))
        stream = records.KIVCS2FileStream()
        try:
            library.kivCS2FileStream_init(byref(stream), path, mode)
        except OpenError as error:
            number = ctypes.get_errno()
            raise OpenError(error.operation, os.fsdecode(path), os.strerror(number) if number else "") from None
        self.stream = stream

    def view(self, data: bytes) -> None:
        content = (c_uint8 * max(1, len(data))).from_buffer_copy(data or b"\0")
        stream = records.KIVCS2MemoryStream()
        library.kivCS2MemoryStream_initWithBytes(byref(stream), byref(content), len(data))
        self.stream = stream
        self.keep.append(content)

    def grow(self) -> None:
        stream = records.KIVCS2MemoryStream()
        library.kivCS2MemoryStream_init(byref(stream), 65536, 65536)
        self.stream = stream

    def content(self) -> bytes:
        buffer, size = c_void_p(), c_uint64()
        library.kivCS2MemoryStream_getBytes(byref(self.stream), byref(buffer), byref(size))
        return ctypes.string_at(buffer, size.value)

    def close_stream(self) -> None:
        """Releases file and stream; raises WriteError if bytes written earlier did not reach the file."""
        library.kivCS2CaptionFile_free(byref(self.file))
        stream, self.stream = self.stream, None
        if isinstance(stream, records.KIVCS2FileStream):
            library.kivCS2FileStream_free(byref(stream))
        elif stream is not None:
            library.kivCS2MemoryStream_free(byref(stream))

    def release(self) -> None:
        """Releases everything, and removes what was not written to its end."""
        try:
            self.close_stream()
        except StatusError:
            pass  # an unfinished file that nobody reads
        finally:
            temporary, self.temporary = self.temporary, None
            if temporary is not None:
                try:
                    os.unlink(temporary)
                except OSError:
                    pass


def _path(path: Path) -> bytes:
    data = os.fsencode(os.fspath(path))
    if b"\0" in data:
        raise ValueError("embedded null byte in a path")
    return data


# ---- Reading ----

class CaptionReader(Closing):
    """Reads an SCC or MCC file as it is, with its faults.

        with CaptionReader("programme.scc") as reader:
            for caption in reader.captions():
                print(caption.start_timecode, caption.end_timecode, caption.text)

    Iterating yields packets; in an SCC file each pair is a packet. A fault that loses little or nothing is tolerated,
    counted, and given to `on_fault`, a function of one FileFault. An exception in it ends the read.

    `source`: a path (str, bytes or os.PathLike); `from_bytes` reads from memory. `kind`, `counting`: override the
    file's. `field`: of an SCC file's pairs, 1, 2, or 0 to take it from the codes. `order`: a decoder needs order by
    frame; a pipe has only CaptionOrder.FILE. `strict`: the first fault ends the read with its status. `both_tracks`:
    SCC words of 8 digits: the second track goes to the other field.

    Close it with `with` or `close`; otherwise it is closed when it is collected. If several threads use one reader,
    each call waits for the one before; calls on different readers run at the same time.
    """

    def __init__(self, source: Path, *, kind: Optional[CaptionKind] = None,
                 counting: "Union[None, str, Counting]" = None, field: int = 0,
                 order: CaptionOrder = CaptionOrder.FRAME, strict: bool = False, both_tracks: bool = False,
                 on_fault: "Optional[Callable[[FileFault], Any]]" = None) -> None:
        path = _path(source)
        self._begin(os.fsdecode(path), lambda opened: opened.open(path, b"r"), kind, counting, field, order, strict,
                    both_tracks, on_fault)

    @classmethod
    def from_bytes(cls, data: BytesLike, *, name: Optional[str] = None, kind: Optional[CaptionKind] = None,
                   counting: "Union[None, str, Counting]" = None, field: int = 0,
                   order: CaptionOrder = CaptionOrder.FRAME, strict: bool = False, both_tracks: bool = False,
                   on_fault: "Optional[Callable[[FileFault], Any]]" = None) -> CaptionReader:
        """Reads the content of a file from memory; `name` stands for its name in exceptions."""
        if name is not None and not isinstance(name, str):
            raise TypeError(f"name must be str, not {type(name).__name__}")
        reader, content = cls.__new__(cls), as_bytes(data, "data")
        reader._begin(name, lambda opened: opened.view(content), kind, counting, field, order, strict, both_tracks,
                      on_fault)
        return reader

    def _begin(self, name: Optional[str], open_stream: "Callable[[_Source], None]", kind: Optional[CaptionKind],
               counting: "Union[None, str, Counting]", field: int, order: CaptionOrder, strict: bool, both_tracks: bool,
               on_fault: "Optional[Callable[[FileFault], Any]]") -> None:
        if on_fault is not None and not callable(on_fault):
            raise TypeError("on_fault must be a function of one FileFault")
        owner, source = weakref.ref(self), _Source()

        def take(record: Any) -> None:
            reader = owner()
            if reader is not None:  # always, because it is in one of its own calls
                reader._take(record)

        errors: "list[BaseException]" = []
        receiver = callback(records.FaultFunc, take, errors)
        options = records.KIVCS2CaptionReadOptions(
            0 if kind is None else as_member(CaptionKind, kind, "kind"), 0 if counting is None else Counting.of(counting),
            as_int(field, 0, 2, "field"), as_member(CaptionOrder, order, "order"), as_bool(strict, "strict"),
            as_bool(both_tracks, "both_tracks"))
        options.m_onFault = receiver
        source.keep.append(receiver)
        self._name, self._on_fault, self._source = name, on_fault, source
        self._last: Optional[FileFault] = None
        self._errors = errors
        self._handle = Handle(self, source.release)
        try:
            open_stream(source)
            self._call(library.kivCS2CaptionFile_initReading, byref(source.stream), False, byref(options))
        except BaseException:
            self.close()
            raise

    def _take(self, record: records.KIVCS2CaptionFileFault) -> None:
        """Receives a fault from the library."""
        self._last = FileFault._of(record)
        if self._on_fault is not None:
            self._on_fault(self._last)

    def _call(self, operation: Any, *arguments: Any) -> None:
        self._handle.run(self._checked, operation, *arguments)

    def _checked(self, operation: Any, *arguments: Any) -> None:
        try:
            operation(byref(self._source.file), *arguments)
        except StatusError as error:
            raise_first(self._errors)
            error.filename = self._name
            if self._last is not None and self._last.status == error.status:
                self._last._place(error)
            raise
        raise_first(self._errors)

    @property
    def header(self) -> CaptionHeader:
        """The header; the file is read up to its first caption. Raises HeaderError if it is not a caption file."""
        record = records.KIVCS2CaptionFileHeader()
        self._call(library.kivCS2CaptionFile_readHeader, byref(record))
        return CaptionHeader._of(record)

    def read(self) -> Optional[CaptionPacket]:
        """Returns the next packet; None after the last one. Raises NoDataError for a file without any packet."""
        record = records.KIVCS2CaptionPacket()
        try:
            self._call(library.kivCS2CaptionFile_readPacket, byref(record))
        except EndOfStreamError:
            return None
        return CaptionPacket._of(record)

    def __iter__(self) -> CaptionReader:
        return self

    def __next__(self) -> CaptionPacket:
        packet = self.read()
        if packet is None:
            raise StopIteration
        return packet

    def captions(self, services: "Union[None, str, Iterable[str]]" = None, *, screens: bool = False
                 ) -> "Iterator[Caption]":
        """Decodes the packets from here to the end of the file and yields the captions in the order of their ends.

        `services`: those to decode ("CC1", or ["CC1", "S1"]); None for all. `screens`: roll-up as whole screens.
        """
        with CaptionDecoder(services, counting=self.header.counting, screens=screens) as decoder:
            end = 0
            for packet in self:
                end = packet.frame + 1
                yield from decoder.feed(packet)
            yield from decoder.finish(end)

    def seek(self, frame: "Union[int, str]") -> bool:
        """Moves to the first packet at `frame` (frames since midnight, or a timecode) or later.

        Returns False if there is none; the next read is then at the end. Raises UnsupportedError for a pipe.
        """
        place = (self.header.counting or Counting.FPS_30).frame(frame) if isinstance(frame, str) else as_frame(frame)
        try:
            self._call(library.kivCS2CaptionFile_seek, place)
        except EndOfStreamError:
            return False
        return True

    @property
    def report(self) -> CaptionReport:
        """The totals so far."""
        record = records.KIVCS2CaptionFileReport()
        self._call(library.kivCS2CaptionFile_getReport, byref(record))
        return CaptionReport(record.m_lines, record.m_packets, record.m_cdps, record.m_lostLines, record.m_lostPairs,
                             record.m_faults, record.m_gapFrames, record.m_firstFrame, record.m_lastFrame)

    def faults(self) -> "dict[CaptionFault, tuple[int, FileFault]]":
        """Returns for each fault met so far the number of its places, and the first of them."""
        found = {}
        for fault in CaptionFault:
            count, first = c_uint64(), records.KIVCS2CaptionFileFault()
            self._call(library.kivCS2CaptionFile_getFaultCount, fault, byref(count), byref(first))
            if count.value:
                found[fault] = (count.value, FileFault._of(first))
        return found


# ---- Writing ----

_ENDINGS = {".scc": CaptionKind.SCC, ".mcc": CaptionKind.MCC1, ".srt": CaptionKind.SRT, ".vtt": CaptionKind.WEBVTT}


def _kind_of(path: Optional[bytes], kind: Optional[CaptionKind]) -> CaptionKind:
    if kind is not None:
        return as_member(CaptionKind, kind, "kind")
    ending = os.path.splitext(os.fsdecode(path or b""))[1].lower()
    if ending not in _ENDINGS:
        raise ValueError("give the target the ending .scc, .mcc, .srt or .vtt, or its kind")
    return _ENDINGS[ending]


def _take_over(file: int, before: os.stat_result) -> None:
    """Gives a new file the owner, the group and the rights of the one it replaces, as far as the system allows."""
    def kept(user: int, group: int) -> bool:
        try:
            os.chown(file, user, group)
        except OSError:
            return False
        return True
    own, mode = os.fstat(file), stat.S_IMODE(before.st_mode)
    # The rights come last: a change of the owner clears the set-id bits, which another owner must not get.
    has_group = own.st_gid == before.st_gid or kept(-1, before.st_gid)
    has_owner = own.st_uid == before.st_uid or kept(before.st_uid, -1)
    if not (has_group and has_owner):
        mode &= ~(stat.S_ISUID | stat.S_ISGID)
    if not has_group:
        mode &= ~stat.S_IRWXG | (mode & stat.S_IRWXO) << 3  # another group gets the rights of all
    try:
        os.chmod(file, mode)
    except OSError:
        pass  # some file systems have no modes


class CaptionWriter(Closing):
    """Writes an SCC, MCC, SRT or WebVTT file with rising frames.

        with CaptionWriter("programme.mcc", counting="29.97df") as writer:
            writer.write(packet)

    Leaving `with` normally finishes the file. A file appears whole, under its name, when it is finished; after an
    exception, or without `finish`, nothing is left of it and an older file keeps its content. It gets the owner, group
    and rights of an older file, as far as the system allows. Other targets (a pipe, a device) are written directly.

    `target`: a path (str, bytes or os.PathLike), or None for memory, read by `getvalue`. `kind`: without it, that of
    the target's ending. `header`: UUID, program, date and time of an MCC file; missing texts are filled in.
    `plain_hex`: MCC with hex digits only. `every_frame`: MCC, `write_captions`: empty packets in frames without
    captions. `field`: SCC: the field whose pairs are written. `time_zero`: SRT, WebVTT: the frame that is
    00:00:00.000. `services`: the service list of `write_captions`; None for service 1 without a language.

    If several threads use one writer, each call waits for the one before.
    """

    def __init__(self, target: Optional[Path], kind: Optional[CaptionKind] = None, *, counting: "Union[str, Counting]",
                 header: Optional[CaptionHeader] = None, plain_hex: bool = False, every_frame: bool = False,
                 field: int = 1, time_zero: int = 0, services: "Optional[Sequence[ServiceEntry]]" = None) -> None:
        path = None if target is None else _path(target)
        kind, counting = _kind_of(path, kind), Counting.of(counting)
        if header is not None and not isinstance(header, CaptionHeader):
            raise TypeError(f"header must be CaptionHeader, not {type(header).__name__}")
        texts = None if header is None else header._record()
        array, count = service_records(services)
        options = records.KIVCS2CaptionWriteOptions(as_bool(plain_hex, "plain_hex"), as_bool(every_frame, "every_frame"))
        options.m_field, options.m_timeZero = as_int(field, 1, 2, "field"), as_frame(time_zero, "time_zero")
        options.m_serviceCount = count
        if array is not None:
            options.m_services = array
        self._source, self._path, self._value = _Source(), path, None  # type: _Source, Optional[bytes], Optional[bytes]
        self._handle = Handle(self, self._source.release)
        try:
            self._open()
            self._call(library.kivCS2CaptionFile_initWriting, byref(self._source.stream), False, kind, counting,
                       byref(options))
            self._call(library.kivCS2CaptionFile_writeHeader, None if texts is None else byref(texts))
        except BaseException:
            self.close()
            raise

    def _open(self) -> None:
        if self._path is None:
            return self._source.grow()
        try:
            self._before: Optional[os.stat_result] = os.stat(self._path)
        except OSError:
            self._before = None
            if os.path.basename(self._path) in (b"", b".", b".."):  # realpath() would name another file
                raise OpenError("open", os.fsdecode(self._path), os.strerror(
                    errno.EISDIR if self._path else errno.ENOENT)) from None
        if self._before is not None and not stat.S_ISREG(self._before.st_mode):
            return self._source.open(self._path, b"w")
        self._path = os.path.realpath(self._path)  # a link stays a link
        # Not the target's name with an ending, which could be too long.
        temporary = os.path.join(os.path.dirname(self._path), b".kivcs2-" + secrets.token_hex(8).encode())
        try:
            # An older file may be private: the new one is, until it gets its rights.
            rights = 0o666 if self._before is None else 0o600
            os.close(os.open(temporary, os.O_WRONLY | os.O_CREAT | os.O_EXCL, rights))
            self._source.temporary = os.fsdecode(temporary)
            self._source.open(temporary, b"w")
        except OpenError as error:
            error.filename = os.fsdecode(self._path)
            raise
        except OSError as error:
            raise OpenError("open", os.fsdecode(self._path), error.strerror or "") from None
        return None

    def _call(self, operation: Any, *arguments: Any) -> None:
        try:
            self._handle.run(operation, byref(self._source.file), *arguments)
        except StatusError as error:
            error.filename = None if self._path is None else os.fsdecode(self._path)
            raise

    def write(self, packet: CaptionPacket) -> None:
        """Writes a packet: an MCC file gets its bytes unchanged, an SCC file the pairs of its field."""
        if not isinstance(packet, CaptionPacket):
            raise TypeError(f"packet must be CaptionPacket, not {type(packet).__name__}")
        self._call(library.kivCS2CaptionFile_writePacket, byref(packet._record))

    def write_captions(self, frame: int, pairs: "Optional[tuple[Iterable[BytesLike], Iterable[BytesLike]]]" = None,
                       dtvcc: "Optional[tuple[BytesLike, int]]" = None) -> None:
        """Writes the captions of one frame: an MCC file gets a new packet with the next sequence number."""
        self._call(library.kivCS2CaptionFile_writeCaptions, as_frame(frame), pairs_record(pairs), dtvcc_record(dtvcc))

    def write_caption(self, caption: Caption) -> None:
        """Writes one caption as a cue of SRT or WebVTT."""
        if not isinstance(caption, Caption):
            raise TypeError(f"caption must be Caption, not {type(caption).__name__}")
        record, keep = caption._filled()
        self._call(library.kivCS2CaptionFile_writeText, byref(record))
        del keep

    def finish(self) -> None:
        """Completes the file, gives it its name and closes the writer. On failure nothing is left of it."""
        try:
            self._call(library.kivCS2CaptionFile_finish)
            self._handle.run(self._complete)
        except StatusError as error:
            error.filename = None if self._path is None else os.fsdecode(self._path)
            raise
        finally:
            self.close()

    def _complete(self) -> None:
        if self._path is None:
            self._value = self._source.content()
        self._source.close_stream()
        try:
            self._place()
        except OSError as error:
            raise WriteError("rename", detail=error.strerror or "") from None

    def _place(self) -> None:
        if self._source.temporary is None:
            return
        with open(self._source.temporary, "rb") as file:
            if self._before is not None:
                _take_over(file.fileno(), self._before)
            os.fsync(file.fileno())  # its content is on the disk before its name is
        os.replace(self._source.temporary, os.fsdecode(self._path))  # type: ignore[arg-type]
        self._source.temporary = None

    def getvalue(self) -> bytes:
        """Returns the content of a finished file in memory."""
        if self._value is None:
            raise ValueError("only a finished writer in memory has a value")
        return self._value

    def __exit__(self, kind: "Optional[type[BaseException]]", error: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        if kind is None and not self.closed:
            self.finish()
        self.close()


# ---- Whole files ----

def read_captions(source: Path, services: "Union[None, str, Iterable[str]]" = None, *,
                  counting: "Union[None, str, Counting]" = None, screens: bool = False) -> "List[Caption]":
    """Returns the captions of a file in the order of their ends. Damaged lines do not harm the others."""
    with CaptionReader(source, counting=counting) as reader:
        return list(reader.captions(services, screens=screens))


def _best_service(captions: "List[Caption]") -> "Optional[str]":
    """Returns CC1 or S1, else another of CEA-608, then of CEA-708, then a text service."""
    def rank(name: str) -> "tuple[bool, bool, bool, bool, int]":
        return name[0] == "T", name != "CC1", name != "S1", name[0] == "S", service_number(name)
    names = {caption.service for caption in captions}
    return min(names, key=rank) if names else None


def convert_captions(source: Path, target: Path, kind: Optional[CaptionKind] = None, *,
                     counting: "Union[None, str, Counting]" = None, field: int = 0, service: Optional[str] = None,
                     time_zero: "Union[int, str]" = 0, sparse: bool = False, plain_hex: bool = False,
                     keep_going: bool = False, on_fault: "Optional[Callable[[FileFault], Any]]" = None
                     ) -> CaptionReport:
    """Converts SCC or MCC to SCC, MCC, SRT or WebVTT at the same rate, in order by frame; returns the source's totals.

    MCC to MCC keeps each packet byte for byte. SCC to MCC writes a packet for every frame, or with `sparse` only for
    those that have a pair. SCC from MCC gets one `field` (1 without it). SRT and WebVTT get the captions of one
    `service`; without it CC1, S1 or another that has captions. `time_zero` is the frame or timecode that is
    00:00:00.000 there.

    If a line, a pair or a part of a packet is lost, the exception of the first such fault is raised and nothing is
    written; `keep_going` leaves it out. Raises NoDataError if there is nothing to write.
    """
    as_bool(sparse, "sparse")
    as_bool(keep_going, "keep_going")
    if service is not None:
        service_number(service)  # refuses another name, also for targets without services
    if on_fault is not None and not callable(on_fault):
        raise TypeError("on_fault must be a function of one FileFault")
    lost: "List[FileFault]" = []

    def take(fault: FileFault) -> None:
        if fault.lost and not lost:
            lost.append(fault)
        if on_fault is not None:
            on_fault(fault)

    to = _kind_of(_path(target), kind)
    with CaptionReader(source, counting=counting, field=as_int(field, 0, 2, "field"), on_fault=take) as reader:
        header = reader.header
        rate = header.counting
        assert rate is not None and header.kind is not None  # a header that was read has both
        if header.kind == CaptionKind.SCC and to.is_mcc and rate.numbers > 30:
            raise ValueError(f"an SCC file has one pair a frame at up to 30 frames a second, not {rate}")
        zero = rate.frame(time_zero) if isinstance(time_zero, str) else time_zero
        with CaptionWriter(target, to, counting=rate, header=header, plain_hex=plain_hex, every_frame=not sparse,
                           field=header.field or field or 1, time_zero=zero) as writer:
            if to in (CaptionKind.SRT, CaptionKind.WEBVTT):
                written = _write_cues(reader, writer, service)
            else:
                written = _write_packets(reader, writer, header.kind == CaptionKind.SCC and to.is_mcc)
            if lost and not keep_going:
                raise lost[0].as_error("convert_captions", os.fsdecode(_path(source)))
            if not written:
                raise NoDataError("convert_captions", os.fsdecode(_path(source)))
        return reader.report


def _write_packets(reader: CaptionReader, writer: CaptionWriter, builds: bool) -> int:
    written = 0
    for packet in reader:
        if builds:
            writer.write_captions(packet.frame, packet.pairs)
        else:
            writer.write(packet)
        written += 1
    return written


def _write_cues(reader: CaptionReader, writer: CaptionWriter, service: Optional[str]) -> int:
    captions = list(reader.captions(service))
    chosen = _best_service(captions) if service is None else service.upper()
    for caption in captions:
        if caption.service == chosen:
            writer.write_caption(caption)
    return sum(caption.service == chosen for caption in captions)
