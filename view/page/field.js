// An entry for one setting, made from what the head tells of it.

import {element} from './format.js';

export class Field {
  // `changed` is called when what is entered changes; `submitted` at Enter, if given.
  constructor(setting, {changed = () => {}, submitted = null} = {}) {
    this.setting = setting;
    const isChoice = setting.choices.length > 0;
    this.input = isChoice
      ? element('select', {}, ...setting.choices.map((choice) => element('option', {value: choice}, choice)))
      : element('input', {type: 'text', autocomplete: 'off', spellcheck: 'false',
        inputmode: setting.kind === 'float' ? 'decimal' : setting.kind === 'integer' ? 'numeric' : 'text'});
    this.input.dataset.path = setting.path;
    this.input.classList.toggle('short', isChoice || setting.kind === 'integer' || setting.kind === 'float');
    this.input.title = hintOf(setting);
    this.show(setting.value);
    this.input.addEventListener('input', () => { this.mark(); changed(); });
    this.input.addEventListener('keydown', (event) => {
      if (event.key === 'Escape') { this.revert(); changed(); this.input.blur(); }
      if (event.key === 'Enter' && submitted) { event.preventDefault(); submitted(); }
    });
  }

  get isChanged() { return this.input.value !== this.setting.value; }
  get assignment() { return {path: this.setting.path, value: this.input.value.trim()}; }

  // A value that the head holds now. What was typed and not sent stays.
  update(value) {
    const wasChanged = this.isChanged;
    const isNew = this.setting.value !== value;
    this.setting.value = value;
    if (!wasChanged) this.show(value);
    this.mark();
    if (!isNew) return;
    this.input.classList.remove('news');
    void this.input.offsetWidth;  // so that it begins anew
    this.input.classList.add('news');
  }

  revert() { this.show(this.setting.value); this.mark(); }

  show(value) {
    if (this.input.tagName === 'SELECT' && ![...this.input.options].some((option) => option.value === value))
      this.input.append(element('option', {value}, value));
    this.input.value = value;
  }

  mark() { this.input.classList.toggle('changed', this.isChanged); }
}

export function hintOf({kind, low, high, unit, choices}) {
  const type = choices.length > 0 ? (choices.length > 8 ? `${choices.length} choices` : choices.join(' | ')) : kind;
  const range = low || high ? `, ${low} to ${high}` : '';
  return `${type}${range}${unit ? `, ${unit}` : ''}`;
}
