"""Shared fixtures: the bundled photos, the C++ hosts to compare with, a small random frame."""

import os
import pathlib
import subprocess

import numpy as np
import pytest
from PIL import Image

import vantyx

ASSETS = pathlib.Path(os.environ.get("VANTYX_ASSETS", pathlib.Path(__file__).parents[2] / "assets"))


@pytest.fixture(scope="session")
def photos():
    """{file name: BGRA array} for every bundled photo."""
    return {path.name: vantyx.from_rgb(np.asarray(Image.open(path).convert("RGB")))
            for path in sorted(ASSETS.glob("*")) if path.suffix in (".png", ".jpg")}


@pytest.fixture()
def engine():
    with vantyx.Engine() as engine:
        yield engine


def host(variable):
    """A C++ host named by the test's environment (CTest sets it), run with arguments."""
    program = os.environ.get(variable)
    if not program:
        pytest.skip(f"{variable} is not set")
    return lambda *args: subprocess.run([program, *map(str, args)], check=True,
                                        capture_output=True)


def middle_options(options):
    """Every option inside its range: the middle, or min + 1 with no fixed maximum; a range wider
    than a byte's is cut to one, so that radii stay cheap under the sanitizers."""
    values = {}
    for name, info in options.items():
        top = info["max"] if info["max"] is not None else info["min"] + 2
        middle = (info["min"] + min(top, info["min"] + 255)) / 2
        values[name] = int(middle) if info["type"] == "int" else middle
    return values


@pytest.fixture(scope="session")
def frame():
    """A 61 x 37 BGRA frame: random texture with a bright patch, so every stage has work."""
    rng = np.random.default_rng(7)
    img = rng.integers(0, 256, (37, 61, 4), dtype=np.uint8)
    img[10:25, 20:45, :3] = 250
    return img
