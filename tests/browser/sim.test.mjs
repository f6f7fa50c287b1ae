// Drives the simulator page in Debian's Chromium, headless: the control panel, the play settings
// panel, a run's touches, recording by hand, and the password prompt of an encrypted script.
import { test, before, after } from 'node:test';
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { copyFileSync, writeFileSync, readdirSync } from 'node:fs';
import path from 'node:path';
import { tactora, artifacts, source, openSimulator, makeRoot } from './harness.mjs';

let root, scripts, simulator, sim, page;

before(async () => {
  ({ root, scripts } = makeRoot('tactora-browser-'));
  copyFileSync(path.join(source, 'examples/demo/demo.lua'), path.join(scripts, 'demo.lua'));
  copyFileSync(path.join(root, 'scene/icon.png'), path.join(scripts, 'demo-icon.png'));
  writeFileSync(path.join(root, 'secret.lua'), 'touchDown(1, 40, 40)\nusleep(50000)\ntouchUp(1, 40, 40)\nusleep(50000)\n');
  execFileSync(tactora, ['--root', root, 'encrypt', path.join(root, 'secret.lua'), '-o', path.join(scripts, 'secret.e'),
    '--password', 'open sesame']);
  simulator = openSimulator(root, path.join(root, 'scene/scene.json'), { width: 1280, height: 900 });
  ({ sim, page } = await simulator);
});

after(async () => (await simulator?.catch(() => null))?.close());

const overlay = () => page.locator('#overlay');

async function holdVolumeDown() {
  const box = await page.locator('#volume-down').boundingBox();
  await page.mouse.move(box.x + box.width / 2, box.y + box.height / 2);
  await page.mouse.down();
  await page.waitForTimeout(800);
  await page.mouse.up();
}

async function openControlPanel() {
  await holdVolumeDown();
  await overlay().getByRole('dialog', { name: 'Tactora' }).waitFor();
  await overlay().getByRole('button', { name: 'Record' }).waitFor();
}

async function chooseScript(name) {
  await openControlPanel();
  await overlay().locator(`[data-script="${name}"]`).click();
}

async function expectAlert(message) {
  const alert = overlay().getByRole('alertdialog');
  await alert.filter({ hasText: message }).waitFor();
  return alert;
}

const traceCount = () => page.locator('#trace').evaluate((list) => Number(list.dataset.count || 0));

test('plays a chosen script twice from the panels and shows its touches as they happen', async () => {
  await chooseScript('demo.lua');
  const settings = overlay().getByRole('dialog');
  await settings.getByText('Loop playing with').waitFor();
  await settings.getByRole('button', { name: 'Times: up' }).click();
  await page.waitForFunction(() => document.querySelector('#repeat-count')?.value === '2');
  const before = await traceCount();
  await settings.getByRole('button', { name: 'Play Now' }).click();

  await page.locator('#status').filter({ hasText: 'Playing' }).waitFor();
  await page.waitForFunction((n) => Number(document.querySelector('#trace').dataset.count || 0) > n, before);
  // A finger is on the glass: keep what the page shows for a person to look at.
  await page.screenshot({ path: path.join(artifacts, 'simulator-playing.png') });
  await expectAlert('Playing Finished!');
  await page.screenshot({ path: path.join(artifacts, 'simulator-finished.png') });
  // Two passes, each a tap on the icon and one on the button, each down and up.
  assert.ok((await traceCount()) - before >= 8, 'expected the touches of two passes');
  assert.match(await page.locator('#log').textContent(), /pressed the green button[\s\S]*pressed the green button/);
  await overlay().getByRole('button', { name: 'OK' }).click();
  await overlay().waitFor({ state: 'hidden' });
});

test('records two taps made with the mouse and plays them back at once', async () => {
  const known = new Set(readdirSync(scripts));
  await openControlPanel();
  await overlay().getByRole('button', { name: 'Record' }).click();
  await page.locator('#status').filter({ hasText: 'Recording' }).waitFor();

  const screen = await page.locator('#touch-layer').boundingBox();
  const taps = [[40, 500], [280, 520]];
  for (const [x, y] of taps) {
    await page.mouse.move(screen.x + x, screen.y + y);
    await page.mouse.down();
    await page.waitForTimeout(120);
    await page.mouse.up();
    await page.waitForTimeout(300);
  }
  await holdVolumeDown();
  await (await expectAlert('Recording Finished!')).getByRole('button', { name: 'OK' }).click();
  const recorded = readdirSync(scripts).filter((name) => !known.has(name) && name.endsWith('.lua'));
  assert.equal(recorded.length, 1, 'one new script: ' + recorded.join(', '));

  await chooseScript(recorded[0]);
  await overlay().getByRole('button', { name: 'Play Now' }).click();
  await expectAlert('Playing Finished!');
  // The replay put a finger down where the mouse clicked, in the order clicked.
  const downs = (await page.locator('#trace li').allTextContents()).filter((line) => / #1 down /.test(line)).slice(-2).map((line) => line.match(/down (\d+),(\d+)/).slice(1).map(Number));
  const near = (a, b) => a.length === b.length && a.every(([x, y], i) => Math.abs(x - b[i][0]) <= 2 && Math.abs(y - b[i][1]) <= 2);
  assert.ok(near(downs, taps), 'taps replayed at ' + downs.join(' / '));
  await overlay().getByRole('button', { name: 'OK' }).click();
});

test('asks for the password of an encrypted script, refuses a wrong one and plays with the right one', async () => {
  await chooseScript('secret.e');
  let prompt = await expectAlert('Dencrypt Password');
  await prompt.locator('input[type=password]').fill('wrong');
  await prompt.getByRole('button', { name: 'Confirm' }).click();
  await (await expectAlert('Wrong password!')).getByRole('button', { name: 'OK' }).click();
  await overlay().waitFor({ state: 'hidden' });

  await chooseScript('secret.e');
  prompt = await expectAlert('Dencrypt Password');
  await prompt.locator('input[type=password]').fill('open sesame');
  // Keyboard only from here: Enter confirms, and the next panel takes the focus.
  await page.keyboard.press('Enter');
  await overlay().getByText('Loop playing with').waitFor();
  const focusedText = () => page.evaluate(() => document.activeElement.textContent);
  for (let presses = 0; presses < 12 && (await focusedText()) !== 'Play Now'; presses++) await page.keyboard.press('Tab');
  assert.equal(await focusedText(), 'Play Now');
  await page.keyboard.press('Enter');
  await expectAlert('Playing Finished!');
  await page.keyboard.press('Enter');
  await overlay().waitFor({ state: 'hidden' });
});

test('an event sent with `tactora event` reaches the running simulator like a button would', async () => {
  const send = () => execFileSync(tactora, ['--root', root, 'event', 'libactivator.volume.down.hold-short']).toString();
  assert.match(send(), /hold-short handled/);
  await overlay().getByRole('dialog', { name: 'Tactora' }).waitFor();
  // While the panel is open, events belong to the system.
  assert.match(send(), /not handled/);
  await overlay().getByRole('button', { name: 'Cancel' }).click();
  await overlay().waitFor({ state: 'hidden' });
});

test('shows an error panel, not a blank page, when the simulator stops', async () => {
  sim.kill('SIGTERM');
  await page.locator('#fatal').waitFor({ state: 'visible' });
  assert.match(await page.locator('#fatal').textContent(), /The simulator stopped/);
  await page.screenshot({ path: path.join(artifacts, 'simulator-stopped.png') });
});
