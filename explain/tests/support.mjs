/** What the tests share: the knowledge, the logs of this folder, and files in memory. */

import { readFileSync } from "node:fs";
import { Knower, Log } from "../source/explain.mjs";
import { causeText } from "../source/text.mjs";

export const knower = new Knower(JSON.parse(readFileSync(new URL("../knowledge.json", import.meta.url), "utf8")));

/** @param {import("../source/explain.mjs").Report} report @returns {string[]} the sentences of its verdict */
export const causesOf = (report) => report.cause.map(causeText);

/** @param {string} name @returns {string} a log of this folder */
export const sample = (name) => readFileSync(new URL(`logs/${name}.log`, import.meta.url), "utf8").replace(/\r?\n/g, "\r\n");

/** @param {string} text @returns {Uint8Array} in UTF-16 with a mark, as Windows Installer writes a log */
export function utf16(text) {
  return new Uint8Array(Buffer.concat([Buffer.from([0xff, 0xfe]), Buffer.from(text, "utf16le")]));
}

/** @param {Uint8Array} bytes @returns {import("../source/decode.mjs").Source} */
export function source(bytes) {
  return { size: bytes.length, slice: async (start, end) => bytes.subarray(start, end) };
}

/**
 * Explains a log.
 * @param {string | Uint8Array} content a text is explained in UTF-16
 * @returns {Promise<import("../source/explain.mjs").Explained & { log: Log }>}
 */
export async function explained(content) {
  const log = new Log(knower, "install.log");
  const result = await log.read(source(typeof content === "string" ? utf16(content) : content));
  return Object.assign(result, { log });
}

/**
 * A run of Windows Installer with one action that writes these lines.
 * @param {string} action
 * @param {string[]} lines
 * @param {{ properties?: Record<string, string>, result?: number, whole?: number, phase?: "immediate" | "script" | "rollback" }} [options]
 */
export function microsoft(action, lines, { properties = {}, result = 1, whole = result, phase = "immediate" } = {}) {
  const entry = action.split(".")[0];
  const prefix = "MSI (s) (2C:1C) [10:00:00:000]: ";
  const called = `MSI (s) (2C:24) [10:00:00:000]: Invoking remote custom action. DLL: C:\\Windows\\Installer\\MSI1.tmp, Entrypoint: ${entry}`;
  const text = ["=== Verbose logging started: 3/2/2026  10:00:00  Build type: SHIP UNICODE 5.00.10011.00  Calling process: C:\\Windows\\system32\\msiexec.exe ===",
    `${prefix}Doing action: INSTALL`, "Action start 10:00:00: INSTALL."];
  if (phase === "immediate") {
    text.push(`${prefix}Doing action: ${action}`, `Action start 10:00:00: ${action}.`, called, ...lines, `Action ended 10:00:01: ${action}. Return value ${result}.`);
  } else {
    text.push(`${prefix}Doing action: InstallFinalize`, "Action start 10:00:00: InstallFinalize.");
    if (phase === "rollback") text.push("Action ended 10:00:00: InstallFinalize. Return value 3.");
    text.push(`${prefix}Executing op: Header(Signature=1397708873,Version=500,ScriptType=${phase === "rollback" ? 2 : 1},ScriptAttributes=1)`,
      `${prefix}Executing op: ActionStart(Name=${action},,)`,
      `${prefix}Executing op: CustomAction${phase === "rollback" ? "Rollback" : "Schedule"}(Action=${action},ActionType=${phase === "rollback" ? 3329 : 3073},Source=BinaryData,Target=${entry},CustomActionData=DATA)`,
      called, ...lines);
    if (phase === "script") text.push(`Action ended 10:00:01: InstallFinalize. Return value ${result}.`);
  }
  text.push(`Action ended 10:00:02: INSTALL. Return value ${whole}.`);
  for (const [name, value] of Object.entries(properties)) text.push(`Property(S): ${name} = ${value}`);
  return `${text.join("\r\n")}\r\n`;
}

/**
 * The same run of Wine's engine.
 * @param {string} action
 * @param {string[]} lines
 * @param {{ properties?: Record<string, string>, result?: number, whole?: number, before?: string[] }} [options]
 */
export function wine(action, lines, { properties = {}, result = 1, whole = result, before = [] } = {}) {
  const head = ["=== Logging started: 11/22/2026  12:00:00 ===", "Message type: 0, Argument: 1033, 0", "Message type: 1, Argument: Ostrel",
    "Action 12:00:00: INSTALL. ", "Action start 12:00:00: INSTALL."];
  const text = ["1: 0 2: 1033 3: 0 ", ...head, "1: 0 2: 1033 3: 0 ", ...head, ...before, `Action 12:00:01: ${action}. `, `Action start 12:00:01: ${action}.`, ...lines,
    `Action ended 12:00:01: ${action}. Return value ${result}.`, `Action ended 12:00:02: INSTALL. Return value ${whole}.`,
    ...Object.entries(properties).map(([name, value]) => `Property(S): ${name} = ${value}`), `Action ended 12:00:02: INSTALL. Return value ${whole}.`];
  return Buffer.from(`${text.join("\n")}\n`, "utf8");
}
