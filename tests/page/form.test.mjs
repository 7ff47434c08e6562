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
    await open.page.dblclick("#setStream");
    await open.settle();
    assert.equal(open.unit.count("/api/cfg/set"), 1, "two clicks in a row");
    const listener = (port) => `srt://0.0.0.0:${port}?mode=listener&streamid=s&latency=120`;
    assert.deepEqual(setUris(open), [
        { idx: 0, enable: true, uri: `${listener(1)}&fc=9&sndbuf=8200000&pbkeylen=16&passphrase=0123456789` },
        { idx: 1, enable: false, uri: `${listener(2)}&pbkeylen=16&passphrase=0123456789&fc=9&sndbuf=8200000` },
    ]);
});

test("Apply waits until the unit has told what it is and what is set", async (t) => {
    const bad = [raw("", { status: 500 }), {}, raw("no json")];
    const open = await openPage(t, { replies: { "/api/caps": bad[0], "/api/cfg/get": bad[0] }, consoleErrors: [failedRequest],
        storage: { primaryStreamHistory: '["srt://h:1"]' } });
    const waits = async () => [await open.page.isDisabled("#setStream"), await open.page.isDisabled("#primaryStreamHistoryContainer select"),
        /waits/.test(await open.text("applyNote"))];
    for (const [caps, settings, expected] of [[bad[1], bad[1], [true, true, true]], [decoderCaps, bad[2], [true, true, true]],
        [decoderCaps, uris("srt://h:1?mode=caller&pbkeylen=16&passphrase=0123456789"), [false, false, false]]]) {
        Object.assign(open.unit.replies, { "/api/caps": caps, "/api/cfg/get": settings });
        await open.run(1000);
        await open.settle();
        assert.deepEqual(await waits(), expected);
    }
    await applyAndSettle(open);
    assert.equal(setUris(open)[0].uri, "srt://h:1?mode=caller&pbkeylen=16&passphrase=0123456789");
});

test("what the unit did not take is told with its row, and only that", async (t) => {
    const open = await openPage(t);
    const base = "srt://h:1?mode=caller";
    for (const [id, stored, told] of [
        ["news 1", "srt://h:1?latency=9&mode=caller", 'Write %20 for " ".'],
        ['ü"#50%', base, 'Write %C3%BC for "ü". Write %22 for """. Write %23 for "#". Write %25 for "%".'],
        ["a%20b+c", "srt://h:1?mode=caller&streamid=a b c"],
        ["a%2541%26d", "srt://h:1?mode=caller&streamid=aA&d"],
    ]) {
        await load(open, uris(base));
        await open.set("primaryID", id);
        const before = (await open.toasts()).length;
        open.unit.replies["/api/cfg/set"] = (body) => {
            open.unit.replies["/api/cfg/get"] = { uris: [{ idx: 0, enable: true, uri: stored }, JSON.parse(body).uris[1]] };
        };
        await applyAndSettle(open);
        const errors = (await open.toasts()).slice(0, -before || undefined).filter(([, , status]) => status === "error");
        assert.deepEqual(errors, told ? [["Set Stream", `Primary: the unit did not take these settings. ${told}`, "error"]] : [], id);
    }
    await load(open, uris(base));
    open.unit.replies["/api/cfg/set"] = () => { open.unit.replies["/api/cfg/get"] = uris("srt://a.part:1"); };
    await applyAndSettle(open);
    open.unit.replies["/api/cfg/get"] = uris("srt://of.the.file:1");
    await open.run(3000);
    await open.settle();
    assert.equal(await open.page.inputValue("#primaryAddress"), "of.the.file", "the part that it kept is gone by then");
});

test("a row tells in words what its fields do not hold", async (t) => {
    const open = await openPage(t);
    for (const [uri, note] of [
        ["srt://h:1?fc=25600&latency=200&mode=caller&passphrase=0123456789&pbkeylen=32&rcvbuf=8200000&streamid=a", ""],
        ["srt://me@h:1/live?mode=caller&streamrate=5000000&x", "Also set: user me, path /live, streamrate=5000000, x, lost with Apply."],
        ["srt://h:80?mode=caller&passphrase=0123456789", "Also set: port 80, passphrase=0123456789, lost with Apply."],
        ["SRT://h:1?mode=caller", "Also set: scheme SRT, lost with Apply."],
        ["srt://10.0.0.1:1?mode=listener", "Also set: address 10.0.0.1, lost with Apply."],
        ["srt://[::1]:1?mode=caller&streamid=a b", 'The unit will refuse what stands here. Write %20 for " ".'],
    ]) {
        for (const id of ["rcvbuf", "fcBuf"]) await open.set(id, "");
        await load(open, uris(uri));
        assert.equal((await open.text("primaryNote")).trim(), note, uri);
    }
});

test("settings that somebody else has changed are not replaced unasked", async (t) => {
    const open = await openPage(t);
    const shown = (wanted) => open.runUntil(10, async () => await open.page.$eval("#replaceModal", (box) =>
        getComputedStyle(box).display) === (wanted ? "block" : "none"), "the question");
    for (const [button, posts, address, changed] of [["Cancel", 0, "h", true], ["Load", 0, "other", false], ["Confirm", 1, "h", false]]) {
        await load(open, uris("srt://h:1?mode=caller"));
        await open.set("primaryLatency", "345");
        open.unit.replies["/api/cfg/get"] = uris("srt://other:7?mode=caller&passphrase=0123456789");
        await open.page.click("#setStream");
        await shown(true);
        await open.run(400);
        assert.match(await open.text("replaceStreams"), /^Primary: srt:\/\/other:7\?mode=caller&passphrase=… \(On\)\nBackup: srt:\/\/ \(Off\)$/);
        assert.deepEqual(await changedLook(open), [false, false]);
        await open.page.click(`#replaceModal .modal-footer >> text=${button}`);
        await shown(false);
        await open.settle();
        assert.deepEqual([open.unit.count("/api/cfg/set"), await open.page.inputValue("#primaryAddress"), await changedLook(open)],
            [posts, address, [changed, changed]], button);
        assert.equal(await open.focused("#setStream"), true, button);
    }
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
    await open.page.evaluate(() => localStorage.setItem("backupStreamHistory", '["srt://of:another?tab"]'));
    await applyAndSettle(open);
    assert.deepEqual(await stored(open, "primary"), [...old.slice(2), "srt://h:1?mode=caller"]);
    assert.deepEqual(await historyOf(open, "primary"), ["History", ...old.slice(3), "srt://h:1?mode=caller"]);
    assert.deepEqual(await stored(open, "backup"), ["srt://of:another?tab", "srt://b:2?mode=caller"]);
    await applyAndSettle(open);
    assert.equal((await stored(open, "primary")).length, 11, "the same address again");
});

test("a choice posts one record with the row's Enable, by mouse or by keyboard", async (t) => {
    const entries = ["srt://one:1?mode=caller", "srt://two:2?mode=caller"];
    const open = await openPage(t, { storage: { backupStreamHistory: JSON.stringify(entries) } });
    const select = "#backupStreamHistoryContainer select";
    await open.set("backupEnable", "false");
    assert.deepEqual(await open.nextToast(() => open.page.selectOption(select, entries[1])),
        ["Set Stream", `Succeeded!<br>Backup: ${entries[1]}`, "success"]);
    await open.settle();
    assert.deepEqual(open.unit.posts("/api/cfg/set"), [{ uris: [{ idx: 1, enable: false, uri: entries[1] }] }]);
    assert.deepEqual(await open.fields(["backupEnable", "backupAddress"]), { backupEnable: "false", backupAddress: "two" }, "loaded again");
    assert.deepEqual(await changedLook(open), [false, false]);
    assert.equal(await open.page.inputValue(select), "");

    const openList = () => open.page.click(select);
    const left = "which leaves the list at its title";
    for (const [name, index, act, ...keys] of [
        ["arrows", 1, () => {}, "ArrowDown", "ArrowDown", "ArrowUp"],
        [`Tab, ${left}`, 0, () => {}, "ArrowDown", "Tab"],
        ["a click that opens the list after arrows", 0, openList, "ArrowDown"],
        [`Escape from a list opened by mouse, ${left}`, 0, () => {}, "Escape", "ArrowDown", "Escape"],
        [`Escape from a list opened by key, ${left}`, 0, () => {}, "Alt+ArrowDown", "ArrowDown", "Escape"],
    ]) {
        await open.page.focus(select);
        for (const key of keys) await open.page.keyboard.press(key);
        await act();
        assert.equal(open.unit.count("/api/cfg/set"), 1, `nothing is picked by ${name}`);
        assert.equal(await open.page.$eval(select, (list) => list.selectedIndex), index, name);
    }
    for (const [name, act, ...keys] of [["a closed list", () => {}, "ArrowDown", "Enter"],
        ["a list opened by key", () => {}, "Alt+ArrowDown", "ArrowDown", "Enter"], ["a list opened by mouse", openList, "ArrowDown", "Enter"]]) {
        const before = open.unit.count("/api/cfg/set");
        await act();
        await open.page.focus(select);
        for (const key of keys) await open.page.keyboard.press(key);
        await open.settle();
        assert.equal(open.unit.count("/api/cfg/set"), before + 1, name);
        assert.equal(setUris(open)[0].uri, entries[0], name);
        assert.equal(await open.focused(select), true, name);
    }
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
