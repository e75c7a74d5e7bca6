// The time shown, in the page's address: a reload or a link leads back to it.

const kPause = 400; // milliseconds between two changes: browsers refuse more than some 100 in 30 seconds

export class Address {
  #clock;
  #time = 0;
  #timer = 0;
  #written = -Infinity;

  // goTo: called with the time that somebody types, or that a link leads to.
  constructor(clock, goTo) {
    this.#clock = clock;
    addEventListener("hashchange", (event) => {
      this.#forget(); // else it would replace what was just typed
      // Not location.hash: that may have been written since.
      const time = this.#timeOf(new URL(event.newURL).hash);
      if (time !== null) {
        goTo(time);
      }
    });
  }

  // The time that the page was opened with; null when there is none.
  get time() {
    return this.#timeOf(location.hash);
  }

  // Keeps up while pictures play, too: the address is true whenever it is looked at.
  keep(time) {
    this.#time = time;
    if (this.#timer === 0) {
      this.#timer = setTimeout(() => this.#write(), Math.max(0, this.#written + kPause - performance.now()));
    }
  }

  #write() {
    this.#forget();
    this.#written = performance.now();
    history.replaceState(null, "", "#t=" + this.#clock.text(this.#time).replace(" ", "T"));
  }

  #forget() {
    clearTimeout(this.#timer);
    this.#timer = 0;
  }

  #timeOf(hash) {
    return this.#clock.timeOf(new URLSearchParams(hash.slice(1)).get("t") || "");
  }
}
