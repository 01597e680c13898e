// What the browser tests and the window's benchmark share: Debian's Chromium
// launched quietly (this machine's network is closed, so nothing in the
// background may try to reach it), waiting on a condition, and a run that
// cleans up after itself whatever happens.
import puppeteer from 'puppeteer-core';
import { rmSync } from 'node:fs';

export { puppeteer };

const QUIET = ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
  '--disable-component-update', '--disable-sync'];

// Headless Chromium ($CHROMIUM, else Debian's) with `options`; `options.args` come after the quiet ones.
export function launchChromium({ args = [], ...options } = {}) {
  return puppeteer.launch({
    executablePath: process.env.CHROMIUM || '/usr/bin/chromium',
    headless: true,
    ...options,
    args: [...QUIET, ...args],
  });
}

// Polls `condition` every 50 ms until it gives something true, and returns
// that; fails with `what` once `limitMs` have passed.
export async function until(condition, what, limitMs) {
  const deadline = Date.now() + limitMs;
  for (;;) {
    const value = await condition();
    if (value) return value;
    if (Date.now() > deadline) throw new Error(`timed out: ${what}`);
    await new Promise((r) => setTimeout(r, 50));
  }
}

// Runs `main`, says `passed` when it succeeds, and always runs the cleanups
// (last first) and removes `work`.
export async function run(main, passed, cleanups, work) {
  try {
    await main();
    console.log(passed);
  } catch (error) {
    console.error(error);
    process.exitCode = 1;
  } finally {
    for (const cleanup of cleanups.reverse()) {
      try { await cleanup(); } catch { /* already gone */ }
    }
    rmSync(work, { recursive: true, force: true });
  }
}
