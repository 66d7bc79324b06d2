// Live traces: the last minutes, following the present or held for a look.
/* global Dygraph */

import {colour, makeChart, onThemeChange, shade} from './chart.js';
import {byId, clockText, element, numberText} from './format.js';
import {columns} from './store.js';

const traces = [
  {id: 'f', name: 'F', label: 'F (counts)', height: 250, lines: [['LUMET', 'F', 'f', 1]]},
  {id: 'pfd', name: 'PFD', label: 'PFD (µmol/m²/s)', height: 170, lines: [['PFD', 'PFD', 'pfd', 1]]},
  {id: 'dc', name: 'DC', label: 'DC (counts)', height: 130, lines: [['DC', 'DC', 'dc', 1]]},
  {id: 'pc', name: 'PC', label: 'PC (counts)', height: 130, lines: [['PC', 'PC', 'pc', 1]]},
  {id: 'mix', name: 'Mix', label: 'Mix (%)', height: 130, range: [0, 118], lines: [
    ['REDFRAC', 'red', 'red', 100], ['BLUEFRAC', 'blue', 'blue', 100], ['FARREDFRAC', 'far red', 'farred', 100]]},
];
const slowest = 100;  // ms between drawings
const narrowest = 0.01;  // seconds

export class Traces {
  constructor(store) {
    this.store = store;
    this.span = Number(localStorage.getItem('span')) || 60;
    this.window = null;  // [start, end] while held; null while it follows the present
    this.cursor = null;  // a time
    this.drawn = 0;
    this.shown = new Set(JSON.parse(localStorage.getItem('traces') ?? '["f","pfd","dc","pc","mix"]'));
    this.charts = new Map();
    this.build();
    onThemeChange(() => this.rebuild());
    byId('span').value = String(this.span);
    byId('span').onchange = ({target}) => this.setSpan(Number(target.value));
    byId('pause').onclick = () => this.togglePause();
    byId('zoom-in').onclick = () => this.zoom(0.5);
    byId('zoom-out').onclick = () => this.zoom(2);
    new ResizeObserver(() => { for (const chart of this.charts.values()) chart.resize(); }).observe(byId('charts'));
    const frame = (now) => {
      if (!this.window && now - this.drawn > slowest && this.store.last !== this.drawnTime) this.draw(now);
      requestAnimationFrame(frame);
    };
    requestAnimationFrame(frame);
  }

  build() {
    byId('chooser').replaceChildren(...traces.map(({id, name}) => {
      const box = element('input', {type: 'checkbox', checked: this.shown.has(id)});
      box.onchange = () => {
        if (box.checked) this.shown.add(id);
        else this.shown.delete(id);
        localStorage.setItem('traces', JSON.stringify([...this.shown]));
        this.rebuild();
      };
      return element('label', {}, box, ` ${name}`);
    }));
    this.rebuild();
  }

  rebuild() {
    for (const chart of this.charts.values()) chart.destroy();
    this.charts.clear();
    byId('charts').replaceChildren();
    for (const trace of traces) {
      if (!this.shown.has(trace.id)) continue;
      const place = element('div', {class: 'chart', id: `trace-${trace.id}`});
      place.style.height = `${trace.height}px`;
      byId('charts').append(place);
      this.charts.set(trace.id, this.chartOf(trace, place));
    }
    this.draw();
  }

  chartOf(trace, place) {
    const {touchstart, touchmove, touchend, ...mouse} = Dygraph.defaultInteractionModel;
    return makeChart(place, [[0, ...trace.lines.map(() => NaN)]], {
      labels: ['time', ...trace.lines.map(([, name]) => name)],
      colors: trace.lines.map(([, , name]) => colour(name)),
      ylabel: trace.label,
      yLabelWidth: 18,
      includeZero: true,
      valueRange: trace.range ?? null,
      axes: {
        x: {ticker: Dygraph.dateTicker, axisLabelFormatter: (time) => this.tickOf(time), pixelsPerLabel: 75},
        y: {valueFormatter: numberText, pixelsPerLabel: 28},
      },
      interactionModel: {...mouse, dblclick: () => this.follow()},
      zoomCallback: (start, end) => this.hold(start / 1000, end / 1000),
      highlightCallback: (_, time) => this.pointAt(time / 1000),
      unhighlightCallback: () => this.pointAt(null),
      underlayCallback: (context, area, chart) => shade(context, area, chart, this.eventSpans ?? []),
    });
  }

  tickOf(time) {
    const [start, end] = this.shownWindow();
    const decimals = end - start > 10 ? 0 : end - start > 1 ? 1 : 3;
    return clockText(Number(time) / 1000, decimals);
  }

  setSpan(seconds) {
    this.span = seconds;
    localStorage.setItem('span', String(seconds));
    this.follow();
  }

  hold(start, end) {
    this.window = [start, Math.max(end, start + narrowest)];
    this.draw();
  }

  follow() {
    this.window = null;
    for (const chart of this.charts.values()) chart.updateOptions({valueRange: traces.find(({id}) => this.charts.get(id) === chart).range ?? null}, true);
    this.draw();
  }

  togglePause() {
    if (this.window) this.follow();
    else this.hold(...this.shownWindow());
  }

  zoom(factor) {
    const [start, end] = this.shownWindow();
    const middle = this.window ? (start + end) / 2 : end;
    const half = Math.max(narrowest, (end - start) * factor / 2);
    if (half * 2 >= 3600) return this.setSpan(3600);
    this.hold(Math.min(middle + half, this.store.last) - 2 * half, Math.min(middle + half, this.store.last));
  }

  move(share) {
    if (!this.window) return;
    const [start, end] = this.window;
    this.hold(start + share * (end - start), end + share * (end - start));
  }

  shownWindow() {
    const end = Number.isFinite(this.store.last) ? this.store.last : Date.now() / 1000;
    return this.window ?? [end - this.span, end];
  }

  draw(now = performance.now()) {
    this.drawn = now;
    this.drawnTime = this.store.last;
    const [start, end] = this.shownWindow();
    const width = Math.max(300, byId('charts').clientWidth);
    const found = this.store.between(start, end, 2 * width);
    this.eventSpans = found.events.map(([from, to]) => ({from: from * 1000, to: to * 1000, fill: colour('shade')}));
    this.found = found;
    for (const {id, lines} of traces) {
      const sources = lines.map(([name, , , scale]) => [found.values[columns.indexOf(name)], scale]);
      const rows = found.times.map((time, i) => [time * 1000, ...sources.map(([values, scale]) => values[i] * scale)]);
      if (rows.length === 0) rows.push([end * 1000, ...lines.map(() => NaN)]);
      this.charts.get(id)?.updateOptions({file: rows, dateWindow: [start * 1000, end * 1000]});
    }
    this.showCursor();
    const isHeld = this.window !== null;
    byId('pause').textContent = isHeld ? 'Go on' : 'Pause';
    byId('pause').setAttribute('aria-pressed', String(isHeld));
    // For those who test that the page keeps up.
    Object.assign(byId('charts').dataset, {last: this.store.last, rows: this.store.rows, longest: this.store.longestStep});
  }

  pointAt(time) {
    this.cursor = time;
    this.showCursor();
  }

  showCursor() {
    const {times, values} = this.found ?? {times: []};
    if (this.cursor === null || times.length === 0) {
      byId('cursor').textContent = this.window ? `Held at ${clockText(this.window[0], 2)} to ${clockText(this.window[1], 2)}.`
                                               : 'Point at a trace for its values; drag over it to zoom.';
      return;
    }
    let row = this.store.rowAt(times, times.length, this.cursor - 1e-6);
    row = Math.min(row, times.length - 1);
    for (const chart of this.charts.values()) chart.setSelection(row);
    const value = (name, scale = 1) => numberText(values[columns.indexOf(name)][row] * scale);
    byId('cursor').textContent = `${clockText(times[row], 3)}   F ${value('LUMET')}   PFD ${value('PFD')} µmol/m²/s   ` +
        `DC ${value('DC')}   PC ${value('PC')} counts   ` +
        `red ${value('REDFRAC', 100)} %, blue ${value('BLUEFRAC', 100)} %, far red ${value('FARREDFRAC', 100)} %`;
  }
}
