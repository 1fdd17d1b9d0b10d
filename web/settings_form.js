// The settings as a form. What is left empty is for the library to choose.

import {SETTINGS, usualSettings} from './settings.js';

export class SettingsForm {
  #inputs = new Map();

  constructor(form) {
    for (const setting of SETTINGS) {
      const field = document.createElement('div');
      const label = document.createElement('label');
      const input = document.createElement('input');
      input.id = `setting-${setting.name}`;
      input.type = setting.flag ? 'checkbox' : 'number';
      if (!setting.flag) [input.min, input.max] = setting.range;
      label.append(setting.label, input);
      field.append(label);
      if (setting.help) {
        const help = document.createElement('div');
        help.className = 'soft';
        help.id = `${input.id}-help`;
        help.textContent = setting.help;
        input.setAttribute('aria-describedby', help.id);
        field.append(help);
      }
      form.append(field);
      this.#inputs.set(setting.name, input);
    }
    this.#show(usualSettings());
    const fine = this.#inputs.get('fine');
    // What has been set by hand stays.
    fine.addEventListener('change', () => {
      const left = usualSettings(!fine.checked);
      const read = this.read();
      const usual = usualSettings(fine.checked);
      const kept = name => read[name] === left[name] && name !== 'fine' ? usual[name] : read[name];
      this.#show(Object.fromEntries(SETTINGS.map(({name}) => [name, kept(name)])));
    });
    form.addEventListener('submit', event => event.preventDefault());
  }

  // {name: number or null}; null where a number is out of its range, which the form then shows.
  read() {
    return Object.fromEntries(SETTINGS.map(({name, flag}) => {
      const input = this.#inputs.get(name);
      if (flag) return [name, input.checked ? 1 : 0];
      return [name, input.value === '' || !input.checkValidity() ? null : input.valueAsNumber];
    }));
  }

  // Shows the first number that is out of its range, if there is one.
  check() {
    const wrong = [...this.#inputs.values()].find(input => !input.checkValidity());
    if (!wrong) return true;
    wrong.closest('details').open = true;
    return wrong.reportValidity();
  }

  #show(values) {
    for (const {name, flag, unset} of SETTINGS) {
      const input = this.#inputs.get(name);
      if (flag) {
        input.checked = values[name] === 1;
      } else {
        input.value = values[name] ?? '';
        input.placeholder = unset;
      }
    }
  }
}
