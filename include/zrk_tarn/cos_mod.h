#pragma once

#include "filterbank/cos_mod.h"
