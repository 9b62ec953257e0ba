// How values, times and states are said.

import { element } from "./dom.js";

// What is not known, with the reason where there is one.
export function unknown(reason) {
  if (!reason) return element("span", { class: "unknown" }, "–");
  return element("span", { class: "unknown", title: reason }, "–",
    element("span", { class: "unseen" }, ` not known: ${reason}`));
}

// What is known not to exist.
export function none(why = "none") {
  return element("span", { class: "none" }, why);
}

export function number(value, digits, reason) {
  return typeof value === "number" ? value.toFixed(digits) : unknown(reason);
}

export function text(value, reason) {
  return value === null || value === undefined || value === "" ? unknown(reason) : String(value);
}

export function yes(value, reason) {
  return typeof value === "boolean" ? (value ? "yes" : "no") : unknown(reason);
}

export function lasting(seconds) {
  const whole = Math.max(0, Math.floor(seconds));
  if (whole < 120) return `${whole} s`;
  if (whole < 7200) return `${Math.floor(whole / 60)} min`;
  if (whole < 172800) return `${Math.floor(whole / 3600)} h`;
  return `${Math.floor(whole / 86400)} d`;
}

export function hex(handle) {
  return handle ? `0x${handle.toString(16).padStart(8, "0")}` : none("no controller");
}

let utc = recalled() === "utc";

function recalled() {
  try {
    return localStorage.getItem("zone");
  } catch {
    return null;
  }
}

export const isUtc = () => utc;

export function setUtc(wanted) {
  utc = wanted;
  try {
    localStorage.setItem("zone", wanted ? "utc" : "own");
  } catch {
    // Kept for as long as the page is open.
  }
}

const two = (value) => String(value).padStart(2, "0");

// The date too, unless it is today's.
export function moment(date) {
  const of = (name) => (utc ? date[`getUTC${name}`]() : date[`get${name}`]());
  const day = `${of("FullYear")}-${two(of("Month") + 1)}-${two(of("Date"))}`;
  const now = new Date();
  const today = utc ? now.toISOString().slice(0, 10)
    : `${now.getFullYear()}-${two(now.getMonth() + 1)}-${two(now.getDate())}`;
  const clock = `${two(of("Hours"))}:${two(of("Minutes"))}:${two(of("Seconds"))}`;
  return (day === today ? clock : `${day} ${clock}`) + (utc ? " UTC" : "");
}

export function time(iso) {
  const date = new Date(iso);
  if (Number.isNaN(date.getTime())) return unknown();
  return element("time", { datetime: iso, title: iso }, moment(date));
}

// The line of `lumctl check`.
export function healthLine(health) {
  const [first, ...others] = health.findings;
  const more = others.length > 0 ? `, and ${others.length} more` : "";
  const what = first ? finding(first) + more : "nothing is wrong";
  return `LUM ${health.status.toUpperCase()} - ${what}`;
}

function finding(one) {
  return `${one.port === null ? "" : `port ${one.port} `}${one.kind}: ${one.reason}`.replaceAll("|", "/");
}

// How a port looks: its state, and what the state alone does not say.
export function lookOf(port) {
  if (port.state === "failing" && /transfer has not ended/.test(port.reason)) return "hung";
  if (port.state === "up" && !isPolled(port)) return "unpolled";
  return port.state.replaceAll(" ", "-");
}

function isPolled(port) {
  return port.sub_ports.some((sub) => (sub.readings ?? sub.powers).length > 0);
}

export const lookWords = {
  absent: "absent", deleting: "deleting", "coming-up": "coming up", empty: "empty",
  upgrading: "upgrading", failing: "failing", hung: "hung", stale: "stale",
  unpolled: "never polled", up: "up",
};

export function ledOf(port) {
  if (port.led === null || port.led === undefined) return "none";
  if (port.led.problem) return "broken";
  return port.led.name ?? "unknown";
}

export const ledWords = {
  none: "no LED", broken: "LED broken", unknown: "LED not known", off: "LED dark",
  normal: "LED green, normal", fault: "LED red, fault", other: "LED red and green",
};

export function readingTitle(name) {
  const place = name.match(/^(power|reading)[-_](\d)(?:-(\w))?$/);
  if (!place) return name.charAt(0).toUpperCase() + name.slice(1).replaceAll(/[-_]/g, " ");
  return `${place[1] === "power" ? "Power" : "Reading"} ${place[2]}${place[3] ?? ""}`;
}

// A name as a shell takes it, and lumctl behind it, which takes no option from there on.
export function quoted(name) {
  const own = /^[\w.:/+@-]+$/.test(name) ? name : `'${name.replaceAll("'", "'\\''")}'`;
  return name.startsWith("-") ? `-- ${own}` : own;
}
