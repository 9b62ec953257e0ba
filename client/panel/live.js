// What the driver says, for as long as somebody looks: documents that are asked for again and
// again, and the stream of events. Nothing is asked while the page is hidden.

const PATIENCE = 8000;  // milliseconds for an answer
const SILENCE = 40000;  // the stream says something every 15 s
const SPACING = 5000;   // between two requests for one document, a polling cycle
const RETRY = 2000;     // after one that failed
const KEPT_EVENTS = 500;

export async function get(path) {
  const answer = await fetch(path, {
    headers: { Accept: "application/json" }, cache: "no-store",
    signal: AbortSignal.timeout(PATIENCE),
  });
  if (!answer.ok) throw new Refused(answer.status, await said(answer));
  return answer.json();
}

export class Refused extends Error {
  constructor(status, reason) {
    super(reason);
    this.status = status;
  }
}

async function said(answer) {
  const body = await answer.json().catch(() => ({}));
  return body.error ?? body.detail ?? `the driver answered ${answer.status}`;
}

// Emits "second" while the page is seen, "state" when it goes live or no longer is, "events" when
// the list has changed.
export class Live extends EventTarget {
  events = [];  // newest first
  record = null;  // whether events are kept
  since = null;  // when it was live last; null while it is
  why = "";
  streaming = false;
  #watches = new Set();
  #clock = null;
  #stream = null;
  #turn = null;  // whoever follows the stream now
  #hurried = false;

  start() {
    document.addEventListener("visibilitychange", () => this.#look());
    this.#look();
  }

  // Asks for the document now, and every so many seconds, or after as many as `apply` returns; a
  // refusal goes to `refused`, or is a sign that the driver is not well. Returns what stops it.
  watch(path, seconds, apply, refused = null) {
    const one = { path, every: seconds * 1000, apply, refused, due: 0, asked: -SPACING, busy: false };
    this.#watches.add(one);
    if (this.#clock) this.#ask(one);
    return () => this.#watches.delete(one);
  }

  // Something has happened: every document with this sign may be another.
  hurry() {
    if (this.#hurried) return;
    this.#hurried = true;
    setTimeout(() => {
      this.#hurried = false;
      for (const one of this.#watches) if (one.every <= 15000) one.due = 0;
      this.#askDue();
    }, 250);
  }

  #look() {
    const seen = document.visibilityState === "visible";
    if (seen === Boolean(this.#clock)) return;
    if (seen) {
      this.#clock = setInterval(() => this.#tick(), 1000);
      for (const one of this.#watches) one.due = 0;
      this.#askDue();
      this.#follow();
    } else {
      clearInterval(this.#clock);
      this.#clock = null;
      this.#turn = null;
      this.#stream.abort();
    }
  }

  #tick() {
    this.#askDue();
    this.dispatchEvent(new Event("second"));
  }

  #askDue() {
    if (!this.#clock) return;
    const now = performance.now();
    for (const one of this.#watches) {
      if (one.due <= now && one.asked + SPACING <= now) this.#ask(one);
    }
  }

  async #ask(one) {
    if (one.busy) return;
    one.busy = true;
    one.asked = performance.now();
    one.due = one.asked + one.every;
    try {
      const body = await get(one.path);
      this.#answered();
      if (!this.#watches.has(one)) return;
      const next = one.apply(body);
      if (next !== undefined) one.due = one.asked + 1000 * next;
    } catch (failure) {
      if (!this.#clock || !this.#watches.has(one)) return;
      if (failure instanceof Refused && one.refused) {
        one.refused(failure);
      } else {
        this.#failed(failure);
        one.due = performance.now() + RETRY;
        one.asked = -SPACING;
      }
    } finally {
      one.busy = false;
    }
  }

  #answered() {
    if (this.since === null) return;
    this.since = null;
    this.why = "";
    for (const one of this.#watches) one.due = 0;
    this.dispatchEvent(new Event("state"));
  }

  #failed(failure) {
    const expected = failure instanceof Refused || failure instanceof TypeError ||
      ["TimeoutError", "AbortError"].includes(failure.name);
    if (!expected) console.error(failure);
    this.why = failure instanceof Refused ? failure.message : "the driver does not answer";
    this.since ??= new Date();
    this.dispatchEvent(new Event("state"));
  }

  async #follow() {
    const turn = {};
    this.#turn = turn;
    while (this.#turn === turn) {
      const stream = new AbortController();
      this.#stream = stream;
      let pause = 1000;
      try {
        await this.#listAll();
        if (this.#turn !== turn) break;  // it was hidden, and another follows by now
        await this.#read(stream);
      } catch (failure) {
        if (this.#turn !== turn) break;
        if (failure instanceof Refused) pause = 5000;
        else this.#failed(failure);
      }
      this.#setStreaming(false);
      await new Promise((resolve) => { setTimeout(resolve, pause); });
    }
  }

  // All that there is, so that nothing depends on what was known before the driver started anew.
  async #listAll() {
    const all = await get(`v1/events?limit=${KEPT_EVENTS}`);
    this.events = all.events.reverse();
    this.record = all;
    this.#answered();
    this.dispatchEvent(new Event("events"));
  }

  // Until the stream ends, which it does not of itself.
  async #read(stream) {
    let silence = setTimeout(() => stream.abort(), SILENCE);
    try {
      const answer = await fetch(`v1/events?since=${this.record.last}`, {
        headers: { Accept: "text/event-stream" }, cache: "no-store", signal: stream.signal,
      });
      if (!answer.ok) throw new Refused(answer.status, await said(answer));
      this.#setStreaming(true);
      const reader = answer.body.pipeThrough(new TextDecoderStream()).getReader();
      for (let rest = ""; ;) {
        const { value, done } = await reader.read();
        if (done) throw new TypeError("the stream has ended");
        clearTimeout(silence);
        silence = setTimeout(() => stream.abort(), SILENCE);
        const blocks = (rest + value).split("\n\n");
        rest = blocks.pop();
        this.#take(blocks);
      }
    } finally {
      clearTimeout(silence);
    }
  }

  #take(blocks) {
    let taken = false;
    for (const block of blocks) {
      const line = block.split("\n").find((one) => one.startsWith("data: "));
      if (!line) continue;
      const one = JSON.parse(line.slice("data: ".length));
      if (one.number === undefined) continue;  // how many were missed
      this.events.unshift(one);
      taken = true;
    }
    if (!taken) return;
    this.events.length = Math.min(this.events.length, KEPT_EVENTS);
    this.dispatchEvent(new Event("events"));
    this.hurry();
  }

  #setStreaming(now) {
    if (this.streaming === now) return;
    this.streaming = now;
    this.dispatchEvent(new Event("state"));
  }
}
