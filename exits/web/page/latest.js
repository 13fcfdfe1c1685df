// What the stream has said so far, as the messages that bring a tab up to date that comes later.

export class Latest {
  #region = null;
  #fingerprint = null;
  #set = null;
  #values = new Map();
  #setAt = 0;

  take(message) {
    if (message.kind === 'set') {
      if (message.full) {
        this.#values.clear();
      }
      message.values.forEach((value) => this.#values.set(value[0], value));
      this.#set = message;
      this.#setAt = performance.now();
    } else if (message.kind !== 'age') {
      this.#region = message;
      this.#describe(message.fingerprint ?? this.#fingerprint);
    }
  }

  // Values are told by the places of their leaves, which are others in another description.
  #describe(fingerprint) {
    if (fingerprint !== this.#fingerprint) {
      this.#fingerprint = fingerprint;
      this.#set = null;
      this.#values.clear();
    }
  }

  messages() {
    const told = this.#region ? [this.#region] : [];
    if (this.#set) {
      const waited = (performance.now() - this.#setAt) / 1000;
      const age = this.#set.age === null ? null : this.#set.age + waited;
      // The values first: what the region is now is said of them.
      told.unshift({...this.#set, age, full: true, values: [...this.#values.values()]});
    }
    return told;
  }
}
