// RAII owner of a file descriptor.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <utility>

#include <unistd.h>

namespace tarn
{

/// Owns a file descriptor.
class Descriptor
{
public:
    Descriptor() noexcept = default;

    /// number  open descriptor, or -1 for none
    explicit Descriptor(int number) noexcept : owned(number) {}
    Descriptor(Descriptor&& other) noexcept : owned(std::exchange(other.owned, -1)) {}

    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(owned, other.owned);
        return *this;
    }

    ~Descriptor() { close(); }

    int number() const noexcept { return owned; }

    /// Closes the descriptor now. Returns whether that succeeded; otherwise errno holds the reason.
    bool close() noexcept { return owned < 0 || ::close(std::exchange(owned, -1)) == 0; }

private:
    int owned = -1;
};

/// Writes all bytes to a blocking descriptor. Returns 0, or the errno of the call that failed.
int writeAll(int descriptor, const void* bytes, std::size_t count) noexcept;

} // namespace tarn
