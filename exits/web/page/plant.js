// What the page knows: the leaves of the description, their newest values, and how the connection is.

import {History} from './history.js';
import {isNumeric, numberOf} from './value-text.js';
import {isValid} from './states.js';

export class Plant {
  /** starting, waiting (for the first set), live, gone (the region) or lost (the server) */
  connection = 'starting';
  reason = '';
  setTime = null;

  #values;
  #codes;
  #age = null;
  #ageAt = 0;
  #newest = 0;
  // By which the clock of the device is ahead of that which only ever goes on.
  #ahead = (Date.now() - performance.now()) / 1000;
  #listeners = [];

  constructor(description) {
    this.description = description;
    this.leaves = description.leaves;
    this.history = new History(this.leaves.length);
    this.faulty = 0;
    this.#values = new Array(this.leaves.length).fill(null);
    this.#codes = new Array(this.leaves.length).fill(null);
  }

  valueOf(index) {
    return this.#values[index];
  }

  /** null as long as it has not been read. */
  codeOf(index) {
    return this.#codes[index];
  }

  isFaulty(index) {
    return this.#codes[index] !== null && !isValid(this.#codes[index]);
  }

  /** Seconds since the newest set; null where nobody knows. */
  age() {
    return this.#age === null ? null : this.#age + (performance.now() - this.#ageAt) / 1000;
  }

  /** The time of the newest set in seconds, on the clock of the device. */
  now() {
    return this.#newest;
  }

  get isLive() {
    return this.connection === 'live';
  }

  /** `listener` is called after each message with the indexes of the leaves that have changed. */
  onChange(listener) {
    this.#listeners.push(listener);
  }

  take(message) {
    let changed = [];
    if (message.kind === 'set') {
      changed = this.#takeSet(message);
      this.#connect('live');
    } else if (message.kind === 'age') {
      this.#takeAge(message.age);
    } else if (message.kind === 'gone' || message.kind === 'lost') {
      this.#disconnect(message.kind, message.reason ?? '');
    } else if (message.kind === 'hello' && !message.up) {
      this.#disconnect('gone', message.reason ?? '');
    } else if (!this.isLive) {
      this.#connect('waiting');
    }
    this.#listeners.forEach((listener) => listener(changed));
  }

  #connect(connection) {
    this.connection = connection;
    this.reason = '';
  }

  #disconnect(connection, reason) {
    if (this.isLive) {
      this.history.interrupt(this.#newest);
    }
    this.connection = connection;
    this.reason = reason;
  }

  #takeAge(age) {
    this.#age = age ?? null;
    this.#ageAt = performance.now();
  }

  #takeSet({time, age, full, values}) {
    this.setTime = time;
    this.#takeAge(age);
    this.#takeTime(time);
    const changed = [];
    for (const [index, value, code] of values) {
      const isAlike = value === this.#values[index] && code === this.#codes[index];
      if (index < this.leaves.length && (full || !isAlike)) {
        this.#takeValue(index, value, code);
        changed.push(index);
      }
    }
    return changed;
  }

  // A set that nobody knows the time of has that which it would be on the clock of the others.
  #takeTime(time) {
    const here = performance.now() / 1000;
    const there = time ? Date.parse(time) / 1000 : here + this.#ahead;
    this.#ahead = there - here;
    // A clock that was set back must not have a trend run backwards, nor stop it until the former time is reached.
    if (there < this.#newest) {
      this.history.shift(there - this.#newest);
    }
    this.#newest = there;
  }

  #takeValue(index, value, code) {
    this.faulty -= this.isFaulty(index) ? 1 : 0;
    this.#values[index] = value;
    this.#codes[index] = code;
    this.faulty += this.isFaulty(index) ? 1 : 0;
    if (isNumeric(this.leaves[index])) {
      this.history.add(index, this.#newest, isValid(code) ? numberOf(value) : null);
    }
  }
}
