// Drives a headless Chromium over its DevTools pipe: messages of JSON, each ended by a zero byte.

import { spawn } from 'node:child_process';
import { existsSync } from 'node:fs';
import { mkdtemp, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

const FLAGS = ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
  '--disable-background-networking', '--disable-component-update', '--disable-sync',
  '--disable-dev-shm-usage', '--hide-scrollbars', '--remote-debugging-pipe'];
const WAIT = 20000;

export const chromium = [process.env.CHROMIUM, '/usr/bin/chromium', '/usr/bin/chromium-browser']
  .find((path) => path && existsSync(path));

export class Browser {
  #process;
  #profile;
  #calls = new Map();
  #listeners = new Map();
  #lastCall = 0;
  #received = '';

  static async start() {
    const browser = new Browser();
    browser.#profile = await mkdtemp(join(tmpdir(), 'monitor-browser-'));
    browser.#process = spawn(chromium, [...FLAGS, `--user-data-dir=${browser.#profile}`],
      { stdio: ['ignore', 'ignore', 'ignore', 'pipe', 'pipe'] });
    browser.#process.stdio[4].setEncoding('utf8').on('data', (text) => browser.#receive(text));
    browser.#process.on('exit', () => browser.#abandon());
    return browser;
  }

  async stop() {
    const ended = new Promise((resolve) => { this.#process.once('exit', resolve); });
    this.call('Browser.close').catch(() => {});
    await ended;
    await rm(this.#profile, { recursive: true, force: true, maxRetries: 5 });
  }

  // A fresh page in a context of its own, so that no test sees another's stored choices.
  async newPage() {
    const { browserContextId } = await this.call('Target.createBrowserContext');
    const { targetId } = await this.call('Target.createTarget', { url: 'about:blank', browserContextId });
    const { sessionId } = await this.call('Target.attachToTarget', { targetId, flatten: true });
    const page = new Page(this, sessionId, targetId);
    await page.prepare();
    return page;
  }

  call(method, params = {}, sessionId = undefined) {
    const id = ++this.#lastCall;
    this.#process.stdio[3].write(`${JSON.stringify({ id, method, params, sessionId })}\0`);
    return new Promise((resolve, reject) => this.#calls.set(id, { resolve, reject, method }));
  }

  listen(sessionId, listener) {
    this.#listeners.set(sessionId, listener);
  }

  #receive(text) {
    const messages = (this.#received + text).split('\0');
    this.#received = messages.pop();
    for (const message of messages) this.#dispatch(JSON.parse(message));
  }

  #dispatch({ id, result, error, method, params, sessionId }) {
    if (id === undefined) {
      this.#listeners.get(sessionId)?.(method, params);
      return;
    }
    const call = this.#calls.get(id);
    this.#calls.delete(id);
    if (error) call.reject(new Error(`${call.method}: ${error.message}`));
    else call.resolve(result);
  }

  #abandon() {
    for (const { reject, method } of this.#calls.values()) reject(new Error(`${method}: the browser ended`));
    this.#calls.clear();
  }
}

class Page {
  complaints = [];
  requests = [];
  #browser;
  #session;
  #target;
  #onLoad = () => {};

  constructor(browser, session, target) {
    this.#browser = browser;
    this.#session = session;
    this.#target = target;
    browser.listen(session, (method, params) => this.#note(method, params));
  }

  async prepare() {
    for (const domain of ['Runtime', 'Log', 'Network', 'Page']) await this.#call(`${domain}.enable`);
    await this.resize(1280, 900);
  }

  close() {
    return this.#browser.call('Target.closeTarget', { targetId: this.#target });
  }

  async open(url) {
    const loaded = new Promise((resolve) => { this.#onLoad = resolve; });
    await this.#call('Page.navigate', { url });
    await loaded;
  }

  resize(width, height) {
    return this.#call('Emulation.setDeviceMetricsOverride',
      { width, height, deviceScaleFactor: 1, mobile: false });
  }

  prefer(features) {
    const list = Object.entries(features).map(([name, value]) => ({ name, value }));
    return this.#call('Emulation.setEmulatedMedia', { features: list });
  }

  async press(key, code = key) {
    const text = key === 'Enter' ? '\r' : key.length === 1 ? key : undefined;
    const codes = { Enter: 13, Tab: 9 };
    const event = { key, code, text, windowsVirtualKeyCode: codes[key] ?? 0 };
    await this.#call('Input.dispatchKeyEvent', { type: 'keyDown', ...event });
    await this.#call('Input.dispatchKeyEvent', { type: 'keyUp', ...event });
  }

  type(text) {
    return this.#call('Input.insertText', { text });
  }

  // The value of a JavaScript expression in the page, awaited if it is a promise.
  async evaluate(expression) {
    const { result, exceptionDetails } = await this.#call('Runtime.evaluate',
      { expression, awaitPromise: true, returnByValue: true });
    if (exceptionDetails) throw new Error(exceptionDetails.exception?.description ?? exceptionDetails.text);
    return result.value;
  }

  // Waits until an expression of the page is true.
  async until(expression) {
    const met = await this.evaluate(`new Promise((resolve) => {
      const end = Date.now() + ${WAIT};
      const look = () => {
        if (${expression}) resolve(true);
        else if (Date.now() > end) resolve(false);
        else setTimeout(look, 20);
      };
      look();
    })`);
    if (!met) throw new Error(`never true: ${expression}\nthe page shows:\n${await this.evaluate('document.body.innerText')}`);
  }

  text(selector) {
    return this.evaluate(`document.querySelector(${JSON.stringify(selector)}).innerText`);
  }

  texts(selector) {
    return this.evaluate(`Array.from(document.querySelectorAll(${JSON.stringify(selector)}), (node) => node.innerText)`);
  }

  accessibleNodes() {
    return this.#call('Accessibility.getFullAXTree').then(({ nodes }) => nodes.filter((node) => !node.ignored));
  }

  // A picture of the whole page in the folder that SCREENSHOTS names, if it names one.
  async screenshot(name) {
    if (!process.env.SCREENSHOTS) return;
    const { data } = await this.#call('Page.captureScreenshot', { captureBeyondViewport: true });
    await writeFile(join(process.env.SCREENSHOTS, `${name}.png`), data, 'base64');
  }

  #call(method, params) {
    return this.#browser.call(method, params, this.#session);
  }

  #note(method, params) {
    if (method === 'Page.loadEventFired') this.#onLoad();
    if (method === 'Network.requestWillBeSent') this.requests.push(params.request.url);
    if (method === 'Log.entryAdded' && params.entry.level === 'error') this.complaints.push(`${params.entry.text} ${params.entry.url ?? ''}`);
    if (method === 'Runtime.exceptionThrown') this.complaints.push(params.exceptionDetails.exception?.description ?? params.exceptionDetails.text);
    if (method === 'Runtime.consoleAPICalled' && params.type === 'error') this.complaints.push(JSON.stringify(params.args));
  }
}
