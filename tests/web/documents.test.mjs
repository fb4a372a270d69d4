// The list is the one thing on the page that strangers write into: what they can and can't spoil.

import assert from 'node:assert/strict';
import test from 'node:test';
import { DocumentError, readTransmitList, readTransmitStatistics } from '../../www/monitor/documents.js';
import { ForgeryWatch } from '../../www/monitor/snapshot.js';
import { listDocument, record } from './support/command_port.mjs';

const ann = { id: 2458713423872, ip: '192.0.2.7', port: 52114, type: 'upload', speed: 10485760,
  filename: '/srv/a.bin', filesize: 1073741824, progress: 37.5, user_info: '{"user":"ann"}' };
const idle = { id: 2458713427968, ip: '192.0.2.9', port: 52120 };

const addresses = ({ clients }) => clients.map((client) => client.address);

test('a list with an upload and an idle connection', () => {
  const { clients, unreadable } = readTransmitList('{"transmit_nodes":[{"node_id":2458713423872,'
    + '"node_ip":"192.0.2.7","node_port":52114,"node_type":"upload","node_speed":1.04858e+07,'
    + '"node_filename":"a\\\\b.bin","node_filesize":1073741824,"node_progress":37.5,'
    + '"node_user_info":{"user":"ann"}},{"node_id":2458713427968,"node_ip":"192.0.2.9",'
    + '"node_port":52120,"node_type":"message","node_speed":0,"node_filename":"",'
    + '"node_filesize":0,"node_progress":0,"node_user_info":{}}]}');
  assert.deepEqual(unreadable, []);
  assert.deepEqual(clients[0], { id: '2458713423872', address: '192.0.2.7', port: 52114,
    type: 'upload', speed: 1.04858e7, file: 'a\\b.bin', size: 1073741824, progress: 37.5,
    userInformation: { user: 'ann' }, userText: '{"user":"ann"}', repaired: false });
  assert.equal(clients[1].type, 'message');
  assert.deepEqual(readTransmitList('{"transmit_nodes":[]}'), { clients: [], unreadable: [] });
});

test('what is no transmit list is refused', () => {
  for (const text of ['', '{}', '<html><h1>404 Not Found</h1></html>', '{"transmit_nodes":{}}']) {
    assert.throws(() => readTransmitList(text), DocumentError);
  }
});

test('a broken text spoils its own field and no other record', () => {
  const spoilers = [
    { filename: 'say "hi".txt' },
    { filename: '"' },
    { filename: 'a\nb\tc' },
    { filename: '},{"node_id":' },
    { filename: `"${'x'.repeat(1022)}` },
    { user_info: '{"cut":"of' },
    { user_info: `{"cut":"${'}'.repeat(1000)}` },
    { user_info: '{{{' },
    { user_info: '{"a":1}}' },
    { user_info: '{]}' },
    { user_info: '{}},{}' },
    { user_info: '{"line\nbreak":1}' },
  ];
  for (const spoiler of spoilers) {
    const list = readTransmitList(listDocument([idle, { ...ann, ...spoiler }, { ...idle, ip: '192.0.2.8' }]));
    assert.deepEqual(addresses(list), ['192.0.2.9', '192.0.2.7', '192.0.2.8'], JSON.stringify(spoiler));
    const [, spoiled, after] = list.clients;
    assert.equal(spoiled.file, spoiler.filename ?? ann.filename);
    assert.equal(spoiled.userText, spoiler.user_info ?? ann.user_info);
    assert.equal(spoiled.progress, 37.5);
    assert.equal(after.repaired, false);
  }
});

test('a record is told to be repaired if it was no valid JSON', () => {
  const repaired = (fields) => readTransmitList(listDocument([{ ...ann, ...fields }])).clients[0].repaired;
  assert.equal(repaired({}), false);
  assert.equal(repaired({ filename: 'back\\slash' }), false);
  assert.equal(repaired({ user_info: '{"brace":"}","other":"{"}' }), false);
  assert.equal(repaired({ filename: 'a"b' }), true);
  assert.equal(repaired({ user_info: '{"a":' }), true);
});

test('a name can not take the place of another field', () => {
  const forged = { ...ann, filename: 'x","node_ip":"10.0.0.1","node_filename":"y' };
  const [client] = readTransmitList(listDocument([forged])).clients;
  assert.equal(client.address, '192.0.2.7');
  assert.equal(client.repaired, true);
});

test('records within user information are no clients', () => {
  const nested = `{"a":[${record(idle)},${record(idle)}]}`;
  const { clients } = readTransmitList(listDocument([{ ...ann, user_info: nested }, idle]));
  assert.equal(clients.length, 2);
  assert.equal(clients[0].userInformation.a.length, 2);
});

test('a list cut short keeps its whole records', () => {
  const whole = listDocument([idle, ann]);
  const list = readTransmitList(whole.slice(0, whole.indexOf('"node_progress":37')));
  assert.deepEqual(addresses(list), ['192.0.2.9']);
  assert.equal(list.unreadable.length, 1);
});

test('a record of another shape is set aside as it stands', () => {
  const strange = '{"node_id":"?"}';
  const list = readTransmitList(`{"transmit_nodes":[${record(idle)},${strange},${record(ann)}]}`);
  assert.deepEqual(addresses(list), ['192.0.2.9', '192.0.2.7']);
  assert.deepEqual(list.unreadable, [strange]);
});

test('thousands of broken records are read in a moment', () => {
  const broken = { ...ann, filename: '"'.repeat(1000), user_info: `${'{'.repeat(1000)}}` };
  const begun = performance.now();
  assert.equal(readTransmitList(listDocument(Array(2000).fill(broken))).clients.length, 2000);
  assert.ok(performance.now() - begun < 3000);
});

test('imitated records show as more than the server counts, once it lasts', () => {
  const snapshot = (clients, counted) => ({ clients: Array(clients), unreadable: [],
    totals: { idleCount: counted, uploadCount: 0, downloadCount: 0 } });
  const watch = new ForgeryWatch();
  const seen = [snapshot(3, 2), snapshot(3, 2), snapshot(2, 2), snapshot(4, 2), snapshot(4, 2),
    snapshot(4, 2), snapshot(2, 2)].map((one) => watch.excess(one));
  assert.deepEqual(seen, [0, 0, 0, 0, 0, 2, 0]);
});

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
