// Speaks the server's side of the command port as the server does, with documents of a test's
// choice: the same five header fields, "Connection: close" on a connection that stays open.

import { readFile } from 'node:fs/promises';
import net from 'node:net';
import { fileURLToPath } from 'node:url';

const WWW = fileURLToPath(new URL('../../../www/', import.meta.url));
const TYPES = { '.html': 'text/html', '.css': 'text/css', '.js': 'text/javascript' };

export class CommandPort {
  // What the next polls get; a Buffer holds bytes that are no UTF-8.
  list = '{"transmit_nodes":[]}';
  statistics = statisticsDocument([]);
  silent = false;
  chartLibrary = '/usr/share/javascript/chart.js/chart.min.js';
  listRequests = 0;
  #server = net.createServer((socket) => this.#serve(socket));
  #sockets = new Set();

  // Listens on a free port of the loopback, or again on the one it had.
  start() {
    return new Promise((resolve, reject) => {
      this.#server.once('error', reject);
      this.#server.listen(this.port ?? 0, '127.0.0.1', () => {
        this.port = this.#server.address().port;
        resolve();
      });
    });
  }

  // Ends every connection, as the end of the process would.
  stop() {
    for (const socket of this.#sockets) socket.destroy();
    return new Promise((resolve) => { this.#server.close(resolve); });
  }

  get url() {
    return `http://127.0.0.1:${this.port}/`;
  }

  // Shows these records and the totals that the server would reckon from them.
  show(records) {
    this.list = listDocument(records);
    this.statistics = statisticsDocument(records);
  }

  #serve(socket) {
    let received = '';
    this.#sockets.add(socket);
    socket.on('close', () => this.#sockets.delete(socket));
    socket.on('error', () => {});
    socket.on('data', (bytes) => {
      received += bytes.toString('latin1');
      for (let end; (end = received.indexOf('\r\n\r\n')) !== -1; received = received.slice(end + 4)) {
        this.#answer(socket, received.split(' ', 2)[1]);
      }
    });
  }

  async #answer(socket, url) {
    if (url.startsWith('/sys/') && this.silent) return;
    const { status = '200 OK', type, body } = await this.#find(url);
    socket.write(Buffer.concat([Buffer.from(`HTTP/1.1 ${status}\r\n`
      + 'Access-Control-Allow-Origin: *\r\nConnection: close\r\n'
      + `Content-Type: ${type}\r\nContent-Length: ${body.length}\r\n\r\n`), body]));
  }

  async #find(url) {
    if (url === '/sys/transmit_list') ++this.listRequests;
    const documents = { '/sys/transmit_list': this.list, '/sys/transmit_statistics': this.statistics };
    if (url in documents) return { type: 'application/json', body: Buffer.from(documents[url]) };
    const path = url === '/' ? `${WWW}main.html`
      : url === '/monitor/chart.min.js' ? this.chartLibrary : WWW + url.slice(1);
    try {
      return { type: TYPES[path.slice(path.lastIndexOf('.'))], body: await readFile(path) };
    } catch {
      return { status: '404 Not Found', type: 'text/html', body: Buffer.from('<h1>404 Not Found</h1>') };
    }
  }
}

// A record as the list document writes it, with a client's texts put in as they are.
export function record(fields) {
  const node = { id: 1, ip: '127.0.0.1', port: 50000, type: 'message', speed: 0, filename: '',
    filesize: 0, progress: 0, user_info: '{}', ...fields };
  const text = `{"node_id":${node.id},"node_ip":"${node.ip}","node_port":${node.port}`
    + `,"node_type":"${node.type}","node_speed":${general(node.speed)},"node_filename":"${node.filename}"`
    + `,"node_filesize":${node.filesize},"node_progress":${general(node.progress)}`
    + `,"node_user_info":${node.user_info}}`;
  return text.replaceAll('\\', '\\\\');
}

export function listDocument(records) {
  return `{"transmit_nodes":[${records.map(record).join(',')}]}`;
}

export function statisticsDocument(records) {
  const of = (type) => records.filter((node) => (node.type ?? 'message') === type);
  const speeds = (type) => of(type).map((node) => node.speed ?? 0);
  const sum = (type) => general(speeds(type).reduce((total, speed) => total + speed, 0));
  const greatest = (type) => general(Math.max(0, ...speeds(type)));
  return `{"transmit_statistics":{"message_connection_count":${of('message').length}`
    + `,"upload_connection_count":${of('upload').length}`
    + `,"download_connection_count":${of('download').length}`
    + `,"upload_max_speed":${greatest('upload')},"download_max_speed":${greatest('download')}`
    + `,"upload_total_speed":${sum('upload')},"download_total_speed":${sum('download')}`
    + ',"last_data_update_time":"2024-03-05 10:22:33"}}';
}

// A float as %g writes it.
function general(value) {
  if (!Number.isFinite(value)) return String(value).replace('Infinity', 'inf').toLowerCase();
  const [digits, exponent] = value.toExponential(5).split('e');
  if (exponent >= -4 && exponent < 6) return String(Number(value.toPrecision(6)));
  return `${Number(digits)}e${exponent[0]}${exponent.slice(1).padStart(2, '0')}`;
}
