// How things are as a whole: the connection, the age of the newest set, and how much is not valid.

import {byId, oncePerFrame, setText} from './elements.js';
import {clockText, durationText} from './value-text.js';

const oldAfter = 10;

const connections = {
  starting: '… connecting',
  waiting: '… waiting for values',
  live: '● live',
  gone: '✕ no values',
  lost: '✕ connection lost',
};

function bannerText(plant) {
  const since = plant.setTime ? ` The values below are of ${clockText(plant.setTime)}, and nobody renews them.` : '';
  if (plant.connection === 'lost') {
    return `✕ Connection lost: the server does not answer.${since} It is tried again every three seconds.`;
  }
  if (plant.connection === 'gone') {
    const reason = plant.reason ? `: ${plant.reason.replace(/\.$/, '')}` : '';
    return `✕ There are no values${reason}.${since} They come back by themselves.`;
  }
  return '';
}

function ageText(age, isLive) {
  if (age === null) {
    // Values without a time are those of a single buffer, which nobody publishes.
    return isLive ? 'of no known age' : 'nothing published yet';
  }
  return age >= oldAfter ? `⚠ no set for ${durationText(age)}` : `set ${durationText(age)} old`;
}

/** Shows them, and goes on doing so. */
export function showStatus(plant) {
  function drawAge() {
    const age = plant.age();
    setText(byId('age'), ageText(age, plant.isLive));
    byId('age').dataset.old = age !== null && age >= oldAfter;
  }

  const draw = oncePerFrame(() => {
    const {connection} = plant;
    document.body.dataset.connection = connection;
    setText(byId('connection'), connections[connection]);
    const banner = bannerText(plant);
    setText(byId('banner'), banner);
    byId('banner').hidden = banner === '';
    setText(byId('counts'), plant.faulty > 0 ? `! ${plant.faulty} of ${plant.leaves.length} not valid`
      : `✓ ${plant.leaves.length} values`);
    byId('counts').dataset.faulty = plant.faulty > 0;
    drawAge();
  });

  plant.onChange(draw);
  draw();
  return setInterval(drawAge, 250);
}
