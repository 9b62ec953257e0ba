// What has happened, newest first.

import { element, renew } from "./dom.js";
import { moment } from "./words.js";

// Of one port alone, or at most so many.
export function eventList(live, { port = null, most = 500, severity = null } = {}) {
  const list = element("ol", { class: "events", tabindex: "0", "aria-label": "Events, newest first" });
  let least = severity;

  function draw() {
    const wanted = live.events.filter((one) => (port === null || one.port === port)
      && (!least || least.includes(one.severity))).slice(0, most);
    renew(list, ...(wanted.length > 0 ? wanted.map((one) => line(one, port))
      : [element("li", { class: "nothing" }, "nothing has happened")]));
  }
  live.addEventListener("events", draw);
  draw();
  return {
    whole: list,
    choose(severities) {
      least = severities;
      draw();
    },
    stop: () => live.removeEventListener("events", draw),
  };
}

function line(one, port) {
  const sub = one.sub_port === null ? "" : `:${one.sub_port}`;
  const place = one.port === null ? "" : one.port + sub;
  return element("li", { "data-severity": one.severity, "data-number": one.number },
    element("time", { datetime: one.time, title: one.time }, moment(new Date(one.time))),
    element("span", { class: "severity" }, one.severity),
    port === null && place
      ? element("a", { class: "place", href: `#/port/${encodeURIComponent(one.port)}` }, place)
      : element("span", { class: "place" }, port === null ? "" : sub),
    element("span", { class: "kind" }, one.kind),
    element("span", { class: "text" }, one.text));
}
