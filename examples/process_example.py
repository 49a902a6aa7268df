#!/usr/bin/python3
"""The main job on the example model, through the tundrel Python module.

Reads the wing-body model, corrects its measured "cp" for self-illumination,
builds the pressure-port field from the marker file, writes the result as
Tecplot-style DAT (for plotting tools), VRML (for 3-D viewers) and a VTK
multiblock (for ParaView, lossless) and prints a short summary: nodes, fields,
what the correction changed and where, how well the port field predicts each
port left out in turn, and the time of each step.

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


def leave_one_out(reg, reg_fe, markers_file, order, deflexion):
    """Each active port predicted by the port field built from all the others, read
    at the surface node nearest to the port: (port numbers, errors); NaN where the
    field has no value there."""
    fm, flow = tundrel.FieldMaster(), tundrel.ambientFlow()
    tundrel.Region_to_fieldMaster(reg, reg_fe, fm, flow)
    ports = tundrel.markers()
    tundrel.importMarkers(markers_file, ports)
    numbers, errors = [], []
    for i in range(len(ports)):
        held = ports[i]
        if not held.active:
            continue
        out = ports[i]
        out.active = False
        ports[i] = out
        name = f"without port {held.number}"
        tundrel.pressure_ports(fm, "", marker_set=ports, order=order, max_deflexion=deflexion, name=name)
        ports[i] = held
        node = int(np.argmin(np.linalg.norm(fm.positions - (held.x, held.y, held.z), axis=1)))
        value = fm[name].values[node]
        numbers.append(held.number)
        errors.append(value - held.value if value > -1e9 else np.nan)
    return np.array(numbers), np.array(errors)


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
    step(
        "pressure ports",
        tundrel.pressure_ports,
        fm,
        "",
        markers_file=args.markers,
        order=args.order,
        max_deflexion=args.deflexion,
        name=ports,
    )

    out_reg, out_fe = tundrel.region(), tundrel.region_fe()
    step("to geometry", tundrel.fieldMaster_to_Region, fm, flow, out_reg, out_fe)
    out_reg.name = reg.name
    args.out.mkdir(parents=True, exist_ok=True)
    dat, wrl, vtm = args.out / "wingbody.dat", args.out / "wingbody.wrl", args.out / "wingbody.vtm"
    step("write DAT", tundrel.write, dat, out_reg, out_fe)
    step("write VRML", tundrel.write, wrl, out_reg, out_fe)
    step("write VTK", tundrel.write, vtm, out_reg, out_fe, precision=9, scientific=True)
    numbers, errors = step("leave one out", leave_one_out, reg, reg_fe, args.markers, args.order, args.deflexion)

    # ---- summary ----------------------------------------------------------
    measured = fm[args.field].values
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
    hit = ~np.isnan(errors)
    worst_port = int(np.nanargmax(np.abs(errors))) if hit.any() else 0
    print(f"          each of {len(errors)} active ports left out in turn, predicted by the others: "
          f"rms {np.sqrt(np.mean(errors[hit] ** 2)):.4f}, median |error| {np.median(np.abs(errors[hit])):.4f}, "
          f"largest {errors[worst_port]:+.4f} (port "
          f"{numbers[worst_port]}), {np.count_nonzero(~hit)} without a prediction")
    pieces = sum(f.stat().st_size for f in (args.out / "wingbody").iterdir())
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
