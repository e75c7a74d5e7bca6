"""Decodes one picture of a disk, and saves it.

    decode_frames.py DISK TIME CHANNEL PICTURE.png      TIME: 2026-11-20T16:21:00+00:00

Takes PyAV (python3-av) and its Pillow (python3-pil).
"""

import datetime
import sys

import av
import diskaccess


def decode(source: str, time: str, channel: int, output: str) -> None:
    moment = datetime.datetime.fromisoformat(time)
    decoder = av.CodecContext.create("h264", "r")
    picture = None
    with diskaccess.open(source) as disk:
        # The frames begin with the key frame at or before the moment: what it takes to decode it.
        for frame in disk.frames(moment, moment, channels=[channel]):
            if frame.kind == "audio" or frame.time > moment and picture is not None:
                continue
            for decoded in decoder.decode(av.Packet(frame)):  # no copy: the packet is the frame's own memory
                picture = decoded
    for decoded in decoder.decode(None):
        picture = decoded
    if picture is None:
        sys.exit(f"{source}: no video of channel {channel} at {time}")
    picture.to_image().save(output)


if __name__ == "__main__":
    if len(sys.argv) != 5:
        sys.exit(__doc__)
    decode(sys.argv[1], sys.argv[2], int(sys.argv[3]), sys.argv[4])
