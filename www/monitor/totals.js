// The totals in the cards at the top.

import { byId, setText } from './dom.js';
import { formatSpeed } from './format.js';

// Shows the totals as `readTransmitStatistics` gives them.
export function showTotals(totals) {
  const { idleCount, uploadCount, downloadCount } = totals;
  const texts = {
    'connection-count': idleCount + uploadCount + downloadCount,
    'upload-count': uploadCount,
    'download-count': downloadCount,
    'idle-count': idleCount,
    'upload-speed': formatSpeed(totals.uploadSpeed),
    'upload-fastest': formatSpeed(totals.uploadFastest),
    'download-speed': formatSpeed(totals.downloadSpeed),
    'download-fastest': formatSpeed(totals.downloadFastest),
    'server-time': totals.serverTime,
  };
  for (const [id, text] of Object.entries(texts)) setText(byId(id), String(text));
}
