// Search: find time by app, title, site or document, then move all of it, or the ticked groups, to one project.
import { get, post } from './api.js';
import { h, append, replace, messageArea, showMessage, select, field } from './dom.js';
import { t } from './i18n.js';
import { minutes, addDays, number } from './format.js';
import { metric, pageHeader, projectChoices, act, tickBox } from './widgets.js';

// The last search survives a trip to another page.
const remembered = { query: '', from: null, to: null };

export function mount(root, ctx) {
  // `chosen` holds the indexes of the ticked match groups of the current result.
  const state = { result: null, projects: [], chosen: new Set() };
  const queryInput = h('input', { type: 'search', name: 'query', required: true, value: remembered.query, autocomplete: 'off' });
  const fromInput = h('input', { type: 'date', name: 'from', value: remembered.from || addDays(ctx.today(), -29) });
  const toInput = h('input', { type: 'date', name: 'to', value: remembered.to || ctx.today() });
  const submit = h('button', { type: 'submit', class: 'primary', data: { action: 'search' }, text: t('search.submit') });
  const message = messageArea();
  const summary = h('div', { class: 'search-summary' });
  const results = h('section', { class: 'card search-results', hidden: true });
  const reassign = reassignForm(state, () => search(), () => showMatches());

  const form = h('form', { class: 'inline-form wrap', role: 'search', on: { submit: (event) => { event.preventDefault(); search(); } } },
    field(t('search.query'), queryInput), field(t('common.from'), fromInput), field(t('common.to'), toInput), submit);
  queryInput.placeholder = t('search.hint');
  replace(root, pageHeader(t('nav.search')), form, message, summary, reassign.node, results);

  function showMatches() {
    replace(results, matchesView(state.result, state.chosen, reassign.update));
  }

  async function search() {
    const query = queryInput.value.trim();
    Object.assign(remembered, { query: queryInput.value, from: fromInput.value, to: toInput.value });
    if (!query) { showMessage(message, t('search.empty'), 'error'); return; }
    ctx.busy();
    const ok = await act(submit, message, async () => {
      const result = await get('/api/search', { query, from: fromInput.value, to: toInput.value });
      if (!ctx.alive()) return;
      state.result = result;
      // A new answer may group time differently: ticks never carry over.
      state.chosen.clear();
      replace(summary, summaryView(result));
      showMatches();
      results.hidden = !(result.matches || []).length;
      reassign.node.hidden = !(result.activity_ids || []).length;
      reassign.update();
    });
    if (!ok) reassign.update();
    ctx.ready();
  }

  (async () => {
    try {
      state.projects = ((await get('/api/projects')).projects || []).filter((project) => !project.archived);
    } catch (error) {
      showMessage(message, error.message, 'error');
    }
    if (!ctx.alive()) return;
    reassign.setProjects(state.projects);
    if (remembered.query.trim()) search();
    else ctx.ready();
  })();
  return {};
}

function summaryView(result) {
  return [
    h('p', { class: 'total' }, t('search.total'), ' ',
      metric('search.total_minutes', result.total_minutes, minutes(result.total_minutes)),
      h('span', { class: 'muted', text: ` · ${t('common.activities', { count: number(result.matched_activities ?? (result.activity_ids || []).length) })}` })),
    (result.matches || []).length ? null : h('p', { class: 'muted', text: t('search.none') }),
    result.truncated ? h('p', { class: 'warning', text: t('search.truncated') }) : null,
  ];
}

function matchesView(result, chosen, changed) {
  const matches = result.matches || [];
  const row = (match, index) => {
    const line = h('tr', {});
    // A group without activities has nothing to move, so it gets no box.
    let tick = null;
    if ((match.activity_ids || []).length) {
      const { box, node } = tickBox(t('search.chooseGroup', { title: match.title || '—', app: match.app || '—' }),
        { name: 'group', value: String(index), checked: chosen.has(index) });
      box.addEventListener('change', () => {
        if (box.checked) chosen.add(index);
        else chosen.delete(index);
        line.classList.toggle('is-chosen', box.checked);
        changed();
      });
      tick = node;
    }
    line.classList.toggle('is-chosen', chosen.has(index));
    return append(line, [h('td', { class: 'check' }, tick),
      h('td', { text: match.title || '—' }), h('td', { text: match.app || '—' }),
      h('td', { text: match.project || t('common.noProject') }),
      h('td', { class: 'num', data: { minutes: String(match.minutes) }, text: minutes(match.minutes) })]);
  };
  return [h('h2', { text: t('search.matches') }),
    h('div', { class: 'table-wrap' }, h('table', { class: 'data' },
      h('thead', {}, h('tr', {}, h('th', { class: 'check' }, h('span', { class: 'visually-hidden', text: t('search.choose') })),
        h('th', { text: t('search.title') }), h('th', { text: t('search.app') }),
        h('th', { text: t('common.project') }), h('th', { class: 'num', text: t('common.duration') }))),
      h('tbody', {}, matches.map(row))))];
}

// Preview first, then apply: the button stays disabled until the impact has been seen.
function reassignForm(state, researched, unticked) {
  const message = messageArea();
  const impact = h('div', { class: 'impact' });
  const project = select({ name: 'project' }, projectChoices([], { placeholder: t('search.pickProject') }), '');
  const preview = h('button', { type: 'button', data: { action: 'preview' }, text: t('search.preview') });
  const apply = h('button', { type: 'button', class: 'primary', data: { action: 'apply' }, text: t('search.apply'), disabled: true });
  const scope = h('p', { class: 'scope', 'aria-live': 'polite' });
  const clear = h('button', { type: 'button', class: 'link', data: { action: 'clear-groups' }, text: t('search.clearGroups') });
  const node = h('section', { class: 'card', hidden: true }, h('h2', { text: t('search.reassign') }),
    h('p', { class: 'muted small', text: t('search.reassignHelp') }),
    h('div', { class: 'scope-row' }, scope, clear),
    h('div', { class: 'inline-form wrap' }, field(t('search.toProject'), project), preview, apply), message, impact);

  // The ticked groups' activities, or every result when nothing is ticked.
  function ids() {
    const result = state.result;
    if (!result) return [];
    if (!state.chosen.size) return result.activity_ids || [];
    const picked = new Set();
    for (const index of state.chosen) for (const id of result.matches?.[index]?.activity_ids || []) picked.add(id);
    return [...picked];
  }
  const target = () => (project.value === 'none' ? 'none' : Number(project.value));
  // What the last preview was about: apply sends exactly that, and a late preview answer for an older
  // choice is dropped.
  let previewed = null;
  let version = 0;
  // Whatever changes what would move, the preview must be seen again before applying.
  function reset() {
    version += 1;
    previewed = null;
    apply.disabled = true;
    replace(impact);
    const count = number(ids().length);
    replace(scope, h('strong', { text: t('search.scope') }), ' ',
      state.chosen.size ? t('search.scopeGroups', { count: number(state.chosen.size) }) : t('search.scopeAll'),
      h('span', { class: 'muted', text: ` (${t('common.activities', { count })})` }));
    clear.hidden = !state.chosen.size;
  }
  project.addEventListener('change', reset);
  clear.addEventListener('click', () => {
    state.chosen.clear();
    unticked();
    reset();
    project.focus();
  });

  function check() {
    if (!ids().length) { showMessage(message, t('search.nothingToMove'), 'error'); return false; }
    if (!project.value) { showMessage(message, t('search.pickProject'), 'error'); return false; }
    return true;
  }

  preview.addEventListener('click', async () => {
    if (!check()) return;
    reset();
    const asked = { activity_ids: ids(), project: target() };
    const mine = version;
    await act(preview, message, async () => {
      const answer = await post('/api/assign', { ...asked, dry_run: true });
      if (mine !== version) return;
      replace(impact, impactView(answer));
      previewed = asked;
      apply.disabled = false;
    });
  });

  apply.addEventListener('click', async () => {
    if (!previewed) return;
    const asked = previewed;
    const done = await act(apply, message, async () => {
      const answer = await post('/api/assign', { ...asked, dry_run: false });
      return t('search.applied', { count: number(answer.applied ?? answer.activities ?? 0), time: minutes(answer.minutes) });
    });
    if (done) { reset(); researched(); } else apply.disabled = !previewed;
  });

  return {
    node,
    update: reset,
    setProjects(projects) {
      replace(project, projectChoices(projects, { placeholder: t('search.pickProject') }).map(([value, text]) => h('option', { value, text })));
    },
  };
}

function impactView(answer) {
  const currently = Object.entries(answer.currently || {});
  return h('div', { class: 'impact-box' },
    h('p', {}, t('search.impact', { count: number(answer.activities ?? 0), time: minutes(answer.minutes), project: answer.to_project || '' })),
    currently.length ? h('ul', { class: 'plain-list' }, currently.map(([label, value]) => h('li', {},
      h('span', { text: label || t('common.noProject') }), ' — ', h('span', { class: 'num', text: minutes(value) })))) : null);
}
