#!/usr/bin/python3
"""Tests of the quality figures: measures with known answers, scenes, and missing parts.

    bench/quality/test_quality.py

If the environment variable TARN has the path of the command, the figures of the engine are measured twice and compared.
"""
# SPDX-License-Identifier: MIT

import os
from pathlib import Path
import tempfile
import unittest
from unittest import mock

import numpy as np
import scipy.signal

import figures
import measures
import report
import scenes
import systems


def noise(seed, *shape):
    return 0.1 * np.random.default_rng(seed).standard_normal(shape)


def outputs_of(left, right, centre):
    return np.column_stack([left, right, centre])


class Measures(unittest.TestCase):
    def test_delay_is_independent_of_polarity(self):
        source = noise(1, 10000)
        late = np.concatenate([np.zeros(137), source])[:10000]
        self.assertEqual(measures.delay_frames(source, late), 137)
        self.assertEqual(measures.delay_frames(source, -0.3 * late), 137)
        self.assertEqual(measures.delay_frames(late, source), -137)

    def test_block_size_of_a_system_with_gains_per_block(self):
        def stream(stereo):
            gains = np.arange(len(stereo)) % 64 + 1.0
            return np.column_stack([stereo, stereo[:, 0] * gains])

        self.assertEqual(measures.block_frames(stream, noise(2, 1000, 2)), 64)

    def test_fixed_matrix_has_block_1_and_time_variant_system_has_none(self):
        def fixed(stereo):
            return systems.FixedMatrix().stream(stereo, 48000)

        def ageing(stereo):
            return np.column_stack([stereo, stereo[:, 0] * np.arange(len(stereo))])

        self.assertEqual(measures.block_frames(fixed, noise(3, 99, 2)), 1)
        self.assertIsNone(measures.block_frames(ageing, noise(3, 99, 2), limit=256))

    def test_shares_and_level_of_a_known_matrix(self):
        source = noise(4, 5000)
        stereo = np.column_stack([source, source])
        outputs = systems.FixedMatrix().aligned(stereo, 48000)
        np.testing.assert_allclose(measures.shares(outputs), [1 / 3, 1 / 3, 1 / 3])
        self.assertAlmostEqual(measures.level_db(stereo, outputs), 10 * np.log10(3 / 2))

    def test_fold_down_of_an_ideal_upmix_has_only_rounding_errors(self):
        left, right, middle = noise(5, 3, 5000)
        stereo = np.column_stack([left + middle, right + middle])
        error = measures.fold_down_error_db(stereo, outputs_of(left, right, np.sqrt(2) * middle))
        self.assertTrue(error is None or error < -250)

    def test_level_matching_removes_the_level_error_of_the_fold_down(self):
        left, right = noise(6, 2, 5000)
        stereo = np.column_stack([left, right])
        outputs = outputs_of(0.5 * left, 0.5 * right, 0 * left)
        self.assertAlmostEqual(measures.fold_down_error_db(stereo, outputs), 10 * np.log10(0.25))
        matched = measures.fold_down_error_db(stereo, outputs, best_gain=True)
        self.assertTrue(matched is None or matched < -250)

    def test_fixed_filters_are_not_artefacts(self):
        stems = noise(7, 200000, 2)
        filtered = scipy.signal.lfilter([0.3, -0.2, 0.5], [1, -0.4], stems[:, 0]) + 0.2 * stems[:, 1]
        _, residual, total = measures.explain(stems, filtered[:, None])
        # The length of the filter relative to the window limits the accuracy.
        self.assertLess(measures.ratio_db(residual[0], total[0]), -40)

        _, residual, total = measures.explain(stems, stems @ [[0.7], [0.2]])
        self.assertLess(measures.ratio_db(residual[0], total[0]), -200)

    def test_foreign_energy_is_an_artefact_at_its_level(self):
        stems = noise(8, 500000, 2)
        output = stems[:, :1] + 0.1 * noise(9, 500000, 1)
        _, residual, total = measures.explain(stems, output)
        self.assertAlmostEqual(measures.ratio_db(residual[0], total[0]), 10 * np.log10(0.01 / 1.01), delta=0.2)

    def test_moving_gain_is_an_artefact(self):
        stem = noise(10, 960000, 1)
        depth = 0.5
        moving = 1 + depth * np.sin(2 * np.pi * np.arange(960000) / 96000)
        _, residual, total = measures.explain(stem, stem * moving[:, None])
        expected = 10 * np.log10(depth**2 / 2 / (1 + depth**2 / 2))
        self.assertAlmostEqual(measures.ratio_db(residual[0], total[0]), expected, delta=0.3)

    def test_contributions_of_independent_stems_are_separated(self):
        stems = noise(11, 500000, 2)
        contributions, _, total = measures.explain(stems, stems @ [[1.0, 0.5], [0.0, 0.5]])
        self.assertAlmostEqual(contributions[0, 0] / total[0], 1.0, delta=0.01)
        self.assertAlmostEqual(contributions[0, 1] / contributions[0].sum(), 0.2, delta=0.01)
        self.assertAlmostEqual(contributions[1, 1] / contributions[1].sum(), 1.0, delta=0.01)

    def test_silent_stem_and_silent_output_are_accepted(self):
        stems = np.column_stack([noise(12, 50000), np.zeros(50000)])
        contributions, residual, total = measures.explain(stems, np.column_stack([stems[:, 0], np.zeros(50000)]))
        self.assertEqual(contributions[1].sum(), 0)
        self.assertIsNone(measures.ratio_db(residual[1], total[1]))


class Scenes(unittest.TestCase):
    def test_scenes_depend_only_on_the_seed(self):
        for build in (lambda seed: scenes.dialogue(seed, 2, "synthetic"), lambda seed: scenes.diffuse_noise(seed, 2)):
            np.testing.assert_array_equal(build(1).stereo, build(1).stereo)
            self.assertFalse(np.array_equal(build(1).stereo, build(2).stereo))

    def test_pan_keeps_power_and_reaches_the_sides_exactly(self):
        for degrees in scenes.PAN_SWEEP_DEGREES:
            self.assertAlmostEqual(np.sum(np.square(scenes.pan_gains(degrees))), 1.0)
        self.assertEqual(scenes.pan_gains(0.0), (1.0, 0.0))
        self.assertEqual(scenes.pan_gains(90.0), (0.0, 1.0))

    def test_pink_noise_falls_by_3_db_per_octave(self):
        signal = scenes.pink_noise(np.random.default_rng(1), 480000, 48000)
        frequencies, density = scipy.signal.welch(signal, 48000, nperseg=8192)
        octaves = [density[(frequencies >= low) & (frequencies < 2 * low)].mean() for low in (250, 1000, 4000)]
        for lower, upper in zip(octaves, octaves[1:]):
            self.assertAlmostEqual(10 * np.log10(lower / upper), 6.02, delta=0.5)

    def test_dialogue_stems_have_equal_power(self):
        stems = scenes.dialogue(1, 2, "synthetic").stems
        for stem in stems.values():
            self.assertAlmostEqual(10 * np.log10(np.mean(stem**2)), scenes.DIALOGUE_LEVEL_DB)


class Report(unittest.TestCase):
    def test_missing_recording_leaves_out_its_rows(self):
        with mock.patch.object(scenes, "SONG_DIRECTORY", Path("/nonexistent")):
            suite = scenes.build_suite(1, True, "synthetic")
        self.assertIsNone(suite.recording)
        results = {"fixed matrix": figures.measure(systems.FixedMatrix(), suite)}
        titles = {row.title for row in figures.ROWS if row.key.endswith("recording") or row.key.startswith("recording")}
        self.assertTrue(titles)
        for table in (report.text_table(results), report.markdown_table(results)):
            self.assertFalse([title for title in titles if title in table])
            self.assertIn("33.3", table)
        with tempfile.TemporaryDirectory() as directory:
            for path in report.write_plots(directory, results):
                self.assertGreater(path.stat().st_size, 5000)

    def test_missing_ffmpeg_gives_a_note(self):
        with mock.patch.object(systems.shutil, "which", return_value=None):
            available, notes = systems.peers()
        self.assertEqual(available, [])
        self.assertEqual(len(notes), 1)

    def test_zero_has_no_sign(self):
        self.assertEqual(report.cell(-0.004, "dB"), "0.0")
        self.assertEqual(report.cell(-3.0, "dB"), "-3.0")
        self.assertEqual(report.cell(None, "dB"), "-")


@unittest.skipUnless(os.environ.get("TARN"), "TARN does not name the command")
class Tarn(unittest.TestCase):
    def test_every_figure_is_present_and_reproducible(self):
        suite = scenes.build_suite(1, True, "synthetic")
        first, second = (figures.measure(systems.Tarn(os.environ["TARN"]), suite) for _ in range(2))
        self.assertEqual(first, second)
        missing = {row.key for row in figures.ROWS if first[row.key] is None}
        self.assertFalse(missing if suite.recording else {key for key in missing if "recording" not in key})
        self.assertEqual(first["aligned_delay"], 0)


if __name__ == "__main__":
    unittest.main()
