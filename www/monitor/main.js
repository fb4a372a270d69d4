// Puts the page together. Figures flow one way: from the poller to the totals, the charts and the
// table. What the operator chooses only changes the pace and what the table shows of the figures.

import { SpeedCharts } from './charts.js';
import { filterClients, sortClients } from './clients.js';
import { byId, setText } from './dom.js';
import { ExcessWatch } from './excess.js';
import { SpeedHistory } from './history.js';
import { showExcess } from './notices.js';
import { Poller } from './poll.js';
import { readPreferences, writePreferences } from './preferences.js';
import { fetchSnapshot } from './snapshot.js';
import { StateLine } from './state_line.js';
import { ClientTable } from './table.js';
import { showTotals } from './totals.js';

const CHART_SECONDS = 300;

const choices = readPreferences();
const history = new SpeedHistory(CHART_SECONDS);
const charts = new SpeedCharts(CHART_SECONDS);
const excessWatch = new ExcessWatch();
const state = new StateLine();
const table = new ClientTable(choices, ({ column, descending }) => {
  Object.assign(choices, { column, descending });
  writePreferences(choices);
  showClients();
});
let clients = null;

function showClients() {
  if (clients === null) return;
  const shown = filterClients(clients, { kind: choices.kind, text: byId('filter').value });
  table.show(sortClients(shown, choices));
  setText(byId('shown'), shown.length === clients.length ? '' : `${shown.length} of ${clients.length}`);
  byId('empty').hidden = shown.length > 0;
  setText(byId('empty'), clients.length === 0 ? 'No client is connected.' : 'No client matches the filter.');
}

function showHistory() {
  charts.show(history, performance.now());
}

function onAnswer(snapshot) {
  clients = excessWatch.mark(snapshot.clients, snapshot.excess);
  state.fresh();
  history.add(performance.now(), snapshot.totals.uploadSpeed, snapshot.totals.downloadSpeed);
  showTotals(snapshot.totals);
  showExcess(snapshot.excess);
  showClients();
  showHistory();
}

function onFailure(error) {
  state.lost(error);
  history.addGap(performance.now());
  showHistory();
}

const poller = new Poller({
  ask: fetchSnapshot, onAnswer, onFailure, interval: Number(choices.interval) * 1000,
});

function pause() {
  history.addGap(performance.now());
  state.paused();
}

function onInterval() {
  choices.interval = byId('interval').value;
  writePreferences(choices);
  poller.interval = Number(choices.interval) * 1000;
  if (choices.interval === '0') pause();
  else state.waking();
}

function onVisibility() {
  poller.resting = document.hidden;
  if (choices.interval === '0') return;
  if (document.hidden) history.addGap(performance.now());
  else state.waking();
}

function onKind() {
  choices.kind = byId('kind').value;
  writePreferences(choices);
  showClients();
}

byId('interval').value = choices.interval;
byId('kind').value = choices.kind;
byId('interval').addEventListener('change', onInterval);
byId('kind').addEventListener('change', onKind);
byId('filter').addEventListener('input', showClients);
document.addEventListener('visibilitychange', onVisibility);
setText(byId('host'), location.host);
if (choices.interval === '0') state.paused();
