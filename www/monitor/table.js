// The table of the clients: one row a client, kept from one refresh to the next, so that focus,
// selection and opened texts stay where they are.

import { describeUser, isMoving, isProgressKnown, phaseOf, PHASES, remainingSeconds, splitPath } from './clients.js';
import { byId, element, setAttribute, setText } from './dom.js';
import { formatDuration, formatPercent, formatSize, formatSpeed } from './format.js';
import { setForeignText } from './long_text.js';

// A browser takes long to lay out thousands of rows, and nobody reads them.
const ROWS_AT_ONCE = 200;

// Each column: its title, whether figures stand in it, how a cell is made and how it is filled.
const COLUMNS = {
  address: { title: 'Client', make: makeAddress, fill: fillAddress },
  phase: { title: 'Activity', fill: fillPhase },
  file: { title: 'File', make: makeFile, fill: fillFile },
  size: { title: 'Size', figure: true, fill: fillSize },
  progress: { title: 'Progress', make: makeProgress, fill: fillProgress },
  speed: { title: 'Speed', figure: true, fill: fillSpeed },
  remaining: { title: 'Remaining', figure: true, fill: fillRemaining },
  user: { title: 'User', make: makeUser, fill: fillUser },
};

// What a reading greatest-first sorts better by when it is first chosen.
const DESCENDING_FIRST = new Set(['size', 'progress', 'speed']);

export class ClientTable {
  #rows = new Map();
  #limit = ROWS_AT_ONCE;
  #order;
  #onChange;

  // `order` is {column, descending}; `onChange(order)` asks for a new `show` when the operator has
  // chosen another order or more rows.
  constructor(order, onChange) {
    this.#order = order;
    this.#onChange = onChange;
    for (const [name, column] of Object.entries(COLUMNS)) this.#addHeading(name, column);
    this.#markOrder();
    byId('more').addEventListener('click', () => {
      this.#limit += ROWS_AT_ONCE;
      onChange(this.#order);
    });
  }

  #addHeading(name, { title, figure }) {
    const button = element('button', '', title);
    button.type = 'button';
    button.addEventListener('click', () => this.#sortBy(name));
    const heading = element('th', figure ? 'figures' : '', button);
    heading.scope = 'col';
    heading.dataset.column = name;
    heading.setAttribute('role', 'columnheader');
    byId('columns').append(heading);
  }

  #sortBy(column) {
    const again = this.#order.column === column;
    const descending = again ? !this.#order.descending : DESCENDING_FIRST.has(column);
    this.#order = { column, descending };
    this.#markOrder();
    this.#onChange(this.#order);
  }

  #markOrder() {
    const direction = this.#order.descending ? 'descending' : 'ascending';
    for (const heading of byId('columns').children) {
      const chosen = heading.dataset.column === this.#order.column;
      setAttribute(heading, 'aria-sort', chosen ? direction : null);
    }
  }

  // Shows these clients in this order, as many as the operator has asked for.
  show(clients) {
    const focused = document.activeElement;
    const body = byId('rows');
    const former = this.#rows;
    this.#rows = new Map();
    for (const [index, client] of clients.slice(0, this.#limit).entries()) {
      const key = this.#freeKey(client);
      const row = former.get(key) ?? makeRow();
      former.delete(key);
      this.#rows.set(key, row);
      fillRow(row, client);
      if (body.children[index] !== row) body.insertBefore(row, body.children[index] ?? null);
    }
    for (const row of former.values()) row.remove();
    if (focused !== document.activeElement && focused.isConnected) focused.focus({ preventScroll: true });
    this.#offerMore(clients.length - this.#rows.size);
  }

  // Two records can claim to be the same connection if one of them is forged.
  #freeKey({ id, address, port }) {
    const key = `${id} ${address} ${port}`;
    let free = key;
    for (let copy = 2; this.#rows.has(free); ++copy) free = `${key} ${copy}`;
    return free;
  }

  #offerMore(hidden) {
    const more = byId('more');
    more.hidden = hidden === 0;
    setText(more, `Show ${Math.min(hidden, ROWS_AT_ONCE)} more of ${hidden} clients`);
  }
}

function makeRow() {
  const row = element('tr');
  row.setAttribute('role', 'row');
  for (const [name, { figure, make }] of Object.entries(COLUMNS)) {
    const cell = element('td', figure ? `${name} figures` : name);
    cell.setAttribute('role', 'cell');
    if (make) make(cell);
    row.append(cell);
  }
  return row;
}

function fillRow(row, client) {
  setAttribute(row, 'data-phase', phaseOf(client));
  Object.values(COLUMNS).forEach(({ fill }, index) => fill(row.children[index], client));
}

function makeAddress(cell) {
  cell.append(element('span', 'peer'), element('span', 'mark'));
}

function fillAddress(cell, { address, port, doubt }) {
  const [peer, mark] = cell.children;
  setText(peer, `${address}:${port}`);
  setText(mark, doubt === 'row' ? 'may be forged' : '');
}

function fillPhase(cell, client) {
  setText(cell, PHASES[phaseOf(client)]);
}

function makeFile(cell) {
  cell.append(element('bdi', 'name'), element('bdi', 'folder'), element('span', 'mark'));
}

function fillFile(cell, client) {
  const [nameNode, folderNode, mark] = cell.children;
  const { folder, name } = splitPath(client.file);
  setForeignText(nameNode, name);
  setForeignText(folderNode, folder);
  setText(mark, client.doubt === 'texts' ? 'file, size, progress and user may be forged' : '');
}

function fillSize(cell, { file, size }) {
  setText(cell, file === '' ? '' : Number.isNaN(size) ? '?' : formatSize(size));
}

function makeProgress(cell) {
  const bar = element('progress');
  bar.max = 100;
  bar.setAttribute('aria-label', 'Progress');
  cell.append(bar, element('span', 'percent'));
}

// A transfer whose data has stopped is reported with a progress of 0, whatever it has reached.
function fillProgress(cell, client) {
  const [bar, text] = cell.children;
  const moving = isMoving(client);
  const known = moving && isProgressKnown(client);
  bar.hidden = !known;
  bar.value = known ? Math.min(100, client.progress) : 0;
  setText(text, known ? formatPercent(client.progress) : moving ? '?' : '');
}

function fillSpeed(cell, client) {
  setText(cell, client.speed > 0 ? formatSpeed(client.speed) : '');
}

function fillRemaining(cell, client) {
  const seconds = remainingSeconds(client);
  setText(cell, seconds === null ? '' : formatDuration(seconds));
}

function makeUser(cell) {
  cell.append(element('bdi', 'information'), element('span', 'mark'));
}

function fillUser(cell, client) {
  const [information, mark] = cell.children;
  setForeignText(information, describeUser(client));
  setText(mark, client.userInformation === null ? 'broken JSON' : '');
}
