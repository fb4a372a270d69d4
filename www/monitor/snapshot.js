// One asking of the server: its list and then its totals.

import { DocumentError, readTransmitList, readTransmitStatistics } from './documents.js';

// {clients, unreadable, totals}. The totals are asked for second, so that both come from the same
// figures of the server unless a connection came or went between. Rejects with a DocumentError if
// the server answers something else, with another error if it doesn't answer.
export async function fetchSnapshot(signal) {
  const list = readTransmitList(await fetchText('/sys/transmit_list', signal));
  const totals = readTransmitStatistics(await fetchText('/sys/transmit_statistics', signal));
  return { ...list, totals };
}

// Names are bytes to the server: what is no UTF-8 arrives as U+FFFD.
async function fetchText(url, signal) {
  const response = await fetch(url, { signal, cache: 'no-store', redirect: 'error' });
  if (!response.ok) throw new DocumentError(`the answer is ${response.status}`);
  return response.text();
}

// Counts askings in a row whose list is longer than the server's own count. Connections that come
// and go between the two requests make the lists of single askings too long or too short; only
// text within a record that imitates further records keeps them too long.
export class ForgeryWatch {
  #inRow = 0;

  static SUSPICIOUS = 3;

  // How many records too many the list holds; 0 until it lasts.
  excess({ clients, unreadable, totals }) {
    const counted = totals.idleCount + totals.uploadCount + totals.downloadCount;
    const excess = clients.length + unreadable.length - counted;
    this.#inRow = excess > 0 ? this.#inRow + 1 : 0;
    return this.#inRow >= ForgeryWatch.SUSPICIOUS ? excess : 0;
  }
}
