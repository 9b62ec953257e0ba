"""How long a browser takes to draw a shelf, beside a plain table of as many elements."""

# Both from made to laid out, of the ports that the driver shows now; the best of a few.
SCRIPT = """
const [done] = [arguments[arguments.length - 1]];
(async () => {
  const { shelfView } = await import("/panel/shelf.js");
  const body = await (await fetch("/v1/shelf")).json();
  const live = { events: [], addEventListener() {}, removeEventListener() {},
    watch: (path, seconds, apply) => {
      if (path === "v1/shelf") setTimeout(() => apply(body));
      return () => {};
    } };
  const content = document.getElementById("content");
  const milliseconds = async (draw) => {
    let least = Infinity;
    for (let turn = 0; turn < 3; ++turn) {
      content.replaceChildren();
      content.offsetHeight;
      const begun = performance.now();
      await draw();
      content.offsetHeight;
      least = Math.min(least, performance.now() - begun);
    }
    return least;
  };
  content.className = "shelf";
  const shelf = await milliseconds(async () => {
    const view = shelfView(live);
    content.append(view.whole);
    while (content.querySelectorAll(".cage").length < body.ports.length) {
      await new Promise((resolve) => { setTimeout(resolve); });
    }
    view.stop();
  });
  const elements = content.querySelectorAll("*").length;
  const table = await milliseconds(async () => {
    const made = document.createElement("table");
    for (let row = 0; row * 20 < elements; ++row) {
      const line = made.insertRow();
      for (let cell = 0; cell < 19; ++cell) line.insertCell().textContent = `${row} ${cell}`;
    }
    content.append(made);
  });
  done([elements, shelf, table]);
})().catch((failure) => done(String(failure)));
"""


def measured(looking):
    """Elements of the shelf, and milliseconds for it and for the table."""
    found = looking.driver.execute_async_script(SCRIPT)
    if isinstance(found, str):
        raise RuntimeError(found)
    return found


def told(ports, found):
    elements, shelf, table = found
    return (f"{ports} ports, {elements} elements: drawn in {shelf:.0f} ms,"
            f" {shelf / table:.1f} x a plain table of as many ({table:.0f} ms)")
