"use strict";
// Builds elements of the page, directories and lives among them. Many texts come from servers: they
// only ever become text nodes. The report has no characters that hide or reorder text.

const MOST_LISTED = 50;

// make("p.note", ...) makes a <p class="note">. Children are nodes or texts.
function make(kind, ...children) {
  const [tag, className] = kind.split(".");
  const element = document.createElement(tag);
  if (className) element.className = className;
  element.append(...children);
  return element;
}

function duration(ms) {
  if (ms < 0) return "an unknown time (the clock was set back)";
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

function zoneName(offset) {
  const minutes = Math.abs(offset) / 60;
  const part = (number) => String(Math.floor(number)).padStart(2, "0");
  return `UTC${offset < 0 ? "-" : "+"}${part(minutes / 60)}:${part(minutes % 60)}`;
}

// Builds an element for each value, up to a number that a reader can take in.
function few(values, build, buildNote) {
  const elements = values.slice(0, MOST_LISTED).map(build);
  const left = values.length - elements.length;
  return left > 0 ? [...elements, buildNote(`and ${left} more`)] : elements;
}

const item = (content) => make("li", content);
const list = (values) => make("ul", ...few(values, item, item));

// Each pair is a name and a text or a list of texts.
function table(caption, pairs) {
  const row = ([name, value]) => {
    const head = make("th", name);
    head.scope = "row";
    return make("tr", head, make("td", Array.isArray(value) ? list(value) : value));
  };
  const rows = few(pairs, row, (note) => row(["", note]));
  return make("table", make("caption", caption), make("tbody", ...rows));
}

// --- A directory: its verdict and its caches

function lifetime(expiresAt, directory) {
  const left = expiresAt - directory.inspected_at;
  if (expiresAt === null) return "expired (no end of its life is known)";
  const text = left > 0 ? `good for ${duration(left)}` : `expired ${duration(-left)} ago`;
  return `${text} (${moment(expiresAt, directory.utc_offset_s)})`;
}

function cacheTable(caption, cache, directory, pairsOf) {
  if (cache.state === "none") return table(caption, [["state", "none"]]);
  if (cache.state !== "usable") {
    return table(caption, [["state", `can't be used: ${cache.problem}`]]);
  }
  const pairs = pairsOf(cache).filter(([, value]) => value.length > 0);
  const zone = directory.utc_offset_s;
  if (cache.written_at !== null) pairs.unshift(["written", moment(cache.written_at, zone)]);
  const ages = "expires_at" in cache && !cache.is_local; // The client's own answer is always expired.
  if (ages) pairs.unshift(["state", lifetime(cache.expires_at, directory)]);
  return table(caption, pairs);
}

const answerPairs = (answer) => [
  ["name", answer.name],
  ["made by", answer.is_local ? "the client, from its settings; no answer of a server is kept" : "a server"],
  ["URL of the settings", answer.settings_url],
  ["URL of the next update", answer.next_url],
  ["backup URLs", answer.backup_urls],
  ["family", answer.family],
  ["links", answer.links],
  ["default links", answer.default_links],
];

function caches(directory) {
  const { lbs_answer: answer, httpdns_servers: servers, httpdns_hosts: hosts } = directory.caches;
  const serverPairs = () => [["host", servers.host], ["servers", servers.servers]];
  const stateOf = ({ grade, expires_at: end }) =>
    end === null ? grade : `${grade}, ${lifetime(end, directory)}`;
  const hostPairs = () =>
    hosts.hosts.map((host) => [host.host, [stateOf(host), ...host.addresses]]);
  return make("div.caches",
    cacheTable("LBS answer", answer, directory, answerPairs),
    cacheTable("HTTPDNS servers", servers, directory, serverPairs),
    cacheTable("HTTPDNS hosts", hosts, directory, hostPairs));
}

function causeItem(cause) {
  const count = cause.count > 1 ? ` (${cause.count} attempts)` : "";
  return make("li", make("strong", cause.title + count), make("p", cause.advice),
    ...cause.evidence.map((line) => make("code", line)));
}

function verdictBox(verdict) {
  if (!verdict) return make("p.verdict", "No life of a client is in the log.");
  return make(verdict.has_fresh_answer ? "div.verdict fresh" : "div.verdict", make("h3", "Verdict"),
    make("p", verdict.summary), make("ol", ...verdict.causes.map(causeItem)),
    ...(verdict.more_causes ? [make("p.note", `Left out, since they are less likely: ${verdict.more_causes}`)] : []));
}

function factsOf(directory) {
  const { log_bytes: log, companion_bytes: companion } = directory;
  const bytes = (count) => (count < 0 ? "none" : `${count.toLocaleString("en")} bytes`);
  const files = `Log: ${bytes(log)}, companion (what is not in the log yet): ${bytes(companion)}.`;
  const last = directory.lives.at(-1);
  if (!last) return files;
  const setting = (name) => last.settings.find((pair) => pair.name === name)?.value ?? "unknown";
  return `Business ${setting("business type")}, version ${setting("business version")}, `
    + `last seen ${moment(last.end, last.utc_offset_s)}. ${files}`;
}

function directorySection({ directory }) {
  return make("section.directory", make("h2", directory.path), make("p.note", factsOf(directory)),
    ...directory.problems.map((problem) => make("p.problem", problem)),
    verdictBox(directory.verdict), make("h3", "Caches"), caches(directory));
}

// --- A life

function endOf(life) {
  if (life.has_exit) return "✓ regular exit";
  return life.runs ? "… still runs" : "✗ no regular exit: killed, crashed, or the log was cut";
}

function updatesOf(life) {
  const names = { fresh: "fresh", failed: "failed", stopped: "ended without a result", "no URL": "without a URL" };
  const count = (result) => life.updates.filter((update) => update.result === result).length;
  const results = Object.entries(names).map(([result, name]) => `${count(result)} ${name}`);
  return [`${life.updates_begun} begun`, ...results].join(", ");
}

function lifeSection({ life }) {
  const zone = life.utc_offset_s;
  const length = duration(life.end - life.start);
  const facts = [`${length}, ${endOf(life)}.`, `Updates: ${updatesOf(life)}.`];
  if (!life.has_start) facts.push("Its start is not in the log.");
  if (life.links_taken > 0) {
    facts.push(`Link addresses taken: ${life.links_taken}, the last one ${life.last_link}.`);
  }
  const settings = life.settings.map(({ name, value }) => [name, value]);
  return make("section.life", make("h3", `Process ${life.process}, ${moment(life.start, zone)}`),
    make("p", facts.join(" ")),
    list(life.troubles.map(({ at, text }) => `${moment(at, zone)} ${text}`)),
    make("details", make("summary", `Settings of process ${life.process}`),
      table("At its start", settings)));
}
