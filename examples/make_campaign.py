#!/usr/bin/python3
"""Writes the example campaign: the wing-body model under three conditions.

Each condition scales and shifts the measured cp of examples/wingbody.fld (and
the pressure-port readings of examples/wingbody_ports.mrk alike), as a
different Mach number and angle of attack would; campaign.json runs the
self-illumination correction (a reflection ratio per run), the pressure-port
field, a picture and a Tecplot-style file for each. Plain text in, plain text
out: no build needed.

    /usr/bin/python3 examples/make_campaign.py [--out examples/campaign]
"""
import argparse
import json
import pathlib
import re

HERE = pathlib.Path(__file__).resolve().parent
NO_VALUE = -1e9  # below: the no-value mark, kept as it is

# id: (cp scale, cp shift, reflection ratio, Mach, alpha)
CONDITIONS = {
    "m060_a2": (0.8, 0.02, 0.3, 0.6, 2.0),
    "m070_a3": (1.0, 0.0, 0.4, 0.7, 3.0),
    "m080_a4": (1.25, -0.05, 0.5, 0.8, 4.0),
}


def value(text, scale, shift):
    v = float(text)
    return text if v < NO_VALUE else f"{v * scale + shift:.7g}"


def scaled_model(text, scale, shift, mach, alpha):
    lines = text.splitlines()
    out = []
    for k, line in enumerate(lines):
        words = line.split()
        # node lines: x y z cp
        if k > 2 and len(words) == 4 and not words[1].isalpha() and re.match(r"^[-+0-9.eE]+$", words[3]):
            try:
                words[3] = value(words[3], scale, shift)
                line = " ".join(words)
            except ValueError:
                pass
        out.append(line)
    # the last line: Mach, alpha, beta
    if len(out[-1].split()) == 3:
        out[-1] = f"{mach:g} {alpha:g} 0"
    return "\n".join(out) + "\n"


def scaled_markers(text, scale, shift):
    def repl(m):
        return m.group(1) + " ".join(value(v, scale, shift) for v in m.group(2).split()) + m.group(3)

    return re.sub(r'(<Function id="f">)([^<]*)(</Function>)', repl, text)


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--out", type=pathlib.Path, default=HERE / "campaign", help="folder written")
    args = ap.parse_args(argv)
    args.out.mkdir(parents=True, exist_ok=True)
    model = (HERE / "wingbody.fld").read_text()
    ports = (HERE / "wingbody_ports.mrk").read_text()
    runs = []
    for run_id, (scale, shift, ratio, mach, alpha) in CONDITIONS.items():
        (args.out / f"{run_id}.fld").write_text(scaled_model(model, scale, shift, mach, alpha))
        (args.out / f"{run_id}_ports.mrk").write_text(scaled_markers(ports, scale, shift))
        runs.append({
            "id": run_id,
            "input": f"{run_id}.fld",
            "self-illumination": {"ratio": ratio},
            "pressure-ports": {"markers": f"{run_id}_ports.mrk"},
        })
    campaign = {
        "description": "The wing-body under three conditions",
        "output": "results",
        "steps": [
            {"step": "read"},
            {"step": "self-illumination", "field": "cp", "name": "cp_si"},
            {"step": "pressure-ports", "deflexion": 0.004, "name": "cp_ports"},
            {"step": "render", "field": "cp_si", "views": "iso,top", "size": "800x400", "out": "cp_si.png"},
            {"step": "write", "out": "wingbody.dat"},
        ],
        "defaults": {"self-illumination": {"obstruction": False}},
        "runs": runs,
    }
    (args.out / "campaign.json").write_text(json.dumps(campaign, indent=2) + "\n")
    print(f"{len(runs)} runs in {args.out / 'campaign.json'}")


if __name__ == "__main__":
    main()
