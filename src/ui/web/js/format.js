// Display formats: durations, amounts, days and clock times in the session's language.
import { locale } from './i18n.js';

let currencyCode = 'EUR';

export function setCurrency(code) {
  if (code) currencyCode = code;
}

export function currency() {
  return currencyCode;
}

// 185 → "3 h 05"; under an hour "45 min".
export function minutes(value) {
  const total = Math.round(Number(value) || 0);
  const sign = total < 0 ? '−' : '';
  const abs = Math.abs(total);
  if (abs < 60) return `${sign}${abs} min`;
  return `${sign}${Math.floor(abs / 60)} h ${String(abs % 60).padStart(2, '0')}`;
}

export function amount(value, code = currencyCode) {
  const number = Number(value) || 0;
  try {
    return new Intl.NumberFormat(locale(), { style: 'currency', currency: code || currencyCode }).format(number);
  } catch {
    return `${number.toFixed(2)} ${code || currencyCode}`;
  }
}

export function number(value, digits = 0) {
  return new Intl.NumberFormat(locale(), { maximumFractionDigits: digits }).format(Number(value) || 0);
}

// Days are handled at noon UTC so that daylight saving never shifts them.
function parseDay(day) {
  const [y, m, d] = String(day).split('-').map(Number);
  return new Date(Date.UTC(y, m - 1, d, 12));
}

function isoDay(date) {
  return date.toISOString().slice(0, 10);
}

export function addDays(day, count) {
  const date = parseDay(day);
  date.setUTCDate(date.getUTCDate() + count);
  return isoDay(date);
}

export function isDay(text) {
  if (!/^\d{4}-\d{2}-\d{2}$/.test(String(text))) return false;
  const date = parseDay(text);
  // Date.UTC rolls "02-30" over into March: only a day that comes back unchanged exists.
  return !Number.isNaN(date.getTime()) && isoDay(date) === text;
}

export function localDay(date = new Date()) {
  const pad = (n) => String(n).padStart(2, '0');
  return `${date.getFullYear()}-${pad(date.getMonth() + 1)}-${pad(date.getDate())}`;
}

export function longDay(day) {
  return new Intl.DateTimeFormat(locale(), { weekday: 'long', day: 'numeric', month: 'long', year: 'numeric', timeZone: 'UTC' })
    .format(parseDay(day));
}

export function shortDay(day) {
  return new Intl.DateTimeFormat(locale(), { weekday: 'short', day: 'numeric', month: 'short', timeZone: 'UTC' })
    .format(parseDay(day));
}

export function dateTime(text) {
  if (!text) return '';
  const value = String(text);
  if (!value.includes('T')) return value;
  const [day, clockPart] = value.split('T');
  return `${shortDay(day)} ${clockPart.slice(0, 5)}`;
}

export function clockToMinutes(clock) {
  const [hours, mins] = String(clock).split(':').map(Number);
  return hours * 60 + mins;
}

export function minutesToClock(total) {
  const pad = (n) => String(n).padStart(2, '0');
  return `${pad(Math.floor(total / 60) % 24)}:${pad(total % 60)}`;
}
