// The trend of one leaf: the last two minutes as a line, with a gap wherever there was no valid value.

import uPlot from './uPlot.esm.js';
import {element, setText} from './elements.js';

const shortest = 10;
const longest = 120;
const leastPause = 200;

const colour = (name) => getComputedStyle(document.body).getPropertyValue(name).trim();

/** Room above and below, also where all numbers are the same. */
function rangeOf(_plot, lowest, highest) {
  if (lowest === null || highest === null) {
    return [0, 1];
  }
  const room = highest > lowest ? (highest - lowest) * 0.1 : Math.max(1e-9, Math.abs(highest) * 0.1) || 1;
  return [lowest - room, highest + room];
}

const digits = (number) => String(Number(number.toPrecision(4)));

function axisTexts(_plot, numbers) {
  return numbers.map(digits);
}

function options(width, height) {
  const axis = {stroke: colour('--soft'), grid: {stroke: colour('--line'), width: 1}, ticks: {show: false}};
  return {
    width,
    height,
    padding: [8, 8, 0, 0],
    legend: {show: false},
    cursor: {show: false},
    select: {show: false},
    scales: {x: {time: true}, y: {range: rangeOf}},
    axes: [
      {...axis, space: 70, size: 24, values: [[1, '{HH}:{mm}:{ss}', null, null, null, null, null, null, 1]]},
      {...axis, space: 28, size: 58, values: axisTexts},
    ],
    series: [{}, {stroke: colour('--trend'), width: 2, spanGaps: false, points: {show: false}}],
  };
}

export class Trend {
  #plant;
  #leaf;
  #height;
  #room = element('div', {className: 'plot', role: 'img'});
  #note = element('p', {className: 'plot-note'});
  #plot = null;
  #drawnAt = 0;
  #timer = 0;
  #size = new ResizeObserver(() => this.#fit());
  #dark = matchMedia('(prefers-color-scheme: dark)');
  #make = () => this.#makePlot();

  /** What to put on the page. */
  element = element('div', {className: 'trend'}, this.#room, this.#note);

  constructor(plant, leaf, height) {
    this.#plant = plant;
    this.#leaf = leaf;
    this.#height = height;
    this.#room.setAttribute('aria-label', `Trend of ${leaf.url}, the last two minutes`);
    plant.history.watch(leaf.index);
    this.#size.observe(this.#room);
    this.#dark.addEventListener('change', this.#make);
  }

  /** Draws soon; a trend is drawn five times a second at the most. */
  draw() {
    if (!this.#timer) {
      const pause = Math.max(0, this.#drawnAt + leastPause - performance.now());
      this.#timer = setTimeout(() => this.#drawNow(), pause);
    }
  }

  end() {
    clearTimeout(this.#timer);
    this.#size.disconnect();
    this.#dark.removeEventListener('change', this.#make);
    this.#plot?.destroy();
    this.#plot = null;
  }

  #fit() {
    const width = this.#room.clientWidth;
    if (this.#plot && this.#plot.width !== width) {
      this.#plot.setSize({width, height: this.#height});
    } else if (!this.#plot && width > 0) {
      this.#makePlot();
    }
  }

  #makePlot() {
    this.#plot?.destroy();
    this.#plot = new uPlot(options(this.#room.clientWidth, this.#height), [[], []], this.#room);
    this.draw();
  }

  #drawNow() {
    this.#timer = 0;
    this.#drawnAt = performance.now();
    const now = this.#plant.now();
    const [times, numbers] = this.#plant.history.between(this.#leaf.index, now - longest, now);
    if (this.#plot) {
      const from = times.length > 0 ? Math.min(times[0], now - shortest) : now - shortest;
      this.#plot.setData([times, numbers], false);
      this.#plot.setScale('x', {min: from, max: Math.max(now, from + shortest)});
    }
    const known = numbers.filter((number) => number !== null);
    setText(this.#note, known.length === 0 ? 'no valid value yet'
      : `lowest ${digits(Math.min(...known))} · highest ${digits(Math.max(...known))}`);
  }
}
