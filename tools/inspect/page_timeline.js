"use strict";
// Builds the timelines of requests: a bar and words for each attempt.

// The time axis that all attempts of a request share. A request without an end in the log has used
// up its time-out at most.
function axisOf(request, life) {
  let end = request.start + 1;
  for (const walk of [request.first_try, request.second_try ?? { attempts: [] }]) {
    end = Math.max(end, walk.end ?? 0);
    for (const attempt of walk.attempts) {
      const limit = Math.min(life.end, attempt.start + request.time_out_ms);
      const last = attempt.end ?? (walk.end ? 0 : limit);
      end = Math.max(end, attempt.start, attempt.head_start_over ?? 0, last);
    }
  }
  const length = end - request.start;
  const percent = (ms) => Math.min(100, Math.max(0, (100 * (ms - request.start)) / length));
  return { start: request.start, end, length, percent, step: stepOf(length) };
}

// A step of 1, 2 or 5 that makes at most five parts.
function stepOf(length) {
  const power = 10 ** Math.floor(Math.log10(Math.max(length / 5, 1)));
  return [1, 2, 5, 10].map((factor) => factor * power).find((step) => step * 5 >= length);
}

function ticks(axis) {
  const row = make("div.ticks");
  for (let ms = 0; ms <= axis.length; ms += axis.step) {
    const left = axis.percent(axis.start + ms);
    const tick = make(left > 90 ? "span.tick last" : "span.tick", duration(ms));
    tick.style.left = `${left}%`;
    row.append(tick);
  }
  return row;
}

function stateOf(attempt, walk) {
  if (attempt.end === null) return walk.end === null ? "unfinished" : "dropped";
  return attempt.good ? "good" : "failed";
}

function endWords(attempt, state) {
  if (state === "unfinished") return "… no end in the log";
  if (state === "dropped") return "– not waited for";
  const after = `${attempt.code ? `, ${attempt.code}` : ""} after ${duration(attempt.end - attempt.start)}`;
  if (state === "good") return `✓ good${after}`;
  return `✗ failed${after}${attempt.reason ? ": " + attempt.reason : ""}`;
}

function wordsOf(attempt, state) {
  const words = make("p.words", make(`span.word ${state}`, endWords(attempt, state)));
  const note = (text) => words.append(make("span.note", text));
  if (attempt.head_start_over !== null) {
    note(`its head start was over after ${duration(attempt.head_start_over - attempt.start)}`);
  }
  const index = attempt.started_by_index;
  if (attempt.started_by === "head start") note(`started when the head start of ${index} was over`);
  if (attempt.started_by === "failure") note(`started when ${index} had failed`);
  return words;
}

// The words say all that the bar shows, so it is hidden from screen readers.
function barOf(attempt, state, walk, axis) {
  const left = axis.percent(attempt.start);
  const width = axis.percent(attempt.end ?? walk.end ?? axis.end) - left;
  const bar = make(`div.bar ${state}`);
  bar.style.left = `min(${left}%, 100% - 4px)`;
  bar.style.width = `${width}%`;
  if (attempt.head_start_over !== null && width > 0) {
    const head = make("div.head");
    const part = (100 * (axis.percent(attempt.head_start_over) - left)) / width;
    head.style.width = `${Math.min(100, part)}%`;
    bar.append(head);
  }
  const track = make("div.track", bar);
  track.setAttribute("aria-hidden", "true");
  return track;
}

function urlLabel(index, url, host) {
  const label = make("p.url", make("b", `[${index}] `), make("span.address", url));
  if (host) label.append(make("span.note", ` for ${host}`));
  return label;
}

function attemptRow(attempt, index, walk, axis) {
  const state = stateOf(attempt, walk);
  const row = make("li.attempt", urlLabel(index, attempt.url, attempt.for_host),
    make("div", barOf(attempt, state, walk, axis), wordsOf(attempt, state)));
  row.style.setProperty("--left", `${axis.percent(attempt.start)}%`);
  return row;
}

function walkRows(walk, axis) {
  const begun = walk.attempts.length;
  const waitingRow = (url, index) =>
    make("li.attempt", urlLabel(begun + index, url, ""), make("p.note", "not started"));
  return make("ol.walk",
    ...few(walk.attempts, (attempt, index) => attemptRow(attempt, index, walk, axis), item),
    ...few(walk.not_started, waitingRow, (note) => item(`${note} that were not started`)));
}

function timeline(request, life) {
  const axis = axisOf(request, life);
  const element = make("div.timeline", ticks(axis), walkRows(request.first_try, axis));
  element.style.setProperty("--step", `${(100 * axis.step) / axis.length}%`);
  if (request.httpdns_has_no_address) {
    element.append(make("p.note", "No second try: HTTPDNS gave no address."));
  }
  if (!request.second_try) return element;
  const hosts = Object.entries(request.addresses);
  element.append(make("div.second", make("h5", "Second try, on addresses of HTTPDNS"),
    list(hosts.map(([host, addresses]) => `${host}: ${addresses.join(", ")}`)),
    walkRows(request.second_try, axis)));
  return element;
}

function requestCard({ request, life }) {
  const sign = { answered: "✓", failed: "✗", unfinished: "…" }[request.result] ?? "–";
  const after = request.end === null ? "" : ` after ${duration(request.end - request.start)}`;
  const limits = request.head_start_ms <= 0 ? ""
    : `, head start ${duration(request.head_start_ms)}, time-out ${duration(request.time_out_ms)}`;
  const name = request.result.replace(" ", "-");
  const result = make(`span.result ${name}`, `${sign} ${request.result}${after}`);
  return make("article.request", make("h4", request.purpose, " ", result),
    make("p.note", `${moment(request.start, life.utc_offset_s)}, process ${life.process}${limits}`),
    timeline(request, life));
}
