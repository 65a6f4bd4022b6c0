/**
 * The page: takes files, has a worker read each of them, and shows what it found.
 */

import { byId, element } from "./dom.mjs";
import { courseCard, factsCard, saidCard, unsaidCard, verdictCard } from "./report.mjs";
import { Viewer } from "./viewer.mjs";
import { WORDS } from "../source/words.mjs";

/** @typedef {import("../source/explain.mjs").Explained} Explained */

const text = WORDS.page;

/** One log: its worker, and what it has found. */
class Opened {
  /** @param {File} file @param {string} script the address of the worker's script @param {(done: number) => void} progress */
  constructor(file, script, progress) {
    this.file = file;
    /** The place of the log in the list. */
    this.order = state.opened += 1;
    /** What the log is called as long as it is not explained: the name of a file can have names in it. */
    this.called = state.masked ? text.unnamed(this.order) : file.name;
    /** @type {Explained | null} */
    this.explained = null;
    /** The explanation has no names. */
    this.masked = false;
    this.worker = new Worker(script);
    /** @type {Map<number, { done: (answer: any) => void, failed: (error: Error) => void }>} */
    this.waiting = new Map();
    this.last = 0;
    this.worker.onmessage = ({ data }) => {
      if (data.progress !== undefined) return void progress(data.progress);
      const waiting = this.waiting.get(data.id);
      this.waiting.delete(data.id);
      if (waiting && data.error) waiting.failed(new Error(data.error));
      else if (waiting) waiting.done(data);
    };
    this.worker.onerror = () => {
      for (const { failed } of this.waiting.values()) failed(new Error(text.failed(this.called)));
      this.waiting.clear();
    };
    this.viewer = new Viewer((question) => this.ask(question), () => masked());
  }

  /** @param {any} question @returns {Promise<any>} */
  ask(question) {
    return new Promise((done, failed) => {
      this.last += 1;
      this.waiting.set(this.last, { done, failed });
      this.worker.postMessage({ id: this.last, ...question });
    });
  }

  /** Asks for the explanation with or without names. @param {boolean} masked */
  async maskAs(masked) {
    const { explained } = await this.ask({ ask: "report", masked });
    this.masked = masked;
    this.explained = explained;
    this.called = explained.name;
    this.viewer.forget();
  }

  close() {
    this.worker.terminate();
    for (const { failed } of this.waiting.values()) failed(new Error(""));
    this.waiting.clear();
  }
}

const state = {
  /** @type {Opened[]} */
  logs: [],
  /** @type {Opened | null} */
  log: null,
  run: 0,
  opened: 0,
  masked: false,
  script: "",
};
const masked = () => state.masked;

/** @param {string} message */
function say(message) {
  byId("status").textContent = message;
}

/** @param {FileList | File[]} files */
async function openFiles(files) {
  let shown = false;
  // Of several logs the one that is explained first is shown.
  await Promise.all([...files].map((file) => openFile(file, () => {
    const first = !shown;
    shown = true;
    return first;
  })));
}

/** @param {File} file @param {() => boolean} isFirst */
async function openFile(file, isFirst) {
  const bar = /** @type {HTMLProgressElement} */ (element("progress", { max: "1", value: "0" }));
  const name = element("span", {});
  const opened = new Opened(file, state.script, (done) => {
    bar.value = done;
    name.textContent = text.reading(opened.called, Math.round(done * 100));
  });
  name.textContent = opened.called;
  bar.setAttribute("aria-label", opened.called);
  let cancelled = false;
  const job = element("div.job", {}, name, bar, element("button", { type: "button", onclick: () => {
    cancelled = true;
    opened.close();
  } }, text.cancel));
  byId("jobs").append(job);
  try {
    opened.explained = (await opened.ask({ ask: "read", file })).explained;
    while (opened.masked !== state.masked) await opened.maskAs(state.masked);
    opened.called = opened.explained ? opened.explained.name : file.name;
    state.logs.push(opened);
    state.logs.sort((left, right) => left.order - right.order);
    byId("drop").classList.add("small");
    byId("pick-text").textContent = text.dropMore;
    byId("columns").hidden = false;
    byId("help").hidden = true;
    if (isFirst()) await select(opened, 0);
    else list();
    say(text.read(opened.called, opened.explained ? opened.explained.count.toLocaleString("en") : "0"));
  } catch (error) {
    opened.close();
    say(cancelled ? text.cancelled(opened.called) : error instanceof Error ? error.message : String(error));
  } finally {
    job.remove();
  }
}

/** Shows a run of a log. @param {Opened} log @param {number} run */
async function select(log, run) {
  state.log = log;
  state.run = run;
  list();
  show();
  await log.viewer.choose();
}

/** The list of the logs and their runs. */
function list() {
  byId("run-list").replaceChildren(...state.logs.map((log) => {
    const explained = /** @type {Explained} */ (log.explained);
    return element("li", {}, element("div.file", {}, element("span", {}, explained.name),
      element("button", { type: "button", "aria-label": `${text.remove} ${explained.name}`, onclick: () => void remove(log) }, text.remove)),
      element("ul", {}, ...explained.reports.map((report, index) => element("li", {}, element(`button.run${report.parent >= 0 ? ".inner" : ""}`, {
        type: "button", "aria-current": log === state.log && index === state.run ? "true" : undefined, onclick: () => void select(log, index),
      }, element(`span.dot.${report.outcome}`, { "aria-hidden": "true" }), element("span", {}, report.sentence))))));
  }));
}

/** @param {Opened} log */
async function remove(log) {
  log.close();
  state.logs = state.logs.filter((each) => each !== log);
  if (state.log === log) state.log = null;
  if (state.logs.length) await select(state.log || state.logs[0], 0);
  else {
    byId("columns").hidden = true;
    byId("drop").classList.remove("small");
    byId("pick-text").textContent = text.drop;
    byId("main").replaceChildren();
    list();
    byId("help").hidden = false;
    say("");
  }
}

/** Shows the chosen run. */
function show() {
  const { log } = state;
  const main = byId("main");
  if (!log || !log.explained) return;
  const { reports, problems } = log.explained;
  const report = reports[state.run];
  /** @param {number} line */
  const toLine = (line) => void log.viewer.show(line);
  if (!report) {
    main.replaceChildren(element("section.card.verdict.failed", {}, element("h2.sentence", {}, log.explained.name), ...problems.map((problem) => element("p.problem", {}, problem))), log.viewer.made);
    return;
  }
  main.replaceChildren(...[verdictCard(report, toLine, toolsOf(log)), factsCard(report, problems), courseCard(report, toLine), saidCard(report, toLine), unsaidCard(report, toLine), log.viewer.made]
    .filter((each) => each !== null));
}

/** The buttons for a log. @param {Opened} log */
function toolsOf(log) {
  const check = /** @type {HTMLInputElement} */ (element("input", { type: "checkbox", id: "mask", onchange: () => void mask(check.checked) }));
  check.checked = state.masked;
  const tools = element("div.actions", {},
    element("button", { type: "button", onclick: () => void copy(log, true, tools) }, text.summary), element("button", { type: "button", onclick: () => void copy(log, false, tools) }, text.text),
    element("button", { type: "button", onclick: () => window.print() }, text.print), element("label", {}, check, text.mask));
  return tools;
}

/** @param {boolean} on */
async function mask(on) {
  state.masked = on;
  // What was said of the logs has their names.
  say("");
  for (const log of state.logs) await log.maskAs(on);
  list();
  show();
  if (state.log) await state.log.viewer.choose();
  byId("mask").focus();
}

/** @param {Opened} log @param {boolean} summary @param {HTMLElement} tools */
async function copy(log, summary, tools) {
  const copied = (await log.ask({ ask: "text", summary, masked: state.masked })).text;
  try {
    await navigator.clipboard.writeText(copied);
    say(text.copied);
  } catch {
    // Not every browser lets a page from a file copy: then its text can be copied by hand.
    const area = /** @type {HTMLTextAreaElement} */ (element("textarea.copy", { readonly: true, "aria-label": text.text }));
    area.value = copied;
    for (const left of document.querySelectorAll("textarea.copy")) left.remove();
    tools.after(area);
    area.select();
    say(text.notCopied);
  }
}

/**
 * Starts the page.
 * @param {string} source the text of the page's script, which the workers run too
 */
export function startPage(source) {
  state.script = URL.createObjectURL(new Blob([source], { type: "text/javascript" }));
  for (const each of document.querySelectorAll("[data-word]")) {
    each.textContent = String(/** @type {any} */ (text)[/** @type {HTMLElement} */ (each).dataset.word || ""]);
  }
  const files = /** @type {HTMLInputElement} */ (byId("files"));
  files.addEventListener("change", () => {
    void openFiles(files.files || []);
    files.value = "";
  });
  const drop = byId("drop");
  let depth = 0;
  document.addEventListener("dragenter", () => {
    depth += 1;
    drop.classList.add("over");
  });
  document.addEventListener("dragleave", () => {
    depth -= 1;
    if (depth <= 0) drop.classList.remove("over");
  });
  document.addEventListener("dragover", (event) => event.preventDefault());
  document.addEventListener("drop", (event) => {
    event.preventDefault();
    depth = 0;
    drop.classList.remove("over");
    if (event.dataTransfer && event.dataTransfer.files.length) void openFiles(event.dataTransfer.files);
  });
  const theme = /** @type {HTMLSelectElement} */ (byId("theme"));
  theme.addEventListener("change", () => {
    if (theme.value) document.documentElement.dataset.theme = theme.value;
    else delete document.documentElement.dataset.theme;
  });
  // What is folded is printed too.
  window.addEventListener("beforeprint", () => {
    for (const each of document.querySelectorAll("details")) {
      each.dataset.opened = String(each.open);
      each.open = true;
    }
  });
  window.addEventListener("afterprint", () => {
    for (const each of document.querySelectorAll("details")) each.open = each.dataset.opened === "true";
  });
}
