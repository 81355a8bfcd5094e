import logging
import os
import signal
import subprocess
import threading

import numpy as np
import pytest
from PIL import Image

import nubex

from conftest import BLUE, GREEN, RED, uniform_bgr


class TestScores:
    """The generated colour classifier gives known scores for uniform pictures."""

    def test_scores_by_name_and_identifier(self, engine):
        result = engine.scan(uniform_bgr(255, 0, 51), categories=[BLUE, GREEN, RED])
        assert result.ok, result.error
        assert list(result.scores) == ["Blue", "Green", "Red"]
        assert result.scores["Blue"] == pytest.approx(100, abs=0.01)
        assert result.scores["Green"] == pytest.approx(0, abs=0.01)
        assert result.scores["Red"] == pytest.approx(20, abs=0.01)
        assert result.scores_by_id == pytest.approx({BLUE: 100, GREEN: 0, RED: 20}, abs=0.01)
        assert (result.width, result.height) == (20, 10)

    def test_categories_by_name_by_text_or_alone(self, engine):
        picture = uniform_bgr(0, 102, 0)
        assert engine.scan(picture, categories=["Green", RED]).scores_by_id == pytest.approx({GREEN: 40, RED: 0},
                                                                                              abs=0.01)
        assert list(engine.scan(picture, categories=f"{RED}, {BLUE}").scores) == ["Red", "Blue"]
        assert list(engine.scan(picture, categories=GREEN).scores) == ["Green"]
        assert list(engine.scan(picture, categories="Green").scores) == ["Green"]

    def test_every_category_when_none_is_named(self, engine):
        result = engine.scan(uniform_bgr(10, 20, 30))
        assert {BLUE, GREEN, RED} <= set(result.scores_by_id)

    def test_unknown_names_are_refused_before_scanning(self, engine):
        with pytest.raises(ValueError, match="unknown category 'Purple'"):
            engine.scan(uniform_bgr(1, 2, 3), categories=["Purple"])

    def test_every_kind_of_picture_keeps_its_colours(self, engine, tmp_path):
        # Red 255, green 0, blue 102 as the viewer sees it.
        image = Image.new("RGB", (12, 9), (255, 0, 102))
        image.save(tmp_path / "picture.png")
        expected = {BLUE: 40, GREEN: 0, RED: 100}
        for picture in (image, tmp_path / "picture.png", str(tmp_path / "picture.png"),
                        (tmp_path / "picture.png").read_bytes(), uniform_bgr(102, 0, 255, 12, 9)):
            scores = engine.scan(picture, categories=[BLUE, GREEN, RED]).scores_by_id
            assert scores == pytest.approx(expected, abs=0.01), type(picture)

    def test_categories_are_listed(self, engine):
        names = {category.identifier: category.name for category in engine.categories}
        assert {BLUE: "Blue", GREEN: "Green", RED: "Red"}.items() <= names.items()
        assert any(line.startswith("Colours,") for line in engine.resource_details())


class TestThreads:
    def test_scans_from_many_threads_each_get_their_own_result(self, engine):
        results = {}

        def scan(level):
            results[level] = engine.scan(uniform_bgr(level, 255 - level, 0), categories=[BLUE, GREEN])

        threads = [threading.Thread(target=scan, args=(level,)) for level in range(0, 256, 17)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        assert len(results) == len(threads)
        for level, result in results.items():
            assert result.scores_by_id == pytest.approx({BLUE: level / 2.55, GREEN: (255 - level) / 2.55}, abs=0.01)

    def test_listings_between_scans_from_other_threads(self, engine, colour_pack):
        errors = []

        def scan():
            try:
                for _ in range(5):
                    assert engine.scan(uniform_bgr(255, 0, 0), categories=[BLUE]).scores["Blue"] > 99.9
            except BaseException as error:
                errors.append(error)

        threads = [threading.Thread(target=scan) for _ in range(3)]
        for thread in threads:
            thread.start()
        for _ in range(5):
            assert engine.add_resources(colour_pack) >= 1
        for thread in threads:
            thread.join()
        assert errors == []


class TestConsole:
    def test_engine_lines_become_log_records_and_never_reach_standard_output(self, colour_pack, tmp_path, capfd,
                                                                            caplog):
        # A resource whose network cannot be read: the engine reports it on its console.
        (tmp_path / "bad.xml").write_text("<net>not a network</net>")
        (tmp_path / "bad.bin").write_bytes(b"xx")
        (tmp_path / "classes.txt").write_text("5101, Broken, 50=50\n")
        tool = nubex.library_path().parent.parent / "bin" / "nubex-pack"
        subprocess.run([str(tool), "build", "--xml", str(tmp_path / "bad.xml"), "--bin", str(tmp_path / "bad.bin"),
                        "--details", "5100, Broken Thing, 1.0", "--classes", str(tmp_path / "classes.txt"),
                        "--no-verify", str(tmp_path / "res" / "broken")], check=True, capture_output=True)
        capfd.readouterr()
        caplog.set_level(logging.DEBUG, logger="nubex.engine")
        with nubex.Engine(resources=[colour_pack, tmp_path / "res"]) as engine:
            engine.scan(uniform_bgr(1, 2, 3), categories=[5101, BLUE])
        out, _ = capfd.readouterr()
        assert out == ""
        engine_records = [record for record in caplog.records if record.name == "nubex.engine"]
        assert any(record.levelno == logging.INFO and "Unable to read the model" in record.getMessage()
                   for record in engine_records) or \
            any("[ INFO ]" in record.getMessage() for record in engine_records), \
            [record.getMessage() for record in engine_records]


class TestLifetime:
    def test_a_forked_child_refuses_the_engine_and_the_parent_keeps_it(self, engine):
        engine.scan(uniform_bgr(1, 2, 3), categories=[BLUE])  # networks loaded
        read, write = os.pipe()
        child = os.fork()
        if child == 0:
            signal.alarm(120)  # a child stuck on the parent's engine must not hang the suite
            try:
                engine.scan(uniform_bgr(1, 2, 3), categories=[BLUE])
                message = "scanned"
            except nubex.ForkedEngineError as error:
                message = "refused: " + str(error)
            except BaseException as error:
                message = "other: " + repr(error)
            os.write(write, message.encode())
            os._exit(0)
        os.close(write)
        os.waitpid(child, 0)
        with os.fdopen(read) as pipe:
            message = pipe.read()
        assert message.startswith("refused: ") and "one Engine in each worker process" in message, message
        assert engine.scan(uniform_bgr(255, 0, 0), categories=[BLUE]).scores["Blue"] > 99.9

    def test_a_closed_engine_refuses_scans(self, colour_pack):
        engine = nubex.Engine(resources=[colour_pack])
        engine.close()
        engine.close()
        with pytest.raises(nubex.EngineError, match="closed"):
            engine.scan(uniform_bgr(1, 2, 3))

    def test_an_engine_process_that_dies_fails_the_calls_instead_of_hanging(self, colour_pack):
        with nubex.Engine(resources=[colour_pack]) as engine:
            engine._process.kill()
            with pytest.raises(nubex.EngineError, match="ended"):
                for _ in range(100):  # until the reply thread has seen the end
                    engine.scan(uniform_bgr(1, 2, 3), categories=[BLUE])

    def test_a_missing_library_is_reported(self, monkeypatch, tmp_path):
        monkeypatch.setenv("NUBEX_LIBRARY", str(tmp_path / "libNubexEngine.so.8"))
        with pytest.raises(nubex.EngineError, match="cannot load the engine library"):
            nubex.Engine()


class TestDefaultPack:
    def test_the_portrait_has_a_face(self, default_pack):
        pack, samples = default_pack
        with nubex.Engine(resources=[pack]) as engine:
            result = engine.scan(samples / "astronaut.png", categories=["Face"])
        assert result.ok, result.error
        assert len(result.faces) == 1
        box = result.faces[0].box
        assert 130 < box.left < 190 and 30 < box.top < 90 and 100 < box.width < 160
        assert result.faces[0].score == result.scores["Face"] > 80

    def test_the_sign_is_read(self, default_pack):
        pack, samples = default_pack
        with nubex.Engine(resources=[pack]) as engine:
            result = engine.scan(np.asarray(Image.open(samples / "sign.png").convert("RGB"))[:, :, ::-1].copy(),
                                 categories=[9112])
        words = [word for line in result.text_lines for word in line.words]
        assert {"open", "daily", "fresh", "coffee"} <= set(words), words
        for line in result.text_lines:
            (x1, y1), (x2, y2), (x3, y3), (x4, y4) = line.corners
            assert x1 < x2 and y2 < y3 and x4 < x3
