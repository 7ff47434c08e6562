// The page's logic, in the order of the page: header, charts row, selection,
// settings form, status, logs; then the maintenance actions and the start-up.
//
// What the unit, a stream, the cookie or the browser's storage supplies goes
// into the page as text. Toasts take their text as markup (for <br/>), so such
// values pass escapeMarkup() on the way.
"use strict";

// ---------------------------------------------------------------------------
// Elements and state

const byId = (id) => $(document.getElementById(id));

const rows = [
    {
        word: "Primary",
        historyKey: "primaryStreamHistory",
        history: byId("primaryStreamHistoryContainer"),
        cell: byId("idx0Select"),
        enable: byId("primaryEnable"),
        mode: byId("primaryMode"),
        address: byId("primaryAddress"),
        port: byId("primaryPort"),
        latency: byId("primaryLatency"),
        streamId: byId("primaryID"),
        encryption: byId("primaryEncryption"),
        encryptionBox: byId("primaryEncryptionContainer"),
        key: byId("primaryEncryptionKey"),
        keyBox: byId("primaryEncryptionKeyContainer"),
        eye: byId("togglePassword"),
        buffer: byId("rcvbuf"),
        flight: byId("fcBuf"),
        flightBox: byId("fcBufContainer"),
        keyOrder: ["streamid", "latency", "fc", "buffer", "encryption"],
    },
    {
        word: "Backup",
        historyKey: "backupStreamHistory",
        history: byId("backupStreamHistoryContainer"),
        cell: byId("idx1Select"),
        enable: byId("backupEnable"),
        mode: byId("backupMode"),
        address: byId("backupAddress"),
        port: byId("backupPort"),
        latency: byId("backupLatency"),
        streamId: byId("backupID"),
        encryption: byId("backupEncryption"),
        encryptionBox: byId("backupEncryptionContainer"),
        key: byId("backupEncryptionKey"),
        keyBox: byId("backupEncryptionKeyContainer"),
        eye: byId("backupTogglePassword"),
        buffer: byId("rcvbufBackup"),
        flight: byId("fcBufBackup"),
        flightBox: byId("fcBufContainerBackup"),
        keyOrder: ["streamid", "latency", "encryption", "fc", "buffer"],
    },
];

const dialog = (name) => ({
    box: byId(`${name}Modal`),
    text: byId(`${name}ModalText`),
    loading: byId(`${name}ModalLoadingText`),
    confirm: byId(`${name}ConfirmButton`),
});
const dialogs = {
    reboot: dialog("reboot"),
    restart: dialog("restart"),
    update: dialog("update"),
};

const ui = {
    version: byId("addonVer"),
    srtVersion: byId("srtVersion"),
    firmwareLink: byId("noUpdateAlert"),
    product: byId("prodModel"),
    serial: byId("prodSerial"),
    ip1Label: byId("ip1"),
    ip1: byId("ethIP"),
    ip2Label: byId("ip2"),
    ip2: byId("gbeIP"),

    current: byId("currentActive"),
    currentIndex: byId("currentIndex"),
    currentMode: byId("currentActiveMode"),
    currentHost: byId("currentActiveStream"),
    currentPort: byId("currentActivePort"),
    currentId: byId("currentActiveID"),
    currentLatency: byId("currentActiveLatency"),
    currentEnable: byId("currentEnableStatus"),
    connectedTime: byId("connectedTime"),
    thumbnail: byId("imgThumb"),
    audioCanvas: byId("audioBars"),
    rateCanvas: byId("bpsGraph"),
    packetsCanvas: byId("packetsGraph"),

    pingForm: byId("pingForm"),
    pingInput: byId("pingInput"),
    sendPing: byId("sendPing"),

    form: byId("setStreamForm"),
    apply: byId("setStream"),
    clear: byId("clearStreamChanges"),
    restartIp: byId("restartIP"),

    copyStats: byId("copyStats"),
    status: byId("status-parent-container"),
    statsIndex: byId("statsIndex"),
    endpoint: byId("srtEndpoint"),
    bps: byId("srtBPS"),
    time: byId("statsTime"),
    maxBandwidth: byId("srtMaxBandwidth"),
    bandwidth: byId("srtBandwidth"),
    rtt: byId("srtRTT"),
    latency: byId("srtMsRcvBuf"),
    packets: byId("srtPackets"),
    dropped: byId("srtDropped"),
    lost: byId("srtLost"),
    retransmitted: byId("srtRetransmitted"),
    bufferFree: byId("byteAvailRcvBuf"),
    bufferUsed: byId("byteRcvBuf"),
    inFlight: byId("packetsInFlight"),
    flow: byId("flowStat"),
    streamId: byId("statsID"),
    encryption: byId("statsEncryptionType"),

    copyLogs: byId("copyLogs"),
    log: byId("logOutput"),

    year: byId("currentYear"),
    updateName: byId("updateLabelVersion"),
    overlay: $("<div>", { id: "overlay" }).hide(),
};

const state = {
    currentIndex: 0, // of the last good /api/stats reply: 0 primary, 1 backup
    isEncoder: false,
    platform: "",
    version: "",
    firmwareFile: "", // what the update dialog offers
    formSnapshot: "", // the form's fields as last loaded or applied
    lostPolls: 0,
    lostToast: null, // set while the connection counts as lost
};

// ---------------------------------------------------------------------------
// Shared helpers

const accent = "#009FD6";
const lostPollTolerance = 2;

const escapeMarkup = (text) => $("<i>").text(text).html();

// `text` is markup, `title` is not. Errors stay until someone closes them.
function showToast(title, text, options = {}) {
    const toast = new Notify({ position: "right bottom", effect: "fade", title, text, ...options });
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

// Only the status of the answer counts: as text, any body will do.
function post(url, body) {
    return $.ajax({
        url,
        method: "POST",
        dataType: "text",
        contentType: "application/json",
        data: body === undefined ? undefined : JSON.stringify(body),
    });
}

// A value that the reply lacks leaves the element as it is.
function write(element, value) {
    if (value !== undefined && value !== null) {
        element.text(value);
    }
}

function writeUnlessZero(element, value) {
    if (value) {
        element.text(value);
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

// ---------------------------------------------------------------------------
// Header

function showCaps(caps) {
    const product = String(caps.product ?? "");
    write(ui.version, caps.tidewell_version);
    write(ui.srtVersion, caps.srt_version);
    write(ui.product, caps.product);
    write(ui.serial, caps.serial);
    write(ui.ip1, caps.addresses?.[0]?.ETH0);
    write(ui.ip2, caps.addresses?.[1]?.GBE);
    state.platform = caps.platform;
    state.version = String(caps.tidewell_version ?? "");
    state.isEncoder = product.startsWith("WX");
    ui.restartIp.toggle(product.startsWith("WQ"));
    applyPlatform();
}

function applyPlatform() {
    const encrypts = state.platform === "tamarind";
    if (encrypts) {
        ui.ip1Label.text("IP1");
        ui.ip2Label.text("IP2");
    }
    for (const row of rows) {
        row.encryptionBox.toggle(encrypts);
        if (!encrypts) {
            row.keyBox.hide();
            row.eye.hide();
        }
    }
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
    showCurrentStream(uris[index], parseStreamUri(uris[index]?.uri));
}

function showCurrentStream(stream, url) {
    const enabled = stream?.enable === true;
    ui.currentEnable.text(enabled ? "ON" : "OFF");
    ui.current.css("color", enabled ? "inherit" : "red");

    const mode = url.searchParams.get("mode") ?? "";
    const id = url.searchParams.get("streamid");
    const latency = url.searchParams.get("latency");
    ui.currentMode.text(mode.replace(/\b\w/g, (letter) => letter.toUpperCase()));
    ui.currentHost.text(url.hostname === "0.0.0.0" ? "" : url.hostname);
    ui.currentPort.text(`Port ${url.port}`);
    ui.currentId.text(id === null ? "" : `- ID ${id}`);
    ui.streamId.text(id ?? " ");
    ui.currentLatency.text(latency === null ? "" : `- Latency ${latency}`);

    const keyLength = url.searchParams.get("pbkeylen");
    if (keyLength !== null) {
        ui.encryption.text({ 16: "AES128", 32: "AES256" }[keyLength] ?? "Not encrypted");
    }
}

function showConnectedTime(text, color) {
    ui.connectedTime.text(`Connected ${text}`).css({ color, fontWeight: "bold" });
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
    audioChart = new Chart(ui.audioCanvas[0], audioChartConfig());
    rateChart = new Chart(ui.rateCanvas[0], rateChartConfig());
    packetsChart = new Chart(ui.packetsCanvas[0], packetsChartConfig());
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
    return {
        type: "line",
        data: {
            labels: Array(ratePoints).fill(""),
            datasets: [{
                label: "Mbs",
                data: Array(ratePoints).fill(0),
                fill: true,
                borderWidth: 1,
                borderColor: "#009fd6",
                backgroundColor: "#009fd680",
                pointRadius: 0,
                pointHitRadius: 8,
            }],
        },
        options: {
            aspectRatio: 2.5,
            scales: { x: { ticks: { maxRotation: 0 } }, y: { beginAtZero: true, ticks: plainTicks } },
            plugins: chartTitle("Mbs", 0),
        },
    };
}

function packetsChartConfig() {
    const colors = ["75, 192, 192", "255, 99, 132", "255, 159, 64", "255, 205, 86"];
    return {
        type: "bar",
        data: {
            labels: ["Total", "Lost", "Dropped", "Retrans"],
            datasets: [{
                label: "Packets",
                data: [],
                borderWidth: 1,
                backgroundColor: colors.map((color) => `rgba(${color}, 0.5)`),
                borderColor: colors.map((color) => `rgba(${color}, 1)`),
            }],
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

function thumbnailPass() {
    if (!navigator.onLine) {
        clearThumbnail();
        setTimeout(thumbnailPass, 1000);
        return;
    }
    $.getJSON("/api/caps")
        .always(() => setTimeout(thumbnailPass, 1000))
        .done((caps) => showThumbnail(caps?.product))
        .fail((_, reason) => {
            if (reason === "parsererror") {
                clearThumbnail();
            }
        });
}

function showThumbnail(product) {
    if (typeof product !== "string") {
        clearThumbnail();
        return;
    }
    const route = product.startsWith("WX") ? "/api/encthumb" : "/api/thumb";
    ui.thumbnail.attr("src", `${route}?time=${Date.now()}`);
}

// Without the attribute there is no broken-image mark; an empty one would
// count as a failed load again.
function clearThumbnail() {
    ui.thumbnail.removeAttr("src");
}

// The image that the markup names may have failed before this script came.
function armThumbnail() {
    const [image] = ui.thumbnail.on("error", clearThumbnail);
    if (image.complete && image.naturalWidth === 0) {
        clearThumbnail();
    }
}

// ---------------------------------------------------------------------------
// Status grid, and the walk through a stats reply that fills the panels above

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
        .fail(() => {
            addRate(0);
            countLostPoll();
        });
    requestLog();
}

function showStats(stats) {
    closeLostToast();
    if (!walkStats(stats)) {
        console.log("No stream stats provided");
        showConnectedTime("0s", "#ffdb3d");
        addRate(0);
        drawBars(audioChart, []);
    }
}

// Ends at the first section that is missing, and then answers false.
function walkStats(stats) {
    const { recv, window: flowWindow, link } = stats;
    showCurrentIndex(stats);
    if (!recv) return false;
    showBuffers(recv);
    if (!flowWindow) return false;
    write(ui.inFlight, flowWindow.flight);
    write(ui.flow, flowWindow.flow);
    if (!link) return false;
    showLink(link);
    writeUnlessZero(ui.latency, recv.msRcvBuf || recv.msSndBuf);
    showCounters(recv);
    write(ui.endpoint, stats.endpoint);
    showTime(stats.time);
    const levels = parseLevels(stats.audio_levels);
    if (!levels) return false;
    drawBars(audioChart, levels);
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

// The two families send the same values under different keys.
function showBuffers(recv) {
    const free = recv.byteAvailRcvBuf || recv.byteAvailSndBuf;
    writeUnlessZero(ui.bufferFree, free && free / 1000000);
    writeUnlessZero(ui.bufferUsed, recv.byteRcvBuf || recv.byteSndBuf);
}

// Nothing if the reply lacks the rate.
function toMegabits(bps) {
    const mbps = Number.parseInt(bps, 10) / 1000000;
    return Number.isNaN(mbps) ? undefined : mbps;
}

function showLink(link) {
    write(ui.bps, toMegabits(link.bps));
    write(ui.maxBandwidth, link.maxBandwidth);
    write(ui.bandwidth, link.bandwidth);
    write(ui.rtt, link.rtt);
}

function showCounters(recv) {
    write(ui.packets, recv.packets);
    write(ui.dropped, recv.packetsDropped);
    write(ui.lost, recv.packetsLost);
    write(ui.retransmitted, recv.packetsRetransmitted);
}

function showTime(seconds) {
    if (seconds === undefined) return;
    const text = formatTime(seconds);
    ui.time.text(text || "0s");
    if (seconds > 0) {
        showConnectedTime(text, accent);
    } else {
        showConnectedTime("0s", "#ffdb3d");
    }
}

// 90061 seconds read "1 day, 1h1m 1s": one hour brings no blank of its own.
function formatTime(time) {
    const days = Math.floor(time / 86400);
    const hours = Math.floor((time % 86400) / 3600);
    const minutes = Math.floor((time % 3600) / 60);
    const seconds = Math.floor(time % 60);
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

// ---------------------------------------------------------------------------
// Logs

function requestLog() {
    $.ajax({ url: "/proxy.log", dataType: "text" }).done(showLog);
}

// The same text is left alone, so that a selection or a scrolled view stays.
function showLog(text) {
    const newestFirst = text.split("\n").reverse().join("\n");
    if (newestFirst !== ui.log.text()) {
        ui.log.text(newestFirst);
    }
}

// ---------------------------------------------------------------------------
// Connection watchdog

// Good polls between do not count: only closing the toast starts afresh.
function countLostPoll() {
    state.lostPolls += 1;
    if (state.lostToast || state.lostPolls < lostPollTolerance) return;
    ui.overlay.show();
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
    ui.overlay.hide();
}

// ---------------------------------------------------------------------------
// Stream selection

function showSelection(row, isCurrent) {
    row.cell.children("button").toggle(!isCurrent);
    row.cell.children("span").toggle(isCurrent);
}

function selectStream(index) {
    post("/api/source/set", { index })
        .done(() => showToast(undefined, `Success: ${rows[index].word} stream selected`))
        .fail(() => showError("Failure", "Failure: Please try again"));
}

// ---------------------------------------------------------------------------
// Settings form: from the unit's addresses to the fields

function loadForm() {
    $.getJSON("/api/cfg/get").done((reply) => {
        rows.forEach((row, i) => loadRow(row, reply?.uris?.[i]));
        takeSnapshot();
    });
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

function apply() {
    takeSnapshot();
    postStreams(rows.map((row, idx) => ({ idx, enable: isEnabled(row), uri: buildUri(row) })));
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
            loadForm();
        })
        .fail(() => showError("Set Stream", "Failed: Settings not applied. Please try again"));
}

// ---------------------------------------------------------------------------
// Settings form: history, kept in this browser

const historyLength = 10;
const histories = [[], []]; // whole addresses, oldest first

function loadHistories() {
    rows.forEach((row, idx) => {
        histories[idx] = readHistory(row.historyKey).slice(-historyLength);
        showHistory(row, idx);
    });
}

function readHistory(key) {
    try {
        const list = JSON.parse(localStorage.getItem(key));
        return Array.isArray(list) ? list.map(String) : [];
    } catch {
        return []; // storage switched off, or something else wrote there
    }
}

function remember({ idx, uri }) {
    if (histories[idx].includes(uri)) return;
    histories[idx].push(uri);
    try {
        localStorage.setItem(rows[idx].historyKey, JSON.stringify(histories[idx]));
    } catch {
        // Storage full or switched off: the unit has the settings all the same.
    }
}

function showHistory(row, idx) {
    const hadFocus = row.history.find(":focus").length > 0;
    row.history.empty();
    if (histories[idx].length === 0) return;
    const select = $("<select>", { class: "form-select form-select-sm", "aria-label": `${row.word} History` })
        .append(new Option("History", ""))
        .append(histories[idx].map((uri) => new Option(uri, uri)))
        .appendTo(row.history);
    onPick(select, (uri) => postStreams([{ idx, enable: isEnabled(row), uri }]));
    if (hadFocus) {
        select.trigger("focus");
    }
}

// Arrow keys walk a closed list and change its value at every step: that only
// browses, and Enter picks. A pick from the open list is a change or a click.
function onPick(select, pick) {
    let browsing = false;
    const take = () => {
        if (select.prop("selectedIndex") <= 0) return;
        const value = select.val();
        select.prop("selectedIndex", 0);
        pick(value);
    };
    select.on("keydown", (event) => {
        if (event.key === "Enter") {
            take();
        }
        browsing = true;
        setTimeout(() => { browsing = false; });
    });
    select.on("change click", () => browsing || take());
}

// ---------------------------------------------------------------------------
// Settings form: what differs from the snapshot

const serializeForm = () => JSON.stringify(ui.form.serializeArray());

function takeSnapshot() {
    state.formSnapshot = serializeForm();
    showChanges();
}

function showChanges() {
    const changed = serializeForm() !== state.formSnapshot;
    ui.apply.toggleClass("changed", changed).css("background-color", changed ? accent : "");
    ui.clear.toggle(changed);
}

function clearChanges() {
    for (const { name, value } of JSON.parse(state.formSnapshot)) {
        $(ui.form[0].elements[name]).val(value).trigger("change");
    }
    showChanges();
}

// ---------------------------------------------------------------------------
// Ping and Restart IP

function ping() {
    const host = ui.pingInput.val();
    const fail = () => showError("Send ping", "Failed: Please try again");
    $.ajax({
        url: "/api/ping",
        method: "POST",
        dataType: "json",
        contentType: "application/json",
        data: JSON.stringify({ host }),
    }).done((reply) => {
        if (reply?.success !== true) {
            fail();
            return;
        }
        const time = Number(reply.time).toFixed(2);
        showToast("Send ping", `Succeeded: ${escapeMarkup(host)}<br/>Time: ${time} ms`);
    }).fail(fail);
}

function restartIp() {
    post("/api/wq_input_reset", {})
        .done(() => showToast("Restart IP", "Succeeded"))
        .fail(() => showError("Reset IP", "Failed: Please try again"));
}

// ---------------------------------------------------------------------------
// Copying

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

function showOutcome() {
    const action = $.cookie(outcomeCookie);
    if (action) {
        showToast(action, "Succeeded", { autotimeout: 10000 });
    }
    $.cookie(outcomeCookie, "");
}

// ---------------------------------------------------------------------------
// Firmware

const withoutSuffix = (file) => file.slice(0, -3);

function checkFirmware() {
    $.getJSON("/api/firmware/get").done((reply) => {
        if (Array.isArray(reply?.updates)) {
            offerUpdate(reply.updates.map(String));
        }
    });
}

function offerUpdate(files) {
    const title = "Finished checking for new Firmware";
    const newest = files.findLast((file) => compareVersions(state.version, versionOf(file)) > 0);
    if (newest === undefined) {
        showToast(title, "You are currently using the most updated version of the Tidewell");
        return;
    }
    state.firmwareFile = newest;
    ui.updateName.text(withoutSuffix(newest));
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
    post("/api/firmware/set", { update: state.firmwareFile });
    showToast("Update", "Starting system update");
    setTimeout(() => recover("Update"), 1000);
}

// ---------------------------------------------------------------------------
// Start-up

function armControls() {
    ui.form.on("submit", (event) => event.preventDefault());
    ui.form.on("keyup change", showChanges);
    ui.apply.on("click", apply);
    ui.clear.on("click", clearChanges);
    ui.restartIp.on("click", restartIp);
    rows.forEach((row, index) => {
        row.cell.children("button").on("click", () => selectStream(index));
        row.mode.on("change", () => modeChanged(row));
        row.encryption.on("change", () => encryptionChanged(row));
        row.eye.on("click", () => toggleKey(row));
    });
    armThumbnail();
    ui.pingForm.on("submit", (event) => event.preventDefault());
    ui.sendPing.on("click", ping);
    ui.copyStats.on("click", () => copyText("Copy Stats", ui.status[0].innerText, ui.status));
    ui.copyLogs.on("click", () => copyText("Copy Logs", ui.log.text(), document.body));
}

function armMaintenance() {
    Object.values(dialogs).forEach(armDialog);
    dialogs.reboot.confirm.on("click", () => confirmOutage(dialogs.reboot, "Reboot", "/api/reboot/set", 10000));
    dialogs.restart.confirm.on("click", () => confirmOutage(dialogs.restart, "Restart", "/api/restart/set", 5000));
    dialogs.update.confirm.on("click", update);
    dialogs.update.box.on("hidden.bs.modal", () => ui.firmwareLink.trigger("focus"));
    ui.firmwareLink.on("click", (event) => {
        event.preventDefault();
        checkFirmware();
    });
}

function start() {
    $.ajaxSetup({ timeout: 3000 });
    showOutcome();
    loadHistories();
    takeSnapshot();
    ui.overlay.appendTo(document.body);
    ui.year.text(new Date().getFullYear());
    armControls();
    armMaintenance();
    $.getJSON("/api/caps").done((caps) => showCaps(caps ?? {}));
    loadForm();
    buildCharts();
    statsPass();
    thumbnailPass();
}

start();
