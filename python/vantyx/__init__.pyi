"""Film looks for 8-bit BGRA frames held in NumPy arrays."""

from typing import Any, Literal, Sequence, overload

import numpy as np
from numpy.typing import NDArray

__version__: str

class VantyxError(RuntimeError):
    """A failure the library reported: its result code, the code's meaning, the failing stage."""

    code: int
    meaning: str
    stage: str | None
    stages: tuple[str, ...]
    log: tuple[str, ...]
    call: str

def effects() -> tuple[str, ...]:
    """The names engine.effect() takes, as the command line spells them."""

def check_options(effect: str, **options: float | str) -> None:
    """Raises TypeError or ValueError for an unknown option, a wrong type or a value out of range."""

def from_rgb(rgb: NDArray[np.uint8]) -> NDArray[np.uint8]:
    """A new H x W x 4 BGRA array from an RGB, RGBA or grey uint8 array (alpha 255 without one)."""

def to_rgb(bgra: NDArray[np.uint8], alpha: bool = False) -> NDArray[np.uint8]:
    """A new H x W x 3 RGB array (H x W x 4 RGBA with alpha=True) from a BGRA array."""

class Effect:
    """One effect instance of an engine."""

    @property
    def name(self) -> str: ...
    @property
    def title(self) -> str: ...
    @property
    def summary(self) -> str: ...
    @property
    def options(self) -> dict[str, dict[str, Any]]:
        """{option: help, type, min, max, range, default, choices, full_only}."""
    def process(
        self,
        img: NDArray[np.uint8],
        *,
        out: NDArray[np.uint8] | None = None,
        rect: Sequence[int] | None = None,
        mask: NDArray[np.uint8] | None = None,
        **options: float | str,
    ) -> NDArray[np.uint8]:
        """Renders img (H x W x 4 uint8, BGRA) into a new array or into out."""

# @effect classes@

class Engine:
    """An engine and the worker threads its effects share; a context manager that closes it."""

    def __init__(self) -> None: ...
    # @effect overloads@
    def effect(self, name: str) -> Effect:
        """A new instance of the effect called `name` (see vantyx.effects())."""
    def close(self) -> None:
        """Deletes the engine and its effects; they raise ValueError afterwards."""
    @property
    def closed(self) -> bool: ...
    def __enter__(self) -> Engine: ...
    def __exit__(self, *exc: object) -> None: ...
