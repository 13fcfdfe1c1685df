// The details of one leaf: all that its description says, and its trend.

import {byId, element, oncePerFrame, setText} from './elements.js';
import {limitsText} from './limits-bar.js';
import {reading} from './reading.js';
import {stateOf} from './states.js';
import {Trend} from './trend.js';
import {fullText, isNumeric} from './value-text.js';

function facts(leaf) {
  const view = limitsText({min: leaf.viewMin, max: leaf.viewMax, unit: leaf.unit});
  return [
    ['Label', leaf.label],
    ['Type', leaf.type],
    ['Limits', limitsText(leaf)],
    ['Usual range', view],
    ['Access', leaf.readOnly ? 'read-only' : ''],
  ].filter(([, text]) => text);
}

export class Details {
  #plant;
  #pins;
  #write;
  #room = byId('details');
  #leaf = null;
  #shown = null;
  #draw = oncePerFrame(() => this.#show());

  /** `write(leaf)` opens the dialog for writing. */
  constructor(plant, pins, write) {
    this.#plant = plant;
    this.#pins = pins;
    this.#write = write;
    plant.onChange(this.#draw);
    pins.onChange(this.#draw);
    this.#room.onkeydown = (event) => {
      if (event.key === 'Escape') {
        this.close();
      }
    };
  }

  open(leaf) {
    if (this.#leaf !== leaf) {
      this.#end();
      this.#leaf = leaf;
      this.#make();
    }
    this.#room.hidden = false;
    this.#show();
    this.#room.focus({preventScroll: true});
    this.#room.scrollIntoView({block: 'nearest'});
  }

  close() {
    this.#end();
    this.#room.hidden = true;
    byId('tree').focus();
  }

  #end() {
    this.#shown?.trend?.end();
    this.#shown = null;
    this.#leaf = null;
    this.#room.replaceChildren();
  }

  #make() {
    const leaf = this.#leaf;
    const button = (text, onclick) => element('button', {type: 'button', textContent: text, onclick});
    const pin = button('', () => this.#pins.toggle(leaf.url));
    const canWrite = this.#plant.description.writing && !leaf.readOnly;
    this.#shown = {
      value: reading(this.#plant, leaf),
      full: element('p', {className: 'full'}),
      meaning: element('p', {className: 'meaning'}),
      trend: isNumeric(leaf) ? new Trend(this.#plant, leaf, 180) : null,
      pin,
    };
    const close = element('button', {
      type: 'button', className: 'icon', textContent: '✕', title: 'Close', onclick: () => this.close(),
      aria: {label: 'Close the details'},
    });
    const list = element('dl');
    facts(leaf).forEach(([name, text]) => list.append(element('dt', {}, name), element('dd', {}, text)));
    this.#room.append(
      element('h2', {id: 'details-name', textContent: leaf.url}), close,
      this.#shown.value, this.#shown.meaning, this.#shown.full,
      ...(this.#shown.trend ? [this.#shown.trend.element] : []), list,
      element('p', {className: 'buttons'}, pin, canWrite ? button('Write…', () => this.#write(leaf)) : null),
    );
  }

  #show() {
    if (!this.#shown) {
      return;
    }
    const {value, full, meaning, trend, pin} = this.#shown;
    const newest = this.#plant.valueOf(this.#leaf.index);
    value.show();
    trend?.draw();
    setText(meaning, stateOf(this.#plant.codeOf(this.#leaf.index)).meaning);
    const inFull = fullText(this.#leaf, newest);
    full.hidden = inFull === value.querySelector('.value').textContent;
    setText(full, `exactly ${inFull}`);
    setText(pin, this.#pins.has(this.#leaf.url) ? '★ Unpin' : '☆ Pin');
  }
}
