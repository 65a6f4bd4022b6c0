/** The lines and codes that administrators asked about: each is answered from its log, in the formats of both engines. */

import assert from "node:assert/strict";
import { describe, it } from "node:test";
import { RULES } from "../source/explain.mjs";
import { causesOf, explained, knower, microsoft, wine } from "./support.mjs";

const MARK = "Hx Setup Log: ";

/** @param {string} action @param {string[]} lines @param {any} [options] */
async function reports(action, lines, options = {}) {
  const both = [(await explained(microsoft(action, lines, options))).reports[0]];
  if (!options.phase) both.push((await explained(wine(action, lines, options))).reports[0]);
  return both;
}

/**
 * @typedef {object} Asked
 * @property {string} name
 * @property {string} action
 * @property {string[]} lines the last of them is the one that is asked about
 * @property {any} [options]
 * @property {import("../source/explain.mjs").Level} level
 * @property {RegExp} meaning
 * @property {RegExp} [code] what its first code means
 * @property {RegExp} [remark]
 * @property {string} anchor
 */

/** @type {Asked[]} */
const ASKED = [
  { name: "Task install failed: -16", action: "CustomAction27", lines: ["Task install failed:  -16"], level: "look",
    meaning: /^the task is not registered/, code: /^-16 making the logon trigger \| this Task Scheduler knows no logon triggers/, anchor: "registering-tasks" },
  { name: "Task install failed: -19", action: "CustomAction31", lines: ["Task install failed:  -19"], level: "look",
    meaning: /^the task is not registered/, code: /^-19 getting the idle settings \| this Task Scheduler knows no idle settings/, anchor: "registering-tasks" },
  { name: "Task install failed with an HRESULT", action: "CustomAction31", lines: ["Task install failed:  -2147024891"], level: "look",
    meaning: /^the task is not registered/, code: /^-2147024891 \(0x80070005\) E_ACCESSDENIED access denied/, anchor: "registering-tasks" },
  { name: "agent restart ... -6 in an installation", action: "CustomAction38", lines: ["agent restart:  session 1 (jdoe) failed:  -6"], level: "look",
    meaning: /^none was started/, code: /^-6 finding the task \| it was not registered/, anchor: "the-restart-of-the-agents" },
  { name: "agent restart ... -6 in a removal", action: "CustomAction38", lines: ["agent restart:  session 1 (jdoe) failed:  -6"], level: "good",
    options: { properties: { REMOVE: "ALL", Installed: "1" } }, meaning: /^none was started/, remark: /as it should be/, anchor: "the-restart-of-the-agents" },
  { name: "pid ... not ours", action: "CustomAction38", lines: ["agent restart:  pid 580 is not ours, left alone (36)"], level: "look",
    meaning: /LENGTH is not an error/, anchor: "the-restart-of-the-agents" },
  { name: "can't open uninstall registry key, with another view", action: "CustomAction30",
    lines: ["set ARP version to 1.0.1 (default)", "can't open uninstall registry key (32-bit)"], level: "good",
    meaning: /^there is no entry in this view/, remark: /Another view/, anchor: "the-list-of-installed-programs" },
  { name: "can't open uninstall registry key, alone", action: "CustomAction30", lines: ["can't open uninstall registry key (32-bit)"], level: "look",
    meaning: /^there is no entry in this view/, anchor: "the-list-of-installed-programs" },
  { name: "set ARP version", action: "CustomAction30", lines: ["set ARP version to 1.0.1 (ARM64) (64-bit)"], level: "good",
    meaning: /^the entry now shows VERSION/, anchor: "the-list-of-installed-programs" },
  { name: "Task uninstall failed: -5", action: "CustomAction32", lines: ["Task uninstall failed:  -5"], level: "good",
    meaning: /^the folder of the task could not be reached/, code: /^-5 opening the folder "Quillfern"/, remark: /no task/, anchor: "deleting-tasks" },
  { name: "query service sizing failed: 124", action: "CustomAction37", lines: ["query service sizing failed:  124"], level: "good",
    meaning: /^its configuration cannot be read/, code: /^124 ERROR_INVALID_LEVEL/, remark: /does not know failure actions/, anchor: "the-configuration-of-a-service" },
  { name: "could not grant right", action: "CustomAction23", lines: ["could not grant right to logon as service"], level: "look",
    meaning: /the service does not start \(error 1069\)/, anchor: "creating-the-services-account" },
  { name: "-36", action: "CustomAction25.Data", options: { phase: "script" }, lines: ["failure -36 (0xFFFFFFDC) setting ACL for PC\\vantor"], level: "look",
    meaning: /^it was not given/, code: /^-36 the account is not known/, anchor: "access-to-files-and-folders" },
  { name: "set ACL (-36) ...=500", action: "CustomAction33.Server", options: { phase: "script" }, lines: ["set ACL (-36) for PC\\vantor=500 on C:\\Program Files\\Vantor"],
    level: "look", meaning: /^N is 0/, code: /^-36 the account is not known.*\n500 the access reading, running$/, anchor: "access-to-files-and-folders" },
  { name: "set ACL (0)", action: "CustomAction33.Server", options: { phase: "script" }, lines: ["set ACL (0) for PC\\vantor=700 on C:\\Vantor"],
    level: "good", meaning: /^N is 0/, code: /^0 success\n700 the access full control$/, remark: /was given/, anchor: "access-to-files-and-folders" },
  { name: "no service account", action: "CustomAction23", lines: ["no service account, using LocalSystem"], level: "good",
    meaning: /^the service is installed to run as LocalSystem/, remark: /No account was asked for/, anchor: "creating-the-services-account" },
  { name: "no service account, after a failure", action: "CustomAction23", options: { properties: { PROP_ACCOUNTTYPE: "1" } },
    lines: ["failure 2245 (0x000008C5) adding account", "no service account, using LocalSystem"], level: "look",
    meaning: /^the service is installed to run as LocalSystem/, remark: /line before/, anchor: "creating-the-services-account" },
  { name: "an account that cannot be made", action: "CustomAction23", lines: ["failure 2245 (0x000008C5) adding account"], level: "look",
    meaning: /^the account was not made/, code: /^2245 NERR_PasswordTooShort the machine's rules for passwords/, anchor: "creating-the-services-account" },
  { name: "deleting local service account, in a rollback", action: "CustomAction23.Rollback", options: { phase: "rollback", result: 3 },
    lines: ["deleting local service account vantor"], level: "note", meaning: /^the account of this computer is deleted/, remark: /This is the rollback/,
    anchor: "deleting-the-services-account" },
  { name: "InstallHinfSection(... 128 ...)", action: "CustomAction36.Install", options: { phase: "script" },
    lines: ["InstallHinfSection(DefaultInstall 128 C:\\Vantor\\vantor.inf)"], level: "note", meaning: /The number 128 is not an error/,
    anchor: "the-setup-information-file" },
];

describe("a line that administrators asked about", () => {
  for (const { name, action, lines, options, level, meaning, code, remark, anchor } of ASKED) {
    it(name, async () => {
      for (const report of await reports(action, lines.map((line) => MARK + line), options)) {
        assert.equal(report.said.length, lines.length);
        const said = report.said[lines.length - 1];
        assert.equal(said.text, MARK + lines[lines.length - 1]);
        assert.equal(said.name, action);
        assert.equal(said.level, level);
        assert.match(said.meaning, meaning);
        assert.equal(said.anchor, anchor);
        if (code) {
          const codes = said.codes.map((each) => [each.number, each.name, each.what, each.todo && `| ${each.todo}`].filter(Boolean).join(" "));
          assert.match(codes.join("\n"), code);
        }
        if (remark) assert.match(said.remarks.join(" "), remark);
        else assert.deepEqual(said.remarks, []);
      }
    });
  }

  it("the two JN lines after \"not ours\"", async () => {
    const paths = ["JN Setup Log: C:\\Elsewhere\\osua.exe", "JN Setup Log: C:\\Program Files\\Halvorstead\\Ostrel\\osua.exe"];
    const pair = ["Hx Setup Log: agent restart:  pid 580 is not ours, left alone (36)", ...paths];
    for (const report of await reports("CustomAction38", [...pair, ...pair])) {
      assert.deepEqual(report.said.map((line) => line.meaning.split(",")[0].split(".")[0]), [
        report.said[0].meaning.split(",")[0].split(".")[0], "the path of the program that is left alone", "the path of our agent",
        report.said[0].meaning.split(",")[0].split(".")[0], "the path of the program that is left alone", "the path of our agent"]);
      assert.equal(report.said[1].anchor, "the-restart-of-the-agents");
    }
    const alone = (await reports("CustomAction38", [paths[0]]))[0];
    assert.match(alone.said[0].meaning, /belongs to a line "is not ours"/);
  });

  it("1603 of CustomAction1", async () => {
    for (const result of [3, 0]) {
      const log = result ? microsoft("CustomAction1", ["CustomAction CustomAction1 returned actual error code 1603 (note this may not be 100% accurate if translation happened inside sandbox)"], { result })
        : wine("CustomAction1", [], { result });
      const [report] = (await explained(log)).reports;
      assert.equal(report.outcome, "failed");
      assert.equal(report.failed, "CustomAction1");
      assert.match(report.todo, /^1603: a tool does not close/);
      assert.match(causesOf(report).join(" "), /It wrote no line/);
    }
  });

  it("1603 of CustomAction17", async () => {
    const [report] = (await explained(microsoft("CustomAction17.Judge",
      ["CustomAction CustomAction17.Judge returned actual error code 1603 (note this may not be 100% accurate if translation happened inside sandbox)"],
      { phase: "script", result: 3 }))).reports;
    assert.equal(report.failed, "CustomAction17.Judge");
    assert.match(report.todo, /1603: it did not complete \(no "dbcon_completed.txt"\)/);
    assert.match(causesOf(report).join(" "), /the action's own result/);
  });

  it("MigrateFeatureStates. Return value 0", async () => {
    const before = ["Action 12:00:00: MigrateFeatureStates. ", "Action start 12:00:00: MigrateFeatureStates.", "Action ended 12:00:00: MigrateFeatureStates. Return value 0."];
    const [report] = (await explained(wine("CustomAction3", [], { before }))).reports;
    assert.equal(report.outcome, "success");
    assert.deepEqual(report.numbers.map((each) => each.name), ["MigrateFeatureStates: 0"]);
    assert.match(report.numbers[0].text, /had nothing to do/);
    const [other] = (await explained(microsoft("MigrateFeatureStates", [], { result: 0, whole: 1 }))).reports;
    assert.match(other.numbers[0].text, /This is not a failure/);
  });

  it("CustomAction19 without a line", async () => {
    for (const report of await reports("CustomAction19", [])) {
      assert.equal(report.silent.length, 1);
      assert.equal(report.silent[0].name, "CustomAction19");
      assert.match(report.silent[0].why || "", /^`PROP_FIREWALLDATA` was empty when the action ran/);
      assert.match(report.silent[0].todo, /^the exceptions are still there: delete them by hand \(`netsh/);
      assert.equal(report.silent[0].result, undefined);
      assert.equal(report.silent[0].anchor, "an-action-without-a-line");
    }
  });

  it("an action without a line that should have written one: why, and what to do", async () => {
    for (const [name, { logs, silent, note }] of Object.entries(/** @type {Record<string, any>} */ (knower.knowledge.actions))) {
      if (!/^immediate/.test(note) || knower.knowledge.executes[name]) continue;
      const [report] = await reports(name, []);
      const [{ why, todo, result, anchor }] = report.silent;
      if (logs || name === "CustomAction26") {
        assert.deepEqual([why, todo, result, anchor], [silent.why, silent.todo, undefined, "an-action-without-a-line"]);
        assert.doesNotMatch(`${why} ${todo}`, /^\[?lines/);
      } else {
        assert.deepEqual([why, todo, anchor], [undefined, "", "what-the-actions-return"]);
        assert.doesNotMatch(result || "", /16\d\d: /, "it did not fail");
      }
    }
    assert.equal((await reports("CustomAction1", []))[0].silent[0].result, "");
    assert.equal((await reports("CustomAction3", []))[0].silent[0].result, "`PROP_HOSTNAME` in the log");
    const { reports: [converted] } = await explained(microsoft("CustomAction17.Judge", [], { phase: "script" }));
    assert.equal(converted.silent[0].result, 'The marker files are deleted. With "-" before the folder always 0.');
  });

  it("1602 and 1603 of CustomAction17 have their own advice, which comes first", async () => {
    for (const [code, first, other] of [[1602, /^1602: the conversion was cancelled/, /1603/], [1603, /^1603: it did not complete/, /1602/]]) {
      const [report] = (await explained(microsoft("CustomAction17.Judge", [`CustomAction CustomAction17.Judge returned actual error code ${code} (note this may not be 100% accurate if translation happened inside sandbox)`],
        { phase: "script", result: code === 1602 ? 2 : 3 }))).reports;
      assert.match(report.todo, /** @type {RegExp} */ (first));
      assert.doesNotMatch(report.todo, /** @type {RegExp} */ (other));
      assert.equal(report.notRun[0].todo, report.todo);
    }
    const [unknown] = (await explained(wine("CustomAction17.Judge", [], { result: 0 }))).reports;
    assert.match(unknown.todo, /^1603: .* 1602: /);
    const [absent] = (await explained(microsoft("CustomAction1", ["CustomAction CustomAction1 returned actual error code 1157 (note this may not be 100% accurate if translation happened inside sandbox)"], { result: 3 }))).reports;
    assert.equal(absent.todo, knower.knowledge.engine[1723].todo);
  });

  for (const [number, means] of /** @type {[string, RegExp][]} */ ([["1720", /^a script of the package could not be run/], ["1721", /^a program/], ["1722", /^a program that the package runs ended/],
    ["1723", /^an action's DLL could not be loaded/], ["1920", /^a service did not start/], ["1923", /^a service could not be installed/], ["1925", /^no right to install/]])) {
    it(number, async () => {
      for (const word of ["Error", "Fehler", "Erreur", "エラー"]) {
        const [report] = (await explained(microsoft("StartServices", [`${word} ${number}. Text.`], { result: 3 }))).reports;
        assert.deepEqual(report.errors.map((each) => each.name), [`${number} (StartServices)`]);
        assert.match(report.errors[0].text, means);
        assert.match(causesOf(report).join(" "), new RegExp(means.source.slice(1), "i"));
      }
    });
  }

  for (const code of ["1601", "1602", "1603", "1605", "1618", "1619", "1627", "1633", "1638", "1641", "3010"]) {
    it(`exit code ${code}`, async () => {
      const log = microsoft("CustomAction3", [], { result: code === "1602" ? 2 : code < "1640" ? 3 : 1 });
      const [report] = (await explained(`${log}MSI (s) (2C:1C) [10:00:03:000]: MainEngineThread is returning ${code}\r\n`)).reports;
      const known = report.errors.filter((each) => each.name === code);
      assert.equal(known.length, 1);
      assert.equal(known[0].text, knower.knowledge.engine[code].means);
      assert.equal(report.outcome, code === "1602" ? "cancelled" : code < "1640" ? "failed" : "success");
    });
  }
});

describe("every line of the library", () => {
  for (const { format, shown, actions } of knower.knowledge.lines) {
    it(format, async () => {
      let number = 0;
      const text = format.replace(/%[-+ #0-9.]*[a-z]*[A-Za-z](?:\{\w*\})?/g, (/** @type {string} */ conversion) => {
        number += 1;
        return conversion.endsWith("X") ? "FFFFFFFE" : conversion.endsWith("o") ? "700" : conversion.endsWith("d") ? String(-number) : `text ${number}`;
      });
      const found = knower.lineOf(text);
      assert.ok(found);
      assert.equal(found.entry.format, format);
      assert.equal(found.values.length, found.entry.words.length, shown);
      const [report] = (await explained(microsoft(`CustomAction${actions[0]}`, [MARK + text]))).reports;
      assert.equal(report.said[0].format, format);
      assert.notEqual(report.said[0].meaning, "");
      assert.notEqual(report.said[0].todo, "");
      assert.doesNotMatch(`${report.said[0].meaning} ${report.said[0].todo}`, /\b(?:as above|the same)\b/);
    });
  }

  it("that is cut after 255 bytes is still known", () => {
    const name = "Ä".repeat(130);
    const text = `account was not created by installer (${name}`;
    assert.equal(knower.lineOf(text)?.cut, true);
    assert.equal(knower.lineOf("account was not created by installer (short"), null);
  });

  it("of another version is shown as not known", async () => {
    const [report] = (await explained(microsoft("CustomAction3", [`${MARK}something new`]))).reports;
    assert.match(report.said[0].meaning, /another version/);
    assert.equal(report.said[0].level, "look");
  });
});

it("each rule is for a line of the library", () => {
  const formats = new Set(knower.knowledge.lines.map((/** @type {any} */ entry) => entry.format));
  for (const { format } of RULES) assert.ok(formats.has(format), format);
});
