// The settings of a port's sub-ports: saved, in force, and in the module.

import { card, command, element, renew, table } from "./dom.js";
import { get } from "./live.js";
import { none, quoted, unknown } from "./words.js";

export function settingsCard(live, name) {
  const body = element("div", {});
  const path = `v1/settings?port=${encodeURIComponent(name)}`;
  const ask = element("button", { type: "button", class: "ask", on: { click: askModule } }, "Ask the module");
  const said = element("span", { class: "age", role: "status" });
  let held = null;
  let latest = null;

  function show(answer) {
    latest = answer.ports[0] ?? latest;
    if (latest) renew(body, ...latest.sub_ports.map((sub) => subPort(name, sub, heldOf(sub))));
  }

  function heldOf(sub) {
    const found = held?.sub_ports.find((one) => one.sub_port === sub.sub_port);
    return (setting) => found?.settings.find((one) => one.name === setting)?.module;
  }

  async function askModule() {
    ask.disabled = true;
    said.textContent = "asking";
    try {
      const answer = await get(`${path}&module=true`);
      held = answer.ports[0];
      said.textContent = "";
      show(answer);
    } catch (failure) {
      said.textContent = failure.message;
    } finally {
      ask.disabled = false;
    }
  }

  const stop = live.watch(path, 15, show, (failure) => renew(body, element("p", {}, failure.message)));
  return { whole: card("Settings", body, element("p", {}, ask, " ", said)), stop };
}

function subPort(name, sub, held) {
  const rows = sub.settings.map((one) => [
    one.unit ? `${one.name} (${one.unit})` : one.name,
    differing(shown(one.saved), one, "saved"), shown(one.in_force),
    differing(module(held(one.name)), one, "module"),
    command(`lumctl set ${quoted(`${name}:${sub.sub_port}`)} ${one.name}=${one.in_force.value ?? "VALUE"}`),
  ]);
  return element("div", {}, element("h3", {}, `Sub-port ${sub.sub_port}`),
    table(`Settings of sub-port ${sub.sub_port}`, ["Setting", "Saved", "In force", "In the module", "To change it"], rows));
}

// Marked where it is known and not what is in force.
function differing(cell, one, place) {
  return one.differs.includes(place) ? element("span", { class: "differs" }, cell, " differs") : cell;
}

function shown(one) {
  return one.value === null ? unknown(one.reason) : String(one.value);
}

function module(held) {
  if (!held) return unknown("the module has not been asked");
  if (held.exists === false) return none("no register");
  if (held.value !== null) return String(held.value);
  return held.register === null ? unknown(held.reason) : `register ${held.register}`;
}
