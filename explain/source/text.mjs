/**
 * A report as plain text: the whole for a terminal or a file, and a summary for a ticket.
 */

import { WORDS } from "./words.mjs";

/** @typedef {import("./explain.mjs").Explained} Explained */
/** @typedef {import("./explain.mjs").Report} Report */

/** The page whose sections the anchors name. */
export const PAGE = "troubleshooting.md";
const WIDTH = 110;

/**
 * The text of a page's cell without its marks for code and links.
 * @param {string} text
 */
export function unmarked(text) {
  return text.replace(/\[([^\]]*)\]\([^)]*\)/g, "$1").replace(/`([^`]*)`/g, "$1");
}

/**
 * A sentence of the verdict as text. What the log says in it stays as it is.
 * @param {import("./explain.mjs").Cause} cause
 */
export function causeText(cause) {
  return typeof cause === "string" ? unmarked(cause) : unmarked(cause.before) + cause.quoted + unmarked(cause.after);
}

/** @param {string} text @param {string} indent @param {string} [first] */
function wrapped(text, indent, first = indent) {
  const words = text.split(/ (?! )/);
  const lines = [];
  let line = first;
  let empty = true;
  for (const word of words) {
    if (!empty && line.length + 1 + word.length > WIDTH) {
      lines.push(line);
      [line, empty] = [indent, true];
    }
    line += empty ? word : ` ${word}`;
    empty = false;
  }
  lines.push(line);
  return lines.map((each) => each.trimEnd()).join("\n");
}

/** @param {string} label @param {string} text @param {number} [indent] */
function labelled(label, text, indent = 6) {
  const start = " ".repeat(indent) + `${label}:`.padEnd(8);
  return wrapped(unmarked(text), " ".repeat(start.length), start);
}

/** @param {string} title */
const heading = (title) => `\n  ${title}\n`;

/** @param {import("./explain.mjs").Value} value */
const assigned = ({ name, value }) => name ? `${name} = ${value}` : value;

/** @param {import("./explain.mjs").Code} code */
function codeText(code) {
  const what = [code.name, code.what].filter(Boolean).join(": ");
  return `${code.number}: ${what}${code.todo ? ` -- ${code.todo}` : ""}`;
}

/**
 * @param {Report} report @param {number} index @param {number} count
 * @returns {string[]}
 */
function verdict(report, index, count) {
  const lines = [];
  if (count > 1) lines.push(`  ${WORDS.run(index + 1, count)}, ${WORDS.lines(report.first, report.last)}`);
  lines.push(wrapped(report.sentence, "  "));
  for (const each of report.cause) lines.push(wrapped(causeText(each), "    "));
  if (report.todo) lines.push(labelled(WORDS.todo, report.todo, 4));
  if (report.anchor) lines.push(labelled(WORDS.docs, `docs/${PAGE}#${report.anchor}`, 4));
  return lines;
}

/**
 * @param {string} title @param {import("./explain.mjs").Remark[]} remarks
 * @returns {string[]}
 */
function remarks(title, remarks) {
  if (!remarks.length) return [];
  const lines = [heading(title)];
  for (const remark of remarks) {
    lines.push(wrapped(`${remark.name}: ${unmarked(remark.text)}`, "      ", `    ${remark.line}  `));
    for (const value of remark.values) lines.push(wrapped(assigned(value), "        ", "      "));
    for (const [label, text] of [[WORDS.why, remark.why], [WORDS.result, remark.result], [WORDS.todo, remark.todo]]) if (text) lines.push(labelled(label || "", text));
  }
  return lines;
}

/**
 * The whole report.
 * @param {Explained} explained
 * @returns {string}
 */
export function reportText(explained) {
  const lines = [explained.name, "=".repeat(Math.min(explained.name.length, WIDTH))];
  for (const problem of explained.problems) lines.push(wrapped(problem, "  "));
  explained.reports.forEach((report, index) => {
    lines.push("", ...verdict(report, index, explained.reports.length), "");
    for (const { name, value } of report.facts) lines.push(wrapped(`${`${name}:`.padEnd(14)}${value}`, " ".repeat(18), "    "));
    if (report.atEnd && report.course.some((step) => step.entry)) lines.push(wrapped(WORDS.atEnd, "    "));
    const steps = report.course.filter((step) => step.entry || step.failed || step.phase === "rollback");
    if (steps.length) lines.push(heading(WORDS.headings.course));
    for (const step of steps) {
      const took = step.took > 0 ? `, ${WORDS.seconds(step.took)}` : "";
      const phase = /** @type {Record<string, string>} */ (WORDS.phases)[step.phase];
      lines.push(`    ${step.failed ? "!" : step.entry ? "*" : " "} ${String(step.first).padStart(6)}  ${step.name} (${phase}${took})`);
    }
    lines.push(heading(WORDS.headings.said));
    if (!report.said.length) lines.push(`    ${WORDS.nothingSaid}`);
    let action = -2;
    for (const line of report.said) {
      if (line.action !== action) {
        action = line.action;
        if (line.name) lines.push(`    ${line.name}`);
        for (const value of report.given[action] || []) lines.push(wrapped(assigned(value), "            ", "        "));
      }
      lines.push(wrapped(line.text, "        ", `    ${line.line}  `));
      lines.push(labelled(WORDS.means, `${line.meaning} [${WORDS.levels[line.level]}]`));
      for (const code of line.codes) lines.push(wrapped(unmarked(codeText(code)), " ".repeat(16), " ".repeat(14)));
      for (const remark of line.remarks) lines.push(wrapped(remark, " ".repeat(14)));
      if (line.todo) lines.push(labelled(WORDS.todo, line.todo));
      if (line.anchor) lines.push(labelled(WORDS.docs, `docs/${PAGE}#${line.anchor}`));
    }
    for (const part of [remarks(WORDS.headings.notRun, report.notRun), remarks(WORDS.headings.errors, report.errors),
      remarks(WORDS.headings.numbers, report.numbers), remarks(WORDS.headings.silent, report.silent),
      remarks(WORDS.headings.skipped, report.skipped)]) {
      // One by one: a call takes fewer arguments than a log can have actions.
      for (const line of part) lines.push(line);
    }
    if (report.skippedOthers) lines.push(`\n    ${WORDS.skipped(report.skippedOthers)}`);
  });
  return `${lines.join("\n").replace(/\n{3,}/g, "\n\n")}\n`;
}

/**
 * The summary for a ticket: verdict, cause, and the lines that need attention.
 * @param {Explained} explained
 * @returns {string}
 */
export function summaryText(explained) {
  const lines = [explained.name];
  for (const problem of explained.problems) lines.push(problem);
  explained.reports.forEach((report, index) => {
    lines.push(...verdict(report, index, explained.reports.length).map((line) => line.replace(/^ {2}/, "")));
    for (const { name, value } of report.facts) lines.push(`  ${name}: ${value}`);
    for (const line of report.said.filter((each) => each.level === "look")) {
      lines.push(`  ${line.line} ${line.name ? `${line.name}: ` : ""}${line.text}`, `    ${unmarked(line.meaning)}`);
      for (const code of line.codes) lines.push(`    ${unmarked(codeText(code))}`);
    }
    for (const error of report.errors) lines.push(`  ${error.line} ${error.name}: ${unmarked(error.text)}`);
  });
  return `${lines.join("\n")}\n`;
}
