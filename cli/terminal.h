// A full screen on a terminal, and its keys.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/descriptor.h"

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <termios.h>

namespace tarn
{

/// Size of a screen in characters.
struct ScreenSize
{
    std::size_t columns = 0;
    std::size_t rows = 0;

    bool operator==(const ScreenSize&) const = default;
};

/// Shows rows of text on the second screen of a terminal. The destructor shows the first one again, as it was.
///
/// Writing never blocks: a terminal that is too slow gets fewer screens.
class Terminal
{
public:
    /// Whether a descriptor is a terminal that can place text, and belongs to this process while it runs in the
    /// foreground.
    static bool canShowScreens(int descriptor);

    /// Opens the terminal of a descriptor once more. Throws Failure (EX_IOERR) if that fails.
    explicit Terminal(int descriptor);
    ~Terminal();

    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    ScreenSize size() const noexcept;

    /// Shows rows, each with escape sequences and as wide as the screen. Does nothing while the terminal is busy with
    /// the screen before. Sends changed rows only.
    void show(const std::vector<std::string>& rows);

    /// Waits until a key is pressed, a time is over, or a signal arrives. Returns the typed bytes; an arrow key is one
    /// of the kUp... below.
    std::string waitForKeys(std::chrono::milliseconds time);

    static constexpr char kUp = '\x01';
    static constexpr char kDown = '\x02';
    static constexpr char kRight = '\x03';
    static constexpr char kLeft = '\x04';

private:
    void sendPending() noexcept;

    std::string name;
    Descriptor terminal;
    termios original{};
    std::vector<std::string> shown; ///< rows on the screen
    ScreenSize shownSize;
    std::string pending; ///< bytes that the terminal has not accepted yet
};

/// The keys in typed bytes, with one byte for each arrow key. Drops control characters and other escape sequences.
std::string keysOf(std::string_view typed);

} // namespace tarn
