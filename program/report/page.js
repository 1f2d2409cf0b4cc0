// The page of `path-filter report`: a map of the directories and tables beside it. All that
// comes from the repository is text: it gets into the page by textContent and onto the canvas.
// A tree may be 100,000 directories deep: nothing here recurses, and only what is seen of the
// directory that is shown is laid out.

const data = JSON.parse(document.getElementById("data").textContent);

// --- The tree. A directory is a number, and comes after the one that holds it; a box is a
// number, and those of a directory follow each other.

const directoryNames = data.directories.name;
const parents = data.directories.parent;
const boxNames = data.boxes.name;
const boxBytes = data.boxes.bytes;
const boxFacts = data.boxes.fact;
const boxFiles = new Float64Array(boxNames.length).fill(1);
for (const [box, files] of data.boxes.files) boxFiles[box] = files;

const DIRECTORIES = directoryNames.length;
const VERDICTS = data.verdicts.length;
const FIRST_LEFT_OUT = 2; // before it: production, test
const WHOLE = VERDICTS; // the column of what lies in directories that are left out whole
const COLUMNS = VERDICTS + 1; // one for each verdict of what does not

// What boxes have in common: the verdict, the language, the form, what decided.
const facts = data.facts.map(([verdict, language, isPruned, decider, isSeveral]) =>
  ({ verdict, language, isPruned, isSeveral, decider: data.deciders[decider] }));
const factOf = (box) => facts[boxFacts[box]];

const firstBox = [0]; // of each directory, and the end of the last one's
for (const count of data.directories.boxes) firstBox.push(firstBox.at(-1) + count);
const children = parents.map(() => []);
for (let at = 1; at < DIRECTORIES; ++at) children[parents[at]].push(at);

const directoryOf = new Uint32Array(boxNames.length); // each box
for (let at = 0; at < DIRECTORIES; ++at) directoryOf.fill(at, firstBox[at], firstBox[at + 1]);

/** How much of each column is below each directory, of the boxes that `matches` is true of. */
function countTree(matches) {
  const counts = {
    files: new Float64Array(DIRECTORIES * COLUMNS),
    bytes: new Float64Array(DIRECTORIES * COLUMNS),
  };
  for (let directory = DIRECTORIES - 1; directory >= 0; --directory) {
    const row = directory * COLUMNS;
    for (let box = firstBox[directory]; box < firstBox[directory + 1]; ++box) {
      if (!matches(box)) continue;
      const at = row + (factOf(box).isPruned ? WHOLE : factOf(box).verdict);
      counts.files[at] += boxFiles[box];
      counts.bytes[at] += boxBytes[box];
    }
    if (directory === 0) break;
    const above = parents[directory] * COLUMNS;
    for (let column = 0; column < COLUMNS; ++column) {
      counts.files[above + column] += counts.files[row + column];
      counts.bytes[above + column] += counts.bytes[row + column];
    }
  }
  return counts;
}

/** The sum over the columns from `first` to before `end`; `numbers` are files or bytes. */
function sum(numbers, directory, first = 0, end = COLUMNS) {
  const row = directory * COLUMNS;
  return numbers.subarray(row + first, row + end).reduce((total, number) => total + number, 0);
}

// --- Texts.

const grouped = (number) => number.toLocaleString("en-US");
const counted = (number, thing, things = `${thing}s`) =>
  `${grouped(number)} ${number === 1 ? thing : things}`;

// Of two numbers that are equally near the program takes the even one.
const tenths = new Intl.NumberFormat("en-US", {
  minimumFractionDigits: 1, maximumFractionDigits: 1, roundingMode: "halfEven", useGrouping: false,
});

/** A size as the program prints it. */
function readableSize(bytes) {
  if (bytes < 1024) return `${bytes} B`;
  const units = ["KiB", "MiB", "GiB", "TiB"];
  let size = bytes / 1024;
  let unit = 0;
  for (; size >= 1023.95 && unit + 1 < units.length; ++unit) size /= 1024;
  return `${tenths.format(size)} ${units[unit]}`;
}

const rootName = data.root || "/";
const shownRoot = [rootName, data.below].filter(Boolean).join("/");

/** The names from `above`, which is without its own here, down to `directory`. */
function namesTo(directory, above = 0) {
  const names = [];
  for (let at = directory; at !== above; at = parents[at]) names.push(directoryNames[at]);
  return names.reverse();
}

/** The name of a box; of one for several things, how many. */
function nameOf(box) {
  if (factOf(box).isSeveral) return counted(boxFiles[box], "file");
  return boxNames[box] + (factOf(box).isPruned ? "/" : "");
}

/** A path below the repository's root; the middle of a very deep one is left out. */
function pathText(directory, name = "") {
  const [FIRST, LAST] = [4, 12];
  const names = namesTo(directory);
  if (names.length > FIRST + LAST + 1) {
    const hidden = names.length - FIRST - LAST;
    names.splice(FIRST, hidden, `(${counted(hidden, "directory", "directories")})`);
  }
  return [data.below, ...names].filter(Boolean).map((part) => `${part}/`).join("") + name;
}

const verdictTitle = (verdict) => data.verdicts[verdict].name.replace("_", " ");
// What tells the verdicts apart without their colours.
const LETTERS = ["P", "T", "D", "X", "U", "L", "M", "G", "S", "A"];

/** An element with texts and elements in it; fields in `fields` are attributes. */
function element(tag, fields = {}, ...content) {
  const made = document.createElement(tag);
  for (const [name, value] of Object.entries(fields)) {
    if (name === "onclick") made.addEventListener("click", value);
    else made.setAttribute(name, value);
  }
  made.append(...content); // texts become text nodes
  return made;
}

const byId = (id) => document.getElementById(id);

// --- What is shown.

const allCounts = countTree(() => true);
const state = {
  directory: 0,
  // A tree of empty files has no areas by bytes.
  measure: sum(allCounts.bytes, 0) > sum(allCounts.files, 0) ? "bytes" : "files",
  filter: null, // {key, title, matches}
  counts: allCounts, // under the filter
  marked: null, // a box that was searched for or chosen
  focus: null, // the drawn box that the keyboard is at
  hover: null,
};

const measured = (box) => (state.measure === "bytes" ? boxBytes : boxFiles)[box];
const matches = (box) => state.filter === null || state.filter.matches(box);

// --- The layout: what is drawn, the outer before the inner. Areas compare what is in the index and
// the files left out among it. What is left out whole, which is often many times as much, has a
// strip below, with areas of its own.

const LEAST_AREA = 12; // in square pixels; what would be smaller is drawn together
const HEADER = 18;
const prunedBoxes = boxNames.map((_, box) => box).filter((box) => factOf(box).isPruned);

/** What is left out whole below the directory that is shown. */
function boxesOfStrip() {
  const isBelow = new Uint8Array(DIRECTORIES);
  isBelow[state.directory] = 1;
  for (let at = state.directory + 1; at < DIRECTORIES; ++at) isBelow[at] = isBelow[parents[at]];
  return prunedBoxes.filter((box) => isBelow[directoryOf[box]]);
}

function boxesOfMap(directory) {
  const boxes = [];
  for (let box = firstBox[directory]; box < firstBox[directory + 1]; ++box) {
    if (!factOf(box).isPruned) boxes.push(box);
  }
  return boxes;
}

/** The value of a directory or the strip. */
function valueOf({ type, directory }) {
  const [first, end] = type === "strip" ? [WHOLE, COLUMNS] : [0, WHOLE];
  return sum(state.counts[state.measure], directory, first, end);
}

/** What stands in a directory or the strip; of less than `least`, a part for each verdict. */
function partsOf({ type, directory }, least) {
  const isPruned = type === "strip";
  const parts = [];
  const rest = data.verdicts.map((_, verdict) =>
    ({ type: "rest", directory, verdict, isPruned, value: 0, files: 0, bytes: 0 }));
  const addRest = (verdict, files, bytes) => {
    const part = rest[verdict];
    part.files += files;
    part.bytes += bytes;
    part.value = part[state.measure];
  };
  for (const child of isPruned ? [] : children[directory]) {
    const part = { type: "directory", directory: child };
    part.value = valueOf(part);
    if (part.value >= least) parts.push(part);
    else {
      for (let verdict = 0; verdict < VERDICTS; ++verdict) {
        const at = child * COLUMNS + verdict;
        addRest(verdict, state.counts.files[at], state.counts.bytes[at]);
      }
    }
  }
  for (const box of isPruned ? boxesOfStrip() : boxesOfMap(directory)) {
    if (!matches(box)) continue;
    const { verdict } = factOf(box);
    const value = measured(box);
    if (value < least) addRest(verdict, boxFiles[box], boxBytes[box]);
    else parts.push({ type: "box", directory: directoryOf[box], box, verdict, isPruned, value });
  }
  return parts.concat(rest).filter(({ value }) => value > 0);
}

/** What is within the edge of an item, and below its header when there is room for one. */
function insideOf(item) {
  item.hasHeader = item.width >= 44 && item.height >= 40;
  const edge = item.width >= 12 && item.height >= 12 ? 2 : 0;
  const top = item.hasHeader ? HEADER : edge;
  return {
    x: item.x + edge,
    y: item.y + top,
    width: item.width - 2 * edge,
    height: item.height - top - edge,
  };
}

/** Boxes with x, y, width, height and level for a map of this size. */
function layOut(width, height) {
  const whole = { type: "directory", directory: state.directory, x: 0, y: 0, width, height, level: 0 };
  const strip = { ...whole, type: "strip" };
  const drawn = [];
  const pending = [whole];
  if (valueOf(strip) > 0) {
    if (valueOf(whole) > 0) whole.height -= Math.floor(height / 10);
    else whole.height = 0;
    strip.y = whole.height + (whole.height > 0 ? 3 : 0);
    strip.height -= strip.y;
    pending.unshift(strip);
  }
  while (pending.length > 0) {
    const outer = pending.pop();
    drawn.push(outer);
    if (outer.type !== "directory" && outer !== strip) continue;
    const inner = outer === whole ? outer : insideOf(outer);
    const isClosed = outer.level > 0 && (inner.width < 16 || inner.height < 12);
    const least = (LEAST_AREA * valueOf(outer)) / (inner.width * inner.height);
    const root = d3
      .hierarchy({ parts: partsOf(outer, isClosed ? Infinity : least) }, (node) => node.parts)
      .sum((node) => node.value ?? 0)
      .sort((a, b) => b.value - a.value);
    d3.treemap().tile(d3.treemapSquarify.ratio(1.3)).size([inner.width, inner.height])
      .round(true)(root);
    // The largest is drawn first, and so is what a keyboard comes to first.
    for (const node of (root.children ?? []).reverse()) {
      if (node.x1 <= node.x0 || node.y1 <= node.y0) continue;
      pending.push({
        ...node.data,
        x: inner.x + node.x0,
        y: inner.y + node.y0,
        width: node.x1 - node.x0,
        height: node.y1 - node.y0,
        level: outer.level + 1,
      });
    }
  }
  return drawn;
}

// --- Painting.

const map = byId("map");
const picture = document.createElement("canvas"); // the map without its marks
let drawn = [];
let painted = { width: 0, height: 0 };
let theme = null;

/** The colours of the page as they are now, and the patterns of the verdicts in them. */
function readTheme() {
  const style = getComputedStyle(document.documentElement);
  const color = (name) => style.getPropertyValue(`--${name}`).trim();
  const scale = Math.max(1, Math.round(devicePixelRatio));
  const pattern = (size, draw) => {
    const tile = document.createElement("canvas");
    tile.width = tile.height = size * scale;
    const context = tile.getContext("2d");
    context.scale(scale, scale);
    context.strokeStyle = context.fillStyle = color("ink");
    draw(context, size);
    const made = context.createPattern(tile, "repeat");
    made.setTransform(new DOMMatrix().scale(1 / scale));
    return made;
  };
  theme = {
    ink: color("ink"),
    quiet: color("quiet"),
    page: color("page"),
    accent: color("accent"),
    levels: [color("level-0"), color("level-1")],
    verdicts: data.verdicts.map((_, verdict) => color(`verdict-${verdict}`)),
    test: pattern(7, (context) => {
      context.globalAlpha = 0.3;
      context.fillRect(1, 1, 1.5, 1.5);
      context.fillRect(4.5, 4.5, 1.5, 1.5);
    }),
    leftOut: pattern(6, (context, size) => {
      context.globalAlpha = 0.16;
      context.fillRect(0, 0, 1, size);
    }),
    pruned: pattern(8, (context, size) => {
      context.globalAlpha = 0.34;
      context.lineWidth = 1.6;
      for (const at of [-size, 0, size]) {
        context.moveTo(at - 1, size + 1);
        context.lineTo(at + size + 1, -1);
      }
      context.stroke();
    }),
  };
}

/** Makes the canvas as sharp as the screen; its context draws in CSS pixels. */
function prepared(canvas, { clientWidth: width, clientHeight: height } = canvas) {
  canvas.width = Math.round(width * devicePixelRatio);
  canvas.height = Math.round(height * devicePixelRatio);
  const context = canvas.getContext("2d");
  context.scale(canvas.width / Math.max(width, 1), canvas.height / Math.max(height, 1));
  context.font = "11px system-ui, sans-serif";
  context.textBaseline = "middle";
  return context;
}

/** As much of the text as fits. */
function fitted(context, text, width) {
  const MOST = 200; // characters, which are wider than any box
  if (text.length <= MOST && context.measureText(text).width <= width) return text;
  const characters = [...text.slice(0, MOST)]; // no half of one
  let [low, high] = [0, characters.length];
  while (low < high) {
    const middle = Math.ceil((low + high) / 2);
    if (context.measureText(`${characters.slice(0, middle).join("")}…`).width <= width) low = middle;
    else high = middle - 1;
  }
  return low < 3 ? "" : `${characters.slice(0, low).join("")}…`;
}

function fillVerdict(context, verdict, isPruned, x, y, width, height) {
  const rectangle = [x, y, width, height];
  context.fillStyle = theme.verdicts[verdict];
  context.fillRect(...rectangle);
  if (verdict === 0) return;
  context.fillStyle = isPruned ? theme.pruned : verdict === 1 ? theme.test : theme.leftOut;
  context.fillRect(...rectangle);
}

/** A value by what areas stand for. */
const amount = (value) => (state.measure === "files" ? grouped : readableSize)(value);

/** A directory, or the strip, with its header. */
function paintDirectory(context, item) {
  context.fillStyle = theme.levels[item.level % 2];
  context.fillRect(item.x, item.y, item.width - 1, item.height - 1);
  if (!item.hasHeader) return;
  const [name, size] = item.type === "directory"
    ? [`${directoryNames[item.directory]}/`, amount(item.value)]
    : ["Directories left out whole", figures(item.directory, WHOLE)];
  const y = item.y + HEADER / 2 + 0.5;
  const space = item.width - 10;
  const sizeWidth = context.measureText(size).width;
  context.fillStyle = theme.ink;
  context.font = "600 11px system-ui, sans-serif";
  const wanted = context.measureText(name.slice(0, 80)).width;
  context.fillText(fitted(context, name, space), item.x + 5, y);
  context.font = "11px system-ui, sans-serif";
  if (wanted + sizeWidth + 10 > space) return;
  context.fillStyle = theme.quiet;
  context.fillText(size, item.x + item.width - 5 - sizeWidth, y);
}

function paintBox(context, item) {
  const [width, height] = [item.width - 1, item.height - 1];
  fillVerdict(context, item.verdict, item.isPruned, item.x, item.y, width, height);
  if (width < 16 || height < 16) return;
  // Text stands on the plain colour, on which it can be read.
  const label = (text, y) => {
    context.fillStyle = theme.verdicts[item.verdict];
    const textWidth = context.measureText(text).width;
    if (item.verdict !== 0) context.fillRect(item.x + 3, y - 7, textWidth + 4, 14);
    context.fillStyle = theme.ink;
    context.fillText(text, item.x + 5, y);
  };
  const isSeveral = item.type === "rest" || factOf(item.box).isSeveral;
  let name = "";
  if (isSeveral) {
    const files = item.type === "rest" ? item.files : boxFiles[item.box];
    name = width < 70 ? grouped(files) : counted(files, "file");
  } else {
    // In the strip there are those of the directories below, too.
    name = [...namesTo(item.directory, item.isPruned ? state.directory : item.directory),
      nameOf(item.box)].join("/");
  }
  const letter = item.verdict === 0 ? "" : LETTERS[item.verdict];
  const space = width - 8;
  const text = fitted(context, letter === "" ? name : `${letter} · ${name}`, space);
  if (text === "" && letter === "") return;
  label(text || letter, item.y + 10);
  const size = amount(item.value);
  if (height >= 32 && !isSeveral && context.measureText(size).width <= space) {
    label(size, item.y + 24);
  }
}

/** The drawn item that stands for a box: itself, or what it was put together with. */
function itemOf(box) {
  const { verdict, isPruned } = factOf(box);
  const directory = isPruned ? state.directory : directoryOf[box];
  return (
    drawn.find((item) => item.type === "box" && item.box === box) ??
    drawn.find((item) => item.type === "rest" && item.directory === directory &&
      item.verdict === verdict && item.isPruned === isPruned)
  );
}

function paintMarks() {
  const context = prepared(map);
  const { clientWidth: width, clientHeight: height } = map;
  if (width > 0 && height > 0) context.drawImage(picture, 0, 0, width, height);
  const marked = state.marked === null ? undefined : itemOf(state.marked);
  if (marked !== undefined) {
    context.fillStyle = theme.page;
    context.globalAlpha = 0.4;
    context.rect(0, 0, width, height);
    context.rect(marked.x, marked.y, marked.width, marked.height);
    context.fill("evenodd"); // all but the marked one
    context.globalAlpha = 1;
  }
  const frame = (item, color, line) => {
    if (!item) return;
    const rectangle = [
      item.x + line / 2, item.y + line / 2,
      Math.max(item.width - line - 1, 1), Math.max(item.height - line - 1, 1),
    ];
    for (const [style, size] of [[theme.page, line + 2], [color, line]]) {
      context.strokeStyle = style;
      context.lineWidth = size;
      context.strokeRect(...rectangle);
    }
  };
  frame(marked, theme.accent, 3);
  frame(state.hover, theme.ink, 1.5);
  if (document.activeElement === map) frame(state.focus, theme.accent, 3);
}

function paint() {
  const context = prepared(picture, map);
  painted = { width: map.clientWidth, height: map.clientHeight };
  drawn = layOut(painted.width, painted.height);
  for (const item of drawn) {
    if (item.type === "directory" || item.type === "strip") paintDirectory(context, item);
    else paintBox(context, item);
  }
  state.hover = null;
  // What the keyboard was at is where it is now.
  const { focus } = state;
  state.focus = focus && (drawn.find((item) => item.level === 1 && item.type === focus.type &&
    item.directory === focus.directory && item.box === focus.box &&
    item.verdict === focus.verdict) ?? null);
  const isEmpty = drawn.length === 1;
  byId("empty").hidden = !isEmpty;
  byId("empty").textContent =
    state.measure === "bytes" && sum(state.counts.files, state.directory) > 0
      ? "All files here are empty: choose the area by files."
      : "Nothing is here.";
  paintMarks();
}

// --- What is under the pointer or the keyboard, in words.

/** How much a directory holds in the columns from `first` on. */
const figures = (directory, first = 0) =>
  `${counted(sum(state.counts.files, directory, first), "file")} · ` +
  readableSize(sum(state.counts.bytes, directory, first));

/** Says what an item is; without one, what is marked or the directory that is shown. */
function describe(item) {
  const { type, directory, box, files, bytes, verdict, isPruned } = item ??
    (state.marked !== null ? { type: "box", directory: directoryOf[state.marked],
      box: state.marked, ...factOf(state.marked) }
      : { type: "directory", directory: state.directory });
  let name = "";
  let fields = [];
  if (type === "directory") {
    const [inside, out, whole] = [[0, FIRST_LEFT_OUT], [FIRST_LEFT_OUT], [WHOLE]]
      .map((columns) => sum(state.counts.files, directory, ...columns));
    fields = ["directory", figures(directory), `${grouped(inside)} in, ${grouped(out)} left out`,
      whole > 0 && `${grouped(whole)} of them in directories left out whole`];
  } else if (type === "rest") {
    fields = [`${counted(files, "file")}${isPruned ? " in directories left out whole" : ""}, ` +
      "too small to be drawn apart", readableSize(bytes)];
  } else {
    const { isSeveral, language } = factOf(box);
    if (!isSeveral) name = nameOf(box);
    const count = counted(boxFiles[box], "file");
    fields = [isSeveral ? `${count}, counted together`
      : isPruned && `directory left out whole · ${count}`,
    data.languages[language].name, readableSize(boxBytes[box])];
  }
  if (type !== "directory") fields.push(verdictTitle(verdict), data.verdicts[verdict].reason);
  if (type === "box" && factOf(box).decider) fields.push(`rule ${factOf(box).decider}`);
  byId("details").replaceChildren(
    element("bdi", {}, pathText(directory, name) || `${rootName}/`),
    ...fields.filter(Boolean).map((field) => element("span", {}, ` · ${field}`)));
}

// --- The place: the address holds it.

const DEEPEST_NAMED = 64; // deeper directories are in the address by number

function addressOf(directory) {
  const names = namesTo(directory);
  if (names.length > DEEPEST_NAMED) return `#@${directory}`;
  return `#/${names.map(encodeURIComponent).join("/")}`;
}

/** The directory of an address; as much of the path as there is. */
function directoryAt(address) {
  if (address.startsWith("#@")) {
    const number = Number(address.slice(2));
    return Number.isInteger(number) && number > 0 && number < DIRECTORIES ? number : 0;
  }
  let directory = 0;
  try {
    for (const name of address.slice(2).split("/").map(decodeURIComponent)) {
      const found = children[directory].find((child) => directoryNames[child] === name);
      if (found === undefined) break;
      directory = found;
    }
  } catch (error) {
    if (!(error instanceof URIError)) throw error; // no address of this page
  }
  return directory;
}

/** Shows `directory`, with a box of it marked. */
function go(directory, marked = null) {
  const from = state.directory;
  state.marked = marked;
  state.directory = directory;
  // One level up, the keyboard is at the directory that was left.
  state.focus = parents[from] === directory && from !== 0
    ? { type: "directory", directory: from } : null;
  if (location.hash !== addressOf(directory)) location.hash = addressOf(directory);
  show();
}

addEventListener("hashchange", () => {
  const directory = directoryAt(location.hash);
  if (directory !== state.directory) go(directory);
});

function showTrail() {
  const [FIRST, LAST] = [2, 5];
  const items = [];
  for (let at = state.directory; at !== 0; at = parents[at]) items.push({ directory: at });
  items.push({ directory: 0 });
  items.reverse();
  if (items.length > FIRST + LAST + 1) {
    items.splice(FIRST, items.length - FIRST - LAST, { hidden: items.length - FIRST - LAST });
  }
  byId("trail").replaceChildren(...items.map(({ directory, hidden }) => {
    if (hidden) return element("li", {}, element("span", {}, `… ${grouped(hidden)} more …`));
    const name = directory === 0 ? shownRoot : directoryNames[directory];
    const button = element("button", { type: "button", onclick: () => go(directory) }, name);
    if (directory === state.directory) button.setAttribute("aria-current", "location");
    return element("li", {}, button);
  }));
}

// --- The filter.

/** Shows only what `filter` matches; the same one again, or null, shows all. */
function setFilter(filter) {
  state.filter = filter && filter.key === state.filter?.key ? null : filter;
  state.marked = null;
  state.counts = state.filter === null ? allCounts : countTree(state.filter.matches);
  const stays = sum(state.counts.files, state.directory) > 0;
  go(stays ? state.directory : 0);
}

function showFilter() {
  const { filter, marked } = state;
  const title = filter?.title ?? (marked !== null ? `Marked: ${nameOf(marked)}` : "");
  byId("filter").hidden = title === "";
  byId("filter").firstElementChild.textContent = title;
  const key = marked !== null ? `box ${marked}` : filter?.key;
  for (const button of document.querySelectorAll("[data-key]")) {
    button.setAttribute("aria-pressed", String(button.dataset.key === key));
  }
}

byId("filter").querySelector("button").addEventListener("click", () => setFilter(null));

// --- The tables.

const headings = (...titles) => element("thead", {}, element("tr", {},
  ...titles.map((title) => element("th", { scope: "col" }, title))));

const cell = (text) => element("td", {}, text);

/** One that is left out where there is no room for it, as the one on its left says enough. */
const wideCell = (text) => element("td", { class: "wide" }, text);

/** A share of a whole, as a number on a bar. */
function shareCell(part, whole) {
  const percent = whole > 0 ? (100 * part) / whole : 0;
  const bar = element("span", {}, `${percent.toFixed(1)} %`);
  bar.style.setProperty("--share", `${percent}%`);
  return element("td", { class: "share" }, bar);
}

function row(button, ...cells) {
  return element("tr", {}, element("th", { scope: "row" }, button), ...cells);
}

/** The button of a row that filters the map. */
function filterButton(filter, ...content) {
  return element("button", {
    type: "button", title: filter.title, "data-key": filter.key, "aria-pressed": "false",
    onclick: () => setFilter(filter),
  }, ...content);
}

function swatch(verdict, pruned = false) {
  return element("canvas", {
    class: "swatch", "aria-hidden": "true", "data-verdict": verdict, "data-pruned": pruned,
  });
}

function paintSwatches() {
  for (const canvas of document.querySelectorAll("canvas.swatch")) {
    const context = prepared(canvas);
    const verdict = Number(canvas.dataset.verdict);
    fillVerdict(context, verdict, canvas.dataset.pruned === "true", 0, 0, 26, 16);
    if (canvas.dataset.pruned === "true") continue;
    context.fillStyle = theme.verdicts[verdict];
    if (verdict !== 0) context.fillRect(7, 1, 12, 14);
    context.fillStyle = theme.ink;
    context.textAlign = "center";
    context.fillText(LETTERS[verdict], 13, 8.5);
  }
}

function fillVerdictTable() {
  const rows = data.verdicts.map(({ name, files, bytes }, verdict) => files > 0 && row(
    filterButton({
      key: `verdict ${name}`,
      title: `Only ${verdictTitle(verdict)}: ${data.verdicts[verdict].reason}`,
      matches: (box) => factOf(box).verdict === verdict,
    }, swatch(verdict), element("bdi", {}, verdictTitle(verdict))),
    cell(grouped(files)), cell(readableSize(bytes))));
  byId("verdicts").append(headings("", "files", "size"),
    element("tbody", {}, ...rows.filter(Boolean)));
}

function fillLanguageTable() {
  const languages = data.languages.map((language, index) => ({ ...language, index }))
    .filter(({ files }) => files > 0).sort((a, b) => b.files - a.files);
  const all = languages.reduce((total, { bytes }) => total + bytes, 0);
  byId("languages").append(headings("", "files", "size", "share"),
    element("tbody", {}, ...languages.map(({ name, files, bytes, index }) => row(
      filterButton({
        key: `language ${name}`,
        title: `Only what is indexed as ${name}`,
        matches: (box) =>
          factOf(box).language === index && factOf(box).verdict < FIRST_LEFT_OUT,
      }, element("bdi", {}, name)),
      cell(grouped(files)), cell(readableSize(bytes)), shareCell(bytes, all)))));
}

function fillLargestTable() {
  const rows = data.largest.toSorted((a, b) => b[4] - a[4]);
  byId("largest").append(headings("", "files", "size"), element("tbody", {},
    ...rows.map(([directory, path, fact, files, bytes]) => {
      const at = boxNames.indexOf(path, firstBox[directory]);
      const box = directoryOf[at] === directory ? at : null; // of one that is put with others
      const slash = facts[fact].isPruned ? "/" : "";
      const mark = () => {
        const isMarked = state.marked === box;
        if (state.filter !== null) setFilter(null);
        go(directory, isMarked ? null : box);
      };
      return row(
        element("button", {
          type: "button", "data-key": `box ${box}`, "aria-pressed": "false", onclick: mark,
        }, swatch(facts[fact].verdict), element("bdi", {}, path + slash),
        element("bdi", { class: "place" }, pathText(directory))),
        cell(grouped(files)), cell(readableSize(bytes)));
    })));
}

/** Production against test code in the directories of the one that is shown. */
function fillDirectoryTable() {
  const MOST = 60;
  const { files, bytes } = allCounts;
  const line = (directory, own, name) => {
    const enter = () => go(directory);
    // What a directory holds itself is what its subdirectories do not.
    const value = (numbers, first, end = first + 1) =>
      sum(numbers, directory, first, end) - (own
        ? children[directory].reduce((all, child) => all + sum(numbers, child, first, end), 0) : 0);
    const [production, test] = [value(bytes, 0), value(bytes, 1)];
    const button = element("button", { type: "button", onclick: enter }, element("bdi", {}, name));
    button.disabled = own;
    return row(button,
      cell(grouped(value(files, 0))), wideCell(readableSize(production)),
      cell(grouped(value(files, 1))), wideCell(readableSize(test)),
      shareCell(test, production + test), cell(grouped(value(files, FIRST_LEFT_OUT, COLUMNS))));
  };
  const order = children[state.directory]
    .map((child) => ({ child, size: sum(bytes, child, 0, FIRST_LEFT_OUT) }))
    .sort((a, b) => b.size - a.size);
  const lines = order.slice(0, MOST).map(({ child }) =>
    line(child, false, `${directoryNames[child]}/`));
  if (firstBox[state.directory] < firstBox[state.directory + 1]) {
    lines.push(line(state.directory, true, "files here"));
  }
  const head = headings("", "production", "size", "test", "size", "test share", "left out");
  for (const column of [2, 4]) head.querySelectorAll("th")[column].className = "wide";
  byId("directories").replaceChildren(head, element("tbody", {}, ...lines));
  byId("table-place").textContent = ` in ${pathText(state.directory) || `${rootName}/`}` +
    (order.length > MOST ? ` (the ${MOST} largest of ${grouped(order.length)} directories)` : "");
}

// --- The search: of files whose paths, as they are shown, hold all its words.

/** The words of a search. One with "*" or "?" is whole names of a path, another is any part. */
function wordsOf(text) {
  const wildcards = { "*": "[^/]*", "?": "[^/]" };
  return text.split(/\s+/).filter(Boolean).map((word) => {
    const pattern = word.replace(/[\\^$.*+?()[\]{}|/]/g, (sign) => wildcards[sign] ?? `\\${sign}`);
    return {
      pattern: new RegExp(/[*?]/.test(word) ? `(^|/)${pattern}(/|$)` : pattern, "iu"),
      names: word.split("/").length, // that it can be a part of
    };
  });
}

/** What is found, and how many files have no names here that could be searched. */
function search(text) {
  const words = wordsOf(text);
  const most = Math.max(...words.map(({ names }) => names));
  // Of each directory the end of its path that a word can begin in, and the words that its path
  // lacks. Words of one name are no part of the root's own, which would be in all paths.
  const ends = [shownRoot];
  const lacked = [words.filter(({ pattern, names }) =>
    !pattern.test(names > 1 ? `${shownRoot}/` : data.below))];
  const lackedBy = (directory, name) => lacked[directory].filter(({ pattern, names }) =>
    !pattern.test(names > 1 ? `${ends[directory]}/${name}` : name));
  const found = [];
  let unnamed = 0;
  for (let directory = 0; directory < DIRECTORIES; ++directory) {
    if (directory > 0) {
      const above = parents[directory];
      const name = directoryNames[directory];
      ends[directory] = `${ends[above]}/${name}`.split("/").slice(-most).join("/");
      lacked[directory] = lackedBy(above, `${name}/`);
      if (lacked[directory].length === 0 && lacked[above].length > 0) found.push({ directory });
    }
    for (let box = firstBox[directory]; box < firstBox[directory + 1]; ++box) {
      const { isPruned, isSeveral } = factOf(box);
      const lacks = isSeveral ? lacked[directory] : lackedBy(directory, nameOf(box));
      if (lacks.length === 0) found.push({ directory, box });
      else if (isPruned || isSeveral) unnamed += boxFiles[box];
    }
  }
  return { found, unnamed };
}

function showResults() {
  const MOST = 1000;
  const text = byId("search").value.trim();
  const { found, unnamed } = text === "" ? { found: [], unnamed: 0 } : search(text);
  byId("found").textContent = text === "" ? ""
    : `${counted(found.length, "result")}${found.length > MOST ? `, ${MOST} are shown` : ""}` +
      (unnamed === 0 ? "" : `; this page has no names of ${counted(unnamed, "file")} in ` +
        `directories left out whole${data.merged.boxes > 0 ? " or drawn together" : ""}`);
  byId("results").replaceChildren(...found.slice(0, MOST).map(({ directory, box }) => {
    const choose = () => {
      if (state.filter !== null) setFilter(null);
      go(directory, box ?? null);
    };
    const { isPruned, isSeveral } = box === undefined ? {} : factOf(box);
    const name = box === undefined || isSeveral ? "" : nameOf(box);
    const folded = (isPruned || isSeveral) && element("span", {},
      ` ${counted(boxFiles[box], "file")} ${isPruned ? "left out whole" : "drawn together"}`);
    return element("li", {}, element("button", { type: "button", onclick: choose },
      element("bdi", {}, pathText(directory, name) || `${rootName}/`), folded || ""));
  }));
}

let searchTimer = 0;
byId("search").addEventListener("input", () => {
  clearTimeout(searchTimer);
  searchTimer = setTimeout(showResults, 120);
});

// --- Pointer and keyboard.

function itemAt(event) {
  const { left, top } = map.getBoundingClientRect();
  const [x, y] = [event.clientX - left, event.clientY - top];
  return drawn.findLast((item) => x >= item.x && x < item.x + item.width &&
    y >= item.y && y < item.y + item.height) ?? null;
}

map.addEventListener("pointermove", (event) => {
  const item = itemAt(event);
  if (item === state.hover) return;
  state.hover = item?.level === 0 ? null : item;
  map.classList.toggle("enters", Boolean(state.hover && state.hover.directory !== state.directory));
  describe(state.hover);
  paintMarks();
});

map.addEventListener("pointerleave", () => {
  state.hover = null;
  describe(null);
  paintMarks();
});

map.addEventListener("click", (event) => {
  const item = itemAt(event);
  if (item === null || item.level === 0) return;
  if (item.directory !== state.directory) {
    go(item.directory, item.type === "box" ? item.box : null);
  } else setFocus(item);
});

/** The nearest box in a direction: far aside counts twice. */
function neighbour(from, [dx, dy]) {
  const middle = (item) => [item.x + item.width / 2, item.y + item.height / 2];
  const [x, y] = middle(from);
  let best = null;
  let least = Infinity;
  for (const item of drawn) {
    if (item.level !== 1 || item === from) continue;
    const [otherX, otherY] = middle(item);
    const along = (otherX - x) * dx + (otherY - y) * dy;
    const aside = Math.abs((otherX - x) * dy) + Math.abs((otherY - y) * dx);
    if (along > 0 && along + 2 * aside < least) [best, least] = [item, along + 2 * aside];
  }
  return best;
}

const DIRECTIONS = {
  ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1],
};

function setFocus(item) {
  if (!item) return;
  state.focus = item;
  describe(item);
  paintMarks();
}

map.addEventListener("keydown", (event) => {
  if (event.ctrlKey || event.altKey || event.metaKey) return;
  const boxes = () => drawn.filter((item) => item.level === 1);
  const { key } = event;
  if (key in DIRECTIONS) {
    setFocus(state.focus === null ? boxes()[0] : neighbour(state.focus, DIRECTIONS[key]));
  } else if (key === "Home") setFocus(boxes()[0]);
  else if (key === "End") setFocus(boxes().at(-1));
  else if (key === "Enter" || key === " ") {
    if (state.focus?.type === "directory") {
      go(state.focus.directory);
      setFocus(boxes()[0]);
    }
  } else if (key === "Backspace" || key === "Escape") {
    if (state.directory !== 0) go(parents[state.directory]);
    if (state.focus) describe(state.focus);
  } else return;
  event.preventDefault();
});

map.addEventListener("focus", () => {
  if (state.focus === null && map.matches(":focus-visible")) {
    setFocus(drawn.find((item) => item.level === 1));
  }
  paintMarks();
});
map.addEventListener("blur", paintMarks);

// --- The whole.

function show() {
  showTrail();
  paint();
  fillDirectoryTable();
  showFilter();
  describe(null);
  map.setAttribute("aria-label", `Map of ${pathText(state.directory) || `${rootName}/`}`);
}

function repaint() {
  readTheme();
  paint();
  paintSwatches();
}

function fillHead() {
  document.title = `${shownRoot} · path-filter report`;
  byId("title").textContent = shownRoot;
  byId("made").textContent = `What is in the index and what is left out, ${data.made}, ` +
    `by path-filter ${data.version}`;
  for (const [id, name, ...columns] of [
    ["indexed", "In the index", 0, FIRST_LEFT_OUT],
    ["test", "Of it test code", 1, FIRST_LEFT_OUT],
    ["excluded", "Left out", FIRST_LEFT_OUT],
  ]) {
    byId("totals").append(element("div", { id: `total-${id}` }, element("dt", {}, name),
      element("dd", {}, counted(sum(allCounts.files, 0, ...columns), "file")),
      element("dd", {}, readableSize(sum(allCounts.bytes, 0, ...columns)))));
  }
  const note = (text) => byId("notes").append(element("li", { class: "note" }, text));
  if (!data.complete) note("Some things could not be read and are missing here.");
  const { boxes, directories } = data.merged;
  if (boxes > 0) {
    const small = counted(boxes, "small file or directory left out whole",
      "small files and directories left out whole");
    const folded = directories === 0 ? "" : ` and what ${counted(directories,
      "small directory holds", "small directories hold")}`;
    note(`So that this page stays quick, ${small}${folded} are drawn together: one box for each ` +
      "verdict of a directory. All numbers count them; the search does not know their names, and " +
      "a box of several languages is not shown when the map is filtered by language.");
  }
}

function fillLegend() {
  const items = data.verdicts.map(({ files }, verdict) => files > 0 &&
    element("li", {}, swatch(verdict), verdictTitle(verdict)));
  const pruned = facts.find(({ isPruned }) => isPruned);
  if (pruned) {
    items.push(element("li", {}, swatch(pruned.verdict, true), "a directory left out whole"));
  }
  byId("legend").append(...items.filter(Boolean));
}

fillHead();
fillLegend();
fillVerdictTable();
fillLanguageTable();
fillLargestTable();
for (const input of document.querySelectorAll("[name=measure]")) {
  input.checked = input.value === state.measure;
  input.addEventListener("change", () => {
    state.measure = input.value;
    show();
  });
}
readTheme();
go(directoryAt(location.hash));
paintSwatches();
new ResizeObserver(() => {
  if (map.clientWidth !== painted.width || map.clientHeight !== painted.height) repaint();
}).observe(map);
for (const media of ["(prefers-color-scheme: dark)", "print"]) {
  matchMedia(media).addEventListener("change", repaint);
}
