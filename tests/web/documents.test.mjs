// The list is the one thing on the page that strangers write into: what they can and can't spoil.

import assert from 'node:assert/strict';
import test from 'node:test';
import { DocumentError, readTransmitList, readTransmitStatistics } from '../../www/monitor/documents.js';
import { agrees, excessOf, ExcessWatch } from '../../www/monitor/excess.js';
import { excessSentences } from '../../www/monitor/notices.js';
import { listDocument, record, statisticsDocument } from './support/command_port.mjs';
import { HostileClients } from './support/hostile_clients.mjs';

const ann = { id: 2458713423872, ip: '192.0.2.7', port: 52114, type: 'upload', speed: 10485760,
  filename: '/srv/a.bin', filesize: 1073741824, progress: 37.5, user_info: '{"user":"ann"}' };
const idle = { id: 2458713427968, ip: '192.0.2.9', port: 52120 };

// The clients that the page shows of these records, and the excess.
function look(records, decode = (text) => text) {
  const clients = readTransmitList(decode(listDocument(records)));
  const excess = excessOf(clients, readTransmitStatistics(statisticsDocument(records)));
  return { clients: new ExcessWatch().mark(clients, excess), excess };
}

test('a list with an upload and an idle connection', () => {
  const clients = readTransmitList('{"transmit_nodes":[{"node_id":2458713423872,'
    + '"node_ip":"192.0.2.7","node_port":52114,"node_type":"upload","node_speed":1.04858e+07,'
    + '"node_filename":"a\\\\b.bin","node_filesize":1073741824,"node_progress":37.5,'
    + '"node_user_info":{"user":"ann"}},{"node_id":2458713427968,"node_ip":"192.0.2.9",'
    + '"node_port":52120,"node_type":"message","node_speed":0,"node_filename":"",'
    + '"node_filesize":0,"node_progress":0,"node_user_info":{}}]}');
  assert.deepEqual(clients[0], { id: '2458713423872', address: '192.0.2.7', port: 52114,
    type: 'upload', speed: 1.04858e7, file: 'a\\b.bin', size: 1073741824, progress: 37.5,
    userInformation: { user: 'ann' }, userText: '{"user":"ann"}', doubt: null });
  assert.equal(clients[1].type, 'message');
  assert.deepEqual(readTransmitList('{"transmit_nodes":[]}'), []);
});

test('what is no transmit list is refused', () => {
  for (const text of ['', '{}', '<html><h1>404 Not Found</h1></html>', '{"transmit_nodes":{}}']) {
    assert.throws(() => readTransmitList(text), DocumentError);
  }
});

test('what breaks the JSON spoils no row', () => {
  const spoilers = [
    { filename: 'say "hi".txt' },
    { filename: '"' },
    { filename: 'a\nb\tc' },
    { filename: '},{"node_id":' },
    { filename: `"${'x'.repeat(1022)}` },
    { filename: '\\'.repeat(1023) },
    { user_info: '{"cut":"of}' },
    { user_info: `{"cut":"${'}'.repeat(1000)}` },
    { user_info: '{{{}' },
    { user_info: '{"a":1}}' },
    { user_info: '{]}' },
    { user_info: '{}},{}' },
    { user_info: '{"line\nbreak":1}' },
  ];
  for (const spoiler of spoilers) {
    const { clients } = look([idle, { ...ann, ...spoiler }, { ...idle, ip: '192.0.2.8' }]);
    assert.deepEqual(clients.map(({ address }) => address), ['192.0.2.9', '192.0.2.7', '192.0.2.8']);
    assert.deepEqual(clients.map(({ doubt }) => doubt), [null, null, null], JSON.stringify(spoiler));
    const [, spoiled] = clients;
    assert.equal(spoiled.file, spoiler.filename ?? ann.filename);
    assert.equal(spoiled.userText, spoiler.user_info ?? ann.user_info);
    assert.equal(spoiled.size, ann.filesize);
    assert.equal(spoiled.progress, 37.5);
  }
});

test('every progress that a server can tell is read', () => {
  for (const progress of [Infinity, -Infinity, NaN, -12.5, 2.5e300, 0.0001]) {
    const { clients: [client] } = look([{ ...ann, progress }]);
    assert.equal(client.progress, progress);
    assert.equal(client.size, ann.filesize);
  }
});

test('an imitated record marks all of its type', () => {
  const forged = record({ ...ann, type: 'download', port: 666 });
  for (const hostile of [{ user_info: `{}},${forged.slice(0, -1)}` }, { filename: forged },
    { filename: `x","node_filesize":1,"node_progress":1,"node_user_info":{}},${forged},` }]) {
    const { clients, excess } = look([ann, { ...ann, ...hostile }, { ...idle, type: 'download' }]);
    assert.deepEqual(clients.map(({ port, doubt }) => [port, doubt]),
      [[52114, null], [52114, 'texts'], [666, 'row'], [52120, 'row']]);
    assert.deepEqual(excessSentences(excess),
      ["The list shows 1 download more than the server counts: a client's text may imitate clients."]);
  }
  const nested = { ...ann, user_info: `{"a":[${record(ann)},${record(ann)}]}` };
  assert.deepEqual(look([nested]).clients.map(({ doubt }) => doubt), ['row', 'row', 'row']);
});

test('imitated figures are not shown', () => {
  const forged = { ...ann, filename: 'x","node_filesize":1,"node_progress":1,"node_user_info":{' };
  const { clients: [client, other] } = look([forged, idle]);
  assert.equal(client.address, '192.0.2.7');
  assert.equal(client.doubt, 'texts');
  assert.ok(Number.isNaN(client.size));
  assert.equal(other.doubt, null);
});

test('doubt outlasts a look that agrees', () => {
  const watch = new ExcessWatch();
  const seen = [0, 1, 0, -1, 0].map((upload) => (
    watch.mark([{ type: 'upload', doubt: null }], { message: 0, upload, download: 0 })[0].doubt));
  assert.deepEqual(seen, [null, 'row', 'row', 'row', null]);
});

test('fewer rows than counted and a list cut short are told', () => {
  const whole = listDocument([idle, ann]);
  const clients = readTransmitList(whole.slice(0, whole.indexOf('"node_progress":37')));
  assert.deepEqual(clients.map(({ doubt }) => doubt), [null, 'texts']);
  assert.deepEqual(excessSentences(excessOf(clients, { idleCount: 3, uploadCount: 1, downloadCount: 0 })),
    ['The list shows 2 clients without a transfer fewer than the server counts.']);
});

test('thousands of broken records are read in linear time', () => {
  const broken = { ...ann, filename: '"'.repeat(1000), user_info: `${'{'.repeat(1000)}}` };
  assert.equal(readTransmitList(listDocument(Array(3000).fill(broken))).length, 3000);
});

// TRANSMIT_FORGERY_ROUNDS asks for more lists than the usual.
test('no forgery passes without a mark', () => {
  const hostile = new HostileClients(20240305);
  const rounds = Number(process.env.TRANSMIT_FORGERY_ROUNDS ?? 3000);
  const decode = (bytes) => new TextDecoder('utf-8', { ignoreBOM: true }).decode(Buffer.from(bytes, 'latin1'));
  let lists = 0;
  let texts = 0;
  for (let round = 0; round < rounds; ++round) {
    const records = hostile.list();
    const { clients, excess } = look(records, decode);
    checkRows(clients, records, agrees(excess), decode);
    if (clients.length > records.length) ++lists;
    texts += clients.filter(({ doubt }) => doubt === 'texts').length;
  }
  console.log(`${rounds} lists, ${lists} with forged rows, ${texts} rows with texts in doubt`);
  assert.ok(lists > rounds / 10 && texts > rounds / 10);
});

// Each record of the server is there, in its order; a row that is not the server's is marked, and so
// is one whose texts aren't.
function checkRows(clients, records, agreed, decode) {
  let found = 0;
  for (const client of clients) {
    const expected = records[found];
    const genuine = expected !== undefined && client.port === expected.port && client.type === expected.type
      && client.address === expected.ip && client.id === String(expected.id);
    const told = JSON.stringify({ client, records });
    if (client.doubt === null) {
      assert.ok(genuine, told);
      assert.deepEqual([client.file, client.size, client.progress, client.userText],
        [decode(expected.filename), expected.filesize, expected.progress, decode(expected.user_info)]);
    } else if (client.doubt === 'texts') {
      assert.ok(genuine, told);
    } else {
      assert.ok(!agreed, told);
    }
    if (genuine) ++found;
  }
  assert.equal(found, records.length, 'a record is missing');
}

test('the statistics are read whole or refused', () => {
  const text = '{"transmit_statistics":{"message_connection_count":1,"upload_connection_count":2,'
    + '"download_connection_count":3,"upload_max_speed":1.04858e+07,"download_max_speed":0.5,'
    + '"upload_total_speed":2e+07,"download_total_speed":7,"last_data_update_time":"2024-03-05 10:22:33"}}';
  assert.deepEqual(readTransmitStatistics(text), { serverTime: '2024-03-05 10:22:33', idleCount: 1,
    uploadCount: 2, downloadCount: 3, uploadFastest: 1.04858e7, downloadFastest: 0.5,
    uploadSpeed: 2e7, downloadSpeed: 7 });
  for (const broken of ['', '[]', '{}', text.slice(1), text.replace('0.5', '"0.5"'), text.replace('2024', '"')]) {
    assert.throws(() => readTransmitStatistics(broken), DocumentError);
  }
});
