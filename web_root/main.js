// The page's logic, in the order of the page: header, charts row, selection,
// settings form, status, logs; then the maintenance actions and the start-up.
//
// What the unit, a stream, the cookie or the browser's storage supplies goes
// into the page as text. Toasts take their text as markup (for <br/>), so such
// values pass escapeMarkup() on the way.
"use strict";

// ---------------------------------------------------------------------------
// Elements and state

// Every element that has an id, by that id.
const ui = Object.fromEntries($("[id]").get().map((element) => [element.id, $(element)]));
ui.overlay = $("<div>", { id: "overlay" }).hide();

// One stream's part of the settings form. `keyOrder` is that of its address.
function rowOf(word, index, keyOrder) {
    const name = word.toLowerCase();
    const tail = index === 0 ? "" : word;
    return {
        word, keyOrder, historyKey: `${name}StreamHistory`, history: ui[`${name}StreamHistoryContainer`],
        failure: ui[`${name}Failure`], failureAge: ui[`${name}FailureAge`], note: ui[`${name}Note`],
        cell: ui[`idx${index}Select`], enable: ui[`${name}Enable`], mode: ui[`${name}Mode`],
        address: ui[`${name}Address`], port: ui[`${name}Port`], latency: ui[`${name}Latency`], streamId: ui[`${name}ID`],
        encryption: ui[`${name}Encryption`], encryptionBox: ui[`${name}EncryptionContainer`],
        key: ui[`${name}EncryptionKey`], keyBox: ui[`${name}EncryptionKeyContainer`],
        eye: ui[index === 0 ? "togglePassword" : "backupTogglePassword"],
        buffer: ui[`rcvbuf${tail}`], flight: ui[`fcBuf${tail}`], flightBox: ui[`fcBufContainer${tail}`],
    };
}

const rows = [
    rowOf("Primary", 0, ["streamid", "latency", "fc", "buffer", "encryption"]),
    rowOf("Backup", 1, ["streamid", "latency", "encryption", "fc", "buffer"]),
];

const dialogs = Object.fromEntries(["reboot", "restart", "update", "replace"].map((name) => [name, {
    box: ui[`${name}Modal`],
    text: $(`#${name}ModalText`),
    loading: $(`#${name}ModalLoadingText`),
    confirm: ui[`${name}ConfirmButton`],
}]));

const state = {
    currentIndex: 0, // of the last good /api/stats reply: 0 primary, 1 backup
    isEncoder: false,
    platform: "",
    version: "",
    firmwareFile: "", // what the update dialog offers
    wantedVersion: "", // of the update that has just reloaded the page
    knowsUnit: false, // /api/caps has answered
    loadedStreams: null, // the addresses in the form as the unit gave them; null before that
    expected: [], // as JSON texts, the addresses that the unit may have without anybody else's doing
    applying: false, // from a click on Apply until the form holds what came of it
    formSnapshot: "", // the form's fields as last loaded or applied
    shownIndex: 0, // whose address the Encryption cell speaks of
    tellsFailures: true, // false for a unit that lacks the route
    lostPolls: 0,
    lostToast: null, // set while the connection counts as lost
    focusBefore: null, // what had the focus before the overlay came
    slow: null, // { limit, pending, outcome } while the unit is at a slow request of this page
};

// ---------------------------------------------------------------------------
// Shared helpers

const accent = "#009FD6";
const lostPollTolerance = 2;
const slowLimitMs = 15000;

const escapeMarkup = (text) => $("<i>").text(text).html();

// Errors stay until someone closes them; the library itself would close what
// others push out of the window.
class Toast extends Notify {
    setObserver() {}
}

// `text` is markup, `title` is not. The newest stands first in its box.
function showToast(title, text, options = {}) {
    const toast = new Toast({ position: "right bottom", effect: "fade", title, text, ...options });
    ui.toasts.scrollTop(0);
    $(toast.wrapper).find(".sn-notify-close")
        .attr({ role: "button", tabindex: 0, "aria-label": "Close" })
        .on("keydown", (event) => {
            if (event.key === "Enter" || event.key === " ") {
                event.preventDefault();
                toast.close();
            }
        });
    return toast;
}

function showError(title, text, options = {}) {
    return showToast(title, text, { status: "error", autoclose: false, ...options });
}

// As text, any body of the answer will do: only its status counts.
function post(url, body, dataType = "text") {
    return $.ajax({ url, method: "POST", dataType, contentType: "application/json", data: JSON.stringify(body) });
}

// Asks again each second until the reply is one that can be used.
function askUntilKnown(url, isUsable, use) {
    const again = () => {
        writeNews(ui.applyNote, "Apply waits for the unit to tell its settings.");
        setTimeout(askUntilKnown, 1000, url, isUsable, use);
    };
    $.getJSON(url).done((reply) => (isUsable(reply) ? use(reply) : again())).fail(again);
}

// The second click of a double click asks for nothing more.
function onClick(button, act) {
    button.on("click", ({ detail }) => (detail < 2 ? act() : undefined));
}

// A value that the reply lacks leaves the element as it is. A whole number gets
// its digits in groups, which the style sheet keeps apart.
function write(element, value) {
    if (value === undefined || value === null || element.text() === String(value)) return;
    const groups = Number.isInteger(value) ? String(value).split(/\B(?=(?:\d{3})+$)/) : [value];
    element.empty().append(groups.map((text) => $("<span>", { text })));
}

// The same text is left alone, so that a selection or a scrolled view stays
// and a screen reader does not say it again.
function writeNews(element, text) {
    if (element.text() !== text) {
        element.text(text);
    }
}

// The browser's URL parser knows hosts and ports of http only.
function parseStreamUri(uri) {
    try {
        return new URL(uri.replace("srt", "http"));
    } catch {
        return new URL("http://0.0.0.0:0000");
    }
}

// The unit decodes some values twice, and gives them back decoded.
function decodeFully(text) {
    try {
        const decoded = decodeURIComponent(text);
        return decoded === text ? text : decodeFully(decoded);
    } catch {
        return text;
    }
}

// ---------------------------------------------------------------------------
// Header

function showCaps(caps) {
    const encrypts = caps.platform === "tamarind";
    write(ui.addonVer, caps.tidewell_version);
    write(ui.srtVersion, caps.srt_version);
    write(ui.prodModel, caps.product);
    write(ui.prodSerial, caps.serial);
    write(ui.ethIP, caps.addresses?.[0]?.ETH0);
    write(ui.gbeIP, caps.addresses?.[1]?.GBE);
    state.platform = caps.platform;
    state.version = String(caps.tidewell_version ?? "");
    state.isEncoder = caps.product.startsWith("WX");
    ui.restartIP.toggle(caps.product.startsWith("WQ"));
    if (encrypts) {
        ui.ip1.text("IP1");
        ui.ip2.text("IP2");
    }
    for (const { encryptionBox, keyBox, eye } of rows) {
        encryptionBox.toggle(encrypts);
        if (!encrypts) {
            keyBox.add(eye).hide();
        }
    }
    state.knowsUnit = true;
    becomeKnown();
    checkUpdate();
}

// ---------------------------------------------------------------------------
// Current stream line

function requestCurrentStream() {
    const index = state.currentIndex;
    $.getJSON("/api/cfg/get").done((reply) => showStreams(reply?.uris ?? [], index));
}

function showStreams(uris, index) {
    rows.forEach((row, i) => {
        row.cell.css("visibility", uris[i]?.enable === true ? "visible" : "hidden");
    });
    if (index !== state.shownIndex) {
        ui.statsEncryptionType.text("Not Encrypted");
        state.shownIndex = index;
    }
    showCurrentStream(uris[index], parseStreamUri(uris[index]?.uri));
}

function showCurrentStream(stream, url) {
    const enabled = stream?.enable === true;
    ui.currentEnableStatus.text(enabled ? "ON" : "OFF");
    ui.currentActive.css("color", enabled ? "inherit" : "red");

    const mode = url.searchParams.get("mode") ?? "";
    const id = url.searchParams.get("streamid");
    const latency = url.searchParams.get("latency");
    ui.currentActiveMode.text(mode.replace(/\b\w/g, (letter) => letter.toUpperCase()));
    ui.currentActiveStream.text(url.hostname === "0.0.0.0" ? "" : url.hostname);
    ui.currentActivePort.text(`Port ${url.port}`);
    ui.currentActiveID.text(id === null ? "" : `- ID ${id}`);
    ui.statsID.text(id ?? " ");
    ui.currentActiveLatency.text(latency === null ? "" : `- Latency ${latency}`);

    const keyLength = url.searchParams.get("pbkeylen");
    if (keyLength !== null) {
        ui.statsEncryptionType.text({ 16: "AES128", 32: "AES256" }[keyLength] ?? "Not encrypted");
    }
    const isLeftOver = keyLength === null && ui.statsEncryptionType.text().startsWith("AES");
    ui.encryptionNote.text(isLeftOver ? "until the last change: the address sets none now" : "");
}

// Without a text, no stream is connected.
function showConnectedTime(text) {
    ui.connectedTime.text(`Connected ${text || "0s"}`).css({ color: text ? accent : "#ffdb3d", fontWeight: "bold" });
    return text ? showFailures([]) : requestFailures();
}

// Why no stream is connected: the last failure of each address.
const failureWords = {
    bad_address: "the address cannot be used",
    name_lookup: "the host's name was not found",
    refused: "the far end refused the connection",
    bad_secret: "the key is not that of the far end",
    timeout: "no answer from the far end",
    bind: "the port is taken on this unit",
    other: "could not be opened, see Logs",
};

function requestFailures() {
    if (!state.tellsFailures) return;
    $.getJSON("/api/failures").done((reply) => showFailures(reply?.failures)).fail(({ status }) => {
        state.tellsFailures = status !== 404;
        showFailures([]);
    });
}

// The age stands beside what screen readers watch, else they would read each second.
function showFailures(failures) {
    rows.forEach((row, slot) => {
        const failure = Array.isArray(failures) ? failures.find((each) => each?.slot === slot) : undefined;
        writeNews(row.failure, failure ? `${row.word}: ${failureWords[failure.reason] ?? failureWords.other}` : "");
        row.failureAge.text(failure ? `, ${formatTime(failure.age).trim() || "0s"} ago` : "");
    });
}

// ---------------------------------------------------------------------------
// Charts

const ratePoints = 16;
const audioChannels = 16;
let rateChart, audioChart, packetsChart;

const chartTitle = (text, padding) => ({ title: { display: true, text, padding }, legend: { display: false } });
const blankTicks = { callback: () => "" };
// Chart.js's own number texts load the browser's number formats, which takes as
// long as building a chart.
const plainTicks = { callback: String };

function buildCharts() {
    Chart.defaults.color = "#fff";
    Chart.defaults.borderColor = "rgba(255, 255, 255, 0.08)";
    Chart.defaults.font.family = getComputedStyle(document.body).fontFamily;
    // A poll a second is motion enough, and a chart that glides costs CPU time.
    Chart.defaults.animation = false;
    audioChart = new Chart(ui.audioBars[0], audioChartConfig());
    rateChart = new Chart(ui.bpsGraph[0], rateChartConfig());
    packetsChart = new Chart(ui.packetsGraph[0], packetsChartConfig());
}

function audioChartConfig() {
    return {
        type: "bar",
        data: {
            labels: Array.from({ length: audioChannels }, (_, i) => String(i + 1)),
            datasets: [
                { data: [], backgroundColor: "#009fd6", borderWidth: 0 },
                { data: Array(audioChannels).fill(65000), backgroundColor: "rgba(255, 255, 255, 0.1)" },
            ],
        },
        options: {
            aspectRatio: 1.5,
            scales: {
                x: { stacked: true, grid: { display: false }, ticks: { autoSkip: false, maxRotation: 0, font: { size: 9 } } },
                y: { stacked: true, min: 0, max: 66000, ticks: blankTicks },
            },
            plugins: chartTitle("Audio", { top: 10 }),
        },
    };
}

function rateChartConfig() {
    const line = { fill: true, borderWidth: 1, borderColor: "#009fd6", backgroundColor: "#009fd680", pointRadius: 0, pointHitRadius: 8 };
    return {
        type: "line",
        data: {
            labels: Array(ratePoints).fill(""),
            datasets: [{ label: "Mbs", data: Array(ratePoints).fill(0), ...line }],
        },
        options: {
            aspectRatio: 2.5,
            scales: { x: { ticks: { maxRotation: 0 } }, y: { beginAtZero: true, ticks: plainTicks } },
            plugins: chartTitle("Mbs", 0),
        },
    };
}

function packetsChartConfig() {
    const colors = (alpha) => ["75, 192, 192", "255, 99, 132", "255, 159, 64", "255, 205, 86"].map((rgb) => `rgba(${rgb}, ${alpha})`);
    return {
        type: "bar",
        data: {
            labels: ["Total", "Lost", "Dropped", "Retrans"],
            datasets: [{ label: "Packets", data: [], borderWidth: 1, backgroundColor: colors(0.5), borderColor: colors(1) }],
        },
        options: {
            aspectRatio: 1.8,
            scales: { x: { grid: { display: false } }, y: { ticks: blankTicks } },
            plugins: chartTitle("Packets", { top: 10, bottom: 30 }),
        },
    };
}

function addRate(mbps) {
    if (mbps === undefined) return;
    const now = new Date();
    const { labels, datasets: [{ data }] } = rateChart.data;
    labels.shift();
    labels.push(`${now.getMinutes()}:${now.getSeconds()}`);
    data.shift();
    data.push(mbps);
    rateChart.update();
}

// The levels also as text, for whoever does not see the chart.
function showLevels(levels) {
    drawBars(audioChart, levels);
    const percents = levels.map((level) => (level < 0 ? "none" : Math.min(100, Math.round(level / 660))));
    ui.audioLevels.text(levels.length === 0 ? "No levels" : `Channels 1 to ${levels.length}, in percent: ${percents.join(", ")}`);
}

function drawBars(chart, values) {
    chart.data.datasets[0].data = values;
    chart.update();
}

// A counter that the reply lacks leaves its bar as it is.
function drawPackets(counters) {
    const bars = packetsChart.data.datasets[0].data;
    drawBars(packetsChart, counters.map((count, i) => count ?? bars[i]));
}

// ---------------------------------------------------------------------------
// Thumbnail

const stillAfterMs = 10000;
const sample = $("<canvas>").attr({ width: 160, height: 90 })[0].getContext("2d", { willReadFrequently: true });
let shownPixels = [];
let changedAt; // performance.now() of the last image that was another; undefined without one

function thumbnailPass() {
    showStillness();
    if (!navigator.onLine) {
        clearThumbnail();
        setTimeout(thumbnailPass, 1000);
        return;
    }
    $.getJSON("/api/caps")
        .always(() => setTimeout(thumbnailPass, 1000))
        .done((caps) => (typeof caps?.product === "string" ? showThumbnail(caps.product) : clearThumbnail()))
        .fail((_, reason) => reason === "parsererror" && clearThumbnail());
}

function showThumbnail(product) {
    const route = product.startsWith("WX") ? "/api/encthumb" : "/api/thumb";
    ui.imgThumb.attr("src", `${route}?time=${Date.now()}`);
}

// Without the attribute there is no broken-image mark; an empty one would
// count as a failed load again.
function clearThumbnail() {
    ui.imgThumb.removeAttr("src");
    changedAt = undefined;
}

function noteThumbnail() {
    sample.drawImage(ui.imgThumb[0], 0, 0, 160, 90);
    const pixels = new Uint32Array(sample.getImageData(0, 0, 160, 90).data.buffer);
    if (changedAt === undefined || pixels.some((pixel, i) => pixel !== shownPixels[i])) {
        shownPixels = pixels;
        changedAt = performance.now();
    }
}

function showStillness() {
    const still = performance.now() - changedAt;
    ui.thumbnailAge.text(still >= stillAfterMs ? `, unchanged for ${formatTime(still / 1000).trim()}` : "");
}

// The image that the markup names may have failed before this script came.
function armThumbnail() {
    const [image] = ui.imgThumb.on({ error: clearThumbnail, load: noteThumbnail });
    if (image.complete && image.naturalWidth === 0) {
        clearThumbnail();
    }
}

// ---------------------------------------------------------------------------
// Status grid, the walk through a stats reply that fills the panels above, logs

function statsPass() {
    if (!navigator.onLine) {
        countLostPoll();
        addRate(0);
        setTimeout(statsPass, 2000);
        return;
    }
    $.getJSON("/api/stats")
        .always(() => setTimeout(statsPass, 1000))
        .done((stats) => showStats(stats ?? {}))
        .fail((_, reason) => {
            if (reason === "timeout" && performance.now() < state.slow?.limit) return;
            addRate(0);
            countLostPoll();
        });
    requestLog();
}

function showStats(stats) {
    closeLostToast();
    endSlow();
    if (!walkStats(stats)) {
        console.log("No stream stats provided");
        showConnectedTime("");
        addRate(0);
        showLevels([]);
    }
}

// Ends at the first section that is missing, and then answers false.
function walkStats(stats) {
    const { recv, window: flowWindow, link } = stats;
    showCurrentIndex(stats);
    if (!recv) return false;
    showBuffers(recv);
    if (!flowWindow) return false;
    write(ui.packetsInFlight, flowWindow.flight);
    write(ui.flowStat, flowWindow.flow);
    if (!link) return false;
    showLink(link);
    write(ui.srtMsRcvBuf, recv.msRcvBuf || recv.msSndBuf || null);
    showCounters(recv);
    write(ui.srtEndpoint, stats.endpoint);
    showTime(stats.time);
    const levels = parseLevels(stats.audio_levels);
    if (!levels) return false;
    showLevels(levels);
    addRate(toMegabits(link.bps));
    drawPackets([recv.packets, recv.packetsLost, recv.packetsDropped, recv.packetsRetransmitted]);
    return true;
}

function showCurrentIndex(stats) {
    const index = Number.parseInt(stats.current_idx, 10);
    if (!Number.isNaN(index)) {
        state.currentIndex = index > 0 ? 1 : 0;
    }
    requestCurrentStream();
    rows.forEach((row, i) => showSelection(row, i === state.currentIndex));
    const { word } = rows[state.currentIndex];
    ui.currentIndex.text(word);
    ui.statsIndex.text(word);
}

// The two families send the same values under different keys. Zeros are passed over.
function showBuffers(recv) {
    write(ui.byteAvailRcvBuf, (recv.byteAvailRcvBuf || recv.byteAvailSndBuf) / 1000000 || null);
    write(ui.byteRcvBuf, recv.byteRcvBuf || recv.byteSndBuf || null);
}

// Nothing if the reply lacks the rate.
function toMegabits(bps) {
    const mbps = Number.parseInt(bps, 10) / 1000000;
    return Number.isNaN(mbps) ? undefined : mbps;
}

function showLink(link) {
    write(ui.srtBPS, toMegabits(link.bps));
    write(ui.srtMaxBandwidth, link.maxBandwidth);
    write(ui.srtBandwidth, link.bandwidth);
    write(ui.srtRTT, link.rtt);
}

function showCounters(recv) {
    write(ui.srtPackets, recv.packets);
    write(ui.srtDropped, recv.packetsDropped);
    write(ui.srtLost, recv.packetsLost);
    write(ui.srtRetransmitted, recv.packetsRetransmitted);
}

function showTime(seconds) {
    if (seconds === undefined) return;
    const text = formatTime(seconds);
    ui.statsTime.text(text || "0s");
    showConnectedTime(seconds > 0 ? text : "");
}

// 90061 seconds read "1 day, 1h1m 1s": one hour brings no blank of its own.
function formatTime(time) {
    const [days, hours, minutes, seconds] = [time / 86400, time % 86400 / 3600, time % 3600 / 60, time % 60].map(Math.floor);
    return [
        days > 0 ? days + (days === 1 ? " day, " : " days ") : "",
        hours > 0 ? hours + (hours === 1 ? "h" : "h ") : "",
        minutes > 0 ? `${minutes}m ` : "",
        seconds > 0 ? `${seconds}s` : "",
    ].join("");
}

// The levels come as a text that holds an array.
function parseLevels(text) {
    try {
        const levels = JSON.parse(text);
        return Array.isArray(levels) ? levels : null;
    } catch {
        return null;
    }
}

function requestLog() {
    $.ajax({ url: "/proxy.log", dataType: "text" })
        .done((text) => writeNews(ui.logOutput, text.split("\n").reverse().join("\n")));
}

// ---------------------------------------------------------------------------
// Connection watchdog

// Good polls between do not count: only closing the toast starts afresh.
function countLostPoll() {
    state.lostPolls += 1;
    if (state.lostToast || state.lostPolls < lostPollTolerance) return;
    blockPage(true);
    state.lostToast = showError("Connection lost", "Check network connection or reboot the unit and try again.", {
        type: "filled",
        showCloseButton: false,
    });
}

function closeLostToast() {
    if (!state.lostToast) return;
    state.lostToast.close();
    state.lostToast = null;
    state.lostPolls = 0;
    blockPage(false);
}

// All but the toasts, for the keyboard as well.
function blockPage(blocked) {
    if (blocked) {
        state.focusBefore = document.activeElement;
    }
    ui.overlay.toggle(blocked);
    $(document.body).children().not(ui.toasts.add(ui.overlay)).prop("inert", blocked);
    if (!blocked && document.activeElement === document.body) {
        state.focusBefore.focus();
    }
}

// The unit answers one request after the other, and some of them hold it for
// seconds: that is no lost connection. `failure` is told if nothing comes of it.
function waitFor(doing, request, failure = "") {
    const slow = { limit: performance.now() + slowLimitMs, pending: true, outcome: "" };
    state.slow = slow;
    setTimeout(() => state.slow === slow && writeNews(ui.waitNote, `The unit is ${doing} and answers nothing else until that ends.`), 500);
    request.fail(() => { slow.outcome = failure; }).always((_, reason) => {
        slow.pending = false;
        if (reason !== "timeout" && state.slow === slow) {
            endSlow();
        }
    });
}

// Past its time limit a request may still hold the unit, until that answers another.
function endSlow() {
    if (state.slow === null || state.slow.pending) return;
    writeNews(ui.waitNote, state.slow.outcome);
    state.slow = null;
    setTimeout(() => state.slow === null && writeNews(ui.waitNote, ""), 10000);
}

// ---------------------------------------------------------------------------
// Stream selection

function showSelection(row, isCurrent) {
    const hasFocus = row.cell.find(":focus").length > 0;
    row.cell.children("button").toggle(!isCurrent);
    row.cell.children("span").toggle(isCurrent);
    if (hasFocus) {
        row.cell.children(isCurrent ? "span" : "button").trigger("focus");
    }
}

function selectStream(index) {
    post("/api/source/set", { index })
        .done(() => showToast(undefined, `Success: ${rows[index].word} stream selected`))
        .fail(() => showError("Failure", "Failure: Please try again"));
}

// ---------------------------------------------------------------------------
// Settings form: from the unit's addresses to the fields

// `sent`: the records that the unit has just been given.
function loadForm(sent = []) {
    askUntilKnown("/api/cfg/get", (reply) => Array.isArray(reply?.uris), ({ uris }) => {
        rows.forEach((row, i) => loadRow(row, uris[i]));
        takeSnapshot();
        state.loadedStreams = uris;
        state.applying = false;
        becomeKnown();
        const refused = sent.filter(({ idx, enable, uri }) => enable !== uris[idx]?.enable || !isSameAddress(uri, uris[idx].uri));
        state.expected = [JSON.stringify(uris), ...(refused.length > 0 ? state.expected : [])];
        tellRefusal(refused);
    });
}

// What the form has to know before it can build an address.
const isKnown = () => state.knowsUnit && state.loadedStreams !== null;

function becomeKnown() {
    rows.forEach(({ history }) => history.children().prop("disabled", state.loadedStreams === null));
    if (!isKnown()) return;
    ui.setStream.prop("disabled", false);
    ui.applyNote.text("");
    rows.forEach((row, i) => writeNews(row.note, noteOn(row, state.loadedStreams[i]?.uri ?? "")));
}

function loadRow(row, stream) {
    const url = parseStreamUri(stream?.uri);
    const option = (key) => url.searchParams.get(key) ?? "";
    row.enable.val(String(stream?.enable === true));
    row.address.val(url.hostname);
    row.port.val(url.port);
    if (url.searchParams.has("mode")) {
        choose(row.mode, option("mode"));
    }
    modeChanged(row);
    row.streamId.val(option("streamid"));
    row.latency.val(option("latency"));
    choose(row.encryption, option("pbkeylen") || "0");
    row.key.val(url.searchParams.has("pbkeylen") ? option("passphrase") : "");
    encryptionChanged(row);
    const buffer = option("rcvbuf") || option("sndbuf");
    if (buffer) {
        row.buffer.val(buffer / 1000000);
    }
    if (url.searchParams.has("fc")) {
        row.flight.val(option("fc"));
    }
}

// A value that the list lacks (a key of 192 bits, set by file or API) gets an
// option of its own: Apply sends back what was loaded.
function choose(select, value) {
    select.val(value);
    if (select.val() === null) {
        select.append(new Option(value, value)).val(value);
    }
}

function modeChanged(row) {
    const listens = row.mode.val() === "listener";
    if (listens) {
        row.address.val("0.0.0.0");
    }
    row.flightBox.toggle(listens);
}

function encryptionChanged(row) {
    const encrypted = row.encryption.val() !== "0";
    row.keyBox.toggle(encrypted);
    row.eye.toggle(encrypted);
}

function toggleKey(row) {
    const show = row.key.attr("type") === "password";
    row.key.attr("type", show ? "text" : "password");
    row.eye.toggleClass("open", show).attr("aria-pressed", String(show));
}

// ---------------------------------------------------------------------------
// Settings form: from the fields to the unit's addresses

// Another page or program may have changed the settings since the form was loaded.
function apply() {
    if (!isKnown() || state.applying) return;
    state.applying = true;
    const before = state.formSnapshot;
    takeSnapshot();
    const records = rows.map((row, idx) => ({ idx, enable: isEnabled(row), uri: buildUri(row) }));
    const goOn = () => postStreams(records);
    const giveUp = () => {
        state.applying = false;
        state.formSnapshot = before;
        showChanges();
    };
    $.getJSON("/api/cfg/get").fail(failToPost).done((reply) => {
        const isExpected = state.expected.includes(JSON.stringify(reply?.uris));
        return isExpected ? goOn() : askToReplace(reply?.uris, goOn, giveUp);
    });
}

function askToReplace(uris, replace, cancel) {
    const describe = ({ word }, i) => `${word}: ${uris?.[i]?.uri.replace(/(passphrase=)[^&]+/, "$1…")} (${uris?.[i]?.enable ? "On" : "Off"})`;
    ui.replaceStreams.text(rows.map(describe).join("\n"));
    let then = cancel;
    dialogs.replace.confirm.off().on("click", () => { then = replace; });
    ui.replaceLoadButton.off().on("click", () => { then = loadForm; });
    dialogs.replace.box.one("hidden.bs.modal", () => {
        then();
        ui.setStream.trigger("focus");
    });
    modalOf(dialogs.replace).show();
}

const isEnabled = (row) => row.enable.val() !== "false";

function buildUri(row) {
    const head = `srt://${row.address.val()}:${row.port.val()}?mode=${row.mode.val()}`;
    return head + row.keyOrder.map((key) => queryParts[key](row)).join("");
}

const filledPart = (key, value) => (value === "" ? "" : `&${key}=${value}`);

const queryParts = {
    streamid: (row) => filledPart("streamid", row.streamId.val()),
    latency: (row) => filledPart("latency", row.latency.val()),
    fc: (row) => filledPart("fc", row.flight.val()),
    buffer: (row) => filledPart(state.isEncoder ? "sndbuf" : "rcvbuf", toBytes(row.buffer.val())),
    encryption: (row) => {
        const length = row.encryption.val();
        if (state.platform !== "tamarind" || length === "0") return "";
        return `&pbkeylen=${length}&passphrase=${row.key.val()}`;
    },
};

// 15 digits: 8.2 megabytes are 8200000 bytes and not 8199999.999999999.
function toBytes(megabytes) {
    return megabytes === "" ? "" : String(Number((megabytes * 1000000).toPrecision(15)));
}

function postStreams(records) {
    post("/api/cfg/set", { uris: records })
        .done(() => {
            records.forEach(remember);
            const lines = records.map(({ idx, uri }) => `<br/>${rows[idx].word}: ${escapeMarkup(uri)}`);
            showToast("Set Stream", `Succeeded!${lines.join("")}`);
            loadHistories();
            loadForm(records);
        })
        .fail(failToPost);
}

function failToPost() {
    state.applying = false;
    showError("Set Stream", "Failed: Settings not applied. Please try again");
}

// A success that the unit answers does not say that it took the settings. Of
// those that it refuses it keeps a part until it next reads its file.
function tellRefusal(records) {
    if (records.length === 0) return;
    const lines = records.map(({ idx, uri }) => `${rows[idx].word}: the unit did not take these settings. ${escapeMarkup(hintOn(uri))}`);
    showError("Set Stream", lines.join("<br/>"));
    setTimeout(() => serializeForm() === state.formSnapshot && loadForm(), 3000);
}

// ---------------------------------------------------------------------------
// Settings form: what an address says beyond its fields

const addressPattern = /^(?<scheme>[^:/?]*):\/\/(?:(?<user>[^/?]*)@)?(?<host>\[[^\]]*\]|[^:/?]*)(?::(?<port>\d*))?(?<path>[^?]*)\??(?<query>[^]*)$/;

// What an address says, each thing as a text; of two equal keys the first stands.
function saidBy(uri) {
    const { scheme, user, host, port, path, query } = addressPattern.exec(uri)?.groups ?? { path: uri };
    const named = Object.entries({ scheme, user, address: host?.toLowerCase(), port: Number(port), path });
    const pairs = decodeFully(query ?? "").replaceAll("+", " ").split("&").filter(Boolean);
    const options = new Map(pairs.reverse().map((pair) => [pair.split("=", 1)[0], pair.replace(/=$/, "")]));
    return new Set([...named.filter(([, value]) => value).map((pair) => pair.join(" ")), ...[...options.values()].reverse()]);
}

const missingFrom = (said, other) => [...said].filter((thing) => !other.has(thing));

function isSameAddress(uri, other) {
    const [said, otherSaid] = [saidBy(uri), saidBy(other)];
    return missingFrom(said, otherSaid).length + missingFrom(otherSaid, said).length === 0;
}

// What no address may hold, and how to write it.
function hintOn(uri) {
    const refused = uri.replace(/^srt:\/\/\[[^\]]*\]/, "").match(/[^\w.~:/?@!$&'()*+,;=%-]|%(?![\da-f]{2})/giu) ?? [];
    return [...new Set(refused)].map((letter) => `Write ${encodeURIComponent(letter)} for "${letter}".`).join(" ");
}

// About a row as it was loaded; empty if Apply would send all of it.
function noteOn(row, uri) {
    const built = buildUri(row);
    const lost = missingFrom(saidBy(uri), saidBy(built));
    const also = lost.length > 0 ? `Also set: ${lost.join(", ")}, lost with Apply. ` : "";
    const hint = hintOn(built);
    return also + (hint && `The unit will refuse what stands here. ${hint}`);
}

// ---------------------------------------------------------------------------
// Settings form: history, kept in this browser

const historyLength = 10;

const loadHistories = () => rows.forEach(showHistory);

// Whole addresses, oldest first.
function readHistory({ historyKey }) {
    try {
        const list = JSON.parse(localStorage.getItem(historyKey));
        return Array.isArray(list) ? list.map(String).slice(-historyLength) : [];
    } catch {
        return []; // storage switched off, or something else wrote there
    }
}

// Read again each time: another tab may have added to the list.
function remember({ idx, uri }) {
    const history = readHistory(rows[idx]);
    if (history.includes(uri)) return;
    try {
        localStorage.setItem(rows[idx].historyKey, JSON.stringify([...history, uri]));
    } catch {
        // Storage full or switched off: the unit has the settings all the same.
    }
}

function showHistory(row, idx) {
    const hadFocus = row.history.find(":focus").length > 0;
    const history = readHistory(row);
    row.history.empty();
    if (history.length === 0) return;
    const select = $("<select>", { class: "form-select form-select-sm", "aria-label": `${row.word} History` })
        .prop("disabled", state.loadedStreams === null)
        .append([new Option("History", ""), ...history.map((uri) => new Option(uri, uri))])
        .appendTo(row.history);
    onPick(select, (uri) => postStreams([{ idx, enable: isEnabled(row), uri }]));
    if (hadFocus) {
        select.trigger("focus");
    }
}

// Keys change the value at every step, and so do those in a list that a mouse
// has opened, even if Escape closes it: that only browses. A pick from an open
// list ends in a click, or with a finger in a change alone; in a closed list
// Enter picks.
function onPick(select, pick) {
    let browsing = false;
    const toTitle = () => select.prop("selectedIndex", 0);
    const take = () => {
        const value = select.val();
        toTitle();
        return value && pick(value);
    };
    select.on("pointerdown", ({ originalEvent }) => {
        toTitle();
        browsing = originalEvent.pointerType === "mouse";
    }).on("keydown", ({ key }) => {
        browsing = true;
        return key === "Enter" ? take() : undefined;
    }).on("blur", () => {
        toTitle();
        browsing = false;
    });
    select.on("keyup", ({ key }) => (key === "Escape" ? toTitle() : undefined));
    select.on("click", take).on("change", () => (browsing ? undefined : take()));
}

// ---------------------------------------------------------------------------
// Settings form: what differs from the snapshot

const serializeForm = () => JSON.stringify(ui.setStreamForm.serializeArray());

function takeSnapshot() {
    state.formSnapshot = serializeForm();
    showChanges();
}

function showChanges() {
    const changed = serializeForm() !== state.formSnapshot;
    ui.setStream.toggleClass("changed", changed).css("background-color", changed ? accent : "");
    ui.clearStreamChanges.toggle(changed);
}

function clearChanges() {
    for (const { name, value } of JSON.parse(state.formSnapshot)) {
        $(ui.setStreamForm[0].elements[name]).val(value).trigger("change");
    }
    showChanges();
}

// ---------------------------------------------------------------------------
// Ping, Restart IP, copying

function ping() {
    const host = ui.pingInput.val();
    const fail = () => showError("Send ping", "Failed: Please try again");
    const request = post("/api/ping", { host }, "json").done((reply) => {
        const time = Number(reply?.time).toFixed(2);
        return reply?.success === true ? showToast("Send ping", `Succeeded: ${escapeMarkup(host)}<br/>Time: ${time} ms`) : fail();
    }).fail(fail);
    waitFor("pinging", request);
}

function restartIp() {
    waitFor("restarting its IP input", post("/api/wq_input_reset", {})
        .done(() => showToast("Restart IP", "Succeeded"))
        .fail(() => showError("Reset IP", "Failed: Please try again")));
}

// The browser's copy command and not the clipboard interface: that one needs
// a secure page, and a unit is reached by plain HTTP.
function copyText(title, text, parent) {
    const focused = document.activeElement;
    const area = $("<textarea>", { class: "copy-area", readonly: true }).val(text).appendTo(parent);
    area[0].select();
    try {
        document.execCommand("copy");
        showToast(title, "Succeeded");
    } catch {
        console.error("Unable to copy to clipboard");
    }
    area.remove();
    focused?.focus({ preventScroll: true });
}

// ---------------------------------------------------------------------------
// Dialogs

const modalOf = ({ box }) => bootstrap.Modal.getOrCreateInstance(box[0]);

function showWorking({ box, text, loading, confirm }, working) {
    text.toggle(!working);
    loading.toggle(working);
    confirm.prop("disabled", working);
    if (working) {
        box.trigger("focus"); // a button that is disabled lets the focus go
    }
}

// Bootstrap ignores a hide() that comes while the dialog still fades in.
function hideDialog(shown) {
    if (!shown.box.hasClass("show")) return;
    shown.box.one("shown.bs.modal.closing", () => modalOf(shown).hide());
    modalOf(shown).hide();
}

// Past the last button comes the first again; the browser's own controls,
// which would come next, are outside what Bootstrap watches.
function keepTabInside(box, event) {
    if (event.key !== "Tab") return;
    const stops = box.find("button:enabled").get();
    const [first, last] = [stops[0], stops.at(-1)];
    const leaving = event.shiftKey ? [box[0], first] : [last];
    if (leaving.includes(document.activeElement)) {
        event.preventDefault();
        (event.shiftKey ? last : first).focus();
    }
}

function armDialog(shown) {
    shown.box.on("keydown", (event) => keepTabInside(shown.box, event));
    // Nothing may hold the focus inside a dialog that leaves the page.
    shown.box.on("hide.bs.modal", () => document.activeElement?.blur());
    shown.box.on("hidden.bs.modal", () => {
        shown.box.off("shown.bs.modal.closing");
        showWorking(shown, false);
    });
}

// Reboot and restart: the server answers, goes away and comes back.
function confirmOutage(shown, action, url, outageMs) {
    showWorking(shown, true);
    post(url)
        .done(() => setTimeout(() => recover(action), outageMs))
        .fail(() => {
            hideDialog(shown);
            showError(action, "Failed: Please try again");
        });
}

// ---------------------------------------------------------------------------
// Recovery: wait for the server, reload the page, tell the outcome afterwards

const recoveryLimitMs = 90000;
const outcomeCookie = "triggeredRefreshResult";
const wantedCookie = "tidewellWantedVersion";

function recover(action, since = performance.now()) {
    if (performance.now() - since >= recoveryLimitMs) {
        Object.values(dialogs).forEach(hideDialog);
        showError(action, `Timeout failure: Tidewell failed to recover from${action.toLowerCase()} after 2 minutes.`);
        return;
    }
    $.ajax({ url: "/api/stats", dataType: "text" })
        .done(() => {
            $.cookie(outcomeCookie, action);
            location.reload();
        })
        .fail(() => setTimeout(() => recover(action, since), 1000));
}

// Raw: the plugin decodes the cookies of all that runs on this host, and stops
// at one that cannot be decoded.
function showOutcome() {
    $.cookie.raw = true;
    const action = decodeFully($.cookie(outcomeCookie) ?? "");
    if (action) {
        showToast(action, "Succeeded", { autotimeout: 10000 });
    }
    state.wantedVersion = action === "Update" ? $.cookie(wantedCookie) : "";
    $.cookie(outcomeCookie, "");
    $.cookie(wantedCookie, "");
}

// ---------------------------------------------------------------------------
// Firmware

const withoutSuffix = (file) => file.slice(0, -3);

function checkFirmware() {
    const request = $.getJSON("/api/firmware/get").done((reply) => {
        if (Array.isArray(reply?.updates)) {
            offerUpdate(reply.updates.map(String));
        }
    });
    waitFor("looking for new firmware", request, "The check for new firmware got no answer.");
}

function offerUpdate(files) {
    const title = "Finished checking for new Firmware";
    const newest = files.findLast((file) => compareVersions(state.version, versionOf(file)) > 0);
    if (newest === undefined) {
        showToast(title, "You are currently using the most updated version of the Tidewell");
        return;
    }
    state.firmwareFile = newest;
    ui.updateLabelVersion.text(withoutSuffix(newest));
    modalOf(dialogs.update).show();
    showToast(title, `New firmware ${escapeMarkup(withoutSuffix(newest))} found. Accept the update within the modal.`);
}

// The first three runs of digits that one character each keeps apart.
const versionOf = (file) => file.match(/\d+.\d+.\d+/s)?.[0] ?? "";

// 1 if `second` is the newer, -1 if `first` is, 0 if they agree. A part that
// one of them lacks is smaller than any.
function compareVersions(first, second) {
    const parts = (text) => (text === "" ? [] : text.split(".").map(Number));
    const [a, b] = [parts(first), parts(second)];
    for (let i = 0; i < Math.max(a.length, b.length); i += 1) {
        const [left, right] = [a[i] ?? -1, b[i] ?? -1];
        if (left !== right) {
            return right > left ? 1 : -1;
        }
    }
    return 0;
}

// The answer is of no interest: the server falls silent as the update starts.
function update() {
    showWorking(dialogs.update, true);
    $.cookie(wantedCookie, versionOf(state.firmwareFile));
    post("/api/firmware/set", { update: state.firmwareFile });
    showToast("Update", "Starting system update");
    setTimeout(() => recover("Update"), 1000);
}

// A unit that is back may have come back with what it had.
function checkUpdate() {
    if (state.wantedVersion && compareVersions(state.version, state.wantedVersion) > 0) {
        ui.updateNote.text(`The update failed: the unit still runs ${state.version}, not ${state.wantedVersion}.`);
    }
}

// ---------------------------------------------------------------------------
// Start-up

function armControls() {
    ui.setStreamForm.on("submit", (event) => event.preventDefault());
    ui.setStreamForm.on("keyup change", showChanges);
    onClick(ui.setStream, apply);
    ui.clearStreamChanges.on("click", clearChanges);
    onClick(ui.restartIP, restartIp);
    rows.forEach((row, index) => {
        onClick(row.cell.children("button"), () => selectStream(index));
        row.mode.on("change", () => modeChanged(row));
        row.encryption.on("change", () => encryptionChanged(row));
        row.eye.on("click", () => toggleKey(row));
    });
    armThumbnail();
    ui.pingForm.on("submit", (event) => event.preventDefault());
    onClick(ui.sendPing, ping);
    ui.copyStats.on("click", () => copyText("Copy Stats", ui["status-parent-container"][0].innerText, ui["status-parent-container"]));
    ui.copyLogs.on("click", () => copyText("Copy Logs", ui.logOutput.text(), document.body));
}

function armMaintenance() {
    Object.values(dialogs).forEach(armDialog);
    dialogs.reboot.confirm.on("click", () => confirmOutage(dialogs.reboot, "Reboot", "/api/reboot/set", 10000));
    dialogs.restart.confirm.on("click", () => confirmOutage(dialogs.restart, "Restart", "/api/restart/set", 5000));
    dialogs.update.confirm.on("click", update);
    dialogs.update.box.on("hidden.bs.modal", () => ui.noUpdateAlert.trigger("focus"));
    ui.noUpdateAlert.on("click", (event) => event.preventDefault());
    onClick(ui.noUpdateAlert, checkFirmware);
}

function start() {
    $.ajaxSetup({ timeout: 3000 });
    showOutcome();
    loadHistories();
    takeSnapshot();
    ui.overlay.appendTo(document.body);
    ui.currentYear.text(new Date().getFullYear());
    armControls();
    armMaintenance();
    askUntilKnown("/api/caps", (caps) => typeof caps?.product === "string", showCaps);
    loadForm();
    buildCharts();
    statsPass();
    thumbnailPass();
}

start();
