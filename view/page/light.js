// The panel of light and flashes: settings that belong together are sent together.

import {documentOf, outcomeText} from './connection.js';
import {Field} from './field.js';
import {byId, element} from './format.js';

const light = 'cfg/lightsource/';
const measure = 'cfg/measure/';
// What stands together, and when it matters.
const groups = [
  {title: 'Actinic light', control: `${light}control`, rows: [
    {when: 'setpoint', name: 'PFD', paths: [`${light}Q_setpoint`]},
    {when: 'setpoint', name: 'Red : blue : far red', paths: [`${light}red_mix`, `${light}blue_mix`, `${light}farred_mix`]},
    {when: 'percent', name: 'Red', paths: [`${light}D_red_percent`]},
    {when: 'percent', name: 'Blue', paths: [`${light}D_blue_percent`]},
    {when: 'percent', name: 'Far red', paths: [`${light}D_farred_percent`]}]},
  {title: 'Measuring light', control: `${measure}control`, rows: [
    {when: 'setpoint', name: 'PFD', paths: [`${measure}Q_modred_setpoint`]},
    {when: 'percent', name: 'Drive', paths: [`${measure}D_modred_percent`]}]},
  {title: 'Rates', rows: [
    {name: 'Samples', paths: [`${measure}outrate`]},
    {name: 'Pulses in the dark', paths: [`${measure}dark_modrate`]},
    {name: 'Pulses in light', paths: [`${measure}light_modrate`]},
    {name: 'Pulses in flashes', paths: [`${measure}flash_modrate`]}]},
];
const flashes = [
  {command: 'rect', name: 'Rectangular', branch: 'rectflash', shows: [['Q_red_setpoint'], ['duration']]},
  {command: 'mpf', name: 'Multiphase', branch: 'multiphaseflash', shows: [['Q_red_setpoint'], ['phase1_duration', 'phase2_duration', 'phase3_duration']]},
  {command: 'induction', name: 'Induction', branch: 'inductionflash', shows: [['Q_red_setpoint'], ['duration']]},
  {command: 'dark', name: 'Dark pulse', branch: 'darkpulse', shows: [['Q_farred_setpoint'], ['before', 'duration', 'after']]},
  {command: 'zero_dc0', name: 'Zero DC', path: 'cal/DC0'},
  {command: 'zero_pc0', name: 'Zero PC', path: 'cal/Pc0'},
  {command: 'break', name: 'Break', words: 'ends a run'},
];

export class Light {
  constructor(connection) { this.connection = connection; }

  // All settings by their paths.
  build(settings) {
    this.settings = settings;
    const typed = new Map([...(this.fields ?? [])].filter(([, field]) => field.isChanged).map(([path, field]) => [path, field.input.value]));
    this.fields = new Map();
    byId('light-form').replaceChildren(
      element('fieldset', {class: 'changes'}, ...groups.map((group) => this.groupOf(group)),
        element('div', {class: 'sent'}, element('span', {}, 'Sends '), element('code', {id: 'light-preview'})),
        element('div', {class: 'toolbar'}, element('button', {id: 'light-send', class: 'main'}, 'Send'),
          element('button', {type: 'button', id: 'light-revert', onclick: () => this.revert()}, 'Revert'))),
      element('output', {id: 'light-answer', class: 'answer', role: 'status'}));
    for (const [path, value] of typed) {
      const field = this.fields.get(path);
      if (field) { field.show(value); field.mark(); }
    }
    byId('light-form').onsubmit = (event) => { event.preventDefault(); this.send(); };
    this.buildFlashes();
    this.showState();
  }

  groupOf({title, control, rows}) {
    const setting = control && this.settings.get(control);
    const choice = setting ? [this.fieldOf(setting).input] : [];
    choice.forEach((input) => input.setAttribute('aria-label', title));
    const entries = rows.map(({when, name, paths}) => {
      const settings = paths.map((path) => this.settings.get(path)).filter(Boolean);
      const inputs = settings.map((setting) => this.fieldOf(setting).input);
      inputs.forEach((input) => input.setAttribute('aria-label', `${title}: ${name}`));
      return element('div', {class: paths.length > 1 ? 'entry several' : 'entry', 'data-when': when ?? '', 'data-control': control ?? ''},
        element('span', {class: 'name'}, name), element('span', {class: 'inputs'}, ...inputs),
        element('small', {}, settings[0]?.unit ?? ''));
    });
    return element('div', {class: 'group'}, element('h3', {}, element('span', {}, title), ...choice), ...entries);
  }

  fieldOf(setting) {
    // A copy, since the tree has an entry for the same setting.
    const field = new Field({...setting}, {changed: () => this.showState()});
    this.fields.set(setting.path, field);
    return field;
  }

  buildFlashes() {
    byId('flash-buttons').replaceChildren(...flashes.map(({command, name}) => {
      const assignments = [{path: `cmd/${command}`, value: 'true'}];
      const preview = () => { byId('flash-preview').textContent = documentOf(assignments); };
      return element('button', {type: 'button', id: `flash-${command}`, onfocus: preview, onmouseenter: preview,
        onclick: () => this.flash(name, assignments)}, element('b', {}, name), element('small', {}));
    }));
  }

  showState() {
    if (!this.fields) return;
    for (const entry of byId('light-form').querySelectorAll('.entry')) {
      const {when, control} = entry.dataset;
      entry.hidden = when !== '' && this.fields.get(control)?.input.value !== when;
    }
    const changed = this.changes();
    byId('light-preview').textContent = changed.length > 0 ? documentOf(changed) : 'nothing, until something is changed';
    byId('light-send').disabled = byId('light-revert').disabled = changed.length === 0;
    const value = (path) => `${this.settings.get(path)?.value ?? '?'}`;
    for (const {command, branch, shows, path, words} of flashes) {
      const text = words ?? (path ? `${value(path)} counts` : shows.map((leaves) => {
        const unit = this.settings.get(`cfg/${branch}/${leaves[0]}`)?.unit.replace('secs', 's') ?? '';
        return `${leaves.map((leaf) => value(`cfg/${branch}/${leaf}`)).join('+')}\u00a0${unit}`;
      }).join(', '));
      byId(`flash-${command}`).querySelector('small').textContent = text;
    }
  }

  changes() { return [...this.fields.values()].filter((field) => field.isChanged).map((field) => field.assignment); }

  update(path, value) {
    this.fields?.get(path)?.update(value);
  }

  revert() {
    for (const field of this.fields.values()) field.revert();
    this.showState();
  }

  async send() {
    const assignments = this.changes();
    if (assignments.length === 0) return;
    byId('light-answer').textContent = 'Sent; waiting for the head.';
    const answer = await this.connection.set(assignments);
    const {done, text} = outcomeText(answer);
    for (const {path, value} of answer.results ?? []) {
      const field = this.fields.get(path);
      if (!answer.error && field) { field.update(value); field.revert(); }
    }
    byId('light-answer').textContent = done ? 'Done.' : text;
    byId('light-answer').classList.toggle('refused', !done);
    this.showState();
  }

  async flash(name, assignments) {
    byId('flash-answer').textContent = `${name}: sent.`;
    const answer = await this.connection.set(assignments);
    const {done, text} = outcomeText(answer);
    byId('flash-answer').textContent = done ? `${name}: the head has begun.` : text;
    byId('flash-answer').classList.toggle('refused', !done);
  }
}
