// The log as columns: one entry a line in typed arrays. Messages stay with the workers.

import { plainText } from "./escape.js";

export const LEVELS = "DIWEF";
export const LEVEL_NAMES = ["Debug", "Info", "Warning", "Error", "Fatal"];

const PATIENCE_MS = 10000; // for one expression in one block
const CACHED_MESSAGES = 20000;

export const element = (id) => document.getElementById(id);

async function unpackText(base64) {
  const bytes = Uint8Array.from(atob(base64), (character) => character.charCodeAt(0));
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream("deflate-raw"));
  return new Response(stream).text();
}

class Log {
  constructor(head) {
    Object.assign(this, head);
    const { sources } = head;
    this.sourceCount = sources.tag.length;
    this.levelOf = Uint8Array.from(sources.level, (level) => Math.max(0, LEVELS.indexOf(level)));
    this.times = new Float64Array(this.lines); // since 1970, or since boot
    this.patternOf = new Uint32Array(this.lines);
    this.sourceOf = new Uint32Array(this.lines);
    this.blockStarts = [];
    head.blocks.reduce((start, lines) => (this.blockStarts.push(start), start + lines), 0);
  }

  // A place on an axis that never runs back, though clocks do: in milliseconds since the first line.
  settle() {
    this.at = new Float64Array(this.lines);
    for (let line = 1; line < this.lines; line++) {
      const step = this.times[line] - this.times[line - 1];
      this.at[line] = this.at[line - 1] + Math.max(0, step);
    }
    this.end = this.lines ? this.at[this.lines - 1] : 0;
    const count = this.patterns.length;
    this.firstOf = new Uint32Array(count).fill(this.lines);
    this.worstOf = new Uint8Array(count);
    for (let line = this.lines - 1; line >= 0; line--) {
      const pattern = this.patternOf[line];
      this.firstOf[pattern] = line;
      const level = this.levelOf[this.sourceOf[line]];
      if (level > this.worstOf[pattern]) this.worstOf[pattern] = level;
    }
  }

  // The first line at or behind a place on the axis; the number of lines where none is.
  lineAt(place) {
    let low = 0;
    for (let high = this.lines; low < high; ) {
      const middle = (low + high) >> 1;
      if (this.at[middle] < place) low = middle + 1;
      else high = middle;
    }
    return low;
  }

  // The time at a place on the axis, and whether it is one of a clock on the wall.
  timeAt(place) {
    const line = Math.max(0, Math.min(this.lines, this.lineAt(place + 0.5)) - 1);
    return [this.times[line] + place - this.at[line], this.isWall(line)];
  }

  isWall(line) {
    return this.boots[this.sources.boot[this.sourceOf[line]]].wall;
  }

  tag(line) {
    return this.tags[this.sources.tag[this.sourceOf[line]]];
  }
}

// Workers that hold the messages, each some of the blocks.
class Workers {
  constructor(log) {
    this.log = log;
    this.url = URL.createObjectURL(
      new Blob([element("worker").textContent], { type: "text/javascript" }),
    );
    this.cache = new Map();
    this.questions = new Map();
    this.asked = 0;
    this.searches = 0;
  }

  start() {
    const count = Math.max(1, Math.min(4, navigator.hardwareConcurrency, this.log.blocks.length));
    this.workers = Array.from({ length: count }, () => {
      const worker = new Worker(this.url);
      worker.onmessage = ({ data }) => this.take(data);
      worker.postMessage({ forms: this.forms });
      return worker;
    });
    return new Promise((resolve) => {
      this.missing = this.log.blocks.length;
      this.done = resolve;
      if (!this.missing) resolve();
      this.log.blocks.forEach((lines, block) => {
        const columns = element(`columns-${block}`).textContent;
        const text = element(`text-${block}`).textContent;
        this.of(block).postMessage({ block, lines, columns, text });
      });
    });
  }

  of(block) {
    return this.workers[block % this.workers.length];
  }

  take(data) {
    if (data.loaded !== undefined) {
      const start = this.log.blockStarts[data.loaded];
      this.log.times.set(data.times, start);
      this.log.patternOf.set(data.patterns, start);
      this.log.sourceOf.set(data.sources, start);
      if (--this.missing === 0) this.done();
    } else if (data.searched !== undefined) {
      this.onMask?.(data);
    } else {
      this.questions.get(data.answered)(data.messages);
      this.questions.delete(data.answered);
    }
  }

  // Messages of lines, in their order.
  async messages(lines) {
    const byWorker = this.workers.map(() => []);
    for (const line of lines) {
      if (this.cache.has(line)) continue;
      const block = this.blockOf(line);
      const entry = { block, line: line - this.log.blockStarts[block] };
      byWorker[block % this.workers.length].push([line, entry]);
    }
    await Promise.all(
      byWorker.map(async (entries, worker) => {
        if (!entries.length) return;
        const messages = await new Promise((resolve) => {
          this.questions.set(++this.asked, resolve);
          const asked = entries.map(([, entry]) => entry);
          this.workers[worker].postMessage({ id: this.asked, lines: asked });
        });
        entries.forEach(([line], i) => this.cache.set(line, messages[i]));
      }),
    );
    const result = lines.map((line) => this.cache.get(line));
    if (this.cache.size > CACHED_MESSAGES) this.cache.clear();
    return result;
  }

  blockOf(line) {
    let block = this.log.blockStarts.length - 1;
    while (this.log.blockStarts[block] > line) block--;
    return block;
  }

  // A mask of the lines that match; null when another search came in between. Throws an Error when
  // the expression takes too long: the workers are new then.
  search(expression) {
    const id = ++this.searches;
    const { source, flags } = expression;
    const mask = new Uint8Array(this.log.lines);
    let missing = this.log.blocks.length;
    if (this.cancel) this.cancel(null);
    return new Promise((resolve, reject) => {
      let timer;
      const end = (result) => {
        clearTimeout(timer);
        this.onMask = this.cancel = null;
        resolve(result);
      };
      const wait = () => {
        clearTimeout(timer);
        timer = setTimeout(async () => {
          this.onMask = this.cancel = null;
          this.workers.forEach((worker) => worker.terminate());
          this.questions.clear();
          await this.start();
          this.log.rebase();
          reject(new Error("This expression takes too long."));
        }, PATIENCE_MS);
      };
      this.cancel = end;
      this.onMask = (data) => {
        if (data.id !== id) return;
        mask.set(data.mask, this.log.blockStarts[data.searched]);
        wait();
        if (--missing === 0) end(mask);
      };
      wait();
      this.workers.forEach((worker) => worker.postMessage({ id, source, flags }));
    });
  }
}

// Unpacks the log of this page.
export async function loadLog() {
  const head = JSON.parse(await unpackText(element("head").textContent));
  const log = new Log(head);
  // Each block counts on from the last line of the one before.
  log.rebase = () => {
    for (let block = 1; block < log.blocks.length; block++) {
      const start = log.blockStarts[block];
      const base = log.times[start - 1];
      for (let line = start; line < start + log.blocks[block]; line++) log.times[line] += base;
    }
  };
  const workers = new Workers(log);
  workers.forms = head.forms.pattern.map((pattern, i) => ({ pattern, pieces: head.forms.pieces[i] }));
  await workers.start();
  log.rebase();
  log.settle();
  log.patternTexts = log.patterns.map(plainText);
  return { log, workers };
}

// Seconds with three decimals, or date and time of the wall clock; parts of it where asked for.
export function timeText(ms, wall, utc, part = "all") {
  if (!wall) return (ms / 1000).toFixed(part === "tick" && ms % 1000 === 0 ? 0 : 3);
  const date = new Date(utc ? ms : ms - new Date(ms).getTimezoneOffset() * 60000);
  if (Number.isNaN(date.getTime())) return (ms / 1000).toFixed(3);
  const iso = date.toISOString();
  const cut = iso.indexOf("T");
  const day = iso.slice(0, cut);
  const time = iso.slice(cut + 1, -1);
  if (part === "day") return day;
  if (part === "time") return time;
  if (part === "tick") return ms % 60000 === 0 ? time.slice(0, 5) : time.replace(/\.000$/, "");
  return `${day} ${time}`;
}

export function durationText(ms) {
  const seconds = Math.round(ms / 1000);
  if (ms < 10000) return `${(ms / 1000).toFixed(ms < 1000 ? 3 : 1)} s`;
  const units = [
    [Math.floor(seconds / 86400), "d"],
    [Math.floor(seconds / 3600) % 24, "h"],
    [Math.floor(seconds / 60) % 60, "min"],
    [seconds % 60, "s"],
  ];
  const first = units.findIndex(([amount]) => amount > 0);
  const told = units.slice(first, first + 2).filter(([amount]) => amount > 0);
  return told.map(([amount, unit]) => `${amount} ${unit}`).join(" ");
}

export const countText = (count) => count.toLocaleString("en-US");
