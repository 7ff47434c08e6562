// What a person needs of the page whatever it shows: room, contrast, names, focus.
import assert from "node:assert/strict";
import { test } from "node:test";
import axe from "axe-core";
import { failedRequest, openPage } from "./fixture.mjs";
import { liveStats, noStreamStats, raw, uris } from "../../tools/page/scripted_unit.mjs";

const longId = "news/".repeat(100);
const longUri = `srt://${"long-".repeat(10)}name.example:50000?mode=listener&streamid=${longId}&latency=8000`
    + `&pbkeylen=32&passphrase=${"k".repeat(80)}&fc=25600`;
const longReplies = {
    "/api/cfg/get": uris(longUri, longUri),
    "/proxy.log": raw(`Nov 16 20:53:12 : ${longId}${longId}\n`.repeat(5)),
};

// Boxes that lie over each other or beyond the window's edge.
function misplaced() {
    const boxes = [...document.querySelectorAll(".page-header a, .page-header div > span, #currentActive, .chart-box,"
        + " .chart-box canvas, #pingInput, #sendPing, .help, .stream-heading > *, .selection-cell, .field, .form-buttons *,"
        + " .section-heading > *, .status-cell, #logOutput, footer")].filter((box) => box.getClientRects().length > 0);
    const rects = boxes.map((box) => box.getBoundingClientRect());
    const name = (box) => box.id || `${box.className} ${box.textContent.trim().slice(0, 20)}`;
    const found = [];
    if (document.documentElement.scrollWidth > window.innerWidth) found.push("the page scrolls sideways");
    boxes.forEach((box, i) => {
        const a = rects[i];
        if (a.left < 0 || a.right > window.innerWidth + 0.5) found.push(`${name(box)} leaves the window`);
        for (let j = i + 1; j < boxes.length; j += 1) {
            const b = rects[j];
            const apart = a.right <= b.left + 0.5 || b.right <= a.left + 0.5 || a.bottom <= b.top + 0.5 || b.bottom <= a.top + 0.5;
            if (!apart && !box.contains(boxes[j]) && !boxes[j].contains(box)) found.push(`${name(box)} over ${name(boxes[j])}`);
        }
    });
    return found;
}

test("from phone to wall nothing overlaps and nothing scrolls sideways", async (t) => {
    for (const replies of [{}, longReplies]) {
        const open = await openPage(t, { replies });
        for (const width of [320, 360, 575, 699, 700, 768, 1024, 1199, 1424, 1425, 1440, 1920, 2560, 3840]) {
            await open.page.setViewportSize({ width, height: width < 2000 ? 900 : 2160 });
            // Charts follow in the next frame.
            await open.runUntil(20, async () => (await open.page.evaluate(misplaced)).length === 0, `room at ${width}`)
                .catch(async () => assert.fail(`at ${width}: ${await open.page.evaluate(misplaced)}`));
        }
        // A wall's width and height are used.
        await open.runUntil(20, () => open.page.$eval("#packetsGraph", ({ offsetHeight }) => offsetHeight > 350), "charts that grow");
        const [width, height] = await open.page.$eval("#logOutput", ({ offsetWidth, offsetHeight }) => [offsetWidth, offsetHeight]);
        assert.ok(width > 3700 && height > 450, `${width} x ${height}`);
    }
});

test("at 1440 the boxes stand level and the two stream rows align, whatever they hide", async (t) => {
    const open = await openPage(t);
    const rects = (selector) => open.page.$$eval(selector, (boxes) => boxes.map((box) => {
        const { top, left, width, height } = box.getBoundingClientRect();
        return { top, left, width, height };
    }));
    const boxes = await rects(".chart-box");
    assert.deepEqual(boxes.map(({ top, height }) => [top, height]), Array(4).fill([boxes[0].top, 200]));
    assert.ok(boxes[1].width <= 290);
    const widths = { enable: 80, mode: 110, address: 140, port: 75, latency: 85, "stream-id": 160, encryption: 110, buffer: 140 };
    for (const [field, expected] of Object.entries(widths)) {
        const [primary, backup] = await rects(`.field.${field}`);
        assert.equal(primary.left, backup.left, field);
        assert.deepEqual([primary.width, backup.width], [expected, expected], field);
    }
    assert.equal(new Set((await rects(".stream:first-child .field label")).filter(({ width }) => width).map(({ top }) => top)).size, 1);
    const before = (await rects("#status-parent-container"))[0];
    open.unit.replies["/proxy.log"] = raw("a new line\n".repeat(100));
    await open.poll();
    assert.deepEqual((await rects("#status-parent-container"))[0], before, "a longer log moves nothing");
});

// What axe-core finds wrong: contrast, names, roles, order of headings. It waits for timers,
// which the page's clock has to move.
async function flaws(open) {
    if (!await open.page.evaluate(() => "axe" in window)) await open.page.evaluate(axe.source);
    await open.page.evaluate(() => {
        window.found = null;
        window.axe.run(document).then(({ violations }) => { window.found = violations; });
    });
    const found = await open.runUntil(1, () => open.page.evaluate(() => window.found), "the checker");
    return found.flatMap(({ id, nodes }) => nodes.map(({ html, any }) => `${id}: ${html} ${any[0]?.message}`));
}

test("nothing that an accessibility checker finds, in any state", async (t) => {
    const open = await openPage(t, { consoleErrors: [failedRequest], replies: { "/api/cfg/get": uris("srt://h:1/a b?mode=caller") } });
    const check = async (name) => assert.deepEqual(await flaws(open), [], name);
    await check("live");
    Object.assign(open.unit.replies, { "/api/stats": noStreamStats, "/api/failures": { failures: [{ slot: 0, reason: "refused", age: 1 }] } });
    await open.poll();
    await check("no stream");
    open.unit.replies["/api/stats"] = liveStats;
    await open.poll();
    await open.page.hover("#noUpdateAlert");
    await check("a link under the mouse");
    await open.set("primaryLatency", "1");
    await check("changed");
    await open.page.hover("#setStream");
    await check("Apply under the mouse");
    await open.nextToast(() => open.page.click("#setStream"));
    await check("a toast");
    open.unit.replies["/api/cfg/get"] = uris("srt://h:1?mode=caller", "srt://", [false, false]);
    await open.poll();
    await check("switched off");
    await open.page.click("#setStream");
    await open.runUntil(10, () => open.visible("#replaceModal"), "the question");
    await open.run(1000);
    await check("a question");
    await open.page.keyboard.press("Escape");
    await open.run(1000);
    await open.page.click("[href='#rebootModal']");
    await open.run(100);
    await check("a dialog");
    open.unit.replies["/api/stats"] = raw("", { status: 500 });
    await open.poll(2);
    await check("connection lost");
});

test("every control is reached by Tab and shows that it has the focus", async (t) => {
    const open = await openPage(t, { storage: { primaryStreamHistory: '["srt://h:1"]' } });
    const seen = new Set();
    for (;;) {
        await open.page.keyboard.press("Tab");
        const [key, visible] = await open.page.evaluate(() => {
            const { outlineStyle, outlineWidth, boxShadow } = getComputedStyle(document.activeElement);
            return [document.activeElement.id || document.activeElement.outerHTML.slice(0, 90),
                (outlineStyle !== "none" && parseFloat(outlineWidth) >= 2) || boxShadow.includes("2px")];
        });
        if (key.startsWith("<body") || seen.has(key)) break;
        assert.ok(visible, `${key} does not show its focus`);
        seen.add(key);
    }
    for (const id of ["noUpdateAlert", "pingInput", "sendPing", "primaryEnable", "togglePassword", "setStream", "copyStats", "copyLogs",
        "logOutput"]) {
        assert.ok(seen.has(id), `${id} is not reached by Tab`);
    }
});

test("a dialog holds the focus and gives it back", async (t) => {
    const open = await openPage(t, { replies: { "/api/firmware/get": { updates: ["tidewell-fennel-2.0.0.sh"] } } });
    const inside = () => open.page.evaluate(() => document.activeElement.closest(".modal")?.id);
    for (const [link, id] of [["[href='#restartModal']", "restartModal"], ["#noUpdateAlert", "updateModal"]]) {
        await open.page.focus(link);
        await open.page.keyboard.press("Enter");
        await open.runUntil(10, async () => await inside() === id, `the focus to enter ${id}`);
        for (const key of [...Array(5).fill("Tab"), ...Array(5).fill("Shift+Tab")]) {
            await open.page.keyboard.press(key);
            assert.equal(await inside(), id);
        }
        await open.page.keyboard.press("Escape");
        await open.runUntil(10, () => open.page.$eval(link, (element) => element === document.activeElement), `the focus back from ${id}`);
    }
});

test("motion stops where it is not wanted", async (t) => {
    for (const [reducedMotion, animated] of [["reduce", false], ["no-preference", true]]) {
        const open = await openPage(t, { reducedMotion });
        await open.nextToast(() => open.page.click("#restartIP"));
        const moving = await open.page.evaluate(() => [...document.querySelectorAll("*")].some((element) =>
            ["", "::before"].some((pseudo) => getComputedStyle(element, pseudo).animationName !== "none")));
        assert.equal(moving, animated, reducedMotion);
    }
});
