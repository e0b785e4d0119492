// Lines over time, stacked by level; below it all of the log, and which part is shown.

import {element} from './dom.js';
import {LEVEL_NAMES, LEVELS} from './log.js';
import {state, update} from './state.js';
import {countText, durationText, plural, timeText, zoneOffset} from './words.js';

const PITCH = 4;  // pixels from bar to bar
const LEAST = 2;  // pixels of a level that is worth a look
const WARNING = 2;
const DRAGGED = 4;    // pixels from which on a click is a drag
const TICK_GAP = 90;  // pixels
const AXIS = 18;      // pixels
const TOP = 14;       // pixels, for the marks' names
const TICKS = [
  1,        2,        5,        10,        20,        50,         100,       200,
  500,      1000,     2000,     5000,      10000,     15000,      30000,     60000,
  120000,   300000,   600000,   900000,    1800000,   3600000,    7200000,   10800000,
  21600000, 43200000, 86400000, 172800000, 604800000, 1209600000, 2419200000
];

export class Timeline {
  constructor(view) {
    this.view = view;
    this.canvas = element('timeline');
    this.overview = element('overview');
    this.hint = element('hint');
    this.onDrag(
        this.canvas, () => this.range(), (place) => view.lines.jump(view.log.lineAt(place)));
    this.onDrag(this.overview, () => this.whole(), (place) => this.center(place));
    this.canvas.addEventListener('pointermove', (event) => this.showHint(event));
    this.canvas.addEventListener('pointerleave', () => (this.hint.hidden = true));
    this.canvas.addEventListener('dblclick', () => update({span: null}));
    element('zoom-in').addEventListener('click', () => this.zoom(0.5));
    element('zoom-out').addEventListener('click', () => this.zoom(2));
    element('zoom-all').addEventListener('click', () => update({span: null}));
    element('time').addEventListener('keydown', (event) => this.onKey(event));
    new ResizeObserver(() => this.refresh()).observe(this.canvas);
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => this.refresh());
  }

  whole() {
    return [0, Math.max(1, this.view.log.end)];
  }

  // Where the axis begins and ends.
  range() {
    const {at} = this.view.log;
    if (!state.span) return this.whole();
    if (state.span === this.asked?.span) return this.asked.range;
    const [first, last] = state.span;
    return [at[first], Math.max(at[first] + 1, at[last - 1])];
  }

  // Shows a part of the axis, if there are lines in it.
  show(from, to) {
    const {log, say} = this.view;
    const span = [log.lineAt(from), log.lineAt(to + 0.5)];
    if (span[0] >= span[1]) return say('No lines there');
    const all = span[0] === 0 && span[1] === log.lines;
    // The part may be wider than its lines: from there one zooms and moves on.
    this.asked = {span, range: [from, to]};
    update({span: all ? null : span});
  }

  zoom(factor) {
    const [from, to] = this.range();
    const {log} = this.view;
    const selected = state.line === null ? -1 : log.at[state.line];
    const middle = selected >= from && selected <= to ? selected : (from + to) / 2;
    this.center(middle, Math.max(2, (to - from) * factor));
  }

  // Shows as much as now, or of another size, around a place.
  center(place, size = this.range()[1] - this.range()[0]) {
    const {end} = this.view.log;
    const start = Math.max(0, Math.min(end - size, place - size / 2));
    this.show(start, Math.min(end, start + size));
  }

  // Along the axis; where no lines are, to the next that are.
  move(step) {
    const [from, to] = this.range();
    const {log} = this.view;
    const next = step < 0 ? log.lineAt(to + step + 0.5) - 1 : log.lineAt(from + step);
    const place = log.at[next];
    const isIn = place >= from + step && place <= to + step;
    this.center(isIn ? (from + to) / 2 + step : place);
  }

  onKey(event) {
    if (event.altKey || event.ctrlKey || event.metaKey) return;
    if (event.target !== event.currentTarget) return;
    const [from, to] = this.range();
    const action = {
      '+': () => this.zoom(0.5),
      '-': () => this.zoom(2),
      '0': () => update({span: null}),
      'ArrowLeft': () => this.move(-(to - from) / 4),
      'ArrowRight': () => this.move((to - from) / 4),
    }[event.key];
    if (!action) return;
    event.preventDefault();
    action();
  }

  // Dragging chooses a part of the range of a canvas, a click a place in it.
  onDrag(canvas, rangeOf, onClick) {
    const placeAt = (x) => {
      const [from, to] = rangeOf();
      const share = Math.max(0, Math.min(1, x / canvas.clientWidth));
      return from + share * (to - from);
    };
    canvas.addEventListener('pointerdown', (event) => {
      if (event.button !== 0) return;
      canvas.setPointerCapture(event.pointerId);
      this.drag = {canvas, from: event.offsetX, to: event.offsetX};
    });
    canvas.addEventListener('pointermove', (event) => {
      if (this.drag?.canvas !== canvas) return;
      this.drag.to = event.offsetX;
      this.draw();
    });
    canvas.addEventListener('pointercancel', () => {
      this.drag = null;
      this.draw();
    });
    canvas.addEventListener('pointerup', (event) => {
      if (this.drag?.canvas !== canvas) return;
      const [low, high] = [this.drag.from, event.offsetX].sort((a, b) => a - b);
      this.drag = null;
      if (high - low < DRAGGED)
        onClick(placeAt(low));
      else
        this.show(placeAt(low), placeAt(high));
      this.draw();
    });
  }

  // Counts the lines anew.
  refresh() {
    const {log, filter} = this.view;
    this.colors = this.readColors();
    const all = {length: log.lines, lineOf: (index) => index};
    const shown = {length: filter.lines.length, lineOf: (index) => filter.lines[index]};
    this.bins = this.count(this.canvas, this.range(), shown);
    if (this.allBins?.width !== this.overview.clientWidth) {
      this.allBins = this.count(this.overview, this.whole(), all);
    }
    this.draw();
    const counts = new Uint32Array(LEVELS.length);
    this.bins.counts.forEach((count, i) => (counts[i % LEVELS.length] += count));
    const told = LEVEL_NAMES.map((name, level) => [counts[level], name.toLowerCase()])
                     .filter(([count]) => count > 0)
                     .map(([count, name]) => `${countText(count)} ${name}`);
    this.canvas.setAttribute(
        'aria-label', `Lines over time, ${this.view.spanText()}: ${told.join(', ') || 'none'}`);
    element('span').textContent = this.view.spanText();
    element('zoom-all').disabled = element('zoom-out').disabled = !state.span;
  }

  // Lines by bar and level.
  count(canvas, range, lines) {
    const [from, to] = range;
    const {at, sourceOf, levelOf} = this.view.log;
    const width = canvas.clientWidth;
    const size = Math.max(1, Math.floor(width / PITCH));
    const counts = new Uint32Array(size * LEVELS.length);
    const scale = size / (to - from);
    for (let i = 0; i < lines.length; i++) {
      const line = lines.lineOf(i);
      const bar = Math.min(size - 1, Math.floor((at[line] - from) * scale));
      counts[bar * LEVELS.length + levelOf[sourceOf[line]]]++;
    }
    let most = 1;
    for (let bar = 0; bar < size; bar++) most = Math.max(most, this.total({counts}, bar));
    return {counts, size, most, width};
  }

  total({counts}, bar) {
    let total = 0;
    for (let level = 0; level < LEVELS.length; level++)
      total += counts[bar * LEVELS.length + level];
    return total;
  }

  // A canvas knows no variables of the style sheet, so an element is asked for each colour.
  readColors() {
    const probe = element('probe');
    const read = (name) => {
      probe.style.color = `var(--${name})`;
      return getComputedStyle(probe).color;
    };
    return {
      levels: [...LEVELS].map((level) => read(`level-${level}`)),
      text: read('dim'),
      line: read('line'),
      mark: read('mark-line'),
      selected: read('accent'),
      shade: read('shade'),
      back: read('back'),
    };
  }

  draw() {
    if (!this.bins) return;
    this.drawTimeline();
    this.drawOverview();
  }

  begin(canvas) {
    const ratio = devicePixelRatio;
    const [width, height] = [canvas.clientWidth, canvas.clientHeight];
    canvas.width = Math.round(width * ratio);
    canvas.height = Math.round(height * ratio);
    const context = canvas.getContext('2d');
    context.scale(ratio, ratio);
    context.font = '11px system-ui, sans-serif';
    return {context, width, height};
  }

  drawTimeline() {
    const {context, width, height} = this.begin(this.canvas);
    const {log} = this.view;
    const [from, to] = this.range();
    const xOf = (place) => ((place - from) / (to - from)) * width;
    const bottom = height - AXIS;
    context.strokeStyle = this.colors.line;
    context.beginPath();
    for (const y of [TOP + 0.5, bottom + 0.5]) {
      context.moveTo(0, y);
      context.lineTo(width, y);
    }
    context.stroke();
    this.drawBars(context, this.bins, bottom, bottom - TOP);
    this.drawTicks(context, width, height, from, to);
    this.drawMarks(context, width, bottom, xOf);
    context.fillStyle = this.colors.text;
    context.textAlign = 'left';
    const peak = plural(this.bins.most, 'line');
    context.fillText(peak, 2, TOP - 4);
    if (state.line !== null && log.at[state.line] >= from && log.at[state.line] <= to) {
      context.fillStyle = this.colors.selected;
      context.fillRect(Math.min(width - 2, xOf(log.at[state.line]) - 1), TOP, 2, bottom - TOP);
    }
    this.drawDrag(context, this.canvas, height);
  }

  drawBars(context, {counts, size, most, width}, bottom, height) {
    const pitch = width / size;
    for (let level = 0; level < LEVELS.length; level++) {
      context.fillStyle = this.colors.levels[level];
      for (let bar = 0; bar < size; bar++) {
        const row = bar * LEVELS.length;
        if (!counts[row + level]) continue;
        // The worst levels stand at the bottom.
        let below = 0;
        for (let other = LEVELS.length - 1; other > level; other--) {
          below += this.barHeight(counts[row + other], other, most, height);
        }
        const tall = this.barHeight(counts[row + level], level, most, height);
        const x = Math.round(bar * pitch);
        const gap = pitch > 3 ? 1 : 0;
        context.fillRect(
            x, Math.max(bottom - height, bottom - below - tall),
            Math.round((bar + 1) * pitch) - x - gap, tall);
      }
    }
  }

  barHeight(count, level, most, height) {
    if (!count) return 0;
    return Math.max(level >= WARNING ? LEAST : 1, (count / most) * height);
  }

  drawTicks(context, width, height, from, to) {
    const {log} = this.view;
    if (!log.lines) return;
    const step = TICKS.find((tick) => ((tick / (to - from)) * width) >= TICK_GAP) ?? TICKS.at(-1);
    context.textAlign = 'center';
    let free = 0;
    let before = NaN;
    for (let x = 0; x <= width; x++) {
      const {ms, wall} = log.timeAt(from + (x / width) * (to - from));
      const offset = wall ? zoneOffset(ms, state.utc) : 0;
      const tick = Math.floor((ms - offset) / step);
      // Where the clock jumps, no tick is at its place.
      if (tick === before + 1 && x >= free) {
        const text =
            timeText(tick * step + offset, wall, state.utc, step >= 86400000 ? 'day' : 'tick');
        const half = context.measureText(text).width / 2;
        if (x - half >= 0 && x + half <= width) {
          context.fillStyle = this.colors.text;
          context.fillText(text, x, height - 4);
          context.fillStyle = this.colors.line;
          context.fillRect(x, height - AXIS, 1, 4);
          free = x + 2 * half + 16;
        }
      }
      before = tick;
    }
  }

  drawMarks(context, width, bottom, xOf) {
    const {log} = this.view;
    context.textAlign = 'left';
    const cuts = new Map(log.cuts);
    let free = context.measureText(plural(this.bins.most, 'line')).width + 12;
    for (const [line, kind, gap] of log.marks) {
      const x = xOf(log.at[line]);
      const start = line && cuts.has(line) ? xOf(log.at[line - 1]) : x;
      if (x < 0 || start > width) continue;
      context.fillStyle = this.colors.shade;
      context.fillRect(start, TOP, x - start, bottom - TOP);
      context.strokeStyle = this.colors.mark;
      context.setLineDash([3, 3]);
      context.beginPath();
      context.moveTo(x, TOP);
      context.lineTo(x, bottom);
      context.stroke();
      context.setLineDash([]);
      const missed = kind === 'gap' ? gap : 0;
      const text = cuts.has(line) ? `${kind}, ${durationText(missed || cuts.get(line))}` : kind;
      const long = context.measureText(text).width;
      const at = Math.min(Math.max(start, 0) + 1, width - long - 2);
      if (at >= free) {
        context.fillStyle = this.colors.mark;
        context.fillText(text, at, TOP - 4);
        free = at + long + 8;
      }
    }
  }

  drawOverview() {
    const {context, width, height} = this.begin(this.overview);
    this.drawBars(context, this.allBins, height, height - 2);
    const [, end] = this.whole();
    context.fillStyle = this.colors.mark;
    for (const [line] of this.view.log.marks) {
      context.fillRect((this.view.log.at[line] / end) * width, 0, 1, height);
    }
    const [from, to] = this.range().map((place) => (place / end) * width);
    context.fillStyle = this.colors.back;
    context.globalAlpha = 0.7;
    context.fillRect(0, 0, from, height);
    context.fillRect(to, 0, width - to, height);
    context.globalAlpha = 1;
    context.strokeStyle = this.colors.selected;
    context.strokeRect(from + 0.5, 0.5, Math.max(2, to - from - 1), height - 1);
    this.drawDrag(context, this.overview, height);
  }

  drawDrag(context, canvas, height) {
    if (this.drag?.canvas !== canvas) return;
    context.fillStyle = this.colors.selected;
    context.globalAlpha = 0.25;
    const {from, to} = this.drag;
    context.fillRect(Math.min(from, to), 0, Math.abs(to - from), height);
    context.globalAlpha = 1;
  }

  showHint(event) {
    const {log} = this.view;
    if (!log.lines) return;
    const {counts, size, width} = this.bins;
    const bar = Math.max(0, Math.min(size - 1, Math.floor((event.offsetX / width) * size)));
    const [from, to] = this.range();
    const {ms, wall} = log.timeAt(from + (event.offsetX / width) * (to - from));
    const levels = [...LEVELS]
                       .map((level, i) => [level, counts[bar * LEVELS.length + i]])
                       .reverse()
                       .filter(([, count]) => count > 0)
                       .map(([level, count]) => `${level} ${countText(Number(count))}`);
    this.hint.textContent = `${timeText(ms, wall, state.utc)}  ${levels.join('  ') || 'no lines'}`;
    this.hint.hidden = false;
    const left = Math.min(width - this.hint.offsetWidth, Math.max(0, event.offsetX + 12));
    this.hint.style.setProperty('--left', `${left}px`);
  }
}
