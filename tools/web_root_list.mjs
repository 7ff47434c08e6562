// Reads web_root.txt: one { path, isDirectory, from } a line, in its order.
import { readFileSync } from "node:fs";

export function readWebRootList(file) {
    return readFileSync(file, "utf8")
        .split("\n")
        .filter((line) => line && !line.startsWith("#"))
        .map((line) => {
            const [path, from] = line.split(/\s+/);
            return { path: path.replace(/\/$/, ""), isDirectory: path.endsWith("/"), from };
        });
}
