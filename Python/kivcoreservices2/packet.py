"""Caption packets, and the countings that number their frames.

A caption packet is a SMPTE 291 ancillary packet. Its user data is a caption distribution packet (CDP, SMPTE 334-2) with
the CEA-608 pairs and CEA-708 bytes of one frame. Frames are counted from midnight, each file at its own Counting; the
rate of `set_frame_rate` is neither read nor set. Any thread may use everything here.
"""
from __future__ import annotations

import ctypes
import enum
import functools
from ctypes import byref, c_bool, c_uint8, c_uint32, c_uint64
from dataclasses import dataclass, field as data_field
from fractions import Fraction
from typing import Any, Iterable, Iterator, NamedTuple, Optional, Sequence, TypeVar, Union

from . import _records as records
from ._library import library
from .status import EndOfStreamError, InvalidTimecodeError, NoDataError, NotFoundError

BytesLike = Union[bytes, bytearray, memoryview]


def as_bytes(value: BytesLike, what: str) -> bytes:
    """Returns a copy of bytes, or the bytes themselves; raises TypeError for a str or a number."""
    if isinstance(value, bytes):
        return value
    if isinstance(value, (bytearray, memoryview)):
        return bytes(value)
    raise TypeError(f"{what} must be bytes, not {type(value).__name__}")


def as_int(value: int, low: int, high: int, what: str) -> int:
    """Returns an integer; raises TypeError for anything else and ValueError outside low to high."""
    if isinstance(value, bool) or not isinstance(value, int):
        raise TypeError(f"{what} must be int, not {type(value).__name__}")
    if not low <= value <= high:
        raise ValueError(f"{what} must be {low} to {high}, not {value}")
    return int(value)


def as_bool(value: bool, what: str) -> bool:
    if not isinstance(value, bool):
        raise TypeError(f"{what} must be bool, not {type(value).__name__}")
    return value


_Member = TypeVar("_Member", bound=enum.IntEnum)


def as_member(kind: "type[_Member]", value: int, what: str) -> _Member:
    """Returns a member of an enumeration, also by its number."""
    if isinstance(value, bool) or not isinstance(value, int):
        raise TypeError(f"{what} must be {kind.__name__}, not {type(value).__name__}")
    return kind(value)


def as_frame(value: int, what: str = "frame") -> int:
    return as_int(value, 0, 0xFFFFFFFF, what)


# ---- Countings ----

class Counting(enum.IntEnum):
    """A frame rate and its numbering. DF leaves numbers out (SMPTE ST 12-1); NDF does not."""

    FPS_23_98 = 1
    FPS_24 = 2
    FPS_25 = 3
    FPS_29_97_DF = 4
    FPS_29_97_NDF = 5
    FPS_30 = 6
    FPS_50 = 7
    FPS_59_94_DF = 8
    FPS_59_94_NDF = 9
    FPS_60 = 10

    @classmethod
    def of(cls, value: "Union[Counting, str]") -> Counting:
        """Returns a counting, also by its label ("25", "29.97df")."""
        if isinstance(value, Counting):
            return value
        if not isinstance(value, str):
            raise TypeError(f"a counting must be Counting or str, not {type(value).__name__}")
        for counting in cls:
            if counting.label == value.lower():
                return counting
        raise ValueError(f"no counting is called {value!r}; there are " + ", ".join(each.label for each in cls))

    @property
    def label(self) -> str:
        """The name, for example "29.97df"."""
        return str(library.kivCS2CaptionCounting_name(self).decode())

    def __str__(self) -> str:
        return self.label

    @property
    def rate(self) -> Fraction:
        """Frames a second, exact: 30000/1001 at 29.97."""
        info = _info(self)
        return Fraction(info.m_numerator, info.m_denominator)

    @property
    def numbers(self) -> int:
        """Frame numbers a second: 30 at 29.97."""
        return int(_info(self).m_numbers)

    @property
    def frames_per_day(self) -> int:
        """Frames from midnight to midnight."""
        return int(_info(self).m_perDay)

    @property
    def triplets(self) -> int:
        """Triplets of cc_data in a frame: 25, 24, 20, 12 or 10 (CEA-708)."""
        return int(_info(self).m_triplets)

    @property
    def rate_code(self) -> int:
        """cdp_frame_rate, 1 to 8 (SMPTE 334-2)."""
        return int(_info(self).m_rateCode)

    @property
    def drop(self) -> int:
        """Frame numbers left out at the start of nine minutes of ten: 0, 2 or 4."""
        return int(_info(self).m_drop)

    def frame(self, timecode: str, exact: bool = False) -> int:
        """Returns the frames since midnight of "HH:MM:SS:FF"; ":", ";", "." and "," are equal.

        A number that drop-frame leaves out gives the next frame, or InvalidTimecodeError if `exact` is true.
        """
        if not isinstance(timecode, str):
            raise TypeError(f"timecode must be str, not {type(timecode).__name__}")
        frame, exists = c_uint32(), c_bool()
        library.kivCS2CaptionCounting_frameFromText(self, timecode.replace("\0", "?").encode(), byref(frame),
                                                    byref(exists))
        if exact and not exists.value:
            raise InvalidTimecodeError("Counting.frame", detail=timecode)
        return frame.value

    def timecode(self, frame: int) -> str:
        """Returns the timecode of a frame, "01:00:00;02" in drop-frame. Past midnight it begins at 00:00:00 again."""
        text = ctypes.create_string_buffer(records.TIMECODE_SIZE)
        library.kivCS2CaptionCounting_textFromFrame(self, as_frame(frame), text)
        return text.value.decode()

    def nanoseconds(self, frame: int) -> int:
        """Returns the real time from frame 0 to the start of `frame`, rounded down."""
        time = c_uint64()
        library.kivCS2CaptionCounting_nanosecondsOfFrame(self, as_frame(frame), byref(time))
        return time.value

    def seconds(self, frame: int) -> float:
        """Returns the real time from frame 0 to the start of `frame` in seconds."""
        return self.nanoseconds(frame) / 1e9


@functools.lru_cache(maxsize=None)
def _info(counting: Counting) -> records.KIVCS2CaptionCountingInfo:
    info = records.KIVCS2CaptionCountingInfo()
    library.kivCS2CaptionCounting_getInfo(counting, byref(info))
    return info


# ---- Faults and services ----

class CaptionFault(enum.IntEnum):
    """A fault of a packet or a caption file. `label` is its name; Docs/captions.md lists the effect of each."""

    BYTE_ORDER_MARK = 1
    OTHER_ENCODING = 2
    HEADER_CASE = 3
    HEADER_BLANKS = 4
    HEADER_UNKNOWN = 5
    HEADER_LONG = 6
    HEADER_MISSING = 7
    NOT_A_CAPTION_FILE = 8
    RATE_MISSING = 9
    RATE_UNKNOWN = 10
    RATE_LATE = 11
    RATE_DISAGREES = 12
    BLANKS = 13
    BLANKS_BEFORE = 14
    BLANKS_BEHIND = 15
    FRAME_SEPARATOR = 16
    OTHER_COUNTING = 17
    DROPPED_NUMBER = 18
    NO_SUCH_TIME = 19
    NOT_A_CAPTION = 20
    NULL = 21
    UNKNOWN_CHARACTER = 22
    LOWER_CASE = 23
    FOUR_BYTE_U = 24
    EIGHT_DIGIT_WORD = 25
    WORD_LENGTH = 26
    HALF_BYTE = 27
    SUFFIX = 28
    LONG_PACKET = 29
    DATA_COUNT = 30
    NOT_A_CDP = 31
    CDP_LENGTH = 32
    SECTION_CUT = 33
    SECTION_UNKNOWN = 34
    PACKET_CHECKSUM = 35
    PACKET_CHECKSUM_MISSING = 36
    CDP_CHECKSUM = 37
    CDP_CHECKSUM_MISSING = 38
    COUNTERS = 39
    PARITY = 40
    SEQUENCE = 41
    GAP = 42
    BACK_IN_TIME = 43
    SAME_FRAME = 44
    OVERLAP = 45
    WAITS_TOO_LONG = 46
    STREAM_FAILED = 47
    NO_CAPTIONS = 48
    WORD_PARITY = 49
    CARRIER_COUNTS = 50
    CARRIER_FIELD = 51

    @classmethod
    def _missing_(cls, value: object) -> Optional[CaptionFault]:
        """Makes a member for a fault that a newer library has added at the end."""
        if not isinstance(value, int) or not cls.CARRIER_FIELD < value < 64:
            return None
        fault = int.__new__(cls, value)
        fault._name_, fault._value_ = f"FAULT_{value}", value
        return fault

    @property
    def label(self) -> str:
        """The name in words, for example "four-byte U"."""
        return (library.kivCS2CaptionFile_getFaultName(self) or b"unknown fault").decode()

    @property
    def status(self) -> int:
        """The status with which a strict read ends at this fault."""
        return int(library.kivCS2CaptionFile_getFaultStatus(self))


_SERVICES = {**{f"CC{n}": 0x100 + n for n in range(1, 5)}, **{f"T{n}": 0x110 + n for n in range(1, 5)},
             **{f"S{n}": n for n in range(1, 64)}}
_SERVICE_NAMES = {number: name for name, number in _SERVICES.items()}


def service_number(name: str) -> int:
    """Returns the number of a caption service: CC1 to CC4 and T1 to T4 of CEA-608, S1 to S63 of CEA-708."""
    if not isinstance(name, str):
        raise TypeError(f"a caption service must be str, not {type(name).__name__}")
    if name.upper() not in _SERVICES:
        raise ValueError(f"no caption service is called {name!r}; there are CC1 to CC4, T1 to T4 and S1 to S63")
    return _SERVICES[name.upper()]


def service_name(number: int) -> str:
    """Returns the name of a caption service: "CC1", "S1"."""
    return _SERVICE_NAMES.get(number, str(number))


@dataclass(frozen=True)
class ServiceEntry:
    """One entry of a CDP's service list (ccsvcinfo_section of SMPTE 334-2)."""

    service: str  #: S1 to S63; CC1 or CC3 for the captions of field 1 or 2
    language: str = ""  #: three letters of ISO 639-2; empty if there is none
    easy_reader: bool = False  #: for beginning readers
    wide: bool = False  #: for 16:9

    def _record(self) -> records.KIVCS2CaptionServiceEntry:
        if not isinstance(self.language, str):
            raise TypeError(f"language must be str, not {type(self.language).__name__}")
        if self.language and not (len(self.language) == 3 and all("!" <= letter <= "~" for letter in self.language)):
            raise ValueError(f"language must be three letters, not {self.language!r}")
        number = service_number(self.service)
        if number > 63 and self.service.upper() not in ("CC1", "CC3"):
            raise ValueError(f"a service list has S1 to S63, CC1 and CC3, not {self.service!r}")
        return records.KIVCS2CaptionServiceEntry(number, self.language.encode(),
                                                 as_bool(self.easy_reader, "easy_reader"), as_bool(self.wide, "wide"))


def service_records(services: "Optional[Sequence[ServiceEntry]]") -> "tuple[ctypes.Array[Any] | None, int]":
    """Returns the records of a service list and their number."""
    if services is None:
        return None, 0
    entries = list(services)
    if len(entries) > records.SERVICES_MAX:
        raise ValueError(f"a service list has at most {records.SERVICES_MAX} entries, not {len(entries)}")
    for entry in entries:
        if not isinstance(entry, ServiceEntry):
            raise TypeError(f"services must be ServiceEntry, not {type(entry).__name__}")
    # One record even for an empty list, because a null pointer means the list of service 1.
    array = (records.KIVCS2CaptionServiceEntry * max(1, len(entries)))(*[entry._record() for entry in entries])
    return array, len(entries)


# ---- Packets ----

class Pairs(NamedTuple):
    """CEA-608 pairs of one frame with their parity bits, each a bytes object of 2."""

    field1: "tuple[bytes, ...]" = ()
    field2: "tuple[bytes, ...]" = ()


class DTVCC(NamedTuple):
    """CEA-708 bytes of one frame. Bit n of `starts`: a DTVCC packet begins with the bytes 2n and 2n + 1."""

    bytes: bytes = b""
    starts: int = 0


def pairs_record(pairs: "Optional[tuple[Iterable[BytesLike], Iterable[BytesLike]]]") -> "Optional[ctypes.Structure]":
    """Returns the record of CEA-608 pairs, given as (pairs of field 1, pairs of field 2)."""
    if pairs is None:
        return None
    record = records.KIVCS2CaptionPairs()
    field1, field2 = pairs
    for number, field in enumerate((field1, field2)):
        given = [as_bytes(pair, "a pair") for pair in field]
        if len(given) > records.TRIPLETS_MAX or any(len(pair) != 2 for pair in given):
            raise ValueError(f"a field has at most {records.TRIPLETS_MAX} pairs of 2 bytes")
        record.m_count[number] = len(given)
        for place, pair in enumerate(given):
            record.m_pairs[number][place][:] = pair
    return record


def dtvcc_record(dtvcc: "Optional[tuple[BytesLike, int]]") -> "Optional[ctypes.Structure]":
    """Returns the record of CEA-708 bytes, given as DTVCC(bytes, starts)."""
    if dtvcc is None:
        return None
    data, starts = dtvcc
    data = as_bytes(data, "the CEA-708 bytes")
    if len(data) % 2 or len(data) > records.TRIPLETS_MAX * 2:
        raise ValueError(f"an even number of at most {records.TRIPLETS_MAX * 2} CEA-708 bytes, not {len(data)}")
    record = records.KIVCS2CaptionDTVCC(as_int(starts, 0, 2**31 - 1, "starts"), len(data))
    record.m_bytes[:len(data)] = data
    return record


class CaptionPacket:
    """One caption packet: a value that does not change. A pair of an SCC file is also a packet, without bytes.

    Packets come from a CaptionReader, from `parse`, `build` or `find_packets`. Equal packets have equal contents,
    frames and places.
    """

    __slots__ = ("_record",)
    _record: records.KIVCS2CaptionPacket

    def __init__(self) -> None:
        raise TypeError("packets are made by CaptionPacket.parse() and CaptionPacket.build()")

    @classmethod
    def _of(cls, record: records.KIVCS2CaptionPacket) -> CaptionPacket:
        packet = cls.__new__(cls)
        packet._record = record
        return packet

    @classmethod
    def parse(cls, data: BytesLike, frame: int = 0) -> CaptionPacket:
        """Reads an ancillary packet from its DID on, or only a CDP (96 69).

        A damaged packet is not refused: its undamaged parts are kept and `faults` lists the causes.
        Raises NoDataError for no bytes and NoRoomError for more than 259 bytes (a CDP: 255).
        """
        record, given = records.KIVCS2CaptionPacket(), as_bytes(data, "data")
        library.kivCS2CaptionPacket_parse(byref(record), given, min(len(given), 0xFFFFFFFF))  # more would wrap
        record.m_frame = as_frame(frame)
        return cls._of(record)

    @classmethod
    def build(cls, counting: "Union[Counting, str]", sequence: int = 0,
              pairs: "Optional[tuple[Iterable[BytesLike], Iterable[BytesLike]]]" = None,
              dtvcc: "Optional[tuple[BytesLike, int]]" = None, services: "Optional[Sequence[ServiceEntry]]" = None,
              frame: int = 0) -> CaptionPacket:
        """Makes the packet of one frame, without faults (SMPTE ST 334-2, CEA-708).

        `pairs` are (pairs of field 1, pairs of field 2) with their parity bits; `sequence` is 0 to 65535; without
        `services` the list is service 1 without a language. Raises NoRoomError if a frame cannot carry that much.
        """
        record = records.KIVCS2CaptionPacket()
        array, count = service_records(services)
        library.kivCS2CaptionPacket_build(byref(record), Counting.of(counting), as_int(sequence, 0, 0xFFFF, "sequence"),
                                          pairs_record(pairs), dtvcc_record(dtvcc), array, count)
        record.m_frame = as_frame(frame)
        return cls._of(record)

    def at(self, frame: int) -> CaptionPacket:
        """Returns the same packet on another frame."""
        record = records.KIVCS2CaptionPacket.from_buffer_copy(self._record)
        record.m_frame = as_frame(frame)
        return self._of(record)

    @property
    def frame(self) -> int:
        """Frames since midnight."""
        return int(self._record.m_frame)

    @property
    def line(self) -> int:
        """The line in the file, from 1; 0 if there is no file."""
        return int(self._record.m_line)

    @property
    def offset(self) -> int:
        """Bytes from the start of the file to the start of the line."""
        return int(self._record.m_offset)

    @property
    def faults(self) -> "tuple[CaptionFault, ...]":
        """The faults of the packet, in the order of their numbers."""
        bits = self._record.m_faults
        return tuple(CaptionFault(fault) for fault in range(64) if bits >> fault & 1) if bits else ()

    @property
    def field(self) -> Optional[int]:
        """The field suffix of an MCC 2 line, 0 or 1; None if there is none."""
        return self._record.m_field if self._record.m_flags & 0x1 else None

    @property
    def number(self) -> Optional[int]:
        """The number suffix of an MCC 2 line; None if there is none."""
        return self._record.m_number if self._record.m_flags & 0x2 else None

    @property
    def did(self) -> int:
        """The data identifier: 61h for captions."""
        return int(self._record.m_did)

    @property
    def sdid(self) -> int:
        """The secondary data identifier: 01h for a CDP."""
        return int(self._record.m_sdid)

    @property
    def sequence(self) -> Optional[int]:
        """The counter of the CDP's header, 0 to 65535; None without a CDP."""
        return self._record.m_sequence if self._record.m_flags & 0x4 else None

    @property
    def rate_code(self) -> Optional[int]:
        """cdp_frame_rate, 1 to 8; None without a CDP."""
        return self._record.m_rateCode if self._record.m_flags & 0x4 else None

    @property
    def time_code(self) -> Optional[bytes]:
        """The 4 bytes of the CDP's time code section, unchanged; None if it has none."""
        return bytes(self._record.m_timeCode) if self._record.m_flags & 0x8 else None

    @property
    def services(self) -> "Optional[tuple[ServiceEntry, ...]]":
        """The service list of the CDP; None if it has none."""
        if not self._record.m_flags & 0x10:
            return None
        return tuple(ServiceEntry(service_name(entry.m_service), entry.m_language.decode("latin-1"),
                                  bool(entry.m_easyReader), bool(entry.m_wide))
                     for entry in self._record.m_services[:self._record.m_serviceCount])

    @property
    def triplets(self) -> "tuple[bytes, ...]":
        """The triplets of cc_data: marker, cc_valid and cc_type in the first byte, then two bytes."""
        return tuple(bytes(triplet) for triplet in self._record.m_triplets[:self._record.m_tripletCount])

    @property
    def pairs(self) -> Pairs:
        """The valid CEA-608 pairs of both fields in the order of the triplets, including empty pairs (80 80)."""
        record = records.KIVCS2CaptionPairs()
        try:
            library.kivCS2CaptionPacket_getPairs(byref(self._record), byref(record))
        except NoDataError:
            return Pairs()
        return Pairs(*(tuple(bytes(pair) for pair in field[:count])
                       for field, count in zip(record.m_pairs, record.m_count)))

    @property
    def dtvcc(self) -> DTVCC:
        """The valid CEA-708 bytes in the order of the triplets."""
        record = records.KIVCS2CaptionDTVCC()
        try:
            library.kivCS2CaptionPacket_getDTVCC(byref(self._record), byref(record))
        except NoDataError:
            return DTVCC()
        return DTVCC(bytes(record.m_bytes[:record.m_count]), record.m_starts)

    def __bytes__(self) -> bytes:
        """The ancillary packet from its DID to its checksum; empty for a pair of an SCC file."""
        return bytes(self._record.m_anc[:self._record.m_size])

    def __eq__(self, other: object) -> bool:
        return isinstance(other, CaptionPacket) and bytes(self._record) == bytes(other._record)

    def __hash__(self) -> int:
        return hash(bytes(self._record))

    def __reduce__(self) -> "tuple[Any, ...]":
        return _unpickle, (bytes(self._record),)

    def __repr__(self) -> str:
        what = f"{self._record.m_size} bytes" if self._record.m_size else " ".join(
            pair.hex() for field in self.pairs for pair in field)
        faults = "".join(f", {fault.label}" for fault in self.faults)
        return f"<CaptionPacket frame {self.frame}: {what}{faults}>"


def _unpickle(data: bytes) -> CaptionPacket:
    return CaptionPacket._of(records.KIVCS2CaptionPacket.from_buffer_copy(data))


def describe_pair(pair: BytesLike) -> str:
    """Describes a CEA-608 pair in words: "resume caption loading", "characters Hé". An empty pair gives "".

    Parity bits are ignored.
    """
    given = as_bytes(pair, "pair")
    if len(given) != 2:
        raise ValueError(f"a pair has 2 bytes, not {len(given)}")
    if not (given[0] | given[1]) & 0x7F:
        return ""
    text = ctypes.create_string_buffer(records.DESCRIPTION_SIZE)
    library.kivCS2CaptionDecoder_describePair(given[0], given[1], text)
    return text.value.decode("utf-8", "replace")


# ---- Carriers ----

class Carrier(enum.IntEnum):
    """The layout of ancillary packets in bytes (SMPTE ST 291-1, ST 436-1, v210 lines, RFC 8331)."""

    WORDS_8BIT_ADF = 0  #: bytes after the data flag FF A0 09
    WORDS_8BIT = 1  #: bytes, beginning with the DID
    WORDS_10BIT_ADF = 2  #: 16-bit big-endian units after 000 3FF 3FF
    WORDS_10BIT = 3  #: 16-bit big-endian units, beginning with the DID
    WORDS_10BIT_LITTLE_ADF = 4  #: 16-bit little-endian units after 000 3FF 3FF
    WORDS_10BIT_LITTLE = 5  #: 16-bit little-endian units, beginning with the DID
    WRAPPED_436M = 6  #: frames of wrapped data (MXF)
    V210_LUMA = 7  #: a v210 line of HD: the packets among its luma samples
    V210_CHROMA = 8  #: a v210 line of HD: the packets among its colour differences
    V210_SD = 9  #: a v210 line of SD
    RTP = 10  #: one whole RTP packet of ancillary data


@dataclass(frozen=True)
class RTPHeader:
    """The header of an RTP packet of ancillary data (RFC 3550, RFC 8331)."""

    sequence: int = 0  #: all 32 bits
    timestamp: int = 0  #: usually of a 90 kHz clock
    source: int = 0  #: SSRC
    payload_type: int = 0  #: 0 to 127
    marker: bool = False  #: the last packet of its frame or field
    field: int = 0  #: 0 progressive or unknown, 1 or 2 the field; 3 if it was found invalid


@dataclass(frozen=True)
class Place:
    """The place of a packet in its carrier. Members that a carrier does not have are 0."""

    offset: int = 0  #: bytes from the start of the data
    line: int = 0  #: 436M, RTP: the line
    horizontal: int = 0  #: RTP: the horizontal offset; v210: the word in its channel
    channel: int = 0  #: 0 luma or not known, 1 colour differences, 2 both
    field: int = 0  #: 436M, RTP: 1 or 2; 0 for a whole frame or if not known
    stream: Optional[int] = None  #: RTP: StreamNum, 0 to 127, if there is one
    wrapping: int = 0  #: 436M: wrapping type
    coding: int = 0  #: 436M: sample coding
    rtp: RTPHeader = data_field(default_factory=RTPHeader)  #: found in RTP


_ANY_PACKET = 0x100


def _place(record: records.KIVCS2CaptionPlace) -> Place:
    rtp = record.m_rtp
    header = RTPHeader(rtp.m_sequence, rtp.m_timestamp, rtp.m_source, rtp.m_payloadType, bool(rtp.m_marker), rtp.m_field)
    return Place(record.m_offset, record.m_line, record.m_horizontal, record.m_channel, record.m_field,
                 record.m_stream if record.m_hasStream else None, record.m_wrapping, record.m_coding, header)


def find_packets(carrier: Carrier, data: BytesLike, any_packet: bool = False) -> "Iterator[tuple[CaptionPacket, Place]]":
    """Yields the caption packets of `data` with their places; with `any_packet` every ancillary packet.

    A damaged packet is yielded with its faults and does not harm its neighbours. A packet that the end of the data cuts
    is yielded too. Raises FormatError for an RTP packet of another version than 2.
    """
    form = int(as_member(Carrier, carrier, "carrier"))
    if as_bool(any_packet, "any_packet"):
        if carrier in (Carrier.WORDS_8BIT, Carrier.WORDS_10BIT, Carrier.WORDS_10BIT_LITTLE):
            raise ValueError(f"any_packet: only DID and SDID mark a packet in {Carrier(carrier).name}")
        form |= _ANY_PACKET
    given, offset = as_bytes(data, "data"), c_uint64(0)
    while offset.value < len(given):
        record, place = records.KIVCS2CaptionPacket(), records.KIVCS2CaptionPlace()
        try:
            library.kivCS2CaptionPacket_find(form, given, len(given), byref(offset), byref(record), byref(place))
        except NotFoundError:
            return
        except EndOfStreamError:
            offset.value += 1
        yield CaptionPacket._of(record), _place(place)


def wrap_packets(carrier: Carrier, packets: Iterable[CaptionPacket], places: "Optional[Sequence[Place]]" = None,
                 rtp: Optional[RTPHeader] = None, line: BytesLike = b"") -> bytes:
    """Returns packets in a carrier: 291M words, one 436M frame, one RTP packet, or a v210 line.

    RTP needs `rtp`. For v210, `line` is the whole line whose other samples are kept. Without `places` the packets follow each other.
    Parity bits and checksums are made again. Raises ParameterError if the carrier cannot express a place.
    """
    form, given = as_member(Carrier, carrier, "carrier"), list(packets)
    for packet in given:
        if not isinstance(packet, CaptionPacket):
            raise TypeError(f"packets must be CaptionPacket, not {type(packet).__name__}")
    array = (records.KIVCS2CaptionPacket * len(given))(*[packet._record for packet in given])
    where = None
    if places is not None:
        if len(places) != len(given):
            raise ValueError(f"{len(given)} packets and {len(places)} places")
        where = (records.KIVCS2CaptionPlace * len(given))(*[_place_record(place) for place in places])
    if form is Carrier.RTP and rtp is None:
        raise ValueError("an RTP packet needs rtp, an RTPHeader")
    header = None if rtp is None else _rtp_record(rtp)
    is_v210 = form in (Carrier.V210_LUMA, Carrier.V210_CHROMA, Carrier.V210_SD)
    content = bytearray(as_bytes(line, "line")) if is_v210 else bytearray(1024 + 1024 * len(given))
    room, size = (c_uint8 * len(content)).from_buffer(content), c_uint64(len(content))
    library.kivCS2CaptionPacket_wrap(form, array, len(given), where, header, room, byref(size))
    return bytes(content) if is_v210 else bytes(content[:size.value])


def _rtp_record(header: RTPHeader) -> records.KIVCS2CaptionRTP:
    if not isinstance(header, RTPHeader):
        raise TypeError(f"rtp must be RTPHeader, not {type(header).__name__}")
    return records.KIVCS2CaptionRTP(
        as_int(header.sequence, 0, 2**32 - 1, "sequence"), as_int(header.timestamp, 0, 2**32 - 1, "timestamp"),
        as_int(header.source, 0, 2**32 - 1, "source"), as_int(header.payload_type, 0, 127, "payload_type"),
        as_bool(header.marker, "marker"), as_int(header.field, 0, 3, "field"))


def _place_record(place: Place) -> records.KIVCS2CaptionPlace:
    if not isinstance(place, Place):
        raise TypeError(f"places must be Place, not {type(place).__name__}")
    record = records.KIVCS2CaptionPlace(as_int(place.offset, 0, 2**64 - 1, "offset"))
    record.m_line, record.m_horizontal = as_int(place.line, 0, 0xFFFF, "line"), as_int(place.horizontal, 0, 0xFFFF,
                                                                                       "horizontal")
    for name in ("channel", "field", "wrapping", "coding"):
        setattr(record, f"m_{name}", as_int(getattr(place, name), 0, 255, name))
    if place.stream is not None:
        record.m_hasStream, record.m_stream = 1, as_int(place.stream, 0, 127, "stream")
    return record
