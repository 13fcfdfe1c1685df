// The view of the configuration: each parameter, and who modified it when.

import {readConfiguration, Refusal} from './api.js';
import {byId, element, setText} from './elements.js';
import {clockText} from './value-text.js';

const mostRows = 500;

function tableOf(values) {
  const head = ['Parameter', 'Value', 'Modified by', 'Modified'].map((text) => element('th', {scope: 'col'}, text));
  const body = element('tbody');
  for (const {url, value, unit, modifiedBy, modifiedAt} of values) {
    const text = `${value ?? '–'}${unit ? ` ${unit}` : ''}`;
    body.append(element('tr', {},
      element('th', {scope: 'row'}, url), element('td', {}, text), element('td', {}, modifiedBy || '–'),
      element('td', {title: modifiedAt ?? ''}, modifiedAt ? clockText(modifiedAt) : '–')));
  }
  return element('table', {}, element('thead', {}, element('tr', {}, ...head)), body);
}

export class Configuration {
  #values = [];
  #search = byId('configuration-search');

  constructor() {
    this.#search.oninput = () => this.#show();
    byId('configuration-again').onclick = () => this.read();
  }

  async read() {
    try {
      this.#values = (await readConfiguration()).values;
      this.#show();
    } catch (refusal) {
      if (!(refusal instanceof Refusal)) {
        throw refusal;
      }
      setText(byId('configuration-note'), `✕ ${refusal.message} ${refusal.cure}`);
    }
  }

  #show() {
    const words = this.#search.value.toLowerCase().split(/\s+/).filter(Boolean);
    const found = this.#values.filter(({url, modifiedBy}) => {
      const text = `${url} ${modifiedBy ?? ''}`.toLowerCase();
      return words.every((word) => text.includes(word));
    });
    const more = found.length > mostRows ? `, of which the first ${mostRows} are shown: search for others` : '';
    setText(byId('configuration-note'), `${found.length} of ${this.#values.length} parameters${more}`);
    byId('configuration-table').replaceChildren(tableOf(found.slice(0, mostRows)));
  }
}
