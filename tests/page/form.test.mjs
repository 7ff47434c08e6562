// The settings form: addresses into fields, fields into addresses, history.
import assert from "node:assert/strict";
import { test } from "node:test";
import { failedRequest, openPage } from "./fixture.mjs";
import { HANG, decoderCaps, encoderCaps, raw, uris } from "../../tools/page/scripted_unit.mjs";

const fieldIds = ["primaryEnable", "primaryMode", "primaryAddress", "primaryPort", "primaryLatency", "primaryID",
    "primaryEncryption", "primaryEncryptionKey", "rcvbuf", "fcBuf"];
const setUris = (open) => open.unit.posts("/api/cfg/set").at(-1).uris;
const load = (open, reply) => {
    open.unit.replies["/api/cfg/get"] = reply;
    return open.page.evaluate(() => window.loadForm()).then(() => open.settle());
};
const applyAndSettle = async (open) => {
    await open.page.click("#setStream");
    await open.settle();
};
const changedLook = async (open) => [await open.style("#setStream", "background-color") === "rgb(0, 159, 214)",
    await open.visible("#clearStreamChanges")];

test("an address loads into its fields", async (t) => {
    const open = await openPage(t, { replies: { "/api/cfg/get": raw("", { status: 500 }) }, consoleErrors: [failedRequest] });
    assert.equal((await open.fields(["primaryPort"])).primaryPort, "9000");
    for (const [name, uri, expected] of [
        ["every key", "srt://h:5000?fc=25600&latency=200&mode=caller&passphrase=0123456789&pbkeylen=32&rcvbuf=8000000&streamid=a",
            "true|caller|h|5000|200|a|32|0123456789|8|25600"],
        ["no buffer, no flight: these stay", "srt://h:5001?mode=caller", "true|caller|h|5001|||0||8|25600"],
        ["a listener's address, a fraction of a megabyte", "srt://10.0.0.1:5000?mode=listener&sndbuf=1500000",
            "true|listener|0.0.0.0|5000|||0||1.5|25600"],
        ["no mode: the rule for the last one runs", "srt://10.0.0.1:80?passphrase=unused", "true|listener|0.0.0.0||||0||1.5|25600"],
        ["a bare address", "srt://", "true|listener|0.0.0.0|0|||0||1.5|25600"],
        ["a key length without a key", "srt://h:1?mode=caller&pbkeylen=16", "true|caller|h|1|||16||1.5|25600"],
        ["a key length that the list lacks", "srt://h:1?mode=caller&pbkeylen=24", "true|caller|h|1|||24||1.5|25600"],
    ]) {
        await load(open, uris(uri, "srt://", [true, false]));
        assert.equal(Object.values(await open.fields(fieldIds)).join("|"), expected, name);
        assert.deepEqual(await changedLook(open), [false, false], name);
        await open.page.press("#primaryAddress", "Shift");
        assert.deepEqual(await changedLook(open), [false, false], `${name}, a key pressed`);
    }
});

test("Apply builds both addresses, each in its own order", async (t) => {
    const open = await openPage(t, { replies: { "/api/caps": encoderCaps } });
    const all = "fc=9&latency=120&mode=listener&passphrase=0123456789&pbkeylen=16&rcvbuf=8200000&streamid=s&x=1";
    await load(open, uris(`srt://h:1?${all}`, `srt://h:2?${all}`, [true, false]));
    await applyAndSettle(open);
    const listener = (port) => `srt://0.0.0.0:${port}?mode=listener&streamid=s&latency=120`;
    assert.deepEqual(setUris(open), [
        { idx: 0, enable: true, uri: `${listener(1)}&fc=9&sndbuf=8200000&pbkeylen=16&passphrase=0123456789` },
        { idx: 1, enable: false, uri: `${listener(2)}&pbkeylen=16&passphrase=0123456789&fc=9&sndbuf=8200000` },
    ]);
});

test("what is typed goes into the address as typed", async (t) => {
    const open = await openPage(t, { replies: { "/api/cfg/get": uris("srt://h:1?mode=caller") } });
    const base = "srt://h:1?mode=caller";
    for (const [name, fields, uri] of [
        ["an ampersand", [["primaryID", "a&b=c"]], `${base}&streamid=a&b=c`],
        ["a buffer that is no number", [["rcvbuf", "big"]], `${base}&rcvbuf=NaN`],
        ["an empty key", [["primaryEncryption", "32"]], `${base}&pbkeylen=32&passphrase=`],
        ["a listener turned back: hidden field and address stay", [["primaryMode", "listener"], ["fcBuf", "7"], ["primaryMode", "caller"]],
            "srt://0.0.0.0:1?mode=caller&fc=7"],
    ]) {
        for (const [id, value] of fields) await open.set(id, value);
        await applyAndSettle(open);
        assert.equal(setUris(open)[0].uri, uri, name);
        for (const id of ["rcvbuf", "primaryID"]) await open.set(id, "");
        await open.set("primaryEncryption", "0");
    }
});

test("hidden fields follow mode, encryption and platform, each row its own", async (t) => {
    const open = await openPage(t, { replies: { "/api/cfg/get": uris("srt://h:1?mode=caller", "srt://h:2?mode=caller") } });
    for (const [row, flight, eye] of [["primary", "#fcBufContainer", "#togglePassword"],
        ["backup", "#fcBufContainerBackup", "#backupTogglePassword"]]) {
        const key = `#${row}EncryptionKey`;
        const seen = async () => Promise.all([flight, `${key}Container`, eye].map(open.visible));
        const look = async () => [await open.page.getAttribute(key, "type"),
            (await open.style(eye, "background-image")).match(/visibility\w*/)[0]];
        assert.deepEqual(await seen(), [false, false, false], row);
        await open.page.selectOption(`#${row}Mode`, "listener");
        await open.page.selectOption(`#${row}Encryption`, "16");
        assert.deepEqual(await seen(), [true, true, true], row);
        for (const expected of [["password", "visibility"], ["text", "visibility_off"], ["password", "visibility"]]) {
            assert.deepEqual(await look(), expected, row);
            await open.page.click(eye);
        }
    }

    const other = await openPage(t, { replies: { "/api/caps": { ...decoderCaps, platform: "other" } } });
    await applyAndSettle(other);
    assert.doesNotMatch(setUris(other)[0].uri, /pbkeylen/);
    const boxes = ["#primaryEncryptionContainer", "#backupEncryptionContainer"];
    assert.deepEqual(await Promise.all(boxes.map(other.visible)), [false, false]);
    assert.equal(await other.text("ip1"), "ETH0 IP:");
});

test("changes light Apply up, Clear takes them back, and Enter does nothing", async (t) => {
    const open = await openPage(t, { replies: { "/api/cfg/get": uris("srt://h:1?mode=caller&pbkeylen=16&passphrase=0123456789") } });
    const loaded = await open.fields(fieldIds);
    const type = (text) => open.page.fill("#primaryLatency", text).then(() => open.page.press("#primaryLatency", "End"));
    await type("300");
    await open.page.selectOption("#primaryMode", "listener");
    await open.page.selectOption("#primaryEncryption", "0");
    assert.deepEqual(await changedLook(open), [true, true]);
    await open.page.click("#clearStreamChanges");
    assert.deepEqual(await open.fields(fieldIds), loaded);
    assert.deepEqual(await changedLook(open), [false, false]);
    assert.equal(await open.visible("#primaryEncryptionKeyContainer"), true);
    await type("300");
    await type("");
    assert.deepEqual(await changedLook(open), [false, false], "typed back by hand");
    await open.page.evaluate(() => { window.alive = true; });
    for (const id of ["primaryAddress", "backupPort", "primaryEncryptionKey"]) await open.page.press(`#${id}`, "Enter");
    assert.equal(await open.page.evaluate(() => window.alive), true, "Enter does not reload the page");
    assert.deepEqual(open.unit.posts("/api/cfg/set"), [], "nor apply");
});

test("Apply counts as unchanged before any reply, and only the reply's status makes a failure", async (t) => {
    const open = await openPage(t, { consoleErrors: [failedRequest] });
    await open.set("primaryLatency", "345");
    open.unit.replies["/api/cfg/set"] = HANG;
    await open.page.click("#setStream");
    assert.deepEqual(await changedLook(open), [false, false]);
    assert.deepEqual(await open.nextToast(() => open.run(3000)),
        ["Set Stream", "Failed: Settings not applied. Please try again", "error"]);
    assert.equal((await open.fields(["primaryLatency"])).primaryLatency, "345");
    assert.deepEqual(await changedLook(open), [false, false]);
    assert.equal(await open.page.$("#primaryStreamHistoryContainer select"), null);
    for (const [reply, status] of [[raw("", { status: 500 }), "error"], [raw("not json", { type: "application/json" }), "success"]]) {
        open.unit.replies["/api/cfg/set"] = reply;
        assert.equal((await open.nextToast(() => open.page.click("#setStream")))[2], status);
    }
});

const historyOf = (open, row) => open.page.$$eval(`#${row}StreamHistoryContainer option`, (options) => options.map(({ text }) => text));
const stored = (open, row) => open.page.evaluate((name) => JSON.parse(localStorage.getItem(`${name}StreamHistory`)), row);

test("history appends what is new, shows ten and may store eleven", async (t) => {
    const old = Array.from({ length: 12 }, (_, i) => `srt://old:${i}?mode=caller`);
    const open = await openPage(t, { storage: { primaryStreamHistory: JSON.stringify(old), backupStreamHistory: "no json" },
        replies: { "/api/cfg/get": uris("srt://h:1?mode=caller", "srt://b:2?mode=caller") } });
    assert.deepEqual(await historyOf(open, "primary"), ["History", ...old.slice(2)]);
    assert.deepEqual(await historyOf(open, "backup"), []);
    await applyAndSettle(open);
    assert.deepEqual(await stored(open, "primary"), [...old.slice(2), "srt://h:1?mode=caller"]);
    assert.deepEqual(await historyOf(open, "primary"), ["History", ...old.slice(3), "srt://h:1?mode=caller"]);
    assert.deepEqual(await stored(open, "backup"), ["srt://b:2?mode=caller"]);
    await applyAndSettle(open);
    assert.equal((await stored(open, "primary")).length, 11, "the same address again");
});

test("a choice posts one record with the row's Enable, by mouse or by keyboard", async (t) => {
    const entries = ["srt://one:1?mode=caller", "srt://two:2?mode=caller"];
    const open = await openPage(t, { storage: { backupStreamHistory: JSON.stringify(entries) } });
    const select = "#backupStreamHistoryContainer select";
    await open.set("backupEnable", "false");
    open.unit.replies["/api/cfg/get"] = uris("srt://", entries[1]);
    assert.deepEqual(await open.nextToast(() => open.page.selectOption(select, entries[1])),
        ["Set Stream", `Succeeded!<br>Backup: ${entries[1]}`, "success"]);
    await open.settle();
    assert.deepEqual(open.unit.posts("/api/cfg/set"), [{ uris: [{ idx: 1, enable: false, uri: entries[1] }] }]);
    assert.deepEqual(await open.fields(["backupEnable", "backupAddress"]), { backupEnable: "true", backupAddress: "two" }, "loaded again");
    assert.deepEqual(await changedLook(open), [false, false]);
    assert.equal(await open.page.inputValue(select), "");

    await open.page.focus(select);
    await open.page.press(select, "ArrowDown");
    await open.page.press(select, "ArrowDown");
    await open.page.press(select, "ArrowUp");
    assert.equal(open.unit.posts("/api/cfg/set").length, 1, "arrows only browse");
    await open.page.press(select, "Enter");
    await open.settle();
    assert.deepEqual(open.unit.posts("/api/cfg/set").at(-1).uris[0].uri, entries[0]);
    assert.equal(await open.page.evaluate(() => document.activeElement.matches("#backupStreamHistoryContainer select")), true);
});

test("addresses become text in toast and history, never markup", async (t) => {
    const evil = "srt://h:1?mode=caller&streamid=<img src=x onerror=alert(1)>";
    const open = await openPage(t, { storage: { primaryStreamHistory: JSON.stringify([evil, 7, null]) },
        replies: { "/api/cfg/get": uris("srt://h:1?mode=caller", "srt://b:2?mode=caller") } });
    assert.deepEqual(await historyOf(open, "primary"), ["History", evil, "7", "null"]);
    await open.page.fill("#primaryID", "<img src=x onerror=alert(1)>");
    const [title, markup] = await open.nextToast(() => open.page.click("#setStream"));
    assert.deepEqual([title, markup], ["Set Stream", "Succeeded!<br>Primary: srt://h:1?mode=caller"
        + "&amp;streamid=&lt;img src=x onerror=alert(1)&gt;<br>Backup: srt://b:2?mode=caller"]);
});
