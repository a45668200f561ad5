#pragma once

#include "host/zrk_tarn_processor.h"
