// Joins the parts of the page, and takes the keys.

import {Connection} from './connection.js';
import {Events} from './events.js';
import {byId} from './format.js';
import {Light} from './light.js';
import {Settings} from './settings.js';
import {Status} from './status.js';
import {Store} from './store.js';
import {Traces} from './traces.js';

const store = new Store();
const status = new Status(store);
const tabs = ['live', 'events', 'settings'];
const known = new Map();  // settings by their paths

const connection = new Connection({
  opened: () => { status.opened(); events.restart(); },
  closed: () => status.closed(),
  access: showAccess,
  state: (state) => status.takeState(state),
  head: (head) => {
    store.setColumns(head.columns);
    events.phases = head.phases;
    status.takeHead(head);
  },
  rows: (numbers, isPast) => store.add(numbers, isPast),
  status: (values) => status.takeStatus(values),
  message: (text) => status.takeMessage(text),
  event: (event) => events.add(event),
  curve: (curve) => events.takeCurve(curve),
  record: (record) => events.takeRecord(record),
  settings: (list) => {
    known.clear();
    for (const setting of list) known.set(setting.path, setting);
    light.build(known);
    settings.build(known);
    showFan();
  },
  changes: (values) => {
    for (const [path, value] of Object.entries(values)) {
      const setting = known.get(path);
      if (!setting) continue;
      setting.value = value;
      light.update(path, value);
      settings.update(path, value);
    }
    light.showState();
    showFan();
  },
});
const events = new Events(connection);
const light = new Light(connection);
const settings = new Settings(connection);
const traces = new Traces(store);

function showFan() { status.takeFan(known.get('cfg/fan_mode')?.value, known.get('cfg/fan_duty')?.value); }

function showAccess({may_change: mayChange, read_only: isReadOnly}) {
  document.body.classList.toggle('may-change', mayChange);
  document.body.classList.toggle('read-only', !mayChange);
  byId('token-form').hidden = mayChange || isReadOnly;
}

byId('token-form').onsubmit = (event) => {
  event.preventDefault();
  connection.enterToken(byId('token').value.trim());
};

function show(tab) {
  for (const each of tabs) {
    byId(each).hidden = each !== tab;
    byId(`tab-${each}`).setAttribute('aria-selected', String(each === tab));
    byId(`tab-${each}`).tabIndex = each === tab ? 0 : -1;
  }
  if (tab === 'events') events.draw();
  if (tab === 'live') traces.draw();
}
tabs.forEach((tab, i) => {
  byId(`tab-${tab}`).onclick = () => show(tab);
  byId(`tab-${tab}`).onkeydown = ({key}) => {
    const step = {ArrowLeft: -1, ArrowRight: 1}[key];
    if (!step) return;
    const next = tabs[(i + step + tabs.length) % tabs.length];
    show(next);
    byId(`tab-${next}`).focus();
  };
});

byId('help-button').onclick = () => byId('help').showModal();

document.addEventListener('keydown', (event) => {
  const {key, target} = event;
  if (event.ctrlKey || event.metaKey || event.altKey || target.closest('input, select, textarea, dialog, [role=tab]')) return;
  if (key === ' ' && target.closest('button, summary, a')) return;
  const acts = {
    1: () => show('live'), 2: () => show('events'), 3: () => show('settings'),
    ' ': () => traces.togglePause(),
    '+': () => traces.zoom(0.5), '-': () => traces.zoom(2), 0: () => traces.follow(),
    ArrowLeft: () => traces.move(-0.25), ArrowRight: () => traces.move(0.25),
    '/': () => { show('settings'); byId('search').focus(); },
    '?': () => byId('help').showModal(),
  };
  if (!acts[key]) return;
  event.preventDefault();
  acts[key]();
});
