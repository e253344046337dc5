"""vantyx.batch on a local Dask cluster of two worker processes, against a run in this process."""

import os
import subprocess
import sys

import numpy as np
import pytest
from PIL import Image

import vantyx
from vantyx import batch

distributed = pytest.importorskip("distributed")


@pytest.fixture(scope="module")
def pictures(tmp_path_factory):
    """20 small pictures (PNG with and without alpha, JPEG), one of them a broken PNG."""
    folder = tmp_path_factory.mktemp("in")
    rng = np.random.default_rng(3)
    for i in range(19):
        h, w = 24 + i, 40 + 2 * i
        rgba = rng.integers(0, 256, (h, w, 4), dtype=np.uint8)
        rgba[h // 3:h // 2, w // 4:w // 2, :3] = 250
        name, mode = [("p%02d.png", "RGB"), ("a%02d.png", "RGBA"), ("j%02d.jpg", "RGB")][i % 3]
        Image.fromarray(rgba if mode == "RGBA" else rgba[..., :3]).save(folder / (name % i))
    (folder / "broken.png").write_bytes(b"\x89PNG\r\n\x1a\n" + bytes(100))
    return folder


@pytest.fixture(scope="module")
def client():
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  dashboard_address=None) as cluster:
        with distributed.Client(cluster) as client:
            yield client


@pytest.mark.parametrize("effect", vantyx.effects())
def test_cluster_run_matches_sequential_calls(effect, pictures, client, tmp_path):
    (tmp_path / "cluster").mkdir()
    (tmp_path / "cluster" / "broken.png").write_bytes(b"kept")  # a failure must not replace it
    report = batch.run(str(pictures / "*"), effect, tmp_path / "cluster", client)
    assert [os.path.basename(path) for path, _ in report.failed] == ["broken.png"]
    assert "broken.png" in report.failed[0][1] and len(report.written) == 19
    here = batch.run(str(pictures / "*"), effect, tmp_path / "here", progress=False)
    assert here.failed == report.failed
    cluster, here = tmp_path / "cluster", tmp_path / "here"
    names = sorted(os.listdir(cluster))
    assert names == sorted(os.listdir(pictures))
    assert (cluster / "broken.png").read_bytes() == b"kept"
    with vantyx.Engine() as engine:
        fx = engine.effect(effect)
        for name in (name for name in names if name != "broken.png"):
            assert (cluster / name).read_bytes() == (here / name).read_bytes()
            assert Image.open(here / name).format == ("PNG" if name.endswith(".png") else "JPEG")
            if name.endswith(".png"):
                source = Image.open(pictures / name)
                alpha = source.mode == "RGBA"
                expected = fx.process(vantyx.from_rgb(np.asarray(source)))
                written = np.asarray(Image.open(cluster / name))
                assert np.array_equal(written, vantyx.to_rgb(expected, alpha=alpha)), name
    # One engine per worker process, kept across its tasks.
    assert set(client.run(lambda: batch.engines_made).values()) <= {0, 1}


def test_command_line(pictures, tmp_path):
    effect = vantyx.effects()[0]
    command = [sys.executable, "-m", "vantyx.batch", effect]
    done = subprocess.run(command + [str(pictures / "p*.png"), str(pictures / "broken.png"),
                                     str(tmp_path)], capture_output=True, text=True)
    assert done.returncode == 1 and "broken.png" in done.stderr
    assert sorted(os.listdir(tmp_path)) == sorted(n for n in os.listdir(pictures) if n[0] == "p")
    option, info = next((o, i) for o, i in vantyx.Engine().effect(effect).options.items()
                        if i["max"] is not None)
    too_big = [f"--{option.replace('_', '-')}", str(info["max"] + 1)]
    done = subprocess.run(command + ["--quiet", *too_big, str(pictures / "p00.png"), str(tmp_path)],
                          capture_output=True, text=True)
    assert done.returncode == 2 and option in done.stderr
