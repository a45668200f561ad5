#pragma once

#include <mutex>

namespace tarn
{

/// Held while libsndfile opens a file and is asked why that failed: it keeps the reason in one place for all threads.
inline std::mutex& sndfileOpening() noexcept
{
    static std::mutex mutex;
    return mutex;
}

} // namespace tarn
