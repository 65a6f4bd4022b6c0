/**
 * Tests docs/explain.html in a real browser: node explain/tests/page/run.mjs TOOLS LOGS ARTIFACTS [--only=PROCESSOR] [WORDS]
 *
 * TOOLS is the folder of the npm packages of explain/package.json, LOGS the folder in which the install tests have left their
 * logs (build/artifacts, with folders install-*), ARTIFACTS the folder for the pictures. --only takes only the logs of a
 * processor, WORDS only the tests with these words in their names. Prints each test with its result,
 * and as the last line "N passed, N failed"; the exit status is 0 if all passed. The browser is Debian's chromium, or the
 * program that CHROMIUM names.
 */

import assert from "node:assert/strict";
import { existsSync, mkdirSync, mkdtempSync, readFileSync, readdirSync, rmSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { tmpdir } from "node:os";
import { basename, join, resolve } from "node:path";
import { fileURLToPath, pathToFileURL } from "node:url";
import { microsoft, sample, utf16 } from "../support.mjs";

const [tools, logs, artifacts] = process.argv.slice(2, 5).map((path) => resolve(path));
const options = process.argv.slice(5);
const processor = (options.find((word) => word.startsWith("--only=")) || "").slice("--only=".length);
const only = (options.find((word) => !word.startsWith("--only=")) || "").replace(/^\*|\*$/g, "");
const { chromium } = createRequire(join(tools, "package.json"))("playwright-core");
const PAGE = pathToFileURL(fileURLToPath(new URL("../../../docs/explain.html", import.meta.url))).href;
const LIVES = JSON.parse(readFileSync(new URL("lives.json", import.meta.url), "utf8"));

/** The least contrast of text to its ground, and of large text. */
const CONTRAST = 4.5;
const LARGE_CONTRAST = 3;
/** The longest time in milliseconds for which the page may not answer while it reads a large log. */
const FROZEN = 700;
const LARGE_LIMIT = 5000;

/** @type {[string, (page: any) => Promise<void>][]} */
const tests = [];
/** @param {string} name @param {(page: any) => Promise<void>} body */
const test = (name, body) => tests.push([name, body]);

const folder = mkdtempSync(join(tmpdir(), "hx-page-"));
/** @param {string} name @param {string | Uint8Array} content */
function file(name, content) {
  const path = join(folder, name);
  writeFileSync(path, typeof content === "string" ? utf16(content) : content);
  return path;
}
/** @param {string} name */
const sampleFile = (name) => file(`${name}.log`, name.startsWith("wine") ? Buffer.from(sample(name)) : sample(name));

/** Opens files, and waits until each is explained. @param {any} page @param {string[]} paths */
async function open(page, ...paths) {
  const before = await page.locator("nav .file").count();
  await page.setInputFiles("#files", paths);
  await page.waitForFunction((/** @type {number} */ count) => document.querySelectorAll("nav .file").length === count && !document.querySelector(".job"), before + paths.length, { timeout: 60000 });
}

/** @param {any} page @param {string} name */
const picture = (page, name) => page.screenshot({ path: join(artifacts, `${name}.png`), fullPage: true });

// ---- what the page shows

test("the page says what it is, and that nothing leaves the machine", async (page) => {
  assert.equal(await page.title(), "Explain an installation log - hxsetup");
  assert.match(await page.locator(".private").textContent(), /Nothing leaves this machine/);
  for (const theme of ["light", "dark"]) {
    await page.emulateMedia({ colorScheme: theme });
    await picture(page, `empty-${theme}`);
  }
});

test("a run that failed: verdict, cause, advice, facts", async (page) => {
  await open(page, sampleFile("server-rolled-back"));
  assert.equal(await page.locator(".sentence").textContent(), "The upgrade of Vantor Server 1.0.0 failed and was rolled back.");
  assert.match(await page.locator(".verdict").textContent(), /The first action that failed is CustomAction17\.Judge/);
  assert.match(await page.locator(".verdict .advice").textContent(), /1603: it did not complete \(no "dbcon_completed.txt"\)/);
  assert.match(await page.locator(".facts").textContent(), /Vantor Server.*1603/s);
  assert.equal(await page.locator(".verdict a").first().getAttribute("href"), "server-upgrade.md#how-an-administrator-recovers");
  for (const theme of ["light", "dark"]) {
    await page.emulateMedia({ colorScheme: theme });
    await picture(page, `failed-${theme}`);
  }
});

test("the course has the lanes of the processes, marks what is the library's and what failed", async (page) => {
  await open(page, sampleFile("client-upgraded-german"), sampleFile("server-rolled-back"));
  await page.locator("nav .run").last().click();
  assert.deepEqual(await page.locator(".lane-head").allTextContents(), ["Server", "Script", "Rollback"]);
  assert.match(await page.locator(".step.bad .name").last().textContent(), /CustomAction17\.Judge/);
  assert.ok(await page.locator(".step.own").count() >= 7);
  const folded = await page.locator(".fold").count();
  assert.ok(folded > 0);
  await page.getByRole("button", { name: "Show all actions" }).click();
  assert.equal(await page.locator(".fold").count(), 0);
  await page.locator("nav .run").first().click();
  assert.deepEqual(await page.locator(".lane-head").allTextContents(), ["Client", "Server", "Script"]);
});

test("an action of the course, a line and the cause lead to their lines", async (page) => {
  await open(page, sampleFile("server-rolled-back"));
  await page.locator(".step", { hasText: "CustomAction17.Judge" }).last().click();
  await page.locator(".log .row.here").waitFor();
  assert.match(await page.locator(".log .row.here").textContent(), /ActionStart\(Name=CustomAction17\.Judge/);
  await page.getByRole("button", { name: "show line 32" }).click();
  await page.waitForFunction(() => /could not grant right/.test(document.querySelector(".log .row.here")?.textContent || ""));
});

test("each line of the library has its meaning, codes by name, what was given, and a link", async (page) => {
  await open(page, file("lines.log", microsoft("CustomAction23", ["Hx Setup Log: failure 2245 (0x000008C5) adding account", "Hx Setup Log: no service account, using LocalSystem"],
    { properties: { PROP_ACCOUNTTYPE: "1", PROP_ACCOUNTID: "meter", ProductName: "Vantor Server", ProductVersion: "1.0.0" } })));
  const said = page.locator(".said").first();
  assert.match(await said.textContent(), /NERR_PasswordTooShort/);
  assert.equal(await said.locator(".see a").getAttribute("href"), "troubleshooting.md#creating-the-services-account");
  assert.match(await page.locator(".group .values").textContent(), /PROP_ACCOUNTIDmeter/);
  await page.locator(".said .badge").first().waitFor();
  assert.deepEqual(await page.locator(".said .badge").allTextContents(), ["Look at this", "Look at this"]);
});

test("several logs and several runs are in the list, and can be removed", async (page) => {
  await open(page, sampleFile("client-stopped"), sampleFile("client-upgraded-german"), sampleFile("not-started"));
  assert.equal(await page.locator("nav .file").count(), 3);
  assert.equal(await page.locator("nav .run").count(), 5);
  assert.equal(await page.locator("nav .run[aria-current=true]").count(), 1);
  await page.getByRole("button", { name: "Remove client-stopped.log" }).click();
  assert.equal(await page.locator("nav .file").count(), 2);
  for (let left = 2; left > 0; left -= 1) await page.locator("nav .file button").first().click();
  assert.equal(await page.locator("#columns").isVisible(), false);
  assert.equal(await page.locator(".pick").textContent(), "Drop logs here, or choose them");
});

test("a file can be dropped", async (page) => {
  const data = await page.evaluateHandle((/** @type {string} */ text) => {
    const transfer = new DataTransfer();
    transfer.items.add(new File([text], "dropped.log"));
    return transfer;
  }, sample("wine-client-stopped"));
  await page.dispatchEvent("body", "drop", { dataTransfer: data });
  await page.locator(".sentence").waitFor();
  assert.equal(await page.locator(".sentence").textContent(), "The upgrade of Ostrel 1.0.1 failed.");
});

// ---- searching, masking, copying, printing

test("the search finds, marks and steps; the filter shows the library's lines", async (page) => {
  await open(page, sampleFile("server-rolled-back"));
  await page.locator("input[type=search]").fill("customaction23");
  await page.locator(".log-tools [role=status]", { hasText: "12 found" }).waitFor();
  await page.locator("input[type=search]").press("Enter");
  const first = Number(await page.locator(".log .row.here .number").textContent());
  await page.locator("input[type=search]").press("Enter");
  await page.waitForFunction((/** @type {number} */ line) => Number(document.querySelector(".log .row.here .number")?.textContent) > line, first);
  assert.ok(await page.locator(".log mark").count() > 0);
  await page.locator(".log-tools select").selectOption("found");
  await page.waitForFunction(() => document.querySelectorAll(".log .row").length === 12);
  await page.locator(".log-tools select").selectOption("library");
  await page.waitForFunction(() => document.querySelectorAll(".log .row").length === 3);
  await page.locator("input[type=search]").fill("not in this log");
  await page.locator(".log-tools [role=status]", { hasText: "not found" }).waitFor();
});

test("names are masked on request, secrets always, in all that is shown and copied", async (page) => {
  await open(page, sampleFile("client-stopped"));
  const all = () => page.evaluate(() => document.body.innerText);
  assert.doesNotMatch(await all(), /Winter-2026/);
  assert.match(await all(), /auditor/);
  await page.getByLabel("Mask names of users, hosts and domains").check();
  await page.waitForFunction(() => !/auditor|vantor\.meter/.test(document.body.innerText));
  for (const button of ["Copy a summary", "Copy everything"]) {
    await page.getByRole("button", { name: button }).click();
    await page.locator("#status", { hasText: /Copied|copy it/ }).waitFor();
    const copied = await page.evaluate(() => document.querySelector("textarea")?.value || navigator.clipboard.readText());
    assert.match(copied, /The upgrade of Ostrel 1\.0\.1 failed\./);
    assert.doesNotMatch(copied, /Winter-2026|auditor|METER|vantor\.meter/);
  }
});

test("a log that is opened, searched or removed under the mask shows no name", async (page) => {
  /** Everything that the page shows or says to a screen reader. */
  const all = () => page.evaluate(() => `${document.title} ${document.body.innerText} ${[...document.querySelectorAll("*")].map((each) => [...each.attributes].map(({ value }) => value).join(" ")).join(" ")}`);
  const names = /jdoe|PC-0815|auditor|METER\b|vantor\.meter/;
  await open(page, file("auditor-install.log", sample("client-stopped")));
  await page.locator("#status", { hasText: "auditor-install.log is explained" }).waitFor();
  await page.getByLabel("Mask names of users, hosts and domains").check();
  await page.waitForFunction(() => !/auditor/.test(document.body.innerText));
  assert.doesNotMatch(await all(), names);
  await open(page, file("jdoe_PC-0815.log", sample("client-stopped")));
  await page.locator("#status", { hasText: /USER-\d_HOST-\d\.log is explained/ }).waitFor();
  assert.doesNotMatch(await all(), names);
  await page.locator("nav .run").last().click();
  await page.locator("input[type=search]").fill("auditor");
  await page.locator(".log-tools [role=status]", { hasText: "not found" }).waitFor();
  await page.locator("input[type=search]").fill("user-1");
  await page.locator(".log-tools [role=status]", { hasText: /^[1-9]\d* found/ }).waitFor();
  await page.emulateMedia({ media: "print" });
  assert.doesNotMatch(await all(), names);
  await page.emulateMedia({ media: "screen" });
  await page.getByLabel("Mask names of users, hosts and domains").uncheck();
  await page.waitForFunction(() => /auditor-install\.log/.test(document.body.innerText));
});

test("the print view has all that is folded, and no controls", async (page) => {
  await open(page, sampleFile("server-rolled-back"));
  await page.emulateMedia({ media: "print", colorScheme: "light" });
  await page.evaluate(() => window.dispatchEvent(new Event("beforeprint")));
  assert.equal(await page.locator("header").isVisible(), false);
  assert.equal(await page.locator(".log").isVisible(), false);
  assert.equal(await page.locator("button:visible:not(.step)").count(), 0);
  assert.equal(await page.locator(".verdict").isVisible(), true);
  assert.equal(await page.evaluate(() => [...document.querySelectorAll("details")].every((each) => each.open)), true);
  await picture(page, "print");
  await page.evaluate(() => window.dispatchEvent(new Event("afterprint")));
  assert.equal(await page.evaluate(() => [...document.querySelectorAll("details")].every((each) => each.open)), false);
  await page.pdf({ path: join(artifacts, "print.pdf"), format: "A4" });
});

test("the colours can be chosen", async (page) => {
  const ground = () => page.evaluate(() => getComputedStyle(document.body).backgroundColor);
  await page.emulateMedia({ colorScheme: "light" });
  const light = await ground();
  await page.locator("#theme").selectOption("dark");
  const dark = await ground();
  assert.notEqual(dark, light);
  await page.emulateMedia({ colorScheme: "dark" });
  await page.locator("#theme").selectOption("light");
  assert.equal(await ground(), light);
});

// ---- people who do not see, or use no mouse

test("everything has a name and a contrast that suffices, in both themes", async (page) => {
  await open(page, sampleFile("client-upgraded-german"), sampleFile("server-rolled-back"), sampleFile("wine-server-rolled-back"));
  await page.evaluate(() => document.querySelectorAll("details").forEach((each) => { each.open = true; }));
  for (const theme of ["light", "dark"]) {
    await page.emulateMedia({ colorScheme: theme });
    for (const run of await page.locator("nav .run").all()) {
      await run.click();
      assert.deepEqual(await page.evaluate(weakTexts, [CONTRAST, LARGE_CONTRAST]), []);
      assert.deepEqual(await page.evaluate(nameless), []);
    }
  }
  const headings = await page.evaluate(() => [...document.querySelectorAll("h1, h2, h3, h4")].map((each) => Number(each.tagName[1])));
  headings.forEach((/** @type {number} */ level, /** @type {number} */ index) => assert.ok(index === 0 ? level === 1 : level <= headings[index - 1] + 1, `${headings}`));
});

test("the keyboard reaches everything", async (page) => {
  await open(page, sampleFile("server-rolled-back"));
  await page.evaluate(() => /** @type {HTMLElement} */ (document.activeElement)?.blur());
  const reached = new Set();
  for (let press = 0; press < 120; press += 1) {
    await page.keyboard.press("Tab");
    reached.add(await page.evaluate(() => document.activeElement ? `${document.activeElement.tagName}.${document.activeElement.className}#${document.activeElement.id}` : ""));
  }
  for (const wanted of ["A.skip#", "SELECT.#theme", "INPUT.#files", "BUTTON.run#", "INPUT.#mask", "BUTTON.step own bad#", "BUTTON.line-link#", "INPUT.#", "DIV.log#"]) assert.ok(reached.has(wanted), `${wanted} in ${[...reached]}`);
  await page.locator(".step.bad").last().focus();
  await page.keyboard.press("Enter");
  await page.waitForFunction(() => document.activeElement?.className === "log");
});

test("a narrow window shows it too", async (page) => {
  await page.setViewportSize({ width: 420, height: 800 });
  await open(page, sampleFile("server-rolled-back"));
  assert.ok(await page.evaluate(() => document.documentElement.scrollWidth <= 420));
  await picture(page, "narrow");
});

// The picture is the one of README.md: after a change of the page copy it to docs/explain.png.
test("several logs are listed, with the runs in them", async (page) => {
  await page.setViewportSize({ width: 1180, height: 1500 });
  await open(page, ...["server-rolled-back", "client-upgraded-german", "client-stopped"].map(sampleFile));
  assert.deepEqual(await page.locator("nav .run").allTextContents(), ["The upgrade of Vantor Server 1.0.0 failed and was rolled back.",
    "The upgrade of Ostrel 1.0.1 succeeded.", "The upgrade's own removal of Ostrel 1.0.0 succeeded.", "The upgrade of Ostrel 1.0.1 failed."]);
  await page.locator("nav .run").first().click();
  assert.equal(await page.locator("main .sentence").textContent(), "The upgrade of Vantor Server 1.0.0 failed and was rolled back.");
  await page.screenshot({ path: join(artifacts, "readme.png") });
});

// ---- files that are not as they should be

test("a hostile log stays a text", async (page) => {
  const markup = "<img src=x onerror=\"document.title='hostile'\"><script>document.title='hostile'</script>";
  await open(page, file("<b>hostile.log", microsoft("CustomAction23", [`Hx Setup Log: creating local service account ${markup}`, `Error 1920. ${markup}`, "Hx Setup Log: a\ud800\u202eb",
    "`code` [a link](javascript:alert(1)) [b](//example.org/x)"], { properties: { ProductName: markup, ProductVersion: "1", PROP_ACCOUNTNAME: markup }, result: 3 })));
  await page.locator(".log .row").first().waitFor();
  assert.equal(await page.title(), "Explain an installation log - hxsetup");
  assert.equal(await page.locator("main img, main script, nav b").count(), 0);
  assert.match(await page.locator(".sentence").textContent(), /<img src=x/);
  assert.deepEqual(await page.evaluate(() => [...document.querySelectorAll("main a")].map((each) => each.getAttribute("href")).filter((target) => !/^[\w./-]*\.md#[\w-]+$/.test(target || ""))), []);
});

test("a file that is not a log gets a clear word", async (page) => {
  await open(page, file("package.msi", new Uint8Array([0xd0, 0xcf, 0x11, 0xe0, 0xa1, 0xb1, 0x1a, 0xe1, 0, 0])));
  assert.match(await page.locator("main").textContent(), /This is an installer package/);
  await open(page, file("empty.log", new Uint8Array()), file("letter.txt", "Dear all,\r\n"));
  assert.match(await page.locator("main").textContent(), /This file is empty|This is not a log of Windows Installer/);
});

test("a log of 50 MB opens in less than 5 s, does not freeze the page, and can be cancelled", async (page) => {
  const body = sample("server-rolled-back");
  const at = body.indexOf("MSI (s) (50:20) [09:10:00:300]");
  const filler = "MSI (s) (50:20) [09:10:01:000]: Executing op: FileCopy(SourceName=vt.exe,SourceCabKey=vt.exe,DestName=vt.exe,Attributes=512)\r\n".repeat(400);
  const large = file("large.log", body.slice(0, at) + filler.repeat(Math.ceil((25 * 1024 * 1024) / filler.length)) + body.slice(at));
  await page.evaluate(watch);
  const began = Date.now();
  await open(page, large);
  const took = Date.now() - began;
  assert.ok(took < LARGE_LIMIT, `${took} ms`);
  assert.match(await page.locator(".verdict").textContent(), /CustomAction17\.Judge/);
  const longest = await page.evaluate(() => /** @type {any} */ (window).longest);
  assert.ok(longest < FROZEN, `${longest} ms`);
  await page.getByRole("button", { name: /^show line \d+$/ }).last().click();
  await page.locator(".log .row.here").waitFor();
  await page.setInputFiles("#files", large);
  await page.getByRole("button", { name: "Cancel" }).click();
  await page.locator("#status", { hasText: "large.log: cancelled." }).waitFor();
  assert.equal(await page.locator("nav .file").count(), 1);
});

test("a log with very many actions and lines does not freeze the page", async (page) => {
  const action = microsoft("CustomAction27", ["Hx Setup Log: Task installed"]).split("\r\n").slice(3, 8).join("\r\n");
  const silent = microsoft("CustomAction3", []).split("\r\n").slice(3, 7).join("\r\n");
  const whole = microsoft("CustomAction1", [], { result: 3 });
  const at = whole.indexOf("MSI (s) (2C:1C) [10:00:00:000]: Doing action: CustomAction1");
  await page.evaluate(watch);
  await open(page, file("many.log", `${whole.slice(0, at)}${`${action}\r\n${silent}\r\n`.repeat(15000)}${whole.slice(at)}`));
  assert.match(await page.locator(".verdict").textContent(), /CustomAction1, which closes the desktop tools/);
  assert.equal(await page.locator(".said").count(), 300);
  assert.match(await page.locator(".step.bad").last().textContent(), /CustomAction1/);
  assert.deepEqual((await page.locator(".more").allTextContents()).map((/** @type {string} */ text) => text.split(" ")[0]), ["29,701", "14,700", "14,701"]);
  await page.getByRole("button", { name: "Show all actions" }).click();
  const longest = await page.evaluate(() => /** @type {any} */ (window).longest);
  assert.ok(longest < 3 * FROZEN, `${longest} ms`);
});

// ---- the logs of the install tests

const machines = existsSync(logs) ? readdirSync(logs).filter((name) => /^install-(?:x64|arm64)/.test(name) && name.includes(processor)).map((name) => join(logs, name)) : [];
// Of a test that ran again, the second log counts.
const left = machines.flatMap((machine) => readdirSync(machine).filter((name) => name.endsWith(".log") && !existsSync(join(`${machine}-again`, name))).map((name) => join(machine, name)));

test("the install tests have left logs, with lives, upgrades and rollbacks", async () => {
  assert.ok(left.length > 0, `${logs} has no logs: run ./hx test install first`);
  const names = new Set(left.map((path) => basename(path, ".log")));
  for (const wanted of Object.keys(LIVES)) assert.ok(names.has(wanted), `the install tests left no log of ${wanted}`);
});

for (const machine of machines) {
  test(`the logs in ${basename(machine)}: every line is explained, verdict and failing action are right`, async (page) => {
    const paths = left.filter((path) => path.startsWith(`${machine}/`));
    for (let start = 0; start < paths.length; start += 20) {
      const some = paths.slice(start, start + 20);
      for (const path of some) {
        await open(page, path);
        const name = basename(path, ".log");
        const shown = await page.evaluate(() => ({
          runs: document.querySelectorAll("nav .run").length, sentence: document.querySelector(".sentence")?.textContent || "",
          outcome: document.querySelector(".verdict")?.className.split(" ").pop(), cause: document.querySelector(".cause")?.textContent || "",
          said: [...document.querySelectorAll(".said")].map((each) => each.textContent || ""),
        }));
        const { ended, failed, said, back } = truth(path);
        assert.ok(ended, `${name} has no end`);
        assert.equal(shown.runs, 1, name);
        assert.equal(shown.outcome, failed ? "failed" : "success", `${name}: ${shown.sentence}`);
        assert.equal(shown.sentence.includes("rolled back"), back, `${name}: ${shown.sentence}`);
        if (failed) assert.match(shown.cause, new RegExp(`^The first action that failed is ${failed.replace(/\./g, "\\.")}[.,]`), name);
        assert.equal(shown.said.length, said, name);
        for (const text of shown.said) {
          assert.match(text, /Meaning: ./, `${name}: ${text}`);
          assert.doesNotMatch(text, /not one of the library that this page knows/, `${name}: ${text}`);
        }
        if (LIVES[name]) {
          assert.equal(shown.sentence, LIVES[name][0], name);
          assert.equal(failed, LIVES[name][1], name);
        }
        await page.locator("nav .file button").click();
      }
    }
  });
}

/**
 * What a person reads in a log of Wine's engine: the lines directly above the end of the run that end with 0, and whether
 * actions follow after it.
 * @param {string} path
 */
function truth(path) {
  const lines = readFileSync(path, "latin1").split("\n");
  const ends = lines.flatMap((line, index) => /ended .*: INSTALL\. Return value \d\.$/.test(line) ? [index] : []);
  let failed = "";
  if (!ends.length) return { ended: false, failed, said: 0, back: false };
  if (!lines[ends[0]].endsWith(" 1.")) {
    for (let index = ends[0] - 1; ; index -= 1) {
      const match = /^Action ended [\d:]+: (\S+)\. Return value 0\.$/.exec(lines[index]);
      if (!match) break;
      failed = match[1];
    }
  }
  return { ended: true, failed, said: lines.filter((line) => /^(?:Hx|JN) Setup Log: /.test(line)).length, back: lines.slice(ends[ends.length - 1]).some((line) => line.startsWith("Action start ")) };
}

// ---- in the page

/** The texts whose contrast does not suffice. @param {[number, number]} least */
function weakTexts([least, leastLarge]) {
  /** @param {string} color */
  const channels = (color) => (color.match(/[\d.]+/g) || []).map(Number);
  /** @param {number[]} rgb */
  const light = ([r, g, b]) => [r, g, b].map((value) => value / 255).map((value) => value <= 0.03928 ? value / 12.92 : ((value + 0.055) / 1.055) ** 2.4)
    .reduce((sum, value, index) => sum + value * [0.2126, 0.7152, 0.0722][index], 0);
  const weak = [];
  for (const each of document.querySelectorAll("body *")) {
    const own = [...each.childNodes].some((node) => node.nodeType === 3 && (node.textContent || "").trim());
    const style = getComputedStyle(each);
    if (!own || !(/** @type {any} */ (each)).checkVisibility() || each.closest(".skip, noscript, script, style")) continue;
    let ground = [255, 255, 255];
    for (let above = /** @type {Element | null} */ (each); above; above = above.parentElement) {
      const color = channels(getComputedStyle(above).backgroundColor);
      if (color.length === 3 || color[3] === 1) {
        ground = color;
        break;
      }
    }
    const [upper, lower] = [light(channels(style.color)), light(ground)].sort((left, right) => right - left);
    const large = parseFloat(style.fontSize) >= 18.66;
    const contrast = (upper + 0.05) / (lower + 0.05);
    if (contrast < (large ? leastLarge : least)) weak.push(`${each.tagName}.${each.className}: ${(each.textContent || "").slice(0, 40)} (${contrast.toFixed(2)})`);
  }
  return weak;
}

/** Notes in the page the longest time for which it did not answer. */
function watch() {
  const scope = /** @type {any} */ (window);
  [scope.longest, scope.tick] = [0, performance.now()];
  setInterval(() => {
    scope.longest = Math.max(scope.longest, performance.now() - scope.tick);
    scope.tick = performance.now();
  }, 10);
}

/** The controls and parts without a name. */
function nameless() {
  return [...document.querySelectorAll("button, input, select, a, nav, [role=list], section, progress, textarea")].filter((each) => {
    const labels = /** @type {any} */ (each).labels;
    return !(each.getAttribute("aria-label") || each.getAttribute("aria-labelledby") || (each.textContent || "").trim() && each.tagName !== "SELECT" || labels && labels.length);
  }).map((each) => each.outerHTML.slice(0, 100));
}

// ---- running them

mkdirSync(artifacts, { recursive: true });
const browser = await chromium.launch({ executablePath: process.env.CHROMIUM || "/usr/bin/chromium", args: ["--no-sandbox", "--disable-gpu"] });
let failures = 0;
for (const [name, body] of tests.filter(([each]) => !only || each.includes(only))) {
  const context = await browser.newContext({ viewport: { width: 1320, height: 900 }, permissions: ["clipboard-read", "clipboard-write"] });
  const page = await context.newPage();
  /** @type {string[]} */
  const wrong = [];
  page.on("console", (/** @type {any} */ message) => { if (["error", "warning"].includes(message.type())) wrong.push(message.text()); });
  page.on("pageerror", (/** @type {Error} */ error) => wrong.push(String(error)));
  page.on("dialog", (/** @type {any} */ dialog) => wrong.push(`dialog: ${dialog.message()}`));
  // Nothing may be asked for but the page itself and its worker.
  context.on("request", (/** @type {any} */ request) => { if (request.url() !== PAGE && !request.url().startsWith("blob:")) wrong.push(`request: ${request.url()}`); });
  const began = Date.now();
  try {
    await page.goto(PAGE);
    await body(page);
    assert.deepEqual(wrong, []);
    console.log(`ok ${name} (${((Date.now() - began) / 1000).toFixed(1)} s)`);
  } catch (error) {
    failures += 1;
    console.log(`FAILED ${name}: ${error instanceof Error ? error.message : error}${wrong.length ? `\n${wrong.join("\n")}` : ""}`);
    await page.screenshot({ path: join(artifacts, `failure-${failures}.png`) }).catch(() => {});
  }
  await context.close();
}
await browser.close();
rmSync(folder, { recursive: true });
const count = tests.filter(([each]) => !only || each.includes(only)).length;
console.log(`${count - failures} passed, ${failures} failed`);
process.exitCode = failures ? 1 : 0;
