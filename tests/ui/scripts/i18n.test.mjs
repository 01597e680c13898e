import test from 'node:test';
import assert from 'node:assert/strict';
import { readFileSync, readdirSync } from 'node:fs';
import { setLanguage, language, locale, t, textIn, labelFor } from '../../../src/ui/web/js/i18n.js';
import { number } from '../../../src/ui/web/js/format.js';

const jsDir = new URL('../../../src/ui/web/js/', import.meta.url);
const source = (name) => readFileSync(new URL(name, jsDir), 'utf8');
// The table is private to the module: its keys are read from the source, its texts through textIn.
const keys = [...source('i18n.js').matchAll(/^\s*'([\w.]+)':\s*\[/gm)].map((match) => match[1]);
const placeholders = (text) => [...text.matchAll(/\{(\w+)\}/g)].map((match) => match[1]).sort();

test('every key has a French and an English text with the same placeholders and plural forms', () => {
  assert.ok(keys.length > 100);
  // A repeated key in an object literal silently replaces the first text.
  assert.deepEqual(keys.filter((key, i) => keys.indexOf(key) !== i), []);
  for (const key of keys) {
    const fr = textIn('fr', key);
    const en = textIn('en', key);
    for (const text of [fr, en]) assert.ok(typeof text === 'string' && text.trim() && text !== key, key);
    const frForms = fr.split('|');
    const enForms = en.split('|');
    assert.equal(frForms.length, enForms.length, `${key}: plural forms`);
    assert.ok(frForms.length <= 2, key);
    frForms.forEach((form, i) => assert.deepEqual(placeholders(form), placeholders(enForms[i]), `${key}: placeholders`));
    if (frForms.length === 2) assert.deepEqual(placeholders(frForms[1]).filter((n) => n === 'count'), ['count'], key);
  }
});

test('every key the pages name literally exists', () => {
  const known = new Set(keys);
  const missing = [];
  for (const file of readdirSync(jsDir).filter((name) => name.endsWith('.js'))) {
    for (const [, key] of source(file).matchAll(/\bt\(\s*'([^']+)'/g)) if (!known.has(key)) missing.push(`${file}: ${key}`);
    for (const [, group] of source(file).matchAll(/labelFor\(\s*'(\w+)'/g)) {
      if (!keys.some((key) => key.startsWith(`${group}.`))) missing.push(`${file}: ${group}.*`);
    }
  }
  assert.deepEqual(missing, []);
});

test('counts choose the singular text for exactly one, with formatted numbers too', () => {
  const cases = {
    fr: [[0, '0 activités'], [1, 'une activité'], [2, '2 activités'], [11, '11 activités'], [1234, '1 234 activités']],
    en: [[0, '0 activities'], [1, 'one activity'], [2, '2 activities'], [11, '11 activities'], [1234, '1,234 activities']],
  };
  for (const [lang, list] of Object.entries(cases)) {
    setLanguage(lang);
    for (const [count, expected] of list) {
      // Pages pass counts already formatted, thousands separators included.
      const text = t('common.activities', { count: number(count) }).replace(/[\u00a0\u202f]/g, ' ');
      assert.equal(text, expected, `${lang} ${count}`);
      assert.equal(t('common.activities', { count }).startsWith(lang === 'fr' ? 'une' : 'one'), count === 1);
    }
  }
  setLanguage('fr');
  assert.equal(t('reports.marked', { count: 0 }), '0 activités marquées.');
  assert.equal(t('projects.projectCount', { count: '1' }), 'un projet');
  // Without a count both forms stay, as the table holds them.
  assert.equal(t('common.activities'), 'une activité|{count} activités');
  // textIn follows the language asked for, not the session's.
  assert.equal(textIn('en', 'rules.previewCount', { count: 1, time: '5 min' }), 'Last 14 days: one activity, 5 min');
});

test('placeholders take their values literally and unknown ones stay visible', () => {
  setLanguage('fr');
  assert.equal(t('projects.saved', { name: 'R&D $& {name} $1' }), 'Projet « R&D $& {name} $1 » enregistré.');
  assert.equal(t('error.status', { status: 0 }), 'Erreur inattendue du serveur (0).');
  assert.equal(t('error.status'), 'Erreur inattendue du serveur ({status}).');
  assert.equal(t('focus.running', { start: '09:00', end: '09:25', extra: 'x' }), 'Session en cours : 09:00 → 09:25');
});

test('unknown keys and words show as they are', () => {
  for (const lang of ['fr', 'en']) {
    setLanguage(lang);
    assert.equal(t('no.such.key'), 'no.such.key');
    assert.equal(textIn(lang, 'no.such.key', { count: 2 }), 'no.such.key');
    assert.equal(labelFor('period', 'fortnight'), 'fortnight');
    assert.equal(labelFor('period', null), '');
    assert.equal(labelFor('status', 0), '0');
  }
  setLanguage('fr');
});

test('switching language changes texts, labels and locale; anything but English means French', () => {
  const cases = [['en', 'en', 'en-GB', 'Last week'], ['fr', 'fr', 'fr-FR', 'La semaine dernière'],
    ['de', 'fr', 'fr-FR', 'La semaine dernière'], [undefined, 'fr', 'fr-FR', 'La semaine dernière'],
    ['EN', 'fr', 'fr-FR', 'La semaine dernière']];
  for (const [asked, lang, loc, label] of cases) {
    setLanguage(asked);
    assert.equal(language(), lang, String(asked));
    assert.equal(locale(), loc);
    assert.equal(labelFor('period', 'last_week'), label);
    assert.equal(t('nav.settings'), lang === 'en' ? 'Settings' : 'Réglages');
  }
  setLanguage('fr');
});
