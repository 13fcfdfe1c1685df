// What is asked of the server, beside the stream.

/** An answer that is not the one asked for: what happened, and what can be done about it. */
export class Refusal extends Error {
  constructor(status, {what, where, cure} = {}) {
    super(what ?? `The server answered with status ${status}.`);
    this.status = status;
    this.where = where ?? '';
    this.cure = cure ?? '';
  }
}

async function answer(path, options) {
  let response;
  try {
    response = await fetch(path, options);
  } catch {
    throw new Refusal(0, {what: 'The server does not answer.', cure: 'Try again when the connection is back.'});
  }
  const body = await response.json().catch(() => ({}));
  if (!response.ok) {
    throw new Refusal(response.status, body.error);
  }
  return body;
}

export const readDescription = () => answer('/api/description', {cache: 'no-cache'});
export const readConfiguration = () => answer('/api/configuration', {cache: 'no-store'});

/** Writes URL to value, all or nothing. */
export const writeValues = (values, token) => answer('/api/values', {
  method: 'POST',
  headers: {'Content-Type': 'application/json', ...(token ? {Authorization: `Bearer ${token}`} : {})},
  body: JSON.stringify(values),
});
