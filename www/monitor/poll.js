// The pace of asking: one request at a time, at the operator's interval, none while resting.

const TIME_OUT = 5000;

export class Poller {
  #ask;
  #onAnswer;
  #onFailure;
  #interval;
  #resting = false;
  #busy = false;
  #timer = null;

  // `ask` takes an AbortSignal and gives a promise; exactly one of `onAnswer(answer)` and
  // `onFailure(error)` follows each asking. `interval` is in milliseconds, 0 pauses.
  constructor({ ask, onAnswer, onFailure, interval }) {
    this.#ask = ask;
    this.#onAnswer = onAnswer;
    this.#onFailure = onFailure;
    this.#interval = interval;
    this.#schedule(0);
  }

  set interval(milliseconds) {
    this.#interval = milliseconds;
    this.#schedule(0);
  }

  // A resting poller asks nothing; the end of the rest asks at once.
  set resting(resting) {
    this.#resting = resting;
    this.#schedule(0);
  }

  #schedule(delay) {
    clearTimeout(this.#timer);
    if (this.#busy || this.#resting || this.#interval === 0) return;
    this.#timer = setTimeout(() => this.#poll(), delay);
  }

  async #poll() {
    this.#busy = true;
    const begun = performance.now();
    let report;
    try {
      const answer = await this.#ask(AbortSignal.timeout(TIME_OUT));
      report = () => this.#onAnswer(answer);
    } catch (error) {
      report = () => this.#onFailure(error);
    }
    this.#busy = false;
    this.#schedule(Math.max(0, this.#interval - (performance.now() - begun)));
    report();
  }
}
