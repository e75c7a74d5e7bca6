// What the server is asked. Every request carries the token that came with the address.

const kTokenName = "diskaccess-token";
const kUnauthorized = 401;
const kOtherKey = "This page's key is not the viewer's. Open the address that the program printed last.";
const kNoAnswer = "The viewer does not answer. Start it again if it has ended, and open the address that it prints.";

const kFirstPause = 500; // milliseconds before what failed is asked for again
const kLongestPause = 4000;

// Does it again, less and less often, until it works or is not wanted any more: the page goes on by itself then. Failures are
// told as they come, with failed(error), and worked() is called in the end.
export async function insist(work, failed, worked, signal = new AbortController().signal) {
  for (let pause = kFirstPause; ; pause = Math.min(2 * pause, kLongestPause)) {
    try {
      const result = await work();
      worked();
      return result;
    } catch (error) {
      signal.throwIfAborted();
      failed(error);
    }
    await new Promise((resolve) => setTimeout(resolve, pause));
    signal.throwIfAborted();
  }
}

// Takes the token out of the address, so that it is in no link that is copied, and keeps it for this tab.
export function takeToken() {
  const parts = new URLSearchParams(location.hash.slice(1));
  const token = parts.get("token");
  if (token) {
    sessionStorage.setItem(kTokenName, token);
    parts.delete("token");
    history.replaceState(null, "", parts.size ? "#" + parts : location.pathname);
  }
  return sessionStorage.getItem(kTokenName) || "";
}

export class Api {
  constructor(token) {
    this.token = token;
  }

  async fetch(path, options = {}) {
    const response = await fetch(path, {
      ...options,
      headers: { Authorization: "Bearer " + this.token },
      cache: "no-store",
    }).catch((error) => {
      throw error.name === "AbortError" ? error : new Error(kNoAnswer);
    });
    if (response.status === kUnauthorized) {
      throw new Error(kOtherKey);
    }
    if (!response.ok) {
      const answer = await response.json().catch(() => ({}));
      throw new Error(answer.error || "the server answers " + response.status);
    }
    return response;
  }

  async json(path, options) {
    return (await this.fetch(path, options)).json();
  }

  post(path, value) {
    return this.json(path, { method: "POST", body: JSON.stringify(value) });
  }
}

export const kRecord = { picture: 0, key: 1, audio: 2, jpeg: 3, loss: 16, codec: 17, end: 18 };

const kHeadBytes = 16;

// Hands each record of a stream of frames to take(record) as it comes: {kind, channel, time, data}, or for the kinds that
// are documents {kind, channel, time, document}. Throws when the stream was cut off.
export async function readFrames(api, query, take, signal) {
  const response = await api.fetch("/api/frames?" + new URLSearchParams(query), { signal });
  const reader = response.body.getReader();
  let rest = new Uint8Array(0);
  let ended = false;
  for (;;) {
    const { done, value } = await reader.read();
    if (done) {
      break;
    }
    rest = joined(rest, value);
    let at = 0;
    while (rest.length - at >= kHeadBytes) {
      const head = new DataView(rest.buffer, rest.byteOffset + at, kHeadBytes);
      const length = head.getUint32(0, true);
      if (rest.length - at - kHeadBytes < length) {
        break;
      }
      const data = rest.slice(at + kHeadBytes, at + kHeadBytes + length);
      const record = { kind: head.getUint8(4), channel: head.getUint8(5), time: Number(head.getBigInt64(8, true)), data };
      if (record.kind >= kRecord.loss) {
        record.document = JSON.parse(new TextDecoder().decode(data));
      }
      ended = ended || record.kind === kRecord.end;
      take(record);
      at += kHeadBytes + length;
    }
    rest = rest.subarray(at);
  }
  if (!ended) {
    throw new Error("the disk was cut off while it was read");
  }
}

function joined(a, b) {
  if (a.length === 0) {
    return b;
  }
  const both = new Uint8Array(a.length + b.length);
  both.set(a);
  both.set(b, a.length);
  return both;
}
