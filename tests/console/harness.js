// Test harness of the console's browser tests: runs kelmor-show as a
// separate process with the console on a free port, reads its JSON lines,
// finds Chromium and makes the media.
'use strict';

const { spawn, execFileSync } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');
const readline = require('node:readline');

const repo = path.resolve(__dirname, '..', '..');

/// The Chromium to drive: $CHROME_PATH, else Debian's.
function findChromium() {
  const candidates = [process.env.CHROME_PATH, '/usr/bin/chromium', '/usr/bin/chromium-browser'].filter(Boolean);
  return candidates.find((p) => fs.existsSync(p)) || null;
}

/// The demonstration media (made with ffmpeg on first use) in `dir`.
function makeMedia(dir) {
  execFileSync('bash', [path.join(repo, 'examples', 'make-demo-media.sh'), dir], { stdio: ['ignore', 'ignore', 'inherit'] });
  return dir;
}

class Runner {
  constructor(binary, args, cwd, env = {}) {
    this.lines = [];
    this.waiters = [];
    this.stderr = '';
    this.proc = spawn(binary, args, { cwd, env: { ...process.env, ...env }, stdio: ['pipe', 'pipe', 'pipe'] });
    this.exited = new Promise((resolve) => this.proc.on('exit', (code, signal) => resolve({ code, signal })));
    readline.createInterface({ input: this.proc.stdout }).on('line', (text) => {
      let line;
      try { line = JSON.parse(text); } catch { return; }
      line.__text = text;
      line.__at = performance.timeOrigin + performance.now();
      this.lines.push(line);
      for (const w of [...this.waiters]) {
        if (w.match(line)) { this.waiters.splice(this.waiters.indexOf(w), 1); w.resolve(line); }
      }
    });
    this.proc.stderr.on('data', (d) => {
      this.stderr += d.toString();
      if (this.stderr.length > 1 << 20) this.stderr = this.stderr.slice(-(1 << 19));
    });
  }

  /// The first stdout line (seen or to come) for which `match` holds.
  next(match, timeoutMs = 20000, what = 'a line') {
    const seen = this.lines.find(match);
    if (seen) return Promise.resolve(seen);
    return new Promise((resolve, reject) => {
      const w = { match, resolve };
      this.waiters.push(w);
      setTimeout(() => {
        const i = this.waiters.indexOf(w);
        if (i >= 0) { this.waiters.splice(i, 1); reject(new Error(`no ${what} within ${timeoutMs} ms; stderr tail:\n${this.stderr.slice(-3000)}`)); }
      }, timeoutMs);
    });
  }

  async stop() {
    if (this.proc.exitCode === null && this.proc.signalCode === null) this.proc.kill('SIGTERM');
    const timer = setTimeout(() => this.proc.kill('SIGKILL'), 10000);
    const result = await this.exited;
    clearTimeout(timer);
    return result;
  }
}

/// Starts kelmor-show with the console on a free loopback port; resolves
/// with the runner and the URL its "console" host line names.
async function startConsole(binary, args, cwd, env) {
  const runner = new Runner(binary, ['--ao', 'null', '--no-progress', '--http', '0', ...args], cwd, env);
  const line = await runner.next((l) => l.host === 'console', 20000, 'console host line');
  return { runner, url: line.url, port: line.port };
}

module.exports = { Runner, findChromium, makeMedia, startConsole, repo };
