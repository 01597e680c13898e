// The time from asking for a page of the window to its being usable (its data
// shown: main#page[data-ready]), in headless Chromium, cold (first load of the
// page) then warm (median of 7 reloads), with the browser tests' launcher and
// packages (scripts/install-test-clients.sh).
//
//   node bench/window-page.mjs PORT COOKIE TOKEN PAGE...
import { launchChromium } from '../tests/ui/browser/support.mjs';

const [port, cookie, token, ...pages] = process.argv.slice(2);
const origin = `http://127.0.0.1:${port}`;
const browser = await launchChromium();
try {
  const page = await browser.newPage();
  await page.setViewport({ width: 1280, height: 900 });
  const [name, value] = cookie.split('=');
  await page.setCookie({ name, value, url: origin });
  let loads = 0;
  // A new query each time makes every load a whole one, not a change of fragment.
  const open = async (wanted) => {
    loads += 1;
    const start = performance.now();
    await page.goto(`${origin}/?load=${loads}#token=${token}&page=${wanted}`);
    await page.waitForSelector('main#page[data-ready="true"]', { timeout: 30000 });
    return performance.now() - start;
  };
  for (const wanted of pages) {
    const cold = await open(wanted);
    const warm = [];
    for (let i = 0; i < 7; i += 1) warm.push(await open(wanted));
    warm.sort((a, b) => a - b);
    const median = warm[3];
    console.log(`page ${wanted} usable: cold ${cold.toFixed(0)} ms, warm median ${median.toFixed(0)} ms ` +
      `(target < 500 ms: ${median < 500 ? 'ok' : 'MISSED'})`);
  }
} finally {
  await browser.close();
}
