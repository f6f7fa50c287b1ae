// The simulator page: draws the phone from the state the tactora process sends, and sends every
// button press, panel choice and touch back to it. No build step: plain browser JavaScript.
'use strict';

const $ = (id) => document.getElementById(id);
const HOLD_MS = 600;            // a press at least this long is a short hold of the button
const TRAIL_MS = 1500;          // how long a finger's trail stays on the screen
const TRACE_LIMIT = 400;

let state = null;
let device = { widthPoints: 320, heightPoints: 568, scale: 2 };
let stopped = false;
let mode = 'touch';             // what the mouse does on the screen: touch, pick or cut
const fingers = new Map();      // finger index -> { x, y, touching, lastAt, strokes: [[{x, y, t}]] }

// --- talking to the process ---------------------------------------------------------------------

function showStopped(reason) {
  if (stopped) return;
  stopped = true;
  $('fatal-text').textContent = reason ||
    'The page lost its connection to the tactora sim process. Start it again, then reload.';
  $('fatal').hidden = false;
  $('status').textContent = 'Stopped';
  $('reload').focus();
}

async function api(name, body, quiet) {
  let response;
  try {
    response = await fetch('/api/' + name, {
      method: body === undefined ? 'GET' : 'POST',
      headers: body === undefined ? {} : { 'Content-Type': 'application/json' },
      body: body === undefined ? undefined : JSON.stringify(body),
    });
  } catch (error) {
    showStopped();
    throw error;
  }
  const answer = await response.json().catch(() => ({}));
  if (!response.ok) {
    if (quiet) throw new Error(answer.error || response.statusText);
    $('status').textContent = answer.error || ('Error ' + response.status);
    throw new Error(answer.error || response.statusText);
  }
  return answer;
}

// Requests go one after another, so a touch's up can never overtake its down.
let queue = Promise.resolve();
const send = (name, body) => (queue = queue.then(() => api(name, body)).catch(() => {}));


function connect() {
  const events = new EventSource('/api/events');
  events.addEventListener('state', (e) => render(JSON.parse(e.data)));
  events.addEventListener('touch', (e) => onTouch(JSON.parse(e.data)));
  events.addEventListener('key', (e) => onKey(JSON.parse(e.data)));
  events.addEventListener('log', (e) => onLog(JSON.parse(e.data)));
  events.addEventListener('screen', (e) => setScreen(JSON.parse(e.data).version));
  events.addEventListener('scriptError', (e) => authoring.scriptError(JSON.parse(e.data)));
  events.onopen = () => api('state').then(render).catch(() => {});
  events.onerror = () => {
    // The stream retries by itself; only a process that no longer answers is an error.
    fetch('/api/state').then((r) => { if (!r.ok) throw new Error(); }).catch(() => { events.close(); showStopped(); });
  };
}

// --- the phone ----------------------------------------------------------------------------------

function layoutScreen() {
  const screen = $('screen');
  screen.style.width = device.widthPoints + 'px';
  screen.style.height = device.heightPoints + 'px';
  const ratio = window.devicePixelRatio || 1;
  for (const canvas of [$('touch-layer'), $('search-layer')]) {
    canvas.width = device.widthPoints * ratio;
    canvas.height = device.heightPoints * ratio;
  }
}

let screenVersion = -1;
function setScreen(version) {
  if (version === screenVersion) return;
  screenVersion = version;
  $('screen-image').src = '/api/screen.png?v=' + version;
  authoring.screenChanged();
}

const statusText = (f) => f.isRecording ? 'Recording' : f.isPlaying ? (f.isReadyToPlay ? 'Ready to play, playing' : 'Playing')
  : f.isReadyToPlay ? 'Ready to play' : 'Idle';

function render(next) {
  const first = state === null;
  state = next;
  const sim = next.sim || {};
  if (sim.device) {
    const changed = sim.device.widthPoints !== device.widthPoints || sim.device.heightPoints !== device.heightPoints;
    device = sim.device;
    if (changed || first) layoutScreen();
  }
  if (sim.screen) setScreen(sim.screen.version);
  $('status').textContent = sim.controller === false ? 'Controller not running' : statusText(next.flags || {});
  document.documentElement.lang = sim.language || 'en';
  renderScripts(sim.scripts || []);
  renderOverlay(next);
  authoring.render(next);
}

function renderScripts(scripts) {
  const list = $('scripts');
  list.replaceChildren(...scripts.map((script) => {
    const item = document.createElement('li');
    const name = document.createElement('span');
    name.textContent = script.title;
    const marks = document.createElement('span');
    marks.className = 'mark';
    marks.textContent = (script.trigger ? '◎' : '') + (script.playDirectly ? '▷' : '');
    marks.setAttribute('aria-label', [script.trigger ? 'has a trigger' : '', script.playDirectly ? 'plays directly' : '']
      .filter(Boolean).join(', '));
    item.append(name, marks);
    return item;
  }));
  if (!scripts.length) {
    const item = document.createElement('li');
    item.textContent = 'No scripts yet.';
    list.append(item);
  }
}

// --- panels and alerts --------------------------------------------------------------------------

function el(tag, props, ...children) {
  const node = document.createElement(tag);
  for (const [key, value] of Object.entries(props || {})) {
    if (key === 'onclick') node.addEventListener('click', value);
    else if (key === 'oninput') node.addEventListener('input', value);
    else if (key in node && key !== 'list') node[key] = value;
    else node.setAttribute(key, value);
  }
  node.append(...children.filter((c) => c !== null && c !== undefined));
  return node;
}

function stepper(control, label) {
  const press = (direction) => () => send('panel/settings/stepper', { tag: control.tag, direction });
  return el('span', { className: 'stepper', role: 'group', 'aria-label': label },
    el('button', { type: 'button', textContent: '−', disabled: control.value <= control.minimumValue, 'aria-label': label + ' down',
      'data-focus': 'minus' + control.tag, onclick: press('minus') }),
    el('button', { type: 'button', textContent: '+', disabled: control.value >= control.maximumValue, 'aria-label': label + ' up',
      'data-focus': 'plus' + control.tag, onclick: press('plus') }));
}

const markers = (row) => (row.activatorAssignedLabel || '') + (row.playSettingsLabel || '');

function controlPanel(panel) {
  return el('div', { className: 'sheet', role: 'dialog', 'aria-modal': 'true', 'aria-label': panel.title },
    el('h3', { textContent: panel.title }),
    el('p', { className: 'message', textContent: panel.message }),
    el('button', { type: 'button', className: 'danger', textContent: panel.recordButton, 'data-focus': 'record',
      onclick: () => send('panel/control/record', {}) }),
    el('ul', { className: 'list', 'aria-label': 'Scripts' }, ...panel.rows.map((row) =>
      el('li', {}, el('button', { type: 'button', 'data-focus': 'row:' + row.text, 'data-script': row.text,
        onclick: () => send('panel/control/select', { row: row.row }) },
        el('span', { textContent: row.text }),
        el('span', { className: 'markers', textContent: markers(row),
          'aria-label': [row.activatorAssignedLabel ? 'has a trigger' : '', row.playSettingsLabel ? 'plays directly' : ''].filter(Boolean).join(', ') }))))),
    el('button', { type: 'button', className: 'plain', textContent: panel.cancelButton, 'data-focus': 'cancel', 'data-cancel': '1',
      onclick: () => send('panel/control/cancel', {}) }));
}

function playSettingsPanel(panel) {
  const [count, interval, speed] = panel.steppers;
  const title = (tag) => (panel.buttons.find((b) => b.tag === tag) || {}).title;
  const button = (tag) => () => send('panel/settings/button', { tag });
  const times = el('input', { id: 'repeat-count', type: 'text', inputMode: 'numeric', value: panel.repeatCountText, 'data-focus': 'times',
    oninput: (e) => send('panel/settings/count', { text: e.target.value }) });
  return el('div', { className: 'sheet', role: 'dialog', 'aria-modal': 'true', 'aria-label': panel.title },
    el('h3', { textContent: panel.title }),
    el('p', { className: 'message', textContent: panel.message }),
    el('div', { className: 'row' }, el('label', { htmlFor: 'repeat-count', textContent: panel.repeatCountLabel }), times,
      stepper(count, panel.repeatCountLabel)),
    el('div', { className: 'row' }, el('span', { className: 'name', textContent: panel.repeatIntervalLabel }),
      el('span', { className: 'value', id: 'repeat-interval', textContent: panel.repeatIntervalValueText }),
      stepper(interval, panel.repeatIntervalLabel)),
    el('div', { className: 'row' }, el('span', { className: 'name', textContent: panel.playSpeedLabel }),
      el('span', { className: 'value', id: 'play-speed', textContent: panel.playSpeedValueText }),
      stepper(speed, panel.playSpeedLabel)),
    el('div', { className: 'pair' },
      el('button', { type: 'button', className: 'primary', textContent: title(101), 'data-focus': 'now', onclick: button(101) }),
      el('button', { type: 'button', className: 'info', textContent: title(102), 'data-focus': 'later', onclick: button(102) })),
    el('button', { type: 'button', className: 'plain', textContent: title(100), 'data-focus': 'cancel', 'data-cancel': '1', onclick: button(100) }));
}

function alertView(alert) {
  const field = alert.secureTextInput
    ? el('input', { type: 'password', id: 'alert-text', 'aria-label': alert.message || alert.title, 'data-focus': 'text' }) : null;
  const press = (index) => () => send('alert/button', { id: alert.id, index, text: field ? field.value : '' });
  const buttons = [alert.cancelButton, ...(alert.otherButtons || [])].map((title, index) =>
    el('button', { type: 'button', className: index === 0 ? 'cancel' : '', textContent: title, 'data-focus': 'b' + index,
      'data-cancel': index === 0 ? '1' : '', onclick: press(index) }));
  if (field) field.addEventListener('keydown', (e) => { if (e.key === 'Enter' && buttons.length > 1) buttons[1].click(); });
  return el('div', { className: 'alert', role: 'alertdialog', 'aria-modal': 'true', 'aria-label': alert.title || alert.message },
    alert.title ? el('h3', { textContent: alert.title }) : null,
    alert.message ? el('p', { textContent: alert.message }) : null,
    field,
    el('div', { className: 'buttons' + (buttons.length > 2 ? ' stacked' : '') }, ...buttons));
}

let shownKey = '';
function renderOverlay(next) {
  const overlay = $('overlay');
  const alerts = next.alerts || [];
  const panels = next.panels || [];
  // Alerts open over panels; of each, the newest is in front.
  const alert = alerts.length ? alerts[alerts.length - 1] : null;
  const panel = panels.length ? panels[panels.length - 1] : null;
  if (!alert && !panel) {
    overlay.hidden = true;
    overlay.replaceChildren();
    shownKey = '';
    return;
  }
  const key = alert ? 'alert:' + alert.id : 'panel:' + panel.panel + ':' + panels.length;
  const focused = document.activeElement && overlay.contains(document.activeElement)
    ? document.activeElement.getAttribute('data-focus') : null;
  const typed = $('alert-text') ? $('alert-text').value : null;
  const view = alert ? alertView(alert) : panel.panel === 'ControlPanelView' ? controlPanel(panel) : playSettingsPanel(panel);
  overlay.replaceChildren(view);
  overlay.hidden = false;
  if (key === shownKey) {
    // The same panel redrawn: keep the user's place.
    if (typed !== null && $('alert-text')) $('alert-text').value = typed;
    const again = focused && overlay.querySelector('[data-focus="' + CSS.escape(focused) + '"]');
    if (again) { again.focus(); if (again.id === 'repeat-count') again.setSelectionRange(again.value.length, again.value.length); }
  } else {
    shownKey = key;
    const first = overlay.querySelector('input, button:not([disabled])');
    if (first) first.focus();
  }
}

// Escape is the panel's Cancel; Tab stays inside an open panel.
document.addEventListener('keydown', (e) => {
  const overlay = $('overlay');
  if (overlay.hidden) return;
  if (e.key === 'Escape') {
    const cancel = overlay.querySelector('[data-cancel="1"]');
    if (cancel) { e.preventDefault(); cancel.click(); }
  } else if (e.key === 'Tab') {
    const items = [...overlay.querySelectorAll('input, button:not([disabled])')];
    if (!items.length) return;
    const index = items.indexOf(document.activeElement);
    if (e.shiftKey && index <= 0) { e.preventDefault(); items[items.length - 1].focus(); }
    else if (!e.shiftKey && (index === -1 || index === items.length - 1)) { e.preventDefault(); items[0].focus(); }
  }
});

// --- hardware buttons ---------------------------------------------------------------------------

function holdable(button, onPress, onHold) {
  let downAt = 0;
  const start = (e) => {
    if (e.repeat || downAt) return;
    downAt = performance.now();
    button.classList.add('held');
  };
  const end = () => {
    if (!downAt) return;
    const held = performance.now() - downAt >= HOLD_MS;
    downAt = 0;
    button.classList.remove('held');
    (held ? onHold : onPress)();
  };
  button.addEventListener('pointerdown', start);
  button.addEventListener('pointerup', end);
  button.addEventListener('pointerleave', () => { if (downAt) end(); });
  button.addEventListener('keydown', (e) => { if (e.key === ' ' || e.key === 'Enter') { e.preventDefault(); start(e); } });
  button.addEventListener('keyup', (e) => { if (e.key === ' ' || e.key === 'Enter') { e.preventDefault(); end(); } });
}

const volumePress = () => send('button', { button: 'volume-down', action: 'press' });
const volumeHold = () => send('button', { button: 'volume-down', action: 'hold' });
const homePress = () => send('button', { button: 'home', action: 'press' });
holdable($('volume-down'), volumePress, volumeHold);
$('press-volume-down').addEventListener('click', volumePress);
$('hold-volume-down').addEventListener('click', volumeHold);
$('home').addEventListener('click', homePress);
$('press-home').addEventListener('click', homePress);
$('reload').addEventListener('click', () => location.reload());

// --- touches: drawn as they arrive, and made by hand --------------------------------------------

// Each finger keeps the strokes of its touches: a new touch starts a new stroke, so the trail
// joins the positions of one touch and never runs from one tap to the next.
function onTouch(event) {
  const now = performance.now();
  const parts = [];
  for (const finger of event.fingers) {
    let known = fingers.get(finger.index);
    if (!known) { known = { strokes: [], touching: false }; fingers.set(finger.index, known); }
    const phase = !finger.touch ? 'up' : !known.touching ? 'down'
      : known.x === finger.x && known.y === finger.y ? 'held' : 'move';
    if (phase === 'down' || !known.strokes.length) known.strokes.push([]);
    known.strokes[known.strokes.length - 1].push({ x: finger.x, y: finger.y, t: now });
    known.x = finger.x;
    known.y = finger.y;
    known.touching = finger.touch;
    known.lastAt = now;
    parts.push('#' + finger.index + ' ' + phase + ' ' + Math.round(finger.x) + ',' + Math.round(finger.y));
  }
  const trace = $('trace');
  const line = el('li', { className: event.fingers.every((f) => !f.touch) ? 'up' : '' });
  line.textContent = timeText(event.time) + parts.join('  ') + (event.source === 'hand' ? '  (mouse)' : '');
  trace.append(line);
  while (trace.children.length > TRACE_LIMIT) trace.firstChild.remove();
  trace.scrollTop = trace.scrollHeight;
  trace.dataset.count = String(Number(trace.dataset.count || 0) + 1);
  requestDraw();
}

const timeText = (time) => (typeof time === 'number' ? time.toFixed(3) : '–').padStart(8) + ' ';

function onKey(event) {
  const trace = $('trace');
  trace.append(el('li', { textContent: timeText(event.time) + event.key + (event.down ? ' down' : ' up') }));
  trace.scrollTop = trace.scrollHeight;
}

function onLog(event) {
  const log = $('log');
  log.textContent += event.lines.map((l) => l + '\n').join('');
  if (log.textContent.length > 100000) log.textContent = log.textContent.slice(-80000);
  log.scrollTop = log.scrollHeight;
}

let drawPending = false;
function requestDraw() {
  if (!drawPending) { drawPending = true; requestAnimationFrame(draw); }
}

function draw() {
  drawPending = false;
  const canvas = $('touch-layer');
  const context = canvas.getContext('2d');
  const ratio = canvas.width / device.widthPoints;
  context.setTransform(ratio, 0, 0, ratio, 0, 0);
  context.clearRect(0, 0, device.widthPoints, device.heightPoints);
  const now = performance.now();
  let alive = false;
  for (const [index, finger] of fingers) {
    finger.strokes = finger.strokes.map((stroke) => stroke.filter((p) => now - p.t < TRAIL_MS)).filter((stroke) => stroke.length);
    const hue = (index * 67) % 360;
    for (const stroke of finger.strokes) {
      // Where the touch landed: a dot, so that a tap leaves a mark of its own.
      context.fillStyle = `hsla(${hue}, 95%, 55%, ${1 - (now - stroke[0].t) / TRAIL_MS})`;
      context.beginPath(); context.arc(stroke[0].x, stroke[0].y, 4, 0, Math.PI * 2); context.fill();
      for (let i = 1; i < stroke.length; i++) {
        const a = stroke[i - 1], b = stroke[i];
        context.strokeStyle = `hsla(${hue}, 95%, 55%, ${1 - (now - b.t) / TRAIL_MS})`;
        context.lineWidth = 5;
        context.lineCap = 'round';
        context.beginPath(); context.moveTo(a.x, a.y); context.lineTo(b.x, b.y); context.stroke();
      }
    }
    const recent = finger.touching || now - (finger.lastAt || 0) < TRAIL_MS;
    if (recent) {
      const fade = finger.touching ? 1 : 1 - (now - finger.lastAt) / TRAIL_MS;
      context.fillStyle = `hsla(${hue}, 95%, 55%, ${0.45 * fade})`;
      // A dark ring under a white one: the marker shows on light and dark screens alike.
      context.beginPath(); context.arc(finger.x, finger.y, 16, 0, Math.PI * 2); context.fill();
      context.strokeStyle = `rgba(0, 0, 0, ${0.7 * fade})`;
      context.lineWidth = 5;
      context.stroke();
      context.strokeStyle = `rgba(255, 255, 255, ${fade})`;
      context.lineWidth = 2;
      context.stroke();
      context.fillStyle = `rgba(0, 0, 0, ${fade})`;
      context.font = 'bold 12px sans-serif';
      context.textAlign = 'center'; context.textBaseline = 'middle';
      context.fillText(String(index), finger.x, finger.y);
    }
    if (recent || finger.strokes.length) alive = true;
    else fingers.delete(index);
  }
  if (alive) requestDraw();
}

// Mouse or touch on the screen becomes real finger events; Shift adds a second finger mirrored
// around the screen's centre, for pinches and two-finger taps.
(function handInput() {
  const canvas = $('touch-layer');
  let active = null;  // { second: bool }
  const point = (e) => {
    const box = canvas.getBoundingClientRect();
    return { x: (e.clientX - box.left) * device.widthPoints / box.width, y: (e.clientY - box.top) * device.heightPoints / box.height };
  };
  const touches = (p, second) => second
    ? [{ finger: 1, x: p.x, y: p.y }, { finger: 2, x: device.widthPoints - p.x, y: device.heightPoints - p.y }]
    : [{ finger: 1, x: p.x, y: p.y }];
  let lastMove = 0;
  canvas.addEventListener('pointerdown', (e) => {
    if (active || mode !== 'touch') return;
    canvas.setPointerCapture(e.pointerId);
    active = { second: e.shiftKey };
    send('touch', { phase: 'down', touches: touches(point(e), active.second) });
  });
  canvas.addEventListener('pointermove', (e) => {
    if (!active || e.timeStamp - lastMove < 16) return;
    lastMove = e.timeStamp;
    send('touch', { phase: 'move', touches: touches(point(e), active.second) });
  });
  const end = (e) => {
    if (!active) return;
    send('touch', { phase: 'up', touches: touches(point(e), active.second) });
    active = null;
  };
  canvas.addEventListener('pointerup', end);
  canvas.addEventListener('pointercancel', end);
})();

// --- script tools: open a screenshot, pick, cut, search, edit and run ---------------------------
// Positions, colours, templates and matches all come from the process, which asks the same
// functions a script calls; the page only draws them.

function makeAuthoring() {
  const ask = (name, body) => api(name, body === undefined ? {} : body, true);
  const canvas = $('touch-layer');
  const layer = $('search-layer');
  let unit = 1;                  // screen points per script unit
  let picked = null;             // the last answer of pick
  let cut = null;                // the rectangle being cut, in script units
  let dragFrom = null;
  let cursor = null;             // the keyboard's point, in script units
  let scriptTitles = [];
  let openTitle = null;
  let boxes = [];
  let searchTimer = 0, searchSerial = 0;
  const ignored = [];

  const hints = {
    touch: 'Drag on the screen to touch it; hold Shift for a second finger (mirrored around the centre).',
    pick: 'Point at the screen to read a position and its colour; click (or Enter) copies the line. Arrow keys move by one unit.',
    cut: 'Drag a rectangle on the screen (or type it below), name it and save it.',
  };
  const labels = {
    touch: 'Touch surface: press to touch, Shift for a second finger',
    pick: 'Picking: arrow keys move the point, Enter copies the line',
    cut: 'Cutting: drag a rectangle, or type it in the Cut a template fields',
  };

  const toPoints = (e) => {
    const box = canvas.getBoundingClientRect();
    return { x: (e.clientX - box.left) * device.widthPoints / box.width, y: (e.clientY - box.top) * device.heightPoints / box.height };
  };
  const toUnits = (p) => ({ x: Math.floor(p.x / unit + 1e-9), y: Math.floor(p.y / unit + 1e-9) });
  const unitsWide = () => Math.floor(device.widthPoints / unit + 1e-9);
  const unitsHigh = () => Math.floor(device.heightPoints / unit + 1e-9);

  function setMode(next) {
    mode = next;
    $('mode-hint').textContent = hints[mode];
    canvas.setAttribute('aria-label', labels[mode]);
    canvas.classList.toggle('picking', mode !== 'touch');
    drawLayer();
  }
  for (const radio of document.querySelectorAll('input[name="mode"]'))
    radio.addEventListener('change', () => { if (radio.checked) setMode(radio.value); });

  // The overlay: the rectangle being cut, the matches of the search over it, the keyboard's point.
  function drawLayer() {
    const context = layer.getContext('2d');
    const ratio = layer.width / device.widthPoints;
    context.setTransform(ratio, 0, 0, ratio, 0, 0);
    context.clearRect(0, 0, device.widthPoints, device.heightPoints);
    if (cut && mode === 'cut') {
      context.setLineDash([5, 3]);
      context.strokeStyle = '#000'; context.lineWidth = 3;
      context.strokeRect(cut.x * unit, cut.y * unit, cut.width * unit, cut.height * unit);
      context.strokeStyle = '#ffd166'; context.lineWidth = 1.5;
      context.strokeRect(cut.x * unit, cut.y * unit, cut.width * unit, cut.height * unit);
      context.setLineDash([]);
    }
    context.lineWidth = 2;
    for (const b of boxes) {
      context.strokeStyle = 'rgba(0, 0, 0, 0.8)'; context.lineWidth = 4;
      context.strokeRect(b.x, b.y, b.width, b.height);
      context.strokeStyle = '#ff3df2'; context.lineWidth = 2;
      context.strokeRect(b.x, b.y, b.width, b.height);
    }
    if (cursor && mode === 'pick') {
      context.strokeStyle = '#ffd166'; context.lineWidth = 1.5;
      const cx = (cursor.x + 0.5) * unit, cy = (cursor.y + 0.5) * unit;
      context.beginPath(); context.moveTo(cx - 8, cy); context.lineTo(cx + 8, cy); context.moveTo(cx, cy - 8); context.lineTo(cx, cy + 8); context.stroke();
    }
  }

  // The magnified view: display only, drawn from the picture the page shows.
  function drawLoupe(p) {
    const loupe = $('loupe');
    const context = loupe.getContext('2d');
    const image = $('screen-image');
    context.imageSmoothingEnabled = false;
    context.fillStyle = '#000';
    context.fillRect(0, 0, loupe.width, loupe.height);
    if (!image.naturalWidth) return;
    const perPoint = image.naturalWidth / device.widthPoints;
    const span = 11;  // image pixels across
    context.drawImage(image, Math.floor(p.x * perPoint) - (span >> 1), Math.floor(p.y * perPoint) - (span >> 1), span, span,
      0, 0, loupe.width, loupe.height);
    const cell = loupe.width / span;
    context.strokeStyle = '#ffd166';
    context.lineWidth = 2;
    context.strokeRect((span >> 1) * cell, (span >> 1) * cell, cell, cell);
  }

  let pickBusy = false, pickNext = null;
  async function pickAt(points, copy) {
    if (pickBusy && !copy) { pickNext = points; return; }
    pickBusy = true;
    try {
      const answer = await ask('pick', { x: points.x, y: points.y });
      picked = answer;
      $('pick-readout').textContent = 'x ' + answer.x + ', y ' + answer.y + ' · ' + (answer.hex || 'off the screen');
      $('pick-readout').style.setProperty('--swatch', answer.hex ? '#' + answer.hex.slice(2) : 'transparent');
      if (copy) {
        const kind = document.querySelector('input[name="copy"]:checked').value;
        const line = kind === 'check' && answer.check ? answer.check : answer.tap;
        $('pick-line').value = line;
        $('pick-line').textContent = line;
        try { await navigator.clipboard.writeText(line); } catch (error) { /* the line stays shown to copy by hand */ }
      }
    } catch (error) {
      $('pick-readout').textContent = error.message;
    } finally {
      pickBusy = false;
      if (pickNext) { const next = pickNext; pickNext = null; pickAt(next, false); }
    }
  }

  const setCutFields = () => {
    for (const key of ['x', 'y', 'width', 'height']) $('cut-' + key).value = cut ? cut[key] : '';
  };
  function cutFromFields() {
    const value = (key) => Number($('cut-' + key).value);
    const next = { x: value('x'), y: value('y'), width: value('width'), height: value('height') };
    cut = Object.values(next).every(Number.isFinite) && next.width > 0 && next.height > 0 ? next : null;
    drawLayer();
  }
  for (const key of ['x', 'y', 'width', 'height']) $('cut-' + key).addEventListener('input', cutFromFields);

  canvas.addEventListener('pointermove', (e) => {
    if (mode === 'touch') return;
    const p = toPoints(e);
    // A screen reader hears what the keyboard picks, not every step of the mouse.
    if (mode === 'pick') { $('pick-readout').setAttribute('aria-live', 'off'); drawLoupe(p); pickAt(p, false); }
    if (mode === 'cut' && dragFrom) {
      const a = dragFrom, b = toUnits(p);
      const x = Math.max(0, Math.min(a.x, b.x)), y = Math.max(0, Math.min(a.y, b.y));
      cut = { x, y, width: Math.min(unitsWide(), Math.max(a.x, b.x) + 1) - x, height: Math.min(unitsHigh(), Math.max(a.y, b.y) + 1) - y };
      setCutFields();
      drawLayer();
    }
  });
  canvas.addEventListener('pointerdown', (e) => {
    if (mode === 'touch') return;
    canvas.focus();
    const p = toPoints(e);
    if (mode === 'pick') { cursor = toUnits(p); drawLayer(); pickAt(p, true); }
    if (mode === 'cut') {
      canvas.setPointerCapture(e.pointerId);
      dragFrom = toUnits(p);
      cut = { x: dragFrom.x, y: dragFrom.y, width: 1, height: 1 };
      setCutFields();
      drawLayer();
    }
  });
  const endDrag = () => { if (dragFrom) { dragFrom = null; if (!$('template-name').value) $('template-name').focus(); } };
  canvas.addEventListener('pointerup', endDrag);
  canvas.addEventListener('pointercancel', endDrag);
  canvas.addEventListener('keydown', (e) => {
    if (mode !== 'pick') return;
    const moves = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };
    if (!cursor) cursor = { x: Math.floor(unitsWide() / 2), y: Math.floor(unitsHigh() / 2) };
    const centre = () => ({ x: (cursor.x + 0.5) * unit, y: (cursor.y + 0.5) * unit });
    $('pick-readout').setAttribute('aria-live', 'polite');
    if (moves[e.key]) {
      e.preventDefault();
      const step = e.shiftKey ? 10 : 1;
      cursor = { x: Math.max(0, Math.min(unitsWide() - 1, cursor.x + moves[e.key][0] * step)),
        y: Math.max(0, Math.min(unitsHigh() - 1, cursor.y + moves[e.key][1] * step)) };
      drawLayer(); drawLoupe(centre()); pickAt(centre(), false);
    } else if (e.key === 'Enter' || e.key === ' ') {
      e.preventDefault();
      drawLayer(); pickAt(centre(), true);
    }
  });

  // Open a screenshot: chosen, or dropped on the phone.
  async function openFile(file) {
    if (!file) return;
    $('open-status').textContent = 'Opening ' + file.name + '…';
    try {
      const bytes = new Uint8Array(await file.arrayBuffer());
      let text = '';
      for (let i = 0; i < bytes.length; i += 0x8000) text += String.fromCharCode(...bytes.subarray(i, i + 0x8000));
      const answer = await ask('screen/open', { png: btoa(text), name: file.name });
      $('open-status').textContent = file.name + ' (' + answer.width + ' x ' + answer.height + ', ' + answer.device + ') is on the screen.';
    } catch (error) {
      $('open-status').textContent = 'Not opened: ' + error.message;
    }
  }
  $('open-file').addEventListener('change', (e) => { openFile(e.target.files[0]); e.target.value = ''; });
  const phone = $('screen');
  phone.addEventListener('dragover', (e) => { e.preventDefault(); phone.classList.add('dropping'); });
  phone.addEventListener('dragleave', () => phone.classList.remove('dropping'));
  phone.addEventListener('drop', (e) => {
    e.preventDefault();
    phone.classList.remove('dropping');
    openFile(e.dataTransfer.files[0]);
  });
  $('keep-screen').addEventListener('click', async () => {
    try {
      const answer = await ask('screen/open', { current: true });
      $('open-status').textContent = 'The screen as it was (' + answer.width + ' x ' + answer.height + ') stays until “Back to the scene”.';
    } catch (error) { $('open-status').textContent = 'Not kept: ' + error.message; }
  });
  $('close-picture').addEventListener('click', async () => {
    try { await ask('screen/close'); $('open-status').textContent = 'Back to the scene.'; } catch (error) { $('open-status').textContent = error.message; }
  });

  // Cut: the rectangle goes to the process, which writes what a script's screenshotRegion would.
  async function saveTemplate() {
    cutFromFields();
    let name = $('template-name').value.trim();
    if (name && !name.endsWith('.png')) name += '.png';
    if (!cut) { $('cut-status').textContent = 'Drag a rectangle on the screen first (in “Cuts a template”).'; return; }
    if (!name) { $('cut-status').textContent = 'Give the template a name.'; $('template-name').focus(); return; }
    const save = (replace) => ask('template/cut', { name, ...cut, replace });
    try {
      let answer;
      try { answer = await save(false); } catch (error) {
        if (!/exists/.test(error.message) || !confirm(name + ' exists. Replace it?')) throw error;
        answer = await save(true);
      }
      $('cut-status').textContent = 'Saved ' + answer.name + ' (' + answer.pixelWidth + ' x ' + answer.pixelHeight + ' pixels).';
      await loadTemplates(answer.name);
      runSearch(true);
    } catch (error) {
      $('cut-status').textContent = 'Not saved: ' + error.message;
    }
  }
  $('cut-save').addEventListener('click', saveTemplate);
  $('template-name').addEventListener('keydown', (e) => { if (e.key === 'Enter') { e.preventDefault(); saveTemplate(); } });

  // Search: every match outlined on the screen, the count, and the loosest fuzziness that still
  // finds the template once.
  async function loadTemplates(choose) {
    const select = $('template-select');
    const current = choose || select.value;
    const { templates } = await ask('template/list');
    select.replaceChildren(el('option', { value: '', textContent: templates.length ? '— choose —' : 'no templates yet' }),
      ...templates.map((name) => el('option', { value: name, textContent: name })));
    select.value = templates.includes(current) ? current : '';
  }
  // One search at a time: while one runs, only the newest request waits behind it (a slider
  // dragged across its range must not queue a search for every step).
  let searching = false, waiting = null;
  function runSearch(safe) {
    clearTimeout(searchTimer);
    searchTimer = setTimeout(async () => {
      if (searching) { waiting = { safe: safe || (waiting && waiting.safe) }; return; }
      searching = true;
      try { await search(safe); } finally {
        searching = false;
        if (waiting) { const next = waiting; waiting = null; runSearch(next.safe); }
      }
    }, 60);
  }
  async function search(safe) {
    const template = $('template-select').value;
    const fuzzy = Number($('fuzzy').value);
    $('fuzzy-value').value = fuzzy.toFixed(2);
    $('fuzzy-value').textContent = fuzzy.toFixed(2);
    if (!template) {
      boxes = []; drawLayer();
      $('search-count').textContent = ''; $('safe-fuzzy').textContent = ''; $('search-line').textContent = '';
      return;
    }
    const serial = ++searchSerial;
    try {
      const answer = await ask('search', { template, fuzzy, ignoreColors: ignored, safe });
      if (serial !== searchSerial) return;
      boxes = answer.boxes;
      drawLayer();
      const count = answer.count + (answer.more ? '+' : '');
      $('search-count').textContent = answer.count === 1 && !answer.more ? '1 match' : count + ' matches';
      $('search-count').dataset.count = String(answer.count);
      $('search-line').value = answer.line;
      $('search-line').textContent = answer.line;
      if (safe) {
        $('safe-fuzzy').textContent = answer.safeFuzzy === null
          ? 'Not found exactly once even at fuzzy 1.00.'
          : 'Found once down to fuzzy ' + answer.safeFuzzy.toFixed(2) + (answer.safeFuzzyComplete ? '' : ' (or lower: the search stopped early)') + '.';
        $('safe-fuzzy').dataset.value = answer.safeFuzzy === null ? '' : String(answer.safeFuzzy);
      }
    } catch (error) {
      if (serial !== searchSerial) return;
      boxes = []; drawLayer();
      $('search-count').textContent = error.message;
      $('search-count').dataset.count = '';
    }
  }
  $('template-select').addEventListener('change', () => runSearch(true));
  $('fuzzy').addEventListener('input', () => runSearch(false));
  $('template-select').addEventListener('focus', () => loadTemplates().catch(() => {}));

  function renderIgnored() {
    $('ignore-list').replaceChildren(...ignored.map((colour, index) => {
      const hex = '0x' + colour.toString(16).toUpperCase().padStart(6, '0');
      return el('li', {}, el('span', { className: 'swatch', style: 'background:#' + hex.slice(2), 'aria-hidden': 'true' }), hex,
        el('button', { type: 'button', textContent: '×', 'aria-label': 'Stop ignoring ' + hex,
          onclick: () => { ignored.splice(index, 1); renderIgnored(); runSearch(true); } }));
    }));
  }
  function addIgnored(colour) {
    if (!Number.isInteger(colour) || colour < 0 || colour > 0xFFFFFF || ignored.includes(colour)) return false;
    ignored.push(colour);
    renderIgnored();
    runSearch(true);
    return true;
  }
  $('ignore-add').addEventListener('click', () => {
    const text = $('ignore-input').value.trim();
    if (/^(0x|#)?[0-9a-f]{6}$/i.test(text) && addIgnored(parseInt(text.replace(/^(0x|#)/i, ''), 16))) $('ignore-input').value = '';
    else $('search-count').textContent = 'An ignore colour is written 0xRRGGBB.';
  });
  $('ignore-input').addEventListener('keydown', (e) => { if (e.key === 'Enter') { e.preventDefault(); $('ignore-add').click(); } });
  $('ignore-picked').addEventListener('click', () => {
    if (picked && typeof picked.color === 'number') addIgnored(picked.color);
    else $('search-count').textContent = 'Pick a point first.';
  });

  // The script editor.
  const editor = $('editor');
  let errorLine = 0;
  function renderGutter() {
    const lines = editor.value.split('\n').length;
    let text = '';
    for (let i = 1; i <= lines; i++) text += (i === errorLine ? '▶' : ' ') + String(i).padStart(3) + '\n';
    $('gutter').textContent = text;
    $('gutter').scrollTop = editor.scrollTop;
  }
  function clearError() {
    errorLine = 0;
    $('script-error').hidden = true;
    $('script-error').textContent = '';
    renderGutter();
  }
  editor.addEventListener('input', () => { if (errorLine) clearError(); else renderGutter(); });
  editor.addEventListener('scroll', () => { $('gutter').scrollTop = editor.scrollTop; });
  editor.addEventListener('keydown', (e) => {
    if (e.key === 's' && (e.ctrlKey || e.metaKey)) { e.preventDefault(); saveScript(); }
  });
  async function openScript(title) {
    if (!title) return;
    try {
      const answer = await ask('script/read', { title });
      openTitle = title;
      editor.value = answer.text;
      clearError();
      $('script-status').textContent = title + ' is open.';
    } catch (error) {
      $('script-status').textContent = error.message;
    }
  }
  async function saveScript() {
    if (!openTitle) return false;
    try {
      await ask('script/save', { title: openTitle, text: editor.value });
      $('script-status').textContent = openTitle + ' saved.';
      return true;
    } catch (error) {
      $('script-status').textContent = 'Not saved: ' + error.message;
      return false;
    }
  }
  $('script-select').addEventListener('change', (e) => openScript(e.target.value));
  $('script-save').addEventListener('click', saveScript);
  $('script-run').addEventListener('click', async () => {
    if (!openTitle || !(await saveScript())) return;
    clearError();
    try {
      await ask('script/run', { title: openTitle });
      $('script-status').textContent = openTitle + ' is playing.';
    } catch (error) {
      $('script-status').textContent = 'Not run: ' + error.message;
    }
  });
  $('script-stop').addEventListener('click', async () => {
    try { await ask('script/stop'); $('script-status').textContent = 'Stopping.'; } catch (error) { $('script-status').textContent = error.message; }
  });

  let wasPlaying = false;
  return {
    render(next) {
      const sim = next.sim || {};
      if (sim.device && sim.device.scriptUnit) unit = sim.device.scriptUnit;
      const titles = (sim.scripts || []).map((s) => s.title).filter((t) => t.endsWith('.lua'));
      if (titles.join('\n') !== scriptTitles.join('\n')) {
        scriptTitles = titles;
        const select = $('script-select');
        select.replaceChildren(el('option', { value: '', textContent: '— choose —' }),
          ...titles.map((t) => el('option', { value: t, textContent: t })));
        select.value = titles.includes(openTitle) ? openTitle : '';
      }
      const opened = sim.screen && sim.screen.opened;
      $('close-picture').hidden = !opened;
      const playing = !!(next.flags && next.flags.isPlaying);
      $('script-stop').disabled = !playing;
      if (wasPlaying && !playing && openTitle && $('script-status').textContent.endsWith('is playing.'))
        $('script-status').textContent = openTitle + ' ended.';
      wasPlaying = playing;
    },
    screenChanged() {
      if ($('template-select').value) runSearch(false);
    },
    scriptError(failure) {
      if (failure.title !== openTitle) return;
      errorLine = failure.line;
      renderGutter();
      const error = $('script-error');
      error.textContent = 'Line ' + failure.line + ': ' + failure.message;
      error.hidden = false;
      error.style.setProperty('--line', String(failure.line - 1));
      // Put the caret on the line, so the editor shows it.
      const lines = editor.value.split('\n');
      const start = lines.slice(0, failure.line - 1).reduce((n, l) => n + l.length + 1, 0);
      editor.setSelectionRange(start, start + (lines[failure.line - 1] || '').length);
    },
    init() {
      setMode('touch');
      renderGutter();
      loadTemplates().catch(() => {});
    },
  };
}

const authoring = makeAuthoring();
authoring.init();
connect();
