// The tracker's JSON API: every call carries the session cookie and the page's token (cookies
// reach every port of 127.0.0.1, so the cookie alone opens nothing); server errors become Errors.
import { t } from './i18n.js';

const TOKEN_KEY = 'ombrelo-token';

export class ApiError extends Error {
  constructor(message, status) {
    super(message);
    this.status = status;
  }
}

export function query(params = {}) {
  const search = new URLSearchParams();
  for (const [key, value] of Object.entries(params)) {
    if (value === undefined || value === null || value === '') continue;
    search.set(key, Array.isArray(value) ? value.join(',') : String(value));
  }
  const text = search.toString();
  return text ? `?${text}` : '';
}

// The opening address carries the token in its fragment (#token=…&page=…), which no server sees;
// it is kept for this tab and removed from the address bar at once. Returns the page asked for.
export function takeTokenFromAddress() {
  const fragment = new URLSearchParams(location.hash.replace(/^#/, ''));
  const token = fragment.get('token');
  if (!token) return null;
  sessionStorage.setItem(TOKEN_KEY, token);
  const page = fragment.get('page') || 'dashboard';
  history.replaceState(null, '', `#${page}`);
  return page;
}

async function send(path, options) {
  const headers = { ...options.headers, 'X-Ombrelo-Token': sessionStorage.getItem(TOKEN_KEY) || '' };
  let response;
  try {
    response = await fetch(path, { credentials: 'same-origin', cache: 'no-store', ...options, headers });
  } catch {
    throw new ApiError(t('error.network'), 0);
  }
  if (response.status === 401) {
    // Every page reacts to an expired session the same way, whatever it was doing.
    document.dispatchEvent(new CustomEvent('ombrelo:expired'));
    throw new ApiError(t('error.session'), 401);
  }
  if (!response.ok) {
    const body = await response.json().catch(() => null);
    const text = body && typeof body.error === 'string' ? body.error : t('error.status', { status: response.status });
    throw new ApiError(text, response.status);
  }
  return response;
}

async function request(path, options) {
  const response = await send(path, options);
  return response.json().catch(() => null);
}

export function get(path, params) {
  return request(path + query(params), { method: 'GET', headers: { Accept: 'application/json' } });
}

export function post(path, body) {
  return request(path, {
    method: 'POST',
    headers: { 'Content-Type': 'application/json', Accept: 'application/json' },
    body: JSON.stringify(body ?? {}),
  });
}

// A file the server sends as an attachment, saved under the name it gives.
export async function download(path, params) {
  const response = await send(path + query(params), { method: 'GET' });
  const disposition = response.headers.get('Content-Disposition') || '';
  const name = /filename="([^"]*)"/.exec(disposition)?.[1] || 'ombrelo';
  const url = URL.createObjectURL(await response.blob());
  const link = document.createElement('a');
  link.href = url;
  link.download = name;
  document.body.append(link);
  link.click();
  link.remove();
  setTimeout(() => URL.revokeObjectURL(url), 60000);
}

export function openSession() {
  return get('/api/session');
}
