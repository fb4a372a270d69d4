// The notices above the table: records that can't be read, and records that look forged.

import { byId, element, setText } from './dom.js';
import { setForeignText } from './long_text.js';

const TEXTS_SHOWN = 5;

// Shows as much of each text as helps to find its client; no texts hide the notice.
export function showUnreadable(texts) {
  byId('unreadable').hidden = texts.length === 0;
  const records = texts.length === 1 ? '1 record' : `${texts.length} records`;
  setText(byId('unreadable-title'), `${records} of the list can't be read and ${texts.length === 1 ? 'is' : 'are'} missing below:`);
  const items = byId('unreadable-texts');
  const shown = texts.slice(0, TEXTS_SHOWN);
  while (items.children.length > shown.length) items.lastChild.remove();
  while (items.children.length < shown.length) items.append(element('li'));
  shown.forEach((text, index) => setForeignText(items.children[index], text));
}

// `excess` is the number of records that the list holds beyond the server's count.
export function showForged(excess) {
  const notice = byId('forged');
  notice.hidden = excess === 0;
  const records = excess === 1 ? '1 client' : `${excess} clients`;
  setText(notice, excess === 0 ? '' : `The list shows ${records} more than the server counts: `
    + "a client's file name or user information imitates further clients.");
}
