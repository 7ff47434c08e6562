// Renders emblem.svg and eye.svg to the bitmaps of web_root/, which are
// committed: run it again after a change to a drawing.
//   node tools/artwork/render.mjs
import { readFileSync, writeFileSync } from "node:fs";
import { fileURLToPath } from "node:url";
import { launchBrowser } from "../page/browser.mjs";

const here = (path) => fileURLToPath(new URL(path, import.meta.url));
const emblem = readFileSync(here("emblem.svg"), "utf8");
const eye = readFileSync(here("eye.svg"), "utf8");

// A site icon stands on any colour of tab or home screen: it brings its ground.
function icon(size) {
    const corner = Math.round(size * 0.2);
    const drawing = emblem.replace("<svg ", `<svg width="${size * 0.84}" `);
    return `<div style="width:${size}px;height:${size}px;border-radius:${corner}px;background:#11133f;
        display:grid;place-items:center">${drawing}</div>`;
}

const bare = (drawing, width) => drawing.replace("<svg ", `<svg width="${width}" style="display:block" `);

async function render(page, markup, width, height) {
    await page.setViewportSize({ width, height });
    await page.setContent(`<style>body{margin:0}</style>${markup}`);
    return page.screenshot({ omitBackground: true });
}

// An .ico file: a directory of 16-byte entries, then the PNG files themselves.
function ico(images) {
    const head = Buffer.alloc(6 + 16 * images.length);
    head.writeUInt16LE(1, 2);
    head.writeUInt16LE(images.length, 4);
    let offset = head.length;
    images.forEach(({ size, png }, i) => {
        const at = 6 + 16 * i;
        head.writeUInt8(size, at);
        head.writeUInt8(size, at + 1);
        head.writeUInt16LE(1, at + 4);
        head.writeUInt16LE(32, at + 6);
        head.writeUInt32LE(png.length, at + 8);
        head.writeUInt32LE(offset, at + 12);
        offset += png.length;
    });
    return Buffer.concat([head, ...images.map(({ png }) => png)]);
}

const browser = await launchBrowser();
const page = await browser.newPage();
const save = (name, bytes) => writeFileSync(here(`../../web_root/${name}`), bytes);
const square = async (size) => render(page, icon(size), size, size);

save("static/logo.png", await render(page, bare(emblem, 611), 611, 530));
save("static/Qorbi_Eye_5p.png", await render(page, bare(eye, 568), 568, 568));
save("favicon/android-chrome-192x192.png", await square(192));
save("favicon/android-chrome-512x512.png", await square(512));
save("favicon/apple-touch-icon.png", await square(180));
save("favicon/favicon-16x16.png", await square(16));
save("favicon/favicon-32x32.png", await square(32));
const sizes = [16, 32, 48];
const images = [];
for (const size of sizes) images.push({ size, png: await square(size) });
save("favicon/favicon.ico", ico(images));
await browser.close();
