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
    // Cookies are shared between the ports of a host: one of them is of somebody else.
    for (const [name, value] of Object.entries({ "a%": "%", ...(cookie && { triggeredRefreshResult: cookie }) })) {
        await context.addCookies([{ name, value, url: url ?? unit.url }]);
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
        Object.assign(this, { page, unit });
    }

    // Until every request has ended and its reply has been worked through.
    settle = () => waitUntil(() => this.page.evaluate(() => window.jQuery?.active === 0).catch(() => false), "a settled page");

    run = (milliseconds) => this.page.clock.runFor(milliseconds);

    // For what takes its time on the page's clock; a page that reloads itself cuts a run short.
    runUntil = (step, condition, what, limitMs) => waitUntil(() => this.run(step).catch(() => {}).then(condition), what, limitMs);

    // Lets the next `times` passes of the stats loop run to their end.
    async poll(times = 1) {
        for (let i = 0; i < times; i += 1) {
            const before = this.unit.count("/api/stats");
            await this.run(1000);
            await waitUntil(() => this.unit.count("/api/stats") > before, "the next poll");
            await this.settle();
        }
    }

    focused = (selector) => this.page.$eval(selector, (element) => element === document.activeElement);

    visible = (selector) => this.page.isVisible(selector);

    style = (selector, property) => this.page.$eval(selector, (element, name) =>
        getComputedStyle(element).getPropertyValue(name), property);

    text = (id) => this.page.$eval(`#${id}`, (element) => element.textContent);

    texts = async (ids) => Object.fromEntries(await Promise.all(ids.map(async (id) => [id, await this.text(id)])));

    // Every text under `selector` as a person reads it, hidden ones too.
    read = (selector) => this.page.$$eval(selector, (elements) =>
        elements.map((element) => element.innerText.replace(/\s+/g, " ").trim()));

    // Fields by id; those that the row hides as well.
    fields = async (ids) => Object.fromEntries(await Promise.all(ids.map(async (id) => [id, await this.page.inputValue(`#${id}`)])));

    set = (id, value) => this.page.$eval(`#${id}`, (field, text) => window.jQuery(field).val(text).trigger("change"), value);

    // The values that a chart's first set holds.
    chart = (id) => this.page.evaluate((name) => window.Chart.getChart(name).data.datasets[0].data, id);

    // Each toast as [title, markup of its text, status], newest first.
    toasts = () => this.page.$$eval(".sn-notify", (toasts) => toasts.map((toast) => [
        toast.querySelector(".sn-notify-title")?.textContent ?? "", toast.querySelector(".sn-notify-text")?.innerHTML ?? "",
        toast.classList.contains("sn-notify-error") ? "error" : "success"]));

    async nextToast(act) {
        const before = (await this.toasts()).length;
        await act();
        return waitUntil(async () => (await this.toasts()).at(-1 - before), "a toast");
    }
}
