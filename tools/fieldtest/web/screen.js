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

const COLOURS = ['#1f77b4', '#d62728', '#2ca02c', '#9467bd', '#ff7f0e', '#8c564b', '#e377c2'];

const started = Date.now();
const charts = {};  // plot id -> Chart
const panels = {};  // report -> panel element
let settingControls = {};  // setting -> {input, current}

// What the browser test and a curious user can look at.
window.fieldtestScreen = {
  charts,
  reports: {},
  config: {},
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

function panelFor(report) {
  if (!panels[report.report]) {
    const panel = el('article', {class: 'panel', id: `report-${report.report}`});
    document.getElementById('report-grid').append(panel);
    panels[report.report] = panel;
  }
  return panels[report.report];
}

function renderTable(item) {
  const head = el('tr', {}, el('th', {}, ''), ...item.columns.map((c) => el('th', {}, `#${c}`)));
  const rows = item.rows.map((row) => el('tr', {}, el('th', {}, row.name),
      ...row.cells.map(valueCell)));
  return [el('div', {class: 'table-name'}, item.name), el('table', {}, head, ...rows)];
}

function renderReport(report) {
  window.fieldtestScreen.reports[report.report] = report;
  const panel = panelFor(report);
  const time = new Date(report.time).toLocaleTimeString();
  const children = [el('h3', {}, report.report, el('small', {}, `${report.object} · ${time}`))];
  if (report.error) {
    children.push(el('p', {class: 'error'}, report.error));
  } else {
    let singles = null;
    for (const item of report.items) {
      if (item.type === 'value') {
        if (!singles) {
          singles = el('table', {});
          children.push(singles);
        }
        singles.append(el('tr', {}, el('th', {}, item.name),
            valueCell(report.values[item.name], false)));
      } else {
        singles = null;
        children.push(...renderTable(item));
      }
    }
  }
  panel.replaceChildren(...children);
  plotReport(report);
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
      body: JSON.stringify({name, value})});
    const body = await response.json();
    if (!response.ok) {
      message.className = 'error';
      message.textContent = `${name}: ${body.error}`;
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
  document.getElementById('modem-state').textContent = health.modem_state ?? '–';
  document.getElementById('recorded').textContent = health.recorded;
  showRecording(health.recording);
  document.getElementById('interval').value = String(health.interval);
  if (!health.broker) {
    banner.textContent = 'The PPS broker is not running: no reports and no settings until it is back.';
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
  events.addEventListener('report', (e) => renderReport(JSON.parse(e.data)));
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
    for (const {name} of reports) panelFor({report: name});
  } catch (error) {
    // The events create the panels as they come.
  }
}

makeCharts();
document.getElementById('recordings').addEventListener('toggle', listRecordings);
makeSettingsForm();
makePanels().then(listen);
