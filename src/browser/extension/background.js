// Tells the Ombrelo tracker, through its native host, which page is in front
// of the focused browser window. Nothing leaves the computer: the only way out
// is the native port. Private pages, and pages that are not on the web, are
// reported without their address or title.
'use strict';

const api = globalThis.browser ?? globalThis.chrome;
const HOST = 'fr.ombrelo.browser';
const FIRST_RETRY_MS = 1000;
const LAST_RETRY_MS = 5 * 60 * 1000;
// A host that stayed up this long was healthy: the next failure retries quickly again.
const HEALTHY_MS = 60 * 1000;

// All of this is a cache: the worker may be stopped at any time, and on its
// next start everything is recomputed from the tabs themselves.
let port = null;
let connectedAt = 0;
let retryMs = FIRST_RETRY_MS;
let retryTimer = null;
let lastSent = null;
let busy = false;
let dirty = false;

// What the tracker may know about a tab: the address and title of web pages
// only, and of a private page nothing but that it is private.
function pageOf(tab, at) {
  const message = { kind: 'page', at, focused: true, incognito: Boolean(tab.incognito), url: null, title: null };
  if (tab.incognito) return message;
  let address;
  try {
    address = new URL(tab.url);
  } catch {
    return message;
  }
  if (address.protocol !== 'http:' && address.protocol !== 'https:') return message;
  let url = tab.url;
  // A password typed in the address has no place in a time sheet.
  if (address.username || address.password) {
    address.username = '';
    address.password = '';
    url = address.href;
  }
  message.url = url;
  message.title = typeof tab.title === 'string' ? tab.title : null;
  return message;
}

// The message for what is in front right now, read from the browser.
async function current() {
  const at = Date.now();
  let win;
  try {
    win = await api.windows.getLastFocused({ populate: true });
  } catch {
    return { kind: 'blur', at }; // no window left
  }
  if (!win || !win.focused) return { kind: 'blur', at };
  const tab = (win.tabs ?? []).find((t) => t.active);
  if (!tab) return { kind: 'blur', at };
  return pageOf(tab, at);
}

function sameAs(a, b) {
  if (!a || !b) return false;
  const keys = new Set([...Object.keys(a), ...Object.keys(b)]);
  keys.delete('at');
  for (const key of keys) if (a[key] !== b[key]) return false;
  return true;
}

function send(message) {
  if (!port || sameAs(message, lastSent)) return;
  try {
    port.postMessage(message);
    lastSent = message;
  } catch {
    // The port died under us; its disconnect handler reconnects.
  }
}

// Events come in bursts (a tab switch fires several): one reading at a time,
// and one more after it if anything happened meanwhile, so the last word is
// always the latest state.
async function report() {
  if (busy) {
    dirty = true;
    return;
  }
  busy = true;
  try {
    do {
      dirty = false;
      send(await current());
    } while (dirty);
  } finally {
    busy = false;
  }
}

function scheduleReconnect(wasHealthy) {
  if (retryTimer !== null) return;
  if (wasHealthy) retryMs = FIRST_RETRY_MS;
  const wait = retryMs;
  retryMs = Math.min(retryMs * 2, LAST_RETRY_MS);
  retryTimer = setTimeout(() => {
    retryTimer = null;
    connect();
  }, wait);
}

function connect() {
  let opened;
  try {
    opened = api.runtime.connectNative(HOST);
  } catch {
    scheduleReconnect(false);
    return;
  }
  port = opened;
  connectedAt = Date.now();
  lastSent = null; // a new host knows nothing yet
  opened.onDisconnect.addListener(() => {
    void api.runtime.lastError; // read, so Chromium does not log it as unchecked
    if (port === opened) port = null;
    scheduleReconnect(Date.now() - connectedAt >= HEALTHY_MS);
  });
  // The host has nothing to tell us; listening keeps the port's messages from piling up.
  opened.onMessage.addListener(() => {});
  report();
}

// Listeners are registered at the top level so a stopped worker is woken by them.
api.tabs.onActivated.addListener(() => report());
api.tabs.onUpdated.addListener((tabId, change, tab) => {
  if (!tab || !tab.active) return;
  if ('url' in change || 'title' in change || change.status === 'complete') report();
});
api.tabs.onReplaced?.addListener(() => report());
api.windows.onFocusChanged.addListener(() => report());
api.windows.onCreated.addListener(() => report());
api.windows.onRemoved.addListener(() => report());

connect();
