// The error states as people see them: each has a symbol, a word and a kind, which chooses the colour. None of the
// three is needed to tell two states apart, so the page reads without colours, and without the symbols' font.

const rows = [
  ['valid', '✓', 'good', 'the value can be trusted'],
  ['underrange', '▼', 'range', 'the measurement is below the measuring range'],
  ['overrange', '▲', 'range', 'the measurement is above the measuring range'],
  ['no-input', '○', 'failed', 'nothing has been measured yet, or the input is missing'],
  ['division-by-zero', '÷', 'failed', 'a calculation divided by zero'],
  ['incorrect-mathematic', '≠', 'failed', 'a calculation has no result'],
  ['invalid-temperature', '⊘', 'failed', 'a temperature that cannot be'],
  ['sensor-short-circuit', '↯', 'failed', "the sensor's wires touch"],
  ['sensor-breakage', '✕', 'failed', 'the sensor or its wire is broken'],
  ['timeout', '◷', 'failed', 'the source has not answered in time'],
];

export const states = rows.map(([word, symbol, kind, meaning]) => ({word, symbol, kind, meaning}));

const notRead = {word: 'not read', symbol: '…', kind: 'none', meaning: 'no set has come yet'};

/** The state of this number; null for a leaf that has not been read yet. */
export function stateOf(code) {
  if (code === null || code === undefined) {
    return notRead;
  }
  return states[code] ?? {word: `state-${code}`, symbol: '?', kind: 'failed', meaning: 'no error state of the format'};
}

export const isValid = (code) => code === 0;
