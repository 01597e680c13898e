import test from 'node:test';
import assert from 'node:assert/strict';
import { pairs, projectChoices, yesNo } from '../../../src/ui/web/js/widgets.js';
import { fold } from '../../../src/ui/web/js/dom.js';
import { setLanguage } from '../../../src/ui/web/js/i18n.js';

test('choice lists accept plain values or records and keep falsy values such as 0', () => {
  assert.deepEqual(pairs(['a', 'b'], (value) => value.toUpperCase()), [['a', 'A'], ['b', 'B']]);
  assert.deepEqual(pairs([{ value: 0, label: 'Zero' }, { id: 7, name: 'Seven' }, { value: 'x' }, { id: 0 }]),
    [[0, 'Zero'], [7, 'Seven'], ['x', 'x'], [0, '0']]);
  assert.deepEqual(pairs(), []);
});

test('project choices offer the placeholder, then "no project", then the projects by label', () => {
  setLanguage('en');
  const projects = [{ id: 4, name: 'site', label: 'Acme › site' }, { id: 9, name: 'Notes' }];
  assert.deepEqual(projectChoices(projects), [['none', 'No project'], [4, 'Acme › site'], [9, 'Notes']]);
  assert.deepEqual(projectChoices([], { noneValue: '', placeholder: 'Choose' }), [['', 'Choose'], ['', 'No project']]);
  assert.equal(yesNo(1), 'Yes');
  setLanguage('fr');
  assert.equal(yesNo(0), 'Non');
});

test('the switcher and rule filter compare texts without case or accents', () => {
  const cases = [['Élise Café', 'elise cafe'], ['ÇA RÉUSSIT', 'ca reussit'], ['naïve', 'naive'],
    ['Ångström', 'angstrom'], [null, ''], [undefined, ''], [42, '42']];
  for (const [text, expected] of cases) assert.equal(fold(text), expected, String(text));
  // What one types also folds, so a plain "ete" finds "Été 2024" and the reverse.
  assert.ok(fold('Été 2024 – Équipe').includes(fold('ETE')));
  assert.ok(fold('ete').includes(fold('Été')));
});
