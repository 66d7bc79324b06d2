// The tree of settings: to browse, to search, and to edit one by one.

import {documentOf, outcomeText} from './connection.js';
import {Field, hintOf} from './field.js';
import {byId, element} from './format.js';

// What can't be undone from here.
const grave = /^(cmd\/reboot|factory\/|cfg\/network\/|cfg\/clock\/)/;

export class Settings {
  constructor(connection) {
    this.connection = connection;
    this.meanings = {};
    this.open = new Set(['cfg']);
    byId('search').oninput = () => this.filter();
    byId('search').onkeydown = ({key}) => {
      if (key !== 'Escape') return;
      byId('search').value = '';
      byId('search').blur();
      this.filter();
    };
    // Made with the program from the head's own tree; a page without it shows no meanings.
    fetch('meanings.json').then((answer) => (answer.ok ? answer.json() : {})).catch(() => ({})).then((meanings) => {
      this.meanings = meanings;
      if (this.settings) this.build(this.settings);
    });
  }

  build(settings) {
    this.settings = settings;
    this.rows = new Map();
    this.branches = new Map();
    byId('tree').replaceChildren();
    const list = [...settings.values()];
    const isBelow = ({path}) => path.includes('/');
    for (const setting of [...list.filter(isBelow), ...list.filter((each) => !isBelow(each))])
      this.branchOf(setting.path).append(this.rowOf(setting));
    this.filter();
  }

  branchOf(path) {
    const end = path.lastIndexOf('/');
    // What the head tells of itself stands beside the branches, and after them here.
    if (end < 0) return this.branchOf('the head itself/');
    const branch = path.slice(0, end);
    if (!this.branches.has(branch)) {
      const meaning = this.meanings[branch] ?? '';
      const made = element('details', {open: this.open.has(branch)},
        element('summary', {}, branch.slice(branch.lastIndexOf('/') + 1), element('small', {}, meaning)));
      made.ontoggle = () => { if (byId('search').value === '') this.open[made.open ? 'add' : 'delete'](branch); };
      (branch.includes('/') ? this.branchOf(branch) : byId('tree')).append(made);
      this.branches.set(branch, made);
    }
    return this.branches.get(branch);
  }

  rowOf(setting) {
    const send = () => this.send(field);
    const button = element('button', {type: 'button', onclick: send}, 'Set');
    const field = new Field({...setting}, {changed: () => { button.hidden = !field.isChanged; }, submitted: send});
    button.hidden = true;
    field.input.id = `set/${setting.path}`;
    const hint = hintOf(setting) + (setting.default ? `, ${setting.default} at first` : '');
    const row = element('div', {class: 'setting'},
      element('label', {for: field.input.id, title: setting.path}, setting.path.slice(setting.path.lastIndexOf('/') + 1)),
      element('span', {class: 'changes inputs'}, field.input, element('small', {class: 'unit'}, setting.unit), button),
      element('small', {class: 'hint'}, this.meanings[setting.path] ?? '', ' ', element('span', {class: 'type'}, hint)));
    this.rows.set(setting.path, {field, row, button, text: `${setting.path} ${setting.unit} ${this.meanings[setting.path] ?? ''}`.toLowerCase()});
    return row;
  }

  filter() {
    const words = byId('search').value.toLowerCase().split(/\s+/).filter(Boolean);
    let found = 0;
    for (const {row, text} of this.rows?.values() ?? []) {
      row.hidden = !words.every((word) => text.includes(word));
      if (!row.hidden) ++found;
    }
    for (const [path, branch] of this.branches ?? []) {
      branch.hidden = ![...branch.querySelectorAll('.setting')].some((row) => !row.hidden);
      branch.open = words.length > 0 ? !branch.hidden : this.open.has(path);
    }
    byId('search-count').textContent = words.length > 0 ? `${found} of ${this.rows?.size ?? 0} settings` : '';
  }

  update(path, value) {
    const row = this.rows?.get(path);
    if (!row) return;
    row.field.update(value);
    row.button.hidden = !row.field.isChanged;
  }

  async send(field) {
    const {assignment} = field;
    if (grave.test(assignment.path) && !confirm(`Send this to the head?\n\n${documentOf([assignment])}`)) return;
    byId('setting-answer').textContent = `${assignment.path} = ${assignment.value}: sent.`;
    const answer = await this.connection.set([assignment]);
    const {done, text} = outcomeText(answer);
    if (!answer.error) {
      this.update(assignment.path, answer.results[0].value);
      field.revert();
      this.update(assignment.path, answer.results[0].value);
    }
    byId('setting-answer').textContent = done ? `${assignment.path} is ${answer.results[0].value} now.` : text;
    byId('setting-answer').classList.toggle('refused', !done);
  }
}
