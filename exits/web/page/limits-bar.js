// A value between its limits, as a bar. The same stands in words in the details, so nothing is read from it alone.

import {element} from './elements.js';
import {numberOf} from './value-text.js';

/** The first of the limits that the leaf has, as a number; null if it has neither. */
function known(first, second) {
  const limit = first ?? second ?? null;
  return limit === null ? null : Number(limit);
}

/** The range that is shown, and the limits within it; null where the leaf has no range. */
export function rangeOf(leaf) {
  const from = known(leaf.viewMin, leaf.min);
  const to = known(leaf.viewMax, leaf.max);
  return from !== null && to !== null && from < to ? {from, to} : null;
}

/** What the limits are, in words; empty if there are none. */
export function limitsText(leaf) {
  const {min, max} = leaf;
  const unit = leaf.unit ? ` ${leaf.unit}` : '';
  const hasMin = known(min) !== null;
  const hasMax = known(max) !== null;
  if (hasMin && hasMax) {
    return `${min} to ${max}${unit}`;
  }
  if (hasMin) {
    return `at least ${min}${unit}`;
  }
  return hasMax ? `at most ${max}${unit}` : '';
}

/** A bar for the leaf, or null if it has no range. Show the value in it with showInBar(). */
export function limitsBar(leaf) {
  const range = rangeOf(leaf);
  if (!range) {
    return null;
  }
  const share = (number) => `${100 * Math.min(1, Math.max(0, (number - range.from) / (range.to - range.from)))}%`;
  const allowed = element('span', {className: 'bar-allowed'});
  allowed.style.left = share(known(leaf.min, range.from));
  allowed.style.width = `calc(${share(known(leaf.max, range.to))} - ${share(known(leaf.min, range.from))})`;
  const mark = element('span', {className: 'bar-mark', hidden: true});
  const bar = element('span', {className: 'bar', aria: {hidden: 'true'}}, allowed, mark);
  bar.showValue = (value) => {
    const number = numberOf(value);
    mark.hidden = number === null;
    bar.dataset.empty = number === null;
    if (number !== null) {
      mark.style.left = share(number);
    }
  };
  return bar;
}
