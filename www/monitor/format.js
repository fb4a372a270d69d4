// Turns figures and foreign text into what a person reads.

const UNITS = ['B', 'KiB', 'MiB', 'GiB', 'TiB', 'PiB', 'EiB'];

// Bytes with three significant digits in units of 1024: "0 B", "1.50 KiB", "37.2 GiB".
export function formatSize(bytes) {
  const { amount, unit } = inUnits(bytes);
  const digits = unit === 'B' || amount >= 99.95 ? 0 : amount >= 9.995 ? 1 : 2;
  return `${amount.toFixed(digits)} ${unit}`;
}

export function formatSpeed(bytesPerSecond) {
  return `${formatSize(bytesPerSecond)}/s`;
}

// The same for the marks of a scale, whose round figures need no further digits: "50 MiB/s".
export function formatMark(bytesPerSecond) {
  const { amount, unit } = inUnits(bytesPerSecond);
  return `${Number(amount.toFixed(2))} ${unit}/s`;
}

// 999.5 would be shown as 1000, so that the next unit begins there.
function inUnits(bytes) {
  let index = 0;
  let amount = bytes;
  for (; amount >= 999.5 && index < UNITS.length - 1; ++index) amount /= 1024;
  return { amount, unit: UNITS[index] };
}

// The two greatest units of a duration: "8 s", "2 min 05 s", "3 h 07 min", "12 d 04 h".
export function formatDuration(seconds) {
  const whole = Math.ceil(seconds);
  if (whole < 60) return `${whole} s`;
  if (whole < 3600) return pair(whole, 60, 'min', 's');
  const minutes = Math.ceil(whole / 60);
  if (minutes < 24 * 60) return pair(minutes, 60, 'h', 'min');
  const hours = Math.ceil(minutes / 60);
  return hours < 24 * 1000 ? pair(hours, 24, 'd', 'h') : 'over 1000 d';
}

function pair(amount, size, great, small) {
  const rest = String(amount % size).padStart(2, '0');
  return `${Math.floor(amount / size)} ${great} ${rest} ${small}`;
}

// Percent with one decimal, rounded down: "100.0 %" appears only when all has come.
export function formatPercent(percent) {
  if (percent > 100) return 'over 100 %';
  return `${(Math.floor(percent * 10 + 1e-6) / 10).toFixed(1)} %`;
}

// The clock time of a Date in the operator's time zone, "10:22:33".
export function formatClock(date) {
  return [date.getHours(), date.getMinutes(), date.getSeconds()]
    .map((part) => String(part).padStart(2, '0')).join(':');
}

// Characters that show nothing or change how their neighbours show: controls, formats (with the
// bidirectional overrides), line separators, lone surrogates, private use and unusual blanks.
const UNSEEN = /[\p{Cc}\p{Cf}\p{Zl}\p{Zp}\p{Cs}\p{Co}]|(?! )\p{Zs}/gu;

// A foreign text with its unseen characters spelled out, as in "a⟨U+202E⟩b".
export function showUnseen(text) {
  return text.replace(UNSEEN, (character) => {
    const code = character.codePointAt(0).toString(16).toUpperCase().padStart(4, '0');
    return `⟨U+${code}⟩`;
  });
}

// The step, in bytes a second, of a scale that reaches a peak in at most four steps and whose marks
// are round in units of 1024.
export function scaleStep(peak) {
  for (let unit = 1; ; unit *= 1024) {
    for (const step of [1, 2, 5, 10, 20, 50, 100, 200, 256, 512]) {
      if (4 * step * unit >= peak) return step * unit;
    }
  }
}
