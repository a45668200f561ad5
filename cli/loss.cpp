// A loss as JSON.
// SPDX-License-Identifier: MIT
#include "cli/loss.h"

#include "cli/json.h"

namespace tarn
{

Json Loss::json() const
{
    return {{"message", message}, {"seconds", seconds ? Json(*seconds) : Json()}};
}

} // namespace tarn
