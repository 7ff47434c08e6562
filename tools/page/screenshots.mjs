// Takes the screenshots of the docs and of a look over the whole page:
//   node tools/page/screenshots.mjs [DIRECTORY] [NAME...]
// Each shot is a family, a width and a state of the scripted unit. Those of the docs
// (npm run docs-images) are the same whenever they are taken.
import { mkdirSync } from "node:fs";
import { join } from "node:path";
import { launchBrowser } from "./browser.mjs";
import { DROP, ScriptedUnit, encoderCaps, encoderStats, liveStats, noStreamStats, picture, raw, uris } from "./scripted_unit.mjs";
import { waitUntil } from "./wait_until.mjs";

const [directory = "build/screenshots", ...only] = process.argv.slice(2);

// What a unit of the family logs in its first two hours, every five minutes.
const logOf = (family, word, link) => {
    const at = (seconds) => `May  6 ${new Date(seconds * 1000).toISOString().slice(11, 19)} : `;
    const links = Array.from({ length: 24 }, (_, i) => at(18006 + 300 * i) + link((18.1 + Math.sin(i) / 2).toFixed(3)));
    return [`${at(18000)}Startup`, `${at(18000)}${family} family detected`,
        `${at(18000)}SRT ${word} opened: srt://203.0.113.7:5000?latency=200&mode=caller&streamid=news-1`, ...links].join("\n") + "\n";
};
const decoderLog = logOf("WQ", "input", (rtt) => `msRcvBuf[0187] RTT[${rtt}] pktRcvDrop[0004] pktRcvLoss[0321] `
    + "mbpsBandwidth[94.512] mbpsRecvRate[12.500] msRcvTsbPdDelay[0200]");
const encoderLog = logOf("WX", "output", (rtt) => `RTT[${rtt}] pktSndDrop[0004] pktSndLoss[0321] pktRetrans[0317] `
    + "mbpsBandwidth[94.512] mbpsSendRate[12.500] pktFlightSize[0012] msRcvTsbPdDelay[0200]");
const longId = "news/".repeat(40);
const longUri = `srt://very-long-host-name.contribution.example:50000?mode=caller&streamid=${longId}`
    + `&latency=8000&pbkeylen=32&passphrase=${"k".repeat(80)}&rcvbuf=48000000`;

// A rate that moves a little, for as many polls as the rate line has points.
const movingStats = (stats) => {
    let poll = 0;
    return () => ({ ...stats, time: 90046 + poll, link: { ...stats.link, bps: 12500000 + Math.round(400000 * Math.sin(poll++)) } });
};

const empty = {
    "/api/stats": noStreamStats,
    "/api/cfg/get": uris("srt://"),
    "/proxy.log": raw("Nov 16 20:53:12 : Startup\n"),
    "/api/thumb": raw("", { type: "image/gif" }),
};
const encoder = { "/api/caps": encoderCaps, "/api/stats": encoderStats, "/proxy.log": raw(encoderLog) };
const long = {
    "/api/cfg/get": uris(longUri, longUri.replace("caller", "listener")),
    "/proxy.log": raw(`Nov 16 20:53:12 : ${"streamid=" + longId.repeat(4)}\n`.repeat(5)),
};
const lost = { "/api/stats": DROP, "/api/thumb": DROP };
const update = { "/api/firmware/get": { updates: ["tidewell-fennel-1.0.10.sh"] } };

// What the page says of itself: why there is no stream, what Apply would lose, what it waits for.
const told = {
    "/api/failures": { failures: [{ slot: 0, reason: "bad_secret", age: 3 }, { slot: 1, reason: "timeout", age: 75 }] },
    "/api/cfg/get": uris("srt://203.0.113.7:5000/live?mode=caller&streamrate=9000000", "srt://198.51.100.2:80?mode=caller&streamid=news 1"),
};
const stale = async (page) => {
    await page.click("#setStream");
    await page.waitForSelector("#replaceModal.show");
};
const manyErrors = async (page) => {
    for (let i = 0; i < 9; i += 1) await page.press("#sendPing", "Enter");
    await page.waitForFunction(() => document.querySelectorAll(".sn-notify-fade-in").length === 9);
};

const click = (selector) => (page) => page.click(selector);
const toast = (page) => page.waitForSelector(".sn-notify-fade-in");
const confirm = (link, name) => async (page) => {
    await page.click(link);
    await page.click(`#${name}ConfirmButton`);
};

const shots = [
    ...[360, 1440].flatMap((width) => [
        { name: `page-decoder-${width}`, width, polls: 16, replies: { "/api/stats": movingStats(liveStats) } },
        { name: `page-encoder-${width}`, width, polls: 16, replies: { ...encoder, "/api/stats": movingStats(encoderStats) } },
    ]),
    ...[320, 768, 1440, 1920, 2560, 3840].map((width) => ({ name: `decoder-${width}`, width })),
    ...[320, 768, 1440, 1920, 2560, 3840].map((width) => ({ name: `long-${width}`, width, replies: long })),
    ...[360, 1440].map((width) => ({ name: `encoder-${width}`, width, replies: encoder })),
    ...[320, 768, 1440, 3840].flatMap((width) => [
        { name: `empty-${width}`, width, replies: empty },
        { name: `lost-${width}`, width, later: lost, act: toast },
        { name: `notices-${width}`, width, replies: { ...empty, ...told } },
        { name: `stale-${width}`, width, later: { "/api/cfg/get": uris(longUri, "srt://") }, act: stale },
        { name: `errors-${width}`, width, replies: { "/api/ping": DROP }, act: manyErrors },
    ]),
    { name: "off", replies: { "/api/cfg/get": uris("srt://198.51.100.2:5000?mode=caller", undefined, [false, false]) } },
    { name: "changed", act: async (page) => { await page.fill("#primaryLatency", "450"); await page.press("#primaryLatency", "End"); } },
    { name: "reboot", act: click("[href='#rebootModal']") },
    { name: "rebooting", act: confirm("[href='#rebootModal']", "reboot") },
    { name: "restart", act: click("[href='#restartModal']") },
    { name: "restarting", act: confirm("[href='#restartModal']", "restart") },
    { name: "update", replies: update, act: click("#noUpdateAlert") },
    { name: "updating", width: 360, replies: update, act: confirm("#noUpdateAlert", "update") },
    { name: "toast-applied", act: async (page) => { await page.click("#setStream"); await toast(page); } },
    { name: "toast-applied-360", width: 360, replies: long, act: async (page) => { await page.click("#setStream"); await toast(page); } },
    { name: "toast-error", replies: { "/api/ping": DROP }, act: async (page) => { await page.click("#sendPing"); await toast(page); } },
    { name: "toast-ping", act: async (page) => { await page.click("#sendPing"); await toast(page); } },
];

async function shoot(browser, { name, width = 1440, polls, replies = {}, later = {}, act }) {
    const unit = await new ScriptedUnit().start();
    let pictures = 0;
    Object.assign(unit.replies, { "/proxy.log": raw(decoderLog), "/api/thumb": () => picture(200 + (pictures++ % 2)),
        "/api/encthumb": () => picture(20 + (pictures++ % 2)) }, replies);
    const page = await browser.newPage({ viewport: { width, height: width < 700 ? 780 : Math.max(900, width * 9 / 16) }, reducedMotion: "reduce" });
    await page.addInitScript(() => localStorage.setItem("primaryStreamHistory", JSON.stringify(["srt://203.0.113.7:5000?mode=caller"])));
    if (polls) {
        await page.clock.install({ time: new Date("2026-05-06T07:08:00") });
        await page.clock.pauseAt(new Date("2026-05-06T07:08:05"));
    }
    await page.goto(unit.url);
    await waitForPolls(page, unit, polls);
    Object.assign(unit.replies, later);
    await act?.(page);
    await page.waitForFunction(() => document.querySelectorAll(".sn-notify, .modal").length === 0
        || [...document.querySelectorAll(".sn-notify, .modal.show")].every((box) => getComputedStyle(box).opacity === "1"));
    await page.screenshot({ path: join(directory, `${name}.png`), fullPage: !act });
    await page.close();
    await unit.stop();
}

// `polls` of them by a clock that stands still between, or three as they come.
async function waitForPolls(page, unit, polls) {
    for (let poll = 1; poll < polls; poll += 1) {
        await waitUntil(() => page.evaluate(() => window.jQuery?.active === 0), "the replies");
        await page.clock.runFor(1000);
    }
    await waitUntil(() => unit.count("/api/stats") >= (polls ?? 3), "the polls");
    await waitUntil(() => page.evaluate(() => window.jQuery.active === 0), "the last replies");
}

mkdirSync(directory, { recursive: true });
const browser = await launchBrowser();
for (const shot of shots.filter(({ name }) => only.length === 0 || only.includes(name))) {
    await shoot(browser, shot);
}
await browser.close();
