"""Film looks for 8-bit BGRA frames held in NumPy arrays.

    import vantyx
    with vantyx.Engine() as engine:
        fx = engine.effect("blackmist")
        out = fx.process(img, intensity=1.4, threshold=150)   # img: H x W x 4 uint8, BGRA

An effect's options are those of the command line (``vantyx apply EFFECT --help``) with '-'
written '_'; ``help(fx.process)`` and ``fx.options`` list them with their ranges. Giving any
option that only the full call has selects the full call, as the command line does, and the
result is byte for byte what the command line and the C++ hosts give.

An engine runs one frame at a time on its pool of worker threads; the GIL is released while it
does, so threads with an engine each render side by side. Arrays whose rows hold whole pixels
(row padding allowed) are read and written in place; others are copied.
"""

from __future__ import annotations

import inspect
import re

import numpy as np

from . import _vantyx

__version__ = _vantyx.__version__
__all__ = ["Effect", "Engine", "VantyxError", "check_options", "effects", "from_rgb", "to_rgb"]

_TABLE = _vantyx.effect_table()


class VantyxError(RuntimeError):
    """A failure the library reported.

    Attributes: ``code`` (the result code, e.g. 0x80070057), ``meaning`` (its meaning in words),
    ``stage`` (the name of the pipeline stage that failed, or None when the library named none,
    as for a frame size it refuses), ``stages`` (every name its log lines gave, innermost first),
    ``log`` (those lines) and ``call`` ("create", "set_image_size", "process" or "full process").
    """

    def __init__(self, message, code, meaning, stage, stages, log, call):
        super().__init__(message)
        self.code = code
        self.meaning = meaning
        self.stage = stage
        self.stages = stages
        self.log = log
        self.call = call

    def __reduce__(self):  # travels whole, e.g. from a Dask worker
        return type(self), (str(self), self.code, self.meaning, self.stage, self.stages,
                            self.log, self.call)


def effects() -> tuple[str, ...]:
    """The names engine.effect() takes, as the command line spells them."""
    return tuple(_TABLE)


Effect = _vantyx.Effect
check_options = _vantyx.check_options


class Engine(_vantyx.Engine):
    """An engine and the worker threads its effects share; also a context manager that closes it.

    One engine per process is enough; it renders one frame at a time (calls from several threads
    take turns). Threads that want to render at the same time use an engine each.
    """

    def effect(self, name: str) -> Effect:
        """A new instance of the effect called `name` (see vantyx.effects())."""
        return _EFFECT_CLASSES.get(name, Effect)(self, name)

    def __enter__(self) -> Engine:
        return self

    def __exit__(self, *exc) -> None:
        self.close()


def _check_u8(array, name):
    if not isinstance(array, np.ndarray):
        raise TypeError(f"{name} must be a numpy.ndarray of uint8, not {type(array).__name__}")
    if array.dtype != np.uint8:
        raise TypeError(f"{name} must have dtype uint8, not {array.dtype}")


def from_rgb(rgb: np.ndarray) -> np.ndarray:
    """A new H x W x 4 BGRA array from an RGB, RGBA or grey uint8 array (Pillow, imageio).

    Without alpha in the input, alpha is 255.
    """
    _check_u8(rgb, "rgb")
    if rgb.ndim == 2:
        rgb = rgb[:, :, None].repeat(3, axis=2)
    if rgb.ndim != 3 or rgb.shape[2] not in (3, 4):
        raise ValueError(f"rgb must be H x W (grey), H x W x 3 (RGB) or H x W x 4 (RGBA), "
                         f"not shape {rgb.shape}")
    bgra = np.empty(rgb.shape[:2] + (4,), np.uint8)
    bgra[..., :3] = rgb[..., 2::-1]
    bgra[..., 3] = rgb[..., 3] if rgb.shape[2] == 4 else 255
    return bgra


def to_rgb(bgra: np.ndarray, alpha: bool = False) -> np.ndarray:
    """A new H x W x 3 RGB array (H x W x 4 RGBA with alpha=True) from a BGRA array."""
    _check_u8(bgra, "bgra")
    if bgra.ndim != 3 or bgra.shape[2] != 4:
        raise ValueError(f"bgra must be H x W x 4, not shape {bgra.shape}")
    return np.ascontiguousarray(bgra[..., [2, 1, 0, 3] if alpha else [2, 1, 0]])


# ---- one class per effect, so that help() and editors show its options ---------------------

class _Default:
    """Shows a default in a signature as the table words it ("max(w,h)/32")."""

    def __init__(self, text):
        self.text = text

    def __repr__(self):
        return self.text


def _option_annotation(info) -> str:
    names = ", ".join(f'"{name}"' for name in info["choices"])
    return f"{info['type']} | Literal[{names}]" if names else info["type"]


def _process_doc(entry) -> str:
    lines = [f"{entry['title']}: {entry['summary']}.", "",
             "img: H x W x 4 uint8 BGRA. Returns a new array, or `out` filled in: the image's",
             "size, or the rectangle's with rect=(left, top, right, bottom) (right and bottom",
             "exclusive). mask: H x W uint8, how much of the effect each pixel gets.", "",
             "Options (w and h are the image's width and height):"]
    for option, info in entry["options"].items():
        call = " (full call)" if info["full_only"] else ""
        range_and_default = f"[{info['range']}; default {info['default']}]"
        lines.append(f"  {option} {range_and_default}: {info['help']}{call}")
    lines += ["", "Raises TypeError or ValueError for a wrong argument, VantyxError when the",
              "library fails."]
    return _python_words("\n".join(lines))


def _python_words(text: str) -> str:
    """The table words some defaults for the command line ("from --strength")."""
    return re.sub(r"--([a-z-]+)", lambda m: m[1].replace("-", "_"), text)


def _effect_class(entry):
    keyword = inspect.Parameter.KEYWORD_ONLY
    parameters = [inspect.Parameter("self", inspect.Parameter.POSITIONAL_OR_KEYWORD),
                  inspect.Parameter("img", inspect.Parameter.POSITIONAL_OR_KEYWORD),
                  inspect.Parameter("out", keyword, default=None),
                  inspect.Parameter("rect", keyword, default=None),
                  inspect.Parameter("mask", keyword, default=None)]
    for option, info in entry["options"].items():
        default = _Default(_python_words(info["default"]))
        parameters.append(inspect.Parameter(option, keyword, default=default,
                                            annotation=_option_annotation(info)))

    def process(self, img, *, out=None, rect=None, mask=None, **options):
        return Effect.process(self, img, out=out, rect=rect, mask=mask, **options)

    process.__signature__ = inspect.Signature(parameters)
    process.__doc__ = _process_doc(entry)
    class_name = entry["title"].replace(" ", "") + "Effect"
    process.__qualname__ = f"{class_name}.process"
    return type(class_name, (Effect,), {"__doc__": f"{entry['title']}: {entry['summary']}.",
                                        "__module__": __name__, "process": process})


_EFFECT_CLASSES = {name: _effect_class(entry) for name, entry in _TABLE.items()}
globals().update({cls.__name__: cls for cls in _EFFECT_CLASSES.values()})  # as the stubs name them
