// The line that tells how fresh the figures are. Its first part is announced by screen readers, so
// that it changes only with the state; the age beside it is silent.

import { DocumentError } from './documents.js';
import { byId, setText } from './dom.js';
import { formatClock, formatDuration } from './format.js';

export class StateLine {
  #lastAnswer = null;
  #begun = new Date();
  #state = 'starting';

  constructor() {
    this.#show('Asking the server');
    setInterval(() => this.#showAge(), 1000);
  }

  fresh() {
    this.#lastAnswer = new Date();
    this.#state = 'fresh';
    this.#show('Live');
  }

  // No answer, or one that says nothing: the figures shown are old from here on.
  lost(error) {
    this.#state = 'lost';
    const what = error instanceof DocumentError ? 'No usable answer' : 'No answer';
    this.#show(`${what} since ${formatClock(this.#lastAnswer ?? this.#begun)}`);
  }

  paused() {
    this.#state = 'paused';
    this.#show('Paused');
  }

  // The page is seen again after a rest, and the first new answer is still under way.
  waking() {
    this.#state = 'waking';
    this.#show('Asking the server again');
  }

  #show(text) {
    document.body.dataset.state = this.#state;
    setText(byId('state'), text);
    this.#showAge();
  }

  #showAge() {
    const since = this.#lastAnswer ?? this.#begun;
    const age = formatDuration((Date.now() - since.getTime()) / 1000);
    const texts = {
      fresh: `figures of ${formatClock(since)}`,
      lost: this.#lastAnswer ? `figures shown are ${age} old` : `for ${age}`,
      paused: this.#lastAnswer ? `figures of ${formatClock(since)}` : '',
      waking: `figures shown are ${age} old`,
    };
    setText(byId('age'), texts[this.#state] ?? '');
  }
}
