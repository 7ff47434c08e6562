// Browser globals are named one by one: a name that is not here is a mistake.
const globals = (...names) => Object.fromEntries(names.map((name) => [name, "readonly"]));

const rules = {
    "eqeqeq": "error",
    "no-shadow": "error",
    "no-undef": "error",
    "no-unused-vars": ["error", { argsIgnorePattern: "^_" }],
    "no-use-before-define": ["error", { functions: false, classes: false, variables: false }],
    "no-var": "error",
    "prefer-const": "error",
};

export default [
    {
        files: ["web_root/main.js"],
        languageOptions: {
            sourceType: "script",
            globals: globals("$", "Chart", "Notify", "Option", "URL", "bootstrap", "console", "document",
                "getComputedStyle", "localStorage", "location", "navigator", "performance", "setTimeout"),
        },
        rules,
    },
    {
        files: ["**/*.mjs"],
        languageOptions: {
            globals: globals("Buffer", "URL", "console", "document", "getComputedStyle", "localStorage",
                "performance", "process", "setTimeout", "window"),
        },
        rules,
    },
];
