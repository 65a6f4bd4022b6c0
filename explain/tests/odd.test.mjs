/** Logs that are hostile, cut, or unlike others, with what a person who reads them finds. */

import assert from "node:assert/strict";
import { describe, it } from "node:test";
import { LONGEST_LINE } from "../source/decode.mjs";
import { WORDS } from "../source/words.mjs";
import { causesOf, explained, microsoft, sample, utf16 } from "./support.mjs";

/** @param {string} name */
const reportsOf = async (name) => (await explained(sample(name))).reports;
const HEAD = "=== Verbose logging started: 3/2/2026  10:00:00  Build type: SHIP UNICODE 5.00.10011.00  Calling process: C:\\Windows\\system32\\msiexec.exe ===";

describe("a log that is unlike others", () => {
  it("of a client whose actions go on between those of the server", async () => {
    const [report] = await reportsOf("interleaved");
    assert.equal(report.sentence, "The installation of Ostrel 1.0.1 succeeded.");
    assert.deepEqual(report.said.map(({ name, line, codes }) => [name, line, codes.map(({ number }) => number)]), [["CustomAction27", 15, ["-32"]]]);
    assert.deepEqual(report.silent, []);
    assert.deepEqual(report.course.map(({ name, side }) => [name, side]), [["INSTALL", "client"], ["ExecuteAction", "client"], ["INSTALL", "server"],
      ["CustomAction27", "server"], ["ProgressDlg", "client"], ["ExitDialog", "client"]]);
  });

  it("of another product, whose own program fails", async () => {
    const [report] = await reportsOf("other-product");
    assert.equal(report.sentence, "The installation of SomeProduct 1.0.1 failed and was rolled back.");
    assert.equal(report.failed, "Start_Service");
    assert.deepEqual(causesOf(report), ["The first action that failed is Start_Service.",
      "It said: Error 1722. There is a problem with this Windows Installer package. A program run as part of the setup did not finish as expected.",
      "It returned 2.", "A program that the package runs ended with another code than 0."]);
    assert.deepEqual([report.said, report.silent], [[], []]);
  });

  it("of an upgrade that fails because the older version cannot be removed: the cause is there", async () => {
    const [report, inner] = await reportsOf("older-not-removed");
    assert.deepEqual([report.sentence, inner.sentence], ["The upgrade of Ostrel 1.0.1 failed.", "The upgrade's own removal of Ostrel 1.0.0 failed."]);
    assert.deepEqual([report.failed, inner.failed], ["RemoveExistingProducts", "CustomAction1"]);
    assert.deepEqual(causesOf(report), ["The first action that failed is RemoveExistingProducts.", "It removes the older version. That removal is run 2 of this log:", ...causesOf(inner)]);
    assert.match(report.todo, /^1603: a tool does not close/);
    assert.equal(report.causeLine, inner.causeLine);
  });

  it("with few kinds of lines (/l)", async () => {
    const [report] = await reportsOf("brief");
    assert.equal(report.sentence, "The installation failed.");
    assert.equal(report.failed, "StartServices");
    assert.deepEqual(report.errors.map(({ name }) => name), ["1920 (StartServices)"]);
    assert.deepEqual(report.said.map(({ name, level }) => [name, level]), [["CustomAction23", "good"], ["CustomAction23", "look"], ["CustomAction23", "look"]]);
    assert.match(causesOf(report)[1], /^It said: Error 1920\. [^|]*services\.$/);
  });

  it("with errors only", async () => {
    const [report] = await reportsOf("only-errors");
    assert.equal(report.sentence, "The run has no result in this log.");
    assert.deepEqual(causesOf(report), [WORDS.brief, "The installer said: Error 1920. Service 'Vantor' (Vantor) failed to start.", "A service did not start."]);
    assert.equal(report.causeLine, 2);
  });

  it("without the lines with which actions start and end", async () => {
    const [report] = await reportsOf("without-actions");
    assert.equal(report.sentence, "The repair failed.");
    assert.deepEqual(report.course.map(({ name, first }) => [name, first]), [["CustomAction27", 4], ["CustomAction1", 6]]);
    assert.equal(report.failed, "CustomAction1");
    assert.match(report.todo, /^1603: a tool does not close/);
    assert.deepEqual(report.silent.map(({ name }) => name), ["CustomAction27"]);
  });

  it("of a repair after which the machine must be restarted", async () => {
    const [report] = await reportsOf("repair-restart");
    assert.equal(report.sentence, "The repair of Ostrel 1.0.1 succeeded.");
    assert.deepEqual(causesOf(report), ["The machine must be restarted to complete it."]);
    // The message 1603 is that a file is in use; only the exit code 1603 is that the run failed.
    assert.deepEqual(report.errors.map(({ name, text }) => [name, text]), [["1603 (InstallValidate)", WORDS.engineUnknown],
      ["3010", "done; something that was in use is replaced at the next start of the machine"]]);
  });

  it("of an installation that an action stops for a restart", async () => {
    const text = microsoft("ForceReboot", [], { result: 4 });
    for (const end of ["", "MSI (s) (2C:1C) [10:00:02:000]: MainEngineThread is returning 3010\r\n", "MSI (s) (2C:1C) [10:00:02:000]: MainEngineThread is returning 1641\r\n"]) {
      const { reports } = await explained(text + end);
      assert.deepEqual(reports.map(({ outcome, sentence }) => [outcome, sentence]), [["suspended", "The installation has stopped for a restart and is not complete."]]);
      assert.deepEqual([causesOf(reports[0]), reports[0].todo, reports[0].failed, reports[0].causeLine], [[WORDS.suspended], WORDS.afterSuspended, "", reports[0].last]);
      assert.deepEqual(reports[0].errors, []);
    }
  });

  it("of a run that was cancelled while its script ran", async () => {
    const [report] = await reportsOf("cancelled-in-script");
    assert.equal(report.sentence, "The installation of P 1.0.1 was cancelled and was rolled back.");
    assert.deepEqual(causesOf(report), ["It was cancelled during InstallFiles."]);
  });

  it("with extra debugging lines (/l*vx), also after its end", async () => {
    const extra = ["MSI (s) (2C:1C) [07:58:09:000]: Creating MSIHANDLE (1) of type 790542 for thread 4312", "MSI (s) (2C!20) [07:58:09:000]: Closing MSIHANDLE (1) of type 790542 for thread 4312"];
    const { reports } = await explained(sample("client-stopped").split("\r\n").flatMap((line) => [line, ...extra]).join("\r\n"));
    const [plain] = await reportsOf("client-stopped");
    assert.equal(reports.length, 1);
    assert.deepEqual([reports[0].sentence, reports[0].failed, reports[0].cause, reports[0].todo], [plain.sentence, plain.failed, plain.cause, plain.todo]);
    assert.deepEqual(reports[0].course.map(({ name, result }) => [name, result]), plain.course.map(({ name, result }) => [name, result]));
  });

  it("of a run over midnight", async () => {
    const text = microsoft("CustomAction3", []).replace(/10:00:00: /g, "23:59:58: ").replace(/10:00:0([12]):/g, "0:00:0$1:");
    const [report] = (await explained(text)).reports;
    assert.equal(report.facts.find(({ name }) => name === "Took")?.value, "4 s");
  });
});

describe("a log that is damaged", () => {
  const bytes = utf16(sample("server-rolled-back"));

  it("cut in the middle of a character", async () => {
    const { reports: [report] } = await explained(bytes.subarray(0, 9001));
    assert.equal(report.outcome, "unfinished");
    assert.match(causesOf(report)[0], /^The log ends in the middle of the run/);
  });

  it("cut at every length, it never succeeds, and never ends in an error of the page", async () => {
    for (let length = 3; length < bytes.length; length += 397) {
      const { reports } = await explained(bytes.subarray(0, length));
      for (const report of reports) assert.ok(report.outcome !== "success" && !/before it ran an action/.test(causesOf(report).join(" ")), `${length}`);
    }
  });

  it("without its beginning, from the middle of a character", async () => {
    const { reports } = await explained(bytes.subarray(7001));
    assert.equal(reports.length, 1);
    assert.equal(causesOf(reports[0])[0], WORDS.headless);
    assert.equal(reports[0].sentence, "The installation of Vantor Server 1.0.0 failed and was rolled back.");
    assert.equal(reports[0].facts.find(({ name }) => name === "Started"), undefined, "the time of the end is not that of the beginning");
  });

  it("with an endless line in it", async () => {
    const { reports: [report], problems } = await explained(microsoft("Own", ["Action start 10:00:00: X. ".repeat(100000)], { result: 3 }));
    assert.equal(report.failed, "Own");
    assert.deepEqual(problems, ["A line is longer than 20,000 characters: only its beginning was read."]);
    assert.ok(causesOf(report)[1].length < LONGEST_LINE);
  });

  it("with line ends of all kinds", async () => {
    const ends = ["\r\n", "\n", "\r", "\r\r\n"];
    const text = sample("client-stopped").split("\r\n").map((line, index) => line + ends[index % 4]).join("");
    const [report] = (await explained(new Uint8Array(Buffer.from(text)))).reports;
    const [plain] = await reportsOf("client-stopped");
    assert.deepEqual([report.sentence, report.cause, report.todo], [plain.sentence, plain.cause, plain.todo]);
  });

  it("with two runs in one file, of which the second fails", async () => {
    const second = microsoft("B", [], { result: 3, properties: { ProductName: "A", REMOVE: "ALL", Installed: "1" } });
    const { reports } = await explained(microsoft("B", [], { properties: { ProductName: "A" } }) + second);
    assert.deepEqual(reports.map(({ sentence, failed }) => [sentence, failed]), [["The installation of A succeeded.", ""], ["The removal of A failed.", "B"]]);
  });

  it("with a head and nothing else", async () => {
    const { reports: [report] } = await explained(`${HEAD}\r\n`);
    assert.equal(report.outcome, "unfinished");
  });
});
