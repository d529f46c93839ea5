// The operator console in a real browser: headless Chromium, driven by
// puppeteer-core, opens the console of a running kelmor-show and drives a
// show of a bank of two layers on one screen, as an operator would.
//
// Usage: node console.test.js   (environment below; exit 77 = skipped)
//   KELMOR_SHOW_BINARY   the kelmor-show to test (required)
//   KELMOR_CONSOLE_WORK  a folder for this run's files (default: a temp one)
//   KELMOR_CONSOLE_MEDIA the media folder (made there with ffmpeg if missing)
//   KELMOR_CONSOLE_SCREENSHOT  where to save the page's screenshot
// Skipped (exit 77) only when Chromium is missing; everything else that goes
// wrong fails.
'use strict';

const assert = require('node:assert/strict');
const fs = require('node:fs');
const http = require('node:http');
const os = require('node:os');
const path = require('node:path');
const { findChromium, makeMedia, startConsole } = require('./harness');

const chromium = findChromium();
if (!chromium) {
  console.log('console.browser: SKIPPED: Chromium is not installed (apt-get install chromium, or set CHROME_PATH)');
  process.exit(77);
}
let puppeteer;
try {
  puppeteer = require('puppeteer-core');
} catch (e) {
  console.error('console.browser: FAILED: puppeteer-core is missing: run "npm ci" in tests/console');
  process.exit(1);
}

const binary = process.env.KELMOR_SHOW_BINARY;
if (!binary || !fs.existsSync(binary)) {
  console.error(`console.browser: FAILED: KELMOR_SHOW_BINARY (${binary}) is not a kelmor-show`);
  process.exit(1);
}
const work = process.env.KELMOR_CONSOLE_WORK || fs.mkdtempSync(path.join(os.tmpdir(), 'kelmor-console-'));
fs.mkdirSync(work, { recursive: true });
const media = makeMedia(process.env.KELMOR_CONSOLE_MEDIA || path.join(work, 'media'));
const screenshot = process.env.KELMOR_CONSOLE_SCREENSHOT || path.join(work, 'console.png');

// A bank of two layers on one 320x180 screen: the four-quadrant clip over
// the whole screen (looping) and a yellow still in its top-right corner.
const show = [
  { op: 'openScreen', id: 1, width: 320, height: 180, offscreen: true },
  { op: 'creatnewlayer', args: [{ bankId: 1, layerId: 1, path: `${media}/quadrants.mp4`, groupID: 1, type: 'video', timeLenMsec: 4000, isSetPr: false }] },
  { op: 'setLayerMediaType', args: [{ bank: 1, layer: 1 }, 'video'] },
  { op: 'addRenderer', args: [renderer(1, 0, 0, 320, 180)] },
  { op: 'setRepeat', args: [{ bank: 1, layer: 1 }, -1] },
  { op: 'creatnewlayer', args: [{ bankId: 1, layerId: 2, path: `${media}/still-a.png`, groupID: 1, type: 'picture', timeLenMsec: 20000, isSetPr: false }] },
  { op: 'setLayerMediaType', args: [{ bank: 1, layer: 2 }, 'picture'] },
  { op: 'addRenderer', args: [renderer(2, 240, 0, 80, 45)] },
];

function renderer(layerId, x, y, w, h) {
  return { bankId: 1, layerId, screenId: 1, screenType: 0, clientGuid: '', frameX: 0, frameY: 0, rendererX: x, rendererY: y,
    crossWidth: w, crossHeight: h, originalWidth: 320, originalHeight: 180, actualWidth: w, actualHeight: h,
    layerRotation: 0, isScal: false, isRotation: false, isFill: false, relativeX: 0, relativeY: 0 };
}

const step = (what) => console.log(`console.browser: ${what}`);

async function rowState(page, key, states, timeout = 15000) {
  try {
    await page.waitForFunction((k, s) => {
      const r = document.querySelector(`tr.layer[data-key="${k}"]`);
      return r && s.includes(r.dataset.state);
    }, { timeout, polling: 50 }, key, states);
  } catch (e) {
    const now = await page.$eval(`tr.layer[data-key="${key}"]`, (r) => r.dataset.state).catch(() => 'no row');
    throw new Error(`layer ${key}: state ${now}, expected one of ${states.join(', ')}`);
  }
}

const position = (page, key) => page.$eval(`tr.layer[data-key="${key}"]`, (r) => Number(r.dataset.position));

/// Mean colour of a picture (an <img> of the page, or a data: URL).
function meanColour(page, source) {
  return page.evaluate(async (src) => {
    let img = src.startsWith('data:') ? new Image() : document.querySelector(src);
    if (src.startsWith('data:')) { img.src = src; await img.decode(); }
    const c = document.createElement('canvas');
    c.width = img.naturalWidth;
    c.height = img.naturalHeight;
    const g = c.getContext('2d');
    g.drawImage(img, 0, 0);
    const d = g.getImageData(0, 0, c.width, c.height).data;
    const sum = [0, 0, 0];
    let spread = 0;
    for (let i = 0; i < d.length; i += 4) {
      sum[0] += d[i]; sum[1] += d[i + 1]; sum[2] += d[i + 2];
      spread = Math.max(spread, Math.abs(d[i] - d[0]) + Math.abs(d[i + 1] - d[1]) + Math.abs(d[i + 2] - d[2]));
    }
    const n = d.length / 4;
    return { mean: sum.map((s) => s / n), spread, width: c.width, height: c.height };
  }, source);
}

/// Types steps into the page's step box and waits for their replies.
async function typeStep(page, text, expect, timeout = 10000) {
  await page.$eval('#step-input', (t) => { t.value = ''; });
  await page.type('#step-input', text);
  await page.click('#step-send');
  await page.waitForFunction((want) => document.querySelector('#step-reply').textContent.includes(want),
    { timeout, polling: 50 }, expect);
  return page.$eval('#step-reply', (p) => p.textContent);
}

/// A page of another site (another port) that tries to open the console's
/// WebSocket: the browser sends its own Origin, which the console refuses.
async function foreignOriginOpens(browser, consolePort) {
  const server = http.createServer((req, res) => {
    res.writeHead(200, { 'Content-Type': 'text/html' });
    res.end(`<!doctype html><script>
      window.result = new Promise((resolve) => {
        const ws = new WebSocket('ws://127.0.0.1:${consolePort}/ws');
        ws.onopen = () => resolve('open');
        ws.onerror = () => resolve('refused');
        ws.onclose = () => resolve('refused');
      });</script>`);
  });
  await new Promise((r) => server.listen(0, '127.0.0.1', r));
  const page = await browser.newPage();
  try {
    await page.goto(`http://127.0.0.1:${server.address().port}/`);
    return await page.evaluate(() => window.result);
  } finally {
    await page.close();
    server.close();
  }
}

async function main() {
  const showPath = path.join(work, 'console.show');
  fs.writeFileSync(showPath, show.map((s) => JSON.stringify(s)).join('\n') + '\n');
  const out = path.join(work, 'out');
  fs.mkdirSync(out, { recursive: true });
  const { runner, url, port } = await startConsole(binary, ['--keep-running', '--out', out, showPath], work);
  step(`runner serves ${url}`);
  let browser;
  try {
    browser = await puppeteer.launch({
      executablePath: chromium,
      headless: true,
      args: ['--no-sandbox', '--disable-dev-shm-usage', '--no-first-run', '--disable-gpu'],
    });
    const page = await browser.newPage();
    await page.setViewport({ width: 1400, height: 960 });
    const pageErrors = [];
    page.on('pageerror', (e) => pageErrors.push(String(e)));
    await page.goto(url, { waitUntil: 'domcontentloaded' });

    // The rows appear, with the states of freshly made layers.
    await rowState(page, '1/1', ['loaded']);
    await rowState(page, '1/2', ['loaded']);
    step('rows of bank 1 appear, both layers loaded');
    const cells = await page.$$eval('tr.layer', (rows) => rows.map((r) => r.querySelector('.type').textContent + ' ' + r.querySelector('.file').textContent));
    assert.deepEqual(cells, ['video quadrants.mp4', 'picture still-a.png']);

    // Ready all: the bank is prepared (sPlayReady), both rows ready.
    await page.click('tr.bank[data-bank="1"] button[data-action="readyAll"]');
    await runner.next((l) => l.event === 'sPlayReady' && l.bankId === 1, 15000, 'sPlayReady of bank 1');
    await rowState(page, '1/1', ['ready']);
    await rowState(page, '1/2', ['ready']);
    step('ready all: both ready');

    // Play all: both play, and their positions rise in the page.
    await page.click('tr.bank[data-bank="1"] button[data-action="playAll"]');
    await rowState(page, '1/1', ['playing']);
    await rowState(page, '1/2', ['playing']);
    const before = [await position(page, '1/1'), await position(page, '1/2')];
    await page.waitForFunction((b) => {
      const p = (k) => Number(document.querySelector(`tr.layer[data-key="${k}"]`).dataset.position);
      return p('1/1') > b[0] + 300 && p('1/2') > b[1] + 300;
    }, { timeout: 10000, polling: 50 }, before);
    step(`play all: positions rise (${before} -> ${[await position(page, '1/1'), await position(page, '1/2')]})`);

    // Pause the clip, then click its progress bar at three quarters: it
    // seeks there (4 s clip: 3 s).
    await page.click('tr.layer[data-key="1/1"] button[data-action="pause"]');
    await rowState(page, '1/1', ['paused']);
    const bar = await page.$('tr.layer[data-key="1/1"] .progress');
    const box = await bar.boundingBox();
    await page.mouse.click(box.x + box.width * 0.75, box.y + box.height / 2);
    await page.waitForFunction(() => {
      const p = Number(document.querySelector('tr.layer[data-key="1/1"]').dataset.position);
      return Math.abs(p - 3000) <= 150;
    }, { timeout: 10000, polling: 50 });
    step(`progress bar click: seek to ${await position(page, '1/1')} ms`);
    await page.click('tr.layer[data-key="1/1"] button[data-action="play"]');
    await rowState(page, '1/1', ['playing']);

    // The screen's thumbnail: not blank, and the colours of the screen's
    // snapshot.
    await page.waitForFunction(() => {
      const img = document.querySelector('img.thumb[data-screen="1"]');
      return img && img.complete && img.naturalWidth > 0;
    }, { timeout: 10000, polling: 50 });
    const thumb = await meanColour(page, 'img.thumb[data-screen="1"]');
    assert.equal(thumb.width, 320);
    assert.equal(thumb.height, 180);
    assert.ok(thumb.spread > 200, `the thumbnail is blank (spread ${thumb.spread})`);
    // A raw step typed into the step box, with its reply: the snapshot.
    const reply = await typeStep(page, '{"op": "snapshot", "screen": 1, "path": "console-shot.png", "overwrite": true}', '"ok":"snapshot"');
    step(`step box: ${reply.trim()}`);
    const png = fs.readFileSync(path.join(out, 'console-shot.png'));
    const snap = await meanColour(page, `data:image/png;base64,${png.toString('base64')}`);
    const worst = Math.max(...thumb.mean.map((m, i) => Math.abs(m - snap.mean[i])));
    assert.ok(worst <= 10, `thumbnail mean ${thumb.mean.map(Math.round)} vs snapshot mean ${snap.mean.map(Math.round)}`);
    step(`thumbnail mean ${thumb.mean.map(Math.round)} matches the snapshot's ${snap.mean.map(Math.round)} (within ${worst.toFixed(1)})`);

    // Another raw step and its reply; and the event log shows events.
    const logged = await typeStep(page, '{"op": "log", "text": "hello from the console"}', '"ok":"log"');
    assert.match(logged, /"line":\d+/);
    await runner.next(() => runner.stderr.includes('hello from the console'), 5000).catch(() => {});
    assert.ok(runner.stderr.includes('hello from the console'), 'the log step did not reach the runner');
    const logCount = await page.$$eval('#log li:not(.hidden)', (items) => items.length);
    assert.ok(logCount > 0, 'the event log is empty');

    // A page of another origin cannot open the console's WebSocket.
    assert.equal(await foreignOriginOpens(browser, port), 'refused');
    assert.match(runner.stderr, /refused GET \/ws .*another origin/);
    step('a foreign page cannot open the WebSocket');

    // Let a few thumbnails and positions go by for the screenshot.
    await new Promise((r) => setTimeout(r, 600));
    await page.screenshot({ path: screenshot, fullPage: true });
    step(`screenshot: ${screenshot}`);
    assert.deepEqual(pageErrors, [], 'the page threw');

    // The page ends the run.
    await typeStep(page, '{"op": "quit"}', '"ok":"quit"');
    const exit = await Promise.race([runner.exited, new Promise((r) => setTimeout(() => r({ code: 'timeout' }), 20000))]);
    assert.equal(exit.code, 0, `runner exit ${JSON.stringify(exit)}`);
    step('quit from the page: the runner ended with 0');
  } finally {
    if (browser) await browser.close();
    await runner.stop();
  }
}

main().then(() => {
  console.log('console.browser: PASSED');
  process.exit(0);
}, (e) => {
  console.error(`console.browser: FAILED: ${e.stack || e}`);
  process.exit(1);
});
