/**
 * The lines of a log in a box that scrolls: only the rows that are visible are elements.
 */

import { element } from "./dom.mjs";
import { WORDS } from "../source/words.mjs";

const ROW = 20;
/** Browsers do not make elements higher than some 16 million pixels. */
const HIGHEST = 12000000;
const AROUND = 20;

export class Viewer {
  /**
   * @param {(question: any) => Promise<any>} ask asks the worker of the log
   * @param {() => boolean} masked names are to be masked
   */
  constructor(ask, masked) {
    this.ask = ask;
    this.masked = masked;
    this.count = 0;
    /** The place of the first row that is an element. */
    this.first = -1;
    this.here = 0;
    this.wanted = "";
    this.asked = 0;
    /** @type {number[]} the lines that the search has found */
    this.found = [];
    const words = WORDS.page;
    this.room = element("div.room", { role: "presentation" });
    this.box = element("div.log", { tabindex: "0", role: "list", "aria-label": words.logLabel, onscroll: () => this.draw() }, this.room);
    this.search = /** @type {HTMLInputElement} */ (element("input", { type: "search", "aria-label": words.searchLabel, placeholder: words.searchLabel,
      oninput: () => this.changed(), onkeydown: (/** @type {KeyboardEvent} */ event) => {
        if (event.key === "Enter") this.step(event.shiftKey ? -1 : 1);
      } }));
    this.filter = /** @type {HTMLSelectElement} */ (element("select", { onchange: () => this.choose() },
      ...Object.entries(words.filters).map(([value, text]) => element("option", { value }, text))));
    this.state = element("span", { role: "status", "aria-live": "polite" });
    this.tools = element("div.log-tools", { role: "search" }, this.search,
      element("button", { type: "button", onclick: () => this.step(-1) }, words.previous), element("button", { type: "button", onclick: () => this.step(1) }, words.next),
      element("label", {}, `${words.filter} `, this.filter), this.state);
    this.made = element("section.card.log-card", { "aria-label": WORDS.headings.log }, element("h2", {}, WORDS.headings.log), this.tools, this.box);
  }

  /** Shows nothing until the lines are chosen again. */
  forget() {
    this.asked += 1;
    this.first = -1;
    this.room.replaceChildren();
  }

  changed() {
    clearTimeout(this.timer);
    this.timer = setTimeout(() => this.choose(), 200);
  }

  /** Asks for the lines of the filter and the search, and shows them. */
  async choose() {
    const { count, found } = await this.ask({ ask: "choose", filter: this.filter.value, search: this.search.value, masked: this.masked() });
    this.found = found;
    this.wanted = this.search.value.toLowerCase();
    this.count = count;
    this.state.textContent = this.search.value ? WORDS.page.found(found.length, found.length >= 5000) : count ? "" : WORDS.page.none;
    this.room.style.height = `${Math.min(count * ROW, HIGHEST)}px`;
    await this.draw(true);
  }

  /** The rows for each pixel that the box scrolls, more than one row of a height only in a very long log. */
  get scale() {
    return Math.max(1, (this.count * ROW) / HIGHEST);
  }

  /** @param {boolean} [again] */
  async draw(again = false) {
    const first = Math.max(0, Math.floor((this.box.scrollTop * this.scale) / ROW) - AROUND);
    const count = Math.ceil(this.box.clientHeight / ROW) + 2 * AROUND;
    if (!again && this.first === first) return;
    const asked = (this.asked += 1);
    this.first = first;
    const { rows } = await this.ask({ ask: "rows", from: first, count, masked: this.masked() });
    if (asked !== this.asked) return;
    const offset = this.box.scrollTop - (this.box.scrollTop * this.scale) % ROW;
    const top = this.scale > 1 ? offset - Math.min(AROUND, Math.floor((this.box.scrollTop * this.scale) / ROW)) * ROW : first * ROW;
    this.room.replaceChildren(...rows.map((/** @type {any} */ row, /** @type {number} */ index) => this.row(row, first + index, top + index * ROW)));
  }

  /** @param {{ number: number, text: string, kind: string }} row @param {number} place @param {number} top */
  row({ number, text, kind }, place, top) {
    const made = element(`div.row${kind ? `.${kind}` : ""}${number === this.here ? ".here" : ""}`, { role: "listitem", "aria-setsize": this.count, "aria-posinset": place + 1 },
      element("span.number", {}, String(number)));
    made.style.top = `${top}px`;
    const at = this.wanted ? text.toLowerCase().indexOf(this.wanted) : -1;
    if (at < 0) made.append(text);
    else made.append(text.slice(0, at), element("mark", {}, text.slice(at, at + this.wanted.length)), text.slice(at + this.wanted.length));
    return made;
  }

  /** @param {number} way 1 for the next line that was found, -1 for the one before */
  step(way) {
    if (!this.found.length) return;
    const next = way > 0 ? this.found.find((line) => line > this.here) : [...this.found].reverse().find((line) => line < this.here);
    void this.show(next || this.found[way > 0 ? 0 : this.found.length - 1], false);
  }

  /**
   * Shows a line in the middle of the box.
   * @param {number} line @param {boolean} [focus] moves the focus there
   */
  async show(line, focus = true) {
    let { place } = await this.ask({ ask: "place", line });
    if (place < 0) {
      this.filter.value = "all";
      await this.choose();
      place = line - 1;
    }
    this.here = line;
    if (focus) {
      this.made.scrollIntoView({ block: "nearest" });
      this.box.focus({ preventScroll: true });
    }
    this.box.scrollTop = Math.max(0, (place * ROW) / this.scale - this.box.clientHeight / 2);
    await this.draw(true);
  }
}
