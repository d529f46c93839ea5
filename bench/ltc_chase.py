#!/usr/bin/env python3
"""LTC chase benchmark: how closely kelmor-show layers follow timecode.

Runs kelmor-show with LTC files made by kelmor-ltc-make (libltc's encoder)
read at real-time pace, a video layer chasing them, and measures from the
runner's own lines:

- chase error at 25 and at 30 fps: the layer's position minus the timecode
  minus "at", at every position event while the timecode runs (the timecode
  at an event's "t" comes from the runner's timecode lines: "tcMs" at their
  "t", running at normal speed in between); p50 and p99 of its size, steady
  (from 500 ms after each start or jump) and over everything;
- lock time after a jump: from the instant the LTC jumps to the first
  position event from which five in a row are within one frame (errors
  here are against the LTC's own time line: from the jump on, the jump's
  label from the instant the LTC jumped, which the runner's jump line
  tells; so the frames before the runner heard the jump count);
- the three-process spread: three runners read the same LTC file and chase
  the same clip; at every 20 ms of timecode the largest minus the smallest
  of their errors (each interpolated between its reports around that
  instant); p50, p99 and the largest.

Reference, measured in the same run and interleaved with the others: the
same clip playing on its own clock (no timecode), its position against the
runner's clock from its first position event on; its p99 is the jitter of
the position reports themselves, and chase figures are also given as ratios
to it.

Every figure is the median of --reps repetitions (default 3). The load
average is printed at the start and the end: on a loaded machine the
figures mean little.

Usage (an X server is needed for the screens' OpenGL):
  xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" bench/ltc_chase.py --build build/default
"""
import argparse
import json
import os
import statistics
import subprocess
import sys
import tempfile

AT = "01:00:01:00"


def label_ms(label, frame_ms):
    h, m, s, f = (int(x) for x in label.replace(";", ":").split(":"))
    return ((h * 60 + m) * 60 + s) * 1000.0 + f * frame_ms


def run(cmd, **kw):
    return subprocess.run(cmd, check=True, capture_output=True, text=True, **kw)


def make_clip(path, fps):
    if not os.path.exists(path):
        run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", f"testsrc2=size=320x180:rate={fps}",
             "-t", "40", "-c:v", "libx264", "-preset", "veryfast", "-pix_fmt", "yuv420p", "-g", str(fps), path])


def show_text(clip, seconds, chase=True):
    layer = {"bank": 1, "layer": 1}
    steps = [
        {"op": "openScreen", "id": 1, "width": 160, "height": 90},
        {"op": "creatnewlayer", "args": [{"bankId": 1, "layerId": 1, "path": clip, "groupID": 1, "type": "video",
                                          "timeLenMsec": 40000, "isSetPr": False}]},
        {"op": "setLayerMediaType", "args": [layer, "video"]},
        {"op": "addRenderer", "args": [{"bankId": 1, "layerId": 1, "screenId": 1, "screenType": 0, "clientGuid": "",
                                        "frameX": 0, "frameY": 0, "rendererX": 0, "rendererY": 0, "crossWidth": 160,
                                        "crossHeight": 90, "originalWidth": 320, "originalHeight": 180,
                                        "actualWidth": 160, "actualHeight": 90, "layerRotation": 0, "isScal": False,
                                        "isRotation": False, "isFill": False, "relativeX": 0, "relativeY": 0}]},
    ]
    steps.append({"op": "chase", "layer": layer, "at": AT} if chase else {"op": "play", "args": [layer]})
    steps += [{"op": "wait", "ms": int(seconds * 1000)}, {"op": "quit"}]
    return "\n".join(json.dumps(s) for s in steps) + "\n"


def start_runner(binary, work, name, show, ltc):
    own = os.path.join(work, name)
    os.makedirs(own, exist_ok=True)
    path = os.path.join(own, "show.jsonl")
    with open(path, "w") as f:
        f.write(show)
    args = [binary, "--ao", "null", "--no-progress", "--out", own]
    if ltc:
        args += ["--ltc-input", ltc]
    return subprocess.Popen(args + [path], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)


def lines_of(proc):
    out, _ = proc.communicate(timeout=120)
    return [json.loads(l) for l in out.splitlines() if l.startswith("{")]


def samples(lines, at_ms):
    """(t, media ms, error) at each position event while the timecode runs."""
    ref, out = None, []
    for o in lines:
        if o.get("host") == "timecode":
            ref = (o["t"], o["tcMs"]) if o["running"] else None
        elif o.get("event") == "sPositionChanged" and ref:
            media = ref[1] + (o["t"] - ref[0]) - at_ms
            if media >= 0:
                out.append((o["t"], media, o["position"] - media))
    return out


def pct(values, p):
    if not values:
        return float("nan")
    v = sorted(values)
    return v[min(len(v) - 1, int(p / 100.0 * len(v)))]


def chase_run(binary, work, name, clip, ltc, frame_ms, jump_label):
    """The chase error against the LTC's own time line: the timecode runs
    from the start line's reckoning, and from the jump on from the jump's
    label at the instant the LTC jumped (the jump line's tcMs tells when
    that was), so the frames before the runner heard the jump count too."""
    lines = lines_of(start_runner(binary, work, name, show_text(clip, 14.5), ltc))
    at_ms = label_ms(AT, frame_ms)
    tc = [o for o in lines if o.get("host") == "timecode"]
    start = next((o for o in tc if o.get("change") == "start"), None)
    jump = next((o for o in tc if o.get("change") == "jump"), None)
    stop = next((o for o in tc if o.get("change") == "stop"), None)
    if not start or not jump:
        return {"p50": float("nan"), "p99": float("nan"), "p99_all": float("nan"), "n": 0, "lock": float("nan")}
    jump_ms = label_ms(jump_label, frame_ms)
    jump_t = jump["t"] - (jump["tcMs"] - jump_ms)
    end_t = stop["t"] if stop else float("inf")

    def media(t):
        if t >= jump_t:
            return jump_ms + (t - jump_t) - at_ms
        return start["tcMs"] + (t - start["t"]) - at_ms

    pos = [(o["t"], o["position"]) for o in lines
           if o.get("event") == "sPositionChanged" and start["t"] <= o["t"] < end_t]
    s = [(t, media(t), p - media(t)) for t, p in pos if media(t) >= 0]
    # The first 500 ms after the start and after the jump are the lock, not the steady chase.
    settle = [(start["t"], start["t"] + 500), (jump_t, jump["t"] + 500)]
    steady = [abs(e) for t, m, e in s if not any(a <= t < b for a, b in settle)]
    every = [abs(e) for t, m, e in s]
    after = [(t, e) for t, m, e in s if t >= jump_t]
    lock = float("nan")
    for i in range(len(after) - 4):
        if all(abs(e) <= frame_ms for _, e in after[i:i + 5]):
            lock = after[i][0] - jump_t
            break
    return {"p50": pct(steady, 50), "p99": pct(steady, 99), "p99_all": pct(every, 99),
            "n": len(steady), "lock": lock}


def free_run(binary, work, name, clip):
    lines = lines_of(start_runner(binary, work, name, show_text(clip, 8, chase=False), None))
    pos = [(o["t"], o["position"]) for o in lines if o.get("event") == "sPositionChanged"]
    if len(pos) < 10:
        return {"p99": float("nan")}
    pos = pos[5:]  # past the start
    t0, p0 = pos[0]
    # The clock of the clip and the runner's may differ a little: take the drift out.
    drift = statistics.median((p - p0) / max(1, t - t0) for t, p in pos[1:])
    jitter = [abs((p - p0) - drift * (t - t0)) for t, p in pos]
    return {"p99": pct(jitter, 99), "p50": pct(jitter, 50)}


def error_at(s, x):
    for (ta, ma, ea), (tb, mb, eb) in zip(s, s[1:]):
        if ma <= x <= mb and mb - ma <= 300:
            f = (x - ma) / (mb - ma) if mb > ma else 0.0
            return ea + f * (eb - ea)
    return None


def three_run(binary, work, name, clip, ltc):
    procs = [start_runner(binary, work, f"{name}-{i}", show_text(clip, 10.5), ltc) for i in range(3)]
    all_samples = [samples(lines_of(p), label_ms(AT, 40.0)) for p in procs]
    spreads = []
    x = 500.0
    while x <= 8400:
        errs = [error_at(s, x) for s in all_samples]
        if all(e is not None for e in errs):
            spreads.append(max(errs) - min(errs))
        x += 20
    return {"p50": pct(spreads, 50), "p99": pct(spreads, 99), "max": max(spreads) if spreads else float("nan"),
            "n": len(spreads)}


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--build", default="build/default", help="the build directory")
    ap.add_argument("--reps", type=int, default=3)
    a = ap.parse_args()
    binary = os.path.join(a.build, "host", "kelmor-show")
    maker = os.path.join(a.build, "tests", "support", "ltc", "kelmor-ltc-make")
    for p in (binary, maker):
        if not os.path.exists(p):
            sys.exit(f"ltc_chase: {p} not found (build kelmor-show and kelmor-ltc-make)")
    work = tempfile.mkdtemp(prefix="kelmor-ltc-bench-")
    print(f"load average at start: {os.getloadavg()}", flush=True)
    clip25, clip30 = os.path.join(work, "clip25.mp4"), os.path.join(work, "clip30.mp4")
    make_clip(clip25, 25)
    make_clip(clip30, 30)
    ltc25, ltc30, ltc_one = (os.path.join(work, n) for n in ("ltc25.wav", "ltc30.wav", "ltc-one.wav"))
    run([maker, ltc25, "ltc:fps=25,start=01:00:00:00,frames=175", "ltc:fps=25,start=01:00:20:00,frames=175"])
    run([maker, ltc30, "ltc:fps=30,start=01:00:00:00,frames=210", "ltc:fps=30,start=01:00:20:00,frames=210"])
    run([maker, ltc_one, "ltc:fps=25,start=01:00:00:00,frames=250"])

    results = {k: [] for k in ("free", "c25", "c30", "three")}
    for rep in range(a.reps):
        results["free"].append(free_run(binary, work, f"free-{rep}", clip25))
        results["c25"].append(chase_run(binary, work, f"c25-{rep}", clip25, ltc25, 40.0, "01:00:20:00"))
        results["c30"].append(chase_run(binary, work, f"c30-{rep}", clip30, ltc30, 1000.0 / 30, "01:00:20:00"))
        results["three"].append(three_run(binary, work, f"three-{rep}", clip25, ltc_one))
        print(f"repetition {rep + 1}: " + json.dumps({k: v[-1] for k, v in results.items()}), flush=True)

    med = lambda k, f: statistics.median(r[f] for r in results[k])
    ref = med("free", "p99")
    print()
    print(f"reference: free-running position jitter p99 {ref:.1f} ms (p50 {med('free', 'p50'):.1f} ms)")
    for k, fps, frame in (("c25", 25, 40.0), ("c30", 30, 1000.0 / 30)):
        p99 = med(k, "p99")
        print(f"chase {fps} fps: error p50 {med(k, 'p50'):.1f} ms, p99 {p99:.1f} ms "
              f"({p99 / frame:.2f} frame, {p99 / ref if ref else float('nan'):.2f} x reference), "
              f"p99 with the lock transients {med(k, 'p99_all'):.1f} ms; "
              f"lock after a jump {med(k, 'lock'):.0f} ms; samples {med(k, 'n'):.0f}")
    print(f"three processes: spread p50 {med('three', 'p50'):.1f} ms, p99 {med('three', 'p99'):.1f} ms "
          f"({med('three', 'p99') / 40.0:.2f} frame), largest {med('three', 'max'):.1f} ms")
    print(f"medians of {a.reps} repetitions; load average at the end: {os.getloadavg()}")


if __name__ == "__main__":
    main()
