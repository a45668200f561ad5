#pragma once

#include "stream/stream_types.h"
