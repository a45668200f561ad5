#pragma once

#include <utility>

#include <unistd.h>

namespace tarn
{

/// Owns a file descriptor.
class Descriptor
{
public:
    /// number  open descriptor, or -1 for none
    explicit Descriptor(int number = -1) noexcept : owned(number) {}
    Descriptor(Descriptor&& other) noexcept : owned(std::exchange(other.owned, -1)) {}

    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(owned, other.owned);
        return *this;
    }

    ~Descriptor() { close(); }

    int number() const noexcept { return owned; }

    /// Closes it at once. Returns whether that succeeded; errno says why not.
    bool close() noexcept { return owned < 0 || ::close(std::exchange(owned, -1)) == 0; }

private:
    int owned;
};

} // namespace tarn
