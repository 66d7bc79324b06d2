// Numbers and times as people read them.

export function numberText(value, digits = 4) {
  if (value === null || value === undefined || !Number.isFinite(value)) return '–';
  if (value === 0) return '0';
  const size = Math.abs(value);
  if (size >= 1e6 || size < 1e-4) return value.toExponential(digits - 1);
  const decimals = Math.max(0, digits - 1 - Math.floor(Math.log10(size)));
  return value.toFixed(Math.min(decimals, 8));
}

// A number of an axis, without zeros that tell nothing.
export const tickText = (value) => String(Number(value.toPrecision(6)));

// Local time of day of seconds since 1970.
export function clockText(seconds, decimals = 0) {
  const time = new Date(seconds * 1000);
  const two = (number) => String(number).padStart(2, '0');
  const text = `${two(time.getHours())}:${two(time.getMinutes())}:${two(time.getSeconds())}`;
  return decimals === 0 ? text : text + (seconds % 1).toFixed(decimals).slice(1);
}

export function dateText(digits) {
  return digits.length === 8 ? `${digits.slice(0, 4)}-${digits.slice(4, 6)}-${digits.slice(6)}` : digits;
}

// An element with text or children in it.
export function element(tag, attributes = {}, ...children) {
  const made = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (name.startsWith('on')) made.addEventListener(name.slice(2), value);
    else if (typeof value === 'boolean') made.toggleAttribute(name, value);
    else made.setAttribute(name, value);
  }
  made.append(...children);
  return made;
}

export const byId = (id) => document.getElementById(id);

// Hands a file to the person at the browser.
export function download(name, content, type) {
  const blob = content instanceof Blob ? content : new Blob([content], {type});
  const link = element('a', {href: URL.createObjectURL(blob), download: name});
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}
