// A unit that answers from a script: serves the staged web root and, under each
// API path, whatever the test has put into `replies`.
//
// A reply is a value (sent as JSON), a { status, type, body } made by raw(), a
// function of the request's body that returns one of those, or one of the two
// faults: DROP closes the connection, HANG never answers. Until a test says
// otherwise the unit takes the settings that it is sent.
import { createServer } from "node:http";
import { readFileSync, statSync } from "node:fs";
import { extname, join } from "node:path";
import { fileURLToPath } from "node:url";

const root = process.env.WEB_ROOT ?? fileURLToPath(new URL("../../build/web_root", import.meta.url));
const types = {
    ".html": "text/html; charset=utf-8", ".css": "text/css; charset=utf-8", ".js": "text/javascript; charset=utf-8",
    ".png": "image/png", ".svg": "image/svg+xml", ".woff": "font/woff", ".ico": "image/x-icon",
};

export const DROP = Symbol("drop");
export const HANG = Symbol("hang");
const isRaw = Symbol("raw");
export const raw = (body, { status = 200, type = "text/plain" } = {}) => ({ [isRaw]: true, body, status, type });

export const picture = (hue) => raw(`<svg xmlns="http://www.w3.org/2000/svg" width="320" height="180">
    <defs><linearGradient id="g" x1="0" y1="0" x2="1" y2="1"><stop offset="0" stop-color="hsl(${hue} 60% 30%)"/>
    <stop offset="1" stop-color="hsl(${hue + 60} 70% 60%)"/></linearGradient></defs>
    <rect width="320" height="180" fill="url(#g)"/><circle cx="240" cy="55" r="22" fill="#ffe9b0"/>
    <path d="M0 180 L90 80 L150 140 L210 95 L320 180Z" fill="#0c2233"/></svg>`, { type: "image/svg+xml" });

export const decoderCaps = {
    product: "WQ-200", serial: "4711", srt_version: "1.4.4", tidewell_version: "1.0.9", tidewell_version_value: 65544,
    platform: "tamarind", packed_fs: true, addresses: [{ ETH0: "192.168.10.21" }, { GBE: "10.0.0.21" }],
};
export const encoderCaps = { ...decoderCaps, product: "WX-100" };

export const liveStats = {
    current_idx: 0,
    audio_levels: JSON.stringify([42000, 39000, 31000, 30000, 22000, 21000, 9000, 8800, 0, 0, 0, 0, 500, 52000, 64000, 70000]),
    endpoint: "203.0.113.7:5000",
    time: 90061,
    window: { flow: 8192, congestion: 8192, flight: 12 },
    link: { bps: 12500000, rtt: 18.432, bandwidth: 94.512, maxBandwidth: 125 },
    recv: {
        endpoint: "203.0.113.7:5000", packets: 1234567, packetsLost: 321, packetsDropped: 4, packetsRetransmitted: 317,
        msRcvBuf: 187, byteAvailRcvBuf: 11534336, byteRcvBuf: 285160,
    },
};
export const encoderStats = {
    ...liveStats,
    recv: { packets: 1234567, packetsLost: 321, packetsDropped: 4, packetsRetransmitted: 317,
        msSndBuf: 120, byteAvailSndBuf: 7500000, byteSndBuf: 4096 },
};
export const noStreamStats = { current_idx: 0, audio_levels: JSON.stringify(Array(16).fill(0)) };

export const uris = (primary, backup = "srt://", enable = [true, backup !== "srt://"]) => ({
    uris: [primary, backup].map((uri, idx) => ({ enable: enable[idx], idx, uri })),
});
export const livePrimary = "srt://203.0.113.7:5000?latency=200&mode=caller&passphrase=correct-horse&pbkeylen=16&streamid=news-1";
export const liveBackup = "srt://0.0.0.0:5001?fc=25600&mode=listener&rcvbuf=8000000";

const usualReplies = (take) => ({
    "/api/caps": decoderCaps,
    "/api/stats": liveStats,
    "/api/cfg/get": uris(livePrimary, liveBackup),
    "/api/cfg/set": take,
    "/api/failures": { failures: [] },
    "/api/source/set": { status: true, message: "Success" },
    "/proxy.log": raw("Nov 16 20:53:12 : Startup\nNov 16 20:53:13 : connected\n"),
    "/api/thumb": picture(200),
    "/api/encthumb": picture(20),
    "/api/ping": { host: "x", ip: "10.0.0.1", message: "", success: true, time: "12.345678", ttl: 64 },
    "/api/reboot/set": {},
    "/api/restart/set": {},
    "/api/wq_input_reset": {},
    "/api/firmware/get": { updates: [] },
    "/api/firmware/set": {},
});

export class ScriptedUnit {
    replies = usualReplies((body) => this.#take(JSON.parse(body)));
    requests = []; // { method, path, body } of every API request, in order

    async start() {
        this.server = createServer((request, response) => this.#receive(request, response));
        await new Promise((ready) => this.server.listen(0, "127.0.0.1", ready));
        this.url = `http://127.0.0.1:${this.server.address().port}`;
        return this;
    }

    async stop() {
        this.server.closeAllConnections();
        await new Promise((closed) => this.server.close(closed));
    }

    // The bodies of the POST requests to `path` so far, parsed.
    posts(path) {
        return this.requests.filter((request) => request.method === "POST" && request.path === path)
            .map(({ body }) => (body === "" ? "" : JSON.parse(body)));
    }

    count(path) {
        return this.requests.filter((request) => request.path === path).length;
    }

    #receive(request, response) {
        let body = "";
        request.on("data", (chunk) => { body += chunk; });
        request.on("end", () => {
            const path = request.url.split("?")[0];
            if (path in this.replies) {
                this.requests.push({ method: request.method, path, url: request.url, body });
                this.#answer(this.replies[path], body, response);
            } else {
                serveFile(path, response);
            }
        });
    }

    #take({ uris: records }) {
        const { uris: streams } = this.replies["/api/cfg/get"];
        this.replies["/api/cfg/get"] = { uris: streams.map((stream) => records.find(({ idx }) => idx === stream.idx) ?? stream) };
        return { status: true, message: "Success" };
    }

    #answer(reply, body, response) {
        const value = typeof reply === "function" ? reply(body) : reply;
        if (value === DROP) {
            response.destroy();
        } else if (value !== HANG) {
            const { status, type, body: text } = value?.[isRaw] ? value
                : { status: 200, type: "application/json", body: JSON.stringify(value) };
            response.writeHead(status, { "Content-Type": type });
            response.end(text);
        }
    }
}

function serveFile(path, response) {
    const file = join(root, path === "/" ? "index.html" : path);
    if (!statSync(file, { throwIfNoEntry: false })?.isFile()) {
        response.writeHead(404);
        response.end("Not found\n");
        return;
    }
    response.writeHead(200, { "Content-Type": types[extname(file)] ?? "text/plain; charset=utf-8" });
    response.end(readFileSync(file));
}
