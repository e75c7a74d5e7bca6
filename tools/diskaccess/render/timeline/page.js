"use strict";
// Draws the journeys of a disk. Whatever is from the disk becomes text by textContent or fillText, never markup.
(() => {
  const data = JSON.parse(document.getElementById("data").textContent);
  const tip = document.getElementById("tip");
  const main = document.getElementById("main");
  const steps = [1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200, 86400, 604800,
    2592000, 31536000];
  const labelWidth = 130, rowHeight = 20, barHeight = 14, axisHeight = 22, shortest = 4;

  const make = (name, text, parent) => {
    const element = document.createElement(name);
    if (text) element.textContent = text;
    if (parent) parent.append(element);
    return element;
  };
  const colour = name => getComputedStyle(document.documentElement).getPropertyValue(name);
  const clamp = (value, low, high) => Math.min(Math.max(value, low), high);

  const hideTip = () => { tip.hidden = true; };
  const showTip = (text, x, y) => {
    tip.textContent = text;
    tip.hidden = false;
    const box = tip.getBoundingClientRect();

    tip.style.left = clamp(x + 14, 4, innerWidth - box.width - 4) + "px";
    tip.style.top = (y + 20 + box.height > innerHeight ? y - box.height - 10 : y + 18) + "px";
  };

  // The entry of rising, separate spans [start, end, start, end, ...] that ends at or after a second.
  const firstEndingAt = (spans, second) => {
    let low = 0, high = spans.length / 2;
    while (low < high) {
      const middle = (low + high) >> 1;
      if (spans[2 * middle + 1] < second) low = middle + 1; else high = middle;
    }
    return low;
  };

  class Strip {
    constructor(journey) {
      this.journey = journey;
      this.from = journey.start;
      this.to = journey.end + 1;
      this.cursor = null;
      this.row = 0;
      const section = make("section", "", main);
      make("h2", journey.text, section);
      const bar = make("div", "", section);
      bar.className = "bar";
      this.button(bar, "\u2212", "Zoom out", () => this.zoom(2, this.middle()));
      this.button(bar, "+", "Zoom in", () => this.zoom(0.5, this.middle()));
      this.button(bar, "All", "Show the whole journey", () => this.show(journey.start, journey.end + 1));
      this.where = make("span", "", bar);
      this.where.className = "where";
      this.canvas = make("canvas", "", section);
      this.canvas.tabIndex = 0;
      this.canvas.setAttribute("role", "application");
      this.canvas.setAttribute("aria-label", journey.text);
      this.rows = journey.channels.length + (journey.damage.length ? 1 : 0);
      this.height = axisHeight + this.rows * rowHeight + 4;
      this.canvas.style.height = this.height + "px";
      this.listen();
      if (journey.events.length || journey.damage.length) this.list(section);
    }

    button(parent, text, title, action) {
      const button = make("button", text, parent);
      button.type = "button";
      button.title = title;
      button.setAttribute("aria-label", title);
      button.addEventListener("click", action);
    }

    list(section) {
      const details = make("details", "", section);
      make("summary", "Events and damage", details);
      const table = make("table", "", details);
      for (const event of this.journey.events) {
        const row = make("tr", "", table);
        make("td", event.at, row);
        make("td", event.text, row);
        make("td", event.channel, row);
      }
      for (const damage of this.journey.damage) {
        const row = make("tr", "", table);
        make("td", this.text(damage.start), row);
        make("td", damage.loss ? "loss" : "note", row);
        make("td", damage.text, row);
      }
    }

    text(second) {
      return new Date((second + this.journey.shift) * 1000).toISOString().slice(0, 19).replace("T", " ");
    }
    middle() { return this.cursor === null ? (this.from + this.to) / 2 : this.cursor; }
    width() { return this.canvas.clientWidth - labelWidth; }
    x(second) { return labelWidth + (second - this.from) / (this.to - this.from) * this.width(); }
    second(x) { return this.from + (x - labelWidth) / this.width() * (this.to - this.from); }

    show(from, to) {
      const whole = this.journey.end + 1 - this.journey.start;
      const length = clamp(to - from, Math.min(shortest, whole), whole);
      this.from = clamp(from, this.journey.start, this.journey.end + 1 - length);
      this.to = this.from + length;
      this.draw();
    }
    zoom(factor, around) {
      this.show(around - (around - this.from) * factor, around + (this.to - around) * factor);
    }
    pan(part) {
      const length = this.to - this.from;
      this.show(this.from + part * length, this.to + part * length);
    }

    draw() {
      const ratio = devicePixelRatio || 1, width = this.canvas.clientWidth;
      if (width === 0) return;
      this.canvas.width = Math.round(width * ratio);
      this.canvas.height = Math.round(this.height * ratio);
      const pen = this.canvas.getContext("2d");
      pen.scale(ratio, ratio);
      pen.font = "12px system-ui, sans-serif";
      pen.textBaseline = "middle";
      this.drawAxis(pen);
      this.journey.channels.forEach((channel, i) => this.drawChannel(pen, channel, axisHeight + i * rowHeight));
      this.drawAlarms(pen);
      this.drawDamage(pen);
      this.drawCursor(pen);
      this.where.textContent = this.text(Math.floor(this.from)) + " to " + this.text(Math.ceil(this.to) - 1);
    }
    drawAxis(pen) {
      const most = Math.max(1, this.width() / 110);
      const step = steps.find(each => (this.to - this.from) / each < most) || steps[steps.length - 1];
      const shift = this.journey.shift;
      for (let at = Math.ceil((this.from + shift) / step) * step - shift; at < this.to; at += step) {
        pen.fillStyle = colour("--line");
        pen.fillRect(this.x(at), axisHeight - 6, 1, this.height);
        pen.fillStyle = colour("--dim");
        const text = this.text(at);
        pen.fillText(step >= 86400 ? text.slice(0, 10) : text.slice(11, step >= 60 ? 16 : 19), this.x(at) + 3, 8);
      }
    }
    label(pen, text, y) {
      pen.fillStyle = colour("--fg");
      let shown = text;
      while (shown.length > 1 && pen.measureText(shown).width > labelWidth - 10) shown = shown.slice(0, -2) + "\u2026";
      pen.fillText(shown, 0, y + barHeight / 2);
    }
    drawChannel(pen, channel, y) {
      this.label(pen, channel.name, y);
      pen.fillStyle = colour("--row");
      pen.fillRect(labelWidth, y, this.width(), barHeight);
      const spans = channel.spans, end = this.canvas.clientWidth;
      const first = spans[0], last = spans[spans.length - 1] + 1;
      pen.fillStyle = colour("--gap");
      pen.fillRect(this.clip(first), y + barHeight / 2 - 1, this.clip(last) - this.clip(first), 2);
      pen.fillStyle = colour("--rec");
      for (let i = firstEndingAt(spans, this.from); i < spans.length / 2 && this.x(spans[2 * i]) < end; ++i) {
        const left = this.clip(spans[2 * i]);
        let right = this.clip(spans[2 * i + 1] + 1);
        // What lies nearer than half a pixel is drawn as one.
        while (i + 1 < spans.length / 2 && this.clip(spans[2 * i + 2]) - right < 0.5) {
          ++i;
          right = this.clip(spans[2 * i + 1] + 1);
          if (right >= end) break;
        }
        pen.fillRect(left, y, Math.max(right - left, 0.75), barHeight);
      }
    }
    clip(second) { return clamp(this.x(second), labelWidth, this.canvas.clientWidth); }
    drawAlarms(pen) {
      const bottom = this.journey.channels.length * rowHeight;
      pen.fillStyle = colour("--alarm");
      for (const [start, end] of this.journey.alarms) {
        const left = this.clip(start), right = this.clip(end + 1);
        if (right > left) pen.fillRect(left, axisHeight - 2, right - left, bottom - 2);
      }
      pen.fillStyle = colour("--event");
      for (const event of this.journey.events) {
        const x = this.x(event.time);
        if (x < labelWidth - 1 || x > this.canvas.clientWidth) continue;
        pen.beginPath();
        pen.moveTo(x, axisHeight + 1);
        pen.lineTo(x + 5, axisHeight - 8);
        pen.lineTo(x - 5, axisHeight - 8);
        pen.fill();
      }
    }
    drawDamage(pen) {
      if (!this.journey.damage.length) return;
      const y = axisHeight + this.journey.channels.length * rowHeight;
      this.label(pen, "damage", y);
      for (const damage of this.journey.damage) {
        const left = this.clip(damage.start), right = this.clip(damage.end + 1);
        if (damage.end < this.from || damage.start > this.to) continue;
        pen.fillStyle = colour(damage.loss ? "--loss" : "--note");
        pen.fillRect(left, y, Math.max(right - left, 3), barHeight);
      }
    }
    drawCursor(pen) {
      if (this.cursor === null || this.cursor < this.from || this.cursor > this.to) return;
      pen.fillStyle = colour("--focus");
      pen.fillRect(this.x(this.cursor), axisHeight - 6, 1.5, this.height);
    }

    // What is at a second of a row, in words.
    at(second, row) {
      const whole = Math.floor(second), near = (this.to - this.from) / this.width() * 6;
      const lines = [this.text(whole)];
      const channel = this.journey.channels[row];
      if (channel) {
        const i = firstEndingAt(channel.spans, whole);
        const inside = i < channel.spans.length / 2 && channel.spans[2 * i] <= whole;
        lines[0] += "  " + channel.name + ": " + (inside ? "recorded" : "not recorded");
        if (inside) lines.push(this.text(channel.spans[2 * i]) + " to " + this.text(channel.spans[2 * i + 1]));
      }
      for (const [start, end, text] of this.journey.alarms) {
        if (start <= whole && whole <= end) lines.push("alarm: " + text);
      }
      for (const event of this.journey.events) {
        if (Math.abs(event.time - second) <= near) lines.push("event at " + event.at + ": " + event.text);
      }
      for (const damage of this.journey.damage) {
        if (damage.start - near <= second && second <= damage.end + 1 + near) lines.push(damage.text);
      }
      return lines.slice(0, 12).join("\n");
    }

    listen() {
      const canvas = this.canvas;
      let drag = null;
      canvas.addEventListener("wheel", event => {
        if (!event.ctrlKey && !event.shiftKey && Math.abs(event.deltaX) <= Math.abs(event.deltaY) &&
            document.activeElement !== canvas) return; // the page scrolls, until a strip is chosen
        event.preventDefault();
        if (event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
          this.pan((event.deltaX || event.deltaY) / 1000);
        } else {
          this.zoom(event.deltaY > 0 ? 1.25 : 0.8, this.second(event.offsetX));
        }
      }, { passive: false });
      canvas.addEventListener("pointerdown", event => {
        drag = { x: event.offsetX, from: this.from, to: this.to };
        canvas.setPointerCapture(event.pointerId);
      });
      canvas.addEventListener("pointerup", () => { drag = null; });
      canvas.addEventListener("pointermove", event => {
        if (drag) {
          const moved = (drag.x - event.offsetX) / this.width() * (drag.to - drag.from);
          this.show(drag.from + moved, drag.to + moved);
        }
        const second = this.second(event.offsetX), row = Math.floor((event.offsetY - axisHeight) / rowHeight);
        if (second < this.from || second > this.to) hideTip();
        else showTip(this.at(second, row), event.clientX, event.clientY);
      });
      canvas.addEventListener("pointerleave", hideTip);
      canvas.addEventListener("blur", () => { this.cursor = null; hideTip(); this.draw(); });
      canvas.addEventListener("keydown", event => {
        if (event.ctrlKey || event.altKey || event.metaKey) return;
        if (!this.key(event.key)) return;
        event.preventDefault();
        const box = canvas.getBoundingClientRect();
        showTip(this.at(this.middle(), this.row), box.left + this.x(this.middle()),
          box.top + axisHeight + this.row * rowHeight);
      });
    }
    key(name) {
      const length = this.to - this.from;
      const move = by => {
        this.cursor = clamp(this.middle() + by, this.journey.start, this.journey.end);
        if (this.cursor < this.from || this.cursor > this.to) this.show(this.cursor - length / 2, this.cursor + length / 2);
        else this.draw();
      };
      const actions = {
        ArrowLeft: () => move(-length / 50),
        ArrowRight: () => move(length / 50),
        ArrowUp: () => { this.row = clamp(this.row - 1, 0, this.journey.channels.length - 1); move(0); },
        ArrowDown: () => { this.row = clamp(this.row + 1, 0, this.journey.channels.length - 1); move(0); },
        PageUp: () => this.pan(-0.9),
        PageDown: () => this.pan(0.9),
        Home: () => { this.cursor = this.journey.start; this.show(this.cursor, this.cursor + length); },
        End: () => { this.cursor = this.journey.end; this.show(this.cursor + 1 - length, this.cursor + 1); },
        "+": () => this.zoom(0.5, this.middle()),
        "=": () => this.zoom(0.5, this.middle()),
        "-": () => this.zoom(2, this.middle()),
        0: () => this.show(this.journey.start, this.journey.end + 1),
        Escape: () => { this.cursor = null; this.draw(); hideTip(); }
      };
      if (!actions[name]) return false;
      actions[name]();
      return name !== "Escape";
    }
  }

  document.getElementById("title").textContent = data.title;
  document.getElementById("help").textContent = data.journeys.length === 0 ? "Nothing is recorded." :
    "Drag to move, Ctrl and wheel to zoom. With the keyboard: Tab to a journey, arrows to move, + and \u2212 to zoom, " +
    "0 for all of it.";
  const strips = data.journeys.map(journey => new Strip(journey));
  // Only what is looked at is drawn: a disk may hold thousands of journeys.
  const seen = new IntersectionObserver(entries => {
    for (const entry of entries) if (entry.isIntersecting) strips.find(each => each.canvas === entry.target).draw();
  }, { rootMargin: "400px" });
  for (const strip of strips) seen.observe(strip.canvas);
  for (const strip of strips.slice(0, 4)) strip.draw(); // at once, before the observer is asked
  const drawAll = () => { for (const strip of strips) strip.draw(); };
  addEventListener("resize", drawAll);
  addEventListener("beforeprint", drawAll);
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", drawAll);
})();
