// What the page tells the worker that decodes, and hears from it.

export class Player extends EventTarget {
  #worker;
  #seekNumber = 0;
  time = 0;
  rate = 1;
  playing = false;

  constructor(token, canvases) {
    super();
    const policy = window.trustedTypes
      ? trustedTypes.createPolicy("worker", { createScriptURL: (url) => (url === "/worker.js" ? url : "") })
      : { createScriptURL: (url) => url };
    this.#worker = new Worker(policy.createScriptURL("/worker.js"), { type: "module" });
    this.#worker.onmessage = (event) => this.#take(event.data);
    this.#worker.onerror = () => this.#tell("failure", { text: "the page's decoder has ended; reload the page" });
    this.#worker.postMessage({ type: "init", token, canvases }, [...canvases.values()]);
  }

  #take(message) {
    if (message.type === "shown") {
      this.time = message.time;
      this.playing = message.playing;
    }
    this.#tell(message.type, message);
  }

  #tell(type, detail) {
    this.dispatchEvent(new CustomEvent(type, { detail }));
  }

  seek(time) {
    this.time = time;
    this.#worker.postMessage({ type: "seek", time, number: ++this.#seekNumber });
  }

  // Shows the key frames at a time, quickly: for dragging.
  scrub(time) {
    this.time = time;
    this.#worker.postMessage({ type: "scrub", time, number: ++this.#seekNumber });
  }

  play(rate = this.rate, until = Infinity) {
    this.playing = true;
    this.#worker.postMessage({ type: "play", rate, until });
  }

  pause() {
    this.playing = false;
    this.#worker.postMessage({ type: "pause" });
  }

  step(direction) {
    this.playing = false;
    this.#worker.postMessage({ type: "step", direction });
  }

  choose(channels) {
    this.#worker.postMessage({ type: "choose", channels });
  }

  still(channels) {
    this.#worker.postMessage({ type: "still", channels });
  }
}
