/** The logs of this folder, with what a person who reads them finds. */

import assert from "node:assert/strict";
import { describe, it } from "node:test";
import { reportText, summaryText, unmarked } from "../source/text.mjs";
import { causesOf, explained, knower, microsoft, sample, utf16, wine } from "./support.mjs";

/** @param {import("../source/explain.mjs").Report} report @param {string} name */
const step = (report, name, phase = "immediate") => report.course.find((each) => each.name === name && each.phase === phase);

describe("an upgrade of a client that a tool stops (Windows Installer)", () => {
  const log = explained(sample("client-stopped"));

  it("has the verdict, the cause and the place", async () => {
    const { reports, problems } = await log;
    assert.deepEqual(problems, []);
    assert.equal(reports.length, 1);
    const [report] = reports;
    assert.equal(report.sentence, "The upgrade of Ostrel 1.0.1 failed.");
    assert.equal(report.failed, "CustomAction1");
    assert.equal(report.causeLine, 45);
    assert.deepEqual(causesOf(report), [
      "The first action that failed is CustomAction1, which closes the desktop tools and stops the client service; what stays stops the installation.",
      "It wrote no line.", "It returned 1603.", "This is the action's own result.", "The changes of the installer had not begun."]);
    assert.equal(report.rolledBack, false);
  });

  it("has the facts", async () => {
    const [report] = (await log).reports;
    assert.deepEqual(Object.fromEntries(report.facts.map(({ name, value }) => [name, value])), {
      "Product": "Ostrel", "Version": "1.0.1", "Product code": "{8C633BF5-0785-5027-863E-F3FA0962B449}",
      "Command line": "PROP_TASKUSER=METER\\auditor PROP_TASKPASS=********** CURRENTDIRECTORY=C:\\Downloads CLIENTUILEVEL=3 CLIENTPROCESSID=4312",
      "Package": "C:\\Downloads\\client.msi", "Engine": "Windows Installer", "Started": "3/2/2026 7:58:08", "Took": "6 s",
      "Exit code": "1603", "Lines": "lines 1 to 68"});
  });

  it("has the course with durations", async () => {
    const [report] = (await log).reports;
    assert.deepEqual(report.course.map(({ name, first, last, took, result, failed, depth }) => [name, first, last, took, result, failed, depth]), [
      ["INSTALL", 22, 49, 5975, 3, true, 0],
      ["FindRelatedProducts", 26, 29, 1, 1, false, 1],
      ["CustomAction3", 32, 35, 20, 1, false, 1],
      ["MigrateFeatureStates", 40, 42, 1, 0, false, 1],
      ["CustomAction1", 45, 48, 5930, 3, true, 1]]);
  });

  it("has what was not said", async () => {
    const [report] = (await log).reports;
    assert.deepEqual(report.said, []);
    assert.deepEqual(report.skipped.map((each) => [each.line, each.name]), [[36, "CustomAction4"]]);
    assert.equal(report.skippedOthers, 1);
    assert.deepEqual(report.silent.map((each) => [each.name, each.values]), [["CustomAction3", [{ name: "PROP_HOSTNAME", value: "vantor.meter.example" }]]]);
    assert.deepEqual(report.errors.map((each) => each.name), ["1603"]);
    assert.deepEqual(report.notRun.map((each) => [each.name, each.text]), [["CustomAction1", "ended with 1603, which counts. This is the action's own result."]]);
  });

  it("shows no secret, also not in the lines of the log and in a search", async () => {
    const { log: read, ...rest } = await log;
    assert.doesNotMatch(JSON.stringify(rest) + reportText(rest) + summaryText(rest), /Winter-2026/);
    assert.equal(read.lines.filter((line) => line.includes("Winter-2026")).length, 2);
    assert.match(read.shownLine(15), /PROP_TASKPASS=\*{10} /);
    assert.match(read.shownLine(18), /Its value is '\*{10}'\.$/);
    assert.deepEqual(read.search("Winter"), []);
    assert.deepEqual(read.search("customaction1 returned"), [47]);
  });

  it("masks names on request", async () => {
    const { log: read, ...rest } = await log;
    const masked = read.shown({ rest, lines: read.lines }, read.names());
    assert.doesNotMatch(JSON.stringify(masked), /jdoe|PC-0815|auditor|METER|meter\.example|S-1-5-21/);
    assert.match(JSON.stringify(masked), /Ostrel 1\.0\.1/);
    assert.match(masked.lines[14], /PROP_TASKUSER=USER-\d\\USER-\d|PROP_TASKUSER=DOMAIN-\d\\USER-\d/);
  });
});

describe("an upgrade of a server that fails in the script (Windows Installer)", () => {
  const log = explained(sample("server-rolled-back"));

  it("has the verdict and the action of the script", async () => {
    const { reports } = await log;
    assert.equal(reports.length, 1);
    assert.equal(reports[0].sentence, "The upgrade of Vantor Server 1.0.0 failed and was rolled back.");
    assert.equal(reports[0].failed, "CustomAction17.Judge");
    assert.match(reports[0].todo, /1603: it did not complete/);
    assert.doesNotMatch(causesOf(reports[0]).join(" "), /had not begun/);
  });

  it("tells scheduling, script and rollback apart", async () => {
    const [report] = (await log).reports;
    assert.deepEqual(report.course.filter((each) => each.entry).map(({ name, phase, took }) => [name, phase, took]), [
      ["CustomAction22", "immediate", 20], ["CustomAction16.Data", "scheduled", 0], ["CustomAction17.Judge", "scheduled", 0],
      ["CustomAction23.Rollback", "scheduled", 0], ["CustomAction23", "immediate", 20], ["CustomAction23.Rollback", "scheduled", 10],
      ["CustomAction16.Data", "script", 3500], ["CustomAction17.Judge", "script", 101], ["CustomAction23.Rollback", "rollback", 100]]);
  });

  it("has the data of a deferred action over two lines", async () => {
    const [report] = (await log).reports;
    const data = report.silent.find((each) => each.name === "CustomAction16.Data");
    assert.deepEqual(data?.values, [{ name: "CustomActionData", value: 'hxsetup -ckrnil "D:\\Store (previous)\\Data\\."\n -el "D:\\Store (previous)\\Data\\." "D:\\Store\\Data\\."' }]);
  });

  it("gives the lines to their actions", async () => {
    const [report] = (await log).reports;
    assert.deepEqual(report.said.map(({ name, line, level }) => [name, line, level]), [
      ["CustomAction23", 31, "good"], ["CustomAction23", 32, "look"], ["CustomAction23.Rollback", 62, "note"]]);
    assert.match(report.said[2].remarks[0], /rollback: it takes back the account/);
    assert.equal(step(report, "CustomAction23.Rollback", "rollback")?.said, 1);
  });
});

describe("an upgrade in German, with the removal of the older version in the same log", () => {
  const log = explained(sample("client-upgraded-german"));

  it("has two runs, one in the other", async () => {
    const { reports } = await log;
    assert.deepEqual(reports.map(({ sentence, parent, first, last }) => [sentence, parent, first, last]), [
      ["The upgrade of Ostrel 1.0.1 succeeded.", -1, 1, 81], ["The upgrade's own removal of Ostrel 1.0.0 succeeded.", 0, 42, 57]]);
    assert.deepEqual(causesOf(reports[0]), ["The machine must be restarted to complete it."]);
  });

  it("tells client and server apart", async () => {
    const [report] = (await log).reports;
    assert.deepEqual(report.course.filter((each) => each.depth < 4).map(({ name, side, depth }) => [name, side, depth]), [
      ["INSTALL", "client", 0], ["CustomAction2", "client", 1], ["ExecuteAction", "client", 1], ["INSTALL", "server", 2],
      ["FindRelatedProducts", "server", 3], ["InstallFinalize", "server", 3], ["RemoveExistingProducts", "server", 3], ["CustomAction30", "server", 3]]);
  });

  it("has the errors of the engine once each, with their texts", async () => {
    const [report] = (await log).reports;
    assert.deepEqual(report.errors.map(({ name, values }) => [name, values.map((each) => each.value.slice(0, 40))]), [
      ["1920 (StartServices)", ["Product: Ostrel -- Warnung 1920. Der Die"]], ["1723 (CustomAction28)", ["Info 1723. Es liegt ein Problem mit dies"]], ["3010", []]]);
    assert.match(report.errors[1].todo, /Possible causes: The DLL is for the other processor; Something blocks the DLL/);
  });

  it("says that an action whose failure is ignored did nothing", async () => {
    const [report] = (await log).reports;
    assert.deepEqual(report.notRun.map(({ name, text }) => [name, text]), [["CustomAction28",
      "ended with 1157, and its failure was ignored. The library returns 0 wherever its result is ignored, so this action did nothing."]]);
    assert.deepEqual(report.silent.map((each) => each.name), ["CustomAction2"]);
  });

  it("knows that the removed version has no task", async () => {
    const said = (await log).reports[1].said;
    assert.deepEqual(said.map(({ name, level }) => [name, level]), [["CustomAction38", "good"], ["CustomAction38", "good"]]);
    assert.match(said[1].remarks[0], /the task is gone/);
  });
});

describe("what the verdict says of the changes", () => {
  it("not that they had not begun, if something was rolled back", async () => {
    const before = ["Action 12:00:01: InstallFinalize. ", "Action start 12:00:01: InstallFinalize.", "Action ended 12:00:01: InstallFinalize. Return value 1."];
    const [after] = (await explained(wine("Own", [], { result: 0, before }))).reports;
    assert.equal(after.failed, "Own");
    assert.doesNotMatch(causesOf(after).join(" "), /had not begun/);
    const text = wine("Own", [], { result: 0 }).toString().replace(/Action ended 12:00:02: INSTALL\. Return value 0\.\n$/, "$&Action 12:00:03: CustomAction23.Rollback. \nAction start 12:00:03: CustomAction23.Rollback.\n");
    const [back] = (await explained(Buffer.from(text))).reports;
    assert.equal(back.rolledBack, true);
    assert.doesNotMatch(causesOf(back).join(" "), /had not begun/);
    const [none] = (await explained(wine("Own", [], { result: 0 }))).reports;
    assert.match(causesOf(none).join(" "), /had not begun/);
  });

  it("where it was cancelled, and what failed if something did", async () => {
    const [report] = (await explained(microsoft("WelcomeDlg", [], { result: 2 }))).reports;
    assert.deepEqual(causesOf(report), ["It was cancelled during WelcomeDlg.", "The changes of the installer had not begun."]);
    assert.equal(report.todo, "install again");
    const [script] = (await explained(microsoft("CustomAction23", [], { result: 2, phase: "script" }))).reports;
    assert.match(causesOf(script)[0], /^It was cancelled during CustomAction23, which /);
    const [failed] = (await explained(microsoft("Own", [], { result: 3, whole: 2 }))).reports;
    assert.equal(failed.outcome, "cancelled");
    assert.equal(causesOf(failed)[0], "The first action that failed is Own.");
  });
});

describe("an action without a name of the library", () => {
  const said = ["Hx Setup Log: creating local service account vantor"];

  it("that is the installer's own is not taken for the library's, whatever was said in it", async () => {
    const text = microsoft("Own", [], { result: 3 }).replace("Action ended 10:00:02: INSTALL", `${said[0]}\r\n$&`).replace(/Action (?:start|ended) 10:00:0\d: Own\..*\r\n/g, "");
    const [report] = (await explained(text)).reports;
    assert.deepEqual(report.course.map(({ name, entry, job }) => [name, entry, job]), [["INSTALL", "", ""]]);
    assert.equal(causesOf(report)[0], "The first action that failed is INSTALL.");
    const [own] = (await explained(wine("Own", said, { result: 0 }))).reports;
    assert.match(causesOf(own)[0], /^The first action that failed is Own, which creates the account/);
  });

  it("is only called the package's own if the log says what it calls", async () => {
    const [called] = (await explained(microsoft("InstallOwnThings", [], { result: 3 }))).reports;
    assert.match(causesOf(called).join(" "), /It is not an action of the library: it is the package's own\./);
    const [unknown] = (await explained(wine("InstallOwnThings", [], { result: 0 }))).reports;
    assert.match(causesOf(unknown).join(" "), /Its name is not that of an action of the library\. If it calls one of its entry points under another name, look that up in the package\./);
    const [standard] = (await explained(wine("InstallFiles", [], { result: 0 }))).reports;
    assert.match(causesOf(standard).join(" "), /It is one of the installer's own actions/);
  });
});

describe("short logs", () => {
  it("of runs that were not started", async () => {
    const { reports } = await explained(sample("not-started"));
    assert.deepEqual(reports.map((report) => [report.sentence, causesOf(report)[0], report.first, report.last]), [
      ["The run was refused.", "The installer answered 1619 before it ran an action.", 1, 8], ["The run was refused.", "The installer answered 1618 before it ran an action.", 9, 16]]);
    assert.match(causesOf(reports[0])[1], /cannot be opened/);
  });

  it("without the engine's own lines, in French, of a run that was cancelled", async () => {
    const { reports } = await explained(sample("short-french"));
    assert.deepEqual(reports.map(({ sentence, failed }) => [sentence, failed]), [["The removal of Vantor Server 1.0.0 was cancelled.", "Annuler"]]);
    assert.deepEqual(reports[0].silent.map((each) => each.name), ["CustomAction19"]);
  });

  for (const [language, start, end] of [["Chinese", "操作开始 10:00:00: NAME。", "操作结束 10:00:01: NAME。返回值 RESULT。"],
    ["Japanese", "アクション 開始 10:00:00: NAME。", "アクション 終了 10:00:01: NAME。戻り値 RESULT。"],
    ["Russian", "Действие начато 10:00:00: NAME.", "Действие завершено 10:00:01: NAME. Возвращаемое значение RESULT."],
    ["Danish", "Handlingen startede 10.00.00: NAME.", "Handlingen sluttede 10.00.01: NAME. Returværdi RESULT."]]) {
    it(`in ${language}`, async () => {
      /** @param {string} text @param {string} name @param {string} [result] */
      const line = (text, name, result = "") => text.replace("NAME", name).replace("RESULT", result);
      const { reports: [report] } = await explained([line(start, "INSTALL"), line(start, "CustomAction15.Server"), line(end, "CustomAction15.Server", "3"), line(end, "INSTALL", "3"), ""].join("\r\n"));
      assert.equal(report.failed, "CustomAction15.Server");
      assert.deepEqual(report.course.map(({ name, result, took }) => [name, result, took]), [["INSTALL", 3, 1000], ["CustomAction15.Server", 3, 1000]]);
    });
  }

  it("of which the end is missing", async () => {
    const text = sample("server-rolled-back").split("\r\n").slice(0, 35).join("\r\n");
    const [report] = (await explained(text)).reports;
    assert.equal(report.outcome, "unfinished");
    assert.match(causesOf(report).join(" "), /ends in the middle/);
    assert.equal(report.said.length, 2);
  });

  it("of which the beginning is missing", async () => {
    const text = sample("server-rolled-back").split("\r\n").slice(34).join("\r\n");
    const [report] = (await explained(text)).reports;
    assert.equal(report.outcome, "failed");
    assert.equal(report.failed, "CustomAction17.Judge");
    assert.equal(causesOf(report)[0], "The beginning of the run is missing in this log.");
  });

  it("of several runs in one file", async () => {
    const { reports } = await explained(sample("client-stopped") + sample("server-rolled-back") + sample("client-stopped"));
    assert.deepEqual(reports.map(({ failed, first, last }) => [failed, first, last]), [["CustomAction1", 1, 68], ["CustomAction17.Judge", 69, 146], ["CustomAction1", 147, 214]]);
  });
});

describe("logs of Wine's engine", () => {
  it("of an upgrade that a tool stops", async () => {
    const { reports } = await explained(Buffer.from(sample("wine-client-stopped")));
    assert.deepEqual(reports.map(({ sentence, failed, rolledBack }) => [sentence, failed, rolledBack]), [["The upgrade of Ostrel 1.0.1 failed.", "CustomAction1", false]]);
    assert.equal(reports[0].facts.find((each) => each.name === "Took")?.value, "6 s");
    assert.equal(reports[0].atEnd, true);
  });

  it("of an installation that is rolled back", async () => {
    const [report] = (await explained(Buffer.from(sample("wine-server-rolled-back")))).reports;
    assert.equal(report.sentence, "The installation of Vantor Server 1.0.0 failed and was rolled back.");
    assert.equal(report.failed, "WitnessFailure");
    assert.ok(report.said.some((line) => line.format.startsWith("deleting local") && line.remarks[0].includes("rollback")));
    assert.ok(report.course.some((each) => each.phase === "rollback" && each.name === "CustomAction23.Rollback"));
  });

  it("of a removal", async () => {
    const [report] = (await explained(Buffer.from(sample("wine-client-removed")))).reports;
    assert.equal(report.sentence, "The removal of Ostrel 1.0.1 succeeded.");
    assert.ok(report.said.length > 0);
    assert.ok(report.said.every((line) => line.level !== "look"), JSON.stringify(report.said.filter((line) => line.level === "look")));
  });
});

describe("what could be taken for something else", () => {
  const prefix = "MSI (s) (2C:1C) [10:00:00:500]: ";

  it("a text with a time and a word is not the start of an action", async () => {
    const [report] = (await explained(microsoft("CustomAction3", ["MyTool 10:00:00: done.", "MyTool 10:00:00: done. Result 3."]))).reports;
    assert.deepEqual(report.course.map((each) => each.name), ["INSTALL", "CustomAction3"]);
    assert.equal(report.outcome, "success");
  });

  it("a run of Wine's engine that fails after its last action did not fail in that action", async () => {
    const [report] = (await explained(wine("CustomAction3", [], { result: 1, whole: 0 }))).reports;
    assert.equal(report.outcome, "failed");
    assert.equal(report.failed, "INSTALL");
  });

  it("a property that changes later is shown as it was when the action ran", async () => {
    const later = microsoft("CustomAction23", ["Hx Setup Log: no account to delete"]).replace("Action start 10:00:00: CustomAction23.",
      `${prefix}PROPERTY CHANGE: Adding PROP_ACCOUNTTYPE property. Its value is '1'.\r\nAction start 10:00:00: CustomAction23.`).replace("Action ended 10:00:02: INSTALL",
      `${prefix}PROPERTY CHANGE: Modifying PROP_ACCOUNTTYPE property. Its current value is '1'. Its new value: '0'.\r\nAction ended 10:00:02: INSTALL`);
    const [report] = (await explained(later)).reports;
    assert.deepEqual(report.given[1], [{ name: "PROP_ACCOUNTTYPE", value: "1" }]);
  });

  it("the product's name is not masked where an account is named after it", async () => {
    const { log } = await explained(microsoft("CustomAction23", ["Hx Setup Log: creating local service account vantor"], { properties: { ProductName: "Vantor Server" } }));
    assert.equal(log.names()("Vantor Server of jane@corp.example"), "Vantor Server of USER-1");
  });
});

describe("the refusals of the packages", () => {
  for (const { text, actions, todo } of knower.knowledge.refusals) {
    for (const action of actions) {
      it(action, async () => {
        const log = ["Action start 10:00:00: INSTALL.", `Action start 10:00:00: ${action}.`, text.replace(/[{}]/g, "").replace(/\[\w+\]/g, "C:\\Somewhere"),
          `Action ended 10:00:01: ${action}. Return value 3.`, "Action ended 10:00:01: INSTALL. Return value 3.", ""].join("\r\n");
        const [report] = (await explained(log)).reports;
        assert.equal(report.failed, action);
        assert.equal(report.todo, todo);
        assert.match(causesOf(report)[1], /^The package refuses this run: /);
      });
    }
  }
});

describe("a part of a refusal in braces", () => {
  const start = ["Action start 10:00:00: INSTALL.", "Action start 10:00:00: RefuseInterrupted.",
    "Action ended 10:00:01: RefuseInterrupted. Return value 3.", "Action ended 10:00:01: INSTALL. Return value 3.",
    "Property(S): NOTEDSERVER = C:\\Vantor\\", "Property(S): NOTEDASIDE = C:\\Vantor (previous)\\"];
  for (const [name, more, expected] of /** @type {[string, string[], string][]} */ ([
    ["is there if its properties are", ["Property(S): NOTEDDATA = D:\\Data\\", "Property(S): NOTEDASIDEDATA = D:\\Data 2026-11-15\\"],
      "kept in C:\\Vantor (previous)\\; data: D:\\Data\\, kept in D:\\Data 2026-11-15\\."],
    ["is left out without one of them", ["Property(S): NOTEDDATA = D:\\Data\\"], "kept in C:\\Vantor (previous)\\."],
    ["is left out without them", [], "kept in C:\\Vantor (previous)\\."]])) {
    it(name, async () => {
      const [report] = (await explained([...start, ...more, ""].join("\r\n"))).reports;
      assert.equal(report.failed, "RefuseInterrupted");
      assert.ok(causesOf(report).some((cause) => cause.includes(expected)), causesOf(report).join("\n"));
    });
  }
});

describe("the texts", () => {
  it("have no marks of the pages, and wrap", async () => {
    for (const name of ["client-stopped", "server-rolled-back", "client-upgraded-german", "wine-client-removed"]) {
      const { log, ...rest } = await explained(utf16(sample(name)));
      for (const text of [reportText(rest), summaryText(rest)]) {
        assert.doesNotMatch(text, /\]\(|`|undefined|\[object/);
        assert.ok(text.includes(rest.reports[0].sentence));
      }
      assert.equal(log.lines.length, rest.count);
    }
  });

  it("are without links and code marks", () => {
    assert.equal(unmarked("`a` is in [the page](b.md#c)."), "a is in the page.");
  });
});
