// The real daemon in the simulated unit, as its own program tells of it: the page's
// address and the pids stand in what it prints. It ends with this process, however that is.
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { mkdtempSync, readdirSync, rmdirSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { fileURLToPath } from "node:url";
import { waitUntil } from "./wait_until.mjs";

const build = process.env.TIDEWELL_BUILD ?? fileURLToPath(new URL("../../build", import.meta.url));

export class SimulatedUnit {
    output = "";

    async start(family) {
        this.directory = mkdtempSync(join(tmpdir(), "tidewell-page-"));
        this.process = spawn("setpriv", ["--pdeathsig", "TERM", join(build, "sim/unit_sim"), "run", family,
            "--daemon", join(build, "tidewell"), "--work-dir", this.directory], { stdio: ["ignore", "pipe", "pipe"] });
        this.ended = new Promise((end) => this.process.once("close", end));
        for (const stream of [this.process.stdout, this.process.stderr]) {
            stream.on("data", (text) => { this.output += text; });
        }
        try {
            await this.tells(/^Ctrl-C/m);
            this.url = this.output.match(/^Page: +(\S+)\/$/m)?.[1];
            assert.ok(this.url, this.output);
        } catch (error) {
            this.process.kill();
            throw error;
        }
        this.pids = {
            unit: this.#pidIn(/kill -USR2 (\d+)/),
            primary: this.#pidIn(/kill -9 (\d+)/),
            daemon: this.#pidIn(/kill (\d+)\n.*the daemon stops/),
        };
        return this;
    }

    // Until the program has printed it, after `since` characters; the match.
    tells(pattern, since = 0, limitMs = 15000) {
        return waitUntil(() => this.output.slice(since).match(pattern), `${pattern} in: ${this.output}`, limitMs);
    }

    // The living line says that this address has a stream.
    carries(address) {
        return this.tells(new RegExp(`^${address} +\\S+ +[1-9]`, "m"), this.output.length);
    }

    // Brings back what has ended, and waits until it is told as `sentence`.
    revive(sentence) {
        const since = this.output.length;
        process.kill(this.pids.unit, "SIGUSR2");
        return this.tells(sentence, since);
    }

    async stop() {
        this.process.kill("SIGTERM");
        await this.isGone();
    }

    // With all that it made.
    async isGone() {
        await this.ended;
        assert.deepEqual(readdirSync(this.directory), []);
        rmdirSync(this.directory);
        assert.equal(this.process.exitCode, 0, this.output);
    }

    #pidIn(pattern) {
        return Number(this.output.match(pattern)[1]);
    }
}
