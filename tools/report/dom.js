// Elements of the page.

// An element that the page has, whatever its kind.
/** @type {(id: string) => any} */
export const element = (id) => document.getElementById(id);

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
