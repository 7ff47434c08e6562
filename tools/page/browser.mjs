// Debian's Chromium, started so that it talks to nobody but the page under test.
import { chromium } from "playwright-core";

export const launchBrowser = () => chromium.launch({
    executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
    args: [
        "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
        "--disable-background-networking", "--disable-component-update", "--disable-sync",
    ],
});
