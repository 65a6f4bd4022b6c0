#!/usr/bin/env node
/**
 * Explains logs of Windows Installer as text: node explain.mjs [--summary] [--mask] LOG...
 *
 * Prints for each log what happened, what the library hxsetup said and what that means, and what it did not say. --summary
 * prints only the verdict and what needs attention; --mask replaces names of users, hosts and domains. The exit status is 0
 * if each file is a log in which every run succeeded, 1 if a run did not succeed, and 2 if a file is not a log, cannot be
 * read, or the command line is wrong.
 */

import { open, readFile } from "node:fs/promises";
import { basename } from "node:path";
import { Knower, Log } from "./source/explain.mjs";
import { reportText, summaryText } from "./source/text.mjs";
import { WORDS } from "./source/words.mjs";

const USAGE = "usage: node explain.mjs [--summary] [--mask] LOG...\n";

/**
 * Explains one file.
 * @param {Knower} knower @param {string} path @param {{ summary: boolean, mask: boolean }} options
 * @returns {Promise<number>} the exit status for it
 */
async function explainFile(knower, path, options) {
  const log = new Log(knower, basename(path));
  let explained;
  try {
    const file = await open(path);
    try {
      const stat = await file.stat();
      // What comes through a pipe has no size.
      const whole = stat.isFile() ? null : await file.readFile();
      explained = await log.read({
        size: whole ? whole.length : stat.size,
        slice: async (start, end) => {
          if (whole) return whole.subarray(start, end);
          const bytes = new Uint8Array(end - start);
          const { bytesRead } = await file.read(bytes, 0, bytes.length, start);
          return bytes.subarray(0, bytesRead);
        },
      });
    } finally {
      await file.close();
    }
  } catch (error) {
    process.stderr.write(`${path}: ${WORDS.problems.unreadable(error instanceof Error ? error.message : String(error))}\n`);
    return 2;
  }
  if (options.mask) explained = log.masked();
  process.stdout.write(options.summary ? summaryText(explained) : reportText(explained));
  if (!explained.reports.length) return 2;
  return explained.reports.every((report) => report.outcome === "success") ? 0 : 1;
}

async function main() {
  const given = process.argv.slice(2);
  const options = given.filter((word) => word.startsWith("--"));
  const paths = given.filter((word) => !word.startsWith("--"));
  if (options.includes("--help")) {
    process.stdout.write(USAGE);
    return 0;
  }
  const wrong = options.find((word) => word !== "--summary" && word !== "--mask");
  if (wrong || !paths.length) {
    process.stderr.write(wrong ? `explain.mjs does not take ${wrong}\n${USAGE}` : USAGE);
    return 2;
  }
  const knower = new Knower(JSON.parse(await readFile(new URL("./knowledge.json", import.meta.url), "utf8")));
  let status = 0;
  for (const [index, path] of paths.entries()) {
    if (index) process.stdout.write("\n");
    status = Math.max(status, await explainFile(knower, path, { summary: options.includes("--summary"), mask: options.includes("--mask") }));
  }
  return status;
}

process.exitCode = await main();
