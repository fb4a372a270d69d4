// What the records of the list mean to an operator: who does what, in which order, and which of
// them are wanted.

export const PHASES = {
  uploading: 'Uploading',
  downloading: 'Downloading',
  uploadSilent: 'Upload, no data',
  downloadSilent: 'Download, no data',
  uploadEnded: 'Upload ended',
  downloadEnded: 'Download ended',
  idle: 'No transfer',
};

// The name of the client's phase in PHASES. The server keeps the type of a transfer that has ended
// and clears its file, and it reports no speed once no data has moved for up to 45 seconds.
export function phaseOf(client) {
  if (client.type !== 'upload' && client.type !== 'download') return 'idle';
  if (client.file === '') return `${client.type}Ended`;
  return client.speed > 0 ? `${client.type}ing` : `${client.type}Silent`;
}

export function isMoving(client) {
  return client.file !== '' && client.type !== 'message' && client.speed > 0;
}

// A client announces the size that its progress is measured by, so any number can come out.
export function isProgressKnown({ progress }) {
  return Number.isFinite(progress) && progress >= 0;
}

// Seconds until the transfer is done at its present speed; null if that is not known.
export function remainingSeconds(client) {
  if (!isMoving(client) || !isProgressKnown(client)) return null;
  return (client.size * Math.max(0, 100 - client.progress)) / 100 / client.speed;
}

// "name: value" pairs; a text that is no JSON stands as it came.
export function describeUser(client) {
  if (client.userInformation === null) return client.userText;
  return Object.entries(client.userInformation)
    .map(([name, value]) => `${name}: ${typeof value === 'string' ? value : JSON.stringify(value)}`)
    .join(', ');
}

// The last part of a path and the folder that holds it, without a separator at its end.
export function splitPath(path) {
  const cut = path.lastIndexOf('/');
  return { folder: path.slice(0, Math.max(cut, 0)), name: path.slice(cut + 1) };
}

const KINDS = {
  all: () => true,
  transfers: (client) => client.file !== '',
  uploads: (client) => client.type === 'upload' && client.file !== '',
  downloads: (client) => client.type === 'download' && client.file !== '',
  others: (client) => client.file === '',
};

// The clients of one kind (a key of KINDS) whose address, phase, file or user information holds
// every word of the text, whatever its case.
export function filterClients(clients, { kind, text }) {
  const words = text.toLowerCase().split(/\s+/).filter(Boolean);
  return clients.filter((client) => KINDS[kind](client) && holdsAll(client, words));
}

function holdsAll(client, words) {
  if (words.length === 0) return true;
  const searched = [`${client.address}:${client.port}`, PHASES[phaseOf(client)], client.file,
    describeUser(client)].join('\n').toLowerCase();
  return words.every((word) => searched.includes(word));
}

const natural = new Intl.Collator('en', { numeric: true });
const phaseOrder = Object.keys(PHASES);
const last = Number.MAX_VALUE;
const known = (figure) => (Number.isNaN(figure) ? -1 : figure);
const compareFigures = (a, b) => (known(a) === known(b) ? 0 : known(a) - known(b));

const ORDERS = {
  address: (a, b) => natural.compare(a.address, b.address) || a.port - b.port,
  phase: (a, b) => phaseOrder.indexOf(phaseOf(a)) - phaseOrder.indexOf(phaseOf(b)),
  file: (a, b) => natural.compare(splitPath(a.file).name, splitPath(b.file).name),
  size: (a, b) => compareFigures(a.size, b.size),
  progress: (a, b) => compareFigures(a.progress, b.progress),
  speed: (a, b) => a.speed - b.speed,
  remaining: (a, b) => (remainingSeconds(a) ?? last) - (remainingSeconds(b) ?? last),
  user: (a, b) => natural.compare(describeUser(a), describeUser(b)),
};

// A sorted copy by one column (a key of ORDERS); equals stay as they stood, oldest first.
export function sortClients(clients, { column, descending }) {
  const order = ORDERS[column];
  return [...clients].sort(descending ? (a, b) => order(b, a) : order);
}
