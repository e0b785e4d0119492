// Text of a log, shown so that it can neither hide nor reorder anything.

// Controls, what turns the direction of writing, separators; and bytes that are not UTF-8, which
// the log has as U+10FF00 + byte.
const UNSAFE =
    /[\u0000-\u001f\u007f-\u009f\u061c\u200e\u200f\u2028-\u202e\u2066-\u2069\u{10ff00}-\u{10ffff}]/gu;

const hex = (number, width) => number.toString(16).toUpperCase().padStart(width, '0');

function escapeOne(character) {
  const code = character.codePointAt(0);
  if (code >= 0x10ff00) return '\\x' + hex(code - 0x10ff00, 2);
  if (code < 0x80) return '\\x' + hex(code, 2);
  if (code < 0xa0) return '\\xC2\\x' + hex(code, 2);
  return `\\u{${hex(code, 4)}}`;
}

// As `trelvoctl decode` prints it.
export function escapeText(text) {
  return text.replaceAll('\\', '\\\\').replace(UNSAFE, escapeOne);
}

// On one line, for labels, where a backslash may be one.
export function plainText(text) {
  return text.replace(UNSAFE, escapeOne);
}

// Appends text to an element, up to a place: escapes and wildcards of patterns stand out, matches
// are marked, which may begin with what is escaped.
export function appendText(
    element, text, {match = null, wildcards = false, end = text.length} = {}) {
  const marks = [];
  const find = (expression, name) => {
    for (const found of text.matchAll(expression)) {
      if (found[0] !== '') marks.push([found.index, found.index + found[0].length, name]);
    }
  };
  if (match) find(match, 'match');
  find(UNSAFE, 'escape');
  if (wildcards) find(/<\*>/g, 'wildcard');
  marks.sort((a, b) => a[0] - b[0]);
  let at = 0;
  const append = (until) => {
    if (until > at) element.append(text.slice(at, until));
    at = Math.max(at, until);
  };
  for (const [start, until, name] of marks) {
    if (start < at || start >= end) continue;
    append(start);
    const part = document.createElement(name === 'match' ? 'mark' : 'span');
    if (name !== 'match') part.className = name;
    part.textContent = plainText(text.slice(start, Math.min(until, end)));
    element.append(part);
    at = until;
  }
  append(end);
}
