"""Grouping by the rules; a whole folder by a cluster of which a worker is killed in the middle."""

import itertools
import json
import os
import random
import signal
import subprocess
import sys
import threading

import numpy as np
import pytest
from PIL import Image
from tessaline4 import _photos, _stills, batch
from tessaline4._photos import Photo

SECOND = 1_000_000


def photo(name, seconds, **more):
    return Photo(f"/a/{name}", round(seconds * SECOND), more.pop("size", (4000, 3000)), **more)


@pytest.mark.parametrize(
    "photos, bursts, singles",
    [
        ([], [], ""),
        ([photo("a", 0)], [], "a"),
        # Without a jump in the times the gap is 2 s.
        ([photo("a", 0), photo("b", 1), photo("c", 2.9), photo("d", 5)], ["abc"], "d"),
        ([photo("b", 0), photo("a", 0), photo("c", 0)], ["abc"], ""),
        ([photo("a", 0), photo("b", 1, camera=("M", "1")), photo("c", 2, camera=("M", "1"))], ["bc"], "a"),
        ([photo("a", 0), photo("b", 1), photo("c", 2, size=(3000, 4000))], ["ab"], "c"),
        ([photo("a", 0, exposure=0.01), photo("b", 1, exposure=0.02), photo("c", 2, exposure=0.041)], ["ab"], "c"),
        ([photo("a", 0, iso=100), photo("b", 1), photo("c", 2, iso=400), photo("d", 3, iso=100)], ["abc"], "d"),
        # A jump in the times tells the gap: here sqrt(0.2 * 1.5).
        ([photo(n, t) for n, t in zip("abcdef", (0, 0.2, 0.4, 1.9, 2.1, 2.3))], ["abc", "def"], ""),
        # Times of whole seconds: differences of 0 s say 1 s at most, and only what is 3 s off is a jump.
        ([photo(n, t, whole_seconds=True) for n, t in zip("abcde", (0, 0, 1, 3, 3))], ["abcde"], ""),
        ([photo(n, t, whole_seconds=True) for n, t in zip("abcde", (0, 0, 1, 5, 5))], ["abc", "de"], ""),
    ],
)
def test_groups(photos, bursts, singles):
    random.Random(1).shuffle(photos)
    found, alone, _ = _photos.group_photos(photos)
    assert ["".join(os.path.basename(p.path) for p in burst) for burst in found] == bursts
    assert "".join(os.path.basename(p.path) for p in alone) == singles


def test_gap_and_runs_that_are_told():
    photos = [photo(n, t) for n, t in zip("abcde", (0, 1, 4, 5, 9))]
    names = lambda groups: ["".join(os.path.basename(p.path) for p in group) for group in groups]  # noqa: E731
    assert names(_photos.group_photos(photos, gap=3)[0]) == ["abcd"]
    assert names(_photos.group_photos(photos, gap=0.5)[0]) == []
    assert names(_photos.group_photos(photos, count=2)[0]) == ["ab", "cd"]
    assert _photos.find_gap([photo(str(t), t) for t in (0, 0.01, 0.02, 50)]) == pytest.approx((0.05 * 10) ** 0.5)


def test_names_of_stills():
    names = _photos.still_names(["/a/x/1.jpg", "/a/x/2.jpg", "/a/y/1.jpg", "/a/y/3.png", "/a/y/3.jpg"])
    assert list(names.values()) == ["x-1", "2", "y-1", "y-3-png", "y-3-jpg"]
    with pytest.raises(ValueError, match="one by one"):
        _photos.still_names(["/a/x/1.jpg", "/b/x/1.jpg"])


def save_photo(image, path, seconds, **tags):
    exif = image.getexif()
    exif[_photos._MAKE], exif[_photos._MODEL] = "Maker", tags.get("model", "One")
    exif[_photos._EXIF] = {
        _photos._TIME: f"2024:05:31 12:{int(seconds) // 60:02}:{int(seconds) % 60:02}",
        _photos._SUB_SECONDS: f"{round(seconds % 1 * 1000):03}",
        _photos._EXPOSURE: 0.01,
        _photos._ISO: tags.get("iso", 200),
    }
    image.save(path, exif=exif, quality=92)


def test_reads_what_a_photo_tells(tmp_path):
    image = Image.new("RGB", (64, 48))
    save_photo(image, tmp_path / "a.jpg", 61.25)
    told = _photos.read_photo(str(tmp_path / "a.jpg"))
    assert told.time % (3600 * SECOND) == 61.25 * SECOND and not told.whole_seconds
    assert (told.size, told.camera, told.exposure, told.iso) == ((64, 48), ("Maker", "One"), 0.01, 200)
    assert told.time // SECOND == 1717156800 + 61
    image.save(tmp_path / "b.png")
    os.utime(tmp_path / "b.png", ns=(0, 1_700_000_000_123_456_789))
    file = _photos.read_photo(str(tmp_path / "b.png"))
    assert file.time % SECOND == 123456 and file.camera == ("", "") and file.iso is None
    (tmp_path / "c.jpg").write_bytes(b"\xff\xd8 no photo")
    with pytest.raises(OSError):
        _photos.read_photo(str(tmp_path / "c.jpg"))
    for name in ("a.dng", "d.dng", "e.heic"):
        (tmp_path / name).write_bytes(b"\0\0\0\x18ftypheic")
    found = _photos.find_photos([str(tmp_path)])  # a.dng has its a.jpg
    assert [os.path.basename(path) for path in found] == ["a.jpg", "b.png", "c.jpg", "d.dng", "e.heic"]
    photos, failures = batch._read_all(found)
    assert len(photos) == 2 and [path for path, _ in failures] == found[2:]
    assert all("tessaline4 batch" in reason for _, reason in failures[1:])


def test_takes_the_ten_sharpest():
    noise = np.random.default_rng(3).integers(0, 256, (40, 41), np.uint8)
    # By hand: the mean over the inner pixels of the halved picture.
    low = noise[:, :40].astype(float).reshape(20, 2, 20, 2).mean(axis=(1, 3))
    expected = np.mean((low[1:-1, 2:] - low[1:-1, :-2]) ** 2 + (low[2:, 1:-1] - low[:-2, 1:-1]) ** 2)
    assert _stills.sharpness(noise) == pytest.approx(expected)
    lumas = [noise // d for d in (4, 1, 9, 2, 2, 1, 3, 3, 5, 5, 5, 5)]
    assert _stills.choose_sharpest(lumas.__getitem__, 12)[0] == [0, 1, 3, 4, 5, 6, 7, 8, 9, 10]
    assert _stills.choose_sharpest(lumas.__getitem__, 10) == (list(range(10)), None)


class Folder:
    """21 photos: bursts of 4, 11, and 3, the last with a damaged member; singles, a broken file, and no photo."""

    def __init__(self, path, images):
        self.path = path
        path.mkdir()
        names = [f"IMG_{i:03}.jpg" for i in range(21)]
        random.Random(5).shuffle(names)  # names say nothing of the order
        name, frame = iter(names), itertools.cycle(images)
        self.bursts = []
        for start, count in ((10, 4), (70, 11), (130, 3)):
            self.bursts.append([next(name) for _ in range(count)])
            for i, member in enumerate(self.bursts[-1]):
                save_photo(next(frame), path / member, start + 0.2 * i)
        for start, tags in ((40, {}), (71 + 2.2, {"model": "Two"}), (200, {})):
            save_photo(next(frame), path / next(name), start, **tags)
        damaged = path / self.bursts[2][1]
        damaged.write_bytes(damaged.read_bytes()[:-20000])
        (path / "broken.jpg").write_bytes(b"\xff\xd8\xff")
        (path / "notes.txt").write_text("no photo")

    def stills(self, out):
        """Of each burst, by the files in out."""
        made = {p.stem for p in out.iterdir() if p.suffix == ".jpg"}
        return [made & {name[:-4] for name in burst} for burst in self.bursts], made


@pytest.fixture(scope="module")
def images(tool, tmp_path_factory):
    folder = tmp_path_factory.mktemp("scene")
    tool("simulate", "--built-in", "-o", folder, "--size", "640x480", "--frames", 4, "--frame-format", "jpg")
    return [Image.open(path).copy() for path in sorted(folder.glob("frame*.jpg"))]


def test_a_folder_once_and_again(tmp_path, images, capfd, tool):
    folder, out = Folder(tmp_path / "photos", images), tmp_path / "out"
    run = [str(folder.path), "-o", str(out), "-j", "1"]
    assert batch.main([*run, "--dry-run"]) == 1, "a photo cannot be read"
    assert "21 photos: 3 bursts, 3 singles (gap " in capfd.readouterr().out and not out.exists()

    assert batch.main(run) == 1
    told = capfd.readouterr()
    assert "2 stills made, 0 there already" in told.out and "(the sharpest of 11)" in told.out
    last = told.err.splitlines()[-1]
    assert last.startswith("2 failed: ") and "broken.jpg" in last and f"{folder.bursts[2][0]} .. " in last
    each, made = folder.stills(out)
    assert [len(stills) for stills in each] == [1, 1, 0] and len(made) == 2
    assert sorted(p.name for p in out.iterdir()) == sorted(f"{n}.{e}" for n in made for e in ("jpg", "json"))
    report = json.loads((out / f"{each[1].pop()}.json").read_text())
    assert sum(frame["status"] == "not among the sharpest" for frame in report["frames"]) == 1
    assert report["frames"][report["base"]]["order"] == 0 and report["settings"]["fine"] == 1

    times = {p: p.stat().st_mtime_ns for p in out.iterdir()}
    assert batch.main(run) == 1, "the damaged ones fail again"
    assert "0 stills made, 2 there already" in capfd.readouterr().out
    assert times == {p: p.stat().st_mtime_ns for p in out.iterdir()}
    assert batch.main([*run, "--again", "--quiet", "--fine", "0", "--count", "2"]) == 1
    assert "--count" not in capfd.readouterr().err and len(folder.stills(out)[1]) > 4


def test_agrees_with_the_tool(tmp_path, images, tool, capfd):
    """On groups, names and the settings behind them."""
    if "batch" not in tool("--help"):
        pytest.skip("this tool has no batch")
    folder = Folder(tmp_path / "photos", images)
    (folder.path / "broken.jpg").unlink()
    (folder.path / folder.bursts[2][1]).unlink()
    ours, theirs = tmp_path / "ours", tmp_path / "theirs"
    assert batch.main([str(folder.path), "-o", str(ours), "-j", "1"]) == 0
    first = capfd.readouterr().out.splitlines()[0]
    assert tool("batch", folder.path, "-o", theirs).startswith(first.split(" (")[0])
    assert {p.name for p in ours.iterdir()} == {p.name for p in theirs.iterdir()}
    for path in ours.glob("*.json"):
        a, b = json.loads(path.read_text()), json.loads((theirs / path.name).read_text())
        assert a.keys() == b.keys() and a["settings"] == b["settings"] and a["base"] == b["base"]
        assert [f.keys() for f in a["frames"]] == [f.keys() for f in b["frames"]]


class Deadly:
    """Ends the process that unpickles it."""

    def __reduce__(self):
        return os._exit, (1,)


def holds(pid, path):
    folder = f"/proc/{pid}/fd"
    return any(os.path.realpath(f"{folder}/{number}") == str(path) for number in os.listdir(folder))


def test_a_worker_that_dies_costs_nothing(tmp_path, images):
    """One of two workers is killed in the middle of a burst; another burst kills whoever takes it."""
    photos, out = tmp_path / "photos", tmp_path / "out"
    photos.mkdir()
    out.mkdir()
    jobs = []
    for k in range(4):
        paths = [photos / f"{k}-{i}.png" for i in range(4)]
        for path, image in zip(paths, images):
            image.save(path, compress_level=1)
        jobs.append(_stills.Job([str(p) for p in paths], [p.stem for p in paths], str(out), "png"))
    deadly = _stills.Job(jobs[0].paths, ["deadly"] * 4, str(out), settings={"threads": Deadly()})
    # A burst is in the middle as long as one of its frames is a pipe that gives nothing.
    pipe, frame = photos.resolve() / "1-2.png", photos / "frame"
    pipe.rename(frame)
    os.mkfifo(pipe)
    for name in ("1-0", "1-1"):  # as if it had come further once
        (out / f".{name}.png.{'0' * 32}.part").write_bytes(b"half a still")
    killed, outcomes, submitted = [], [], []

    with batch.connect(None, 2) as client:
        workers = client.run(os.getpid).values()
        submit = client.submit
        client.submit = lambda *given, **options: submitted.append(given) or submit(*given, **options)

        def kill_in_the_middle():
            with open(pipe, "wb"):  # waits for the one who reads
                killed.append(next(pid for pid in workers if holds(pid, pipe)))
                frame.rename(pipe)
                os.kill(killed[0], signal.SIGKILL)

        killer = threading.Thread(target=kill_in_the_middle, daemon=True)
        killer.start()
        batch.run(client, [*jobs[:2], deadly, *jobs[2:]], lambda *told: outcomes.append(told))
        killer.join()
        now = client.run(os.getpid).values()

    assert len(killed) == 1 and killed[0] not in now
    assert len(submitted) >= len(jobs) + 1 + 3, "the burst in the middle once again, the deadly one three times"
    assert len(outcomes) == 5 and {id(job) for job, _ in outcomes} == {id(job) for job in [*jobs, deadly]}
    failed = [(job, outcome.text) for job, outcome in outcomes if outcome.still is None]
    assert failed == [(deadly, "its worker died 3 times")]
    stills = sorted(out.glob("*.png"))
    assert [p.name[0] for p in stills] == list("0123")
    assert len({p.read_bytes() for p in stills}) == 1, "all bursts are of the same frames"
    assert len(list(out.iterdir())) == 8, "stills and reports, and nothing half done"


def test_from_the_command_line(tmp_path):
    command = [sys.executable, "-m", "tessaline4.batch"]
    (tmp_path / "photos").mkdir()
    empty = subprocess.run([*command, tmp_path / "photos", "-o", tmp_path / "out"], capture_output=True, text=True)
    assert empty.returncode == 0 and empty.stdout.startswith("0 photos: 0 bursts, 0 singles")
    same = subprocess.run([*command, tmp_path, "-o", tmp_path], capture_output=True, text=True)
    assert same.returncode == 1 and "is a folder of photos" in same.stderr
