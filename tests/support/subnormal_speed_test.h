// Tests that run with both values of subnormalsAreSlow.
// SPDX-License-Identifier: MIT
#pragma once

#include "lanes/subnormal_speed.h"

#include <gtest/gtest.h>

namespace tests
{

/// Sets subnormalsAreSlow to the parameter for a test.
class SubnormalSpeedTest : public testing::TestWithParam<bool>
{
protected:
    SubnormalSpeedTest() { zrk_tarn::subnormalsAreSlow = GetParam(); }
    ~SubnormalSpeedTest() override { zrk_tarn::subnormalsAreSlow = ofProcessor; }

private:
    bool ofProcessor = zrk_tarn::subnormalsAreSlow;
};

inline const char* nameOfSpeed(const testing::TestParamInfo<bool>& slow)
{
    return slow.param ? "Slow" : "Fast";
}

} // namespace tests
