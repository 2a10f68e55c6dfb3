"""Timecode and captions for broadcast video, over the library KIVCoreServices2.

    from kivcoreservices2 import read_captions

    for caption in read_captions("programme.scc"):
        print(caption.start_timecode, caption.end_timecode, caption.text)

Files: CaptionReader, CaptionWriter, read_captions, convert_captions. Packets: CaptionPacket, find_packets,
wrap_packets. Text: CaptionDecoder, Caption. Timecode: set_frame_rate, Timecode; captions have a Counting of their own.

A failing status is an exception: StatusError, and a class for each status. A wrong type raises TypeError and a value
out of range ValueError, before the library is called.

Caption operations release the interpreter's lock, so threads that read different files run at the same time. An object
belongs to one thread at a time; a second thread waits.

The environment variable KIVCS2 names the library's file; without it the library is the one installed with the package,
or else the one that the system finds. A library or package with other records is refused at import (ImportError).
"""
from ._layout import VERSION as __version__
from .decoder import Caption, CaptionCell, CaptionDecoder, CaptionMode, CaptionStyle, DecoderReport
from .files import (CaptionHeader, CaptionKind, CaptionOrder, CaptionReader, CaptionReason, CaptionReport,
                    CaptionWriter, FileFault, convert_captions, read_captions)
from .packet import (DTVCC, CaptionFault, CaptionPacket, Carrier, Counting, Pairs, Place, RTPHeader, ServiceEntry,
                     describe_pair, find_packets, wrap_packets)
from .status import *  # noqa: F401,F403
from .status import __all__ as _statuses
from .timecode import (FrameRate, Timecode, frames_per_day, frames_per_second, is_drop_frame, real_frames_per_second,
                       set_frame_rate)

__all__ = [
    "Caption", "CaptionCell", "CaptionDecoder", "CaptionFault", "CaptionHeader", "CaptionKind", "CaptionMode",
    "CaptionOrder", "CaptionPacket", "CaptionReader", "CaptionReason", "CaptionReport", "CaptionStyle",
    "CaptionWriter", "Carrier", "Counting", "DTVCC", "DecoderReport", "FileFault", "FrameRate", "Pairs", "Place",
    "RTPHeader", "ServiceEntry", "Timecode", "convert_captions", "describe_pair", "find_packets", "frames_per_day",
    "frames_per_second", "is_drop_frame", "read_captions", "real_frames_per_second", "set_frame_rate", "wrap_packets",
]
__all__ += _statuses
