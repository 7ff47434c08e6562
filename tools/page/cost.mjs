// What an open page costs: time to the first data on screen from a cold cache, the
// daemon's share of a core, and heap, nodes and listeners after 20,000 polls against
// those after 300, with a stream that comes and goes. The first two against the real daemon with a stream, with the load of the machine beside
// them: they mean little on a busy one.
//   node tools/page/cost.mjs [paint|cpu|heap...]
import { readFileSync } from "node:fs";
import { loadavg } from "node:os";
import { launchBrowser } from "./browser.mjs";
import { ScriptedUnit, liveStats, noStreamStats, raw } from "./scripted_unit.mjs";
import { SimulatedUnit } from "./simulated_unit.mjs";

const cpuWindowMs = 30000;
const pause = (milliseconds) => new Promise((end) => setTimeout(end, milliseconds));
const load = () => `load ${loadavg()[0].toFixed(1)}`;

async function paint(browser) {
    const unit = await new SimulatedUnit().start("decoder");
    await unit.carries("primary");
    const times = [];
    for (let i = 0; i < 7; i += 1) {
        times.push(await firstData(browser, unit.url));
    }
    console.log(`first data on screen: ${times.join(", ")} ms (${load()})`);
    await unit.stop();
}

async function firstData(browser, url) {
    const context = await browser.newContext();
    const page = await context.newPage();
    await page.addInitScript(() => {
        const look = () => {
            if (document.getElementById("statsTime")?.textContent.endsWith("s")) window.firstData = performance.now();
            else window.requestAnimationFrame(look);
        };
        window.requestAnimationFrame(look);
    });
    await page.goto(url);
    await page.waitForFunction(() => window.firstData);
    const time = Math.round(await page.evaluate(() => window.firstData));
    await context.close();
    return time;
}

// Of one core, in percent, over the window. Clock ticks are a hundredth of a second.
async function share(pid) {
    const ticks = () => readFileSync(`/proc/${pid}/stat`, "utf8").split(") ")[1].split(" ").slice(11, 13)
        .reduce((sum, count) => sum + Number(count), 0);
    const [before, start] = [ticks(), performance.now()];
    await pause(cpuWindowMs);
    return 1000 * (ticks() - before) / (performance.now() - start);
}

async function cpu(browser) {
    const unit = await new SimulatedUnit().start("decoder");
    await unit.carries("primary");
    const without = await share(unit.pids.daemon);
    const page = await browser.newPage();
    await page.goto(unit.url);
    await page.waitForLoadState("networkidle", { timeout: 3000 }).catch(() => {});
    const withPage = await share(unit.pids.daemon);
    console.log(`daemon: ${without.toFixed(2)} % of a core without the page, ${withPage.toFixed(2)} % with it (${load()})`);
    await page.close();
    await unit.stop();
}

// Timers of the page run 500 times as fast; the requests are real.
async function heap(browser) {
    const unit = await new ScriptedUnit().start();
    unit.requests.push = () => {}; // else its record grows by each of them
    let poll = 0;
    unit.replies["/api/stats"] = () => (++poll % 60 < 5 ? noStreamStats
        : { ...liveStats, time: poll, recv: { ...liveStats.recv, packets: poll * 1000 }, link: { ...liveStats.link, bps: 12000000 + poll } });
    unit.replies["/proxy.log"] = () => raw(`poll ${poll >> 4}\n`.repeat(100));
    unit.replies["/api/failures"] = () => ({ failures: [{ slot: poll % 2, reason: "timeout", age: poll % 60 }] });
    const page = await browser.newPage();
    await page.addInitScript(() => {
        const { setTimeout: slow } = window;
        window.setTimeout = (callback, delay, ...rest) => slow(callback, (delay ?? 0) >= 1000 ? delay / 500 : delay, ...rest);
        window.polls = 0;
        window.addEventListener("DOMContentLoaded", () => window.jQuery(document).ajaxComplete((_, __, { url: path }) => {
            if (path === "/api/stats") window.polls += 1;
        }));
    });
    await page.goto(unit.url);
    const devtools = await page.context().newCDPSession(page);
    const after = async (polls) => {
        await page.waitForFunction((wanted) => window.polls >= wanted, polls, { timeout: 3600000, polling: 500 });
        await devtools.send("Runtime.discardConsoleEntries"); // which a page without an observer does not keep
        for (let i = 0; i < 2; i += 1) { // what the first finalizes goes with the second
            await devtools.send("HeapProfiler.collectGarbage");
        }
        const { usedSize: bytes } = await devtools.send("Runtime.getHeapUsage");
        const { nodes, jsEventListeners: listeners } = await devtools.send("Memory.getDOMCounters");
        return `after ${polls} polls ${bytes} bytes, ${nodes} nodes, ${listeners} listeners`;
    };
    console.log(`heap: ${await after(300)}; ${await after(20000)}`);
    await page.close();
    await unit.stop();
}

const measures = { paint, cpu, heap };
const wanted = process.argv.slice(2);
const browser = await launchBrowser();
for (const name of Object.keys(measures)) {
    if (wanted.length === 0 || wanted.includes(name)) {
        await measures[name](browser);
    }
}
await browser.close();
