// What is always in sight: the connection, the present numbers, and the state of the head.

import {byId, element, numberText} from './format.js';

const sensorNames = {TDigital: 'Digital board', TPreamp: 'Preamplifier', TPowerSupply: 'Power supply', TDrive: 'Light drive', TLEDTile: 'Lamps'};
const silentAfter = 3;  // seconds

export class Status {
  constructor(store) {
    this.store = store;
    this.facts = new Map();
    this.state = null;
    this.isOpen = false;
    setInterval(() => this.showNow(), 250);
  }

  opened() { this.isOpen = true; this.showConnection(); }
  closed() { this.isOpen = false; this.showConnection(); }

  takeHead(head) {
    byId('head-name').textContent = `${head.serial_number} · ${head.name}`;
    document.title = `${head.serial_number} · lumet`;
    this.setFact('Head', `${head.model} ${head.serial_number}, lumet ${head.version}`);
  }

  takeState(state) {
    if (this.state?.time !== state.time) this.heardAt = performance.now();
    this.state = state;
    this.setFact('Console', state.console === null ? 'nobody' : state.console || 'a client without a name');
    this.setFact('Looking on', state.browsers === 1 ? 'this page' : `${state.browsers} pages`);
    this.showConnection();
  }

  takeStatus({values, diag}) {
    const known = Object.keys(sensorNames);
    const names = Object.keys(values).filter((name) => name.startsWith('T') && name !== 'TIME');
    names.sort((one, other) => known.indexOf(one) - known.indexOf(other));
    this.temperatures = names.map((name) => [sensorNames[name] ?? name, `${numberText(values[name], 3)} °C`]);
    this.setFact('DIAG', diag.length > 0 ? diag.join('; ') : 'nothing to report', diag.some((text) => /SATURATED|TEMP|OFF|TEST/.test(text)));
  }

  takeMessage(text) { this.setFact('Processor', text); }

  takeFan(mode, duty) { this.setFact('Fan', mode === 'percent' ? `${duty} %` : mode); }

  setFact(name, text, isWarning = false) {
    this.facts.set(name, [text, isWarning]);
    const order = ['DIAG', 'Fan', 'Console', 'Head', 'Processor', 'Looking on'];
    const rows = [...this.facts].sort(([one], [other]) => order.indexOf(one) - order.indexOf(other));
    byId('status').replaceChildren(
      ...(this.temperatures ?? []).flatMap(([name, value]) => [element('dt', {}, name), element('dd', {class: 'number'}, value)]),
      ...rows.flatMap(([name, [value, warns]]) => [element('dt', {}, name), element('dd', {class: warns ? 'warning' : ''}, value)]));
  }

  showConnection() {
    const badge = byId('connection');
    const {state} = this;
    const show = (name, text, why = '') => {
      badge.dataset.state = name;
      badge.textContent = text;
      badge.title = why;
    };
    let notice = '';
    if (!this.isOpen) {
      show('lost', 'page not connected');
      notice = 'The program lumet-view does not answer. The page connects again by itself.';
    } else if (!state) show('connecting', 'connecting');
    else if (!state.head.up) {
      show('lost', 'no head');
      notice = `No head: ${state.head.reason}. The page finds it again by itself.`;
    } else {
      const silence = (performance.now() - (this.heardAt ?? 0)) / 1000;
      const rate = state.rate > 0 ? `${(state.rate < 10 ? numberText(state.rate, 2) : Math.round(state.rate))} samples/s` : 'connected';
      if (silence > silentAfter) show('lost', `no samples for ${Math.round(silence)} s`);
      else show('live', rate + (state.thinned ? ', thinned to 1000' : ''), 'Live');
      if (!state.bus.up) notice = `No message bus, so no events: ${state.bus.reason}. The page finds it again by itself.`;
    }
    byId('notice').textContent = notice;
    byId('notice').hidden = notice === '';
  }

  showNow() {
    const isLive = this.isOpen && this.state?.head.up;
    byId('now-f').textContent = isLive ? numberText(this.store.newest('LUMET')) : '–';
    byId('now-pfd').textContent = isLive ? numberText(this.store.newest('PFD')) : '–';
    document.body.classList.toggle('stale', !isLive);
  }
}
