// A value in large, with unit, state and its place between the limits: of a card, and of the details.

import {element, setText} from './elements.js';
import {limitsBar} from './limits-bar.js';
import {stateMark} from './state-mark.js';
import {fullText, shortText} from './value-text.js';

/** An element that show() brings up to date. */
export function reading(plant, leaf) {
  const value = element('span', {className: 'value'});
  const unit = element('span', {className: 'unit', textContent: leaf.unit ?? ''});
  const mark = stateMark();
  const bar = limitsBar(leaf);
  const made = element('div', {className: 'reading'},
    element('p', {className: 'number'}, value, ' ', unit), mark, bar);
  made.show = () => {
    const newest = plant.valueOf(leaf.index);
    setText(value, shortText(leaf, newest));
    value.title = fullText(leaf, newest);
    mark.showState(plant.codeOf(leaf.index));
    bar?.showValue(newest);
  };
  made.show();
  return made;
}
