// Starts `tactora sim` on a scene and opens its page in Debian's Chromium, headless, with a fresh
// profile. Shared by the browser tests; not a test file itself.
import { execFileSync, spawn } from 'node:child_process';
import { mkdtempSync, mkdirSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { chromium } from 'playwright-core';

export const source = path.resolve(path.dirname(new URL(import.meta.url).pathname), '../..');
export const tactora = process.env.TACTORA_CLI || path.join(source, 'build/release/tactora');
export const artifacts = process.env.TACTORA_ARTIFACTS || path.join(source, 'build/browser-artifacts');
mkdirSync(artifacts, { recursive: true });

// The simulator's process and its page, once the page shows Idle; close() ends both and removes root.
export async function openSimulator(root, sceneFile, viewport) {
  const opened = { close: async () => {
    if (opened.context) await opened.context.close();
    if (opened.sim && opened.sim.exitCode === null) opened.sim.kill('SIGTERM');
    rmSync(root, { recursive: true, force: true });
  } };
  try {
    opened.sim = spawn(tactora, ['--root', root, '--language', 'en', 'sim', '--scene', sceneFile, '--port', '0'],
      { stdio: ['ignore', 'pipe', 'pipe'] });
    const url = await new Promise((resolve, reject) => {
      let output = '';
      const take = (chunk) => {
        output += chunk;
        const found = /open (http:\/\/127\.0\.0\.1:\d+\/)/.exec(output);
        if (found) resolve(found[1]);
      };
      opened.sim.stdout.on('data', take);
      opened.sim.stderr.on('data', take);
      opened.sim.on('exit', (code) => reject(new Error(`tactora sim exited with ${code}:\n${output}`)));
      setTimeout(() => reject(new Error('tactora sim printed no URL:\n' + output)), 15000).unref();
    });
    opened.context = await chromium.launchPersistentContext(mkdtempSync(path.join(tmpdir(), 'tactora-chromium-')), {
      executablePath: process.env.CHROMIUM || '/usr/bin/chromium',
      headless: true,
      args: ['--no-sandbox', '--disable-gpu', '--disable-background-networking', '--disable-component-update',
        '--disable-sync', '--no-first-run'],
      viewport,
    });
    opened.page = opened.context.pages()[0] || await opened.context.newPage();
    opened.page.setDefaultTimeout(20000);
    await opened.page.goto(url);
    await opened.page.locator('#status').filter({ hasText: 'Idle' }).waitFor();
    return opened;
  } catch (error) {
    await opened.close();
    throw error;
  }
}

// A fresh device root with the demo scene, its scripts directory and an empty Extensions.lua.
export function makeRoot(prefix) {
  const root = mkdtempSync(path.join(tmpdir(), prefix));
  const scripts = path.join(root, 'var/mobile/Library/Tactora/Scripts');
  mkdirSync(scripts, { recursive: true });
  mkdirSync(path.join(root, 'Applications/Tactora.app'), { recursive: true });
  writeFileSync(path.join(root, 'Applications/Tactora.app/Extensions.lua'), '');
  execFileSync(tactora, ['--root', root, 'make-demo-scene', path.join(root, 'scene')]);
  return { root, scripts, scene: path.join(root, 'scene') };
}
