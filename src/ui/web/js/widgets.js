// Pieces several pages share: figures with test hooks, cards, bars, project choices and guarded actions.
import { h, showMessage } from './dom.js';
import { t } from './i18n.js';
import { minutes } from './format.js';

export function metric(path, raw, text) {
  return h('span', { class: 'metric-value', data: { metric: path, value: String(raw ?? 0) }, text });
}

export function pageHeader(title, ...extra) {
  return h('header', { class: 'page-header' }, h('h1', { tabindex: -1, text: title }), ...extra);
}

export function card(title, ...children) {
  return h('section', { class: 'card' }, h('h2', { text: title }), ...children);
}

export function figures(rows) {
  return h('dl', { class: 'figures' }, rows.map(([label, value]) => h('div', {}, h('dt', { text: label }), h('dd', {}, value))));
}

export function bars(items, emptyText) {
  if (!items.length) return h('p', { class: 'muted', text: emptyText });
  const largest = Math.max(...items.map((item) => item.minutes), 1);
  return h('ul', { class: 'bars' }, items.map((item) => {
    const fill = h('div', { class: 'bar-fill' });
    fill.style.width = `${Math.max(0, (item.minutes / largest) * 100).toFixed(1)}%`;
    if (item.colour) fill.style.backgroundColor = item.colour;
    return h('li', {},
      h('span', { class: 'bar-label' }, h('span', { class: 'bar-name', title: item.label, text: item.label }),
        item.tag ? h('span', { class: `tag ${item.tagClass || ''}`.trim(), text: item.tag }) : null),
      h('div', { class: 'bar-track', 'aria-hidden': 'true' }, fill),
      h('span', { class: 'bar-value num', text: item.value ?? minutes(item.minutes) }));
  }));
}

// A checkbox for a table row: the label is read aloud but not shown, the row itself says what it is.
export function tickBox(labelText, props = {}) {
  const box = h('input', { type: 'checkbox', ...props });
  return { box, node: h('label', { class: 'tick' }, box, h('span', { class: 'visually-hidden', text: labelText })) };
}

export function gauge(used, budget) {
  const ratio = budget ? used / budget : 0;
  const fill = h('div', { class: 'bar-fill' });
  fill.style.width = `${Math.min(100, ratio * 100).toFixed(1)}%`;
  const track = h('div', {
    class: `bar-track gauge${ratio > 1 ? ' is-over' : ''}`,
    role: 'meter', 'aria-valuemin': 0, 'aria-valuemax': budget, 'aria-valuenow': Math.min(used, budget),
    'aria-label': t('projects.budgetUse', { used: minutes(used), budget: minutes(budget) }),
  }, fill);
  return h('div', { class: 'gauge-wrap' }, track, h('small', { class: ratio > 1 ? 'over' : 'muted', text: `${minutes(used)} / ${minutes(budget)}` }));
}

// [value, label] pairs for a project <select>; "none" is the API's word for "no project".
export function projectChoices(projects, { noneValue = 'none', placeholder } = {}) {
  const choices = [];
  if (placeholder) choices.push(['', placeholder]);
  choices.push([noneValue, t('common.noProject')]);
  for (const project of projects) choices.push([project.id, project.label || project.name]);
  return choices;
}

// Runs a change against the API with the button disabled; success or failure is reported in `message`.
export async function act(button, message, fn) {
  if (button) button.disabled = true;
  if (message) showMessage(message, '');
  try {
    const result = await fn();
    if (message && typeof result === 'string') showMessage(message, result, 'ok');
    return true;
  } catch (error) {
    if (message) showMessage(message, error.message, 'error');
    return false;
  } finally {
    if (button) button.disabled = false;
  }
}

// Saves a form through `request`; once saved the form is emptied by `reset`, the
// success notice kept in `message`, and `saved` refreshes what shows the record.
export async function saveForm(button, message, request, reset, saved) {
  if (!(await act(button, message, request))) return false;
  const notice = message.textContent;
  reset();
  showMessage(message, notice, 'ok');
  await saved();
  return true;
}

export function loadError(error, retry) {
  return h('div', { class: 'load-error', role: 'alert' },
    h('p', { text: error.message }),
    retry ? h('button', { type: 'button', text: t('common.retry'), on: { click: retry } }) : null);
}

export function pairs(items = [], labelOf = (value) => value) {
  return items.map((item) => (item !== null && typeof item === 'object'
    ? [item.value ?? item.id, item.label ?? item.name ?? String(item.value ?? item.id)]
    : [item, labelOf(item)]));
}

export function yesNo(value) {
  return value ? t('common.yes') : t('common.no');
}
