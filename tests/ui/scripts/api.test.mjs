import test from 'node:test';
import assert from 'node:assert/strict';
import { query } from '../../../src/ui/web/js/api.js';

// The window server reads "+" as a space and %XX as UTF-8 bytes, as URLSearchParams does.
const back = (text) => Object.fromEntries(new URLSearchParams(text.replace(/^\?/, '')));

test('a query string leaves out absent and empty values but keeps zero and false', () => {
  assert.equal(query(), '');
  assert.equal(query({}), '');
  assert.equal(query({ a: undefined, b: null, c: '' }), '');
  assert.equal(query({ date: '2024-03-31', client: '', status: null }), '?date=2024-03-31');
  assert.equal(query({ offset: 0, billable: false, limit: 50 }), '?offset=0&billable=false&limit=50');
});

test('lists are sent as one comma-separated value', () => {
  assert.deepEqual(back(query({ ids: [3, 14, 15] })), { ids: '3,14,15' });
  assert.deepEqual(back(query({ ids: ['only'] })), { ids: 'only' });
});

test('values are encoded so that spaces, separators and accents arrive intact', () => {
  assert.equal(query({ query: 'café & thé' }), '?query=caf%C3%A9+%26+th%C3%A9');
  const awkward = { query: 'C++ a=b&c #1 100% é', 'the key': 'ü/?' };
  const text = query(awkward);
  // One separator only: the "&" inside the value is escaped, and so is "+", which would read as a space.
  assert.equal(text.split('&').length, 2);
  assert.match(text, /C%2B%2B/);
  assert.doesNotMatch(text, /[ #]/);
  assert.deepEqual(back(text), awkward);
});
