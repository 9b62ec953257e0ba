// The last hours of a port's readings, drawn by Chart.js.

import { element, write } from "./dom.js";
import { isUtc, lasting, readingTitle } from "./words.js";

const REFRESH = 60;  // seconds; between, what is polled is added
const SHORTEST = 300;  // seconds that are shown at least
const STEPS = [60, 120, 300, 600, 1800, 3600];
const GAP = 30;      // seconds between two polls from which on nothing is drawn between them
const COLOURS = ["--line-a", "--line-b", "--line-c", "--line-d", "--line-e", "--line-f"];
const DASHES = [[], [6, 3], [2, 2], [8, 3, 2, 3], [1, 3], [10, 4]];

export function plot(live, path) {
  const canvas = element("canvas", { role: "img", "aria-label": "No history yet" });
  const units = element("div", { class: "units", role: "group", "aria-label": "What is plotted" });
  const keys = element("div", { class: "keys" });
  const said = element("p", { class: "age" }, "no history yet");
  const frame = element("div", { class: "plot", hidden: true }, canvas);
  const whole = element("div", { class: "history" }, units, frame, keys, said,
    element("p", { class: "age" }, "No history is kept of temperature and supply."));
  let chart = null;
  let groups = new Map();
  let chosen = null;
  let newest = 0;
  let span = 0;
  let ahead = 0;  // of the viewer's clock, in seconds, the driver's: its times are what is plotted
  let stopped = false;

  function show(body) {
    groups = Map.groupBy(body.readings.map((one) => ({ ...one, points: pointsOf(body.times, one.values) })), kindOf);
    newest = body.times.at(-1) ?? 0;
    span = body.span_s;
    ahead = body.now - Date.now() / 1000;
    if (!groups.has(chosen)) chosen = groups.keys().next().value ?? null;
    units.replaceChildren(...[...groups.keys()].map(choice));
    draw();
  }

  function choice(kind) {
    return element("button", { type: "button", "aria-pressed": String(kind === chosen), on: {
      click: () => {
        chosen = kind;
        for (const one of units.children) one.setAttribute("aria-pressed", String(one.textContent === kind));
        draw();
      },
    } }, kind);
  }

  // A reading of a poll that the history did not have yet when it was asked for.
  function add(port) {
    const polled = port.sub_ports.find((sub) => sub.readings.length > 0);
    if (!polled || newest === 0) return;
    const when = Math.round(Date.now() / 1000 + ahead - polled.readings_age_s);
    if (when <= newest + 1) return;
    for (const one of [...groups.values()].flat()) one.points.push(...pointsOf([newest, when], [null, current(port, one)]).slice(1));
    newest = when;
    draw();
  }

  async function draw() {
    const lines = groups.get(chosen) ?? [];
    const known = lines.some((one) => one.points.some(([, value]) => value !== null));
    frame.hidden = !known;
    keys.hidden = !known;
    const end = Math.ceil(Date.now() / 1000 + ahead);
    const first = Math.min(...lines.flatMap((one) => one.points.slice(0, 1)).map(([when]) => when));
    const begin = Math.max(end - span, Math.min(first, end - SHORTEST));
    write(said, known ? `the last ${lasting(end - begin)}; a gap is a time without a reading` : "no history yet");
    if (!known) return;
    const Chart = await load();
    if (stopped || !canvas.isConnected) return;
    const style = getComputedStyle(canvas);
    const colour = (name) => style.getPropertyValue(name).trim();
    const sets = lines.map((one, place) => ({
      label: nameOf(one),
      data: one.points.map(([when, value]) => ({ x: when, y: value })),
      borderColor: colour(COLOURS[place % COLOURS.length]), borderDash: DASHES[place % DASHES.length],
      borderWidth: 1.5, pointRadius: 0, spanGaps: false,
    }));
    keys.replaceChildren(...sets.map((set) => key(set)));
    canvas.setAttribute("aria-label", `The last ${lasting(end - begin)}: ${summary(lines)}`);
    const unit = lines[0].unit ?? "";
    const axes = scales(unit, [begin, end], colour("--muted"), colour("--line"));
    if (chart) {
      chart.data.datasets = sets;
      chart.options.scales = axes;
      chart.update("none");
    } else {
      chart = new Chart(canvas, { type: "line", data: { datasets: sets }, options: {
        animation: false, parsing: false, normalized: true, maintainAspectRatio: false, scales: axes,
        interaction: { mode: "index", intersect: false },
        plugins: { legend: { display: false }, decimation: { enabled: true, algorithm: "min-max" },
          tooltip: { callbacks: { title: ([first]) => (first ? clock(first.parsed.x, true) : "") } } },
      } });
    }
  }

  const stop = live.watch(`v1/ports/${path}/history`, REFRESH, show, () => {
    groups = new Map();
    units.replaceChildren();
    frame.hidden = true;
    keys.hidden = true;
    write(said, "no history: this driver keeps none of this port");
  });
  return { whole, add, stop() {
    stopped = true;
    stop();
    chart?.destroy();
  } };
}

let loading = null;
function load() {
  loading ??= import("./chart.min.js").then(() => globalThis.Chart);
  return loading;
}

function kindOf(one) {
  if (one.unit === "dBm") return "Powers";
  return readingTitle(one.name);
}

function nameOf(one) {
  return `${readingTitle(one.name)}, sub-port ${one.sub_port}`;
}

// Times and values as pairs, with one of no value wherever there was no poll for long.
function pointsOf(times, values) {
  return times.flatMap((when, place) => {
    const point = [when, values[place]];
    const before = times[place - 1];
    return place > 0 && when - before > GAP ? [[before + 1, null], point] : [point];
  });
}

// What the port's view has for a reading of the history.
function current(port, one) {
  const reading = port.sub_ports[one.sub_port]?.readings.find((known) => known.name === one.name);
  if (!reading || reading.plausible === false) return null;
  return reading.dbm === undefined ? reading.value : reading.dbm;
}

function key(set) {
  const line = document.createElement("canvas");
  line.width = 48;
  line.height = 8;
  line.setAttribute("aria-hidden", "true");
  const pen = line.getContext("2d");
  pen.strokeStyle = set.borderColor;
  pen.lineWidth = 3;
  pen.setLineDash(set.borderDash.map((length) => 2 * length));
  pen.beginPath();
  pen.moveTo(0, 4);
  pen.lineTo(48, 4);
  pen.stroke();
  return element("span", { class: "key" }, line, set.label);
}

function summary(lines) {
  return lines.map((one) => {
    const values = one.points.map(([, value]) => value).filter((value) => value !== null);
    if (values.length === 0) return `${nameOf(one)} not known`;
    const least = values.reduce((a, b) => Math.min(a, b));
    const most = values.reduce((a, b) => Math.max(a, b));
    return `${nameOf(one)} from ${least.toFixed(2)} to ${most.toFixed(2)} ${one.unit ?? ""}`;
  }).join("; ");
}

function clock(seconds, exact) {
  const date = new Date(1000 * seconds);
  return date.toLocaleTimeString([], { hour: "2-digit", minute: "2-digit", second: exact ? "2-digit" : undefined,
    hourCycle: "h23", timeZone: isUtc() ? "UTC" : undefined });
}

function scales(unit, [begin, end], ink, grid) {
  const font = { size: 11 };
  const stepSize = STEPS.find((step) => (end - begin) / step <= 8) ?? STEPS.at(-1);
  return {
    x: { type: "linear", min: begin, max: end, grid: { color: grid },
      ticks: { stepSize, maxRotation: 0, color: ink, font, callback: (value) => clock(value, false) } },
    y: { title: { display: unit !== "", text: unit, color: ink, font }, grid: { color: grid },
      ticks: { color: ink, font }, grace: "10%" },
  };
}
