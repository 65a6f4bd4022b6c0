/**
 * The page's worker: reads one log, and answers the page's questions about it. The page has one worker for each log, so that
 * it stays fluent, and ends a log by ending its worker.
 */

import { Knower, Log } from "../source/explain.mjs";
import { reportText, summaryText } from "../source/text.mjs";

/** The most lines that a search finds. */
export const MOST_FOUND = 5000;
/** How often the worker reports its progress, in milliseconds. */
const PROGRESS = 100;

/** The worker's answers to the page's questions. */
class Answers {
  /** @param {Knower} knower @param {(message: any, transfer?: any) => void} send */
  constructor(knower, send) {
    this.knower = knower;
    this.send = send;
    /** @type {Log | null} */
    this.log = null;
    /** @type {import("../source/explain.mjs").Explained | null} */
    this.explained = null;
    /** @type {number[] | null} the numbers of the lines that are shown; null for all */
    this.view = null;
    /** @type {Map<number, string>} what is special about a line */
    this.kinds = new Map();
  }

  /** @param {{ file: File }} question */
  async read({ file }) {
    const log = new Log(this.knower, file.name);
    let last = 0;
    const explained = await log.read({
      size: file.size, slice: async (start, end) => new Uint8Array(await file.slice(start, end).arrayBuffer()),
    }, (done) => {
      if (Date.now() - last < PROGRESS) return;
      last = Date.now();
      this.send({ progress: done });
    });
    this.log = log;
    this.explained = explained;
    for (const run of log.parser.runs) {
      for (const action of run.actions) if (action.result === 2 || action.result === 3) this.kinds.set(action.last, "bad");
      for (const error of run.errors) this.kinds.set(error.line, "bad");
      for (const said of run.said) this.kinds.set(said.line, "library");
    }
    for (const report of explained.reports) {
      for (const step of report.course) if (step.failed && step.last) this.kinds.set(step.last, "bad");
    }
    return { explained };
  }

  /** @param {{ masked: boolean }} question */
  report({ masked }) {
    return { explained: masked && this.log ? this.log.masked() : this.explained };
  }

  /** @param {{ masked: boolean, summary: boolean }} question */
  text({ masked, summary }) {
    const { explained } = this.report({ masked });
    if (!explained) return { text: "" };
    return { text: summary ? summaryText(explained) : reportText(explained) };
  }

  /** Chooses the lines that are shown. @param {{ filter: string, search: string, masked: boolean }} question */
  choose({ filter, search, masked }) {
    const { log } = this;
    if (!log) return { count: 0, found: 0 };
    const found = search ? log.search(search, { most: MOST_FOUND, masked }) : [];
    if (filter === "found") this.view = found;
    else if (filter === "all") this.view = null;
    else this.view = [...this.kinds].filter(([, kind]) => filter === "marked" || kind === "library").map(([line]) => line).sort((left, right) => left - right);
    return { count: this.view ? this.view.length : log.lines.length, found };
  }

  /** @param {{ from: number, count: number, masked: boolean }} question */
  rows({ from, count, masked }) {
    const { log, view } = this;
    if (!log) return { rows: [] };
    const rows = [];
    const total = view ? view.length : log.lines.length;
    for (let index = Math.max(0, from); index < Math.min(from + count, total); index += 1) {
      const number = view ? view[index] : index + 1;
      rows.push({ number, text: log.shownLine(number, masked).slice(0, 2000), kind: this.kinds.get(number) || "" });
    }
    return { rows, from };
  }

  /** The place of a line among those that are shown, or -1. @param {{ line: number }} question */
  place({ line }) {
    return { place: this.view ? this.view.indexOf(line) : line - 1 };
  }
}

/**
 * Starts the worker: answers each message { id, ask, ... } with { id, ... }, or with { id, error }.
 * @param {any} knowledge
 */
export function startWorker(knowledge) {
  const scope = /** @type {any} */ (globalThis);
  const answers = /** @type {any} */ (new Answers(new Knower(knowledge), (message) => scope.postMessage(message)));
  scope.onmessage = async (/** @type {MessageEvent} */ { data: { id, ask, ...question } }) => {
    try {
      scope.postMessage({ id, ...(await answers[ask](question)) });
    } catch (error) {
      scope.postMessage({ id, error: error instanceof Error ? error.message : String(error) });
    }
  };
}
