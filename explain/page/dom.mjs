/**
 * Elements for the page. Text of a log only ever becomes a text node.
 */

/** The page that the links without a page of their own lead to. */
const LINKED = "troubleshooting.md";
/** A target is a page beside this one or a heading: it begins with neither "/" nor the name of a protocol. */
export const RICH = /`([^`]+)`|\[([^\]]+)\]\(((?:[A-Za-z][\w./-]*)?(?:#[\w-]+)?)\)/g;

/**
 * Makes an element.
 * @param {string} name its tag, with classes after dots
 * @param {Record<string, any>} [properties] attributes; those that begin with "on" are listeners
 * @param {...(Node | string | null | undefined | false)} children
 * @returns {HTMLElement}
 */
export function element(name, properties = {}, ...children) {
  const [tag, ...classes] = name.split(".");
  const made = document.createElement(tag);
  if (classes.length) made.className = classes.join(" ");
  for (const [key, value] of Object.entries(properties)) {
    if (key.startsWith("on")) made.addEventListener(key.slice(2), value);
    else if (value === true) made.setAttribute(key, "");
    else if (value !== false && value !== undefined && value !== null) made.setAttribute(key, String(value));
  }
  for (const child of children) if (child) made.append(child);
  return made;
}

/**
 * The text of a page with its marks for code and links, as nodes. Everything else in it stays a text.
 * @param {string} text
 * @returns {DocumentFragment}
 */
export function rich(text) {
  const made = document.createDocumentFragment();
  let end = 0;
  for (const match of text.matchAll(RICH)) {
    made.append(text.slice(end, match.index));
    made.append(match[1] ? element("code", {}, match[1]) : link(match[2], match[3]));
    end = match.index + match[0].length;
  }
  made.append(text.slice(end));
  return made;
}

/**
 * A link to a page beside this one.
 * @param {string} text @param {string} target the page, with a heading after "#"; without a page it is the one on troubles
 */
export function link(text, target) {
  return element("a", { href: target.startsWith("#") ? LINKED + target : target, target: "_blank", rel: "noopener noreferrer" }, text);
}

/** @param {string} id @returns {HTMLElement} */
export function byId(id) {
  const found = document.getElementById(id);
  if (!found) throw new Error(`the page has no ${id}`);
  return found;
}
