// One port: what is in its cage, what it measures, what is wrong and how it came to that.

import { card, columns, command, element, facts, icon, mark, renew, table, write } from "./dom.js";
import { eventList } from "./events.js";
import { get } from "./live.js";
import { plot } from "./plot.js";
import { settingsCard } from "./settings.js";
import { hex, lasting, ledOf, ledWords, lookOf, lookWords, none, number, quoted, readingTitle, text, unknown, yes } from "./words.js";

export function portView(live, name) {
  const path = encodeURIComponent(name);
  const led = element("span", { class: "led" });
  const sign = element("span", { class: "sign" });
  const state = element("span", { class: "state" });
  const reason = element("p", { class: "reason" });
  const before = element("a", { class: "step", "aria-label": "Previous port" }, "‹");
  const after = element("a", { class: "step", "aria-label": "Next port" }, "›");
  const part = Object.fromEntries(["identity", "readings", "alarms", "bins", "transfers"]
    .map((one) => [one, element("div", { "data-part": one })]));
  const history = plot(live, path);
  const settings = settingsCard(live, name);
  const events = eventList(live, { port: name });
  const whole = element("div", { class: "port-page" },
    element("header", { class: "port-head" }, before, led, element("h1", {}, name), sign, state, after, reason),
    columns(
      [card("Readings", part.readings, history.whole), card("Bins", part.bins), card("Transfers", part.transfers)],
      [card("Alarms", part.alarms), card("Identity", part.identity), settings.whole,
        card("Events of this port", events.whole), card("Commands", ...commands(name))]));
  let meanings = {};
  let latest = null;

  function show(port) {
    latest = port;
    const look = lookOf(port);
    mark(whole, "data-look", look);
    mark(led, "data-led", ledOf(port));
    mark(led, "title", ledWords[ledOf(port)]);
    sign.replaceChildren(icon(look));
    write(state, `${lookWords[look]}, for ${lasting(port.state_age_s)}; ${ledWords[ledOf(port)]}`);
    write(reason, [port.reason, port.led?.problem, port.module.problem].filter(Boolean).join("; "));
    renew(part.identity, identity(port));
    renew(part.readings, ...readings(port));
    renew(part.alarms, ...alarms(port, meanings));
    renew(part.transfers, transfers(port));
    history.add(port);
  }

  function showSteps(body) {
    const names = body.ports.map((port) => port.name);
    const here = names.indexOf(latest?.name ?? name);
    const to = (link, other) => mark(link, "href", other === undefined ? null : `#/port/${encodeURIComponent(other)}`);
    to(before, names[here - 1]);
    to(after, here < 0 ? undefined : names[here + 1]);
  }

  const refused = (failure) => {
    write(state, "");
    write(reason, failure.message);
  };
  get("panel/explanations.json").then((found) => {
    meanings = found;
    if (latest) show(latest);
  }).catch(() => {});
  const stops = [
    live.watch(`v1/modules/${path}`, 5, show, refused),
    live.watch(`v1/pm?port=${path}`, 15, (body) => renew(part.bins, ...bins(body)), () => {}),
    live.watch("v1/shelf", 3600, showSteps),
    history.stop, settings.stop, events.stop,
  ];
  return { whole, stop: () => stops.forEach((stop) => stop()), title: `Port ${name}` };
}

function identity(port) {
  const vendor = port.vendor ?? {};
  const why = port.reason || "the module has not been read";
  const isRead = Boolean(vendor.name || vendor.part || vendor.serial);
  const said = (value) => value || (isRead ? none("blank in the module") : unknown(why));
  const ofModule = port.state === "empty" ? [["Module", none("none: the cage is empty")]] : [
    ["Vendor", said(vendor.name)], ["Part", said(vendor.part)],
    ["Serial", said(vendor.serial)], ["Revision", said(vendor.revision)],
    ["Date", said(vendor.date)], ["OUI", said(vendor.oui)],
    ["Extra", said([vendor.extra_code, vendor.extra_id].filter(Boolean).join(" "))],
    ["Firmware", text(port.firmware?.text, why)],
    ["Memory map", port.new_memmap === true ? "new" : port.new_memmap === false ? "old" : unknown(why)],
  ];
  return facts([
    ["Position", `rack ${port.rack}, slot ${port.slot}, instance ${port.instance}, port ${port.port}`],
    ...ofModule,
    ["Port handle", String(port.port_handle)],
    ["Controllers", element("span", {}, port.sub_ports.length === 0 ? none()
      : port.sub_ports.map((sub) => element("div", {}, `${sub.ifname || "–"} `, hex(sub.ifhandle),
        sub.told ? `, told ${sub.told}` : "")))],
  ]);
}

function readings(port) {
  if (port.state === "empty") return [element("p", {}, none("none: there is no module to measure in the cage"))];
  const known = port.sub_ports.find((sub) => sub.readings.length > 0);
  const why = port.reason || "no poll has come to the module yet";
  const age = known ? `read ${lasting(known.readings_age_s)} ago` : `not known: ${why}`;
  const rows = (known?.readings ?? []).map((reading, place) => [
    readingTitle(reading.name),
    ...port.sub_ports.map((sub) => value(sub.readings[place], why)),
    reading.dbm === undefined ? "" : "dBm",
  ]);
  rows.push(["Temperature", number(port.temperature_c, 2, why), "", "°C"],
    ["Supply", number(port.supply_v, 3, why), "", "V"]);
  return [element("p", { class: "age" }, age), table("Readings", ["Reading", "Sub-port 0", "Sub-port 1", "Unit"], rows)];
}

function value(reading, why) {
  if (!reading) return unknown(why);
  if (reading.dbm === undefined) return number(reading.value, 1, why);
  if (typeof reading.dbm !== "number") return unknown("no power can be told of what the module says");
  const said = element("span", { title: `${reading.microwatt} µW` }, reading.dbm.toFixed(2));
  if (reading.plausible) return said;
  return element("span", { class: "implausible" }, said, " implausible");
}

function alarms(port, meanings) {
  return port.sub_ports.flatMap((sub) => {
    const title = element("h3", {}, `Sub-port ${sub.sub_port}`);
    const raised = sub.pm?.raised;
    if (!raised) return [title, element("p", {}, unknown(port.reason || "nothing has been handed on yet"))];
    const age = `as of ${lasting(sub.pm.alarms_age_s)} ago${sub.pm.waiting ? ", waiting for the next good poll" : ""}`;
    if (raised.length === 0) return [title, element("p", {}, `none, ${age}`)];
    return [title, element("p", { class: "age" }, age), ...raised.map((alarm) =>
      raisedAlarm(alarm, meanings[alarm], (sub.pm.injected ?? []).includes(alarm)))];
  });
}

function raisedAlarm(alarm, meaning, injected) {
  return element("div", { class: "alarm" },
    element("h4", {}, alarm, injected ? " (forced by a test)" : ""),
    meaning ? facts([["Means", meaning.meaning], ["Look at", meaning.look_at], ["Remedy", meaning.remedy]]) : null);
}

function bins(body) {
  if (body.interfaces.length === 0) return [element("p", {}, unknown("performance monitoring knows no controller of this port"))];
  return body.interfaces.map((one) => {
    const kinds = ["minimum", "average", "maximum"];
    const rows = one.bins[0].values.map((value, place) => [
      readingTitle(value.name) + (value.dbm === undefined ? "" : ", dBm"),
      ...one.bins.flatMap((bin) => kinds.map((kind) => kept(bin, bin.values[place], kind))),
    ]);
    const titles = one.bins.flatMap((bin) => kinds.map((kind) => `${bin.length} ${{ minimum: "min", average: "avg", maximum: "max" }[kind]}`));
    return element("div", {}, element("h3", {}, `Sub-port ${one.sub_port}`),
      table(`Bins of sub-port ${one.sub_port}: minimum, average, maximum`, ["Reading", ...titles], rows),
      element("p", { class: "age" }, one.bins.map(binWords).join("; ")));
  });
}

function kept(bin, value, kind) {
  const why = bin.samples === 0 ? "no sample yet" : "no power can be told of it";
  return value.dbm === undefined ? number(value.value?.[kind], 1, why) : number(value.dbm?.[kind], 2, why);
}

function binWords(bin) {
  return `${bin.length}: ${bin.samples} samples${bin.partial ? ", not whole" : ""}${bin.tested ? ", holds a test's values" : ""}`;
}

function transfers(port) {
  const module = port.module;
  return facts([
    ["Where", `${module.location} (${module.backend}${module.way ? `, ${module.way}` : ""})`],
    ["Module", module.present === null ? unknown(module.problem ?? port.reason) : module.present ? "in the cage" : "none in the cage"],
    ["Transfers", String(module.transfers)], ["Failed", String(module.failed_transfers)],
    ["Last good", module.last_success_age_s === undefined ? none("none yet") : `${lasting(module.last_success_age_s)} ago`],
    ["Last failure", module.last_failure_age_s === undefined ? "none"
      : `${lasting(module.last_failure_age_s)} ago: ${module.last_error.reason ?? module.last_error.text}`],
    ["Bytes", `${module.bytes_read} read, ${module.bytes_written} written`],
    ["Last took", module.last_transfer_us === null ? none("no transfer yet") : `${module.last_transfer_us} µs`],
    ["Goes on for", module.busy_ms === 0 ? "nothing goes on" : `${(module.busy_ms / 1000).toFixed(1)} s`],
    ...["reset", "low_power"].filter((line) => module[line]).map((line) =>
      [line === "reset" ? "Reset line" : "Low power line", yes(module[line].on, module[line].problem)]),
    ["Faults asked for", module.faults],
    ["Polled", port.dom ? yes(port.dom.enabled) : unknown(port.reason)],
    ["Store", port.store.usable ? "keeps what is set" : text(port.store.reason)],
  ]);
}

function commands(name) {
  const own = quoted(name);
  return [`lumctl show port ${own}`, `lumctl show module ${own}`, `lumctl events ${own}`,
    `lumctl show config ${own}`, `lumctl port update ${own} up`, `lumctl module release ${own}`]
    .map((line) => command(line));
}
