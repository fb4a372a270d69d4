// Small steps on the document. Text goes in as text only: nothing here or elsewhere on the page
// parses markup, so a file name or user information can't become part of the page.

export const byId = (id) => document.getElementById(id);

// An element with class and children; a child is a node or a text.
export function element(name, className, ...children) {
  const made = document.createElement(name);
  if (className) made.className = className;
  made.append(...children);
  return made;
}

// Writes only what differs, so that a reader's selection survives a refresh that changes nothing.
export function setText(node, text) {
  if (node.textContent !== text) node.textContent = text;
}

// Also writes an attribute only if it differs; null takes it away.
export function setAttribute(node, name, value) {
  if (value === null) node.removeAttribute(name);
  else if (node.getAttribute(name) !== value) node.setAttribute(name, value);
}
