// Turns a staged web root into what packed_assets.cpp compiles in:
//   node pack_assets.mjs LIST STAGED_DIR ASSETS_BIN TABLE_INC
//
// ASSETS_BIN is every entry's bytes and one zero byte, end to end; a directory
// is the zero byte alone. TABLE_INC has one row an entry: name, offset, size
// with the zero byte, modification time. Not a C++ program, so that a build
// for another processor needs no second compiler to run it.
import { readFileSync, statSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { readWebRootList } from "./web_root_list.mjs";

const [list, staged, binFile, tableFile] = process.argv.slice(2);
const chunks = [];
const rows = [];
let offset = 0;

for (const { path, isDirectory } of readWebRootList(list)) {
    const source = join(staged, path);
    const bytes = isDirectory ? Buffer.alloc(0) : readFileSync(source);
    const size = bytes.length + 1;
    const mtime = Math.floor(statSync(source).mtimeMs / 1000);
    rows.push(`{"/web_root/${path}", packed_bytes + ${offset}, ${size}, ${mtime}},`);
    chunks.push(bytes, Buffer.from([0]));
    offset += size;
}

writeFileSync(binFile, Buffer.concat(chunks));
writeFileSync(tableFile, rows.join("\n") + "\n");
