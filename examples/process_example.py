#!/usr/bin/python3
"""The main job on the example model, through the tundrel Python module.

Reads the wing-body model, corrects its measured "cp" for self-illumination,
builds the pressure-port field from the marker file, writes the result as
Tecplot-style DAT (for plotting tools), VRML (for 3-D viewers) and a VTK
multiblock (for ParaView, lossless), draws pictures of cp, of the correction
and of the port field (PNG) and prints a short summary: nodes, fields,
what the correction changed and where, how well the port field predicts each
port left out in turn (the library's leave-one-out check), and the time of
each step.

    PYTHONPATH=build/release/python /usr/bin/python3 examples/process_example.py --out out
"""

import argparse
import pathlib
import sys
import time

import numpy as np

import tundrel

HERE = pathlib.Path(__file__).resolve().parent


class Steps:
    """Runs and times the steps of the job."""

    def __init__(self):
        self.times = []

    def __call__(self, label, fn, *args, **kwargs):
        t = time.perf_counter()
        result = fn(*args, **kwargs)
        self.times.append((label, time.perf_counter() - t))
        return result


def junction_distance(positions, reg_wings):
    """Distance of every node from the nearest wing-root node (the concave corners)."""
    roots = np.concatenate([np.stack([w[c].grid[0, 0] for c in "xyz"], axis=1) for w in reg_wings])
    d = np.full(len(positions), np.inf)
    for r in roots:
        d = np.minimum(d, np.linalg.norm(positions - r, axis=1))
    return d


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--model", default=HERE / "wingbody.fld", type=pathlib.Path)
    ap.add_argument("--markers", default=HERE / "wingbody_ports.mrk", type=pathlib.Path)
    ap.add_argument("--field", default="cp", help="the measured field (default cp)")
    ap.add_argument("--ratio", default=0.4, type=float, help="diffuse reflection ratio, 0 to 1 (default 0.4)")
    ap.add_argument("--no-visibility", action="store_true", help="skip the obstruction test between node pairs")
    ap.add_argument("--order", default=0, type=int, help="order of the pressure-port approximation, 0 to 2")
    ap.add_argument("--deflexion", default=0.004, type=float, help="largest distance of a port from the surface")
    ap.add_argument("--out", default=pathlib.Path("out"), type=pathlib.Path, help="output directory (default out)")
    args = ap.parse_args(argv)

    step = Steps()
    reg, reg_fe = step("read", tundrel.read, args.model)

    fm, flow = tundrel.FieldMaster(), tundrel.ambientFlow()
    step("to field container", tundrel.Region_to_fieldMaster, reg, reg_fe, fm, flow)

    corrected = args.field + "_si"
    step(
        "self-illumination",
        tundrel.self_illumination,
        fm,
        args.field,
        ratio=args.ratio,
        check_visibility=not args.no_visibility,
        name=corrected,
    )

    ports = args.field + "_ports"
    _, records = step(
        "pressure ports",
        tundrel.pressure_ports,
        fm,
        "",
        markers_file=args.markers,
        order=args.order,
        max_deflexion=args.deflexion,
        name=ports,
        cross_validate=True,  # each used port predicted by the field of the others
    )

    out_reg, out_fe = tundrel.region(), tundrel.region_fe()
    step("to geometry", tundrel.fieldMaster_to_Region, fm, flow, out_reg, out_fe)
    out_reg.name = reg.name
    args.out.mkdir(parents=True, exist_ok=True)
    dat, wrl, vtm = args.out / "wingbody.dat", args.out / "wingbody.wrl", args.out / "wingbody.vtm"
    step("write DAT", tundrel.write, dat, out_reg, out_fe)
    step("write VRML", tundrel.write, wrl, out_reg, out_fe)
    step("write VTK", tundrel.write, vtm, out_reg, out_fe, precision=9, scientific=True)

    # Pictures: cp, the correction, and the port field on cp's colour scale.
    sheet = dict(views=["top", "bottom", "iso"], size=(1500, 600), title=reg.name, flow=flow)
    measured = fm[args.field].values
    scale = (float(measured[measured > -1e9].min()), float(measured[measured > -1e9].max()))
    step("pictures", lambda: (
        tundrel.render(fm, args.field, str(args.out / "cp.png"), **sheet),
        tundrel.render(fm, file=str(args.out / "correction.png"), difference=(corrected, args.field), **sheet),
        tundrel.render(fm, ports, str(args.out / "cp_ports.png"), range=scale, **sheet)))

    # ---- summary ----------------------------------------------------------
    after = fm[corrected].values
    valued = measured > -1e9
    change = np.where(valued, after - measured, 0.0)
    worst = int(np.argmax(np.abs(change)))
    block = max(b for b in range(fm.blockCount()) if fm.offset(b) <= worst)
    near = junction_distance(fm.positions, [reg[1], reg[2]]) < 0.05

    print(f"model     {args.model.name}: \"{reg.name}\", Mach {flow.Mach:g}, alpha {flow.alpha:g}, beta {flow.beta:g}")
    print(f"nodes     {fm.totalNodes()} in {fm.blockCount()} patches "
          f"({', '.join(str(n) for n in fm.nodeCounts())}); {np.count_nonzero(~valued)} without a measured value")
    print(f"fields    {', '.join(f.name for f in fm.functions)}")
    print(f"self-illumination  ratio {args.ratio:g}, visibility check {'off' if args.no_visibility else 'on'}: "
          f"{corrected} - {args.field}")
    print(f"          mean |change| {np.abs(change[valued]).mean():.4f}; within 5 cm of a wing root "
          f"{np.abs(change[valued & near]).mean():.4f}, elsewhere {np.abs(change[valued & ~near]).mean():.4f}")
    x, y, z = fm.positions[worst]
    print(f"          largest {change[worst]:+.4f} at node {worst - fm.offset(block)} of patch {block} "
          f"(x {x:.3f}, y {y:.3f}, z {z:.3f}), {args.field} {measured[worst]:.3f} -> {after[worst]:.3f}")
    port_field = fm[ports].values
    port_valued = port_field > -1e9
    print(f"pressure ports     {args.markers.name}, order {args.order}: {ports} on "
          f"{np.count_nonzero(port_valued)} nodes, {port_field[port_valued].min():.3f} to "
          f"{port_field[port_valued].max():.3f}; rms from {args.field} "
          f"{np.sqrt(np.mean((port_field - measured)[port_valued & valued] ** 2)):.4f}")
    used = [r for r in records if r["use"] == "used"]
    errors = np.array([r["prediction_error"] for r in used])
    hit = ~np.isnan(errors)
    worst_port = int(np.nanargmax(np.abs(errors))) if hit.any() else 0
    print(f"          {len(used)} of {len(records)} ports used; each left out in turn, predicted by the others: "
          f"rms {np.sqrt(np.mean(errors[hit] ** 2)):.4f}, median |error| {np.median(np.abs(errors[hit])):.4f}, "
          f"largest {errors[worst_port]:+.4f} (port {used[worst_port]['number']}), "
          f"{np.count_nonzero(~hit)} without a prediction")
    pieces = sum(f.stat().st_size for f in (args.out / "wingbody").iterdir())
    print(f"pictures  {args.out / 'cp.png'}, {args.out / 'correction.png'}, {args.out / 'cp_ports.png'}")
    print(f"written   {dat} ({dat.stat().st_size // 1024} KiB), {wrl} ({wrl.stat().st_size // 1024} KiB), "
          f"{vtm} with {len(list((args.out / 'wingbody').iterdir()))} pieces ({pieces // 1024} KiB)")
    print("timings   " + ", ".join(f"{label} {t * 1000:.0f} ms" if t < 1 else f"{label} {t:.2f} s"
                                     for label, t in step.times))
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except (tundrel.MessageError, tundrel.GenericError, ValueError, OSError) as e:
        print(f"process_example: {e}", file=sys.stderr)
        sys.exit(1)
