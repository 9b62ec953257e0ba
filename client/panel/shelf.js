// The shelf as it stands in the rack: slots, and in each its cages, in the order of the description.

import { element, icon, mark, write } from "./dom.js";
import { eventList } from "./events.js";
import { ledOf, ledWords, lookOf, lookWords } from "./words.js";

// How much a cage shows: the first for which there is room. Widths and heights in pixels, least and most.
const DETAILS = [
  { name: "xxl", width: [380, 460], height: [170, 190] },
  { name: "xl", width: [250, 330], height: [132, 150] },
  { name: "l", width: [196, 240], height: [98, 112] },
  { name: "m", width: [122, 180], height: [66, 84] },
  { name: "s", width: [76, 112], height: [34, 44] },
  { name: "narrow", width: [56, 75], height: [42, 56] },
  { name: "xs", width: [46, 75], height: [26, 33] },
];
const LEGEND = "P0, P1: powers of both sub-ports in dBm; the mark on a bar is what is usual.";
const MOST_BESIDE = 8;  // slots in a line
const SHOWN = [0, 1];  // the readings with a bar: powers that monitoring keeps an average of
const ABOVE = 6;       // dB over what is usual at a bar's end
const BELOW = 14;      // dB under it at a bar's beginning
const NOTABLE = 3;     // dB off it
const ENOUGH = 12;     // samples that an average is of before it is called usual
const USUAL_S = 120;   // between two looks at the averages
const SOON_S = 15;     // while some are of too few samples
const READINGS_S = 10; // between two looks at the ports, where events tell of what changes

export function shelfView(live) {
  const cages = new Map();
  const averages = new Map();
  const rack = element("div", { class: "rack", on: { keydown: move } });
  const events = eventList(live, { most: 40 });
  const legend = element("p", { class: "legend" });
  const whole = element("div", { class: "shelf-page" },
    element("h1", { class: "unseen" }, "Shelf"), rack, legend,
    element("section", { class: "strip", "aria-label": "Events" }, events.whole));
  let drawn = "";
  let latest = null;

  function show(body) {
    latest = body;
    const layout = body.ports.map((port) => [port.slot, port.instance, port.name].join()).join(";");
    const isAnother = layout !== drawn;
    drawn = layout;
    if (isAnother) build(body.ports);
    let early = 0;
    for (const port of body.ports) {
      early += cages.get(port.name).show(port, SHOWN.map((place) => [0, 1].map(
        (sub) => averages.get(keyOf(port.name, sub, place)) ?? null)));
    }
    write(legend, `${LEGEND}${early === 0 ? "" : ` Of ${early} power${early === 1 ? "" : "s"} it is not known yet what is usual.`}`);
    if (isAnother) fit();
    rack.dataset.ports = body.ports.length;
  }

  function build(ports) {
    cages.clear();
    const groups = new Map();
    for (const port of ports) {
      const key = `${port.slot}/${port.instance}`;
      if (!groups.has(key)) groups.set(key, []);
      groups.get(key).push(port);
    }
    const many = new Set([...groups.keys()].map((key) => key.split("/")[0])).size !== groups.size;
    rack.replaceChildren(...[...groups].map(([key, members]) => slot(many ? key : key.split("/")[0], members)));
  }

  function slot(name, ports) {
    const id = `slot-${name.replace("/", "-")}`;
    return element("section", { class: "slot", "data-slot": ports[0].slot, "aria-labelledby": id },
      element("h2", { id }, element("span", {}, "Slot "), name),
      element("ul", { class: "cages" }, ports.map((port) => {
        const made = cage(port);
        cages.set(port.name, made);
        return element("li", {}, made.whole);
      })));
  }

  function fit() {
    if (!rack.isConnected || rack.children.length === 0) return;
    const scrolls = matchMedia("(max-width: 700px)").matches;
    const counts = [...rack.children].map((one) => one.querySelectorAll(".cage").length);
    const together = sharing([...rack.children].map((one) => one.dataset.slot));
    for (const detail of scrolls ? DETAILS.filter((one) => one.name === "m") : DETAILS) {
      rack.dataset.size = detail.name;
      const found = arrange(counts, together, detail, roomIn(rack));
      const shown = found ?? { beside: 1, across: Math.max(...counts), width: detail.width[0], height: detail.height[0] };
      rack.style.setProperty("--beside", shown.beside);
      rack.style.setProperty("--across", shown.across);
      rack.style.setProperty("--cage-width", `${shown.width}px`);
      rack.style.setProperty("--cage-height", `${shown.height}px`);
      if (found) break;
    }
  }

  // Arrow keys go to the next cage in their direction.
  function move(pressed) {
    const from = document.activeElement?.closest?.(".cage");
    const next = from && neighbour(from, [...cages.values()].map((one) => one.whole), pressed.key);
    if (!next) return;
    pressed.preventDefault();
    next.focus();
  }

  const resized = new ResizeObserver(() => requestAnimationFrame(fit));
  resized.observe(rack);
  const stops = [
    live.watch("v1/shelf", 5, (body) => {
      show(body);
      return live.streaming ? READINGS_S : undefined;
    }),
    live.watch("v1/pm", USUAL_S, (body) => {
      keep(body, averages);
      if (latest) show(latest);
      return latest && !awaitsMore(latest.ports, averages) ? USUAL_S : SOON_S;
    }),
    events.stop,
    () => resized.disconnect(),
  ];
  return { whole, stop: () => stops.forEach((stop) => stop()), title: "Shelf" };
}

const keyOf = (port, sub, place) => `${port} ${sub} ${place}`;

// The day's averages, by port, sub-port and reading; null where samples are enough and tell nothing.
function keep(body, averages) {
  averages.clear();
  for (const one of body.interfaces) {
    const day = one.bins.find((bin) => bin.length === "24h");
    if (!day || day.samples < ENOUGH) continue;
    for (const place of SHOWN) {
      const dbm = day.values.find((value) => value.name === `power-${place}`)?.dbm;
      averages.set(keyOf(one.port, one.sub_port, place), day.tested ? null : dbm?.average ?? null);
    }
  }
}

// Whether there is, or soon will be, a power whose samples are not enough yet.
function awaitsMore(ports, averages) {
  const isAwaited = (port, sub, place) => (sub.powers[place]?.plausible ?? true)
    && !averages.has(keyOf(port.name, sub.sub_port, place));
  return ports.some((port) => ["up", "coming up"].includes(port.state)
    && port.sub_ports.some((sub) => SHOWN.some((place) => isAwaited(port, sub, place))));
}

// What there is for cages, and what goes between and around them. What scrolls now counts as room.
function roomIn(rack) {
  const style = getComputedStyle(rack);
  const space = (name) => parseFloat(style.getPropertyValue(name)) || 0;
  const slot = rack.firstElementChild;
  const list = slot.querySelector(".cages");
  return {
    width: rack.offsetWidth - space("padding-left") - space("padding-right"),
    height: rack.offsetHeight - space("padding-top") - space("padding-bottom"),
    label: list.getBoundingClientRect().left - slot.getBoundingClientRect().left,
    gap: parseFloat(getComputedStyle(list).columnGap) || 0,
    between: space("row-gap"), aside: space("column-gap"),
  };
}

// How many instances each slot has, which stay in a line; 1 where slots differ.
function sharing(slots) {
  const different = new Set(slots).size;
  const each = slots.length / different;
  return slots.every((slot, place) => slot === slots[place - place % each]) ? each : 1;
}

// How many slots stand beside each other, and how many cages in a line of one, so that cages of this
// detail are as large as can be; null when there is no room for them.
function arrange(counts, together, { width, height }, room) {
  const longest = Math.max(...counts);
  let best = null;
  for (let beside = 1; beside <= Math.min(MOST_BESIDE, counts.length); ++beside) {
    if (beside > 1 && beside % together !== 0) continue;
    for (let lines = 1; lines <= longest; ++lines) {
      const across = Math.ceil(longest / lines);
      const wide = (room.width - (beside - 1) * room.aside) / beside - room.label;
      const one = Math.floor((wide + room.gap) / across - room.gap);
      const rows = rowsOf(counts, beside, across);
      const slots = Math.ceil(counts.length / beside);
      const tall = room.height - (slots - 1) * room.between - (rows - slots) * room.gap;
      const high = Math.floor(tall / rows);
      if (one < width[0] || high < height[0]) continue;
      const size = { width: Math.min(one, width[1]), height: Math.min(high, height[1]) };
      const fills = size.width / width[1] + size.height / height[1];
      if (!best || fills > best.fills + 0.01) best = { ...size, beside, across, fills };
    }
  }
  return best;
}

// Lines of cages one below the other.
function rowsOf(counts, beside, across) {
  let rows = 0;
  for (let first = 0; first < counts.length; first += beside) {
    rows += Math.ceil(Math.max(...counts.slice(first, first + beside)) / across);
  }
  return rows;
}

function neighbour(from, all, key) {
  const [across, down] = { ArrowRight: [1, 0], ArrowLeft: [-1, 0], ArrowDown: [0, 1], ArrowUp: [0, -1] }[key] ?? [0, 0];
  if (across === 0 && down === 0) return null;
  const centre = (one) => {
    const box = one.getBoundingClientRect();
    return [box.x + box.width / 2, box.y + box.height / 2];
  };
  const [x, y] = centre(from);
  let best = null;
  let least = Infinity;
  for (const one of all) {
    const [left, top] = centre(one);
    const ahead = (left - x) * across + (top - y) * down;
    const aside = Math.abs((left - x) * down) + Math.abs((top - y) * across);
    if (ahead < 4 || ahead + 3 * aside >= least) continue;
    best = one;
    least = ahead + 3 * aside;
  }
  return best;
}

function cage(port) {
  const led = element("span", { class: "led" });
  const state = element("span", { class: "state" });
  const part = element("span", { class: "part" });
  const alarms = element("span", { class: "alarms" });
  const sign = element("span", { class: "sign" });
  const bars = SHOWN.map((place) => [0, 1].map(() => bar(place)));
  const position = `${port.rack}/${port.slot}/${port.instance}/${port.port}`;
  const whole = element("a", { class: "cage", href: `#/port/${encodeURIComponent(port.name)}` },
    element("span", { class: "top" }, led,
      element("span", { class: "name" }, port.name === position ? String(port.port) : port.name),
      alarms, sign),
    part, state,
    element("span", { class: "bars" },
      element("span", { class: "row heads" }, element("span", { class: "reading" }), element("span", {}, "sub-port 0"), element("span", {}, "sub-port 1")),
      bars.map((row, place) => element("span", { class: "row" },
      element("span", { class: "reading" }, `P${SHOWN[place]}`), row.map((one) => one.whole)))));
  let look = "";

  // Returns of how many powers it is not known yet what is usual.
  function show(now, usual) {
    const seen = lookOf(now);
    const lit = ledOf(now);
    mark(whole, "data-look", seen);
    mark(led, "data-led", lit);
    if (look !== seen) sign.replaceChildren(icon(seen));
    look = seen;
    const raised = now.sub_ports.flatMap((sub) => sub.raised ?? []);
    mark(whole, "data-alarms", String(raised.length));
    write(alarms, raised.length === 0 ? "" : `${raised.length}!`);
    write(part, now.part || "");
    write(state, lookWords[seen]);
    const early = bars.flatMap((row, place) => row.filter((one, sub) =>
      one.show(now.sub_ports[sub]?.powers[SHOWN[place]], usual[place][sub]) === "alone")).length;
    const words = saying(now, seen, lit, raised)
      + (early > 0 ? `; what is usual is not known yet of ${early} of its powers` : "");
    mark(whole, "aria-label", words);
    mark(whole, "title", words);
    return early;
  }
  return { whole, show };
}

function saying(port, look, lit, raised) {
  const powers = SHOWN.map((place) => port.sub_ports.map((sub) => sub.powers[place]?.dbm)
    .filter((dbm) => typeof dbm === "number").map((dbm) => dbm.toFixed(2)).join(" and "))
    .map((values, place) => (values ? `, P${SHOWN[place]} ${values} dBm` : "")).join("");
  return `Port ${port.name}: ${lookWords[look]}${port.reason ? `, ${port.reason}` : ""}, ${ledWords[lit]}` +
    `${raised.length ? `, alarms: ${[...new Set(raised)].join(", ")}` : ""}` +
    `${port.part ? `, ${port.part}` : ""}${powers}`;
}

// A power against what is usual, which every bar has at the same place.
function bar() {
  const fill = element("span", { class: "fill" });
  const value = element("span", { class: "value" });
  const whole = element("span", { class: "bar" }, element("span", { class: "track" }, fill), value);

  // Returns what the power is beside what is usual.
  function show(reading, usual) {
    const known = typeof reading?.dbm === "number";
    const off = known && usual !== null ? reading.dbm - usual : null;
    const is = !known ? "unknown" : !reading.plausible ? "implausible"
      : off === null ? "alone" : off > NOTABLE ? "high" : off < -NOTABLE ? "low" : "usual";
    mark(whole, "data-is", is);
    write(value, known ? reading.dbm.toFixed(2) : "–");
    const share = off === null ? 0 : Math.min(1, Math.max(0.03, (off + BELOW) / (ABOVE + BELOW)));
    fill.style.setProperty("width", `${(100 * share).toFixed(1)}%`);
    return is;
  }
  return { whole, show };
}
