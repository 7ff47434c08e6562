// Lays out the web root that the daemon serves or packs:
//   node stage_web_root.mjs LIST OWN_DIR NODE_MODULES STAGED_DIR
//
// Own files become symbolic links, so that an edit shows on the next reload of
// a page that is served from disk. Third-party files are copied; two of them
// are changed on the way, see `changes`. All keep their time, from which the entity
// tags are made: a new build of the same files must not empty browsers' caches.
import {
    copyFileSync,
    mkdirSync,
    readFileSync,
    rmSync,
    statSync,
    symlinkSync,
    utimesSync,
    writeFileSync,
} from "node:fs";
import { join, resolve } from "node:path";
import CleanCss from "clean-css";
import { readWebRootList } from "./web_root_list.mjs";

const changes = {
    // The fonts lie beside the style sheet here, not below it.
    "static/bootstrap-icons.css": (text) => text.replaceAll("./fonts/", "./"),
    "static/modern-normalize.min.css": (text) => new CleanCss().minify(text).styles,
};

function bringIn(source, target, change) {
    if (change) {
        writeFileSync(target, change(readFileSync(source, "utf8")));
    } else {
        copyFileSync(source, target);
    }
    const { atime, mtime } = statSync(source);
    utimesSync(target, atime, mtime);
}

function stage({ path, isDirectory, from }, own, modules, staged) {
    const target = join(staged, path);
    if (isDirectory) {
        mkdirSync(target);
    } else if (!from) {
        symlinkSync(resolve(own, path), target);
    } else {
        bringIn(join(modules, from), target, changes[path]);
    }
}

const [list, own, modules, staged] = process.argv.slice(2);
rmSync(staged, { recursive: true, force: true });
mkdirSync(staged, { recursive: true });
for (const entry of readWebRootList(list)) {
    stage(entry, own, modules, staged);
}
