// A foreign text in a cell: whole if it is short, else its beginning with the whole on demand.

import { element, setText } from './dom.js';
import { showUnseen } from './format.js';

const SHORT = 72;

// Shows a text within a node, with its unseen characters spelled out. A text that was opened stays
// open while it doesn't change.
export function setForeignText(node, text) {
  if (node.foreignText === text) return;
  node.foreignText = text;
  const seen = showUnseen(text);
  const characters = Array.from(seen);
  if (characters.length <= SHORT) {
    setText(node, seen);
    return;
  }
  const beginning = element('summary', '', element('bdi', '', characters.slice(0, SHORT).join('') + '…'));
  node.replaceChildren(element('details', 'long', beginning, element('bdi', '', seen)));
}
