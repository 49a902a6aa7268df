import _thread
import pathlib
import re
import sys
import threading
import time

import numpy as np
import pytest

import tundrel


def example_field(example_dir, refine=0):
    reg, _ = tundrel.read(example_dir / "wingbody.fld")
    faces = tundrel.region_fe()
    tundrel.converter_reg_to_reg_fe(reg, faces)
    for _ in range(refine):
        tundrel.block_fe_compress(faces, list(range(len(faces))))
    fm = tundrel.FieldMaster()
    tundrel.Region_to_fieldMaster(tundrel.region(), faces, fm, tundrel.ambientFlow())
    return fm


@pytest.mark.parametrize("shared", [False, True], ids=["own containers", "one container"])
def test_threads_give_the_results_of_one_thread(example_dir, shared):
    fields = [example_field(example_dir)] * 3 if shared else [example_field(example_dir) for _ in range(3)]
    alone = tundrel.self_illumination(example_field(example_dir), "cp", ratio=0.5).values.copy()
    got = {}

    def work(k):
        got[k] = tundrel.self_illumination(fields[k], "cp", ratio=0.5, name=f"si{k}").values.copy()

    threads = [threading.Thread(target=work, args=(k,)) for k in range(3)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert sorted(got) == [0, 1, 2]
    for k, values in got.items():
        np.testing.assert_allclose(values, alone, rtol=1e-12)
        assert fields[k].hasFunction(f"si{k}")


def interrupt_inside(code):
    """Ctrl-C for the main thread once it runs inside `code` (a call made from it)."""
    main = threading.main_thread().ident

    def watch():
        for _ in range(60000):
            if sys._current_frames()[main].f_code is code:
                return _thread.interrupt_main()
            time.sleep(0.001)

    threading.Thread(target=watch, daemon=True).start()


@pytest.mark.parametrize("operation", ["self_illumination", "pressure_ports"])
def test_ctrl_c_stops_the_run_and_changes_nothing(example_dir, operation):
    fm = example_field(example_dir, refine=1 if operation == "self_illumination" else 2)
    before = [f.name for f in fm.functions]
    run = {
        "self_illumination": lambda: tundrel.self_illumination(fm, "cp"),
        "pressure_ports": lambda: tundrel.pressure_ports(fm, markers_file=example_dir / "wingbody_ports.mrk",
                                                         order=2, max_deflexion=0.05),
    }[operation]
    interrupt_inside(run.__code__)
    with pytest.raises(KeyboardInterrupt):
        run()
    assert [f.name for f in fm.functions] == before


def test_version_and_formats(example_dir):
    cmake = (pathlib.Path(example_dir).parent / "CMakeLists.txt").read_text()
    assert tundrel.__version__ == re.search(r"project\(\w+ VERSION ([\d.]+)", cmake).group(1)
    for f in tundrel.formats():
        assert all(tundrel.find_format(e.upper()) is f or tundrel.find_format(e).name == f.name for e in f.extensions)
        assert f.structured_patches or f.face_patches
    with pytest.raises(ValueError, match=", ".join(e for f in tundrel.formats() for e in f.extensions)):
        tundrel.read("model.unknown")
