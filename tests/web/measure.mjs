// Timings for the closing note, not a test: preview latency while dragging on an A4 page at 300 dpi,
// and the full-size render of the B4 page at 600 dpi in the browser against brivane-render.
//
//   node tests/web/measure.mjs web/dist build/tools/render/brivane-render
import { execFileSync } from 'node:child_process';
import { writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { dragHandle, inkedPage, openBrowserPage, openPage, root } from './browser.mjs';
import { encodePng } from './png.mjs';

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
  await openPage(page, b4);
  const browserMs = [];
  for (let run = 0; run < 3; ++run) {
    await page.click('#render');
    await page.waitForSelector('body[data-state="rendered"]', { timeout: 600000 });
    browserMs.push(await page.evaluate(() => window.brivane.stats.renderMs));
    await page.evaluate(() => { document.body.dataset.state = 'ready'; });
  }
  const nativeMs = [];
  for (let run = 0; run < 3; ++run) {
    const started = process.hrtime.bigint();
    execFileSync(render, [b4, '-o', join(scratch, 'b4-lines.png'), '-q']);
    nativeMs.push(Number(process.hrtime.bigint() - started) / 1e6);
  }
  console.log(`B4 6071 x 8598 full render, default preset: browser engine ${browserMs.map((v) => v.toFixed(0))} ms ` +
    `(median ${median(browserMs).toFixed(0)}); brivane-render whole run incl. PNG read/write ` +
    `${nativeMs.map((v) => v.toFixed(0))} ms (median ${median(nativeMs).toFixed(0)})`);
} finally {
  await close();
}
