// Times: microseconds on the recorder's clock, shown as true time in the zone that the program was started with.

export const kSecond = 1000000;

export class Clock {
  // skew: seconds that the recorder's clock was ahead. offsets: [[true second, seconds east of UTC from then on], ...]
  constructor(skew, offsets, zone) {
    this.skew = skew;
    this.offsets = offsets;
    this.zone = zone;
  }

  offsetAt(second) {
    let offset = this.offsets[0][1];
    for (const [from, east] of this.offsets) {
      if (from <= second) {
        offset = east;
      }
    }
    return offset;
  }

  // "2026-11-20 14:30:00.040"
  text(micros) {
    return this.#civil(micros).replace("T", " ");
  }

  // "2026-11-20T14:30:00.040", for addresses and file names
  #civil(micros) {
    const truly = micros - this.skew * kSecond;
    const second = Math.floor(truly / kSecond);
    const local = new Date((second + this.offsetAt(second)) * 1000);
    const thousandths = Math.floor((truly - second * kSecond) / 1000);
    return local.toISOString().slice(0, 19) + "." + String(thousandths).padStart(3, "0");
  }

  // What text() shows as this, also with a T; null for anything else.
  timeOf(text) {
    const parts = /^(\d{4}-\d\d-\d\d)[T ](\d\d:\d\d:\d\d)(\.\d{1,6})?$/.exec(text);
    if (!parts) {
      return null;
    }
    const local = Date.parse(parts[1] + "T" + parts[2] + "Z") / 1000;
    if (Number.isNaN(local)) {
      return null;
    }
    const truly = local - this.offsetAt(local - this.offsetAt(local));
    return (truly + this.skew) * kSecond + Math.round(Number("0" + (parts[3] || "")) * kSecond);
  }

  // "+01:00"
  offsetText(micros) {
    const east = this.offsetAt(Math.floor(micros / kSecond) - this.skew);
    const minutes = Math.floor(Math.abs(east) / 60);
    const two = (number) => String(number).padStart(2, "0");
    return (east < 0 ? "-" : "+") + two(Math.floor(minutes / 60)) + ":" + two(minutes % 60);
  }

  day(micros) {
    return this.text(micros).slice(0, 10);
  }

  timeOfDay(micros) {
    return this.text(micros).slice(11, 19);
  }
}

// "1:02:03"
export function lengthText(micros) {
  const seconds = Math.round(micros / kSecond);
  const two = (number) => String(number).padStart(2, "0");
  return Math.floor(seconds / 3600) + ":" + two(Math.floor(seconds / 60) % 60) + ":" + two(seconds % 60);
}
