"""The same bytes as the tool for arrays of every layout; files, errors, progress and the lock."""

import pickle
import struct
import sys
import threading
import time
import zlib

import numpy as np
import pytest
import tessaline4
from PIL import Image
from tessaline4 import FrameStatus, _frames

SETTINGS = [
    ({}, []),
    ({"fine": False}, ["--fine", "0"]),
    ({"fine": False, "luma_nr_raw": 30.0, "threads": 1}, ["--fine", "0", "--luma-nr-raw", "30"]),
    ({"library_defaults": True, "gain": 120}, ["--library-defaults", "--gain", "120"]),
    (
        {"frames_to_merge": 3, "luma_nr_level": 2, "sharpness": 300, "sharpness_sigmas": (0.3, 0.9)},
        ["--frames-to-merge", "3", "--luma-nr-level", "2", "--sharpness", "300", "--sharpness-sigmas", "0.3", "0.9"],
    ),
    (
        {"fine": False, "luma_nr_table": [0, 90, 20, 5], "chroma_nr_table": [0, 9, 5, 2], "chroma_nr_level": 3},
        ["--fine", "0", "--luma-nr-table", "0,90,20,5", "--chroma-nr-table", "0,9,5,2", "--chroma-nr-level", "3"],
    ),
]


@pytest.mark.parametrize("settings, options", SETTINGS)
def test_makes_what_the_tool_makes(raw, merged_by_tool, settings, options):
    frames = raw.frames
    result = tessaline4.merge(frames, format="nv21", **settings)
    assert np.array_equal(result.picture, merged_by_tool(*options))
    for frame, path in zip(frames, raw.paths):
        assert frame.tobytes() == path.read_bytes(), "frames are the caller's"
    assert result.motions.shape == (4, 3, 3) and np.all(result.motions[:, 2, 2] == 1)
    assert result.frames[result.base].order == 0
    assert (result.fine is None) == (not settings.get("fine", not settings.get("library_defaults", False)))


def nv21(frame):
    h = frame.shape[0] * 2 // 3
    return frame[:h], frame[h:].reshape(h // 2, -1, 2)


def i420(frame):
    luma, vu = nv21(frame)
    return luma, vu[..., 1].copy(), vu[..., 0].copy()


def test_every_layout_goes_in_and_out(raw, merged_by_tool):
    frames, expected = raw.frames, merged_by_tool()
    planes = tessaline4.merge([nv21(f) for f in frames]).picture
    three = tessaline4.merge([i420(f) for f in frames]).picture
    packed = [np.concatenate([y, u.reshape(-1, 640), v.reshape(-1, 640)]) for y, u, v in map(i420, frames)]
    one = tessaline4.merge(packed, format="i420").picture
    for got in (planes, three):
        for a, b in zip(got, nv21(expected) if len(got) == 2 else i420(expected), strict=True):
            assert np.array_equal(a, b)
    assert one.shape == expected.shape
    assert np.array_equal(one[480:600].reshape(240, 320), i420(expected)[1])
    # The other order of chroma is another format of the library, which compares colours in its own way.
    uv = [(y, np.ascontiguousarray(vu[..., ::-1])) for y, vu in map(nv21, frames)]
    got = tessaline4.merge(uv, format="nv12").picture
    assert np.mean(np.abs(got[1][..., ::-1].astype(int) - nv21(expected)[1])) < 1
    # Rows of a wider picture, with a frame of odd sides.
    def wider(plane):
        return np.pad(plane, ((0, 4), (0, 4)) + ((0, 0),) * (plane.ndim - 2), mode="edge")

    odd = [(wider(y)[:481, :641], wider(vu)[:241, :321]) for y, vu in map(nv21, frames)]
    luma, vu = tessaline4.merge(odd).picture
    assert luma.shape == (481, 641) and vu.shape == (241, 321, 2)
    assert np.mean(np.abs(luma[:480, :640].astype(int) - nv21(expected)[0])) < 1


def test_rgb_there_and_back():
    """Through the merge of equal frames, with strong colours and an odd side: near what went in."""
    y, x = np.mgrid[0:481, 0:642]
    rgb = np.stack([x % 256, (x + y) % 256, 255 - y % 256], axis=-1) // 2 + 60
    rgb[200:300, 200:400] = (250, 20, 30)
    rgb = rgb.astype(np.uint8)
    picture = tessaline4.merge([rgb, rgb], luma_nr_level=0, chroma_nr_level=0).picture
    assert picture.shape == rgb.shape
    assert np.median(np.abs(picture.astype(int) - rgb)) <= 2
    assert np.abs(picture[240:260, 280:320].astype(int) - (250, 20, 30)).max() <= 3


def test_files_keep_what_belongs_to_the_base(tool, tmp_path):
    tool("simulate", "--built-in", "-o", tmp_path, "--size", "640x480", "--frames", 3, "--frame-format", "jpg")
    paths = sorted(tmp_path.glob("frame*.jpg"))
    for i, path in enumerate(paths):
        with Image.open(path) as image:
            exif = image.getexif()
            exif[0x0112], exif[0x010E] = 6, f"frame {i}"
            image.save(path, exif=exif, icc_profile=b"profile", quality="keep")
    result = tessaline4.merge(paths)
    assert result.picture.mode == "RGB" and result.picture.size == (640, 480)
    images = tessaline4.merge([Image.open(path) for path in paths])
    assert np.mean(np.abs(np.asarray(images.picture).astype(int) - np.asarray(result.picture))) < 2
    result.save(tmp_path / "merged.jpg", quality=92)
    with Image.open(tmp_path / "merged.jpg") as saved:
        assert saved.getexif()[0x0112] == 6
        assert saved.getexif()[0x010E] == f"frame {result.base}"
        assert saved.info["icc_profile"] == b"profile"
        again = np.asarray(saved.convert("RGB")).astype(int)
    assert np.mean(np.abs(again - np.asarray(result.picture))) < 2.5
    clean = np.asarray(Image.open(tmp_path / f"clean{result.base:02}.png").convert("RGB")).astype(int)
    noisy = np.asarray(Image.open(paths[result.base]).convert("RGB")).astype(int)
    assert np.mean((again - clean) ** 2) < 0.5 * np.mean((noisy - clean) ** 2)
    with pytest.raises(ValueError, match="ending"):
        result.save(tmp_path / "merged.xyz")


def test_deep_grey_is_rounded_and_what_pillow_reads_wrongly_is_refused(tool, tmp_path):
    levels = np.random.default_rng(5).integers(0, 65536, (480, 640), np.uint16)
    for name in ("a.tif", "a.png"):
        Image.fromarray(levels).save(tmp_path / name)
        planes = _frames.to_planes(tmp_path / name, _frames.Layout("image"))
        assert np.array_equal(planes.luma, np.rint(levels / 257).astype(np.uint8))
        tool("merge", tmp_path / name, tmp_path / name, "-o", tmp_path / "tool.png", "--fine", 0)
        ours = tessaline4.merge([tmp_path / name] * 2, fine=False).picture
        assert np.array_equal(np.asarray(ours), np.asarray(Image.open(tmp_path / "tool.png")))
    header = b"\x89PNG\r\n\x1a\n"
    chunks = [(b"IHDR", struct.pack(">IIBBBBB", 640, 480, 16, 2, 0, 0, 0)), (b"IDAT", zlib.compress(bytes(480 * 3841)))]
    chunk = lambda n, d: struct.pack(">I", len(d)) + n + d + struct.pack(">I", zlib.crc32(n + d))  # noqa: E731
    (tmp_path / "deep.png").write_bytes(header + b"".join(chunk(*c) for c in [*chunks, (b"IEND", b"")]))
    (tmp_path / "a.heic").write_bytes(b"\0\0\0\x18ftypheic" + bytes(50))
    (tmp_path / "a.dng").write_bytes((tmp_path / "a.tif").read_bytes())
    for name in ("deep.png", "a.heic", "a.dng"):
        with pytest.raises(tessaline4.UnreadableKind, match=f"{name}: .*tessaline4 merge"):
            tessaline4.merge([tmp_path / name] * 2)
    with pytest.raises(ValueError, match="mode F"):
        tessaline4.merge([Image.fromarray(levels.astype(np.float32))] * 2)


def test_a_burst_is_used_again_and_again(raw, merged_by_tool):
    four, two = merged_by_tool("--fine", "0"), merged_by_tool("--fine", "0", count=2)
    with tessaline4.Burst(640, 480, 4, format="nv21", fine=False) as burst:
        for count, expected in ((4, four), (4, four), (2, two), (4, four)):
            assert np.array_equal(burst.merge(raw.frames[:count]).picture, expected)
        kept = burst.merge(raw.frames).picture
        burst.merge(raw.frames[:2])
        assert np.array_equal(kept, four), "a result is the caller's"
    with pytest.raises(ValueError, match="closed"):
        burst.merge(raw.frames)
    changed = raw.frames
    with tessaline4.Burst(640, 480, 4, format="nv21", fine=False, overwrite=True) as burst:
        assert np.array_equal(burst.merge(changed).picture, four)
    assert any(not np.array_equal(a, b) for a, b in zip(changed, raw.frames)), "it worked in the caller's memory"


@pytest.mark.parametrize("fine", [True, False])
def test_progress_stops_and_raises(raw, fine):
    told = []
    with tessaline4.Burst(640, 480, 4, format="nv21", fine=fine, progress=told.append) as burst:
        expected = burst.merge(raw.frames).picture
        assert told == sorted(told) and told[-1] == 100 and len(set(told)) >= 6
        for stop_at in sorted(set(told))[:-1]:
            burst.progress = lambda percent: percent < stop_at
            with pytest.raises(tessaline4.Stopped) as caught:
                burst.merge(raw.frames)
            assert caught.value.name == "ZELVAN_TESSALINE4_ERROR_GENERAL"

        def fails(percent):
            if percent > 10:
                raise KeyError(percent)

        burst.progress = fails
        with pytest.raises(KeyError):
            burst.merge(raw.frames)
        burst.progress = lambda percent: percent < 100  # too late
        assert np.array_equal(burst.merge(raw.frames).picture, expected)


def test_errors_name_what_was_refused(raw):
    frames = raw.frames
    for given, kind, words in [
        ({"luma_nr_level": 8}, tessaline4.Error, "luma_nr_level=8: a bad argument .ZELVAN_TESSALINE4_ERROR_PARAM"),
        ({"gain": 2**31}, ValueError, "32 bits"),
        ({"sharpnes": 1}, TypeError, "no setting 'sharpnes'"),
        ({"format": "nv20"}, ValueError, "format must be one of"),
        ({"format": None}, ValueError, "needs a format"),
        ({"format": "rgb"}, ValueError, "not a frame of format rgb"),
    ]:
        with pytest.raises(kind, match=words):
            tessaline4.merge(frames, **({"format": "nv21"} | given))
    for bad, kind, words in [
        (frames[:1], ValueError, "2 to 10 frames"),
        (frames * 3, ValueError, "2 to 10 frames"),
        ([f.astype(np.int16) for f in frames], TypeError, "uint8"),
        ([frames[0], frames[1][:, :638]], ValueError, "frame 1 is"),
        ([frames[0], nv21(frames[1])], ValueError, "another kind"),
        ([f[:240, :320] for f in frames], tessaline4.Error, "ZELVAN_TESSALINE4_ERROR_PARAM"),
    ]:
        with pytest.raises(kind, match=words):
            tessaline4.merge(bad, format="nv21")
    error = tessaline4.Error("what", 0x80000006)
    assert (error.name, str(error)) == ("0x80000006", "what: several errors, among them: the working memory ran out"
                                        " (0x80000006)")  # fmt: skip
    again = pickle.loads(pickle.dumps(error))
    assert (type(again), str(again), again.status) == (tessaline4.Error, str(error), error.status)


def test_the_lock_is_free_meanwhile(raw):
    """Another thread of Python goes on at its pace while a burst is merged."""
    big = [np.tile(frame, (1, 3)) for frame in (np.concatenate([f[:480]] * 6) for f in raw.frames)]
    # Luma of 1920 x 1920 with grey chroma.
    frames = [np.concatenate([b[:1920], np.full((960, 1920), 128, np.uint8)]) for b in big]
    beats = []
    done = threading.Event()

    def beat():
        while not done.is_set():
            beats.append(time.perf_counter())
            time.sleep(0.001)

    thread = threading.Thread(target=beat)
    calls = []
    progress = lambda percent: calls.append((percent, time.perf_counter())) and None  # noqa: E731
    thread.start()
    try:
        tessaline4.merge(frames, format="nv21", progress=progress, threads=1)
    finally:
        done.set()
        thread.join()
    # The longest step runs in one call of the library, without a callback that would let others in.
    (_, begin), (_, end) = max(zip(calls, calls[1:]), key=lambda pair: pair[1][1] - pair[0][1])
    assert end - begin > 10 * sys.getswitchinterval()
    assert sum(begin < beat < end for beat in beats) >= 5


def test_a_frame_of_something_else_is_left_out(tool, tmp_path):
    tool("simulate", "--built-in", "-o", tmp_path, "--size", "640x480", "--frames", 5, "--foreign-frame", 3)
    result = tessaline4.merge(sorted(tmp_path.glob("frame*.png")))
    assert [f.status == FrameStatus.MERGED for f in result.frames] == [True, True, True, False, True]
    assert result.frames[3].share == 0
    assert np.array_equal(result.motions[3], np.eye(3))
    assert 3 < result.fine.coverage.max() <= 4 and result.fine.coverage.shape == (120, 160)
