// Reads the two documents of the command port.
//
// The server writes both with a fixed order of keys. In the list it doubles each backslash and
// escapes nothing else, and it puts a client's user information in as it came. A quote in a file
// name or a broken user information thus makes the whole list invalid JSON, and a name can repeat
// a key, which JSON.parse would take for the value. So the list is read by its exact shape, record
// by record: a broken text spoils its own field and nothing else.

const LIST_START = '{"transmit_nodes":[';
const LIST_END = ']}';
const NUMBER = String.raw`\d+(?:\.\d+)?(?:e[+-]\d+)?`;
const HEAD_SHAPE = String.raw`\{"node_id":(?<id>\d+),"node_ip":"(?<address>[^"]{0,15})"` +
  String.raw`,"node_port":(?<port>\d+),"node_type":"(?<type>message|upload|download)"` +
  String.raw`,"node_speed":(?<speed>${NUMBER}),"node_filename":"`;
const HEAD = new RegExp(HEAD_SHAPE, 'y');
const TAIL = new RegExp(String.raw`","node_filesize":(?<size>\d+)` +
  String.raw`,"node_progress":(?<progress>${NUMBER}),"node_user_info":`);
const NEXT_RECORD = new RegExp(`,(?=${HEAD_SHAPE})`);

// The server keeps 1023 bytes of a text; doubled backslashes at most double that. The bounds keep
// the search for a lost end from running through the rest of a long list.
const NAME_LIMIT = 2 * 1023;
const INFORMATION_LIMIT = 1023;
const SHAPE_LIMIT = 256;

export class DocumentError extends Error {}

// The list as {clients, unreadable}: the records that could be read, oldest connection first, and
// the texts of those that could not. Throws DocumentError if the text is no transmit list at all.
//
// A client has id (text), address, port, type ("message", "upload" or "download"), speed (bytes a
// second), file, size (bytes), progress (percent), userInformation (object, or null if its text is
// no JSON), userText (that text), and repaired: true if its record was no valid JSON.
export function readTransmitList(text) {
  if (!text.startsWith(LIST_START)) throw new DocumentError('the answer is no transmit list');
  const complete = text.endsWith(LIST_END);
  const end = complete ? text.length - LIST_END.length : text.length;
  const list = { clients: [], unreadable: [] };
  let position = LIST_START.length;
  while (position < end) {
    const { client, recordEnd } = readRecord(text, position, end, complete);
    if (client) list.clients.push(client);
    else list.unreadable.push(text.slice(position, recordEnd));
    position = recordEnd + 1;
  }
  return list;
}

function readRecord(text, position, end, complete) {
  const lost = () => ({ client: null, recordEnd: nextRecord(text, position, end, end) });
  HEAD.lastIndex = position;
  const head = HEAD.exec(text);
  if (!head) return lost();
  const nameBegin = HEAD.lastIndex;
  const tail = TAIL.exec(text.slice(nameBegin, Math.min(end, nameBegin + NAME_LIMIT + SHAPE_LIMIT)));
  if (!tail) return lost();
  const informationBegin = nameBegin + tail.index + tail[0].length;
  const information = readInformation(text, informationBegin, end, complete);
  if (!information) return lost();
  const name = text.slice(nameBegin, nameBegin + tail.index);
  return { client: makeClient(head, name, tail, information), recordEnd: information.end + 1 };
}

function makeClient({ groups: head }, name, { groups: tail }, information) {
  return {
    id: head.id,
    address: head.address,
    port: Number(head.port),
    type: head.type,
    speed: Number(head.speed),
    file: undouble(name),
    size: Number(tail.size),
    progress: Number(tail.progress),
    userInformation: information.value,
    userText: information.text,
    repaired: name.includes('"') || information.value === null,
  };
}

// The user information that begins at a position, and where it ends: at the brace that closes its
// object if a record's end follows there, otherwise just before the next record's beginning.
function readInformation(text, begin, end, complete) {
  const closed = endOfObject(text, begin, Math.min(end, begin + INFORMATION_LIMIT));
  if (closed !== -1 && endsRecord(text, closed, end)) {
    const information = text.slice(begin, closed);
    const value = parseObject(information);
    if (value) return { text: information, value, end: closed };
  }
  const lastEnd = complete ? end : -1;
  const recordEnd = nextRecord(text, begin, end, lastEnd);
  if (recordEnd === -1 || text[recordEnd - 1] !== '}') return null;
  return { text: text.slice(begin, recordEnd - 1), value: null, end: recordEnd - 1 };
}

function endsRecord(text, position, end) {
  if (text[position] !== '}') return false;
  return position + 1 === end || text.startsWith(',{"node_id":', position + 1);
}

// The position of the comma before the next record within reach, or what to take if there is none.
function nextRecord(text, position, end, otherwise) {
  const reach = NAME_LIMIT + INFORMATION_LIMIT + 2 * SHAPE_LIMIT;
  const next = NEXT_RECORD.exec(text.slice(position, Math.min(end, position + reach)));
  return next ? position + next.index : otherwise;
}

// The position behind the brace that closes the object beginning at a position, or -1.
function endOfObject(text, begin, limit) {
  let depth = 0;
  let quoted = false;
  for (let at = begin; at < limit; ++at) {
    const character = text[at];
    if (character === '"') quoted = !quoted;
    else if (quoted) continue;
    else if (character === '{') ++depth;
    else if (character === '}' && --depth === 0) return at + 1;
  }
  return -1;
}

function parseObject(text) {
  try {
    const value = JSON.parse(text);
    return value !== null && typeof value === 'object' && !Array.isArray(value) ? value : null;
  } catch {
    return null;
  }
}

function undouble(text) {
  return text.replaceAll('\\\\', '\\');
}

const FIGURES = {
  message_connection_count: 'idleCount',
  upload_connection_count: 'uploadCount',
  download_connection_count: 'downloadCount',
  upload_max_speed: 'uploadFastest',
  download_max_speed: 'downloadFastest',
  upload_total_speed: 'uploadSpeed',
  download_total_speed: 'downloadSpeed',
};

// The totals: counts, speeds in bytes a second, and serverTime, the server's own date and time of
// these figures. Throws DocumentError if the text is no statistics document.
export function readTransmitStatistics(text) {
  const figures = parseObject(text)?.transmit_statistics;
  if (typeof figures?.last_data_update_time !== 'string') {
    throw new DocumentError('the answer is no statistics document');
  }
  const totals = { serverTime: figures.last_data_update_time };
  for (const [key, name] of Object.entries(FIGURES)) {
    if (!Number.isFinite(figures[key])) throw new DocumentError(`the statistics lack ${key}`);
    totals[name] = figures[key];
  }
  return totals;
}
