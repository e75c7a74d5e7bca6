"""Reads the disk of a vehicle's video recorder.

    import diskaccess

    with diskaccess.open("disk.img") as disk:
        print(disk.info.vehicle_number)
        for frame in disk.frames(channels=[0]):
            print(frame.time, frame.kind, len(frame))

A disk is only ever read. Frames come past whatever is damaged, and what is lost is named: see Disk.problems() and
Frames.problems. Times are datetimes with a zone; in arrays they are numpy.datetime64, in UTC.
"""

from ._coverage import Alarm, ChannelCoverage, Coverage, Damage, JourneyCoverage, Span
from ._disk import Disk, Frames, open
from ._export import Export, LeftOut, Output, Track
from ._native import BusyError, ClosedError, Error, ExportError, Frame, OpenError, PasswordError, StillError
from ._rows import Events, Journeys, Records
from ._stills import Still
from ._values import Channel, Event, Gap, Info, Journey, Problem, Record

__all__ = [
    "Alarm", "BusyError", "Channel", "ChannelCoverage", "ClosedError", "Coverage", "Damage", "Disk", "Error", "Event",
    "Events", "Export", "ExportError", "Frame", "Frames", "Gap", "Info", "Journey", "JourneyCoverage", "Journeys",
    "LeftOut", "OpenError", "Output", "PasswordError", "Problem", "Record", "Records", "Span", "Still", "StillError",
    "Track", "open",
]
