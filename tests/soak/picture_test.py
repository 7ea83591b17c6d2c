#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""usage: picture_test.py, beside picture.py"""
import importlib.util
import os
import tempfile
import unittest

import picture

LINES = [
    "seed 7",
    "seconds,phase,process,pid,memory_kib,blocks,descriptors,threads,processor_ms,wake_ups",
    '0.5,start,"plain",10,356,0,11,4,0,13',
    '1.5,deaths,"plain",10,400,0,11,4,250,33',
    '1.5,deaths,"plain, mortal",11,400,0,11,4,250,33',
    '2.1,deaths,"plain",10,400,0,11,4,250,3[    5.07] random: crng init done',
    '2.1,dea3.1,deaths,"plain",10,400,0,11,4,300,34',
    '4.5,rest,"plain",10,404,84,11,4,1000,93',
    '5.1,rest,"plain",10,4',
]


class PictureTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.source = os.path.join(directory.name, "samples.csv")
        self.picture = os.path.join(directory.name, "picture.png")
        with open(self.source, "w", encoding="utf-8") as file:
            file.write("\n".join(LINES))

    def test_lines_that_are_no_samples_are_left_out(self):
        samples = picture.read(self.source)
        self.assertEqual([sample["seconds"] for sample in samples], [0.5, 1.5, 1.5, 4.5])
        self.assertEqual(samples[3], {
            "seconds": 4.5, "phase": "rest", "process": "plain", "pid": 10, "memory_kib": 404, "blocks": 84,
            "descriptors": 11, "threads": 4, "processor_ms": 1000, "wake_ups": 93})

    def test_rates_are_growth_a_second(self):
        samples = [sample for sample in picture.read(self.source) if sample["process"] == "plain"]
        self.assertEqual(picture.rates(samples, "wake_ups", 1), ([1.5, 4.5], [20, 20]))

    def test_phases_follow_each_other(self):
        self.assertEqual(list(picture.phases(picture.read(self.source))),
                         [("start", 0.5, 1.5), ("deaths", 1.5, 4.5), ("rest", 4.5, 4.5)])

    def test_nothing_to_draw_is_said(self):
        with open(self.source, "w", encoding="utf-8") as file:
            file.write(LINES[1])
        with self.assertRaisesRegex(SystemExit, "has no samples"):
            picture.main(self.source, self.picture)

    @unittest.skipUnless(importlib.util.find_spec("matplotlib"), "matplotlib is not installed")
    def test_picture_is_drawn(self):
        picture.main(self.source, self.picture)
        with open(self.picture, "rb") as file:
            self.assertEqual(file.read(8), b"\x89PNG\r\n\x1a\n")


if __name__ == "__main__":
    unittest.main()
