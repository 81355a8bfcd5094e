"""Scans many pictures on a Dask cluster, one Engine per worker process.

    python -m nubex.cluster scan --output results.jsonl FOLDER ...
    python -m nubex.cluster scan --scheduler tcp://host:8786 --from uris.txt --output results.jsonl

Without --scheduler it starts a local cluster of --workers worker processes
(scheduler on 127.0.0.1). Each worker creates one nubex.Engine when it starts
(EngineWorkerPlugin) and closes it when it stops; pictures go to the workers in
batches, with a bounded number of batches in flight, and every picture gets one
JSON line in the output: {"path", "document", "error", "worker", "engine"}.
A picture that cannot be read or scanned is recorded with its error and the
run goes on. The throughput is printed on standard error at the end.

Pictures are read by the workers: local paths and file:// URIs must name the
same files on every worker (shared storage), http(s) URIs are fetched by the
worker, and other URIs (s3://, gs://, ...) go through fsspec when the worker
has the file system's package. Needs Dask distributed: pip install 'nubex[cluster]'.
"""
import argparse
import asyncio
import itertools
import json
import os
import sys
import threading
import time
import urllib.parse
import urllib.request
from pathlib import Path
from typing import IO, Dict, Iterable, Iterator, List, Optional, Sequence

try:
    from distributed import Client, LocalCluster, as_completed, get_worker
    from distributed.diagnostics.plugin import WorkerPlugin
except ImportError as error:  # pragma: no cover - depends on the environment
    raise ImportError("nubex.cluster needs Dask distributed: pip install 'nubex[cluster]'") from error

from PIL import UnidentifiedImageError

from ._engine import Engine, EngineError, ForkedEngineError

PLUGIN_NAME = "nubex-engine"


# -- pictures -----------------------------------------------------------------

def _is_remote(uri: str) -> bool:
    scheme = urllib.parse.urlsplit(uri).scheme
    return len(scheme) > 1 and scheme != "file"  # one letter: a Windows drive


def local_path(uri: str) -> str:
    """The file path of a local path or a file:// URI."""
    if uri.startswith("file:"):
        parts = urllib.parse.urlsplit(uri)
        if parts.netloc not in ("", "localhost"):
            raise ValueError(f"{uri}: a file URI on another host ({parts.netloc}) is not supported")
        return urllib.request.url2pathname(parts.path)
    return uri


def _folder_files(folder: Path, recursive: bool) -> Iterator[str]:
    entries = sorted(os.scandir(folder), key=lambda entry: entry.name)
    for entry in entries:
        if entry.is_file():
            yield entry.path
        elif recursive and entry.is_dir():
            yield from _folder_files(Path(entry.path), recursive)


def expand_inputs(inputs: Iterable[str], recursive: bool = False) -> Iterator[str]:
    """The pictures named by inputs, lazily: a folder (path or file:// URI) stands for its regular
    files in name order (and those of its subfolders when recursive); any other path or URI is one
    picture, kept as given."""
    for item in inputs:
        if not _is_remote(item):
            path = Path(local_path(item))
            if path.is_dir():
                yield from _folder_files(path, recursive)
                continue
        yield item


def read_list(stream: IO[str]) -> Iterator[str]:
    """Paths or URIs, one a line; blank lines and lines starting with # are skipped."""
    for line in stream:
        line = line.strip()
        if line and not line.startswith("#"):
            yield line


def read_picture(uri: str, timeout: float = 60.0) -> bytes:
    """The bytes of a picture file: a local path, a file://, http:// or https:// URI, or any URI
    fsspec knows."""
    scheme = urllib.parse.urlsplit(uri).scheme
    if scheme in ("http", "https"):
        with urllib.request.urlopen(uri, timeout=timeout) as response:
            return response.read()
    if _is_remote(uri):
        import fsspec
        with fsspec.open(uri, "rb") as stream:
            return stream.read()
    with open(local_path(uri), "rb") as stream:
        return stream.read()


# -- the workers ----------------------------------------------------------------

class EngineWorkerPlugin(WorkerPlugin):
    """Creates one nubex.Engine in each worker process when the worker starts (or joins later) and
    closes it when the worker stops. threads: scans at once in the engine (default: the worker's
    threads). An engine whose process has ended is replaced on the next scan."""

    name = PLUGIN_NAME

    def __init__(self, resources: Sequence[str] = (), threads: Optional[int] = None, text_threshold: float = 50.0):
        self.resources = [os.fspath(directory) for directory in resources]
        self.threads = threads
        self.text_threshold = text_threshold
        self.engine: Optional[Engine] = None
        self._lock = threading.Lock()

    def __getstate__(self):
        state = dict(self.__dict__)
        state["engine"], state["_lock"] = None, None
        return state

    def __setstate__(self, state):
        self.__dict__.update(state)
        self._lock = threading.Lock()

    def _create(self) -> Engine:
        return Engine(self.resources, threads=self.threads, text_threshold=self.text_threshold)

    async def setup(self, worker) -> None:
        if self.threads is None:
            self.threads = worker.state.nthreads
        # Starting the engine takes a while: off the worker's event loop.
        self.engine = await asyncio.to_thread(self._create)

    async def teardown(self, worker) -> None:
        engine, self.engine = self.engine, None
        if engine is not None:
            await asyncio.to_thread(engine.close)

    def current(self) -> Engine:
        """The worker's engine, started anew when its process has ended."""
        with self._lock:
            if self.engine is None or self.engine._ended:
                if self.engine is not None:
                    self.engine.close()
                self.engine = self._create()
            return self.engine


def scan_batch(uris: Sequence[str], categories: Optional[str]) -> List[dict]:
    """Runs on a worker: scans each picture with the worker's engine; one record per picture."""
    worker = get_worker()
    plugin = worker.plugins.get(PLUGIN_NAME)
    if plugin is None:
        raise RuntimeError(f"worker {worker.address} has no {PLUGIN_NAME} plugin: register EngineWorkerPlugin")
    records = []
    for uri in uris:
        record = {"path": uri, "document": None, "error": None, "worker": worker.address, "engine": None}
        try:
            picture = read_picture(uri)
        except Exception as error:
            record["error"] = f"unreadable: {type(error).__name__}: {error}"
            records.append(record)
            continue
        try:
            engine = plugin.current()
        except Exception as error:
            record["error"] = f"engine: could not start: {type(error).__name__}: {error}"
            records.append(record)
            continue
        record["engine"] = engine._process.pid
        try:
            result = engine.scan(picture, categories)
            record["document"] = json.loads(result.document)
            if not result.ok:
                record["error"] = f"engine: {result.error or 'the scan failed'}"
        except ForkedEngineError:
            raise
        except EngineError as error:
            record["error"] = f"engine: {error}"
        except UnidentifiedImageError:
            record["error"] = "unreadable: not a picture in a format the package decodes"
        except Exception as error:  # truncated or empty pictures, ...
            record["error"] = f"unreadable: {type(error).__name__}: {error}"
        records.append(record)
    return records


def check_categories(categories: Optional[str]) -> str:
    """Runs on a worker: the identifiers the categories name (ValueError for an unknown name)."""
    return get_worker().plugins[PLUGIN_NAME].current()._category_list(categories)


# -- the client -------------------------------------------------------------------

def _batches(uris: Iterable[str], size: int) -> Iterator[List[str]]:
    iterator = iter(uris)
    while True:
        batch = list(itertools.islice(iterator, size))
        if not batch:
            return
        yield batch


def scan_pictures(client: "Client", uris: Iterable[str], output: IO[str], *, categories: Optional[str] = None,
                  batch_size: int = 8, in_flight: Optional[int] = None) -> Dict[str, float]:
    """Scans the pictures on the client's workers (with EngineWorkerPlugin registered) and writes
    one JSON line per picture to output, in the order batches finish. At most in_flight batches
    (default: twice the cluster's threads) are submitted at a time, so uris may be a long stream.
    Returns {"pictures", "failures", "seconds", "pictures_per_second"}."""
    if in_flight is None:
        in_flight = max(2, 2 * sum(client.nthreads().values()))
    batches = _batches(uris, batch_size)
    waiting: Dict[object, List[str]] = {}
    pictures = failures = 0
    start = time.monotonic()

    def submit(pending) -> bool:
        batch = next(batches, None)
        if batch is None:
            return False
        future = client.submit(scan_batch, batch, categories, pure=False)
        waiting[future] = batch
        pending.add(future)
        return True

    pending = as_completed()
    for _ in range(in_flight):
        if not submit(pending):
            break
    for future in pending:
        batch = waiting.pop(future)
        try:
            records = future.result()
        except Exception as error:  # the batch was lost (a worker died, ...): each picture failed
            records = [{"path": uri, "document": None, "error": f"batch failed: {type(error).__name__}: {error}",
                        "worker": None, "engine": None} for uri in batch]
        future.release()
        for record in records:
            output.write(json.dumps(record, ensure_ascii=False) + "\n")
            pictures += 1
            failures += record["error"] is not None
        output.flush()
        submit(pending)
    seconds = time.monotonic() - start
    return {"pictures": pictures, "failures": failures, "seconds": seconds,
            "pictures_per_second": pictures / seconds if seconds > 0 else 0.0}


# -- the command ------------------------------------------------------------------

def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(prog="python -m nubex.cluster",
                                     description="Scans pictures on a Dask cluster, one engine per worker process.")
    commands = parser.add_subparsers(dest="command", required=True)
    scan = commands.add_parser("scan", help="scan pictures and write one JSON line per picture")
    scan.add_argument("inputs", nargs="*", metavar="PICTURE|FOLDER|URI",
                      help="pictures, folders (their regular files in name order) or URIs")
    scan.add_argument("--from", dest="from_list", metavar="FILE",
                      help="read further paths or URIs from FILE, one a line ('-': standard input)")
    scan.add_argument("--recursive", action="store_true", help="include the files of subfolders")
    scan.add_argument("--output", "-o", required=True, metavar="FILE", help="the JSON Lines file ('-': standard output)")
    scan.add_argument("--scheduler", metavar="ADDRESS",
                      help="a running scheduler (tcp://host:8786); without it a local cluster is started")
    scan.add_argument("--workers", type=int, default=2, help="worker processes of the local cluster (default 2)")
    scan.add_argument("--threads-per-worker", type=int, default=1,
                      help="tasks at once in each local worker, and scans at once in its engine (default 1)")
    scan.add_argument("--resources", action="append", default=[], metavar="DIR",
                      help="resource directory on the workers, added to the default one (repeatable)")
    scan.add_argument("--categories", help="identifiers or names, comma-separated (default: every category)")
    scan.add_argument("--text-threshold", type=float, default=50.0)
    scan.add_argument("--batch-size", type=int, default=8, help="pictures per task (default 8)")
    scan.add_argument("--in-flight", type=int, help="batches submitted at a time (default: twice the threads)")
    return parser


def _inputs(arguments) -> Iterator[str]:
    yield from expand_inputs(arguments.inputs, arguments.recursive)
    if arguments.from_list == "-":
        yield from expand_inputs(read_list(sys.stdin), arguments.recursive)
    elif arguments.from_list:
        with open(arguments.from_list, encoding="utf-8") as stream:
            yield from expand_inputs(read_list(stream), arguments.recursive)


def main(argv: Optional[Sequence[str]] = None) -> int:
    arguments = _parser().parse_args(argv)
    if not arguments.inputs and not arguments.from_list:
        _parser().error("name pictures, folders or URIs, or --from FILE")
    if arguments.batch_size < 1 or arguments.workers < 1 or arguments.threads_per_worker < 1:
        _parser().error("--batch-size, --workers and --threads-per-worker must be at least 1")

    cluster = None
    if arguments.scheduler:
        client = Client(arguments.scheduler)
        where = arguments.scheduler
    else:
        cluster = LocalCluster(n_workers=arguments.workers, threads_per_worker=arguments.threads_per_worker,
                               processes=True, host="127.0.0.1", dashboard_address=None)
        client = Client(cluster)
        where = "a local cluster"
    output = sys.stdout if arguments.output == "-" else open(arguments.output, "w", encoding="utf-8")
    try:
        # Absolute, as given (links kept): on a remote cluster each worker must have them at that path.
        resources = [os.path.abspath(directory) for directory in arguments.resources]
        client.register_plugin(EngineWorkerPlugin(resources, text_threshold=arguments.text_threshold))
        if cluster is not None:
            client.wait_for_workers(arguments.workers)
        try:
            client.submit(check_categories, arguments.categories, pure=False).result()
        except ValueError as error:
            print(f"python -m nubex.cluster: {error}", file=sys.stderr)
            return 2
        summary = scan_pictures(client, _inputs(arguments), output, categories=arguments.categories,
                                batch_size=arguments.batch_size, in_flight=arguments.in_flight)
        workers = len(client.nthreads())
    finally:
        if output is not sys.stdout:
            output.close()
        client.close()
        if cluster is not None:
            cluster.close()
    print(f"scanned {summary['pictures']} pictures in {summary['seconds']:.1f} s "
          f"({summary['pictures_per_second']:.2f} pictures/s) on {workers} workers of {where}: "
          f"{summary['pictures'] - summary['failures']} ok, {summary['failures']} failed", file=sys.stderr)
    return 1 if summary["failures"] else 0


if __name__ == "__main__":
    sys.exit(main())
