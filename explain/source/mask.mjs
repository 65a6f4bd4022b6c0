/**
 * Keeps secrets out of everything that is shown, and replaces names of users, hosts and domains on request.
 */

import { LONGEST_LINE } from "./decode.mjs";

/** Accounts and hosts that every Windows has: they say nothing about a machine. */
const WELL_KNOWN = new Set(["system", "localsystem", "localservice", "networkservice", "administrator", "administrators",
  "users", "everyone", "guest", "public", "default", "all users", "nt authority", "builtin", "localhost", ".", "nt service"]);
/** The properties whose values are names, with the kind of name. */
const NAMED = new Map([["LogonUser", "USER"], ["USERNAME", "USER"], ["PROP_ACCOUNTNAME", "USER"], ["PROP_ACCOUNTID", "USER"],
  ["PROP_TASKUSER", "USER"], ["ComputerName", "HOST"], ["PROP_HOSTNAME", "HOST"], ["PROP_ACCOUNTDOMAIN", "DOMAIN"],
  ["USERDOMAIN", "DOMAIN"], ["USERDNSDOMAIN", "DOMAIN"], ["PROP_ASSETOWNER", "USER"], ["ServiceAccount", "USER"], ["AccountMade", "USER"]]);
/** A property of another name whose value is an account, if it is one of a domain. */
const ACCOUNT_NAME = /USER|ACCOUNT|LOGON|OWNER/i;
const ACCOUNT = /^[^\\/:*?"<>|\s]+\\[^\\/:*?"<>|]+$/;
const SHORTEST_SECRET = 4;
/** More values than this are only hidden where the name is: a log could make the search for them endless. */
const MOST_SECRETS = 200;
/** Longer values are not part of the regular expression, but searched for one by one, in a time that grows with the text only. */
const LONG_SECRET = 256;
const MOST_LONG_SECRETS = 20;
const HIDDEN = "**********";
const OTHER_THAN_ASCII = /[^\t\n -~]/;
/** A value of a command line, as msiexec reads it: quotation marks can begin anywhere in it, and two of them are one. */
const GIVEN = '(?:"(?:[^"]|"")*(?:"|$)|[^\\s"])+';

/** @param {string} text @returns {string} a regular expression for exactly this text */
export const escaped = (text) => text.replace(/[.*+?^${}()|[\]\\]/g, "\\$&");

/** A value that is so long that its place is found by a table: each character of a text is looked at about once. */
class LongSecret {
  /** @param {string} value */
  constructor(value) {
    this.value = value;
    this.beginning = value.slice(0, LONG_SECRET);
    /** @type {Int32Array | null} for each length of a beginning the length of the longest shorter one that is also its end */
    this.shorter = null;
  }

  /** @param {string} text @returns {string} without the value, and without a beginning of it at the end of a line that was cut */
  hide(text) {
    const { value } = this;
    const cut = text.length >= LONGEST_LINE;
    if (!cut && (text.length < value.length || !text.includes(this.beginning))) return text;
    const shorter = this.shorter || this.#table();
    let result = "";
    let from = 0;
    let matched = 0;
    for (let index = 0; index < text.length; index += 1) {
      const code = text.charCodeAt(index);
      while (matched > 0 && code !== value.charCodeAt(matched)) matched = shorter[matched];
      if (code === value.charCodeAt(matched)) matched += 1;
      if (matched === value.length) {
        result += text.slice(from, index + 1 - matched) + HIDDEN;
        from = index + 1;
        matched = 0;
      }
    }
    if (cut && matched >= SHORTEST_SECRET) return result + text.slice(from, text.length - matched) + HIDDEN;
    return result + text.slice(from);
  }

  #table() {
    const { value } = this;
    const shorter = new Int32Array(value.length + 1);
    for (let index = 1, matched = 0; index < value.length; index += 1) {
      while (matched > 0 && value.charCodeAt(index) !== value.charCodeAt(matched)) matched = shorter[matched];
      if (value.charCodeAt(index) === value.charCodeAt(matched)) matched += 1;
      shorter[index + 1] = matched;
    }
    this.shorter = shorter;
    return shorter;
  }
}

/**
 * Makes a function that hides secrets: the values of the hidden properties, wherever they are.
 * @param {string[]} hidden the names of these properties
 * @param {string[]} values values of such properties that the log shows
 * @returns {(text: string) => string}
 */
export function secretMask(hidden, values) {
  const names = hidden.map(escaped).join("|");
  const property = new RegExp(`^(Property\\([A-Z]\\): (?:${names}) = ).*`, "gim");
  const set = new RegExp(`\\b((?:${names})\\s*=\\s*)${GIVEN}`, "gi");
  const change = new RegExp(`\\b((?:${names}) property\\..*?(?:value(?: is)?:? ))'(?:[^]*'|[^]*$)`, "gi");
  // A value can go over several lines of the log.
  const all = [...new Set(values.flatMap((value) => value.split("\n")))].filter((value) => value.length >= SHORTEST_SECRET && !/^\*+$/.test(value));
  const known = all.filter((value) => value.length <= LONG_SECRET).slice(0, MOST_SECRETS).sort((left, right) => right.length - left.length);
  const long = all.filter((value) => value.length > LONG_SECRET).sort((left, right) => right.length - left.length).slice(0, MOST_LONG_SECRETS).map((value) => new LongSecret(value));
  const anywhere = known.length ? new RegExp(known.map(escaped).join("|"), "g") : null;
  return (text) => {
    // The known values first: what is hidden by a name can be only the beginning of one.
    let result = text;
    for (const secret of long) result = secret.hide(result);
    if (anywhere) result = result.replace(anywhere, HIDDEN);
    // Of a line that was cut, the end can be the beginning of a value.
    if (text.length >= LONGEST_LINE) {
      for (const value of known) {
        let length = Math.min(value.length - 1, result.length);
        while (length >= SHORTEST_SECRET && !result.endsWith(value.slice(0, length))) length -= 1;
        if (length >= SHORTEST_SECRET) result = result.slice(0, -length) + HIDDEN;
      }
    }
    if (result.includes("=")) result = result.replace(property, `$1${HIDDEN}`).replace(set, `$1${HIDDEN}`);
    if (result.includes(" property.")) result = result.replace(change, `$1'${HIDDEN}'`);
    return result;
  };
}

/** @param {string} given a value of a command line @returns {string} without its quotation marks */
const unquoted = (given) => given.replace(/"((?:[^"]|"")*)(?:"|$)/g, (_, inner) => inner.replace(/""/g, '"'));

/**
 * The values that a command line gives to a property.
 * @param {string} name @param {string} commandLine
 * @returns {string[]}
 */
function givenTo(name, commandLine) {
  return [...commandLine.matchAll(new RegExp(`\\b${escaped(name)}\\s*=\\s*(${GIVEN})`, "gi"))].map((match) => unquoted(match[1]));
}

/**
 * Collects the values of the hidden properties that a run shows.
 * @param {import("./parse.mjs").Run} run
 * @param {string[]} hidden
 * @returns {string[]}
 */
export function secretsOf(run, hidden) {
  const names = new Set([...hidden, ...(run.properties.MsiHiddenProperties || "").split(";").filter(Boolean)]);
  const values = run.settings.filter((setting) => names.has(setting.name)).map((setting) => setting.value);
  for (const name of names) {
    values.push(run.properties[name] || "", run.clientProperties[name] || "");
    values.push(...givenTo(name, run.commandLine));
  }
  return values.filter(Boolean);
}

/**
 * Makes a function that replaces names by USER-1, HOST-1 and so on; the same name always by the same word.
 * @param {import("./parse.mjs").Run[]} runs
 * @param {{ kind: string, value: string }[]} named names that lines of the library have
 * @returns {(text: string) => string}
 */
export function nameMask(runs, named) {
  /** @type {Map<string, string>} */
  const words = new Map();
  /** @type {Record<string, number>} */
  const counts = {};
  // The names of the product and its maker are no secret, also where an account is named after the product.
  const product = new Set(runs.flatMap((run) => [run.properties.ProductName, run.properties.Manufacturer])
    .flatMap((name) => (name || "").toLowerCase().split(/\s+/)));
  /** @param {string} kind @param {string} name */
  const add = (kind, name) => {
    for (const part of name.split(/[\\@]/)) {
      const key = part.trim().toLowerCase();
      if (key.length < 2 || words.has(key) || WELL_KNOWN.has(key) || product.has(key) || /^[\d.*]+$/.test(key)) continue;
      counts[kind] = (counts[kind] || 0) + 1;
      words.set(key, `${kind}-${counts[kind]}`);
    }
  };
  /** Adds a name with its domain. @param {string} kind @param {string} value */
  const addName = (kind, value) => {
    const slash = value.indexOf("\\");
    if (slash > 0) addName("DOMAIN", value.slice(0, slash));
    const [name, ...domains] = value.slice(slash + 1).split("@");
    add(kind, name);
    for (const domain of domains) addName("DOMAIN", domain);
    // The host or the domain alone, as it is elsewhere; the last label, such as "local", is no name.
    const labels = kind === "USER" ? [] : name.split(".");
    for (let index = 1; index < labels.length - 1; index += 1) add("DOMAIN", labels.slice(index).join("."));
    labels.slice(0, -1).forEach((label, index) => add(index ? "DOMAIN" : kind, label));
  };
  /** @param {string} name of a property @param {string} value */
  const addValue = (name, value) => {
    const kind = NAMED.get(name) || NAMED.get(name.toUpperCase());
    if (kind) addName(kind, value);
    else if (ACCOUNT_NAME.test(name) && ACCOUNT.test(value)) addName("USER", value);
  };
  for (const run of runs) {
    for (const values of [run.properties, run.clientProperties]) for (const [name, value] of Object.entries(values)) addValue(name, value);
    for (const setting of run.settings) addValue(setting.name, setting.value);
    for (const [, name, value] of run.commandLine.matchAll(new RegExp(`\\b([A-Za-z_][\\w.]*)\\s*=\\s*(${GIVEN})`, "g"))) addValue(name, unquoted(value));
  }
  for (const { kind, value } of named) addName(kind, value);
  const keys = [...words.keys()].sort((left, right) => right.length - left.length);
  const known = keys.length ? new RegExp(`(?<![\\p{L}\\p{N}_])(?:${keys.map(escaped).join("|")})(?![\\p{L}\\p{N}_])`, "giu") : null;
  /** @type {Map<string, string>} */
  const found = new Map();
  /** @param {string} kind @param {string} name */
  const word = (kind, name) => {
    const key = name.toLowerCase();
    if (WELL_KNOWN.has(key) || /^(?:USER|HOST|DOMAIN|SID)-\d+$/.test(name)) return name;
    if (!found.has(key)) {
      counts[kind] = (counts[kind] || 0) + 1;
      found.set(key, `${kind}-${counts[kind]}`);
    }
    return found.get(key) || name;
  };
  const marks = [...keys, "s-1-5-21-", "\\users\\", "\\documents and settings\\", "\\\\", "@"];
  /** Most lines have no name: this is found out faster than it is replaced. @param {string} text */
  const hasNone = (text) => {
    if (OTHER_THAN_ASCII.test(text)) return false;
    const lower = text.toLowerCase();
    return !marks.some((mark) => lower.includes(mark));
  };
  return (text) => {
    if (hasNone(text)) return text;
    let result = known ? text.replace(known, (name, at, whole) => /^(?:USER|HOST|DOMAIN|SID)$/.test(name) && /^-\d/.test(whole.slice(at + name.length)) ? name : words.get(name.toLowerCase()) || name) : text;
    result = result.replace(/\bS-1-5-21(?:-\d+)+\b/g, (name) => word("SID", name));
    result = result.replace(/(\b[A-Za-z]:\\(?:Users|Documents and Settings)\\)([^\\\r\n"'<>|:*?]+)/gi,
      (_, before, name) => before + word("USER", name));
    result = result.replace(/(^|[\s"'=(])\\\\([^\\\s"'<>|]+)(?=\\)/g, (_, before, name) => `${before}\\\\${word("HOST", name)}`);
    return result.replace(/[\p{L}\p{N}._%+-]+@[\p{L}\p{N}-]+(?:\.[\p{L}\p{N}-]+)+/gu, (name) => word("USER", name));
  };
}

/**
 * Makes characters visible that a terminal or a browser would obey instead of showing them.
 * @param {string} text
 */
export function plain(text) {
  if (!OTHER_THAN_ASCII.test(text)) return text;
  // eslint-disable-next-line no-control-regex
  return text.replace(/[\u0000-\u0008\u000b-\u001f\u007f-\u009f\u200e\u200f\u202a-\u202e\u2066-\u2069\ufeff]/g, "\ufffd")
    .replace(/[\ud800-\udbff](?![\udc00-\udfff])|(?<![\ud800-\udbff])[\udc00-\udfff]/g, "\ufffd");
}
