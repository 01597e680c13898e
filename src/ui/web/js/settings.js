// Settings: one control per setting, each saved as soon as it changes; and the agent server's token.
import { get, post } from './api.js';
import { h, replace, messageArea, select, field, uid } from './dom.js';
import { t, locale } from './i18n.js';
import { pageHeader, card, act, loadError, pairs } from './widgets.js';

// Monday → Sunday with the tracker's day numbers (1 = Sunday); 2024-01-01 was a Monday.
const WEEK = [2, 3, 4, 5, 6, 7, 1];
const isAgentKey = (key) => /^(mcp|agent)/i.test(key);

export function mount(root, ctx) {
  const agentStatus = h('div', { class: 'agent-status' });

  async function load() {
    try {
      const answer = await get('/api/settings');
      if (!ctx.alive()) return;
      const settings = answer.settings || [];
      replace(root, pageHeader(t('nav.settings')),
        card(t('settings.general'), h('div', { class: 'settings-list' }, settings.filter((s) => !isAgentKey(s.key)).map((s) => settingRow(s, afterSave)))),
        card(t('settings.agent'), agentStatus,
          h('div', { class: 'settings-list' }, settings.filter((s) => isAgentKey(s.key)).map((s) => settingRow(s, afterSave))),
          tokenBlock()));
      renderAgent(answer.agent);
    } catch (error) {
      if (ctx.alive()) replace(root, pageHeader(t('nav.settings')), loadError(error, load));
    }
    ctx.ready();
  }

  function renderAgent(agent) {
    if (!agent) { replace(agentStatus); return; }
    const state = agent.running ? t('agent.running', { port: agent.port }) : agent.enabled ? t('agent.notRunning') : t('agent.off');
    replace(agentStatus, h('p', { class: agent.running ? 'ok' : 'muted', text: state }),
      agent.problem ? h('p', { class: 'warning', text: agent.problem }) : null);
  }

  async function afterSave(item) {
    // Language and currency shape every text and amount: simplest to start the window again.
    if (item.key === 'language' || item.key === 'currency') { window.location.reload(); return; }
    if (!isAgentKey(item.key)) return;
    try { renderAgent((await get('/api/settings')).agent); } catch { /* the status line stays as it was */ }
  }

  load();
  return {};
}

function settingRow(setting, afterSave) {
  const status = h('span', { class: 'setting-status small', role: 'status', 'aria-live': 'polite' });
  const editor = editorFor(setting);
  const save = async () => {
    let value;
    try { value = editor.read(); } catch (error) { showStatus(status, error.message, 'error'); return; }
    showStatus(status, t('settings.saving'), 'pending');
    try {
      const item = await post('/api/settings', { key: setting.key, value });
      if (item && 'value' in item) editor.write(item.value);
      showStatus(status, t('settings.saved'), 'ok');
      await afterSave(item || setting);
    } catch (error) {
      showStatus(status, error.message, 'error');
    }
  };
  editor.node.addEventListener('change', save);
  return h('div', { class: 'setting', data: { key: setting.key } }, editor.node, status);
}

function showStatus(node, text, kind) {
  node.textContent = text;
  node.className = `setting-status small is-${kind}`;
}

function editorFor(setting) {
  const make = EDITORS[setting.kind] || EDITORS.text;
  const editor = make(setting);
  editor.write(setting.value);
  return editor;
}

function hint(setting) {
  return setting.help || undefined;
}

const EDITORS = {
  bool(setting) {
    const input = h('input', { type: 'checkbox', name: setting.key, id: uid('setting'), data: { setting: setting.key } });
    const node = h('div', { class: 'field checkbox' }, h('label', { for: input.id }, input, ` ${setting.label}`),
      setting.help ? h('small', { class: 'hint', text: setting.help }) : null);
    return { node, read: () => input.checked, write: (value) => { input.checked = Boolean(value); } };
  },
  integer: (setting) => numberEditor(setting, 1),
  number: (setting) => numberEditor(setting, 'any'),
  text(setting) {
    const input = h('input', { type: 'text', name: setting.key, data: { setting: setting.key }, autocomplete: 'off' });
    return { node: field(setting.label, input, hint(setting)), read: () => input.value.trim(), write: (value) => { input.value = value ?? ''; } };
  },
  list(setting) {
    const area = h('textarea', { name: setting.key, rows: 3, data: { setting: setting.key }, spellcheck: 'false' });
    return {
      node: field(setting.label, area, setting.help || t('settings.onePerLine')),
      read: () => area.value.split('\n').map((line) => line.trim()).filter(Boolean),
      write: (value) => { area.value = Array.isArray(value) ? value.join('\n') : value ?? ''; },
    };
  },
  choice(setting) {
    const control = select({ name: setting.key, data: { setting: setting.key } }, pairs(setting.choices), setting.value);
    return {
      node: field(setting.label, control, hint(setting)),
      read: () => choiceValue(setting, control.value),
      write: (value) => { control.value = value ?? ''; },
    };
  },
  days(setting) {
    const names = new Intl.DateTimeFormat(locale(), { weekday: 'long', timeZone: 'UTC' });
    const boxes = WEEK.map((day, i) => h('input', { type: 'checkbox', name: `${setting.key}-${day}`, value: String(day),
      'aria-label': names.format(new Date(Date.UTC(2024, 0, 1 + i))) }));
    const node = h('fieldset', { class: 'field days', data: { setting: setting.key } },
      h('legend', { text: setting.label }),
      h('div', { class: 'day-boxes' }, boxes.map((box, i) => h('label', {}, box, ` ${names.format(new Date(Date.UTC(2024, 0, 1 + i)))}`))),
      setting.help ? h('small', { class: 'hint', text: setting.help }) : null);
    return {
      node,
      read: () => boxes.filter((box) => box.checked).map((box) => Number(box.value)),
      write: (value) => { const on = new Set((value || []).map(Number)); for (const box of boxes) box.checked = on.has(Number(box.value)); },
    };
  },
};

function numberEditor(setting, step) {
  const input = h('input', { type: 'number', name: setting.key, step, min: setting.min, max: setting.max,
    data: { setting: setting.key }, inputmode: step === 1 ? 'numeric' : 'decimal' });
  return {
    node: field(setting.label, input, hint(setting)),
    read: () => {
      const value = Number(input.value);
      if (input.value.trim() === '' || !Number.isFinite(value) || (step === 1 && !Number.isInteger(value))) {
        throw new Error(step === 1 ? t('settings.needsInteger') : t('settings.needsNumber'));
      }
      return value;
    },
    write: (value) => { input.value = value ?? ''; },
  };
}

function choiceValue(setting, text) {
  const match = (setting.choices || []).find((choice) => String(choice?.value ?? choice) === text);
  return match === undefined ? text : match?.value ?? match;
}

function tokenBlock() {
  const message = messageArea();
  const output = h('div', { class: 'token-output' });
  const show = h('button', { type: 'button', data: { action: 'show-token' }, text: t('agent.showToken') });
  const regenerate = h('button', { type: 'button', class: 'danger', data: { action: 'regenerate-token' }, text: t('agent.regenerate') });
  show.addEventListener('click', () => act(show, message, async () => { replace(output, tokenView(await get('/api/agent/token'))); }));
  regenerate.addEventListener('click', () => {
    if (!window.confirm(t('agent.confirmRegenerate'))) return;
    act(regenerate, message, async () => {
      replace(output, tokenView(await post('/api/agent/token', { action: 'regenerate' })));
      return t('agent.regenerated');
    });
  });
  return h('div', { class: 'token-block' }, h('div', { class: 'actions' }, show, regenerate), message, output);
}

function tokenView(answer) {
  return [
    h('h3', { class: 'plain', text: t('agent.token') }), h('pre', { class: 'token', text: answer.token || '' }),
    // A desktop client's configuration file is JSON; the command line's entry is a line to paste.
    Object.entries(answer.configs || {}).map(([name, config]) => [
      h('h3', { class: 'plain', text: t(`agent.config.${name}`) }),
      h('pre', { text: typeof config === 'string' ? config : JSON.stringify(config, null, 2) }),
    ]),
  ];
}

