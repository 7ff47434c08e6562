// Reboot, restart, update, recovery, ping, Restart IP, copying.
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { test } from "node:test";
import { failedRequest, openPage } from "./fixture.mjs";
import { DROP, HANG, decoderCaps, liveStats, raw } from "../../tools/page/scripted_unit.mjs";
import { waitUntil } from "../../tools/page/wait_until.mjs";

const links = { reboot: "[href='#rebootModal']", restart: "[href='#restartModal']", update: "#noUpdateAlert" };
const newFirmware = { "/api/firmware/get": { updates: ["tidewell-fennel-1.0.10.sh"] } };
const down = raw("", { status: 503 });

async function openDialog(open, name) {
    await open.page.click(links[name]);
    await shows(open, name, true);
}

// Dialogs open and close in steps of a few milliseconds of the page's clock.
async function shows(open, name, shown) {
    await open.runUntil(10, () => open.page.$eval(`#${name}Modal`, (box, wanted) => {
        const dialog = window.bootstrap.Modal.getInstance(box);
        return dialog?._isShown === wanted && !dialog._isTransitioning;
    }, shown), `${name}Modal to ${shown ? "open" : "close"}`);
}

async function confirm(open, name) {
    await openDialog(open, name);
    await open.page.click(`#${name}ConfirmButton`);
}

const faces = async (open, name) => [await open.visible(`#${name}ModalText`), await open.visible(`#${name}ModalLoadingText`)];

// A word that the page loses with a reload.
const mark = (open) => open.page.evaluate(() => { window.marked = true; });
const reloaded = (open) => open.page.evaluate(() => window.marked !== true).catch(() => false);

// Moves the page's clock until it has reloaded itself.
async function runUntilReload(open) {
    await open.runUntil(500, () => reloaded(open), "the page to reload");
    await open.page.waitForLoadState();
    await open.settle();
}

test("reboot, restart and update wait, poll, reload and tell it once", async (t) => {
    for (const [name, action, route, body, delay] of [
        ["reboot", "Reboot", "/api/reboot/set", "", 10000],
        ["restart", "Restart", "/api/restart/set", "", 5000],
        ["update", "Update", "/api/firmware/set", { update: "tidewell-fennel-1.0.10.sh" }, 1000],
    ]) {
        const open = await openPage(t, { replies: newFirmware, consoleErrors: [failedRequest] });
        await mark(open);
        await confirm(open, name);
        await waitUntil(() => open.unit.count(route) === 1, "the post");
        assert.deepEqual(open.unit.posts(route), [body]);
        assert.deepEqual(await faces(open, name), [false, true], name);
        await open.page.click(`#${name}Modal .btn-close`); // The wait goes on behind a closed dialog.
        await shows(open, name, false);
        await open.settle();
        await open.run(delay - 500);
        await open.settle();
        assert.equal(await reloaded(open), false, `${name}: a delay before the first attempt`);
        open.unit.replies["/api/stats"] = down;
        await open.run(3500);
        assert.equal(await reloaded(open), false, `${name}: nothing while the server is away`);
        open.unit.replies["/api/stats"] = liveStats;
        await runUntilReload(open);
        assert.deepEqual(await open.toasts(), [[action, "Succeeded", "success"]], name);
        assert.equal(await open.text("updateNote"), name === "update" ? "The update failed: the unit still runs 1.0.9, not 1.0.10." : "");
        await open.run(9000);
        assert.equal((await open.toasts()).filter(([title]) => title === action).length, 1, "ten seconds long");
        await open.page.reload();
        await open.settle();
        assert.deepEqual(await open.toasts(), [], "shown once");
    }
});

test("recovery gives up after ninety seconds and says two minutes", async (t) => {
    const open = await openPage(t, { consoleErrors: [failedRequest] });
    await confirm(open, "restart");
    await open.settle();
    open.unit.replies["/api/stats"] = down;
    const timeout = () => open.toasts().then((toasts) => toasts.find(([title]) => title === "Restart"));
    // Five seconds before the first attempt, at most four from the limit to the last one's end.
    for (let passed = 0; passed < 99000; passed += 3000) {
        if (passed < 95000) assert.equal(await timeout(), undefined, `after ${passed} ms`);
        await open.run(3000);
        await open.settle();
    }
    assert.deepEqual(await timeout(), ["Restart",
        "Timeout failure: Tidewell failed to recover fromrestart after 2 minutes.", "error"]);
    await shows(open, "restart", false);
});

test("a refused reboot or restart closes its dialog, says so and waits for nothing", async (t) => {
    const open = await openPage(t, { consoleErrors: [failedRequest],
        replies: { "/api/reboot/set": down, "/api/restart/set": DROP } });
    await mark(open);
    for (const [name, title] of [["reboot", "Reboot"], ["restart", "Restart"]]) {
        assert.deepEqual(await open.nextToast(() => confirm(open, name)), [title, "Failed: Please try again", "error"]);
        await shows(open, name, false);
        await openDialog(open, name);
        assert.deepEqual(await faces(open, name), [true, false], "plain again");
        assert.equal(await open.page.isEnabled(`#${name}ConfirmButton`), true);
        await open.page.keyboard.press("Escape");
        await shows(open, name, false);
    }
    await open.run(11000);
    await open.settle();
    assert.equal(await reloaded(open), false);
});

test("the cookie's text is text", async (t) => {
    const open = await openPage(t, { cookie: encodeURIComponent("<b>Reboot</b>") });
    assert.deepEqual(await open.toasts(), [["<b>Reboot</b>", "Succeeded", "success"]]);
});

test("a firmware check offers the last newer file, and only a newer one", async (t) => {
    const open = await openPage(t, { consoleErrors: [failedRequest] });
    const title = "Finished checking for new Firmware";
    const none = "You are currently using the most updated version of the Tidewell";
    const found = (file) => `New firmware ${file} found. Accept the update within the modal.`;
    for (const [version, updates, text] of [
        ["1.0.9", [], none],
        ["1.0.9", ["tidewell-fennel-1.0.9.sh", "tidewell-fennel-1.0.8.sh", "readme.sh"], none],
        ["1.0.9", ["tidewell-fennel-1.0.10.sh", "tidewell-fennel-1.0.8.sh"], found("tidewell-fennel-1.0.10")],
        ["1.0.9", ["a-1.2.0.sh", "a-1.1.0.sh"], found("a-1.1.0")],
        ["1.0.9", ["a-1-0-10.sh"], none],
        ["1.0", ["<i>1.0.0.sh"], found("&lt;i&gt;1.0.0")],
    ]) {
        Object.assign(open.unit.replies, { "/api/caps": { ...decoderCaps, tidewell_version: version }, "/api/firmware/get": { updates } });
        await open.page.reload();
        await open.settle();
        assert.deepEqual(await open.nextToast(() => open.page.click("#noUpdateAlert")), [title, text, "success"], updates.join());
        if (text !== none) await shows(open, "update", true);
    }
    assert.equal(await open.text("updateLabelVersion"), "<i>1.0.0");
    await open.page.keyboard.press("Escape");
    await shows(open, "update", false);
    for (const silent of [{}, raw("", { status: 500 }), { updates: "x" }]) {
        open.unit.replies["/api/firmware/get"] = silent;
        const before = await open.toasts();
        await open.page.click("#noUpdateAlert");
        await open.settle();
        assert.deepEqual(await open.toasts(), before);
    }
});

test("the update's toast and the reload ask for no good reply", async (t) => {
    const open = await openPage(t, { replies: newFirmware, consoleErrors: [failedRequest] });
    for (const reply of [HANG, down]) {
        open.unit.replies["/api/firmware/set"] = reply;
        await mark(open);
        await openDialog(open, "update");
        assert.deepEqual(await open.nextToast(() => open.page.click("#updateConfirmButton")),
            ["Update", "Starting system update", "success"]);
        await runUntilReload(open);
        assert.deepEqual(await open.toasts(), [["Update", "Succeeded", "success"]]);
    }
});

test("a unit that a request of the page holds is waited for, and not called lost", async (t) => {
    const open = await openPage(t, { consoleErrors: [failedRequest] });
    const rates = await open.chart("bpsGraph");
    const check = async () => {
        Object.assign(open.unit.replies, { "/api/firmware/get": HANG, "/api/stats": HANG });
        await open.page.click("#noUpdateAlert");
        for (let passed = 0; passed < 13500; passed += 500) {
            await open.run(500);
            assert.match(await open.text("waitNote"), /^The unit is looking for new firmware and answers nothing else/);
            assert.equal(await open.visible("#overlay"), false);
        }
    };
    await check();
    assert.deepEqual(await open.chart("bpsGraph"), rates, "nothing is known of the rate");
    open.unit.replies["/api/stats"] = liveStats;
    await open.runUntil(500, async () => await open.text("waitNote") === "The check for new firmware got no answer.", "the outcome");
    await check();
    await open.runUntil(500, () => open.visible("#overlay"), "an end of the patience");
});

test("the tooltip of the firmware check names the server that the unit asks", async (t) => {
    const open = await openPage(t);
    const settings = readFileSync(new URL("../../api/CMakeLists.txt", import.meta.url), "utf8");
    const { hostname } = new URL(settings.match(/TIDEWELL_FIRMWARE_URL "(.+?)"/)[1]);
    assert.match(await open.page.getAttribute("#noUpdateAlert", "title"), new RegExp(`whitelisting ${hostname}$`));
});

test("ping and Restart IP tell how it went", async (t) => {
    const open = await openPage(t, { consoleErrors: [failedRequest] });
    const good = { success: true, time: "12.345678" };
    for (const [reply, toast] of [
        [good, ["Send ping", "Succeeded: &lt;b&gt;h&lt;/b&gt;<br>Time: 12.35 ms", "success"]],
        [{ ...good, success: false }, ["Send ping", "Failed: Please try again", "error"]],
        [{ ...good, success: "true" }, ["Send ping", "Failed: Please try again", "error"]],
        [DROP, ["Send ping", "Failed: Please try again", "error"]],
    ]) {
        open.unit.replies["/api/ping"] = reply;
        await open.page.fill("#pingInput", "<b>h</b>");
        assert.deepEqual(await open.nextToast(() => open.page.press("#pingInput", "Enter")), toast);
    }
    assert.deepEqual(open.unit.posts("/api/ping")[0], { host: "<b>h</b>" });
    assert.deepEqual(await open.nextToast(() => open.page.click("#restartIP")), ["Restart IP", "Succeeded", "success"]);
    assert.deepEqual(open.unit.posts("/api/wq_input_reset"), [{}]);
    open.unit.replies["/api/wq_input_reset"] = down;
    assert.deepEqual(await open.nextToast(() => open.page.click("#restartIP")), ["Reset IP", "Failed: Please try again", "error"]);
});

test("copying goes through the browser's copy command", async (t) => {
    const open = await openPage(t, { replies: { "/proxy.log": raw("one\ntwo") }, consoleErrors: [/^Unable to copy to clipboard$/] });
    await open.page.evaluate(() => document.addEventListener("copy", () => {
        window.copied = String(document.getSelection()) || document.activeElement.value;
    }));
    assert.deepEqual(await open.nextToast(() => open.page.click("#copyLogs")), ["Copy Logs", "Succeeded", "success"]);
    assert.equal(await open.page.evaluate(() => window.copied), "two\none");
    assert.deepEqual(await open.nextToast(() => open.page.click("#copyStats")), ["Copy Stats", "Succeeded", "success"]);
    assert.match(await open.page.evaluate(() => window.copied), /CURRENT ACTIVE\s+Primary[^]*RTT \(MS\)\s+18\.432/);
    assert.equal(await open.page.evaluate(() => document.activeElement.id), "copyStats");
    await open.page.evaluate(() => { document.execCommand = () => { throw new Error("refused"); }; });
    const before = await open.toasts();
    await open.page.click("#copyLogs");
    assert.deepEqual(await open.toasts(), before);
    assert.equal(await open.page.$("textarea"), null);
});

test("toasts close by themselves, errors stay until closed, by keyboard too", async (t) => {
    const open = await openPage(t, { consoleErrors: [failedRequest], viewport: { width: 375, height: 667 } });
    await open.nextToast(() => open.page.click("#restartIP"));
    open.unit.replies["/api/wq_input_reset"] = down;
    await open.nextToast(() => open.page.click("#restartIP"));
    await open.run(6000);
    assert.deepEqual((await open.toasts()).map(([title]) => title), ["Reset IP"]);
    await open.page.press(".sn-notify-close", "Enter");
    await open.run(600);
    assert.deepEqual(await open.toasts(), []);
    for (let i = 0; i < 8; i += 1) await open.nextToast(() => open.page.press("#restartIP", "Enter"));
    await open.run(2000);
    open.unit.replies["/api/stats"] = down;
    await open.poll(2);
    await open.run(2000);
    assert.deepEqual((await open.toasts()).map(([title]) => title), ["Connection lost", ...Array(8).fill("Reset IP")]);
    const { y, height } = await (await open.page.$(".sn-notify")).boundingBox();
    assert.ok(y >= 0 && y + height <= 667, "the newest is in sight");
    const close = ".sn-notify-close >> nth=";
    await open.page.press(`${close}0`, "Tab");
    assert.equal(await open.focused(`${close}1`), true, "Tab goes on to the next");
});
