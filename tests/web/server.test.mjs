// The page on the real server, with real transfers. TRANSMIT_DIST names the built tree.

import assert from 'node:assert/strict';
import { test } from 'node:test';
import { Browser, chromium } from './support/browser.mjs';
import { downloadSlowly, RealServer, uploadSlowly } from './support/real_server.mjs';

const MiB = 1024 * 1024;
const skip = (chromium === undefined && 'chromium is not installed')
  || (!process.env.TRANSMIT_DIST && 'no built tree is named');

test('transfers of the real server, its end and its return', { skip, timeout: 90000 }, async () => {
  const server = await RealServer.make(process.env.TRANSMIT_DIST);
  const browser = await Browser.start();
  const clients = [];
  try {
    await server.start();
    await server.makeFile('image.iso', 256 * MiB);
    clients.push(await uploadSlowly(server.port, 'say "hi" <b>.bin', 64 * MiB, '{"user":"ann"}'),
      await downloadSlowly(server.port, 'image.iso'));
    const page = await browser.newPage();
    await page.open(server.url);
    await page.until("document.querySelectorAll('#rows tr').length === 2");
    await page.until("document.querySelectorAll('#rows progress:not([hidden])').length === 2");
    const [upload, download] = await page.texts('#rows tr');
    for (const text of ['Uploading', 'say "hi" <b>.bin', '64.0 MiB', 'user: ann']) assert.ok(upload.includes(text), upload);
    for (const text of ['Downloading', 'image.iso', '256 MiB']) assert.ok(download.includes(text), download);
    const first = await page.evaluate("document.querySelector('#rows progress').value");
    await page.until(`document.querySelector('#rows progress').value > ${first}`);
    await page.screenshot('real-server');
    assert.deepEqual(page.complaints, []);

    await server.stop();
    await page.until("document.body.dataset.state === 'lost'");
    await server.start();
    await page.until("document.body.dataset.state === 'fresh'");
    await page.until("document.getElementById('empty').innerText === 'No client is connected.'");
  } finally {
    for (const client of clients) client.destroy();
    await browser.stop();
    await server.stop();
    await server.remove();
  }
});
