// Everything that the disk holds, on one line: a row a camera, events, losses, the marked range and the time shown.

import { kSecond, lengthText } from "/clock.js";

const kFolded = 8 * kSecond; // what a folded gap takes of the line, at least
const kHeader = 46; // pixels: days, hours and events
const kNear = 5; // pixels from an event within which it is meant
const kTickPixels = 90;
const kTicks = [1, 2, 5, 10, 30, 60, 120, 300, 600, 1800, 3600, 7200, 14400, 43200, 86400, 604800,
  1209600, 2419200, 4838400, 9676800, 31449600]; // seconds; above a day, weeks
const kLabel = 84; // pixels: the cameras' names

// Turns times into places on a line on which long gaps are short.
export class Fold {
  constructor(journeys, folded) {
    this.parts = [];
    let place = 0;
    const whole = journeys.reduce((sum, journey) => sum + journey.to - journey.from, 0);
    const gap = Math.max(kFolded, whole * 0.01);
    journeys.forEach((journey, i) => {
      if (i > 0) {
        const before = journeys[i - 1].to;
        const length = folded ? gap : journey.from - before;
        this.parts.push({ from: before, to: journey.from, place, length, gap: true });
        place += length;
      }
      this.parts.push({ from: journey.from, to: journey.to, place, length: journey.to - journey.from, gap: false });
      place += journey.to - journey.from;
    });
    this.length = place;
  }

  place(time) {
    const part = this.#last((each) => each.from <= time);
    if (!part) {
      return time - (this.parts[0]?.from ?? 0);
    }
    const inside = Math.min(time, part.to) - part.from;
    return part.place + (inside * part.length) / (part.to - part.from) + Math.max(0, time - part.to);
  }

  time(place) {
    const part = this.#last((each) => each.place <= place);
    if (!part) {
      return (this.parts[0]?.from ?? 0) + place;
    }
    const inside = Math.min(place - part.place, part.length);
    return part.from + (inside * (part.to - part.from)) / part.length + Math.max(0, place - part.place - part.length);
  }

  #last(holds) {
    let low = 0;
    let high = this.parts.length;
    while (low < high) {
      const middle = (low + high) >> 1;
      if (holds(this.parts[middle])) {
        low = middle + 1;
      } else {
        high = middle;
      }
    }
    return this.parts[low - 1];
  }
}

// Emits "seek" and "scrub" {time}, and "view" when another stretch comes into sight.
export class Timeline extends EventTarget {
  #canvas;
  #context;
  #colors = {};
  #drawnAt = null; // pixel of the time that was drawn last
  channels = [];
  names = []; // as many
  eventText = () => ""; // of an event
  coverage = {}; // of each camera: [first, last] seconds
  events = [];
  damages = [];
  time = 0;
  marks = { from: null, to: null };
  fold = new Fold([], true);
  view = { from: 0, to: 1 }; // places

  constructor(canvas, clock) {
    super();
    this.#canvas = canvas;
    this.#context = canvas.getContext("2d");
    this.clock = clock;
    new ResizeObserver(() => this.draw()).observe(canvas);
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => this.draw());
    canvas.addEventListener("wheel", (event) => this.#wheel(event), { passive: false });
    canvas.addEventListener("pointerdown", (event) => this.#down(event));
    canvas.addEventListener("pointermove", (event) => this.#move(event));
    canvas.addEventListener("pointerup", (event) => this.#up(event));
    canvas.addEventListener("pointercancel", (event) => this.#lift(event));
  }

  setJourneys(journeys, folded) {
    const whole = this.fold.length === 0 || this.#showsAll();
    const middle = this.fold.time((this.view.from + this.view.to) / 2);
    const length = this.view.to - this.view.from;
    this.fold = new Fold(journeys, folded);
    if (whole) {
      this.showAll();
    } else {
      this.#look(this.fold.place(middle) - length / 2, length);
    }
  }

  #showsAll() {
    return this.view.to - this.view.from >= this.fold.length * 0.99;
  }

  showAll() {
    this.#look(-this.fold.length * 0.01, Math.max(this.fold.length * 1.02, kSecond));
  }

  zoom(factor, place = this.fold.place(this.time)) {
    const length = Math.min(Math.max((this.view.to - this.view.from) * factor, 2 * kSecond), this.fold.length * 1.1 + kSecond);
    const share = (place - this.view.from) / (this.view.to - this.view.from);
    this.#look(place - length * Math.min(1, Math.max(0, share)), length);
  }

  pan(share) {
    const length = this.view.to - this.view.from;
    this.#look(this.view.from + share * length, length);
  }

  follow(time) {
    this.time = time;
    const place = this.fold.place(time);
    const length = this.view.to - this.view.from;
    if (place < this.view.from || place > this.view.to) {
      this.#look(place - length * 0.1, length);
    } else if (Math.round(this.#x(time) * devicePixelRatio) !== this.#drawnAt) {
      this.draw();
    }
  }

  #look(from, length) {
    this.view = { from, to: from + length };
    this.draw();
    this.dispatchEvent(new Event("view"));
  }

  get span() {
    return { from: this.fold.time(this.view.from), to: this.fold.time(this.view.to) };
  }

  get columns() {
    return Math.max(1, this.#canvas.clientWidth - kLabel);
  }

  #x(time) {
    return kLabel + ((this.fold.place(time) - this.view.from) / (this.view.to - this.view.from)) * this.columns;
  }

  timeAt(x) {
    return this.fold.time(this.view.from + ((x - kLabel) / this.columns) * (this.view.to - this.view.from));
  }

  #wheel(event) {
    event.preventDefault();
    if (event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
      this.pan((event.deltaX || event.deltaY) / 600);
      return;
    }
    const place = this.view.from + ((event.offsetX - kLabel) / this.columns) * (this.view.to - this.view.from);
    this.zoom(Math.exp(event.deltaY / 300), place);
  }

  #pointers = new Map(); // that are down: where they are
  #panning = false;
  #pinching = false; // until no finger is down any more
  #before = 0; // the time that was shown when the first finger came down

  #down(event) {
    this.#canvas.setPointerCapture(event.pointerId);
    this.#pointers.set(event.pointerId, event.offsetX);
    this.#panning = event.button === 1 || event.altKey;
    if (this.#pointers.size > 1) {
      this.#beginPinch();
    } else if (!this.#panning) {
      this.#before = this.time;
      this.#tell("scrub", this.#timeOf(event));
    }
  }

  // A second finger: the first was not meant to choose a time.
  #beginPinch() {
    if (!this.#pinching) {
      this.#pinching = true;
      this.#tell("seek", this.#before);
    }
  }

  #move(event) {
    const before = this.#pointers.get(event.pointerId);
    if (before === undefined) {
      this.#hint(event.offsetX);
      return;
    }
    const others = [...this.#pointers].filter(([id]) => id !== event.pointerId);
    if (others.length === 1) {
      const still = others[0][1];
      const factor = Math.max(8, Math.abs(before - still)) / Math.max(8, Math.abs(event.offsetX - still));
      this.zoom(factor, this.fold.place(this.timeAt(still)));
    } else if (this.#panning) {
      this.pan((before - event.offsetX) / this.columns);
    } else if (!this.#pinching) {
      this.#tell("scrub", this.#timeOf(event));
    }
    this.#pointers.set(event.pointerId, event.offsetX);
  }

  // Says what lies under the pointer.
  #hint(x) {
    const time = this.timeAt(Math.max(kLabel, x));
    const events = this.events.filter((event) => Math.abs(this.#x(event.time) - x) <= kNear);
    const damages = this.damages.filter(
      ({ loss, first, last }) => loss && last !== 0xffffffff && first * kSecond <= time && time < (last + 1) * kSecond);
    const most = 8;
    const lines = [...events.map(this.eventText), ...damages.map((damage) => damage.text)].slice(0, most);
    this.#canvas.title = [this.clock.text(time), ...lines].join("\n");
  }

  #up(event) {
    const chosen = this.#pointers.size === 1 && !this.#panning && !this.#pinching;
    this.#lift(event);
    if (chosen) {
      this.#tell("seek", this.#timeOf(event));
    }
  }

  #lift(event) {
    this.#pointers.delete(event.pointerId);
    this.#pinching = this.#pinching && this.#pointers.size > 0;
  }

  #timeOf(event) {
    return Math.max(0, Math.round(this.timeAt(Math.max(kLabel, event.offsetX))));
  }

  #tell(type, time) {
    this.dispatchEvent(new CustomEvent(type, { detail: { time } }));
  }

  draw() {
    const ratio = devicePixelRatio || 1;
    const width = this.#canvas.clientWidth;
    const height = this.#canvas.clientHeight;
    if (width === 0) {
      return;
    }
    this.#canvas.width = Math.round(width * ratio);
    this.#canvas.height = Math.round(height * ratio);
    this.#context.setTransform(ratio, 0, 0, ratio, 0, 0);
    const style = getComputedStyle(document.documentElement);
    for (const name of ["back", "front", "faint", "line", "accent", "bad"]) {
      this.#colors[name] = style.getPropertyValue("--" + name).trim();
    }
    this.#context.font = "11px system-ui, sans-serif";
    this.#drawRows(width, height);
    this.#drawScale(width, height);
    this.#drawDamages(width, height);
    this.#drawEvents();
    this.#drawMarks(height);
    this.#drawTime(height);
  }

  #drawRows(width, height) {
    const rows = Math.max(1, this.channels.length);
    const row = (height - kHeader) / rows;
    const draw = this.#context;
    draw.save();
    this.channels.forEach((channel, i) => {
      const y = kHeader + i * row;
      if (row >= 11 || i % Math.ceil(11 / row) === 0) {
        draw.fillStyle = this.#colors.faint;
        draw.textBaseline = "middle";
        draw.fillText(this.#fitting(this.names[i]), 2, y + row / 2);
      }
      draw.fillStyle = this.#colors.accent;
      for (const [first, last] of this.coverage[channel] || []) {
        const from = Math.max(kLabel, this.#x(first * kSecond));
        const to = this.#x((last + 1) * kSecond);
        if (to > kLabel && from < width) {
          draw.fillRect(from, y + row * 0.15, Math.max(1, to - from), row * 0.7);
        }
      }
    });
    draw.restore();
    this.#drawFolds(width, height);
  }

  // As much of a name as there is room for.
  #fitting(name) {
    const fits = (text) => this.#context.measureText(text).width <= kLabel - 6;
    let length = name.length;
    while (length > 1 && !fits(name.slice(0, length) + (length < name.length ? "…" : ""))) {
      --length;
    }
    return name.slice(0, length) + (length < name.length ? "…" : "");
  }

  #drawFolds(width, height) {
    const draw = this.#context;
    draw.textBaseline = "middle";
    for (const part of this.fold.parts) {
      const from = this.#x(part.from);
      const to = this.#x(part.to);
      if (!part.gap || to < kLabel || from > width || to - from < 3 || part.length === part.to - part.from) {
        continue;
      }
      const begin = Math.max(from, kLabel);
      const end = Math.min(to, width + 2); // a line at its end is out of sight
      draw.strokeStyle = this.#colors.line;
      draw.setLineDash([2, 3]);
      draw.strokeRect(begin + 0.5, kHeader, end - begin - 1, height - kHeader - 1);
      draw.setLineDash([]);
      const text = lengthText(part.to - part.from);
      if (draw.measureText(text).width + 4 < to - from) {
        draw.fillStyle = this.#colors.faint;
        draw.fillText(text, (from + to - draw.measureText(text).width) / 2, kHeader + (height - kHeader) / 2);
      }
    }
  }

  // Round times, as close together as their labels allow.
  #drawScale(width) {
    const draw = this.#context;
    draw.textBaseline = "alphabetic";
    draw.fillStyle = this.#colors.front;
    const least = (kTickPixels / this.columns) * (this.view.to - this.view.from);
    const step = kTicks.find((seconds) => seconds * kSecond >= least) ?? kTicks[kTicks.length - 1];
    let free = 0;
    let day = "";
    for (const part of this.fold.parts) {
      if (part.gap && part.length !== part.to - part.from) {
        continue;
      }
      const from = Math.max(part.from, this.timeAt(kLabel));
      const to = Math.min(part.to, this.timeAt(width));
      for (let time = this.#roundUp(from, step); time <= to; time += step * kSecond) {
        const x = this.#x(time);
        draw.fillRect(x, 14, 1, 5);
        if (x >= free) {
          draw.fillText(this.clock.timeOfDay(time), x + 3, 22);
          free = x + kTickPixels - 15;
          const today = this.clock.day(time);
          if (today !== day) {
            draw.fillText(today, x, 10);
            day = today;
          }
        }
      }
    }
  }

  // The first time at or after @p time that is a whole number of steps after midnight, true time.
  #roundUp(time, step) {
    const second = Math.ceil(time / kSecond) - this.clock.skew;
    const local = second + this.clock.offsetAt(second);
    return time > 0 ? (second + ((step - (local % step)) % step) + this.clock.skew) * kSecond : Infinity;
  }

  #drawDamages(width, height) {
    const draw = this.#context;
    draw.strokeStyle = this.#colors.bad;
    for (const damage of this.damages) {
      if (!damage.loss || damage.last === 0xffffffff) {
        continue;
      }
      const first = this.#x(damage.first * kSecond);
      const last = Math.max(first + 3, this.#x((damage.last + 1) * kSecond));
      if (last < kLabel || first > width) {
        continue;
      }
      // Only what is in sight: a loss of years is very wide when seconds are shown.
      const from = Math.max(kLabel, first);
      const to = Math.min(width, last);
      draw.save();
      draw.beginPath();
      draw.rect(from, kHeader, to - from, height - kHeader);
      draw.clip();
      draw.beginPath();
      for (let x = from - height; x < to; x += 6) {
        draw.moveTo(x, height);
        draw.lineTo(x + height, 0);
      }
      draw.stroke();
      draw.restore();
    }
  }

  #drawEvents() {
    const draw = this.#context;
    draw.fillStyle = this.#colors.bad;
    draw.textBaseline = "middle";
    let free = -10;
    let freeText = -10; // where a name has room again
    for (const event of this.events) {
      const x = this.#x(event.time);
      if (x < kLabel || x > this.#canvas.clientWidth || x < free) {
        continue;
      }
      draw.beginPath();
      draw.moveTo(x, kHeader);
      draw.lineTo(x - 4, kHeader - 8);
      draw.lineTo(x + 4, kHeader - 8);
      draw.fill();
      free = x + 2;
      if (x >= freeText) {
        const name = event.event_names;
        draw.fillText(name, x + 6, kHeader - 5);
        freeText = x + 10 + draw.measureText(name).width;
      }
    }
  }

  #drawMarks(height) {
    const { from, to } = this.marks;
    const draw = this.#context;
    if (from !== null && to !== null) {
      draw.globalAlpha = 0.2;
      draw.fillStyle = this.#colors.front;
      draw.fillRect(this.#x(from), kHeader, this.#x(to) - this.#x(from), height - kHeader);
      draw.globalAlpha = 1;
    }
    draw.fillStyle = this.#colors.front;
    for (const mark of [from, to]) {
      if (mark !== null) {
        draw.fillRect(this.#x(mark) - 1, kHeader - 4, 2, height - kHeader + 4);
      }
    }
  }

  #drawTime(height) {
    const draw = this.#context;
    const x = this.#x(this.time);
    draw.fillStyle = this.#colors.front;
    draw.fillRect(x - 1, 12, 2, height - 12);
    this.#drawnAt = Math.round(x * devicePixelRatio);
  }
}
