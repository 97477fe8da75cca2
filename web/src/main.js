// The page: interface only. Every setting goes to the engine (worker.js) under its preset key, as text
// the preset file would hold; the panel's captions, ranges, defaults and lists come from panel.json,
// which the build takes from the panel the plug-in itself builds.

const $ = (id) => document.getElementById(id);
const SKIPPED_ITEMS = new Set([140, 141]); // the plug-in's preset list and save-on-exit: files here
const HANDLE_COLOURS = ['#2756c5', '#1c9a52', '#c2410c'];

// One worker and its answers, matched to requests by number.
class Engine {
  constructor(onProgress) {
    this.worker = new Worker('worker.js');
    this.pending = new Map();
    this.next = 1;
    this.worker.onmessage = ({ data }) => {
      if (data.op === 'progress') return onProgress?.(data);
      const request = this.pending.get(data.id);
      if (!request) return;
      this.pending.delete(data.id);
      data.error ? request.reject(new Error(data.error)) : request.resolve(data);
    };
    this.worker.onerror = (event) => this.stop(new Error(event.message || 'the engine stopped'));
  }
  call(op, args = {}, transfer = []) {
    const id = this.next++;
    return new Promise((resolve, reject) => {
      this.pending.set(id, { resolve, reject });
      this.worker.postMessage({ id, op, ...args }, transfer);
    });
  }
  stop(reason = new Error('cancelled')) {
    this.worker.terminate();
    for (const request of this.pending.values()) request.reject(reason);
    this.pending.clear();
  }
}

const state = {
  page: null, // { name, width, height, pixels }
  guides: new Map(), // SVG text by guide name
  items: [], // panel items with their preset key
  controls: new Map(), // preset key -> { set(text) }
  points: [null, null, null], // handles as fractions of the page
  type: 0,
  target: null,
  renderer: null,
  dragging: -1,
};
const stats = { previewMs: [], previewEngineMs: [], renderMs: null };
window.brivane = { stats };

const preview = new Engine();
const panel = await (await fetch('panel.json')).json();

function setStatus(text, pageState) {
  $('status').textContent = text;
  if (pageState) document.body.dataset.state = pageState;
}

function colour() {
  const hex = $('colour').value;
  return [1, 3, 5].map((i) => parseInt(hex.slice(i, i + 2), 16));
}

// ---- Panel ----------------------------------------------------------------------------------------

// The panel lists the settings in the order of the preset record, which is the order of the keys.
function bindKeys(values) {
  const keys = Object.keys(values);
  const items = panel.filter((item) => !SKIPPED_ITEMS.has(item.id));
  if (items.length !== keys.length) throw new Error(`panel has ${items.length} settings, preset ${keys.length}`);
  state.items = items.map((item, i) => ({ ...item, key: keys[i] }));
}

function numberField(item, form) {
  const label = document.createElement('label');
  label.className = 'field';
  const step = item.kind === 'integer' ? 1 : 0.01;
  label.innerHTML = `<span>${item.caption}</span><input type="range"><input type="number">`;
  const [range, number] = label.querySelectorAll('input');
  for (const input of [range, number]) Object.assign(input, { min: item.min, max: item.max, step, name: item.key });
  const set = (text) => { range.value = number.value = Number(text); };
  const send = (input, other) => {
    const value = Math.min(item.max, Math.max(item.min, Number(input.value)));
    other.value = value;
    change(item.key, String(value));
  };
  range.addEventListener('input', () => send(range, number));
  number.addEventListener('change', () => send(number, range));
  form.append(label);
  return { set };
}

function checkField(item, form) {
  const label = document.createElement('label');
  label.className = 'field check';
  label.innerHTML = `<input type="checkbox" name="${item.key}"><span>${item.caption}</span>`;
  const box = label.querySelector('input');
  box.addEventListener('change', () => change(item.key, box.checked ? 'true' : 'false'));
  form.append(label);
  return { set: (text) => { box.checked = text === 'true'; } };
}

function listField(item, form) {
  const label = document.createElement('label');
  label.className = 'field';
  label.innerHTML = `<span>${item.caption}</span><div class="row"><select name="${item.key}"></select></div>`;
  const select = label.querySelector('select');
  // The arrangement is chosen by its row; line shapes by guide name, the built-in ones first.
  const values = item.key === 'name' ? [':S', ':C'] : item.rows.map((_, i) => String(i));
  item.rows.forEach((text, i) => select.add(new Option(text, values[i])));
  select.addEventListener('change', () => change(item.key, select.value));
  if (item.key === 'name') {
    const load = document.createElement('label');
    load.className = 'button';
    load.innerHTML = 'SVG…<input type="file" accept=".svg,image/svg+xml">';
    load.querySelector('input').addEventListener('change', (e) => openGuide(e.target.files[0], select));
    label.querySelector('.row').append(load);
  }
  form.append(label);
  return { set: (text) => { select.value = text; } };
}

function buildPanel() {
  const form = $('settings');
  form.replaceChildren();
  const pointsNote = document.createElement('p');
  pointsNote.className = 'points';
  pointsNote.id = 'points-note';
  for (const item of state.items) {
    if (item.kind === 'point') {
      if (!pointsNote.isConnected) form.append(pointsNote);
      const index = state.items.filter((i) => i.kind === 'point').indexOf(item);
      state.controls.set(item.key, { set: (text) => setPoint(index, text.split(',').map(Number)) });
      continue;
    }
    const make = { list: listField, check: checkField, decimal: numberField, integer: numberField }[item.kind];
    state.controls.set(item.key, make(item, form));
  }
}

function showValues(values) {
  for (const [key, text] of Object.entries(values)) state.controls.get(key)?.set(String(text));
  state.type = Number(values.type);
  drawHandles();
}

async function change(key, text, at = performance.now()) {
  const { ok, refusal } = await preview.call('set', { key, text });
  if (!ok) setStatus(refusal || `${key}: ${text} was not accepted`);
  if (key === 'type') {
    // A new arrangement puts the handles at its own default places, as in the plug-in.
    const { values } = await preview.call('values');
    showValues(values);
  }
  requestPreview(at);
}

// ---- Handles --------------------------------------------------------------------------------------

// Each handle's caption names what it is in every arrangement ("centre / start / axis end"); the page
// shows the part for the current one.
function handleLabel(index) {
  const item = state.items.filter((i) => i.kind === 'point')[index];
  const roles = item.caption.match(/\((.*)\)/)?.[1].split(' / ') ?? [];
  return `${index + 1} ${roles[state.type] ?? ''}`;
}

function setPoint(index, fraction) {
  state.points[index] = fraction;
}

function drawHandles() {
  const svg = $('handles');
  const page = state.page;
  if (!page || state.points.includes(null)) return;
  svg.setAttribute('viewBox', `0 0 ${page.width} ${page.height}`);
  svg.setAttribute('preserveAspectRatio', 'none');
  const unit = page.width / Math.max(1, svg.clientWidth); // page px per screen px
  const parts = [];
  if (state.dragging >= 0) parts.push(outline(unit));
  state.points.forEach((p, i) => {
    const [x, y] = [p[0] * page.width, p[1] * page.height];
    parts.push(`<g class="handle" data-index="${i}"><circle cx="${x}" cy="${y}" r="${8 * unit}"
      style="stroke:${HANDLE_COLOURS[i]}"/><text x="${x + 11 * unit}" y="${y - 9 * unit}"
      style="font-size:${12 * unit}px;stroke-width:${3 * unit}px">${handleLabel(i)}</text></g>`);
  });
  svg.innerHTML = parts.join('');
  $('points-note').textContent = state.points
    .map((p, i) => `${handleLabel(i)}: ${Math.trunc(p[0] * page.width)}, ${Math.trunc(p[1] * page.height)}`)
    .join(' · ');
}

// The arrangement's outline while a handle moves: the two radii, the band of speed lines, or the
// ellipse the rings follow (its axes as the engine worked them out).
function outline(unit) {
  const { width, height } = state.page;
  const [a, b, c] = state.points.map(([x, y]) => [x * width, y * height]);
  const style = `class="outline" style="stroke-width:${1.5 * unit};stroke-dasharray:${6 * unit} ${4 * unit}"`;
  if (state.type === 0) {
    const r = (p) => Math.hypot(p[0] - a[0], p[1] - a[1]);
    return `<circle ${style} cx="${a[0]}" cy="${a[1]}" r="${r(b)}"/><circle ${style} cx="${a[0]}" cy="${a[1]}" r="${r(c)}"/>`;
  }
  if (state.type === 1) {
    const d = [c[0] - a[0], c[1] - a[1]];
    return `<polygon ${style} points="${a} ${b} ${b[0] + d[0]},${b[1] + d[1]} ${c}"/>`;
  }
  const e = state.target?.ellipse;
  if (!e) return '';
  return `<ellipse ${style} cx="${e[0]}" cy="${e[1]}" rx="${e[2]}" ry="${e[3]}"
    transform="rotate(${(e[4] * 180) / Math.PI} ${e[0]} ${e[1]})"/>`;
}

function pointerFraction(event) {
  const box = $('handles').getBoundingClientRect();
  const clamp = (v) => Math.min(1.5, Math.max(-0.5, v));
  return [clamp((event.clientX - box.left) / box.width), clamp((event.clientY - box.top) / box.height)];
}

$('handles').addEventListener('pointerdown', (event) => {
  const handle = event.target.closest('.handle');
  if (!handle) return;
  state.dragging = Number(handle.dataset.index);
  $('handles').setPointerCapture(event.pointerId);
});
$('handles').addEventListener('pointermove', (event) => {
  if (state.dragging < 0) return;
  const at = performance.now();
  const fraction = pointerFraction(event);
  state.points[state.dragging] = fraction;
  drawHandles();
  change(`p${state.dragging + 1}`, fraction.map((v) => v.toFixed(6)).join(','), at);
});
$('handles').addEventListener('pointerup', () => {
  state.dragging = -1;
  drawHandles();
});

// ---- Preview --------------------------------------------------------------------------------------

// One preview at a time; moves that arrive meanwhile are folded into the next one, and the latency
// counted from the oldest of them.
let previewBusy = false;
let previewSince = null;

function requestPreview(at = performance.now()) {
  if (!state.page) return;
  previewSince ??= at;
  if (!previewBusy) runPreview();
}

async function runPreview() {
  previewBusy = true;
  const since = previewSince;
  previewSince = null;
  try {
    const result = await preview.call('preview', { color: colour() });
    const canvas = $('lines');
    Object.assign(canvas, { width: result.width, height: result.height });
    const pixels = new Uint8ClampedArray(result.pixels.buffer);
    canvas.getContext('2d').putImageData(new ImageData(pixels, result.width, result.height), 0, 0);
    state.target = result.target;
    if (state.dragging >= 0) drawHandles();
    stats.previewMs.push(performance.now() - since);
    stats.previewEngineMs.push(result.took);
    document.body.dataset.previews = String(stats.previewMs.length);
  } finally {
    previewBusy = false;
  }
  if (previewSince !== null) runPreview();
}

// ---- Files ----------------------------------------------------------------------------------------

function download(bytes, name, type) {
  const link = document.createElement('a');
  link.href = URL.createObjectURL(new Blob([bytes], { type }));
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 60000);
}

function baseName() {
  return (state.page?.name ?? 'page').replace(/\.[^.]*$/, '');
}

// Hands the page to a worker as a copy: the transfer takes the buffer it sends away from this side.
function sendPage(engine, page) {
  const copy = page.pixels.slice();
  return engine.call('layer', { width: page.width, height: page.height, pixels: copy.buffer }, [copy.buffer]);
}

async function openPage(file) {
  if (!file) return;
  setStatus(`Opening ${file.name}…`);
  let bitmap;
  try {
    bitmap = await createImageBitmap(file, { colorSpaceConversion: 'none', premultiplyAlpha: 'none' });
  } catch {
    return setStatus(`${file.name} is not an image this browser can read`);
  }
  const { width, height } = bitmap;
  const scratch = new OffscreenCanvas(width, height).getContext('2d');
  scratch.drawImage(bitmap, 0, 0);
  const pixels = scratch.getImageData(0, 0, width, height).data;
  state.page = { name: file.name, width, height, pixels };

  const shown = $('page');
  const scale = Math.min(1, 1600 / Math.max(width, height));
  Object.assign(shown, { width: Math.round(width * scale), height: Math.round(height * scale) });
  shown.getContext('2d').drawImage(bitmap, 0, 0, shown.width, shown.height);
  $('sheet').hidden = false;
  $('hint').hidden = true;
  layoutSheet();

  await sendPage(preview, state.page);
  const { values } = await preview.call('values');
  showValues(values);
  for (const id of ['render', 'save-preset']) $(id).disabled = false;
  for (const id of ['save-layer', 'save-over']) $(id).disabled = true;
  setStatus(`${file.name}: ${width} × ${height}`, 'ready');
  requestPreview();
}

async function openPreset(file) {
  if (!file) return;
  // The plug-in's own bounds, checked before a shared file is read into the page.
  const limits = await preview.call('limits');
  if (file.size > limits.presetBytes) {
    return setStatus(`${file.name}: not a preset file: larger than ${limits.presetBytes / 1024} KiB`);
  }
  const text = await file.text();
  const { given, refusal, values } = await preview.call('preset', { text });
  if (refusal) return setStatus(`${file.name}: ${refusal}`);
  if (!given) return setStatus(`${file.name} holds no setting a preset can give`);
  showValues(values);
  setStatus(`${file.name}: ${given} settings taken`, document.body.dataset.state);
  document.body.dataset.preset = file.name;
  requestPreview();
}

async function openGuide(file, select) {
  if (!file) return;
  const name = file.name.replace(/\.svg$/i, '');
  const limits = await preview.call('limits');
  if (file.size > limits.guideBytes) {
    return setStatus(`${file.name}: ${file.size} bytes, more than the ${limits.guideBytes / 1024} KiB a guide may hold`);
  }
  const svg = await file.text();
  try {
    await preview.call('guide', { name, svg });
  } catch (error) {
    return setStatus(`${file.name}: ${error.message}`);
  }
  state.guides.set(name, svg);
  if (![...select.options].some((o) => o.value === name)) select.add(new Option(name, name));
  select.value = name;
  change('name', name);
}

async function savePreset() {
  const { preset } = await preview.call('values');
  download(preset, `${baseName()}.ini`, 'text/plain');
}

// ---- Full-size render -----------------------------------------------------------------------------

async function renderFull() {
  const page = state.page;
  if (!page) return;
  const { preset } = await preview.call('values');
  state.renderer?.stop();
  const renderer = (state.renderer = new Engine(({ percent }) => { $('progress').value = percent; }));
  for (const id of ['save-layer', 'save-over', 'render']) $(id).disabled = true;
  $('cancel').hidden = $('progress').hidden = false;
  $('progress').value = 0;
  setStatus('Rendering at full size…', 'rendering');
  const started = performance.now();
  try {
    await sendPage(renderer, page);
    for (const [name, svg] of state.guides) await renderer.call('guide', { name, svg });
    await renderer.call('preset', { text: preset });
    const { took } = await renderer.call('render', { color: colour() });
    stats.renderMs = took;
    $('progress').value = 100;
    for (const id of ['save-layer', 'save-over']) $(id).disabled = false;
    setStatus(`Rendered ${page.width} × ${page.height} in ${(took / 1000).toFixed(1)} s`, 'rendered');
  } catch (error) {
    if (state.renderer === renderer) setStatus(`Render failed: ${error.message}`, 'failed');
  } finally {
    $('render').disabled = false;
    $('cancel').hidden = true;
  }
}

function cancelRender() {
  state.renderer?.stop();
  state.renderer = null;
  $('progress').hidden = true;
  $('cancel').hidden = true;
  $('render').disabled = false;
  setStatus('Render cancelled', 'cancelled');
}

async function saveRender(over) {
  const { file } = await state.renderer.call('png', { over });
  download(file, `${baseName()}-${over ? 'over' : 'lines'}.png`, 'image/png');
}

// ---- Layout and wiring ----------------------------------------------------------------------------

function layoutSheet() {
  if (!state.page) return;
  const stage = $('stage').getBoundingClientRect();
  const scale = Math.min((stage.width - 32) / state.page.width, (stage.height - 32) / state.page.height);
  Object.assign($('sheet').style, {
    width: `${Math.floor(state.page.width * scale)}px`,
    height: `${Math.floor(state.page.height * scale)}px`,
  });
  drawHandles();
}

$('page-file').addEventListener('change', (e) => openPage(e.target.files[0]));
$('preset-file').addEventListener('change', (e) => openPreset(e.target.files[0]));
$('save-preset').addEventListener('click', savePreset);
$('colour').addEventListener('input', () => requestPreview());
// Lines are drawn only on ink, so lines in the ink's own colour would vanish over an unfaded page.
$('fade-page').addEventListener('change', (e) => $('page').classList.toggle('faded', e.target.checked));
$('render').addEventListener('click', renderFull);
$('cancel').addEventListener('click', cancelRender);
$('save-layer').addEventListener('click', () => saveRender(false));
$('save-over').addEventListener('click', () => saveRender(true));
addEventListener('resize', layoutSheet);
const stage = $('stage');
stage.addEventListener('dragover', (e) => { e.preventDefault(); stage.classList.add('drop'); });
stage.addEventListener('dragleave', () => stage.classList.remove('drop'));
stage.addEventListener('drop', (e) => {
  e.preventDefault();
  stage.classList.remove('drop');
  openPage(e.dataTransfer.files[0]);
});

$('sheet').hidden = true;
$('page').classList.toggle('faded', $('fade-page').checked);
bindKeys((await preview.call('values')).values);
buildPanel();
setStatus('', 'empty');
