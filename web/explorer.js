// The gateway explorer: every view is one or a few SOAP calls to /ws, written by hand so that
// the page also shows how a client talks to the gateway. The browser sends the credentials
// the page was opened with (HTTP basic authentication of the web front).
"use strict";

const NS = {
  nsc1: "http://wsgate.local/ws/BACnetWSKite",
  nsqv: "http://wsgate.local/ws/BACnetWSKiteQV",
};
const REFRESH_MS = 3000;

// --- SOAP -------------------------------------------------------------------------------------

// The daemon is unreachable (restarting, stopped): the web front answered without a SOAP body.
class Unreachable extends Error {}

function esc(text) {
  return String(text).replace(
      /[&<>"]/g, (c) => ({"&": "&amp;", "<": "&lt;", ">": "&gt;", '"': "&quot;"})[c]);
}

// Sends `body` (the operation element, using the prefix nsc1 or nsqv) and returns the
// operation's response element; a SOAP fault throws an Error with the fault's text as is.
async function soap(body) {
  const envelope = '<?xml version="1.0" encoding="UTF-8"?>' +
      '<SOAP-ENV:Envelope xmlns:SOAP-ENV="http://schemas.xmlsoap.org/soap/envelope/"' +
      ` xmlns:nsc1="${NS.nsc1}" xmlns:nsqv="${NS.nsqv}"><SOAP-ENV:Body>${body}` +
      "</SOAP-ENV:Body></SOAP-ENV:Envelope>";
  let response;
  try {
    response = await fetch("ws", {
      method: "POST",
      body: envelope,
      cache: "no-store",
      credentials: "same-origin",
      // The mark tells the web front to keep the daemon's 401 challenge from the browser.
      headers: {"Content-Type": "text/xml; charset=utf-8", "X-Wsgate-Explorer": "1"},
    });
  } catch (e) {
    throw connectionLost("no answer from the gateway (" + e.message + ")");
  }
  const text = await response.text();
  const doc = new DOMParser().parseFromString(text, "text/xml");
  const soapBody =
      doc.getElementsByTagNameNS("http://schemas.xmlsoap.org/soap/envelope/", "Body")[0];
  const status = `HTTP ${response.status} ${response.statusText}`;
  // Without a daemon behind it the web front answers 503 (or 502 from nginx).
  if (!soapBody && response.status >= 500) throw connectionLost(status);
  connectionBack();
  if (!soapBody) throw new Error(status);
  const answer = soapBody.firstElementChild;
  if (answer && answer.localName === "Fault") {
    throw new Error(childText(answer, "faultstring") || `HTTP ${response.status}`);
  }
  return answer;
}

function kids(element, name) {
  return element ? Array.from(element.children).filter((c) => c.localName === name) : [];
}
function child(element, name) {
  return kids(element, name)[0];
}
function childText(element, name) {
  const c = child(element, name);
  return c ? c.textContent : "";
}
function strings(items, tag) {
  return items.map((s) => `<${tag}>${esc(s)}</${tag}>`).join("");
}

// --- connection state -------------------------------------------------------------------------

const connection = document.getElementById("connection");
function connectionLost(why) {
  connection.hidden = false;
  connection.textContent = "reconnecting";
  connection.title = why;
  return new Unreachable(why);
}
function connectionBack() {
  connection.hidden = true;
}

// --- small helpers ----------------------------------------------------------------------------

const $ = (id) => document.getElementById(id);
function el(tag, props, ...children) {
  const e = document.createElement(tag);
  Object.assign(e, props || {});
  for (const c of children) e.append(c);
  return e;
}
function showError(id, error) {
  const p = $(id);
  // While the daemon is away the banner says so; the views keep what they showed.
  if (error instanceof Unreachable) return;
  p.hidden = !error;
  p.textContent = error ? (error.message || String(error)) : "";
}
function isErrorText(text) {
  return text.startsWith("? ");
}
function utcText(ms) {
  return new Date(Number(ms)).toISOString().replace("T", " ").replace(/\.\d+Z$/, "");
}
function ageText(ms) {
  const s = Math.max(0, Math.round(ms / 1000));
  if (s < 120) return s + " s";
  if (s < 7200) return Math.round(s / 60) + " min";
  if (s < 172800) return Math.round(s / 3600) + " h";
  return Math.round(s / 86400) + " d";
}
function qualityText(q) {
  const n = Number(q);
  if (q === "" || Number.isNaN(n)) return {text: q, cls: ""};
  if (n >= 192) return {text: "good", cls: ""};
  if (n >= 64) return {text: "uncertain", cls: "quality-uncertain"};
  return {text: "bad", cls: "quality-bad"};
}

// --- identity and gateway time ----------------------------------------------------------------

// Gateway clock minus browser clock, for the age of values.
let clockOffset = 0;

async function loadIdentity() {
  const who = await soap("<nsqv:whoAmI><options></options></nsqv:whoAmI>");
  $("user").textContent = childText(who, "result") || "(anonymous)";
}

async function refreshTime() {
  const time = await soap("<nsqv:getLocalAndUtcTime><options></options></nsqv:getLocalAndUtcTime>");
  const utc = Number(childText(time, "utcTime"));
  clockOffset = utc - Date.now();
  const zone = childText(time, "timezone");
  $("gateway-time").textContent =
      utcText(utc) + " UTC" + (zone && zone !== "UTC" ? ` (local zone ${zone})` : "");
}

// --- devices and points -----------------------------------------------------------------------

const expanded = new Map();  // device path -> { points: [...], body: tbody element }

async function loadDevices() {
  const tree = await soap(
      "<nsqv:getDeviceTree><options></options><startingPath></startingPath>" +
      "<bRecursive>true</bRecursive></nsqv:getDeviceTree>");
  const list = $("devices");
  list.textContent = "";
  expanded.clear();
  const devices = [];
  for (const d of kids(tree, "descriptors")) {
    devices.push({
      path: childText(d, "devPath"),
      name: childText(d, "devDisplayName"),
      quality: childText(d, "devQuality"),
    });
  }
  devices.sort((a, b) => a.path.localeCompare(b.path));
  for (const device of devices) {
    const depth = device.path === "/" ? 0 : device.path.split("/").length - 1;
    const q = qualityText(device.quality);
    const button =
        el("button", {className: "device", type: "button"}, el("b", {}, device.name || device.path),
           el("span", {className: "path"}, device.path), el("span", {className: q.cls}, q.text));
    const item = el("li", {}, button);
    item.dataset.path = device.path;
    item.style.paddingLeft = depth * 1.2 + "em";
    button.addEventListener("click", () => toggleDevice(item, device.path));
    list.append(item);
  }
  fillTrendDevices(devices);
  showError("devices-error", null);
}

async function toggleDevice(item, path) {
  if (item.classList.contains("open")) {
    expanded.delete(path);
    item.classList.remove("open");
    item.querySelector(".points").remove();
    return;
  }
  const box = el("div", {className: "points"}, "loading …");
  item.classList.add("open");
  item.append(box);
  try {
    const points = await loadPoints(path);
    if (!box.isConnected) return;  // folded again while loading
    const body = el("tbody");
    const table =
        el("table", {},
           el("thead", {},
              el("tr", {}, el("th", {}, "Point"), el("th", {}, "Value"), el("th", {}, "Units"),
                 el("th", {}, "Quality"), el("th", {className: "hide-narrow"}, "Age"),
                 el("th", {}, "Write"))),
           body);
    box.textContent = "";
    box.append(points.length ? el("div", {className: "scroll"}, table) : "no points");
    for (const point of points) body.append(pointRow(point));
    expanded.set(path, {points, body});
    await refreshPoints(path);
  } catch (e) {
    box.textContent = "";
    box.append(el("p", {className: "error"}, e.message));
  }
}

function joinPath(device, name) {
  return (device === "/" ? "" : device) + "/" + name;
}

// The device's points (children whose NodeType is Point), with units and what they accept.
async function loadPoints(device) {
  const children = await leaves("", [device + ":Children"]);
  if (isErrorText(children[0].value)) throw new Error(children[0].value);
  const names = children[0].value ? children[0].value.split(";") : [];
  const ATTRS = [":NodeType", ":Units", ":Writable", ":WritableValues", ":ValueType"];
  const paths = names.flatMap((n) => ATTRS.map((a) => joinPath(device, n) + a));
  const read = paths.length ? await leaves("", paths) : [];
  const points = [];
  names.forEach((name, i) => {
    const [type, units, writable, texts, valueType] =
        read.slice(i * ATTRS.length, (i + 1) * ATTRS.length)
            .map((d) => (isErrorText(d.value) ? "" : d.value));
    if (type !== "Point") return;
    let choices = texts ? texts.split(";").map((t) => t.replace(/^\d+=/, "")) : null;
    if (!choices && valueType === "Boolean") choices = ["false", "true"];
    points.push(
        {name, path: joinPath(device, name), units, writable: writable === "true", choices});
  });
  return points;
}

// getLeafDescriptors of basePath + each path: [{ value, time }] in order.
async function leaves(basePath, paths) {
  const answer = await soap(
      `<nsqv:getLeafDescriptors><options></options><basePath>${esc(basePath)}` +
      `</basePath><leafPaths>${strings(paths, "string")}</leafPaths></nsqv:getLeafDescriptors>`);
  const descriptors = kids(answer, "descriptors");
  if (!descriptors.length) throw new Error(childText(answer, "result"));
  return descriptors.map(
      (d) => ({value: childText(d, "result"), time: Number(childText(d, "leafChangeTime"))}));
}

function pointRow(point) {
  const row = el("tr");
  row.dataset.path = point.path;
  const name =
      el("button", {type: "button", className: "link", title: "show the delta log"}, point.name);
  name.addEventListener("click", () => {
    $("log-path").value = point.path;
    showLog();
  });
  row.append(
      el("td", {}, name), el("td", {className: "value"}), el("td", {}, point.units),
      el("td", {className: "quality"}), el("td", {className: "age hide-narrow"}),
      el("td", {}, writeControl(point)));
  return row;
}

function writeControl(point) {
  if (!point.writable) return "";
  const input = point.choices ? el("select", {className: "choice"},
                                   ...point.choices.map((c) => el("option", {value: c}, c))) :
                                el("input", {type: "text", placeholder: "value"});
  // A choice follows the point's value until the user picks one.
  input.addEventListener("change", () => {
    input.dataset.picked = "1";
  });
  const button = el("button", {type: "button"}, "Set");
  const result = el("span", {className: "write-result"});
  button.addEventListener("click", async () => {
    result.className = "write-result";
    result.textContent = "…";
    try {
      const answer = await soap(
          `<nsc1:setValue><nsc1:options></nsc1:options><nsc1:path>${esc(point.path)}` +
          `</nsc1:path><nsc1:value>${esc(input.value)}</nsc1:value></nsc1:setValue>`);
      const text = childText(answer, "setValueResult");
      result.textContent = text;
      result.classList.add(isErrorText(text) ? "error" : "ok");
      refreshPoints(point.path.slice(0, point.path.lastIndexOf("/")) || "/").catch(() => {});
    } catch (e) {
      result.textContent = e.message;
      result.classList.add("error");
    }
  });
  return el("span", {className: "write"}, input, button, result);
}

// Reads the value and quality of every shown point of the device in one getLeafDescriptors.
async function refreshPoints(device) {
  const shown = expanded.get(device);
  if (!shown || !shown.points.length) return;
  const paths = shown.points.flatMap((p) => [p.path, p.path + ":.Quality"]);
  const read = await leaves("", [device + ":.Quality", ...paths]);
  // A point without a quality of its own has its device's (an offline device's points are bad).
  const deviceQuality = isErrorText(read[0].value) ? "" : read[0].value;
  shown.points.forEach((point, i) => {
    const row = shown.body.querySelector(`tr[data-path="${CSS.escape(point.path)}"]`);
    const value = read[1 + 2 * i], quality = read[2 + 2 * i];
    const valueCell = row.querySelector(".value");
    valueCell.textContent = value.value;
    valueCell.className = "value" + (isErrorText(value.value) ? " error" : "");
    const choice = row.querySelector("select.choice");
    if (choice && !choice.dataset.picked && point.choices.includes(value.value))
      choice.value = value.value;
    const q = qualityText(isErrorText(quality.value) ? deviceQuality : quality.value);
    const qualityCell = row.querySelector(".quality");
    qualityCell.textContent = q.text;
    qualityCell.className = "quality " + q.cls;
    row.querySelector(".age").textContent =
        value.time ? ageText(Date.now() + clockOffset - value.time) : "";
  });
}

// --- alarms -----------------------------------------------------------------------------------

let shownAlarms = null;
async function refreshAlarms() {
  const answer = await soap(
      "<nsqv:getActiveAlarms><request><options></options>" +
      "<rqstType>LgRqTypAlarmEvents</rqstType><startTime>0</startTime><endTime>0</endTime>" +
      "<nMaxToReturn>0</nMaxToReturn><bLatestEvents>false</bLatestEvents>" +
      "<bReverseOrder>true</bReverseOrder>" +
      "<bTrimIncomplete>false</bTrimIncomplete><path></path></request></nsqv:getActiveAlarms>");
  const result = childText(answer, "result");
  showError("alarms-error", result ? new Error(result) : null);
  const alarms = child(answer, "alarms");
  // Rebuilt only when the list changed: a button keeps its focus between refreshes.
  const shape = alarms ? new XMLSerializer().serializeToString(alarms) : "";
  if (shape === shownAlarms) return;
  shownAlarms = shape;
  const body = $("alarms").tBodies[0];
  const sent =
      new Map(Array.from(body.querySelectorAll(".ack-result")).map((s) => [s.dataset.id, s]));
  body.textContent = "";
  for (const alarm of kids(alarms, "AlarmUpdate")) {
    const id = childText(alarm, "EventId");
    const status = childText(alarm, "AckStatus");
    const cell = el("td");
    // An acknowledgement goes to the gateway's event queue; its answer stays beside the alarm.
    const note = sent.get(id) || el("span", {className: "ack-result"});
    note.dataset.id = id;
    if (status === "NotAcked") {
      const button = el("button", {type: "button"}, "Acknowledge");
      button.addEventListener(
          "click", () => acknowledge(id, childText(alarm, "VariationLevel"), note));
      cell.append(button, " ");
    }
    cell.append(note);
    const row =
        el("tr", {}, el("td", {}, utcText(childText(alarm, "Time"))),
           el("td", {}, childText(alarm, "SourcePath")),
           el("td", {}, childText(alarm, "Description")), el("td", {}, childText(alarm, "Value")),
           el("td", {}, childText(alarm, "BasePriority")), el("td", {}, status), cell);
    row.dataset.id = id;
    body.append(row);
  }
}

async function acknowledge(id, variation, shown) {
  shown.className = "ack-result";
  shown.textContent = "…";
  try {
    const note = esc($("ack-note").value);
    const answer = await soap(
        "<nsc1:acknowledgeAlarm><nsc1:requests><nsc1:AckRequest>" +
        `<nsc1:EventId>${esc(id)}</nsc1:EventId><nsc1:Note>${note}</nsc1:Note>` +
        `<nsc1:VariationLevel>${esc(variation || "1")}</nsc1:VariationLevel>` +
        "<nsc1:Status>Acked</nsc1:Status></nsc1:AckRequest></nsc1:requests>" +
        "</nsc1:acknowledgeAlarm>");
    const text = childText(child(answer, "acknowledgeAlarmResult"), "string");
    shown.textContent = text || "acknowledgement sent";
    shown.classList.add(text ? "error" : "ok");
  } catch (e) {
    shown.textContent = e.message;
    shown.classList.add("error");
  }
}

// --- search -----------------------------------------------------------------------------------

async function search(event) {
  event.preventDefault();
  const body = $("search-results").tBodies[0];
  try {
    const start = esc($("search-start").value), pattern = esc($("search-pattern").value);
    const answer = await soap(
        "<nsqv:findAttributeMatches><options></options>" +
        `<startingPath>${start}</startingPath><bRecursive>true</bRecursive>` +
        `<attribMatch>${esc($("search-attrib").value)}</attribMatch>` +
        `<regexMatchPattern>${pattern}</regexMatchPattern></nsqv:findAttributeMatches>`);
    const result = childText(answer, "result");
    showError("search-error", result ? new Error(result) : null);
    const nodes = kids(child(answer, "nodes"), "string").map((s) => s.textContent);
    const data = kids(child(answer, "data"), "string").map((s) => s.textContent);
    body.textContent = "";
    nodes.forEach(
        (node, i) => body.append(el("tr", {}, el("td", {}, node), el("td", {}, data[i] || ""))));
    if (!nodes.length) body.append(el("tr", {}, el("td", {colSpan: 2}, "no matches")));
  } catch (e) {
    showError("search-error", e);
  }
}

// --- trends -----------------------------------------------------------------------------------

let chart = null;

function fillTrendDevices(devices) {
  const select = $("trend-device");
  const chosen = select.value || "/AHU1";
  select.textContent = "";
  for (const d of devices) select.append(el("option", {value: d.path}, d.path));
  select.value = devices.some((d) => d.path === chosen) ? chosen : (devices[0] || {}).path;
  loadTrendParams();
}

async function loadTrendPeriods() {
  const answer = await soap("<nsqv:getTrendPeriods><options></options></nsqv:getTrendPeriods>");
  const select = $("trend-period");
  select.textContent = "";
  for (const p of kids(child(answer, "periodProperties"), "stPeriodProperties")) {
    const period = childText(p, "period");
    select.append(
        el("option", {value: period}, `${period} (${childText(p, "max-entries")} entries)`));
  }
  if (childText(answer, "result") !== "OK")
    showError("trend-error", new Error(childText(answer, "result")));
}

async function loadTrendParams() {
  const box = $("trend-params");
  box.textContent = "";
  try {
    const answer = await soap(
        `<nsqv:getDeviceTrendParams><options></options><devicePath>` +
        `${esc($("trend-device").value)}</devicePath></nsqv:getDeviceTrendParams>`);
    const result = childText(answer, "result");
    showError("trend-error", result !== "OK" ? new Error(result) : null);
    const params = kids(child(answer, "deviceParams"), "stParamProperties");
    for (const p of params) {
      const path = childText(p, "path");
      box.append(el(
          "label", {className: "param"},
          el("span", {}, el("input", {type: "checkbox", checked: true, value: path}), " " + path)));
    }
    if (!params.length && result === "OK") box.append("no trended parameters");
    // The range ends at the device's newest snapshot: a gateway's history need not reach today.
    if (params.length && !$("trend-end").value) {
      const newest = await trendData([], $("trend-period").value, 0, 0, 1, false);
      const sample = kids(child(child(newest, "data"), "samples"), "stSnapshot")[0];
      const end = sample ? Number(childText(sample, "timestamp")) : Date.now() + clockOffset;
      $("trend-end").value = new Date(end).toISOString().slice(0, 19);
    }
  } catch (e) {
    showError("trend-error", e);
  }
}

function trendData(pointPaths, period, start, end, max, ascending) {
  return soap(
      `<nsqv:getTrendData><request><options></options><devicePath>${esc($("trend-device").value)}` +
      `</devicePath><pointPaths>${strings(pointPaths, "string")}</pointPaths><periods><period>` +
      `${esc(period)}</period></periods><startTime>${start}</startTime><endTime>${end}</endTime>` +
      `<nMaxToReturn>${max}</nMaxToReturn><startingOffset>0</startingOffset>` +
      `<ascendingOrder>${ascending}</ascendingOrder></request></nsqv:getTrendData>`);
}

async function plotTrend(event) {
  if (event) event.preventDefault();
  const paths = Array.from($("trend-params").querySelectorAll("input:checked")).map((i) => i.value);
  const end = Date.parse($("trend-end").value + "Z");
  if (!paths.length || Number.isNaN(end)) {
    showError(
        "trend-error",
        new Error(paths.length ? "choose the end of the range" : "choose a parameter"));
    return;
  }
  try {
    const start = end - Number($("trend-span").value);
    const answer = await trendData(paths, $("trend-period").value, start, end, 833, true);
    const result = childText(answer, "result");
    showError("trend-error", result !== "OK" ? new Error(result) : null);
    const data = child(answer, "data");
    const params =
        kids(child(data, "params"), "stParamProperties").map((p) => childText(p, "path"));
    const series = params.map(() => []);
    for (const snapshot of kids(child(data, "samples"), "stSnapshot")) {
      const x = Number(childText(snapshot, "timestamp"));
      kids(child(snapshot, "data"), "stSample").forEach((s, i) => {
        if (series[i]) series[i].push({x, y: sampleValue(s)});
      });
    }
    drawChart(params, series, start, end);
  } catch (e) {
    showError("trend-error", e);
  }
}

// The average of the period where the log has one, else the last actual value; null leaves a
// gap in the line.
function sampleValue(sample) {
  for (const kind of ["avg", "actual"]) {
    if (childText(sample, kind + "Valid") === "true") return Number(childText(sample, kind));
  }
  return null;
}

const COLOURS = ["#2271b1", "#d63638", "#00a32a", "#dba617", "#8c5fc2", "#135e96", "#b26200"];

function drawChart(params, series, start, end) {
  if (typeof Chart === "undefined") {
    showError("trend-error", new Error("the chart library (libjs-chart.js) was not loaded"));
    return;
  }
  if (chart) chart.destroy();
  chart = new Chart($("trend-chart"), {
    type: "line",
    data: {
      datasets: params.map((label, i) => {
        const colour = COLOURS[i % COLOURS.length];
        return {
          label,
          data: series[i],
          borderColor: colour,
          backgroundColor: colour,
          pointRadius: 0,
          borderWidth: 1.5
        };
      }),
    },
    options: {
      animation: false,
      maintainAspectRatio: false,
      parsing: false,
      normalized: true,
      interaction: {mode: "nearest", axis: "x", intersect: false},
      scales: {
        x: {
          type: "linear",
          min: start,
          max: end,
          ticks: {maxTicksLimit: 6, callback: (v) => utcText(v).slice(5, 16)}
        }
      },
      plugins: {
        tooltip:
            {callbacks: {title: (items) => items.length ? utcText(items[0].parsed.x) + " UTC" : ""}}
      },
    },
  });
}

// --- delta log --------------------------------------------------------------------------------

async function showLog(event) {
  if (event) event.preventDefault();
  const body = $("log").tBodies[0];
  try {
    const path = esc($("log-path").value);
    const answer = await soap(
        "<nsqv:getDeltaLog><request><options></options><rqstType>LgRqTypDeltas</rqstType>" +
        "<startTime>0</startTime><endTime>0</endTime><nMaxToReturn>50</nMaxToReturn>" +
        "<bLatestEvents>true</bLatestEvents><bReverseOrder>true</bReverseOrder>" +
        `<bTrimIncomplete>false</bTrimIncomplete><path>${path}</path>` +
        "</request></nsqv:getDeltaLog>");
    const result = childText(answer, "result");
    showError("log-error", result ? new Error(result) : null);
    body.textContent = "";
    const values = kids(child(answer, "loggedValues"), "PublishedValue");
    for (const v of values) {
      body.append(
          el("tr", {}, el("td", {}, utcText(childText(v, "Time"))),
             el("td", {}, childText(v, "Path")), el("td", {}, childText(v, "Value")),
             el("td", {}, qualityText(childText(v, "Quality")).text)));
    }
    if (!values.length) body.append(el("tr", {}, el("td", {colSpan: 4}, "no records")));
  } catch (e) {
    showError("log-error", e);
  }
}

// --- start and refresh ------------------------------------------------------------------------

// Runs each loader on its own, so one failing view leaves the others working.
function settle(loaders) {
  return Promise.all(loaders.map(([errorId, load]) => load().catch((e) => showError(errorId, e))));
}

async function tick() {
  if (document.visibilityState === "visible") {
    await settle([
      ["devices-error", refreshTime], ["alarms-error", refreshAlarms],
      ...Array.from(expanded.keys()).map((d) => ["devices-error", () => refreshPoints(d)])
    ]);
    // Whatever did not load while the daemon was away is loaded once it answers again.
    if (connection.hidden && !started) await start();
  }
  setTimeout(tick, REFRESH_MS);
}

let started = false;
async function start() {
  started = true;
  // The periods come first: choosing a device reads the newest snapshot of the chosen period.
  await settle([
    ["devices-error", loadIdentity], ["devices-error", refreshTime],
    ["trend-error", loadTrendPeriods]
  ]);
  await settle([["devices-error", loadDevices], ["alarms-error", refreshAlarms]]);
  if (!connection.hidden) started = false;
}

$("search-form").addEventListener("submit", search);
$("trend-form").addEventListener("submit", plotTrend);
$("trend-device").addEventListener("change", () => {
  $("trend-end").value = "";
  loadTrendParams();
});
$("log-form").addEventListener("submit", showLog);
start().then(() => setTimeout(tick, REFRESH_MS));
