// Timings of the page, not a test: preview latency while dragging on an A4 page at 300 dpi, and the
// full-size render of the B4 page at 600 dpi in the browser against brivane-render.
//
//   node bench/web_measure.mjs web/dist build/tools/render/brivane-render
import { execFileSync } from 'node:child_process';
import { writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { dragHandle, inkedPage, openBrowserPage, openPage, root } from '../tests/web/browser.mjs';
import { encodePng } from '../tests/web/png.mjs';

const [dist = join(root, 'web/dist'), render = join(root, 'build/tools/render/brivane-render')] = process.argv.slice(2);
const { page, scratch, close } = await openBrowserPage(dist);
const median = (values) => [...values].sort((a, b) => a - b)[values.length >> 1];
try {
  const a4 = join(scratch, 'a4.png');
  writeFileSync(a4, encodePng(2480, 3508, inkedPage(2480, 3508)));
  await openPage(page, a4);
  for (const handle of [1, 2, 0]) await dragHandle(page, handle, 60, 40, 40);
  const a4Stats = await page.evaluate(() => window.brivane.stats);
  console.log(`A4 2480 x 3508 preview while dragging: ${a4Stats.previewMs.length} previews, latency median ` +
    `${median(a4Stats.previewMs).toFixed(0)} ms, max ${Math.max(...a4Stats.previewMs).toFixed(0)} ms; ` +
    `engine time per preview median ${median(a4Stats.previewEngineMs).toFixed(0)} ms`);

  const b4 = join(scratch, 'b4.png');
  writeFileSync(b4, encodePng(6071, 8598, inkedPage(6071, 8598)));
  let started = performance.now();
  await openPage(page, b4);
  const openMs = performance.now() - started;
  const engineMs = [], wallMs = [], saveMs = [];
  for (let run = 0; run < 3; ++run) {
    started = performance.now();
    await page.click('#render');
    await page.waitForSelector('body[data-state="rendered"]', { timeout: 600000 });
    wallMs.push(performance.now() - started);
    engineMs.push(await page.evaluate(() => window.brivane.stats.renderMs));
    started = performance.now();
    const [download] = await Promise.all([page.waitForEvent('download', { timeout: 600000 }), page.click('#save-layer')]);
    await download.path();
    saveMs.push(performance.now() - started);
    await page.evaluate(() => { document.body.dataset.state = 'ready'; });
  }
  const nativeMs = [];
  for (let run = 0; run < 3; ++run) {
    started = performance.now();
    execFileSync(render, [b4, '-o', join(scratch, 'b4-lines.png'), '-q']);
    nativeMs.push(performance.now() - started);
  }
  const list = (values) => `${values.map((v) => v.toFixed(0)).join(', ')} ms (median ${median(values).toFixed(0)})`;
  console.log(`B4 6071 x 8598 inked page, default preset, 3 runs each:
  browser: open (decode, hand to worker, first preview) ${openMs.toFixed(0)} ms
  browser: engine in the worker ${list(engineMs)}
  browser: click to rendered (page copied to a fresh worker, engine) ${list(wallMs)}
  browser: save layer PNG (rows, browser deflate, file) ${list(saveMs)}
  brivane-render whole run (read PNG, engine on the pool, write PNG) ${list(nativeMs)}`);
} finally {
  await close();
}
