// The browser extension in Debian's Chromium, and in Firefox ESR when it is
// installed, talking to the real `ombrelo browser-host`, with a stand-in for
// the tracker's control socket that records what the tracker would be told.
// Pages under two names, tabs opened and switched, pages off the web, private
// windows and a host that dies: the tracker learns the site and address of web
// pages only, and never anything of a private page. The worker's choices that
// a headless browser cannot provoke (losing the focus, a host that will not
// start) are checked first against a fake browser.
//
//   node extension.test.mjs --ombrelo PATH --extension DIR [--firefox PATH]
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import { chmodSync, existsSync, mkdirSync, mkdtempSync, readFileSync, writeFileSync } from 'node:fs';
import http from 'node:http';
import net from 'node:net';
import { tmpdir } from 'node:os';
import { dirname, join, resolve } from 'node:path';
import { parseArgs } from 'node:util';
import vm from 'node:vm';
import { launchChromium, puppeteer, run, until as untilWithin } from './support.mjs';

const { values: options } = parseArgs({
  options: {
    ombrelo: { type: 'string' }, extension: { type: 'string' },
    firefox: { type: 'string', default: '/usr/bin/firefox-esr' },
  },
});
assert.ok(options.ombrelo && options.extension, 'usage: extension.test.mjs --ombrelo PATH --extension DIR');
// The browser starts the host from a folder of its own.
options.ombrelo = resolve(options.ombrelo);
options.extension = resolve(options.extension);
const HOST_NAME = 'fr.ombrelo.browser';
const SECRET = 'hush-7f3a'; // in the private page's address and title only
const work = mkdtempSync(join(tmpdir(), 'ombrelo-extension-'));
const env = {
  ...process.env,
  OMBRELO_DB: join(work, 'db.sqlite'),
  XDG_RUNTIME_DIR: join(work, 'run'),
  OMBRELO_LOG: 'warn',
};
const cleanups = [];
const manifest = JSON.parse(readFileSync(join(options.extension, 'manifest.json'), 'utf8'));

// Chromium's id for an extension with a fixed key: sha256 of the key, in a-p.
function extensionId(key) {
  const digest = createHash('sha256').update(Buffer.from(key, 'base64')).digest('hex').slice(0, 32);
  return [...digest].map((c) => String.fromCharCode(97 + parseInt(c, 16))).join('');
}

const until = (condition, what) => untilWithin(condition, what, 20000);

// ---------------------------------------------------------------------------
// The worker against a fake browser.

function fakeEvent() {
  const listeners = [];
  return { listeners, addListener: (f) => listeners.push(f), fire: (...args) => listeners.forEach((f) => f(...args)) };
}

// background.js in a sandbox whose browser is `state`, with timers run by hand.
function fakeBrowser() {
  const state = {
    windows: [{ id: 1, focused: true, incognito: false, tabs: [{ id: 10, active: true, incognito: false, url: 'https://example.org/', title: 'Example' }] }],
    ports: [],
    timers: [],
    refuse: false,
    held: null,
  };
  const events = {
    onActivated: fakeEvent(), onUpdated: fakeEvent(), onReplaced: fakeEvent(),
    onFocusChanged: fakeEvent(), onCreated: fakeEvent(), onRemoved: fakeEvent(),
  };
  const chrome = {
    runtime: {
      lastError: undefined,
      connectNative(name) {
        if (state.refuse) throw new Error('no such host');
        const port = {
          name, sent: [], open: true, onDisconnect: fakeEvent(), onMessage: fakeEvent(),
          postMessage(m) { if (!this.open) throw new Error('disconnected'); this.sent.push(JSON.parse(JSON.stringify(m))); },
          drop() { this.open = false; this.onDisconnect.fire(this); },
        };
        state.ports.push(port);
        return port;
      },
    },
    tabs: { onActivated: events.onActivated, onUpdated: events.onUpdated, onReplaced: events.onReplaced },
    windows: {
      WINDOW_ID_NONE: -1,
      onFocusChanged: events.onFocusChanged, onCreated: events.onCreated, onRemoved: events.onRemoved,
      async getLastFocused() {
        if (state.windows.length === 0) throw new Error('no window');
        const answer = structuredClone(state.windows[0]);
        // Held answers are released by the test, in the order it chooses.
        if (state.held) return new Promise((resolve) => state.held.push(() => resolve(answer)));
        return answer;
      },
    },
  };
  const sandbox = {
    chrome, URL, Date, Promise, Set, Object, JSON, Math, Error, Boolean, String, Number, Array,
    setTimeout: (f, ms) => { state.timers.push({ f, ms }); return state.timers.length; },
  };
  vm.runInNewContext(readFileSync(join(options.extension, 'background.js'), 'utf8'), sandbox);
  const settle = () => new Promise((r) => setImmediate(r));
  const port = () => state.ports.at(-1);
  return { state, events, settle, port };
}

async function workerAgainstAFakeBrowser() {
  const { state, events, settle, port } = fakeBrowser();
  const tab = () => state.windows[0].tabs[0];
  await settle();
  assert.equal(state.ports.length, 1, 'one port on start');
  assert.equal(port().name, HOST_NAME);
  const first = port().sent;
  assert.equal(first.length, 1, 'the page in front is told on start');
  assert.deepEqual(Object.keys(first[0]).sort(), ['at', 'focused', 'incognito', 'kind', 'title', 'url']);
  assert.ok(Number.isInteger(first[0].at) && Math.abs(first[0].at - Date.now()) < 60000, 'at is Date.now() in ms');
  assert.deepEqual({ ...first[0], at: 0 },
    { kind: 'page', at: 0, focused: true, incognito: false, url: 'https://example.org/', title: 'Example' });

  // Nothing new, nothing sent; a change in the background tab is not ours to tell.
  events.onUpdated.fire(10, { status: 'complete' }, tab());
  events.onActivated.fire({ tabId: 10, windowId: 1 });
  await settle();
  assert.equal(port().sent.length, 1, 'the same page is not told twice');
  events.onUpdated.fire(11, { title: 'elsewhere' }, { id: 11, active: false });
  await settle();
  assert.equal(port().sent.length, 1, 'an inactive tab is not reported');

  // Everything but the web, and every private page, without address nor title.
  const cases = [
    [{ url: 'file:///home/me/taxes.pdf', title: 'taxes.pdf' }, { incognito: false, url: null, title: null }],
    [{ url: 'about:blank', title: 'about:blank' }, { incognito: false, url: null, title: null }],
    [{ url: 'chrome://settings/', title: 'Settings' }, { incognito: false, url: null, title: null }],
    [{ url: 'moz-extension://x/page.html', title: 'Ext' }, { incognito: false, url: null, title: null }],
    [{ url: '', title: 'New Tab' }, { incognito: false, url: null, title: null }],
    [{ url: 'https://bank.example/account', title: 'My account', incognito: true }, { incognito: true, url: null, title: null }],
    [{ url: 'https://me:pw@intra.example/x?q=1#f', title: 'Intra' }, { incognito: false, url: 'https://intra.example/x?q=1#f', title: 'Intra' }],
    [{ url: 'http://Example.COM:8080/a', title: 'A' }, { incognito: false, url: 'http://Example.COM:8080/a', title: 'A' }],
  ];
  for (const [tabState, expected] of cases) {
    Object.assign(tab(), { incognito: false }, tabState);
    state.windows[0].incognito = tab().incognito;
    events.onUpdated.fire(10, { url: tab().url }, tab());
    await settle();
    const { kind, focused, incognito, url, title } = port().sent.at(-1);
    assert.deepEqual({ kind, focused, incognito, url, title }, { kind: 'page', focused: true, ...expected }, tabState.url);
  }

  // Focus leaves the browser: a blur with nothing else in it, once.
  const before = port().sent.length;
  state.windows[0].focused = false;
  events.onFocusChanged.fire(-1);
  events.onUpdated.fire(10, { title: 'still typing' }, tab());
  await settle();
  assert.equal(port().sent.length, before + 1, 'one blur');
  assert.deepEqual(Object.keys(port().sent.at(-1)).sort(), ['at', 'kind']);
  assert.equal(port().sent.at(-1).kind, 'blur');
  state.windows[0].focused = true;
  Object.assign(tab(), { url: 'https://example.org/back', title: 'Back' });
  events.onFocusChanged.fire(1);
  await settle();
  assert.equal(port().sent.at(-1).url, 'https://example.org/back', 'focus back: the page again');
  state.windows = [];
  events.onRemoved.fire(1);
  await settle();
  assert.equal(port().sent.at(-1).kind, 'blur', 'no window left: a blur');
  state.windows = [{ id: 2, focused: true, incognito: false, tabs: [{ id: 20, active: true, incognito: false, url: 'https://example.org/new', title: 'New' }] }];
  events.onCreated.fire({ id: 2 });
  events.onFocusChanged.fire(2);
  await settle();
  assert.equal(port().sent.at(-1).url, 'https://example.org/new', 'a new window is reported');

  // A burst of changes ends on the latest state, however the browser's answers come back.
  const tab2 = state.windows[0].tabs[0];
  state.held = [];
  for (const n of [1, 2, 3]) {
    Object.assign(tab2, { url: `https://example.org/${n}`, title: `T${n}` });
    events.onUpdated.fire(20, { url: tab2.url }, tab2);
  }
  while (state.held.length) {
    state.held.pop()();
    await settle();
  }
  state.held = null;
  await settle();
  assert.equal(port().sent.at(-1).url, 'https://example.org/3', 'the last of a burst wins');

  // A host that goes away is started again, later and later, and told the page afresh.
  assert.equal(state.timers.length, 0, 'no timer while connected');
  port().drop();
  assert.equal(state.ports.length, 1, 'no reconnection on the spot');
  assert.equal(state.timers.length, 1);
  const firstWait = state.timers[0].ms;
  assert.ok(firstWait >= 500, `waits before reconnecting (${firstWait} ms)`);
  state.refuse = true;
  state.timers.shift().f();
  await settle();
  assert.equal(state.timers.length, 1, 'a refused start is retried');
  const secondWait = state.timers[0].ms;
  assert.ok(secondWait > firstWait, 'and later each time');
  for (let i = 0; i < 30; i++) state.timers.shift().f();
  assert.ok(state.timers[0].ms <= 10 * 60 * 1000, 'the wait is bounded');
  assert.equal(state.timers.length, 1, 'one pending retry at a time');
  state.refuse = false;
  const ports = state.ports.length;
  state.timers.shift().f();
  await settle();
  assert.equal(state.ports.length, ports + 1);
  assert.equal(port().sent.length, 1, 'a new host is told the page in front');
  assert.equal(port().sent[0].url, 'https://example.org/3');
  assert.equal(state.timers.length, 0);
}

// ---------------------------------------------------------------------------
// The extension in Chromium.

// ---------------------------------------------------------------------------
// The extension in real browsers.

const PAGES = {
  '/a': 'Page Alpha',
  '/b': 'Page Beta',
  [`/private-${SECRET}`]: `Private ${SECRET}`,
};

async function serveSites() {
  const server = http.createServer((request, answer) => {
    const path = new URL(request.url, 'http://x').pathname;
    const title = PAGES[path];
    answer.statusCode = title ? 200 : 404;
    answer.setHeader('content-type', 'text/html; charset=utf-8');
    answer.end(`<!doctype html><title>${title ?? 'Not here'}</title><p>${path}</p>`);
  });
  await new Promise((r) => server.listen(0, '127.0.0.1', r));
  cleanups.push(() => new Promise((r) => { server.closeAllConnections(); server.close(r); }));
  const port = server.address().port;
  return {
    alphaRoot: `http://alpha.test:${port}`, betaRoot: `http://beta.test:${port}`,
    alpha: `http://alpha.test:${port}/a`, beta: `http://beta.test:${port}/b`,
  };
}

// Listens where the tracker would, recording every request line as it comes.
async function standInTracker() {
  mkdirSync(env.XDG_RUNTIME_DIR, { recursive: true, mode: 0o700 });
  const path = execFileSync(options.ombrelo, ['browser-host', '--socket-path'], { env, encoding: 'utf8' }).trim();
  assert.ok(path.startsWith(env.XDG_RUNTIME_DIR + '/'), `socket under XDG_RUNTIME_DIR: ${path}`);
  mkdirSync(dirname(path), { recursive: true, mode: 0o700 });
  const received = [];
  const server = net.createServer((connection) => {
    let pending = '';
    connection.setEncoding('utf8');
    connection.on('data', (chunk) => {
      pending += chunk;
      let end;
      while ((end = pending.indexOf('\n')) >= 0) {
        const line = pending.slice(0, end);
        pending = pending.slice(end + 1);
        received.push(line);
        connection.write('{"ok":true}\n');
      }
    });
    connection.on('error', () => {});
  });
  await new Promise((resolve, reject) => { server.once('error', reject); server.listen(path, resolve); });
  cleanups.push(() => new Promise((r) => server.close(r)));
  return received;
}

// The program a host manifest names: it cannot pass arguments, and its pid file lets the test stop the host.
function hostProgram() {
  const program = join(work, 'browser-host');
  writeFileSync(program, `#!/bin/sh\necho $$ > '${join(work, 'host.pid')}'\nexec '${options.ombrelo}' browser-host "$@"\n`);
  chmodSync(program, 0o755);
  return program;
}

const alive = (pid) => { try { process.kill(pid, 0); return true; } catch { return false; } };
const hostPid = () => { try { return Number(readFileSync(join(work, 'host.pid'), 'utf8')); } catch { return 0; } };

// The requests seen so far, parsed, with checks every one of them must pass.
function requests(seen) {
  return seen.received.map((line) => {
    const request = JSON.parse(line);
    assert.ok(['browser-page', 'browser-blur', 'browser-gone'].includes(request.command), line);
    assert.equal(request.pid, seen.pid, `the browser's pid: ${line}`);
    if (request.command === 'browser-gone') {
      assert.deepEqual(Object.keys(request).sort(), ['command', 'pid'], line);
      return request;
    }
    assert.equal(typeof request.at, 'number', line);
    // Seconds, not milliseconds.
    assert.ok(request.at > 1.6e9 && request.at < 1e11, line);
    if (request.command === 'browser-blur') {
      assert.deepEqual(Object.keys(request).sort(), ['at', 'command', 'pid'], line);
      return request;
    }
    assert.deepEqual(Object.keys(request).sort(),
      ['at', 'command', 'domain', 'focused', 'incognito', 'pid', 'title', 'url'], line);
    assert.equal(request.focused, true, line);
    assert.equal(typeof request.incognito, 'boolean', line);
    if (request.url === null) {
      assert.equal(request.title, null, line);
      assert.equal(request.domain, null, line);
    } else {
      assert.equal(request.domain, new URL(request.url).hostname.toLowerCase(), line);
      assert.equal(typeof request.title, 'string', line);
    }
    if (request.incognito) assert.deepEqual([request.url, request.title, request.domain], [null, null, null], line);
    return request;
  });
}

// Waits for a request at or after index `from` that `matches`, and returns its index.
async function told(seen, from, matches, what) {
  return (await until(() => {
    const index = requests(seen).findIndex((r, i) => i >= from && matches(r));
    return index >= 0 ? index + 1 : 0;
  }, `${seen.name}: ${what}`)) - 1;
}

const pageAt = (url, title) => (r) => r.command === 'browser-page' && r.url === url && r.title === title;
const offTheWeb = (r) => r.command === 'browser-page' && r.url === null && !r.incognito;
const privately = (r) => r.command === 'browser-page' && r.incognito;

async function sitesInOrder(seen, page, sites) {
  const from = seen.received.length;
  let at = from;
  for (const [url, title] of [[sites.alpha, 'Page Alpha'], [sites.beta, 'Page Beta'], [sites.alpha, 'Page Alpha']]) {
    await page.goto(url);
    at = await told(seen, at, pageAt(url, title), `${title} at ${url}`);
  }
  // A page may first be told under a provisional title; the sites come one after the other.
  const pages = requests(seen).slice(from).filter((r) => r.command === 'browser-page' && r.url);
  const runs = pages.filter((r, i) => i === 0 || r.url !== pages[i - 1].url).map((r) => [r.domain, r.url]);
  assert.deepEqual(runs, [['alpha.test', sites.alpha], ['beta.test', sites.beta], ['alpha.test', sites.alpha]],
    seen.name);
}

async function tabsAndSwitching(seen, browser, first, sites) {
  let at = seen.received.length;
  const second = await browser.newPage();
  at = await told(seen, at, offTheWeb, 'the new blank tab is in front');
  await second.goto(sites.beta);
  at = await told(seen, at, pageAt(sites.beta, 'Page Beta'), 'the new tab shows beta');
  await first.bringToFront();
  at = await told(seen, at, pageAt(sites.alpha, 'Page Alpha'), 'back to the first tab');
  await second.bringToFront();
  at = await told(seen, at, pageAt(sites.beta, 'Page Beta'), 'the second tab again');
  await second.close();
  await told(seen, at, pageAt(sites.alpha, 'Page Alpha'), 'the second tab closed: the first is in front');
}

async function pagesOffTheWeb(seen, page, sites, internalPage) {
  const local = join(work, 'local.html');
  writeFileSync(local, `<!doctype html><title>Local ${SECRET}</title>`);
  let at = seen.received.length;
  const others = ['about:blank', `data:text/html,<title>Data ${SECRET}</title>`, `file://${local}`];
  if (internalPage) others.push(internalPage);
  for (const address of others) {
    // From a web page each time, so every step is a change the tracker must hear of.
    await page.goto(sites.beta);
    at = await told(seen, at, pageAt(sites.beta, 'Page Beta'), `beta before ${address}`);
    await page.goto(address);
    at = await told(seen, at, offTheWeb, `${address} without address nor title`);
  }
  await page.goto(sites.alpha);
  await told(seen, at, pageAt(sites.alpha, 'Page Alpha'), 'back on the web');
}

// The host is stopped under the extension: it is started again and told the page in front.
async function aHostThatDiesIsReplaced(seen, matches, what) {
  const pid = hostPid();
  assert.ok(pid > 0 && alive(pid), `${seen.name}: the host runs`);
  const at = seen.received.length;
  seen.newHostAt = at;
  process.kill(pid, 'SIGKILL');
  await until(() => hostPid() !== pid && alive(hostPid()), `${seen.name}: a new host is started`);
  await told(seen, at, matches, `the new host is told ${what}`);
}

// The host leaves with the browser, and says so; nothing private was ever told.
async function closes(seen, browser) {
  const host = hostPid();
  const at = seen.received.length;
  await browser.close();
  await until(() => !alive(host), `${seen.name}: the host exits when the browser closes`);
  await told(seen, at, (r) => r.command === 'browser-gone', 'the tracker hears the browser is gone');
  for (const line of seen.received) {
    assert.ok(!line.includes(SECRET), `${seen.name}: nothing of a private or local page: ${line}`);
    for (const scheme of ['chrome:', 'about:', 'data:', 'file:']) assert.ok(!line.includes(scheme), line);
  }
  // The extension does not repeat itself to a host, so neither does a faithful host;
  // only a new host is told again what the old one knew.
  const all = requests(seen).map(({ at: _, ...rest }) => JSON.stringify(rest));
  all.forEach((r, i) => assert.ok(i === 0 || i === seen.newHostAt || r !== all[i - 1],
    `${seen.name}: told twice in a row: ${r}`));
}

// What the test needs to follow one browser: the stand-in's lines since it started.
function following(name, received, browser) {
  received.length = 0;
  const pid = browser.process().pid;
  cleanups.push(async () => {
    await browser.close();
    const host = hostPid();
    if (host && alive(host)) process.kill(host, 'SIGKILL');
  });
  return { name, received, pid, newHostAt: -1 };
}

async function privateWindowsInChromium(seen, browser, sites) {
  let at = seen.received.length;
  const worker = await (await browser.waitForTarget((t) => t.type() === 'service_worker')).worker();
  assert.equal(await worker.evaluate(() => chrome.extension.isAllowedIncognitoAccess()), true,
    'the profile allows the extension in private windows');
  const privateUrl = `${sites.alphaRoot}/private-${SECRET}?q=${SECRET}`;
  const windowId = await worker.evaluate(async (url) => (await chrome.windows.create({ incognito: true, url })).id, privateUrl);
  const target = await browser.waitForTarget((t) => t.type() === 'page' && t.url() === privateUrl);
  const privatePage = await target.page();
  await privatePage.waitForFunction((s) => document.title.includes(s), {}, SECRET);
  at = await told(seen, at, privately, 'a private page is reported as private');
  // Moving within the private window, and to another site, tells nothing more.
  await privatePage.goto(`${sites.betaRoot}/private-${SECRET}#${SECRET}`);
  await privatePage.waitForFunction((s) => document.title.includes(s), {}, SECRET);
  await worker.evaluate((id) => chrome.windows.remove(id), windowId);
  // Events are handled in order: once the normal window is told, the private ones were before.
  await told(seen, at, pageAt(sites.alpha, 'Page Alpha'), 'the private window closed: the normal page again');
}

async function extensionInChromium(received, sites) {
  const id = extensionId(manifest.key);
  const profile = join(work, 'chromium');
  mkdirSync(join(profile, 'NativeMessagingHosts'), { recursive: true });
  writeFileSync(join(profile, 'NativeMessagingHosts', `${HOST_NAME}.json`), JSON.stringify({
    name: HOST_NAME, description: 'Ombrelo', path: hostProgram(), type: 'stdio',
    allowed_origins: [`chrome-extension://${id}/`],
  }));
  // What a user ticking "Allow in Incognito" leaves in the profile.
  mkdirSync(join(profile, 'Default'), { recursive: true });
  writeFileSync(join(profile, 'Default', 'Preferences'),
    JSON.stringify({ extensions: { settings: { [id]: { incognito: true } } } }));
  const extension = options.extension;
  const browser = await launchChromium({
    userDataDir: profile,
    env,
    ignoreDefaultArgs: ['--disable-extensions'],
    args: [`--disable-extensions-except=${extension}`, `--load-extension=${extension}`,
      '--host-resolver-rules=MAP alpha.test 127.0.0.1,MAP beta.test 127.0.0.1'],
  });
  const seen = following('Chromium', received, browser);
  const worker = await browser.waitForTarget((t) => t.type() === 'service_worker', { timeout: 20000 });
  assert.equal(worker.url(), `chrome-extension://${id}/background.js`, 'the key fixes the id');

  const page = (await browser.pages())[0];
  await sitesInOrder(seen, page, sites);
  await tabsAndSwitching(seen, browser, page, sites);
  await pagesOffTheWeb(seen, page, sites, 'chrome://version/');
  await privateWindowsInChromium(seen, browser, sites);
  await aHostThatDiesIsReplaced(seen, pageAt(sites.alpha, 'Page Alpha'), 'the page in front');
  await closes(seen, browser);
}

// Firefox loads the extension unsigned as a temporary add-on, through WebDriver BiDi.
// Its host manifest is looked for under $HOME; private windows are tried in a
// browser that opens nothing else, with the add-on allowed there.
async function launchFirefox(name, privateOnly) {
  const home = join(work, name, 'home');
  const profile = join(work, name, 'profile');
  mkdirSync(join(home, '.mozilla', 'native-messaging-hosts'), { recursive: true });
  writeFileSync(join(home, '.mozilla', 'native-messaging-hosts', `${HOST_NAME}.json`), JSON.stringify({
    name: HOST_NAME, description: 'Ombrelo', path: hostProgram(), type: 'stdio',
    allowed_extensions: [manifest.browser_specific_settings.gecko.id],
  }));
  mkdirSync(profile, { recursive: true });
  if (privateOnly) {
    // What a user ticking "Run in Private Windows" leaves in the profile.
    writeFileSync(join(profile, 'extension-preferences.json'), JSON.stringify({
      [manifest.browser_specific_settings.gecko.id]: { permissions: ['internal:privateBrowsingAllowed'], origins: [] },
    }));
  }
  const browser = await puppeteer.launch({
    browser: 'firefox',
    executablePath: options.firefox,
    headless: true,
    userDataDir: profile,
    env: { ...env, HOME: home },
    extraPrefsFirefox: {
      'network.dns.localDomains': 'alpha.test,beta.test',
      'network.proxy.type': 0,
      'browser.privatebrowsing.autostart': privateOnly,
    },
  });
  return browser;
}

async function extensionInFirefox(received, sites) {
  let browser = await launchFirefox('firefox', false);
  let seen = following('Firefox', received, browser);
  assert.equal(await browser.installExtension(options.extension), manifest.browser_specific_settings.gecko.id);
  const page = (await browser.pages())[0];
  await sitesInOrder(seen, page, sites);
  await tabsAndSwitching(seen, browser, page, sites);
  // WebDriver BiDi will not open Firefox's own pages.
  await pagesOffTheWeb(seen, page, sites, null);
  await aHostThatDiesIsReplaced(seen, pageAt(sites.alpha, 'Page Alpha'), 'the page in front');
  await closes(seen, browser);

  browser = await launchFirefox('firefox-private', true);
  seen = following('Firefox in private', received, browser);
  await browser.installExtension(options.extension);
  const privatePage = (await browser.pages())[0];
  await privatePage.goto(`${sites.alphaRoot}/private-${SECRET}?q=${SECRET}`);
  await told(seen, 0, privately, 'a private page is reported as private');
  await privatePage.goto(`${sites.betaRoot}/private-${SECRET}#${SECRET}`);
  assert.equal(await privatePage.title(), `Private ${SECRET}`);
  // A new host is told about the page in front, which is surely the private one by now.
  await aHostThatDiesIsReplaced(seen, privately, 'that the page in front is private');
  await closes(seen, browser);
}

function manifestAsksForLittle() {
  assert.equal(manifest.manifest_version, 3);
  assert.deepEqual(manifest.permissions, ['tabs', 'nativeMessaging']);
  for (const wider of ['host_permissions', 'optional_permissions', 'optional_host_permissions', 'content_scripts',
    'externally_connectable', 'web_accessible_resources', 'content_security_policy']) {
    assert.ok(!(wider in manifest), `no ${wider}`);
  }
  assert.deepEqual(manifest.background, { service_worker: 'background.js', scripts: ['background.js'] });
  assert.equal(manifest.incognito, 'spanning');
  assert.equal(manifest.browser_specific_settings.gecko.id, 'browser@ombrelo.fr');
  // The worker talks to nothing but the native port.
  const source = readFileSync(join(options.extension, 'background.js'), 'utf8');
  for (const way of ['fetch(', 'XMLHttpRequest', 'WebSocket', 'sendBeacon', 'EventSource', 'importScripts', 'import(']) {
    assert.ok(!source.includes(way), `background.js uses ${way}`);
  }
}


async function main() {
  manifestAsksForLittle();
  await workerAgainstAFakeBrowser();
  const received = await standInTracker();
  const sites = await serveSites();
  await extensionInChromium(received, sites);
  if (existsSync(options.firefox)) {
    await extensionInFirefox(received, sites);
  } else {
    console.log(`no ${options.firefox}: Firefox not tried`);
  }
}

await run(main, 'extension in the browser: all checks passed', cleanups, work);
