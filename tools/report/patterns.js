// The patterns of the shown lines; choosing one filters.

import {element, make} from './dom.js';
import {appendText} from './escape.js';
import {SPARK_PARTS} from './filter.js';
import {LEVEL_NAMES, LEVELS} from './log.js';
import {SORTS, state, toggle, update} from './state.js';
import {VirtualList} from './virtual_list.js';
import {countText} from './words.js';

const SVG = 'http://www.w3.org/2000/svg';
const SPARK_HEIGHT = 10;
const SORT_NAMES = {
  count: 'most frequent',
  new: 'newest',
  level: 'worst'
};

export class PatternList {
  constructor(view) {
    this.view = view;
    this.shown = [];
    this.list = new VirtualList(element('patterns'), 'Patterns of messages', {
      makeRow: () => this.makeRow(),
      fillRow: (row, index) => this.fillRow(row, index),
      onChoose: (index, how) => {
        if (how !== 'move') toggle('pattern', view.patternNumber(this.shown[index]));
      },
    });
    element('patterns').setAttribute('aria-multiselectable', 'true');
    this.sorts = SORTS.map(
        (sort) => make(
            'button', {type: 'button', value: sort, onclick: () => update({sort})},
            SORT_NAMES[sort]));
    element('sorts').append(...this.sorts);
  }

  makeRow() {
    const row = make('div');
    const spark = document.createElementNS(SVG, 'svg');
    spark.setAttribute('viewBox', `0 0 ${SPARK_PARTS} ${SPARK_HEIGHT}`);
    spark.setAttribute('preserveAspectRatio', 'none');
    spark.setAttribute('aria-hidden', 'true');
    const path = document.createElementNS(SVG, 'path');
    spark.append(path);
    const [count, level, first, text] =
        ['count', 'level', 'first', 'text'].map((name) => make('span', {className: name}));
    const hide = make(
        'button', {
          type: 'button',
          className: 'hide',
          title: 'Hide these lines',
          tabIndex: -1,
          'aria-label': 'Hide this pattern',
          onclick: () => toggle('pattern', this.view.patternNumber(this.shown[row.index]), 'not'),
        },
        '⊘');
    row.parts = {count, level, first, text, path, hide};
    row.append(count, level, spark, first, hide, text);
    return row;
  }

  fillRow(row, index) {
    const {log, filter, lines, patternNumber} = this.view;
    const pattern = this.shown[index];
    const {count, level, first, text, path, hide} = row.parts;
    const number = patternNumber(pattern);
    const worst = log.worstOf[pattern];
    row.className = `entry pattern level-${LEVELS[worst]}`;
    row.setAttribute('aria-selected', state.only.pattern.has(number));
    row.classList.toggle('focused', index === this.list.chosen);
    row.classList.toggle('hidden', state.not.pattern.has(number));
    hide.setAttribute('aria-pressed', state.not.pattern.has(number));
    count.textContent = countText(filter.byPattern[pattern]);
    level.textContent = LEVELS[worst];
    level.title = LEVEL_NAMES[worst];
    const line = log.firstOf[pattern];
    const time = lines.timeOf(line, log.days ? 'short' : 'time').trim();
    first.textContent = `from ${time.replace(/\.\d+$/, '')}`;
    path.setAttribute('d', this.spark(pattern));
    text.replaceChildren();
    appendText(text, log.patterns[pattern], {wildcards: true});
    text.title = log.patternTexts[pattern];
  }

  spark(pattern) {
    const parts =
        this.view.filter.sparks.subarray(pattern * SPARK_PARTS, (pattern + 1) * SPARK_PARTS);
    const most = Math.max(1, ...parts);
    return [...parts]
        .map((count, i) => {
          if (!count) return '';
          const height = Math.max(1.5, (count / most) * SPARK_HEIGHT);
          return `M${i} ${SPARK_HEIGHT}v${- height}h0.8v${height}z`;
        })
        .join('');
  }

  refresh() {
    const {log, filter: {byPattern}, patternNumber} = this.view;
    // The one for messages without a pattern may have no lines.
    const isSet = (pattern) => log.firstOf[pattern] < log.lines &&
        ['only', 'not'].some((kind) => state[kind].pattern.has(patternNumber(pattern)));
    const byCount = (a, b) => byPattern[b] - byPattern[a];
    const order = {
      count: byCount,
      new: (a, b) => log.firstOf[b] - log.firstOf[a],
      level: (a, b) => log.worstOf[b] - log.worstOf[a] || byCount(a, b),
    }[state.sort];
    const focused = this.shown[this.list.chosen];
    this.shown = [...log.patterns.keys()]
                     .filter((pattern) => byPattern[pattern] > 0 || isSet(pattern))
                     .sort(order);
    this.list.chosen = this.shown.indexOf(focused);
    this.list.setCount(this.shown.length);
    element('pattern-count').textContent = countText(this.shown.length);
    for (const button of this.sorts)
      button.setAttribute('aria-pressed', button.value === state.sort);
  }
}
