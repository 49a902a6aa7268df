import _thread
import re
import sys
import threading
import time

import numpy as np
import pytest

import tundrel


def test_threads_give_the_results_of_one_thread(example_field):
    shared = example_field()
    fields = [shared, shared, example_field()]  # calls on one container take turns
    alone = tundrel.self_illumination(example_field(), "cp", ratio=0.5).values
    threads = [threading.Thread(target=tundrel.self_illumination, args=(fm, "cp"), kwargs={"ratio": 0.5, "name": f"si{k}"})
               for k, fm in enumerate(fields)]
    [t.start() for t in threads] + [t.join() for t in threads]
    for k, fm in enumerate(fields):
        np.testing.assert_allclose(fm[f"si{k}"].values, alone, rtol=1e-12)


@pytest.mark.parametrize("operation", ["self_illumination", "pressure_ports"])
def test_ctrl_c_stops_the_run_and_changes_nothing(example_dir, example_field, operation):
    fm = example_field(refine=1)
    before = [f.name for f in fm.functions]
    run = {"self_illumination": lambda: tundrel.self_illumination(fm, "cp"),
           "pressure_ports": lambda: tundrel.pressure_ports(fm, markers_file=example_dir / "wingbody_ports.mrk",
                                                            max_deflexion=0.05)}[operation]
    main = threading.main_thread().ident

    def interrupt_inside_run():  # Ctrl-C once the main thread has entered the call
        while sys._current_frames()[main].f_code is not run.__code__:
            time.sleep(0.001)
        _thread.interrupt_main()

    threading.Thread(target=interrupt_inside_run, daemon=True).start()
    with pytest.raises(KeyboardInterrupt):
        run()
    assert [f.name for f in fm.functions] == before


def test_version_and_formats(example_dir):
    assert tundrel.__version__ == re.search(r"project\(\w+ VERSION ([\d.]+)", (example_dir.parent / "CMakeLists.txt").read_text())[1]
    assert all(tundrel.find_format(e.upper()).name == f.name for f in tundrel.formats() for e in f.extensions)
