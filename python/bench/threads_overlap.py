#!/usr/bin/python3
"""Do two Python threads running self_illumination overlap?

The example model is triangulated and refined (each triangle split in four)
until it has about 70k nodes. One self_illumination call runs alone, then two
run at once on two threads, each on its own container, then two on one shared
container (they take turns). Each case is timed by wall clock, best of
`--repeat`; the figure that matters is "two at once / one alone", which is
about 1 when the calls overlap and about 2 when they run one after the other.
Last, how far a pure-Python loop counts while one call runs on another thread
(next to nothing if the call held the GIL). On a machine busy with other work
the wall-clock figures say little, but when each call ended still does: two
calls that overlap end together, two that take turns one after the other;
and so does the count. Set
OMP_NUM_THREADS=1 so that one call uses one core:

    OMP_NUM_THREADS=1 PYTHONPATH=build/release/python /usr/bin/python3 python/bench/threads_overlap.py
"""

import argparse
import os
import pathlib
import threading
import time

import tundrel

EXAMPLE = pathlib.Path(__file__).resolve().parents[2] / "examples" / "wingbody.fld"


def refined_model(target):
    reg, _ = tundrel.read(EXAMPLE)
    faces = tundrel.region_fe()
    tundrel.converter_reg_to_reg_fe(reg, faces)
    while sum(p.nodes for p in faces.patches) * 4 <= target * 1.3:
        tundrel.block_fe_compress(faces, list(range(len(faces))))
    return faces


def container(faces):
    fm, flow = tundrel.FieldMaster(), tundrel.ambientFlow()
    tundrel.Region_to_fieldMaster(tundrel.region(), faces, fm, flow)
    return fm


def finishing(calls):
    """Seconds until each call, each on a thread of its own, has returned."""
    t, ends = time.perf_counter(), {}
    threads = [threading.Thread(target=lambda k=k, c=c: (c(), ends.__setitem__(k, time.perf_counter() - t)))
               for k, c in enumerate(calls)]
    for th in threads:
        th.start()
    for th in threads:
        th.join()
    return sorted(ends.values())


def python_meanwhile(call):
    """Iterations of a Python loop on this thread while `call` runs on another."""
    done, count = threading.Event(), 0
    worker = threading.Thread(target=lambda: (call(), done.set()))
    worker.start()
    while not done.is_set():
        count += 1
    worker.join()
    return count


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--nodes", type=int, default=70000, help="about this many nodes (default 70000)")
    ap.add_argument("--repeat", type=int, default=2, help="runs of each case, the best counts (default 2)")
    args = ap.parse_args()

    faces = refined_model(args.nodes)
    a, b = container(faces), container(faces)
    print(f"nodes: {a.totalNodes()}, OMP_NUM_THREADS={os.environ.get('OMP_NUM_THREADS', '(unset)')}")
    names = iter(range(10**6))

    def run(fm):
        return lambda: tundrel.self_illumination(fm, "cp", ratio=0.5, name=f"si{next(names)}")

    cases = {
        "one alone": [run(a)],
        "two at once, own containers": [run(a), run(b)],
        "two at once, one container": [run(a), run(a)],
    }
    # The runs whose last call ended first; the first call's end tells overlap
    # from turns even when other work on the machine slows everything down.
    best = {label: min((finishing(calls) for _ in range(args.repeat)), key=lambda e: e[-1])
            for label, calls in cases.items()}
    alone = best["one alone"][-1]
    for label, ends in best.items():
        print(f"{label:30s} {ends[-1]:8.2f} s  {ends[-1] / alone:5.2f} x one alone"
              f"  (calls ended at {', '.join(f'{e:.2f}' for e in ends)} s)")
    print(f"Python loop iterations during one call on another thread: {python_meanwhile(run(a)):,}")


if __name__ == "__main__":
    main()
