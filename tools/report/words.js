// Times and numbers as people read them.

// Seconds with three decimals, or date and time of the wall clock; parts of it where asked for.
export function timeText(ms, wall, utc, part = 'all') {
  const seconds = () => (ms / 1000).toFixed(part === 'tick' && ms % 1000 === 0 ? 0 : 3);
  if (!wall) return seconds();
  const date = new Date(ms - zoneOffset(ms, utc));
  if (Number.isNaN(date.getTime())) return seconds();
  const iso = date.toISOString();
  const cut = iso.indexOf('T');
  const day = iso.slice(0, cut);
  const time = iso.slice(cut + 1, -1);
  if (part === 'day') return day;
  if (part === 'time') return time;
  if (part === 'tick') return ms % 60000 === 0 ? time.slice(0, 5) : time.replace(/\.?0*$/, '');
  return `${day} ${time}`;
}

// What has to be taken from a time since 1970 to have the clock of its zone, in milliseconds.
export function zoneOffset(ms, utc) {
  return utc ? 0 : new Date(ms).getTimezoneOffset() * 60000;
}

export function durationText(ms) {
  if (ms < 9950) return `${(ms / 1000).toFixed(ms < 1000 ? 3 : 1)} s`;
  const seconds = Math.round(ms / 1000);
  const units = [
    [Math.floor(seconds / 86400), 'd'],
    [Math.floor(seconds / 3600) % 24, 'h'],
    [Math.floor(seconds / 60) % 60, 'min'],
    [seconds % 60, 's'],
  ];
  const first = units.findIndex(([amount]) => amount > 0);
  const told = units.slice(first, first + 2).filter(([amount]) => amount > 0);
  return told.map(([amount, unit]) => `${amount} ${unit}`).join(' ');
}

export const countText = (count) => count.toLocaleString('en-US');

export const plural = (count, one, many = `${one}s`) =>
    `${countText(count)} ${count === 1 ? one : many}`;
