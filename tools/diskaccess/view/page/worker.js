// Reads frames, decodes them and shows all cameras at one time. What is shown at a time is each camera's last picture at
// or before it; where nothing was recorded, or it is lost, nothing is shown.

import { Api, insist, kRecord, readFrames } from "/api.js";
import { kSecond } from "/clock.js";

const kFirst = 1.5 * kSecond; // asked for before the first pictures of a place
const kAhead = 4 * kSecond; // asked for at once while playing
const kBehind = 12 * kSecond; // kept behind the time shown, for steps back
const kKeyStretch = 120 * kSecond; // asked for at once of key frames alone
const kMostDecoded = 256 << 20; // bytes of pictures that are kept
const kFeedAhead = 0.5 * kSecond;
const kHeight = 720; // pictures from the server are no higher
const kKeyRate = 4; // from here on key frames alone
const kTell = 100; // milliseconds: the page hears of the time as often while no picture changes

// Frames of a stretch, fetched piece by piece.
class Store {
  constructor(api, kind) {
    this.api = api;
    this.kind = kind;
    this.stretch = kind === "key" ? kKeyStretch : kAhead;
    this.reset(0);
  }

  reset(time) {
    this.work?.abort();
    this.work = new AbortController();
    this.from = time; // what is known lies in [from, to)
    this.to = time;
    this.frames = new Map(); // of each camera, rising in time
    this.losses = [];
    this.spans = new Map(); // of each camera: [first, last] seconds that were recorded
    this.loading = null;
  }

  holds(time) {
    return this.from <= time && time < this.to;
  }

  // Fetches what follows what is known.
  async append(channels, length) {
    await this.#load(channels, this.to, this.to + length, this.from === this.to);
  }

  // Fetches what lies before what is known.
  async prepend(channels, length) {
    const from = Math.max(0, this.from - length);
    await this.#load(channels, from, this.from, true);
  }

  async #load(channels, from, to, fromKeyFrame) {
    if (this.loading) {
      return this.loading;
    }
    const { signal } = this.work;
    const query = {
      from: Math.floor(from),
      to: Math.floor(to) - 1,
      kind: this.kind,
      start: fromKeyFrame ? "key" : "exact",
    };
    this.loading = insist(() => this.#read(channels, query, signal), tellOfFailure, tellOfWork, signal)
      .then((ends) => {
        if (!signal.aborted) {
          // What one answer lacks is lacking for all cameras.
          const known = ends.map((end) => (end.document.complete ? to : Math.max(end.time, from + 1)));
          this.to = Math.max(this.to, Math.min(...known));
          this.from = Math.min(this.from, from);
        }
      })
      .finally(() => {
        if (!signal.aborted) {
          this.loading = null;
        }
      });
    return this.loading;
  }

  // Frames of the cameras that this browser decodes, pictures of the others. Gives the records that end the answers.
  async #read(channels, query, signal) {
    const remote = channels.filter((channel) => cameras.get(channel).remote);
    const own = channels.filter((channel) => !remote.includes(channel));
    const [ownEnd, remoteEnd] = await Promise.all([
      own.length === 0 ? null : this.#readPart(own, query, signal),
      remote.length === 0 ? null : this.#readPart(remote, { ...query, video: "jpeg", height: kHeight }, signal),
    ]);
    const ends = [ownEnd, remoteEnd].filter((end) => end !== null);
    const found = await this.#judge(own);
    if (found.length !== 0 && !signal.aborted) {
      ends.push(...(await this.#read(found, query, signal)));
    }
    return ends;
  }

  async #readPart(channels, query, signal) {
    const taken = [];
    let end = null;
    await readFrames(this.api, { ...query, channels: channels.join(",") }, (record) => {
      if (record.kind === kRecord.end) {
        end = record;
      } else {
        taken.push(record);
      }
    }, signal);
    if (!signal.aborted) {
      this.#take(taken);
      this.#takeSpans(end.document.spans);
    }
    return end;
  }

  // Finds the cameras whose pictures this browser cannot decode. What is known of them is of no use then.
  async #judge(channels) {
    const found = [];
    for (const channel of channels) {
      const frames = this.frames.get(channel) || [];
      const key = frames.findLast((frame) => frame.key);
      const codec = key ? codecOf(key.data) : null;
      if (serverPictures && codec && !(await decodable(codec))) {
        cameras.get(channel).becomeRemote();
        this.frames.delete(channel);
        found.push(channel);
      }
    }
    for (const other of found.length === 0 ? [] : [all, keys]) {
      if (other !== this) {
        other.reset(time); // it holds frames of them, too
      }
    }
    return found;
  }

  #take(records) {
    for (const record of records) {
      if (record.kind === kRecord.loss) {
        this.losses.push(record.document);
        postMessage({ type: "loss", loss: { ...record.document, time: record.time } });
      } else if (record.kind === kRecord.picture || record.kind === kRecord.key) {
        this.#insert(record);
      } else if (record.kind === kRecord.jpeg && cameras.get(record.channel)?.remote) {
        this.#insert(record);
      }
    }
  }

  #insert(record) {
    if (!this.frames.has(record.channel)) {
      this.frames.set(record.channel, []);
    }
    const frames = this.frames.get(record.channel);
    let at = frames.length;
    while (at > 0 && frames[at - 1].time > record.time) {
      --at;
    }
    if (at > 0 && frames[at - 1].time === record.time && frames[at - 1].data.length === record.data.length) {
      return; // the stretches overlap
    }
    frames.splice(at, 0, {
      time: record.time, key: record.kind !== kRecord.picture, jpeg: record.kind === kRecord.jpeg, data: record.data, id: nextId++,
    });
  }

  #takeSpans(spans) {
    for (const [channel, list] of Object.entries(spans)) {
      const known = this.spans.get(Number(channel)) || [];
      this.spans.set(Number(channel), known.concat(list));
    }
  }

  // Forgets what lies long before a time, but for the key frame that its pictures need.
  forget(time) {
    const before = time - kBehind;
    if (this.from >= before - kBehind) {
      return;
    }
    this.from = before;
    for (const [channel, frames] of this.frames) {
      let first = lastAt(frames, before);
      while (first > 0 && !frames[first].key) {
        --first;
      }
      this.frames.set(channel, frames.slice(Math.max(0, first)));
    }
    for (const [channel, spans] of this.spans) {
      this.spans.set(channel, spans.filter((span) => (span[1] + 1) * kSecond >= before));
    }
  }

  recorded(channel, time) {
    return (this.spans.get(channel) || []).some((span) => span[0] * kSecond <= time && time < (span[1] + 1) * kSecond);
  }

  // The loss that has taken the picture of a camera at a time, when its last frame is that of @p frameTime: -Infinity when
  // there is none. A loss may begin before anything that was asked for, and end after it.
  lossAt(channel, time, frameTime) {
    const found = this.losses.filter((loss) => {
      const before = loss.before ?? -Infinity;
      const ofCamera = loss.channel === null || loss.channel === channel;
      return ofCamera && frameTime <= before && before < time && time < (loss.after ?? Infinity);
    });
    // Without its index a block's frames are read all the same: what else is lost there says more.
    return found.find((loss) => loss.kind !== "index_damaged") ?? found[0];
  }
}

let nextId = 1;

// The place of the last frame at or before a time; -1 when all are later.
function lastAt(frames, time) {
  let low = 0;
  let high = frames.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (frames[middle].time <= time) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low - 1;
}

// What a key frame is encoded in, as VideoDecoder names it; null when it does not begin with parameter sets.
function codecOf(data) {
  for (let i = 0; i + 6 < Math.min(data.length, 512); ++i) {
    if (data[i] === 0 && data[i + 1] === 0 && data[i + 2] === 1) {
      const head = data[i + 3];
      if ((head & 0x9f) === 7) {
        const hex = [...data.subarray(i + 4, i + 7)].map((byte) => byte.toString(16).padStart(2, "0"));
        return "avc1." + hex.join("");
      }
      if (head === 0x40 && data[i + 4] === 1) {
        return "hev1.1.6.L123.B0";
      }
    }
  }
  return null;
}

// Whether this browser decodes a codec.
const answers = new Map();
function decodable(codec) {
  if (!answers.has(codec)) {
    const answer = self.VideoDecoder
      ? VideoDecoder.isConfigSupported({ codec }).then(({ supported }) => supported === true, () => false)
      : Promise.resolve(false);
    answers.set(codec, answer);
  }
  return answers.get(codec);
}

// Decodes one camera and keeps pictures.
class Camera {
  constructor(channel, canvas) {
    this.channel = channel;
    this.canvas = canvas;
    this.context = canvas.getContext("2d", { alpha: false });
    this.pictures = new Map(); // by their frames
    this.failed = new Set();
    this.waiting = new Map();
    this.fed = null; // the frame given to the decoder last
    this.codec = null;
    this.unsupported = null;
    this.remote = false; // whether the server decodes
    this.shown = null;
    this.wanted = null; // the frame whose picture was asked for last
    this.most = 32;
    this.run = 0; // grows whenever the decoder begins again
  }

  becomeRemote() {
    this.forget();
    this.remote = true;
    this.unsupported = null;
  }

  has(frame) {
    return this.pictures.has(frame) || this.failed.has(frame.id);
  }

  // Gives the decoder what it takes to have the picture at a place, and up to @p ahead frames more.
  feed(frames, place, ahead) {
    this.wanted = frames[place];
    if (this.remote) {
      this.#feedPictures(frames, place, ahead);
      return;
    }
    if (this.unsupported) {
      return;
    }
    let next = this.#nextToFeed(frames, place);
    const last = Math.min(frames.length - 1, place + ahead);
    for (; next <= last; ++next) {
      if (next > place && (this.decoder?.decodeQueueSize > 8 || this.#ahead(frames, place) >= this.most - 4)) {
        break;
      }
      this.#decode(frames[next]);
    }
  }

  #feedPictures(frames, place, ahead) {
    const last = Math.min(frames.length - 1, place + ahead, place + this.most - 4);
    for (let next = place; next <= last && this.waiting.size < 8; ++next) {
      const frame = frames[next];
      if (!this.has(frame) && !this.waiting.has(frame.id)) {
        this.#takeJpeg(frame);
      }
    }
  }

  async #takeJpeg(frame) {
    const { run } = this;
    this.waiting.set(frame.id, frame);
    const made = frame.jpeg && frame.data.length !== 0
      ? await createImageBitmap(new Blob([frame.data], { type: "image/jpeg" })).catch(() => null)
      : null;
    if (run !== this.run) {
      made?.close();
    } else if (made) {
      this.#keep(frame, made);
    } else {
      this.waiting.delete(frame.id);
      this.failed.add(frame.id);
      wake();
    }
  }

  // How many pictures after a place are kept.
  #ahead(frames, place) {
    let count = 0;
    for (let i = place + 1; i < frames.length && this.pictures.has(frames[i]); ++i) {
      ++count;
    }
    return count;
  }

  #nextToFeed(frames, place) {
    let key = place;
    while (key > 0 && !frames[key].key) {
      --key;
    }
    const fed = this.fed ? frames.indexOf(this.fed) : -1;
    const needed = frames[place];
    if (fed >= key && this.decoder?.state === "configured" && (fed < place || this.has(needed) || this.waiting.has(needed.id))) {
      return fed + 1;
    }
    if (this.has(needed)) {
      return frames.length; // kept from before: the decoder is somewhere else
    }
    this.#restart();
    return key;
  }

  #restart() {
    ++this.run;
    if (this.decoder && this.decoder.state === "configured") {
      this.decoder.reset();
    }
    this.codec = null;
    this.fed = null;
    this.waiting.clear();
  }

  #decode(frame) {
    if (frame.key) {
      this.#configure(frame);
    }
    this.fed = frame;
    if (this.unsupported || !this.codec || this.decoder.state !== "configured") {
      this.failed.add(frame.id);
      return;
    }
    this.waiting.set(frame.id, frame);
    const chunk = { type: frame.key ? "key" : "delta", timestamp: frame.id, data: frame.data };
    try {
      this.decoder.decode(new EncodedVideoChunk(chunk));
    } catch {
      this.#fail();
    }
  }

  #configure(frame) {
    const codec = codecOf(frame.data);
    if (!codec) {
      this.codec = this.codec || null;
      return;
    }
    if (codec === this.codec && this.decoder?.state === "configured") {
      return;
    }
    if (!this.decoder || this.decoder.state === "closed") {
      this.decoder = new VideoDecoder({ output: (picture) => this.#keep(this.waiting.get(picture.timestamp), picture), error: () => this.#fail() });
    }
    this.codec = codec;
    this.decoder.configure({ codec, optimizeForLatency: true, hardwareAcceleration: "prefer-software" });
    decodable(codec).then((can) => {
      if (!can) {
        this.unsupported = codec.startsWith("hev1") ? "this browser does not decode H.265" : "this browser does not decode " + codec;
      }
    });
  }

  // picture: a VideoFrame, or an ImageBitmap.
  #keep(frame, picture) {
    if (!frame) {
      picture.close(); // nobody waits for it any more
      return;
    }
    this.waiting.delete(frame.id);
    this.pictures.get(frame)?.close();
    this.pictures.set(frame, picture);
    if (this.pictures.size === 1 || this.pictures.size % 8 === 0) {
      const bytes = picture.codedWidth ? picture.codedWidth * picture.codedHeight * 1.5 : picture.width * picture.height * 4;
      this.most = Math.max(6, Math.min(120, Math.floor(kMostDecoded / cameras.size / bytes)));
    }
    while (this.pictures.size > this.most) {
      this.#dropOne();
    }
    wake();
  }

  // Lets go of the picture that is needed least: the furthest from the one that is wanted, never that one. On a disk whose
  // time stamps are damaged many frames have one time: then it is the one that was kept first.
  #dropOne() {
    const distance = (frame) => (frame === this.wanted ? -1 : Math.abs(frame.time - this.wanted.time));
    let [furthest] = this.pictures.keys();
    for (const frame of this.pictures.keys()) {
      furthest = distance(frame) > distance(furthest) ? frame : furthest;
    }
    this.pictures.get(furthest)?.close();
    this.pictures.delete(furthest);
  }

  #fail() {
    for (const id of this.waiting.keys()) {
      this.failed.add(id);
    }
    this.waiting.clear();
    if (this.fed) {
      this.failed.add(this.fed.id);
    }
    this.codec = null;
    wake();
  }

  // Has the decoder give out what it holds back.
  async flush() {
    if (this.remote) {
      return; // every picture comes, or fails
    }
    const { run } = this;
    if (this.decoder?.state === "configured") {
      this.codec = null; // it wants a key frame next: what is asked for meanwhile begins again at one
      this.fed = null;
      await this.decoder.flush().catch(() => {});
      if (run !== this.run) {
        return; // it was begun again meanwhile, for other frames
      }
    }
    for (const id of this.waiting.keys()) {
      this.failed.add(id);
    }
    this.waiting.clear();
  }

  // Whether a frame's picture is what stands there afterwards. What stands there already is not drawn again.
  draw(frame) {
    const picture = this.pictures.get(frame);
    if (!picture || this.shown === frame) {
      return picture !== undefined;
    }
    const width = picture.displayWidth ?? picture.width;
    const height = picture.displayHeight ?? picture.height;
    if (this.canvas.width !== width || this.canvas.height !== height) {
      this.canvas.width = width;
      this.canvas.height = height;
    }
    this.context.drawImage(picture, 0, 0, this.canvas.width, this.canvas.height);
    this.shown = frame;
    return true;
  }

  forget() {
    for (const picture of this.pictures.values()) {
      picture.close();
    }
    this.pictures.clear();
    this.failed.clear();
    this.#restart();
    this.shown = null;
  }
}

let api;
let serverPictures = false; // whether the server can decode what this browser cannot
let all; // every frame
let keys; // key frames alone
let glance = null; // key frames of the place that is dragged over
let failing = false; // whether what was asked for last failed
const cameras = new Map();
let chosen = []; // channels shown
let time = 0;
let playing = null; // {rate, until, keysOnly, slow}
let work = 0; // number of what was asked last: what is older ends
let wakers = [];

function wake() {
  for (const waker of wakers.splice(0)) {
    waker();
  }
}

function nextFrame() {
  return new Promise((resolve) => {
    const timer = setTimeout(resolve, 16);
    if (self.requestAnimationFrame) {
      requestAnimationFrame(() => {
        clearTimeout(timer);
        resolve();
      });
    }
  });
}

function pictureOrTimeout(milliseconds) {
  return new Promise((resolve) => {
    wakers.push(resolve);
    setTimeout(resolve, milliseconds);
  });
}

// What a camera has to show at a time: {state, text, frame, place, frames}.
function viewOf(store, channel, at) {
  const frames = store.frames.get(channel) || [];
  const place = lastAt(frames, at);
  const frame = frames[place];
  const loss = store.lossAt(channel, at, frame ? frame.time : -Infinity);
  if (loss) {
    return { state: "missing", text: "here video is missing: " + loss.text };
  }
  if (!store.recorded(channel, at)) {
    return { state: "missing", text: "nothing was recorded at this time" };
  }
  if (!frame) {
    return { state: "missing", text: "no picture at or before this time" };
  }
  return { state: "picture", frame, place, frames };
}

function viewsAt(store, at) {
  return chosen.map((channel) => ({ channel, camera: cameras.get(channel), ...viewOf(store, channel, at) }));
}

function pending(views) {
  return views.filter((view) => view.frame && !view.camera.has(view.frame) && !view.camera.unsupported);
}

// Decodes until all cameras have their picture of a time. A camera is asked at every turn: one that has its picture keeps it
// then, and what was let go, or found no place among the pictures under way, is decoded again.
async function decodeAll(views, mine) {
  const ask = () => views.filter((view) => view.frame).forEach((view) => view.camera.feed(view.frames, view.place, 0));
  ask();
  for (let waited = 0; pending(views).length !== 0 && mine === work; ++waited) {
    await pictureOrTimeout(60);
    if (waited >= 3 && mine === work) {
      await Promise.all(pending(views).map((view) => view.camera.flush()));
    }
    if (mine === work) {
      ask();
    }
  }
}

let told = { what: "", at: -Infinity }; // what the page heard last, but for the time

function show(views, at) {
  time = at;
  const shown = {};
  for (const view of views) {
    let { state, text } = view;
    if (view.frame && !view.camera.draw(view.frame)) {
      state = "undecodable";
      text = view.camera.unsupported || "the picture cannot be decoded";
    }
    const { remote } = view.camera;
    shown[view.channel] = { state, text, remote, time: state === "picture" ? view.frame.time : null };
  }
  const what = JSON.stringify([shown, playing, work]);
  const now = performance.now();
  if (playing && what === told.what && now - told.at < kTell) {
    return;
  }
  told = { what, at: now };
  postMessage({
    type: "shown", time: at, cameras: shown, playing: playing !== null, keysOnly: playing?.keysOnly === true,
    slow: playing?.slow === true, work,
  });
}

function forgetPictures() {
  for (const camera of cameras.values()) {
    camera.forget();
  }
}

async function known(store, at, length) {
  if (!store.holds(at)) {
    store.reset(at);
    forgetPictures();
    await store.append(chosen, length);
  }
}

async function seek(at, mine) {
  await known(all, at, kFirst);
  if (mine !== work) {
    return;
  }
  const views = viewsAt(all, at);
  await decodeAll(views, mine);
  if (mine === work) {
    show(views, at);
    if (all.to - at < kAhead) {
      await all.append(chosen, kAhead);
    }
  }
}

// Shows the key frames at or before a time, while it is dragged about.
async function scrub(at, mine) {
  glance = new Store(api, "key");
  const store = glance; // another takes its place when the pointer moves on
  store.reset(at);
  await store.append(chosen, 1);
  if (mine !== work) {
    return;
  }
  const views = viewsAt(store, at);
  await decodeAll(views, mine);
  if (mine === work) {
    show(views, at);
  }
}

// The nearest time after or before the one shown at which any camera has a frame.
function neighbour(direction) {
  let nearest = null;
  for (const channel of chosen) {
    const frames = all.frames.get(channel) || [];
    const place = direction > 0 ? lastAt(frames, time) + 1 : lastAt(frames, time - 1);
    const frame = frames[place];
    if (frame && (nearest === null || (direction > 0 ? frame.time < nearest : frame.time > nearest))) {
      nearest = frame.time;
    }
  }
  return nearest;
}

async function step(direction, mine) {
  await known(all, time, kFirst);
  for (let tries = 0; tries < 8 && mine === work; ++tries) {
    const at = neighbour(direction);
    const inside = at !== null && (direction > 0 ? at < all.to : at >= all.from);
    if (inside) {
      const views = viewsAt(all, at);
      await decodeAll(views, mine);
      if (mine === work) {
        show(views, at);
      }
      break;
    }
    await (direction > 0 ? all.append(chosen, kAhead) : all.prepend(chosen, kAhead));
    if (tries === 7) {
      postMessage({ type: "end", direction });
    }
  }
  if (mine === work && direction > 0 && all.to - time < kAhead / 2) {
    all.append(chosen, kAhead).catch(() => {});
  }
}

// Whether the server decodes pictures: then it may be what is too slow.
function anyRemote() {
  return chosen.some((channel) => cameras.get(channel).remote);
}

function useKeysOnly(rate) {
  return rate < 0 || Math.abs(rate) >= kKeyRate;
}

async function play(mine) {
  const state = playing;
  let store = state.keysOnly ? keys : all;
  await known(store, time, store === keys ? kKeyStretch : kFirst);
  let base = time;
  let began = performance.now();
  let meter = { wall: began, time };
  while (mine === work) {
    const now = performance.now();
    let target = base + (now - began) * 1000 * state.rate;
    target = Math.min(target, state.until);
    fill(store, target);
    const limited = Math.min(Math.max(target, store.from), store.to - 1);
    const views = viewsAt(store, limited);
    for (const view of views) {
      if (view.frame) {
        view.camera.feed(view.frames, view.place, store === keys ? 1 : 12);
      }
    }
    if (pending(views).length === 0) {
      show(views, limited);
      store.forget(limited);
    }
    if (time !== target) {
      base = time; // what is late is not caught up with: all cameras wait together
      began = now;
    }
    if (time >= state.until || time <= 0) {
      stop();
      show(viewsAt(store, time), time);
      return;
    }
    if (now - meter.wall > 2000) {
      const achieved = (time - meter.time) / ((now - meter.wall) * 1000 * state.rate);
      if (achieved < 0.7 && !state.keysOnly && (store.loading === null || anyRemote()) && state.rate >= 1) {
        state.keysOnly = true;
        state.slow = true;
        store = keys;
        forgetPictures();
        await known(store, time, kKeyStretch);
      }
      meter = { wall: performance.now(), time };
    }
    await nextFrame();
  }
}

function tellOfFailure(error) {
  failing = true;
  postMessage({ type: "failure", text: error.message });
}

function tellOfWork() {
  if (failing) {
    failing = false;
    postMessage({ type: "recovery" });
  }
}

// Asks for what will be needed soon.
function fill(store, target) {
  const speed = Math.max(1, Math.abs(playing.rate));
  const wanted = Math.min(store.stretch * 2, Math.max(store.stretch / 2, kFeedAhead * speed * 8));
  const aborted = () => {}; // nothing else ends it
  if (store.loading === null && playing.rate > 0 && store.to - target < wanted) {
    store.append(chosen, store.stretch).catch(aborted);
  } else if (store.loading === null && playing.rate < 0 && target - store.from < wanted && store.from > 0) {
    store.prepend(chosen, store.stretch).catch(aborted);
  }
}

function stop() {
  playing = null;
}

async function still(channels) {
  for (const channel of channels) {
    const camera = cameras.get(channel);
    if (camera?.shown) {
      const blob = await camera.canvas.convertToBlob({ type: "image/png" });
      postMessage({ type: "still", channel, time: camera.shown.time, blob });
    }
  }
}

const actions = {
  init(message) {
    api = new Api(message.token);
    serverPictures = message.serverPictures;
    all = new Store(api, "all");
    keys = new Store(api, "key");
    for (const [channel, canvas] of message.canvases) {
      cameras.set(channel, new Camera(channel, canvas));
    }
    chosen = [...cameras.keys()];
  },
  seek: (message, mine) => (playing ? resume(message.time, mine) : seek(message.time, mine)),
  scrub: (message, mine) => scrub(message.time, mine),
  step(message, mine) {
    stop();
    return step(message.direction, mine);
  },
  play(message, mine) {
    const keysOnly = useKeysOnly(message.rate);
    playing = { rate: message.rate, until: message.until, keysOnly, slow: false };
    time = message.from ?? time;
    return play(mine);
  },
  async pause(message, mine) {
    const exact = playing?.keysOnly;
    stop();
    if (exact) {
      return seek(time, mine);
    }
    show(viewsAt(all, time), time);
  },
  choose(message, mine) {
    chosen = message.channels;
    all.reset(time);
    keys.reset(time);
    forgetPictures();
    return playing ? play(mine) : seek(time, mine);
  },
};

// Goes on playing from another time.
function resume(at, mine) {
  time = at;
  return play(mine);
}

onmessage = async (event) => {
  if (event.data.type === "still") {
    await still(event.data.channels);
    return;
  }
  const mine = event.data.work;
  work = mine;
  glance?.work.abort();
  try {
    await actions[event.data.type](event.data, mine);
  } catch (error) {
    if (mine === work && error.name !== "AbortError") {
      tellOfFailure(error);
    }
  }
  if (mine === work) {
    postMessage({ type: "idle", work });
  }
};
