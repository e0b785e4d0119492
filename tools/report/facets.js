// Filters by what the lines have in common, with the number of lines of each value.

import {element, make, refill} from './dom.js';
import {appendText} from './escape.js';
import {LEVEL_NAMES, LEVELS} from './log.js';
import {clearFilters, hasFilters, setFilters, state, toggle, update} from './state.js';
import {countText} from './words.js';

const NAMES = {
  level: 'level',
  tag: 'tag',
  pid: 'process',
  tid: 'thread',
  host: 'host',
  boot: 'boot'
};
const FEW = 10;    // values that are shown at first
const MANY = 500;  // at the most

export class Facets {
  constructor(view) {
    this.view = view;
    this.more = new Set();  // facets with more than a few of their values
    this.words = {};        // by facet: what their names have to contain
    this.makeLevels();
    const {facets} = view.log;
    this.listed = ['tag', 'pid', 'host', 'boot'].filter(
        (facet) => facets[facet].values.length > 1 || facet === 'tag' || facet === 'pid');
    for (const facet of this.listed) this.makeFacet(facet);
    element('clear').addEventListener('click', clearFilters);
  }

  makeLevels() {
    this.levels = [...LEVELS].reverse().map((level) => {
      const count = make('span', {className: 'count'});
      const name = LEVEL_NAMES[LEVELS.indexOf(level)];
      const button = make(
          'button',
          {type: 'button', className: `chip level-${level}`, onclick: () => toggle('level', level)},
          make('span', {className: 'swatch'}), `${name} `, count);
      return {level, button, count};
    });
    element('levels').append(...this.levels.map(({button}) => button));
  }

  makeFacet(facet) {
    const name = NAMES[facet] === 'process' ?
        'Processes' :
        `${NAMES[facet][0].toUpperCase()}${NAMES[facet].slice(1)}s`;
    const size = this.view.log.facets[facet].values.length;
    const field = make('input', {
      type: 'search',
      placeholder: 'find',
      'aria-label': `Find ${name.toLowerCase()}`,
      hidden: size <= FEW,
      oninput: () => {
        this.words[facet] = field.value.toLowerCase();
        this.refreshFacet(facet);
      },
    });
    const list = make('ul', {id: `facet-${facet}`});
    const more = make('button', {
      type: 'button',
      className: 'plain',
      onclick: () => {
        if (!this.more.delete(facet)) this.more.add(facet);
        this.refreshFacet(facet);
      },
    });
    more.id = `facet-${facet}-more`;
    element('facets').append(make(
        'section', {'aria-label': name},
        make('h3', {}, `${name} `, make('span', {className: 'count'}, countText(size)), field),
        list, more));
  }

  refresh() {
    const counts = this.view.filter.counts('level');
    const {values} = this.view.log.facets.level;
    for (const {level, button, count} of this.levels) {
      const lines = counts[values.indexOf(level)] ?? 0;
      count.textContent = countText(lines);
      button.setAttribute('aria-pressed', state.only.level.has(level));
      button.classList.toggle('none', lines === 0);
    }
    for (const facet of this.listed) this.refreshFacet(facet);
  }

  refreshFacet(facet) {
    const counts = this.view.filter.counts(facet);
    const {values} = this.view.log.facets[facet];
    const words = this.words[facet] ?? '';
    const isSet = (value) => state.only[facet].has(value) || state.not[facet].has(value);
    const shown = values.map((value, i) => ({value, count: counts[i], set: isSet(value)}))
                      .filter(
                          ({value, count, set}) => (count > 0 || set) &&
                              this.label(facet, value).toLowerCase().includes(words))
                      .sort((a, b) => b.count - a.count);
    const limit = this.more.has(facet) ? MANY : FEW;
    const most = shown[0]?.count ?? 1;
    refill(
        element(`facet-${facet}`),
        shown.slice(0, limit).map((entry) => this.makeValue(facet, entry, most)));
    const more = element(`facet-${facet}-more`);
    more.hidden = shown.length <= FEW;
    more.textContent = limit === FEW ? `${countText(shown.length - FEW)} more` : 'fewer';
  }

  makeValue(facet, {value, count}, most) {
    const name = make('span', {className: 'name'});
    appendText(name, this.label(facet, value));
    const bar = make('span', {className: 'bar'});
    bar.style.setProperty('--share', count / most);
    const number = make('span', {className: 'count'}, countText(count));
    const only = make(
        'button', {
          type: 'button',
          className: 'value',
          'aria-pressed': state.only[facet].has(value),
          onclick: () => toggle(facet, value),
        },
        name, bar, number);
    const hide = make(
        'button', {
          type: 'button',
          className: 'hide',
          title: 'Hide these lines',
          'aria-label': `Hide ${NAMES[facet]} ${this.view.nameOf(facet, value)}`,
          'aria-pressed': state.not[facet].has(value),
          onclick: () => toggle(facet, value, 'not'),
        },
        '⊘');
    return make('li', {}, only, hide);
  }

  label(facet, value) {
    if (value === '') return '(empty)';
    if (facet === 'boot') return `boot ${value}`;
    if (facet !== 'pid') return value;
    const tag = this.view.tagOfProcess.get(value);
    return tag ? `${value}  ${tag}` : value;
  }

  // What is filtered, each with a button that takes it away.
  refreshChips() {
    const chips = setFilters().map(([facet, value, kind]) => {
      const name = this.view.nameOf(facet, value);
      const text = `${kind === 'not' ? 'not ' : ''}${NAMES[facet] ?? facet} ${name}`;
      return this.makeChip(text, () => toggle(facet, value, kind));
    });
    if (state.span) chips.unshift(this.makeChip(this.view.spanText(), () => update({span: null})));
    refill(element('chips'), chips);
    element('clear').hidden = !hasFilters();
  }

  makeChip(text, onclick) {
    const label = make('span', {className: 'name', title: text}, text);
    return make(
        'button',
        {type: 'button', className: 'chip chosen', onclick, 'aria-label': `Remove filter ${text}`},
        label, ' ✕');
  }
}
