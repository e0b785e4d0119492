// The log as columns: one entry a line in typed arrays. Messages stay with the workers.

import {element} from './dom.js';
import {plainText} from './escape.js';
import {Workers} from './workers.js';

export const LEVELS = 'DIWEF';
export const LEVEL_NAMES = ['Debug', 'Info', 'Warning', 'Error', 'Fatal'];
export const FACETS = ['level', 'tag', 'pid', 'tid', 'host', 'boot', 'change'];

const CUT_SHARE = 0.03;  // of the axis that a long break may take

// A source is what lines have in common: level, tag, process, thread and boot.
export class Log {
  constructor(head) {
    const {sources} = head;
    this.lines = head.lines;
    this.marks = head.marks;
    this.setBy = new Map(head.clocks_set);
    this.boots = head.boots;
    this.mixed = new Set(head.boots.map((boot) => boot.wall)).size > 1;
    this.hosts = new Set(head.boots.map((boot) => boot.host));
    this.tags = head.tags;
    this.tagWidths = head.tag_widths;
    this.widths = head.widths;
    this.patterns = head.patterns;
    this.blocks = head.blocks;
    this.sources = sources;
    this.sourceCount = sources.tag.length;
    this.levelOf = Uint8Array.from(
        sources.level, (code) => Math.max(0, LEVELS.indexOf(String.fromCharCode(code))));
    this.times = new Float64Array(this.lines);  // since 1970, or since boot
    this.patternOf = new Uint32Array(this.lines);
    this.sourceOf = new Uint32Array(this.lines);
    this.blockStarts = [];
    head.blocks.reduce((start, lines) => (this.blockStarts.push(start), start + lines), 0);
    this.facets = Object.fromEntries(FACETS.map((facet) => [facet, this.facet(facet)]));
    this.patternTexts = this.patterns.map(plainText);
  }

  // The values of a facet, as text, and which of them each source has.
  facet(name) {
    const numbers = new Map();
    const of = Uint32Array.from(this.sources.tag, (_, source) => {
      const value = this.valueOf(name, source);
      if (!numbers.has(value)) numbers.set(value, numbers.size);
      return numbers.get(value);
    });
    return {values: [...numbers.keys()], of};
  }

  valueOf(facet, source) {
    if (facet === 'level') return LEVELS[this.levelOf[source]];
    if (facet === 'tag') return this.tags[this.sources.tag[source]];
    if (facet === 'host') return this.boots[this.sources.boot[source]].host;
    if (facet === 'boot') return String(this.sources.boot[source] + 1);
    return String(this.sources[facet][source]);
  }

  // Takes the columns of a block.
  take({loaded, times, patterns, sources}) {
    const start = this.blockStarts[loaded];
    this.times.set(times, start);
    this.patternOf.set(patterns, start);
    this.sourceOf.set(sources, start);
  }

  // Each block counts on from the last line of the one before.
  rebase() {
    for (let block = 1; block < this.blocks.length; block++) {
      const start = this.blockStarts[block];
      const base = this.times[start - 1];
      const end = start + this.blocks[block];
      for (let line = start; line < end; line++) this.times[line] += base;
    }
  }

  // Places lines on an axis that never runs back, though clocks do: in milliseconds since the first
  // line. Where a long break would leave the lines no room, the axis is cut.
  settle() {
    const steps = new Map(this.marks.map(([line]) => [line, Math.max(0, this.step(line))]));
    let busy = 0;
    for (let line = 1; line < this.lines; line++) {
      if (!steps.has(line)) busy += Math.max(0, this.step(line));
    }
    const most = Math.max(1000, CUT_SHARE * busy);
    this.cuts = [];  // [line behind it, its milliseconds]
    this.at = new Float64Array(this.lines);
    for (let line = 1; line < this.lines; line++) {
      let step = Math.max(0, this.step(line));
      if (step > most && steps.has(line)) {
        this.cuts.push([line, step]);
        step = most;
      }
      this.at[line] = this.at[line - 1] + step;
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

  // Milliseconds since the line before, without what the clock was set by; nothing where one of the
  // times is of a clock and the other one since boot.
  step(line) {
    if (line === 0 || (this.mixed && this.isWall(line) !== this.isWall(line - 1))) return 0;
    const step = this.times[line] - this.times[line - 1];
    return this.setBy.has(line) && this.bootOf(line) === this.bootOf(line - 1) ?
        step - this.setBy.get(line) :
        step;
  }

  // The first line at or behind a place on the axis; the number of lines where none is.
  lineAt(place) {
    return lowerBound(this.at, this.lines, place);
  }

  // The time at a place on the axis, and whether it is one of a clock on the wall.
  timeAt(place) {
    const line = Math.max(0, Math.min(this.lines, this.lineAt(place + 0.5)) - 1);
    return {ms: this.times[line] + place - this.at[line], wall: this.isWall(line)};
  }

  bootOf(line) {
    return this.boots[this.sources.boot[this.sourceOf[line]]];
  }

  isWall(line) {
    return this.bootOf(line).wall;
  }

  // Whether the time of a line is the latest possible: what tells the right one is lost.
  isLatest(line) {
    return this.sources.latest[this.sourceOf[line]] === 1;
  }

  level(line) {
    return this.levelOf[this.sourceOf[line]];
  }

  // What lies between two lines, the later one included.
  marksIn(before, line) {
    let mark = lowerBound(this.marks, this.marks.length, before + 1, (entry) => entry[0]);
    const kinds = [];
    for (; mark < this.marks.length && this.marks[mark][0] <= line; mark++) {
      kinds.push(this.marks[mark][1]);
    }
    return kinds;
  }
}

// The first place in what is sorted that holds at least the value; the end where none does.
export function lowerBound(sorted, end, value, key = (entry) => entry) {
  let low = 0;
  for (let high = end; low < high;) {
    const middle = (low + high) >> 1;
    if (key(sorted[middle]) < value)
      low = middle + 1;
    else
      high = middle;
  }
  return low;
}

async function unpackText(base64) {
  const bytes = Uint8Array.from(atob(base64), (character) => character.charCodeAt(0));
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream('deflate-raw'));
  return new Response(stream).text();
}

// Unpacks the log of this page.
export async function loadLog() {
  const head = JSON.parse(await unpackText(element('head').textContent));
  const log = new Log(head);
  const workers = new Workers(log, head.forms);
  await workers.start();
  log.rebase();
  log.settle();
  return {log, workers, head};
}
