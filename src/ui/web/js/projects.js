// Projects: clients, projects with their rates and budgets, and the rules that classify time.
import { get, post } from './api.js';
import { h, append, replace, messageArea, showMessage, field, option, debounce, fold } from './dom.js';
import { t, labelFor } from './i18n.js';
import { minutes, amount, number, dateTime, currency } from './format.js';
import { colour } from './palette.js';
import { pageHeader, card, gauge, act, saveForm, loadError, pairs, yesNo } from './widgets.js';

const PALETTE = ['teal', 'carmine', 'yellow', 'lavender', 'green', 'peach'];

export function mount(root, ctx) {
  const state = { clients: [], projects: [], choices: {}, rules: null };
  const message = messageArea('page-message');
  const failure = h('div');
  const clientsBox = h('div');
  const projectsBox = h('div');
  const projectForm = h('div');
  const clientForm = h('div');
  const rulesBox = h('div');

  replace(root, pageHeader(t('nav.projects')), failure, message,
    h('div', { class: 'grid projects-layout' },
      h('div', { class: 'stack' }, card(t('projects.projects'), projectsBox), projectForm),
      h('div', { class: 'stack' }, card(t('projects.clients'), clientsBox), clientForm)),
    h('section', { class: 'card', id: 'rules' }, h('h2', { text: t('rules.title') }), rulesBox));

  async function loadProjects() {
    const answer = await get('/api/projects');
    Object.assign(state, { clients: answer.clients || [], projects: answer.projects || [], choices: answer.choices || {} });
    renderProjects();
  }

  async function loadRules() {
    state.rules = await get('/api/rules');
    rules.render();
  }

  function renderProjects() {
    replace(clientsBox, clientList(state, (client) => clientEditor.edit(client)));
    replace(projectsBox, projectTables(state, (project) => projectEditor.edit(project), archive));
    projectEditor.refreshChoices();
    rules.refreshChoices();
  }

  async function archive(project, button) {
    const ok = await act(button, message, async () => {
      await post('/api/projects/archive', { id: project.id, archived: !project.archived });
      return t(project.archived ? 'projects.unarchived' : 'projects.archivedDone', { name: project.name });
    });
    if (ok) await reloadQuietly(loadProjects);
  }

  async function reloadQuietly(loader) {
    ctx.busy();
    try { await loader(); } catch (error) { showMessage(message, error.message, 'error'); }
    ctx.ready();
  }

  const projectEditor = projectFormView(state, projectForm, () => reloadQuietly(loadProjects));
  const clientEditor = clientFormView(clientForm, () => reloadQuietly(loadProjects));
  const rules = rulesView(state, rulesBox, () => reloadQuietly(loadRules));

  async function start() {
    ctx.busy();
    replace(failure);
    try {
      await Promise.all([loadProjects(), loadRules()]);
    } catch (error) {
      if (ctx.alive()) replace(failure, loadError(error, start));
    }
    ctx.ready();
  }

  start();
  return {};
}

function clientList(state, onEdit) {
  if (!state.clients.length) return h('p', { class: 'muted', text: t('projects.noClients') });
  return h('ul', { class: 'plain-list rows' }, state.clients.map((client) => {
    const count = Array.isArray(client.projects) ? client.projects.length : client.projects ?? 0;
    return h('li', {},
      h('span', { text: client.name }),
      h('span', { class: 'muted small', text: t('projects.projectCount', { count: number(count) }) }),
      h('button', { type: 'button', class: 'link', text: t('common.rename'), 'aria-label': `${t('common.rename')} ${client.name}`, on: { click: () => onEdit(client) } }));
  }));
}

function projectTables(state, onEdit, onArchive) {
  const current = state.projects.filter((project) => !project.archived);
  const archived = state.projects.filter((project) => project.archived);
  return [
    current.length ? projectTable(current, onEdit, onArchive) : h('p', { class: 'muted', text: t('projects.none') }),
    archived.length ? h('details', { class: 'archived' }, h('summary', { text: t('projects.archived', { count: number(archived.length) }) }),
      projectTable(archived, onEdit, onArchive)) : null,
  ];
}

function projectTable(projects, onEdit, onArchive) {
  return h('div', { class: 'table-wrap' }, h('table', { class: 'data' },
    h('thead', {}, h('tr', {}, [t('common.project'), t('projects.client'), t('projects.rate'), t('projects.budget'), t('projects.billable'), ''].map((text, i) =>
      h('th', { class: i === 2 ? 'num' : '', text })))),
    h('tbody', {}, projects.map((project) => {
      const dot = h('span', { class: 'swatch' });
      dot.style.backgroundColor = colour(project.color);
      const archiveButton = h('button', { type: 'button', class: 'link', text: project.archived ? t('projects.unarchive') : t('projects.archive') });
      archiveButton.addEventListener('click', () => onArchive(project, archiveButton));
      return h('tr', { data: { project: String(project.id) } },
        h('td', {}, dot, project.name),
        h('td', { text: project.client || '—' }),
        h('td', { class: 'num', text: rateText(project) }),
        h('td', {}, project.budget_minutes ? gauge(project.used_minutes || 0, project.budget_minutes) : h('span', { class: 'muted', text: '—' })),
        h('td', { text: yesNo(project.billable) }),
        h('td', { class: 'actions-cell' },
          h('button', { type: 'button', class: 'link', text: t('common.edit'), 'aria-label': `${t('common.edit')} ${project.name}`, on: { click: () => onEdit(project) } }),
          archiveButton));
    }))));
}

function rateText(project) {
  if (!project.rate_cents) return '—';
  return `${amount(project.rate_cents / 100, project.currency)} / ${labelFor('rateKind', project.rate_kind)}`;
}

function projectFormView(state, container, saved) {
  const message = messageArea();
  const title = h('h2');
  const name = h('input', { type: 'text', name: 'name', required: true, autocomplete: 'off' });
  const client = h('select', { name: 'client' });
  const rate = h('input', { type: 'number', name: 'rate', min: 0, step: '0.01', inputmode: 'decimal' });
  const rateKind = h('select', { name: 'rate_kind' });
  const rounding = h('select', { name: 'rounding' });
  const dayHours = h('input', { type: 'number', name: 'day_hours', min: 0.5, max: 24, step: '0.25' });
  const budget = h('input', { type: 'number', name: 'budget', min: 0, step: '0.5', inputmode: 'decimal' });
  const billable = h('input', { type: 'checkbox', name: 'billable' });
  const colourSelect = h('select', { name: 'color' });
  const colourDot = h('span', { class: 'swatch large', 'aria-hidden': 'true' });
  const save = h('button', { type: 'submit', class: 'primary', data: { action: 'save-project' }, text: t('common.save') });
  const cancel = h('button', { type: 'button', text: t('common.cancel'), on: { click: () => edit(null) } });
  let editing = null;

  colourSelect.addEventListener('change', () => { colourDot.style.backgroundColor = colour(colourSelect.value); });
  const form = h('form', { class: 'form-grid', on: { submit: send } },
    field(t('projects.name'), name), field(t('projects.client'), client),
    field(t('projects.rateIn', { currency: currency() }), rate), field(t('projects.rateKind'), rateKind),
    field(t('projects.rounding'), rounding), field(t('projects.dayHours'), dayHours),
    field(t('projects.budgetHours'), budget, t('projects.budgetHint')),
    append(field(t('projects.colour'), colourSelect), [colourDot]),
    h('div', { class: 'field checkbox' }, h('label', {}, billable, ` ${t('projects.billable')}`)),
    h('div', { class: 'actions' }, save, cancel));
  replace(container, h('section', { class: 'card' }, title, form, message));

  function fillChoices(node, items, labelOf, current) {
    replace(node, pairs(items, labelOf).map(([value, text]) => option(value, text, String(value) === String(current))));
  }

  function refreshChoices() {
    const choices = state.choices;
    replace(client, option('', t('projects.noClient')), state.clients.map((c) => option(c.id, c.name, editing?.client_id === c.id)));
    fillChoices(rateKind, choices.rate_kind || ['hour', 'day'], (v) => labelFor('rateKind', v), editing?.rate_kind ?? 'hour');
    fillChoices(rounding, choices.rounding || ['none'], (v) => labelFor('rounding', v), editing?.rounding ?? 'none');
    const colours = [...new Set([...(choices.color || PALETTE), editing?.color].filter(Boolean))];
    fillChoices(colourSelect, colours, (v) => labelFor('colour', v), editing?.color ?? colours[0]);
    colourDot.style.backgroundColor = colour(colourSelect.value);
  }

  function edit(project) {
    editing = project;
    title.textContent = project ? t('projects.editing', { name: project.name }) : t('projects.new');
    cancel.hidden = !project;
    name.value = project?.name ?? '';
    rate.value = project ? String((project.rate_cents || 0) / 100) : '';
    dayHours.value = String(project?.day_hours ?? 7);
    budget.value = project?.budget_minutes ? String(Math.round((project.budget_minutes / 60) * 100) / 100) : '';
    billable.checked = project ? Boolean(project.billable) : true;
    refreshChoices();
    showMessage(message, '');
    if (project) name.focus();
  }

  async function send(event) {
    event.preventDefault();
    const body = {
      name: name.value.trim(),
      client_id: client.value ? Number(client.value) : null,
      rate_cents: Math.round((Number(rate.value) || 0) * 100),
      rate_kind: rateKind.value,
      rounding: rounding.value,
      day_hours: Number(dayHours.value) || 7,
      budget_minutes: budget.value === '' ? null : Math.round(Number(budget.value) * 60),
      billable: billable.checked,
      color: colourSelect.value,
    };
    if (editing) body.id = editing.id;
    await saveForm(save, message, async () => {
      const answer = await post('/api/projects/save', body);
      return t('projects.saved', { name: answer.name || body.name });
    }, () => edit(null), saved);
  }

  edit(null);
  return { edit, refreshChoices };
}

function clientFormView(container, saved) {
  const message = messageArea();
  const title = h('h2');
  const name = h('input', { type: 'text', name: 'client-name', required: true, autocomplete: 'off' });
  const save = h('button', { type: 'submit', class: 'primary', data: { action: 'save-client' }, text: t('common.save') });
  const cancel = h('button', { type: 'button', text: t('common.cancel'), on: { click: () => edit(null) } });
  let editing = null;
  const form = h('form', { class: 'inline-form wrap', on: { submit: send } }, field(t('projects.clientName'), name), save, cancel);
  replace(container, h('section', { class: 'card' }, title, form, message));

  function edit(client) {
    editing = client;
    title.textContent = client ? t('projects.renaming', { name: client.name }) : t('projects.newClient');
    name.value = client?.name ?? '';
    cancel.hidden = !client;
    if (client) name.focus();
  }

  async function send(event) {
    event.preventDefault();
    const body = { name: name.value.trim() };
    if (editing) body.id = editing.id;
    const ok = await act(save, message, async () => { await post('/api/clients/save', body); return t('projects.clientSaved', { name: body.name }); });
    if (ok) { edit(null); await saved(); }
  }

  edit(null);
  return { edit };
}

function ruleText(rule) {
  if (rule.text) return rule.text;
  const operator = rule.operator && rule.operator !== 'simple' ? labelFor('operator', rule.operator) : t('rules.defaultOperator');
  return `${labelFor('field', rule.field)} ${operator} « ${rule.pattern} »`;
}

function ruleTarget(rule) {
  return rule.target || [rule.category, rule.project].filter(Boolean).join(' · ') || '—';
}

function rulesView(state, container, saved) {
  const message = messageArea();
  const filter = h('input', { type: 'search', name: 'rule-filter', autocomplete: 'off' });
  const listBox = h('div');
  const editor = ruleFormView(state, () => saved());
  filter.addEventListener('input', renderList);

  function renderList() {
    const wanted = fold(filter.value.trim());
    const rules = (state.rules?.rules || []).filter((rule) => fold(`${ruleText(rule)} ${ruleTarget(rule)}`).includes(wanted));
    replace(listBox, rules.length ? h('div', { class: 'table-wrap rules-table' }, h('table', { class: 'data' },
      h('thead', {}, h('tr', {}, h('th', { text: t('rules.rule') }), h('th', { text: t('rules.target') }), h('th', { text: '' }))),
      h('tbody', {}, rules.map((rule) => ruleRow(rule))))) : h('p', { class: 'muted', text: t('rules.none') }));
  }

  function ruleRow(rule) {
    const remove = h('button', { type: 'button', class: 'link danger', text: t('common.delete'), 'aria-label': `${t('common.delete')} : ${ruleText(rule)}` });
    remove.addEventListener('click', async () => {
      if (!window.confirm(t('rules.confirmDelete', { rule: ruleText(rule) }))) return;
      const ok = await act(remove, message, async () => { await post('/api/rules/delete', { id: rule.id }); return t('rules.deleted'); });
      if (ok) await saved();
    });
    return h('tr', { data: { rule: String(rule.id) } },
      h('td', {}, ruleText(rule), rule.regex_problem ? h('p', { class: 'error small', text: rule.regex_problem }) : null),
      h('td', { text: ruleTarget(rule) }),
      h('td', { class: 'actions-cell' },
        h('button', { type: 'button', class: 'link', text: t('common.edit'), 'aria-label': `${t('common.edit')} : ${ruleText(rule)}`, on: { click: () => editor.edit(rule) } }),
        remove));
  }

  replace(container, h('div', { class: 'grid two rules-layout' },
    h('div', {}, field(t('rules.filter'), filter), message, listBox), editor.node));
  return {
    render() { renderList(); editor.refreshChoices(); },
    refreshChoices: () => editor.refreshChoices(),
  };
}

function ruleFormView(state, saved) {
  const message = messageArea();
  const title = h('h3');
  const fieldSelect = h('select', { name: 'rule-field' });
  const operator = h('select', { name: 'rule-operator' });
  const pattern = h('input', { type: 'text', name: 'pattern', required: true, autocomplete: 'off', spellcheck: 'false' });
  const category = h('select', { name: 'rule-category' });
  const project = h('select', { name: 'rule-project' });
  const preview = h('div', { class: 'rule-preview', 'aria-live': 'polite' });
  const save = h('button', { type: 'submit', class: 'primary', data: { action: 'save-rule' }, text: t('common.save') });
  const cancel = h('button', { type: 'button', text: t('common.cancel'), on: { click: () => edit(null) } });
  let editing = null;
  let previewRun = 0;

  const form = h('form', { class: 'form-grid', on: { submit: send } },
    field(t('rules.field'), fieldSelect), field(t('rules.operator'), operator),
    h('div', { class: 'field wide' }, field(t('rules.pattern'), pattern)),
    field(t('rules.category'), category), field(t('common.project'), project),
    h('div', { class: 'actions' }, save, cancel));
  const node = h('div', { class: 'rule-editor' }, title, form, message, preview);

  const schedulePreview = debounce(runPreview, 300);
  pattern.addEventListener('input', schedulePreview);
  fieldSelect.addEventListener('change', schedulePreview);
  operator.addEventListener('change', schedulePreview);

  // Only the answer to the latest keystroke is shown, whatever order the answers come back in.
  async function runPreview() {
    const run = ++previewRun;
    if (!pattern.value.trim()) { replace(preview); return; }
    try {
      const answer = await post('/api/rules/preview', { field: fieldSelect.value, operator: operator.value || null, pattern: pattern.value });
      if (run === previewRun) replace(preview, previewView(answer));
    } catch (error) {
      if (run === previewRun) replace(preview, h('p', { class: 'error', text: error.message }));
    }
  }

  function refreshChoices() {
    const rules = state.rules || {};
    const keep = (node) => node.value;
    const wanted = { field: editing?.field ?? keep(fieldSelect), operator: editing ? editing.operator ?? '' : keep(operator),
      category: editing ? editing.category_id ?? '' : keep(category), project: editing ? editing.project_id ?? '' : keep(project) };
    replace(fieldSelect, pairs(rules.fields || ['app', 'domain', 'title', 'path', 'url'], (v) => labelFor('field', v))
      .map(([value, text]) => option(value, text, String(value) === String(wanted.field))));
    // "simple" is the server's name for the default comparison; an older list may lack it.
    const operators = (rules.operators || []).filter(Boolean);
    if (!operators.includes('simple')) operators.unshift('');
    replace(operator, pairs(operators, (v) => (v ? labelFor('operator', v) : t('rules.defaultOperator')))
      .map(([value, text]) => option(value, text, String(value) === String(wanted.operator || (operators.includes('simple') ? 'simple' : '')))));
    replace(category, option('', t('rules.noCategory')), (rules.categories || []).map((c) => option(c.id, c.name, String(c.id) === String(wanted.category))));
    replace(project, option('', t('common.noProject')), state.projects.filter((p) => !p.archived || p.id === editing?.project_id)
      .map((p) => option(p.id, p.label || p.name, String(p.id) === String(wanted.project))));
  }

  function edit(rule) {
    editing = rule;
    title.textContent = rule ? t('rules.editing') : t('rules.new');
    pattern.value = rule?.pattern ?? '';
    cancel.hidden = !rule;
    if (!rule) for (const node of [operator, category, project]) node.value = '';
    refreshChoices();
    showMessage(message, '');
    runPreview();
    if (rule) pattern.focus();
  }

  async function send(event) {
    event.preventDefault();
    const body = {
      field: fieldSelect.value, operator: operator.value || null, pattern: pattern.value,
      category_id: category.value ? Number(category.value) : null, project_id: project.value ? Number(project.value) : null,
    };
    if (editing) body.id = editing.id;
    await saveForm(save, message, async () => { await post('/api/rules/save', body); return t('rules.saved'); },
      () => edit(null), saved);
  }

  edit(null);
  return { node, edit, refreshChoices };
}

function previewView(answer) {
  const examples = (answer.examples || []).slice(0, 5);
  return h('div', { class: 'impact-box' },
    h('p', {}, h('strong', { text: t('rules.previewCount', { count: number(answer.count ?? 0), time: minutes(answer.minutes) }) })),
    examples.length ? h('ul', { class: 'plain-list examples' }, examples.map((example) => h('li', {},
      h('span', { class: 'muted small', text: `${dateTime(example.start)} · ${example.app || ''}` }), h('br'),
      example.title || example.domain || '', ' ', h('span', { class: 'muted small', text: `(${minutes(example.minutes)})` })))) : null);
}
