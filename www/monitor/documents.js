// Reads the two documents of the command port.
//
// The server writes both with a fixed order of keys. In the list it doubles each backslash and
// escapes nothing else, and it puts a client's user information in as it came. So the list is often
// no JSON, and a client's text can imitate parts of it. docs/monitoring.md states the rules by which
// it is read; `transmit top` shares them (client/cli/server_report.cpp).

const LIST_START = '{"transmit_nodes":[';
const LAST_RECORD_END = '}]}';
const RECORD_END = '},';

const REAL = String.raw`-?(?:\d{1,6}(?:\.\d{1,9})?(?:e[+-]\d{2,3})?|inf|nan)`;

// What the server writes before a file name, and between it and user information. Neither can begin
// within another: only their first characters hold those that they begin with.
const HEAD = new RegExp(String.raw`\{"node_id":(?<id>\d{1,20}),"node_ip":"(?<address>[0-9.]{0,15})"`
  + String.raw`,"node_port":(?<port>\d{1,5}),"node_type":"(?<type>message|upload|download)"`
  + String.raw`,"node_speed":(?<speed>${REAL}),"node_filename":"`, 'g');
const TAIL = new RegExp(String.raw`","node_filesize":(?<size>\d{1,20}),"node_progress":(?<progress>${REAL})`
  + String.raw`,"node_user_info":(?=\{)`, 'g');

export class DocumentError extends Error {}

// Every record of the list, oldest connection first, and whatever a client's text imitates of
// records. Throws DocumentError if the text is no transmit list.
//
// A client has id (text), address, port, type ("message", "upload" or "download"), speed (bytes a
// second), file, size (bytes), progress (percent; may be negative, infinite or NaN), userInformation
// (object, or null if its text is no JSON), userText (that text), and doubt: "texts" if file, size,
// progress and user information can't be told apart, else null. In doubt, file holds all that the
// client wrote, and size and progress are NaN.
export function readTransmitList(text) {
  if (!text.startsWith(LIST_START)) throw new DocumentError('the answer is no transmit list');
  const heads = Array.from(text.matchAll(HEAD));
  return heads.map((head, index) => {
    const begin = head.index + head[0].length;
    const next = heads[index + 1];
    const texts = text.slice(begin, next?.index);
    return { ...readHead(head), ...readTexts(texts, next ? RECORD_END : LAST_RECORD_END) };
  });
}

function readHead({ groups: { id, address, port, type, speed } }) {
  return { id, address, port: Number(port), type, speed: readReal(speed) };
}

// What stands behind a head, up to the next: a name, a tail and user information.
function readTexts(texts, end) {
  const whole = texts.endsWith(end);
  const content = whole ? texts.slice(0, -end.length) : texts;
  const [tail, ...further] = content.matchAll(TAIL);
  if (!whole || !tail || further.length > 0) {
    return { file: undouble(content), size: NaN, progress: NaN, userInformation: {}, userText: '{}', doubt: 'texts' };
  }
  const userText = content.slice(tail.index + tail[0].length);
  return {
    file: undouble(content.slice(0, tail.index)),
    size: Number(tail.groups.size),
    progress: readReal(tail.groups.progress),
    userInformation: parseObject(userText),
    userText,
    doubt: null,
  };
}

function readReal(text) {
  if (text.endsWith('inf')) return text.startsWith('-') ? -Infinity : Infinity;
  return Number(text);
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
