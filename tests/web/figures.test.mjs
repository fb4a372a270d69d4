// How figures read, what the records mean, the order and choice of clients, the history of speeds
// and the pace of asking.

import assert from 'node:assert/strict';
import test from 'node:test';
import { describeUser, filterClients, phaseOf, remainingSeconds, sortClients } from '../../www/monitor/clients.js';
import { formatDuration, formatMark, formatPercent, formatSize, scaleStep, showUnseen } from '../../www/monitor/format.js';
import { SpeedHistory } from '../../www/monitor/history.js';
import { Poller } from '../../www/monitor/poll.js';

const MiB = 1024 * 1024;

test('sizes have three digits and never a fourth', () => {
  const cases = [[0, '0 B'], [999, '999 B'], [1000, '0.98 KiB'], [1536, '1.50 KiB'], [10239, '10.0 KiB'],
    [102399, '100 KiB'], [1023 * 1024, '1.00 MiB'], [37.25 * 1024 * MiB, '37.3 GiB'], [2 ** 64, '16.0 EiB']];
  for (const [bytes, text] of cases) assert.equal(formatSize(bytes), text);
});

test('durations round up and carry into the next unit', () => {
  const cases = [[0, '0 s'], [0.2, '1 s'], [59.5, '1 min 00 s'], [125, '2 min 05 s'], [3599.5, '1 h 00 min'],
    [7 * 3600 - 1, '7 h 00 min'], [86399, '1 d 00 h'], [12.1 * 86400, '12 d 03 h'], [Infinity, 'over 1000 d']];
  for (const [seconds, text] of cases) assert.equal(formatDuration(seconds), text);
});

test('a transfer reads as complete only when it is', () => {
  assert.equal(formatPercent(99.9999), '99.9 %');
  assert.equal(formatPercent(100), '100.0 %');
  assert.equal(formatPercent(33.3), '33.3 %');
  for (const percent of [100.5, 2.5e300]) assert.equal(formatPercent(percent), 'over 100 %');
});

test('marks of a scale are round and reach the peak', () => {
  for (const peak of [1, 3, 900, 1500, 30 * 1024, 900 * 1024, 1.1 * MiB, 87 * MiB, 5200 * MiB]) {
    const step = scaleStep(peak);
    assert.ok(4 * step >= peak && step <= peak, `${peak}`);
    for (const mark of [1, 2, 3, 4]) assert.match(formatMark(mark * step), /^\d{1,3}(\.\d{1,2})? /);
  }
  assert.equal(formatMark(50 * MiB), '50 MiB/s');
});

test('what can hide or reorder text is spelled out, foreign scripts stay', () => {
  assert.equal(showUnseen('a\u202Efdp.exe'), 'a⟨U+202E⟩fdp.exe');
  assert.equal(showUnseen('\u0000\n\u007F\u0085\u200B\u2028\u2066\uFEFF\u00A0\u{E0041}'),
    '⟨U+0000⟩⟨U+000A⟩⟨U+007F⟩⟨U+0085⟩⟨U+200B⟩⟨U+2028⟩⟨U+2066⟩⟨U+FEFF⟩⟨U+00A0⟩⟨U+E0041⟩');
  assert.equal(showUnseen('résumé שלום 文件 😀.txt'), 'résumé שלום 文件 😀.txt');
});

const client = (fields) => ({ id: '1', address: '192.0.2.7', port: 1, type: 'message', speed: 0, file: '',
  size: 0, progress: 0, userInformation: {}, userText: '{}', doubt: null, ...fields });
const upload = client({ type: 'upload', file: '/s/Report.pdf', size: 1000, progress: 25, speed: 50,
  userInformation: { user: 'ann', level: 3 }, address: '192.0.2.10' });
const download = client({ type: 'download', file: '/s/b.iso', size: 4000, progress: 50, speed: 10, address: '192.0.2.9' });
const silent = client({ type: 'upload', file: '/s/c', size: 10 });
const ended = client({ type: 'upload' });

test('what a client does follows from type, file and speed', () => {
  assert.deepEqual([upload, download, silent, ended, client({ speed: 5 })].map(phaseOf),
    ['uploading', 'downloading', 'uploadSilent', 'uploadEnded', 'idle']);
});

test('the remaining time is known only while data moves', () => {
  assert.equal(remainingSeconds(upload), 15);
  for (const progress of [Infinity, NaN, -1]) assert.equal(remainingSeconds({ ...upload, progress }), null);
  assert.equal(remainingSeconds(silent), null);
  assert.equal(remainingSeconds(client({ type: 'download', file: 'f', size: 9, progress: 100.5, speed: 1 })), 0);
});

test('user information shows as pairs, broken text as it came', () => {
  assert.equal(describeUser(upload), 'user: ann, level: 3');
  assert.equal(describeUser(client({ userInformation: null, userText: '{"a' })), '{"a');
});

test('the filter takes every word, in any field and case', () => {
  const all = [upload, download, silent, ended];
  const found = (kind, text) => filterClients(all, { kind, text });
  assert.deepEqual(found('all', ' REPORT ann'), [upload]);
  assert.deepEqual(found('all', 'report bob'), []);
  assert.deepEqual(found('all', '192.0.2.9:1'), [download]);
  assert.deepEqual(found('transfers', ''), [upload, download, silent]);
  assert.deepEqual(found('uploads', ''), [upload, silent]);
  assert.deepEqual(found('downloads', ''), [download]);
  assert.deepEqual(found('others', ''), [ended]);
});

test('sorting counts numbers as numbers and keeps equals in their order', () => {
  const all = [upload, ended, download, silent];
  const sorted = (column, descending = false) => sortClients(all, { column, descending });
  assert.deepEqual(sorted('address'), [ended, silent, download, upload]);
  assert.deepEqual(sorted('speed', true), [upload, download, ended, silent]);
  const unknown = client({ file: 'f', size: NaN });
  assert.deepEqual(sortClients([upload, unknown, silent], { column: 'size' }), [unknown, silent, upload]);
  assert.deepEqual(sorted('phase'), [upload, download, silent, ended]);
  assert.deepEqual(sorted('remaining'), [upload, download, ended, silent]);
  assert.deepEqual(all, [upload, ended, download, silent]);
});

test('the history forgets, breaks its line at one gap and sums up what it knows', () => {
  const history = new SpeedHistory(10);
  assert.equal(history.summary('upload'), null);
  history.add(0, 100, 1);
  history.add(5000, 10, 2);
  history.addGap(6000);
  history.addGap(8000);
  history.add(11000, 30, 6);
  assert.deepEqual(history.line('upload', 11000), [{ x: -6, y: 10 }, { x: -5, y: null }, { x: 0, y: 30 }]);
  assert.deepEqual(history.summary('download'), { latest: 6, peak: 6, mean: 4 });
});

// A poller whose asking is answered by the test, one promise a time.
function pollerUnderTest() {
  const asked = [];
  const reports = [];
  let arrived = () => {};
  const poller = new Poller({
    ask: () => new Promise((resolve, reject) => { asked.push({ resolve, reject }); arrived(); }),
    onAnswer: (answer) => reports.push(answer),
    onFailure: (error) => reports.push(error.message),
    interval: 1,
  });
  const next = async () => {
    if (asked.length === 0) await new Promise((resolve) => { arrived = resolve; });
    return asked.shift();
  };
  return { poller, asked, reports, next };
}

test('one asking at a time, and a failure is followed by the next', async () => {
  const { poller, asked, reports, next } = pollerUnderTest();
  const first = await next();
  poller.interval = 1;
  poller.resting = false;
  await new Promise((resolve) => { setTimeout(resolve, 20); });
  assert.equal(asked.length, 0);
  first.reject(new Error('refused'));
  (await next()).resolve('figures');
  await next();
  assert.deepEqual(reports, ['refused', 'figures']);
  poller.interval = 0;
});

test('a resting or paused poller asks nothing until it is woken', async () => {
  const { poller, asked, next } = pollerUnderTest();
  const first = await next();
  poller.resting = true;
  first.resolve('figures');
  await new Promise((resolve) => { setTimeout(resolve, 20); });
  assert.equal(asked.length, 0);
  poller.resting = false;
  const second = await next();
  poller.interval = 0;
  second.resolve('figures');
  await new Promise((resolve) => { setTimeout(resolve, 20); });
  assert.equal(asked.length, 0);
});
