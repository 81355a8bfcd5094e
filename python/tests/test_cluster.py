import io
import json
import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

pytest.importorskip("distributed")

import nubex  # noqa: E402
from nubex import cluster  # noqa: E402


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
