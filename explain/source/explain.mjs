/**
 * Explains the runs of a log: verdict, cause, what the library said and what it did not say. The knowledge is that of
 * explain/knowledge.json; everything here is only how it fits to what a log shows.
 */

import { OUTCOMES, Parser, SCRIPT_RUNNERS } from "./parse.mjs";
import { escaped, nameMask, plain, secretMask, secretsOf } from "./mask.mjs";
import { readLines } from "./decode.mjs";
import { WORDS } from "./words.mjs";

/** @typedef {import("./parse.mjs").Run} Run */
/** @typedef {import("./parse.mjs").Action} Action */
/** @typedef {any} Knowledge the content of explain/knowledge.json */
/** @typedef {"good" | "note" | "look"} Level */
/** @typedef {{ number: string, name: string, what: string, todo: string, anchor: string }} Code */
/**
 * @typedef {object} Line a line of the library, explained
 * @property {number} line
 * @property {string} text with its mark
 * @property {number} action
 * @property {string} name the action's name
 * @property {string} format the format of the line, or "" if it is not known
 * @property {Level} level
 * @property {string} meaning
 * @property {string} todo
 * @property {string[]} remarks what this run adds to that
 * @property {Code[]} codes
 * @property {string} section
 * @property {string} anchor
 */
/** @typedef {{ name: string, value: string, most?: number }} Value with the most characters of it that are shown */
/**
 * @typedef {string | { before: string, quoted: string, after: string, most?: number }} Cause a sentence: prose with the marks of
 * the pages, or prose around a text of the log, which has no marks, and of which at most so many characters are shown
 */
/**
 * @typedef {{ line: number, name: string, text: string, todo: string, anchor: string, values: Value[], why?: string, result?: string }} Remark
 * with why something is so, and how to see what came of it
 */
/**
 * @typedef {object} Report of one run
 * @property {number} parent
 * @property {string} outcome
 * @property {string} kind
 * @property {boolean} rolledBack
 * @property {string} sentence
 * @property {Cause[]} cause
 * @property {number} causeLine
 * @property {string} failed the name of the action that failed, or ""
 * @property {string} todo
 * @property {string} anchor
 * @property {Value[]} facts
 * @property {Step[]} course
 * @property {Line[]} said
 * @property {Record<number, Value[]>} given what each action with lines was given
 * @property {Remark[]} notRun
 * @property {Remark[]} errors
 * @property {Remark[]} numbers
 * @property {Remark[]} silent
 * @property {Remark[]} skipped
 * @property {number} skippedOthers
 * @property {number} first
 * @property {number} last
 * @property {boolean} atEnd the values of properties are those at the end of the log, because it has no others
 */
/** @typedef {{ id: number, name: string, entry: string, job: string, link: string, side: string, phase: string, first: number, last: number, depth: number, start: number, took: number, result: number, failed: boolean, ignored: boolean, said: number }} Step */

/** The characters of a line of the library that are compared with the lines that are known. */
const LONGEST_SAID = 300;
/** What is shown instead of a secret, or of a character that is not shown. */
const REPLACED = /[*\ufffd]/;
const DAY = 24 * 60 * 60 * 1000;
/** How many characters of a text the verdict quotes. */
const QUOTED = 300;
/** The same of a fact, such as the command line. */
const FACT = 1000;

/** The actions that Windows Installer itself has. */
const STANDARD = new Set([
  "INSTALL", "ADMIN", "ADVERTISE", "AllocateRegistrySpace", "AppSearch", "BindImage", "CCPSearch", "CostFinalize",
  "CostInitialize", "CreateFolders", "CreateShortcuts", "DeleteServices", "DisableRollback", "DuplicateFiles",
  "ExecuteAction", "FileCost", "FindRelatedProducts", "ForceReboot", "InstallAdminPackage", "InstallExecute",
  "InstallExecuteAgain", "InstallFiles", "InstallFinalize", "InstallInitialize", "InstallODBC", "InstallServices",
  "InstallSFPCatalogFile", "InstallValidate", "IsolateComponents", "LaunchConditions", "MigrateFeatureStates",
  "MoveFiles", "MsiConfigureServices", "MsiPublishAssemblies", "MsiUnpublishAssemblies", "PatchFiles",
  "ProcessComponents", "PublishComponents", "PublishFeatures", "PublishProduct", "RegisterClassInfo", "RegisterComPlus",
  "RegisterExtensionInfo", "RegisterFonts", "RegisterMIMEInfo", "RegisterProduct", "RegisterProgIdInfo",
  "RegisterTypeLibraries", "RegisterUser", "RemoveDuplicateFiles", "RemoveEnvironmentStrings", "RemoveExistingProducts",
  "RemoveFiles", "RemoveFolders", "RemoveIniValues", "RemoveODBC", "RemoveRegistryValues", "RemoveShortcuts",
  "ResolveSource", "RMCCPSearch", "ScheduleReboot", "SelfRegModules", "SelfUnregModules", "SetODBCFolders",
  "StartServices", "StopServices", "UnpublishComponents", "UnpublishFeatures", "UnpublishProduct", "UnregisterClassInfo",
  "UnregisterComPlus", "UnregisterExtensionInfo", "UnregisterFonts", "UnregisterMIMEInfo", "UnregisterProgIdInfo",
  "UnregisterTypeLibraries", "ValidateProductID", "WriteEnvironmentStrings", "WriteIniValues", "WriteRegistryValues",
]);

/** What each conversion of a line's format can become. */
const CONVERSION = /%[-+ #0-9.]*[a-z]*[A-Za-z](?:\{\w*\})?/g;
const VALUES = /** @type {Record<string, string>} */ ({ d: "(-?\\d+)", X: "([0-9A-Fa-f]+)", o: "([0-7]+)" });

/** @param {string} text */
const oneLine = (text) => text.replace(/\s+/g, " ").trim();

/** The knowledge, prepared for looking lines up. */
export class Knower {
  /** @param {Knowledge} knowledge */
  constructor(knowledge) {
    this.knowledge = knowledge;
    this.lines = knowledge.lines.map((/** @type {any} */ entry) => {
      let pattern = "";
      let end = 0;
      for (const match of entry.format.matchAll(CONVERSION)) {
        pattern += escaped(entry.format.slice(end, match.index)) + (VALUES[match[0][match[0].length - 1]] || "(.*)");
        end = match.index + match[0].length;
      }
      const start = entry.format.split(CONVERSION)[0];
      return { entry, start, pattern: new RegExp(`^${pattern}${escaped(entry.format.slice(end))}\\s*$`, "s") };
    });
    this.refusals = knowledge.refusals.map((/** @type {any} */ entry) => ({
      entry, pattern: new RegExp(entry.text.split(/\{[^{}]*\}|\[\w+\]/).map(escaped).join(".*")),
    }));
    /** @type {Map<string, string>} */
    this.entries = new Map();
    /** @type {Map<string, string>} the numbers of the notices by their texts */
    this.notices = new Map();
    for (const [number, { text, box }] of Object.entries(/** @type {Record<string, any>} */ (knowledge.notices))) {
      for (const each of [text, box]) this.notices.set(oneLine(each), number);
    }
    this.shortest = Math.min(...[...this.notices.keys()].map((text) => text.length));
  }

  /**
   * The number of the notice that a text is, or "".
   * @param {string} text
   */
  noticeOf(text) {
    return text.length < this.shortest ? "" : this.notices.get(oneLine(text)) || "";
  }

  /**
   * The entry point that an action of this name, or with this target, calls; "" for all others.
   * @param {string} name
   */
  entryOf(name) {
    let entry = this.entries.get(name);
    if (entry === undefined) {
      const match = /^_?(CustomAction\d+)(?:$|[._@])/.exec(name);
      entry = match && this.knowledge.actions[match[1]] ? match[1] : "";
      this.entries.set(name, entry);
    }
    return entry;
  }

  /**
   * The line of the library that a text is, with its values. Of those that fit, the one with the fewest characters put in.
   * @param {string} whole
   * @returns {{ entry: any, values: string[], cut: boolean } | null}
   */
  lineOf(whole) {
    // The library writes no line that is longer than 255 bytes.
    const text = whole.slice(0, LONGEST_SAID);
    let best = null;
    let least = Infinity;
    for (const { entry, pattern } of this.lines) {
      const match = pattern.exec(text);
      if (!match) continue;
      const values = match.slice(1);
      const length = values.reduce((/** @type {number} */ sum, /** @type {string} */ value) => sum + value.length, 0);
      if (length < least) [best, least] = [{ entry, values, cut: false }, length];
    }
    if (best) return best;
    if (new TextEncoder().encode(text).length < 230) return null;
    for (const { entry, start } of this.lines) {
      if (start.length > 8 && text.startsWith(start)) return { entry, values: [], cut: true };
    }
    return null;
  }

  /**
   * What a number in a line means.
   * @param {string} text the number
   * @param {string} table the anchor of the table of codes of the line, or ""
   * @returns {Code}
   */
  codeOf(text, table) {
    const { codes, numbers, names } = this.knowledge;
    const number = String(+text);
    const value = +text;
    const code = { number: text, name: "", what: "", todo: "", anchor: "" };
    const own = codes[table] && codes[table].codes[number];
    if (own) return { ...code, what: own.what, todo: own.todo, anchor: table };
    if (value === 0) return { ...code, what: WORDS.zero };
    const hex = (value >>> 0).toString(16).toUpperCase().padStart(8, "0");
    code.name = names[number] || "";
    if (value < -65536 && hex.startsWith("8007")) {
      const win = names[String(parseInt(hex.slice(4), 16))];
      if (win) code.name = code.name ? code.name : WORDS.hresultOf(win);
    }
    if (value < -65536) code.number = `${text} (0x${hex})`;
    for (const each of [table, "numbers-of-windows"]) {
      const texts = numbers[each];
      if (!texts) continue;
      const found = texts[number] || (value < 0 && texts[`0x${hex.slice(0, 4)}....`]);
      if (found) return { ...code, what: found, anchor: each };
    }
    if (value > 0 || value < -65536) code.what = code.name ? "" : WORDS.windowsError;
    code.anchor = "numbers-of-windows";
    return code;
  }
}

/**
 * What the lines of a run mean when they stand in a certain place. Each changes the level, and adds a remark.
 * @type {{ format: string, when: (values: string[], place: Place) => boolean, level: Level, remark: string }[]}
 */
export const RULES = [
  { format: "Task uninstall failed:  %ld", when: ([n]) => n === "-5", level: "good", remark: WORDS.noFolder },
  { format: "agent restart:  session %ld (%ls) failed:  %ld", when: ([, , n], place) => place.removal && (n === "-5" || n === "-6"),
    level: "good", remark: WORDS.inRemoval },
  { format: "query service sizing failed:  %ld", when: ([n]) => n === "124", level: "good", remark: WORDS.unknownFailureActions },
  { format: "agent restart:  cannot open pid %ld in session %ld:  %ld", when: ([, , n]) => n === "87", level: "good", remark: WORDS.hasEnded },
  { format: "can't open uninstall registry key (%s)", when: (_, place) => place.formats.has("set ARP version to %s (%s)"),
    level: "good", remark: WORDS.otherView },
  { format: "can't open uninstall registry key (%s)", when: () => true, level: "look", remark: "" },
  { format: "set ACL (%ld) for %s=%03lo on %p{O}", when: ([n]) => n === "0", level: "good", remark: WORDS.accessGiven },
  { format: "no service account, using LocalSystem", when: (_, place) => place.failedBefore, level: "look", remark: WORDS.accountFailed },
  { format: "no service account, using LocalSystem", when: (_, place) => !place.failedBefore && !place.accountAsked,
    level: "good", remark: WORDS.noAccountAsked },
  ...["deleting local service account %ls", "deleting domain service account %ls\\%ls"].flatMap((format) => [
    { format, when: (/** @type {string[]} */ _, /** @type {Place} */ place) => place.rollback, level: /** @type {Level} */ ("note"), remark: WORDS.rollbackAccount },
    { format, when: (/** @type {string[]} */ _, /** @type {Place} */ place) => !place.rollback, level: /** @type {Level} */ ("note"), remark: "" },
  ]),
  { format: "InstallHinfSection(%s)", when: () => true, level: "note", remark: "" },
  { format: "removing complex firewall rules", when: () => true, level: "note", remark: "" },
  { format: "removing simple firewall rule", when: () => true, level: "note", remark: "" },
];

/**
 * @typedef {object} Place where a line stands
 * @property {boolean} removal the run removes the product, or rolls back
 * @property {boolean} rollback
 * @property {Set<string>} formats the formats of all lines of the run
 * @property {boolean} failedBefore the line before in the same action is a failure
 * @property {boolean} accountAsked
 */

/** @param {string} text @param {number} length */
const shortened = (text, length) => text.length > length ? `${text.slice(0, length)} ...` : text;

/** @param {string} text @returns {string} */
const sentence = (text) => `${text.slice(0, 1).toUpperCase()}${text.slice(1)}${/[.!?]$/.test(text) ? "" : "."}`;

/** @param {number} start @param {number} end */
const between = (start, end) => start < 0 || end < 0 ? -1 : (end - start + DAY) % DAY;

/**
 * What the page says of an action's return codes, without its phase: [how to see what it did, { code: what it means }].
 * @param {any} entry @returns {[string, Record<string, string>]}
 */
function noteOf(entry) {
  const note = entry.note.replace(/^(?:immediate|deferred|rollback)(?: or \w+)?(?:, no line)?[:.]? ?/, "");
  const parts = note.split(/(?=\b16\d\d: )/).map((/** @type {string} */ text) => text.trim());
  const codes = parts.filter((/** @type {string} */ text) => /^16\d\d: /.test(text));
  return [codes.includes(parts[0]) ? "" : parts[0], Object.fromEntries(codes.map((/** @type {string} */ text) => [text.slice(0, 4), text]))];
}

/**
 * What to do when an action has failed: what the page says of its code, or of each code if it is not known.
 * @param {any} entry @param {string} code
 */
function failedNote(entry, code) {
  const [general, codes] = noteOf(entry);
  return codes[code] || Object.values(codes).reverse().join(". ") || general;
}

/** The exit codes of msiexec that are other messages in a log: 1603 is a file in use there. */
const LAST_ANSWER = 1699;

/**
 * The texts of messages, once each: the engine writes each also as a record, and after the product's name.
 * @param {import("./parse.mjs").EngineError[]} errors @returns {string[]}
 */
function textsOf(errors) {
  const texts = errors.map((each) => each.text).filter((text, index, all) => all.indexOf(text) === index);
  const whole = texts.filter((text) => !/^[^\d:]{2,30}: 1: \d/.test(text) && !texts.some((other) => other !== text && text.endsWith(other.trim())));
  return whole.length ? whole : texts;
}

/** Explains one run. */
class Explainer {
  /** @param {Knower} knower @param {Run} run */
  constructor(knower, run) {
    this.knower = knower;
    this.knowledge = knower.knowledge;
    this.run = run;
    /** @type {Map<number, string>} */
    this.names = new Map(run.actions.map((action) => [action.id, action.name]));
    this.settings = new Map();
    for (const setting of run.settings) {
      const list = this.settings.get(setting.name);
      if (list) list.push(setting);
      else this.settings.set(setting.name, [setting]);
    }
  }

  /**
   * The value that a property had at a line, or at the end of the log.
   * @param {string} name @param {number} line @returns {string | undefined}
   */
  value(name, line) {
    let found;
    for (const setting of this.settings.get(name) || []) if (setting.line <= line) found = setting.value;
    if (found !== undefined) return found;
    if (this.run.properties[name] !== undefined) return this.run.properties[name];
    return this.run.clientProperties[name];
  }

  property(/** @type {string} */ name) {
    return this.value(name, Infinity) || "";
  }

  /** @returns {string} */
  kind() {
    const { run } = this;
    if (run.parent >= 0) return "replaced";
    const given = ` ${run.commandLine} `;
    if (/^ALL$/i.test(this.property("REMOVE")) || /\sREMOVE="?ALL"?\s/i.test(given)) return "remove";
    if (this.property("REINSTALL") || /\sREINSTALL=/i.test(given)) return "repair";
    const installed = this.property("Installed") !== "";
    if (!installed && (this.upgrades() || this.property("PROP_UPGRADE") === "1")) return "upgrade";
    if (installed) return "change";
    return run.acted ? "install" : "unknown";
  }

  /** @returns {boolean} a related product was found that is not a newer one */
  upgrades() {
    if (!this.run.related) return false;
    const code = /\{[0-9A-F-]{36}\}/i;
    const names = [...Object.entries(this.run.properties), ...this.run.settings.map((setting) => [setting.name, setting.value])]
      .filter(([name, value]) => code.test(value) && /UPGRADE|DETECTED|FOUND|NEWER|DOWNGRADE|OLDER/i.test(name) && name !== "UpgradeCode");
    return !names.length || names.some(([name]) => !/NEWER|DOWNGRADE/i.test(name));
  }

  /** @returns {Action | null} the first action that failed: the innermost one */
  failure() {
    const { run } = this;
    const live = run.actions.filter((action) => action.phase !== "rollback");
    if (run.engine !== "wine") {
      const failed = live.filter((action) => action.result === 3 || action.result === 2)
        .sort((left, right) => left.last - right.last || right.first - left.first)[0];
      // A log without the lines with which actions end shows at least what they returned.
      if (!failed) return live.filter((action) => action.result < 0 && action.actual !== 0 && !action.ignored).pop() || null;
      return this.inside(failed) || failed;
    }
    const whole = live.find((action) => action.parent < 0 && action.result === 0 && action.name === "INSTALL") ||
      live.find((action) => action.parent < 0 && action.result === 0);
    if (!whole) return null;
    let failed = whole;
    for (;;) {
      const children = live.filter((action) => action.parent === failed.id && action.last > 0);
      const last = children[children.length - 1];
      if (!last || last.result !== 0) break;
      failed = last;
    }
    return failed;
  }

  /** @param {Action} failed @returns {Action | null} the action of the script that failed in it */
  inside(failed) {
    const script = this.run.actions.filter((action) => action.phase === "script" && action.parent === failed.id && action.first <= (failed.last || Infinity));
    return script.filter((action) => action.actual !== 0 && !action.ignored).pop() || script[script.length - 1] || null;
  }

  /** @returns {number} the exit code, or -1 if it is not known */
  code() {
    const { run } = this;
    if (run.codes.length) return run.codes[run.codes.length - 1].code;
    return -1;
  }

  /** @returns {string} */
  outcome() {
    const { run } = this;
    const whole = run.actions.filter((action) => action.parent < 0 && action.result >= 0 && action.phase !== "rollback").map((action) => action.result);
    const results = run.actions.filter((action) => ["INSTALL", "ADMIN", "ADVERTISE"].includes(action.name)).map((action) => action.result);
    const all = results.length ? results : whole;
    const code = this.code();
    if (run.engine === "wine" && all.includes(0)) return "failed";
    if (code === 1602 || all.includes(2)) return "cancelled";
    if (all.includes(3)) return "failed";
    if (all.includes(4)) return "suspended";
    if (code > 0 && code !== 3010 && code !== 1641) return run.acted ? "failed" : "refused";
    if (code === 0 || code === 3010 || code === 1641) return "success";
    if (run.outcomes.length) return OUTCOMES.get(run.outcomes[run.outcomes.length - 1].number) ? "success" : "failed";
    if (all.includes(-1) || !run.complete) return "unfinished";
    if (all.includes(1)) return "success";
    return "unknown";
  }

  /** @returns {Report} */
  report() {
    const { run } = this;
    const kind = this.kind();
    const outcome = this.outcome();
    const failed = ["success", "refused", "suspended"].includes(outcome) ? null : this.failure();
    const said = this.lines(kind);
    const { cause, todo, anchor, line } = this.cause(outcome, failed, said);
    const product = this.property("ProductName");
    return {
      parent: run.parent, outcome, kind, rolledBack: run.rolledBack, failed: failed ? failed.name : "",
      sentence: WORDS.sentence(/** @type {any} */ (WORDS.kinds)[kind], WORDS.product(product, product && this.property("ProductVersion")),
        /** @type {any} */ (WORDS.outcomes)[outcome], run.rolledBack && outcome !== "success"),
      cause, todo, anchor, causeLine: line, facts: this.facts(), course: this.course(failed, said), said,
      given: this.given(said), notRun: this.notRun(), errors: this.errors(), numbers: this.numbers(failed),
      silent: this.silent(said, kind), ...this.skipped(), first: run.first, last: run.last,
      atEnd: !run.settings.length && Object.keys(run.properties).length > 0,
    };
  }

  // ---- the verdict

  /**
   * @param {string} outcome @param {Action | null} failed @param {Line[]} said
   * @returns {{ cause: Cause[], todo: string, anchor: string, line: number }}
   */
  cause(outcome, failed, said) {
    const { run, knowledge } = this;
    const code = this.code();
    /** @type {Cause[]} */
    const cause = [];
    let [todo, anchor, line] = ["", "", 0];
    if (outcome === "success") {
      if (code === 3010 || code === 1641) {
        cause.push(code === 3010 ? WORDS.restart : WORDS.restarting);
        ({ todo, anchor } = knowledge.engine[code]);
        line = run.codes[run.codes.length - 1].line;
      } else if (!run.begun) cause.push(WORDS.headless);
      return { cause, todo, anchor, line };
    }
    if (!run.begun) cause.push(WORDS.headless);
    if (outcome === "suspended") {
      cause.push(WORDS.suspended);
      return { cause, todo: WORDS.afterSuspended, anchor, line: run.last };
    }
    if (outcome === "unfinished") cause.push(WORDS.unfinished);
    if (outcome === "refused" || (!failed && code > 0 && !run.errors.length)) {
      const known = knowledge.engine[code];
      cause.push((run.acted ? WORDS.codeLate : WORDS.codeOnly)(code));
      if (known) {
        cause.push(sentence(known.means));
        ({ todo, anchor } = known);
      }
      line = run.codes[run.codes.length - 1].line;
      return { cause, todo, anchor, line };
    }
    if (!failed) {
      if (outcome !== "unfinished") cause.push(!run.acted ? WORDS.brief : code > 0 ? WORDS.codeLate(code) : WORDS.noAction);
      const error = run.errors[0];
      const known = error && this.message(error.number);
      if (error) {
        cause.push({ ...WORDS.message(textsOf(run.errors)[0]), most: QUOTED });
        ({ line } = error);
      }
      if (known) {
        cause.push(sentence(known.means));
        ({ todo, anchor } = known);
      }
      return { cause, todo, anchor, line };
    }
    line = failed.first;
    const entry = knowledge.actions[failed.entry];
    const cancelled = outcome === "cancelled" && !this.realFailure(failed);
    cause.push((cancelled ? WORDS.cancelledDuring : WORDS.failedFirst)(failed.name, entry ? entry.job : ""));
    const lines = said.filter((each) => each.action === failed.id).map((each) => each.text);
    const errors = run.errors.filter((each) => each.action === failed.id);
    const texts = run.messages.filter((each) => each.action === failed.id && !/^(?:File|Folder|Key|Service|Feature|Property|Directory): /.test(each.text)).map((each) => each.text);
    const quoted = [...lines, ...textsOf(errors), ...texts.slice(-3)];
    const refusal = this.refusal(failed, texts.concat(errors.map((each) => each.text)));
    if (refusal) {
      cause.push(refusal.text);
      ({ todo } = refusal);
      anchor = "texts-with-which-a-package-refuses";
    } else if (quoted.length) cause.push({ ...WORDS.said(quoted.join(" | ")), most: QUOTED });
    else if (entry && !cancelled) cause.push(WORDS.silentFailure);
    if (failed.actual) {
      cause.push(WORDS.returned(failed.actual));
      if (entry) cause.push(entry.returns.includes(failed.actual) ? WORDS.actualOwn : WORDS.actualOther);
    }
    const known = errors.map((each) => this.message(each.number)).find(Boolean);
    if (known && !refusal) {
      cause.push(sentence(known.means));
      ({ todo, anchor } = known);
    } else if (entry && !refusal) {
      todo = this.adviceOf(failed, entry);
      anchor = "what-the-actions-return";
      const notice = entry.notices.map((/** @type {number} */ number) => knowledge.notices[number])
        .find((/** @type {any} */ each) => each && each.follows.includes("1603") && /stops/.test(each.follows));
      if (notice) todo = `${todo} ${notice.todo}`;
    } else if (cancelled) {
      ({ todo, anchor } = knowledge.engine[1602]);
    } else if (!refusal) cause.push(STANDARD.has(failed.name) ? WORDS.engineAction : failed.called ? WORDS.ownPackage : WORDS.otherName);
    if (run.engine === "wine" && entry && entry.returns.includes(1602)) cause.push(WORDS.cancelHidden);
    if (!run.rolledBack && !run.actions.some((action) => action.phase === "script" || SCRIPT_RUNNERS.has(action.name))) cause.push(WORDS.before);
    return { cause, todo, anchor, line };
  }

  /** What the page says of a message of the engine. @param {number} number @returns {any} */
  message(number) {
    return number > LAST_ANSWER ? this.knowledge.engine[number] : undefined;
  }

  /** What to do about an action of the library that failed. @param {Action} failed @param {any} entry @returns {string} */
  adviceOf(failed, entry) {
    // With a number that is not its own the action did not run, as with this error.
    if (failed.actual && !entry.returns.includes(failed.actual)) return this.knowledge.engine[1723].todo;
    return failedNote(entry, String(failed.actual || (this.realFailure(failed) ? 1603 : failed.result === 2 ? 1602 : "")));
  }

  /** @param {Action} failed @returns {boolean} in a cancelled run: the action failed, and was not only going on */
  realFailure(failed) {
    const parent = failed.phase === "script" && failed.parent >= 0 ? this.run.actions[failed.parent] : failed;
    return parent.result === 3;
  }

  /** @param {Action} failed @param {string[]} texts @returns {{ text: Cause, todo: string } | null} */
  refusal(failed, texts) {
    const said = this.knower.refusals.find((/** @type {any} */ { pattern }) => texts.some((text) => pattern.test(text)));
    const own = said || this.knower.refusals.find((/** @type {any} */ { entry }) => entry.actions.includes(failed.name));
    if (own) return { text: WORDS.refusal(this.filled(own.entry.text, failed.first)), todo: own.entry.todo };
    if (failed.name !== "LaunchConditions") return null;
    const product = this.property("ProductName");
    const launch = this.knower.refusals.find((/** @type {any} */ { entry }) => !entry.actions.length && product && entry.text.toLowerCase().includes(product.toLowerCase()));
    return launch ? { text: WORDS.possible(launch.entry.text), todo: launch.entry.todo } : null;
  }

  /** Replaces the names of properties by their values, as the engine does: a part in braces is left out if a property in it
   * is empty.
   * @param {string} text @param {number} line */
  filled(text, line) {
    const parts = text.replace(/\{([^{}]*)\}/g, (whole, part) => (
      [...part.matchAll(/\[(\w+)\]/g)].every(([, name]) => this.value(name, line)) ? part : ""));
    return parts.replace(/\[(\w+)\]/g, (whole, name) => {
      const value = this.value(name, line);
      return value === undefined ? whole : value;
    });
  }

  // ---- the lines of the library

  /** @param {string} kind @returns {Line[]} */
  lines(kind) {
    const { run, knower } = this;
    const found = run.said.map((each) => ({ each, known: each.mark === "line" ? knower.lineOf(each.text) : null }));
    const formats = new Set(found.map(({ known }) => known ? known.entry.format : ""));
    const asked = /^[01]/.test(this.property("PROP_ACCOUNTTYPE"));
    const { marks } = this.knowledge;
    /** @type {Line[]} */
    const lines = [];
    let paths = 0;
    for (const { each, known } of found) {
      const action = this.owner(each, known);
      const before = lines[lines.length - 1];
      const place = {
        rollback: action ? action.phase === "rollback" : false,
        removal: kind === "remove" || kind === "replaced" || (action ? action.phase === "rollback" : false), formats,
        failedBefore: Boolean(before && before.action === each.action && before.level === "look"), accountAsked: asked,
      };
      /** @type {Line} */
      const line = {
        line: each.line, text: marks[each.mark] + each.text, action: action ? action.id : -1, name: action ? action.name : "",
        format: "", level: "note", meaning: "", todo: "", remarks: [], codes: [], section: "", anchor: "",
      };
      if (each.mark === "path") {
        const restart = knower.lines.find((/** @type {any} */ { entry }) => entry.format.includes("is not ours")).entry;
        paths = before && (before.text.startsWith(marks.path) || before.format === restart.format) ? paths + 1 : 0;
        line.meaning = paths === 1 ? WORDS.pathOther : paths === 2 ? WORDS.pathOurs : WORDS.pathAlone;
        Object.assign(line, { format: marks.path, section: restart.section, anchor: restart.anchor });
        if (paths === 2) paths = 0;
      } else if (!known) {
        Object.assign(line, { meaning: WORDS.unknownLine, level: "look" });
      } else {
        if (known.entry.format.includes("is not ours")) paths = 0;
        this.fill(line, known, place);
      }
      lines.push(line);
    }
    return lines;
  }

  /**
   * The action that has written a line. The engine's log of a script can be behind.
   * @param {import("./parse.mjs").Said} each @param {{ entry: any } | null} known @returns {Action | null}
   */
  owner(each, known) {
    const { actions } = this.run;
    const running = each.action >= 0 ? actions[each.action] : null;
    if (!known) return running;
    const writers = known.entry.actions.map((/** @type {number} */ number) => `CustomAction${number}`);
    if (running && running.entry && writers.includes(running.entry)) return running;
    // The client's process goes on meanwhile, and its actions are between.
    const open = running && !running.entry ? actions.filter((action) => action.first <= each.line && action.last >= each.line && action.side !== running.side && writers.includes(action.entry)).pop() : null;
    if (open) return open;
    if (running && !running.entry) {
      if (writers.length === 1 && !STANDARD.has(running.name)) running.entry = writers[0];
      return running;
    }
    for (let index = actions.length - 1; index >= 0; index -= 1) {
      const action = actions[index];
      if (each.line - action.first >= 500) break;
      if (action.first <= each.line && each.line - action.first < 500 && writers.includes(action.entry)) return action;
    }
    return running;
  }

  /** @param {Line} line @param {{ entry: any, values: string[], cut: boolean }} known @param {Place} place */
  fill(line, known, place) {
    const { entry, values, cut } = known;
    Object.assign(line, { format: entry.format, meaning: entry.meaning, todo: entry.todo, section: entry.section, anchor: entry.anchor });
    line.level = !/^nothing\b/.test(entry.todo) ? "look" : /^nothing if\b/.test(entry.todo) ? "note" : "good";
    if (cut) line.remarks.push(WORDS.cutLine);
    entry.words.forEach((/** @type {string} */ word, /** @type {number} */ index) => {
      const value = values[index];
      if (value === undefined) return;
      const counts = /agent\(s\)/.test(entry.format);
      if (word === "N" && !counts) line.codes.push(this.knower.codeOf(value, entry.codes));
      if (word === "MODE") line.codes.push({ number: value, name: "", what: WORDS.mode(modeOf(value)), todo: "", anchor: entry.anchor });
    });
    const rule = RULES.find((each) => each.format === entry.format && !cut && each.when(values, place));
    if (rule) {
      line.level = rule.level;
      if (rule.remark) line.remarks.push(rule.remark);
    } else if (place.rollback) line.remarks.push(WORDS.rollbackLine);
  }

  /** @param {Line[]} said @returns {Record<number, Value[]>} */
  given(said) {
    /** @type {Record<number, Value[]>} */
    const given = {};
    for (const { action: id } of said) {
      if (id < 0 || given[id]) continue;
      const action = this.run.actions[id];
      const entry = this.knowledge.actions[action.entry];
      given[id] = entry ? this.reads(entry, action) : [];
    }
    return given;
  }

  /** @param {any} entry @param {Action} action @returns {Value[]} */
  reads(entry, action) {
    const values = [];
    // The engine passes no other property to an action of a script.
    const scripted = action.phase === "script" || action.phase === "rollback";
    for (const name of scripted ? ["CustomActionData"] : entry.reads) {
      const value = name === "CustomActionData" ? action.data || this.value(action.name, action.first) : this.value(name, action.first);
      if (value !== undefined && value !== "") values.push({ name, value, most: QUOTED });
    }
    return values;
  }

  // ---- what it did not say

  /** @returns {Remark[]} */
  notRun() {
    const { run, knowledge } = this;
    /** @type {Remark[]} */
    const found = [];
    for (const action of run.actions) {
      if (!action.actual) continue;
      const own = knowledge.actions[action.entry];
      const text = action.ignored ? (own ? WORDS.ignored : WORDS.ignoredOther)(action.actual)
        : `${WORDS.actual(action.actual)} ${own ? own.returns.includes(action.actual) ? WORDS.actualOwn : WORDS.actualOther : ""}`.trim();
      found.push({ line: action.first, name: action.name, text, todo: own ? this.adviceOf(action, own) : "", anchor: "an-action-that-did-not-run", values: [] });
    }
    return found;
  }

  /** @returns {Remark[]} */
  errors() {
    const { run, knowledge } = this;
    /** @type {Remark[]} */
    const found = [];
    const seen = new Set();
    // The engine's own line has the number and the names, the line with the text comes after it: that one is shown.
    for (const error of [...run.errors].reverse()) {
      const key = `${error.action}-${error.number}`;
      if (seen.has(key)) continue;
      seen.add(key);
      const known = this.message(error.number);
      const notice = knowledge.notices[error.number];
      const name = error.action >= 0 ? this.names.get(error.action) || "" : "";
      if (notice) found.push({ line: error.line, name: `${error.number}`, text: `${notice.when}: ${notice.follows}`, todo: notice.todo, anchor: notice.anchor, values: [{ name: "", value: error.text, most: QUOTED }] });
      else {
        found.push({ line: error.line, name: `${error.number}${name ? ` (${name})` : ""}`, text: known ? known.means : WORDS.engineUnknown,
          todo: known ? known.todo : "", anchor: known ? known.anchor : "", values: [{ name: "", value: error.text, most: QUOTED }] });
      }
    }
    for (const message of run.messages) {
      const number = this.knower.noticeOf(message.text);
      if (!number) continue;
      const notice = knowledge.notices[number];
      found.push({ line: message.line, name: number, text: `${notice.when}: ${notice.follows}`, todo: notice.todo, anchor: notice.anchor, values: [{ name: "", value: message.text, most: QUOTED }] });
    }
    const code = this.code();
    // Of a run that has stopped for a restart, the code says what is true only of one that is complete.
    if (code > 0 && this.outcome() !== "suspended" && knowledge.engine[code] && !found.some((each) => each.name === `${code}`)) {
      const { means, todo, anchor } = knowledge.engine[code];
      found.push({ line: run.codes[run.codes.length - 1].line, name: `${code}`, text: means, todo, anchor, values: [] });
    }
    return found.sort((left, right) => left.line - right.line);
  }

  /** @param {Action | null} failed @returns {Remark[]} the results that are neither success nor of a container */
  numbers(failed) {
    const { run } = this;
    const above = new Set();
    for (let action = failed; action; action = action.parent >= 0 ? run.actions[action.parent] : null) above.add(action.id);
    const found = [];
    for (const action of run.actions) {
      if (action.result < 0 || action.result === 1) continue;
      const wine = run.engine === "wine";
      const text = action.result === 3 ? WORDS.three : action.result === 2 ? WORDS.two
        : action.result !== 0 ? /** @type {any} */ (WORDS.results)[action.result] || ""
          : !wine ? WORDS.microsoftZero : above.has(action.id) || action.parent < 0 || action.name === "INSTALL" ? WORDS.wineZeroFailed : WORDS.wineZero;
      found.push({ line: action.last || action.first, name: `${action.name}: ${action.result}`, text, todo: "", anchor: "how-to-find-what-you-need", values: [] });
    }
    return found.sort((left, right) => left.line - right.line);
  }

  /** @param {Line[]} said @param {string} kind @returns {Remark[]} */
  silent(said, kind) {
    const { run, knowledge } = this;
    const spoke = new Set(said.map((line) => line.action));
    const found = [];
    for (const action of run.actions) {
      const entry = knowledge.actions[action.entry];
      if (!entry || spoke.has(action.id) || action.actual || action.phase === "scheduled" || this.onlyScheduled(action, entry)) continue;
      const values = entry.sets.map((/** @type {string} */ name) => ({ name, value: this.value(name, action.last || action.first) || WORDS.notSet }));
      const { why, todo, anchor } = entry.silent || { why: undefined, todo: "", anchor: "what-the-actions-return" };
      found.push({ line: action.first, name: action.name, text: entry.job, why, todo, result: entry.silent ? undefined : noteOf(entry)[0], anchor,
        values: [...this.reads(entry, action).filter((/** @type {Value} */ value) => !entry.sets.includes(value.name)), ...values] });
    }
    return kind === "unknown" ? [] : found;
  }

  /** @param {Action} action @param {any} entry */
  onlyScheduled(action, entry) {
    if (action.phase !== "immediate") return false;
    const execute = this.knowledge.executes[action.name];
    return Boolean(execute) || entry.phase === "deferred";
  }

  skipped() {
    const mine = [];
    let skippedOthers = 0;
    for (const { line, name } of this.run.skipped) {
      const entry = this.knowledge.actions[this.knower.entryOf(name)];
      if (entry) mine.push({ line, name, text: entry.job, todo: "", anchor: "", values: [] });
      else skippedOthers += 1;
    }
    return { skipped: mine, skippedOthers };
  }

  // ---- the course

  /** @param {Action | null} failed @param {Line[]} said @returns {Step[]} */
  course(failed, said) {
    const { run, knowledge } = this;
    /** @type {Map<number, number>} */
    const counts = new Map();
    for (const line of said) counts.set(line.action, (counts.get(line.action) || 0) + 1);
    const above = new Set();
    for (let action = failed; action; action = action.parent >= 0 ? run.actions[action.parent] : null) above.add(action.id);
    /** @type {number[]} */
    const depths = [];
    return run.actions.map((action) => {
      depths[action.id] = action.parent >= 0 ? (depths[action.parent] || 0) + 1 : 0;
      const entry = knowledge.actions[action.entry];
      return {
        id: action.id, name: action.name, entry: entry ? action.entry : "", job: entry ? entry.job : "", link: entry ? entry.link : "",
        side: action.side, phase: action.phase === "immediate" && entry && this.onlyScheduled(action, entry) && !counts.get(action.id) ? "scheduled" : action.phase,
        first: action.first, last: action.last, depth: depths[action.id], start: action.start,
        took: between(action.start, action.end), result: action.result, failed: above.has(action.id), ignored: action.ignored, said: counts.get(action.id) || 0,
      };
    });
  }

  // ---- the facts

  /** @returns {Value[]} */
  facts() {
    const { run } = this;
    const names = WORDS.facts;
    const times = run.actions.filter((action) => action.start >= 0);
    const ends = run.actions.filter((action) => action.end >= 0);
    const took = times.length && ends.length ? between(times[0].start, ends[ends.length - 1].end) : -1;
    const code = this.code();
    const longest = ends.reduce((most, action) => Math.max(most, between(times.length ? times[0].start : -1, action.end)), took);
    const command = run.commandLine || this.given_();
    const facts = [[names.product, this.property("ProductName")], [names.version, this.property("ProductVersion")],
      [names.code, this.property("ProductCode")], [names.command, command], [names.package, run.package || this.property("OriginalDatabase")],
      [names.engine, WORDS.engines[run.engine]], [names.started, run.started], [names.took, longest >= 0 ? WORDS.seconds(longest) : ""],
      [names.answer, code >= 0 ? String(code) : ""], [names.lines, WORDS.lines(run.first, run.last)]];
    return facts.filter(([, value]) => value).map(([name, value]) => ({ name, value, most: FACT }));
  }

  /** What a log without a command line shows of it. */
  given_() {
    const found = ["REMOVE", "REINSTALL", "REINSTALLMODE"].filter((name) => this.run.properties[name] && (name !== "REINSTALLMODE" || this.run.properties.REINSTALL));
    return found.map((name) => `${name}=${this.run.properties[name]}`).join(" ");
  }
}

/**
 * Adds the cause to a run that failed because the removal of the older version in it failed.
 * @param {Report} report @param {number} index its place @param {Report[]} reports
 */
function withRemoval(report, index, reports) {
  if (report.failed !== "RemoveExistingProducts") return;
  const inner = reports.findIndex((each) => each.parent === index && each.outcome !== "success");
  if (inner < 0) return;
  const { cause, todo, anchor, causeLine } = reports[inner];
  report.cause = [...report.cause.filter((each) => each === WORDS.headless || each === report.cause.find((first) => typeof first === "object")), WORDS.inner(inner + 1), ...cause];
  if (todo) Object.assign(report, { todo, anchor });
  if (causeLine) report.causeLine = causeLine;
}

/** @param {string} text an octal number @returns {string} */
function modeOf(text) {
  const value = parseInt(text, 8);
  if (value === 0o700) return WORDS.full;
  return WORDS.modes.filter(([bit]) => (value & /** @type {number} */ (bit)) !== 0).map(([, word]) => word).join(", ");
}

/**
 * @typedef {object} Explained
 * @property {string} name of the file
 * @property {number} count of its lines
 * @property {string} encoding
 * @property {string[]} problems
 * @property {Report[]} reports
 */

/**
 * A log that was read: its lines, which it keeps for the search, and what they mean.
 */
export class Log {
  /** @param {Knower} knower @param {string} name the name of the file */
  constructor(knower, name) {
    this.knower = knower;
    this.name = name;
    /** @type {string[]} */
    this.lines = [];
    this.parser = new Parser(knower.knowledge.marks, (action) => knower.entryOf(action));
    /** @type {(text: string) => string} */
    this.hide = (text) => text;
    /** @type {Explained | null} with what must not be shown, and with whole texts */
    this.whole = null;
    /** @type {((text: string) => string) | null} replaces names, the same by the same wherever they are shown */
    this.mask = null;
  }

  /**
   * Reads and explains a file.
   * @param {import("./decode.mjs").Source} source
   * @param {(done: number) => void} [progress]
   * @returns {Promise<Explained>}
   */
  async read(source, progress) {
    const { lines, parser } = this;
    const { cut, other, encoding } = await readLines(source, (line) => {
      lines.push(line);
      parser.line(line);
    }, progress);
    parser.end();
    return this.explain(other, cut, encoding, source.size);
  }

  /** @param {string} other @param {number} cut @param {string} encoding @param {number} size @returns {Explained} */
  explain(other, cut, encoding, size) {
    const { runs, known } = this.parser;
    const { hidden } = this.knower.knowledge;
    const names = new Set(hidden);
    for (const run of runs) for (const name of (run.properties.MsiHiddenProperties || "").split(";")) if (name) names.add(name);
    this.hide = secretMask([...names], runs.flatMap((run) => secretsOf(run, hidden)));
    const { problems } = WORDS;
    /** @type {string[]} */
    const found = [];
    if (size === 0) found.push(problems.empty);
    else if (other) found.push(/** @type {any} */ (problems)[other]);
    else if (!known || !runs.length) found.push(problems.other);
    if (cut) found.push(problems.lines(cut));
    const reports = known ? runs.map((run) => new Explainer(this.knower, run).report()) : [];
    reports.forEach((report, index) => withRemoval(report, index, reports));
    this.whole = { name: this.name, count: this.lines.length, encoding, problems: found, reports };
    return this.shown(this.whole);
  }

  /** @returns {Explained} the same with the names of users, hosts and domains replaced */
  masked() {
    if (!this.whole) throw new Error("the log has not been read");
    const shown = this.shown(this.whole, this.names());
    // In the name of a file "_" is often between words.
    return { ...shown, name: this.shown(this.name.replace(/_/g, "\n"), this.names()).replace(/\n/g, "_") };
  }

  /**
   * A copy of a report in which no text has a secret or a character that is obeyed instead of shown. Texts are shortened only
   * after that: the beginning of a secret or of a name is not known as one.
   * @template T
   * @param {T} value
   * @param {(text: string) => string} [also] changes each text too
   * @returns {T}
   */
  shown(value, also = (text) => text) {
    if (typeof value === "string") return /** @type {any} */ (also(plain(this.hide(value))));
    if (Array.isArray(value)) return /** @type {any} */ (value.map((each) => this.shown(each, also)));
    if (value && typeof value === "object") {
      const { most, ...rest } = /** @type {Record<string, any>} */ (value);
      const copy = Object.fromEntries(Object.entries(rest).map(([name, each]) => [name, this.shown(each, also)]));
      if (most) for (const name of ["value", "quoted"]) if (name in copy) copy[name] = shortened(copy[name], most);
      return /** @type {any} */ (copy);
    }
    return value;
  }

  /** @returns {(text: string) => string} replaces names of users, hosts and domains */
  names() {
    if (this.mask) return this.mask;
    const kinds = /** @type {Record<string, string>} */ ({ ACCOUNT: "USER", NAME: "USER", USER: "USER", DOMAIN: "DOMAIN", DN: "USER" });
    /** @type {{ kind: string, value: string }[]} */
    const named = [];
    for (const run of this.parser.runs) {
      for (const said of run.said) {
        const known = said.mark === "line" ? this.knower.lineOf(said.text) : null;
        if (!known) continue;
        known.entry.words.forEach((/** @type {string} */ word, /** @type {number} */ index) => {
          if (kinds[word] && known.values[index]) named.push({ kind: kinds[word], value: known.values[index] });
        });
      }
    }
    this.mask = nameMask(this.parser.runs, named);
    return this.mask;
  }

  /** A line as it is shown. @param {number} number from 1 @param {boolean} [masked] names are replaced */
  shownLine(number, masked = false) {
    const text = plain(this.hide(this.lines[number - 1] || ""));
    return masked ? this.names()(text) : text;
  }

  /**
   * The numbers of the lines that contain a text; upper and lower case count the same. What is shown is searched, so that a
   * search does not find out a secret, or a name that is masked.
   * @param {string} text @param {{ most?: number, masked?: boolean }} [options]
   * @returns {number[]}
   */
  search(text, { most = 5000, masked = false } = {}) {
    const wanted = text.toLowerCase();
    /** @type {number[]} */
    const found = [];
    if (!wanted) return found;
    for (let index = 0; index < this.lines.length && found.length < most; index += 1) {
      // What is shown instead of names, secrets and control characters is not in the line itself.
      if (!masked && !REPLACED.test(wanted) && !this.lines[index].toLowerCase().includes(wanted)) continue;
      if (this.shownLine(index + 1, masked).toLowerCase().includes(wanted)) found.push(index + 1);
    }
    return found;
  }
}
