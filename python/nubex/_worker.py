"""The engine process: loads libNubexEngine and answers an Engine's requests.

Started by nubex.Engine as ``python -m nubex._worker FD LIBRARY THREADS``. FD is
one end of a socket pair carrying (request id, operation, arguments) and
(request id, ok, value or error text) messages. The engine writes its console
lines to this process's standard output and error, which the Engine reads, so
they never reach the host's own standard output.

Scans run on a pool of threads, at once. Every other operation waits until
no scan runs and holds scans back meanwhile, as the engine requires.
"""
import ctypes
import sys
import threading
from concurrent.futures import ThreadPoolExecutor
from multiprocessing.connection import Connection


class Gate:
    """Many scans at once, or one other operation alone."""

    def __init__(self):
        self._condition = threading.Condition()
        self._scans = 0
        self._exclusive = False

    def enter_scan(self):
        with self._condition:
            self._condition.wait_for(lambda: not self._exclusive)
            self._scans += 1

    def leave_scan(self):
        with self._condition:
            self._scans -= 1
            self._condition.notify_all()

    def enter_exclusive(self):
        with self._condition:
            self._condition.wait_for(lambda: not self._exclusive)
            self._exclusive = True
            self._condition.wait_for(lambda: self._scans == 0)

    def leave_exclusive(self):
        with self._condition:
            self._exclusive = False
            self._condition.notify_all()


class Library:
    """The C interface, with every text the engine returns copied and given back."""

    def __init__(self, path):
        lib = ctypes.CDLL(path)
        lib.InitializeNubexEngine.restype = ctypes.c_uint32
        lib.DeInitializeNubexEngine.argtypes = [ctypes.c_int32]
        lib.GetNubexEngineVersion.restype = ctypes.c_void_p
        lib.GetNubexResourcesDetails.restype = ctypes.c_void_p
        lib.GetNubexCategories.argtypes = [ctypes.POINTER(ctypes.POINTER(ctypes.c_void_p))]
        lib.GetNubexCategories.restype = ctypes.c_int32
        lib.SetNubexResourceDirectory.argtypes = [ctypes.c_char_p]
        lib.SetNubexResourceDirectory.restype = ctypes.c_uint32
        lib.ScanImage.argtypes = [ctypes.c_char_p, ctypes.c_int32, ctypes.c_int32, ctypes.c_int32, ctypes.c_char_p,
                                  ctypes.POINTER(ctypes.c_float), ctypes.c_float]
        lib.ScanImage.restype = ctypes.c_void_p
        lib.ReleaseNubexMemory.argtypes = [ctypes.c_void_p]
        self._lib = lib

    def _take(self, pointer):
        try:
            return ctypes.string_at(pointer).decode("utf-8", "replace") if pointer else ""
        finally:
            self._lib.ReleaseNubexMemory(pointer)

    def version(self):
        return self._take(self._lib.GetNubexEngineVersion())

    def add_resources(self, directory):
        return int(self._lib.SetNubexResourceDirectory(directory.encode("utf-8")))

    def initialise(self):
        return int(self._lib.InitializeNubexEngine())

    def release(self, category):
        self._lib.DeInitializeNubexEngine(category)

    def details(self):
        return self._take(self._lib.GetNubexResourcesDetails())

    def categories(self):
        listed = ctypes.POINTER(ctypes.c_void_p)()
        count = self._lib.GetNubexCategories(ctypes.byref(listed))
        entries = [self._take(listed[i]) for i in range(count)]
        self._lib.ReleaseNubexMemory(ctypes.cast(listed, ctypes.c_void_p))
        return entries

    def scan(self, image, width, height, categories, threshold):
        scores = (ctypes.c_float * (categories.count(",") + 2))()
        document = self._take(self._lib.ScanImage(image, len(image), width, height, categories.encode("ascii"),
                                                  scores, threshold))
        return document, list(scores)


def serve(connection, library, threads):
    gate = Gate()
    send_lock = threading.Lock()

    def reply(request, ok, value):
        with send_lock:
            connection.send((request, ok, value))

    def run_scan(request, arguments):
        gate.enter_scan()
        try:
            reply(request, True, library.scan(*arguments))
        except Exception as error:  # reported to the caller, never lost
            reply(request, False, f"{type(error).__name__}: {error}")
        finally:
            gate.leave_scan()

    operations = {
        "version": library.version,
        "add_resources": library.add_resources,
        "initialise": library.initialise,
        "release": library.release,
        "details": library.details,
        "categories": library.categories,
    }
    with ThreadPoolExecutor(max_workers=threads, thread_name_prefix="nubex-scan") as pool:
        while True:
            try:
                request, operation, arguments = connection.recv()
            except (EOFError, OSError):
                break  # the Engine is gone
            if operation == "scan":
                pool.submit(run_scan, request, arguments)
                continue
            if operation == "close":
                break
            gate.enter_exclusive()
            try:
                reply(request, True, operations[operation](*arguments))
            except Exception as error:
                reply(request, False, f"{type(error).__name__}: {error}")
            finally:
                gate.leave_exclusive()
    # Every scan has answered: release the networks before leaving.
    library.release(-1)
    sys.stdout.flush()


def main():
    descriptor, library_path, threads = int(sys.argv[1]), sys.argv[2], int(sys.argv[3])
    connection = Connection(descriptor)
    try:
        library = Library(library_path)
    except OSError as error:
        request, _, _ = connection.recv()
        connection.send((request, False, f"cannot load the engine library {library_path}: {error}"))
        return 1
    serve(connection, library, threads)
    connection.close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
