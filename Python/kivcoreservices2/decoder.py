"""Caption packets to text: CEA-608 (CC1 to CC4, T1 to T4) and CEA-708 (S1 to S63)."""
from __future__ import annotations

import ctypes
import enum
from ctypes import byref
from dataclasses import dataclass
from typing import Any, Callable, Iterable, Optional, Union, cast

from . import _records as records
from ._handle import Closing, Handle, callback, raise_first
from ._library import library
from .packet import CaptionPacket, Counting, as_bool, as_frame, service_name, service_number
from .status import StatusError


class CaptionMode(enum.IntEnum):
    """The way a caption came to the screen."""

    POP_ON = 1
    ROLL_UP = 2
    PAINT_ON = 3
    TEXT = 4  #: T1 to T4: one row
    WINDOW = 5  #: a window of CEA-708

    def __str__(self) -> str:
        return self.name.lower().replace("_", "-")


class CaptionStyle(enum.IntFlag):
    ITALICS = 0x1
    UNDERLINE = 0x2
    FLASH = 0x4


@dataclass(frozen=True)
class CaptionCell:
    """One character on the screen. Colours are 0xAARRGGBB; AA is 255 solid, 128 translucent, 0 transparent."""

    row: int  #: from 0, in 15 rows (CEA-608) or the rows of the window (CEA-708)
    column: int  #: from 0, in 32 columns or the columns of the window
    text: str
    style: CaptionStyle
    colour: int
    background: int


class Caption:
    """One caption as a viewer saw it: what, from when until when, where, and in which style. It does not change."""

    __slots__ = ("_record", "_cells", "_text", "counting")
    _record: records.KIVCS2CaptionText
    _cells: bytes
    _text: bytes
    counting: Optional[Counting]  #: the counting of its frames, if the decoder was given one

    def __init__(self) -> None:
        raise TypeError("captions come from CaptionReader.captions() and CaptionDecoder")

    @classmethod
    def _of(cls, record: records.KIVCS2CaptionText, counting: Optional[Counting]) -> Caption:
        """Copies a record that is valid only during a callback."""
        caption = cls.__new__(cls)
        caption._text = ctypes.string_at(record.m_text, record.m_textSize) if record.m_textSize else b""
        size = record.m_cellCount * ctypes.sizeof(records.KIVCS2CaptionCell)
        caption._cells = ctypes.string_at(record.m_cells, size) if size else b""
        caption._record = records.KIVCS2CaptionText.from_buffer_copy(record)
        caption._record.m_text = caption._record.m_cells = None
        caption.counting = counting
        return caption

    def _filled(self) -> "tuple[records.KIVCS2CaptionText, Any]":
        """Returns a record for the library, and what must live as long as it is used."""
        record = records.KIVCS2CaptionText.from_buffer_copy(self._record)
        text, cells = ctypes.create_string_buffer(self._text), ctypes.create_string_buffer(self._cells)
        record.m_text, record.m_cells = ctypes.addressof(text), ctypes.addressof(cells)
        return record, (text, cells)

    def at(self, start: int, end: int) -> Caption:
        """Returns the same caption at another time, in frames since midnight."""
        caption = type(self).__new__(type(self))
        caption._text, caption._cells, caption.counting = self._text, self._cells, self.counting
        caption._record = records.KIVCS2CaptionText.from_buffer_copy(self._record)
        caption._record.m_from, caption._record.m_until = as_frame(start, "start"), as_frame(end, "end")
        return caption

    @property
    def start(self) -> int:
        """The frame on which it appeared, counted from midnight."""
        return int(self._record.m_from)

    @property
    def end(self) -> int:
        """The first frame without it; smaller than `start` past midnight."""
        return int(self._record.m_until)

    def _known(self) -> Counting:
        if self.counting is None:
            raise ValueError("no counting: CaptionDecoder(counting=...) gives captions their times")
        return self.counting

    @property
    def start_timecode(self) -> str:
        """The timecode on which it appeared, "01:00:00;27"."""
        return self._known().timecode(self.start)

    @property
    def end_timecode(self) -> str:
        """The first timecode without it."""
        return self._known().timecode(self.end)

    @property
    def start_seconds(self) -> float:
        """Real seconds from frame 0 to `start`."""
        return self._known().seconds(self.start)

    @property
    def end_seconds(self) -> float:
        """Real seconds from frame 0 to `end`."""
        return self._known().seconds(self.end)

    @property
    def text(self) -> str:
        """The rows without blanks at their ends, with a line feed between them."""
        return self._text.decode("utf-8", "replace")

    @property
    def service(self) -> str:
        """The service: "CC1" to "CC4", "T1" to "T4", "S1" to "S63"."""
        return service_name(self._record.m_service)

    @property
    def mode(self) -> CaptionMode:
        return CaptionMode(self._record.m_mode)

    @property
    def cells(self) -> "tuple[CaptionCell, ...]":
        """The characters row by row from the left, without cells that have no character."""
        kind = records.KIVCS2CaptionCell
        array = (kind * (len(self._cells) // ctypes.sizeof(kind))).from_buffer_copy(self._cells)
        return tuple(CaptionCell(cell.m_row, cell.m_column, cell.m_text.decode("utf-8", "replace"),
                                 CaptionStyle(cell.m_style), cell.m_colour, cell.m_background) for cell in array)

    @property
    def window(self) -> int:
        """CEA-708: the window, 0 to 7."""
        return int(self._record.m_window)

    @property
    def anchor(self) -> "tuple[int, int, int]":
        """Anchor point, row and column. CEA-608: 0, the first row and the first column.

        CEA-708: the point is 0 top left, 1 top centre ... 8 bottom right; row and column are 0 to 74 and 0 to 209, or
        percent if `is_relative`.
        """
        return self._record.m_anchorPoint, self._record.m_anchorRow, self._record.m_anchorColumn

    @property
    def is_relative(self) -> bool:
        """True if row and column of the anchor are percent of the screen."""
        return bool(self._record.m_anchorRelative)

    @property
    def justify(self) -> int:
        """CEA-708: 0 left, 1 right, 2 centre, 3 full; CEA-608: 0."""
        return int(self._record.m_justify)

    @property
    def screen(self) -> "tuple[int, int]":
        """Rows and columns of the screen (15, 32) or of the window."""
        return self._record.m_rows, self._record.m_columns

    def _content(self) -> "tuple[bytes, bytes, bytes, Optional[Counting]]":
        return bytes(self._record), self._text, self._cells, self.counting

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Caption) and self._content() == other._content()

    def __hash__(self) -> int:
        return hash(self._content())

    def __reduce__(self) -> "tuple[Any, ...]":
        return _unpickle, self._content()

    def __str__(self) -> str:
        return self.text

    def __repr__(self) -> str:
        times = f"{self.start} to {self.end}" if self.counting is None else f"{self.start_timecode} {self.end_timecode}"
        return f"<Caption {times} {self.service} {self.text!r}>"


def _unpickle(record: bytes, text: bytes, cells: bytes, counting: Optional[Counting]) -> Caption:
    caption = Caption.__new__(Caption)
    caption._record = records.KIVCS2CaptionText.from_buffer_copy(record)
    caption._text, caption._cells, caption.counting = text, cells, counting
    return caption


@dataclass(frozen=True)
class DecoderReport:
    """Totals of a decoder."""

    services: "tuple[str, ...]"  #: services with at least one code of their own
    texts: int  #: captions reported
    pairs: "tuple[int, int]"  #: CEA-608 pairs of field 1 and 2 that are not empty
    dtvcc_packets: int  #: complete packets of CEA-708
    dtvcc_cut: int  #: packets cut off by the start of another
    dtvcc_breaks: int  #: packets whose sequence number does not follow the one before
    windows: int  #: window definitions


_LINE21 = ("CC1", "CC2", "CC3", "CC4", "T1", "T2", "T3", "T4")


def _services_record(services: "Union[str, Iterable[str]]") -> records.KIVCS2CaptionServices:
    record = records.KIVCS2CaptionServices()
    for name in [services] if isinstance(services, str) else services:
        number = service_number(name)
        if number <= 63:
            record.m_dtvcc |= 1 << number
        else:
            record.m_line21 |= 1 << _LINE21.index(name.upper())
    return record


def _receiver(collected: "list[Caption]", counting: Optional[Counting]) -> "Callable[[Any], None]":
    """Returns the receiver of a decoder's captions, which must not reference the decoder's owner."""
    def take(record: Any) -> None:
        collected.append(Caption._of(record, counting))
    return take


class CaptionDecoder(Closing):
    """Follows the packets of one programme in the order of their frames and returns the captions that end.

        with CaptionDecoder(counting="29.97df") as decoder:
            for packet in packets:
                captions += decoder.feed(packet)
            captions += decoder.finish(packet.frame + 1)

    `services`: those to report ("CC1", or ["CC1", "S1"]); None for all. `counting` gives captions their times and
    CEA-708 its delays (29.97 without it). `screens`: report roll-up as a whole screen at each change, not row by row.

    Damaged data never makes it fail. It takes 60 KiB, and 60 KiB more for each service of CEA-708. If several threads
    use one decoder, each call waits for the one before.
    """

    def __init__(self, services: "Union[None, str, Iterable[str]]" = None, *,
                 counting: "Union[None, str, Counting]" = None, screens: bool = False) -> None:
        counting = None if counting is None else Counting.of(counting)
        options = records.KIVCS2CaptionDecoderOptions(counting or 0, as_bool(screens, "screens"))
        chosen = None if services is None else _services_record(services)
        self._captions: "list[Caption]" = []
        self._errors: "list[BaseException]" = []
        receiver = callback(records.TextFunc, _receiver(self._captions, counting), self._errors)
        record = records.KIVCS2CaptionDecoder()
        library.kivCS2CaptionDecoder_init(byref(record), chosen, byref(options), receiver, None)
        self._record = record

        def release(receiver: Any = receiver) -> None:  # the callback lives as long as the decoder
            library.kivCS2CaptionDecoder_free(byref(record))

        self._handle = Handle(self, release)

    def _call(self, operation: Any, *arguments: Any) -> "list[Caption]":
        return cast("list[Caption]", self._handle.run(self._collect, operation, *arguments))

    def _collect(self, operation: Any, *arguments: Any) -> "list[Caption]":
        try:
            operation(byref(self._record), *arguments)
        except StatusError:
            raise_first(self._errors)
            raise
        finally:
            captions = self._captions[:]
            self._captions.clear()
        raise_first(self._errors)
        return captions

    def feed(self, packet: CaptionPacket) -> "list[Caption]":
        """Follows one packet and returns the captions that left the screen, usually none or one."""
        if not isinstance(packet, CaptionPacket):
            raise TypeError(f"packet must be CaptionPacket, not {type(packet).__name__}")
        return self._call(library.kivCS2CaptionDecoder_feed, byref(packet._record))

    def finish(self, frame: int) -> "list[Caption]":
        """Ends every caption on the screen at `frame`, returns them, and empties the decoder for further use."""
        return self._call(library.kivCS2CaptionDecoder_finish, as_frame(frame))

    @property
    def report(self) -> DecoderReport:
        """The totals since the decoder was made."""
        record = records.KIVCS2CaptionDecoderReport()
        self._handle.run(library.kivCS2CaptionDecoder_getReport, byref(self._record), byref(record))
        met = tuple(name for place, name in enumerate(_LINE21) if record.m_met.m_line21 >> place & 1)
        met += tuple(f"S{number}" for number in range(1, 64) if record.m_met.m_dtvcc >> number & 1)
        return DecoderReport(met, record.m_texts, (record.m_pairs[0], record.m_pairs[1]), record.m_dtvccPackets, record.m_dtvccCut,
                             record.m_dtvccBreaks, record.m_windows)
