"""Finds and loads the library, and checks that it is the one that this package was built for."""
from __future__ import annotations

import ctypes
import os
from ctypes import POINTER, byref, c_bool, c_char_p, c_double, c_int32, c_int64, c_uint8, c_uint16, c_uint32, c_uint64
from ctypes import c_void_p
from typing import Any

from . import _layout
from . import _records as records
from .status import error_class

_u32, _u64 = POINTER(c_uint32), POINTER(c_uint64)
_timecode = _u64
_packet, _file = POINTER(records.KIVCS2CaptionPacket), POINTER(records.KIVCS2CaptionFile)
_decoder, _info = POINTER(records.KIVCS2CaptionDecoder), POINTER(records.KIVCS2CaptionCountingInfo)
_pairs, _dtvcc = POINTER(records.KIVCS2CaptionPairs), POINTER(records.KIVCS2CaptionDTVCC)
_entry, _fault = POINTER(records.KIVCS2CaptionServiceEntry), POINTER(records.KIVCS2CaptionFileFault)
_header = POINTER(records.KIVCS2CaptionFileHeader)

# The arguments of each operation that returns a status; a failing status is raised as an exception.
_OPERATIONS: "dict[str, list[Any]]" = {
    "kivCS2_initWithTaskServer": [c_bool],
    "kivCS2FileStream_init": [c_void_p, c_char_p, c_char_p],
    "kivCS2FileStream_free": [c_void_p],
    "kivCS2MemoryStream_init": [c_void_p, c_uint64, c_uint64],
    "kivCS2MemoryStream_initWithBytes": [c_void_p, c_void_p, c_uint64],
    "kivCS2MemoryStream_getBytes": [c_void_p, POINTER(c_void_p), _u64],
    "kivCS2MemoryStream_free": [c_void_p],
    "kivCS2CaptionCounting_getInfo": [c_uint32, _info],
    "kivCS2CaptionCounting_frameFromText": [c_uint32, c_char_p, _u32, POINTER(c_bool)],
    "kivCS2CaptionCounting_textFromFrame": [c_uint32, c_uint32, c_char_p],
    "kivCS2CaptionCounting_nanosecondsOfFrame": [c_uint32, c_uint32, _u64],
    "kivCS2CaptionPacket_parse": [_packet, c_char_p, c_uint32],
    "kivCS2CaptionPacket_build": [_packet, c_uint32, c_uint16, _pairs, _dtvcc, _entry, c_uint32],
    "kivCS2CaptionPacket_getPairs": [_packet, _pairs],
    "kivCS2CaptionPacket_getDTVCC": [_packet, _dtvcc],
    "kivCS2CaptionPacket_find": [c_uint32, c_char_p, c_uint64, _u64, _packet, POINTER(records.KIVCS2CaptionPlace)],
    "kivCS2CaptionPacket_wrap": [c_uint32, _packet, c_uint32, POINTER(records.KIVCS2CaptionPlace),
                                 POINTER(records.KIVCS2CaptionRTP), POINTER(c_uint8), _u64],
    "kivCS2CaptionFile_initReading": [_file, c_void_p, c_bool, POINTER(records.KIVCS2CaptionReadOptions)],
    "kivCS2CaptionFile_readHeader": [_file, _header],
    "kivCS2CaptionFile_readPacket": [_file, _packet],
    "kivCS2CaptionFile_seek": [_file, c_uint32],
    "kivCS2CaptionFile_getReport": [_file, POINTER(records.KIVCS2CaptionFileReport)],
    "kivCS2CaptionFile_getFaultCount": [_file, c_uint32, _u64, _fault],
    "kivCS2CaptionFile_initWriting": [_file, c_void_p, c_bool, c_uint32, c_uint32,
                                      POINTER(records.KIVCS2CaptionWriteOptions)],
    "kivCS2CaptionFile_writeHeader": [_file, _header],
    "kivCS2CaptionFile_writePacket": [_file, _packet],
    "kivCS2CaptionFile_writeCaptions": [_file, c_uint32, _pairs, _dtvcc],
    "kivCS2CaptionFile_writeText": [_file, POINTER(records.KIVCS2CaptionText)],
    "kivCS2CaptionFile_finish": [_file],
    "kivCS2CaptionFile_free": [_file],
    "kivCS2CaptionDecoder_init": [_decoder, POINTER(records.KIVCS2CaptionServices),
                                  POINTER(records.KIVCS2CaptionDecoderOptions), records.TextFunc, c_void_p],
    "kivCS2CaptionDecoder_feed": [_decoder, _packet],
    "kivCS2CaptionDecoder_finish": [_decoder, c_uint32],
    "kivCS2CaptionDecoder_getReport": [_decoder, POINTER(records.KIVCS2CaptionDecoderReport)],
    "kivCS2CaptionDecoder_free": [_decoder],
    "kivCS2CaptionDecoder_describePair": [c_uint8, c_uint8, c_char_p],
}

# Timecode operations read the rate of the process. They keep the interpreter's lock, so that no other Python thread
# sets the rate meanwhile.
_TIMECODE: "dict[str, list[Any]]" = {
    "setFrameRate": [c_uint32],
    "getFramesPerSecond": [_u32],
    "getRealFramesPerSecond": [POINTER(c_double)],
    "getFramesPerDay": [_u32],
    "getDropFrame": [POINTER(c_bool)],
    "initWithTimecodeFields": [_timecode, c_uint8, c_uint8, c_uint8, c_uint8],
    "initWithString": [_timecode, c_char_p],
    "initWithSeconds": [_timecode, c_double],
    "initWithBCD": [_timecode, c_uint32],
    "initWithNow": [_timecode],
    "getHours": [_timecode, _u32],
    "getMinutes": [_timecode, _u32],
    "getSeconds": [_timecode, _u32],
    "getFrames": [_timecode, _u32],
    "getSecondsSinceMidnight": [_timecode, POINTER(c_double)],
    "checkValidTimecode": [_timecode],
    "getBCDFromTimecode": [_timecode, _u32],
    "timecodeToString": [_timecode, c_char_p, c_uint32],
    "addTimecode": [_timecode, _timecode],
    "differenceInFrames": [_timecode, _timecode, POINTER(c_int64)],
    "compare": [_timecode, _timecode, POINTER(c_int32)],
    "snapToMinute": [_timecode, c_uint32],
    "snapToHour": [_timecode, c_uint32],
    **{f"{verb}{unit}": [_timecode, c_uint32] for verb in ("add", "subtract")
       for unit in ("Frames", "Seconds", "Minutes", "Hours", "Days", "Months", "Years")},
}


def _raise_status(status: int, operation: Any, arguments: Any) -> int:
    if status >> 31:
        raise error_class(status)(operation.__name__)
    return status


def _find() -> str:
    named = os.environ.get("KIVCS2")
    if named:
        return named
    beside = os.path.join(os.path.dirname(os.path.abspath(__file__)), _layout.LIBRARY)
    return os.path.normpath(beside) if os.path.exists(beside) else str(_layout.SONAME)


def _load() -> "tuple[ctypes.CDLL, ctypes.PyDLL]":
    path = _find()
    try:
        return ctypes.CDLL(path, use_errno=True), ctypes.PyDLL(path)
    except OSError as error:
        raise ImportError(f"kivcoreservices2: {error}. The environment variable KIVCS2 can name the library's file"
                          ) from None


def _declare(library: Any, operations: "dict[str, list[Any]]", prefix: str = "") -> None:
    for name, arguments in operations.items():
        try:
            operation = getattr(library, prefix + name)
        except AttributeError:
            raise ImportError(f"kivcoreservices2: {library._name} has no {prefix}{name}: it is another version, "
                              f"not {_layout.VERSION}") from None
        operation.argtypes, operation.restype, operation.errcheck = arguments, c_uint32, _raise_status


_MARK = 0xA5  # a value that the library writes nowhere at the end of a record


def _written(operation: Any, arguments: "tuple[Any, ...]") -> int:
    """Returns how many bytes an operation writes at the argument given as None: it gets room for any record."""
    room = (c_uint8 * 4096)(*[_MARK] * 4096)
    operation(*(byref(room) if argument is None else argument for argument in arguments))
    return len(bytes(room).rstrip(bytes([_MARK])))


def _check_loaded(path: str) -> None:
    """Compares what the loaded library writes with the records: another version may have other sizes."""
    raw = ctypes.CDLL(path)  # operations of its own, whose failing statuses are not raised
    empty = records.KIVCS2CaptionPacket()
    for name, record, arguments in (
            ("kivCS2CaptionCounting_getInfo", records.KIVCS2CaptionCountingInfo, (1, None)),
            ("kivCS2CaptionPacket_parse", records.KIVCS2CaptionPacket, (None, b"", 0)),
            ("kivCS2CaptionPacket_getPairs", records.KIVCS2CaptionPairs, (byref(empty), None)),
            ("kivCS2CaptionPacket_getDTVCC", records.KIVCS2CaptionDTVCC, (byref(empty), None))):
        found = _written(getattr(raw, name), arguments)
        if found != ctypes.sizeof(record):
            raise ImportError(f"kivcoreservices2: {record.__name__} has {ctypes.sizeof(record)} bytes here and {found} "
                              f"in {path}: it is another version, not {_layout.VERSION}")


records.check_layout(_layout.RECORDS)
library, timecode_library = _load()
_declare(library, _OPERATIONS)
_declare(timecode_library, _TIMECODE, "kivCS2Timecode_")
for _name in ("kivCS2CaptionCounting_name", "kivCS2CaptionFile_getFaultName"):
    getattr(library, _name).argtypes, getattr(library, _name).restype = [c_uint32], c_char_p
library.kivCS2CaptionFile_getFaultStatus.argtypes = [c_uint32]
library.kivCS2CaptionFile_getFaultStatus.restype = c_uint32
_check_loaded(library._name)
library.kivCS2_initWithTaskServer(False)  # without the task server: it would reap the children of Python's subprocess
