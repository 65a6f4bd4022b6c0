/** The rules for explain/: those that find mistakes, none of form. */

const globals = (/** @type {string[]} */ ...names) => Object.fromEntries(names.map((name) => [name, "readonly"]));
const everywhere = globals("TextDecoder", "TextEncoder", "URL", "Blob", "File", "console", "setTimeout", "clearTimeout", "setInterval", "performance");

export default [
  {
    files: ["**/*.mjs"],
    languageOptions: {
      ecmaVersion: 2022, sourceType: "module",
      globals: { ...everywhere, ...globals("process", "Buffer", "document", "window", "navigator", "Worker", "KNOWLEDGE", "globalThis", "DataTransfer", "Event", "getComputedStyle") },
    },
    linterOptions: { reportUnusedDisableDirectives: "error" },
    rules: {
      "array-callback-return": "error", "constructor-super": "error", "eqeqeq": "error", "for-direction": "error", "getter-return": "error", "no-async-promise-executor": "error",
      "no-case-declarations": "error", "no-class-assign": "error", "no-compare-neg-zero": "error", "no-cond-assign": "error", "no-const-assign": "error", "no-constant-binary-expression": "error",
      "no-constant-condition": ["error", { checkLoops: false }], "no-control-regex": "error", "no-debugger": "error", "no-dupe-args": "error", "no-dupe-class-members": "error", "no-dupe-else-if": "error",
      "no-dupe-keys": "error", "no-duplicate-case": "error", "no-duplicate-imports": "error", "no-empty": "error", "no-empty-character-class": "error", "no-eval": "error", "no-fallthrough": "error",
      "no-func-assign": "error", "no-implied-eval": "error", "no-import-assign": "error", "no-inner-declarations": "error", "no-invalid-regexp": "error", "no-irregular-whitespace": "error", "no-loss-of-precision": "error",
      "no-misleading-character-class": "error", "no-new-func": "error", "no-new-native-nonconstructor": "error", "no-obj-calls": "error", "no-promise-executor-return": "error", "no-prototype-builtins": "error",
      "no-redeclare": "error", "no-regex-spaces": "error", "no-restricted-properties": ["error", ...["innerHTML", "outerHTML", "insertAdjacentHTML"].map((property) => ({ property, message: "Text of a log must only become a text node." }))],
      "no-self-assign": "error", "no-self-compare": "error", "no-setter-return": "error", "no-shadow-restricted-names": "error", "no-sparse-arrays": "error", "no-template-curly-in-string": "error", "no-this-before-super": "error",
      "no-undef": "error", "no-unexpected-multiline": "error", "no-unmodified-loop-condition": "error", "no-unreachable": "error", "no-unsafe-finally": "error", "no-unsafe-negation": "error", "no-unsafe-optional-chaining": "error",
      "no-unused-private-class-members": "error", "no-unused-vars": "error", "no-use-before-define": ["error", { functions: false, variables: false }], "no-useless-backreference": "error", "no-useless-escape": "error",
      "no-var": "error", "prefer-const": "error", "require-yield": "error", "use-isnan": "error", "valid-typeof": "error",
    },
  },
  { files: ["tests/**/*.mjs"], rules: { "no-restricted-properties": "off" } },
];
