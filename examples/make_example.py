#!/usr/bin/python3
"""Makes the example wind-tunnel model of the repository.

A wing-body of one metre length: a fuselage of revolution (elliptic nose,
cylinder, boat-tail, open base where the sting enters) and two swept,
tapered wings with 5 degrees of dihedral, each a structured patch whose
i direction runs round the section and whose j direction runs along the
body or the span; for every patch the cross product of the i and j
directions points into the air. The wings meet the fuselage in a concave
corner, where light reflected from the wing falls on the fuselage and back:
the place where the self-illumination correction matters.

On it lies a measured-looking pressure coefficient "cp" at Mach 0.7 and
3 degrees angle of attack (suction peaks on the wings, stagnation at the
nose, a little measurement noise); fuselage nodes covered by the wing roots
carry the no-value marker -1e10. The pressure ports (chordwise rows at several
wing stations, rows along the fuselage and a ring round it) are a marker file with their
positions, their port readings (the same flow without the paint's noise) and
active flags.

Writes, beside this script (or into --out DIR):
  wingbody.fld        the model (title, variables x y z cp, flow conditions)
  wingbody_ports.mrk  the pressure ports (XML marker file)

Run with Debian's Python and NumPy:  /usr/bin/python3 examples/make_example.py
The output is the same on every run (fixed random seed).
"""

import argparse
import pathlib

import numpy as np

HERE = pathlib.Path(__file__).resolve().parent

MACH, ALPHA, BETA = 0.7, 3.0, 0.0
NO_VALUE = -1e10

# Fuselage
LENGTH, RADIUS = 1.0, 0.06
X_NOSE = 0.004                      # the nose is open by a pin-hole: no node row collapses
NOSE_END, TAIL_START, BASE_RADIUS = 0.22, 0.72, 0.035
N_AROUND, N_ALONG = 49, 61          # nodes round (seam node repeated) and along the body
# Wing (right wing; the left one is its mirror image)
ROOT_LE, ROOT_CHORD, TIP_CHORD = 0.36, 0.22, 0.09
TIP_Y, SWEEP_DEG, DIHEDRAL_DEG, THICKNESS = 0.46, 28.0, 5.0, 0.11
N_SECTION, N_SPAN = 41, 21          # nodes round the section (trailing edge repeated) and along the span


# ---- geometry -------------------------------------------------------------
def body_radius(x):
    """Radius of the fuselage at station x (elliptic nose, cylinder, straight boat-tail)."""
    x = np.asarray(x, dtype=float)
    nose = RADIUS * np.sqrt(np.clip(1.0 - ((NOSE_END - x) / NOSE_END) ** 2, 0.0, 1.0))
    tail = RADIUS - (RADIUS - BASE_RADIUS) * (x - TAIL_START) / (LENGTH - TAIL_START)
    return np.where(x < NOSE_END, nose, np.where(x > TAIL_START, tail, RADIUS))


def body_point(x, theta):
    """Fuselage surface point at station x and angle theta (0 = right side, pi/2 = crown)."""
    r = body_radius(x)
    return np.stack([x, r * np.cos(theta), r * np.sin(theta)], axis=-1)


def thickness(xi):
    """Half thickness of the section (NACA four-digit form) over the chord, at chord fraction xi."""
    xi = np.clip(xi, 0.0, 1.0)
    return 5 * THICKNESS * (0.2969 * np.sqrt(xi) - 0.1260 * xi - 0.3516 * xi**2 + 0.2843 * xi**3 - 0.1036 * xi**4)


def wing_point(xi, eta, side):
    """Right wing surface point at chord fraction xi, span fraction eta (0 root, 1 tip),
    side +1 (upper) or -1 (lower). The root section lies on the fuselage cylinder."""
    xi, eta, side = np.broadcast_arrays(np.asarray(xi, float), np.asarray(eta, float), np.asarray(side, float))
    chord = ROOT_CHORD + (TIP_CHORD - ROOT_CHORD) * eta
    z_local = side * thickness(xi) * chord
    root_y = np.sqrt(RADIUS**2 - z_local**2)
    y = root_y + (TIP_Y - RADIUS) * eta
    span = y - RADIUS
    x = ROOT_LE + np.tan(np.radians(SWEEP_DEG)) * span + xi * chord
    z = z_local + np.tan(np.radians(DIHEDRAL_DEG)) * span
    return np.stack([x, y, z], axis=-1)


def section_parameters(n):
    """Chord fraction and side of the n section nodes: trailing edge, lower side to the
    leading edge, upper side back to the trailing edge (cosine spacing)."""
    t = np.linspace(0.0, 1.0, n)
    xi = 0.5 * (1.0 + np.cos(2.0 * np.pi * t))        # 1 -> 0 -> 1
    side = np.where(t < 0.5, -1.0, 1.0)
    return xi, side


# ---- the flow ---------------------------------------------------------------
BETA_PG = np.sqrt(1.0 - MACH**2)


def wing_cp(xi, eta, side):
    """Pressure coefficient on the wing: thickness and lift parts of thin-aerofoil theory,
    an elliptic span loading and a stagnation point below the leading edge."""
    xi = np.clip(xi, 1e-4, 1.0)
    alpha = np.radians(ALPHA)
    load = np.sqrt(np.clip(1.0 - eta**2, 0.0, 1.0)) * (0.85 + 0.15 * (1 - eta))
    lift = 2.2 * alpha * np.sqrt((1.0 - xi) / xi) * load
    lift = np.minimum(lift, 1.4)
    thick = -0.55 * THICKNESS * 4 * np.sqrt(xi) * (1.0 - xi) / 0.11 + 0.12 * np.exp(-xi / 0.004)
    cp = (thick - side * lift) / BETA_PG
    stagnation = np.exp(-((xi - 0.004) / 0.006) ** 2) * (side < 0)
    return np.clip(cp * (1 - stagnation) + stagnation * 1.0, -1.6, 1.0)


def body_cp(x, theta):
    """Pressure coefficient on the fuselage: nose stagnation and shoulder suction, boat-tail
    recompression, cross flow, and the wing's pressure felt near the wing roots."""
    alpha = np.radians(ALPHA)
    axial = (
        1.0 * np.exp(-(x - X_NOSE) / 0.012)
        - 0.32 * np.exp(-(((x - 0.16) / 0.07) ** 2))
        + 0.10 * np.exp(-(((x - 0.78) / 0.05) ** 2))
        - 0.12 * np.exp(-(((x - 0.93) / 0.04) ** 2))
    )
    phi = np.pi / 2 - theta                             # 0 on the crown
    cross = -2.0 * np.sin(alpha) * np.cos(phi) * np.sin(x * np.pi) * 0.6
    y, z = np.cos(theta), np.sin(theta)
    wing = np.zeros_like(x)
    for sign in (1.0, -1.0):                            # both wing roots
        near = np.exp(-np.abs(z) * RADIUS / 0.018) * np.clip(sign * y, 0.0, None)
        xi = (x - ROOT_LE) / ROOT_CHORD
        inside = (xi > 0) & (xi < 1)
        side = np.where(z >= 0, 1.0, -1.0)
        wing += np.where(inside, near * wing_cp(xi, 0.0, side), 0.0)
    return np.minimum((axial + cross) / BETA_PG + 0.8 * wing, 1.13)


def covered_by_root(points):
    """Fuselage nodes that the wing roots hide (inside the root section)."""
    x, z = points[..., 0], points[..., 2]
    xi = (x - ROOT_LE) / ROOT_CHORD
    half = thickness(xi) * ROOT_CHORD
    return (xi > 0) & (xi < 1) & (np.abs(z) < half)


# ---- the model --------------------------------------------------------------
def fuselage():
    theta = np.linspace(0.0, 2.0 * np.pi, N_AROUND)
    s = np.linspace(0.0, 1.0, N_ALONG)
    x = X_NOSE + (LENGTH - X_NOSE) * (0.5 - 0.5 * np.cos(np.pi * s)) ** 1.0
    T, X = np.meshgrid(theta, x)                       # shape (J, I): i (theta) runs fastest
    pts = body_point(X, T)
    cp = body_cp(X, T)
    return pts, cp


def wing(mirror):
    xi, side = section_parameters(N_SECTION)
    eta = 0.5 - 0.5 * np.cos(np.pi * np.linspace(0.0, 1.0, N_SPAN))
    XI, ETA = np.meshgrid(xi, eta)                     # shape (J, I): i (section) runs fastest
    SIDE = np.broadcast_to(side, XI.shape)
    pts = wing_point(XI, ETA, SIDE)
    cp = wing_cp(XI, ETA, SIDE)
    if mirror:
        # mirrored in y, and the section walked the other way so that the normals still
        # point into the air
        pts = pts[:, ::-1].copy()
        pts[..., 1] *= -1.0
        cp = cp[:, ::-1].copy()
    return pts, cp


def measured(cp, rng):
    """The paint's reading: the flow's cp with noise and a slight blotch."""
    return cp + rng.normal(0.0, 0.012, cp.shape)


def write_fld(path, title, patches, names, flow):
    """FLD: title, patch and extra-variable counts with names, then each patch
    (second count, first count, four boundary words, points x y z and the
    extras), then Mach alpha beta."""
    lines = [title, f"   {len(patches)}   {len(names)}" + "".join(f"     {n}" for n in names)]
    for pts, extras in patches:
        J, I = pts.shape[:2]
        lines.append(f"{J} {I} WALL  WALL  WALL  WALL")
        cols = [pts[..., 0], pts[..., 1], pts[..., 2]] + list(extras)
        flat = np.stack([c.reshape(-1) for c in cols], axis=1)
        for row in flat:
            lines.append(" ".join(f"{v:.7g}" for v in row[:3]) + "".join(f"  {v:.7g}" for v in row[3:]))
    path.write_text("\n".join(lines) + "\n" + " ".join(f"{v:g}" for v in flow))


def ports(rng):
    """Pressure taps as a test model carries them: chordwise rows on the upper and
    lower side at five stations of the right wing, two rows on the left wing as a
    symmetry check, rows along the fuselage crown, keel and right side, and a ring
    round the fuselage ahead of the wing. Numbers: 1SS for wing station S side
    upper (1) or lower (5), 3xx crown, 4xx keel, 5xx side, 6xx ring."""
    pts, cp, ids = [], [], []
    stations = ((0.12, 0.3, 0.5, 0.7, 0.88), (0.3, 0.7))
    for w, etas in enumerate(stations):
        for k, eta in enumerate(etas):
            for side, count in ((1.0, 10), (-1.0, 7)):
                xi = 0.5 - 0.5 * np.cos(np.pi * np.linspace(0.03, 0.92, count))
                e, s = np.full(count, eta), np.full(count, side)
                p = wing_point(xi, e, s)
                if w == 1:
                    p[:, 1] *= -1.0                     # the left wing
                pts.append(p)
                cp.append(wing_cp(xi, e, s))
                ids.append(1000 * (w + 1) + 100 * (k + 1) + (0 if side > 0 else 50) + np.arange(1, count + 1))
    rows = ((np.pi / 2, 3000, np.linspace(0.03, 0.97, 16)),   # crown
            (-np.pi / 2, 4000, np.linspace(0.03, 0.97, 16)),  # keel
            (0.35, 5000, np.linspace(0.06, 0.95, 12)))        # right side, above the wing
    for theta, base, xs in rows:
        th = np.full(len(xs), theta)
        pts.append(body_point(xs, th))
        cp.append(body_cp(xs, th))
        ids.append(base + np.arange(1, len(xs) + 1))
    th = np.linspace(0.0, 2.0 * np.pi, 12, endpoint=False)
    xs = np.full(len(th), 0.28)
    pts.append(body_point(xs, th))
    cp.append(body_cp(xs, th))
    ids.append(6000 + np.arange(1, len(th) + 1))
    pts, cp, ids = np.concatenate(pts), np.concatenate(cp), np.concatenate(ids)
    cp = cp + rng.normal(0.0, 0.003, cp.shape)
    active = np.ones(len(cp), dtype=int)
    active[[5, 40]] = 0                                 # two blocked taps
    return pts, cp, active, ids


def write_markers(path, pts, values, active, ids):
    def row(v, fmt):
        return " ".join(fmt.format(a) for a in v)

    text = [
        '<?xml version="1.0" encoding="UTF-8"?>',
        "<ObjectMarkers>",
        f"  <NodesNumber>{len(values)}</NodesNumber>",
        f'  <Function id="x">{row(pts[:, 0], "{:.6f}")}</Function>',
        f'  <Function id="y">{row(pts[:, 1], "{:.6f}")}</Function>',
        f'  <Function id="z">{row(pts[:, 2], "{:.6f}")}</Function>',
        f'  <Function id="f">{row(values, "{:.4f}")}</Function>',
        f'  <Function id="active">{row(active, "{:d}")}</Function>',
        f'  <Function id="id">{row(ids, "{:d}")}</Function>',
        "</ObjectMarkers>",
    ]
    path.write_text("\n".join(text) + "\n")


def main(argv=None):
    ap = argparse.ArgumentParser(description="Makes the example wing-body model and its pressure ports.")
    ap.add_argument("--out", type=pathlib.Path, default=HERE, help="output directory (default: beside this script)")
    out = ap.parse_args(argv).out
    out.mkdir(parents=True, exist_ok=True)
    rng = np.random.default_rng(20240611)
    body_pts, body_cp_ = fuselage()
    body_meas = measured(body_cp_, rng)
    body_meas[covered_by_root(body_pts)] = NO_VALUE
    patches = [(body_pts, [body_meas])]
    for mirror in (False, True):
        pts, cp = wing(mirror)
        patches.append((pts, [measured(cp, rng)]))
    write_fld(out / "wingbody.fld", "wingbody", patches, ["cp"], (MACH, ALPHA, BETA))
    write_markers(out / "wingbody_ports.mrk", *ports(rng))
    nodes = sum(p.shape[0] * p.shape[1] for p, _ in patches)
    print(f"wingbody.fld: {len(patches)} patches, {nodes} nodes; wingbody_ports.mrk written")


if __name__ == "__main__":
    main()
