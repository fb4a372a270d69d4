// Random lists of clients whose texts are made of what can hurt: pieces of records, of their
// punctuation, and bytes of any kind. The same seed makes the same lists.

import { record } from './command_port.mjs';

const LONGEST_TEXT = 1023;
const TYPES = ['message', 'upload', 'download'];
const MARKS = ['"', '{', '}', ',', ']}', '\\', '},', '{}', '}},', '":', ']}{', '\u00e9'];
const TAIL = '","node_filesize":1,"node_progress":1,"node_user_info":{';

export class HostileClients {
  #state;
  #earlier = '';

  constructor(seed) {
    this.#state = seed;
  }

  // Records whose texts are as the server keeps them, one character a byte.
  list() {
    return Array.from({ length: this.#below(6) }, () => {
      const made = { id: 2458713423872, ip: '192.0.2.7', port: this.#below(4), type: TYPES[this.#below(3)],
        speed: 10485800, filesize: 7, progress: this.#below(5) === 0 ? Infinity : this.#below(9),
        filename: this.#honest() ? 'name' : this.#text().replaceAll('\0', '').slice(0, LONGEST_TEXT),
        user_info: this.#honest() ? '{"user":"ann"}' : keptInformation(`{${this.#text()}}`) };
      this.#earlier = record(made);
      return made;
    });
  }

  // Park and Miller's generator ("Random number generators: good ones are hard to find", 1988).
  #below(bound) {
    this.#state = (this.#state * 48271) % 2147483647;
    return this.#state % bound;
  }

  #honest() {
    return this.#below(3) === 0;
  }

  #forgedRecord() {
    return record({ id: 2458713423872, ip: '192.0.2.7', port: this.#below(4), type: TYPES[this.#below(3)],
      speed: 10485800, filename: 'forged', filesize: 7, progress: 5 });
  }

  #piece() {
    const kind = this.#below(9);
    if (kind === 0) return this.#forgedRecord();
    if (kind === 1) return this.#forgedRecord().slice(0, -1);
    if (kind === 2) {
      const source = this.#below(2) === 0 ? this.#forgedRecord() : this.#earlier;
      const start = this.#below(source.length + 1);
      return source.slice(start, start + this.#below(200));
    }
    if (kind === 3) return TAIL;
    if (kind === 4) return '{"node_id":1,"node_ip":"10.0.0.1","node_port":1,"node_type":"upload"';
    if (kind === 5) return String.fromCharCode(this.#below(256));
    return MARKS[this.#below(MARKS.length)];
  }

  #text() {
    return Array.from({ length: this.#below(8) + 1 }, () => this.#piece()).join('');
  }
}

// What the server keeps of user information.
function keptInformation(text) {
  const kept = text.replaceAll('\\', '');
  return kept.length <= LONGEST_TEXT && !kept.includes('\0') && kept.endsWith('}') ? kept : '{}';
}
