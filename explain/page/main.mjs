/**
 * The page's script, which is also that of its workers. The page has the knowledge in KNOWLEDGE.
 */

import { startPage } from "./page.mjs";
import { startWorker } from "./worker.mjs";

if (typeof document === "undefined") startWorker(KNOWLEDGE);
else startPage((document.currentScript && document.currentScript.textContent) || "");
