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
  let differing = 0;
  let largest = 0;
  for (let i = 0; i < mine.pixels.length; ++i) {
    const d = Math.abs(mine.pixels[i] - theirs.pixels[i]);
    if (d) ++differing, (largest = Math.max(largest, d));
  }
  const pixels = mine.width * mine.height;
  console.log(`layer vs brivane-render: ${differing} of ${mine.pixels.length} bytes differ, by at most ${largest}`);
  // The two builds share every line of the engine; only the C libraries' sine and cosine may round a
  // last bit differently, which can move a coverage byte by one level.
  assert.ok(differing === 0 || (largest <= 1 && differing < pixels * 0.001),
    `${differing} bytes differ (largest ${largest})`);

  const stats = await page.evaluate(() => window.brivane.stats);
  const sorted = [...stats.previewMs].sort((a, b) => a - b);
  console.log(`preview latency while dragging (${sorted.length} previews, 1200 x 850): median ` +
    `${sorted[sorted.length >> 1].toFixed(0)} ms; full render ${stats.renderMs.toFixed(0)} ms`);
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
