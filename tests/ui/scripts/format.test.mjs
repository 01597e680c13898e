import test from 'node:test';
import assert from 'node:assert/strict';
import {
  minutes, amount, setCurrency, currency, addDays, isDay, localDay, longDay, shortDay, dateTime,
  clockToMinutes, minutesToClock,
} from '../../../src/ui/web/js/format.js';
import { setLanguage } from '../../../src/ui/web/js/i18n.js';

// Intl separates French thousands with U+202F and the symbol with U+00A0; older ICU used U+00A0 for both.
const spaces = (text) => text.replace(/[\u00a0\u202f]/g, ' ');

// Day arithmetic must not depend on the zone the browser runs in; Node honours TZ changes at run time.
function inZones(check) {
  const saved = process.env.TZ;
  try {
    for (const zone of ['Europe/Paris', 'America/New_York', 'Pacific/Kiritimati', 'Pacific/Pago_Pago', 'UTC']) {
      process.env.TZ = zone;
      check(zone);
    }
  } finally {
    if (saved === undefined) delete process.env.TZ;
    else process.env.TZ = saved;
  }
}

test('durations read as minutes under an hour, then hours and two-digit minutes, in both languages', () => {
  for (const lang of ['fr', 'en']) {
    setLanguage(lang);
    const cases = [
      [0, '0 min'], [45, '45 min'], [59, '59 min'], [60, '1 h 00'], [185, '3 h 05'], [600, '10 h 00'],
      [6000, '100 h 00'], [44.4, '44 min'], [59.6, '1 h 00'], ['125', '2 h 05'],
      [-90, '−1 h 30'], [-5, '−5 min'], [-0.3, '0 min'],
      [null, '0 min'], [undefined, '0 min'], ['abc', '0 min'],
    ];
    for (const [value, expected] of cases) assert.equal(minutes(value), expected, `${lang} ${value}`);
  }
  setLanguage('fr');
});

test('amounts follow the language for separators and the symbol position, for every known currency', () => {
  const expected = {
    fr: { EUR: '1 234,50 €', USD: '1 234,50 $US', GBP: '1 234,50 £GB', CHF: '1 234,50 CHF', CAD: '1 234,50 $CA' },
    en: { EUR: '€1,234.50', USD: 'US$1,234.50', GBP: '£1,234.50', CHF: 'CHF 1,234.50', CAD: 'CA$1,234.50' },
  };
  for (const [lang, byCode] of Object.entries(expected)) {
    setLanguage(lang);
    for (const [code, text] of Object.entries(byCode)) assert.equal(spaces(amount(1234.5, code)), text, `${lang} ${code}`);
  }
  setLanguage('fr');
  assert.equal(spaces(amount(-12)), '-12,00 €');
  assert.equal(spaces(amount(0.004)), '0,00 €');
  assert.equal(spaces(amount('abc')), '0,00 €');
  // A code Intl refuses still shows the amount rather than breaking the page.
  assert.equal(amount(12.5, 'euro'), '12.50 euro');
});

test('the session currency becomes the default and an empty setting keeps the current one', () => {
  try {
    setLanguage('en');
    setCurrency('GBP');
    assert.equal(currency(), 'GBP');
    assert.equal(amount(3), '£3.00');
    setCurrency('');
    setCurrency(undefined);
    assert.equal(currency(), 'GBP');
    assert.equal(amount(3, null), '£3.00');
  } finally {
    setCurrency('EUR');
    setLanguage('fr');
  }
});

test('adding days crosses month, year and daylight-saving boundaries in any zone', () => {
  const cases = [
    ['2024-03-30', 1, '2024-03-31'], ['2024-03-31', 1, '2024-04-01'], ['2024-04-01', -1, '2024-03-31'],
    ['2024-10-26', 1, '2024-10-27'], ['2024-10-27', 1, '2024-10-28'], ['2024-10-28', -1, '2024-10-27'],
    ['2024-02-28', 1, '2024-02-29'], ['2023-02-28', 1, '2023-03-01'], ['2024-12-31', 1, '2025-01-01'],
    ['2025-01-01', -1, '2024-12-31'], ['2024-03-01', -30, '2024-01-31'], ['2024-01-01', 366, '2025-01-01'],
    ['2024-06-15', 0, '2024-06-15'],
  ];
  inZones((zone) => {
    for (const [day, count, expected] of cases) assert.equal(addDays(day, count), expected, `${zone} ${day} ${count}`);
    // A whole year day by day never skips nor repeats a day.
    let day = '2024-01-01';
    for (let i = 0; i < 366; i += 1) {
      const next = addDays(day, 1);
      assert.equal(addDays(next, -1), day, `${zone} ${day}`);
      assert.ok(next > day);
      day = next;
    }
    assert.equal(day, '2025-01-01');
  });
});

test('only existing days written YYYY-MM-DD are days', () => {
  for (const day of ['2024-02-29', '2023-12-31', '2024-03-31', '2024-10-27']) assert.equal(isDay(day), true, day);
  const wrong = [
    '2023-02-29', '2024-02-30', '2024-04-31', '2024-13-01', '2024-00-10', '2024-01-00', '2024-1-05',
    '24-01-05', '2024-01-05T00:00', ' 2024-01-05', 'abcd-ef-gh', '', null, undefined,
  ];
  for (const text of wrong) assert.equal(isDay(text), false, String(text));
});

test('the local day follows the zone the date is seen from, not UTC', () => {
  inZones((zone) => {
    assert.equal(localDay(new Date(2024, 2, 31, 0, 30)), '2024-03-31', zone);
    assert.equal(localDay(new Date(2024, 9, 27, 23, 59)), '2024-10-27', zone);
    assert.equal(localDay(new Date(2025, 0, 1, 0, 0)), '2025-01-01', zone);
  });
});

test('day names and date-times name the day asked for, with the clock time unshifted', () => {
  inZones((zone) => {
    setLanguage('fr');
    assert.match(longDay('2024-03-31'), /^dimanche,? 31 mars 2024$/, zone);
    assert.match(shortDay('2024-10-27'), /^dim\.? 27 oct\.?$/, zone);
    // 02:30 does not exist in Paris that night: the text is shown as sent, never converted.
    assert.equal(dateTime('2024-03-31T02:30:00'), `${shortDay('2024-03-31')} 02:30`, zone);
    setLanguage('en');
    assert.match(longDay('2024-03-31'), /^Sunday,? 31 March 2024$/, zone);
    assert.match(shortDay('2024-10-27'), /^Sun,? 27 Oct$/, zone);
  });
  setLanguage('fr');
  assert.equal(dateTime(''), '');
  assert.equal(dateTime(null), '');
  assert.equal(dateTime('2024-03-31'), '2024-03-31');
});

test('clock times and minutes of the day convert both ways', () => {
  const cases = [['00:00', 0], ['00:01', 1], ['09:30', 570], ['12:00', 720], ['23:59', 1439]];
  for (const [clock, total] of cases) {
    assert.equal(clockToMinutes(clock), total, clock);
    assert.equal(minutesToClock(total), clock, String(total));
  }
  assert.equal(clockToMinutes('09:30:45'), 570);
  for (let total = 0; total < 24 * 60; total += 7) assert.equal(clockToMinutes(minutesToClock(total)), total);
  // A focus session started late ends after midnight.
  assert.equal(minutesToClock(clockToMinutes('23:50') + 25), '00:15');
  assert.equal(minutesToClock(24 * 60), '00:00');
});
