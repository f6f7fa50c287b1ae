// Writes a script in the simulator page as a person would: touches, a screenshot and a picked point,
// a template cut and found (on the page and by `tactora play`), a script's error and a stop.
import { test, before, after } from 'node:test';
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { writeFileSync, readFileSync, existsSync } from 'node:fs';
import path from 'node:path';
import { tactora, artifacts, openSimulator, makeRoot } from './harness.mjs';

let root, scripts, scene, simulator, page;

before(async () => {
  ({ root, scripts, scene } = makeRoot('tactora-author-'));
  writeFileSync(path.join(scripts, 'broken.lua'), 'log("fine so far")\n');
  writeFileSync(path.join(scripts, 'forever.lua'), 'while true do usleep(100000) end\n');
  simulator = openSimulator(root, path.join(scene, 'scene.json'), { width: 1500, height: 1000 });
  ({ page } = await simulator);
});

after(async () => (await simulator?.catch(() => null))?.close());

// The phone and the script tools, for the pictures in docs/simulator.md.
const toolsArea = { x: 0, y: 44, width: 850, height: 830 };

// The screen's top-left corner on the page; the phone is drawn one CSS pixel a point.
const screenAt = async () => page.locator('#touch-layer').boundingBox();

const mode = (name) => page.getByRole('radio', { name }).check();

// Alpha of a layer at a screen point: whether anything is drawn there.
const drawnAt = (x, y, layer = '#touch-layer') => page.evaluate(([x, y, layer]) => {
  const canvas = document.querySelector(layer);
  const ratio = canvas.width / canvas.getBoundingClientRect().width;
  return canvas.getContext('2d').getImageData(Math.round(x * ratio), Math.round(y * ratio), 1, 1).data[3];
}, [x, y, layer]);

async function dismissAlerts() {
  const overlay = page.locator('#overlay');
  for (let i = 0; i < 5 && await overlay.isVisible(); i++) {
    await overlay.getByRole('button').first().click();
    await page.waitForTimeout(200);
  }
  await overlay.waitFor({ state: 'hidden' });
}

test('every script tool is reached with Tab and has a name a screen reader reads', async () => {
  const tools = ['touch-layer', 'open-file', 'keep-screen', 'cut-x', 'cut-y', 'cut-width', 'cut-height', 'template-name',
    'cut-save', 'template-select', 'fuzzy', 'ignore-input', 'ignore-add', 'ignore-picked', 'script-select', 'script-save',
    'script-run', 'editor'];
  const reached = new Map();
  await page.locator('body').focus();
  for (let presses = 0; presses < 120 && reached.size < tools.length; presses++) {
    await page.keyboard.press('Tab');
    const id = await page.evaluate(() => document.activeElement.id);
    if (tools.includes(id) && !reached.has(id)) {
      const focused = await page.evaluateHandle(() => document.activeElement);
      reached.set(id, (await page.accessibility.snapshot({ root: focused, interestingOnly: false }))?.name);
    }
  }
  assert.deepEqual(tools.filter((id) => !reached.has(id)), [], 'not reached with Tab');
  assert.deepEqual([...reached].filter(([, name]) => !name || !name.trim()).map(([id]) => id), [], 'without a name');
  // The modes are one group of radio buttons, reached and named too.
  assert.equal(await page.getByRole('group', { name: 'The mouse on the screen' }).getByRole('radio').count(), 3);
});

test('the trail joins one touch only, and the Touches pane times every touch and names its moves', async () => {
  const screen = await screenAt();
  await mode('Touches');
  // Each touch ends when its "up" line shows in the Touches pane.
  const lastLine = () => page.locator('#trace li').last();
  const drag = async (from, to, y) => {
    await page.mouse.move(screen.x + from, screen.y + y);
    await page.mouse.down();
    for (let x = from + 10; x <= to; x += 10) {
      await page.mouse.move(screen.x + x, screen.y + y);
      await page.waitForTimeout(25);
    }
    if (from === to) await page.waitForTimeout(60);
    await page.mouse.up();
    await lastLine().filter({ hasText: ` #1 up ${to},${y}` }).waitFor();
  };
  await drag(60, 60, 420);
  await drag(260, 260, 420);
  assert.ok(await drawnAt(60, 420) > 0, 'the first tap is marked');
  assert.equal(await drawnAt(160, 420), 0, 'no line runs from one tap to the next');
  await drag(60, 260, 455);
  assert.ok(await drawnAt(160, 455) > 0, 'the drag leaves a trail along its path');

  const lines = await page.locator('#trace li').allTextContents();
  const last = lines.slice(-8);
  assert.ok(last.every((line) => /^\s*\d+\.\d{3} #1 (down|move|up) \d+,\d+/.test(line)), 'every line has its time:\n' + last.join('\n'));
  assert.ok(last.some((line) => / #1 move /.test(line)), 'the drag shows as moves');
  assert.match(lines.findLast((line) => / #1 down /.test(line)), /down 60,455/);
});

test('opens a screenshot by its size and picks a point on it, as getColor reads it', async () => {
  // A picture of another size is no screen of this phone.
  await page.locator('#open-file').setInputFiles(path.join(scene, 'icon.png'));
  await page.locator('#open-status').filter({ hasText: 'Not opened' }).waitFor();
  assert.match(await page.locator('#open-status').textContent(), /no phone screen/);

  await page.locator('#open-file').setInputFiles(path.join(scene, 'app.png'));
  await page.locator('#open-status').filter({ hasText: 'is on the screen' }).waitFor();
  assert.match(await page.locator('#open-status').textContent(), /640 x 1136, iphone-se/);
  await page.waitForFunction(() => document.querySelector('#screen-image').complete && !document.querySelector('#close-picture').hidden);

  // What the picture holds at (161, 301) points, read by the browser itself from the file.
  const expected = await page.evaluate(async (png) => {
    const image = new Image();
    image.src = 'data:image/png;base64,' + png;
    await image.decode();
    const context = new OffscreenCanvas(1, 1).getContext('2d');
    context.drawImage(image, -322, -602);
    const [r, g, b] = context.getImageData(0, 0, 1, 1).data;
    return '0x' + ((r << 16) | (g << 8) | b).toString(16).toUpperCase().padStart(6, '0');
  }, readFileSync(path.join(scene, 'app.png')).toString('base64'));

  await mode('Picks a point');
  const screen = await screenAt();
  await page.mouse.move(screen.x + 161.5, screen.y + 301.5);
  await page.locator('#pick-readout').filter({ hasText: 'x 161, y 301' }).waitFor();
  assert.match(await page.locator('#pick-readout').textContent(), new RegExp(expected));
  await page.mouse.click(screen.x + 161.5, screen.y + 301.5);
  await page.locator('#pick-line').filter({ hasText: 'touchDown' }).waitFor();
  assert.equal(await page.locator('#pick-line').textContent(), 'touchDown(1, 161, 301); usleep(50000); touchUp(1, 161, 301)');

  // The keyboard does the same: one unit right, copy the colour check.
  await page.getByRole('radio', { name: 'copy a colour check' }).check();
  await page.locator('#touch-layer').focus();
  await page.keyboard.press('ArrowRight');
  await page.keyboard.press('Enter');
  await page.locator('#pick-line').filter({ hasText: 'getColor(162, 301)' }).waitFor();
  assert.match(await page.locator('#pick-line').textContent(), /^getColor\(162, 301\) == 0x[0-9A-F]{6}$/);

  await page.getByRole('button', { name: 'Back to the scene' }).click();
  await page.waitForFunction(() => document.querySelector('#close-picture').hidden);
  // The scene's own screen can be kept still the same way.
  await page.getByRole('button', { name: 'Keep this screen' }).click();
  await page.locator('#open-status').filter({ hasText: 'stays until' }).waitFor();
  await page.getByRole('button', { name: 'Back to the scene' }).click();
  await page.waitForFunction(() => document.querySelector('#close-picture').hidden);
});

test('cuts a template, finds it once where it was cut, and `tactora play` finds it there too', async () => {
  await mode('Cuts a template');
  const screen = await screenAt();
  // Around the Demo app's icon on the home screen.
  await page.mouse.move(screen.x + 96, screen.y + 114);
  await page.mouse.down();
  await page.mouse.move(screen.x + 120, screen.y + 130, { steps: 4 });
  await page.mouse.move(screen.x + 140.5, screen.y + 160.5, { steps: 4 });
  await page.screenshot({ path: path.join(artifacts, 'simulator-cutting.png'), clip: toolsArea });
  await page.mouse.up();
  const cut = {};
  for (const key of ['x', 'y', 'width', 'height']) cut[key] = Number(await page.locator('#cut-' + key).inputValue());
  assert.deepEqual(cut, { x: 96, y: 114, width: 45, height: 47 });
  await page.getByLabel('name').fill('demo-button');
  await page.keyboard.press('Enter');
  await page.locator('#cut-status').filter({ hasText: 'Saved demo-button.png (90 x 94 pixels)' }).waitFor();
  assert.ok(existsSync(path.join(scripts, 'demo-button.png')));

  // The search runs for the new template at once, and says how loose it may be and still find
  // the template only once.
  await page.waitForFunction(() => document.querySelector('#template-select').value === 'demo-button.png');
  await page.locator('#safe-fuzzy').filter({ hasText: 'Found once down to' }).waitFor();
  const safe = Number(await page.locator('#safe-fuzzy').getAttribute('data-value'));
  assert.ok(safe > 0.5 && safe <= 1, 'safe fuzzy ' + safe);
  const slide = async (value) => {
    await page.locator('#fuzzy').fill(String(value));
    await page.locator('#search-line').filter({ hasText: 'fuzzy = ' + value.toFixed(2) }).waitFor();
    return Number(await page.locator('#search-count').getAttribute('data-count'));
  };
  // Just below the safe value the template is found more than once; at it, once, where it was cut.
  assert.ok(await slide(Math.round(safe * 100 - 1) / 100) > 1, 'more than one match just below the safe value');
  assert.equal(await slide(safe), 1);
  assert.equal(await page.locator('#search-count').textContent(), '1 match');
  const outlined = { corner: await drawnAt(96, 130, '#search-layer'), inside: await drawnAt(118, 137, '#search-layer') };
  assert.ok(outlined.corner > 0 && outlined.inside === 0, 'the outline runs along the cut: ' + JSON.stringify(outlined));
  assert.equal(await page.locator('#search-line').textContent(),
    'findImage{imagePath = rootDir() .. "demo-button.png", fuzzy = ' + safe.toFixed(2) + '}');
  await page.screenshot({ path: path.join(artifacts, 'simulator-searching.png'), clip: toolsArea });

  // The command line finds the page's template at the same place on the same screen.
  writeFileSync(path.join(root, 'find.lua'), 'local out = io.open(rootDir() .. "found.txt", "w")\n' +
    'for _, p in ipairs(findImage{imagePath = rootDir() .. "demo-button.png", fuzzy = 1}) do out:write(p[1], ",", p[2], "\\n") end\n' +
    'out:close()\n');
  execFileSync(tactora, ['--root', root, '--screen', path.join(scene, 'home.png'), 'play', path.join(root, 'find.lua')]);
  const found = readFileSync(path.join(scripts, 'found.txt'), 'utf8').trim().split('\n').map((p) => p.split(',').map(Number));
  assert.deepEqual(found, [[96, 114]]);
});

test('runs a script from the editor and shows its error at its line', async () => {
  await page.locator('#script-select').selectOption('broken.lua');
  await page.waitForFunction(() => document.querySelector('#editor').value.includes('fine so far'));
  const editor = page.getByLabel('Script text');
  await editor.fill('log("fine so far")\nlocal n = 1\nnoSuchFunction(n)\n');
  await page.getByRole('button', { name: 'Run' }).click();
  await page.locator('#script-error').filter({ hasText: 'Line 3:' }).waitFor();
  assert.match(await page.locator('#script-error').textContent(), /Line 3: .*noSuchFunction/);
  assert.match((await page.locator('#gutter').textContent()).split('\n')[2], /^▶\s+3$/);
  assert.equal(readFileSync(path.join(scripts, 'broken.lua'), 'utf8'), 'log("fine so far")\nlocal n = 1\nnoSuchFunction(n)\n');
  await dismissAlerts();
  await page.locator('#status').filter({ hasText: 'Idle' }).waitFor();
  // Editing the line clears the mark.
  await editor.press('End');
  await editor.type(' ');
  assert.ok(await page.locator('#script-error').isHidden());
});

test('stops a running script', async () => {
  await page.locator('#script-select').selectOption('forever.lua');
  await page.waitForFunction(() => document.querySelector('#editor').value.includes('while true'));
  await page.getByRole('button', { name: 'Run' }).click();
  await page.locator('#status').filter({ hasText: 'Playing' }).waitFor();
  await page.waitForTimeout(700);
  assert.match(await page.locator('#status').textContent(), /Playing/, 'still playing before the stop');
  await page.getByRole('button', { name: 'Stop' }).click();
  // An alert the stop brings may have to go before the status shows.
  await page.locator('#status').filter({ hasText: 'Idle' }).waitFor({ timeout: 10000 }).catch(dismissAlerts);
  await page.locator('#status').filter({ hasText: 'Idle' }).waitFor();
  assert.ok(await page.getByRole('button', { name: 'Stop' }).isDisabled());
  await dismissAlerts();
});
