"use strict";
// Reads the report that stands in the page, and shows what the filters want of it.

const BATCH = 60; // Items that are built at once, some screens full.
const MOST_PRINTED = 1000;

const byId = (id) => document.getElementById(id);
const inEnglish = (number) => number.toLocaleString("en");
const filters = byId("filters");

function wordsToSearch(request) {
  const words = [request.purpose];
  for (const walk of [request.first_try, request.second_try]) {
    for (const { url, for_host } of walk?.attempts ?? []) words.push(url, for_host);
    for (const url of walk?.not_started ?? []) words.push(url);
  }
  return words.join("\n").toLowerCase();
}

function readReport() {
  return JSON.parse(byId("report").textContent).directories.map((directory) => ({
    directory,
    lives: directory.lives.map((life) => ({
      life,
      requests: life.requests.map((request) => ({ request, life, words: wordsToSearch(request) })),
    })),
  }));
}

function readFilters() {
  const at = (name) => Date.parse(filters.elements[name].value + "Z"); // NaN when empty.
  const { text, result, purpose, order } = filters.elements;
  return { text: text.value.trim().toLowerCase(), result: result.value, purpose: purpose.value,
    from: at("from"), to: at("to") + 999, oldestFirst: order.value === "oldest" };
}

// A filter without a time has NaN, with which every comparison is false.
function matches({ request, life, words }, filter) {
  const start = request.start + life.utc_offset_s * 1000;
  return (!filter.result || request.result === filter.result)
    && request.purpose.startsWith(filter.purpose) && words.includes(filter.text)
    && !(start < filter.from) && !(start > filter.to);
}

const report = readReport();
const total = report.flatMap(({ lives }) => lives.flatMap(({ requests }) => requests)).length;
let items = []; // All that the filters want, each with the function that builds it.
let built = 0;

function chooseItems(filter) {
  items = [];
  let count = 0;
  const inOrder = (all) => (filter.oldestFirst ? all : [...all].reverse());
  const { text, result, purpose, from, to } = filter;
  const isFiltered = text || result || purpose || from || to;
  for (const { directory, lives } of report) {
    items.push({ build: directorySection, directory });
    for (const { life, requests } of inOrder(lives)) {
      const wanted = requests.filter((entry) => matches(entry, filter));
      count += wanted.length;
      if (isFiltered && wanted.length === 0) continue;
      items.push({ build: lifeSection, life });
      for (const entry of inOrder(wanted)) items.push({ build: requestCard, ...entry });
    }
  }
  return count;
}

function buildMore(number = BATCH) {
  const more = byId("more");
  const next = items.slice(built, built + number);
  byId("list").append(...next.map((item) => item.build(item)));
  built += next.length;
  more.hidden = built === items.length;
  more.textContent = `Show more (${inEnglish(items.length - built)} left)`;
  // Observed anew, the button reports once more if it is still near the screen.
  nearEnd.unobserve(more);
  nearEnd.observe(more);
}

function show() {
  const count = chooseItems(readFilters());
  byId("count").textContent = `${inEnglish(count)} of ${inEnglish(total)} requests`;
  byId("list").replaceChildren();
  built = 0;
  buildMore();
}

// The fragment keeps the filters, so that a view has an address.
function writeFragment() {
  const set = [...new FormData(filters)].filter(([, value]) => value);
  const fragment = new URLSearchParams(set).toString();
  history.replaceState(null, "", fragment ? `#${fragment}` : "#");
}

function readFragment() {
  filters.reset();
  for (const [name, value] of new URLSearchParams(location.hash.slice(1))) {
    const control = filters.elements[name];
    if (control?.name) control.value = value;
  }
  for (const control of filters.querySelectorAll("select")) {
    if (control.selectedIndex < 0) control.selectedIndex = 0;
  }
}

const nearEnd = new IntersectionObserver((entries) => {
  if (entries.some((entry) => entry.isIntersecting)) buildMore();
}, { rootMargin: "800px" });

function start() {
  const first = report[0]?.directory;
  if (first) {
    document.title = `tarvel inspect: ${first.path}`;
    byId("written").textContent = `Written ${moment(first.inspected_at, first.utc_offset_s)}. `
      + `Times are local ones of the machine that wrote this page, ${zoneName(first.utc_offset_s)}.`;
  }
  const showAnew = () => { show(); writeFragment(); };
  filters.addEventListener("input", showAnew);
  filters.addEventListener("submit", (event) => event.preventDefault());
  byId("all").addEventListener("click", () => { filters.reset(); showAnew(); });
  byId("more").addEventListener("click", () => buildMore());
  addEventListener("hashchange", () => { readFragment(); show(); });
  addEventListener("beforeprint", () => buildMore(Math.max(0, MOST_PRINTED - built)));
  readFragment();
  show();
}

start();
