import io

import numpy as np
import pytest
from PIL import Image

from nubex._pictures import engine_layout


def test_rows_are_bgr_and_padded_to_the_engine_layout():
    # 5 pixels wide: rows of 15 bytes and 5 % 4 = 1 padding byte.
    picture = np.arange(2 * 5 * 3, dtype=np.uint8).reshape(2, 5, 3)
    data, width, height = engine_layout(picture)
    assert (width, height) == (5, 2)
    rows = np.frombuffer(data, dtype=np.uint8).reshape(2, 16)
    assert rows[:, :15].tobytes() == picture.tobytes()
    assert list(rows[:, 15]) == [0, 0]


def test_widths_divisible_by_four_have_no_padding():
    data, width, height = engine_layout(np.zeros((3, 8, 3), dtype=np.uint8))
    assert len(data) == 3 * 8 * 3


class TestSources:
    """Every kind of picture arrives as the same blue, green, red bytes."""

    rgb = (200, 100, 30)  # red, green, blue

    def expected(self):
        data, _, _ = engine_layout(np.full((4, 6, 3), self.rgb[::-1], dtype=np.uint8))
        return data

    def png(self):
        out = io.BytesIO()
        Image.new("RGB", (6, 4), self.rgb).save(out, format="PNG")
        return out.getvalue()

    def test_pil_image(self):
        assert engine_layout(Image.new("RGB", (6, 4), self.rgb))[0] == self.expected()

    def test_pil_image_in_another_mode(self):
        assert engine_layout(Image.new("RGBA", (6, 4), self.rgb + (255,)))[0] == self.expected()

    def test_encoded_bytes(self):
        assert engine_layout(self.png())[0] == self.expected()
        assert engine_layout(bytearray(self.png()))[0] == self.expected()

    def test_path_and_text_path(self, tmp_path):
        path = tmp_path / "picture.png"
        path.write_bytes(self.png())
        assert engine_layout(path)[0] == self.expected()
        assert engine_layout(str(path))[0] == self.expected()


class TestRefused:
    def test_arrays_of_another_type_or_shape(self):
        with pytest.raises(ValueError, match="HxWx3 uint8"):
            engine_layout(np.zeros((4, 4, 3), dtype=np.float32))
        with pytest.raises(ValueError, match="HxWx3 uint8"):
            engine_layout(np.zeros((4, 4), dtype=np.uint8))
        with pytest.raises(ValueError, match="HxWx3 uint8"):
            engine_layout(np.zeros((4, 4, 4), dtype=np.uint8))

    def test_empty_array(self):
        with pytest.raises(ValueError, match="empty"):
            engine_layout(np.zeros((0, 4, 3), dtype=np.uint8))

    def test_other_objects(self):
        with pytest.raises(TypeError, match="a picture is"):
            engine_layout(42)
