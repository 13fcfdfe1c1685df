// The view of the configuration: each parameter, and who modified it when.

import {readConfiguration, Refusal} from './api.js';
import {byId, element, setText} from './elements.js';
import {clockText} from './value-text.js';

const mostRows = 500;

/** What is entered: an entry of a list by its name, a table by the number of its rows. */
function textOf({value, selection, unit}) {
  if (Array.isArray(value)) {
    return value.length === 1 ? '1 row' : `${value.length} rows`;
  }
  return `${selection ?? value ?? '–'}${unit ? ` ${unit}` : ''}`;
}

function tableOf(values) {
  const head = ['Parameter', 'Value', 'Modified by', 'Modified'].map((text) => element('th', {scope: 'col'}, text));
  const body = element('tbody');
  for (const parameter of values) {
    const {url, modifiedBy, modifiedAt} = parameter;
    body.append(element('tr', {},
      element('th', {scope: 'row'}, url), element('td', {}, textOf(parameter)), element('td', {}, modifiedBy || '–'),
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
