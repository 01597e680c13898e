// Entry point: opens the session, then shows the page named by location.hash (#timeline/2026-11-23…).
import { openSession, takeTokenFromAddress } from './api.js';
import { setLanguage, t, textIn } from './i18n.js';
import { addDays, localDay, setCurrency } from './format.js';
import { h, replace } from './dom.js';
import * as dashboard from './dashboard.js';
import * as timeline from './timeline.js';
import * as search from './search.js';
import * as projects from './projects.js';
import * as reports from './reports.js';
import * as settings from './settings.js';

const PAGES = { dashboard, timeline, search, projects, reports, settings };
const main = document.getElementById('page');
const banner = document.getElementById('banner');
let session = null;
let current = null;
const openedOn = localDay();

// The server's "today" is authoritative; days passed since the window opened are added to it.
function today() {
  const elapsed = Math.round((Date.parse(localDay()) - Date.parse(openedOn)) / 86400000);
  return addDays(session.today || openedOn, elapsed);
}

function parseHash() {
  const [name, ...rest] = location.hash.replace(/^#\/?/, '').split('/');
  return PAGES[name] ? { name, arg: rest.join('/') || null } : { name: 'dashboard', arg: null };
}

function translateShell() {
  document.documentElement.lang = session?.language === 'en' ? 'en' : 'fr';
  document.getElementById('skip-link').textContent = t('nav.skip');
  document.getElementById('app-nav').setAttribute('aria-label', t('nav.label'));
  for (const link of document.querySelectorAll('.app-nav a[data-page]')) {
    link.textContent = t(`nav.${link.dataset.page}`);
  }
}

function markNav(name) {
  for (const link of document.querySelectorAll('.app-nav a[data-page]')) {
    if (link.dataset.page === name) link.setAttribute('aria-current', 'page');
    else link.removeAttribute('aria-current');
  }
  document.title = `${t(`nav.${name}`)} · Ombrelo`;
}

function makeContext(name, arg) {
  const token = {};
  const alive = () => current?.token === token;
  return {
    token,
    arg,
    session,
    today,
    alive,
    ready: () => { if (alive()) main.dataset.ready = 'true'; },
    busy: () => { if (alive()) main.removeAttribute('data-ready'); },
    navigate: (hash) => { location.hash = hash; },
  };
}

function route({ moveFocus = true } = {}) {
  const { name, arg } = parseHash();
  main.removeAttribute('data-ready');
  if (current?.name === name && current.instance.setArg) {
    current.instance.setArg(arg);
    return;
  }
  current?.instance.dispose?.();
  main.dataset.page = name;
  markNav(name);
  replace(main, h('p', { class: 'muted loading', text: t('common.loading') }));
  const ctx = makeContext(name, arg);
  current = { name, token: ctx.token, instance: {} };
  current.instance = PAGES[name].mount(main, ctx) || {};
  if (moveFocus) main.querySelector('h1')?.focus({ preventScroll: true });
}

function showExpired() {
  banner.textContent = t('error.session');
  banner.hidden = false;
}

function showStartFailure(error) {
  // Without a session the language is unknown: an expired session is told in both.
  const lines = error.status === 401 ? [textIn('fr', 'error.session'), textIn('en', 'error.session')] : [error.message];
  replace(main, h('div', { class: 'load-error', role: 'alert' }, lines.map((line) => h('p', { text: line }))));
}

async function start() {
  takeTokenFromAddress();
  try {
    session = await openSession();
  } catch (error) {
    showStartFailure(error);
    return;
  }
  document.addEventListener('ombrelo:expired', showExpired);
  setLanguage(session.language);
  setCurrency(session.currency);
  translateShell();
  if (!location.hash) history.replaceState(null, '', '#dashboard');
  window.addEventListener('hashchange', () => route());
  route({ moveFocus: false });
}

start();
