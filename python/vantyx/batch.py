"""One effect over many PNG and JPEG files, on a Dask cluster or in this process.

    from dask.distributed import Client
    from vantyx import batch

    report = batch.run("photos/*.jpg", "blackmist", "out/", client=Client("tcp://host:8786"),
                       intensity=1.4)
    for path, message in report.failed:
        print(path, message)

Each output keeps its input's name and format and is written to a temporary file in out_dir
that is renamed over the final name only once complete. A file that fails is reported and the
others go on. Every worker process makes one engine and reuses it for all its files.

Command line: python -m vantyx.batch EFFECT [options] INPUT... OUT_DIR (see --help).
"""

from __future__ import annotations

import argparse
import contextlib
import glob
import os
import sys
import tempfile
import threading
import warnings
from dataclasses import dataclass, field
from typing import Iterable

import numpy as np

import vantyx

JPEG_QUALITY = 92  # as the command line
_FORMATS = {".png": "PNG", ".jpg": "JPEG", ".jpeg": "JPEG"}


@dataclass
class Report:
    """What run() did: (input, output) for each file written, (input, message) for each failure."""

    written: list[tuple[str, str]] = field(default_factory=list)
    failed: list[tuple[str, str]] = field(default_factory=list)


# ---- on a worker --------------------------------------------------------------------------------

_lock = threading.Lock()
_engine = None
_engine_pid = 0
_effects: dict[str, vantyx.Effect] = {}
engines_made = 0  # by this process


def _effect(name: str) -> vantyx.Effect:
    global _engine, _engine_pid, engines_made
    with _lock:
        if _engine is None or _engine_pid != os.getpid():  # not one inherited through a fork
            _engine, _engine_pid = vantyx.Engine(), os.getpid()
            _effects.clear()
            engines_made += 1
        if name not in _effects:
            _effects[name] = _engine.effect(name)
        return _effects[name]


def _umask() -> int:
    mask = os.umask(0)
    os.umask(mask)
    return mask


def _write_atomically(picture, target: str, fmt: str, jpeg_quality: int) -> None:
    folder, name = os.path.split(target)
    handle, temporary = tempfile.mkstemp(dir=folder or ".", prefix=f".{name}.", suffix=".part")
    try:
        with os.fdopen(handle, "wb") as stream:
            picture.save(stream, format=fmt, **({"quality": jpeg_quality} if fmt == "JPEG" else {}))
            stream.flush()
            os.fsync(stream.fileno())
        os.chmod(temporary, 0o666 & ~_umask())  # mkstemp makes it private
        os.replace(temporary, target)
    except BaseException:
        with contextlib.suppress(OSError):
            os.unlink(temporary)
        raise


def render_file(source: str, target: str, effect: str, params: dict,
                jpeg_quality: int = JPEG_QUALITY) -> str | None:
    """Renders one file into target: None when written, else what went wrong. Never raises."""
    from PIL import Image

    try:
        fmt = _FORMATS.get(os.path.splitext(target)[1].lower())
        if fmt is None:
            return "not a .png, .jpg or .jpeg file name"
        with Image.open(source) as picture:
            # As the command line: alpha is kept where the file has it, else 255.
            alpha = picture.mode in ("RGBA", "LA", "PA") or "transparency" in picture.info
            rgb = np.asarray(picture.convert("RGBA" if alpha else "RGB"))
        out = _effect(effect).process(vantyx.from_rgb(rgb), **params)
        result = Image.fromarray(vantyx.to_rgb(out, alpha=alpha and fmt == "PNG"))
        _write_atomically(result, target, fmt, jpeg_quality)
        return None
    except Exception as error:  # reported per file; the other files go on
        return f"{type(error).__name__}: {error}"


# ---- on the client ------------------------------------------------------------------------------

def _inputs(paths_or_glob) -> list[str]:
    if isinstance(paths_or_glob, (str, os.PathLike)):
        pattern = os.fspath(paths_or_glob)
        paths = sorted(glob.glob(pattern, recursive=True)) if glob.has_magic(pattern) else [pattern]
    else:
        paths = [os.fspath(path) for path in paths_or_glob]
    if not paths:
        raise ValueError(f"paths_or_glob: nothing matches {paths_or_glob!r}")
    return paths


def _targets(paths: list[str], out_dir: str) -> list[str]:
    targets: dict[str, str] = {}
    for path in paths:
        target = os.path.join(out_dir, os.path.basename(path))
        if target in targets:
            raise ValueError(f"paths_or_glob: {targets[target]!r} and {path!r} would both be "
                             f"written to {target!r}")
        targets[target] = path
    return list(targets)


def run(paths_or_glob: str | os.PathLike | Iterable[str | os.PathLike], effect: str,
        out_dir: str | os.PathLike, client=None, *, jpeg_quality: int = JPEG_QUALITY,
        progress: bool = True, **params: float | str) -> Report:
    """Renders every file with `effect` and writes the results into out_dir.

    paths_or_glob: a glob pattern ("photos/**/*.jpg") or a path, or a list of paths.
    client: a dask.distributed Client to run on; None renders here, one file after the other.
    params: the effect's options, as for Effect.process; checked before anything starts.
    progress: show Dask's progress bar. Returns a Report; raises only for bad arguments.
    """
    vantyx.check_options(effect, **params)
    if not 1 <= jpeg_quality <= 100:
        raise ValueError(f"jpeg_quality={jpeg_quality!r} is out of range (allowed: 1..100)")
    sources = _inputs(paths_or_glob)
    out_dir = os.fspath(out_dir)
    targets = _targets(sources, out_dir)
    os.makedirs(out_dir, exist_ok=True)

    if client is None:
        import dask
        from dask.diagnostics import ProgressBar

        tasks = [dask.delayed(render_file, pure=False)(source, target, effect, params, jpeg_quality)
                 for source, target in zip(sources, targets)]
        with ProgressBar() if progress else contextlib.nullcontext(), warnings.catch_warnings():
            # Asked to run here: a distributed client elsewhere in the process is not wanted.
            warnings.filterwarnings("ignore", "Running on a single-machine scheduler")
            outcomes = list(dask.compute(*tasks, scheduler="synchronous"))
    else:
        futures = client.map(render_file, sources, targets, effect=effect, params=params,
                             jpeg_quality=jpeg_quality, pure=False)
        if progress:
            from distributed import progress as show_progress
            show_progress(futures)
        outcomes = []
        for future in futures:
            try:
                outcomes.append(future.result())
            except Exception as error:  # a worker lost on the way, for one
                outcomes.append(f"{type(error).__name__}: {error}")

    report = Report()
    for source, target, outcome in zip(sources, targets, outcomes):
        if outcome is None:
            report.written.append((source, target))
        else:
            report.failed.append((source, outcome))
    return report


# ---- python -m vantyx.batch ---------------------------------------------------------------------

def _option_value(text: str):
    for kind in (int, float):
        with contextlib.suppress(ValueError):
            return kind(text)
    return text


def main(argv: list[str] | None = None) -> int:
    parser = argparse.ArgumentParser(
        prog="python -m vantyx.batch",
        description="Apply one effect to PNG and JPEG files, on a Dask cluster or here. "
                    "Exit status: 0 all written, 1 some failed, 2 bad command line.")
    effects = parser.add_subparsers(dest="effect", required=True, metavar="EFFECT")
    for name, entry in vantyx._TABLE.items():
        sub = effects.add_parser(name, help=entry["summary"],
                                 description=f"{entry['title']}: {entry['summary']}.")
        for option, info in entry["options"].items():
            sub.add_argument("--" + option.replace("_", "-"), dest=option, type=_option_value,
                             default=argparse.SUPPRESS, metavar="VALUE",
                             help=f"{info['help']} [{info['range']}; default {info['default']}]")
        sub.add_argument("inputs", nargs="+", metavar="INPUT",
                         help="PNG or JPEG files, or quoted glob patterns")
        sub.add_argument("out_dir", metavar="OUT_DIR")
        where = sub.add_mutually_exclusive_group()
        where.add_argument("--scheduler", metavar="ADDRESS",
                           help="a running Dask scheduler, e.g. tcp://host:8786")
        where.add_argument("--workers", type=int, metavar="N",
                           help="start a local Dask cluster of N worker processes")
        sub.add_argument("--jpeg-quality", type=int, default=JPEG_QUALITY, metavar="N",
                         help=f"quality of JPEG outputs [1..100; default {JPEG_QUALITY}]")
        sub.add_argument("--quiet", action="store_true", help="no progress bar")
    args = vars(parser.parse_args(argv))
    effect, out_dir = args.pop("effect"), args.pop("out_dir")
    scheduler, workers = args.pop("scheduler"), args.pop("workers")
    jpeg_quality, quiet = args.pop("jpeg_quality"), args.pop("quiet")
    sources = [path for item in args.pop("inputs") for path in
               (sorted(glob.glob(item, recursive=True)) if glob.has_magic(item) else [item])]
    try:
        vantyx.check_options(effect, **args)
        if not sources:
            raise ValueError("no input files")
    except (TypeError, ValueError) as error:
        parser.error(str(error))

    with contextlib.ExitStack() as stack:
        client = None
        if scheduler or workers:
            from distributed import Client, LocalCluster
            if workers:
                scheduler = stack.enter_context(LocalCluster(
                    n_workers=workers, threads_per_worker=1, dashboard_address=None))
            client = stack.enter_context(Client(scheduler))
        try:
            report = run(sources, effect, out_dir, client, jpeg_quality=jpeg_quality,
                         progress=not quiet, **args)
        except (TypeError, ValueError) as error:
            parser.error(str(error))
    for source, message in report.failed:
        print(f"vantyx.batch: {source}: {message}", file=sys.stderr)
    print(f"vantyx.batch: {len(report.written)} written to {out_dir}, {len(report.failed)} failed",
          file=sys.stderr)
    return 1 if report.failed else 0


if __name__ == "__main__":
    # Run as vantyx.batch, not __main__: workers import the tasks by that name.
    from vantyx.batch import main as batch_main

    sys.exit(batch_main())
