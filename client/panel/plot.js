// The last hours of a port's readings, drawn by Chart.js.

import { element, write } from "./dom.js";
import { isUtc, readingTitle } from "./words.js";

const HOURS = 4;
const REFRESH = 60;  // seconds; between, what is polled is added
const COLOURS = ["--line-a", "--line-b", "--line-c", "--line-d", "--line-e", "--line-f"];
const DASHES = [[], [6, 3], [2, 2], [8, 3, 2, 3], [1, 3], [10, 4]];

export function plot(live, path) {
  const canvas = element("canvas", { role: "img", "aria-label": "No history yet" });
  const units = element("div", { class: "units", role: "group", "aria-label": "What is plotted" });
  const keys = element("div", { class: "keys" });
  const said = element("p", { class: "age" }, "no history yet");
  const frame = element("div", { class: "plot", hidden: true }, canvas);
  const whole = element("div", { class: "history" }, units, frame, keys, said);
  let chart = null;
  let groups = new Map();
  let chosen = null;
  let newest = 0;
  let stopped = false;

  function show(body) {
    groups = Map.groupBy(body.readings, kindOf);
    newest = Math.max(0, ...body.readings.flatMap((one) => one.points.slice(-1)).map(([when]) => when));
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
    const when = Math.round(Date.now() / 1000 - polled.readings_age_s);
    if (when <= newest) return;
    newest = when;
    for (const one of [...groups.values()].flat()) {
      const value = current(port, one);
      if (value !== undefined) one.points.push([when, value]);
    }
    draw();
  }

  async function draw() {
    const lines = groups.get(chosen) ?? [];
    const known = lines.some((one) => one.points.some(([, value]) => value !== null));
    frame.hidden = !known;
    keys.hidden = !known;
    write(said, known ? `the last ${HOURS} hours; a gap is a time without a reading` : "no history yet");
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
    canvas.setAttribute("aria-label", summary(lines));
    const unit = lines[0].unit ?? "";
    const axes = scales(unit, colour("--muted"), colour("--line"));
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
  return readingTitle(one.reading);
}

function nameOf(one) {
  const sub = one.sub_port === null || one.sub_port === undefined ? "" : `, sub-port ${one.sub_port}`;
  return readingTitle(one.reading) + sub;
}

// What the port's view has for a reading of the history; undefined: nothing.
function current(port, one) {
  const name = one.reading.replaceAll("_", "-");
  const reading = port.sub_ports[one.sub_port ?? -1]?.readings.find((known) => known.name === name);
  if (reading) return reading.dbm === undefined ? reading.value : reading.dbm;
  return { temperature: port.temperature_c, supply: port.supply_v }[name];
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
  return `The last ${HOURS} hours: ${lines.map((one) => {
    const values = one.points.map(([, value]) => value).filter((value) => value !== null);
    if (values.length === 0) return `${nameOf(one)} not known`;
    const least = values.reduce((a, b) => Math.min(a, b));
    const most = values.reduce((a, b) => Math.max(a, b));
    return `${nameOf(one)} from ${least.toFixed(2)} to ${most.toFixed(2)} ${one.unit ?? ""}`;
  }).join("; ")}`;
}

function clock(seconds, exact) {
  const date = new Date(1000 * seconds);
  return date.toLocaleTimeString([], { hour: "2-digit", minute: "2-digit", second: exact ? "2-digit" : undefined,
    hourCycle: "h23", timeZone: isUtc() ? "UTC" : undefined });
}

function scales(unit, ink, grid) {
  const font = { size: 11 };
  const end = Math.ceil(Date.now() / 1000);
  return {
    x: { type: "linear", min: end - HOURS * 3600, max: end, grid: { color: grid },
      ticks: { stepSize: 1800, maxRotation: 0, color: ink, font, callback: (value) => clock(value, false) } },
    y: { title: { display: unit !== "", text: unit, color: ink, font }, grid: { color: grid },
      ticks: { color: ink, font }, grace: "10%" },
  };
}
