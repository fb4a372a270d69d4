// The two charts of speed over time and their text alternatives.

import { byId, setAttribute, setText } from './dom.js';
import { formatMark, formatSpeed, scaleStep } from './format.js';

// An idle server's scale still reads as one of speeds, in bytes a second.
const LEAST_TOP = 1024;

const DIRECTIONS = { upload: 'Upload', download: 'Download' };

export class SpeedCharts {
  #window;
  #charts = {};

  // `window` is the time shown, in seconds. Without the chart library the texts remain.
  constructor(window) {
    this.#window = window;
    if (globalThis.Chart === undefined) {
      document.body.dataset.charts = 'none';
      return;
    }
    for (const direction of Object.keys(DIRECTIONS)) this.#charts[direction] = this.#make(direction);
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => this.#paint());
    this.#paint();
  }

  // Shows a SpeedHistory as it is at a time of the history's clock.
  show(history, now) {
    for (const [direction, title] of Object.entries(DIRECTIONS)) {
      const summary = history.summary(direction);
      this.#describe(direction, title, summary);
      this.#draw(this.#charts[direction], history.line(direction, now), summary?.peak ?? 0);
    }
  }

  #describe(direction, title, summary) {
    const minutes = `the last ${this.#window / 60} minutes`;
    const text = summary === null ? `nothing known of ${minutes}`
      : `${minutes}: mean ${formatSpeed(summary.mean)}, peak ${formatSpeed(summary.peak)}`;
    setText(byId(`${direction}-summary`), text);
    setAttribute(byId(`${direction}-chart`), 'aria-label', `Chart of the ${title.toLowerCase()} speed, ${text}`);
  }

  #draw(chart, line, peak) {
    if (!chart) return;
    const { y } = chart.options.scales;
    const top = Math.max(peak, LEAST_TOP);
    y.ticks.stepSize = scaleStep(top);
    y.max = y.ticks.stepSize * Math.ceil(top / y.ticks.stepSize);
    chart.data.datasets[0].data = line;
    chart.update('none');
  }

  #make(direction) {
    return new globalThis.Chart(byId(`${direction}-chart`), {
      type: 'line',
      data: { datasets: [{ data: [], borderWidth: 2, fill: 'origin', pointRadius: 0, pointHitRadius: 8 }] },
      options: {
        animation: false,
        parsing: false,
        maintainAspectRatio: false,
        interaction: { mode: 'index', intersect: false },
        plugins: {
          legend: { display: false },
          tooltip: { displayColors: false, callbacks: { title: titleOfPoint, label: labelOfPoint } },
        },
        scales: { x: this.#timeScale(), y: speedScale() },
      },
    });
  }

  #timeScale() {
    return {
      type: 'linear',
      min: -this.#window,
      max: 0,
      grid: { display: false, drawBorder: false },
      ticks: {
        stepSize: 60,
        maxRotation: 0,
        callback: (seconds) => (seconds === 0 ? 'now' : `${-seconds / 60} min`),
      },
    };
  }

  #paint() {
    const style = getComputedStyle(document.documentElement);
    const colour = (name) => style.getPropertyValue(`--${name}`).trim();
    for (const [direction, chart] of Object.entries(this.#charts)) {
      const [line] = chart.data.datasets;
      line.borderColor = colour(direction);
      line.backgroundColor = colour(`${direction}-wash`);
      const { x, y } = chart.options.scales;
      for (const scale of [x, y]) Object.assign(scale.ticks, { color: colour('quiet'), font: { size: 11 } });
      y.grid.color = colour('line');
      chart.update('none');
    }
  }
}

function speedScale() {
  return {
    min: 0,
    grid: { drawBorder: false, drawTicks: false },
    ticks: { padding: 6, callback: (speed) => formatMark(speed) },
  };
}

function titleOfPoint([point]) {
  const seconds = Math.round(-point.parsed.x);
  return seconds === 0 ? 'now' : `${seconds} s ago`;
}

function labelOfPoint(point) {
  return formatSpeed(point.parsed.y);
}
