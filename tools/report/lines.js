// The list of lines, the selected one in full, and lines as text.

import {element, isField, make, refill} from './dom.js';
import {appendText, escapeText} from './escape.js';
import {LEVEL_NAMES, LEVELS, lowerBound} from './log.js';
import {state, toggle, update} from './state.js';
import {VirtualList} from './virtual_list.js';
import {countText, plural, timeText} from './words.js';

const SHOWN = /^[^]{0,1000}/u;  // of a message in the list
const COPIED_LINES = 100000;
const COPIED_AT_ONCE = 4096;
const PRINTED_LINES = 500;
const REST_MS = 300;  // until what would be printed is fetched

const ONE_LEVEL_WORSE = 3;  // where nothing is searched, n leads to errors

export class LineList {
  constructor(view) {
    this.view = view;
    this.topLine = 0;
    this.message = null;  // of the selected line, once it is here
    this.list = new VirtualList(element('lines'), 'Lines of the log', {
      makeRow: () => this.makeRow(),
      fillRow: (row, index) => this.fillRow(row, index),
      onChoose: (index) => update({line: view.filter.lines[index]}),
    });
    this.list.onDraw = () => {
      // Where no line is shown, the place stays for when there are some again.
      this.topLine = view.filter.lines[this.list.first] ?? this.topLine;
      this.fetch();
    };
    element('detail-close').addEventListener('click', () => update({line: null}));
    addEventListener('beforeprint', () => this.fillPrint());
    addEventListener('copy', (event) => this.onCopy(event));
  }

  makeRow() {
    const row = make('div');
    row.parts = Object.fromEntries(['time', 'level', 'tag', 'mark', 'message'].map(
        (name) => [name, make('span', {className: name})]));
    row.append(...Object.values(row.parts));
    return row;
  }

  fillRow(row, index) {
    const {log, filter, workers, expression} = this.view;
    const line = filter.lines[index];
    const {time, level, tag, mark, message} = row.parts;
    const letter = LEVELS[log.level(line)];
    const other = state.all && filter.mask && !filter.mask[line];
    row.className = `line level-${letter}${other ? ' other' : ''}`;
    time.textContent = this.timeOf(line, log.days ? 'short' : 'time');
    time.title = log.isLatest(line) ? 'No later than that' : '';
    level.textContent = letter;
    level.title = LEVEL_NAMES[log.level(line)];
    const name = log.valueOf('tag', log.sourceOf[line]);
    if (tag.name !== name) {
      tag.replaceChildren();
      appendText(tag, name);
      tag.name = name;
    }
    const marks = log.marksIn(index ? filter.lines[index - 1] : -1, line);
    mark.textContent = marks.join(', ');
    mark.hidden = !marks.length;
    row.classList.toggle('broken', marks.length > 0);
    message.replaceChildren();
    const text = workers.cache.get(line);
    if (text !== undefined) {
      const {length} = SHOWN.exec(text)[0];
      appendText(message, text, {match: expression, end: length});
      if (text.length > length) message.append('…');
    }
  }

  // The mark of times that are the latest possible; a blank where only others have it.
  markOf(line) {
    const {log} = this.view;
    return log.isLatest(line) ? '≤' : log.widths.latest ? ' ' : '';
  }

  timeOf(line, part = 'all') {
    const {log} = this.view;
    const wall = log.isWall(line);
    const text = timeText(log.times[line], wall, state.utc, part === 'short' ? 'all' : part);
    const shown = wall && part === 'short' ? text.slice(text.indexOf('-') + 1) : text;
    return this.markOf(line) + shown;
  }

  // Gets the messages in view that are missing, and shows them.
  async fetch() {
    clearTimeout(this.rest);
    this.rest = setTimeout(() => this.fetchPrint(), REST_MS);
    if (this.fetching) return;
    const {filter, workers} = this.view;
    const shown = filter.lines.subarray(this.list.first, this.list.first + this.list.shown);
    const missing = [...shown].filter((line) => !workers.cache.has(line));
    if (!missing.length) return;
    this.fetching = true;
    await workers.messages(missing);
    this.fetching = false;
    this.list.draw();
  }

  // Shows other lines, from the one on that was on top of the view, or around the selected one.
  refresh() {
    const {filter} = this.view;
    const {list} = this;
    const inView =
        state.line !== null && list.chosen >= list.first && list.chosen < list.first + list.fitting;
    const anchor = inView ? state.line : this.topLine;
    const offset = inView ? list.chosen - list.top : 0;
    list.chosen = this.indexOf(state.line);
    list.setCount(filter.lines.length);
    list.top = lowerBound(filter.lines, filter.lines.length, anchor) - offset;
    list.draw();
    element('nothing').hidden = filter.lines.length > 0;
  }

  indexOf(line) {
    const {lines} = this.view.filter;
    const index = line === null ? -1 : lowerBound(lines, lines.length, line);
    return lines[index] === line ? index : -1;
  }

  // Shows which line is selected, if any.
  async select() {
    const index = this.indexOf(state.line);
    this.list.chosen = index;
    this.list.draw();
    await this.fillDetail();
    // The line in full has taken some of the list's room.
    if (index >= 0 && this.list.chosen === index) this.list.show(index);
    this.list.draw();
  }

  // Selects the first shown line from a line on, or else the last one.
  jump(line) {
    const {lines} = this.view.filter;
    if (!lines.length) return;
    const index = lowerBound(lines, lines.length, line);
    update({line: lines[Math.min(index, lines.length - 1)]});
  }

  // Selects the next line, or the one before, that matches; where nothing is searched, an error.
  async next(step) {
    await this.view.searched;  // what was typed a moment ago
    const {log, filter: {lines, mask}, say} = this.view;
    const wanted = mask ? (line) => mask[line] : (line) => log.level(line) >= ONE_LEVEL_WORSE;
    const from = lowerBound(lines, lines.length, state.line ?? this.topLine);
    let index = state.line !== null && lines[from] === state.line ? from + step :
        step < 0                                                  ? from - 1 :
                                                                    from;
    while (index >= 0 && index < lines.length && !wanted(lines[index])) index += step;
    if (index >= 0 && index < lines.length)
      update({line: lines[index]});
    else
      say(`No ${mask ? 'match' : 'error'} ${step > 0 ? 'below' : 'above'}`);
  }

  async fillDetail() {
    const {line} = state;
    const detail = element('detail');
    detail.hidden = line === null;
    this.message = null;
    if (line === null) return;
    const {log, workers, expression, patternNumber} = this.view;
    const source = log.sourceOf[line];
    const boot = log.boots.length > 1 ? `, boot ${log.valueOf('boot', source)}` : '';
    element('detail-title').textContent =
        `Line ${countText(line + 1)}, ${this.timeOf(line)}${boot}`;
    const facets = [
      ['level', LEVEL_NAMES[log.level(line)]],
      ['tag'],
      ['pid', `process ${log.valueOf('pid', source)}`],
      ['tid', `thread ${log.valueOf('tid', source)}`],
    ];
    if (log.facets.host.values.length > 1) facets.push(['host']);
    const groups = facets.map(
        ([facet, label]) => this.filterButtons(facet, log.valueOf(facet, source), label));
    const pattern = patternNumber(log.patternOf[line]);
    groups.push(this.filterButtons('pattern', pattern, `pattern ${pattern}`));
    const change = log.valueOf('change', source);
    if (change !== '0') groups.push(this.filterButtons('change', change, `change ${change}`));
    refill(element('detail-filters'), groups);
    const [message] = await workers.messages([line]);
    if (state.line !== line) return;
    this.message = message;
    const text = element('detail-message');
    text.replaceChildren();
    appendText(text, message, {match: expression});
  }

  filterButtons(facet, value, label = '') {
    const name = make('span', {className: 'name'}, label);
    if (!label) appendText(name, `${facet} ${value || '(empty)'}`);
    const button = (kind, text) => {
      const pressed = state[kind][facet].has(value);
      return make(
          'button', {
            type: 'button',
            onclick: () => toggle(facet, value, kind),
            'aria-pressed': pressed,
            'aria-label': `${text} ${name.textContent}`,
          },
          text);
    };
    return make('span', {className: 'pair'}, name, button('only', 'only'), button('not', 'hide'));
  }

  // A line as `trelvoctl decode` gives it, in its columns.
  asText(line, message) {
    const {log, log: {widths}} = this.view;
    const source = log.sourceOf[line];
    const of = (facet) => log.valueOf(facet, source);
    const wall = log.isWall(line);
    const time = timeText(log.times[line], wall, state.utc) + (wall && state.utc ? 'Z' : '');
    const host = log.hosts.size > 1 ? ` ${escapeText(of('host'))}` : '';
    const thread = of('tid') === of('pid') ? '' : `, T ${of('tid').padStart(widths.tid)}`;
    const ids = of('pid') + thread;
    const idWidth = widths.pid + (widths.tid ? ', T '.length + widths.tid : 0);
    const blanks = Math.max(0, widths.tag - log.tagWidths[log.sources.tag[source]]) +
        Math.max(0, idWidth - ids.length);
    return `${this.markOf(line)}${wall ? time : time.padStart(widths.time)}${host} ${
               of('level')}/` +
        `${escapeText(of('tag'))}${' '.repeat(blanks)} (P ${ids}): ${escapeText(message)}\n`;
  }

  async copy() {
    const lines = this.view.filter.lines.slice(0, COPIED_LINES);
    const total = this.view.filter.lines.length;
    let text = '';
    for (let at = 0; at < lines.length; at += COPIED_AT_ONCE) {
      const part = [...lines.subarray(at, at + COPIED_AT_ONCE)];
      const messages = await this.view.workers.messages(part, false);
      text += part.map((line, i) => this.asText(line, messages[i])).join('');
    }
    const cut = lines.length < total ? ` of ${countText(total)}: the most that is copied` : '';
    await this.view.copyText(text, `${plural(lines.length, 'line')}${cut}`);
  }

  // Where no text is marked, the selected line is what is copied.
  onCopy(event) {
    if (isField(event.target) || this.message === null || !getSelection().isCollapsed) return;
    event.clipboardData.setData('text/plain', this.asText(state.line, this.message));
    event.preventDefault();
    this.view.say('Copied the line');
  }

  printed() {
    return [...this.view.filter.lines.subarray(this.list.first, this.list.first + PRINTED_LINES)];
  }

  fetchPrint() {
    this.view.workers.messages(this.printed());
  }

  fillPrint() {
    const {workers, filter, changes} = this.view;
    const lines = this.printed();
    const from = this.list.first + 1;
    element('print-title').textContent = lines.length === 0 ?
        'No lines' :
        `Lines ${countText(from)} to ${countText(from + lines.length - 1)} of ${
            countText(filter.lines.length)}`;
    element('print-changes').textContent = changes?.asText() ?? '';
    element('print-lines').textContent =
        lines.map((line) => this.asText(line, workers.cache.get(line) ?? '…')).join('');
  }
}
