"""The vantyx module against the command line and the C++ example host, and its argument rules."""

import ast
import os
import pathlib
import pickle
import sys
import threading
import time

import numpy as np
import pytest
from PIL import Image

import vantyx
from conftest import host, middle_options

EFFECTS = vantyx.effects()


def read(path):
    return np.asarray(Image.open(path))


@pytest.mark.parametrize("effect", EFFECTS)
def test_same_bytes_as_the_command_line_and_the_example_host(effect, photos, engine, tmp_path):
    cli, example = host("VANTYX_TOOL"), host("VANTYX_EFFECT_FRAME")
    fx = engine.effect(effect)
    picture, raw, result, mask_file = (tmp_path / name for name in
                                       ("in.png", "in.raw", "out.png", "mask.png"))
    for name, img in photos.items():
        h, w = img.shape[:2]
        Image.fromarray(vantyx.to_rgb(img)).save(picture)
        img.tofile(raw)
        rect = (w // 5, h // 4, w - w // 3, h - 7)
        mask = np.add.outer(np.arange(h) * 255 // h, np.arange(w) * 255 // w).astype(np.uint8)
        Image.fromarray(mask).save(mask_file)
        for options in ({}, middle_options(fx.options)):
            words = [f"{key.replace('_', '-')}={value}" for key, value in options.items()]
            flags = ["--" + word for word in words]
            ours = fx.process(img, **options)
            example(effect, f"{w}x{h}", raw, tmp_path / "out.raw", *words)
            assert ours.tobytes() == (tmp_path / "out.raw").read_bytes(), (name, options)
            cli("apply", effect, *flags, picture, result)
            assert np.array_equal(vantyx.to_rgb(ours), read(result)), (name, options)
            # The same through a rectangle and a mask.
            ours = fx.process(img, rect=rect, mask=mask, **options)
            cli("apply", effect, *flags, "--rect", ",".join(map(str, rect)), "--mask", mask_file,
                picture, result)
            assert np.array_equal(vantyx.to_rgb(ours), read(result)), (name, options)


def test_rgb_helpers():
    rgb = np.array([[[1, 2, 3], [4, 5, 6]]], np.uint8)
    assert vantyx.from_rgb(rgb).tolist() == [[[3, 2, 1, 255], [6, 5, 4, 255]]]
    assert vantyx.from_rgb(np.array([[[1, 2, 3, 9]]], np.uint8)).tolist() == [[[3, 2, 1, 9]]]
    assert vantyx.from_rgb(np.array([[7]], np.uint8)).tolist() == [[[7, 7, 7, 255]]]
    bgra = np.array([[[3, 2, 1, 9]]], np.uint8)
    assert vantyx.to_rgb(bgra).tolist() == [[[1, 2, 3]]]
    assert vantyx.to_rgb(bgra, alpha=True).tolist() == [[[1, 2, 3, 9]]]
    for call, error, name in ((lambda: vantyx.from_rgb(rgb.astype(float)), TypeError, "rgb"),
                              (lambda: vantyx.from_rgb(rgb[..., :2]), ValueError, "rgb"),
                              (lambda: vantyx.to_rgb(rgb), ValueError, "bgra")):
        with pytest.raises(error, match=name):
            call()


def bad_values(info):
    """(value, error, known without a picture) for what each option must refuse."""
    number = int if info["type"] == "int" else float
    yield number(info["min"] - 1), ValueError, True
    if info["max"] is not None:
        yield number(info["max"] + 1), ValueError, True
    elif "max(" in info["range"]:
        yield 1e6, ValueError, False  # over a maximum that depends on the picture
    yield "no such name", ValueError if info["choices"] else TypeError, True
    yield (1.5, TypeError, True) if info["type"] == "int" else (float("nan"), ValueError, True)


@pytest.mark.parametrize("effect", EFFECTS)
def test_wrong_arguments_are_refused_by_name(effect, engine, frame):
    fx = engine.effect(effect)
    read_only = frame.copy()
    read_only.flags.writeable = False
    cases = [({"img": frame.astype(np.float32)}, TypeError, "img"),
             ({"img": frame.tolist()}, TypeError, "img"),
             ({"img": frame[..., :3]}, ValueError, "img"),
             ({"img": frame[:0]}, ValueError, "img"),
             ({"mask": frame[..., 0].astype(np.int16)}, TypeError, "mask"),
             ({"mask": frame[1:, :, 0]}, ValueError, "mask"),
             ({"out": frame[1:]}, ValueError, "out"),
             ({"out": read_only}, ValueError, "out"),
             ({"rect": (0, 0, 62, 10)}, ValueError, "rect"),
             ({"rect": (5, 0, 5, 10)}, ValueError, "rect"),
             ({"rect": (0, 0, 1.5, 10)}, TypeError, "rect"),
             ({"rect": (0, 0, 10)}, ValueError, "rect"),
             ({"no_such_option": 1}, TypeError, "no_such_option")]
    for option, info in fx.options.items():
        for value, error, static in bad_values(info):
            cases.append(({option: value}, error, option))
            if static:
                with pytest.raises(error, match=option):
                    vantyx.check_options(effect, **{option: value})
    for arguments, error, name in cases:
        with pytest.raises(error, match=name):
            fx.process(**{"img": frame, **arguments})


@pytest.mark.parametrize("effect", EFFECTS)
def test_library_error_carries_code_meaning_and_stage(effect, engine, frame):
    fx = engine.effect(effect)
    with pytest.raises(vantyx.VantyxError) as caught:
        fx.process(frame[:1, :9])  # one row has no half size
    error = caught.value
    assert (error.code, error.meaning) == (0x80004005, "failed")
    assert error.stages[-1] == "total process" and error.stage in error.stages
    assert error.stage in str(error) and "0x80004005" in str(error)
    assert all(line.startswith("[VNTX] ") for line in error.log) and error.log
    copy = pickle.loads(pickle.dumps(error))
    assert [str(copy), copy.stage, copy.log] == [str(error), error.stage, error.log]
    assert fx.process(frame).shape == frame.shape  # and the effect works on


@pytest.mark.parametrize("effect", EFFECTS)
def test_layouts_used_in_place_or_copied(effect, engine, frame):
    fx = engine.effect(effect)
    h, w = frame.shape[:2]
    expected = fx.process(frame)
    padded = np.zeros((h, w + 3, 4), np.uint8)[:, :w]
    padded[:] = frame
    canvas = np.full((h + 2, w + 5, 4), 77, np.uint8)
    inside = canvas[1:h + 1, 2:w + 2]
    assert fx.process(padded, out=inside) is inside
    assert np.array_equal(inside, expected)
    inside[:] = 77
    assert (canvas == 77).all()  # nothing written around it
    spread = np.zeros((h, 2 * w, 4), np.uint8)
    spread[:, ::2] = frame
    for view in (spread[:, ::2], np.asfortranarray(frame), frame[::-1].copy()[::-1]):
        assert np.array_equal(fx.process(view), expected)
    assert np.array_equal(fx.process(spread[:, ::2], out=spread[:, 1::2]), expected)
    in_place = frame.copy()
    assert np.array_equal(fx.process(in_place, out=in_place), expected)
    # Pixels an effect leaves alone keep what out held, whether out is used in place or not.
    options = middle_options(fx.options)
    start = np.random.default_rng(1).integers(0, 256, frame.shape, dtype=np.uint8)
    spread[:, 1::2] = start
    assert np.array_equal(fx.process(frame, out=spread[:, 1::2], **options),
                          fx.process(frame, out=start, **options))
    # A rectangle: the output is its size, also into a caller's array.
    rect = (3, 5, 40, 30)
    cut = fx.process(frame, rect=rect)
    assert cut.shape == (25, 37, 4)
    assert np.array_equal(fx.process(frame, rect=rect, out=np.empty_like(cut)), cut)
    mask = np.arange(h * w, dtype=np.uint8).reshape(h, w)
    spread_mask = np.zeros((h, 2 * w), np.uint8)
    spread_mask[:, ::2] = mask
    assert np.array_equal(fx.process(frame, mask=spread_mask[:, ::2]), fx.process(frame, mask=mask))


@pytest.mark.parametrize("effect", EFFECTS)
def test_a_choice_name_stands_for_its_number(effect, engine, frame):
    fx = engine.effect(effect)
    for option, info in fx.options.items():
        for number, name in enumerate(info["choices"]):
            if not name:  # a number without a name (Infrared's views 2 to 8)
                continue
            by_name = fx.process(frame, **{option: name})
            assert np.array_equal(by_name, fx.process(frame, **{option: number})), (option, name)


@pytest.mark.parametrize("shared", [False, True], ids=["two engines", "one engine"])
def test_threads_render_at_once_and_release_the_gil(shared, photos):
    jobs = [(effect, img) for effect in EFFECTS for img in photos.values()][:2]
    jobs = (jobs * 2)[:2]
    with vantyx.Engine() as engine:
        expected = [engine.effect(effect).process(img) for effect, img in jobs]
    ticks, results, freed = [0], [None, None], [False, False]
    done = threading.Event()

    def tick():
        while not done.is_set():
            ticks[0] += 1
            time.sleep(0.001)

    def render(i, engine):
        effect, img = jobs[i]
        fx = engine.effect(effect)
        results[i] = np.empty_like(img)  # nothing allocated inside: NumPy may free the GIL there
        start = ticks[0]
        for _ in range(100):  # another thread runs while a frame renders, or never
            fx.process(img, out=results[i])
            if ticks[0] != start:
                freed[i] = True
                break

    switch = sys.getswitchinterval()
    sys.setswitchinterval(100)  # from here the GIL changes hands only where it is released
    try:
        engines = [vantyx.Engine()] * 2 if shared else [vantyx.Engine(), vantyx.Engine()]
        threads = [threading.Thread(target=tick)] + [
            threading.Thread(target=render, args=(i, engines[i])) for i in range(2)]
        for thread in threads:
            thread.start()
        for thread in threads[1:]:
            thread.join()
        done.set()
        threads[0].join()
    finally:
        sys.setswitchinterval(switch)
    assert freed == [True, True]
    for got, want in zip(results, expected):
        assert np.array_equal(got, want)


def test_engine_lifecycle(frame):
    with vantyx.Engine() as engine:
        fx = engine.effect(EFFECTS[0])
        with pytest.raises(ValueError, match=EFFECTS[0]):
            engine.effect("no such effect")
        child = os.fork()  # a copy without the engine's worker threads
        if child == 0:
            try:
                fx.process(frame)
            except RuntimeError:
                os._exit(0)
            os._exit(1)
        for _ in range(400):  # a child that waits on the missing threads hangs
            done, status = os.waitpid(child, os.WNOHANG)
            if done:
                break
            time.sleep(0.05)
        else:
            os.kill(child, 9)
            status = os.waitpid(child, 0)[1]
        assert os.waitstatus_to_exitcode(status) == 0
        assert fx.process(frame).shape == frame.shape
    assert engine.closed
    for call in (lambda: fx.process(frame), lambda: engine.effect(EFFECTS[0])):
        with pytest.raises(ValueError, match="closed"):
            call()


def test_stubs_name_every_option():
    stub = ast.parse((pathlib.Path(vantyx.__file__).parent / "__init__.pyi").read_text())
    classes = {node.name: node for node in stub.body if isinstance(node, ast.ClassDef)}
    for name, cls in vantyx._EFFECT_CLASSES.items():
        process = next(node for node in classes[cls.__name__].body
                       if getattr(node, "name", "") == "process")
        keywords = [arg.arg for arg in process.args.kwonlyargs]
        assert keywords == ["out", "rect", "mask", *vantyx.Engine().effect(name).options], name
