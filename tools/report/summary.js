// What the page is about: hosts, boots, span, lines, and what is missing.

import {element, make} from './dom.js';
import {plainText} from './escape.js';
import {state} from './state.js';
import {countText, durationText, plural, timeText} from './words.js';

export function fillSummary({log, head, changes}) {
  const hosts = log.facets.host.values.map(plainText).filter((host) => host);
  const title = hosts.length === 1 ? hosts[0] : hosts.length ? plural(hosts.length, 'host') : 'Log';
  document.title = `${title}: log report`;
  element('title').textContent = title;
  element('program').textContent = head.program;
  const last = log.lines - 1;
  const time = (line) => timeText(log.times[line], log.isWall(line), state.utc);
  const unit = (line) => log.isWall(line) ? (state.utc ? ' UTC' : '') : ' s since boot';
  element('when').textContent = log.lines === 0 ?
      'no lines' :
      `${time(0)}${unit(0) === unit(last) ? '' : unit(0)} to ${time(last)}${unit(last)}`;

  const count = (kind) => log.marks.filter((mark) => mark[1] === kind).length;
  const sum = (files, field) => files.reduce((total, file) => total + file[field], 0);
  const gaps = log.marks.filter(([, kind, gap]) => kind === 'gap' || gap > 0).length;
  const lost = log.marks.reduce((total, [, , gap]) => total + gap, 0);
  const repeated = sum(head.files, 'repeated');
  const damaged = head.files.filter((file) => file.damage);
  const tiles = [
    ['Lines', countText(log.lines), plural(head.files.length, 'dump')],
    ['Span', durationText(spanOf(log)), ''],
    ['Hosts', countText(Math.max(1, hosts.length)), hosts.slice(0, 3).join(', ')],
    ['Boots', countText(log.boots.length), plural(count('reboot'), 'reboot')],
    [
      'Gaps', countText(gaps),
      lost ? `${durationText(lost)} in no dump` :
          gaps ? 'of unknown length' :
                 'nothing missing'
    ],
    ['Restarts', countText(count('restart')), plural(count('fresh'), 'fresh start')],
  ];
  if (changes) tiles.push(['Changes', countText(changes.changed), 'against a healthy log']);
  if (repeated) tiles.push(['Left out', countText(repeated), 'repeated by later dumps']);
  if (damaged.length)
    tiles.push(['Damaged', countText(damaged.length), 'all that is whole is here']);
  element('tiles').replaceChildren(...tiles.map(
      ([name, value, note]) => make(
          'div', {className: name === 'Damaged' || (name === 'Gaps' && gaps) ? 'tile bad' : 'tile'},
          make('dt', {}, name), make('dd', {}, value, ' ', make('small', {}, note)))));
  element('damage').replaceChildren(...damaged.map(
      ({name, damage}) => make('li', {}, `${plainText(name)}: ${plainText(damage)}`)));
}

function spanOf(log) {
  let span = 0;
  for (let line = 1; line < log.lines; line++) span += Math.max(0, log.step(line));
  return span;
}
