#pragma once

#include "stream/upmix_stream.h"
