// Elements, and nothing that reads markup: whatever a module says becomes text.

const SVG = "http://www.w3.org/2000/svg";

// Attributes whose value is null, undefined or false are left out; "on" adds listeners.
export function element(tag, attributes = {}, ...children) {
  return filled(document.createElement(tag), attributes, children);
}

function drawing(tag, attributes, ...children) {
  return filled(document.createElementNS(SVG, tag), attributes, children);
}

function filled(made, attributes, children) {
  for (const [name, value] of Object.entries(attributes)) {
    if (name === "on") {
      for (const [kind, listener] of Object.entries(value)) made.addEventListener(kind, listener);
    } else if (value !== null && value !== undefined && value !== false) {
      made.setAttribute(name, value === true ? "" : value);
    }
  }
  made.append(...children.flat().filter((child) => child !== null && child !== undefined));
  return made;
}

// Writes only where something is different: what is left alone is not announced or drawn again.
export function write(target, text) {
  if (target.textContent !== text) target.textContent = text;
}

// As replaceChildren, where something is different; the keys stay where they were, and what was
// scrolled stays scrolled.
export function renew(target, ...children) {
  const made = element("div", {}, ...children);
  const alike = made.childNodes.length === target.childNodes.length
    && [...made.childNodes].every((node, place) => node.isEqualNode(target.childNodes[place]));
  if (alike) return;
  const held = place(target, document.activeElement);
  const scrolled = [...target.querySelectorAll(".wide")].map((one) => one.scrollLeft);
  target.replaceChildren(...made.childNodes);
  [...target.querySelectorAll(".wide")].forEach((one, at) => { one.scrollLeft = scrolled[at] ?? 0; });
  held?.()?.focus({ preventScroll: true });
}

// Finds again what is now in the place of an element: that of its event, which others push down, or
// of its place among its like.
function place(target, inner) {
  if (!inner || inner === target || !target.contains(inner)) return null;
  const number = inner.closest("[data-number]")?.dataset.number;
  if (number) return () => target.querySelector(`[data-number="${CSS.escape(number)}"] ${inner.localName}`);
  const at = [...target.querySelectorAll(inner.localName)].indexOf(inner);
  return () => target.querySelectorAll(inner.localName)[at];
}

export function mark(target, name, value) {
  if (value === null || value === undefined) target.removeAttribute(name);
  else if (target.getAttribute(name) !== value) target.setAttribute(name, value);
}

// By what they say of a port. All in a square of 16.
const strokes = {
  failing: ["M4 4l8 8", "M12 4l-8 8"],
  hung: ["M4 2.5h8", "M4 13.5h8", "M5 2.5c0 5 6 6 6 11", "M11 2.5c0 5-6 6-6 11"],
  "coming-up": ["M8 2.5a5.5 5.5 0 1 1-5.5 5.5"],
  deleting: ["M3 8h10"],
  absent: [],
  stale: ["M8 2.5a5.5 5.5 0 1 0 .01 0", "M8 5v3.3l2.3 1.4"],
  unpolled: ["M8 3a5 5 0 1 0 .01 0", "M5.5 8h5"],
  upgrading: ["M8 13V4", "M4.5 7.5L8 3.5l3.5 4"],
  empty: ["M3 5V3h2", "M11 3h2v2", "M13 11v2h-2", "M5 13H3v-2"],
  up: [],
};

export function icon(name) {
  const paths = (strokes[name] ?? []).map((path) => drawing("path", { d: path }));
  return drawing("svg", { viewBox: "0 0 16 16", class: "icon", "aria-hidden": "true" }, paths);
}

// A command to take along. It is never carried out here.
export function command(text) {
  const said = element("code", {}, text);
  const button = element("button", {
    type: "button", class: "copy", "aria-label": `Copy: ${text}`,
    on: { click: () => copy(text, said, button) },
  }, "copy");
  return element("span", { class: "command" }, said, button);
}

async function copy(text, said, button) {
  try {
    await navigator.clipboard.writeText(text);
    button.textContent = "copied";
  } catch {
    getSelection().selectAllChildren(said);
    button.textContent = "selected";
  }
  setTimeout(() => { button.textContent = "copy"; }, 1500);
}

export function card(title, ...children) {
  const id = `card-${title.toLowerCase().replaceAll(/\W+/g, "-")}`;
  return element("section", { class: "card", "aria-labelledby": id },
    element("h2", { id }, title), ...children);
}

// Two beside each other where there is room.
export function columns(left, right) {
  return element("div", { class: "columns" }, [left, right].map((cards) => element("div", { class: "column" }, cards)));
}

// Pairs of a name and a text or element.
export function facts(pairs) {
  return element("dl", { class: "facts" },
    pairs.flatMap(([name, value]) => [element("dt", {}, name), element("dd", {}, value)]));
}

// A table that scrolls for itself where the screen is narrow. The first cell of a row is its name.
export function table(caption, titles, rows) {
  return element("div", { class: "wide", tabindex: "0", role: "region", "aria-label": `Table: ${caption}` },
    element("table", {}, element("caption", { class: "unseen" }, caption),
      element("thead", {}, element("tr", {}, titles.map((title) => element("th", { scope: "col" }, title)))),
      element("tbody", {}, rows.map((cells) => element("tr", {}, cells.map((cell, place) =>
        element(place === 0 ? "th" : "td", place === 0 ? { scope: "row" } : {}, cell)))))));
}
