// The speeds of the last minutes, as the charts draw them.

// Speeds older than the window (seconds) are forgotten. Times are milliseconds of one clock.
export class SpeedHistory {
  #window;
  #points = [];

  constructor(window) {
    this.#window = window * 1000;
  }

  add(time, upload, download) {
    this.#points.push({ time, upload, download });
    this.#points = this.#points.filter((point) => time - point.time <= this.#window);
  }

  // Nothing is known from here to the next speeds: the line breaks.
  addGap(time) {
    if (this.#points.at(-1)?.upload !== null) this.add(time, null, null);
  }

  // One direction ("upload" or "download") as points of x, seconds before now, and y, bytes a
  // second or null where the line breaks.
  line(direction, now) {
    return this.#points.map((point) => ({ x: (point.time - now) / 1000, y: point[direction] }));
  }

  // {latest, peak, mean} of one direction, in bytes a second; null if nothing is known.
  summary(direction) {
    const speeds = this.#points.map((point) => point[direction]).filter((speed) => speed !== null);
    if (speeds.length === 0) return null;
    const sum = speeds.reduce((total, speed) => total + speed, 0);
    return { latest: speeds.at(-1), peak: Math.max(...speeds), mean: sum / speeds.length };
  }
}
