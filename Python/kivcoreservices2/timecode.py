"""SMPTE ST 12 timecode: a time of day counted in video frames, with a calendar date.

One frame rate holds for the whole process: call `set_frame_rate` first. A Timecode keeps its frames if the rate changes,
and then reads differently. Captions do not use this rate; each caption file has its own Counting.

Any thread may use a Timecode. The operations here keep the interpreter's lock, so another Python thread cannot set the
rate in the middle of one.
"""
from __future__ import annotations

import ctypes
import datetime
import enum
import functools
import re
from ctypes import byref, c_bool, c_double, c_int32, c_int64, c_uint32, c_uint64
from typing import Any, Optional, Union

from ._library import timecode_library as library
from .packet import as_int
from .status import FrameRateError, InvalidTimecodeError

_INVALID = 0xFFFFFFFF  # the frame count of an invalid record
_DATE = r"(\d{1,2})\.(\d{1,2})\.(\d{1,5}) "
_TEXT = re.compile(rf"(?:{_DATE})?(?:(\d{{1,3}}):(\d{{1,2}}):(\d{{1,2}})(?:[:;](\d{{1,2}}))?|(\d{{1,10}}))", re.ASCII)


class FrameRate(enum.IntEnum):
    """The frame rates of timecode. 29.97 and 59.94 have drop-frame numbering; 23.98 counts as 24."""

    FPS_23_98 = 0
    FPS_24 = 1
    FPS_25 = 2
    FPS_29_97 = 3
    FPS_30 = 4
    FPS_50 = 5
    FPS_59_94 = 6
    FPS_60 = 7


def _operation(name: str) -> Any:
    return getattr(library, f"kivCS2Timecode_{name}")


def _stored(name: str, kind: Any, *arguments: Any) -> Any:
    """Calls an operation that stores one value, and returns that value."""
    value = kind()
    _operation(name)(*arguments, byref(value))
    return value.value


def set_frame_rate(rate: "Union[FrameRate, str]") -> None:
    """Sets the frame rate of the process: a FrameRate, or its text ("25", "29.97")."""
    if isinstance(rate, str):
        name = "FPS_" + rate.replace(".", "_")
        if name not in FrameRate.__members__:
            raise ValueError(f"no frame rate is called {rate!r}")
        rate = FrameRate[name]
    if not isinstance(rate, FrameRate):
        raise TypeError(f"a frame rate must be FrameRate or str, not {type(rate).__name__}")
    _operation("setFrameRate")(rate)


def frames_per_second() -> int:
    """Returns the nominal rate: 24, 25, 30, 50 or 60; 0 while no rate is set."""
    return int(_stored("getFramesPerSecond", c_uint32))


def real_frames_per_second() -> float:
    """Returns the rate for calculations with seconds, 29.97 for 30000/1001; 0.0 while no rate is set."""
    return float(_stored("getRealFramesPerSecond", c_double))


def frames_per_day() -> int:
    """Returns the frames of 24 hours of timecode; 0 while no rate is set."""
    return int(_stored("getFramesPerDay", c_uint32))


def is_drop_frame() -> bool:
    """Returns True at 29.97 and 59.94."""
    return bool(_stored("getDropFrame", c_bool))


@functools.total_ordering
class Timecode:
    """A time of day in frames, and a date. It does not change; arithmetic makes new ones.

    `Timecode("01:00:00:00")`, `Timecode("1.5.2026 10:00:00:00")` and `Timecode(107892)` (frames since midnight) make
    one; ";" before the frames is accepted. Without a date it is also a duration, whose days arithmetic carries.

    - `t + 5`, `t - 5`: frames later and earlier, over midnight with the date. Without a date, the days past midnight
      are counted in `days`, and before midnight of day 0 comes the last frame of a day. `t + u` adds another timecode,
      which has no date.
    - `t - u`: the frames from u to t, an int; on two days the days count too.
    - `t * 3`: `t + t + t` of a timecode without a date.
    - A result with more than 2**32 - 2 frames, over 30 days or outside the years 1 to 65535 raises ValueError.
    - `==`, `<`, `hash`: date first, then frames. `t.same_time(u)` ignores the date.
    - `str(t)`: "01:00:00;02" in drop-frame, with the date in front if the year is above 0.
    """

    __slots__ = ("_value",)
    _value: int

    def __init__(self, time: "Union[str, int]" = 0) -> None:
        value = c_uint64()
        if isinstance(time, str):
            _operation("initWithString")(byref(value), _checked_text(time))
        else:
            value.value = as_int(time, 0, _INVALID - 1, "frames since midnight")
        self._value = value.value

    @classmethod
    def _of(cls, value: c_uint64) -> Timecode:
        timecode = cls.__new__(cls)
        timecode._value = value.value
        return timecode

    @classmethod
    def from_fields(cls, hours: int, minutes: int, seconds: int, frames: int = 0) -> Timecode:
        """Makes a timecode from four fields; hours are 0 to 255. Raises InvalidTimecodeError for a dropped number."""
        value = c_uint64()
        _operation("initWithTimecodeFields")(byref(value), *(
            as_int(field, 0, 255, name) for field, name in ((hours, "hours"), (minutes, "minutes"),
                                                             (seconds, "seconds"), (frames, "frames"))))
        return cls._of(value)

    @classmethod
    def from_seconds(cls, seconds: float) -> Timecode:
        """Makes a timecode of the frames that have begun after that many seconds at the real rate."""
        if isinstance(seconds, bool) or not isinstance(seconds, (int, float)):
            raise TypeError(f"seconds must be float, not {type(seconds).__name__}")
        _check_rate("initWithSeconds")
        rate, value = real_frames_per_second(), c_uint64()
        if not (0 <= seconds < _INVALID and seconds * rate < _INVALID):
            raise ValueError(f"{seconds} seconds are no time from midnight on")
        _operation("initWithSeconds")(byref(value), seconds)
        return cls._of(value)

    @classmethod
    def from_bcd(cls, bcd: int) -> Timecode:
        """Makes a timecode from hours, minutes, seconds and frames in one BCD byte each, hours in the top byte.

        Raises InvalidTimecodeError for digits that name no frame.
        """
        value = c_uint64()
        _operation("initWithBCD")(byref(value), as_int(bcd, 0, 0xFFFFFFFF, "bcd"))
        timecode = cls._of(value)
        if timecode.bcd != bcd:  # the operation then takes the hours alone
            raise InvalidTimecodeError("kivCS2Timecode_initWithBCD", detail=f"0x{bcd:08x}")
        return timecode

    @classmethod
    def from_value(cls, value: int) -> Timecode:
        """Makes a timecode from the 64 bits of a C record; see `value`."""
        return cls._of(c_uint64(as_int(value, 0, 2**64 - 1, "value")))

    @classmethod
    def now(cls) -> Timecode:
        """Makes a timecode of the current date and time in the process's time zone."""
        value = c_uint64()
        _operation("initWithNow")(byref(value))
        return cls._of(value)

    # ---- Fields ----

    @property
    def value(self) -> int:
        """The 64 bits of the C record: frames 32, day - 1 8, month - 1 8, year 16, from the lowest bit up."""
        return self._value

    @property
    def is_valid(self) -> bool:
        """False if the record is marked invalid, which only `from_value` can make. str() then reads 00:00:00:00."""
        return self.frame_count != _INVALID

    @property
    def frame_count(self) -> int:
        """Frames since midnight."""
        return self._value & 0xFFFFFFFF

    def __int__(self) -> int:
        return self.frame_count

    @property
    def hours(self) -> int:
        """The hours, 24 and more if the frames are beyond a day."""
        _check_rate("getHours")  # without a rate the operation succeeds and stores nothing
        return int(_stored("getHours", c_uint32, self._pointer()))

    @property
    def minutes(self) -> int:
        return int(_stored("getMinutes", c_uint32, self._pointer()))

    @property
    def seconds(self) -> int:
        return int(_stored("getSeconds", c_uint32, self._pointer()))

    @property
    def frames(self) -> int:
        """The frame number within the second."""
        return int(_stored("getFrames", c_uint32, self._pointer()))

    @property
    def seconds_since_midnight(self) -> float:
        """The frames since midnight divided by the real rate."""
        return float(_stored("getSecondsSinceMidnight", c_double, self._pointer()))

    @property
    def bcd(self) -> int:
        """Hours, minutes, seconds and frames as one BCD byte each, hours in the top byte; no flag bits."""
        return int(_stored("getBCDFromTimecode", c_uint32, self._pointer()))

    @property
    def is_duration(self) -> bool:
        """True if the date is empty."""
        return self._value >> 32 == 0

    @property
    def days(self) -> int:
        """Without a date: the whole days that arithmetic carried over midnight. With a date: 0."""
        return 0 if self._value >> 40 else self._value >> 32

    @property
    def date(self) -> Optional[datetime.date]:
        """The date; None for a duration, and for a date that the calendar does not have."""
        year, month, day = self._value >> 48, (self._value >> 40 & 0xFF) + 1, (self._value >> 32 & 0xFF) + 1
        try:
            return datetime.date(year, month, day)
        except ValueError:
            return None

    def with_date(self, date: Optional[datetime.date]) -> Timecode:
        """Returns the same time on another date; None makes it a duration."""
        if date is not None and not isinstance(date, datetime.date):
            raise TypeError(f"date must be datetime.date, not {type(date).__name__}")
        fields = 0 if date is None else (date.year << 16 | date.month - 1 << 8 | date.day - 1) << 32
        return self.from_value(fields | self.frame_count)

    # ---- Arithmetic ----

    def _pointer(self) -> Any:
        return byref(c_uint64(self._value))

    def _changed(self, operation: str, *arguments: Any) -> Timecode:
        """Returns the result of an operation that changes a record."""
        if not self.is_valid:
            raise InvalidTimecodeError(f"kivCS2Timecode_{operation}")
        _check_rate(operation)  # some of them succeed and change nothing
        value = c_uint64(self._value)
        _operation(operation)(byref(value), *arguments)
        return self._of(value)

    def _moved(self, unit: str, count: int) -> Timecode:
        most = _MOST.get(unit, 0xFFFFFFFF)
        number = as_int(count, -most, most, unit.lower())
        if not self.is_valid:
            raise InvalidTimecodeError(f"kivCS2Timecode_add{unit}")
        if unit in ("Months", "Years") and self._value >> 48 == 0:
            raise ValueError(f"without a date, a timecode has no {unit.lower()}")
        _check_frames(abs(number) * _frames_in(unit), 0 if number < 0 else self.frame_count)
        result = self._changed(("subtract" if number < 0 else "add") + unit, abs(number))
        if number < 0 and self._value >> 48 == 0 and result._value >> 32 > self._value >> 32:
            return self.from_value(result.frame_count)  # no date to borrow a day from: the time of the day before
        return self._in_calendar(result, number < 0)

    def _in_calendar(self, result: Timecode, is_back: bool = False) -> Timecode:
        """Returns the result of arithmetic; raises ValueError if its days do not fit into the record."""
        if self._value >> 40 == 0 and result._value >> 40:
            raise ValueError("over 30 days: without a date, a timecode counts no more")
        if self._value >> 48 and (result._value >> 48 == 0 or not is_back and result._value < self._value):
            raise ValueError("a date has the years 1 to 65535")
        return result

    def __add__(self, other: "Union[int, Timecode]") -> Timecode:
        if isinstance(other, Timecode):
            if not other.is_valid:
                raise InvalidTimecodeError("kivCS2Timecode_addTimecode")
            if other._value >> 40:
                raise ValueError("the timecode to add has a date")
            _check_frames(self.frame_count, other.frame_count)
            return self._in_calendar(self._changed("addTimecode", other._pointer()))
        if not _is_count(other):
            return NotImplemented
        return self._moved("Frames", other)

    def __radd__(self, other: int) -> Timecode:
        return self.__add__(other)

    def __sub__(self, other: Any) -> Any:
        if isinstance(other, Timecode):
            return _stored("differenceInFrames", c_int64, other._pointer(), self._pointer())
        return self._moved("Frames", -other) if _is_count(other) else NotImplemented

    def __mul__(self, factor: int) -> Timecode:
        if not _is_count(factor):
            return NotImplemented
        times = as_int(factor, 0, 0xFFFFFFFF, "factor")
        if self._value >> 40:
            raise ValueError("a timecode with a date cannot be multiplied")
        if not self.is_valid:
            raise InvalidTimecodeError("kivCS2Timecode_addFrames")
        total = (self.days * frames_per_day() + self.frame_count) * times
        _check_frames(total)
        return Timecode(0)._moved("Frames", total)  # the operation `multiply` would end at the last frame of a day

    def __rmul__(self, factor: int) -> Timecode:
        return self.__mul__(factor)

    def plus(self, *, years: int = 0, months: int = 0, days: int = 0, hours: int = 0, minutes: int = 0,
             seconds: int = 0, frames: int = 0) -> Timecode:
        """Returns the timecode moved by these units, in this order; negative numbers move back.

        Years and months need a date.
        Minutes and seconds are those of the nominal rate (at 29.97: 1800 and 30 frames), hours are those of timecode.
        """
        result = self
        for unit, count in (("Years", years), ("Months", months), ("Days", days), ("Hours", hours),
                            ("Minutes", minutes), ("Seconds", seconds), ("Frames", frames)):
            if as_int(count, -0xFFFFFFFF, 0xFFFFFFFF, unit.lower()):
                result = result._moved(unit, count)
        return result

    def snapped(self, *, minutes: int = 0, hours: int = 0) -> Timecode:
        """Returns the timecode rounded down to a multiple of 1 to 60 nominal minutes, or of hours of timecode."""
        if bool(minutes) == bool(hours):
            raise ValueError("give either minutes or hours, 1 or more")
        if hours:
            return self._changed("snapToHour", as_int(hours, 1, 0xFFFFFFFF, "hours"))
        return self._changed("snapToMinute", as_int(minutes, 1, 60, "minutes"))

    # ---- Comparison and text ----

    def same_time(self, other: Timecode) -> bool:
        """Returns True if the frames since midnight are equal, whatever the dates are."""
        if not isinstance(other, Timecode):
            raise TypeError(f"other must be Timecode, not {type(other).__name__}")
        return bool(_stored("compare", c_int32, self._pointer(), other._pointer()) == 0)

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Timecode) and self._value == other._value

    def __lt__(self, other: Timecode) -> bool:
        if not isinstance(other, Timecode):
            return NotImplemented
        for timecode in (self, other):
            if not timecode.is_valid:
                raise InvalidTimecodeError("kivCS2Timecode_compare")
        return self._value < other._value  # year, month, day and frames from the highest bit down

    def __hash__(self) -> int:
        return hash(self._value)

    def __reduce__(self) -> "tuple[Any, ...]":
        return Timecode.from_value, (self._value,)

    def __str__(self) -> str:
        text = ctypes.create_string_buffer(32)
        _operation("timecodeToString")(self._pointer(), text, len(text))
        return text.value.decode()

    def __repr__(self) -> str:
        is_text = self._value >> 48 != 0 or self.is_duration  # the text has the whole date, or there is none
        if self.is_valid and is_text and frames_per_day():
            return f"Timecode({str(self)!r})"
        return f"Timecode.from_value(0x{self._value:016x})"


def _check_rate(operation: str) -> None:
    if not frames_per_day():
        raise FrameRateError(f"kivCS2Timecode_{operation}", detail="call set_frame_rate() first")


#: The most of a unit that arithmetic takes; more could pass the year 65535 twice.
_MOST = {"Years": 65535, "Months": 65535 * 12, "Days": 65535 * 366}


def _frames_in(unit: str) -> int:
    """Returns the frames of a unit; 0 for units of the calendar."""
    return {"Frames": 1, "Seconds": frames_per_second(), "Minutes": 60 * frames_per_second(),
            "Hours": frames_per_day() // 24}.get(unit, 0)


def _check_frames(count: int, more: int = 0) -> None:
    """Refuses a sum that the operations would take modulo 2**32."""
    if count + more >= _INVALID:
        raise ValueError(f"{count + more} frames: more than a timecode holds")


def _is_count(value: object) -> bool:
    return isinstance(value, int) and not isinstance(value, bool)


def _checked_text(text: str) -> bytes:
    """Returns a timecode's text as the library takes it; raises ValueError for another form or a date out of range."""
    match = _TEXT.fullmatch(text)
    if not match:
        raise ValueError(f"{text!r} is not [day.month.year ]hours:minutes:seconds:frames")
    day, month, year, hours = (int(group) if group else 1 for group in match.group(1, 2, 3, 4))
    if not (1 <= day <= 31 and 1 <= month <= 12 and 1 <= year <= 0xFFFF and hours <= 255):
        raise ValueError(f"{text!r}: day 1 to 31, month 1 to 12, year 1 to 65535, hours 0 to 255")
    if match.group(8) and int(match.group(8)) >= 2**31:
        raise ValueError(f"{text!r}: at most {2**31 - 1} frames")
    return text.replace(";", ":").encode("ascii")
