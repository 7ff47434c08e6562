// What an open page costs: time to the first data on screen from a cold cache, the
// daemon's share of a core, and the heap after 3,600 polls against that after 300. The
// first two against the real daemon with a stream, with the load of the machine beside
// them: they mean little on a busy one.
//   node tools/page/cost.mjs [paint|cpu|heap...]
import { readFileSync } from "node:fs";
import { loadavg } from "node:os";
import { launchBrowser } from "./browser.mjs";
import { ScriptedUnit } from "./scripted_unit.mjs";
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

// Timers of the page run 50 times as fast; the requests are real.
async function heap(browser) {
    const unit = await new ScriptedUnit().start();
    const page = await browser.newPage();
    await page.addInitScript(() => {
        const { setTimeout: slow } = window;
        window.setTimeout = (callback, delay, ...rest) => slow(callback, (delay ?? 0) >= 1000 ? delay / 50 : delay, ...rest);
        window.polls = 0;
        window.addEventListener("DOMContentLoaded", () => window.jQuery(document).ajaxComplete((_, __, { url: path }) => {
            if (path === "/api/stats") window.polls += 1;
        }));
    });
    await page.goto(unit.url);
    const devtools = await page.context().newCDPSession(page);
    const after = async (polls) => {
        await page.waitForFunction((wanted) => window.polls >= wanted, polls, { timeout: 600000, polling: 500 });
        for (let i = 0; i < 2; i += 1) { // what the first finalizes goes with the second
            await devtools.send("HeapProfiler.collectGarbage");
        }
        return (await devtools.send("Runtime.getHeapUsage")).usedSize;
    };
    const [early, late] = [await after(300), await after(3600)];
    console.log(`heap: ${early} bytes after 300 polls, ${late} after 3600 (${(100 * (late / early - 1)).toFixed(1)} %)`);
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
