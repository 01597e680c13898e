import test from 'node:test';
import assert from 'node:assert/strict';
import { colour, NEUTRAL } from '../../../src/ui/web/js/palette.js';
import { textIn } from '../../../src/ui/web/js/i18n.js';

const hex = /^#[0-9a-fA-F]{6}$/;

test('palette words get fixed colours whatever their case or surrounding spaces', () => {
  // The colour choices the window offers must all be real palette entries, not computed hues.
  for (const word of ['teal', 'carmine', 'yellow', 'lavender', 'green', 'peach', 'blue', 'orange', 'purple', 'red', 'pink', 'gray', 'indigo']) {
    assert.notEqual(textIn('en', `colour.${word}`), `colour.${word}`, word);
    assert.match(colour(word), hex, word);
    assert.equal(colour(` ${word.toUpperCase()} `), colour(word), word);
  }
  assert.equal(colour('grey'), colour('gray'));
  assert.notEqual(colour('teal'), colour('carmine'));
});

test('missing colours are neutral and explicit hex colours pass through', () => {
  for (const nothing of [undefined, null, '']) assert.equal(colour(nothing), NEUTRAL);
  assert.equal(colour('#abc'), '#abc');
  assert.equal(colour('#12AB9F'), '#12ab9f');
});

test('unknown words get a stable hue of their own', () => {
  const words = ['client-a', 'client-b', 'mauve-2', 'x'];
  const hues = words.map((word) => {
    const value = colour(word);
    assert.equal(colour(word), value, word);
    const match = /^hsl\((\d+) 52% 50%\)$/.exec(value);
    assert.ok(match, value);
    assert.ok(Number(match[1]) >= 0 && Number(match[1]) < 360, value);
    return value;
  });
  assert.equal(new Set(hues).size, words.length);
  assert.equal(colour('Client-A'), colour('client-a'));
});
