// The real server in a copy of a built tree, on ports of its own, and clients that keep a transfer
// of their own pace under way.

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { cp, mkdtemp, readFile, rm, truncate, writeFile } from 'node:fs/promises';
import net from 'node:net';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

export class RealServer {
  #process;

  static async make(dist) {
    const server = new RealServer();
    server.root = await mkdtemp(join(tmpdir(), 'monitor-server-'));
    await cp(dist, server.root, { recursive: true });
    server.port = await freePort();
    server.commandPort = await freePort();
    const path = join(server.root, 'cfg/config.xml');
    const set = (text, name, value) => text.replace(new RegExp(`(<${name}>)[^<]*`), `$1${value}`);
    let settings = await readFile(path, 'utf8');
    settings = set(settings, 'port', server.port);
    settings = set(settings, 'command_port', server.commandPort);
    await writeFile(path, set(settings, 'transmit_info_update_interval', 1));
    return server;
  }

  get url() {
    return `http://127.0.0.1:${this.commandPort}/`;
  }

  // Returns when the server has said on its console that it runs.
  async start() {
    this.#process = spawn(join(this.root, 'transmit_server'), { stdio: ['pipe', 'pipe', 'inherit'] });
    await Promise.race([once(this.#process.stdout, 'data'),
      once(this.#process, 'exit').then(([code]) => { throw new Error(`the server ended: ${code}`); })]);
  }

  async stop() {
    const ended = once(this.#process, 'exit');
    this.#process.stdin.end('exit\n');
    await ended;
  }

  remove() {
    return rm(this.root, { recursive: true, force: true });
  }

  // A file of zero bytes in the first storage.
  async makeFile(name, size) {
    const path = join(this.root, 'storage/public', name);
    await writeFile(path, '');
    await truncate(path, size);
  }
}

async function freePort() {
  const probe = net.createServer().listen(0, '127.0.0.1');
  await once(probe, 'listening');
  const { port } = probe.address();
  probe.close();
  await once(probe, 'close');
  return port;
}

const STORAGE = 1;
const PACE = 100;
const BLOCK = 64 * 1024;

// Sends a block of the file every tenth of a second, until its connection ends.
export async function uploadSlowly(port, name, size, userInformation) {
  const socket = await connect(port);
  const header = message(40, 0);
  header.writeUInt32BE(STORAGE, 4);
  header.writeBigInt64BE(BigInt(size), 16);
  header.writeBigInt64BE(1700000000n, 24);
  header.writeUInt16BE(Buffer.byteLength(name), 32);
  const information = message(4, 18);
  information.writeUInt16BE(Buffer.byteLength(userInformation), 2);
  socket.write(Buffer.concat([information, Buffer.from(userInformation), header, Buffer.from(name)]));
  socket.resume();
  const block = message(8 + BLOCK, 2);
  block.writeUInt32BE(BLOCK, 4);
  keepPace(socket, () => socket.write(block));
  return socket;
}

// Reads a part of the file every tenth of a second, until its connection ends.
export async function downloadSlowly(port, name) {
  const socket = await connect(port);
  const header = message(16, 6);
  header.writeUInt32BE(STORAGE, 4);
  header.writeUInt16BE(Buffer.byteLength(name), 12);
  socket.write(Buffer.concat([header, Buffer.from(name), message(16, 8)]));
  keepPace(socket, () => socket.read());
  return socket;
}

async function connect(port) {
  const socket = net.connect(port, '127.0.0.1');
  socket.on('error', () => {});
  await once(socket, 'connect');
  return socket;
}

function message(size, type) {
  const bytes = Buffer.alloc(size);
  bytes.writeUInt16BE(type, 0);
  return bytes;
}

function keepPace(socket, step) {
  const timer = setInterval(step, PACE);
  socket.on('close', () => clearInterval(timer));
}
