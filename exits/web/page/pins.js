// The pinned values: which they are, kept in this browser for this region, and their cards.

import {byId, element, oncePerFrame} from './elements.js';
import {reading} from './reading.js';
import {Trend} from './trend.js';
import {isNumeric} from './value-text.js';

/** The URLs that are pinned. What the browser refuses to keep lasts as long as the page. */
export class PinList {
  #key;
  #urls;
  #listeners = [];

  constructor(region) {
    this.#key = `tessel-web pins of ${region}`;
    this.#urls = this.#read();
    // Another tab of the same browser pins as well.
    addEventListener('storage', (event) => {
      if (event.key === this.#key) {
        this.#urls = this.#read();
        this.#tell();
      }
    });
  }

  get urls() {
    return this.#urls;
  }

  has(url) {
    return this.#urls.includes(url);
  }

  toggle(url) {
    this.#urls = this.has(url) ? this.#urls.filter((other) => other !== url) : [...this.#urls, url];
    try {
      localStorage.setItem(this.#key, JSON.stringify(this.#urls));
    } catch {
      // Storage that is full or forbidden.
    }
    this.#tell();
  }

  onChange(listener) {
    this.#listeners.push(listener);
  }

  #tell() {
    this.#listeners.forEach((listener) => listener());
  }

  #read() {
    try {
      const kept = JSON.parse(localStorage.getItem(this.#key));
      return Array.isArray(kept) ? kept.filter((url) => typeof url === 'string') : [];
    } catch {
      return [];
    }
  }
}

function card(plant, leaf, {open, unpin}) {
  const value = reading(plant, leaf);
  const trend = isNumeric(leaf) ? new Trend(plant, leaf, 110) : null;
  const name = element('button', {type: 'button', className: 'link', textContent: leaf.url, onclick: open});
  const away = element('button', {
    type: 'button', className: 'icon', textContent: '★', title: 'Unpin', onclick: unpin,
    aria: {label: `Unpin ${leaf.url}`},
  });
  const made = element('article', {className: 'card', data: {url: leaf.url}},
    element('h3', {}, name), away, value, trend?.element ?? null);
  return {
    made,
    show: () => {
      value.show();
      trend?.draw();
    },
    end: () => trend?.end(),
  };
}

/** Shows the cards of `pins`; `open(leaf)` shows one in the details. */
export function showPins(plant, pins, open) {
  const room = byId('cards');
  const leafOf = new Map(plant.leaves.map((leaf) => [leaf.url, leaf]));
  const cards = new Map();

  const draw = oncePerFrame(() => cards.forEach(({show}) => show()));

  /** Who took away the card at this place with the keyboard goes on beside it, and not at the top of the page. */
  function keepFocus(place) {
    if (place >= 0 && !room.contains(document.activeElement)) {
      const next = room.children[Math.min(place, room.children.length - 1)]?.querySelector('.icon');
      (next ?? byId('pins')).focus({preventScroll: true});
    }
  }

  function arrange() {
    const wanted = pins.urls.filter((url) => leafOf.has(url));
    const focused = [...room.children].findIndex((made) => made.contains(document.activeElement));
    for (const [url, {made, end}] of cards) {
      if (!wanted.includes(url)) {
        end();
        made.remove();
        cards.delete(url);
      }
    }
    for (const url of wanted.filter((other) => !cards.has(other))) {
      const leaf = leafOf.get(url);
      cards.set(url, card(plant, leaf, {open: () => open(leaf), unpin: () => pins.toggle(url)}));
      room.append(cards.get(url).made);
    }
    byId('no-pins').hidden = wanted.length > 0;
    keepFocus(focused);
    draw();
  }

  pins.onChange(arrange);
  plant.onChange(draw);
  arrange();
}
