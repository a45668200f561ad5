"""Where a panned source appears between the loudspeakers, by the velocity and energy vectors of Gerzon.

M. A. Gerzon, General metatheory of auditory localisation, 92nd AES Convention, 1992. The velocity vector rV adds the
directions of the loudspeakers, weighted with their amplitude gains, and predicts the direction at low frequencies. The
energy vector rE weights with the squares of the gains and predicts the direction at high frequencies; its length is 1
if one loudspeaker plays, and shorter if the sound is spread.
"""
# SPDX-License-Identifier: MIT

import numpy as np

HALF_ANGLE_DEGREES = 30.0
# FL FR C; positive angles are to the left.
LOUDSPEAKER_DEGREES = np.array([HALF_ANGLE_DEGREES, -HALF_ANGLE_DEGREES, 0.0])
DIRECTIONS = np.column_stack([np.cos(np.radians(LOUDSPEAKER_DEGREES)), np.sin(np.radians(LOUDSPEAKER_DEGREES))])


def amplitude_gains(source, outputs):
    """Amplitude gain of the source in each output, by least squares."""
    return source @ outputs / np.vdot(source, source)


def phantom_degrees(left, right):
    """Angle of the phantom image of a stereo pair with these gains, by the tangent law."""
    return float(np.degrees(np.arctan((left - right) / (left + right) * np.tan(np.radians(HALF_ANGLE_DEGREES)))))


def velocity_vector(gains):
    """rV: to the front, to the left."""
    return gains @ DIRECTIONS / np.sum(gains)


def energy_vector(gains):
    """rE: to the front, to the left."""
    return np.square(gains) @ DIRECTIONS / np.sum(np.square(gains))


def angle_degrees(vector):
    """Angle of a vector; positive is to the left."""
    return float(np.degrees(np.arctan2(vector[1], vector[0])))


def figures(sources):
    """Errors of both angles against the phantom image, and the mean length of rE.

    sources: for each source its gains in the stereo (left, right) and its gains in the outputs FL FR C
    """
    velocity_errors, energy_errors, lengths = [], [], []
    for (left, right), gains in sources:
        phantom = phantom_degrees(left, right)
        velocity_errors.append(abs(angle_degrees(velocity_vector(gains)) - phantom))
        energy_errors.append(abs(angle_degrees(energy_vector(gains)) - phantom))
        lengths.append(float(np.linalg.norm(energy_vector(gains))))
    return {
        "velocity_error_mean": float(np.mean(velocity_errors)),
        "velocity_error_max": max(velocity_errors),
        "energy_error_mean": float(np.mean(energy_errors)),
        "energy_error_max": max(energy_errors),
        "energy_length_mean": float(np.mean(lengths)),
    }
