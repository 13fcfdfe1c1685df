// The dialog that writes a value or an error state. The token is kept for as long as the tab is open, and nowhere else.

import {Refusal, writeValues} from './api.js';
import {byId, element, setText} from './elements.js';
import {limitsText} from './limits-bar.js';
import {states} from './states.js';
import {fullText} from './value-text.js';

const tokenKey = 'tessel-web token';
const integerTypes = /^(u?int(8|16|32|64)|selector)$/;

/** What is sent for what was typed; throws a Refusal for what is no value of the type. */
export function valueFrom(leaf, text) {
  const no = (what) => new Refusal(0, {what, cure: `Type a value of the type ${leaf.type}.`});
  if (leaf.type === 'string') {
    return text;
  }
  const trimmed = text.trim();
  if (trimmed === 'true' || trimmed === 'false') {
    return trimmed === 'true';
  }
  if (integerTypes.test(leaf.type) && /^[+-]?\d+$/.test(trimmed)) {
    // A number of a browser has 53 bits; what is longer goes as its digits.
    return Number.isSafeInteger(Number(trimmed)) ? Number(trimmed) : trimmed;
  }
  if (trimmed === '' || integerTypes.test(leaf.type) || !Number.isFinite(Number(trimmed))) {
    throw no(`'${text}' is not a value of ${leaf.url}.`);
  }
  return Number(trimmed);
}

function valueField(leaf, value) {
  const choice = (options) => {
    const field = element('select', {id: 'write-value'});
    options.forEach(([text, own]) => field.append(element('option', {value: own, textContent: text})));
    field.value = String(value ?? options[0][1]);
    return field;
  };
  if (leaf.entries) {
    return choice(leaf.entries.map((text, number) => [text, String(number)]));
  }
  if (leaf.type === 'boolean' || leaf.type === 'bit') {
    return choice([['true', 'true'], ['false', 'false']]);
  }
  const mode = leaf.type === 'string' ? 'text' : 'decimal';
  const now = value === null ? '' : String(value);
  return element('input', {id: 'write-value', inputMode: mode, autocomplete: 'off', spellcheck: false, value: now});
}

function stateField() {
  const field = element('select', {id: 'write-state'}, element('option', {value: '', textContent: 'no: write the value'}));
  states.slice(1).forEach(({word, symbol}) => {
    field.append(element('option', {value: word, textContent: `${symbol} ${word}`}));
  });
  return field;
}

const row = (text, field) => element('p', {className: 'field'}, element('label', {for: field.id}, text), field);

export class WriteDialog {
  #plant;
  #dialog = byId('write');
  #leaf = null;
  #fields = {};
  #problem = null;

  constructor(plant) {
    this.#plant = plant;
  }

  open(leaf) {
    if (!this.#plant.description.writing || leaf.readOnly || this.#dialog.open) {
      return;
    }
    this.#leaf = leaf;
    this.#make();
    this.#dialog.showModal();
    this.#fields.value.focus();
    this.#fields.value.select?.();
  }

  #make() {
    const leaf = this.#leaf;
    const now = this.#plant.valueOf(leaf.index);
    const unit = leaf.unit ? ` ${leaf.unit}` : '';
    const limits = limitsText(leaf);
    const token = element('input', {
      id: 'write-token', type: 'password', autocomplete: 'off', value: sessionStorage.getItem(tokenKey) ?? '',
    });
    this.#fields = {value: valueField(leaf, now), state: stateField(), token};
    this.#fields.state.onchange = () => {
      this.#fields.value.disabled = this.#fields.state.value !== '';
    };
    this.#problem = element('div', {className: 'problem', role: 'alert'});
    const form = element('form', {method: 'dialog'},
      element('h2', {id: 'write-name', textContent: `Write ${leaf.url}`}),
      element('p', {}, `Now ${fullText(leaf, now)}${now === null ? '' : unit}${limits ? `, limits ${limits}` : ''}`),
      row(`Value${leaf.unit ? ` in ${leaf.unit}` : ''}`, this.#fields.value),
      row('Error state instead', this.#fields.state),
      row('Token', token),
      element('p', {className: 'hint', textContent: 'The token is kept until this tab is closed.'}),
      this.#problem,
      element('p', {className: 'buttons'},
        element('button', {type: 'submit', className: 'main', textContent: 'Write'}),
        element('button', {type: 'button', textContent: 'Cancel', onclick: () => this.#dialog.close()})));
    form.onsubmit = (event) => {
      event.preventDefault();
      this.#send();
    };
    this.#dialog.replaceChildren(form);
  }

  async #send() {
    const {value, state, token} = this.#fields;
    const form = this.#dialog.firstChild;
    const submit = form.querySelector('[type=submit]');
    submit.disabled = true;
    this.#problem.replaceChildren();
    try {
      const wanted = state.value ? {state: state.value} : valueFrom(this.#leaf, value.value);
      this.#keepToken(token.value.trim());
      await writeValues({[this.#leaf.url]: wanted}, token.value.trim());
      // Who did not wait for the answer may be writing another value by now.
      if (form.isConnected) {
        this.#dialog.close();
      }
    } catch (refusal) {
      this.#show(refusal, form);
    }
    submit.disabled = false;
  }

  #keepToken(token) {
    if (token) {
      sessionStorage.setItem(tokenKey, token);
    } else {
      sessionStorage.removeItem(tokenKey);
    }
  }

  #show(refusal, form) {
    if (!(refusal instanceof Refusal)) {
      throw refusal;
    }
    // A token that is refused is not worth keeping.
    if (refusal.status === 401) {
      sessionStorage.removeItem(tokenKey);
    }
    if (!form.isConnected) {
      return;
    }
    if (refusal.status === 401) {
      this.#fields.token.focus();
    }
    const what = element('p', {className: 'what'});
    setText(what, `✕ ${refusal.message}`);
    this.#problem.replaceChildren(what, element('p', {textContent: refusal.cure}));
  }
}
