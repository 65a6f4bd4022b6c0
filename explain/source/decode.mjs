/**
 * Reading a log: finds its encoding, decodes it piece by piece, and splits it into lines.
 */

import { Sample, codePageOf } from "./codepages.mjs";

/** @typedef {{ size: number, slice: (start: number, end: number) => Promise<Uint8Array> }} Source a file, in bytes */
/** @typedef {string} Encoding its name for TextDecoder, such as "utf-16le" */

/** The bytes that are read at once. */
const PIECE = 4 * 1024 * 1024;
/** The bytes at the beginning by which a file without a mark is judged. */
const HEAD = 64 * 1024;
/** The characters that are kept of a line. */
export const LONGEST_LINE = 20000;

/** The beginnings of files that are often taken for a log, with what they are. */
const OTHER_FILES = [
  { bytes: [0xd0, 0xcf, 0x11, 0xe0, 0xa1, 0xb1, 0x1a, 0xe1], what: "package" },
  { bytes: [0x50, 0x4b, 0x03, 0x04], what: "archive" },
  { bytes: [0x4d, 0x5a], what: "program" },
  { bytes: [0x25, 0x50, 0x44, 0x46], what: "document" },
];

/**
 * What a file is that is not a text.
 * @param {Uint8Array} head its first bytes
 * @returns {string} "package", "archive", "program", "document", "binary" or "" for a text
 */
export function otherFile(head) {
  const found = OTHER_FILES.find((file) => file.bytes.every((byte, index) => head[index] === byte));
  if (found) return found.what;
  if (encodingOf(head).startsWith("utf-16")) return "";
  let zeros = 0;
  for (const byte of head) if (byte === 0) zeros += 1;
  return zeros > head.length / 100 ? "binary" : "";
}

/**
 * The encoding by the mark at the beginning or, without one, by where the zeros are. "utf-8" may turn out to be an 8-bit
 * text later.
 * @param {Uint8Array} head the first bytes of the file
 * @returns {Encoding}
 */
export function encodingOf(head) {
  if (head[0] === 0xff && head[1] === 0xfe) return "utf-16le";
  if (head[0] === 0xfe && head[1] === 0xff) return "utf-16be";
  const zeros = [0, 0];
  for (let index = 0; index < head.length; index += 1) if (head[index] === 0) zeros[index % 2] += 1;
  const half = head.length / 2;
  if (half >= 2 && zeros[1] > half * 0.4 && zeros[0] < half * 0.1) return "utf-16le";
  if (half >= 2 && zeros[0] > half * 0.4 && zeros[1] < half * 0.1) return "utf-16be";
  return "utf-8";
}

/** Splits text that arrives in pieces into lines. A line ends with CR LF, LF or CR. */
export class Splitter {
  constructor() {
    /** The number of lines of which only the first LONGEST_LINE characters were kept. */
    this.cut = 0;
    /** @type {string} */
    this.rest = "";
    /** The rest of a line that is too long is being dropped. */
    this.dropping = false;
  }

  /**
   * Takes the next piece.
   * @param {string} text
   * @param {(line: string) => void} take is called with each line that is complete
   */
  push(text, take) {
    let from = 0;
    for (;;) {
      const end = text.indexOf("\n", from);
      if (end < 0) break;
      this.#line(text.slice(from, end), take);
      from = end + 1;
    }
    if (this.dropping) return;
    this.rest += text.slice(from);
    if (this.rest.length > LONGEST_LINE + 1 && !this.rest.slice(0, LONGEST_LINE + 1).includes("\r")) {
      this.rest = this.rest.slice(0, LONGEST_LINE);
      this.dropping = true;
    }
  }

  /**
   * Takes the end of the text.
   * @param {(line: string) => void} take
   */
  end(take) {
    if (this.rest !== "" || this.dropping) this.#line("", take);
  }

  /** @param {string} last @param {(line: string) => void} take */
  #line(last, take) {
    let line = this.dropping ? this.rest : this.rest + last;
    const dropped = this.dropping;
    this.rest = "";
    this.dropping = false;
    if (line.endsWith("\r")) line = line.slice(0, -1);
    if (line.includes("\r")) {
      for (const part of line.split("\r")) this.#keep(part, take, false);
    } else {
      this.#keep(line, take, dropped);
    }
  }

  /** @param {string} line @param {(line: string) => void} take @param {boolean} dropped */
  #keep(line, take, dropped) {
    if (line.length > LONGEST_LINE) {
      line = line.slice(0, LONGEST_LINE);
      dropped = true;
    }
    if (dropped) this.cut += 1;
    take(line);
  }
}

/**
 * Reads all lines of a file.
 * @param {Source} source
 * @param {(line: string) => void} take is called with each line
 * @param {(done: number) => void} [progress] is called with the part that is done, from 0 to 1
 * @returns {Promise<{ encoding: Encoding, cut: number, other: string }>} the number of lines that were too long, and what
 * the file is if it is not a text; then no line was taken
 */
export async function readLines(source, take, progress = () => {}) {
  const head = await source.slice(0, Math.min(HEAD, source.size));
  const other = otherFile(head);
  let encoding = encodingOf(head);
  if (other) return { encoding, cut: 0, other };
  if (encoding === "utf-8" && !(await isUtf8(source, progress))) encoding = codePageOf(await sampleOf(source));
  const decoder = new TextDecoder(encoding);
  const splitter = new Splitter();
  for (let start = 0; start < source.size; start += PIECE) {
    const end = Math.min(start + PIECE, source.size);
    splitter.push(decoder.decode(await source.slice(start, end), { stream: true }), take);
    progress(end / source.size);
  }
  splitter.push(decoder.decode(), take);
  splitter.end(take);
  return { encoding, cut: splitter.cut, other };
}

/** @param {Source} source @param {(done: number) => void} progress */
async function isUtf8(source, progress) {
  const decoder = new TextDecoder("utf-8", { fatal: true });
  try {
    for (let start = 0; start < source.size; start += PIECE) {
      decoder.decode(await source.slice(start, Math.min(start + PIECE, source.size)), { stream: true });
      progress(0);
    }
    // A log that was cut in the middle of a character is still a text in UTF-8.
    return true;
  } catch {
    return false;
  }
}

/** @param {Source} source @returns {Promise<Sample>} */
async function sampleOf(source) {
  const sample = new Sample();
  for (let start = 0; start < source.size && !sample.full; start += PIECE) {
    sample.add(await source.slice(start, Math.min(start + PIECE, source.size)));
  }
  return sample;
}
