// Dashboard: today's and this week's figures, what is left to bill, the project in progress and focus.
import { get, post } from './api.js';
import { h, replace, keepingFocus, messageArea, select, field } from './dom.js';
import { t } from './i18n.js';
import { minutes, amount, longDay, shortDay, dateTime, clockToMinutes, minutesToClock } from './format.js';
import { colour, NEUTRAL } from './palette.js';
import { metric, pageHeader, card, figures, bars, act, loadError } from './widgets.js';
import { projectSwitcher } from './switcher.js';

const PAUSE_CHOICES = [15, 30, 60, 120];

export function mount(root, ctx) {
  const state = { data: null, breakdown: 'today' };
  const message = messageArea('page-message');

  async function load() {
    try {
      const data = await get('/api/dashboard');
      if (!ctx.alive()) return;
      state.data = data;
      keepingFocus(root, render);
    } catch (error) {
      if (ctx.alive()) replace(root, pageHeader(t('nav.dashboard')), loadError(error, load));
    }
    ctx.ready();
  }

  // Every change ends by reloading the dashboard so that all figures agree.
  async function change(button, path, body, done) {
    ctx.busy();
    const ok = await act(button, message, async () => { await post(path, body); return done; });
    if (ok) await load();
    else ctx.ready();
  }

  function render() {
    const data = state.data;
    replace(root,
      pageHeader(t('nav.dashboard'), h('p', { class: 'subtitle', text: longDay(ctx.today()) })),
      message,
      h('div', { class: 'grid cards' },
        summaryCard(t('dashboard.today'), 'today', data.today),
        summaryCard(t('dashboard.week'), 'week', data.week),
        toBillCard(data.to_bill)),
      h('div', { class: 'grid two' },
        activeCard(data, change),
        h('div', { class: 'stack' }, focusCard(data.focus, data.active, change), trackingCard(data.tracking, change))),
      breakdownCard(data, state, () => keepingFocus(root, render)),
      holidaysCard(data.holidays || []));
  }

  load();
  return {};
}

function summaryCard(title, key, summary) {
  return card(title, figures([
    [t('summary.active'), metric(`${key}.active_minutes`, summary.active_minutes, minutes(summary.active_minutes))],
    [t('summary.billable'), metric(`${key}.billable_minutes`, summary.billable_minutes, minutes(summary.billable_minutes))],
    [t('summary.distraction'), metric(`${key}.distraction_minutes`, summary.distraction_minutes, minutes(summary.distraction_minutes))],
    [t('summary.amount'), metric(`${key}.amount_eur`, summary.amount_eur, amount(summary.amount_eur))],
  ]), summary.unassigned_minutes
    ? h('p', { class: 'muted small', text: t('summary.unassigned', { time: minutes(summary.unassigned_minutes) }) })
    : null);
}

function toBillCard(totals) {
  const code = totals.currency;
  const node = card(t('dashboard.toBill'), figures([
    [t('billing.toBill'), metric('to_bill.to_bill_eur', totals.to_bill_eur, amount(totals.to_bill_eur, code))],
    [t('billing.toBillTime'), metric('to_bill.to_bill_minutes', totals.to_bill_minutes, minutes(totals.to_bill_minutes))],
    [t('billing.billed'), metric('to_bill.billed_eur', totals.billed_eur, amount(totals.billed_eur, code))],
    [t('billing.paid'), metric('to_bill.paid_eur', totals.paid_eur, amount(totals.paid_eur, code))],
  ]));
  node.classList.add('card-accent');
  return node;
}

function activeCard(data, change) {
  const active = data.active || {};
  const status = active.active
    ? [h('p', { class: 'active-project' }, h('strong', { text: active.project || t('common.noProject') })),
      h('p', { class: 'muted small', text: t('active.since', { when: dateTime(active.since) }) }),
      active.note ? h('p', { class: 'note', text: active.note }) : null]
    : [h('p', { class: 'muted', text: t('active.none') })];
  const { input, list } = projectSwitcher({
    projects: data.projects || [],
    canStop: Boolean(active.active),
    // The field stays enabled so that keyboard focus survives the reload.
    onPick: (id) => change(null, '/api/active', { project: id }, id === null ? t('active.stopped') : t('active.switched')),
  });
  return card(t('dashboard.active'), ...status,
    h('div', { class: 'switcher' }, field(t('switcher.label'), input, t('switcher.hint')), list));
}

function focusCard(focus = {}, active = {}, change) {
  const session = focus?.session;
  const button = h('button', { type: 'button', data: { action: session ? 'focus-stop' : 'focus-start' } });
  let lines;
  if (session) {
    button.textContent = t('focus.stop');
    button.addEventListener('click', () => change(button, '/api/focus', { action: 'stop' }, t('focus.stopped')));
    const { start, end } = focusSpan(session);
    lines = [h('p', { class: 'focus-running', text: t('focus.running', { start, end }) }),
      session.project ? h('p', { class: 'muted small', text: session.project }) : null];
  } else {
    button.textContent = t('focus.start');
    button.classList.add('primary');
    const body = { action: 'start', minutes: 25 };
    if (active?.project_id) body.project = active.project_id;
    button.addEventListener('click', () => change(button, '/api/focus', body, t('focus.started')));
    lines = [h('p', { class: 'muted', text: t('focus.idle') })];
  }
  const pause = focus?.break ? h('p', { class: 'muted small', text: t('focus.break', focusSpan(focus.break)) }) : null;
  return card(t('dashboard.focus'), ...lines, pause, h('div', { class: 'actions' }, button));
}

// Answers give "start"/"started" and "planned_end" or "planned_minutes"; either way, two clock times.
function focusSpan(period) {
  const start = String(period.started || period.start || '').slice(11, 16);
  let end = String(period.planned_end || '').slice(11, 16);
  if (!end && start && period.planned_minutes) end = minutesToClock(clockToMinutes(start) + period.planned_minutes);
  return { start, end: end || '…' };
}

function trackingCard(tracking = {}, change) {
  const lines = [];
  if (tracking.tracker_running === false) lines.push(h('p', { class: 'warning', text: t('tracking.notRunning') }));
  if (tracking.paused) {
    lines.push(h('p', { text: tracking.paused_until ? t('tracking.pausedUntil', { until: dateTime(tracking.paused_until) }) : t('tracking.paused') }));
    const resume = h('button', { type: 'button', class: 'primary', data: { action: 'resume' }, text: t('tracking.resume') });
    resume.addEventListener('click', () => change(resume, '/api/pause', { resume: true }, t('tracking.resumed')));
    return card(t('dashboard.tracking'), ...lines, h('div', { class: 'actions' }, resume));
  }
  lines.push(h('p', { class: 'muted', text: t('tracking.running') }));
  const length = select({ name: 'pause-minutes' },
    [...PAUSE_CHOICES.map((n) => [n, minutes(n)]), ['', t('tracking.untilResumed')]], 30);
  const pause = h('button', { type: 'button', data: { action: 'pause' }, text: t('tracking.pause') });
  pause.addEventListener('click', () => change(pause, '/api/pause', { minutes: length.value ? Number(length.value) : null }, t('tracking.pausedNow')));
  return card(t('dashboard.tracking'), ...lines, h('div', { class: 'inline-form' }, field(t('tracking.length'), length), pause));
}

function breakdownCard(data, state, rerender) {
  const summary = data[state.breakdown];
  const colours = new Map((data.projects || []).map((project) => [project.id, colour(project.color)]));
  const toggle = h('div', { class: 'segmented', role: 'group', 'aria-label': t('dashboard.breakdownPeriod') },
    ['today', 'week'].map((key) => h('button', {
      type: 'button', name: `breakdown-${key}`, 'aria-pressed': String(state.breakdown === key), text: t(`dashboard.${key}`),
      on: { click: () => { state.breakdown = key; rerender(); } },
    })));
  const projectItems = (summary.by_project || []).map((row) => ({
    label: row.project || t('common.noProject'), minutes: row.minutes,
    colour: row.project_id == null ? NEUTRAL : colours.get(row.project_id),
    value: row.amount_eur ? `${minutes(row.minutes)} · ${amount(row.amount_eur)}` : minutes(row.minutes),
  }));
  // Summaries name categories; the category list gives their colour and whether they are distractions.
  const categories = new Map((data.categories || []).map((category) => [category.name, category]));
  const categoryItems = (summary.by_category || []).map((row) => {
    const category = row.category == null ? null : categories.get(row.category);
    return {
      label: row.category || t('common.uncategorised'), minutes: row.minutes,
      colour: category ? colour(category.color) : NEUTRAL,
      // Said in words as well, for whoever cannot tell the colours apart.
      tag: category?.distraction ? t('dashboard.distraction') : null, tagClass: 'is-distraction',
    };
  });
  return h('section', { class: 'card breakdown' },
    h('div', { class: 'card-title-row' }, h('h2', { text: t('dashboard.breakdown') }), toggle),
    h('div', { class: 'grid two' },
      h('div', {}, h('h3', { text: t('dashboard.byProject') }), bars(projectItems, t('common.nothing'))),
      h('div', {}, h('h3', { text: t('dashboard.byCategory') }), bars(categoryItems, t('common.nothing')))));
}

function holidaysCard(holidays) {
  const content = holidays.length
    ? h('ul', { class: 'plain-list' }, holidays.map((day) => h('li', {},
      h('span', { class: 'num', text: shortDay(day.date) }), ' — ', day.name,
      day.weekday === false ? h('span', { class: 'muted small', text: ` (${t('holidays.weekend')})` }) : null)))
    : h('p', { class: 'muted', text: t('holidays.none') });
  return card(t('dashboard.holidays'), content);
}
