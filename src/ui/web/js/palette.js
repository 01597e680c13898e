// Palette words from the tracker ("teal", "carmine"…) as colours that read on light and dark backgrounds.
const COLOURS = {
  teal: '#2A9D8F', turquoise: '#2FB0A5', cyan: '#2BA3C4', sky: '#4A9FDB', blue: '#3B7DD8', navy: '#3D5A99',
  indigo: '#5B5FC7', violet: '#7C5CC4', purple: '#8E57B8', lavender: '#9A86D6', magenta: '#C245A6',
  pink: '#D9578A', rose: '#DE5F7D', carmine: '#C92B55', crimson: '#C0263F', red: '#D64545', coral: '#EB6B58',
  peach: '#EE8B62', orange: '#E07A2E', amber: '#DE9B1F', gold: '#C9A227', yellow: '#D4AA2A', sand: '#C4A46E',
  olive: '#8A8F3A', lime: '#84AE36', green: '#4C9A52', mint: '#45B58D', brown: '#9A6B4A', slate: '#66758C',
  gray: '#8A8490', grey: '#8A8490', silver: '#A3A0A8', black: '#4A464F', white: '#BDB8C0',
};

export const NEUTRAL = '#8A8490';

export function colour(name) {
  if (!name) return NEUTRAL;
  const key = String(name).trim().toLowerCase();
  if (/^#[0-9a-f]{3,8}$/.test(key)) return key;
  if (COLOURS[key]) return COLOURS[key];
  // Unknown words still get a stable, distinct hue.
  let hash = 0;
  for (const char of key) hash = (hash * 31 + char.codePointAt(0)) % 360;
  return `hsl(${hash} 52% 50%)`;
}
