// What the numbers were, for the trends: of each leaf when it changed, and to what. Kept in rings, of which those that
// somebody looks at are long; the others share a budget, so that a large device does not fill the browser's memory.

const lengthOfWatched = 3000;
const budget = 1000000;

class Ring {
  #times;
  #numbers;
  #first = 0;
  #count = 0;

  constructor(length) {
    this.#times = new Float64Array(length);
    this.#numbers = new Float64Array(length);
  }

  get length() {
    return this.#times.length;
  }

  add(time, number) {
    const at = (this.#first + this.#count) % this.length;
    this.#times[at] = time;
    this.#numbers[at] = number;
    if (this.#count < this.length) {
      this.#count += 1;
    } else {
      this.#first = (this.#first + 1) % this.length;
    }
  }

  shift(seconds) {
    this.#times.forEach((time, at) => {
      this.#times[at] = time + seconds;
    });
  }

  forEach(take) {
    for (let i = 0; i < this.#count; ++i) {
      const at = (this.#first + i) % this.length;
      take(this.#times[at], this.#numbers[at]);
    }
  }
}

export class History {
  #rings = new Map();
  #length;

  constructor(leafCount) {
    this.#length = Math.min(lengthOfWatched, Math.floor(budget / Math.max(1, leafCount)));
  }

  /** From now on the leaf is kept for as long as a trend shows it. */
  watch(index) {
    const ring = this.#rings.get(index);
    if (!ring || ring.length < lengthOfWatched) {
      const longer = new Ring(lengthOfWatched);
      ring?.forEach((time, number) => longer.add(time, number));
      this.#rings.set(index, longer);
    }
  }

  /** `time` in seconds; null is a time without a valid number. */
  add(index, time, number) {
    let ring = this.#rings.get(index);
    if (!ring && this.#length > 0) {
      ring = new Ring(this.#length);
      this.#rings.set(index, ring);
    }
    ring?.add(time, number ?? NaN);
  }

  /** What is kept was so many seconds later, or earlier with a number below 0. */
  shift(seconds) {
    this.#rings.forEach((ring) => ring.shift(seconds));
  }

  /** Nothing is known of any leaf from now on. */
  interrupt(time) {
    this.#rings.forEach((ring) => ring.add(time, NaN));
  }

  /**
   * Times and numbers between two times, as a trend draws them: a value holds until the next one, and null makes a gap.
   */
  between(index, from, to) {
    const times = [];
    const numbers = [];
    let before = null;
    const hold = (end) => {
      if (before !== null && end >= from) {
        times.push(Math.max(before.time, from), end);
        numbers.push(before.number, before.number);
      }
    };
    this.#rings.get(index)?.forEach((time, number) => {
      hold(time);
      before = {time, number: Number.isNaN(number) ? null : number};
    });
    hold(Math.max(to, before?.time ?? to));
    return [times, numbers];
  }
}
