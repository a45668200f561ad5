#include "engine/zrk_tarn.h"

// Provisional: one value for all groups. The thresholds are the points between the four smoothing speeds.

const float ZRKTarn::THRES_BANDS[16] = {0.50f, 0.50f, 0.50f, 0.50f, 0.50f, 0.50f, 0.50f, 0.50f,
                                        0.50f, 0.50f, 0.50f, 0.50f, 0.50f, 0.50f, 0.50f, 0.50f};

const float ZRKTarn::MIDTHRES_BANDS[16] = {0.33f, 0.33f, 0.33f, 0.33f, 0.33f, 0.33f, 0.33f, 0.33f,
                                           0.33f, 0.33f, 0.33f, 0.33f, 0.33f, 0.33f, 0.33f, 0.33f};

const float ZRKTarn::SLOWTHRES_BANDS[16] = {0.17f, 0.17f, 0.17f, 0.17f, 0.17f, 0.17f, 0.17f, 0.17f,
                                            0.17f, 0.17f, 0.17f, 0.17f, 0.17f, 0.17f, 0.17f, 0.17f};
