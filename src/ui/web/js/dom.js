// Element builders: text always goes through textContent, so data can never become markup.

let nextId = 0;

export function h(tag, props = {}, ...children) {
  const node = document.createElement(tag);
  for (const [key, value] of Object.entries(props)) {
    if (value === undefined || value === null || value === false) continue;
    if (key === 'class') node.className = value;
    else if (key === 'text') node.textContent = value;
    else if (key === 'value') node.value = String(value);
    else if (key === 'data') Object.assign(node.dataset, value);
    else if (key === 'on') for (const [type, fn] of Object.entries(value)) node.addEventListener(type, fn);
    else if (key in node && typeof value !== 'string') node[key] = value;
    else node.setAttribute(key, value === true ? '' : String(value));
  }
  append(node, children);
  return node;
}

export function append(node, children) {
  for (const child of children.flat(Infinity)) {
    if (child === null || child === undefined || child === false) continue;
    node.append(child instanceof Node ? child : document.createTextNode(String(child)));
  }
  return node;
}

export function replace(node, ...children) {
  node.replaceChildren();
  return append(node, children);
}

export function uid(prefix = 'f') {
  nextId += 1;
  return `${prefix}-${nextId}`;
}

// A labelled control: the label points at the control through a generated id.
export function field(label, control, hint) {
  if (!control.id) control.id = uid();
  const parts = [h('label', { for: control.id, text: label }), control];
  if (hint) {
    const hintNode = h('small', { class: 'hint', id: uid('hint'), text: hint });
    control.setAttribute('aria-describedby', hintNode.id);
    parts.push(hintNode);
  }
  return h('div', { class: 'field' }, parts);
}

export function option(value, label, selected = false) {
  return h('option', { value: value === null ? '' : String(value), text: label, selected });
}

export function select(props, options, selectedValue) {
  const node = h('select', props);
  for (const [value, label] of options) {
    node.append(option(value, label, String(value ?? '') === String(selectedValue ?? '')));
  }
  return node;
}

export function messageArea(extraClass = '') {
  const node = h('p', { class: `message ${extraClass}`.trim(), role: 'status', 'aria-live': 'polite' });
  node.hidden = true;
  return node;
}

export function showMessage(node, text, kind = 'ok') {
  node.textContent = text;
  node.classList.toggle('is-error', kind === 'error');
  node.classList.toggle('is-ok', kind === 'ok');
  node.hidden = !text;
}

export function debounce(fn, delay) {
  let timer = 0;
  return (...args) => {
    clearTimeout(timer);
    timer = setTimeout(() => fn(...args), delay);
  };
}

function focusSelector(node) {
  for (const attr of ['name', 'data-action', 'data-ids', 'id']) {
    const value = node.getAttribute(attr);
    if (value) return `${node.tagName.toLowerCase()}[${attr}="${CSS.escape(value)}"]`;
  }
  return null;
}

// Re-renders a region and gives keyboard focus back to the equivalent control.
export function keepingFocus(root, render) {
  const active = document.activeElement;
  const selector = active && root.contains(active) ? focusSelector(active) : null;
  render();
  if (selector) root.querySelector(selector)?.focus({ preventScroll: true });
}

export function fold(text) {
  return String(text ?? '').normalize('NFD').replace(/\p{Diacritic}/gu, '').toLowerCase();
}
