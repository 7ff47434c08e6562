// A page in a real browser against a scripted unit (or, with `url`, against any
// server), and the rules that hold for every test: no uncaught error, no console
// error that the test does not list, no request to another origin.
import assert from "node:assert/strict";
import { after } from "node:test";
import { launchBrowser } from "../../tools/page/browser.mjs";
import { ScriptedUnit } from "../../tools/page/scripted_unit.mjs";
import { waitUntil } from "../../tools/page/wait_until.mjs";

let launching;
const browser = () => (launching ??= launchBrowser());
after(async () => (await launching)?.close());

// What the browser itself writes when a scripted request fails.
export const failedRequest = /^Failed to load resource/;

// The page's clock stands still; run() and poll() move it. `clock: false` lets
// it run, `consoleErrors` lists what the browser may write.
export async function openPage(t, { replies = {}, storage = {}, cookie, clock = true, consoleErrors = [],
    viewport = { width: 1440, height: 900 }, reducedMotion = "reduce", url } = {}) {
    const unit = url ? null : await new ScriptedUnit().start();
    const context = await (await browser()).newContext({ viewport, reducedMotion });
    const page = await context.newPage();
    const complaints = watch(page, url ?? unit.url, consoleErrors);
    t.after(async () => {
        await context.close();
        await unit?.stop();
        assert.deepEqual(complaints, []);
    });
    Object.assign(unit?.replies ?? {}, replies);
    await context.addInitScript((items) => {
        for (const [key, value] of Object.entries(items)) localStorage.setItem(key, value);
    }, storage);
    if (cookie) {
        await context.addCookies([{ name: "triggeredRefreshResult", value: cookie, url: url ?? unit.url }]);
    }
    if (clock) {
        await page.clock.install({ time: new Date("2031-05-06T07:08:00") });
        await page.clock.pauseAt(new Date("2031-05-06T07:08:05"));
    }
    const open = new OpenPage(page, unit);
    await page.goto(url ?? unit.url);
    await open.settle();
    return open;
}

function watch(page, origin, consoleErrors) {
    const complaints = [];
    page.on("pageerror", (error) => complaints.push(`uncaught: ${error.message}`));
    page.on("console", (message) => {
        // One icon link names a file that no unit holds.
        const known = message.location().url.endsWith("/favicon.png");
        if (message.type() === "error" && !known && !consoleErrors.some((allowed) => allowed.test(message.text()))) {
            complaints.push(`console: ${message.text()}`);
        }
    });
    page.on("request", (request) => {
        if (!request.url().startsWith(origin) && !request.url().startsWith("data:")) {
            complaints.push(`left the origin: ${request.url()}`);
        }
    });
    return complaints;
}

class OpenPage {
    constructor(page, unit) {
        this.page = page;
        this.unit = unit;
    }

    // Until every request has ended and its reply has been worked through.
    async settle() {
        await waitUntil(() => this.page.evaluate(() => window.jQuery?.active === 0).catch(() => false), "a settled page");
    }

    async run(milliseconds) {
        await this.page.clock.runFor(milliseconds);
    }

    // Lets the next `times` passes of the stats loop run to their end.
    async poll(times = 1) {
        for (let i = 0; i < times; i += 1) {
            const before = this.unit.count("/api/stats");
            await this.run(1000);
            await waitUntil(() => this.unit.count("/api/stats") > before, "the next poll");
            await this.settle();
        }
    }

    text(id) {
        return this.page.evaluate((name) => document.getElementById(name).textContent, id);
    }

    async texts(ids) {
        return Object.fromEntries(await Promise.all(ids.map(async (id) => [id, await this.text(id)])));
    }

    // The line as a person reads it.
    line(id) {
        return this.page.evaluate((name) => document.getElementById(name).innerText.replace(/\s+/g, " ").trim(), id);
    }

    style(selector, property) {
        return this.page.evaluate(([query, name]) =>
            getComputedStyle(document.querySelector(query)).getPropertyValue(name), [selector, property]);
    }

    visible(selector) {
        return this.page.isVisible(selector);
    }

    // Fields by id; those that the row hides as well.
    fields(ids) {
        return this.page.evaluate((names) =>
            Object.fromEntries(names.map((name) => [name, document.getElementById(name).value])), ids);
    }

    set(id, value) {
        return this.page.evaluate(([name, text]) => window.jQuery(document.getElementById(name)).val(text).trigger("change"),
            [id, value]);
    }

    chart(id) {
        return this.page.evaluate((name) => {
            const { data } = window.Chart.getChart(name);
            return { labels: data.labels, data: data.datasets[0].data };
        }, id);
    }

    // Each toast as [title, markup of its text, status], newest first.
    toasts() {
        return this.page.evaluate(() => [...document.querySelectorAll(".sn-notify")].map((toast) => [
            toast.querySelector(".sn-notify-title")?.textContent ?? "",
            toast.querySelector(".sn-notify-text")?.innerHTML ?? "",
            toast.classList.contains("sn-notify-error") ? "error" : "success",
        ]));
    }

    async nextToast(act) {
        const before = (await this.toasts()).length;
        await act();
        return waitUntil(async () => {
            const toasts = await this.toasts();
            return toasts.length > before && toasts[0];
        }, "a toast");
    }
}
