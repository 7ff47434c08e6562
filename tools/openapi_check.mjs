// Holds a daemon on port 8000 against an OpenAPI document.
//   openapi_check.mjs FILE            prints the document's paths
//   openapi_check.mjs FILE PATH       sends each example of PATH and compares the replies
//   openapi_check.mjs FILE PATH once  sends one request and looks at types alone
/* global fetch, AbortSignal */
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import Ajv from "ajv/dist/2020.js";
import yaml from "js-yaml";

const [file, path, once] = process.argv.slice(2);
const api = yaml.load(readFileSync(file, "utf8"));
const ajv = new Ajv({ strict: false });
ajv.addSchema(api, "api");

const resolve = (node) =>
    node?.$ref ? node.$ref.slice(2).split("/").reduce((at, key) => at[key], api) : node;

// [name, request body, status, media type, content] for each reply that has examples.
function* cases(operation) {
    const bodies = operation.requestBody?.content["application/json"].examples ?? {};
    const answered = new Set();
    for (const [status, response] of Object.entries(operation.responses)) {
        for (const [type, content] of Object.entries(resolve(response).content)) {
            for (const name of Object.keys(content.examples ?? { plain: null })) {
                answered.add(name);
                yield { name, body: bodies[name]?.value ?? "", status: Number(status), type, content };
            }
        }
    }
    const silent = Object.keys(bodies).filter((name) => !answered.has(name));
    assert.deepEqual(silent, [], "requests without a reply");
}

function checkJson(text, { name, content }) {
    const reply = JSON.parse(text);
    const example = content.examples[name].value;
    const valid = ajv.compile({ $ref: `api${content.schema.$ref}` });
    assert(valid(example), `the example itself: ${ajv.errorsText(valid.errors)}`);
    assert(valid(reply), `${text}: ${ajv.errorsText(valid.errors)}`);
    if (!resolve(content.schema)["x-live"] && !once) {
        assert.deepEqual(reply, example);
    }
}

// Media types of one status are alternatives: one of them has to fit.
async function check(method, example, types) {
    const body = typeof example.body === "string" ? example.body : JSON.stringify(example.body);
    const reply = await fetch(`http://127.0.0.1:8000${path}`, {
        method: method.toUpperCase(),
        body: method === "get" ? undefined : body,
        headers: { connection: "close" },
        signal: AbortSignal.timeout(15000),
    });
    const text = await reply.text();
    assert.equal(reply.status, example.status);
    assert(types.includes(reply.headers.get("content-type")), reply.headers.get("content-type"));
    if (example.content.schema) checkJson(text, example);
}

if (!path) {
    console.log(Object.keys(api.paths).join("\n"));
} else {
    for (const [method, operation] of Object.entries(api.paths[path])) {
        // In the order of the requests: an update that has begun is the last that is answered.
        const names = Object.keys(operation.requestBody?.content["application/json"].examples ?? {});
        const all = [...cases(operation)].sort((a, b) => names.indexOf(a.name) - names.indexOf(b.name));
        for (const example of once ? all.slice(0, 1) : all) {
            try {
                await check(method, example, all.map(({ type }) => type));
            } catch (problem) {
                console.error(`${path}, ${example.name}: ${problem.message}`);
                process.exit(1);
            }
        }
    }
}
