/**
 * A report as elements: verdict, facts, course, what the library said and what it did not say.
 */

import { element, link, rich } from "./dom.mjs";
import { WORDS } from "../source/words.mjs";

/** @typedef {import("../source/explain.mjs").Report} Report */
/** @typedef {(line: number) => void} Show */

const words = WORDS.page;
/** The most entries of a list: a page with more of them does not answer any more. */
const MOST = 300;
const LANES = /** @type {const} */ (["client", "server", "script", "rollback"]);

/** @param {number} line @param {Show} show */
const lineLink = (line, show) => element("button.line-link", { type: "button", "aria-label": words.toLine(line), onclick: () => show(line) }, words.line(line));

/** @param {string} label @param {string} text */
const pair = (label, text) => element("p.pair", {}, element("strong", {}, `${label}: `), rich(text));

/** A sentence of the verdict. What the log says in it is only a text. @param {import("../source/explain.mjs").Cause} cause */
const told = (cause) => typeof cause === "string" ? [rich(cause)] : [rich(cause.before), cause.quoted, rich(cause.after)];

/** @param {string} anchor @param {string} section */
const see = (anchor, section) => element("p.see", {}, link(words.link(section), `#${anchor}`));

/** @param {string} anchor */
const sectionOf = (anchor) => `${anchor.slice(0, 1).toUpperCase()}${anchor.slice(1).replace(/-/g, " ")}`;

/** @param {import("../source/explain.mjs").Value[]} values */
function values(values) {
  return values.length ? element("dl.values", {}, ...values.flatMap(({ name, value }) => [element("dt", {}, name), element("dd", {}, value)])) : null;
}

/**
 * @param {Report} report @param {Show} show @param {HTMLElement} tools the buttons for the whole log
 */
export function verdictCard(report, show, tools) {
  return element(`section.card.verdict.${report.outcome}`, { "aria-label": WORDS.headings.verdict },
    element("h2.sentence", {}, report.sentence), ...[report.cause.slice(0, 1), report.cause.slice(1)].filter((sentences) => sentences.length).map((sentences) => element("p.cause", {}, ...sentences.flatMap((each, index) => [index ? " " : null, ...told(each)]))),
    report.causeLine ? element("p", {}, lineLink(report.causeLine, show)) : null,
    report.todo ? element("div.advice", {}, pair(words.todo, report.todo), report.anchor ? see(report.anchor, sectionOf(report.anchor)) : null) : null, tools);
}

/** @param {Report} report @param {string[]} problems */
export function factsCard(report, problems) {
  return element("section.card", { "aria-label": WORDS.headings.facts }, element("h2", {}, WORDS.headings.facts),
    ...problems.map((text) => element("p.problem", {}, text)),
    element("dl.facts", {}, ...report.facts.flatMap(({ name, value }) => [element("dt", {}, name), element("dd", {}, value)])),
    report.atEnd && report.course.some((step) => step.entry) ? element("p.see", {}, WORDS.atEnd) : null);
}

/** @param {import("../source/explain.mjs").Step} step @returns {number} the place of its lane */
const laneOf = (step) => step.phase === "rollback" ? 3 : step.phase === "script" ? 2 : step.side === "client" ? 0 : 1;

/** @param {Report} report @param {Show} show */
export function courseCard(report, show) {
  const used = LANES.map((_, lane) => report.course.some((step) => laneOf(step) === lane));
  const columns = /** @type {number[]} */ ([]);
  LANES.forEach((_, lane) => columns.push(used[lane] ? used.slice(0, lane + 1).filter(Boolean).length : 0));
  const longest = report.course.reduce((most, step) => step.depth > 0 ? Math.max(most, step.took) : most, 1);
  let all = false;
  const list = element("ol.steps");
  const toggle = element("button.all", { type: "button", "aria-pressed": "false", onclick: () => {
    all = !all;
    draw();
  } });

  /** @param {import("../source/explain.mjs").Step} step */
  function item(step) {
    const phase = /** @type {Record<string, string>} */ (WORDS.phases)[step.phase];
    const state = step.failed ? words.failure : step.ignored ? words.ignoredFailure : step.result === 1 ? words.success : "";
    const took = step.took > 0 ? WORDS.seconds(step.took) : "";
    const made = element(`button.step${step.entry ? ".own" : ""}${step.phase === "scheduled" ? ".scheduled" : ""}${step.failed ? ".bad" : ""}${step.ignored ? ".ignored" : ""}`,
      { type: "button", title: [step.name, step.job, phase, took].filter(Boolean).join(" - "), onclick: () => show(step.first),
        "aria-label": [step.name, step.job, phase, state, took, step.said ? words.saidCount(step.said) : "", words.toLine(step.first)].filter(Boolean).join(", ") },
      element("span.name", {}, `${step.failed ? "\u2716 " : ""}${step.name}`), element("span.took", {}, [step.said ? words.saidCount(step.said) : "", took].filter(Boolean).join(", ")));
    if (step.took > 0 && step.depth > 0) {
      const bar = element("span.bar");
      bar.style.width = `${Math.max(2, Math.round((100 * step.took) / longest))}%`;
      made.append(bar);
    }
    return made;
  }

  function draw() {
    toggle.textContent = all ? words.few : words.all;
    toggle.setAttribute("aria-pressed", String(all));
    const rows = [];
    let folded = /** @type {import("../source/explain.mjs").Step[]} */ ([]);
    /** @param {HTMLElement} content @param {number} lane @param {number} row */
    const placed = (content, lane, row) => {
      const made = element("li", {}, content);
      made.style.gridColumn = String(columns[lane]);
      made.style.gridRow = String(row);
      return made;
    };
    const flush = () => {
      if (folded.length) {
        rows.push(placed(element("button.fold", { type: "button", onclick: () => {
          all = true;
          draw();
        } }, words.folded(folded.length)), laneOf(folded[0]), rows.length + 1));
      }
      folded = [];
    };
    let left = 0;
    for (const step of report.course) {
      if (rows.length >= MOST && !step.failed) {
        left += 1;
        continue;
      }
      if (!all && !step.entry && !step.failed && !step.ignored) {
        if (folded.length && laneOf(folded[0]) !== laneOf(step)) flush();
        folded.push(step);
        continue;
      }
      flush();
      rows.push(placed(item(step), laneOf(step), rows.length + 1));
    }
    flush();
    // One by one: a call takes fewer arguments than a log can have actions.
    list.replaceChildren();
    for (const row of rows) list.append(row);
    if (left) list.append(element("li.more", {}, words.more(left)));
  }

  draw();
  const lanes = element("div.lanes", {}, ...LANES.filter((_, lane) => used[lane]).map((lane) => element("div.lane-head", {}, words.lanes[lane])), list);
  lanes.style.setProperty("--lanes", String(used.filter(Boolean).length));
  return report.course.length ? element("section.card.course", { "aria-label": WORDS.headings.course }, element("h2", {}, WORDS.headings.course), toggle, lanes) : null;
}

/** @param {import("../source/explain.mjs").Line} line @param {Show} show */
function saidElement(line, show) {
  return element(`div.said.${line.level}`, {},
    element("div.text", {}, element("span.mono", {}, line.text), element(`span.badge.${line.level}`, {}, words.levels[line.level]), lineLink(line.line, show)),
    pair(words.meaning, line.meaning),
    line.codes.length ? element("ul.codes", {}, ...line.codes.map((code) => element("li", {}, element("strong", {}, code.number), code.name ? element("span", {}, " ", element("code", {}, code.name)) : null,
      rich(`${code.what ? `: ${code.what}` : ""}${code.todo ? `. ${words.todo}: ${code.todo}` : ""}`)))) : null,
    ...line.remarks.map((text) => element("p.remark", {}, text)),
    line.todo ? pair(words.todo, line.todo) : null, line.anchor ? see(line.anchor, line.section) : null);
}

/** @param {Report} report @param {Show} show */
export function saidCard(report, show) {
  const made = element("section.card", { "aria-label": WORDS.headings.said }, element("h2", {}, WORDS.headings.said));
  if (!report.said.length) made.append(element("p", {}, WORDS.nothingSaid));
  let group = made;
  let action = -2;
  for (const line of report.said.slice(0, MOST)) {
    if (line.action !== action) {
      action = line.action;
      const step = report.course[action];
      group = element("div.group", {}, step ? element("h3", {}, step.link ? link(step.name, step.link) : step.name,
        element("span.job-text", {}, rich(step.job)), element("span.badge.note", {}, /** @type {Record<string, string>} */ (WORDS.phases)[step.phase])) : null,
        values(report.given[action] || []));
      made.append(group);
    }
    group.append(saidElement(line, show));
  }
  if (report.said.length > MOST) made.append(element("p.more", {}, words.more(report.said.length - MOST)));
  return made;
}

/** @param {Report} report @param {Show} show */
export function unsaidCard(report, show) {
  const made = element("section.card.unsaid", { "aria-label": WORDS.headings.unsaid }, element("h2", {}, WORDS.headings.unsaid));
  /** @param {string} title @param {import("../source/explain.mjs").Remark[]} remarks @param {boolean} open */
  const part = (title, remarks, open) => {
    if (!remarks.length) return;
    made.append(element("h3", {}, `${title} (${remarks.length})`));
    for (const remark of remarks.slice(0, MOST)) {
      made.append(element("details", { open },
        element("summary", {}, element("span.name", {}, remark.name), ": ", rich(remark.text)), values(remark.values),
        ...[[words.why, remark.why], [words.result, remark.result], [words.todo, remark.todo]].map(([label, text]) => text ? pair(label || "", text) : null), element("p", {}, lineLink(remark.line, show)), remark.anchor ? see(remark.anchor, sectionOf(remark.anchor)) : null));
    }
    if (remarks.length > MOST) made.append(element("p.more", {}, words.more(remarks.length - MOST)));
  };
  part(WORDS.headings.notRun, report.notRun, true);
  part(WORDS.headings.errors, report.errors, true);
  part(WORDS.headings.numbers, report.numbers, false);
  part(WORDS.headings.silent, report.silent, false);
  part(WORDS.headings.skipped, report.skipped, false);
  if (report.skippedOthers) made.append(element("p.see", {}, WORDS.skipped(report.skippedOthers)));
  if (made.children.length === 1) made.append(element("p", {}, words.nothing));
  return made;
}
