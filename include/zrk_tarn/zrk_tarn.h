#pragma once

#include "engine/zrk_tarn.h"
