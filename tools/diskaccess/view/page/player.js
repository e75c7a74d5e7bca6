// What the page tells the worker that decodes, and hears from it.

export class Player extends EventTarget {
  #worker;
  #work = 0; // number of what was asked last
  time = 0;
  rate = 1;
  playing = false;

  // serverPictures: whether the server can decode what this browser cannot.
  constructor(token, canvases, serverPictures) {
    super();
    const policy = window.trustedTypes
      ? trustedTypes.createPolicy("worker", { createScriptURL: (url) => (url === "/worker.js" ? url : "") })
      : { createScriptURL: (url) => url };
    this.#worker = new Worker(policy.createScriptURL("/worker.js"), { type: "module" });
    this.#worker.onmessage = (event) => this.#take(event.data);
    this.#worker.onerror = () => this.#tell("failure", { text: "the page's decoder has ended; reload the page" });
    this.#post({ type: "init", token, canvases, serverPictures }, [...canvases.values()]);
  }

  // The worker does what is asked last, and leaves what it was at.
  #post(message, transfer = []) {
    this.#worker.postMessage({ ...message, work: ++this.#work }, transfer);
    this.#tell("busy");
  }

  #take(message) {
    if (message.work !== undefined && message.work !== this.#work) {
      return; // on its way when something else was asked: it must not turn the time or the state back
    }
    if (message.type === "shown") {
      this.time = message.time;
      this.playing = message.playing;
    }
    this.#tell(message.type, message);
  }

  #tell(type, detail = {}) {
    this.dispatchEvent(new CustomEvent(type, { detail }));
  }

  seek(time) {
    this.time = time;
    this.#post({ type: "seek", time });
  }

  // Shows the key frames at a time, quickly: for dragging.
  scrub(time) {
    this.time = time;
    this.#post({ type: "scrub", time });
  }

  // from: where it begins; null: where it is. until: where it ends.
  play(rate = this.rate, from = null, until = Infinity) {
    this.playing = true;
    this.#post({ type: "play", rate, from, until });
  }

  pause() {
    this.playing = false;
    this.#post({ type: "pause" });
  }

  step(direction) {
    this.playing = false;
    this.#post({ type: "step", direction });
  }

  choose(channels) {
    this.#post({ type: "choose", channels });
  }

  still(channels) {
    this.#worker.postMessage({ type: "still", channels });
  }
}
