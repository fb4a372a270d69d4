// What the operator has chosen, kept by the browser from one visit to the next.

// The number changes when the meaning of a choice does.
const KEY = 'transmit-monitor-1';
const DEFAULTS = { interval: '2', kind: 'all', column: 'phase', descending: false };

// The choices; a missing or broken store gives the defaults.
export function readPreferences() {
  try {
    return { ...DEFAULTS, ...JSON.parse(localStorage.getItem(KEY)) };
  } catch {
    return { ...DEFAULTS };
  }
}

export function writePreferences(preferences) {
  try {
    localStorage.setItem(KEY, JSON.stringify(preferences));
  } catch {
    // A browser that stores nothing shows the defaults on the next visit.
  }
}
