"""From a folder of images to a picture: which vehicle was recorded on which day, and for how long.

    coverage_by_day.py FOLDER PICTURE.png

Takes NumPy and Matplotlib (python3-numpy, python3-matplotlib).
"""

import collections
import pathlib
import sys

import matplotlib

matplotlib.use("Agg")  # a file, no window
import matplotlib.pyplot as plt
import numpy as np

import diskaccess

DAY = np.timedelta64(1, "D")


# %% Each second counts once, however many channels have it.
def recorded_by_day(disk: diskaccess.Disk) -> dict[np.datetime64, float]:
    records = np.sort(disk.records().to_numpy(), order="start")
    hours: dict[np.datetime64, float] = collections.defaultdict(float)
    done = np.datetime64(0, "s")
    for start, end in zip(records["start"], records["end"] + np.timedelta64(1, "s")):
        start = max(start, done)
        while start < end:
            day = start.astype("M8[D]")
            until = min(end, (day + DAY).astype("M8[s]"))
            hours[day] += (until - start) / np.timedelta64(1, "h")
            start = until
        done = max(done, end)
    return hours


# %% All disks of a vehicle together.
def recorded_by_vehicle(folder: pathlib.Path) -> dict[str, dict[np.datetime64, float]]:
    vehicles: dict[str, dict[np.datetime64, float]] = {}
    for image in sorted(folder.iterdir()):
        try:
            with diskaccess.open(image) as disk:
                hours = vehicles.setdefault(disk.info.vehicle_number, collections.defaultdict(float))
                for day, more in recorded_by_day(disk).items():
                    hours[day] += more
        except diskaccess.OpenError as error:
            print(f"left out: {error}", file=sys.stderr)
    return vehicles


# %% A row a vehicle, a column a day.
def draw(vehicles: dict[str, dict[np.datetime64, float]], picture: str) -> None:
    recorded = sorted(day for hours in vehicles.values() for day in hours)
    if not recorded:
        sys.exit("nothing was recorded on these disks")
    days = np.arange(recorded[0], recorded[-1] + DAY)
    names = sorted(vehicles)
    table = [[vehicles[name].get(day, 0.0) for day in days] for name in names]
    figure, axes = plt.subplots(figsize=(2 + 0.4 * len(days), 1.5 + 0.4 * len(names)), layout="constrained")
    image = axes.imshow(table, aspect="auto", cmap="viridis", vmin=0)
    axes.set_yticks(range(len(names)), names, parse_math=False)
    axes.set_xticks(range(len(days)), [str(day) for day in days], rotation=90)
    figure.colorbar(image, label="hours recorded")
    figure.savefig(picture)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    draw(recorded_by_vehicle(pathlib.Path(sys.argv[1])), sys.argv[2])
