// A state as people see it: symbol and word, and a colour that adds nothing to them.

import {element, setText} from './elements.js';
import {stateOf} from './states.js';

export function stateMark() {
  const symbol = element('span', {className: 'symbol', aria: {hidden: 'true'}});
  const word = element('span', {className: 'word'});
  const mark = element('span', {className: 'state'}, symbol, ' ', word);
  mark.showState = (code) => {
    const state = stateOf(code);
    setText(symbol, state.symbol);
    setText(word, state.word);
    mark.dataset.kind = state.kind;
    mark.title = state.meaning;
  };
  return mark;
}
