// The notice above the table: the list and the server's counts differ.

import { byId, setText } from './dom.js';

const NOUNS = { message: 'client without a transfer', upload: 'upload', download: 'download' };
const PLURALS = { message: 'clients without a transfer', upload: 'uploads', download: 'downloads' };

// One sentence for each type of connection of which the list holds more or fewer than are counted.
export function excessSentences(excess) {
  return Object.entries(excess).filter(([, number]) => number !== 0).map(([type, number]) => {
    const amount = Math.abs(number);
    const what = `${amount} ${amount === 1 ? NOUNS[type] : PLURALS[type]}`;
    return number > 0
      ? `The list shows ${what} more than the server counts: a client's text may imitate clients.`
      : `The list shows ${what} fewer than the server counts.`;
  });
}

export function showExcess(excess) {
  const sentences = excessSentences(excess);
  byId('excess').hidden = sentences.length === 0;
  setText(byId('excess'), sentences.join(' '));
}
