// The page itself, in a headless browser, on a command port that serves documents of the test's
// choice. SCREENSHOTS names a folder for pictures of what a person would see.

import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { Browser, chromium } from './support/browser.mjs';
import { CommandPort, listDocument, record } from './support/command_port.mjs';

const MiB = 1024 * 1024;
const upload = { id: 1, ip: '192.0.2.7', port: 52114, type: 'upload', speed: 10 * MiB,
  filename: '/srv/public/backup.tar', filesize: 400 * MiB, progress: 25, user_info: '{"user":"ann"}' };
const download = { id: 2, ip: '192.0.2.9', port: 52120, type: 'download', speed: 80 * MiB,
  filename: '/srv/public/image.iso', filesize: 4000 * MiB, progress: 60, user_info: '{"user":"bob"}' };
const idle = { id: 3, ip: '192.0.2.20', port: 40000 };

const skip = chromium === undefined && 'chromium is not installed';
const options = { skip, timeout: 60000 };
let browser;
before(async () => { if (!skip) browser = await Browser.start(); });
after(() => browser?.stop());

// A test with a command port and a page that shows it at the fastest pace.
function pageTest(name, body, prepare = () => {}) {
  test(name, options, async () => {
    const port = new CommandPort();
    await port.start();
    const page = await browser.newPage();
    try {
      await prepare(port, page);
      await page.open(port.url);
      await page.until("document.body.dataset.state === 'fresh'");
      await choose(page, 'interval', '1');
      await body(port, page);
    } finally {
      await page.close();
      await port.stop();
    }
  });
}

function choose(page, id, value) {
  return page.evaluate(`{
    const select = document.getElementById('${id}');
    select.value = '${value}';
    select.dispatchEvent(new Event('change'));
  }`);
}

const rowsAre = (count) => `document.querySelectorAll('#rows tr').length === ${count}`;
const shows = (selector, text) => `document.querySelector('${selector}')?.innerText.includes(${JSON.stringify(text)})`;

pageTest('a running upload and download move', async (port, page) => {
  port.show([upload, download, idle]);
  await page.until(rowsAre(3));
  assert.equal(await page.text('#connection-count'), '3');
  assert.equal(await page.text('#upload-speed'), '10.0 MiB/s');
  assert.equal(await page.text('#download-speed'), '80.0 MiB/s');
  const [first, second] = await page.texts('#rows tr');
  for (const text of ['192.0.2.7:52114', 'Uploading', 'backup.tar', '/srv/public', '400 MiB', '25.0 %',
    '10.0 MiB/s', '30 s', 'user: ann']) assert.ok(first.includes(text), `${text} in ${first}`);
  assert.ok(second.includes('Downloading'));

  port.show([{ ...upload, progress: 75 }, { ...download, progress: 90 }, idle]);
  await page.until("document.querySelector('#rows progress').value === 75");
  await page.until(shows('#rows tr:nth-child(2)', '90.0 %'));
  await page.until("document.querySelector('#upload-chart').ariaLabel.includes('peak 10.0 MiB/s')");
  const drawn = await page.evaluate(`{
    const { data } = document.querySelector('#upload-chart').getContext('2d').getImageData(0, 0, 400, 150);
    data.some((value) => value !== 0);
  }`);
  assert.ok(drawn, 'the chart is drawn');
  await page.screenshot('running-light');
  await page.prefer({ 'prefers-color-scheme': 'dark' });
  await page.screenshot('running-dark');

  port.show([idle]);
  await page.until(rowsAre(1));
  assert.deepEqual(page.complaints, []);
});

pageTest('the page asks nobody but its server', async (port, page) => {
  const asked = port.listRequests;
  while (port.listRequests < asked + 3) await new Promise((resolve) => { setTimeout(resolve, 50); });
  const strangers = page.requests.filter((url) => !url.startsWith(port.url) && !url.startsWith('data:'));
  assert.deepEqual(strangers, []);
  assert.deepEqual(page.complaints, []);
});

pageTest('names and user information are shown as text and nothing else', async (port, page) => {
  const markup = '<img src=x onerror="document.title=1"><b>bold</b>';
  port.show([{ ...upload, filename: `/srv/${markup.replaceAll('"', "'")}` },
    { ...download, filename: '/srv/invoice\u202Efdp.exe', user_info: '{"note":"<script>document.title=2</script>"}' },
    { ...idle, user_info: `{"long":"${'wide '.repeat(180)}"}` }]);
  await page.until(rowsAre(3));
  assert.ok((await page.text('#rows tr:nth-child(1) .file')).includes('<b>bold<'));
  assert.ok((await page.text('#rows tr:nth-child(2) .file')).includes('invoice⟨U+202E⟩fdp.exe'));
  assert.ok((await page.text('#rows tr:nth-child(2) .user')).includes('<script>'));
  assert.equal(await page.evaluate("document.querySelectorAll('#rows :is(img, script, b)').length"), 0);
  assert.equal(await page.evaluate('document.title'), 'Transmit server');

  await page.evaluate("document.querySelector('#rows summary').click()");
  const asked = port.listRequests;
  while (port.listRequests < asked + 2) await new Promise((resolve) => { setTimeout(resolve, 50); });
  assert.equal(await page.evaluate("document.querySelector('#rows details').open"), true, 'stays open');
  await page.screenshot('hostile-names');
  assert.deepEqual(page.complaints, []);
});

pageTest('a list that is no JSON still shows its clients', async (port, page) => {
  port.show([{ ...upload, filename: '/srv/say "hi".txt', progress: Infinity },
    { ...download, user_info: '{"cut":"of}', progress: 250 }, { ...upload, progress: -3 }]);
  await page.until(rowsAre(3));
  const rows = await page.texts('#rows tr');
  const rowOf = (text) => rows.find((row) => row.includes(text));
  assert.match(rowOf('say "hi".txt'), /192\.0\.2\.7:52114.*400 MiB\s+\?/s);
  assert.match(rowOf('{"cut":"of}'), /over 100 %.*broken JSON/s);
  assert.match(rowOf('backup.tar'), /400 MiB\s+\?/);
  assert.equal(await page.evaluate("document.getElementById('excess').hidden"), true);
  for (const row of rows) assert.doesNotMatch(row, /forged/);

  port.list = Buffer.concat([Buffer.from(listDocument([{ ...upload, filename: '/srv/' }]).split('/srv/')[0]),
    Buffer.from([0xff, 0xfe]), Buffer.from(listDocument([{ ...upload, filename: '/srv/' }]).split('/srv/')[1])]);
  await page.until(shows('#rows .file', '\uFFFD\uFFFD'));
  assert.deepEqual(page.complaints, []);
});

pageTest('records and figures imitated within a text are pointed out', async (port, page) => {
  const forged = record({ ...idle, ip: '10.9.8.7' });
  port.show([upload, { ...download, user_info: `{}},${forged.slice(0, -1)}` }, idle]);
  await page.until("!document.getElementById('excess').hidden");
  assert.match(await page.text('#excess'), /shows 1 client without a transfer more than the server counts/);
  const [first, second, third, fourth] = await page.texts('#rows tr');
  assert.doesNotMatch(first, /forged/);
  assert.match(second, /file, size, progress and user may be forged/);
  assert.match(third, /^10\.9\.8\.7:40000\s+may be forged/);
  assert.match(fourth, /^192\.0\.2\.20:40000\s+may be forged/);
  await page.screenshot('forged-record');

  port.show([idle, { ...upload, filename: 'a","node_filesize":9,"node_progress":1,"node_user_info":{' }]);
  await page.until("document.getElementById('excess').hidden");
  await page.until("Array.from(document.querySelectorAll('#rows .address .mark')).every((mark) => mark.innerText === '')");
  const imitated = (await page.texts('#rows tr')).find((row) => row.includes('node_filesize'));
  assert.match(imitated, /file, size, progress and user may be forged\s+\?/);
});

pageTest('a server that goes away and comes back', async (port, page) => {
  port.show([upload]);
  await page.until(rowsAre(1));
  await port.stop();
  await page.until("document.body.dataset.state === 'lost'");
  assert.match(await page.text('#state'), /^No answer since \d\d:\d\d:\d\d$/);
  await page.until("document.getElementById('age').innerText.includes('old')");
  await page.screenshot('no-answer');
  port.show([idle, download]);
  await port.start();
  await page.until("document.body.dataset.state === 'fresh'");
  assert.equal(await page.text('#state'), 'Live');
  await page.until(rowsAre(2));
});

pageTest('an answer of another kind counts as none', async (port, page) => {
  port.list = '<html>something else</html>';
  await page.until("document.body.dataset.state === 'lost'");
  assert.match(await page.text('#state'), /^No usable answer since/);
});

pageTest('a server that never answers is waited for no longer than the time-out', async (port, page) => {
  port.silent = true;
  await page.until("document.body.dataset.state === 'lost'");
  port.silent = false;
  await page.until("document.body.dataset.state === 'fresh'");
});

pageTest('a hidden or paused page asks nothing', async (port, page) => {
  const hide = (hidden) => page.evaluate(`{
    Object.defineProperty(document, 'hidden', { value: ${hidden}, configurable: true });
    document.dispatchEvent(new Event('visibilitychange'));
  }`);
  const asksNothing = async () => {
    const asked = port.listRequests;
    await new Promise((resolve) => { setTimeout(resolve, 2500); });
    assert.ok(port.listRequests <= asked + 1, 'only what was under way');
    return port.listRequests;
  };
  await hide(true);
  const hidden = await asksNothing();
  await hide(false);
  await page.until("document.body.dataset.state === 'fresh'");
  assert.ok(port.listRequests > hidden);
  await choose(page, 'interval', '0');
  await asksNothing();
  assert.equal(await page.text('#state'), 'Paused');
});

pageTest('the operator sorts and filters, by keyboard too', async (port, page) => {
  port.show([upload, download, idle]);
  await page.until(rowsAre(3));
  await page.evaluate("document.querySelector('[data-column=speed] button').focus()");
  await page.press('Enter');
  await page.until("document.querySelector('[data-column=speed]').ariaSort === 'descending'");
  assert.match((await page.texts('#rows tr'))[0], /image\.iso/);
  await page.press('Enter');
  assert.equal(await page.evaluate("document.querySelector('[data-column=speed]').ariaSort"), 'ascending');
  assert.match((await page.texts('#rows tr'))[2], /image\.iso/);

  await page.evaluate("document.getElementById('filter').focus()");
  await page.type('ANN backup');
  await page.until(rowsAre(1));
  assert.equal(await page.text('#shown'), '1 of 3');
  await page.type(' nobody');
  await page.until(rowsAre(0));
  assert.equal(await page.text('#empty'), 'No client matches the filter.');
  await page.evaluate("document.getElementById('filter').value = ''");
  await choose(page, 'kind', 'downloads');
  await page.until(rowsAre(1));

  await page.open(port.url);
  await page.until(rowsAre(1));
  assert.equal(await page.evaluate("document.querySelector('[aria-sort]').dataset.column"), 'speed', 'choices last');
});

pageTest('what a screen reader finds', async (port, page) => {
  port.show([upload, download, idle]);
  await page.until(rowsAre(3));
  const checkTree = async () => {
    const nodes = await page.accessibleNodes();
    const named = (role) => nodes.filter((node) => node.role.value === role).map((node) => node.name.value);
    assert.equal(named('row').length, 4);
    assert.equal(named('columnheader').length, 8);
    assert.deepEqual(named('table'), ['Clients']);
    assert.deepEqual(named('searchbox'), ['Filter']);
    assert.deepEqual(named('progressIndicator').concat(named('progressbar')), ['Progress', 'Progress']);
    assert.equal(nodes.filter((node) => /^Chart of the (up|down)load speed/.test(node.name?.value)).length, 2);
    assert.equal(nodes.filter((node) => node.role.value === 'status').length, 1);
  };
  await checkTree();
  await page.resize(360, 800);
  await checkTree();
});

pageTest('every width from 360 pixels holds the page', async (port, page) => {
  port.show([{ ...upload, ip: '198.51.100.124', filename: `/srv/${'folder/'.repeat(30)}${'x'.repeat(200)}` },
    { ...download, user_info: `{"id":"${'y'.repeat(300)}"}` }, idle]);
  await page.until(rowsAre(3));
  for (const width of [360, 640, 800, 1000, 1200, 1280, 1920]) {
    await page.resize(width, 800);
    assert.ok(await page.evaluate('document.documentElement.scrollWidth') <= width, `${width}`);
    await page.screenshot(`width-${width}`);
  }
});

pageTest('thousands of clients are shown in parts', async (port, page) => {
  port.show(Array.from({ length: 5000 }, (_, index) => ({ ...upload, id: index, port: index })));
  await page.until(rowsAre(200));
  assert.equal(await page.text('#connection-count'), '5000');
  await page.evaluate("document.getElementById('more').click()");
  assert.equal(await page.evaluate("document.querySelectorAll('#rows tr').length"), 400);
});

pageTest('without the chart library the figures remain', async (port, page) => {
  port.show([upload]);
  await page.until(shows('#upload-summary', 'peak 10.0 MiB/s'));
  assert.equal(await page.evaluate("getComputedStyle(document.querySelector('.chart')).display"), 'none');
}, (port) => { port.chartLibrary = '/nonexistent'; });
