import io
import json
import os
import shutil
import subprocess
import sys
from types import SimpleNamespace

import pytest
from PIL import Image

pytest.importorskip("distributed")

import nubex  # noqa: E402
from nubex import cluster  # noqa: E402

from conftest import RED  # noqa: E402


class TestInputs:
    """Which pictures a command line names, without a cluster."""

    def test_folders_paths_and_file_uris(self, tmp_path):
        (tmp_path / "b.png").write_bytes(b"b")
        (tmp_path / "a.png").write_bytes(b"a")
        (tmp_path / "sub").mkdir()
        (tmp_path / "sub" / "c.png").write_bytes(b"c")
        spaced = tmp_path / "with space.png"
        spaced.write_bytes(b"d")
        uri = spaced.as_uri()  # file:///.../with%20space.png
        folder = [str(tmp_path / "a.png"), str(tmp_path / "b.png"), str(spaced)]
        assert list(cluster.expand_inputs([str(tmp_path)])) == folder
        assert list(cluster.expand_inputs([tmp_path.as_uri()])) == folder
        assert list(cluster.expand_inputs([str(tmp_path)], recursive=True)) == (
            folder[:2] + [str(tmp_path / "sub" / "c.png"), str(spaced)])
        assert list(cluster.expand_inputs([uri, "https://example.invalid/x.png", "missing.png"])) == [
            uri, "https://example.invalid/x.png", "missing.png"]
        assert cluster.read_picture(uri) == b"d"
        assert cluster.read_picture(str(tmp_path / "a.png")) == b"a"

    def test_lists_skip_blank_lines_and_comments(self):
        assert list(cluster.read_list(io.StringIO("# pictures\n a.png \n\nfile:///b.png\n"))) == [
            "a.png", "file:///b.png"]


class TestBatches:
    """A batch as a worker scans it, with the engine a worker plugin holds."""

    @pytest.fixture
    def plugin(self, engine, monkeypatch):
        plugin = cluster.EngineWorkerPlugin()
        plugin.engine = engine
        worker = SimpleNamespace(address="tcp://127.0.0.1:1", plugins={cluster.PLUGIN_NAME: plugin})
        monkeypatch.setattr(cluster, "get_worker", lambda: worker)
        return plugin

    def test_each_failure_is_recorded_and_the_batch_goes_on(self, plugin, engine, tmp_path):
        Image.new("RGB", (8, 8), (255, 0, 0)).save(tmp_path / "red.png")
        (tmp_path / "broken.png").write_bytes(b"not a picture")
        paths = [str(tmp_path / name) for name in ("missing.png", "broken.png", "red.png")]
        records = cluster.scan_batch(paths, str(RED))
        assert [record["path"] for record in records] == paths
        assert records[0]["error"].startswith("unreadable: FileNotFoundError")
        assert records[1]["error"].startswith("unreadable: not a picture")
        assert records[0]["document"] is None and records[1]["document"] is None
        assert records[2]["error"] is None and records[2]["document"]["scan_result"] == [{"Red": 100.0}]
        assert records[2]["engine"] == engine._process.pid

    def test_engine_errors_are_recorded(self, plugin, tmp_path):
        def fail(picture, categories):
            raise nubex.EngineError("the engine process ended (exit status -9)")
        plugin.engine = SimpleNamespace(_ended=None, _process=SimpleNamespace(pid=1), scan=fail)
        Image.new("RGB", (8, 8)).save(tmp_path / "black.png")
        [record] = cluster.scan_batch([str(tmp_path / "black.png")], None)
        assert record["error"] == "engine: the engine process ended (exit status -9)"

    def test_an_engine_whose_process_ended_is_replaced(self, plugin, colour_pack):
        closed = []
        plugin.resources = [str(colour_pack)]
        plugin.engine = SimpleNamespace(_ended="the engine process ended", close=lambda: closed.append(True))
        fresh = plugin.current()
        try:
            assert closed == [True] and isinstance(fresh, nubex.Engine)
            assert plugin.current() is fresh
            assert {category.name for category in fresh.categories} >= {"Red"}
        finally:
            fresh.close()


@pytest.mark.skipif(not os.environ.get("NUBEX_TEST_CLUSTER"),
                    reason="starts a local cluster: scripts/test-cluster.sh sets NUBEX_TEST_CLUSTER=1")
def test_scan_on_two_worker_processes(default_pack, tmp_path):
    """The command on a local cluster of two worker processes: every picture once, the unreadable
    one recorded, each worker with one engine, documents as a direct scan gives them."""
    pack, samples = default_pack
    folder = tmp_path / "pictures"
    folder.mkdir()
    tops = sorted(samples.glob("*.png"))
    for picture in tops[1:]:
        shutil.copy(picture, folder)
    (folder / "broken.png").write_bytes(b"\x89PNG\r\n\x1a\n not a picture")
    aside = tmp_path / "set aside.png"
    shutil.copy(tops[0], aside)
    words = sorted((samples / "words").glob("*.png"))
    (tmp_path / "list.txt").write_text("".join(f"{word}\n" for word in words))
    output = tmp_path / "results.jsonl"

    run = subprocess.run(
        [sys.executable, "-m", "nubex.cluster", "scan", "--workers", "2", "--threads-per-worker", "1",
         "--resources", str(pack), "--batch-size", "3", "--in-flight", "3", "--output", str(output),
         "--from", str(tmp_path / "list.txt"), str(folder), aside.as_uri()],
        capture_output=True, text=True, timeout=600)
    assert run.returncode == 1, run.stderr  # one picture failed
    records = [json.loads(line) for line in output.read_text().splitlines()]

    expected = {str(folder / picture.name): picture for picture in tops[1:]}
    expected[aside.as_uri()] = aside
    expected.update({str(word): word for word in words})
    broken = str(folder / "broken.png")
    assert sorted(record["path"] for record in records) == sorted(list(expected) + [broken])

    by_path = {record["path"]: record for record in records}
    assert by_path[broken]["document"] is None
    assert by_path[broken]["error"].startswith("unreadable:")
    # Two worker processes, each scanning with the one engine it created.
    engines = {(record["worker"], record["engine"]) for record in records if record["path"] != broken}
    assert len(engines) == 2 and len({worker for worker, _ in engines}) == 2

    with nubex.Engine(resources=[pack], threads=2) as engine:
        for path, picture in expected.items():
            assert by_path[path]["error"] is None, path
            assert by_path[path]["document"] == json.loads(engine.scan(picture).document), path

    summary = run.stderr.strip().splitlines()[-1]
    assert f"scanned {len(expected) + 1} pictures in " in summary
    assert " pictures/s) on 2 workers " in summary and f"{len(expected)} ok, 1 failed" in summary


@pytest.mark.skipif(not os.environ.get("NUBEX_TEST_CLUSTER"),
                    reason="starts a local cluster: scripts/test-cluster.sh sets NUBEX_TEST_CLUSTER=1")
def test_scan_against_a_running_scheduler(default_pack, tmp_path):
    """--scheduler: the workers of a cluster that is already running get their engines, scan, and
    keep running after the command; an unknown category name ends the command before any scan."""
    from distributed import Client, LocalCluster
    pack, samples = default_pack
    pictures = sorted(samples.glob("*.png"))[:3]
    output = tmp_path / "results.jsonl"
    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, host="127.0.0.1",
                      dashboard_address=None) as running, Client(running) as client:
        run = subprocess.run(
            [sys.executable, "-m", "nubex.cluster", "scan", "--scheduler", running.scheduler_address,
             "--resources", str(pack), "--categories", "Face", "--batch-size", "1", "--output", str(output)]
            + [str(picture) for picture in pictures], capture_output=True, text=True, timeout=600)
        assert run.returncode == 0, run.stderr
        assert len(client.nthreads()) == 2
        refused = subprocess.run(
            [sys.executable, "-m", "nubex.cluster", "scan", "--scheduler", running.scheduler_address,
             "--resources", str(pack), "--categories", "Face,Purple", "--output", str(tmp_path / "none.jsonl"),
             str(pictures[0])], capture_output=True, text=True, timeout=600)
        assert refused.returncode == 2 and "unknown category 'Purple'" in refused.stderr, refused.stderr
        assert (tmp_path / "none.jsonl").read_text() == ""
    records = [json.loads(line) for line in output.read_text().splitlines()]
    assert sorted(record["path"] for record in records) == [str(picture) for picture in pictures]
    assert all(record["error"] is None and [*record["document"]["scan_result"][0]] == ["Face"]
               for record in records)
    assert "scanned 3 pictures in " in run.stderr
