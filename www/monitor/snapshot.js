// One look at the server: its list and then its totals.

import { DocumentError, readTransmitList, readTransmitStatistics } from './documents.js';
import { agrees, excessOf } from './excess.js';

const MOST_LOOKS = 3;

// {clients, totals, excess}. Looks again while the two documents disagree: a connection may have
// come or gone between them. Rejects with a DocumentError if the server answers something else, with
// another error if it doesn't answer.
export async function fetchSnapshot(signal) {
  for (let looks = 1; ; ++looks) {
    const snapshot = await lookOnce(signal);
    if (agrees(snapshot.excess) || looks === MOST_LOOKS) return snapshot;
  }
}

// The totals come second: asking for the list is what refreshes the server's figures.
async function lookOnce(signal) {
  const clients = readTransmitList(await fetchText('/sys/transmit_list', signal));
  const totals = readTransmitStatistics(await fetchText('/sys/transmit_statistics', signal));
  return { clients, totals, excess: excessOf(clients, totals) };
}

// Names are bytes to the server: what is no UTF-8 arrives as U+FFFD.
async function fetchText(url, signal) {
  const response = await fetch(url, { signal, cache: 'no-store', redirect: 'error' });
  if (!response.ok) throw new DocumentError(`the answer is ${response.status}`);
  return response.text();
}
