// Reports: a period's statement on screen, its files to download, and marking its time, or chosen rows, billed or paid.
import { download, get, post } from './api.js';
import { h, replace, messageArea, showMessage, select, field, option } from './dom.js';
import { t, labelFor } from './i18n.js';
import { number, shortDay } from './format.js';
import { metric, pageHeader, card, act, loadError, pairs, tickBox } from './widgets.js';

const PERIODS = ['today', 'yesterday', 'week', 'last_week', 'month', 'last_month', 'custom'];
const STATUSES = ['all', 'toBill', 'billed', 'paid'];
const STYLES = ['decimal', 'clock'];
const FORMATS = ['csv', 'xlsx', 'html', 'json'];

// The chosen filters are kept while the window stays open.
const filters = { period: 'month', from: '', to: '', client: '', template: '', status: 'all', style: 'decimal' };

export function mount(root, ctx) {
  const state = { report: null };
  const message = messageArea('page-message');
  const controls = {
    period: select({ name: 'period' }, PERIODS.map((p) => [p, labelFor('period', p)]), filters.period),
    from: h('input', { type: 'date', name: 'from', value: filters.from || ctx.today() }),
    to: h('input', { type: 'date', name: 'to', value: filters.to || ctx.today() }),
    client: select({ name: 'client' }, [['', t('reports.allClients')]], filters.client),
    template: select({ name: 'template' }, [[filters.template, filters.template ? labelFor('template', filters.template) : t('reports.defaultTemplate')]], filters.template),
    status: select({ name: 'status' }, STATUSES.map((s) => [s, labelFor('status', s)]), filters.status),
    style: select({ name: 'style' }, STYLES.map((s) => [s, labelFor('style', s)]), filters.style),
  };
  const customRange = h('div', { class: 'inline-form' }, field(t('common.from'), controls.from), field(t('common.to'), controls.to));
  const output = h('div', { class: 'report-output' });
  const form = h('form', { class: 'inline-form wrap filters', on: { submit: (event) => { event.preventDefault(); load(); } } },
    field(t('reports.period'), controls.period), customRange,
    field(t('projects.client'), controls.client), field(t('reports.template'), controls.template),
    field(t('reports.status'), controls.status), field(t('reports.style'), controls.style));
  for (const control of Object.values(controls)) control.addEventListener('change', () => load());
  replace(root, pageHeader(t('nav.reports')), form, message, output);

  function params() {
    for (const key of Object.keys(filters)) filters[key] = controls[key].value;
    customRange.hidden = filters.period !== 'custom';
    const range = filters.period === 'custom' ? { from: filters.from, to: filters.to } : { period: filters.period };
    return { ...range, client: filters.client, template: filters.template, status: filters.status, style: filters.style };
  }

  async function load(notice = '') {
    const wanted = params();
    ctx.busy();
    showMessage(message, notice, 'ok');
    try {
      const report = await get('/api/report', wanted);
      if (!ctx.alive()) return;
      state.report = report;
      refreshChoices(report);
      replace(output, reportView(report, wanted, load));
    } catch (error) {
      if (ctx.alive()) replace(output, loadError(error, () => load()));
    }
    ctx.ready();
  }

  function refreshChoices(report) {
    if (report.clients) {
      replace(controls.client, option('', t('reports.allClients')),
        report.clients.map((c) => option(c.id, c.name, String(c.id) === filters.client)));
    }
    if (report.templates?.length) {
      replace(controls.template, pairs(report.templates).map(([value, text]) => option(value, text, String(value) === filters.template)));
      filters.template = controls.template.value;
    }
  }

  load();
  return {};
}

function reportView(report, wanted, reload) {
  const rows = report.rows || [];
  // Only a statement says which activities each row holds; other layouts are marked as a whole.
  const rowIds = Array.isArray(report.row_activity_ids) ? report.row_activity_ids : null;
  const chosen = new Set();
  const billing = billingForm(report, rowIds, chosen, reload);
  return [
    h('section', { class: 'card report' },
      h('div', { class: 'card-title-row' },
        h('div', {}, h('h2', { text: report.title || t('nav.reports') }), report.subtitle ? h('p', { class: 'muted', text: report.subtitle }) : null),
        downloads(wanted)),
      h('p', { class: 'muted small' }, t('reports.rows'), ' ', metric('report.rows', rows.length, number(rows.length))),
      rows.length ? reportTable(report, rowIds, chosen, billing.update) : h('p', { class: 'muted', text: t('reports.empty') }),
      calendarNote(report)),
    billing.node,
  ];
}

function reportTable(report, rowIds, chosen, changed) {
  const numeric = report.numeric || [];
  const cell = (tag, text, i) => h(tag, { class: numeric[i] ? 'num' : '', text: text ?? '' });
  const idsOf = (index) => (rowIds && Array.isArray(rowIds[index]) ? rowIds[index] : []);
  const choosable = report.rows.map((_, index) => index).filter((index) => idsOf(index).length);
  const ticking = choosable.length > 0;
  const lines = [];
  const boxes = new Map();

  let all = null;
  if (ticking) {
    all = tickBox(t('reports.chooseAll'), { name: 'all-rows' });
    all.box.addEventListener('change', () => {
      for (const index of choosable) {
        if (all.box.checked) chosen.add(index);
        else chosen.delete(index);
      }
      sync();
    });
  }

  // The header box and the row highlights follow the ticks.
  function sync() {
    for (const [index, box] of boxes) {
      box.checked = chosen.has(index);
      lines[index].classList.toggle('is-chosen', box.checked);
    }
    if (all) {
      all.box.checked = chosen.size === choosable.length;
      all.box.indeterminate = chosen.size > 0 && chosen.size < choosable.length;
    }
    changed();
  }

  // Screen readers hear the row's words (date, client, project), not its figures.
  const rowName = (row) => row.filter((text, i) => !numeric[i] && text).slice(0, 3).join(' · ');

  report.rows.forEach((row, index) => {
    let tick = null;
    if (idsOf(index).length) {
      const { box, node } = tickBox(t('reports.chooseRow', { row: rowName(row) || String(index + 1) }), { name: 'row', value: String(index) });
      box.addEventListener('change', () => {
        if (box.checked) chosen.add(index);
        else chosen.delete(index);
        sync();
      });
      boxes.set(index, box);
      tick = node;
    }
    lines.push(h('tr', {}, ticking ? h('td', { class: 'check' }, tick) : null, row.map((text, i) => cell('td', text, i))));
  });

  return h('div', { class: 'table-wrap' }, h('table', { class: 'data', id: 'report-table' },
    h('thead', {}, h('tr', {}, ticking ? h('th', { class: 'check' }, all.node) : null, (report.columns || []).map((text, i) => cell('th', text, i)))),
    h('tbody', {}, lines),
    report.totals ? h('tfoot', {}, h('tr', {}, ticking ? h('td', { class: 'check' }) : null, report.totals.map((text, i) => cell('td', text, i)))) : null));
}

function calendarNote(report) {
  const holidays = report.holidays || [];
  return h('div', { class: 'calendar-note' },
    report.working_days != null ? h('p', {}, t('reports.workingDays', { count: number(report.working_days) })) : null,
    holidays.length ? h('p', { class: 'muted small' }, `${t('reports.holidays')} `,
      holidays.map((day) => `${shortDay(day.date)} (${day.name})`).join(', ')) : null);
}

// The file is fetched with the page's token, then handed to the browser to save.
function downloads(wanted) {
  const message = messageArea();
  const links = FORMATS.map((format) => {
    const link = h('a', { class: 'button', href: '#reports', role: 'button', data: { format }, text: format.toUpperCase() });
    link.addEventListener('click', (event) => {
      event.preventDefault();
      download('/api/report/file', { ...wanted, format }).catch((error) => showMessage(message, error.message, 'error'));
    });
    return link;
  });
  return h('div', { class: 'downloads', role: 'group', 'aria-label': t('reports.download') },
    h('span', { class: 'muted small', text: t('reports.download') }), links, message);
}

// Marks the ticked rows' activities, or the whole report's when no row is ticked.
function billingForm(report, rowIds, chosen, reload) {
  const everything = report.activity_ids || [];
  const ticking = Boolean(rowIds?.some((ids) => Array.isArray(ids) && ids.length));
  const message = messageArea();
  const help = h('p', { class: 'muted small', 'aria-live': 'polite' });
  const invoice = h('input', { type: 'text', name: 'invoice', autocomplete: 'off' });
  const billed = h('button', { type: 'button', class: 'primary', data: { action: 'mark-billed' }, text: t('reports.markBilled') });
  const paid = h('button', { type: 'button', data: { action: 'mark-paid' }, text: t('reports.markPaid') });
  // A line marked by mistake goes back to what is left to bill.
  const unmark = h('button', { type: 'button', data: { action: 'mark-tobill' }, text: t('reports.markToBill') });

  function ids() {
    if (!chosen.size) return everything;
    const picked = new Set();
    for (const index of chosen) for (const id of rowIds?.[index] || []) picked.add(id);
    return [...picked];
  }

  function update() {
    const count = ids().length;
    if (chosen.size) {
      help.textContent = t('reports.billingChosen', {
        rows: t('reports.rowCount', { count: number(chosen.size) }),
        activities: t('common.activities', { count: number(count) }),
      });
    } else if (count) {
      help.textContent = t('reports.billingAll', { count: number(count) }) + (ticking ? ` ${t('reports.billingAllHint')}` : '');
    } else {
      help.textContent = t('reports.nothingToMark');
    }
    billed.disabled = paid.disabled = unmark.disabled = !count;
  }

  async function mark(button, status) {
    const body = { activity_ids: ids(), status };
    if (!body.activity_ids.length) return;
    if (status === 'billed' && invoice.value.trim()) body.invoice = invoice.value.trim();
    const ok = await act(button, message, async () => {
      const answer = await post('/api/billing/mark', body);
      return t('reports.marked', { count: number(answer.marked ?? 0) });
    });
    if (ok) await reload(message.textContent);
  }

  billed.addEventListener('click', () => mark(billed, 'billed'));
  paid.addEventListener('click', () => mark(paid, 'paid'));
  unmark.addEventListener('click', () => mark(unmark, 'tobill'));
  update();
  return {
    node: card(t('reports.billing'), help,
      h('div', { class: 'inline-form wrap' }, field(t('reports.invoice'), invoice), billed, paid, unmark),
      message),
    update,
  };
}
