// What is shown, and as the address has it: a link shows what one saw.

import {FACETS} from './log.js';

export const SORTS = ['count', 'new', 'level'];

const FILTERS = [...FACETS, 'pattern'];
// Browsers refuse more than a few hundred addresses a minute.
const ADDRESS_MS = 200;
// What one does not want to be led back over.
const FLEETING = new Set(['line', 'sort', 'text']);

const noFilters = () => Object.fromEntries(FILTERS.map((facet) => [facet, new Set()]));

function emptyState() {
  return {
    text: '',
    regex: false,
    exact: false,       // upper and lower case differ
    all: false,         // lines without a match stay
    only: noFilters(),  // by facet: values, as text
    not: noFilters(),
    span: null,  // [first line, line behind the last]
    line: null,  // selected
    sort: 'count',
    utc: false,
  };
}

export const state = emptyState();

let listener = (_changes) => {};
let utcByDefault = false;
let lineCount = 0;
let timer = null;
let remember = false;  // what is shown is to be led back to

// Takes what the address says, now and when it is another one. The listener is told what changed;
// nothing: anything may have.
export function start(onChange, utc, lines) {
  listener = onChange;
  utcByDefault = utc;
  lineCount = lines;
  read();
  addEventListener('hashchange', () => {
    if (location.hash.slice(1) === write()) return;
    clearTimeout(timer);
    timer = null;
    remember = false;
    read();
    listener();
  });
}

function write() {
  const words = new URLSearchParams();
  if (state.text) words.set('text', state.text);
  for (const flag of ['regex', 'exact', 'all']) {
    if (state[flag]) words.set(flag, '1');
  }
  for (const facet of FILTERS) {
    for (const value of state.only[facet]) words.append(facet, value);
    for (const value of state.not[facet]) words.append(`not-${facet}`, value);
  }
  // Lines count from 1 for people.
  if (state.span) words.set('span', `${state.span[0] + 1}-${state.span[1]}`);
  if (state.line !== null) words.set('line', String(state.line + 1));
  if (state.sort !== 'count') words.set('sort', state.sort);
  if (state.utc !== utcByDefault) words.set('utc', state.utc ? '1' : '0');
  return words.toString();
}

function read() {
  const words = new URLSearchParams(location.hash.slice(1));
  Object.assign(state, emptyState());
  state.text = words.get('text') ?? '';
  for (const flag of ['regex', 'exact', 'all']) state[flag] = words.get(flag) === '1';
  for (const facet of FILTERS) {
    state.only[facet] = new Set(words.getAll(facet));
    state.not[facet] = new Set(words.getAll(`not-${facet}`));
  }
  const [, first, last] = /^(\d+)-(\d+)$/.exec(words.get('span') ?? '')?.map(Number) ?? [];
  if (first >= 1 && first <= last && last <= lineCount) state.span = [first - 1, last];
  const line = Number(words.get('line'));
  if (Number.isInteger(line) && line >= 1 && line <= lineCount) state.line = line - 1;
  if (SORTS.includes(words.get('sort'))) state.sort = words.get('sort');
  state.utc = words.has('utc') ? words.get('utc') === '1' : utcByDefault;
}

function writeAddress() {
  const address = '#' + write();
  if (address !== (location.hash || '#')) {
    history[remember ? 'pushState' : 'replaceState'](null, '', address);
  }
  timer = null;
  remember = false;
}

// Changes what is shown.
export function update(changes) {
  Object.assign(state, changes);
  remember ||= !Object.keys(changes).every((key) => FLEETING.has(key));
  timer ??= setTimeout(writeAddress, ADDRESS_MS);
  listener(changes);
}

// The address of what is shown.
export function link() {
  return location.href.replace(/#.*/, '') + '#' + write();
}

// Adds a value to a filter, or takes it away where it is one; with other changes of what is shown.
export function toggle(facet, value, kind = 'only', changes = {}) {
  const other = kind === 'only' ? 'not' : 'only';
  const sets = {[kind]: {...state[kind]}, [other]: {...state[other]}};
  for (const each of ['only', 'not']) sets[each][facet] = new Set(sets[each][facet]);
  sets[other][facet].delete(value);
  if (!sets[kind][facet].delete(value)) sets[kind][facet].add(value);
  update({...sets, ...changes});
}

export function clearFilters() {
  update({text: '', only: noFilters(), not: noFilters(), span: null});
}

// The filters that are set, but for the text: [facet, value, kind].
export function setFilters() {
  return ['only', 'not'].flatMap(
      (kind) =>
          FILTERS.flatMap((facet) => [...state[kind][facet]].map((value) => [facet, value, kind])));
}

export function hasFilters() {
  return Boolean(state.text || state.span || setFilters().length);
}
