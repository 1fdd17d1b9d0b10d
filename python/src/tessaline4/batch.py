"""Finds the bursts in folders of photos and merges each into a still, on one machine or many.

    python3 -m tessaline4.batch FOLDER... -o OUT
    python3 -m tessaline4.batch FOLDER... -o OUT --scheduler tcp://scheduler:8786

Grouping and names are those of `tessaline4 batch`. Each burst is a task of dask.distributed, for a cluster of this
machine or for the workers of a scheduler, which must see the folders under the same paths. A burst whose worker died is
tried again, twice. Bursts whose still is there are skipped, so that a run that was interrupted can go on.
"""

import argparse
import contextlib
import os
import sys
import time
from collections import deque
from collections.abc import Callable, Iterator, Sequence

from . import _library, _photos, _stills
from ._stills import Job, Outcome

RETRIES = 2


def _work(job: Job) -> Outcome:
    """On a worker. A cluster of one machine numbers its workers from 0."""
    from distributed import get_worker

    name = get_worker().name
    return _stills.make_still(job, name if isinstance(name, int) else None)


@contextlib.contextmanager
def connect(scheduler: str | None, workers: int) -> Iterator:
    """A client of the scheduler, or of a cluster of this machine with so many workers of one task at a time."""
    import dask
    from distributed import Client, LocalCluster

    if scheduler:
        with Client(scheduler) as client:
            yield client
        return
    # Every death of a worker is told here, where they are counted, and logs would only say it again.
    with dask.config.set({"distributed.scheduler.allowed-failures": 0}):
        with LocalCluster(
            n_workers=workers,
            threads_per_worker=1,
            processes=True,
            dashboard_address=None,
            silence_logs="CRITICAL",
        ) as cluster:
            with Client(cluster) as client:
                yield client


def run(client, jobs: Sequence[Job], done: Callable[[Job, Outcome], None]) -> None:
    """All jobs on the workers; done is told of each once.

    No more tasks are out than the workers have threads: a task that only waits on a worker would share the blame when
    that one dies.
    """
    from distributed import KilledWorker, wait

    waiting = deque((job, 0) for job in jobs)
    running = {}
    while waiting or running:
        slots = sum(worker["nthreads"] for worker in client.scheduler_info()["workers"].values())
        while waiting and len(running) < max(slots, 1):
            job, deaths = waiting.popleft()
            running[client.submit(_work, job, pure=False)] = (job, deaths)
        with contextlib.suppress(TimeoutError):
            wait(list(running), timeout=5, return_when="FIRST_COMPLETED")  # looks for new workers now and then
        for future in [future for future in running if future.done()]:
            job, deaths = running.pop(future)
            error = future.exception() if future.status != "finished" else None
            if error is None:
                outcome = future.result()
            elif isinstance(error, KilledWorker) and deaths < RETRIES:
                waiting.append((job, deaths + 1))
                continue
            else:
                died = f"its worker died {deaths + 1} times"
                outcome = Outcome(died if isinstance(error, KilledWorker) else str(error), None)
            if deaths:
                job.clear()
            done(job, outcome)


def _counted(count: int, one: str) -> str:
    return f"{count} {one}{'' if count == 1 else 's'}"


def _duration(seconds: float) -> str:
    if seconds < 120:
        return f"{seconds:.2g} s" if seconds < 10 else f"{seconds:.0f} s"
    return f"{seconds / 60:.0f} min" if seconds < 7200 else f"{seconds / 3600:.1f} h"


def _read_all(paths: Sequence[str]) -> tuple[list[_photos.Photo], list[tuple[str, str]]]:
    photos, failures = [], []
    for path in paths:
        try:
            photos.append(_photos.read_photo(path))
        except (OSError, SyntaxError, ValueError) as error:
            failures.append((path, str(error) if path in str(error) else f"{path}: {error}"))
    return photos, failures


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(
        prog="python3 -m tessaline4.batch",
        description="Find the bursts in folders of photos and merge each into a still, on one machine or many.",
    )
    add = parser.add_argument
    add("folders", nargs="+", metavar="FOLDER", help="folders of photos; folders in them are not looked into")
    add("-o", "--output", required=True, metavar="DIR", help="folder for stills and reports, made if it is not there")
    add("--scheduler", metavar="ADDRESS", help="of dask.distributed, as tcp://host:8786 (default: this machine alone)")
    add("-j", "--workers", type=int, metavar="N", help="on this machine (default: one per processor)")
    rules = parser.add_mutually_exclusive_group()
    rules.add_argument("--gap", type=float, metavar="SECONDS", help="longest time between two photos of a burst")
    rules.add_argument("--count", type=int, metavar="N", help="bursts are runs of so many photos")
    add("--dry-run", action="store_true", help="print which photos make bursts, and do nothing")
    add("--again", action="store_true", help="merge bursts whose still is there, too")
    add("--output-format", choices=("jpg", "jpeg", "png"), default="jpg", help="kind of the stills (default jpg)")
    add("--quality", type=int, default=95, choices=range(1, 101), metavar="1..100", help="of JPEG stills (default 95)")
    add("--quiet", action="store_true", help="nothing but the first and the last line and failures")
    settings = parser.add_argument_group("settings", "as of tessaline4 merge")

    def setting(name: str, **options) -> None:
        settings.add_argument("--" + name.replace("_", "-"), dest="set_" + name, **options)

    for name in _library.INT_SETTERS:
        setting(name, type=int, metavar="N")
    for name in _library.REAL_SETTERS:
        setting(name, type=float, metavar="X")
    setting("threads", type=int, metavar="N")
    setting("processor_mask", type=lambda text: int(text, 0), metavar="MASK")
    setting("sharpness_sigmas", type=float, nargs=2, metavar=("FINE", "WIDE"))
    setting("luma_nr_table", type=lambda text: [float(v) for v in text.split(",")], metavar="V,V...")
    setting("chroma_nr_table", type=lambda text: [int(v) for v in text.split(",")], metavar="N,N...")
    setting("library_defaults", action="store_true", default=None)
    return parser


class _Progress:
    """One line on a terminal."""

    def __init__(self, jobs: Sequence[Job], quiet: bool):
        self._shown = not quiet and sys.stderr.isatty()
        self._bursts, self._photos = len(jobs), sum(len(job.paths) for job in jobs)
        self._done = self._photos_done = 0
        self._begin = time.monotonic()

    def count(self, job: Job) -> None:
        self._done += 1
        self._photos_done += len(job.paths)

    def show(self) -> None:
        if self._shown:
            text = f"{self._done} of {_counted(self._bursts, 'burst')}"
            if self._photos_done:
                left = (time.monotonic() - self._begin) * (self._photos - self._photos_done) / self._photos_done
                text += f", about {_duration(left)} left"
            print(f"\r\033[K{text}", end="", file=sys.stderr, flush=True)

    def clear(self) -> None:
        if self._shown:
            print("\r\033[K", end="", file=sys.stderr, flush=True)


def _plan(options: argparse.Namespace, failures: list[tuple[str, str]]) -> list[Job]:
    """What the folders hold, told in a line; photos that cannot be read go to failures."""
    for folder in options.folders:
        if os.path.exists(options.output) and os.path.samefile(folder, options.output):
            raise ValueError(f"{options.output}: is a folder of photos; stills would take their names")
    photos, unread = _read_all(_photos.find_photos([os.path.abspath(folder) for folder in options.folders]))
    failures += unread
    names = _photos.still_names([photo.path for photo in photos])
    bursts, singles, gap = _photos.group_photos(photos, options.gap, options.count)
    how = f"runs of {options.count}" if options.count else f"gap {_duration(gap)}"
    if options.gap is None and not options.count:
        how += ", found from their times"
    found = f"{_counted(len(photos), 'photo')}: {_counted(len(bursts), 'burst')}, {_counted(len(singles), 'single')}"
    print(f"{found} ({how})")
    for _, reason in unread:
        print(reason, file=sys.stderr)
    settings = {
        name[4:]: value for name, value in vars(options).items() if name.startswith("set_") and value is not None
    }
    jobs = [
        Job(
            [photo.path for photo in burst],
            [names[photo.path] for photo in burst],
            os.path.abspath(options.output),
            options.output_format,
            options.quality,
            settings,
            0 if options.scheduler else options.workers,
        )
        for burst in bursts
    ]
    if options.dry_run:
        for i, (job, burst) in enumerate(zip(jobs, bursts)):
            there = job.existing()
            seconds = _duration((burst[-1].time - burst[0].time) * 1e-6)
            state = f", done: {there.name}" if there else ""
            print(f"burst {i + 1}: {_counted(len(burst), 'photo')} in {seconds}{state}")
            print(*(f"  {path}" for path in job.paths), sep="\n")
        if singles:
            print("left alone:", *(f"  {photo.path}" for photo in singles), sep="\n")
    return jobs


def main(arguments: Sequence[str] | None = None) -> int:
    parser = _parser()
    options = parser.parse_args(arguments)
    options.workers = options.workers or len(os.sched_getaffinity(0))
    failures: list[tuple[str, str]] = []
    try:
        jobs = _plan(options, failures)
    except (OSError, ValueError) as error:
        parser.exit(1, f"{parser.prog}: {error}\n")
    if not options.dry_run:
        os.makedirs(options.output, exist_ok=True)
        open_jobs = [job for job in jobs if options.again or job.existing() is None]
        progress = _Progress(open_jobs, options.quiet)
        made = 0

        def done(job: Job, outcome: Outcome) -> None:
            nonlocal made
            progress.clear()
            progress.count(job)
            if outcome.still:
                made += 1
                if not options.quiet:
                    print(outcome.text, flush=True)
            else:
                failures.append((job.range, outcome.text))
                print(f"burst {job.range}: {outcome.text}", file=sys.stderr)
            progress.show()

        if open_jobs:
            try:
                with connect(options.scheduler, min(options.workers, len(open_jobs))) as client:
                    progress.show()
                    run(client, open_jobs, done)
            except (ImportError, OSError) as error:
                parser.exit(1, f"{parser.prog}: no workers: {error}\n")
            finally:
                progress.clear()
        print(f"{_counted(made, 'still')} made, {len(jobs) - len(open_jobs)} there already")
    if not failures:
        return 0
    print(f"{len(failures)} failed: {', '.join(name for name, _ in failures)}", file=sys.stderr)
    return 1


if __name__ == "__main__":
    # Workers take the functions from the module by its name, not from __main__.
    from tessaline4 import batch

    sys.exit(batch.main())
