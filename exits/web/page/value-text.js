// Values as texts.

const isFloating = (leaf) => leaf.type === 'double' || leaf.type === 'float';

/** The value in full, without its unit. */
export function fullText(leaf, value) {
  if (value === null || value === undefined) {
    return '–';
  }
  return leaf.entries?.[value] ?? String(value);
}

/** The value as a display shows it: six digits of a floating-point number, which otherwise flicker at the end. */
export function shortText(leaf, value) {
  if (typeof value === 'number' && isFloating(leaf)) {
    return String(Number(value.toPrecision(6)));
  }
  return fullText(leaf, value);
}

/** The number that a trend or a bar shows; null for texts, and for what is not valid. */
export function numberOf(value) {
  if (typeof value === 'boolean') {
    return value ? 1 : 0;
  }
  const number = typeof value === 'string' && value.trim() !== '' ? Number(value) : value;
  return typeof number === 'number' && Number.isFinite(number) ? number : null;
}

export const isNumeric = (leaf) => leaf.type !== 'string';

/** Seconds in the words of a clock on the wall. */
export function durationText(seconds) {
  if (seconds < 10) {
    return `${seconds.toFixed(1)} s`;
  }
  if (seconds < 120) {
    return `${Math.floor(seconds)} s`;
  }
  if (seconds < 7200) {
    return `${Math.floor(seconds / 60)} min`;
  }
  return `${Math.floor(seconds / 3600)} h`;
}

/** The time of day at which something was, with the date where it was not today. */
export function clockText(iso) {
  const time = new Date(iso);
  if (Number.isNaN(time.getTime())) {
    return String(iso);
  }
  const isToday = time.toDateString() === new Date().toDateString();
  return isToday ? time.toLocaleTimeString() : time.toLocaleString();
}
