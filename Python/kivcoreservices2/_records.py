"""The records of the C interface, member by member, and the check that they have its layout.

This file loads no library: the build reads it too, to write `_layout.py`.
"""
from __future__ import annotations

import ctypes
from ctypes import CFUNCTYPE, POINTER, c_bool, c_char, c_int32, c_uint8, c_uint16, c_uint32, c_uint64, c_void_p
from typing import Any

ANC_SIZE = 259  #: bytes of the longest packet: DID, SDID, count, 255 bytes of user data, checksum
TRIPLETS_MAX = 31  #: triplets of a packet: cc_count has 5 bits
SERVICES_MAX = 15  #: entries of a service list: svc_count has 4 bits
HEADER_SIZE = 256  #: room for a text of a file's header, including the terminator
FOUND_SIZE = 64  #: room for the text found at a fault, including the terminator
TIMECODE_SIZE = 12  #: room for a caption's timecode, including the terminator
DESCRIPTION_SIZE = 96  #: room for the description of a pair, including the terminator


class KIVCS2Stream(ctypes.Structure):
    _fields_ = [
        *((name, c_void_p) for name in (
            "m_writeBytes", "m_readBytes", "m_getSize", "m_setPosition", "m_isEndOfStream", "m_getBytes",
            "m_freeBytes", "m_close", "m_free")),
        ("m_bitMask", c_uint8), ("m_bitByte", c_uint8), ("m_bitReading", c_uint8),
    ]


class KIVCS2FileStream(ctypes.Structure):
    _fields_ = [("m_stream", KIVCS2Stream), ("m_file", c_void_p)]


class KIVCS2MemoryStream(ctypes.Structure):
    _fields_ = [
        ("m_stream", KIVCS2Stream), ("m_buffer", c_void_p), ("m_capacity", c_uint64), ("m_growSize", c_uint64),
        ("m_position", ctypes.c_int64), ("m_size", c_uint64), ("m_ownsBuffer", c_bool),
    ]


class KIVCS2CaptionCountingInfo(ctypes.Structure):
    _fields_ = [
        ("m_name", ctypes.c_char_p), ("m_mccRate", ctypes.c_char_p), ("m_numerator", c_uint32),
        ("m_denominator", c_uint32), ("m_numbers", c_uint32), ("m_perDay", c_uint32), ("m_triplets", c_uint32),
        ("m_rateCode", c_uint8), ("m_drop", c_uint8), ("m_reserved", c_uint8 * 6),
    ]


class KIVCS2CaptionServiceEntry(ctypes.Structure):
    _fields_ = [
        ("m_service", c_uint32), ("m_language", c_char * 4), ("m_easyReader", c_uint8), ("m_wide", c_uint8),
        ("m_reserved", c_uint8 * 2),
    ]


class KIVCS2CaptionPacket(ctypes.Structure):
    _fields_ = [
        ("m_line", c_uint64), ("m_offset", c_uint64), ("m_faults", c_uint64), ("m_frame", c_uint32),
        ("m_flags", c_uint32), ("m_field", c_uint32), ("m_number", c_uint32), ("m_size", c_uint16),
        ("m_sequence", c_uint16), ("m_did", c_uint8), ("m_sdid", c_uint8), ("m_rateCode", c_uint8),
        ("m_tripletCount", c_uint8), ("m_serviceCount", c_uint8), ("m_timeCode", c_uint8 * 4),
        ("m_triplets", c_uint8 * 3 * TRIPLETS_MAX), ("m_anc", c_uint8 * ANC_SIZE),
        ("m_services", KIVCS2CaptionServiceEntry * SERVICES_MAX), ("m_reserved", c_uint8 * 31),
    ]


class KIVCS2CaptionPairs(ctypes.Structure):
    _fields_ = [
        ("m_count", c_uint8 * 2), ("m_pairs", c_uint8 * 2 * TRIPLETS_MAX * 2), ("m_reserved", c_uint8 * 6),
    ]


class KIVCS2CaptionDTVCC(ctypes.Structure):
    _fields_ = [
        ("m_starts", c_uint32), ("m_count", c_uint32), ("m_bytes", c_uint8 * (TRIPLETS_MAX * 2)),
        ("m_reserved", c_uint8 * 2),
    ]


class KIVCS2CaptionRTP(ctypes.Structure):
    _fields_ = [
        ("m_sequence", c_uint32), ("m_timestamp", c_uint32), ("m_source", c_uint32), ("m_payloadType", c_uint8),
        ("m_marker", c_uint8), ("m_field", c_uint8), ("m_count", c_uint8), ("m_reserved", c_uint8 * 8),
    ]


class KIVCS2CaptionPlace(ctypes.Structure):
    _fields_ = [
        ("m_offset", c_uint64), ("m_rtp", KIVCS2CaptionRTP), ("m_line", c_uint16), ("m_horizontal", c_uint16),
        ("m_channel", c_uint8), ("m_field", c_uint8), ("m_hasStream", c_uint8), ("m_stream", c_uint8),
        ("m_wrapping", c_uint8), ("m_coding", c_uint8), ("m_reserved", c_uint8 * 6),
    ]


class KIVCS2CaptionFile(ctypes.Structure):
    _fields_ = [("m_state", c_void_p)]


class KIVCS2CaptionFileFault(ctypes.Structure):
    _fields_ = [
        ("m_fault", c_uint32), ("m_status", c_uint32), ("m_line", c_uint64), ("m_offset", c_uint64),
        ("m_column", c_uint32), ("m_frame", c_uint32), ("m_hasFrame", c_bool), ("m_lost", c_bool),
        ("m_foundSize", c_uint16), ("m_expected", ctypes.c_char_p), ("m_found", c_uint8 * FOUND_SIZE),
        ("m_reserved", c_uint8 * 20),
    ]


# Callbacks get a context too, which is not declared: nothing uses it, and the `send` of a generator takes one argument.
FaultFunc = CFUNCTYPE(c_uint32, POINTER(KIVCS2CaptionFileFault))


class KIVCS2CaptionReadOptions(ctypes.Structure):
    _fields_ = [
        ("m_kind", c_uint32), ("m_counting", c_uint32), ("m_field", c_uint32), ("m_order", c_uint32),
        ("m_strict", c_bool), ("m_bothTracks", c_bool), ("m_reserved1", c_uint8 * 6), ("m_onFault", FaultFunc),
        ("m_context", c_void_p), ("m_reserved", c_uint8 * 8),
    ]


class KIVCS2CaptionFileHeader(ctypes.Structure):
    _fields_ = [
        ("m_kind", c_uint32), ("m_counting", c_uint32), ("m_reason", c_uint32), ("m_field", c_uint32),
        ("m_firstLine", c_uint64), ("m_otherLines", c_uint32), ("m_rate", c_char * 32),
        ("m_uuid", c_char * HEADER_SIZE), ("m_program", c_char * HEADER_SIZE), ("m_date", c_char * HEADER_SIZE),
        ("m_time", c_char * HEADER_SIZE), ("m_others", c_char * (HEADER_SIZE * 4)), ("m_reserved", c_uint8 * 36),
    ]


class KIVCS2CaptionFileReport(ctypes.Structure):
    _fields_ = [
        ("m_lines", c_uint64), ("m_packets", c_uint64), ("m_cdps", c_uint64), ("m_lostLines", c_uint64),
        ("m_lostPairs", c_uint64), ("m_faults", c_uint64), ("m_gapFrames", c_uint64), ("m_firstFrame", c_uint32),
        ("m_lastFrame", c_uint32), ("m_reserved", c_uint8 * 32),
    ]


class KIVCS2CaptionWriteOptions(ctypes.Structure):
    _fields_ = [
        ("m_plainHex", c_bool), ("m_everyFrame", c_bool), ("m_reserved1", c_uint8 * 2), ("m_field", c_uint32),
        ("m_timeZero", c_uint32), ("m_serviceCount", c_uint32), ("m_services", POINTER(KIVCS2CaptionServiceEntry)),
        ("m_reserved", c_uint8 * 32),
    ]


class KIVCS2CaptionServices(ctypes.Structure):
    _fields_ = [("m_dtvcc", c_uint64), ("m_line21", c_uint32), ("m_reserved", c_uint32)]


class KIVCS2CaptionCell(ctypes.Structure):
    _fields_ = [
        ("m_row", c_uint8), ("m_column", c_uint8), ("m_style", c_uint8), ("m_text", c_char * 5),
        ("m_colour", c_uint32), ("m_background", c_uint32), ("m_reserved", c_uint8 * 4),
    ]


class KIVCS2CaptionText(ctypes.Structure):
    _fields_ = [
        ("m_from", c_uint32), ("m_until", c_uint32), ("m_service", c_uint32), ("m_mode", c_uint32),
        *((name, c_uint8) for name in (
            "m_window", "m_anchorPoint", "m_anchorRow", "m_anchorColumn", "m_anchorRelative", "m_justify", "m_rows",
            "m_columns")),
        ("m_cellCount", c_uint32), ("m_textSize", c_uint32), ("m_cells", c_void_p), ("m_text", c_void_p),
        ("m_reserved", c_uint8 * 24),
    ]


TextFunc = CFUNCTYPE(c_uint32, POINTER(KIVCS2CaptionText))


class KIVCS2CaptionDecoderOptions(ctypes.Structure):
    _fields_ = [("m_counting", c_uint32), ("m_screens", c_bool), ("m_reserved", c_uint8 * 27)]


class KIVCS2CaptionDecoderReport(ctypes.Structure):
    _fields_ = [
        ("m_met", KIVCS2CaptionServices), ("m_texts", c_uint64), ("m_pairs", c_uint64 * 2),
        ("m_dtvccPackets", c_uint64), ("m_dtvccCut", c_uint64), ("m_dtvccBreaks", c_uint64),
        ("m_windows", c_uint64), ("m_reserved", c_uint8 * 24),
    ]


class KIVCS2CaptionDecoder(ctypes.Structure):
    _fields_ = [("m_state", c_void_p)]


#: Every record that the package shares with the library.
ALL = [value for value in list(globals().values())
       if isinstance(value, type) and issubclass(value, ctypes.Structure) and value is not ctypes.Structure]


def layout(record: type) -> "tuple[Any, ...]":
    """Returns the size of a record and, for each member, its name, offset and size, all in bytes."""
    members = []
    for name, *_ in record._fields_:  # type: ignore[attr-defined]
        member = getattr(record, name)
        members.append((name, member.offset, member.size))
    return ctypes.sizeof(record), tuple(members)


def check_layout(expected: "dict[str, Any]") -> None:
    """Compares every record with `expected`, which the compiler of the C headers wrote.

    Raises ImportError for the first difference: a call with such a record would overwrite memory.
    """
    for record in ALL:
        wanted, found = expected.get(record.__name__), layout(record)
        if wanted == found:
            continue
        if wanted is None:
            raise ImportError(f"kivcoreservices2: the headers have no {record.__name__}")
        if wanted[0] != found[0]:
            raise ImportError(f"kivcoreservices2: {record.__name__} has {found[0]} bytes here and {wanted[0]} in the "
                              "C headers")
        here = next(pair for pair in zip(found[1], wanted[1]) if pair[0] != pair[1])
        raise ImportError(f"kivcoreservices2: {record.__name__}: {here[0]} here and {here[1]} in the C headers "
                          "(member, offset, size)")
