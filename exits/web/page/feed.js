// The stream of the server as messages. It is opened anew when it ends, and when it is silent for longer than the
// server ever is: a cable that was pulled ends no connection.

const longestSilence = 15000;
const pauseBeforeNext = 3000;
const kinds = ['hello', 'set', 'age', 'gone', 'back'];

export class Feed {
  #tell;
  #source = null;
  #timer = 0;

  /** `tell` gets {kind, ...} with kind hello, set, age, gone, back, and lost where there is no server. */
  constructor(tell) {
    this.#tell = tell;
    this.#open();
  }

  close() {
    clearTimeout(this.#timer);
    this.#source?.close();
    this.#source = null;
  }

  #open() {
    this.#source = new EventSource('/api/events');
    for (const kind of kinds) {
      this.#source.addEventListener(kind, (event) => {
        this.#watchSilence();
        this.#tell({...JSON.parse(event.data), kind});
      });
    }
    this.#source.onerror = () => this.#openAnew();
    this.#watchSilence();
  }

  #watchSilence() {
    clearTimeout(this.#timer);
    this.#timer = setTimeout(() => this.#openAnew(), longestSilence);
  }

  // Not left to the browser: it gives up for good where the answer is an error, as when the server is full.
  #openAnew() {
    this.close();
    this.#tell({kind: 'lost'});
    this.#timer = setTimeout(() => this.#open(), pauseBeforeNext);
  }
}
