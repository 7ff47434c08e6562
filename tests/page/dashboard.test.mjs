// The frame, the polling loops, the current stream line, charts, Status, logs.
import assert from "node:assert/strict";
import { test } from "node:test";
import { failedRequest, openPage } from "./fixture.mjs";
import {
    DROP, HANG, decoderCaps, encoderCaps, encoderStats, livePrimary, liveStats, noStreamStats, raw, uris,
} from "../../tools/page/scripted_unit.mjs";
import { waitUntil } from "../../tools/page/wait_until.mjs";

const yellow = "rgb(255, 219, 61)";
const blue = "rgb(0, 159, 214)";
const statusIds = ["statsIndex", "srtEndpoint", "srtBPS", "statsTime", "srtMaxBandwidth", "srtBandwidth", "srtRTT",
    "srtMsRcvBuf", "srtPackets", "srtDropped", "srtLost", "srtRetransmitted", "byteAvailRcvBuf", "byteRcvBuf",
    "packetsInFlight", "flowStat", "statsID", "statsEncryptionType"];
const without = (object, ...keys) => Object.fromEntries(Object.entries(object).filter(([key]) => !keys.includes(key)));

test("a live decoder fills header, line, grid and charts", async (t) => {
    const open = await openPage(t);
    assert.deepEqual(await open.texts(["addonVer", "srtVersion", "prodModel", "prodSerial", "ip1", "ethIP", "ip2", "gbeIP"]), {
        addonVer: "1.0.9", srtVersion: "1.4.4", prodModel: "WQ-200", prodSerial: "4711",
        ip1: "IP1", ethIP: "192.168.10.21", ip2: "IP2", gbeIP: "10.0.0.21",
    });
    assert.equal(await open.line("currentActive"), "Current: Primary (Caller) 203.0.113.7 Port 5000 - ID news-1"
        + " - Latency 200 - ENABLE: ON - Connected 1 day, 1h1m 1s");
    assert.deepEqual(Object.values(await open.texts(statusIds)), ["Primary", "203.0.113.7:5000", "12.5", "1 day, 1h1m 1s",
        "125", "94.512", "18.432", "187", "1234567", "4", "321", "317", "11.534336", "285160", "12", "8192", "news-1", "AES128"]);
    assert.equal((await open.chart("audioBars")).data[15], 70000);
    assert.deepEqual((await open.chart("packetsGraph")).data, [1234567, 321, 4, 317]);
    const rate = await open.chart("bpsGraph");
    assert.deepEqual([rate.data.length, rate.data[15], rate.labels[15], rate.labels[0]], [16, 12.5, "8:5", ""]);
});

test("families differ in thumbnail, buffer cells and Restart IP", async (t) => {
    for (const [product, route, restartIp] of [
        ["WX-100", "/api/encthumb", false], ["WQ-200", "/api/thumb", true],
        ["unknown", "/api/thumb", false], ["ZZ", "/api/thumb", false],
    ]) {
        const stats = product.startsWith("WX") ? encoderStats : liveStats;
        const open = await openPage(t, { replies: { "/api/caps": { ...encoderCaps, product }, "/api/stats": stats } });
        const src = await open.page.getAttribute("#imgThumb", "src");
        assert.match(src, new RegExp(`^${route}\\?time=\\d+$`), product);
        assert.equal(await open.visible("#restartIP"), restartIp, product);
    }
    const encoder = await openPage(t, { replies: { "/api/stats": encoderStats } });
    assert.deepEqual(Object.values(await encoder.texts(["byteAvailRcvBuf", "byteRcvBuf", "srtMsRcvBuf"])), ["7.5", "4096", "120"]);
});

test("the walk ends at the first missing section and steps over a missing key", async (t) => {
    const live = { rate: 12.5, time: blue };
    const ended = { rate: 0, time: yellow, console: true };
    const changed = { ...liveStats, current_idx: 1, endpoint: "new", window: { flight: 77, flow: 1 },
        link: { ...liveStats.link, rtt: 99 }, recv: { ...liveStats.recv, byteRcvBuf: 5, packets: 6 } };
    const rows = [
        ["no recv", without(changed, "recv"), ended, { statsIndex: "Backup", byteRcvBuf: "285160", packetsInFlight: "12" }],
        ["no window", without(changed, "window"), ended, { byteRcvBuf: "5", packetsInFlight: "12", srtRTT: "18.432" }],
        ["no link", without(changed, "link"), ended, { packetsInFlight: "77", srtRTT: "18.432", srtPackets: "1234567" }],
        ["levels that do not parse", { ...changed, audio_levels: "[1," }, ended, { srtPackets: "6", srtEndpoint: "new" }],
        ["no levels", without(changed, "audio_levels"), ended, { srtEndpoint: "new" }],
        ["an empty reply", {}, ended, { statsIndex: "Primary", srtPackets: "1234567" }],
        ["no rtt, rate, flight, nor lost packets", { ...changed, link: without(changed.link, "rtt", "bps"), window: { flow: 1 },
            recv: without(changed.recv, "packetsLost") }, live,
        { srtRTT: "18.432", srtBPS: "12.5", packetsInFlight: "12", flowStat: "1", srtPackets: "6", srtLost: "321" }],
        ["buffers and latency of zero", { ...changed, recv: { ...changed.recv, msRcvBuf: 0, byteRcvBuf: 0, byteAvailRcvBuf: 0 } },
            live, { srtMsRcvBuf: "187", byteRcvBuf: "285160", byteAvailRcvBuf: "11.534336" }],
        ["time of zero with a stream", { ...changed, time: 0 }, { rate: 12.5, time: yellow },
            { statsTime: "0s", connectedTime: "Connected 0s" }],
    ];
    const open = await openPage(t);
    let messages = [];
    open.page.on("console", (message) => messages.push(message.text()));
    for (const [name, stats, expected, cells] of rows) {
        open.unit.replies["/api/stats"] = liveStats;
        await open.poll();
        messages = [];
        open.unit.replies["/api/stats"] = stats;
        await open.poll();
        assert.deepEqual(await open.texts(Object.keys(cells)), cells, name);
        assert.equal(await open.style("#connectedTime", "color"), expected.time, name);
        assert.equal((await open.chart("bpsGraph")).data[15], expected.rate, name);
        assert.equal((await open.chart("audioBars")).data.length, expected.console ? 0 : 16, name);
        assert.deepEqual((await open.chart("packetsGraph")).data, [expected.console ? 1234567 : 6, 321, 4, 317], name);
        assert.equal(messages.includes("No stream stats provided"), expected.console === true, name);
        assert.deepEqual(await open.toasts(), [], name);
    }
});

test("times read as days, hours, minutes and seconds", async (t) => {
    const open = await openPage(t);
    for (const [seconds, text] of [[59, "59s"], [60, "1m "], [3600, "1h"], [7322, "2h 2m 2s"], [86400, "1 day, "],
        [172800 + 3661, "2 days 1h1m 1s"], [90061, "1 day, 1h1m 1s"]]) {
        open.unit.replies["/api/stats"] = { ...liveStats, time: seconds };
        await open.poll();
        assert.equal(await open.text("statsTime"), text);
    }
});

test("the current line says what its address says", async (t) => {
    const open = await openPage(t);
    for (const [name, reply, line, cells, color] of [
        ["nothing set", uris("srt://"), "Current: Primary Port 0 - ENABLE: ON", { statsID: " " }, "rgb(255, 255, 255)"],
        ["disabled", uris("srt://h:1?mode=caller", "srt://", [false, false]),
            "Current: Primary (Caller) h Port 1 - ENABLE: OFF", { statsID: " ", statsEncryptionType: "AES128" }, "rgb(255, 0, 0)"],
        ["port 80, other key length", uris("srt://0.0.0.0:80?mode=listener&pbkeylen=0&streamid=a+b"),
            "Current: Primary (Listener) Port - ID a b - ENABLE: ON", { statsID: "a b", statsEncryptionType: "Not encrypted" }, "rgb(255, 255, 255)"],
        ["markup", uris("srt://h:1?mode=caller&streamid=<img src=x onerror=alert(1)>&pbkeylen=32"),
            "Current: Primary (Caller) h Port 1 - ID <img src=x onerror=alert(1)> - ENABLE: ON", { statsEncryptionType: "AES256" }, "rgb(255, 255, 255)"],
    ]) {
        open.unit.replies["/api/cfg/get"] = reply;
        await open.poll();
        assert.equal((await open.line("currentActive")).split(" - Connected")[0], line, name);
        assert.deepEqual(await open.texts(Object.keys(cells)), cells, name);
        assert.equal(await open.style("#currentActive", "color"), color, name);
        assert.equal(await open.style("#idx1Select", "visibility"), "hidden", name);
    }
});

test("selection cells show the active stream, and Select posts the other", async (t) => {
    const open = await openPage(t, { consoleErrors: [failedRequest] });
    const cells = async () => Promise.all(["#idx0Select button", "#idx0Select span", "#idx1Select button", "#idx1Select span"]
        .map((selector) => open.visible(selector)));
    assert.deepEqual(await cells(), [false, true, true, false]);
    assert.deepEqual(await open.nextToast(() => open.page.click("#idx1Select button")),
        ["", "Success: Backup stream selected", "success"]);
    assert.deepEqual(open.unit.posts("/api/source/set"), [{ index: 1 }]);
    assert.deepEqual(await cells(), [false, true, true, false], "until the next reply");
    open.unit.replies["/api/stats"] = { ...liveStats, current_idx: 1 };
    await open.poll();
    assert.deepEqual(await cells(), [true, false, false, true]);
    open.unit.replies["/api/source/set"] = raw("", { status: 500 });
    assert.deepEqual(await open.nextToast(() => open.page.click("#idx0Select button")),
        ["Failure", "Failure: Please try again", "error"]);
});

test("two lost polls, good ones between or not, bring the toast; the next reply clears it", async (t) => {
    const open = await openPage(t, { consoleErrors: [failedRequest] });
    const lose = async () => { open.unit.replies["/api/stats"] = raw("", { status: 500 }); await open.poll(); };
    const win = async () => { open.unit.replies["/api/stats"] = liveStats; await open.poll(); };
    const lost = async () => [await open.visible("#overlay"), (await open.page.$$(".sn-notify-filled.sn-notify-error")).length];

    await lose();
    assert.deepEqual([await lost(), (await open.chart("bpsGraph")).data[15]], [[false, 0], 0]);
    await win();
    await lose();
    assert.deepEqual(await lost(), [true, 1]);
    assert.deepEqual((await open.toasts())[0],
        ["Connection lost", "Check network connection or reboot the unit and try again.", "error"]);
    assert.equal(await open.page.$(".sn-notify-close"), null);
    await lose();
    assert.deepEqual(await lost(), [true, 1]);
    await win();
    await open.run(600);
    assert.deepEqual(await lost(), [false, 0]);
    await lose();
    assert.deepEqual(await lost(), [false, 0], "the count starts afresh");

    await win();
    const polls = open.unit.count("/api/stats");
    open.unit.replies["/api/stats"] = HANG;
    await open.run(1000);
    await waitUntil(() => open.unit.count("/api/stats") > polls, "the poll that hangs");
    await open.run(2900);
    assert.deepEqual([await lost(), (await open.chart("bpsGraph")).data[15]], [[false, 0], 12.5], "three seconds are not over");
    await open.run(200);
    assert.deepEqual(await lost(), [true, 1]);
});

test("offline, the loops slow down, send nothing and clear the picture", async (t) => {
    const open = await openPage(t, { consoleErrors: [failedRequest] });
    await open.page.context().setOffline(true);
    const points = async () => (await open.chart("bpsGraph")).data.filter((value) => value === 0).length;
    const [sent, before] = [open.unit.requests.length, await points()];
    await open.run(1000);
    assert.equal(await open.page.getAttribute("#imgThumb", "src"), null);
    assert.equal(await points(), before, "one live point out, one zero in");
    await open.run(1900);
    assert.equal(await open.visible("#overlay"), false);
    await open.run(200);
    assert.equal(await open.visible("#overlay"), true);
    assert.equal(open.unit.requests.length, sent);
});

test("the thumbnail goes when it cannot be loaded or the reply cannot be read", async (t) => {
    const open = await openPage(t, { consoleErrors: [failedRequest] });
    const src = () => open.page.getAttribute("#imgThumb", "src");
    open.unit.replies["/api/caps"] = DROP;
    const stale = await src();
    await open.poll();
    assert.equal(await src(), stale, "a failed request leaves the picture");
    open.unit.replies["/api/caps"] = raw("no json");
    await open.poll();
    assert.equal(await src(), null);
    Object.assign(open.unit.replies, { "/api/caps": decoderCaps, "/api/thumb": raw("", { type: "image/gif" }) });
    await open.poll();
    await waitUntil(async () => await src() === null, "the empty image to go");

    open.unit.replies["/api/caps"] = DROP;
    await open.page.route("**/main.js", async (route) => {
        await waitUntil(() => open.page.evaluate(() => document.getElementById("imgThumb")?.complete), "the first image to fail");
        await route.continue();
    });
    await open.page.reload();
    assert.equal(await src(), null, "no script was there to see it fail");
});

test("the log shows the newest line first and keeps still while nothing is new", async (t) => {
    const open = await openPage(t, { replies: { "/proxy.log": raw("one\n<b>two</b>") }, consoleErrors: [failedRequest] });
    assert.equal(await open.text("logOutput"), "<b>two</b>\none");
    const node = await open.page.evaluateHandle(() => document.getElementById("logOutput").firstChild);
    await open.poll();
    assert.equal(await node.evaluate((text) => text.isConnected), true);
    open.unit.replies["/proxy.log"] = raw("", { status: 404 });
    await open.poll();
    assert.equal(await open.text("logOutput"), "<b>two</b>\none");
});

test("no failure of any route stops a loop", async (t) => {
    const open = await openPage(t, { consoleErrors: [failedRequest], replies: { "/api/stats": noStreamStats } });
    for (const bad of [DROP, raw("nonsense"), raw("null", { type: "application/json" }), raw("[]"), raw("7"), raw("", { status: 503 })]) {
        for (const path of ["/api/stats", "/api/caps", "/api/cfg/get", "/proxy.log", "/api/thumb"]) {
            open.unit.replies[path] = bad;
        }
        await open.poll();
    }
    Object.assign(open.unit.replies, { "/api/stats": liveStats, "/api/cfg/get": uris(livePrimary) });
    await open.poll();
    assert.equal(await open.text("srtBPS"), "12.5");
});
