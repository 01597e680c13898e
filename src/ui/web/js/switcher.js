// The quick project switcher: a combobox filtering the projects as one types, most recent first.
import { h, uid, fold } from './dom.js';
import { t } from './i18n.js';

export function projectSwitcher({ projects, canStop, onPick }) {
  const listId = uid('switch-list');
  const input = h('input', {
    type: 'text', name: 'switch-project', autocomplete: 'off', spellcheck: 'false',
    role: 'combobox', 'aria-expanded': 'false', 'aria-controls': listId, 'aria-autocomplete': 'list',
    placeholder: t('switcher.placeholder'),
  });
  const list = h('ul', { class: 'switcher-list', id: listId, role: 'listbox', 'aria-label': t('switcher.label') });
  list.hidden = true;
  let entries = [];
  let highlighted = -1;

  function matching() {
    const wanted = fold(input.value.trim());
    const found = projects
      .filter((project) => fold(project.label || project.name).includes(wanted))
      .map((project) => ({ id: project.id, label: project.label || project.name }));
    if (canStop) found.push({ id: null, label: t('switcher.stop'), stop: true });
    return found;
  }

  function highlight(index) {
    highlighted = index;
    [...list.children].forEach((item, i) => item.setAttribute('aria-selected', String(i === index)));
    const item = list.children[index];
    if (item) {
      input.setAttribute('aria-activedescendant', item.id);
      item.scrollIntoView({ block: 'nearest' });
    } else input.removeAttribute('aria-activedescendant');
  }

  function open() {
    entries = matching();
    list.replaceChildren(...entries.map((entry, i) => h('li', {
      id: `${listId}-${i}`, role: 'option', class: entry.stop ? 'is-stop' : '', text: entry.label,
      on: { mousedown: (event) => event.preventDefault(), click: () => pick(i) },
    })));
    if (!entries.length) list.append(h('li', { class: 'muted', role: 'presentation', text: t('switcher.none') }));
    list.hidden = false;
    input.setAttribute('aria-expanded', 'true');
    highlight(entries.length && input.value.trim() ? 0 : -1);
  }

  function close() {
    list.hidden = true;
    input.setAttribute('aria-expanded', 'false');
    highlight(-1);
  }

  function pick(index) {
    const entry = entries[index];
    if (!entry) return;
    close();
    onPick(entry.id, entry.label);
  }

  function move(step) {
    if (list.hidden) open();
    if (!entries.length) return;
    const from = highlighted < 0 ? (step > 0 ? -1 : entries.length) : highlighted;
    highlight((from + step + entries.length) % entries.length);
  }

  input.addEventListener('input', open);
  input.addEventListener('click', open);
  input.addEventListener('blur', close);
  input.addEventListener('keydown', (event) => {
    const keys = {
      ArrowDown: () => move(1),
      ArrowUp: () => move(-1),
      Enter: () => { if (!list.hidden && highlighted >= 0) pick(highlighted); },
      Escape: () => (list.hidden ? (input.value = '') : close()),
    };
    if (!keys[event.key]) return;
    event.preventDefault();
    keys[event.key]();
  });

  return { input, list };
}
