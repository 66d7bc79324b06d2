// Flashes and dark pulses: the list of the last hundred, and the one that is looked at.

import {colour, decades, makeChart, onThemeChange, pictureOf, shade} from './chart.js';
import {byId, dateText, download, element, numberText, tickText} from './format.js';
import {Reference} from './reference.js';

const mostListed = 100;
// In less light than this a leaf is in the dark: the measuring light alone gives less.
const dark = 2;  // µmol/m²/s
const typeNames = {RECT: 'Rectangular flash', MPF: 'Multiphase flash', INDUCTION: 'Induction', DARK: 'Dark pulse', ZERO: 'Zero'};

const shortNames = {RECT: 'Rectangular', MPF: 'Multiphase', DARK: 'Dark', ZERO: 'Zero'};

export const nameOf = (event) => `${typeNames[event.values.TYPE] ?? event.values.TYPE} ${event.values.EVENT_ID}`;
const resultOf = (event, name) => event.results.find((result) => result.name === name)?.value ?? null;
const fileName = ({values}) => [values.DEVICE, values.DATE, values.TIME, values.EVENT_ID, values.TYPE].join('-').replace(/[^\w.-]/g, '');

export class Events {
  constructor(connection) {
    this.connection = connection;
    this.events = new Map();
    this.curves = new Map();
    this.saving = new Map();  // what to do with records that were asked for
    this.reference = new Reference();
    this.phases = {};
    this.over = null;
    byId('log-time').onchange = () => this.draw();
    byId('export-csv').onclick = () => this.askRecord((event, text) => download(`${fileName(event)}.csv`, this.csvOf(event, text), 'text/csv'));
    byId('export-json').onclick = () => this.askRecord((event, text) => download(`${fileName(event)}.json`, text, 'application/json'));
    byId('export-png').onclick = () => this.savePicture();
    byId('take-reference').onclick = () => this.takeReference();
    byId('drop-reference').onclick = () => {
      this.reference.drop(this.event.values.DEVICE);
      this.showNumbers();
    };
    onThemeChange(() => this.draw());
    new ResizeObserver(() => { this.chart?.resize(); this.fitChart?.resize(); }).observe(byId('event'));
  }

  // A new one, or one of those from before this page was open. Keys begin anew with lumet-view.
  add(event) {
    this.events.set(event.key, event);
    while (this.events.size > mostListed) {
      const [oldest] = this.events.keys();
      this.events.delete(oldest);
      this.curves.delete(oldest);
    }
    this.showList();
    if (!this.event || this.event.key === this.newest) this.choose(event.key);
    this.newest = event.key;
    this.showHeadline();
  }

  // A connection that was made anew tells all events again.
  restart() {
    this.events.clear();
    this.curves.clear();
    this.over = null;
    this.newest = this.event?.key;
  }

  showList() {
    byId('events-none').hidden = this.events.size > 0;
    byId('event-table').tBodies[0].replaceChildren(...[...this.events.values()].reverse().map((event) => {
      const box = element('input', {type: 'checkbox', checked: this.over === event.key, 'aria-label': `Lay ${nameOf(event)} over`});
      box.onchange = () => this.layOver(box.checked ? event.key : null);
      const button = element('button', {class: 'link', onclick: () => this.choose(event.key)},
        `${shortNames[event.values.TYPE] ?? nameOf(event).replace(/ \d+$/, '')} ${event.values.EVENT_ID}`);
      return element('tr', {'aria-current': String(event.key === this.event?.key)},
        element('td', {}, button), element('td', {}, event.values.TIME),
        element('td', {class: 'number'}, numberText(event.before?.F)),
        element('td', {class: 'number'}, numberText(resultOf(event, 'FMAX') ?? resultOf(event, 'FMIN'))),
        element('td', {}, box));
    }));
  }

  choose(key) {
    this.event = this.events.get(key);
    byId('event').hidden = false;
    if (this.over === key) this.over = null;
    byId('event-title').textContent = `${nameOf(this.event)}, ${dateText(this.event.values.DATE)} ${this.event.values.TIME}`;
    byId('log-time').checked = this.event.values.TYPE === 'INDUCTION';
    this.showList();
    this.showNumbers();
    this.wantCurve(key);
  }

  layOver(key) {
    this.over = key === this.event?.key ? null : key;
    this.showList();
    if (this.over === null) this.draw();
    else this.wantCurve(key);
  }

  wantCurve(key) {
    if (this.curves.has(key)) this.draw();
    else this.connection.send({curve: key});
  }

  takeCurve(curve) {
    this.curves.set(curve.key, {...curve, on: curve.SECS[Math.max(0, curve.CODE.findIndex((code) => code !== curve.CODE[0]))]});
    this.draw();
  }

  // The numbers that are known of an event: [name, value, unit, meaning].
  numbersOf(event) {
    const rows = [];
    const {before} = event;
    const top = event.values.TYPE === 'ZERO' ? null : resultOf(event, 'FMAX');
    if (before) rows.push(['F', before.F, 'counts', `mean of the ${before.rows} samples before it, in ${numberText(before.PFD)} µmol/m²/s`]);
    for (const {name, value, unit, meaning} of event.results) rows.push([name, value, unit, meaning]);
    if (before && top > 0) {
      rows.push(before.PFD < dark ? ['Fv/Fm', (top - before.F) / top, '', '(FMAX − F)/FMAX, in the dark']
                                  : ['ΦPSII', (top - before.F) / top, '', '(Fm′ − F)/Fm′, also Fq′/Fm′']);
    }
    const reference = this.reference.of(event.values.DEVICE);
    if (reference && top > 0 && event.values.TIMESTAMP !== reference.timestamp)
      rows.push(['NPQ', reference.Fm / top - 1, '', `Fm/Fm′ − 1, reference of ${reference.taken}`]);
    return rows;
  }

  showNumbers() {
    const {event} = this;
    const byName = [['ΦPSII', 'Fv/Fm', 'NPQ', 'F'], ['FMAX', 'FMIN', 'QMAX', 'QMIN']].flat();
    const rank = ([name]) => (byName.includes(name) ? byName.indexOf(name) : byName.length);
    const rows = this.numbersOf(event).sort((one, other) => rank(one) - rank(other));
    byId('event-results').tBodies[0].replaceChildren(...rows.map(([name, value, unit, meaning]) => element('tr', {},
      element('th', {scope: 'row'}, name), element('td', {class: 'number'}, numberText(value, 5)),
      element('td', {}, unit), element('td', {class: 'hint'}, meaning))));
    const reference = this.reference.of(event.values.DEVICE);
    byId('reference').textContent = reference
      ? `Reference of ${reference.taken}: Fo ${numberText(reference.Fo)}, Fm ${numberText(reference.Fm)}, Fv/Fm ${numberText((reference.Fm - reference.Fo) / reference.Fm, 3)}`
      : 'NPQ needs a flash of the dark-adapted leaf as its reference.';
    const top = resultOf(event, 'FMAX');
    byId('take-reference').disabled = !(event.before && top > event.before.F) || event.values.TYPE === 'ZERO';
    byId('drop-reference').hidden = !reference;
    this.showHeadline();
  }

  takeReference() {
    const {event} = this;
    if (event.before.PFD >= dark &&
        !confirm(`The leaf was in ${numberText(event.before.PFD)} µmol/m²/s before this flash, so it was not dark-adapted. Take it all the same?`)) return;
    this.reference.take(event, resultOf(event, 'FMAX'));
    this.showNumbers();
  }

  showHeadline() {
    const event = this.events.get(this.newest);
    if (!event) return;
    byId('last-title').textContent = `${nameOf(event)}, ${event.values.TIME}`;
    const wanted = ['Fv/Fm', 'ΦPSII', 'NPQ', 'FMAX', 'FMIN'];
    const ratios = {'Fv/Fm': 3, ΦPSII: 3, NPQ: 2};
    const labels = {FMAX: event.before?.PFD < dark ? 'Fm' : 'Fm′', FMIN: 'Fo′'};
    const parts = this.numbersOf(event).filter(([name]) => wanted.includes(name))
      .sort(([one], [other]) => wanted.indexOf(one) - wanted.indexOf(other))
      .map(([name, value]) => `${labels[name] ?? name} ${name in ratios ? value.toFixed(ratios[name]) : numberText(value)}`);
    byId('last-numbers').textContent = parts.join(' · ') || 'no result';
  }

  looksOf(code, place) {
    const name = this.phases[code] ?? 'margin';
    return name === 'margin' ? {name: '', fill: 'transparent'} : {name, fill: colour(place % 2 ? 'shade' : 'shade2')};
  }

  phaseSpans(curve, shift) {
    const spans = [];
    curve.CODE.forEach((code, i) => {
      const time = curve.SECS[i] - shift;
      if (spans.at(-1)?.code === code) spans.at(-1).to = time;
      else {
        if (spans.length > 0) spans.at(-1).to = time;
        spans.push({code, from: time, to: time, ...this.looksOf(code, spans.length)});
      }
    });
    return spans;
  }

  draw() {
    const shown = this.event && this.curves.get(this.event.key);
    if (!shown || byId('events').hidden) return;
    const other = this.over === null ? null : this.curves.get(this.over);
    const isLog = byId('log-time').checked;
    const curves = other ? [shown, other] : [shown];
    // From light on, where they are compared or drawn by the logarithm.
    const fromLight = isLog || other;
    const rows = [];
    curves.forEach((curve, which) => curve.SECS.forEach((seconds, i) => {
      const time = fromLight ? seconds - curve.on : seconds;
      if (isLog && time < 1e-6) return;
      const row = [time, ...curves.flatMap(() => [null, null])];
      row[1 + 2 * which] = curve.LUMET[i];
      row[2 + 2 * which] = curve.PFD[i];
      rows.push(row);
    }));
    rows.sort(([one], [next]) => one - next);
    const names = [this.event, this.events.get(this.over)].slice(0, curves.length).flatMap((event, i) =>
      (other ? [`F of ${event.values.EVENT_ID}`, `PFD of ${event.values.EVENT_ID}`] : ['F', 'PFD']));
    const spans = this.phaseSpans(shown, fromLight ? shown.on : 0);
    this.chart?.destroy();
    const series = Object.fromEntries(names.map((name, i) => [name, i % 2 ? {axis: 'y2', strokeWidth: 1} : {}]));
    this.chart = makeChart(byId('event-chart'), rows, {
      labels: ['s', ...names],
      colors: ['f', 'pfd', 'over', 'over2'].slice(0, names.length).map(colour),
      series,
      connectSeparatedPoints: true,
      xlabel: fromLight ? 'time since light on (s)' : 'time (s)',
      ylabel: 'F (counts)',
      y2label: 'PFD (µmol/m²/s)',
      includeZero: true,
      axes: {
        x: {logscale: isLog, valueFormatter: numberText, axisLabelFormatter: tickText, pixelsPerLabel: 60, ...(isLog ? {ticker: decades} : {})},
        y: {valueFormatter: numberText, pixelsPerLabel: 30}, y2: {valueFormatter: numberText, pixelsPerLabel: 30, includeZero: true},
      },
      highlightCallback: (_, time, points) => {
        byId('event-cursor').textContent = [`${numberText(time, 5)} s`, ...points.map(({name, yval}) => `${name} ${numberText(yval)}`)].join('   ');
      },
      underlayCallback: (context, area, chart) => shade(context, area, chart, spans),
    });
    byId('event-cursor').textContent = other
      ? `Point at the curves for their values. ${nameOf(this.events.get(this.over))} lies over ${nameOf(this.event)}.`
      : 'Point at the curve for its values; drag over it to zoom, double-click to see all.';
    this.drawFit(shown);
  }

  drawFit(curve) {
    const {event} = this;
    this.fitChart?.destroy();
    this.fitChart = null;
    const slope = resultOf(event, 'P2_SLP');
    const intercept = resultOf(event, 'P2_INT');
    const points = curve.SECS.map((_, i) => i).filter((i) => curve.CODE[i] === 5 && curve.PFD[i] > 0)
      .map((i) => [10000 / curve.PFD[i], curve.LUMET[i]]).sort(([one], [other]) => one - other);
    byId('fit').hidden = event.values.TYPE !== 'MPF' || points.length < 2;
    if (byId('fit').hidden) return;
    const farthest = points.at(-1)[0];
    const rows = points.map(([x, y]) => [x, y, slope * x + intercept]);
    this.fitChart = makeChart(byId('fit-chart'), [[0, null, intercept], ...rows], {
      labels: ['x', 'F', 'line'],
      colors: [colour('f'), colour('text')],
      series: {F: {strokeWidth: 0, drawPoints: true, pointSize: 2}},
      dateWindow: [0, farthest * 1.04],
      xlabel: '10 000/PFD (m² s/µmol)',
      ylabel: 'F (counts)',
      connectSeparatedPoints: true,
      axes: {x: {axisLabelFormatter: tickText, valueFormatter: numberText, pixelsPerLabel: 40}, y: {valueFormatter: numberText, pixelsPerLabel: 30}},
    });
  }

  askRecord(use) {
    const {key} = this.event;
    this.saving.set(key, use);
    this.connection.send({record: key});
  }

  takeRecord({key, text}) {
    this.saving.get(key)?.(this.events.get(key), text);
    this.saving.delete(key);
  }

  // The settings and results in comments, then the samples.
  csvOf(event, text) {
    const record = JSON.parse(text.replace(/([:,[]\s*)-?(?:nan|inf)\b/g, '$1null'));
    const units = {SECS: 's', LUMET: 'counts', DC: 'counts', PFD: 'µmol/m²/s', REDMODAVG: 'µmol/m²/s', FARRED: 'µmol/m²/s', CODE: ''};
    const arrays = Object.keys(units).filter((name) => Array.isArray(record[name]));
    const lines = Object.entries(record).filter(([, value]) => !Array.isArray(value)).map(([name, value]) => `# ${name},${value}`);
    lines.push(arrays.map((name) => (units[name] ? `${name} (${units[name]})` : name)).join(','));
    for (let i = 0; i < record.SECS.length; ++i) lines.push(arrays.map((name) => record[name][i] ?? '').join(','));
    return `${lines.join('\n')}\n`;
  }

  async savePicture() {
    const charts = this.fitChart ? [this.chart, this.fitChart] : [this.chart];
    const numbers = byId('last-numbers').textContent;
    const title = `${this.event.values.DEVICE}  ${byId('event-title').textContent}${this.event.key === this.newest ? `  ${numbers}` : ''}`;
    download(`${fileName(this.event)}.png`, await pictureOf(charts, title), 'image/png');
  }
}
