#!/usr/bin/python3
"""One core, the reference workloads end to end: the library through its C interface
(bench_realtime) beside the same arithmetic as plain numpy and PyTorch scripts, in
interleaved rounds, with the ratios; then W1 on two handles on two threads, and W1
while a busy loop holds the other core.

    bench/realtime.py [--build build/plain] [--rounds 5] [--frames 3000] [--cubes 10]
                      [--steady-frames 10000]

Everything but the two handles runs on one core (the first this process may use); the
busy loop takes another. OPENBLAS_CORETYPE is taken out of the environment before any BLAS loads, so
that numpy, PyTorch and the sgemm figure run OpenBLAS's native kernels.
"""

import argparse
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time

os.environ.pop("OPENBLAS_CORETYPE", None)
for name in ("OPENBLAS_NUM_THREADS", "OMP_NUM_THREADS", "MKL_NUM_THREADS"):
    os.environ[name] = "1"

import numpy as np  # noqa: E402  (after the environment is set)
import torch  # noqa: E402

torch.set_num_threads(1)


def steal_ms():
    """The machine's steal time so far (time the hypervisor gave its cores to others), ms."""
    with open("/proc/stat") as f:
        fields = f.readline().split()
    return int(fields[8]) * 1000.0 / os.sysconf("SC_CLK_TCK")


def load_workload(folder, name):
    """The network and data that bench_realtime exported, as numpy arrays."""
    with open(os.path.join(folder, name + ".json")) as f:
        meta = json.load(f)
    raw = lambda kind, dtype: np.fromfile(os.path.join(folder, f"{name}.{kind}"), dtype=dtype)
    B, F, K, C = meta["bands"], meta["features"], meta["units"], meta["classes"]
    net = {
        "bands": raw("bands.i32", np.int32).astype(np.int64),
        "matrix": raw("matrix.f32", np.float32).reshape(F, B).T.copy(),  # B x F
        "offset": raw("offset.f32", np.float32),
        "centres": raw("centres.f32", np.float32).reshape(K, F).copy(),  # K x F
        "gammas": raw("gammas.f32", np.float32),
        "weights": raw("weights.f32", np.float32).reshape(C, K + 1).T.copy(),  # K+1 x C
        "thresholds": raw("thresholds.f32", np.float32),
    }
    data = raw("data.u16", np.uint16)
    P, count, camera_bands = meta["pixels"], meta["count"], meta["camera_bands"]
    if meta["layout"] == "bil":  # frames of bands x pixels
        units = data.reshape(count, camera_bands, P)
    else:  # cubes of pixels x bands
        units = data.reshape(count, P, camera_bands)
    return meta, net, units


def numpy_step(net, bil):
    """Decisions of one block: select, project, units, scores, weighted maximum, rejection."""
    W, thr = net["weights"], net["thresholds"]
    if bil:
        x = lambda u: u[net["bands"], :].T.astype(np.float32)
    else:
        x = lambda u: u[:, net["bands"]].astype(np.float32)
    cc = (net["centres"] ** 2).sum(axis=1)
    ct2 = (-2.0 * net["centres"]).T.copy()

    def step(unit):
        z = x(unit) @ net["matrix"] + net["offset"]
        d = z @ ct2
        d += (z * z).sum(axis=1, keepdims=True)
        d += cc
        np.maximum(d, 0, out=d)
        d *= net["gammas"]
        np.exp(d, out=d)
        s = d @ W[1:] + W[0]
        best = s.argmax(axis=1)
        if thr.size:
            best = np.where(s.max(axis=1) < thr[best], s.shape[1], best)
        return best.astype(np.uint8)

    return step


def torch_step(net, bil):
    t = {k: torch.from_numpy(v) for k, v in net.items()}
    cc = (t["centres"] ** 2).sum(dim=1)
    ct2 = (-2.0 * t["centres"]).T.contiguous()
    W, thr = t["weights"], t["thresholds"]
    bands = t["bands"]

    def step(unit):
        u = torch.from_numpy(unit.astype(np.int32))
        x = (u.index_select(0, bands).T if bil else u.index_select(1, bands)).float()
        z = torch.addmm(t["offset"], x, t["matrix"])
        d = torch.addmm(cc, z, ct2)
        d += (z * z).sum(dim=1, keepdim=True)
        d.clamp_(min=0).mul_(t["gammas"]).exp_()
        s = torch.addmm(W[0], d, W[1:])
        top, best = s.max(dim=1)
        if thr.numel():
            best = torch.where(top < thr[best], torch.full_like(best, s.shape[1]), best)
        return best.to(torch.uint8)

    return step


def time_reference(step, units, count):
    """Units per second and per-unit latencies of `count` steps, after a short warm-up."""
    for i in range(min(20, count)):
        step(units[i % len(units)])
    lat = []
    begin = time.perf_counter()
    for i in range(count):
        t0 = time.perf_counter()
        step(units[i % len(units)])
        lat.append(time.perf_counter() - t0)
    return count / (time.perf_counter() - begin), lat


def run_library(binary, args, env=None):
    out = subprocess.run([binary] + args, check=True, capture_output=True, text=True, env=env).stdout
    return json.loads(out.strip().splitlines()[-1])


def spread(values):
    return f"{min(values):10.1f} {statistics.median(values):10.1f} {max(values):10.1f}"


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--build", default="build/plain")
    ap.add_argument("--rounds", type=int, default=5)
    ap.add_argument("--frames", type=int, default=3000)
    ap.add_argument("--cubes", type=int, default=10)
    ap.add_argument("--steady-frames", type=int, default=10000)
    a = ap.parse_args()
    binary = os.path.join(a.build, "bench", "bench_realtime")
    cores = sorted(os.sched_getaffinity(0))
    core = cores[0]
    os.sched_setaffinity(0, {core})  # this process, its references and the library's runs

    folder = tempfile.mkdtemp(prefix="zelk-bench-")
    subprocess.run([binary, "export", folder], check=True)
    workloads = {}
    for name, bil in (("w1", True), ("cube", False)):
        meta, net, units = load_workload(folder, name)
        # The references must decide as the library does before their speed counts.
        np_dec = numpy_step(net, bil)(units[0])
        th_dec = torch_step(net, bil)(units[0]).numpy()
        workloads[name] = (meta, net, units, bil, float((np_dec == th_dec).mean()))

    results = {k: {"library": [], "numpy": [], "torch": [], "sgemm": []} for k in workloads}
    lib = {k: [] for k in workloads}
    for r in range(a.rounds):
        for name, (meta, net, units, bil, _) in workloads.items():
            count = a.frames if name == "w1" else a.cubes
            res = run_library(binary, [name, str(count)])
            lib[name].append(res)
            results[name]["library"].append(res["per_second"])
            for ref, make in (("numpy", numpy_step), ("torch", torch_step)):
                rate, _ = time_reference(make(net, bil), units, max(count // 3, 3))
                results[name][ref].append(rate)
            results[name]["sgemm"].append(run_library(binary, ["sgemm"])["gflops"])
        print(f"round {r + 1} of {a.rounds} done", file=sys.stderr)

    unit = {"w1": "frames/s", "cube": "cubes/s"}
    print(f"One core (cpu {core}), {a.rounds} interleaved rounds; min / median / max")
    for name, (meta, net, units, bil, agree) in workloads.items():
        r = results[name]
        flops = 2.0 * meta["pixels"] * (meta["bands"] * meta["features"] + meta["features"] * meta["units"]
                                        + meta["units"] * meta["classes"])
        print(f"\n{name}: {meta['pixels']} pixels, B {meta['bands']}, F {meta['features']}, K {meta['units']}, "
              f"C {meta['classes']}; numpy and PyTorch agree on {100 * agree:.2f}% of the first unit's decisions")
        for who in ("library", "numpy", "torch"):
            print(f"  {who:8s} {unit[name]:9s} {spread(r[who])}")
        mpx = [x * meta["pixels"] / 1e6 for x in r["library"]]
        print(f"  library  Mpixel/s  {spread(mpx)}")
        ratios_t = [l / t for l, t in zip(r["library"], r["torch"])]
        ratios_n = [l / n for l, n in zip(r["library"], r["numpy"])]
        gf = [l * flops / 1e9 for l in r["library"]]
        frac = [g / s for g, s in zip(gf, r["sgemm"])]
        print(f"  library / PyTorch    {statistics.median(ratios_t):6.2f}x  (rounds: {min(ratios_t):.2f} .. {max(ratios_t):.2f})")
        print(f"  library / numpy      {statistics.median(ratios_n):6.2f}x")
        print(f"  library GFLOP/s      {statistics.median(gf):6.1f}, native sgemm {statistics.median(r['sgemm']):.1f}: "
              f"{100 * statistics.median(frac):.0f}% of it")
        lats = lib[name]
        med = lambda key: statistics.median(x[key] for x in lats)
        print(f"  latency us   p50 {med('p50_us'):.1f}  p99 {med('p99_us'):.1f}  p99.9 {med('p999_us'):.1f}  "
              f"max {med('max_us'):.1f}")
        print(f"  heap allocations per {unit[name].split('/')[0][:-1]}: {max(x['allocations_per_unit'] for x in lats):g}")

    # The CPU loops of every instruction-set level this processor runs, the best first: a
    # processor without the best level's instructions runs the next.
    levels = []
    for level in ("v4", "v3", "baseline"):
        run = subprocess.run([binary, "w1", str(a.frames), level], capture_output=True, text=True)
        if run.returncode == 0:
            levels.append(f"{level} {json.loads(run.stdout.strip().splitlines()[-1])['per_second']:.0f}")
    print("\nW1 frames/s by instruction-set level: " + ", ".join(levels))

    # Several cameras: W1 on two handles on two threads, beside one alone (both cores).
    if len(cores) > 1:
        os.sched_setaffinity(0, set(cores))
        res = run_library(binary, ["cameras", "2", str(2 * a.frames)])
        os.sched_setaffinity(0, {core})
        print(f"\nW1 on two handles on two threads: {res['all_handles_per_second']:.0f} frames/s together, "
              f"{res['one_handle_per_second']:.0f} for one handle alone: {res['scaling']:.2f}x")

    # Steady under load: W1 while a busy loop holds another core, and beside it the same
    # frame over and over (identical work each time), whose spread is the machine's own.
    # The hypervisor's steal time during each run is printed too.
    if len(cores) > 1 and a.steady_frames > 0:
        busy = subprocess.Popen([sys.executable, "-c", f"import os; os.sched_setaffinity(0, {{{cores[1]}}})\nwhile True: pass"])
        try:
            time.sleep(0.5)
            w1_seconds = 0.0
            for mode, what in (("w1", "W1"), ("w1-same", "W1's first frame again and again"),
                               ("sgemm-steady", "A 200 x 200 sgemm of about a frame's cost, without the library")):
                before = steal_ms()
                res = run_library(binary, [mode, str(a.steady_frames)])
                stolen = steal_ms() - before
                p50 = res["p50_us"]
                w1_seconds = w1_seconds if mode != "w1" else a.steady_frames / res["per_second"]
                print(f"\n{what}, {a.steady_frames} times while a busy loop holds cpu {cores[1]}: "
                      f"{res['per_second']:.0f} per second, p50 {p50:.1f} us, p99 {res['p99_us']:.1f}, "
                      f"p99.9 {res['p999_us']:.1f} ({res['p999_us'] / p50:.2f}x p50), "
                      f"max {res['max_us']:.1f} ({res['max_us'] / p50:.2f}x p50), {res['beyond_5x_p50']} frames beyond 5x; "
                      f"steal {stolen:.0f} ms")
            # The same time spent reading the clock, with no work at all: how long the
            # core is taken away from any program here while the other one is busy.
            milliseconds = max(1, round(1000 * w1_seconds))
            gaps = run_library(binary, ["gaps", str(milliseconds)])
            print(f"\nThe clock read for {milliseconds} ms under the same load, nothing else done: "
                  f"{gaps['gaps_over_50_us']} gaps of over 50 us, the longest {gaps['longest_us']:.0f} us")
        finally:
            busy.kill()

if __name__ == "__main__":
    main()
