// What all charts have in common: colours of the theme, axes with units, and drawings as PNG.
/* global Dygraph */

const wantsDark = matchMedia('(prefers-color-scheme: dark)');

export const colour = (name) => getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();

// Calls `redraw` when the theme changes.
export function onThemeChange(redraw) { wantsDark.addEventListener('change', redraw); }

export function makeChart(place, data, options) {
  const {axes = {}, ...rest} = options;
  const axis = {axisLineColor: colour('line'), gridLineColor: colour('grid'), axisLabelFontSize: 12};
  const chart = new Dygraph(place, data, {
    legend: 'never',
    labelsKMB: false,
    strokeWidth: 1.4,
    highlightCircleSize: 3,
    xRangePad: 0,
    connectSeparatedPoints: false,
    axes: {
      x: {...axis, axisTickSize: 6, ...axes.x},
      y: {...axis, axisLabelWidth: 52, ...axes.y},
      y2: {...axis, axisLabelWidth: 56, drawGrid: false, independentTicks: true, ...axes.y2},
    },
    ...rest,
  });
  if (rest.colors.length > 1) place.append(legendOf(rest.labels.slice(1), rest.colors));
  return chart;
}

function legendOf(names, colours) {
  const legend = document.createElement('div');
  legend.className = 'legend';
  names.forEach((name, i) => {
    const entry = document.createElement('span');
    entry.textContent = name;
    entry.style.color = colours[i];
    legend.append(entry);
  });
  return legend;
}

// Ticks of a logarithmic axis of seconds: one for each power of ten.
export function decades(start, end) {
  const ticks = [];
  for (let power = Math.ceil(Math.log10(start)); power <= Math.log10(end); ++power) {
    const [unit, factor] = power < -3 ? ['µs', 6] : power < 0 ? ['ms', 3] : ['s', 0];
    ticks.push({v: 10 ** power, label: `${Math.round(10 ** (power + factor))} ${unit}`});
  }
  return ticks;
}

// The library's own answer leaves the logarithm out.
function placeOf(chart, area, value) {
  if (!chart.getOptionForAxis('logscale', 'x')) return chart.toDomXCoord(value);
  const [start, end] = chart.xAxisRange().map(Math.log);
  return area.x + area.w * (value > 0 ? (Math.log(value) - start) / (end - start) : -1);
}

// Shades spans of the x axis: [{from, to, colour, name}].
export function shade(context, area, chart, spans) {
  context.save();
  context.font = '11px system-ui, sans-serif';
  context.textAlign = 'center';
  for (const {from, to, fill, name} of spans) {
    const left = Math.max(area.x, placeOf(chart, area, from));
    const right = Math.min(area.x + area.w, placeOf(chart, area, to));
    if (!(right > left)) continue;
    context.fillStyle = fill;
    context.fillRect(left, area.y, Math.max(1, right - left), area.h);
    if (!name || context.measureText(name).width > right - left - 4) continue;
    context.fillStyle = colour('muted');
    context.fillText(name, (left + right) / 2, area.y + area.h - 7);
  }
  context.restore();
}

// One picture of charts, each as it stands on the page, below a title.
export function pictureOf(charts, title) {
  const scale = 2;
  const titleHeight = 36;
  const frames = charts.map((chart) => chart.graphDiv.parentElement);
  const places = frames.map((frame) => frame.getBoundingClientRect());
  const width = Math.max(...places.map((place) => place.width));
  const canvas = document.createElement('canvas');
  canvas.width = width * scale;
  canvas.height = (titleHeight + places.reduce((sum, place) => sum + place.height + 8, 0)) * scale;
  const context = canvas.getContext('2d');
  context.scale(scale, scale);
  context.fillStyle = colour('card');
  context.fillRect(0, 0, canvas.width, canvas.height);
  context.fillStyle = colour('text');
  context.font = '600 15px system-ui, sans-serif';
  context.fillText(title, 8, 24);
  let top = titleHeight;
  frames.forEach((frame, i) => {
    for (const layer of frame.querySelectorAll('canvas')) {
      const place = layer.getBoundingClientRect();
      context.drawImage(layer, place.left - places[i].left, top + place.top - places[i].top, place.width, place.height);
    }
    drawLabels(context, frame, places[i], top);
    top += places[i].height + 8;
  });
  return new Promise((resolve) => canvas.toBlob(resolve, 'image/png'));
}

// The library puts its labels beside its canvas.
function drawLabels(context, frame, origin, top) {
  for (const label of frame.querySelectorAll('.dygraph-axis-label, .dygraph-label, .legend span')) {
    const leaf = label.classList.contains('dygraph-label') ? label.firstElementChild ?? label : label;
    const place = leaf.getBoundingClientRect();
    const style = getComputedStyle(leaf);
    context.save();
    context.font = `${style.fontSize} system-ui, sans-serif`;
    context.fillStyle = style.color;
    context.translate(place.left - origin.left + place.width / 2, top + place.top - origin.top + place.height / 2);
    if (/ylabel|y2label/.test(label.className + leaf.className)) context.rotate(-Math.PI / 2);
    context.textBaseline = 'middle';
    const isLeft = /axis-label-y1/.test(label.className);
    const isRight = /axis-label-y2/.test(label.className);
    context.textAlign = isLeft ? 'right' : isRight ? 'left' : 'center';
    context.fillText(leaf.textContent, isLeft ? place.width / 2 : isRight ? -place.width / 2 : 0, 0);
    context.restore();
  }
}
