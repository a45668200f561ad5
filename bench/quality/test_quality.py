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
import soundfile

import bass
import bass_modes
import dialogue
import doc_table
import figures
import flutter
import localisation
import measures
import music_figures
import page
import plots
import quality
import recordings
import report
import rows
import scenes
import signals
import surround_systems
import surrounds
import systems
import timbre
import transients


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

    def test_group_counts_stems_that_are_alike_together(self):
        music, speech = noise(13, 2, 200000)
        stems = np.column_stack([speech, music, music])
        outputs = np.column_stack([music, speech])
        contributions, _, total = measures.explain(stems, outputs, hop=2048, groups=[[0], [1, 2]])
        self.assertAlmostEqual(contributions[1, 0] / total[0], 1.0, delta=0.01)
        self.assertAlmostEqual(contributions[0, 1] / total[1], 1.0, delta=0.01)

    def test_si_sdr_of_a_scaled_target_with_orthogonal_noise(self):
        target, foreign = noise(14, 2, 5000)
        foreign -= target * np.vdot(target, foreign) / np.vdot(target, target)
        foreign *= 0.1 * np.linalg.norm(target) / np.linalg.norm(foreign)
        self.assertAlmostEqual(measures.si_sdr_db(target, -3 * (target + foreign)), 20.0)
        self.assertIsNone(measures.si_sdr_db(target, 0 * target))


class Localisation(unittest.TestCase):
    def test_one_loudspeaker_has_vectors_of_length_1_at_its_angle(self):
        for gains, degrees in (([0.5, 0, 0], 30), ([0, 0.5, 0], -30), ([0, 0, 0.5], 0)):
            for vector in (localisation.energy_vector(np.array(gains)), localisation.velocity_vector(np.array(gains))):
                self.assertAlmostEqual(np.linalg.norm(vector), 1.0)
                self.assertAlmostEqual(localisation.angle_degrees(vector), degrees)

    def test_phantom_centre_of_a_pair_is_in_front_and_spread(self):
        vector = localisation.energy_vector(np.array([0.7, 0.7, 0.0]))
        self.assertAlmostEqual(localisation.angle_degrees(vector), 0.0)
        self.assertAlmostEqual(np.linalg.norm(vector), np.cos(np.radians(30)))

    def test_stereo_has_the_velocity_angle_of_the_tangent_law_and_a_known_energy_angle(self):
        left, right = scenes.pan_gains(20.0)
        found = localisation.figures([((left, right), np.array([left, right, 0.0]))])
        phantom = np.degrees(np.arctan((left - right) / (left + right) * np.tan(np.radians(30))))
        energy = np.degrees(np.arctan(np.cos(np.radians(40)) * np.tan(np.radians(30))))
        self.assertAlmostEqual(found["velocity_error_max"], 0.0)
        self.assertAlmostEqual(found["energy_error_max"], energy - phantom)

    def test_gains_of_a_source_ignore_independent_signals(self):
        source, foreign = noise(15, 2, 100000)
        gains = localisation.amplitude_gains(source, outputs_of(0.5 * source, -0.2 * source, 0.3 * source + foreign))
        np.testing.assert_allclose(gains[:2], [0.5, -0.2])
        self.assertAlmostEqual(gains[2], 0.3, delta=0.02)


class Flutter(unittest.TestCase):
    RATE = 48000

    def setUp(self):
        self.steady, self.other = noise(16, 2, 8 * self.RATE)
        self.switched = np.where(signals.on_and_off(8 * self.RATE, 2 * self.RATE, 1) > 0.5, 1.0, 0.5)
        self.stereo = np.column_stack([self.steady + self.other, self.steady])

    def movements(self, outputs):
        return flutter.figures(self.steady, self.other, self.stereo, outputs, self.RATE)

    def test_bands_have_equal_width_in_erb_and_no_gap(self):
        edges = flutter.band_edges_hz()
        np.testing.assert_allclose([edges[0], edges[-1]], [100, 16000])
        np.testing.assert_allclose(
            np.diff(flutter.erb_rate(edges)), (flutter.erb_rate(16000) - flutter.erb_rate(100)) / 20
        )
        bins = np.concatenate(flutter.band_bins(self.RATE))
        np.testing.assert_array_equal(bins, np.arange(bins[0], bins[-1] + 1))
        self.assertTrue(all(len(band) for band in flutter.band_bins(self.RATE)))

    def test_gain_that_switches_by_6_db_moves_by_6_db(self):
        gain, _ = self.movements(outputs_of(self.other, 0 * self.other, self.switched * self.steady))
        self.assertAlmostEqual(gain, 20 * np.log10(2), delta=0.05)

    def test_fixed_gain_beside_a_moving_source_does_not_move(self):
        gain, _ = self.movements(outputs_of(self.other, self.other, 0.5 * self.steady + 0.3 * self.other))
        self.assertLess(gain, 1e-6)

    def test_level_that_switches_by_6_db_moves_by_6_db(self):
        moving = self.stereo * self.switched[:, None]
        gain, level = self.movements(np.column_stack([moving, np.zeros(len(moving))]))
        self.assertIsNone(gain)
        self.assertAlmostEqual(level, 20 * np.log10(2), delta=0.05)


class Transients(unittest.TestCase):
    def figures_of(self, system, scene):
        outputs = system.aligned(scene.stereo, scene.rate)
        return transients.figures(outputs, scene.events, scene.rate)

    def test_events_change_places_and_start_at_their_frames(self):
        for scene in (scenes.bursts(1, 12), scenes.clicks(1, 12)):
            places = [place for _, place in scene.events]
            self.assertTrue(all(before != after for before, after in zip(places, places[1:])))
            self.assertEqual(set(places), {0, 1, 2})
            onsets = [start for start, _ in scene.events]
            self.assertTrue(np.all(np.any(scene.stereo[onsets], axis=1)))
            self.assertFalse(np.any(scene.stereo[np.array(onsets) - 1]))

    def test_shares_of_a_known_matrix(self):
        for scene in (scenes.bursts(2, 12), scenes.clicks(2, 12)):
            found = self.figures_of(systems.FixedMatrix(), scene)
            self.assertAlmostEqual(found["centre_in_c"], 1 / 3)
            self.assertAlmostEqual(found["side_in_side"], 4 / 5)
            self.assertAlmostEqual(found["side_in_c"], 1 / 5)
            self.assertIsNone(found["pre_echo"])

    def test_delayed_copy_has_no_pre_echo(self):
        scene = scenes.bursts(3, 12)
        delayed = np.roll(systems.PlainStereo().aligned(scene.stereo, scene.rate), 40, axis=0)
        self.assertIsNone(transients.figures(delayed, scene.events, scene.rate)["pre_echo"])

    def test_early_copy_is_a_pre_echo_at_its_level(self):
        scene = scenes.clicks(4, 6)
        outputs = systems.PlainStereo().aligned(scene.stereo, scene.rate)
        outputs = outputs + 0.1 * np.roll(outputs, -240, axis=0)
        self.assertAlmostEqual(transients.figures(outputs, scene.events, scene.rate)["pre_echo"], -20.0)


class Timbre(unittest.TestCase):
    RATE = 48000

    def test_gain_has_no_effect_on_the_spectrum(self):
        stereo = noise(17, 200000, 2)
        outputs = np.column_stack([0.5 * stereo, np.zeros(len(stereo))])
        np.testing.assert_allclose(timbre.third_octave_levels(stereo, outputs, self.RATE), 0.0, atol=1e-9)

    def test_step_of_6_db_between_two_bands_is_found(self):
        stereo = noise(18, 480000, 2)
        frequencies = np.fft.rfftfreq(len(stereo), 1 / self.RATE)
        high = frequencies > 10**3.05  # between 1000 and 1250 Hz
        outputs = np.fft.irfft(np.fft.rfft(stereo, axis=0) * np.where(high, 0.5, 1.0)[:, None], axis=0)
        levels = timbre.third_octave_levels(stereo, outputs, self.RATE)
        step = 20 * np.log10(2)
        expected = np.where(np.array(timbre.THIRD_OCTAVES_HZ) > 1000, -step * 14 / 26, step * 12 / 26)
        np.testing.assert_allclose(levels, expected, atol=0.15)

    def test_band_without_signal_is_left_out(self):
        spectrum = np.fft.rfft(noise(19, 480000, 2), axis=0)
        spectrum[len(spectrum) // 2 :] = 0  # 12 kHz and above
        stereo = np.fft.irfft(spectrum, axis=0)
        levels = timbre.third_octave_levels(stereo, 0.3 * stereo, self.RATE)
        self.assertTrue(np.isnan(levels[-1]))
        self.assertFalse(np.isnan(levels[0]))


class Bass(unittest.TestCase):
    RATE = 48000

    def test_level_of_a_known_matrix(self):
        stereo = noise(20, 200000, 2)
        levels = bass.levels(stereo, systems.FixedMatrix().aligned(stereo, self.RATE), self.RATE)
        np.testing.assert_allclose(levels, 20 * np.log10(1.5))

    def test_level_that_switches_by_6_db_has_a_known_mean_and_deviation(self):
        stereo = noise(21, 40 * self.RATE, 2)
        gains = np.where(signals.on_and_off(len(stereo), 8 * self.RATE, 1) > 0.5, 1.0, 0.5)
        levels = bass.levels(stereo, stereo * gains[:, None], self.RATE)
        self.assertAlmostEqual(np.mean(levels), -10 * np.log10(2), delta=0.1)
        self.assertAlmostEqual(np.std(levels), 10 * np.log10(2), delta=0.1)

    def test_quiet_windows_do_not_count(self):
        stereo = noise(22, 8 * self.RATE, 2)
        stereo[4 * self.RATE : 5 * self.RATE] = 0  # here the filter decays
        stereo[5 * self.RATE :] *= 0.001
        outputs = stereo.copy()
        outputs[5 * self.RATE :] *= 10
        levels = bass.levels(stereo, outputs, self.RATE)
        np.testing.assert_allclose(levels, 0.0, atol=1e-9)
        self.assertIn(len(levels), (17, 18))

    def test_steady_source_has_its_level_beside_one_that_moves(self):
        steady, other = noise(24, 2, 8 * self.RATE)
        envelope = signals.on_and_off(len(other), 2 * self.RATE, 240)
        stereo = np.column_stack([steady + other * envelope, steady])
        outputs = outputs_of(0.5 * other * envelope, 0 * steady, steady)
        level, moves = bass.figures(steady, other * envelope, stereo, outputs, self.RATE)
        self.assertAlmostEqual(level, 20 * np.log10(0.5))
        self.assertAlmostEqual(moves, 0.0)

    def test_gain_that_switches_by_6_db_moves_by_6_db(self):
        steady, other = noise(25, 2, 8 * self.RATE)
        gains = np.where(signals.on_and_off(len(steady), 2 * self.RATE, 1) > 0.5, 1.0, 0.5)
        stereo = np.column_stack([steady + other, steady])
        outputs = outputs_of(other, 0 * steady, 2 * gains * steady)
        level, moves = bass.figures(steady, other, stereo, outputs, self.RATE)
        self.assertAlmostEqual(level, -10 * np.log10(2), delta=0.1)
        self.assertAlmostEqual(moves, 20 * np.log10(2), delta=0.1)

    def test_silent_outputs_have_the_lowest_level(self):
        steady = noise(26, 2 * self.RATE)
        stereo = np.column_stack([steady, steady])
        level, moves = bass.figures(steady, 0 * steady, stereo, np.zeros((len(steady), 3)), self.RATE)
        self.assertEqual((level, moves), (flutter.SILENT_DB, 0.0))


class Surrounds(unittest.TestCase):
    def test_chains_are_inverted(self):
        early = np.zeros((60000, 5))
        early[1000:20000, surround_systems.BEHIND] = noise(1, 19000, 2)
        late = np.roll(early, surround_systems.design_chains.look_ahead_blocks()[48000] * 64, axis=0)
        sections = list(zip(surround_systems.design_chains.committed()[48000], surround_systems.design_chains.GAINS))
        for channel, chain in zip((3, 4), (sections[:2], sections[2:])):
            for delay, gain in chain:
                history, signal = np.zeros(len(late) + delay), late[:, channel].copy()
                for n, x in enumerate(signal):
                    history[n + delay] = x + gain * history[n]
                    late[n, channel] = history[n] - gain * history[n + delay]
        self.assertLess(np.abs(surround_systems.Tarn(None).without_chains(late) - early).max(), 1e-9)

    def test_leak_of_known_shares(self):
        stems = noise(2, 48000 * 4, 3)

        class Known:
            def outputs(self, stereo):
                return stems @ np.array([[0, 0, 1, 0.1, 0], [1, 0, 0, 1, 0], [0, 1, 0, 0, 1]])

            def without_chains(self, outputs):
                return outputs

        found = surrounds.leak(Known(), stems, stems[:, :2])
        self.assertAlmostEqual(found["leak"], -20.0, 6)
        self.assertAlmostEqual(found["others_behind"], 0.5, 6)

    def test_resampling_keeps_what_is_below_both_limits(self):
        time = np.arange(4 * 48000) / 48000
        sine = np.sin(2 * np.pi * 1000 * time)[:, None]
        for rate_hz in surround_systems.RATES_HZ:
            there = surround_systems.resampled(sine, 48000, rate_hz)
            self.assertEqual(len(there), 4 * rate_hz)
            expected = np.sin(2 * np.pi * 1000 * np.arange(len(there)) / rate_hz)
            np.testing.assert_allclose(there[:, 0], expected, atol=1e-9)
            np.testing.assert_allclose(surround_systems.resampled(there, rate_hz, 48000), sine, atol=1e-9)

    def test_correlations_of_two_pairs(self):
        first, second, third = noise(5, 3, 96000)
        fronts = np.zeros((96000, 3))
        outputs = np.column_stack([fronts, first, second, third, -third + first])
        found = surrounds.correlations(outputs)
        self.assertLess(found["first_pair"], 0.02)
        self.assertAlmostEqual(found["second_pair"], np.sqrt(0.5), delta=0.02)
        self.assertAlmostEqual(found["between_pairs"], np.sqrt(0.5), delta=0.02)

    def test_reverberation_has_its_level_and_is_late(self):
        dry = noise(4, 48000)
        sides = scenes.reverberation(dry, np.random.default_rng(1))
        self.assertLess(max(np.abs(side[: scenes.RATE_HZ // 10]).max() for side in sides), 1e-12)
        power = sum(np.mean(side**2) for side in sides)
        self.assertAlmostEqual(10 * np.log10(power / np.mean(dry**2)), scenes.REVERBERATION_LEVEL_DB, 1)


class Dialogue(unittest.TestCase):
    """Louder and softer voices in independent noise of equal power."""

    def setUp(self):
        self.speech, left, right = noise(27, 3, 12 * dialogue.RATE_HZ)
        self.rest = scenes.HALF_POWER * np.column_stack([left, right])

    def figures_of(self, system, gain_db):
        return dialogue.figures(system, self.speech, self.rest, gain_db)

    def test_stereo_changes_nothing(self):
        found = self.figures_of(dialogue.Stereo(), 6.0)
        for measure in ("speech", "rest", "relative"):
            self.assertAlmostEqual(found[measure], 0.0, 3)
        self.assertAlmostEqual(found["si_sdr"], 0.0, delta=0.1)

    def test_middle_raises_its_part_of_the_rest(self):
        found = self.figures_of(dialogue.Middle(), 6.0)
        half = (dialogue.factor(6.0) - 1) / 2
        rest = 10 * np.log10((1 + half) ** 2 + half**2)
        self.assertAlmostEqual(found["speech"], 6.0, 3)
        self.assertAlmostEqual(found["rest"], rest, delta=0.02)
        self.assertAlmostEqual(found["relative"], 6.0 - rest, delta=0.02)
        self.assertLess(found["artefacts"], -100)

    def test_removal_of_the_middle_leaves_half_of_the_rest(self):
        found = self.figures_of(dialogue.Middle(), -60.0)
        self.assertAlmostEqual(found["speech"], -60.0, 3)
        self.assertAlmostEqual(found["rest"], 10 * np.log10(0.5), delta=0.02)
        self.assertAlmostEqual(found["si_sdr"], 0.0, delta=0.1)

    def test_foreign_noise_is_an_artefact(self):
        class Noisy:
            def outputs(self, stereo, gain_db):
                return stereo + np.std(stereo) * np.sqrt(0.1) * np.random.default_rng(28).standard_normal(stereo.shape)

        self.assertAlmostEqual(self.figures_of(Noisy(), 6.0)["artefacts"], 10 * np.log10(0.1 / 1.1), delta=0.3)

    def test_centre_of_the_filter_is_added_at_the_level_of_the_gain(self):
        class Halved:
            def aligned(self, stereo, rate):
                return np.column_stack([stereo, stereo.mean(axis=1) / 2])

        system = dialogue.Dialoguenhance.__new__(dialogue.Dialoguenhance)
        system.filters = {6.0: Halved()}
        system.levels = {6.0: system.speech_level(self.speech, 6.0)}
        stereo = np.column_stack([self.speech, self.speech])
        np.testing.assert_allclose(system.outputs(stereo, 6.0), dialogue.factor(6.0) * stereo)

    def test_every_row_has_a_figure(self):
        measures_of_a_scene = self.figures_of(dialogue.Stereo(), 6.0)
        found = {
            scene: {("some system", gain_db): measures_of_a_scene for gain_db in dialogue.GAINS_DB}
            for scene in (*dialogue.AMBIENCES, (0, 0), (0, 1))
        }
        self.assertLessEqual({row.key for row in dialogue.ROWS}, set(dialogue.summary(found, "some system")))

    def test_mono_sound_gives_two_sides_of_the_same_power(self):
        mono = noise(29, dialogue.RATE_HZ, 1)
        with mock.patch.object(recordings, "read", return_value=mono):
            sides = dialogue.sound("river")
        self.assertEqual(sides.shape, (dialogue.SECONDS * dialogue.RATE_HZ, 2))
        np.testing.assert_array_equal(sides[: len(mono), 0], mono[:, 0])
        np.testing.assert_array_equal(sides[: len(mono) // 2, 1], mono[len(mono) // 2 :, 0])


class BassModes(unittest.TestCase):
    def test_summary_of_known_levels(self):
        levels = {("some system", limit): np.array([-3.0, -5.0]) for limit in bass_modes.LIMITS_HZ}
        others = {("some system", limit): np.array([-2.0, -2.0, -2.0]) for limit in bass_modes.LIMITS_HZ}
        found = bass_modes.summary([levels, others], "some system")
        self.assertEqual({row.key for row in bass_modes.ROWS}, set(found))
        expected = {
            "mean": -3.0,
            "lowest": -4.0,
            "highest": -2.0,
            "deviation": 0.5,
            "worst_deviation": 1.0,
            "near": 1.0,
        }
        for measure, value in expected.items():
            self.assertEqual(found[bass_modes.key(100, measure)], value)

    def test_windows_beyond_one_decibel_are_not_near(self):
        levels = {("some system", limit): np.array([-3.0, -5.2]) for limit in bass_modes.LIMITS_HZ}
        self.assertEqual(bass_modes.summary([levels], "some system")[bass_modes.key(80, "near")], 0.0)


class DocTable(unittest.TestCase):
    ROWS = [doc_table.Row("a", "first", "dB"), doc_table.Row("b", "second", "%"), doc_table.Row("c", "third", "1", 2)]

    def test_units_decimals_and_missing_figures(self):
        text = doc_table.table(self.ROWS, {"one": {"a": -0.04, "b": 0.256, "c": 0.5}, "two": {"a": -150.0}})
        lines = text.splitlines()
        self.assertEqual(lines[0], "| | unit | one | two |")
        self.assertEqual(
            lines[2:], ["| first | dB | 0.0 | - |", "| second | % | 26 % | - |", "| third | 1 | 0.50 | - |"]
        )

    def test_every_script_has_its_part_of_the_page(self):
        parts = {
            ("surrounds", ""): surrounds.ROWS,
            ("surrounds", "two pairs"): surrounds.PAIR_ROWS,
            ("surrounds", "rates"): surrounds.ROWS,
            ("dialogue", ""): dialogue.ROWS,
            ("bass_modes", ""): bass_modes.ROWS,
        }
        for markers, expected in parts.items():
            _, between, _ = page.split(page.PATH.read_text(), *doc_table.markers(*markers))
            titles = [line.strip("| ").split(" | ")[0] for line in between.splitlines() if line.startswith("| ")]
            self.assertEqual(titles[1:], [row.title for row in expected])


class Music(unittest.TestCase):
    """Music figures with generated recordings in place of the downloaded ones."""

    RATE = 8000

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.folder = Path(directory.name)
        package = self.folder / "songs"
        package.mkdir()
        for name in ("a", "b"):
            soundfile.write(package / f"{name}.wav", noise(ord(name), 4 * self.RATE, 2), self.RATE)
        voices = self.folder / recordings.SPEECH_PACKAGE / recordings.SPEECH_FOLDER
        voices.mkdir(parents=True)
        for number in range(2):
            soundfile.write(voices / f"{number}-v-.ogg", noise(number, 4 * self.RATE), self.RATE)
        found = [recordings.Track("songs", "", (f"{name}.wav",)) for name in ("a", "b")]
        packages = {"songs": ("1.0-1", "0" * 64), recordings.SPEECH_PACKAGE: ("2.0-1", "0" * 64)}
        settings = {"FOLDER": self.folder, "TRACKS": found, "PACKAGES": packages, "EXCERPT_START_SECONDS": 0}
        for patch in (mock.patch.object(recordings, name, value) for name, value in settings.items()):
            patch.start()
            self.addCleanup(patch.stop)

    def test_halves_have_all_tracks_once(self):
        names = [recordings.tracks(half)[index].name for half, index in music_figures.excerpts()]
        self.assertEqual(names, ["songs: a.wav", "songs: b.wav"])

    def test_figures_of_known_systems_and_their_pictures(self):
        compared = [systems.FixedMatrix(), systems.PlainStereo()]
        done = []
        results = music_figures.measure(compared, 3, progress=lambda *counts: done.append(counts))
        self.assertEqual(done, [(1, 2), (2, 2)])
        matrix, stereo = results["fixed matrix"], results["stereo"]
        self.assertEqual([track["track"] for track in matrix["tracks"]], ["songs: a.wav", "songs: b.wav"])
        self.assertEqual([track["half"] for track in matrix["tracks"]], ["design", "check"])
        self.assertAlmostEqual(matrix["speech_at_0_db_in_c"], 1 / 3, delta=0.001)
        self.assertLess(matrix["speech_at_0_db_artefacts_all"], -100)
        self.assertAlmostEqual(matrix["bass_mean"], 20 * np.log10(1.5))
        self.assertAlmostEqual(matrix["bass_deviation"], 0.0)
        self.assertEqual((stereo["speech_at_6_db_in_c"], stereo["speech_at_6_db_si_sdr"]), (0.0, None))
        self.assertEqual((stereo["third_octave_worst"], stereo["third_octave_worst_hz"]), (0.0, None))

        suite = scenes.build_suite(1, True, "synthetic")
        results = {system.label: figures.measure(system, suite) | results[system.label] for system in compared}
        self.assertIn("Speech over music", report.text_table(results))
        names = {path.stem for path in plots.write(self.folder / "pictures", results)}
        self.assertLessEqual({"speech-over-music", "third-octaves", "flutter"}, names)

    def test_speech_of_a_known_mixture(self):
        scene = scenes.speech_over_music(recordings.DESIGN_HALF, 0, 0, 4)
        speech, left, right = (figures.settled(scene, scene.stems[name]) for name in ("speech", "left", "right"))
        foreign = np.std(speech) * np.sqrt(0.1) * np.random.default_rng(23).standard_normal(len(speech))
        found = music_figures.speech_figures(scene, outputs_of(left, right + speech, speech + left + foreign))
        foreign_in_band = -10.0  # of the speech
        music = 10 * np.log10(np.sum(left**2) / np.sum(speech**2))
        self.assertAlmostEqual(found["in_c"], 0.5, delta=0.02)
        self.assertAlmostEqual(found["sir"], -music, delta=0.2)
        explained = 1 + 10 ** (music / 10)
        self.assertAlmostEqual(found["sar"], 10 * np.log10(explained) - foreign_in_band, delta=0.5)

    def test_level_of_the_speech_relative_to_the_music(self):
        for level in rows.SPEECH_LEVELS_DB:
            scene = scenes.speech_over_music(recordings.CHECK_HALF, 0, level, 3)
            power = {name: np.mean(stem**2) for name, stem in scene.stems.items()}
            self.assertAlmostEqual(10 * np.log10(power["speech"] / (power["left"] + power["right"])), level)

    def test_missing_recordings_are_left_out_with_a_note(self):
        self.assertEqual(recordings.missing(), [])
        (self.folder / "songs").rename(self.folder / "other")
        self.assertIsNone(quality.music_settings(quick=False))
        suite = mock.Mock(recording=None, speech="espeak-ng")
        self.assertTrue(any("lacks songs" in note for note in quality.notes_of(suite, {})))

    def test_failed_download_names_the_command_and_leaves_nothing(self):
        (self.folder / "songs").rename(self.folder / "other")
        with mock.patch.dict(os.environ, PATH=""), self.assertRaisesRegex(recordings.FetchError, "apt-get"):
            recordings.fetch()
        self.assertEqual({path.name for path in self.folder.iterdir()}, {"other", recordings.SPEECH_PACKAGE})

    def test_download_with_another_checksum_is_refused_and_leaves_nothing(self):
        (self.folder / "songs").rename(self.folder / "other")
        commands = []

        def run(command, directory):
            commands.append(command)
            (Path(directory) / "songs.deb").write_bytes(b"changed")

        with mock.patch.object(recordings, "_run", run), self.assertRaisesRegex(recordings.FetchError, "SHA-256"):
            recordings.fetch()
        self.assertEqual([command[-1] for command in commands], ["songs=1.0-1"])
        self.assertEqual({path.name for path in self.folder.iterdir()}, {"other", recordings.SPEECH_PACKAGE})

    def test_only_a_full_run_downloads(self):
        for options, count in (([], 1), (["--quick"], 0), (["--no-fetch"], 0)):
            fetch = mock.patch.object(recordings, "fetch")
            build = mock.patch.object(scenes, "build_suite", side_effect=InterruptedError)
            with fetch as fetched, build, self.assertRaises(InterruptedError):
                quality.main(["--tarn", __file__, *options])
            self.assertEqual(fetched.call_count, count)


class Packages(unittest.TestCase):
    def test_every_package_of_a_recording_has_a_version(self):
        packages = {track.package for track in recordings.TRACKS} | {recordings.SPEECH_PACKAGE}
        self.assertEqual(packages, set(recordings.PACKAGES))
        self.assertIn(scenes.SONG_PACKAGE, packages)


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
        signal = signals.pink_noise(np.random.default_rng(1), 480000, 48000)
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
        titles = {row.title for row in rows.ROWS if row.key.endswith("recording") or row.key.startswith("recording")}
        self.assertTrue(titles)
        for table in (report.text_table(results), report.markdown_table(results)):
            self.assertFalse([title for title in titles if title in table])
            self.assertIn("33.3", table)
        with tempfile.TemporaryDirectory() as directory:
            for path in plots.write(directory, results):
                self.assertGreater(path.stat().st_size, 5000)

    def test_sections_have_titles_in_both_tables_and_empty_ones_are_left_out(self):
        results = {"some system": {row.key: None for row in rows.ROWS} | {"bass_mean": 1.0}}
        self.assertIn("\n\nMusic\nlevel of the bass", report.text_table(results))
        self.assertIn("| **Music** |  |  |\n", report.markdown_table(results))
        self.assertNotIn("Fold-down", report.text_table(results))

    def test_keys_are_unique(self):
        keys = [row.key for row in rows.ROWS]
        self.assertEqual(len(keys), len(set(keys)))

    def test_missing_ffmpeg_gives_a_note(self):
        with mock.patch.object(systems.shutil, "which", return_value=None):
            available, notes = systems.peers()
        self.assertEqual(available, [])
        self.assertEqual(len(notes), 1)

    def test_zero_has_no_sign(self):
        self.assertEqual(report.cell(-0.004, "dB"), "0.0")
        self.assertEqual(report.cell(-3.0, "dB"), "-3.0")
        self.assertEqual(report.cell(None, "dB"), "-")


class Page(unittest.TestCase):
    """docs/quality.md"""

    SETTINGS = {"seed": 7, "versions": {"tarn": "1.0.0"}, "packages": {"songs": "1.0-1"}}

    def copy_of_page(self, text):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        path = Path(directory.name) / "quality.md"
        path.write_text(text)
        patch = mock.patch.object(page, "PATH", path)
        patch.start()
        self.addCleanup(patch.stop)
        return path

    def test_committed_table_has_all_rows_footnotes_and_packages(self):
        _, between, _ = page.split(page.PATH.read_text())
        titles = [line.strip("| ").split(" | ")[0] for line in between.splitlines() if line.startswith("| ")]
        expected = ["figure", "---"]
        for section in rows.SECTIONS:
            expected += [f"**{section.title}**", *(row.title for row in section.rows)]
        self.assertEqual([title.rstrip("| ") for title in titles], expected)
        self.assertTrue(between.rstrip().endswith("  \n".join(rows.FOOTNOTES)))
        for package, (version, _) in recordings.PACKAGES.items():
            self.assertIn(f"{package} {version}", between)

    def test_only_the_part_between_the_markers_is_written(self):
        path = self.copy_of_page(f"before\n{page.BEGIN}replaced text\n{page.END}after\n")
        page.write(self.SETTINGS, {"some system": {row.key: 1.0 for row in rows.ROWS}})
        before, between, after = page.split(path.read_text())
        self.assertEqual((before, after), ("before\n", "after\n"))
        self.assertIn("Seed 7, tarn 1.0.0;", between)
        self.assertIn("packages songs 1.0-1.", between)
        self.assertIn("| figure | unit | some system |", between)
        self.assertNotIn("replaced text", between)

    def test_page_without_markers_is_not_written(self):
        for text in ("", page.BEGIN, page.END + page.BEGIN, page.BEGIN + page.END + page.BEGIN, page.END * 2):
            path = self.copy_of_page(text)
            with self.assertRaisesRegex(systems.MeasurementError, "once each"):
                page.write(self.SETTINGS, {"some system": {row.key: 1.0 for row in rows.ROWS}})
            self.assertEqual(path.read_text(), text)

    def test_page_is_not_written_with_missing_figures(self):
        path = self.copy_of_page(page.BEGIN + page.END)
        results = {"some system": {row.key: 1.0 for row in rows.ROWS} | {"aligned_delay": 3}}
        patches = [
            mock.patch.object(recordings, "fetch"),
            mock.patch.object(scenes, "build_suite"),
            mock.patch.object(systems, "versions", return_value={}),
            mock.patch.object(quality, "measure", return_value=results),
            mock.patch.object(plots, "write"),
            mock.patch("builtins.print"),
        ]
        for patch in patches:
            patch.start()
            self.addCleanup(patch.stop)
        with self.assertRaisesRegex(systems.MeasurementError, "not written"):
            quality.main(["--tarn", __file__, "--write-docs"])
        self.assertEqual(path.read_text(), page.BEGIN + page.END)
        self.assertFalse(plots.write.called)

    def test_writing_the_page_needs_a_whole_run(self):
        for options in (["--quick"], ["--no-fetch"], ["--mode", "calm"], ["--plots", "x"]):
            with mock.patch("sys.stderr"), self.assertRaises(SystemExit):
                quality.parse_arguments(["--write-docs", *options])
        self.assertEqual(quality.parse_arguments(["--write-docs"]).mode, systems.MODES)


@unittest.skipUnless(os.environ.get("TARN"), "TARN does not name the command")
class Tarn(unittest.TestCase):
    def test_every_figure_is_present_and_reproducible(self):
        suite = scenes.build_suite(1, True, "synthetic")
        first, second = (figures.measure(systems.Tarn(os.environ["TARN"]), suite) for _ in range(2))
        self.assertEqual(first, second)
        missing = {row.key for row in rows.ROWS if first[row.key] is None}
        music = ("Speech over music (9)", "Music")
        downloaded = {row.key for section in rows.SECTIONS if section.title in music for row in section.rows}
        installed = set() if suite.recording else {row.key for row in rows.ROWS if "recording" in row.key}
        self.assertEqual(missing, downloaded | installed)
        self.assertEqual(first["aligned_delay"], 0)


if __name__ == "__main__":
    unittest.main()
