// What the keyboard does anywhere on the page.

import {element, isField} from './dom.js';
import {update} from './state.js';

export function listenToKeys(view) {
  const field = element('text');
  const list = element('lines');
  const help = element('help');
  element('help-open').addEventListener('click', () => help.showModal());
  const actions = {
    '/': () => (field.focus(), field.select()),
    'n': () => view.lines.next(1),
    'N': () => view.lines.next(-1),
    'g': () => view.lines.jump(0),
    'G': () => view.lines.jump(view.log.lines),
    '?': () => help.showModal(),
    'Escape': () => update({line: null}),
  };
  addEventListener('keydown', (event) => {
    if (event.ctrlKey || event.altKey || event.metaKey || help.open) return;
    const target = /** @type {HTMLElement} */ (event.target);
    if (isField(target)) {
      if (event.key === 'Enter' && target === field) view.lines.next(event.shiftKey ? -1 : 1);
      if (event.key !== 'Escape') return;
      event.preventDefault();  // else the browser empties the field, without an event
      list.focus();
      return;
    }
    const action = actions[event.key];
    if (!action) return;
    event.preventDefault();
    action();
  });
}
