// The sound of one channel: A-law, mu-law and PCM, which browsers need no decoder for.

import { kRecord, readFrames } from "/api.js";
import { kSecond } from "/clock.js";

const kAhead = 10 * kSecond; // asked for at once
const kJoin = 0.06; // seconds: pieces that follow each other this closely are joined

function aLaw(byte) {
  const value = byte ^ 0x55;
  const exponent = (value >> 4) & 7;
  const mantissa = ((value & 15) << 4) + (exponent ? 0x108 : 8);
  const sample = exponent > 1 ? mantissa << (exponent - 1) : mantissa;
  return (value & 0x80 ? sample : -sample) / 32768;
}

function muLaw(byte) {
  const value = ~byte & 0xff;
  const sample = ((((value & 15) << 3) + 0x84) << ((value >> 4) & 7)) - 0x84;
  return (value & 0x80 ? -sample : sample) / 32768;
}

const kTables = {
  pcm_alaw: Float32Array.from({ length: 256 }, (_, byte) => aLaw(byte)),
  pcm_mulaw: Float32Array.from({ length: 256 }, (_, byte) => muLaw(byte)),
};

// Samples of a frame; null for a codec that is not one of these.
export function samplesOf(codec, data) {
  if (kTables[codec]) {
    return Float32Array.from(data, (byte) => kTables[codec][byte]);
  }
  if (codec === "pcm_s16le") {
    const view = new DataView(data.buffer, data.byteOffset, data.length);
    return Float32Array.from({ length: data.length >> 1 }, (_, i) => view.getInt16(2 * i, true) / 32768);
  }
  return null;
}

export class Sound {
  #api;
  #context = null;
  #analyser = null;
  #anchor = null; // {time: on the recorder's clock, at: on the context's}
  #end = 0; // of the last piece, on the context's clock
  #asked = 0; // frames up to here are asked for
  #work = null; // ends what is under way
  channel = null;

  constructor(api) {
    this.#api = api;
  }

  // Called again and again while pictures play, with the time that they show.
  follow(time, playing, rate) {
    if (this.channel === null || !playing || rate !== 1) {
      this.stop();
      return;
    }
    const late = this.#anchor && this.#context ? this.#mediaTime() - time : 0;
    if (!this.#work || Math.abs(late) > 0.15 * kSecond) {
      this.stop();
      this.#begin(time);
    } else if (this.#asked - time < kAhead / 2) {
      this.#fetch(this.#asked);
    }
  }

  stop() {
    if (this.#work) {
      this.#work.abort();
      this.#work = null;
      this.#context?.close();
      this.#context = null;
      this.#anchor = null;
    }
  }

  // From 0 to 1: how loud what is heard is.
  level() {
    if (!this.#analyser || !this.#context) {
      return 0;
    }
    const samples = new Float32Array(this.#analyser.fftSize);
    this.#analyser.getFloatTimeDomainData(samples);
    return Math.sqrt(samples.reduce((sum, sample) => sum + sample * sample, 0) / samples.length);
  }

  #mediaTime() {
    return this.#anchor.time + (this.#context.currentTime - this.#anchor.at) * kSecond;
  }

  #begin(time) {
    this.#work = new AbortController();
    this.#asked = time;
    this.#anchor = { time, at: 0, begun: performance.now() };
    this.#fetch(time);
  }

  #fetch(from) {
    this.#asked = from + kAhead;
    const { signal } = this.#work;
    let codec = null;
    const query = { from: Math.max(0, Math.floor(from)), to: Math.floor(from + kAhead) - 1, channels: this.channel, kind: "audio", start: "exact" };
    readFrames(this.#api, query, (record) => {
      if (signal.aborted) {
        return;
      }
      if (record.kind === kRecord.codec) {
        codec = record.document;
        this.#open(codec);
      } else if (record.kind === kRecord.audio && codec) {
        this.#schedule(record, codec);
      }
    }, signal).catch(() => {});
  }

  #open(codec) {
    if (!this.#context && codec.sample_rate) {
      this.#context = new AudioContext({ sampleRate: codec.sample_rate });
      this.#analyser = new AnalyserNode(this.#context);
      this.#analyser.connect(this.#context.destination);
      // Pictures went on while the first sound was fetched.
      this.#anchor.time += (performance.now() - this.#anchor.begun) * 1000;
      this.#anchor.at = this.#context.currentTime;
      this.#end = 0;
    }
  }

  #schedule(record, codec) {
    const samples = samplesOf(codec.codec, record.data);
    if (!samples || samples.length === 0 || !this.#context) {
      return;
    }
    const buffer = this.#context.createBuffer(1, samples.length, codec.sample_rate);
    buffer.copyToChannel(samples, 0);
    let at = this.#anchor.at + (record.time - this.#anchor.time) / kSecond;
    if (Math.abs(at - this.#end) < kJoin) {
      at = this.#end;
    }
    if (at < this.#context.currentTime) {
      return;
    }
    const piece = new AudioBufferSourceNode(this.#context, { buffer });
    piece.connect(this.#analyser);
    piece.start(at);
    this.#end = at + buffer.duration;
  }
}
