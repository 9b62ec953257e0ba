// The shelf as it stands in the rack: slots, and in each its cages, in the order of the description.

import { element, icon, mark, write } from "./dom.js";
import { eventList } from "./events.js";
import { ledOf, ledWords, lookOf, lookWords } from "./words.js";

const SIZES = ["xxl", "xl", "l", "m", "s", "xs"];  // the first in which all cages can be seen
const SHOWN = [0, 1];  // the readings with a bar: powers that monitoring keeps an average of
const ABOVE = 6;       // dB over what is usual at a bar's end
const BELOW = 14;      // dB under it at a bar's beginning
const NOTABLE = 3;     // dB off it

export function shelfView(live) {
  const cages = new Map();
  const averages = new Map();
  const rack = element("div", { class: "rack", on: { keydown: move } });
  const events = eventList(live, { most: 40 });
  const whole = element("div", { class: "shelf-page" },
    element("h1", { class: "unseen" }, "Shelf"), rack,
    element("section", { class: "strip", "aria-label": "Events" }, events.whole));
  let drawn = "";
  let latest = null;

  function show(body) {
    latest = body;
    const layout = body.ports.map((port) => [port.slot, port.instance, port.name].join()).join(";");
    const isAnother = layout !== drawn;
    drawn = layout;
    if (isAnother) build(body.ports);
    const medians = SHOWN.map((place) => [0, 1].map((sub) => median(body.ports, place, sub)));
    for (const port of body.ports) {
      cages.get(port.name).show(port, SHOWN.map((place, row) => [0, 1].map(
        (sub) => averages.get(`${port.name} ${sub} ${place}`) ?? medians[row][sub])));
    }
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
    return element("section", { class: "slot", "aria-labelledby": id },
      element("h2", { id }, element("span", {}, "Slot "), name),
      element("ul", { class: "cages" }, ports.map((port) => {
        const made = cage(port);
        cages.set(port.name, made);
        return element("li", {}, made.whole);
      })));
  }

  function fit() {
    if (!rack.isConnected) return;
    const scrolls = matchMedia("(max-width: 700px)").matches;
    for (const size of scrolls ? ["m"] : SIZES) {
      rack.dataset.size = size;
      if (rack.scrollHeight <= rack.clientHeight) break;
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

  const resized = new ResizeObserver(fit);
  resized.observe(whole);
  const stops = [
    live.watch("v1/ports", 5, show),
    live.watch("v1/pm", 120, (body) => {
      keep(body, averages);
      if (latest) show(latest);
    }),
    events.stop,
    () => resized.disconnect(),
  ];
  return { whole, stop: () => stops.forEach((stop) => stop()), title: "Shelf" };
}

// The day's averages, by port, sub-port and reading.
function keep(body, averages) {
  averages.clear();
  for (const one of body.interfaces) {
    const day = one.bins.find((bin) => bin.length === "24h");
    for (const place of SHOWN) {
      const dbm = day?.values.find((value) => value.name === `power-${place}`)?.dbm;
      if (typeof dbm?.average === "number" && !day.tested) {
        averages.set(`${one.port} ${one.sub_port} ${place}`, dbm.average);
      }
    }
  }
}

// Until there are averages: what the others have.
function median(ports, place, sub) {
  const found = ports.map((port) => port.sub_ports[sub]?.readings[place])
    .filter((reading) => reading?.plausible).map((reading) => reading.dbm).sort((a, b) => a - b);
  return found.length === 0 ? null : found[Math.floor(found.length / 2)];
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
    element("span", { class: "bars" }, bars.map((row, place) => element("span", { class: "row" },
      element("span", { class: "reading" }, `P${SHOWN[place]}`), row.map((one) => one.whole)))));
  let look = "";

  function show(now, usual) {
    const seen = lookOf(now);
    const lit = ledOf(now);
    mark(whole, "data-look", seen);
    mark(led, "data-led", lit);
    if (look !== seen) sign.replaceChildren(icon(seen));
    look = seen;
    const raised = now.sub_ports.flatMap((sub) => sub.pm?.raised ?? []);
    mark(whole, "data-alarms", String(raised.length));
    write(alarms, raised.length === 0 ? "" : `${raised.length}!`);
    write(part, now.vendor?.part || "");
    write(state, lookWords[seen]);
    bars.forEach((row, place) => row.forEach((one, sub) =>
      one.show(now.sub_ports[sub]?.readings[SHOWN[place]], usual[place][sub])));
    const words = saying(now, seen, lit, raised);
    mark(whole, "aria-label", words);
    mark(whole, "title", words);
  }
  return { whole, show };
}

function saying(port, look, lit, raised) {
  const powers = SHOWN.map((place) => port.sub_ports.map((sub) => sub.readings[place]?.dbm)
    .filter((dbm) => typeof dbm === "number").map((dbm) => dbm.toFixed(2)).join(" and "))
    .map((values, place) => (values ? `, P${SHOWN[place]} ${values} dBm` : "")).join("");
  return `Port ${port.name}: ${lookWords[look]}${port.reason ? `, ${port.reason}` : ""}, ${ledWords[lit]}` +
    `${raised.length ? `, alarms: ${[...new Set(raised)].join(", ")}` : ""}` +
    `${port.vendor?.part ? `, ${port.vendor.part}` : ""}${powers}`;
}

// A power against what is usual, which every bar has at the same place.
function bar() {
  const fill = element("span", { class: "fill" });
  const value = element("span", { class: "value" });
  const whole = element("span", { class: "bar" }, element("span", { class: "track" }, fill), value);

  function show(reading, usual) {
    const known = typeof reading?.dbm === "number";
    const off = known && usual !== null ? reading.dbm - usual : null;
    mark(whole, "data-is", !known ? "unknown" : !reading.plausible ? "implausible"
      : off === null ? "alone" : off > NOTABLE ? "high" : off < -NOTABLE ? "low" : "usual");
    write(value, known ? reading.dbm.toFixed(2) : "–");
    const share = off === null ? 0 : Math.min(1, Math.max(0.03, (off + BELOW) / (ABOVE + BELOW)));
    fill.style.setProperty("width", `${(100 * share).toFixed(1)}%`);
  }
  return { whole, show };
}
