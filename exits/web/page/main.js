// Puts the page together: reads the description once, then follows the stream.

import {readDescription, Refusal} from './api.js';
import {Configuration} from './configuration.js';
import {connect} from './connection.js';
import {Details} from './details.js';
import {byId, setText} from './elements.js';
import {PinList, showPins} from './pins.js';
import {Plant} from './plant.js';
import {showStatus} from './status.js';
import {Tree} from './tree.js';
import {WriteDialog} from './write.js';

const pauseBeforeNext = 3000;
const pause = (time) => new Promise((done) => setTimeout(done, time));

async function untilDescribed() {
  for (;;) {
    try {
      return await readDescription();
    } catch (refusal) {
      if (!(refusal instanceof Refusal)) {
        throw refusal;
      }
      document.body.dataset.connection = 'lost';
      setText(byId('connection'), '✕ no description');
      setText(byId('banner'), `✕ ${refusal.message} ${refusal.cure}`);
      byId('banner').hidden = false;
      await pause(pauseBeforeNext);
    }
  }
}

function showDescription({description, version, region, writing}) {
  document.title = `${description} – Tessel`;
  setText(byId('title'), description);
  const access = writing ? 'writing with a token' : 'reading only';
  setText(byId('about'), `Region ${region} · ${access} · tessel-web ${version}`);
}

function followViews(plant) {
  const views = {values: byId('show-values'), configuration: byId('show-configuration')};
  const configuration = new Configuration();
  const show = (wanted) => {
    Object.entries(views).forEach(([view, button]) => {
      byId(view).hidden = view !== wanted;
      button.setAttribute('aria-pressed', view === wanted);
    });
    document.querySelector('.skip').hash = wanted === 'values' ? 'tree' : 'configuration-table';
  };
  views.values.onclick = () => show('values');
  views.configuration.onclick = () => {
    show('configuration');
    configuration.read();
  };
  byId('views').hidden = !plant.description.configuration;
}

function followSearch(tree) {
  const search = byId('search');
  const onlyFaulty = byId('only-faulty');
  const filter = () => tree.filter(search.value, onlyFaulty.checked);
  search.oninput = filter;
  onlyFaulty.onchange = filter;
  search.onkeydown = (event) => {
    if (event.key === 'ArrowDown' || event.key === 'Enter') {
      event.preventDefault();
      byId('tree').focus();
    }
  };
  addEventListener('keydown', (event) => {
    const isTyping = event.target.closest?.('input, select, textarea, dialog');
    if (event.key === '/' && !isTyping && !event.ctrlKey && !event.altKey && !event.metaKey) {
      event.preventDefault();
      const inSight = byId('configuration').hidden ? search : byId('configuration-search');
      inSight.focus();
      inSight.select();
    }
  });
}

const description = await untilDescribed();
const plant = new Plant(description);
showDescription(description);
const dialog = new WriteDialog(plant);
const pins = new PinList(description.region);
const details = new Details(plant, pins, (leaf) => dialog.open(leaf));
const open = (leaf) => details.open(leaf);
followSearch(new Tree(plant, pins, {open, write: (leaf) => dialog.open(leaf)}));
showPins(plant, pins, open);
showStatus(plant);
followViews(plant);

const reloadedFor = 'tessel-web reloaded for';
let isOther = false;

connect((message) => {
  const {fingerprint} = message;
  if (fingerprint) {
    isOther = fingerprint !== description.fingerprint;
    if (!isOther) {
      sessionStorage.removeItem(reloadedFor);
    } else if (sessionStorage.getItem(reloadedFor) !== fingerprint) {
      // Other leaves than those on the page: everything is made anew, with what is kept in the browser. Once in a
      // row for each description, so that a server that contradicts itself does not have the page loaded for ever.
      sessionStorage.setItem(reloadedFor, fingerprint);
      location.reload();
      return;
    }
  }
  // A value of other leaves must not stand under the name of one of these.
  plant.take(isOther && message.kind !== 'lost'
    ? {kind: 'gone', reason: 'the server has another description than it sends; load this page anew'} : message);
});
