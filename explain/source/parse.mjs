/**
 * The structure of a log: its runs, their actions in client, server, script and rollback, the properties, the errors of the
 * engine, and the lines that the library wrote. Nothing here depends on the language of the engine's own texts: what it
 * translates is recognized by its form (a time, a name, a number), and the rest it never translates.
 */

/** @typedef {"microsoft" | "wine" | "unknown"} Engine */
/** @typedef {"client" | "server"} Side */
/** @typedef {"immediate" | "scheduled" | "script" | "rollback"} Phase */
/**
 * @typedef {object} Action
 * @property {number} id its place in the run's list
 * @property {string} name
 * @property {string} entry the entry point that it calls, or ""
 * @property {Side} side
 * @property {Phase} phase
 * @property {number} first the number of its first line, from 1
 * @property {number} last its last line, or 0 if the log has no end of it
 * @property {number} start milliseconds of the day, or -1
 * @property {number} end the same
 * @property {number} result the engine's number for its result, or -1
 * @property {number} parent the action in which it ran, or -1
 * @property {number} actual what a custom action returned if that was an error, otherwise 0
 * @property {boolean} ignored its failure was ignored
 * @property {string} data its CustomActionData
 * @property {string} called the function of a library that the engine called for it, or "" if the log does not say
 */
/** @typedef {{ line: number, text: string, mark: "line" | "path", action: number }} Said a line of the library */
/** @typedef {{ line: number, number: number, text: string, action: number }} EngineError */
/** @typedef {{ line: number, name: string, value: string }} Setting */
/**
 * @typedef {object} Run
 * @property {number} first
 * @property {number} last
 * @property {Engine} engine
 * @property {number} parent the run during which it ran, or -1
 * @property {string} started the date and time of the log's head, or ""
 * @property {boolean} begun the log shows its beginning
 * @property {Action[]} actions
 * @property {Said[]} said
 * @property {EngineError[]} errors
 * @property {{ line: number, name: string }[]} skipped actions whose condition was false
 * @property {Setting[]} settings changes of properties, in order
 * @property {Record<string, string>} properties their values at the end
 * @property {Record<string, string>} clientProperties
 * @property {string} commandLine
 * @property {string} package
 * @property {{ line: number, code: number }[]} codes what the engine says that it returns
 * @property {{ line: number, number: number }[]} outcomes the engine's numbers for the end of a run
 * @property {number} ended 1 or 0 as the engine reports the end, or -1
 * @property {boolean} related the engine found a product to upgrade
 * @property {boolean} rolledBack a rollback script ran
 * @property {boolean} acted some line shows that the run came to its actions, also if none of them could be read
 * @property {boolean} complete the log shows its end
 * @property {{ line: number, text: string, action: number }[]} messages texts without a mark inside of actions
 */

/** The actions that contain a whole run. */
const WHOLE = new Set(["INSTALL", "ADMIN", "ADVERTISE"]);
/** The numbers of the engine's messages at the end of a run: which of them mean success. */
export const OUTCOMES = new Map([[1707, true], [1708, false], [1724, true], [1725, false], [1727, true], [1728, true], [1729, false]]);
/** The actions that run the script. */
export const SCRIPT_RUNNERS = new Set(["InstallFinalize", "InstallExecute", "InstallExecuteAgain"]);
/** The bits of a custom action's type that say that it runs in a rollback or in a commit only. */
const TYPE_ROLLBACK = 0x100;
const SCRIPT_ROLLBACK = 2;
/** The lines that are kept of one value that goes over several lines. */
const MOST_CONTINUED = 60;
/** The texts that are kept of one action. */
const MOST_MESSAGES = 40;

const PREFIX = /^MSI \(([a-zA-Z])\)(?: \([0-9A-Fa-f]+[:!][0-9A-Fa-f]+\))?(?: \[(\d\d):(\d\d):(\d\d):(\d{3})\])?: ?/;
/**
 * A full stop and a colon as the languages write them, and as they look in a text that was read as one of Western Europe: the
 * signs of full width of the code pages 932, 936 and 949, and 950.
 */
const STOP = "(?:[.\\u3002\\uff0e]|\\u0081B|\u00a1\u00a3|\u00a1C)";
const COLON = "(?:[:\\uff1a]|\\u0081F|\u00a3\u00ba|\u00a1G)";
const ACTION = new RegExp(`^(\\D{0,60}?)(\\d{1,2})[:.](\\d\\d)[:.](\\d\\d) ?${COLON} ?([A-Za-z_][A-Za-z0-9_.]*?)${STOP}(?=$|[^A-Za-z0-9_.])(.*)$`);
const RESULT = new RegExp(`^\\D{1,60}?(\\d)${STOP}?\\s*$`);
const HEADER = /^=== (.*) ===$/;
/** The date or the time in such a line: without one it is the heading of another text. */
const MOMENT = /\d{1,2}:\d\d:\d\d|\b\d{4}[./-] ?\d{1,2}[./-]|\d{1,2}[./-] ?\d{1,2}[./-] ?\d{4}|\d{1,2}[./-] ?\d{2} +\d{1,2}[:.]\d\d[:.]\d\d/;
const CALLING = /\.exe ===$/i;
const PROPERTY = /^Property\(([CSN])\): (\S+) = (.*)$/;
// Languages without blanks between words have none before the number.
const ERROR = new RegExp(`^(?:(?:[^\\d\\s:]{2,24} ){1,3}|[^\\d\\s:]*[^\\u0000-\\u007f][^\\d\\s:]*)(\\d{4,5}) ?(?:${STOP}|${COLON}) ?(.*)$`);
const PRODUCT_ERROR = new RegExp(`^[^:\\uff1a]{2,40}?${COLON}.* -- \\D{2,40}(\\d{4,5}) ?(?:${STOP}|${COLON}) ?(.*)$`);
const NOTE = /^[^\d:]{2,30}: 1: (\d{4,5}) (.*)$/;
/** "... Product Version: 1.0.0. Product Language: 1033. Manufacturer: NAME. ... status: 1603.": of its words only the numbers stay. */
const STATUS = new RegExp(`${COLON} ?\\d+\\.\\d[\\d.]*\\D+${COLON} ?\\d{1,5}\\D.*${COLON} ?(\\d{1,5}) ?${STOP}$`);
const ACTUAL = /^CustomAction (\S+) returned actual error code (-?\d+)(.*)$/;
const OP_ACTION = /^Executing op: ActionStart\(Name=([^,)]+)/;
const OP_CUSTOM = /^Executing op: CustomAction(Schedule|Rollback|Commit)\(Action=([^,]+),ActionType=(\d+),(?:Source=[^,]*,)?Target=(.*)$/s;
const OP_HEADER = /^Executing op: Header\(.*ScriptType=(\d)/;
const CHANGE_SET = /^PROPERTY CHANGE: (?:Adding (\S+) property\. Its value is '(.*)'\.|Modifying (\S+) property\. Its current value is '.*'\. Its new value: '(.*)'\.|Deleting (\S+) property\..*)$/s;

/** @param {number} number @returns {boolean} the number is one of the engine's messages or of a package's Error table */
const isMessage = (number) => (number >= 1101 && number <= 2999) || (number >= 25000 && number <= 29999);
/** @param {RegExpMatchArray | null} match @param {number} index */
const part = (match, index) => (match && match[index]) || "";

/** Takes the lines of a log one by one, and makes the list of its runs. */
export class Parser {
  /**
   * @param {{ line: string, path: string }} marks the marks of the library's lines
   * @param {(name: string) => string} entryOf the entry point that an action of this name calls, or ""
   */
  constructor(marks, entryOf) {
    this.marks = marks;
    this.entryOf = entryOf;
    /** @type {Run[]} */
    this.runs = [];
    /** @type {Map<Run, { byName: Map<string, Action>, whole: boolean, over: boolean }>} */
    this.states = new Map();
    this.number = 0;
    /** The lines that have a form that only a log of the engine has. */
    this.known = 0;
    /** The words before the time in a line with which an action starts. */
    this.startWords = new Set();
    /** @type {number} the index of the current run, or -1 */
    this.current = -1;
    /** @type {Action[]} the actions that have begun and not ended */
    this.stack = [];
    /** @type {Map<string, number>} how many open actions have a name */
    this.open = new Map();
    /** @type {Action | null} the action of the script that runs */
    this.scripted = null;
    /** @type {0 | 1 | 2 | 3} the type of the script that runs */
    this.script = 0;
    /** @type {Side} */
    this.side = "server";
    /** @type {((whole: string) => boolean) | undefined} says that a value of several lines is complete */
    this.complete = undefined;
    /** @type {Map<string, Side>} who is about to run an action */
    this.doing = new Map();
    this.time = -1;
    /** @type {{ text: string, left: number, done: (text: string) => void } | null} */
    this.continued = null;
    this.heading = "";
    /** The last line that was the head or the end of a log, and the last that was not empty. */
    this.headed = 0;
    this.filled = 0;
    /** @type {{ name: string, line: number } | null} the action that the engine is about to run, until it says that it starts */
    this.pending = null;
    this.ran = false;
    /** The head of the current log names the process that has called the engine. */
    this.calling = false;
  }

  /**
   * Takes the next line.
   * @param {string} text
   */
  line(text) {
    this.number += 1;
    if (text !== "") this.filled = this.number;
    const code = text.charCodeAt(0);
    if (this.continued && this.#continue(text)) return;
    // "MSI (s) (2C:20) [18:02:01:500]: ...": the engine's own words, which are never translated.
    if (code === 77 && text.startsWith("MSI (")) {
      const prefix = PREFIX.exec(text);
      if (prefix) {
        this.known += 1;
        if (prefix[1] === "c" || prefix[1] === "s") this.side = prefix[1] === "c" ? "client" : "server";
        if (prefix[2]) this.time = ((+prefix[2] * 60 + +prefix[3]) * 60 + +prefix[4]) * 1000 + +prefix[5];
        this.#internal(text.slice(prefix[0].length));
        return;
      }
    }
    if (text.startsWith(this.marks.line)) return void this.#say("line", text.slice(this.marks.line.length));
    if (text.startsWith(this.marks.path)) return void this.#say("path", text.slice(this.marks.path.length));
    if (code === 61 && HEADER.test(text) && MOMENT.test(text)) return void this.#head(text);
    if (code === 80) {
      const property = PROPERTY.exec(text);
      if (property) return void this.#property(property);
    }
    if (text.length < 400) {
      const action = ACTION.exec(text);
      if (action && this.#action(action)) return;
    }
    if (code === 49 && this.#record(text)) return;
    const actual = code === 67 ? ACTUAL.exec(text) : null;
    if (actual) return void this.#actual(actual);
    if (text.startsWith("Message type: ")) {
      this.#run().engine = "wine";
      this.known += 1;
      return;
    }
    this.#message(text);
  }

  /** Takes the end of the log. */
  end() {
    if (this.continued) this.continued.done(this.continued.text);
    this.continued = null;
    const last = this.runs[this.runs.length - 1];
    // Lines after the end of a log are no run of their own.
    if (last && this.runs.length > 1 && !last.begun && last.parent < 0 && !last.acted && !last.codes.length && !last.commandLine && !last.package && !last.errors.length) {
      this.runs.pop();
      this.runs[this.runs.length - 1].last = this.number;
    }
    // A log with few lines has at least its end.
    if (last && this.headed === this.filled && this.headed > last.first && last.engine !== "wine") last.complete = true;
    for (const run of this.runs) {
      if (run.last === 0) run.last = this.number;
      finish(run);
    }
  }

  /** @returns {Run} the current run, which begins here if there is none */
  #run() {
    if (this.current < 0) this.#begin(-1, false);
    return this.runs[this.current];
  }

  /** @param {number} parent @param {boolean} begun */
  #begin(parent, begun) {
    /** @type {Run} */
    const run = {
      first: this.number, last: 0, engine: parent < 0 ? "unknown" : this.runs[parent].engine, parent, started: this.heading,
      begun, actions: [], said: [], errors: [], skipped: [], settings: [], properties: {}, clientProperties: {},
      commandLine: "", package: "", codes: [], outcomes: [], ended: -1, related: false, rolledBack: false, acted: false, complete: false,
      messages: [],
    };
    this.runs.push(run);
    this.current = this.runs.length - 1;
    if (parent < 0) {
      this.stack = [];
      this.open.clear();
      this.ran = false;
    }
    this.scripted = null;
    this.script = 0;
    return run;
  }

  #close() {
    if (this.current < 0) return;
    const run = this.runs[this.current];
    run.last = this.number;
    this.current = run.parent;
    this.scripted = null;
    this.script = 0;
  }

  // ---- heads and properties

  /** @param {string} text */
  #head(text) {
    this.known += 1;
    const microsoft = CALLING.test(text);
    const moment = /(\d{1,4}[./-]\d{1,2}[./-]\d{1,4}\.? +\d{1,2}[:.]\d\d[:.]\d\d)/.exec(text);
    this.heading = moment ? moment[1].replace(/ +/g, " ") : "";
    const whole = this.current >= 0 ? this.#outermost() : null;
    // Windows Installer ends a log with such a line. Wine's engine begins each run with two of them, and ends none.
    const over = this.ran && this.stack.length === 0;
    this.headed = this.number;
    const headless = whole && !whole.begun && whole.engine === "microsoft";
    if (whole && !microsoft && whole.engine !== "wine" && (this.calling || over || headless)) {
      while (this.current >= 0) this.#close();
      whole.complete = whole.complete || over || Boolean(headless && whole.codes.length);
      this.calling = false;
      return;
    }
    if (microsoft || !whole || over) {
      this.number -= 1;
      while (this.current >= 0) this.#close();
      this.number += 1;
      this.#begin(-1, true);
      this.calling = microsoft;
    }
    const run = this.#run();
    if (microsoft) run.engine = "microsoft";
    run.started = run.started || this.heading;
    run.begun = true;
  }

  /** @returns {Run} the run in which all open ones are */
  #outermost() {
    let run = this.runs[this.current];
    while (run.parent >= 0) run = this.runs[run.parent];
    return run;
  }

  #nested() {
    return this.current >= 0 && this.runs[this.current].parent >= 0;
  }

  /** @param {RegExpExecArray} match */
  #property(match) {
    this.known += 1;
    const run = this.#run();
    const values = match[1] === "C" ? run.clientProperties : run.properties;
    values[match[2]] = match[3];
  }

  /**
   * A line such as "1: 2 2: 0": a record of the engine.
   * @param {string} text
   */
  #record(text) {
    const match = /^1: (.*?) (?:2: (\{[0-9A-Fa-f-]{36}\}) (?:3: (\d) )?)?(?:2: .*)?$/.exec(text);
    if (!match) return false;
    if (match[2] && match[3] !== undefined && this.current >= 0) this.runs[this.current].ended = +match[3];
    return true;
  }

  // ---- actions

  /** @param {RegExpExecArray} match */
  #action(match) {
    const [, , hours, minutes, seconds, name, rest] = match;
    let time = ((+hours * 60 + +minutes) * 60 + +seconds) * 1000;
    // The line has whole seconds; the engine's own line before it has the milliseconds of the same second.
    if (this.time >= time && this.time < time + 1000) time = this.time;
    const result = RESULT.exec(rest);
    const open = result ? this.#open(name) : -1;
    if (result && open >= 0) {
      this.known += 1;
      this.#ended(open, +result[1], time);
      return true;
    }
    if (result && rest.length < 60) {
      // The end of an action whose beginning is not in the log.
      const current = this.current < 0 ? null : this.runs[this.current];
      if (!current || (!current.begun && !this.state(current).byName.has(name))) {
        this.known += 1;
        const run = this.#run();
        const action = this.#start(name, time);
        this.stack.pop();
        this.open.set(name, (this.open.get(name) || 1) - 1);
        Object.assign(action, { last: this.number, end: time, result: +result[1] });
        if (WHOLE.has(name)) run.complete = true;
        return true;
      }
    }
    if (rest !== "") {
      // The announcement of an action, with its description.
      this.known += 1;
        return true;
    }
    const top = this.stack[this.stack.length - 1];
    if (top && top.name === name && top.first === this.number - 1) {
      // That line was the announcement, without the blank at its end.
      this.startWords.add(match[1]);
      return true;
    }
    // The words with which an action starts are those with which the whole run started. The client and the server can have
    // different languages.
    if (WHOLE.has(name)) this.startWords.add(match[1]);
    else if (this.startWords.size && !this.startWords.has(match[1])) return false;
    this.known += 1;
    if (WHOLE.has(name)) this.#whole();
    if (this.pending && this.pending.name === name) this.pending = null;
    this.#start(name, time);
    this.ran = true;
    return true;
  }

  /** A whole run begins: another one, or the removal of an older product by an upgrade. */
  #whole() {
    const top = this.stack[this.stack.length - 1];
    if (top && top.name === "RemoveExistingProducts") {
      this.#begin(this.current, true);
    } else if (this.current >= 0 && this.stack.length === 0) {
      const run = this.runs[this.current];
      if (this.state(run).whole) {
        this.number -= 1;
        this.#close();
        this.number += 1;
        this.heading = "";
        this.#begin(-1, true);
      } else {
        run.begun = true;
      }
    } else if (this.current < 0) {
      this.#begin(-1, true);
    }
  }

  /** @param {string} name @param {number} time @returns {Action} */
  #start(name, time) {
    const run = this.#run();
    const parent = this.#top(run);
    const script = parent && SCRIPT_RUNNERS.has(parent.name);
    const over = !parent && this.state(run).over;
    /** @type {Action} */
    const action = {
      id: run.actions.length, name, entry: this.entryOf(name), side: this.doing.get(name) || "server",
      phase: over ? "rollback" : script ? "script" : "immediate", first: this.number, last: 0, start: time, end: -1,
      result: -1, parent: parent ? parent.id : -1, actual: 0, ignored: false, data: "", called: "",
    };
    if (over) run.rolledBack = true;
    this.#add(run, action);
    this.stack.push(action);
    this.open.set(name, (this.open.get(name) || 0) + 1);
    this.scripted = null;
    return action;
  }

  /** @param {Run} run @returns {Action | undefined} the innermost open action, if it is one of this run */
  #top(run) {
    const top = this.stack[this.stack.length - 1];
    return top && run.actions[top.id] === top ? top : undefined;
  }

  /** @param {Run} run @param {Action} action */
  #add(run, action) {
    const state = this.state(run);
    state.byName.set(action.name, action);
    if (WHOLE.has(action.name)) state.whole = true;
    run.actions.push(action);
    run.acted = true;
  }

  /**
   * What is looked up in the actions of a run.
   * @param {Run} run
   * @returns {{ byName: Map<string, Action>, whole: boolean, over: boolean }} the last action of each name; the whole run
   * has begun, and has ended
   */
  state(run) {
    let state = this.states.get(run);
    if (!state) {
      state = { byName: new Map(), whole: false, over: false };
      this.states.set(run, state);
    }
    return state;
  }

  /** @param {string} name @returns {number} the place of the innermost open action of this name in the stack, or -1 */
  #open(name) {
    if (!this.open.get(name)) return -1;
    for (let index = this.stack.length - 1; index >= 0; index -= 1) if (this.stack[index].name === name) return index;
    return -1;
  }

  /** @param {number} place @param {number} result @param {number} time */
  #ended(place, result, time) {
    const action = this.stack[place];
    if (SCRIPT_RUNNERS.has(action.name) || WHOLE.has(action.name)) {
      this.#endScripted(time);
      if (result === 1) this.script = 0;
    }
    // The removal of an older product ends with the action that started it.
    while (this.#nested() && this.runs[this.current].actions[action.id] !== action) this.#close();
    for (let index = place; index < this.stack.length; index += 1) {
      const { name } = this.stack[index];
      this.open.set(name, (this.open.get(name) || 1) - 1);
    }
    this.stack.length = place;
    Object.assign(action, { last: this.number, end: time, result });
    const run = this.#run();
    if (WHOLE.has(action.name)) {
      this.state(run).over = true;
      run.complete = run.complete || action.parent < 0 || run.engine === "microsoft";
    }
    this.time = Math.max(this.time, time);
  }

  /** @param {number} time */
  #endScripted(time) {
    if (!this.scripted) return;
    Object.assign(this.scripted, { last: this.number - 1, end: time });
    this.scripted = null;
  }

  /** Begins the action that the engine is about to run, if the log has no line with which actions start. */
  #unannounced() {
    const { pending } = this;
    if (!pending || WHOLE.has(pending.name) || this.ran || this.current < 0) return;
    this.pending = null;
    const action = this.#scriptStart(pending.name);
    Object.assign(action, { first: pending.line, phase: "immediate", side: this.doing.get(pending.name) || "server" });
  }

  /** @returns {Action | null} the action that runs now */
  #running() {
    this.#unannounced();
    if (this.scripted) return this.scripted;
    const run = this.current < 0 ? null : this.runs[this.current];
    const top = this.stack[this.stack.length - 1];
    return run && top && run.actions[top.id] === top ? top : null;
  }

  // ---- what is said

  /** @param {"line" | "path"} mark @param {string} text */
  #say(mark, text) {
    this.known += 1;
    const run = this.#run();
    run.acted = true;
    const running = this.#running();
    run.said.push({ line: this.number, text, mark, action: running ? running.id : -1 });
  }

  /** @param {RegExpExecArray} match */
  #actual(match) {
    this.known += 1;
    const run = this.#run();
    const running = this.#running();
    const action = this.state(run).byName.get(match[1]) || running;
    if (!action) return;
    action.actual = +match[2];
    // After a failure that counts, the only other words are a remark in brackets.
    action.ignored = match[3].trim() !== "" && !match[3].trim().startsWith("(");
  }

  /** @param {string} text */
  #message(text) {
    if (this.current < 0) return;
    const run = this.runs[this.current];
    const running = this.#running();
    if (running && running.name === "FindRelatedProducts" && /\{[0-9A-Fa-f-]{36}\}\s*$/.test(text)) run.related = true;
    const error = ERROR.exec(text);
    if (error && isMessage(+error[1])) this.#error(+error[1], text);
    else if (running && text.trim() !== "") {
      const kept = run.messages.length;
      let mine = 0;
      for (let index = kept - 1; index >= 0 && run.messages[index].action === running.id; index -= 1) mine += 1;
      if (mine < MOST_MESSAGES) run.messages.push({ line: this.number, text, action: running.id });
    }
  }

  /** @param {number} number @param {string} text */
  #error(number, text) {
    this.known += 1;
    const run = this.#run();
    const running = this.#running();
    run.errors.push({ line: this.number, number, text, action: running ? running.id : -1 });
  }

  // ---- the engine's own words

  /** @param {string} text the line after its prefix */
  #internal(text) {
    if (this.current < 0) this.#begin(-1, false);
    const run = this.runs[this.current];
    run.engine = "microsoft";
    switch (text.charCodeAt(0)) {
      case 68: // "Doing action: NAME"
        if (text.startsWith("Doing action: ")) {
          run.acted = true;
          this.doing.set(text.slice(14).trim(), this.side);
          this.pending = { name: text.slice(14).trim(), line: this.number };
          this.#endScripted(this.time);
          if (this.script !== SCRIPT_ROLLBACK) this.script = 0;
        }
        break;
      case 69: // "Executing op: ..."
        if (text.startsWith("Executing op: ")) this.#operation(text);
        break;
      case 73: { // "Invoking remote custom action. DLL: PATH, Entrypoint: NAME"
        const match = /^Invoking remote custom action\. DLL: .*, Entrypoint: (\S+)/.exec(text);
        const running = match && this.#running();
        if (match && running) {
          running.entry = this.entryOf(match[1]) || running.entry;
          running.called = match[1];
        }
        break;
      }
      case 83: { // "Skipping action: NAME (condition is false)"
        const match = /^Skipping action: (\S+) \(/.exec(text);
        if (match) {
          run.acted = true;
          run.skipped.push({ line: this.number, name: match[1] });
        }
        break;
      }
      case 80: // "PROPERTY CHANGE: ..."
        if (text.startsWith("PROPERTY CHANGE: ")) {
          this.#value(text, (whole) => this.#change(run, whole), (whole) => /'\.$/.test(whole) || whole.startsWith("PROPERTY CHANGE: Deleting"));
          return;
        }
        break;
      default:
    }
    const returned = /^(?:MainEngineThread is returning|Back from server\. Return value:) (\d+)$/.exec(text);
    if (returned) {
      run.codes.push({ line: this.number, code: +returned[1] });
      if (!run.actions.length) run.complete = true;
    }
    const command = /^Command Line: (.*)$/.exec(text);
    if (command && !run.commandLine) run.commandLine = command[1].trim();
    const original = /^Original package ==> (.*)$/.exec(text);
    if (original && !run.package) run.package = original[1].trim();
    const note = NOTE.exec(text);
    if (note) {
      if (OUTCOMES.has(+note[1])) run.outcomes.push({ line: this.number, number: +note[1] });
      else this.#noted(run, +note[1], text);
      return;
    }
    const product = PRODUCT_ERROR.exec(text);
    if (product && isMessage(+product[1])) this.#error(+product[1], text);
    const status = text.length < 2000 ? STATUS.exec(text) : null;
    if (status) run.codes.push({ line: this.number, code: +status[1] });
  }

  /** @param {Run} run @param {number} number @param {string} text */
  #noted(run, number, text) {
    if ((number >= 1720 && number <= 1723) || number === 1920 || number === 1923 || number === 1925) this.#error(number, text);
  }

  /** @param {Run} run @param {string} text */
  #change(run, text) {
    const match = CHANGE_SET.exec(text);
    if (!match) return;
    const name = match[1] || match[3] || match[5];
    const value = part(match, 2) || part(match, 4);
    if (run.settings.length < 20000) run.settings.push({ line: this.number, name, value });
    const running = this.#running();
    if (running && running.name === "FindRelatedProducts" && /^\{/.test(value)) run.related = true;
  }

  /** @param {string} text */
  #operation(text) {
    this.#run().acted = true;
    const header = OP_HEADER.exec(text);
    if (header) {
      this.script = /** @type {0 | 1 | 2 | 3} */ (+header[1]);
      if (this.script === SCRIPT_ROLLBACK) this.#run().rolledBack = true;
      this.#endScripted(this.time);
      return;
    }
    const started = OP_ACTION.exec(text);
    if (started) {
      this.#endScripted(this.time);
      this.#scriptStart(started[1]);
      return;
    }
    if (text.startsWith("Executing op: CustomAction")) {
      this.#value(text, (whole) => this.#custom(whole), (whole) => whole.trimEnd().endsWith(")"));
    } else if (/^Executing op: End\(/.test(text)) {
      this.#endScripted(this.time);
    }
  }

  /** @param {string} name @returns {Action} */
  #scriptStart(name) {
    const run = this.#run();
    const parent = this.#top(run);
    /** @type {Action} */
    const action = {
      id: run.actions.length, name, entry: this.entryOf(name), side: "server",
      phase: this.script === SCRIPT_ROLLBACK ? "rollback" : "script", first: this.number, last: 0, start: this.time, end: -1,
      result: -1, parent: parent ? parent.id : -1, actual: 0, ignored: false, data: "", called: "",
    };
    this.#add(run, action);
    this.scripted = action;
    return action;
  }

  /** @param {string} text */
  #custom(text) {
    const match = OP_CUSTOM.exec(text);
    if (!match) return;
    const [, kind, name, type, rest] = match;
    const action = this.scripted && this.scripted.name === name ? this.scripted : this.#scriptStart(name);
    const data = /^([^,]*),CustomActionData=([\s\S]*)\)\s*$/.exec(rest);
    const target = data ? data[1] : rest.replace(/[,)\s]+$/, "");
    action.entry = this.entryOf(target) || action.entry;
    action.data = data ? data[2] : "";
    // In the script of the installation a rollback action is only put aside.
    if (kind === "Schedule" && (+type & TYPE_ROLLBACK) !== 0 && this.script !== SCRIPT_ROLLBACK) action.phase = "scheduled";
  }

  // ---- values of several lines

  /**
   * Collects the lines of a value until it is complete.
   * @param {string} text @param {(whole: string) => void} done @param {(whole: string) => boolean} complete
   */
  #value(text, done, complete) {
    if (complete(text)) return void done(text);
    this.continued = { text, left: MOST_CONTINUED, done };
    this.complete = complete;
  }

  /** @param {string} text @returns {boolean} the line belongs to the value before it */
  #continue(text) {
    const continued = this.continued;
    if (!continued) return false;
    if (text.startsWith("MSI (") || text.startsWith(this.marks.line) || continued.left === 0 || ACTION.test(text.slice(0, 400))) {
      this.continued = null;
      continued.done(continued.text);
      return false;
    }
    continued.text += `\n${text}`;
    continued.left -= 1;
    if (this.complete && this.complete(continued.text)) {
      this.continued = null;
      continued.done(continued.text);
    }
    return true;
  }
}

/**
 * Settles what only the end of a run shows.
 * @param {Run} run
 */
function finish(run) {
  if (run.engine === "unknown" && run.actions.some((action) => action.result > 1)) run.engine = "microsoft";
  // The properties of the client are of interest if the server has written none.
  if (!Object.keys(run.properties).length) run.properties = run.clientProperties;
  const ran = new Set(run.actions.filter((action) => action.phase === "script" || action.phase === "rollback").map((action) => action.name));
  const spoke = new Set(run.said.map((said) => said.action));
  const parents = new Set(run.actions.map((action) => action.parent));
  for (const action of run.actions) {
    if (action.phase === "immediate" && ran.has(action.name) && !spoke.has(action.id) && !parents.has(action.id)) {
      action.phase = "scheduled";
    }
    if (action.last === 0 && run.complete) action.last = action.first;
  }
}
