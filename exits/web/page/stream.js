// The worker that all tabs of a browser share: one stream for them all.

import {Feed} from './feed.js';
import {Latest} from './latest.js';

const ports = new Set();
let latest = new Latest();
let feed = null;

function tell(message) {
  latest.take(message);
  ports.forEach((port) => port.postMessage(message));
}

function leave(port) {
  ports.delete(port);
  port.close();
  if (ports.size === 0) {
    feed?.close();
    feed = null;
    latest = new Latest();
  }
}

onconnect = (event) => {
  const port = event.ports[0];
  port.onmessage = (message) => {
    if (message.data === 'leave') {
      leave(port);
    }
  };
  ports.add(port);
  latest.messages().forEach((message) => port.postMessage(message));
  feed ??= new Feed(tell);
};
