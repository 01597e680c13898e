// The window in Debian's Chromium, driven by puppeteer-core, against a
// replayed day served by `ombrelo ui --serve`: every page loads and shows the
// command line's totals, a block is given a project from the timeline, a
// statement is downloaded as `ombrelo report` writes it, and requests from
// another origin, under another name or without a session change nothing.
// Screenshots of every page in both schemes are left in --out.
//
//   node window.test.mjs --ombrelo PATH --source DIR --out DIR
import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import { mkdirSync, mkdtempSync, readFileSync, readdirSync, writeFileSync } from 'node:fs';
import http from 'node:http';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { parseArgs } from 'node:util';
import { launchChromium, run, until as untilWithin } from './support.mjs';

const { values: options } = parseArgs({
  options: { ombrelo: { type: 'string' }, source: { type: 'string' }, out: { type: 'string' } },
});
const DAY = '2026-11-16';
const PAGES = ['dashboard', 'timeline', 'search', 'projects', 'reports', 'settings'];
const work = mkdtempSync(join(tmpdir(), 'ombrelo-window-'));
const env = {
  ...process.env,
  OMBRELO_DB: join(work, 'ombrelo.sqlite'),
  OMBRELO_NOW: `${DAY}T18:30:00`,
  XDG_CONFIG_HOME: join(work, 'config'),
  XDG_DATA_HOME: join(work, 'data'),
  XDG_RUNTIME_DIR: join(work, 'run'),
  DBUS_SESSION_BUS_ADDRESS: 'disabled:',
  LC_ALL: 'C.UTF-8',
  TZ: 'Europe/Paris',
};
const cleanups = [];

function cli(...args) {
  return execFileSync(options.ombrelo, args, { env, encoding: 'utf8' });
}
const cliJSON = (...args) => JSON.parse(cli(...args, '--json'));

function prepareDatabase() {
  mkdirSync(join(env.XDG_CONFIG_HOME, 'ombrelo'), { recursive: true });
  mkdirSync(env.XDG_RUNTIME_DIR, { recursive: true, mode: 0o700 });
  writeFileSync(join(env.XDG_CONFIG_HOME, 'ombrelo', 'settings.json'), JSON.stringify({ language: 'fr' }));
  const replay = execFileSync('python3', [join(options.source, 'bench/make-replay.py'), '--days', '1', '--start', DAY],
    { encoding: 'utf8' });
  writeFileSync(join(work, 'day.jsonl'), replay);
  cli('replay', join(work, 'day.jsonl'));
  cli('clients', 'add', 'Atelier Dupont');
  cli('projects', 'add', 'Refonte', '--client', 'Atelier Dupont', '--rate', '80');
  cli('projects', 'add', 'Audit', '--client', 'Atelier Dupont', '--rate', '600', '--rate-kind', 'day');
  cli('rules', 'add', 'domain', 'github.com', '--project', 'Refonte');
}

// Serves the window alone and resolves with its one-time address.
function serveWindow() {
  const server = spawn(options.ombrelo, ['ui', '--serve', '--print', '--port', '0', 'dashboard'],
    { env, stdio: ['ignore', 'pipe', 'inherit'] });
  cleanups.push(() => server.kill('SIGTERM'));
  return new Promise((resolve, reject) => {
    let seen = '';
    server.stdout.on('data', (chunk) => {
      seen += chunk;
      const link = seen.split('\n').find((line) => line.startsWith('http://'));
      if (link) resolve(link.trim());
    });
    server.on('exit', (code) => reject(new Error(`ombrelo ui exited (${code}) before giving its address`)));
  });
}

const until = (condition, what) => untilWithin(condition, what, 15000);

async function pageReady(page, name) {
  await page.waitForSelector(`main#page[data-page="${name}"][data-ready="true"]`, { timeout: 15000 });
}

async function metric(page, path) {
  const element = await page.waitForSelector(`[data-metric="${path}"]`, { timeout: 15000 });
  return Number(await element.evaluate((e) => e.dataset.value));
}

async function visit(page, name) {
  await page.click(`a[data-page="${name}"]`);
  await pageReady(page, name);
}

// Searches from the search page; resolves with the total shown.
async function searchFor(page, text) {
  await page.$eval('input[name="query"]', (input) => { input.value = ''; });
  await page.type('input[name="query"]', text);
  await page.keyboard.press('Enter');
  await page.waitForSelector('[data-metric="search.total_minutes"]', { timeout: 15000 });
  return metric(page, 'search.total_minutes');
}

async function screenshots(page) {
  mkdirSync(options.out, { recursive: true });
  for (const scheme of ['light', 'dark']) {
    await page.emulateMediaFeatures([{ name: 'prefers-color-scheme', value: scheme }]);
    for (const name of PAGES) {
      await visit(page, name);
      if (name === 'search') await searchFor(page, 'github');
      await page.screenshot({ path: join(options.out, `${name}-${scheme}.png`), fullPage: true });
    }
  }
  await page.emulateMediaFeatures([{ name: 'prefers-color-scheme', value: 'light' }]);
}

async function totalsMatchTheCommandLine(page) {
  await visit(page, 'dashboard');
  const today = cliJSON('summary', '--period', 'today');
  const week = cliJSON('summary', '--period', 'week');
  assert.ok(today.active_minutes > 60, 'the replayed day has time');
  for (const key of ['active_minutes', 'billable_minutes', 'distraction_minutes', 'amount_eur']) {
    assert.equal(await metric(page, `today.${key}`), today[key], `today.${key}`);
    assert.equal(await metric(page, `week.${key}`), week[key], `week.${key}`);
  }
  assert.equal(await metric(page, 'to_bill.to_bill_eur'), cliJSON('billing', 'totals').to_bill_eur);

  await visit(page, 'timeline');
  const timeline = cliJSON('timeline', DAY);
  const counted = timeline.blocks.filter((b) => b.kind !== 'idle').reduce((sum, b) => sum + b.minutes, 0);
  assert.equal(await metric(page, 'timeline.minutes'), counted);
  assert.equal(await page.$$eval('button.block', (blocks) => blocks.length), timeline.blocks.length);

  await visit(page, 'search');
  const found = cliJSON('search', 'github');
  assert.ok(found.total_minutes > 0);
  assert.equal(await searchFor(page, 'github'), found.total_minutes);

  await visit(page, 'reports');
  const report = JSON.parse(cli('report', '--period', 'month', '--json'));
  assert.equal(await metric(page, 'report.rows'), report.lignes.length);
}

// The agent token is shown only when asked for, with configurations ready to paste.
async function agentTokenOnDemand(page) {
  await visit(page, 'settings');
  assert.equal(await page.$('pre.token'), null, 'not shown before it is asked for');
  await page.click('button[data-action="show-token"]');
  await page.waitForSelector('pre.token', { timeout: 15000 });
  const shown = await page.$$eval('pre', (blocks) => blocks.map((block) => block.textContent));
  assert.match(shown[0], /^[0-9a-f]{64}$/);
  assert.ok(shown.some((text) => JSON.parse(text.startsWith('{') ? text : '{}').mcpServers?.ombrelo), shown.join('\n'));
  assert.ok(shown.some((text) => text.startsWith('claude mcp add --transport http ombrelo http://127.0.0.1:')));
}

// A block without project gets one from its detail, as a manual correction.
async function assignFromTheTimeline(page) {
  await visit(page, 'timeline');
  const timeline = cliJSON('timeline', DAY);
  const block = timeline.blocks.find((b) => b.kind === 'app' && b.project === null && b.activity_ids.length > 1);
  const ids = block.activity_ids.join(',');
  await page.click(`button.block[data-ids="${ids}"]`);
  await page.waitForSelector('#detail select[name="project"]');
  const audit = cliJSON('projects', 'list').projects.find((p) => p.name === 'Audit');
  await page.select('#detail select[name="project"]', String(audit.id));
  await page.click('#detail button[data-action="assign"]');
  await until(() => cliJSON('explain', String(block.activity_ids[0])).assignment !== null, 'the assignment is written');
  for (const id of block.activity_ids) {
    const explained = cliJSON('explain', String(id));
    assert.equal(explained.assignment.source, 'manual', `activity ${id}`);
    assert.equal(explained.assignment.project_id, audit.id, `activity ${id}`);
  }
}

// The statement downloaded from the reports page is the command's file, byte for byte.
async function downloadAStatement(page) {
  await visit(page, 'reports');
  const downloads = join(work, 'downloads');
  mkdirSync(downloads);
  const session = await page.createCDPSession();
  await session.send('Browser.setDownloadBehavior', { behavior: 'allow', downloadPath: downloads });
  await page.click('a[data-format="csv"]');
  const finished = () => readdirSync(downloads).filter((f) => !f.endsWith('.crdownload'));
  await until(() => finished().length > 0, 'the statement is downloaded');
  const files = finished();
  assert.equal(files.length, 1, 'one file downloaded');
  const expected = join(work, 'expected.csv');
  cli('report', '--period', 'month', '--format', 'csv', '-o', expected);
  assert.ok(files[0].startsWith('statement-'), files[0]);
  assert.deepEqual(readFileSync(join(downloads, files[0])), readFileSync(expected));
}

function request(port, { method = 'GET', path, headers = {}, body = '' }) {
  return new Promise((resolve, reject) => {
    const sent = http.request({ host: '127.0.0.1', port, method, path, headers: { ...headers, 'content-length': Buffer.byteLength(body) } },
      (answer) => { answer.resume(); answer.on('end', () => resolve(answer.statusCode)); });
    sent.on('error', reject);
    sent.end(body);
  });
}

// Another origin, another name or no session: refused, and nothing changes.
async function strangersAreRefused(page, port) {
  const cookie = (await page.cookies()).map((c) => `${c.name}=${c.value}`).join('; ');
  const token = await page.evaluate(() => sessionStorage.getItem('ombrelo-token'));
  assert.ok(cookie.includes('ombrelo_session=') && token, 'the page holds a session');
  const own = { host: `127.0.0.1:${port}`, cookie, 'x-ombrelo-token': token };
  const target = cliJSON('timeline', DAY).blocks.find((b) => b.kind === 'app' && b.project === null).activity_ids;
  const change = JSON.stringify({ activity_ids: target, project: null, dry_run: false });
  const before = cli('explain', String(target[0]), '--json');

  assert.equal(await request(port, { path: '/api/session', headers: own }), 200);
  assert.equal(await request(port, { path: '/api/session', headers: { ...own, host: `evil.example:${port}` } }), 403);
  assert.equal(await request(port, { path: '/api/session', headers: { host: own.host } }), 401);
  assert.equal(await request(port, { path: '/api/session', headers: { host: own.host, cookie } }), 401);
  assert.equal(await request(port, {
    method: 'POST', path: '/api/assign', body: change,
    headers: { ...own, origin: 'http://evil.example', 'content-type': 'application/json' },
  }), 403);

  // A page of another local server, which the cookie reaches since ports do not part sites.
  const evil = http.createServer((_, answer) => {
    answer.setHeader('content-type', 'text/html');
    answer.end('<!doctype html><title>evil</title>');
  });
  await new Promise((r) => evil.listen(0, '127.0.0.1', r));
  cleanups.push(() => evil.close());
  const stranger = await page.browser().newPage();
  await stranger.goto(`http://127.0.0.1:${evil.address().port}/`);
  const outcomes = await stranger.evaluate(async (api, body) => {
    const tries = [
      fetch(`${api}/api/assign`, { method: 'POST', credentials: 'include', mode: 'no-cors', body,
        headers: { 'content-type': 'text/plain' } }),
      fetch(`${api}/api/assign`, { method: 'POST', credentials: 'include', body,
        headers: { 'content-type': 'application/json', 'x-ombrelo-token': 'guess' } }),
      fetch(`${api}/api/session`, { credentials: 'include' }),
    ];
    return Promise.all(tries.map((t) => t.then((r) => (r.type === 'opaque' ? 'opaque' : r.status), () => 'blocked')));
  }, `http://127.0.0.1:${port}`, change);
  // Blocked by the browser, or sent blind and refused by the server: never read.
  for (const outcome of outcomes) assert.ok(outcome === 'blocked' || outcome === 'opaque', String(outcomes));
  await stranger.close();
  assert.equal(cli('explain', String(target[0]), '--json'), before, 'nothing changed');
}

async function main() {
  prepareDatabase();
  const link = await serveWindow();
  const port = Number(new URL(link).port);
  const browser = await launchChromium({ args: ['--lang=fr-FR'] });
  cleanups.push(() => browser.close());
  const page = await browser.newPage();
  await page.setViewport({ width: 1280, height: 900 });
  const problems = [];
  page.on('pageerror', (error) => problems.push(String(error)));
  page.on('console', (message) => { if (message.type() === 'error') problems.push(message.text()); });

  await page.goto(link);
  await pageReady(page, 'dashboard');
  assert.ok(!page.url().includes('token='), 'the token leaves the address bar');
  await screenshots(page);
  await totalsMatchTheCommandLine(page);
  await agentTokenOnDemand(page);
  await assignFromTheTimeline(page);
  await downloadAStatement(page);
  await strangersAreRefused(page, port);
  // The stranger's refused requests show in the console of its own page only.
  assert.deepEqual(problems, [], 'no script error on the window');
}

await run(main, 'window in the browser: all checks passed', cleanups, work);
