// The page against the real daemon: what an operator does, and what the streams, the
// processes and the unit around it then do.
import assert from "node:assert/strict";
import { test } from "node:test";
import { failedRequest, openPage } from "./fixture.mjs";
import { SimulatedUnit } from "../../tools/page/simulated_unit.mjs";
import { waitUntil } from "../../tools/page/wait_until.mjs";

async function openUnit(t, family) {
    const unit = await new SimulatedUnit().start(family);
    t.after(() => unit.stop());
    const open = await openPage(t, { url: unit.url, clock: false, consoleErrors: [failedRequest] });
    const shows = (id, pattern) => waitUntil(async () => pattern.test(await open.text(id)), `${pattern} in ${id}`, 15000);
    const toast = (title, text, limitMs = 15000) => waitUntil(async () => (await open.toasts().catch(() => []))
        .some(([shownTitle, shownText]) => shownTitle === title && text.test(shownText)), `${title}: ${text}`, limitMs);
    return { unit, open, page: open.page, shows, toast };
}

const pictureSize = () => document.getElementById("imgThumb").naturalWidth;

test("a decoder's stream comes, fails over, is selected back and takes new settings", async (t) => {
    const { unit, open, page, shows, toast } = await openUnit(t, "decoder");
    await shows("connectedTime", /^Connected \d+s/);
    await shows("srtBPS", /^[34]\.\d/);
    assert.match((await open.read("#currentActive"))[0], /^Current: Primary \(Caller\) 127\.0\.0\.1 Port 5000 - Latency 120 - ENABLE: ON/);
    assert.deepEqual(await open.texts(["addonVer", "srtVersion", "prodModel", "statsIndex", "statsEncryptionType"]),
        { addonVer: "1.0.9", srtVersion: "1.4.4", prodModel: "WQ-1", statsIndex: "Primary", statsEncryptionType: "Not Encrypted" });
    await shows("srtEndpoint", /127\.0\.0\.1/);
    await shows("byteAvailRcvBuf", /^\d+\.\d+$/);
    await waitUntil(async () => (await open.chart("audioBars")).every((level) => level > 0), "audio levels");
    await waitUntil(() => page.evaluate(pictureSize), "a picture");
    await shows("logOutput", /\n\w{3} +\d+ \d\d:\d\d:\d\d : WQ family detected\n/);

    process.kill(unit.pids.primary);
    await shows("currentIndex", /^Backup$/);
    await unit.carries("backup");
    await shows("logOutput", /^\n?.*: SRT input opened[^]*SRT EOS, Switching to next stream/);
    await unit.revive(/^The primary is back/m);
    await page.click("#idx0Select button");
    await toast("", /^Success: Primary stream selected$/);
    await unit.carries("primary");
    await shows("currentIndex", /^Primary$/);

    await page.fill("#primaryPort", "5001");
    await page.fill("#primaryLatency", "450");
    await page.selectOption("#primaryEncryption", "16");
    await page.fill("#primaryEncryptionKey", "a-desk-secret");
    await page.click("#setStream");
    await toast("Set Stream", new RegExp("^Succeeded!<br>Primary: srt://127\\.0\\.0\\.1:5001\\?mode=caller&amp;latency=450"
        + "&amp;pbkeylen=16&amp;passphrase=a-desk-secret<br>Backup: "));
    await unit.carries("backup"); // the far end at port 5001, which sends nothing without its key
    await shows("statsEncryptionType", /^AES128$/);
    await shows("srtMsRcvBuf", /^4\d\d$/);
    assert.equal(await open.text("statsIndex"), "Primary");

    const before = (await (await page.request.get(`${unit.url}/api/cfg/get`)).json()).uris;
    await page.request.post(`${unit.url}/api/cfg/set`, { data: { uris: [{ ...before[0], uri: `${before[0].uri}&streamrate=9000000` }, before[1]] } });
    await page.click("#setStream");
    await page.click("#replaceLoadButton");
    await shows("primaryNote", /^Also set: streamrate=9000000, lost with Apply/);
    await page.fill("#backupID", "news 1");
    await page.click("#setStream");
    await toast("Set Stream", /^Backup: the unit did not take these settings\. Write %20 for " "\.$/);
    await page.fill("#backupID", "news%201");
    const errors = (await open.toasts()).filter(([, , status]) => status === "error").length;
    await page.click("#setStream");
    await waitUntil(async () => (await page.inputValue("#backupID")) === "news 1", "the stream id as the unit has it");
    assert.equal((await open.toasts()).filter(([, , status]) => status === "error").length, errors, "taken");
});

test("an encoder's stream comes, stops with its device, and is switched off", async (t) => {
    const { unit, open, page, shows, toast } = await openUnit(t, "encoder");
    await shows("srtBPS", /^[34]\.\d/);
    await shows("byteAvailRcvBuf", /^\d+\.\d+$/);
    assert.equal(await open.text("prodModel"), "WX-1");
    assert.equal(await open.visible("#restartIP"), false);
    await waitUntil(() => page.evaluate(pictureSize), "a picture");
    assert.match(await page.getAttribute("#imgThumb", "src"), /^\/api\/encthumb\?time=/);
    process.kill(unit.pids.unit, "SIGUSR1");
    await unit.tells(/^The device gives nothing/m);
    await shows("srtBPS", /^[012]\.\d/); // an average since the stream was opened
    process.kill(unit.pids.unit, "SIGUSR1");
    await unit.carries("primary");

    await page.selectOption("#primaryEnable", "false");
    await page.fill("#rcvbufBackup", "3");
    await page.click("#setStream");
    await toast("Set Stream", /Backup: .*&amp;sndbuf=3000000$/);
    await unit.carries("backup");
    await waitUntil(() => page.isHidden("#idx0Select button"), "no choice of a stream that is switched off");
});

test("ping, Restart IP, restart with its recovery, and an update to its end", async (t) => {
    const { unit, open, page, shows, toast } = await openUnit(t, "decoder");
    await page.fill("#pingInput", "127.0.0.1");
    await page.click("#sendPing");
    await toast("Send ping", /^Succeeded: 127\.0\.0\.1<br>Time: \d+\.\d\d ms$/);
    await page.click("#restartIP");
    await toast("Restart IP", /^Succeeded$/);
    await unit.tells(/^Command: \/usr\/local\/bin\/cmd .*DIT IP RESET$/m);

    await page.click("[href='#restartModal']");
    await page.click("#restartConfirmButton");
    await unit.tells(/^The daemon has ended with status 0/m);
    await toast("Connection lost", /^Check network connection/);
    await unit.revive(/^The daemon is back/m);
    await waitUntil(() => page.isHidden("#overlay"), "the connection to be back");
    await toast("Restart", /^Succeeded$/, 20000);
    await shows("connectedTime", /^Connected \d+s/);

    await page.click("#noUpdateAlert");
    await toast("Finished checking for new Firmware", /^New firmware tidewell-fennel-1\.0\.10 found/);
    assert.equal(await open.text("updateLabelVersion"), "tidewell-fennel-1.0.10");
    const since = unit.output.length;
    await page.click("#updateConfirmButton");
    await unit.tells(/^Command: \/sbin\/shutdown -r now\n[^]*The daemon is back/m, since);
    await toast("Update", /^Succeeded$/, 20000);
    await unit.carries("primary");
});

test("a unit whose reader has gone ends and leaves nothing behind", async () => {
    const unit = await new SimulatedUnit().start("encoder");
    unit.process.stdout.destroy();
    await unit.isGone();
});
