#!/usr/bin/python3
"""Turns one benchmark run (the JSON files of scripts/bench.sh) into
RESULTS.md and results.png.

    report.py RUN_FOLDER OUTPUT_FOLDER

Every time is the median over the repetitions of a case's wall-clock time per
frame (or per call), so that OpenCV's threaded runs count as they are felt.
Ratio to the floor: our time over the floor's (1.0 would be as fast as only
reading, or copying, the bytes). Ratio to the peer: the peer's time over ours
(how many times faster we are). Cases missing from the run show as "-".
"""
import json
import os
import re
import statistics
import subprocess
import sys

# One row per operator and case:
#   (operator, case, ours, floor, peer on one thread, peer with OpenCV's threads, goals)
# Names are "program:run name" (the program without sight_ and _bench); "name#counter" takes the median of a
# counter (milliseconds) instead of the time. Goals: ("floor", k) ours within
# k times the floor; ("peer", k) at least k times faster than the one-thread
# peer; ("ms", t) at most t milliseconds.
LAYOUTS = [("BGRA", "bgra", "bgra"), ("YCbCrA", "ycbcra", "ycbcra"), ("4:2:2", "422", "ycbcr422"),
           ("Y + CbCr", "y_cbcr", "y_cbcr"), ("Three planes", "planar", "planar")]
TRACKER_GOALS = {"bgra": [("peer", 8), ("floor", 8)], "422": [("peer", 12), ("floor", 5)]}
SIZES = {1920: "1920x1080", 3840: "3840x2160"}


def rows_of(program, operator, *rows):
    """Rows of one program: its names without the program's prefix, None where a role has no case."""
    def named(n):
        return f"{program}:{n}" if n else None
    return [(operator, case, named(ours), named(floor), named(peer), named(threads), goals)
            for case, ours, floor, peer, threads, goals in rows]


ROWS = []
for label, name, _ in LAYOUTS:
    for w, size in SIZES.items():
        ROWS += rows_of("object_tracking", "Colour-key tracker",
                        (f"{label}, moment pass, {size}", f"BM_generate_moments_{name}/preview:0/aligned:1/w:{w}",
                         f"BM_read_pass_{name}/aligned:1/w:{w}", f"BM_opencv_{name}/threads:1/w:{w}",
                         f"BM_opencv_{name}/threads:0/w:{w}", []),
                        (f"{label}, whole call, {size}", f"BM_object_tracking_{name}/preview:0/aligned:1/w:{w}",
                         f"BM_read_pass_{name}/aligned:1/w:{w}", f"BM_opencv_{name}/threads:1/w:{w}",
                         f"BM_opencv_{name}/threads:0/w:{w}", TRACKER_GOALS.get(name, []) if w == 1920 else []))
for label, _, name in LAYOUTS:
    for w, size in SIZES.items():
        ROWS += rows_of("hot_spots", "Hot spots",
                        (f"{label}, eight default spots, {size}", f"BM_hot_spots_{name}/w:{w}",
                         f"BM_read_spots_{name}/w:{w}", f"BM_opencv_spots_{name}/threads:1/w:{w}",
                         f"BM_opencv_spots_{name}/threads:0/w:{w}", [("peer", 2)] if w == 1920 else []),
                        (f"{label}, eight whole-frame spots, {size}", f"BM_hot_spots_whole_{name}/w:{w}",
                         f"BM_read_pass_{name}/w:{w}", None, None, [("floor", 6)] if w == 1920 else []))
for w, h in [(720, 576), (720, 1080), (1920, 576), (1920, 1080), (3840, 2160)]:
    size = f"w:{w}/h:{h}"
    ROWS += rows_of("corner", "Corners",
                    (f"{w}x{h} photograph", f"BM_corner_detection_422/{size}/aligned:1", f"BM_corner_read_pass_422/{size}",
                     f"BM_cv_fast_gray/{size}/wide:1/threads:1", f"BM_cv_fast_gray/{size}/wide:1/threads:0",
                     [("peer", 2)] if h >= 1080 and w >= 1920 else []))
for w, size in SIZES.items():
    ROWS += rows_of("object_tracking_2", "Chamfer tracker",
                    (f"block scan, region, {size}", f"BM_chamfer_pass_1/region:1/aligned:1/w:{w}",
                     f"BM_read_pass/aligned:1/w:{w}", f"BM_opencv_distance/region:1/threads:1/w:{w}",
                     f"BM_opencv_distance/region:1/threads:0/w:{w}", [("floor", 2)]),
                    (f"call, no region, {size}", f"BM_object_tracking_2/region:0/aligned:1/w:{w}",
                     f"BM_read_pass/aligned:1/w:{w}", f"BM_opencv_distance/region:0/threads:1/w:{w}",
                     f"BM_opencv_distance/region:0/threads:0/w:{w}", [("ms", 0.25)] if w == 1920 else []),
                    (f"call with region, without the picture, {size}", f"BM_draw_star/region:1/aligned:1/w:{w}",
                     f"BM_read_pass/aligned:1/w:{w}", f"BM_opencv_distance/region:1/threads:1/w:{w}",
                     f"BM_opencv_distance/region:1/threads:0/w:{w}", [("ms", 0.25)] if w == 1920 else []),
                    (f"call with region and picture, {size}", f"BM_object_tracking_2/region:1/aligned:1/w:{w}", None,
                     None, None, []))
for w, size in SIZES.items():
    ROWS += rows_of("super_resolution", "Rescaling",
                    (f"rescale {w}x{w * 9 // 32} to {size}", f"BM_rescale_422/aligned:1/w:{w}",
                     f"BM_rescale_422_memcpy/w:{w}", f"BM_rescale_422_opencv/threads:1/w:{w}",
                     f"BM_rescale_422_opencv/threads:0/w:{w}", [("floor", 3)]),
                    (f"decomb {size} in place", f"BM_decomb_422/aligned:1/w:{w}", f"BM_decomb_422_memcpy/w:{w}",
                     f"BM_decomb_422_opencv/threads:1/w:{w}", f"BM_decomb_422_opencv/threads:0/w:{w}", [("floor", 3)]))
for w, size in SIZES.items():
    ROWS += rows_of("color_matching", "Colour matching",
                    (f"image statistics, {size}", f"BM_image_statistics_422/w:{w}",
                     f"BM_image_statistics_422_read_pass/w:{w}", f"BM_image_statistics_422_opencv/threads:1/w:{w}",
                     f"BM_image_statistics_422_opencv/threads:0/w:{w}", [("ms", 3)] if w == 1920 else []),
                    (f"procamp pass, {size}", f"BM_apply_procamp_422/aligned:1/w:{w}",
                     f"BM_apply_procamp_422_memcpy/w:{w}", f"BM_apply_procamp_422_opencv_lut/threads:1/w:{w}",
                     f"BM_apply_procamp_422_opencv_lut/threads:0/w:{w}", [("floor", 3), ("peer", 3)]))
ROWS += rows_of("color_matching", "Colour matching",
                ("whole search, 1920x1080", "BM_color_matching_422/w:1920", None, None, None, []))
for n in (4, 100, 10000):
    ROWS += rows_of("perspective", "Perspective",
                    (f"{n} pairs, added and solved", f"BM_perspective_estimate/pairs:{n}",
                     f"BM_perspective_read_pass/pairs:{n}", f"BM_perspective_find_homography/pairs:{n}/threads:1",
                     f"BM_perspective_find_homography/pairs:{n}/threads:0", [("peer", 5)] if n == 100 else []))
for w, size in SIZES.items():
    ROWS += rows_of("motion", "Motion",
                    (f"pixel pass, {size}", f"BM_motion_estimation_y_pass/aligned:1/w:{w}",
                     f"BM_motion_estimation_y_read_pass/w:{w}", f"BM_opencv_ecc_iteration/threads:1/w:{w}",
                     f"BM_opencv_ecc_iteration/threads:0/w:{w}", []))
ROWS += rows_of("motion", "Motion",
                ("loop iteration without the PNG, 1920x1080",
                 "BM_motion_estimation_y_loop/png:0/iterations:1#ms_per_iteration", "BM_motion_estimation_y_read_pass/w:1920",
                 "BM_opencv_ecc_iteration/threads:1/w:1920", "BM_opencv_ecc_iteration/threads:0/w:1920",
                 [("ms", 6), ("peer", 1)]))

TO_MS = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}


def load_runs(folder):
    """Median milliseconds of every case (and of every counter, as 'case#counter')."""
    samples = {}
    for file in sorted(os.listdir(folder)):
        if not file.endswith("_bench.json"):
            continue
        with open(os.path.join(folder, file)) as f:
            text = f.read()
        if not text.strip():
            continue  # a program none of whose cases the filter kept
        data = json.loads(text)
        program = file[len("sight_"):-len("_bench.json")]
        for b in data.get("benchmarks", []):
            if b.get("run_type") != "iteration" or b.get("error_occurred"):
                continue
            name = program + ":" + b.get("run_name", b["name"])
            unit = TO_MS[b.get("time_unit", "ns")]
            samples.setdefault(name, []).append(b["real_time"] * unit)
            samples.setdefault(name + "@cpu", []).append(b["cpu_time"] * unit)
            for counter in ("ms_per_iteration", "cpu_ms_per_iteration"):
                if counter in b:
                    samples.setdefault(f"{name}#{counter}", []).append(b[counter])
    return {name: statistics.median(v) for name, v in samples.items()}, sum("@" not in n and "#" not in n for n in samples)


def fmt_ms(v):
    if v is None:
        return "-"
    return f"{v:.3g}" if v >= 0.01 else f"{v:.2g}"


def fmt_ratio(v):
    return "-" if v is None else f"{v:.2f}x" if v < 10 else f"{v:.1f}x"


def verdicts(goals, ours, to_floor, to_peer):
    texts = []
    for kind, k in goals:
        if kind == "floor":
            value, text = to_floor, f"within {k}x floor"
            met = None if value is None else value <= k
        elif kind == "peer":
            value, text = to_peer, f"at least {k}x faster than OpenCV" if k > 1 else "faster than OpenCV"
            met = None if value is None else value >= k
        else:
            value, text = ours, f"at most {k} ms"
            met = None if value is None else value <= k
        texts.append(f"{text}: {'not measured' if met is None else 'met' if met else 'NOT MET'}")
    return "; ".join(texts)


def ratio(a, b):
    return None if a is None or b is None or b == 0 else a / b


def main():
    run, out = sys.argv[1], sys.argv[2]
    times, cases = load_runs(run)
    with open(os.path.join(run, "machine.json")) as f:
        machine = json.load(f)
    rows = []
    for op, case, ours_n, floor_n, peer_n, threads_n, goals in ROWS:
        get = lambda n: times.get(n) if n else None
        ours, floor, peer, threads = get(ours_n), get(floor_n), get(peer_n), get(threads_n)
        ours_cpu = times.get(ours_n.replace("#", "#cpu_") if "#" in ours_n else ours_n + "@cpu")
        to_floor, to_peer, to_threads = ratio(ours, floor), ratio(peer, ours), ratio(threads, ours)
        rows.append((op, case, ours, ours_cpu, floor, to_floor, peer, to_peer, threads, to_threads,
                     verdicts(goals, ours, to_floor, to_peer), [n for n in (ours_n, floor_n, peer_n, threads_n)
                                                             if n and n not in times]))

    lines = [
        "# Benchmark results",
        "",
        "Written by `bench/report.py` from one run of `bash scripts/bench.sh`; do not edit by hand.",
        "",
        f"- Machine: {machine['cpu']}, {machine['cores']} cores",
        f"- Compiler: {machine['compiler']}; build: Release, -msse4.1",
        f"- Libraries: Korvane.Sight {machine['library']} (commit {machine['commit']}), OpenCV {machine['opencv']}, "
        f"Eigen {machine['eigen']}, Google Benchmark {machine['benchmark']}",
        f"- Load average (1, 5, 15 min): {machine['load_start']} at the start, {machine['load_end']} at the end",
        f"- Run: every program on one benchmark thread, its cases interleaved at random, "
        f"{machine['repetitions']} repetitions of at least {machine['min_time']} s; {cases} cases, "
        f"{machine['seconds']} s in all",
        "",
        "Times are medians of the repetitions' wall-clock milliseconds per frame (per call for the "
        "perspective estimator, per iteration for motion). *Floor*: a plain read pass over the bytes the "
        "operation reads, or a memcpy of the bytes it writes, in the same program run; *x floor* is our time "
        "over the floor's. *OpenCV*: the same job done the usual OpenCV way, on one thread, and with OpenCV's "
        "own threads where the program measures it; *faster* is OpenCV's time over ours. *Ours, CPU*: the processor time of the benchmark's thread, for comparison with the wall-clock time under load. A load above the "
        "machine's cores stretches wall times; ratios come from cases interleaved in one run and hold better "
        "than single values.",
        "",
        "| Operator | Case | Ours (ms) | Ours, CPU (ms) | Floor (ms) | x floor | OpenCV, 1 thread (ms) | Faster | "
        "OpenCV, threads (ms) | Faster | Goal |",
        "|---|---|---|---|---|---|---|---|---|---|---|",
    ]
    for op, case, ours, ours_cpu, floor, tf, peer, tp, threads, tt, goal, _ in rows:
        lines.append(f"| {op} | {case} | {fmt_ms(ours)} | {fmt_ms(ours_cpu)} | {fmt_ms(floor)} | {fmt_ratio(tf)} | {fmt_ms(peer)} | "
                     f"{fmt_ratio(tp)} | {fmt_ms(threads)} | {fmt_ratio(tt)} | {goal} |")
    missing = sorted({n for r in rows for n in r[11]})
    if missing:
        lines += ["", "Cases the table names that this run did not have:", ""]
        lines += [f"- `{n}`" for n in missing]
    lines += ["", "![Ratios to the floor and to OpenCV](results.png)", ""]
    with open(os.path.join(out, "RESULTS.md"), "w") as f:
        f.write("\n".join(lines))
    chart(rows, os.path.join(out, "results.png"), machine)


def chart(rows, png, machine):
    """Horizontal bars on a log scale: x floor and faster than OpenCV (one thread) per row."""
    data = [r for r in rows if r[5] is not None or r[7] is not None]
    table = "\n".join(f'"{r[0]}: {r[1]}" {r[5] if r[5] is not None else "NaN"} '
                      f'{r[7] if r[7] is not None else "NaN"}' for r in reversed(data))
    height = 120 + 26 * len(data)
    script = f"""
set terminal pngcairo size 1300,{height} font "sans,9"
set output "{png}"
set title "Time over the floor (lower is better), OpenCV's time over ours (higher is better)\\nload average {machine['load_start']} at the start, {machine['load_end']} at the end"
set logscale x 10
set xrange [0.01:1000]
set xlabel "ratio (log scale)"
set grid xtics
set yrange [-0.7:{len(data) - 0.3}]
set ytics nomirror
set key outside top center horizontal
set style fill solid 0.8 noborder
set arrow from 1, graph 0 to 1, graph 1 nohead lc "black"
$data << EOD
{table}
EOD
plot $data using (1):($0):($2<1?$2:1):($2<1?1:$2):($0+0.02):($0+0.36):yticlabels(1) with boxxyerror lc "#d95f02" title "x floor", \\
     $data using (1):($0):($3<1?$3:1):($3<1?1:$3):($0-0.36):($0-0.02) with boxxyerror lc "#1b9e77" title "times faster than OpenCV (1 thread)"
"""
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


if __name__ == "__main__":
    main()
