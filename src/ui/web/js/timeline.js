// Timeline: one day as blocks on a vertical time axis, with a detail panel to correct them.
import { get, post } from './api.js';
import { h, replace, keepingFocus, messageArea, showMessage, select, field } from './dom.js';
import { t } from './i18n.js';
import { minutes, addDays, isDay, longDay, clockToMinutes, minutesToClock } from './format.js';
import { colour, NEUTRAL } from './palette.js';
import { metric, pageHeader, projectChoices, act, loadError } from './widgets.js';

const SCALES = { compact: 1, normal: 2, large: 4 };
const MIN_BLOCK_PX = 2;
const POLL_MS = 10000;

const view = { scale: 'normal' };

export function mount(root, ctx) {
  const state = { day: null, data: null, raw: '', projects: [], selected: null, timer: 0 };
  const dayInput = h('input', { type: 'date', name: 'day', on: { change: () => { if (isDay(dayInput.value)) goTo(dayInput.value); } } });
  const subtitle = h('p', { class: 'subtitle' });
  const total = h('p', { class: 'total' });
  const scale = select({ name: 'scale' }, Object.keys(SCALES).map((key) => [key, t(`timeline.scale.${key}`)]), view.scale);
  scale.addEventListener('change', () => { view.scale = scale.value; if (state.data) keepingFocus(axis, renderDay); });
  const axis = h('div', { class: 'axis-wrap', on: { keydown: moveBetweenBlocks } });
  const legend = h('ul', { class: 'legend', 'aria-label': t('timeline.legend') });
  const detail = h('aside', { id: 'detail', class: 'card detail', 'aria-label': t('timeline.detail'), tabindex: -1 });
  const manual = manualForm(() => state, refresh);

  replace(root,
    pageHeader(t('nav.timeline'), subtitle),
    h('div', { class: 'toolbar' },
      h('button', { type: 'button', data: { action: 'previous-day' }, 'aria-label': t('timeline.previous'), text: '‹', on: { click: () => goTo(addDays(state.day, -1)) } }),
      field(t('timeline.day'), dayInput),
      h('button', { type: 'button', data: { action: 'next-day' }, 'aria-label': t('timeline.next'), text: '›', on: { click: () => goTo(addDays(state.day, 1)) } }),
      h('button', { type: 'button', data: { action: 'today' }, text: t('timeline.today'), on: { click: () => goTo(ctx.today()) } }),
      field(t('timeline.scale'), scale),
      total),
    h('div', { class: 'timeline-layout' }, h('div', { class: 'timeline-main' }, axis, legend), detail),
    manual.node);

  function goTo(day) {
    ctx.navigate(`#timeline/${day}`);
  }

  async function fetchDay() {
    const data = await get('/api/timeline', { date: state.day });
    return { data, raw: JSON.stringify(data) };
  }

  async function showDay(arg) {
    state.day = isDay(arg) ? arg : ctx.today();
    state.selected = null;
    state.raw = '';
    dayInput.value = state.day;
    subtitle.textContent = longDay(state.day);
    renderEmptyDetail();
    replace(axis, h('p', { class: 'muted loading', text: t('common.loading') }));
    await refresh();
    schedulePolling();
  }

  async function refresh({ quiet = false, keepDetail = false, notice = '' } = {}) {
    const day = state.day;
    if (!quiet) ctx.busy();
    try {
      const { data, raw } = await fetchDay();
      if (!ctx.alive() || day !== state.day) return;
      if (raw !== state.raw) {
        state.data = data;
        state.raw = raw;
        keepingFocus(axis, renderDay);
      }
      if (!quiet && !keepDetail) reselect(notice);
    } catch (error) {
      if (!quiet && ctx.alive()) replace(axis, loadError(error, () => refresh()));
    }
    if (!quiet) ctx.ready();
  }

  function schedulePolling() {
    clearInterval(state.timer);
    if (state.day !== ctx.today()) return;
    state.timer = setInterval(() => { if (!document.hidden) refresh({ quiet: true }); }, POLL_MS);
  }

  function renderDay() {
    const { blocks = [], categories = [] } = state.data;
    const colours = new Map(categories.map((category) => [category.name, colour(category.color)]));
    const active = blocks.filter((block) => block.kind !== 'idle').reduce((sum, block) => sum + (block.minutes || 0), 0);
    replace(total, t('timeline.total'), ' ', metric('timeline.minutes', active, minutes(active)));
    replace(axis, blocks.length ? drawAxis(blocks, colours, choose, SCALES[view.scale]) : h('p', { class: 'muted empty', text: t('timeline.empty') }));
    replace(legend, categories.map((category) => h('li', {}, swatch(colours.get(category.name)), category.name)),
      h('li', {}, h('span', { class: 'swatch is-idle' }), t('timeline.idle')));
    markSelected();
  }

  function markSelected() {
    const wanted = state.selected ? String(state.selected.activity_ids[0]) : null;
    for (const button of axis.querySelectorAll('button.block')) {
      const on = wanted !== null && button.dataset.ids.split(',').includes(wanted);
      button.classList.toggle('is-selected', on);
      button.setAttribute('aria-pressed', String(on));
    }
  }

  function choose(block, { focus = false } = {}) {
    state.selected = block;
    markSelected();
    renderDetail(block);
    // Keyboard users land in the panel instead of tabbing past every block; Escape goes back.
    if (focus) detail.focus();
  }

  detail.addEventListener('keydown', (event) => {
    if (event.key !== 'Escape' || !state.selected) return;
    axis.querySelector('button.block.is-selected')?.focus();
  });

  function reselect(notice) {
    if (!state.selected) return;
    const first = state.selected.activity_ids[0];
    const block = state.data.blocks.find((candidate) => candidate.activity_ids.includes(first));
    if (block) choose(block);
    else renderEmptyDetail();
    if (notice) showMessage(detail.querySelector('.message') || detail.appendChild(messageArea()), notice, 'ok');
  }

  function renderEmptyDetail() {
    state.selected = null;
    replace(detail, h('h2', { text: t('timeline.detail') }), h('p', { class: 'muted', text: t('timeline.pick') }));
  }

  function renderDetail(block) {
    const message = messageArea();
    const activities = h('div', { class: 'activities' }, h('p', { class: 'muted', text: t('common.loading') }));
    replace(detail,
      h('h2', { text: `${block.start} – ${block.end} · ${minutes(block.minutes)}` }),
      h('p', { class: 'detail-title', text: block.title }),
      h('p', { class: 'muted small', text: [block.category || kindLabel(block.kind), block.project || t('common.noProject')].join(' · ') }),
      block.note ? h('p', { class: 'note', text: block.note }) : null,
      message,
      correctionForms(block, state, message, (notice) => refresh({ notice })),
      h('h3', { text: t('timeline.activities') }),
      activities);
    loadActivities(block, activities);
  }

  async function loadActivities(block, container) {
    try {
      const { activities } = await get('/api/activities', { ids: block.activity_ids.join(',') });
      if (state.selected === block) replace(container, activityList(activities));
    } catch (error) {
      if (state.selected === block) replace(container, h('p', { class: 'error', text: error.message }));
    }
  }

  function moveBetweenBlocks(event) {
    if (!['ArrowDown', 'ArrowUp'].includes(event.key) || !event.target.matches('button.block')) return;
    const blocks = [...axis.querySelectorAll('button.block')];
    const next = blocks[blocks.indexOf(event.target) + (event.key === 'ArrowDown' ? 1 : -1)];
    if (next) { event.preventDefault(); next.focus(); }
  }

  async function loadProjects() {
    try {
      const answer = await get('/api/projects');
      state.projects = (answer.projects || []).filter((project) => !project.archived);
      manual.setProjects(state.projects);
      if (state.selected) renderDetail(state.selected);
    } catch {
      state.projects = [];
    }
  }

  loadProjects();
  showDay(ctx.arg);
  return {
    setArg: (arg) => showDay(arg),
    dispose: () => clearInterval(state.timer),
  };
}

function swatch(value) {
  const node = h('span', { class: 'swatch' });
  node.style.backgroundColor = value || NEUTRAL;
  return node;
}

function kindLabel(kind) {
  return t(`timeline.kind.${kind}`);
}

function span(block) {
  const start = clockToMinutes(block.start);
  let end = clockToMinutes(block.end);
  if (end < start) end = 24 * 60;
  return { start, end };
}

// One column: a block shorter than the minimum height pushes the next one down a little
// instead of covering it, and the axis catches up at the next gap.
function layOut(blocks, origin, scale) {
  let bottom = -Infinity;
  return blocks.map((block) => {
    const { start, end } = span(block);
    const top = Math.max((start - origin) * scale, bottom);
    const height = Math.max((end - start) * scale, MIN_BLOCK_PX);
    bottom = top + height;
    return { block, top, height };
  });
}

function drawAxis(blocks, colours, onPick, scale) {
  const spans = blocks.map(span);
  const firstHour = Math.floor(Math.min(...spans.map((s) => s.start)) / 60);
  const lastHour = Math.min(24, Math.ceil(Math.max(...spans.map((s) => s.end)) / 60));
  const origin = firstHour * 60;
  const lanes = h('div', { class: 'axis-blocks' });
  const axis = h('div', { class: 'axis' }, lanes);
  for (let hour = firstHour; hour <= lastHour; hour += 1) {
    const line = h('div', { class: 'hour-line', 'aria-hidden': 'true' }, h('span', { text: minutesToClock(hour * 60) }));
    line.style.top = `${(hour - firstHour) * 60 * scale}px`;
    axis.prepend(line);
  }
  const sorted = [...blocks].sort((a, b) => span(a).start - span(b).start);
  const placed = layOut(sorted, origin, scale);
  for (const item of placed) lanes.append(blockButton(item, colours, onPick));
  const overflow = placed.length ? placed[placed.length - 1].top + placed[placed.length - 1].height : 0;
  axis.style.height = `${Math.max((lastHour - firstHour) * 60 * scale, overflow)}px`;
  return axis;
}

function blockButton({ block, top, height }, colours, onPick) {
  const label = block.project || (block.kind === 'idle' ? '' : t('common.noProject'));
  const summary = [`${block.start}–${block.end}`, block.category || kindLabel(block.kind), block.title, label, minutes(block.minutes)]
    .filter(Boolean).join(' · ');
  const button = h('button', {
    type: 'button', class: `block is-${block.kind}${block.manual ? ' is-manual' : ''}`,
    data: { ids: block.activity_ids.join(','), kind: block.kind }, title: summary, 'aria-label': summary,
    on: { click: () => onPick(block, { focus: true }) },
  });
  Object.assign(button.style, { top: `${top}px`, height: `${height}px` });
  button.style.setProperty('--cat', block.kind === 'idle' ? NEUTRAL : colours.get(block.category) || NEUTRAL);
  if (height >= 15) {
    button.append(h('span', { class: 'block-time', text: `${block.start}–${block.end}` }), ' ', h('span', { class: 'block-project', text: label }));
  }
  if (height >= 32) button.append(h('span', { class: 'block-title', text: block.title }));
  return button;
}

function activityList(activities) {
  if (!activities.length) return h('p', { class: 'muted', text: t('common.nothing') });
  return h('ul', { class: 'activity-list' }, activities.map((activity) => h('li', {},
    h('p', {}, h('strong', { text: activity.app || kindLabel(activity.kind) }), ' ',
      h('span', { class: 'muted small', text: `${clock(activity.start)}–${clock(activity.end)}` })),
    activity.title ? h('p', { text: activity.title }) : null,
    activity.domain || activity.url ? h('p', { class: 'muted small', text: activity.url || activity.domain }) : null,
    activity.path ? h('p', { class: 'muted small path', text: activity.path }) : null,
    h('p', { class: 'small' }, h('span', { class: 'muted', text: `${t('timeline.decidedBy')} ` }), decision(activity)))));
}

function clock(dateTimeText) {
  return String(dateTimeText || '').slice(11, 16);
}

function decision(activity) {
  if (activity.assignment) return t('timeline.byHand');
  if (activity.rule?.text) return activity.rule.text;
  return t('timeline.noRule');
}

function correctionForms(block, state, message, refresh) {
  const ids = block.activity_ids;
  const run = (button, path, body, notice) => act(button, message, async () => {
    await post(path, body);
    await refresh(notice);
  });

  const current = state.projects.find((project) => project.label === block.project);
  const project = select({ name: 'project' }, projectChoices(state.projects), current ? current.id : 'none');
  const assign = h('button', { type: 'button', class: 'primary', data: { action: 'assign' }, text: t('timeline.assign') });
  assign.addEventListener('click', () => run(assign, '/api/assign',
    { activity_ids: ids, project: project.value === 'none' ? 'none' : Number(project.value), dry_run: false }, t('timeline.assigned')));

  // A correction is undone by giving the time back to the rules; its note stays.
  const automatic = h('button', { type: 'button', data: { action: 'unassign' }, text: t('timeline.unassign') });
  automatic.addEventListener('click', () => run(automatic, '/api/unassign', { activity_ids: ids }, t('timeline.unassigned')));

  const note = h('textarea', { name: 'note', rows: 2, value: block.note || '' });
  const saveNote = h('button', { type: 'button', data: { action: 'note' }, text: t('timeline.saveNote') });
  saveNote.addEventListener('click', () => run(saveNote, '/api/note', { activity_ids: ids, note: note.value }, t('timeline.noteSaved')));

  const { start, end } = span(block);
  const at = h('input', { type: 'time', name: 'at', step: 60, min: block.start, max: block.end, value: minutesToClock(Math.round((start + end) / 2)) });
  const split = h('button', { type: 'button', data: { action: 'split' }, text: t('timeline.split') });
  split.addEventListener('click', () => {
    if (!at.value) { showMessage(message, t('timeline.splitNeedsTime'), 'error'); return; }
    run(split, '/api/split', { activity_ids: ids, at: `${state.day}T${at.value}` }, t('timeline.splitDone'));
  });

  const forms = [
    group(t('timeline.projectTitle'), field(t('common.project'), project), assign, block.manual ? automatic : null),
    group(t('timeline.noteTitle'), field(t('timeline.note'), note), saveNote),
  ];
  if (block.kind === 'idle') forms.push(absenceForm(block, state, run));
  forms.push(group(t('timeline.splitTitle'), field(t('timeline.splitAt'), at), split));
  return h('div', { class: 'corrections' }, forms);
}

function absenceForm(block, state, run) {
  const label = h('input', { type: 'text', name: 'label', placeholder: t('timeline.absencePlaceholder') });
  const project = select({ name: 'absence-project' }, projectChoices(state.projects, { noneValue: '' }), '');
  const qualify = h('button', { type: 'button', data: { action: 'absence' }, text: t('timeline.qualify') });
  qualify.addEventListener('click', () => run(qualify, '/api/absence',
    { activity_ids: block.activity_ids, label: label.value.trim(), project: project.value ? Number(project.value) : null }, t('timeline.qualified')));
  return group(t('timeline.absenceTitle'), field(t('timeline.absenceLabel'), label), field(t('common.project'), project), qualify);
}

function group(title, ...children) {
  return h('fieldset', { class: 'correction' }, h('legend', { text: title }), ...children);
}

function manualForm(getState, refresh) {
  const message = messageArea();
  const from = h('input', { type: 'time', name: 'manual-from', required: true, step: 60 });
  const to = h('input', { type: 'time', name: 'manual-to', required: true, step: 60 });
  const label = h('input', { type: 'text', name: 'manual-label', required: true });
  const project = select({ name: 'manual-project' }, projectChoices([], { noneValue: '' }), '');
  const submit = h('button', { type: 'submit', class: 'primary', data: { action: 'manual' }, text: t('timeline.addManual') });
  const form = h('form', { class: 'inline-form wrap', on: { submit: send } },
    field(t('timeline.from'), from), field(t('timeline.to'), to), field(t('timeline.label'), label), field(t('common.project'), project), submit);

  async function send(event) {
    event.preventDefault();
    const { day } = getState();
    if (to.value <= from.value) { showMessage(message, t('timeline.endAfterStart'), 'error'); return; }
    const body = { from: `${day}T${from.value}`, to: `${day}T${to.value}`, label: label.value.trim(), project: project.value ? Number(project.value) : null };
    const ok = await act(submit, message, async () => { await post('/api/manual', body); return t('timeline.manualAdded'); });
    if (ok) {
      form.reset();
      await refresh({ keepDetail: true });
    }
  }

  return {
    node: h('section', { class: 'card' }, h('h2', { text: t('timeline.manualTitle') }), form, message),
    setProjects(projects) {
      replace(project, projectChoices(projects, { noneValue: '' }).map(([value, text]) => h('option', { value, text })));
    },
  };
}

