// What changed against a healthy log, the most telling first; choosing a change filters.

import {element, make} from './dom.js';
import {appendText, escapeText, plainText} from './escape.js';
import {LEVEL_NAMES, LEVELS} from './log.js';
import {state, toggle} from './state.js';
import {VirtualList} from './virtual_list.js';
import {countText, timeText} from './words.js';

const PRINTED_CHANGES = 100;

export class ChangeList {
  constructor(view, {summary, changed, rows}) {
    this.view = view;
    this.summary = summary;
    this.rows = rows;
    this.changed = changed;  // so many rows, before the doubtful ones
    this.list = new VirtualList(element('changes'), 'What changed', {
      makeRow: () => this.makeRow(),
      fillRow: (row, index) => this.fillRow(row, index),
      onChoose: (index, how) => {
        if (how !== 'move') this.choose(index);
      },
    });
    element('changes').setAttribute('aria-multiselectable', 'true');
    element('changes-summary').textContent = summary;
    element('change-count').textContent = countText(changed);
    element('tab-changes').hidden = false;
  }

  makeRow() {
    const row = make('div');
    row.parts = Object.fromEntries(['label', 'level', 'counts', 'first', 'text'].map(
        (name) => [name, make('span', {className: name})]));
    row.append(...Object.values(row.parts));
    return row;
  }

  fillRow(row, index) {
    const change = this.rows[index];
    const {label, level, counts, first, text} = row.parts;
    row.className = `entry change level-${change.level}`;
    row.classList.toggle('weak', index >= this.changed);
    row.classList.toggle('focused', index === this.list.chosen);
    row.setAttribute('aria-selected', state.only.change.has(String(index + 1)));
    label.textContent = change.label;
    level.textContent = change.level;
    level.title = LEVEL_NAMES[LEVELS.indexOf(change.level)];
    counts.textContent = `${countText(change.good)} → ${countText(change.bad)}`;
    counts.title = 'Lines in the healthy log and in this one';
    first.textContent = `${change.bad ? 'from' : 'last'} ${this.timeOf(change)}`;
    text.replaceChildren();
    const tag = make('span', {className: 'tag'});
    appendText(tag, change.tag);
    text.append(tag, ': ');
    appendText(text, change.example);
    text.title = plainText(change.text);
  }

  // What is gone was last seen on any day.
  timeOf({ms, wall, bad}) {
    const text = timeText(ms, wall, state.utc, bad && !this.view.log.days ? 'time' : 'all');
    return wall ? text.replace(/^\d+-/, '').replace(/\.\d+$/, '') : text;
  }

  // Shows only the lines of a change, from where it is seen on.
  choose(index) {
    const number = String(index + 1);
    const line = this.lineOf(index);
    if (line < 0)
      this.view.say('Its lines are in the healthy log only');
    else
      toggle('change', number, 'only', state.only.change.has(number) ? {} : {line});
  }

  // The first line of a change, of a burst the first one in it; -1 where there is none.
  lineOf(index) {
    const {sourceOf, sources: {change}} = this.view.log;
    const from = this.rows[index].line;
    return sourceOf.findIndex((source, line) => line >= from && change[source] === index + 1);
  }

  label(number) {
    const change = this.rows[Number(number) - 1];
    return change ? `${change.label}: ${plainText(change.tag)}: ${plainText(change.text)}` : number;
  }

  // The first of what changed, for paper.
  asText() {
    const rows = this.rows.slice(0, Math.min(this.changed, PRINTED_CHANGES)).map((change) => {
      const {label, level, good, bad, tag, example} = change;
      return `${label.padEnd(6)} ${level} ${good} → ${bad}  ${this.timeOf(change)} ` +
          `${escapeText(tag)}: ${escapeText(example)}\n`;
    });
    return `${this.summary}\n${rows.join('')}`;
  }
}
