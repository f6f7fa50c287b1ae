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
const fingers = new Map();      // finger index -> { x, y, touching, trail: [{x, y, t}] }

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

async function api(name, body) {
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
  const canvas = $('touch-layer');
  const ratio = window.devicePixelRatio || 1;
  canvas.width = device.widthPoints * ratio;
  canvas.height = device.heightPoints * ratio;
}

let screenVersion = -1;
function setScreen(version) {
  if (version === screenVersion) return;
  screenVersion = version;
  $('screen-image').src = '/api/screen.png?v=' + version;
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

function onTouch(event) {
  const now = performance.now();
  for (const finger of event.fingers) {
    let known = fingers.get(finger.index);
    if (!known) { known = { trail: [] }; fingers.set(finger.index, known); }
    known.x = finger.x;
    known.y = finger.y;
    known.touching = finger.touch;
    known.trail.push({ x: finger.x, y: finger.y, t: now });
  }
  const trace = $('trace');
  const line = el('li', { className: event.fingers.every((f) => !f.touch) ? 'up' : '' });
  line.textContent = (event.time !== undefined ? event.time.toFixed(3).padStart(8) + ' ' : '') +
    event.fingers.map((f) => '#' + f.index + (f.touch ? ' down ' : ' up ') + Math.round(f.x) + ',' + Math.round(f.y)).join('  ');
  trace.append(line);
  while (trace.children.length > TRACE_LIMIT) trace.firstChild.remove();
  trace.scrollTop = trace.scrollHeight;
  trace.dataset.count = String(Number(trace.dataset.count || 0) + 1);
  requestDraw();
}

function onKey(event) {
  const trace = $('trace');
  trace.append(el('li', { textContent: (event.time !== undefined ? event.time.toFixed(3).padStart(8) + ' ' : '') + event.key + (event.down ? ' down' : ' up') }));
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
    finger.trail = finger.trail.filter((p) => now - p.t < TRAIL_MS);
    const hue = (index * 67) % 360;
    for (let i = 1; i < finger.trail.length; i++) {
      const a = finger.trail[i - 1], b = finger.trail[i];
      context.strokeStyle = `hsla(${hue}, 95%, 55%, ${1 - (now - b.t) / TRAIL_MS})`;
      context.lineWidth = 5;
      context.lineCap = 'round';
      context.beginPath(); context.moveTo(a.x, a.y); context.lineTo(b.x, b.y); context.stroke();
    }
    const last = finger.trail[finger.trail.length - 1];
    if (finger.touching || last) {
      const fade = finger.touching ? 1 : last ? 1 - (now - last.t) / TRAIL_MS : 0;
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
    if (finger.touching || finger.trail.length) alive = true;
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
    if (active) return;
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

connect();
