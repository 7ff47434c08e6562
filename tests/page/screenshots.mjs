// Takes the screenshots of the docs and of a look over the whole page:
//   node tests/page/screenshots.mjs [DIRECTORY] [NAME...]
// Each shot is a family, a width and a state of the scripted unit.
import { mkdirSync } from "node:fs";
import { join } from "node:path";
import { launchBrowser } from "./browser.mjs";
import { DROP, ScriptedUnit, encoderCaps, encoderStats, noStreamStats, raw, uris } from "./scripted_unit.mjs";
import { waitUntil } from "./wait_until.mjs";

const [directory = "build/screenshots", ...only] = process.argv.slice(2);

const logLines = Array.from({ length: 40 }, (_, i) =>
    `Nov 16 20:${String(i).padStart(2, "0")}:12 : msRcvBuf[0187] RTT[18.432] pktRcvDrop[0004] pktRcvLoss[0321] `
    + "mbpsBandwidth[94.512] mbpsRecvRate[12.500] msRcvTsbPdDelay[0200]").join("\n") + "\n";
const longId = "news/".repeat(40);
const longUri = `srt://very-long-host-name.contribution.example:50000?mode=caller&streamid=${longId}`
    + `&latency=8000&pbkeylen=32&passphrase=${"k".repeat(80)}&rcvbuf=48000000`;

const empty = {
    "/api/stats": noStreamStats,
    "/api/cfg/get": uris("srt://"),
    "/proxy.log": raw("Nov 16 20:53:12 : Startup\n"),
    "/api/thumb": raw("", { type: "image/gif" }),
};
const encoder = { "/api/caps": encoderCaps, "/api/stats": encoderStats };
const long = {
    "/api/cfg/get": uris(longUri, longUri.replace("caller", "listener")),
    "/proxy.log": raw(`Nov 16 20:53:12 : ${"streamid=" + longId.repeat(4)}\n`.repeat(5)),
};
const lost = { "/api/stats": DROP, "/api/thumb": DROP };
const update = { "/api/firmware/get": { updates: ["tidewell-fennel-1.0.10.sh"] } };

const click = (selector) => (page) => page.click(selector);
const toast = (page) => page.waitForSelector(".sn-notify-fade-in");
const confirm = (link, name) => async (page) => {
    await page.click(link);
    await page.click(`#${name}ConfirmButton`);
};

const shots = [
    ...[360, 768, 1024, 1440, 1920, 2560].map((width) => ({ name: `decoder-${width}`, width })),
    ...[360, 768, 1024, 1440, 1920, 2560].map((width) => ({ name: `long-${width}`, width, replies: long })),
    ...[360, 1440].map((width) => ({ name: `encoder-${width}`, width, replies: encoder })),
    ...[360, 1440].map((width) => ({ name: `empty-${width}`, width, replies: empty })),
    { name: "lost-1440", later: lost, act: toast },
    { name: "lost-360", width: 360, later: lost, act: toast },
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

async function shoot(browser, { name, width = 1440, replies = {}, later = {}, act }) {
    const unit = await new ScriptedUnit().start();
    Object.assign(unit.replies, { "/proxy.log": raw(logLines) }, replies);
    const page = await browser.newPage({ viewport: { width, height: width < 700 ? 780 : 900 }, reducedMotion: "reduce" });
    await page.addInitScript(() => localStorage.setItem("primaryStreamHistory", JSON.stringify(["srt://203.0.113.7:5000?mode=caller"])));
    await page.goto(unit.url);
    await waitUntil(() => unit.count("/api/stats") >= 3, "three polls");
    Object.assign(unit.replies, later);
    await act?.(page);
    await page.waitForFunction(() => document.querySelectorAll(".sn-notify, .modal").length === 0
        || [...document.querySelectorAll(".sn-notify, .modal.show")].every((box) => getComputedStyle(box).opacity === "1"));
    await page.screenshot({ path: join(directory, `${name}.png`), fullPage: !act });
    await page.close();
    await unit.stop();
}

mkdirSync(directory, { recursive: true });
const browser = await launchBrowser();
for (const shot of shots.filter(({ name }) => only.length === 0 || only.includes(name))) {
    await shoot(browser, shot);
}
await browser.close();
