// The tree of all values. Only the rows that are in sight are on the page; the keyboard's row is always.

import {Branches} from './branches.js';
import {byId, element, oncePerFrame, setText} from './elements.js';
import {limitsBar} from './limits-bar.js';
import {stateMark} from './state-mark.js';
import {fullText, shortText} from './value-text.js';

const rowsBeyondSight = 6;

export class Tree {
  #plant;
  #pins;
  #actions;
  #branches;
  #room = byId('tree');
  #rows = [];
  #places = new Map();
  #shown = new Map();
  #active = null;
  #filter = {words: [], onlyFaulty: false};
  #isStale = true;
  #dirty = new Set();
  #nextId = 0;
  #draw = oncePerFrame(() => this.#drawNow());

  /** `actions`: open(leaf) and write(leaf). */
  constructor(plant, pins, actions) {
    this.#plant = plant;
    this.#pins = pins;
    this.#actions = actions;
    this.#branches = new Branches(plant);
    plant.onChange((changed) => this.#take(changed));
    pins.onChange(() => this.#redrawAll());
    this.#room.onkeydown = (event) => this.#onKey(event);
    this.#room.onclick = (event) => this.#onClick(event);
    this.#room.onfocus = () => this.#activate(this.#active ?? this.#rows[0]?.key ?? null);
    // The page scrolls where it is narrow, and a part of it where it is wide.
    addEventListener('scroll', this.#draw, {capture: true, passive: true});
    addEventListener('resize', this.#draw);
    this.#draw();
  }

  filter(text, onlyFaulty) {
    this.#filter = {words: text.toLowerCase().split(/\s+/).filter(Boolean), onlyFaulty};
    this.#isStale = true;
    this.#draw();
  }

  // Under a filter every branch is open.
  #isFiltered() {
    return this.#filter.onlyFaulty || this.#filter.words.length > 0;
  }

  #take(changed) {
    changed.forEach((index) => this.#dirty.add(index));
    if (this.#branches.take(changed)) {
      this.#isStale ||= this.#filter.onlyFaulty;
      this.#shown.forEach((row) => row.branch && row.show());
    }
    this.#draw();
  }

  #redrawAll() {
    this.#shown.forEach((row) => row.show());
  }

  #drawNow() {
    if (this.#isStale) {
      this.#isStale = false;
      this.#arrange();
    }
    this.#drawRows();
    for (const index of this.#dirty) {
      this.#shown.get(`leaf ${index}`)?.show();
    }
    this.#dirty.clear();
  }

  #arrange() {
    this.#rows = this.#branches.rows(this.#filter);
    this.#places = new Map(this.#rows.map((row, place) => [row.key, place]));
    if (!this.#places.has(this.#active)) {
      this.#active = this.#rows[0]?.key ?? null;
    }
    this.#room.style.height = `calc(${this.#rows.length} * var(--row))`;
    this.#room.hidden = this.#rows.length === 0;
    const nothing = byId('nothing');
    nothing.hidden = this.#rows.length > 0;
    setText(nothing, this.#reasonForNothing());
  }

  #reasonForNothing() {
    if (this.#filter.words.length > 0) {
      return 'No value has these words in its URL, label or unit.';
    }
    return this.#filter.onlyFaulty ? '✓ All values are valid.' : 'The description has no values.';
  }

  #drawRows() {
    const {top, height: all} = this.#room.getBoundingClientRect();
    const height = all / Math.max(1, this.#rows.length) || 1;
    const first = Math.max(0, Math.floor(-top / height) - rowsBeyondSight);
    const last = Math.min(this.#rows.length, Math.ceil((innerHeight - top) / height) + rowsBeyondSight);
    const wanted = this.#rows.slice(first, last);
    const active = this.#rows[this.#places.get(this.#active)];
    if (active && !wanted.includes(active)) {
      wanted.push(active);
    }
    const keys = new Set(wanted.map((row) => row.key));
    for (const [key, {made}] of this.#shown) {
      if (!keys.has(key)) {
        made.remove();
        this.#shown.delete(key);
      }
    }
    wanted.forEach((row) => this.#placeRow(row));
    this.#markActive();
  }

  #placeRow(row) {
    if (!this.#shown.has(row.key)) {
      const made = row.leaf ? this.#leafRow(row.leaf) : this.#branchRow(row.branch);
      made.made.id = `row-${this.#nextId++}`;
      made.made.dataset.key = row.key;
      made.made.setAttribute('role', 'treeitem');
      this.#shown.set(row.key, made);
      this.#room.append(made.made);
      made.show();
    }
    const {made} = this.#shown.get(row.key);
    made.style.top = `calc(${this.#places.get(row.key)} * var(--row))`;
    made.style.setProperty('--level', row.level);
    made.setAttribute('aria-level', row.level);
    made.setAttribute('aria-posinset', row.place);
    made.setAttribute('aria-setsize', row.siblings);
    if (row.branch) {
      made.setAttribute('aria-expanded', row.isOpen);
    }
  }

  #leafRow(leaf) {
    const value = element('span', {className: 'value'});
    const mark = stateMark();
    const bar = limitsBar(leaf);
    const pin = element('span', {className: 'pin', aria: {hidden: 'true'}});
    const made = element('div', {className: 'row leaf', data: {url: leaf.url}},
      element('span', {className: 'name', textContent: leaf.url.split('/').pop(), title: leaf.label ?? ''}),
      element('span', {className: 'place'}, bar),
      element('span', {className: 'number'}, value, ' ',
        element('span', {className: 'unit', textContent: leaf.unit ?? ''})),
      mark, pin);
    const show = () => {
      const newest = this.#plant.valueOf(leaf.index);
      setText(value, shortText(leaf, newest));
      value.title = fullText(leaf, newest);
      bar?.showValue(newest);
      mark.showState(this.#plant.codeOf(leaf.index));
      const isPinned = this.#pins.has(leaf.url);
      setText(pin, isPinned ? '★' : '☆');
      pin.title = isPinned ? 'Unpin' : 'Pin';
      pin.dataset.pinned = isPinned;
    };
    return {made, show};
  }

  #branchRow(branch) {
    const faulty = element('span', {className: 'state', data: {kind: 'failed'}});
    const made = element('div', {className: 'row branch', data: {url: branch.url}},
      element('span', {className: 'name', textContent: branch.name}),
      element('span', {className: 'size', textContent: branch.leaves === 1 ? '1 value' : `${branch.leaves} values`}),
      faulty);
    const show = () => setText(faulty, branch.faulty > 0 ? `! ${branch.faulty} not valid` : '');
    return {made, show, branch};
  }

  #markActive() {
    for (const [key, {made}] of this.#shown) {
      made.setAttribute('aria-selected', key === this.#active);
    }
    const active = this.#shown.get(this.#active)?.made;
    if (active) {
      this.#room.setAttribute('aria-activedescendant', active.id);
    } else {
      this.#room.removeAttribute('aria-activedescendant');
    }
  }

  #activate(key) {
    this.#active = key;
    this.#drawRows();
    this.#shown.get(key)?.made.scrollIntoView({block: 'nearest'});
  }

  #open(row, isOpen) {
    row.branch.isOpen = isOpen;
    this.#isStale = true;
    this.#drawNow();
  }

  #onClick(event) {
    const key = event.target.closest('.row')?.dataset.key;
    const row = this.#rows[this.#places.get(key)];
    if (!row) {
      return;
    }
    this.#activate(key);
    if (event.target.closest('.pin')) {
      this.#pins.toggle(row.leaf.url);
    } else {
      this.#enter(row);
    }
  }

  #enter(row) {
    if (row.leaf) {
      this.#actions.open(row.leaf);
    } else {
      this.#open(row, !row.branch.isOpen);
    }
  }

  #onKey(event) {
    const place = this.#places.get(this.#active) ?? 0;
    const row = this.#rows[place];
    if (!row || event.ctrlKey || event.altKey || event.metaKey) {
      return;
    }
    const goTo = (to) => this.#activate(this.#rows[Math.min(this.#rows.length - 1, Math.max(0, to))].key);
    const rowsOfPage = Math.max(1, Math.floor(innerHeight / this.#shown.get(row.key).made.offsetHeight) - 4);
    const keys = {
      ArrowDown: () => goTo(place + 1),
      ArrowUp: () => goTo(place - 1),
      PageDown: () => goTo(place + rowsOfPage),
      PageUp: () => goTo(place - rowsOfPage),
      Home: () => goTo(0),
      End: () => goTo(this.#rows.length - 1),
      ArrowRight: () => this.#goIn(row, place, goTo),
      ArrowLeft: () => this.#goOut(row, place, goTo),
      Enter: () => this.#enter(row),
      ' ': () => this.#enter(row),
      p: () => row.leaf && this.#pins.toggle(row.leaf.url),
      w: () => row.leaf && this.#actions.write(row.leaf),
    };
    const act = keys[event.key.length === 1 ? event.key.toLowerCase() : event.key];
    if (act) {
      event.preventDefault();
      act();
    }
  }

  #goIn(row, place, goTo) {
    if (row.branch && !row.isOpen) {
      this.#open(row, true);
    } else if (row.branch) {
      goTo(place + 1);
    }
  }

  #goOut(row, place, goTo) {
    if (row.branch?.isOpen && !this.#isFiltered()) {
      this.#open(row, false);
      return;
    }
    for (let above = place - 1; above >= 0; --above) {
      if (this.#rows[above].level < row.level) {
        goTo(above);
        return;
      }
    }
  }
}
