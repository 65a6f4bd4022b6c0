/** The content of explain/knowledge.json, which tools/explain/page.py puts into the page's script. */
declare const KNOWLEDGE: any;
