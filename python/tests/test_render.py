import numpy as np
import pytest

import tundrel


@pytest.fixture
def wingbody(example_dir):
    return tundrel.read(str(example_dir / "wingbody.fld"))


def test_render_gives_arrays_and_png_files(wingbody, tmp_path):
    img = tundrel.render(wingbody, field="cp", views=["top", "iso"], size=(200, 120))
    assert img.shape == (120, 200, 3) and img.dtype == np.uint8
    assert (img.max(axis=2) < 200).sum() > 1000  # the model's coloured pixels, not only white
    fm, flow = tundrel.FieldMaster(), tundrel.ambientFlow()
    tundrel.Region_to_fieldMaster(*wingbody, fm, flow)
    rgba = tundrel.render(fm, "cp", transparent=True, size=(64, 48), title="wb", flow=flow, azimuth=30)
    assert rgba.shape == (48, 64, 4) and rgba[0, 0, 3] == 0 and rgba[:, :, 3].max() == 255
    out = tmp_path / "cp.png"
    assert tundrel.render(wingbody[0], field="cp", file=str(out), size=(64, 48)) is None
    assert out.read_bytes()[1:4] == b"PNG"


@pytest.mark.parametrize("kwargs", [dict(field="nope"), dict(field="cp", views=["side"]), dict(field="cp", colormap="jet"),
                                    dict(field="cp", range=(1, 0)), dict(difference=("cp", "nope")),
                                    dict(field="cp", views="top", azimuth=10)])
def test_render_refuses_bad_parameters(wingbody, kwargs):
    with pytest.raises(ValueError):
        tundrel.render(wingbody, size=(64, 48), **kwargs)
