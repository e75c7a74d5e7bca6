// The page: what is on the disk, what is shown of it, and what the user wants.

import { Address } from "/address.js";
import { Api, insist, takeToken } from "/api.js";
import { Clock, kSecond, lengthText } from "/clock.js";
import { Order, moveCamera } from "/order.js";
import { Player } from "/player.js";
import { Sound } from "/sound.js";
import { Timeline } from "/timeline.js";

const find = (id) => document.getElementById(id);
const kWholeColumns = 8192;
const kPoll = 400; // milliseconds
const kStepsToFirst = 100;
const kRates = [0.0625, 0.125, 0.25, 0.5, 1, 2, 4, 8, 16];

const api = new Api(takeToken());
let info;
let clock;
let address;
let timeline;
let player;
let sound;
let journeys = [];
let folded = true;
let chosen = [];
let events = [];
let problems = []; // of the disk, as the server knows them
const lossesRead = []; // that frames showed when they were read: they stay when the problems are read again
let damages = []; // both
let exportNumber = null;
let stepsToFirst = 0; // may be made until a picture is shown

// Writes a text that most often stands there already: what does not change is not laid out again.
function put(element, text) {
  if (element.textContent !== text) {
    element.textContent = text;
  }
}

// Says what does not work, until it works again or the message is closed.
const complaints = new Map(); // texts, by what they are about

function complain(error, about = "page") {
  complaints.set(about, error.message || String(error));
  showComplaints();
}

function settle(about) {
  complaints.delete(about);
  showComplaints();
}

function closeMessage() {
  complaints.clear();
  showComplaints();
}

function showComplaints() {
  put(find("message-text"), [...complaints.values()].join(" "));
  find("message").hidden = complaints.size === 0;
}

function whole() {
  return { from: info.first * kSecond, to: (info.last + 1) * kSecond };
}

// What a camera is called.
function nameOf(channel) {
  const name = info.channel_names[info.channels.indexOf(channel)] ?? String(channel);
  return name === String(channel) ? "channel " + channel : name;
}

function makeCameras() {
  const canvases = new Map();
  for (const channel of info.channels) {
    const figure = document.createElement("figure");
    figure.dataset.channel = channel;
    figure.dataset.state = "loading";
    figure.tabIndex = 0;
    figure.setAttribute("aria-label", "Camera, " + nameOf(channel));
    const canvas = document.createElement("canvas");
    const caption = document.createElement("figcaption");
    caption.textContent = nameOf(channel);
    const text = document.createElement("p");
    figure.append(canvas, caption, text);
    figure.addEventListener("click", () => choose(chosen.length === 1 ? info.channels : [channel]));
    figure.addEventListener("keydown", (event) => event.key === "Enter" && figure.click());
    find("cameras").append(figure);
    canvases.set(channel, canvas.transferControlToOffscreen());
    const option = document.createElement("option");
    option.value = channel;
    option.textContent = nameOf(channel);
    find("sound").append(option);
  }
  return canvases;
}

function cancelExport() {
  if (exportNumber !== null) {
    api.json("/api/exports/" + exportNumber, { method: "DELETE" })
      .then(() => settle("export"), (error) => complain(error, "export"));
  }
}

function nextContainer() {
  const select = find("container");
  select.selectedIndex = (select.selectedIndex + 1) % select.options.length;
}

function figureOf(channel) {
  return document.querySelector(`figure[data-channel="${channel}"]`);
}

function choose(channels) {
  chosen = channels;
  for (const channel of info.channels) {
    figureOf(channel).hidden = !channels.includes(channel);
  }
  layOut();
  player.choose(channels);
}

// As many columns as make the pictures largest.
function layOut() {
  const { clientWidth, clientHeight } = find("cameras");
  let best = { size: 0, columns: 1 };
  for (let columns = 1; columns <= chosen.length; ++columns) {
    const rows = Math.ceil(chosen.length / columns);
    const size = Math.min(clientWidth / columns, (clientHeight / rows) * (16 / 9));
    if (size > best.size) {
      best = { size, columns };
    }
  }
  const rows = Math.ceil(chosen.length / best.columns);
  find("cameras").style.gridTemplateColumns = `repeat(${best.columns}, minmax(0, 1fr))`;
  find("cameras").style.gridTemplateRows = `repeat(${rows}, minmax(0, 1fr))`;
}

function showTime(time) {
  put(find("time"), clock.text(time));
  put(find("zone"), (info.zone || "local time") + " " + clock.offsetText(time) +
    (info.skew_seconds ? `, recorder's clock ${info.skew_seconds} s ahead` : ""));
  document.body.dataset.time = time;
  timeline.follow(time);
  const { from, to } = whole();
  const slider = find("timeline");
  slider.setAttribute("aria-valuenow", String(Math.round((100 * (time - from)) / Math.max(1, to - from))));
  slider.setAttribute("aria-valuetext", clock.text(time));
}

function stateText(shown) {
  if (!document.body.dataset.complete) {
    return "reading the disk";
  }
  if (!shown.playing) {
    return "paused";
  }
  const speed = find("rate").selectedOptions[0].textContent;
  const backwards = player.rate < 0 ? "backwards " : "";
  const why = shown.slow ? ": this machine cannot decode every frame in time" : "";
  return `playing ${backwards}${speed}` + (shown.keysOnly ? ", key frames only" + why : "");
}

function show(shown) {
  for (const channel of info.channels.filter((each) => each in shown.cameras)) {
    const camera = shown.cameras[channel];
    const figure = figureOf(channel);
    figure.dataset.state = camera.state;
    figure.dataset.time = camera.time ?? "";
    put(figure.querySelector("figcaption"), nameOf(channel) + (camera.remote ? ", pictures from the server" : ""));
    put(figure.querySelector("p"), camera.text || "");
  }
  document.body.dataset.playing = shown.playing;
  document.body.dataset.mode = shown.keysOnly ? "key" : "all";
  document.body.dataset.ready = "true";
  put(find("play"), shown.playing ? "❚❚" : "▶");
  find("play").setAttribute("aria-label", shown.playing ? "Pause" : "Play");
  put(find("state"), stateText(shown));
  showTime(shown.time);
  address.keep(shown.time);
  sound.follow(shown.time, shown.playing, player.rate);
  if (shown.playing) {
    stepsToFirst = 0;
    skipGap(shown);
  } else {
    findFirstPicture(shown);
  }
}

// The first second of a recording begins before its first frame, and that need not be a key frame.
function findFirstPicture(shown) {
  const any = Object.values(shown.cameras).some((camera) => camera.state === "picture");
  if (!any && stepsToFirst > 0) {
    --stepsToFirst;
    player.step(1);
  } else {
    stepsToFirst = 0;
  }
}

// Playing goes on at the next journey where nothing was recorded for a while.
function skipGap(shown) {
  const nothing = Object.values(shown.cameras).every((camera) => camera.state === "missing");
  const inside = journeys.some((journey) => journey.from <= shown.time && shown.time < journey.to);
  if (!nothing || inside || !document.body.dataset.complete) {
    return;
  }
  const next = player.rate > 0
    ? journeys.find((journey) => journey.from > shown.time)?.from
    : journeys.findLast((journey) => journey.to <= shown.time)?.to - 1;
  if (Number.isFinite(next)) {
    player.seek(next);
  } else {
    player.pause();
  }
}

function setRate(rate) {
  player.rate = rate;
  find("rate").value = String(Math.abs(rate));
  if (player.playing) {
    player.play(rate);
  }
}

function togglePlay() {
  if (player.playing) {
    player.pause();
  } else {
    player.play(Math.abs(player.rate));
    player.rate = Math.abs(player.rate);
  }
}

function reverse() {
  player.rate = -Math.max(1, Math.abs(player.rate));
  find("rate").value = String(Math.abs(player.rate));
  player.play(player.rate);
}

function goTo(time) {
  stepsToFirst = 0;
  const { from, to } = whole();
  player.seek(Math.min(Math.max(time, from), to - 1));
}

// Where a recording begins no camera may have a picture yet: then the first one is shown.
function goToBeginning(time) {
  goTo(time);
  stepsToFirst = kStepsToFirst;
}

function goToNext(times, direction, go = goTo) {
  const margin = kSecond / 1000;
  const next = direction > 0
    ? times.find((time) => time > player.time + margin)
    : times.findLast((time) => time < player.time - margin);
  if (next !== undefined) {
    go(next);
  }
}

const eventTimes = () => events.map((event) => event.time);
const goToJourney = (direction) => goToNext(journeys.map((journey) => journey.from), direction, goToBeginning);
const lossTimes = () =>
  damages.filter((damage) => damage.loss && damage.last !== 0xffffffff).map((damage) => damage.first * kSecond).sort((a, b) => a - b);

function mark(which, time) {
  timeline.marks[which] = time;
  const { from, to } = timeline.marks;
  const whole = from !== null && to !== null && from < to;
  find("marks").textContent =
    from === null && to === null ? "nothing marked"
    : `${from === null ? "..." : clock.text(from)} - ${to === null ? "..." : clock.text(to)}` + (whole ? `, ${lengthText(to - from)}` : "");
  find("preview").disabled = !whole;
  find("export").disabled = !whole || exportNumber !== null;
  timeline.draw();
}

function preview() {
  const { from, to } = timeline.marks;
  if (from !== null && to !== null && from < to) {
    player.rate = 1;
    find("rate").value = "1";
    player.play(1, from, to);
  }
}

async function startExport() {
  const { from, to } = timeline.marks;
  if (from === null || to === null || from >= to || exportNumber !== null) {
    return;
  }
  try {
    const asked = {
      from: Math.floor(from / kSecond),
      to: Math.floor(to / kSecond),
      channels: [...chosen].sort((a, b) => a - b).join(","),
      container: find("container").value,
    };
    const begun = await api.post("/api/exports", asked);
    exportNumber = begun.id;
    find("export-result").textContent = "exporting " + begun.file;
    find("export").disabled = true;
    find("cancel").hidden = false;
    find("export-progress").hidden = false;
    await watchExport(begun.id);
  } catch (error) {
    find("export-result").textContent = error.message;
  }
  exportNumber = null;
  find("cancel").hidden = true;
  find("export-progress").hidden = true;
  mark("to", timeline.marks.to);
}

async function watchExport(number) {
  for (;;) {
    const state = await api.json("/api/exports/" + number);
    find("export-progress").value = state.progress;
    if (state.state !== "running") {
      find("export-result").dataset.state = state.state;
      find("export-result").textContent = resultText(state);
      return;
    }
    await new Promise((resolve) => setTimeout(resolve, kPoll / 2));
  }
}

function resultText(state) {
  if (state.state !== "done") {
    return state.state === "cancelled" ? "cancelled; nothing was kept" : state.error;
  }
  const files = state.files.map((file) => `${file.file}, ${file.size_bytes} bytes, SHA-256 ${file.sha256}`).join("; ");
  const lost = state.losses ? `; ${state.losses} losses, see the manifest` : "";
  return `${files}; manifest ${state.manifest}${lost}`;
}

function saveStill({ channel, time, blob }) {
  const link = document.createElement("a");
  link.href = URL.createObjectURL(blob);
  link.download = `channel_${channel}_${clock.text(time).replace(" ", "_").replaceAll(":", "-")}.png`;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}

function fillList(id, entries, textOf, timeOf, classOf = () => "") {
  const kMost = 500;
  find(id).replaceChildren(
    ...entries.slice(0, kMost).map((entry) => {
      const button = document.createElement("button");
      button.textContent = textOf(entry);
      button.className = classOf(entry);
      button.addEventListener("click", () => goTo(timeOf(entry)));
      const item = document.createElement("li");
      item.append(button);
      return item;
    }),
  );
}

function eventText(event) {
  const camera = event.channel === null ? "" : ", " + nameOf(event.channel);
  const unnamed = event.event_names.startsWith("0x") ? "type " : "";
  return `${clock.text(event.time)}  ${unnamed}${event.event_names}${camera}`;
}

const stretchQuery = (from, to, more = {}) =>
  new URLSearchParams({ from: Math.max(0, Math.floor(from)), to: Math.max(0, Math.ceil(to)), ...more });

// What the disk holds, again and again until all of it has been read.
async function readAll() {
  while (!await insist(readSome, (error) => complain(error, "disk"), () => settle("disk"))) {
    await new Promise((resolve) => setTimeout(resolve, kPoll));
  }
}

// What has been read of the disk so far. Gives whether that is all of it.
async function readSome() {
  info = await api.json("/api/info");
  const { from, to } = whole();
  const everything = await api.json("/api/coverage?" + stretchQuery(from, to, { width: kWholeColumns }));
  journeys = everything.journeys.map(([first, last]) => ({ from: first * kSecond, to: (last + 1) * kSecond }));
  timeline.coverage = everything.channels;
  timeline.setJourneys(journeys, folded);
  if (!everything.complete) {
    find("state").textContent = `reading the disk: ${Math.round(everything.progress * 100)} %`;
    return false;
  }
  await readLists();
  if (everything.error) {
    complain(everything.error);
  }
  document.body.dataset.complete = "true";
  find("state").textContent = "paused";
  return true;
}

async function readLists() {
  const all = stretchQuery(0, 4294967295 * kSecond);
  events = (await api.json("/api/events?" + all)).events;
  problems = (await api.json("/api/damage?" + all)).problems;
  timeline.events = events;
  showDamages();
}

function showDamages() {
  damages = [...problems, ...lossesRead.filter((loss) => !problems.some((problem) => problem.text === loss.text))];
  timeline.damages = damages;
  timeline.draw();
  showLists();
}

function showLists() {
  fillList("events", events, eventText, (event) => event.time);
  fillList("damages", damages, (damage) => damage.text, (damage) => damage.first * kSecond,
    (damage) => (damage.loss ? "loss" : ""));
}

// What is lost among the frames of a block shows only when they are read. Where no frame was read before it or after it, it
// is listed at the time that had been reached.
function addLoss({ channel, before, after, text, time }) {
  if (damages.some((damage) => damage.text === text)) {
    return;
  }
  const first = before ?? Math.min(time, after ?? time);
  const end = after ?? Math.max(time, first) + kSecond;
  lossesRead.push({ first: first / kSecond, last: end / kSecond - 1, channel, text, loss: true });
  showDamages();
}

// The stretch in sight, as finely as it can be drawn.
let detail = 0;
async function readDetail() {
  const mine = ++detail;
  await new Promise((resolve) => setTimeout(resolve, 120));
  if (mine !== detail) {
    return;
  }
  const { from, to } = timeline.span;
  const answer = await api.json("/api/coverage?" + stretchQuery(from, to, { width: Math.min(8000, timeline.columns) }));
  if (mine === detail) {
    timeline.coverage = answer.channels;
    timeline.draw();
    settle("timeline");
  }
}

const keys = [
  [" ", "Space", "play or pause", togglePlay],
  ["ArrowRight", "Right", "one frame on", () => player.step(1)],
  ["ArrowLeft", "Left", "one frame back", () => player.step(-1)],
  ["Shift+ArrowRight", "Shift+Right", "10 seconds on", () => goTo(player.time + 10 * kSecond)],
  ["Shift+ArrowLeft", "Shift+Left", "10 seconds back", () => goTo(player.time - 10 * kSecond)],
  ["b", "B", "backwards by key frames", reverse],
  ["+", "+", "faster", () => changeRate(1)],
  ["-", "-", "slower", () => changeRate(-1)],
  ["n", "N", "next event", () => goToNext(eventTimes(), 1)],
  ["p", "P", "previous event", () => goToNext(eventTimes(), -1)],
  ["j", "J", "next journey", () => goToJourney(1)],
  ["J", "Shift+J", "previous journey", () => goToJourney(-1)],
  ["l", "L", "next loss", () => goToNext(lossTimes(), 1)],
  ["L", "Shift+L", "previous loss", () => goToNext(lossTimes(), -1)],
  ["Home", "Home", "start of the recordings", () => goToBeginning(whole().from)],
  ["End", "End", "end of the recordings", () => goTo(whole().to - 1)],
  ["i", "I", "mark the start", () => mark("from", player.time)],
  ["o", "O", "mark the end", () => mark("to", player.time)],
  ["v", "V", "play the marked range", preview],
  ["e", "E", "export the marked range", startExport],
  ["c", "C", "cancel the export", cancelExport],
  ["x", "X", "the type of file that is exported", nextContainer],
  ["s", "S", "save pictures of the cameras shown", () => player.still(chosen)],
  ["m", "M", "sound of the next channel, or none", nextSound],
  ["0", "0", "all cameras", () => choose(info.channels)],
  ["digit", "1 to 9", "one camera", null],
  ["[", "[", "the chosen camera one place back (Tab chooses)", () => moveCamera(-1)],
  ["]", "]", "the chosen camera one place on", () => moveCamera(1)],
  ["drag", "Drag", "a camera to the place of another; by touch, hold it first", null],
  ["g", "G", "fold long gaps, or not", toggleFold],
  ["ArrowUp", "Up", "zoom the timeline in", () => timeline.zoom(0.5)],
  ["ArrowDown", "Down", "zoom the timeline out", () => timeline.zoom(2)],
  ["a", "A", "the whole timeline", () => timeline.showAll()],
  [",", ",", "move the timeline back", () => timeline.pan(-0.5)],
  [".", ".", "move the timeline on", () => timeline.pan(0.5)],
  ["Escape", "Escape", "close the message", closeMessage],
  ["?", "?", "this list", showKeys],
];

function changeRate(direction) {
  const at = kRates.indexOf(Math.abs(player.rate));
  const rate = kRates[Math.min(kRates.length - 1, Math.max(0, at + direction))];
  setRate(Math.sign(player.rate) * rate);
}

function nextSound() {
  const select = find("sound");
  select.selectedIndex = (select.selectedIndex + 1) % select.options.length;
  select.dispatchEvent(new Event("change"));
}

function toggleFold() {
  folded = !folded;
  find("fold").setAttribute("aria-pressed", String(folded));
  find("fold").textContent = folded ? "Gaps folded" : "Gaps shown";
  timeline.setJourneys(journeys, folded);
}

function showKeys() {
  const table = find("key-table");
  table.replaceChildren(
    ...keys.map(([, name, meaning]) => {
      const row = document.createElement("tr");
      for (const text of [name, meaning]) {
        const cell = document.createElement("td");
        cell.textContent = text;
        row.append(cell);
      }
      return row;
    }),
  );
  find("keys").showModal();
}

function takeKey(event) {
  if (event.target.matches("select, input") || event.ctrlKey || event.metaKey || event.altKey || find("keys").open) {
    return;
  }
  if (event.target.matches("button") && event.key === " ") {
    return; // it presses the button
  }
  if (event.key >= "1" && event.key <= "9" && info.channels[Number(event.key) - 1] !== undefined) {
    choose([info.channels[Number(event.key) - 1]]);
    return;
  }
  const name = event.shiftKey && event.key.startsWith("Arrow") ? "Shift+" + event.key : event.key;
  const key = keys.find(([each]) => each === name);
  if (key?.[3]) {
    event.preventDefault();
    key[3]();
  }
}

function connect() {
  const press = {
    play: togglePlay, reverse, "step-back": () => player.step(-1), "step-forward": () => player.step(1),
    "previous-alarm": () => goToNext(eventTimes(), -1), "next-alarm": () => goToNext(eventTimes(), 1),
    "previous-journey": () => goToJourney(-1), "next-journey": () => goToJourney(1),
    "previous-loss": () => goToNext(lossTimes(), -1), "next-loss": () => goToNext(lossTimes(), 1), "mark-in": () => mark("from", player.time),
    "mark-out": () => mark("to", player.time), preview, export: startExport, fold: toggleFold, help: showKeys,
    still: () => player.still(chosen),
    cancel: cancelExport, "close-message": closeMessage,
  };
  for (const [id, action] of Object.entries(press)) {
    find(id).addEventListener("click", action);
  }
  find("rate").addEventListener("change", () => setRate(Math.sign(player.rate) * Number(find("rate").value)));
  find("sound").addEventListener("change", () => {
    sound.stop();
    sound.channel = find("sound").value === "" ? null : Number(find("sound").value);
  });
  document.addEventListener("keydown", takeKey);
  timeline.addEventListener("seek", (event) => goTo(event.detail.time));
  timeline.addEventListener("scrub", (event) => player.scrub(event.detail.time));
  timeline.addEventListener("view", () => readDetail().catch((error) => complain(error, "timeline")));
  player.addEventListener("shown", (event) => show(event.detail));
  player.addEventListener("busy", () => (document.body.dataset.busy = "true"));
  player.addEventListener("idle", () => (document.body.dataset.busy = "false"));
  player.addEventListener("loss", (event) => addLoss(event.detail.loss));
  player.addEventListener("still", (event) => saveStill(event.detail));
  player.addEventListener("failure", (event) => complain(event.detail.text, "frames"));
  player.addEventListener("recovery", () => settle("frames"));
  new Order(find("cameras"));
  new ResizeObserver(layOut).observe(find("cameras"));
  setInterval(() => (document.body.dataset.soundLevel = sound.level().toFixed(3)), 200);
}

async function start() {
  if (!api.token) {
    throw new Error("This page was opened without its key. Open the address that the program printed.");
  }
  info = await api.json("/api/info");
  find("vehicle").textContent = [info.vehicle_number, info.description].filter(Boolean).join(", ") || info.source;
  find("source").textContent = info.source;
  document.title = (info.vehicle_number || info.source) + " - diskaccess";
  clock = new Clock(info.skew_seconds, info.zone_offsets, info.zone);
  timeline = new Timeline(find("timeline"), clock);
  timeline.channels = info.channels;
  timeline.names = info.channels.map(nameOf);
  timeline.eventText = eventText;
  sound = new Sound(api);
  if (info.channels.length === 0) {
    throw new Error(info.locked_channels ? "All cameras are locked: start the viewer with the disk's password."
      : "The disk holds no recordings.");
  }
  player = new Player(api.token, makeCameras(), info.server_pictures);
  connect();
  address = new Address(clock, goTo);
  choose(info.channels);
  if (address.time === null) {
    goToBeginning(whole().from);
  } else {
    goTo(address.time);
  }
  await readAll();
}

start().catch((error) => complain(error));
