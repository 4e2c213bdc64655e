"use strict";
// Builds the elements of the page. Many texts come from servers: they only ever become text nodes.

const MOST_LISTED = 50;

// These characters hide or reorder the text around them, so their codes are shown instead.
const INVISIBLE = /[\x00-\x1f\x7f-\x9f\xad\u061c\u200b-\u200f\u2028-\u202e\u2060-\u206f\ufeff]/g;
const codeOf = (character) => "\\u" + character.charCodeAt(0).toString(16).padStart(4, "0");
const visible = (text) => String(text).replace(INVISIBLE, codeOf);

// Children are nodes or texts.
function make(tag, className, ...children) {
  const element = document.createElement(tag);
  if (className) element.className = className;
  element.append(...children.map((child) => (child instanceof Node ? child : visible(child))));
  return element;
}

function duration(ms) {
  if (ms < 1000) return `${ms} ms`;
  const seconds = ms / 1000;
  if (seconds < 120) return `${Number(seconds.toFixed(2))} s`;
  if (seconds < 7200) return `${Math.round(seconds / 60)} min`;
  if (seconds < 172800) return `${Math.round(seconds / 3600)} h`;
  return `${Math.round(seconds / 86400)} days`;
}

// Times are shown in the zone of the machine that wrote the page, as in its log.
function moment(ms, zone) {
  const local = new Date(ms + zone * 1000);
  return isNaN(local) ? "an unknown time" : local.toISOString().replace("T", " ").replace("Z", "");
}

function lifetime(expiresAt, directory) {
  const left = expiresAt - directory.inspected_at;
  if (expiresAt === null) return "expired (no end of its life is known)";
  const text = left > 0 ? `good for ${duration(left)}` : `expired ${duration(-left)} ago`;
  return `${text} (${moment(expiresAt, directory.utc_offset_s)})`;
}

// Builds an element for each value, up to a number that a reader can take in.
function few(values, build, tag) {
  const elements = values.slice(0, MOST_LISTED).map(build);
  const left = values.length - elements.length;
  if (left > 0) elements.push(make(tag, "note", tag === "tr" ? make("td", "", `and ${left} more`) : `and ${left} more`));
  return elements;
}

const list = (values) => make("ul", "", ...few(values, (value) => make("li", "", value), "li"));

function tableRow([name, value]) {
  const head = make("th", "", name);
  head.scope = "row";
  return make("tr", "", head, make("td", "", Array.isArray(value) ? list(value) : value));
}

// Each pair is a name and a text or a list of texts.
function table(caption, pairs) {
  return make("table", "", make("caption", "", caption), make("tbody", "", ...few(pairs, tableRow, "tr")));
}

function cacheTable(caption, cache, directory, pairsOf) {
  if (cache.state === "none") return table(caption, [["state", "none"]]);
  if (cache.state !== "usable") return table(caption, [["state", `can't be used: ${cache.problem}`]]);
  const pairs = pairsOf(cache).filter(([, value]) => value.length > 0);
  if (cache.written_at !== null) pairs.unshift(["written", moment(cache.written_at, directory.utc_offset_s)]);
  return table(caption, pairs);
}

function caches(directory) {
  const all = directory.caches;
  const state = (cache) => ["state", lifetime(cache.expires_at, directory)];
  const stateOfHost = (host) => host.grade + (host.expires_at === null ? "" : `, ${lifetime(host.expires_at, directory)}`);
  return make("div", "caches",
    cacheTable("LBS answer", all.lbs_answer, directory, (answer) => [state(answer), ["name", answer.name],
      ["made by", answer.is_local ? "the client, no server has answered" : "a server"],
      ["asked for by", answer.settings_url], ["next URL", answer.next_url], ["backup URLs", answer.backup_urls], ["family", answer.family],
      ["links", answer.links], ["default links", answer.default_links]]),
    cacheTable("HTTPDNS servers", all.httpdns_servers, directory,
      (servers) => [state(servers), ["host", servers.host], ["servers", servers.servers]]),
    cacheTable("HTTPDNS hosts", all.httpdns_hosts, directory,
      ({ hosts }) => hosts.map((host) => [host.host, [stateOfHost(host), ...host.addresses]])));
}

function causeItem(cause) {
  const count = cause.count > 1 ? ` (${cause.count} times)` : "";
  return make("li", "", make("strong", "", cause.title + count), make("p", "", cause.advice),
    ...cause.evidence.map((line) => make("code", "", line)));
}

function verdictBox(verdict) {
  if (!verdict) return make("p", "verdict", "No life of a client is in the log.");
  return make("div", verdict.has_fresh_answer ? "verdict fresh" : "verdict", make("h3", "", "Verdict"),
    make("p", "", verdict.summary), make("ol", "", ...verdict.causes.map(causeItem)));
}

function directorySection({ directory }) {
  const bytes = (count) => (count < 0 ? "none" : `${count.toLocaleString("en")} bytes`);
  const last = directory.lives.at(-1);
  const setting = (name) => last.settings.find((pair) => pair.name === name)?.value ?? "unknown";
  const seen = last ? `Business ${setting("business type")}, version ${setting("business version")}, `
    + `last seen ${moment(last.end, last.utc_offset_s)}. ` : "";
  return make("section", "directory", make("h2", "", directory.path),
    make("p", "note", `${seen}Log: ${bytes(directory.log_bytes)}, companion: ${bytes(directory.companion_bytes)}.`),
    ...directory.problems.map((problem) => make("p", "problem", problem)),
    verdictBox(directory.verdict), make("h3", "", "Caches"), caches(directory));
}

function endOf(life) {
  if (life.has_exit) return "✓ regular exit";
  return life.runs ? "… still runs" : "✗ no regular exit: killed, crashed, or the log was cut";
}

function updatesOf(life) {
  const counts = { fresh: 0, failed: 0, stopped: 0, "no URL": 0 };
  for (const update of life.updates) ++counts[update.result];
  return "Updates: " + Object.entries(counts).map(([name, count]) => `${count} ${name}`).join(", ") + ".";
}

function lifeSection({ life }) {
  const zone = life.utc_offset_s;
  const facts = [updatesOf(life)];
  if (!life.has_start) facts.push("Its start is not in the log.");
  if (life.links_taken > 0) facts.push(`Link addresses taken: ${life.links_taken}, the last one ${life.last_link}.`);
  if (life.requests.length === 0) facts.push("No request.");
  const settings = make("details", "", make("summary", "", `Settings of process ${life.process}`),
    table("Settings at the start", life.settings.map(({ name, value }) => [name, value])));
  return make("section", "life", make("h3", "", `Process ${life.process}, ${moment(life.start, zone)}`),
    make("p", "", `${duration(life.end - life.start)}, ${endOf(life)}. ${facts.join(" ")}`),
    list(life.troubles.map(({ at, text }) => `${moment(at, zone)} ${text}`)), settings);
}

// The time axis that all attempts of a request share. A request that has no end in the log has used
// up its time-out at most.
function axisOf(request, life) {
  let end = request.start + 1;
  for (const walk of [request.first_try, request.second_try ?? { attempts: [] }]) {
    end = Math.max(end, walk.end ?? 0);
    for (const attempt of walk.attempts) {
      const open = Math.min(life.end, attempt.start + request.time_out_ms);
      const last = attempt.end ?? (walk.end ? 0 : open);
      end = Math.max(end, attempt.start, attempt.head_start_over ?? 0, last);
    }
  }
  const length = end - request.start;
  return { start: request.start, end, at: (ms) => Math.min(100, Math.max(0, (100 * (ms - request.start)) / length)) };
}

// A step of 1, 2 or 5 that makes at most five parts.
function stepOf(length) {
  const power = 10 ** Math.floor(Math.log10(Math.max(length / 5, 1)));
  return [1, 2, 5, 10].map((factor) => factor * power).find((step) => step * 5 >= length);
}

function ticks(axis) {
  const row = make("div", "ticks");
  const step = stepOf(axis.end - axis.start);
  for (let ms = 0; axis.start + ms <= axis.end; ms += step) {
    const tick = make("span", "tick", duration(ms));
    const left = axis.at(axis.start + ms);
    if (left > 90) tick.classList.add("last");
    tick.style.left = `${left}%`;
    row.append(tick);
  }
  return row;
}

function stateOf(attempt, walk) {
  if (attempt.end === null) return walk.end === null ? "unfinished" : "dropped";
  return attempt.good ? "good" : "failed";
}

function wordsOf(attempt, state, axis) {
  const after = attempt.end === null ? "" : ` after ${duration(attempt.end - attempt.start)}`;
  const code = attempt.code ? `${attempt.code}` : "no code";
  const ends = {
    good: `✓ good, ${code}${after}`,
    failed: `✗ failed, ${code}${after}${attempt.reason ? ": " + attempt.reason : ""}`,
    unfinished: "… no end in the log",
    dropped: "– not waited for",
  };
  const parts = [make("span", `word ${state}`, ends[state])];
  const note = (text) => parts.push(make("span", "note", text));
  if (attempt.head_start_over !== null) note(`slow, head start over at ${duration(attempt.head_start_over - axis.start)}`);
  if (attempt.started_by === "head start") note(`started when the head start of ${attempt.started_by_index} was over`);
  if (attempt.started_by === "failure") note(`started when ${attempt.started_by_index} had failed`);
  return make("p", "words", ...parts);
}

// The words say all that the bar shows, so it is hidden from screen readers.
function barOf(attempt, state, walk, axis) {
  const left = axis.at(attempt.start);
  const width = axis.at(attempt.end ?? walk.end ?? axis.end) - left;
  const bar = make("div", `bar ${state}`);
  bar.style.left = `min(${left}%, 100% - 4px)`;
  bar.style.width = `${width}%`;
  if (attempt.head_start_over !== null && width > 0) {
    bar.classList.add("slow");
    bar.append(make("div", "head"));
    bar.firstChild.style.width = `min(${(100 * (axis.at(attempt.head_start_over) - left)) / width}%, 100%)`;
  }
  const track = make("div", "track", bar);
  track.setAttribute("aria-hidden", "true");
  return track;
}

function urlLabel(index, url, host) {
  const label = make("p", "url", make("b", "", `[${index}] `), url);
  if (host && !url.includes(host)) label.append(make("span", "note", ` for ${host}`));
  return label;
}

function attemptRow(attempt, index, walk, axis) {
  const state = stateOf(attempt, walk);
  const row = make("li", "attempt", urlLabel(index, attempt.url, attempt.host),
    make("div", "when", barOf(attempt, state, walk, axis), wordsOf(attempt, state, axis)));
  row.style.setProperty("--left", `${axis.at(attempt.start)}%`);
  return row;
}

function walkRows(walk, axis) {
  const begun = walk.attempts.length;
  const waitingRow = (url, index) =>
    make("li", "attempt", urlLabel(begun + index, url, ""), make("p", "note", "not started"));
  return make("ol", "walk", ...few(walk.attempts, (attempt, index) => attemptRow(attempt, index, walk, axis), "li"),
    ...few(walk.not_started, waitingRow, "li"));
}

function secondTry(request, axis) {
  const hosts = Object.entries(request.addresses).map(([host, all]) => `${host}: ${all.join(", ")}`);
  return make("div", "second", make("h5", "", "Second try, on addresses of HTTPDNS"), list(hosts),
    walkRows(request.second_try, axis));
}

const SIGNS = { answered: "✓", failed: "✗", unfinished: "…" };

function requestCard({ request, life }) {
  const axis = axisOf(request, life);
  const after = request.end === null ? "" : ` after ${duration(request.end - request.start)}`;
  const result = make("span", `result ${request.result.replace(" ", "-")}`,
    `${SIGNS[request.result] ?? "–"} ${request.result}${after}`);
  const limits = request.head_start_ms > 0
    ? `, head start ${duration(request.head_start_ms)}, time-out ${duration(request.time_out_ms)}` : "";
  const card = make("article", "request", make("h4", "", request.purpose, " ", result),
    make("p", "note", `${moment(request.start, life.utc_offset_s)}, process ${life.process}${limits}`));
  const timeline = make("div", "timeline", ticks(axis), walkRows(request.first_try, axis));
  timeline.style.setProperty("--step", `${(100 * stepOf(axis.end - axis.start)) / (axis.end - axis.start)}%`);
  card.append(timeline);
  if (request.httpdns_has_no_address) timeline.append(make("p", "note", "No second try: HTTPDNS gave no address."));
  if (request.second_try) timeline.append(secondTry(request, axis));
  return card;
}
