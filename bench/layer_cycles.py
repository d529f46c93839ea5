#!/usr/bin/env python3
"""Memory, threads and descriptors over many layer lifecycles, and a long soak.

Drives a real kelmor-show (libmpv engine, an offscreen output screen) over
its standard input and samples /proc/<pid> of the runner as it goes.

  cycles: N x (create, route to a screen, ready, play, change content to a
          still, remove render objects, delete). Reports RSS growth per 1000
          cycles after a warm-up (least-squares slope of the samples), and
          threads and open descriptors at the end against the baseline taken
          before the first layer.
  soak:   4 looping video layers for SECONDS; every 20 s each is stopped and
          restarted and one of them changes content (video -> still -> video).
          Reports RSS growth per hour after a warm-up, and the largest gap
          between two position events of a playing layer.

Run under an X server (GL):
  xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" bench/layer_cycles.py cycles --bin build/default/host/kelmor-show
Media come from examples/make-demo-media.sh (made when missing).
"""
import argparse, json, os, subprocess, sys, tempfile, threading, time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def proc_sample(pid):
    rss = threads = 0
    with open(f"/proc/{pid}/status") as f:
        for line in f:
            if line.startswith("VmRSS:"):
                rss = int(line.split()[1])  # kB
            elif line.startswith("Threads:"):
                threads = int(line.split()[1])
    fds = len(os.listdir(f"/proc/{pid}/fd"))
    return rss, threads, fds


def slope(points):
    """Least-squares slope of (x, y) points."""
    n = len(points)
    if n < 2:
        return 0.0
    mx = sum(p[0] for p in points) / n
    my = sum(p[1] for p in points) / n
    den = sum((p[0] - mx) ** 2 for p in points)
    return sum((p[0] - mx) * (p[1] - my) for p in points) / den if den else 0.0


class Runner:
    """kelmor-show reading steps from a pipe; replies and events parsed."""

    def __init__(self, binary, out_dir, media, extra=()):
        cmd = [binary, "--offscreen", "--ao", "null", "--no-progress", "--out", out_dir,
               "--set", f"media={media}", *extra, "-"]
        self.proc = subprocess.Popen(cmd, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                     stderr=subprocess.DEVNULL, bufsize=0)
        self.line = 0
        self.replies = {}
        self.errors = []
        self.positions = {}   # layer -> last position event time (s)
        self.max_gap = {}     # layer -> largest gap between position events (ms)
        self.playing = set()
        self.lock = threading.Condition()
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for raw in self.proc.stdout:
            try:
                msg = json.loads(raw)
            except ValueError:
                continue
            now = time.monotonic()
            with self.lock:
                if "line" in msg and ("ok" in msg or "error" in msg):
                    self.replies[msg["line"]] = msg
                    if "error" in msg:
                        self.errors.append(msg)
                    self.lock.notify_all()
                elif msg.get("event") == "sPositionChanged":
                    layer = (msg["bankId"], msg["layerId"])
                    last = self.positions.get(layer)
                    if last is not None and layer in self.playing:
                        gap = (now - last) * 1000
                        self.max_gap[layer] = max(self.max_gap.get(layer, 0), gap)
                    self.positions[layer] = now
        with self.lock:
            self.lock.notify_all()

    def send(self, *steps):
        """Sends steps and waits for the last one's reply."""
        data = b"".join(json.dumps(s).encode() + b"\n" for s in steps)
        self.line += len(steps)
        last = self.line
        self.proc.stdin.write(data)
        with self.lock:
            while last not in self.replies:
                if self.proc.poll() is not None:
                    raise RuntimeError(f"runner ended (exit {self.proc.returncode})")
                self.lock.wait(1)
            for n in range(last - len(steps) + 1, last + 1):
                self.replies.pop(n, None)

    def end(self):
        self.proc.stdin.close()
        return self.proc.wait(60)


def op(name, *args):
    return {"op": name, "args": list(args)}


def route(bank, layer, x, y, w, h):
    return op("addRenderer", {"bankId": bank, "layerId": layer, "screenId": 1, "screenType": 0,
                              "clientGuid": "", "frameX": 0, "frameY": 0, "rendererX": x,
                              "rendererY": y, "crossWidth": w, "crossHeight": h,
                              "originalWidth": 640, "originalHeight": 360, "actualWidth": w,
                              "actualHeight": h, "layerRotation": 0, "isScal": False,
                              "isRotation": False, "isFill": False, "relativeX": 0, "relativeY": 0})


def create(bank, layer, path, kind="video", ms=4000):
    return [op("creatnewlayer", {"bankId": bank, "layerId": layer, "path": path, "groupID": 1,
                                 "type": kind, "timeLenMsec": ms, "isSetPr": False}),
            op("setLayerMediaType", {"bank": bank, "layer": layer}, kind)]


def run_cycles(args, media):
    out = tempfile.mkdtemp(prefix="kelmor-cycles-")
    r = Runner(args.bin, out, media, args.runner_arg)
    r.send({"op": "openScreen", "id": 1, "width": 320, "height": 180})
    time.sleep(1)
    before = proc_sample(r.proc.pid)
    samples = []
    base = None
    t0 = time.monotonic()
    for i in range(1, args.cycles + 1):
        ref = {"bank": 1, "layer": 1}
        r.send(*create(1, 1, "${media}/clip.mp4"),
               route(1, 1, 0, 0, 160, 90),
               op("setCurPlayerCount", 1),
               op("playReady", ref, 0, True),
               {"op": "waitFor", "signal": "sPlayReady", "args": {"bankId": 1}, "timeoutMs": 10000},
               op("play", ref),
               op("changeLayerContent", 1, 1, {"type": "picture", "videoPath": "${media}/still-a.png",
                                                "timeLenMsec": 1000}),
               op("play", ref),
               op("delLayerAllRenderer", 1, 1, True),
               op("deleteplayerByID", {"bankId": 1, "layerId": 1}))
        if i == 1:
            # Threads made once on first use (the core reaper, the GL
            # driver's render threads) belong to the baseline.
            time.sleep(2)
            base = proc_sample(r.proc.pid)
        if i % args.sample_every == 0:
            rss, threads, fds = proc_sample(r.proc.pid)
            samples.append((i, rss, threads, fds))
            if args.verbose:
                print(f"  cycle {i}: rss {rss / 1024:.1f} MB, threads {threads}, fds {fds}", file=sys.stderr)
    elapsed = time.monotonic() - t0
    time.sleep(2)  # players released, libmpv cores reaped
    end = proc_sample(r.proc.pid)
    errors = len(r.errors)
    code = r.end()
    warm = [(c, rss) for c, rss, _, _ in samples if c >= args.warmup]
    return {
        "cycles": args.cycles,
        "seconds": round(elapsed, 1),
        "rss_before_first_layer_mb": round(before[0] / 1024, 1),
        "threads_before_first_layer": before[1], "fds_before_first_layer": before[2],
        "rss_base_mb": round(base[0] / 1024, 1),
        "rss_at_warmup_mb": round(warm[0][1] / 1024, 1) if warm else None,
        "rss_end_mb": round(end[0] / 1024, 1),
        "rss_mb_per_1000_after_warmup": round(slope(warm) * 1000 / 1024, 3),
        "threads_base": base[1], "threads_end": end[1],
        "fds_base": base[2], "fds_end": end[2],
        "error_replies": errors, "exit": code,
    }


def run_soak(args, media):
    out = tempfile.mkdtemp(prefix="kelmor-soak-")
    r = Runner(args.bin, out, media, args.runner_arg)
    r.send({"op": "openScreen", "id": 1, "width": 320, "height": 180})
    layers = [1, 2, 3, 4]
    steps = []
    for n in layers:
        steps += create(1, n, "${media}/clip.mp4")
        steps += [route(1, n, (n - 1) % 2 * 160, (n - 1) // 2 * 90, 160, 90),
                  op("setRepeat", {"bank": 1, "layer": n}, -1)]
    steps += [op("play", {"bank": 1, "layer": n}) for n in layers]
    r.send(*steps)
    with r.lock:
        r.playing = {(1, n) for n in layers}
    start = time.monotonic()
    samples = []
    round_no = 0
    while time.monotonic() - start < args.seconds:
        time.sleep(min(20, max(0, args.seconds - (time.monotonic() - start))))
        round_no += 1
        changed = layers[round_no % len(layers)]
        with r.lock:
            r.playing.clear()  # a stop/restart is not a gap
        seq = []
        for n in layers:
            ref = {"bank": 1, "layer": n}
            seq += [op("stop", ref)]
            if n == changed:
                path, kind = ("${media}/still-a.png", "picture") if round_no % 2 else ("${media}/clip.mp4", "video")
                seq += [op("changeLayerContent", n, 1, {"type": kind, "videoPath": path, "timeLenMsec": 4000}),
                        op("setRepeat", ref, -1)]
            seq += [op("play", ref)]
        r.send(*seq)
        with r.lock:
            r.positions.clear()
            r.playing = {(1, n) for n in layers}
        rss, threads, fds = proc_sample(r.proc.pid)
        samples.append((time.monotonic() - start, rss, threads, fds))
        if args.verbose:
            print(f"  {samples[-1][0]:.0f} s: rss {rss / 1024:.1f} MB, threads {threads}, fds {fds}", file=sys.stderr)
    warm = [(t, rss) for t, rss, _, _ in samples if t >= args.warmup_seconds]
    max_gap = max(r.max_gap.values()) if r.max_gap else None
    errors = len(r.errors)
    code = r.end()
    return {
        "seconds": args.seconds,
        "rss_first_mb": round(samples[0][1] / 1024, 1) if samples else None,
        "rss_end_mb": round(samples[-1][1] / 1024, 1) if samples else None,
        "rss_mb_per_hour_after_warmup": round(slope(warm) * 3600 / 1024, 2) if len(warm) > 1 else None,
        "max_position_gap_ms": round(max_gap, 1) if max_gap else None,
        "error_replies": errors, "exit": code,
    }


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("mode", choices=["cycles", "soak"])
    ap.add_argument("--bin", default=os.path.join(ROOT, "build/default/host/kelmor-show"))
    ap.add_argument("--media", default=os.path.join(ROOT, "build/demo-media"))
    ap.add_argument("--cycles", type=int, default=10000)
    ap.add_argument("--warmup", type=int, default=500, help="cycles before the RSS slope is taken")
    ap.add_argument("--sample-every", type=int, default=100)
    ap.add_argument("--seconds", type=int, default=7200, help="soak length")
    ap.add_argument("--warmup-seconds", type=int, default=600)
    ap.add_argument("--reps", type=int, default=1)
    ap.add_argument("--runner-arg", action="append", default=[],
                    help="an option passed to kelmor-show (e.g. --runner-arg=--render-thread)")
    ap.add_argument("-v", "--verbose", action="store_true")
    args = ap.parse_args()
    subprocess.run([os.path.join(ROOT, "examples/make-demo-media.sh"), args.media], check=True,
                   stdout=subprocess.DEVNULL)
    for rep in range(args.reps):
        result = run_cycles(args, args.media) if args.mode == "cycles" else run_soak(args, args.media)
        result["rep"] = rep + 1
        result["loadavg"] = os.getloadavg()[0]
        print(json.dumps(result), flush=True)


if __name__ == "__main__":
    main()
