// Zoom, search and details of the picture of a chain. All texts of the chain go into the page as text, never as markup.
"use strict";
(() => {
  const byId = (id) => document.getElementById(id);
  const chain = JSON.parse(byId("chain").textContent);
  const stage = byId("stage");
  const svg = stage.querySelector("svg");
  const details = byId("details");
  const search = byId("search");
  const items = new Map(); // what stands in the picture, by its id

  // --- what there is ---

  const textOf = (vertex) => [vertex.name, ...vertex.lines].join(", ");
  const markWords = { named: "named by a rule", hit: "holds a text that a rule highlights" };
  const withMark = (words, item) => (item.mark ? `${words}; ${markWords[item.mark]}` : words);

  for (const vertex of chain.vertices) items.set(vertex.id, { ...vertex, edges: [] });
  for (const edge of chain.edges) {
    const item = { ...edge, isEdge: true };
    items.set(edge.id, item);
    for (const end of new Set([edge.from, edge.to])) items.get(end).edges.push(item);
  }
  const vertices = chain.vertices.map((vertex) => items.get(vertex.id));

  for (const group of svg.querySelectorAll("g.node, g.edge, g.cluster, g.graph")) {
    group.querySelector(":scope > title")?.remove();
    const item = items.get(group.id);
    if (!item) {
      group.classList.add("sample");
      continue;
    }
    item.group = group;
    group.setAttribute("role", "button");
    group.setAttribute("tabindex", "-1");
    if (item.isEdge) {
      item.label = withMark(`${items.get(item.from).name} ${item.word} ${items.get(item.to).name}, ${item.order}`, item);
    } else {
      item.label = withMark(`${item.kind} ${textOf(item)}`, item);
      item.words = [item.kind, textOf(item), ...item.members, ...item.facts.map((fact) => fact[1])].join("\n").toLowerCase();
    }
    group.setAttribute("aria-label", item.label);
    const title = document.createElementNS("http://www.w3.org/2000/svg", "title");
    title.textContent = item.label;
    group.prepend(title);
  }

  // --- zoom: the part of the picture that is seen ---

  // Without the title, which the page shows itself.
  const whole = (() => {
    const box = svg.getBBox();
    const margin = 12;
    return { x: box.x - margin, y: box.y - margin, width: box.width + 2 * margin, height: box.height + 2 * margin };
  })();
  const mostZoom = 40;
  const readable = 1.6; // most units of the picture for a pixel at which texts can be read
  let view = { ...whole };
  svg.removeAttribute("width");
  svg.removeAttribute("height");

  function show(next) {
    view = next;
    svg.setAttribute("viewBox", `${view.x} ${view.y} ${view.width} ${view.height}`);
  }

  // Units of the picture for each pixel of the window.
  function scale() {
    const box = stage.getBoundingClientRect();
    return Math.max(view.width / box.width, view.height / box.height);
  }

  // The point of the picture under a point of the window.
  function pointAt(x, y) {
    const box = stage.getBoundingClientRect();
    const units = scale();
    return {
      x: view.x + view.width / 2 + (x - box.left - box.width / 2) * units,
      y: view.y + view.height / 2 + (y - box.top - box.height / 2) * units,
    };
  }

  function middle() {
    return { x: view.x + view.width / 2, y: view.y + view.height / 2 };
  }

  function zoom(factor, center = middle()) {
    const bound = Math.min(Math.max(view.width / factor, whole.width / mostZoom), whole.width * 2);
    const change = bound / view.width;
    show({
      x: center.x - (center.x - view.x) * change,
      y: center.y - (center.y - view.y) * change,
      width: view.width * change,
      height: view.height * change,
    });
  }

  function fit() {
    show({ ...whole });
  }

  // A picture that is too large to be read as a whole begins where the keyboard is.
  function begin() {
    fit();
    if (scale() > readable) reveal(current);
  }

  // The box of a vertex in the picture's own units.
  function boxOf(item) {
    const box = item.group.getBoundingClientRect();
    const corner = pointAt(box.left, box.top);
    const units = scale();
    return { x: corner.x, y: corner.y, width: box.width * units, height: box.height * units };
  }

  // Moves the picture, so that the vertex lies in the window and can be read.
  function reveal(item) {
    if (scale() > readable) zoom(scale() / 1.2);
    const box = boxOf(item);
    const inside =
      box.x > view.x && box.y > view.y && box.x + box.width < view.x + view.width && box.y + box.height < view.y + view.height;
    if (!inside) show({ ...view, x: box.x + box.width / 2 - view.width / 2, y: box.y + box.height / 2 - view.height / 2 });
  }

  byId("zoom-in").addEventListener("click", () => zoom(1.4));
  byId("zoom-out").addEventListener("click", () => zoom(1 / 1.4));
  byId("zoom-fit").addEventListener("click", fit);
  stage.addEventListener(
    "wheel",
    (event) => {
      event.preventDefault();
      zoom(Math.exp(-event.deltaY * (event.deltaMode === 1 ? 0.05 : 0.0016)), pointAt(event.clientX, event.clientY));
    },
    { passive: false },
  );

  // --- dragging; a press that hardly moves is a click ---

  let drag = null;
  stage.addEventListener("pointerdown", (event) => {
    if (event.button === 0) drag = { x: event.clientX, y: event.clientY, view, moved: false };
  });
  window.addEventListener("pointermove", (event) => {
    if (!drag) return;
    const [dx, dy] = [event.clientX - drag.x, event.clientY - drag.y];
    if (Math.hypot(dx, dy) > 4) drag.moved = true;
    if (!drag.moved) return;
    stage.classList.add("dragged");
    show({ ...drag.view, x: drag.view.x - dx * scale(), y: drag.view.y - dy * scale() });
  });
  window.addEventListener("pointerup", () => {
    stage.classList.remove("dragged");
    // A click follows a drag that ends where it began to, and is not meant as one.
    if (drag?.moved) setTimeout(() => (drag = null));
    else drag = null;
  });
  stage.addEventListener("click", (event) => {
    if (drag?.moved) {
      drag = null;
      return;
    }
    const item = items.get(event.target.closest("g.node, g.edge")?.id);
    if (item) open(item);
    else close();
  });

  // --- details ---

  let current = null; // where the keyboard is
  let chosen = null; // whose details are shown

  function element(name, text) {
    const made = document.createElement(name);
    made.textContent = text;
    return made;
  }

  function linkTo(item, text) {
    const row = document.createElement("li");
    const button = element("button", text);
    button.type = "button";
    button.addEventListener("click", () => {
      focusOn(item);
      open(item);
    });
    row.append(button);
    return row;
  }

  function list(title, rows) {
    if (!rows.length) return [];
    const made = document.createElement("ul");
    made.append(...rows);
    return [element("h3", title), made];
  }

  function factsOf(item) {
    if (!item.facts.length) return [];
    const made = document.createElement("dl");
    for (const [name, value] of item.facts) made.append(element("dt", name), element("dd", value));
    return [element("h3", "All fields"), made];
  }

  function bodyOf(item) {
    if (item.isEdge)
      return [
        ...list("Between", [linkTo(items.get(item.from), items.get(item.from).name), linkTo(items.get(item.to), items.get(item.to).name)]),
        ...factsOf(item),
      ];
    const out = item.edges.filter((edge) => edge.from === item.id);
    const into = item.edges.filter((edge) => edge.to === item.id);
    return [
      ...item.lines.map((line) => element("p", line)),
      ...list("Does", out.map((edge) => linkTo(items.get(edge.to), `${edge.order}: ${edge.word} ${items.get(edge.to).name}`))),
      ...list("Is acted on by", into.map((edge) => linkTo(items.get(edge.from), `${edge.order}: ${items.get(edge.from).name} ${edge.word}`))),
      ...list("Stands for", item.members.map((name) => element("li", name))),
      ...factsOf(item),
    ];
  }

  function open(item) {
    close();
    chosen = item;
    item.group.classList.add("chosen");
    byId("details-name").textContent = item.isEdge ? `${item.word} (${item.order})` : item.name;
    byId("details-kind").textContent = withMark(item.isEdge ? "edge" : item.kind, item);
    byId("details-body").replaceChildren(...bodyOf(item));
    details.hidden = false;
    details.scrollTop = 0;
    if (!item.isEdge) {
      stop(item);
      reveal(item);
    }
  }

  function close() {
    chosen?.group.classList.remove("chosen");
    chosen = null;
    details.hidden = true;
  }

  byId("close").addEventListener("click", () => {
    close();
    current?.group.focus({ preventScroll: true });
  });

  // --- the keyboard in the picture: one stop for Tab, arrow keys within ---

  function stop(item) {
    current?.group.setAttribute("tabindex", "-1");
    current = item;
    item.group.setAttribute("tabindex", "0");
  }

  function focusOn(item) {
    stop(item);
    reveal(item);
    item.group.focus({ preventScroll: true });
  }

  const directions = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };

  // The vertex that lies nearest in a direction; those that an edge joins with this one come first.
  function neighbour(item, [dx, dy]) {
    const from = item.group.getBoundingClientRect();
    const joined = new Set(item.edges.flatMap((edge) => [edge.from, edge.to]));
    let best = null;
    for (const other of vertices) {
      if (other === item) continue;
      const to = other.group.getBoundingClientRect();
      const x = to.left + to.width / 2 - from.left - from.width / 2;
      const y = to.top + to.height / 2 - from.top - from.height / 2;
      const along = x * dx + y * dy;
      const across = Math.abs(x * dy) + Math.abs(y * dx);
      if (along <= 2 || (dx === 0 && across > along * 4 + from.width)) continue;
      let cost = along + across * 2;
      if (dx !== 0 && joined.has(other.id)) cost /= 10;
      if (!best || cost < best.cost) best = { other, cost };
    }
    return best?.other;
  }

  stage.addEventListener("focusin", (event) => {
    const item = items.get(event.target.id);
    if (item && !item.isEdge) stop(item);
  });

  stage.addEventListener("keydown", (event) => {
    const item = items.get(document.activeElement?.id);
    if (!item) return;
    if (event.key === "Enter" || event.key === " ") {
      event.preventDefault();
      open(item);
    } else if (directions[event.key] && !item.isEdge) {
      event.preventDefault();
      const next = neighbour(item, directions[event.key]);
      if (next) focusOn(next);
      if (next && chosen) open(next);
    }
  });

  // --- search ---

  let matches = [];
  let match = -1;

  function find() {
    const wanted = search.value.trim().toLowerCase();
    for (const vertex of vertices) vertex.group.classList.remove("match");
    matches = wanted ? vertices.filter((vertex) => vertex.words.includes(wanted)) : [];
    for (const vertex of matches) vertex.group.classList.add("match");
    match = -1;
    stage.classList.toggle("searched", wanted !== "");
    byId("found").textContent = !wanted ? "" : matches.length ? `${matches.length} found` : "nothing found";
  }

  function nextMatch() {
    if (!matches.length) return;
    match = (match + 1) % matches.length;
    byId("found").textContent = `${match + 1} of ${matches.length}`;
    open(matches[match]);
  }

  search.addEventListener("input", find);
  byId("search-form").addEventListener("submit", (event) => {
    event.preventDefault();
    nextMatch();
  });

  // --- keys that hold everywhere ---

  const isTyping = (target) => target === search;
  const keys = {
    "/": () => search.focus(),
    "+": () => zoom(1.4),
    "=": () => zoom(1.4),
    "-": () => zoom(1 / 1.4),
    0: fit,
  };

  // Escape undoes one thing at a time: the details, then the search.
  function escape() {
    if (!details.hidden) {
      close();
      if (!isTyping(document.activeElement)) current?.group.focus({ preventScroll: true });
      return;
    }
    search.value = "";
    find();
    if (isTyping(document.activeElement)) current?.group.focus({ preventScroll: true });
  }

  document.addEventListener("keydown", (event) => {
    if (event.ctrlKey || event.altKey || event.metaKey) return;
    if (event.key === "Escape") {
      event.preventDefault();
      escape();
    } else if (keys[event.key] && !isTyping(event.target)) {
      event.preventDefault();
      keys[event.key]();
    } else if (event.key === "Enter" && isTyping(event.target)) {
      event.preventDefault();
      nextMatch();
    }
  });

  stop(vertices.find((vertex) => vertex.mark) ?? vertices[0]);
  begin();
})();
