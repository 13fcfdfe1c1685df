// This tab's end of the stream: of the worker that all tabs share, or of one of its own where there are no such workers.

import {Feed} from './feed.js';

function ofOwnFeed(tell) {
  const feed = new Feed(tell);
  return () => feed.close();
}

function ofSharedWorker(tell) {
  const worker = new SharedWorker('/app/stream.js', {type: 'module', name: 'tessel-web'});
  let leave = () => worker.port.postMessage('leave');
  worker.port.onmessage = (event) => tell(event.data);
  // A browser that has such workers, but not of modules, says so here.
  worker.onerror = () => {
    worker.onerror = null;
    leave = ofOwnFeed(tell);
  };
  return () => leave();
}

/** Tells what comes, from now on; a page that is shown again out of the browser's memory connects anew. */
export function connect(tell) {
  const open = typeof SharedWorker === 'undefined' ? ofOwnFeed : ofSharedWorker;
  let leave = open(tell);
  addEventListener('pagehide', () => leave());
  addEventListener('pageshow', (event) => {
    if (event.persisted) {
      leave = open(tell);
    }
  });
}
