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
const [white, red] = ["rgb(255, 255, 255)", "rgb(255, 0, 0)"];
const without = (object, ...keys) => Object.fromEntries(Object.entries(object).filter(([key]) => !keys.includes(key)));

test("a live decoder fills header, line and grid", async (t) => {
    const open = await openPage(t);
    assert.deepEqual(await open.read(".header-left a, .header-right > *"), ["Tidewell 1.0.9", "SRT Version: 1.4.4",
        "Check for New Firmware", "Model: WQ-200-4711", "IP1 192.168.10.21", "IP2 10.0.0.21"]);
    assert.deepEqual(await open.read("#currentActive"), ["Current: Primary (Caller) 203.0.113.7 Port 5000 - ID news-1"
        + " - Latency 200 - ENABLE: ON - Connected 1 day, 1h1m 1s"]);
    assert.deepEqual(await open.read(".status-cell"), ["CURRENT ACTIVE Primary", "CONNECTED ENDPOINT 203.0.113.7:5000",
        "FLOW (MBS) 12.5", "CONNECTED TIME 1 day, 1h1m 1s", "LINK SPEED 125", "LINK BANDWIDTH (MBS) 94.512", "RTT (MS) 18.432",
        "LATENCY (MS) 187", "PACKETS 1234567", "DROPPED 4", "LOST 321", "RETRANSMITTED 317", "AVAILABLE BUFFER (MB) 11.534336",
        "BUFFERED (BYTES) 285160", "PACKETS IN FLIGHT 12", "FLOW 8192", "STREAM ID news-1", "ENCRYPTION AES128"]);
    assert.equal(await open.page.$$eval("#srtPackets span", (groups) => groups.map((group) =>
        getComputedStyle(group, "::before").content.replace(/none|"/g, "") + group.textContent).join("")), "1,234,567");
    assert.equal(await open.text("audioLevels"), "Channels 1 to 16, in percent: 64, 59, 47, 45, 33, 32, 14, 13, 0, 0, 0, 0, 1, 79, 97, 100");
    assert.deepEqual(await open.page.evaluate(() => [59, 60, 3600, 7322, 86400, 172800 + 3661].map(window.formatTime)),
        ["59s", "1m ", "1h", "2h 2m 2s", "1 day, ", "2 days 1h1m 1s"]);
});

test("the charts show the reply on their scales", async (t) => {
    const open = await openPage(t);
    const looks = await open.page.evaluate(() => ["audioBars", "bpsGraph", "packetsGraph"].map((id) => {
        const { config, data: { labels, datasets }, scales: { y } } = window.Chart.getChart(id);
        return [config.type, labels.join(), y.min, y.options.max, y.options.stacked === true, ...datasets.map(({ data }) => data)];
    }));
    assert.deepEqual(looks, [
        ["bar", "1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16", 0, 66000, true, JSON.parse(liveStats.audio_levels), Array(16).fill(65000)],
        ["line", `${",".repeat(15)}8:5`, 0, undefined, false, [...Array(15).fill(0), 12.5]],
        ["bar", "Total,Lost,Dropped,Retrans", 0, undefined, false, [1234567, 321, 4, 317]],
    ]);
});

test("the unit is asked once a second, no later and no sooner", async (t) => {
    const open = await openPage(t);
    const counts = () => ["/api/stats", "/api/caps", "/proxy.log"].map((path) => open.unit.count(path));
    const before = counts();
    for (const [milliseconds, more] of [[900, 0], [200, 1]]) {
        await open.run(milliseconds);
        await open.settle();
        assert.deepEqual(counts(), before.map((count) => count + more), `${milliseconds} ms on`);
    }
});

test("families differ in thumbnail, buffer cells and Restart IP", async (t) => {
    for (const [product, route, restartIp] of [
        ["WX-100", "/api/encthumb", false], ["WQ-200", "/api/thumb", true],
        ["unknown", "/api/thumb", false], ["ZZ", "/api/thumb", false],
    ]) {
        const [stats, cells] = product === "WX-100" ? [encoderStats, ["7.5", "4096", "120"]] : [liveStats, ["11.534336", "285160", "187"]];
        const open = await openPage(t, { replies: { "/api/caps": { ...encoderCaps, product }, "/api/stats": stats } });
        assert.match(await open.page.getAttribute("#imgThumb", "src"), new RegExp(`^${route}\\?time=\\d+$`), product);
        assert.equal(await open.visible("#restartIP"), restartIp, product);
        assert.deepEqual(Object.values(await open.texts(["byteAvailRcvBuf", "byteRcvBuf", "srtMsRcvBuf"])), cells, product);
    }
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
        assert.equal((await open.chart("bpsGraph"))[15], expected.rate, name);
        assert.equal((await open.chart("audioBars")).length, expected.console ? 0 : 16, name);
        assert.deepEqual(await open.chart("packetsGraph"), [expected.console ? 1234567 : 6, 321, 4, 317], name);
        assert.equal(messages.includes("No stream stats provided"), expected.console === true, name);
        assert.deepEqual(await open.toasts(), [], name);
    }
});

test("the current line says what its address says", async (t) => {
    const open = await openPage(t);
    for (const [name, reply, line, cells, color] of [
        ["nothing set", uris("srt://"), "Current: Primary Port 0 - ENABLE: ON", { statsID: " " }, white],
        ["disabled", uris("srt://h:1?mode=caller", "srt://", [false, false]),
            "Current: Primary (Caller) h Port 1 - ENABLE: OFF", { statsID: " ", statsEncryptionType: "AES128", encryptionNote: "until the last change: the address sets none now" }, red],
        ["port 80, other key length", uris("srt://0.0.0.0:80?mode=listener&pbkeylen=0&streamid=a+b"),
            "Current: Primary (Listener) Port - ID a b - ENABLE: ON", { statsID: "a b", statsEncryptionType: "Not encrypted", encryptionNote: "" }, white],
        ["markup", uris("srt://h:1?mode=caller&streamid=<img src=x onerror=alert(1)>&pbkeylen=32"),
            "Current: Primary (Caller) h Port 1 - ID <img src=x onerror=alert(1)> - ENABLE: ON", { statsEncryptionType: "AES256" }, white],
        ["a switch to an address without encryption", uris("srt://h:1", "srt://b:2?mode=caller", [true, false]),
            "Current: Backup (Caller) b Port 2 - ENABLE: OFF", { statsEncryptionType: "Not Encrypted" }, red],
    ]) {
        open.unit.replies["/api/stats"] = { ...liveStats, current_idx: Number(line.includes("Backup")) };
        open.unit.replies["/api/cfg/get"] = reply;
        await open.poll();
        assert.equal((await open.read("#currentActive"))[0].split(" - Connected")[0], line, name);
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
    assert.deepEqual(await open.nextToast(() => open.page.press("#idx1Select button", "Enter")),
        ["", "Success: Backup stream selected", "success"]);
    assert.deepEqual(open.unit.posts("/api/source/set"), [{ index: 1 }]);
    assert.deepEqual(await cells(), [false, true, true, false], "until the next reply");
    open.unit.replies["/api/stats"] = { ...liveStats, current_idx: 1 };
    await open.poll();
    assert.deepEqual(await cells(), [true, false, false, true]);
    assert.equal(await open.focused("#idx1Select span"), true, "the keyboard stays where it was");
    open.unit.replies["/api/source/set"] = raw("", { status: 500 });
    assert.deepEqual(await open.nextToast(() => open.page.click("#idx0Select button")),
        ["Failure", "Failure: Please try again", "error"]);
});

test("two lost polls, good ones between or not, bring the toast; the next reply clears it", async (t) => {
    const open = await openPage(t, { consoleErrors: [failedRequest] });
    const lose = async () => { open.unit.replies["/api/stats"] = raw("", { status: 500 }); await open.poll(); };
    const win = async () => { open.unit.replies["/api/stats"] = liveStats; await open.poll(); };
    const lost = async () => [await open.page.evaluate(() => document.elementFromPoint(700, 450).id === "overlay"),
        (await open.page.$$(".sn-notify-filled.sn-notify-error")).length];

    await lose();
    assert.deepEqual([await lost(), (await open.chart("bpsGraph"))[15]], [[false, 0], 0]);
    await win();
    await open.page.focus("#setStream");
    await lose();
    assert.deepEqual(await lost(), [true, 1]);
    for (const key of ["Enter", "Tab", "Enter"]) await open.page.keyboard.press(key);
    assert.deepEqual(open.unit.requests.filter(({ method }) => method === "POST"), [], "nothing behind the overlay is reached");
    assert.deepEqual((await open.toasts())[0],
        ["Connection lost", "Check network connection or reboot the unit and try again.", "error"]);
    assert.equal(await open.page.$(".sn-notify-close"), null);
    assert.equal(await open.style("#overlay", "z-index"), "9998", "over a dialog and under a toast");
    await lose();
    assert.deepEqual(await lost(), [true, 1]);
    await win();
    await open.run(600);
    assert.deepEqual([await lost(), await open.focused("#setStream")], [[false, 0], true]);
    await lose();
    assert.deepEqual(await lost(), [false, 0], "the count starts afresh");

    await win();
    const polls = open.unit.count("/api/stats");
    open.unit.replies["/api/stats"] = HANG;
    await open.run(1000);
    await waitUntil(() => open.unit.count("/api/stats") > polls, "the poll that hangs");
    await open.run(2900);
    assert.deepEqual([await lost(), (await open.chart("bpsGraph"))[15]], [[false, 0], 12.5], "three seconds are not over");
    await open.run(200);
    assert.deepEqual(await lost(), [true, 1]);
});

test("offline, the loops slow down, send nothing and clear the picture", async (t) => {
    const open = await openPage(t, { consoleErrors: [failedRequest] });
    await open.page.context().setOffline(true);
    const points = async () => (await open.chart("bpsGraph")).filter((value) => value === 0).length;
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

test("a picture that stays the same is told with its age", async (t) => {
    const open = await openPage(t);
    await open.poll(9);
    assert.equal(await open.text("thumbnailAge"), "");
    await open.poll(3);
    assert.match(await open.text("thumbnailAge"), /^, unchanged for 1[0-2]s$/);
    open.unit.replies["/api/thumb"] = open.unit.replies["/api/encthumb"];
    await open.runUntil(200, async () => await open.text("thumbnailAge") === "", "a picture that is another");
});

test("while no stream is connected, the page asks and tells why", async (t) => {
    const open = await openPage(t, { consoleErrors: [failedRequest] });
    assert.equal(open.unit.count("/api/failures"), 0);
    const told = () => open.read(".notices p").then((lines) => lines.filter(Boolean));
    const fail = (...failures) => {
        open.unit.replies["/api/failures"] = { failures };
        return open.poll();
    };
    open.unit.replies["/api/stats"] = noStreamStats;
    await fail({ slot: 0, reason: "timeout", age: 12 }, { slot: 1, reason: "of a later version", age: 75 });
    assert.deepEqual(await told(), ["Primary: no answer from the far end, 12s ago", "Backup: could not be opened, see Logs, 1m 15s ago"]);
    const node = await open.page.evaluateHandle(() => document.getElementById("primaryFailure").firstChild);
    await fail({ slot: 0, reason: "timeout", age: 13 });
    assert.deepEqual(await told(), ["Primary: no answer from the far end, 13s ago"]);
    assert.equal(await node.evaluate((text) => text.isConnected), true, "not read out again");
    open.unit.replies["/api/stats"] = liveStats;
    await open.poll();
    assert.deepEqual(await told(), []);
    Object.assign(open.unit.replies, { "/api/stats": noStreamStats, "/api/failures": raw("", { status: 404 }) });
    const before = open.unit.count("/api/failures");
    await open.poll(3);
    assert.deepEqual([await told(), open.unit.count("/api/failures") - before], [[], 1], "a unit without the route is asked once");
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
    Object.assign(open.unit.replies, { "/proxy.log": raw("three"), "/api/stats": HANG });
    await open.run(1000);
    await waitUntil(async () => await open.text("logOutput") === "three", "the log, whatever becomes of the stats");
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
