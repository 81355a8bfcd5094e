"""nubex.Engine: the engine, run in a process of its own."""
import itertools
import logging
import os
import socket
import subprocess
import sys
import threading
from concurrent.futures import Future
from multiprocessing.connection import Connection
from pathlib import Path
from typing import Dict, Iterable, List, Optional, Union

from ._pictures import engine_layout
from ._results import Category, ScanResult, read_document

logger = logging.getLogger("nubex.engine")

_PACKAGE = Path(__file__).resolve().parent
_WORKER = _PACKAGE / "_worker.py"
_LEVELS = {"[ INFO ]": logging.INFO, "[ WARNING ]": logging.WARNING, "[ ERROR ]": logging.ERROR}


class EngineError(RuntimeError):
    """The engine process failed or ended."""


class ForkedEngineError(EngineError):
    """An Engine was used in a process forked from the one that created it."""


def library_path() -> Path:
    """The engine library this package runs: NUBEX_LIBRARY, else the one installed with it."""
    given = os.environ.get("NUBEX_LIBRARY")
    return Path(given) if given else _PACKAGE / "lib" / "libNubexEngine.so.8"


def default_resources() -> Path:
    """The default resource directory of the installed library ("res/" beside it)."""
    return library_path().parent / "res"


def _forward_console(stream, default_level):
    # The engine's console lines, as log records of the "nubex.engine" logger.
    for raw in iter(stream.readline, b""):
        line = raw.decode("utf-8", "replace").rstrip("\r\n")
        level = next((lvl for prefix, lvl in _LEVELS.items() if line.startswith(prefix)), default_level)
        logger.log(level, "%s", line)
    stream.close()


CategorySelection = Union[None, int, str, Iterable[Union[int, str]]]


class Engine:
    """A NubexEngine instance.

        with nubex.Engine(resources=["my-pack/res"]) as engine:
            result = engine.scan("picture.png", categories=[8337, "Text"])
            for face in result.faces: ...

    The engine runs in a child process started for this Engine (a fresh
    interpreter, not a fork), so that its console output (standard output and
    error) reaches the "nubex.engine" logger and never the host's standard
    output, whichever thread scans. Pictures are handed over by copy.

    resources: resource directories added to the default one ("res/" beside
    the installed library). threads: scans that run at once (default: the
    number of processors). text_threshold: the text-presence percentage above
    which text is read.

    Methods may be called from any number of threads; scans then run at once.
    Use one Engine per process: an Engine refuses (ForkedEngineError) to work
    in a process forked from the one that created it; create a new Engine in
    each worker process instead (for example in a worker's initialiser).
    """

    def __init__(self, resources: Iterable[Union[str, os.PathLike]] = (), *, threads: Optional[int] = None,
                 text_threshold: float = 50.0):
        self._owner = os.getpid()
        self._text_threshold = float(text_threshold)
        self._pending: Dict[int, Future] = {}
        self._pending_lock = threading.Lock()
        self._send_lock = threading.Lock()
        self._ids = itertools.count(1)
        self._closed = False
        self._ended: Optional[str] = None

        ours, theirs = socket.socketpair()
        library = library_path()
        try:
            self._process = subprocess.Popen(
                [sys.executable, str(_WORKER), str(theirs.fileno()), str(library), str(threads or os.cpu_count() or 1)],
                pass_fds=[theirs.fileno()], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                stderr=subprocess.PIPE)
        finally:
            theirs.close()
        self._connection = Connection(ours.detach())
        self._threads = [
            threading.Thread(target=_forward_console, args=(self._process.stdout, logging.INFO),
                             name="nubex-console", daemon=True),
            threading.Thread(target=_forward_console, args=(self._process.stderr, logging.WARNING),
                             name="nubex-console", daemon=True),
            threading.Thread(target=self._receive, name="nubex-replies", daemon=True),
        ]
        for thread in self._threads:
            thread.start()
        try:
            self.version = self._call("version")
            for directory in resources:
                self._call("add_resources", os.fspath(Path(directory).resolve()))
            self._call("initialise")
            self._read_categories()
        except BaseException:
            self.close()
            raise

    # -- the worker's replies -------------------------------------------------

    def _receive(self):
        while True:
            try:
                request, ok, value = self._connection.recv()
            except (EOFError, OSError):
                break
            with self._pending_lock:
                future = self._pending.pop(request, None)
            if future is None:
                continue
            if ok:
                future.set_result(value)
            else:
                future.set_exception(EngineError(value))
        code = self._process.wait()
        with self._pending_lock:
            self._ended = f"the engine process ended (exit status {code})"
            pending, self._pending = self._pending, {}
        for future in pending.values():
            future.set_exception(EngineError(self._ended))

    def _call(self, operation, *arguments):
        self._check_usable()
        future: Future = Future()
        request = next(self._ids)
        with self._pending_lock:
            if self._ended:
                raise EngineError(self._ended)
            self._pending[request] = future
        try:
            with self._send_lock:
                self._connection.send((request, operation, arguments))
        except OSError as error:
            with self._pending_lock:
                self._pending.pop(request, None)
            raise EngineError(f"the engine process is gone: {error}") from None
        return future.result()

    def _check_usable(self):
        if os.getpid() != self._owner:
            raise ForkedEngineError(
                f"this nubex.Engine was created in process {self._owner} and cannot be used in process "
                f"{os.getpid()}, forked from it: create one Engine in each worker process")
        if self._closed:
            raise EngineError("the engine is closed")

    # -- the interface --------------------------------------------------------

    def _read_categories(self):
        entries = self._call("categories")
        categories = []
        for entry in entries:
            identifier, _, name = entry.partition("\t")
            categories.append(Category(int(identifier), name))
        self._categories = categories
        self._by_name = {category.name: category.identifier for category in categories}

    @property
    def categories(self) -> List[Category]:
        """The categories the engine can scan."""
        self._check_usable()
        return list(self._categories)

    def add_resources(self, directory: Union[str, os.PathLike]) -> int:
        """Adds a resource directory; returns the number of resource sets now known."""
        count = self._call("add_resources", os.fspath(Path(directory).resolve()))
        self._read_categories()
        return count

    def resource_details(self) -> List[str]:
        """One line per resource set: name, versions and categories, tab-separated."""
        return [line for line in self._call("details").split("\r\n") if line]

    def release(self, category: Optional[int] = None) -> None:
        """Releases the networks serving a category (all networks when None); they load again when needed."""
        if category is None:
            self._call("release", -1)
            self._call("initialise")
        else:
            self._call("release", int(category))

    def _category_list(self, categories: CategorySelection) -> str:
        if categories is None:
            selected = [category.identifier for category in self._categories]
        elif isinstance(categories, str):
            selected = [item.strip() for item in categories.split(",") if item.strip()]
        elif isinstance(categories, int):
            selected = [categories]
        else:
            selected = list(categories)
        identifiers = []
        for item in selected:
            if isinstance(item, str) and not item.strip().lstrip("-").isdigit():
                if item not in self._by_name:
                    raise ValueError(f"unknown category {item!r}; known: {', '.join(sorted(self._by_name))}")
                identifiers.append(self._by_name[item])
            else:
                identifiers.append(int(item))
        return ",".join(str(identifier) for identifier in identifiers)

    def scan(self, picture, categories: CategorySelection = None, *,
             text_threshold: Optional[float] = None) -> ScanResult:
        """Scans a picture: a path, encoded file bytes (PNG, JPEG, ...), an HxWx3 BGR uint8
        numpy array or a PIL image. categories: identifiers or names, one or a list of them,
        or a comma-separated text (every category when None)."""
        self._check_usable()
        image, width, height = engine_layout(picture)
        threshold = self._text_threshold if text_threshold is None else float(text_threshold)
        document, _ = self._call("scan", image, width, height, self._category_list(categories), threshold)
        return read_document(document, self._by_name)

    def close(self) -> None:
        """Releases the networks and ends the engine process. Safe to call again."""
        if self._closed or os.getpid() != self._owner:
            return
        self._closed = True
        try:
            with self._send_lock:
                self._connection.send((0, "close", ()))
        except OSError:
            pass
        try:
            self._process.wait(timeout=60)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        for thread in self._threads:
            thread.join(timeout=10)
        self._connection.close()

    def __enter__(self) -> "Engine":
        return self

    def __exit__(self, *exc) -> None:
        self.close()

    def __del__(self):
        try:
            self.close()
        except Exception:
            pass
