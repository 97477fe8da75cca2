// The page in Debian's Chromium, driven as a person would: open a page, drag a handle, change two
// settings, render at full size and save the layer, then check it against brivane-render with the preset
// the page saved. Also: a preset opened on the page shows in the panel, and cancel stops a long render.
//
//   BRIVANE_DIST=web/dist BRIVANE_RENDER=build/tools/render/brivane-render node --test page.test.mjs
import { after, before, test } from 'node:test';
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { dragHandle, inkedPage, openBrowserPage, openPage as open, root, setNumber as set } from './browser.mjs';
import { decodePng, encodePng } from './png.mjs';

const dist = process.env.BRIVANE_DIST ?? join(root, 'web/dist');
const render = process.env.BRIVANE_RENDER ?? join(root, 'build/tools/render/brivane-render');
let browser, page, scratch;

before(async () => {
  browser = await openBrowserPage(dist);
  ({ page, scratch } = browser);
});

after(() => browser?.close());

const openPage = (file) => open(page, file);
const setNumber = (key, value) => set(page, key, value);

async function saveDownload(button) {
  const [download] = await Promise.all([page.waitForEvent('download'), page.click(button)]);
  const path = join(scratch, download.suggestedFilename());
  await download.saveAs(path);
  return path;
}

test('renders the same layer as brivane-render with the preset it saves', async () => {
  await openPage(join(root, 'samples/focus.png'));
  await dragHandle(page, 1, 40, -30);
  await setNumber('size', 4);
  await page.check('input[name=easing]');
  await page.click('#render');
  await page.waitForSelector('body[data-state="rendered"]', { timeout: 120000 });
  const layerFile = await saveDownload('#save-layer');
  const presetFile = await saveDownload('#save-preset');

  const preset = readFileSync(presetFile, 'utf8');
  assert.match(preset, /^size=4$/m);
  assert.match(preset, /^easing=true$/m);
  assert.doesNotMatch(preset, /^p2=0\.5,0\.35$/m, 'the dragged handle moved');

  const reference = join(scratch, 'reference.png');
  execFileSync(render, [join(root, 'samples/focus.png'), '--preset', presetFile, '-o', reference, '-q']);
  const mine = decodePng(readFileSync(layerFile));
  const theirs = decodePng(readFileSync(reference));
  assert.deepEqual([mine.width, mine.height], [theirs.width, theirs.height]);
  assert.ok(mine.pixels.some((v, i) => i % 4 === 3 && v > 0), 'the layer has lines');
  const differing = mine.pixels.filter((v, i) => v !== theirs.pixels[i]).length;
  assert.equal(differing, 0, `${differing} of ${mine.pixels.length} bytes differ from brivane-render`);
});

// The page of the shared digest cases, made as tests/engine/render_digest_test.cpp makes it.
const digestPage = () => new Uint8Array(640 * 480 * 4).map((_, i) => {
  const [x, y] = [(i >> 2) % 640, Math.floor(i / 2560)];
  const ink = (x - 320) ** 2 + (y - 240) ** 2 <= 90 * 90 || (x + 2 * y) % 61 < 4 || (y >= 380 && y < 392);
  return i % 4 === 3 && ink ? 255 : 0;
});

const fnv1a = (bytes) => bytes.reduce((hash, byte) => BigInt.asUintN(64, (hash ^ BigInt(byte)) * 0x100000001b3n),
  0xcbf29ce484222325n).toString(16).padStart(16, '0');

test('draws the bytes of the digest table that the Linux and Windows suites check', async () => {
  const folder = join(root, 'tests/data/digest');
  const png = encodePng(640, 480, digestPage());
  const cases = readFileSync(join(folder, 'digests.txt'), 'utf8').split('\n').filter((l) => /^[a-z]/.test(l));
  assert.ok(cases.length >= 4);
  for (const [name, digest] of cases.map((line) => line.split(/\s+/))) {
    // A file of its own per case: the file input takes the same file twice as no change.
    const file = join(scratch, `digest-${name}.png`);
    writeFileSync(file, png);
    await openPage(file);
    await page.setInputFiles('#preset-file', join(folder, `${name}.ini`));
    await page.waitForSelector(`body[data-preset="${name}.ini"]`);
    await page.click('#render');
    await page.waitForSelector('body[data-state="rendered"]', { timeout: 60000 });
    assert.equal(fnv1a(decodePng(readFileSync(await saveDownload('#save-layer'))).pixels), digest, name);
  }
});

test('an opened preset shows its values in the panel', async () => {
  const file = join(root, 'samples/speed.ini');
  await page.setInputFiles('#preset-file', file);
  await page.waitForSelector('body[data-preset="speed.ini"]');
  const values = Object.fromEntries(
    readFileSync(file, 'utf8').split('\n').map((l) => l.trim().split('=')).filter((kv) => kv.length === 2));
  assert.equal(await page.inputValue('select[name=type]'), String(['radiate', 'parallel', 'circle'].indexOf(values.type)));
  let compared = 0;
  for (const [key, text] of Object.entries(values)) {
    const number = page.locator(`input[type=number][name=${key}]`);
    const box = page.locator(`input[type=checkbox][name=${key}]`);
    if (await number.count()) assert.equal(Number(await number.inputValue()), Number(text), key);
    else if (await box.count()) assert.equal(await box.isChecked(), text === 'true', key);
    else continue;
    ++compared;
  }
  assert.ok(compared >= 5, `only ${compared} settings compared`);
});

test('cancel stops a long render and leaves the page working', async () => {
  // A large inked page with dense lines: long enough to cancel half-way.
  const big = join(scratch, 'big.png');
  writeFileSync(big, encodePng(3000, 3000, inkedPage(3000, 3000)));
  await openPage(big);
  await setNumber('spacing', 1);
  await setNumber('size', 50);
  await page.click('#render');
  await page.waitForFunction(() => document.getElementById('progress').value > 0, null, { timeout: 60000 });
  await page.click('#cancel');
  await page.waitForSelector('body[data-state="cancelled"]');
  const stoppedAt = await page.evaluate(() => document.getElementById('progress').value);
  assert.ok(stoppedAt < 100, 'cancelled before the end');
  await page.waitForTimeout(1000);
  assert.equal(await page.getAttribute('body', 'data-state'), 'cancelled');
  assert.ok(await page.isDisabled('#save-layer'), 'nothing to save after a cancelled render');
  // The page still answers: a setting change brings a new preview.
  const previews = Number(await page.getAttribute('body', 'data-previews'));
  await setNumber('spacing', 50);
  await page.waitForFunction((n) => Number(document.body.dataset.previews) > n, previews);
});
