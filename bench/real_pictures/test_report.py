"""Checks of the benchmark's scoring rules: python3 -m unittest discover bench/real_pictures"""

import random
import unittest

import report


def plain_edit_distance(a, b):
    previous = list(range(len(b) + 1))
    for i, ca in enumerate(a, 1):
        current = [i]
        for j, cb in enumerate(b, 1):
            current.append(min(previous[j] + 1, current[j - 1] + 1, previous[j - 1] + (ca != cb)))
        previous = current
    return previous[-1]


class Words(unittest.TestCase):
    def test_words_are_lowercase_letters_and_digits(self):
        self.assertEqual(report.words(["FOSTER'S  GM-125", "--", "np.zeros_like(coins)"]),
                         ["fosters", "gm125", "npzeroslikecoins"])

    def test_matches_count_repeated_words_once_each(self):
        self.assertEqual(report.matched(["no", "parking", "no", "parking"], ["noparking", "no", "no", "no"]), 2)

    def test_exact_words_keep_case_and_punctuation(self):
        self.assertEqual(report.exact_words(["FOSTER'S Box,"]), ["FOSTER'S", "Box,"])


class EditDistance(unittest.TestCase):
    def test_agrees_with_the_plain_table(self):
        generator = random.Random(7)
        for _ in range(500):
            a = "".join(generator.choice("ab c") for _ in range(generator.randint(0, 90)))
            b = "".join(generator.choice("abcd ") for _ in range(generator.randint(0, 90)))
            self.assertEqual(report.edit_distance(a, b), plain_edit_distance(a, b), (a, b))


class Faces(unittest.TestCase):
    def test_square_of_a_tight_box_is_found(self):
        box = [100, 100, 200, 220]
        square = [78, 88, 222, 232]  # 1.2 times the longer edge, same centre
        self.assertEqual(report.face_matches([box], [square], []), (1, 0))

    def test_too_large_or_off_centre_detections_are_false(self):
        box = [100, 100, 200, 200]
        self.assertEqual(report.face_matches([box], [[0, 0, 300, 300]], []), (0, 1))
        self.assertEqual(report.face_matches([box], [[190, 190, 290, 290]], []), (0, 1))

    def test_one_detection_per_face(self):
        box = [100, 100, 200, 200]
        self.assertEqual(report.face_matches([box], [[100, 100, 200, 200], [105, 105, 205, 205]], []), (1, 1))

    def test_detections_in_ignored_boxes_do_not_count(self):
        self.assertEqual(report.face_matches([], [[10, 10, 30, 30]], [[0, 0, 50, 50]]), (0, 0))


if __name__ == "__main__":
    unittest.main()
