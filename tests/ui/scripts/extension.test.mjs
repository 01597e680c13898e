import test from 'node:test';
import assert from 'node:assert/strict';
import { createHash } from 'node:crypto';
import { readFileSync } from 'node:fs';

const root = new URL('../../../', import.meta.url);
const read = (path) => readFileSync(new URL(path, root), 'utf8');

// Chromium names an unpacked extension after the key in its manifest; the
// host's manifest must allow exactly that name, or the browser refuses to start it.
test('the extension id the host allows is the one its key gives', () => {
  const { key } = JSON.parse(read('src/browser/extension/manifest.json'));
  const digest = createHash('sha256').update(Buffer.from(key, 'base64')).digest('hex').slice(0, 32);
  const id = [...digest].map((c) => String.fromCharCode(97 + parseInt(c, 16))).join('');
  assert.match(read('src/app/commands/Browser.cpp'), new RegExp(`chromiumExtensionID = "${id}"`));
});

test('the extension asks for nothing beyond tabs and its host', () => {
  const manifest = JSON.parse(read('src/browser/extension/manifest.json'));
  assert.deepEqual(manifest.permissions, ['tabs', 'nativeMessaging']);
  assert.equal(manifest.host_permissions, undefined);
  assert.equal(manifest.content_scripts, undefined);
  assert.equal(manifest.browser_specific_settings.gecko.id, 'browser@ombrelo.fr');
});
