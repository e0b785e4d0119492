// Draws the page, and again whatever changed.

import {ChangeList} from './changes.js';
import {element} from './dom.js';
import {plainText} from './escape.js';
import {Facets} from './facets.js';
import {Filter} from './filter.js';
import {listenToKeys} from './keys.js';
import {LineList} from './lines.js';
import {loadLog} from './log.js';
import {PatternList} from './patterns.js';
import {link, start, state, update} from './state.js';
import {fillSummary} from './summary.js';
import {Timeline} from './timeline.js';
import {countText, plural, timeText} from './words.js';

const TEXT_STATE = ['text', 'regex', 'exact'];
const FILTER_STATE = [...TEXT_STATE, 'all', 'only', 'not', 'span'];
const SAID_MS = 4000;

// What the parts of the page share.
class View {
  constructor({log, workers, head}) {
    this.log = log;
    this.workers = workers;
    this.head = head;
    this.filter = new Filter(log);
    this.expression = null;  // what is searched
    this.mask = null;
    this.busy = 0;         // redrawings under way
    this.searched = null;  // the last search: ends once its matches are known
    this.patternNumber = (pattern) => String(pattern + 1);
    this.tagOfProcess = this.findTags();
    this.say = this.say.bind(this);
    this.lines = new LineList(this);
    this.timeline = new Timeline(this);
    this.patterns = new PatternList(this);
    this.changes = head.changes && new ChangeList(this, head.changes);
    this.facets = new Facets(this);
  }

  // The tag that a process logs most with.
  findTags() {
    const {log} = this;
    const lines = new Uint32Array(log.sourceCount);
    for (const source of log.sourceOf) lines[source]++;
    const counts = new Map();  // process -> tag -> lines
    lines.forEach((count, source) => {
      const pid = log.valueOf('pid', source);
      const tag = log.valueOf('tag', source);
      if (!counts.has(pid)) counts.set(pid, new Map());
      counts.get(pid).set(tag, (counts.get(pid).get(tag) ?? 0) + count);
    });
    const most = (tags) => [...tags].reduce((a, b) => b[1] > a[1] ? b : a)[0];
    return new Map([...counts].map(([pid, tags]) => [pid, most(tags)]));
  }

  // Whether the lines are of more than one day, in the zone that is shown.
  hasDays() {
    const {log} = this;
    let [low, high] = [Infinity, -Infinity];
    log.times.forEach((ms, line) => {
      if (!log.isWall(line)) return;
      low = Math.min(low, ms);
      high = Math.max(high, ms);
    });
    const day = (ms) => timeText(ms, true, state.utc, 'day');
    return low < high && day(low) !== day(high);
  }

  // A value of a filter, for people.
  nameOf(facet, value) {
    if (facet === 'pattern') return this.log.patternTexts[Number(value) - 1] ?? value;
    if (facet === 'change') return this.changes?.label(value) ?? value;
    return plainText(value) || '(empty)';
  }

  spanText() {
    const {log} = this;
    const [first, end] = state.span ?? [0, log.lines];
    if (first === end) return 'no lines';
    const text = (line, part) => timeText(log.times[line], log.isWall(line), state.utc, part);
    return `${text(first)} to ${text(end - 1, log.days ? 'all' : 'time')}`;
  }

  // Tells something in passing.
  say(text) {
    const said = element('said');
    said.textContent = text;
    said.hidden = false;
    clearTimeout(this.saying);
    this.saying = setTimeout(() => (said.hidden = true), SAID_MS);
  }

  async copyText(text, what) {
    try {
      await navigator.clipboard.writeText(text);
      this.say(`Copied ${what}`);
    } catch {
      this.say('The browser does not let this page copy');
    }
  }

  // Finds the lines that match the text; false: another search came in between, or it failed.
  async search() {
    this.workers.cancel?.();
    const field = element('text');
    if (field.value !== state.text) field.value = state.text;
    const tell = (error) => {
      field.setAttribute('aria-invalid', String(error !== ''));
      element('text-error').textContent = error;
    };
    if (!state.text) {
      this.expression = this.mask = null;
      tell('');
      return true;
    }
    const source = state.regex ? state.text : state.text.replace(/[\\^$.*+?()[\]{}|/]/g, '\\$&');
    try {
      const expression = new RegExp(source, `${state.exact ? '' : 'i'}gu`);
      const flags = expression.flags.replace('g', '');
      const mask = await this.workers.search({source, flags});
      if (!mask) return false;
      this.mask = mask;
      this.expression = expression;
      tell('');
      return true;
    } catch (error) {
      tell(error.message.replace(/^Invalid regular expression: /, ''));
      return false;
    }
  }

  async refresh(changes) {
    const busy = (more) => {
      this.busy += more;
      document.body.setAttribute('aria-busy', String(this.busy > 0));
    };
    busy(1);
    try {
      await this.redraw(changes);
    } finally {
      busy(-1);
    }
  }

  // Nothing for the changes: all is drawn.
  async redraw(changes) {
    const changed = (keys) => !changes || keys.some((key) => key in changes);
    if (changed(TEXT_STATE)) {
      this.searched = this.search();
      if (!(await this.searched)) {
        if (changes) return;
        this.expression = this.mask = null;  // of an address before
      }
    }
    if (changed(['utc'])) this.log.days = this.hasDays();
    if (changed(FILTER_STATE)) {
      this.filter.apply(state, this.mask);
      this.lines.refresh();
      this.facets.refresh();
      this.tellCounts();
    }
    if (changed([...FILTER_STATE, 'sort', 'utc'])) this.patterns.refresh();
    if (changed(['only', 'utc'])) this.changes?.list.setCount(this.changes.rows.length);
    if (changed(['utc'])) {
      fillSummary(this);
      this.lines.list.draw();
      element('utc').setAttribute('aria-pressed', state.utc);
    }
    if (changed([...FILTER_STATE, 'utc'])) {
      this.facets.refreshChips();
      this.timeline.refresh();
    }
    if (changed(['line', 'utc', ...FILTER_STATE])) await this.selectLine(changed(['line']));
    for (const flag of ['regex', 'exact', 'all']) element(flag).checked = state[flag];
  }

  selectLine(moved) {
    this.timeline.draw();
    return moved ? this.lines.select() : this.lines.fillDetail();
  }

  tellCounts() {
    const {log, filter, mask} = this;
    const matches = mask && state.all ? `, ${plural(filter.matches, 'match', 'matches')}` : '';
    const shown = filter.lines.length;
    element('counts').textContent = shown === log.lines ?
        `${plural(shown, 'line')}${matches}` :
        `${countText(shown)} of ${plural(log.lines, 'line')}${matches}`;
  }
}

function listenToControls(view) {
  const field = element('text');
  field.addEventListener('input', () => update({text: field.value}));
  for (const flag of ['regex', 'exact', 'all']) {
    element(flag).addEventListener('change', (event) => update({[flag]: event.target.checked}));
  }
  element('next').addEventListener('click', () => view.lines.next(1));
  element('previous').addEventListener('click', () => view.lines.next(-1));
  element('copy').addEventListener('click', () => view.lines.copy());
  element('link').addEventListener('click', () => view.copyText(link(), 'the link'));
  element('utc').hidden = !view.head.wall;
  element('utc').addEventListener('click', () => update({utc: !state.utc}));
  const tabs = [...(view.changes ? ['changes'] : []), 'patterns', 'filters'];
  const choose = (chosen) => tabs.forEach((tab) => {
    element(`tab-${tab}`).setAttribute('aria-selected', String(tab === chosen));
    element(`tab-${tab}`).tabIndex = tab === chosen ? 0 : -1;
    element(`pane-${tab}`).hidden = tab !== chosen;
  });
  for (const tab of tabs) {
    element(`tab-${tab}`).addEventListener('click', () => choose(tab));
    element(`tab-${tab}`).addEventListener('keydown', (event) => {
      const step = {ArrowLeft: tabs.length - 1, ArrowRight: 1}[event.key];
      if (!step || event.altKey || event.ctrlKey || event.metaKey) return;
      const other = tabs[(tabs.indexOf(tab) + step) % tabs.length];
      choose(other);
      element(`tab-${other}`).focus();
    });
  }
  choose(tabs[0]);
}

async function main() {
  try {
    const loaded = await loadLog();
    start((changes) => view.refresh(changes), loaded.head.utc, loaded.log.lines);
    document.body.classList.add('loaded');
    const view = new View(loaded);
    listenToControls(view);
    listenToKeys(view);
    await view.refresh();
    requestAnimationFrame(() => performance.mark('shown'));
  } catch (error) {
    document.body.classList.remove('loaded');
    document.body.setAttribute('aria-busy', 'false');
    element('loading').textContent = `The log could not be unpacked: ${error.message ?? error}`;
    throw error;
  }
}

main();
