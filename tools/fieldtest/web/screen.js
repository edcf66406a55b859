// The field-test page: reports pushed by the server as Server-Sent Events
// and drawn in place, plots of the values people watch, and the settings.
'use strict';

const PLOT_WINDOW_S = 300;  // the last five minutes
const ACTIVE_SET = [1, 2, 3, 4, 5, 6];

// Each plot: its title and the series it draws as [report, attribute, label].
const PLOTS = [
  {id: 'lte', title: 'LTE serving cell (dBm, dB)', series: [
    ['lteopinfo', 'lte_rsrp', 'RSRP'], ['lteopinfo', 'lte_rsrq', 'RSRQ'],
    ['lteopinfo', 'lte_serv_cell_rssi', 'RSSI']]},
  {id: 'wcdma-rscp', title: 'WCDMA RSCP (dBm)', series: [
    ['radionwinfo', 'scell_rscp', 'serving'],
    ...ACTIVE_SET.map((n) => ['radionwinfo', `aset_rscp${n}`, `active set ${n}`])]},
  {id: 'wcdma-ecio', title: 'WCDMA Ec/Io (dB)', series: [
    ['radionwinfo', 'scell_ecio', 'serving'],
    ...ACTIVE_SET.map((n) => ['radionwinfo', `aset_ecio${n}`, `active set ${n}`])]},
  {id: 'dch-tx', title: 'DCH transmit power (dBm)', series: [
    ['tchtxpwr', 'dch_tx_pwr', 'transmit power']]},
  {id: 'cqi', title: 'HSDPA CQI', series: [['hspaopinfo', 'hsdpa_cqi_num', 'CQI']]},
];

// What the track can be coloured by: [report, attribute, label]; the first is the default.
const TRACK_VALUES = [
  ['lteopinfo', 'lte_rsrp', 'LTE RSRP (dBm)'], ['lteopinfo', 'lte_rsrq', 'LTE RSRQ (dB)'],
  ['radionwinfo', 'scell_rscp', 'WCDMA RSCP (dBm)'], ['radionwinfo', 'scell_ecio', 'WCDMA Ec/Io (dB)'],
  ['tchtxpwr', 'dch_tx_pwr', 'DCH transmit power (dBm)'],
];
const TRACK_LIMIT = 20000;  // points kept on the page

// With serve --mqtt: the key measurements side by side across the devices,
// and a plot of each with one line per device: [report, attribute, label].
const FLEET_VALUES = [
  ['lteopinfo', 'lte_rsrp', 'RSRP (dBm)'], ['lteopinfo', 'lte_rsrq', 'RSRQ (dB)'],
  ['radionwinfo', 'scell_rscp', 'RSCP (dBm)'], ['radionwinfo', 'scell_ecio', 'Ec/Io (dB)'],
  ['tchtxpwr', 'dch_tx_pwr', 'transmit power (dBm)'],
];

const COLOURS = ['#1f77b4', '#d62728', '#2ca02c', '#9467bd', '#ff7f0e', '#8c564b', '#e377c2'];

const started = Date.now();
const charts = {};  // plot id -> Chart
const fleetCharts = {};  // attribute -> Chart, a dataset per device
// Devices heard through the broker: name -> {status, missed, config, latest: report -> sample}.
const devices = {};
let picked = null;  // the device whose panels, plots and settings are shown
const panels = {};  // status object -> panel element
const fillers = {};  // status object -> the reports that fill it
// Names that more than one status object holds (the daemon writes its PDN
// attributes into the UMTS and the LTE object alike) are shown once, in a
// panel of their own, with the latest value and where it came from.
const namesOf = {};  // status object -> Set of the names its reports show
const sharedNames = new Set();
const latestOf = {};  // status object -> its latest report
let settingControls = {};  // setting -> {input, current}

// What the browser test and a curious user can look at.
window.fieldtestScreen = {
  charts,
  reports: {},
  config: {},
  devices,
  picked: () => picked,
  // Points per device drawn in a fleet plot: device -> count.
  fleetPoints(attribute) {
    const chart = fleetCharts[attribute];
    return chart ? Object.fromEntries(chart.data.datasets.map((d) => [d.label, d.data.length])) : {};
  },
  // Points of the track drawn on the map (coloured markers).
  trackPoints() { return track.layer ? track.layer.getLayers().length : 0; },
  // The attribute names each panel shows: panel id -> [names].
  panelAttributes() {
    const out = {};
    for (const panel of document.querySelectorAll('#report-grid .panel')) {
      out[panel.id] = [...panel.querySelectorAll('[data-attribute]')]
        .flatMap((e) => e.dataset.attribute.split(' '));
    }
    return out;
  },
  pointCount(plotId) {
    const chart = charts[plotId];
    if (!chart) return 0;
    return chart.data.datasets.reduce((sum, d) => sum + d.data.length, 0);
  },
};

function el(tag, attrs = {}, ...children) {
  const node = document.createElement(tag);
  for (const [key, value] of Object.entries(attrs)) {
    if (key === 'class') node.className = value;
    else node.setAttribute(key, value);
  }
  for (const child of children) node.append(child);
  return node;
}

// A value cell: absent values are a dimmed dash, never text among numbers.
// Numbers line up on the right in tables of a family, not beside a name.
function valueCell(value, inTable = true) {
  if (value === null || value === undefined) {
    return el('td', {class: 'absent', title: 'No data available!'}, '–');
  }
  // Readings such as -93.10000000000001 are shown to three decimals at most.
  const text = typeof value === 'object' ? JSON.stringify(value)
    : typeof value === 'number' && !Number.isInteger(value) ? String(+value.toFixed(3))
    : String(value);
  const kind = typeof value === 'number' ? (inTable ? 'num' : '') : 'text';
  return el('td', {class: kind}, text);
}

function asNumber(value) {
  if (typeof value === 'number') return value;
  if (typeof value === 'string' && value.trim() !== '' && Number.isFinite(Number(value))) {
    return Number(value);
  }
  return null;
}

// ---- reports ----

// One panel per status object: every report that fills it reads the whole
// object, so the panel shows the latest of them and no attribute twice.
function panelFor(object, report) {
  if (!panels[object]) {
    const panel = el('article', {class: 'panel', id: `object-${object}`});
    document.getElementById('report-grid').append(panel);
    panels[object] = panel;
    fillers[object] = [];
  }
  if (report && !fillers[object].includes(report)) fillers[object].push(report);
  return panels[object];
}

function renderTable(item) {
  const head = el('tr', {}, el('th', {}, ''), ...item.columns.map((c) => el('th', {}, `#${c}`)));
  const rows = item.rows.map((row) => el('tr', {}, el('th', {}, row.name),
      ...row.cells.map(valueCell)));
  // The attributes the table shows, for the page's own checks.
  return [el('div', {class: 'table-name', 'data-attribute': (item.attributes || [item.name]).join(' ')},
      item.name), el('table', {}, head, ...rows)];
}

// A JSON value of nested objects as one table: a row per path down to the
// objects that hold plain values (e.g. code × version), a column per key
// found in them, whatever the keys are.
function nestedTable(name, value) {
  const rows = [];
  const walk = (node, path) => {
    const entries = Object.entries(node);
    if (entries.length && entries.every(([, v]) => v !== null && typeof v === 'object' &&
        !Array.isArray(v) && Object.values(v).some((x) => x === null || typeof x !== 'object'))) {
      for (const [key, leaf] of entries) rows.push([[...path, key], leaf]);
    } else {
      for (const [key, child] of entries) {
        if (child !== null && typeof child === 'object') walk(child, [...path, key]);
      }
    }
  };
  walk(value, []);
  const columns = [...new Set(rows.flatMap(([, leaf]) => Object.keys(leaf)))];
  const depth = Math.max(0, ...rows.map(([path]) => path.length));
  const head = el('tr', {}, ...Array.from({length: depth}, () => el('th', {}, '')),
      ...columns.map((c) => el('th', {}, c)));
  const body = rows.map(([path, leaf]) => el('tr', {}, ...path.map((p) => el('th', {}, p)),
      ...columns.map((c) => valueCell(typeof leaf[c] === 'object' && leaf[c] !== null
        ? Object.entries(leaf[c]).map(([k, v]) => `${k}: ${v}`).join(', ') : leaf[c]))));
  return [el('div', {class: 'table-name', 'data-attribute': name}, name),
    el('table', {}, head, ...body)];
}

// dm_stats: its counts as a table of values, a replay's progress as a bar,
// and its per-code counts as a table generic over their keys.
function renderStats(report) {
  const bar = [], singles = el('table', {}), tables = [];
  for (const [name, value] of Object.entries(report.values)) {
    if (value !== null && typeof value === 'object') {
      tables.push(...nestedTable(name, value));
    } else if (name === 'replay_percent') {
      if (typeof value === 'number' && value >= 0) {
        bar.push(el('label', {'data-attribute': name}, `replay ${value}%`,
            el('progress', {max: 100, value})));
      }
    } else {
      singles.append(el('tr', {}, el('th', {'data-attribute': name}, name), valueCell(value, false)));
    }
  }
  return [...bar, singles, ...tables];
}

// A sample from a device on the broker: kept, compared and plotted per
// device, and drawn in the panels when it is the picked device's.
function fleetReport(report) {
  const device = deviceEntry(report.device);
  device.latest[report.report] = report;
  if (picked === null) pickDevice(report.device);
  plotFleet(report);
  showFleet();
  if (report.device === picked) renderReport(report);
}

function deviceEntry(name) {
  if (!devices[name]) {
    devices[name] = {status: 'unknown', missed: 0, config: {}, latest: {}};
    document.getElementById('fleet').hidden = false;
    document.getElementById('device').append(el('option', {value: name}, name));
  }
  return devices[name];
}

function showDevice(info) {
  const device = deviceEntry(info.device);
  device.status = info.status;
  // Health's device list has it; a device event (status, config) has not.
  if (info.missed !== undefined) device.missed = info.missed;
  device.config = info.config || {};
  if (picked === null) pickDevice(info.device);
  if (info.device === picked) showConfig(device.config);
  showFleet();
}

// The panels, per-device plots and settings follow the picked device.
function pickDevice(name) {
  picked = name;
  document.getElementById('device').value = name;
  for (const chart of Object.values(charts)) {
    for (const dataset of chart.data.datasets) dataset.data = [];
    chart.update('none');
  }
  const device = devices[name];
  for (const object of Object.keys(latestOf)) delete latestOf[object];
  for (const report of Object.values(device.latest)) renderReport(report);
  showConfig(device.config);
}

// A row per device: its status (with the samples it missed, if any) and
// the latest of each key measurement.
function showFleet() {
  const head = el('tr', {}, el('th', {}, 'device'), el('th', {}, 'status'),
      ...FLEET_VALUES.map(([, , label]) => el('th', {}, label)));
  const rows = Object.keys(devices).sort().map((name) => {
    const device = devices[name];
    return el('tr', {'data-device': name}, el('th', {}, name),
        el('td', {class: device.status === 'online' ? '' : 'offline'},
            device.missed ? `${device.status}, ${device.missed} missed` : device.status),
        ...FLEET_VALUES.map(([report, attribute]) => {
          const sample = device.latest[report];
          return valueCell(sample && !sample.error ? sample.values[attribute] : null);
        }));
  });
  document.getElementById('fleet-table').replaceChildren(head, ...rows);
}

function makeFleetCharts() {
  if (typeof Chart === 'undefined') return;
  const grid = document.getElementById('fleet-plot-grid');
  for (const [, attribute, label] of FLEET_VALUES) {
    const canvas = el('canvas', {id: `fleet-plot-${attribute}`});
    grid.append(el('div', {class: 'plot'}, canvas));
    fleetCharts[attribute] = new Chart(canvas, {
      type: 'line', data: {datasets: []},
      options: {animation: false, parsing: false, maintainAspectRatio: false,
        plugins: {title: {display: true, text: `${label} per device`}},
        scales: {x: {type: 'linear', title: {display: true, text: 'seconds'}}}},
    });
  }
}

function plotFleet(report) {
  if (report.error) return;
  const x = (report.time - started) / 1000;
  for (const [name, attribute] of FLEET_VALUES) {
    const chart = fleetCharts[attribute];
    if (!chart || name !== report.report) continue;
    let dataset = chart.data.datasets.find((d) => d.label === report.device);
    if (!dataset) {
      const colour = COLOURS[Object.keys(devices).sort().indexOf(report.device) % COLOURS.length];
      dataset = {label: report.device, data: [], pointRadius: 1.5, borderWidth: 1.5,
        borderColor: colour, backgroundColor: colour};
      chart.data.datasets.push(dataset);
    }
    const y = asNumber(report.values[attribute]);
    if (y === null && (!dataset.data.length || dataset.data[dataset.data.length - 1].y === null)) continue;
    dataset.data.push({x, y});
    while (dataset.data.length && dataset.data[0].x < x - PLOT_WINDOW_S) dataset.data.shift();
    chart.options.scales.x.min = Math.max(0, x - PLOT_WINDOW_S);
    chart.update('none');
  }
}

function itemNames(item) {
  return item.type === 'value' ? [item.name] : (item.attributes || [item.name]);
}

// Notes the names the report shows; those another object holds too become
// shared, and the other objects' panels are drawn again without them.
function noteNames(report) {
  if (report.error || !report.items) return;
  const mine = namesOf[report.object] = namesOf[report.object] || new Set();
  const grown = [];
  for (const name of report.items.flatMap(itemNames)) {
    mine.add(name);
    if (sharedNames.has(name)) continue;
    if (Object.entries(namesOf).some(([o, names]) => o !== report.object && names.has(name))) {
      sharedNames.add(name);
      grown.push(name);
    }
  }
  if (!grown.length) return;
  for (const [object, latest] of Object.entries(latestOf))
    if (object !== report.object) renderPanel(latest);
}

function isShared(item) { return itemNames(item).some((n) => sharedNames.has(n)); }

// The shared names, once, as the latest report that holds them wrote them.
function renderShared(report) {
  const items = report.items.filter(isShared);
  if (!items.length) return;
  if (!panels.shared) {
    panels.shared = el('article', {class: 'panel', id: 'object-shared'});
    document.getElementById('report-grid').append(panels.shared);
  }
  const time = new Date(report.time).toLocaleTimeString();
  panels.shared.replaceChildren(el('h3', {}, 'in several objects',
      el('small', {}, `latest from ${report.object} · ${report.report} · ${time}`)),
      ...renderItems(report, items));
}

function renderItems(report, items) {
  const children = [];
  let singles = null;
  for (const item of items) {
    if (item.type === 'value') {
      if (!singles) {
        singles = el('table', {});
        children.push(singles);
      }
      singles.append(el('tr', {}, el('th', {'data-attribute': item.name}, item.name),
          valueCell(report.values[item.name], false)));
    } else {
      singles = null;
      children.push(...renderTable(item));
    }
  }
  return children;
}

function renderReport(report) {
  window.fieldtestScreen.reports[report.report] = report;
  latestOf[report.object] = report;
  noteNames(report);
  renderPanel(report);
  plotReport(report);
  trackReport(report);
}

function renderPanel(report) {
  const panel = panelFor(report.object, report.report);
  const time = new Date(report.time).toLocaleTimeString();
  const children = [el('h3', {}, report.object, el('small', {}, `${report.report} · ${time}`)),
    el('p', {class: 'fillers'}, `filled by ${fillers[report.object].join(', ')}`)];
  if (report.error) {
    children.push(el('p', {class: 'error'}, report.error));
  } else if (report.object === 'dm_stats') {
    children.push(...renderStats(report));
  } else {
    children.push(...renderItems(report, report.items.filter((item) => !isShared(item))));
    renderShared(report);
  }
  panel.replaceChildren(...children);
}

// ---- the track ----

const track = {map: null, layer: null, line: null, points: [], fitted: false};

function makeTrack() {
  const select = document.getElementById('track-value');
  TRACK_VALUES.forEach(([report, attribute, label], i) =>
    select.append(el('option', {value: String(i)}, label)));
  select.addEventListener('change', drawTrack);
  if (typeof L === 'undefined') {
    document.getElementById('no-track').hidden = false;
    return;
  }
  // No tile layer: nothing is fetched from the network, the track is drawn
  // on a plain background.
  track.map = L.map('track', {attributionControl: false}).setView([0, 0], 2);
  track.line = L.polyline([], {color: '#8a94a6', weight: 2}).addTo(track.map);
  track.layer = L.layerGroup().addTo(track.map);
}

function trackReport(report) {
  if (!report.position || report.error) return;
  const values = {};
  TRACK_VALUES.forEach(([name, attribute], i) => {
    if (name === report.report) values[i] = asNumber(report.values[attribute]);
  });
  if (!Object.keys(values).length) return;
  track.points.push({lat: report.position.latitude, lon: report.position.longitude, values});
  if (track.points.length > TRACK_LIMIT) track.points.shift();
  drawTrack();
}

// Low values red, high green, on the scale of what was seen.
function colour(value, min, max) {
  if (value === null || value === undefined) return '#9aa0aa';
  const t = max > min ? (value - min) / (max - min) : 0.5;
  return `hsl(${Math.round(120 * t)}, 75%, 42%)`;
}

function drawTrack() {
  if (!track.map) return;
  const chosen = document.getElementById('track-value').value || '0';
  const points = track.points.filter((p) => chosen in p.values);
  const seen = points.map((p) => p.values[chosen]).filter((v) => v !== null);
  const min = Math.min(...seen), max = Math.max(...seen);
  document.getElementById('track-scale').textContent =
    seen.length ? `red ${+min.toFixed(1)} … green ${+max.toFixed(1)}` : '';
  track.line.setLatLngs(track.points.map((p) => [p.lat, p.lon]));
  track.layer.clearLayers();
  for (const p of points) {
    L.circleMarker([p.lat, p.lon], {radius: 5, stroke: false, fillOpacity: 0.9,
      fillColor: colour(p.values[chosen], min, max)}).addTo(track.layer);
  }
  if (points.length && (!track.fitted || points.length % 20 === 0)) {
    track.map.fitBounds(track.line.getBounds(), {padding: [20, 20], maxZoom: 17});
    track.fitted = true;
  }
}

// ---- plots ----

function makeCharts() {
  const grid = document.getElementById('plot-grid');
  if (typeof Chart === 'undefined') {
    document.getElementById('no-charts').hidden = false;
    return;
  }
  for (const plot of PLOTS) {
    const canvas = el('canvas', {id: `plot-${plot.id}`});
    grid.append(el('div', {class: 'plot'}, canvas));
    charts[plot.id] = new Chart(canvas, {
      type: 'line',
      data: {datasets: plot.series.map(([, , label], i) => ({label, data: [], pointRadius: 1.5,
        borderWidth: 1.5, spanGaps: false, borderColor: COLOURS[i % COLOURS.length],
        backgroundColor: COLOURS[i % COLOURS.length]}))},
      options: {
        animation: false, parsing: false, maintainAspectRatio: false,
        plugins: {title: {display: true, text: plot.title},
          legend: {labels: {boxWidth: 12, filter: (item, data) =>
            data.datasets[item.datasetIndex].data.some((p) => p.y !== null)}}},
        scales: {x: {type: 'linear', title: {display: true, text: 'seconds'}}},
      },
    });
  }
}

function plotReport(report) {
  const x = (report.time - started) / 1000;
  for (const plot of PLOTS) {
    const chart = charts[plot.id];
    if (!chart) continue;
    let changed = false;
    plot.series.forEach(([name, attribute], i) => {
      if (name !== report.report || report.error) return;
      const data = chart.data.datasets[i].data;
      const y = asNumber(report.values[attribute]);
      // An absent value breaks the line rather than drawing a zero.
      if (y === null && (data.length === 0 || data[data.length - 1].y === null)) return;
      data.push({x, y});
      while (data.length && data[0].x < x - PLOT_WINDOW_S) data.shift();
      changed = true;
    });
    if (changed) {
      chart.options.scales.x.min = Math.max(0, x - PLOT_WINDOW_S);
      chart.update('none');
    }
  }
}

// ---- settings ----

async function makeSettingsForm() {
  const form = document.getElementById('settings-form');
  let settings;
  try {
    settings = await (await fetch('/api/settings')).json();
  } catch (error) {
    setTimeout(makeSettingsForm, 2000);
    return;
  }
  settingControls = {};
  const rows = settings.map(({name, choices}) => {
    const input = choices.length
      ? el('select', {name, id: `setting-${name}`}, el('option', {value: ''}, '—'),
          ...choices.map((c) => el('option', {value: c}, c)))
      : el('input', {name, id: `setting-${name}`, type: 'text', size: 14});
    const current = el('span', {class: 'current', id: `current-${name}`}, '');
    const apply = el('button', {type: 'button', id: `apply-${name}`}, 'set');
    apply.addEventListener('click', () => applySetting(name, input.value));
    settingControls[name] = {input, current};
    return el('label', {}, el('span', {class: 'name'}, name), input, apply, current);
  });
  form.replaceChildren(...rows);
  showConfig(window.fieldtestScreen.config);
}

async function applySetting(name, value) {
  const message = document.getElementById('settings-message');
  message.className = '';
  message.textContent = `setting ${name} to ${value} …`;
  try {
    const response = await fetch('/api/config', {
      method: 'POST', headers: {'Content-Type': 'application/json'},
      body: JSON.stringify(picked === null ? {name, value} : {name, value, device: picked})});
    const body = await response.json();
    if (!response.ok) {
      message.className = 'error';
      message.textContent = `${name}: ${body.error}`;
      return;
    }
    if (body.sent) {
      message.textContent = `${name} sent to ${body.sent}; it shows here once its publisher ` +
        'applies it (fieldtest publish --accept-settings)';
      return;
    }
    message.textContent = `${name} written; the daemon's answer shows in diag/config below`;
    showConfig(body);
  } catch (error) {
    message.className = 'error';
    message.textContent = `${name}: the field-test server is not answering`;
  }
}

function showConfig(config) {
  window.fieldtestScreen.config = config;
  for (const [name, {input, current}] of Object.entries(settingControls)) {
    const value = config[name];
    current.textContent = value === undefined ? 'not set' : `now: ${value}`;
    if (value !== undefined && document.activeElement !== input) input.value = String(value);
  }
}

// ---- health ----

function showHealth(health) {
  const banner = document.getElementById('banner');
  if (health.fleet) {
    const online = health.devices.filter((d) => d.status === 'online').length;
    document.getElementById('modem-state').textContent =
      `${online} of ${health.devices.length} devices online`;
    document.getElementById('fleet-broker').textContent = `MQTT broker ${health.fleet}`;
    document.getElementById('fleet').hidden = false;
    for (const device of health.devices) showDevice(device);
  } else {
    document.getElementById('modem-state').textContent = health.modem_state ?? 'unknown';
  }
  const position = health.position || {};
  document.getElementById('position').textContent = position.known
    ? `${position.latitude.toFixed(5)}, ${position.longitude.toFixed(5)}` +
      (position.fix_time ? ` at ${new Date(position.fix_time).toLocaleTimeString()}` : '')
    : position.text || 'no position';
  document.getElementById('recorded').textContent = health.recorded;
  showRecording(health.recording);
  document.getElementById('interval').value = String(health.interval);
  if (!health.broker) {
    banner.textContent = health.fleet
      ? `The MQTT broker ${health.fleet} is not reachable; reconnecting …`
      : 'The PPS broker is not running: no reports and no settings until it is back.';
  } else if (!health.daemon) {
    banner.textContent = `radio_tavora is not answering: ${health.problem}`;
  } else {
    banner.hidden = true;
    return;
  }
  banner.hidden = false;
}

// ---- recordings on disk ----

let recordingFile = null;

function showRecording(recording) {
  const state = document.getElementById('recording-state');
  if (!recording) {
    state.textContent = 'not recording (fieldtest serve --record DIR)';
  } else if (recording.error) {
    state.textContent = `recording stopped: ${recording.error}`;
  } else {
    state.textContent = `recording ${recording.file}: ${recording.acknowledged} samples`;
  }
  const file = recording ? recording.file : null;
  if (file !== recordingFile) {
    recordingFile = file;
    listRecordings();
  }
}

async function listRecordings() {
  try {
    const {files} = await (await fetch('/api/recordings')).json();
    document.getElementById('recording-list').replaceChildren(...files.map((f) =>
      el('li', {}, el('a', {href: `/api/recordings/${encodeURIComponent(f.name)}`, download: f.name},
          f.name), ` ${(f.bytes / 1e6).toFixed(1)} MB`)));
  } catch (error) {
    // Listed again with the next file.
  }
}

function listen() {
  const events = new EventSource('/api/events');
  events.addEventListener('report', (e) => {
    const report = JSON.parse(e.data);
    if (report.device) fleetReport(report);
    else renderReport(report);
  });
  events.addEventListener('device', (e) => showDevice(JSON.parse(e.data)));
  events.addEventListener('config', (e) => showConfig(JSON.parse(e.data)));
  events.addEventListener('health', (e) => showHealth(JSON.parse(e.data)));
  // The browser reconnects by itself; until then, say so.
  events.addEventListener('error', () => {
    const banner = document.getElementById('banner');
    banner.textContent = 'The field-test server is not answering; reconnecting …';
    banner.hidden = false;
  });
}

document.getElementById('interval').addEventListener('change', (e) => {
  fetch('/api/interval', {method: 'POST', headers: {'Content-Type': 'application/json'},
    body: JSON.stringify({seconds: Number(e.target.value)})});
});

// The panels in the reports' own order, whatever order their events come in.
async function makePanels() {
  try {
    const reports = await (await fetch('/api/reports')).json();
    for (const {name, object} of reports) panelFor(object, name);
  } catch (error) {
    // The events create the panels as they come.
  }
}

makeCharts();
makeFleetCharts();
document.getElementById('device').addEventListener('change', (e) => pickDevice(e.target.value));
makeTrack();
document.getElementById('recordings').addEventListener('toggle', listRecordings);
makeSettingsForm();
makePanels().then(listen);
