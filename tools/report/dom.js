// Elements of the page.

// An element that the page has, whatever its kind.
/** @type {(id: string) => any} */
export const element = (id) => document.getElementById(id);

// Whether keys write there.
export const isField = (target) => Boolean(target.closest?.('input:not([type=checkbox])'));

// Gives an element other children; a button in the place of the one that has the focus takes it
// over.
export function refill(parent, children) {
  const buttons = () => [...parent.querySelectorAll('button')];
  const focused = buttons().indexOf(document.activeElement);
  parent.replaceChildren(...children);
  if (focused >= 0) (buttons()[focused] ?? buttons().at(-1))?.focus();
}

// A new element; text is never markup.
/** @type {(kind: string, properties?: object, ...children: any[]) => any} */
export function make(kind, properties = {}, ...children) {
  const made = document.createElement(kind);
  for (const [name, value] of Object.entries(properties)) {
    if (name.includes('-') || name === 'role')
      made.setAttribute(name, value);
    else
      made[name] = value;
  }
  made.append(...children);
  return made;
}
