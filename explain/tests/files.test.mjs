/** Files of every kind: encodings, hostile content, very large logs; the command. */

import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { after, before, describe, it } from "node:test";
import { fileURLToPath } from "node:url";
import { LONGEST_LINE, encodingOf, otherFile, readLines } from "../source/decode.mjs";
import { nameMask, plain, secretMask } from "../source/mask.mjs";
import { Log } from "../source/explain.mjs";
import { reportText, summaryText } from "../source/text.mjs";
import { RICH } from "../page/dom.mjs";
import { WORDS } from "../source/words.mjs";
import { causesOf, explained, knower, microsoft, sample, source, utf16 } from "./support.mjs";

/** @param {Uint8Array} bytes */
async function linesOf(bytes) {
  /** @type {string[]} */
  const lines = [];
  const result = await readLines(source(bytes), (line) => lines.push(line));
  return { lines, ...result };
}

describe("the encoding", () => {
  const text = "Änderung\r\nzweite\nдва\r\n";
  for (const [name, bytes, encoding] of /** @type {[string, Uint8Array, string][]} */ ([
    ["UTF-16 with its mark", utf16(text), "utf-16le"],
    ["UTF-16 without", utf16("many letters of one byte\r\nand more of them\r\n").subarray(2), "utf-16le"],
    ["UTF-16 in the other order", new Uint8Array(Buffer.from(utf16(text)).swap16()), "utf-16be"],
    ["UTF-8", new Uint8Array(Buffer.from(text)), "utf-8"],
    ["UTF-8 with its mark", new Uint8Array(Buffer.from(`\ufeff${text}`)), "utf-8"]])) {
    it(name, async () => {
      const { lines, encoding: found } = await linesOf(bytes);
      assert.equal(found, encoding);
      assert.deepEqual(lines, name === "UTF-16 without" ? ["many letters of one byte", "and more of them"] : ["Änderung", "zweite", "два"]);
    });
  }

  it("8 bits", async () => {
    const { lines, encoding } = await linesOf(new Uint8Array(Buffer.from("R\xfcckgabe\r\n\x80 5\n", "latin1")));
    assert.equal(encoding, "windows-1252");
    assert.deepEqual(lines, ["Rückgabe", "€ 5"]);
  });

  it("is not taken from too little", () => {
    assert.equal(encodingOf(new Uint8Array([0x41, 0])), "utf-8");
    assert.equal(encodingOf(new Uint8Array([])), "utf-8");
  });
});

describe("lines", () => {
  it("that are too long are cut, and the others stay", async () => {
    const { lines, cut } = await linesOf(new Uint8Array(Buffer.from(`a\n${"x".repeat(5000000)}\r\nb\r${"y".repeat(LONGEST_LINE)}\nc`)));
    assert.deepEqual(lines.map((line) => line.length), [1, LONGEST_LINE, 1, LONGEST_LINE, 1]);
    assert.equal(cut, 1);
  });

  it("in a file without line ends take no more time than others", async () => {
    const bytes = new Uint8Array(20 * 1024 * 1024).fill(0x41);
    const began = process.cpuUsage().user;
    const { lines, cut } = await linesOf(bytes);
    assert.deepEqual([lines.length, lines[0].length, cut], [1, LONGEST_LINE, 1]);
    assert.ok(process.cpuUsage().user - began < 2e6);
  });

  it("that end in the middle of a character", async () => {
    assert.deepEqual((await linesOf(utf16("ab\r\ncd").subarray(0, -1))).lines, ["ab", "c\ufffd"]);
    assert.deepEqual((await linesOf(new Uint8Array(Buffer.from("a\nä").subarray(0, 3)))).lines, ["a", "\ufffd"]);
  });
});

describe("a file that is not a log", () => {
  for (const [what, bytes] of /** @type {[keyof typeof WORDS.problems, number[]][]} */ ([["package", [0xd0, 0xcf, 0x11, 0xe0, 0xa1, 0xb1, 0x1a, 0xe1, 0, 0]], ["archive", [0x50, 0x4b, 3, 4]],
    ["program", [0x4d, 0x5a, 0x90, 0]], ["document", [0x25, 0x50, 0x44, 0x46]], ["binary", [1, 0, 0, 0, 0, 0, 7, 0, 0, 0]]])) {
    it(what, async () => {
      assert.equal(otherFile(new Uint8Array(bytes)), what);
      const { problems, reports } = await explained(new Uint8Array(bytes));
      assert.deepEqual(problems, [WORDS.problems[what]]);
      assert.deepEqual(reports, []);
    });
  }

  it("a text with headings between equals signs", async () => {
    for (const heading of ["Heading", "Version 1.2.3", "2026"]) {
      const { problems, reports } = await explained(`=== ${heading} ===\r\ntext\r\n`);
      assert.deepEqual([problems, reports], [[WORDS.problems.other], []]);
    }
    for (const head of ["3/2/2026  9:10:00", "2. 3. 2026  9:10:00", "02-03-2026 10.00.00", "2.3.26 10.00.00", "2026-03-02 09:10:00"]) {
      assert.deepEqual((await explained(`=== Verbose logging started: ${head} ===\r\n`)).problems, [], head);
    }
  });

  it("an empty one, and another text", async () => {
    assert.deepEqual((await explained(new Uint8Array())).problems, [WORDS.problems.empty]);
    assert.deepEqual((await explained("Dear all,\r\n=== not ===x\r\n10:00:00 hello.\r\n")).problems, [WORDS.problems.other]);
  });
});

describe("hostile content", () => {
  const markup = "<img src=x onerror=alert(1)><script>alert(2)</script>";

  it("stays a text", async () => {
    const { reports: [report] } = await explained(microsoft("CustomAction23", [`Hx Setup Log: creating local service account ${markup}`], { properties: { ProductName: markup } }));
    assert.equal(report.said[0].text, `Hx Setup Log: creating local service account ${markup}`);
    assert.equal(report.facts[0].value, markup);
  });

  it("has no marks of the pages", async () => {
    const link = "[how to repair it](//evil.example/fix.html) and `code`";
    const { reports: [report] } = await explained(microsoft("Own", [`Error 1722. See ${link}`], { result: 3 }));
    assert.deepEqual(report.cause[1], { before: "It said: ", quoted: `Error 1722. See ${link}`, after: "" });
    assert.equal(causesOf(report)[1], `It said: Error 1722. See ${link}`);
  });

  it("is no target of a link", () => {
    for (const target of ["//evil.example/x", "/x", "\\\\evil.example\\x", "javascript:alert(1)", "https://evil.example", "../x.md", "file:x"]) {
      assert.doesNotMatch(`[a](${target})`, new RegExp(RICH.source), target);
    }
    for (const target of ["#heading", "page.md", "actions/client.md#customaction1"]) assert.match(`[a](${target})`, new RegExp(RICH.source), target);
  });

  it("that a terminal or a browser would obey is made visible", async () => {
    const { reports: [report] } = await explained(microsoft("CustomAction23", ["Hx Setup Log: creating local service account \u001b[31ma\u202eb\ud800c"]));
    assert.equal(report.said[0].text, "Hx Setup Log: creating local service account \ufffd[31ma\ufffdb\ufffdc");
    assert.equal(plain("a\u0007\ud83d\ude00\udc00\tb"), "a\ufffd\ud83d\ude00\ufffd\tb");
  });

  it("with names of properties that objects have", async () => {
    const { reports: [report] } = await explained(microsoft("CustomAction3", [], { properties: { __proto__x: "1", constructor: "2", toString: "3", ProductName: "P" } }));
    assert.equal(report.facts[0].value, "P");
  });

  it("of actions that never end, and ends without a beginning", async () => {
    const lines = [];
    for (let index = 0; index < 30000; index += 1) lines.push(`Action start 10:00:00: A${index}.`, `Action ended 10:00:00: B${index}. Return value 3.`);
    const began = process.cpuUsage().user;
    const { reports } = await explained(lines.join("\r\n"));
    assert.equal(reports.length, 1);
    assert.ok(process.cpuUsage().user - began < 10e6, `${process.cpuUsage().user - began}`);
  });

  it("of one line that begins like many things", async () => {
    const long = "x".repeat(15000);
    const began = process.cpuUsage().user;
    for (const line of [`MSI (s) (00:00) [10:00:00:000]: PROPERTY CHANGE: Adding ${long} property. Its value is '${long}`, `Property(S): ${long}`, `=== ${long}`,
      `MSI (s) (00:00) [10:00:00:000]: Executing op: CustomActionSchedule(Action=${long}`, `Hx Setup Log: agent restart:  session 1 (${long}`,
      `MSI (s) (00:00) [10:00:00:000]: ${". a: b".repeat(2000)}`, `1: ${"2: ".repeat(4000)}`, `${"word ".repeat(3000)}1720.`, `${"a".repeat(50)} ${long}`]) {
      await explained(microsoft("CustomAction3", Array(20).fill(line)));
    }
    assert.ok(process.cpuUsage().user - began < 10e6, `${process.cpuUsage().user - began}`);
  });

  it("of more actions than a call takes arguments", async () => {
    const lines = ["=== Verbose logging started: 3/2/2026  9:10:00  Build type: SHIP UNICODE 5.00.10011.00  Calling process: C:\\Windows\\system32\\msiexec.exe ===", "Action start 9:10:00: INSTALL."];
    for (let index = 0; index < 150000; index += 1) lines.push("Action start 9:10:00: CustomAction1.", "Action ended 9:10:00: CustomAction1. Return value 1.");
    const { log, ...rest } = await explained(new Uint8Array(Buffer.from(lines.join("\n"))));
    assert.equal(log.lines.length, 300002);
    assert.equal(rest.reports[0].silent.length, 150000);
    assert.match(reportText(rest), /300001 {2}CustomAction1/);
    for (const name of ["report", "page"]) {
      assert.doesNotMatch(readFileSync(new URL(`../page/${name}.mjs`, import.meta.url), "utf8"), /\((?:[^()]*, )?\.\.\.(?:report\.(?:course|silent|numbers)|remarks|rows)\b/);
    }
  });

  it("of a long line that looks like one of the library", async () => {
    const began = process.cpuUsage().user;
    await explained(microsoft("CustomAction30", Array(20).fill(`Hx Setup Log: set ARP version to ${" (".repeat(9000)}`)));
    assert.ok(process.cpuUsage().user - began < 2e6, `${process.cpuUsage().user - began}`);
    assert.equal(knower.lineOf(`creating local service account ${"x".repeat(5000)}`)?.values[0].length, 269);
  });

  it("of an action that is named like a property of every object", async () => {
    const { reports: [report] } = await explained(microsoft("constructor", [], { result: 3 }));
    assert.equal(report.failed, "constructor");
  });
});

describe("masks", () => {
  it("hide the values of hidden properties wherever they are", () => {
    const hide = secretMask(["SECRET"], ["hunter2", "abc", "****"]);
    assert.equal(hide("SECRET=abc x SECRET=\"a b\" y"), "SECRET=********** x SECRET=********** y");
    assert.equal(hide("PROPERTY CHANGE: Modifying SECRET property. Its current value is 'a'. Its new value: 'b'."),
      "PROPERTY CHANGE: Modifying SECRET property. Its current value is '**********'.");
    assert.equal(hide("run with hunter2 here"), "run with ********** here");
    assert.equal(hide("abc"), "abc");
  });

  it("hide values with blanks and quotation marks whole", () => {
    const hide = secretMask(["SECRET"], []);
    assert.equal(hide("Property(S): SECRET = correct horse battery"), "Property(S): SECRET = **********");
    assert.equal(hide('SECRET="Wi""nter 2026 secret" X=1'), "SECRET=********** X=1");
    assert.equal(hide('SECRET=a"b c"d X=1'), "SECRET=********** X=1");
    assert.equal(hide('SECRET="never closed, X=1'), "SECRET=**********");
    assert.equal(hide("PROPERTY CHANGE: Adding SECRET property. Its value is 'two lines,"), "PROPERTY CHANGE: Adding SECRET property. Its value is '**********'");
  });

  it("hide a known value that begins with the value by name", () => {
    assert.equal(secretMask(["SECRET"], ["correct horse battery"])("SECRET=correct horse battery"), "SECRET=**********");
    assert.equal(secretMask(["SECRET"], ["first line\nsecond line"])("second line"), "**********");
  });

  it("hide what a command line gives, wherever it is", async () => {
    for (const [given, value] of [['"Wi""nter 2026 secret"', 'Wi"nter 2026 secret'], ['a"b c"d', "ab cd"], ['"correct horse battery"', "correct horse battery"]]) {
      const { log, reports: [report] } = await explained(microsoft("CustomAction23", [`Hx Setup Log: creating local service account ${value}`])
        .replace("\r\n", `\r\nMSI (s) (2C:1C) [10:00:00:000]: Command Line: PROP_TASKPASS=${given} X=1\r\n`));
      assert.equal(report.said[0].text, "Hx Setup Log: creating local service account **********");
      assert.equal(log.shownLine(2), "MSI (s) (2C:1C) [10:00:00:000]: Command Line: PROP_TASKPASS=********** X=1");
      assert.equal(report.facts.find((each) => each.name === "Command line")?.value, "PROP_TASKPASS=********** X=1");
    }
  });

  /** A log with an action that fails, with this data, and that says this. @param {string} data @param {string} [command] */
  const failing = (data, command = "X=1") => microsoft("CustomAction23", [`Hx Setup Log: creating local service account ${data}`], { phase: "script", result: 3, properties: { LogonUser: "Jane-Ostrander" } })
    .replace("CustomActionData=DATA", `CustomActionData=${data}`)
    .replace("\r\n", `\r\nMSI (s) (2C:1C) [10:00:00:000]: Command Line: ${command}\r\nMSI (s) (2C:1C) [10:00:00:000]: PROPERTY CHANGE: Adding PROP_ACCOUNTPASS property. Its value is 'Winter-2026-Secret'.\r\n`);

  it("hide a secret that a shortened text would show the beginning of", async () => {
    for (let length = 240; length < 300; length += 3) {
      const { log, ...rest } = await explained(failing(`${"x".repeat(length)} Winter-2026-Secret ${"y".repeat(200)}`, `${"x".repeat(length + 715)}=Winter-2026-Secret`));
      for (const shown of [rest, log.masked()]) assert.doesNotMatch(JSON.stringify(shown) + reportText(shown) + summaryText(shown), /Win(?!dows)/, `${length}`);
    }
  });

  it("replace a name that a shortened text would show the beginning of", async () => {
    for (let length = 240; length < 300; length += 3) {
      const { log } = await explained(failing(`${"x".repeat(length)} Jane-Ostrander ${"y".repeat(200)}`, `${"x".repeat(length + 715)}=Jane-Ostrander`));
      assert.doesNotMatch(JSON.stringify(log.masked()), /Jan/, `${length}`);
    }
  });

  it("hide a very long value whole, wherever it is", async () => {
    const key = Array.from({ length: 400 }, (_, index) => `key${index * 7919}`).join("/");
    const hide = secretMask(["SECRET"], [key]);
    assert.equal(hide(`a ${key} b ${key}${key}c`), "a ********** b ********************c");
    assert.equal(hide(key.slice(0, -1)), key.slice(0, -1));
    const { log, ...rest } = await explained(microsoft("CustomAction25.Data", [`Hx Setup Log: something ${key}`, `it said ${key}!`], { phase: "script", result: 3 }).replace("DATA", `x ${key} y`)
      .replace("\r\n", `\r\nMSI (s) (2C:1C) [10:00:00:000]: PROPERTY CHANGE: Adding PROP_ACCOUNTPASS property. Its value is '${key}'.\r\n`));
    assert.equal(rest.reports[0].said[0].text, "Hx Setup Log: something **********");
    for (const shown of [rest, log.masked()]) assert.doesNotMatch(JSON.stringify(shown) + reportText(shown) + summaryText(shown), /key\d/);
    for (let line = 1; line <= log.lines.length; line += 1) assert.doesNotMatch(log.shownLine(line), /key\d/, `${line}`);
    assert.deepEqual(log.search("key7919"), []);
  });

  it("hide a value that repeats itself, and one within another", () => {
    const [short, long] = ["ab".repeat(200), `${"ab".repeat(200)}c`];
    assert.equal(secretMask(["S"], [short, long])(`x${"ab".repeat(203)}cx`), "xababab**********x");
    assert.equal(secretMask(["S"], [short])(`x${"ab".repeat(401)}x`), "x********************abx");
  });

  it("hide the beginning of a value at the end of a line that was cut", () => {
    for (const value of ["correct horse battery", "0123456789".repeat(40)]) {
      for (const length of [4, 9, value.length - 1]) {
        const text = `${"x".repeat(LONGEST_LINE - length)}${value.slice(0, length)}`;
        assert.equal(secretMask(["SECRET"], [value])(text), `${"x".repeat(LONGEST_LINE - length)}**********`);
      }
    }
  });

  it("take no time for long values that repeat themselves", () => {
    const hide = secretMask(["S"], Array.from({ length: 30 }, (_, index) => `${"a".repeat(9000 + index)}b`));
    const began = process.cpuUsage().user;
    for (let index = 0; index < 50; index += 1) hide(`${"a".repeat(LONGEST_LINE - 2)}c${index}`);
    assert.ok(process.cpuUsage().user - began < 3e6, `${process.cpuUsage().user - began}`);
  });

  it("are masks in a search, too: what is shown is searched", async () => {
    const { log } = await explained(sample("client-stopped"));
    const user = log.lines.flatMap((line, index) => line.includes("auditor") ? [index + 1] : []);
    assert.ok(user.length > 1);
    assert.deepEqual(log.search("auditor"), user);
    assert.deepEqual(log.search("AUDITOR", { masked: true }), []);
    const word = (/USER-\d+/.exec(log.shownLine(user[0], true)) || [""])[0];
    assert.deepEqual(log.search(word.toLowerCase(), { masked: true }).filter((line) => user.includes(line)), user);
    assert.deepEqual(log.search(word), []);
    assert.deepEqual(log.search("PASS=*****"), log.search("prop_taskpass=").filter((line) => log.shownLine(line).includes("=***")));
    assert.ok(log.search("PASS=*****", { masked: true }).length > 0);
  });

  it("replace the same name by the same word, wherever it is shown and in whatever order", async () => {
    const text = microsoft("CustomAction3", ["C:\\Users\\bob\\x and C:\\Users\\eve\\y"], { result: 3 });
    const { log } = await explained(text);
    assert.equal(log.shownLine(7, true), "C:\\Users\\USER-1\\x and C:\\Users\\USER-2\\y");
    assert.equal(log.names()("C:\\Users\\eve"), "C:\\Users\\USER-2");
    assert.match(JSON.stringify(log.masked()), /USER-1\\\\x and .*USER-2/);
  });

  it("replace names in the name of the file", async () => {
    const log = new Log(knower, "jdoe_PC-0815 install.log");
    await log.read(source(utf16(sample("client-stopped"))));
    assert.match(log.masked().name, /^USER-\d_HOST-\d install\.log$/);
    assert.match(summaryText(log.masked()), /^USER-\d_HOST-\d install\.log\n/);
  });

  it("take no time for very long or very many values", () => {
    const values = Array.from({ length: 5000 }, (_, index) => `SECRET${index}${"abcdefghij".repeat(1500)}`);
    const began = process.cpuUsage().user;
    const hide = secretMask(["SECRET"], [...values, ...Array.from({ length: 20000 }, (_, index) => `value ${100000 + index}`)]);
    assert.equal(hide("value 100000"), "**********");
    assert.equal(hide("value 119999"), "value 119999");
    for (let index = 0; index < 200; index += 1) hide("SECRET0abcdefghij".repeat(1000));
    assert.ok(process.cpuUsage().user - began < 3e6, `${process.cpuUsage().user - began}`);
    assert.equal(hide(`Property(S): SECRET = ${values[0]}`), "Property(S): SECRET = **********");
  });

  it("replace names that are only on the command line, and the parts of a host's name", async () => {
    const { log, ...rest } = await explained("=== Verbose logging started: 3/2/2026  9:10:00  Build type: SHIP UNICODE 5.00.10011.00  Calling process: C:\\Windows\\system32\\msiexec.exe ===\r\n" +
      'MSI (s) (50:20) [09:10:00:100]: Command Line: PROP_TASKUSER=METER\\auditor PROP_HOSTNAME=gauge.meter.example USERNAME="jdoe x" MYUSER=CORP\\asmith COMPANYNAME=kept\r\n' +
      "MSI (s) (50:20) [09:10:00:100]: MainEngineThread is returning 1618\r\nmeter, gauge, the local service of CORP and corp.example, asmith\r\n");
    assert.doesNotMatch(JSON.stringify(log.masked()) + log.names()(log.shownLine(4)), /METER|auditor|gauge|jdoe|asmith|CORP/i);
    assert.match(JSON.stringify(log.masked()), /COMPANYNAME=kept/);
    assert.match(log.names()(log.shownLine(4)), /the local service/);
    assert.match(JSON.stringify(rest), /auditor/);
  });

  it("replace names, the same by the same", () => {
    const mask = nameMask([], [{ kind: "USER", value: "CORP\\Jane" }, { kind: "USER", value: "NT AUTHORITY\\SYSTEM" }]);
    assert.equal(mask("Jane of corp, JANE, Janet, SYSTEM"), "USER-1 of DOMAIN-1, USER-1, Janet, SYSTEM");
    assert.equal(mask("C:\\Users\\bob\\x and \\\\filer\\share and bob@corp.example"), "C:\\Users\\USER-2\\x and \\\\HOST-1\\share and USER-3");
    assert.equal(mask("C:\\Users\\Public\\x, S-1-5-21-1-2-3-500, S-1-5-18"), "C:\\Users\\Public\\x, SID-1, S-1-5-18");
  });
});

describe("a log of 50 MB", () => {
  it("is explained in less than 5 s", async () => {
    const body = sample("server-rolled-back");
    const filler = `${"MSI (s) (50:20) [09:10:01:000]: Executing op: FileCopy(SourceName=vt.exe,SourceCabKey=vt.exe,DestName=vt.exe,Attributes=512)\r\n".repeat(40)}` +
      `Action start 9:10:01: Filler.\r\n${"File: vt.exe,  Directory: DIR_SERVER,  Size: 14869\r\n".repeat(40)}Action ended 9:10:01: Filler. Return value 1.\r\n` +
      "MSI (s) (50:20) [09:10:01:000]: PROPERTY CHANGE: Adding Filler property. Its value is 'value'.\r\n";
    const at = body.indexOf("MSI (s) (50:20) [09:10:00:300]: Doing action: InstallFinalize");
    const text = body.slice(0, at) + filler.repeat(Math.ceil((25 * 1024 * 1024) / filler.length)) + body.slice(at);
    const bytes = utf16(text);
    assert.ok(bytes.length > 50 * 1024 * 1024);
    const seen = /** @type {number[]} */ ([]);
    const began = process.cpuUsage().user;
    const result = await new Log(knower, "large.log").read(source(bytes), (done) => seen.push(done));
    const took = (process.cpuUsage().user - began) / 1e6;
    assert.equal(result.reports[0].failed, "CustomAction17.Judge");
    assert.ok(took < 5, `${took} s`);
    assert.ok(seen.length >= 12 && seen[seen.length - 1] === 1);
  });
});

describe("the command", () => {
  const command = fileURLToPath(new URL("../explain.mjs", import.meta.url));
  let folder = "";
  before(() => {
    folder = mkdtempSync(join(tmpdir(), "hx-explain-"));
    for (const name of ["client-stopped", "client-upgraded-german"]) writeFileSync(join(folder, `${name}.log`), utf16(sample(name)));
    writeFileSync(join(folder, "other.txt"), "hello\n");
  });
  after(() => rmSync(folder, { recursive: true }));
  /** @param {string[]} words */
  const run = (...words) => spawnSync(process.execPath, [command, ...words.map((word) => word.startsWith("--") ? word : join(folder, word))], { encoding: "utf8" });

  it("prints what happened, and says by its status how it ended", () => {
    const failed = run("client-stopped.log");
    assert.equal(failed.status, 1);
    assert.match(failed.stdout, /^client-stopped\.log\n=+\n\n {2}The upgrade of Ostrel 1\.0\.1 failed\.\n/);
    assert.equal(run("client-upgraded-german.log").status, 0);
    const both = run("client-stopped.log", "client-upgraded-german.log");
    assert.equal(both.status, 1);
    assert.match(both.stdout, /\nclient-upgraded-german\.log\n/);
  });

  it("reads a log from a pipe", () => {
    const { status, stdout } = spawnSync("sh", ["-c", `cat "$1" | "$2" "$3" --summary /dev/stdin`, "sh", join(folder, "client-stopped.log"), process.execPath, command], { encoding: "utf8" });
    assert.match(stdout, /^stdin\nThe upgrade of Ostrel 1\.0\.1 failed\.\n/);
    assert.equal(status, 1);
  });

  it("prints a summary, and masks names", () => {
    const { stdout } = run("--summary", "--mask", "client-upgraded-german.log");
    assert.match(stdout, /^client-upgraded-german\.log\n/);
    assert.doesNotMatch(stdout, /Jörg|means:/);
  });

  it("refuses what it cannot read or does not know", () => {
    for (const words of [["other.txt"], ["missing.log"], ["--other", "client-stopped.log"], []]) assert.equal(run(...words).status, 2, words.join(" "));
    assert.match(run("other.txt").stdout, /This is not a log/);
    assert.match(run("missing.log").stderr, /missing\.log: The file cannot be read/);
    assert.match(run("--other", "x").stderr, /does not take --other\nusage: /);
    assert.equal(run("--help").status, 0);
  });

  it("reads the knowledge beside it", () => {
    assert.ok(JSON.parse(readFileSync(new URL("../knowledge.json", import.meta.url), "utf8")).lines.length > 60);
  });
});
