// The node: how it fares, its clock of polling, the interface manager, the store, traces and events.

import { card, columns, command, element, facts, mark, renew, table } from "./dom.js";
import { eventList } from "./events.js";
import { get } from "./live.js";
import { healthLine, lasting, lookWords, none, text, time, unknown, yes } from "./words.js";

const SEVERITIES = [["everything", null], ["warnings and worse", ["warning", "critical"]]];

export function nodeView(live) {
  const part = Object.fromEntries(["health", "driver", "polling", "manager", "store", "traces"]
    .map((one) => [one, element("div", { "data-part": one })]));
  const clock = element("div", { class: "clock", role: "img", "aria-label": "Polling clock" }, element("span", { class: "hand" }));
  const events = eventList(live);
  let meanings = {};
  let fared = null;
  let next = null;  // when a cycle should begin, of performance.now()

  const choices = SEVERITIES.map(([title, severities], place) => element("button", {
    type: "button", "aria-pressed": String(place === 0),
    on: { click: (pressed) => {
      for (const one of choices) one.setAttribute("aria-pressed", String(one === pressed.target));
      events.choose(severities);
    } },
  }, title));

  const whole = element("div", { class: "node-page" }, element("h1", { class: "unseen" }, "Node"),
    columns(
      [card("Health", part.health), card("Events", element("div", { class: "units", role: "group",
        "aria-label": "Which events" }, choices), events.whole), card("Traces", part.traces)],
      [card("Polling", clock, part.polling), card("Driver", part.driver),
        card("Interface manager", part.manager), card("Store", part.store),
        card("Commands", ...["lumctl check --all", "lumctl show node", "lumctl show alarms",
          "lumctl show polling", "lumctl im show", "lumctl support", "lumctl watch"].map((line) => command(line)))]));

  function showHealth(health) {
    fared = health;
    const counts = Object.entries(health.port_states).map(([state, count]) => `${count} ${state}`).join(", ");
    renew(part.health,
      element("p", { class: "line", "data-status": health.status }, healthLine(health)),
      element("p", {}, `${health.ports} ports: ${counts}`),
      ...health.findings.map((one) => found(one, meanings[one.kind])));
  }

  function showPolling(polling) {
    const last = polling.last;
    const why = polling.halt?.reason ?? "no cycle has ended yet";
    const ends = last ? polling.period_s - last.age_s : null;
    next = ends === null || polling.halt ? null : performance.now() + 1000 * ends;
    mark(clock, "data-running", polling.running ? "yes" : "no");
    renew(part.polling, facts([
      ["Now", polling.halt ? `stands, for ${lasting(polling.halt.for_s)}: ${polling.halt.reason}` : polling.running ? "a cycle runs" : "between two cycles"],
      ["Cycles", String(polling.cycles)],
      ["Pause", `${polling.period_s} s`],
      ["Last cycle", last ? `${lasting(last.age_s)} ago, ${last.ports} ports` : unknown(why)],
      ["It took", last ? milliseconds(last.duration_s) : unknown(why)],
      ["It was late by", last?.lateness_s === undefined ? none("nothing: it was the first") : milliseconds(last.lateness_s)],
    ]));
  }

  function tick() {
    const left = next === null ? 0 : Math.max(0, (next - performance.now()) / 5000);
    clock.firstChild.style.setProperty("width", `${(100 * Math.min(1, left)).toFixed(0)}%`);
    mark(clock, "aria-label", next === null ? "Polling stands" : `Next cycle in ${Math.ceil(5 * left)} s`);
  }

  get("panel/explanations.json").then((body) => {
    meanings = body;
    if (fared) showHealth(fared);
  }).catch(() => {});
  live.addEventListener("second", tick);
  const stops = [
    live.watch("v1/health", 5, showHealth),
    live.watch("v1/polling", 5, showPolling),
    live.watch("v1/node", 5, (node) => {
      renew(part.driver, driver(node));
      renew(part.store, ...store(node));
      renew(part.traces, traces(node));
    }),
    live.watch("v1/im", 5, (im) => renew(part.manager, manager(im))),
    events.stop,
    () => live.removeEventListener("second", tick),
  ];
  return { whole, stop: () => stops.forEach((stop) => stop()), title: "Node" };
}

const milliseconds = (seconds) => `${Math.round(1000 * seconds)} ms`;

function found(one, meaning) {
  return element("div", { class: "alarm", "data-severity": one.severity },
    element("h3", {}, `${one.severity}: ${one.kind} `, one.port === null ? ""
      : element("a", { href: `#/port/${encodeURIComponent(one.port)}` },  one.port)),
    element("p", {}, one.reason),
    meaning ? facts([["Means", meaning.meaning], ["Remedy", meaning.remedy]]) : null);
}

function driver(node) {
  const states = Object.entries(node.port_states).map(([state, count]) => `${count} ${lookWords[state] ?? state}`).join(", ");
  return facts([
    ["Node", `${node.name}, rack ${node.rack}`], ["Version", node.version],
    ["Description", node.description], ["Started", time(node.started)],
    ["Up for", lasting(node.uptime_s)], ["A restart", yes(node.restart)],
    ["Ports", `${node.ports}: ${states}`],
    ["Controllers", `${text(node.controllers)} counted, ${text(node.controllers_existing)} exist`],
    ["Resync", node.resync ? "under way" : "none"],
    ["Never polled", text(node.never_polled.join(" ") || "no")],
  ]);
}

function manager(im) {
  const count = im.statistics;
  const now = im.behaviour;
  const odd = [now.held ? "held" : "", now.out_of_order ? "out of order" : "",
    ...["refuse", "drop", "fail", "empty", "malform"].filter((kind) => now[kind].batches > 0)].filter(Boolean);
  return facts([
    ["Controllers", String(im.controllers)],
    ["Batches", `${count.create_batches} create, ${count.update_batches} update, ${count.delete_batches} delete`],
    ["Waiting", String(count.pending)], ["Answered", String(count.answered)],
    ["Refused", String(count.refused)], ["Dropped", String(count.dropped)],
    ["Elements", `${count.elements}, ${count.failed_elements} failed`],
    ["Restarts", String(count.restarts)],
    ["Answers after", `${now.delay_ms.min} to ${now.delay_ms.max} ms`],
    ["Asked to", odd.length === 0 ? "behave" : odd.join(", ")],
  ]);
}

function store(node) {
  const kept = node.checkpoints;
  const troubles = node.store.records.map((one) =>
    element("p", { class: "trouble" }, `${one.port ?? one.key}: ${one.trouble}: ${one.reason}`));
  return [facts([
    ["Takes changes", node.store.usable ? "yes" : element("span", { class: "bad" }, `no: ${node.store.reason ?? "–"}`)],
    ["File", kept.file], ["Records", text(kept.entries, node.store.reason)],
    ["Writes", `${kept.writes}, ${kept.failures} failed`],
    ["Last failure", kept.last_failure || none()],
    ["Set aside", kept.set_aside ? `${kept.set_aside.file}: ${kept.set_aside.reason}` : "nothing"],
    ["Doubt", node.store.doubt || none()],
    ["Events", node.events.kept ? "are kept" : text(node.events.problem)],
  ]), ...troubles];
}

function traces(node) {
  return table("Trace channels", ["Channel", "On", "Lines", "Failed", "File"], node.traces.map((one) => [
    one.name, yes(one.enabled), String(one.lines),
    one.failures === 0 ? "0" : element("span", { class: "bad" }, `${one.failures}: ${one.reason ?? ""}`), one.file]));
}
