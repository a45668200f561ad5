// The mutator of the file fuzzer.
// SPDX-License-Identifier: MIT
#include "tests/fuzz/marks.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string_view>
#include <vector>

// Half of the mutations are those of libFuzzer. The others delete, repeat, swap or overwrite ranges of bytes, as
// defective disks, networks and programs do. Checksums and sizes are not corrected.

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* bytes, std::size_t size, std::size_t maxSize);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* bytes, std::size_t size, std::size_t maxSize,
                                               unsigned seed);

namespace
{

constexpr std::size_t kOptions = 4; ///< bytes before the file

class Damage
{
public:
    Damage(std::vector<std::uint8_t>& bytes, unsigned seed) : file(bytes), random(seed) {}

    std::uint32_t below(std::uint32_t count)
    {
        return std::uniform_int_distribution<std::uint32_t>(0, count - 1)(random);
    }

    void apply()
    {
        const auto [start, end] = range();
        switch (below(6)) {
        case 0: // delete it
            file.erase(at(start), at(end));
            break;
        case 1: // cut the file
            file.resize(start);
            break;
        case 2: { // repeat it elsewhere
            const std::vector<std::uint8_t> copy(at(start), at(end));
            file.insert(at(position()), copy.begin(), copy.end());
            break;
        }
        case 3: { // swap it with the following range
            const std::size_t last = std::max(end, position());
            std::rotate(at(start), at(end), at(last));
            break;
        }
        case 4: { // overwrite another range with it
            const std::size_t to = position();
            std::memmove(file.data() + to, file.data() + start, std::min(end - start, file.size() - to));
            break;
        }
        default: // blank it
            std::fill(at(start), at(end), below(2) == 0 ? std::uint8_t{0} : std::uint8_t{0xff});
            break;
        }
    }

private:
    std::vector<std::uint8_t>::iterator at(std::size_t position)
    {
        return file.begin() + static_cast<std::ptrdiff_t>(position);
    }

    /// A random position, or the next mark after it.
    std::size_t position()
    {
        const std::size_t any = below(static_cast<std::uint32_t>(file.size()));
        if (below(2) == 0) return any;
        const std::string_view bytes(reinterpret_cast<const char*>(file.data()), file.size());
        std::size_t nearest = std::string_view::npos;
        for (const std::string_view mark : fuzz::kMarks) nearest = std::min(nearest, bytes.find(mark, any));
        return nearest == std::string_view::npos ? any : nearest;
    }

    /// A range between two positions, or one of a random order of length.
    std::pair<std::size_t, std::size_t> range()
    {
        const std::size_t start = position();
        if (below(3) == 0) {
            const std::size_t end = position();
            return {std::min(start, end), std::max(start, end)};
        }
        const double order = std::uniform_real_distribution(0.0, std::log2(static_cast<double>(file.size())))(random);
        return {start, std::min(start + static_cast<std::size_t>(std::exp2(order)), file.size())};
    }

    std::vector<std::uint8_t>& file;
    std::minstd_rand random;
};

} // namespace

std::size_t LLVMFuzzerCustomMutator(std::uint8_t* bytes, std::size_t size, std::size_t maxSize, unsigned seed)
{
    if (size <= kOptions) return LLVMFuzzerMutate(bytes, size, maxSize);
    std::vector<std::uint8_t> file(bytes + kOptions, bytes + size);
    Damage damage(file, seed);
    const std::uint32_t kind = damage.below(16);
    if (kind == 0) {
        bytes[damage.below(kOptions)] ^= static_cast<std::uint8_t>(1 << damage.below(8));
        return size;
    }
    if (kind < 9) return kOptions + LLVMFuzzerMutate(bytes + kOptions, size - kOptions, maxSize - kOptions);
    damage.apply();
    file.resize(std::min(file.size(), maxSize - kOptions));
    std::copy(file.begin(), file.end(), bytes + kOptions);
    return kOptions + file.size();
}
