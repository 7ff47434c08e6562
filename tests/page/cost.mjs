// What an open page costs: time to the first data on screen from a cold cache,
// and the heap after 3,600 polls against that after 300.
//   node tests/page/cost.mjs [URL]      (without one: the scripted unit)
import { launchBrowser } from "./browser.mjs";
import { ScriptedUnit } from "./scripted_unit.mjs";

const unit = await new ScriptedUnit().start();
const url = process.argv[2] ?? unit.url;
const browser = await launchBrowser();

const times = [];
for (let i = 0; i < 5; i += 1) {
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
    times.push(Math.round(await page.evaluate(() => window.firstData)));
    await context.close();
}
console.log(`first data on screen: ${times.join(", ")} ms`);

// Timers of the page run 50 times as fast; the requests are real.
const page = await browser.newPage();
await page.addInitScript(() => {
    const { setTimeout: slow } = window;
    window.setTimeout = (callback, delay, ...rest) => slow(callback, (delay ?? 0) >= 1000 ? delay / 50 : delay, ...rest);
    window.polls = 0;
    window.addEventListener("DOMContentLoaded", () => window.jQuery(document).ajaxComplete((_, __, { url: path }) => {
        if (path === "/api/stats") window.polls += 1;
    }));
});
await page.goto(url);
const devtools = await page.context().newCDPSession(page);
const heapAfter = async (polls) => {
    await page.waitForFunction((wanted) => window.polls >= wanted, polls, { timeout: 600000, polling: 500 });
    await devtools.send("HeapProfiler.collectGarbage");
    return (await devtools.send("Runtime.getHeapUsage")).usedSize;
};
const [early, late] = [await heapAfter(300), await heapAfter(3600)];
console.log(`heap: ${early} bytes after 300 polls, ${late} after 3600 (${(100 * (late / early - 1)).toFixed(1)} %)`);
await browser.close();
await unit.stop();
