"""The bundled example: its files are what its script makes, the main job
runs on it, and the README's examples run as written."""

import importlib.util
import json
import os
import re
import shlex
import subprocess
import sys

import pytest

import tundrel


def load(example_dir, name):
    loader_spec = importlib.util.spec_from_file_location(name, example_dir / f"{name}.py")
    module = sys.modules[name] = importlib.util.module_from_spec(loader_spec)
    loader_spec.loader.exec_module(module)
    return module


def readme_block(source_dir, language, heading=None):
    section = (source_dir / "README.md").read_text()
    section = section.split(heading, 1)[1] if heading else section
    return section.split(f"```{language}\n", 1)[1].split("```", 1)[0]


def test_committed_files_are_what_the_script_makes(example_dir, tmp_path):
    load(example_dir, "make_example").main(["--out", str(tmp_path)])
    for name in ("wingbody.fld", "wingbody_ports.mrk"):
        assert (tmp_path / name).read_bytes() == (example_dir / name).read_bytes(), name


def test_main_job(example_dir, tmp_path, capsys):
    assert load(example_dir, "process_example").main(["--out", str(tmp_path), "--no-visibility"]) == 0
    summary = capsys.readouterr().out
    for word in ("nodes     4711 in 3 patches", "fields    cp, $_N, $_selection, cp_si, cp_ports", "timings"):
        assert word in summary
    near, far = (float(v) for v in re.search(r"root (\S+), elsewhere (\S+)", summary).groups())
    assert near > 5 * far, "the correction matters most in the wing-fuselage corners"
    reg, _ = tundrel.read(tmp_path / "wingbody.dat")
    assert [v.name for v in reg[0].variables] == ["x", "y", "z", "cp", "cp_si", "cp_ports"]
    assert reg.name == "wingbody" and reg.Mach == 0.7
    _, vrml_fe = tundrel.read(tmp_path / "wingbody.wrl")
    assert len(vrml_fe) == 3 and sum(p.nodes for p in vrml_fe) == 4711


def test_readme_python_example_runs_as_written(example_dir, monkeypatch, capsys):
    monkeypatch.chdir(example_dir.parent)
    exec(compile(readme_block(example_dir.parent, "python"), "README.md", "exec"), {})
    assert "The function name alredy exist" in capsys.readouterr().out


@pytest.mark.skipif("TUNDREL_CLI" not in os.environ, reason="TUNDREL_CLI names the tundrel command (set by CTest)")
def test_readme_commands_run_as_written(example_dir, tmp_path):
    source = example_dir.parent
    for d in ("tests", "examples"):
        (tmp_path / d).symlink_to(source / d)
    lines = [line.split("#", 1)[0].strip() for line in readme_block(source, "sh", "## The command line").splitlines()]
    commands = [line for line in lines if line.startswith("$T ")]
    assert len(commands) >= 8
    for line in (line for line in lines if line.startswith("mkdir ")):
        subprocess.run(shlex.split(line), cwd=tmp_path, check=True)
    for command in commands:
        r = subprocess.run([os.environ["TUNDREL_CLI"]] + shlex.split(command)[1:], cwd=tmp_path,
                           capture_output=True, text=True)
        assert r.returncode == 0, f"{command}: {r.stderr}"
        for written in (w for w in shlex.split(command) if w.startswith("out/")):
            assert (tmp_path / written).stat().st_size > 0, command


def test_campaign_script_writes_a_campaign_the_command_accepts(example_dir, tmp_path):
    load(example_dir, "make_campaign").main(["--out", str(tmp_path)])
    assert len(json.loads((tmp_path / "campaign.json").read_text())["runs"]) == 3
    if "TUNDREL_CLI" in os.environ:
        r = subprocess.run([os.environ["TUNDREL_CLI"], "batch", "--dry-run", str(tmp_path / "campaign.json")],
                           capture_output=True, text=True)
        assert r.returncode == 0 and r.stdout.split() == ["m060_a2", "to", "run", "m070_a3", "to", "run",
                                                          "m080_a4", "to", "run"], r.stderr
