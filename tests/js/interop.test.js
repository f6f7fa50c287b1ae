// Encrypted scripts checked against an independent RNCryptor v3 implementation (rncryptor-node):
// files it writes, `tactora decrypt` reads; files `tactora encrypt` writes, it reads.
// The tool is named by $TACTORA_CLI.
'use strict';

const test = require('node:test');
const assert = require('node:assert/strict');
const { spawnSync } = require('node:child_process');
const crypto = require('node:crypto');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const RNCryptor = require('rncryptor-node');

const tool = process.env.TACTORA_CLI;
if (!tool || !fs.existsSync(tool)) throw new Error(`TACTORA_CLI does not name the tool: ${tool}`);

const work = fs.mkdtempSync(path.join(os.tmpdir(), 'tactora-interop-'));
test.after(() => fs.rmSync(work, { recursive: true, force: true }));

const inputs = {
  'empty': Buffer.alloc(0),
  '1 byte': Buffer.from('x'),
  '16 bytes': Buffer.from('0123456789abcdef'),
  'multi-block': Buffer.from('touchDown(0, 100, 200)\nusleep(16000)\ntouchUp(0, 100, 200)\n'.repeat(20)),
  'non-ASCII text': Buffer.from('alert("héllo wörld, 日本語, 🙂")\n', 'utf8'),
  '1 MiB binary': crypto.randomBytes(1024 * 1024),
};

// Both sides must take the password as its UTF-8 bytes.
const passwords = ['password', 'pässwörd 🔑 日本'];

let files = 0, ways = 0;
const scratch = (name) => path.join(work, `${files++}-${name}`);

// Runs the tool, handing it the password each of its three ways in turn.
function runTool(args, password) {
  const file = scratch('password.txt');
  fs.writeFileSync(file, password + '\n', 'utf8');
  const [extra, env] = [[['--password', password]], [['--password-file', file]], [[], { TACTORA_PASSWORD: password }]][ways++ % 3];
  return spawnSync(tool, [...args, ...extra], { env: { ...process.env, ...env }, encoding: 'utf8' });
}

for (const [name, plain] of Object.entries(inputs)) {
  for (const password of passwords) {
    test(`each reads what the other wrote: ${name}, password ${JSON.stringify(password)}`, () => {
      const key = Buffer.from(password, 'utf8');
      const fromJs = scratch('from-js.e');
      fs.writeFileSync(fromJs, Buffer.from(RNCryptor.Encrypt(plain, key), 'base64'));
      let run = runTool(['decrypt', fromJs, '-o', fromJs + '.plain'], password);
      assert.equal(run.status, 0, run.stderr);
      assert.ok(fs.readFileSync(fromJs + '.plain').equals(plain), 'tactora decrypted other bytes');

      const input = scratch('plain');
      fs.writeFileSync(input, plain);
      run = runTool(['encrypt', input], password);
      assert.equal(run.status, 0, run.stderr);
      const sealed = fs.readFileSync(input + '.e');
      assert.equal(sealed.length, 34 + (Math.floor(plain.length / 16) + 1) * 16 + 32);
      const opened = RNCryptor.Decrypt(sealed, key);
      assert.ok(opened !== undefined && opened.equals(plain), 'rncryptor-node refused the HMAC or read other bytes');
      assert.equal(RNCryptor.Decrypt(sealed, Buffer.from(password + 'x', 'utf8')), undefined);
    });
  }
}

test('a wrong password fails on both sides and tactora leaves no output', () => {
  const plain = inputs['multi-block'];
  const sealed = Buffer.from(RNCryptor.Encrypt(plain, Buffer.from('right', 'utf8')), 'base64');
  const input = scratch('wrong.e'), output = scratch('never');
  fs.writeFileSync(input, sealed);
  const run = runTool(['decrypt', input, '-o', output], 'wrong');
  assert.equal(run.status, 1);
  assert.match(run.stderr, /wrong password/);
  assert.equal(fs.existsSync(output), false);
  assert.deepEqual(fs.readdirSync(work).filter((f) => f.startsWith(path.basename(output))), []);
  // And a single changed byte of a good file is refused too.
  sealed[40] ^= 1;
  fs.writeFileSync(input, sealed);
  assert.equal(runTool(['decrypt', input, '-o', output], 'right').status, 1);
});
