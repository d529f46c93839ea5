#!/usr/bin/env node
// Benchmarks of the operator console (kelmor-show --http), with the page in
// headless Chromium (puppeteer-core from tests/console: "npm ci" there).
//
//   node bench/console_bench.js latency     event latency, signal to page
//   node bench/console_bench.js thumbnails  runner CPU per thumbnail frame
//   node bench/console_bench.js memory [M]  runner memory with a page open
//                                           for M minutes (default 10)
//   node bench/console_bench.js all [M]
//
// Environment: KELMOR_SHOW_BINARY (default build/default/host/kelmor-show),
// KELMOR_BENCH_MEDIA (default build/demo-media, made if missing). Run under
// xvfb-run -a where there is no display.
//
// The show: two offscreen 640x360 screens, a bank of two looping clips at
// 25 fps (one per screen) and two stills on their timers, all playing, every
// position printed (about 40 event lines a second).
//
// Figures are ratios against a reference measured in the same run:
// - latency: the page's receipt of each event line (performance.timeOrigin
//   + now) minus the moment the runner emitted it: its "t" (ms since the
//   runner started, taken when the signal came) put on this machine's clock
//   by the smallest delay any line took through stdout; against the same
//   for a live-control TCP client connected meanwhile. 3 runs of 20 s,
//   medians of p50 and p99. "t" is whole milliseconds: both figures carry
//   up to 1 ms of that rounding.
// - thumbnails: the runner's CPU (utime + stime) with a page that takes
//   thumbnails, minus with a page that asked for none (?thumbnails=0),
//   divided by the thumbnails the page got (and, exactly, the CPU of the
//   encoding thread "console-jpeg" per thumbnail); against the runner's CPU
//   per second without thumbnails. Phases of 15 s, interleaved, 5 of each.
// - memory: VmRSS of a runner with a page open and of a reference runner
//   without one, started together on the same show; growth from minute 1 to
//   the end.
'use strict';

const fs = require('node:fs');
const net = require('node:net');
const os = require('node:os');
const path = require('node:path');
const readline = require('node:readline');
const { createRequire } = require('node:module');

const repo = path.resolve(__dirname, '..');
const fromConsoleTests = createRequire(path.join(repo, 'tests', 'console', 'package.json'));
const puppeteer = fromConsoleTests('puppeteer-core');
const { findChromium, makeMedia, startConsole } = require(path.join(repo, 'tests', 'console', 'harness.js'));

const binary = process.env.KELMOR_SHOW_BINARY || path.join(repo, 'build', 'default', 'host', 'kelmor-show');
const media = makeMedia(process.env.KELMOR_BENCH_MEDIA || path.join(repo, 'build', 'demo-media'));
const work = fs.mkdtempSync(path.join(os.tmpdir(), 'kelmor-console-bench-'));
const clockTicks = 100; // sysconf(_SC_CLK_TCK) on Linux

const sleep = (ms) => new Promise((r) => setTimeout(r, ms));
const load = () => os.loadavg().map((l) => l.toFixed(2)).join(' ');
const median = (xs) => { const s = [...xs].sort((a, b) => a - b); return s.length ? s[Math.floor(s.length / 2)] : NaN; };
const percentile = (xs, p) => { const s = [...xs].sort((a, b) => a - b); return s.length ? s[Math.min(s.length - 1, Math.floor(s.length * p))] : NaN; };

function renderer(bank, layer, screen, x, y, w, h, ow, oh) {
  return { bankId: bank, layerId: layer, screenId: screen, screenType: 0, clientGuid: '', frameX: 0, frameY: 0, rendererX: x, rendererY: y,
    crossWidth: w, crossHeight: h, originalWidth: ow, originalHeight: oh, actualWidth: w, actualHeight: h,
    layerRotation: 0, isScal: false, isRotation: false, isFill: false, relativeX: 0, relativeY: 0 };
}

function writeShow() {
  const ref = (l) => ({ bank: 1, layer: l });
  const layer = (l, file, type, ms) => [
    { op: 'creatnewlayer', args: [{ bankId: 1, layerId: l, path: `${media}/${file}`, groupID: 1, type, timeLenMsec: ms, isSetPr: false }] },
    { op: 'setLayerMediaType', args: [ref(l), type] },
    { op: 'setRepeat', args: [ref(l), -1] }];
  const steps = [
    { op: 'openScreen', id: 1, width: 640, height: 360, offscreen: true },
    { op: 'openScreen', id: 2, width: 640, height: 360, offscreen: true },
    ...layer(1, 'clip.mp4', 'video', 4000), { op: 'addRenderer', args: [renderer(1, 1, 1, 0, 0, 640, 360, 640, 360)] },
    ...layer(2, 'quadrants.mp4', 'video', 4000), { op: 'addRenderer', args: [renderer(1, 2, 2, 0, 0, 640, 360, 640, 360)] },
    ...layer(3, 'still-a.png', 'picture', 3000), { op: 'addRenderer', args: [renderer(1, 3, 1, 420, 20, 200, 112, 320, 180)] },
    ...layer(4, 'still-b.png', 'picture', 5000), { op: 'addRenderer', args: [renderer(1, 4, 2, 20, 228, 200, 112, 320, 180)] },
    { op: 'setCurPlayerCount', args: [1] },
    ...[1, 2, 3, 4].map((l) => ({ op: 'playReady', args: [ref(l), 0, true] })),
    { op: 'waitFor', signal: 'sPlayReady', args: { bankId: 1 }, timeoutMs: 20000 },
    ...[1, 2, 3, 4].map((l) => ({ op: 'play', args: [ref(l)] })),
  ];
  const file = path.join(work, 'bench.show');
  fs.writeFileSync(file, steps.map((s) => JSON.stringify(s)).join('\n') + '\n');
  return { file, lastLine: steps.length };
}

async function startRunner(show, more = []) {
  const started = await startConsole(binary, ['--keep-running', '--out', work, ...more, show.file], work);
  await started.runner.next((l) => l.ok === 'play' && l.line === show.lastLine, 30000, 'the bank playing');
  return started;
}

function cpuSeconds(pid) {
  const fields = fs.readFileSync(`/proc/${pid}/stat`, 'utf8').split(') ')[1].split(' ');
  return (Number(fields[11]) + Number(fields[12])) / clockTicks; // utime, stime
}

/// CPU seconds of the runner's thread named `name` (0 when there is none).
function threadCpuSeconds(pid, name) {
  let total = 0;
  for (const tid of fs.readdirSync(`/proc/${pid}/task`)) {
    try {
      if (fs.readFileSync(`/proc/${pid}/task/${tid}/comm`, 'utf8').trim() !== name) continue;
      // Nanoseconds on a CPU (the scheduler's own count, finer than ticks).
      total += Number(fs.readFileSync(`/proc/${pid}/task/${tid}/schedstat`, 'utf8').split(' ')[0]) / 1e9;
    } catch { /* the thread ended meanwhile */ }
  }
  return total;
}

function rssKiB(pid) {
  const m = fs.readFileSync(`/proc/${pid}/status`, 'utf8').match(/VmRSS:\s+(\d+)/);
  return m ? Number(m[1]) : NaN;
}

async function openPage(browser, url) {
  const page = await browser.newPage();
  await page.setViewport({ width: 1400, height: 960 });
  await page.goto(url, { waitUntil: 'domcontentloaded' });
  await page.waitForFunction(() => window.kelmorConsole && window.kelmorConsole.stats.states > 0, { timeout: 20000 });
  return page;
}

/// A live-control client that stamps every line it gets.
function tcpClient(port) {
  const stamps = new Map();
  const socket = net.connect(port, '127.0.0.1');
  readline.createInterface({ input: socket }).on('line', (text) => {
    if (!stamps.has(text)) stamps.set(text, performance.timeOrigin + performance.now());
  });
  return { stamps, close: () => socket.destroy() };
}

async function latency(browser, show) {
  console.log('\n== event latency, signal (stdout) to page; reference: live control over TCP');
  const { runner, url } = await startRunner(show, ['--listen', '0']);
  const listening = await runner.next((l) => l.host === 'listening', 10000, 'listening line');
  const page = await openPage(browser, `${url}?thumbnails=0`);
  const runs = [];
  for (let run = 0; run < 3; ++run) {
    const tcp = tcpClient(listening.port);
    await sleep(1000);
    const from = performance.timeOrigin + performance.now();
    await page.evaluate(() => { window.kelmorConsole.stats.received.length = 0; });
    await sleep(20000);
    const received = await page.evaluate(() => window.kelmorConsole.stats.received.slice());
    tcp.close();
    // When each line was emitted: the runner's clock ("t", whole ms since
    // its start) put on this machine's clock by the smallest delay any line
    // took through stdout (this process's own stamping delays then do not
    // count).
    let offset = Infinity;
    for (const l of runner.lines) if (typeof l.t === 'number') offset = Math.min(offset, l.__at - l.t);
    const emitted = (text) => {
      try { return offset + JSON.parse(text).t; } catch { return NaN; }
    };
    const toPage = [], toTcp = [];
    for (const [, at, text] of received) toPage.push(at - emitted(text));
    for (const [text, at] of tcp.stamps) if (text.includes('"event"')) toTcp.push(at - emitted(text));
    const r = { events: toPage.length, p50: percentile(toPage, 0.5), p99: percentile(toPage, 0.99),
      tcp50: percentile(toTcp, 0.5), tcp99: percentile(toTcp, 0.99), min: Math.min(...toPage) };
    runs.push(r);
    console.log(`run ${run + 1}: ${r.events} events; page p50 ${r.p50.toFixed(2)} ms p99 ${r.p99.toFixed(2)} ms `
      + `(min ${r.min.toFixed(2)}); TCP p50 ${r.tcp50.toFixed(2)} ms p99 ${r.tcp99.toFixed(2)} ms; load ${load()}`);
  }
  const p50 = median(runs.map((r) => r.p50)), p99 = median(runs.map((r) => r.p99));
  const t50 = median(runs.map((r) => r.tcp50)), t99 = median(runs.map((r) => r.tcp99));
  console.log(`RESULT latency: page p50 ${p50.toFixed(2)} ms, p99 ${p99.toFixed(2)} ms; `
    + `TCP p50 ${t50.toFixed(2)} ms, p99 ${t99.toFixed(2)} ms; ratio page/TCP p50 ${(p50 / t50).toFixed(2)}, p99 ${(p99 / t99).toFixed(2)}`);
  await page.close();
  await runner.stop();
}

async function thumbnails(browser, show) {
  console.log('\n== thumbnail refresh cost: runner CPU with thumbnails minus without, per thumbnail');
  const { runner, url } = await startRunner(show);
  const pid = runner.proc.pid;
  const phase = async (withThumbnails) => {
    const page = await openPage(browser, withThumbnails ? url : `${url}?thumbnails=0`);
    await sleep(2000);
    const t0 = await page.evaluate(() => window.kelmorConsole.stats.thumbnails);
    const c0 = cpuSeconds(pid), j0 = threadCpuSeconds(pid, 'console-jpeg');
    const s0 = performance.now();
    await sleep(15000);
    const c1 = cpuSeconds(pid), j1 = threadCpuSeconds(pid, 'console-jpeg');
    const s1 = performance.now();
    const t1 = await page.evaluate(() => window.kelmorConsole.stats.thumbnails);
    await page.close();
    const seconds = (s1 - s0) / 1000;
    return { cpuPerSecond: (c1 - c0) / seconds, jpeg: j1 - j0, thumbnails: t1 - t0, thumbnailsPerSecond: (t1 - t0) / seconds };
  };
  const costs = [], encodes = [], refs = [];
  for (let run = 0; run < 5; ++run) {
    const on = await phase(true);
    const off = await phase(false);
    const cost = (on.cpuPerSecond - off.cpuPerSecond) / on.thumbnailsPerSecond;
    const encode = on.jpeg / on.thumbnails;
    costs.push(cost);
    encodes.push(encode);
    refs.push(off.cpuPerSecond);
    console.log(`run ${run + 1}: with ${(on.cpuPerSecond * 100).toFixed(1)} % CPU, ${on.thumbnailsPerSecond.toFixed(2)} thumbnails/s; `
      + `without ${(off.cpuPerSecond * 100).toFixed(1)} % CPU; ${(cost * 1000).toFixed(2)} ms CPU per thumbnail in all, `
      + `${(encode * 1000).toFixed(2)} ms of it encoding; load ${load()}`);
  }
  const cost = median(costs), encode = median(encodes), ref = median(refs);
  console.log(`RESULT thumbnails: ${(cost * 1000).toFixed(2)} ms CPU per thumbnail frame in all (320x180 read-back, `
    + `JPEG, sending; the difference of two noisy totals), ${(encode * 1000).toFixed(2)} ms of it JPEG encoding `
    + `(its own thread, measured exactly); runner without thumbnails ${(ref * 100).toFixed(1)} % CPU: `
    + `8 thumbnails/s add ${((cost * 8) / ref * 100).toFixed(1)} % to it`);
  await runner.stop();
}

async function memory(browser, show, minutes) {
  console.log(`\n== memory over ${minutes} minutes with a page open; reference: the same show without a page`);
  const withPage = await startRunner(show);
  const reference = await startRunner(show);
  const page = await openPage(browser, withPage.url);
  const samples = [];
  const start = performance.now();
  for (let minute = 0; ; minute += 0.5) {
    const elapsed = (performance.now() - start) / 60000;
    samples.push({ minute: elapsed, page: rssKiB(withPage.runner.proc.pid), reference: rssKiB(reference.runner.proc.pid) });
    const s = samples[samples.length - 1];
    console.log(`${elapsed.toFixed(1)} min: with page ${s.page} KiB, reference ${s.reference} KiB; load ${load()}`);
    if (elapsed >= minutes) break;
    await sleep(30000);
  }
  const stats = await page.evaluate(() => ({ ...window.kelmorConsole.stats, received: undefined }));
  const first = samples.find((s) => s.minute >= 1) || samples[0];
  const last = samples[samples.length - 1];
  const grewPage = last.page - first.page, grewRef = last.reference - first.reference;
  console.log(`page received ${stats.events} events, ${stats.thumbnails} thumbnails, ${stats.states} states`);
  console.log(`RESULT memory: from minute ${first.minute.toFixed(1)} to ${last.minute.toFixed(1)}: with page +${grewPage} KiB, `
    + `reference +${grewRef} KiB; difference ${grewPage - grewRef} KiB`);
  await page.close();
  await withPage.runner.stop();
  await reference.runner.stop();
}

async function main() {
  const what = process.argv[2] || 'all';
  const minutes = Number(process.argv[3] || 10);
  const chromium = findChromium();
  if (!chromium) throw new Error('Chromium is not installed');
  console.log(`console_bench: ${binary}; ${os.cpus().length} CPUs; load ${load()}`);
  const show = writeShow();
  const browser = await puppeteer.launch({ executablePath: chromium, headless: true,
    args: ['--no-sandbox', '--disable-dev-shm-usage', '--no-first-run', '--disable-gpu'] });
  try {
    if (what === 'latency' || what === 'all') await latency(browser, show);
    if (what === 'thumbnails' || what === 'all') await thumbnails(browser, show);
    if (what === 'memory' || what === 'all') await memory(browser, show, minutes);
  } finally {
    await browser.close();
  }
}

main().then(() => process.exit(0), (e) => { console.error(e.stack || e); process.exit(1); });
