// Elements made from script. What comes from a description or a device is only ever a text: nothing here, and
// nothing elsewhere in the page, reads it as HTML.

/** An element with properties; `data` and `aria` are objects, children are elements or texts. */
export function element(name, properties = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(properties)) {
    if (key === 'data') {
      Object.assign(made.dataset, value);
    } else if (key === 'aria') {
      Object.entries(value).forEach(([attribute, text]) => made.setAttribute(`aria-${attribute}`, text));
    } else if (key === 'role' || key === 'for') {
      made.setAttribute(key, value);
    } else {
      made[key] = value;
    }
  }
  made.append(...children.filter((child) => child !== null));
  return made;
}

export const byId = (id) => document.getElementById(id);

/** Sets the text only where it differs, so that nothing is laid out for a value that stays. */
export function setText(where, text) {
  if (where.textContent !== text) {
    where.textContent = text;
  }
}

/** Calls `draw` before the next frame, once for any number of requests. */
export function oncePerFrame(draw) {
  let isAsked = false;
  return () => {
    if (!isAsked) {
      isAsked = true;
      requestAnimationFrame(() => {
        isAsked = false;
        draw();
      });
    }
  };
}
