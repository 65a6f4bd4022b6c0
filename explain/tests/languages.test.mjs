/** Logs in the languages of Windows, in UTF-16 and in their code pages: the structure and the verdict are the same in all. */

import assert from "node:assert/strict";
import { describe, it } from "node:test";
import { readLines } from "../source/decode.mjs";
import { LANGUAGES, encoded, installation } from "./languages.mjs";
import { causesOf, explained, source, utf16 } from "./support.mjs";

/** @param {Awaited<ReturnType<typeof explained>>} result */
function check({ problems, reports }) {
  assert.deepEqual(problems, []);
  assert.equal(reports.length, 1);
  const [report] = reports;
  assert.equal(report.sentence, "The installation of Vantor Server 1.0.0 failed.");
  assert.equal(report.failed, "StartServices");
  assert.deepEqual(report.course.map(({ name, depth, result, took }) => [name, depth, result, took]), [
    ["INSTALL", 0, 3, 2000], ["CustomAction12", 1, 1, 2000], ["StartServices", 1, 3, 0]]);
  assert.deepEqual(report.errors.map(({ name, text }) => [name, text]), [["1603", "the run failed"], ["1920 (StartServices)", "a service did not start"]].sort((left) => left[0] === "1603" ? 1 : -1));
  assert.match(report.todo, /the system's event log says why/);
  assert.equal(report.facts.find(({ name }) => name === "Exit code")?.value, "1603");
  assert.doesNotMatch(causesOf(report).join(" "), /before it ran an action/);
  return report;
}

const encodings = new Map(Object.entries(LANGUAGES).map(([name, words]) => [name, encoded(installation(words), words.pages[0])]));

describe("the code page of a text in 8 bits", () => {
  for (const [name, words] of Object.entries(LANGUAGES)) {
    for (const page of words.pages) {
      it(`${name}: ${page}`, async () => {
        const text = installation(words);
        /** @type {string[]} */
        const lines = [];
        const { encoding } = await readLines(source(encoded(text, page)), (line) => lines.push(line));
        assert.equal(encoding, page);
        assert.deepEqual(lines, text.split("\r\n").slice(0, -1));
      });
    }
  }

  it("has the second bytes that could be taken for signs", () => {
    for (const [text, page, bytes] of /** @type {[string, string, number[]][]} */ ([["表示ソ能ポ", "shift_jis", [0x95, 0x5c, 0x8e, 0xa6, 0x83, 0x5c, 0x94, 0x5c, 0x83, 0x7c]],
      ["乗乕乚亄亅亇", "gb18030", [0x81, 0x5c, 0x81, 0x5b, 0x81, 0x5d, 0x81, 0x7b, 0x81, 0x7c, 0x81, 0x7d]], ["功能許蓋", "big5", [0xa5, 0x5c, 0xaf, 0xe0, 0xb3, 0x5c, 0xbb, 0x5c]],
      ["。：", "shift_jis", [0x81, 0x42, 0x81, 0x46]], ["。：", "gb18030", [0xa1, 0xa3, 0xa3, 0xba]], ["。：", "big5", [0xa1, 0x43, 0xa1, 0x47]], ["작업", "euc-kr", [0xc0, 0xdb, 0xbe, 0xf7]]])) {
      assert.deepEqual([...encoded(text, page)], bytes, page);
    }
  });

  it("is that of Western Europe for a single name", async () => {
    for (const name of ["Müller", "Jörg", "Zoé", "Señor Núñez", "Bjørn", "Ålesund", "Größe"]) {
      const { encoding } = await readLines(source(encoded(`Property(S): LogonUser = ${name}\r\n`, "windows-1252")), () => {});
      assert.equal(encoding, "windows-1252", name);
    }
  });

  it("is missing in a Node that was built without it: the structure is read nevertheless", async () => {
    const whole = globalThis.TextDecoder;
    globalThis.TextDecoder = class extends whole {
      /** @param {string} [label] @param {TextDecoderOptions} [options] */
      constructor(label, options) {
        if (label && !/^utf-|^windows-1252$/.test(label)) throw new RangeError(`no ${label}`);
        super(label, options);
      }
    };
    try {
      for (const name of Object.keys(LANGUAGES)) {
        const result = await explained(encodings.get(name) || new Uint8Array());
        assert.equal(result.encoding, "windows-1252");
        check(result);
      }
    } finally {
      globalThis.TextDecoder = whole;
    }
  });

  it("is UTF-8 also if a few bytes of it are wrong", async () => {
    const text = Buffer.from(installation(LANGUAGES.Japanese));
    /** @type {string[]} */
    const lines = [];
    const { encoding } = await readLines(source(new Uint8Array(Buffer.concat([text, Buffer.from([0x41, 0xff, 0x42, 0x0a])]))), (line) => lines.push(line));
    assert.equal(encoding, "utf-8");
    assert.equal(lines[lines.length - 1], "A\ufffdB");
    assert.match(lines[0], /^=== 詳細ログの記録開始/);
  });
});

describe("an installation that fails is the same", () => {
  for (const [name, words] of Object.entries(LANGUAGES)) {
    it(`in ${name}`, async () => {
      const report = check(await explained(utf16(installation(words))));
      assert.ok(causesOf(report).join(" ").includes(words.text.slice(0, 40)));
      for (const page of words.pages) {
        const { log, ...rest } = await explained(encoded(installation(words), page));
        const other = check({ log, ...rest });
        assert.deepEqual(other, report);
        assert.equal(other.facts.find((each) => each.name === "Command line")?.value, `DIR_SERVER=C:\\${words.folder}\\[x]{y}| CURRENTDIRECTORY=C:\\Users\\${words.user} CLIENTUILEVEL=3`);
        assert.deepEqual(other.silent.map(({ values }) => values), [[{ name: "DIR_PROGRAMS64", value: `C:\\${words.folder}\\` }]]);
        assert.doesNotMatch(JSON.stringify(log.masked()), new RegExp(`Users\\\\${words.user}`));
      }
    });

    it(`in ${name}, read in a wrong code page`, async () => {
      for (const page of words.pages) {
        // What a viewer that knows only Western Europe has saved again, and what a Node without the code page reads.
        const text = new TextDecoder("windows-1252").decode(encoded(installation(words), page), { stream: true });
        check(await explained(utf16(text)));
      }
    });

    it(`in ${name}, with lines of actions that nobody knows`, async () => {
      const { reports: [report] } = await explained(utf16(installation(words, (line) => line.replace(/\d\d:\d\d:\d\d/, "--"))));
      assert.equal(report.outcome, "failed");
      assert.doesNotMatch(causesOf(report).join(" "), /before it ran an action/);
      assert.match(causesOf(report)[0], /^The installer answered 1603\. The log does not show which action failed/);
      assert.ok(causesOf(report)[1].includes(`The installer said: ${words.error.replace("NUMBER", "1920")}`));
      assert.match(report.todo, /the system's event log says why/);
    });

    it(`in ${name}, with signs of full width and without blanks`, async () => {
      const text = installation(words, (line) => line.replace(/ ?: ?(?!\d\d|\\)/g, "：").replace(/ (?=\d{4}[。.]|NUMBER)/, ""));
      if (/[\u3000-\u9fff]/.test(words.error)) check(await explained(utf16(text)));
      else check(await explained(utf16(installation(words, (line) => line.replace(/ ?: ?(?!\d\d|\\)/g, "：")))));
    });
  }
});
