// The page: its head, its notice, and one of its views.

import { element, mark, write } from "./dom.js";
import { Live } from "./live.js";
import { nodeView } from "./node.js";
import { portView } from "./port.js";
import { shelfView } from "./shelf.js";
import { healthLine, isUtc, lasting, moment, setUtc } from "./words.js";

const live = new Live();
const head = document.getElementById("head");
const notice = document.getElementById("notice");
const content = document.getElementById("content");
let view = null;

const name = element("a", { class: "node", href: "#/" }, "–");
const health = element("a", { class: "health", href: "#/node", "data-status": "unknown" }, "…");
const sign = element("span", { class: "live", role: "status", "data-live": "no" }, "connecting");
const zone = element("button", { type: "button", class: "zone", "aria-pressed": String(isUtc()),
  title: "Times in UTC rather than the zone of this computer" }, "UTC");
const links = [["#/", "Shelf"], ["#/node", "Node"]].map(([href, text]) => element("a", { href }, text));
head.append(name, element("nav", { "aria-label": "Views" }, links), health, sign, zone);

zone.addEventListener("click", () => {
  setUtc(!isUtc());
  mark(zone, "aria-pressed", String(isUtc()));
  open();
});

function open() {
  view?.stop();
  const [kind, argument] = location.hash.replace(/^#\//, "").split("/");
  view = kind === "port" ? portView(live, decoded(argument ?? ""))
    : kind === "node" ? nodeView(live) : shelfView(live);
  content.replaceChildren(view.whole);
  content.className = kind || "shelf";
  links.forEach((link) => mark(link, "aria-current",
    link.hash === (kind === "node" ? "#/node" : kind === "port" ? "" : "#/") ? "page" : null));
  titled();
}

function decoded(text) {
  try {
    return decodeURIComponent(text);
  } catch {
    return text;
  }
}

function titled() {
  document.title = `${view.title} · ${name.textContent}`;
}

function showHealth(body) {
  write(name, body.node);
  write(health, healthLine(body));
  mark(health, "data-status", body.status);
  mark(health, "title", health.textContent);
  titled();
}

// No module is polled: what is shown is as old as it says, live or not.
let halt = null;
function showHalt(body) {
  halt = body.halt;
  showNotice();
}

function showNotice() {
  const gone = live.since !== null;
  mark(document.body, "data-live", gone ? "no" : "yes");
  mark(document.body, "data-halt", halt ? "yes" : "no");
  mark(sign, "data-live", gone ? "no" : live.streaming ? "yes" : "slow");
  write(sign, gone ? "not live" : live.streaming ? "live" : "live, without events");
  const lost = gone ? `Not live since ${moment(live.since)}: ${live.why}. What is shown is from before. Trying again.` : "";
  const still = halt ? `No module is polled, for ${lasting(halt.for_s)}: ${halt.reason}. Readings are as old as they say.` : "";
  write(notice, [lost, still].filter(Boolean).join(" "));
}

live.addEventListener("state", showNotice);
live.watch("v1/health", 5, showHealth);
live.watch("v1/polling", 5, showHalt);
addEventListener("hashchange", () => {
  open();
  content.focus({ preventScroll: true });
  scrollTo(0, 0);
});
open();
live.start();
