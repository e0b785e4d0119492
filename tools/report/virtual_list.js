// A list that has elements only for the rows in view, however many there are.

import {make} from './dom.js';

// Browsers place nothing below some 16 million pixels: beyond this, a pixel is more than a pixel.
const MAX_HEIGHT = 15e6;

export class VirtualList {
  // `makeRow` makes an empty row, `fillRow` shows one: (row, index). `onChoose` is told of the
  // index of a row that was chosen, and how: 'point', 'move' or 'enter'.
  constructor(root, label, {makeRow, fillRow, onChoose}) {
    this.root = root;
    this.makeRow = makeRow;
    this.fillRow = fillRow;
    this.onChoose = onChoose;
    this.onDraw = () => {};
    this.count = 0;
    this.chosen = -1;
    this.first = 0;  // row in view
    this.shown = 0;  // rows in view
    this.layer = make('div', {className: 'layer', role: 'presentation'});
    this.inner = make('div', {className: 'inner', role: 'presentation'}, this.layer);
    root.append(this.inner);
    for (const [name, value] of Object.entries(
             {role: 'listbox', tabindex: 0, 'aria-label': label})) {
      root.setAttribute(name, value);
    }
    this.rows = [];
    root.addEventListener('scroll', () => this.draw(), {passive: true});
    root.addEventListener('keydown', (event) => this.onKey(event));
    root.addEventListener('click', (event) => {
      const row = event.target.closest('[role=option]');
      if (row && !event.target.closest('button')) this.choose(row.index, 'point');
    });
    new ResizeObserver(() => this.fit()).observe(root);
  }

  get rowHeight() {
    return parseFloat(getComputedStyle(this.root).getPropertyValue('--row'));
  }

  // Rows that fit into the view, and the part of one.
  get fitting() {
    return this.height / this.row;
  }

  measure() {
    this.row = this.rowHeight;
    this.height = this.root.clientHeight;
    this.total = Math.min(MAX_HEIGHT, this.count * this.row);
    this.inner.style.height = `${this.total}px`;
    this.layer.style.height = `${Math.min(this.height, this.total)}px`;
  }

  // Rows may have another height now.
  fit() {
    const {first, row} = this;
    this.measure();
    if (row && row !== this.row) this.top = first;
    this.draw();
  }

  setCount(count) {
    this.count = count;
    this.draw();
  }

  // How many rows and parts of one are above the view.
  get top() {
    const {scrollTop} = this.root;
    if (this.total < MAX_HEIGHT) return scrollTop / this.row;
    if (scrollTop === this.placed?.scrollTop) return this.placed.top;
    return (scrollTop / (this.total - this.height)) * (this.count - this.fitting);
  }

  set top(rows) {
    const most = Math.max(0, this.count - this.fitting);
    const top = Math.max(0, Math.min(most, rows));
    this.root.scrollTop =
        this.total < MAX_HEIGHT ? top * this.row : (top / most) * (this.total - this.height);
    this.placed = {scrollTop: this.root.scrollTop, top};  // a pixel may be many rows
  }

  draw() {
    this.measure();
    const top = Math.min(this.top, Math.max(0, this.count - this.fitting));
    this.first = Math.floor(top);
    const shown = Math.min(this.count - this.first, Math.ceil(this.fitting) + 1);
    this.shown = shown;
    while (this.rows.length < shown) {
      const row = this.makeRow();
      row.setAttribute('role', 'option');
      row.id = `${this.root.id}-row-${this.rows.length}`;
      this.rows.push(row);
      this.layer.append(row);
    }
    this.layer.style.setProperty('--shift', `${(this.first - top) * this.row}px`);
    this.root.removeAttribute('aria-activedescendant');
    this.rows.forEach((row, i) => {
      const index = this.first + i;
      row.hidden = i >= shown;
      if (row.hidden) return;
      row.index = index;
      row.setAttribute('aria-posinset', index + 1);
      row.setAttribute('aria-setsize', this.count);
      row.setAttribute('aria-selected', index === this.chosen);
      if (index === this.chosen) this.root.setAttribute('aria-activedescendant', row.id);
      this.fillRow(row, index);
    });
    this.onDraw();
  }

  // Brings a row into view, in the middle where it is far.
  show(index) {
    this.measure();
    const {top, fitting} = this;
    if (index < top - fitting || index > top + 2 * fitting)
      this.top = index - fitting / 2;
    else if (index < top)
      this.top = index;
    else if (index + 1 > top + fitting)
      this.top = index + 1 - fitting;
  }

  choose(index, how) {
    if (index < 0 || index >= this.count) return;
    this.chosen = index;
    if (how !== 'point') this.show(index);
    this.draw();
    this.onChoose(index, how);
  }

  onKey(event) {
    if (event.altKey || event.ctrlKey || event.metaKey || event.target !== this.root) return;
    const page = Math.max(1, Math.floor(this.fitting) - 1);
    const from = this.chosen >= 0 ? this.chosen : this.first;
    const last = this.count - 1;
    const to = {
      ArrowDown: this.chosen >= 0 ? from + 1 : from,
      ArrowUp: from - 1,
      PageDown: from + page,
      PageUp: from - page,
      Home: 0,
      End: last,
    }[event.key];
    if (to !== undefined)
      this.choose(Math.max(0, Math.min(last, to)), 'move');
    else if (event.key === 'Enter' && this.chosen >= 0)
      this.choose(this.chosen, 'enter');
    else
      return;
    event.preventDefault();
  }
}
