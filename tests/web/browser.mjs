// The served page in Debian's Chromium with a fresh profile, for the test and the measurements. Nothing
// is downloaded: playwright-core drives the system's browser.
import { spawn } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { chromium } from 'playwright-core';

export const root = new URL('../../', import.meta.url).pathname;

export async function openBrowserPage(dist) {
  const scratch = mkdtempSync(join(tmpdir(), 'brivane-web-'));
  const server = spawn(process.execPath, [join(root, 'web/serve.mjs'), dist, '0'], { stdio: ['ignore', 'pipe', 'inherit'] });
  const address = await new Promise((resolve) => server.stdout.once('data', (line) => resolve(String(line).trim())));
  const context = await chromium.launchPersistentContext(join(scratch, 'profile'), {
    executablePath: '/usr/bin/chromium',
    headless: true,
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync'],
    viewport: { width: 1280, height: 800 },
    acceptDownloads: true,
  });
  const page = context.pages()[0] ?? (await context.newPage());
  page.on('pageerror', (error) => console.error('page error:', error.message));
  await page.goto(address);
  await page.waitForSelector('body[data-state="empty"]');
  const close = async () => {
    await context.close();
    server.kill();
    rmSync(scratch, { recursive: true, force: true });
  };
  return { page, scratch, close };
}

export async function openPage(page, file) {
  const previews = Number((await page.getAttribute('body', 'data-previews')) ?? 0);
  await page.setInputFiles('#page-file', file);
  await page.waitForFunction((n) => Number(document.body.dataset.previews ?? 0) > n, previews, { timeout: 120000 });
}

export async function setNumber(page, key, value) {
  await page.fill(`input[type=number][name=${key}]`, String(value));
  await page.dispatchEvent(`input[type=number][name=${key}]`, 'change');
}

// Drags a handle by the mouse in small steps, as a hand would, and waits for the last preview.
export async function dragHandle(page, index, dx, dy, steps = 20) {
  const box = await page.locator(`.handle[data-index="${index}"] circle`).boundingBox();
  const [x, y] = [box.x + box.width / 2, box.y + box.height / 2];
  await page.mouse.move(x, y);
  await page.mouse.down();
  for (let i = 1; i <= steps; ++i) await page.mouse.move(x + (dx * i) / steps, y + (dy * i) / steps);
  await page.mouse.up();
  await page.waitForFunction(() => !document.querySelector('.outline'));
  await page.waitForTimeout(300);
}

// The pixels of a fully inked (opaque black) page of that size, RGBA.
export function inkedPage(width, height) {
  const pixels = new Uint8Array(width * height * 4);
  for (let i = 3; i < pixels.length; i += 4) pixels[i] = 255;
  return pixels;
}
