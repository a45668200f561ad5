// Fuzz target: surround channels from any subbands, with the library and the reference.
// SPDX-License-Identifier: MIT
#include "dispatch/instruction_sets.h"
#include "tests/fuzz/byte_reader.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/fuzz/numbers.h"
#include "tests/reference/reference_surrounds.h"
#include "tests/support/field_bits.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace
{

using fuzz::ByteReader;
using zrk_tarn::BlockOperations;

constexpr std::array<std::uint32_t, 7> kRatesHz{48000, 44100, 32000, 64000, 88200, 96000, 192000};
constexpr int kMaxBlocks = 400;

/// An engine whose subbands are given, and the surround channels of the reference and of every instruction set.
class Session
{
public:
    Session(std::uint32_t rateHz, int pairs) : reference(rateHz, 2 * pairs)
    {
        engine->Initialize({.spare = 0,
                            .outputChannels = 3,
                            .bitsPerSample = 16,
                            .sampleRate = rateHz,
                            .mode = 1,
                            .option = 0,
                            .mixFraction = 0.0f});
        for (const BlockOperations* const operations : zrk_tarn::usableOperations()) {
            Library& library = libraries.emplace_back(Library{operations, std::make_unique<zrk_tarn::Surrounds>()});
            zrk_tarn::configureSurrounds(*library.surrounds, rateHz, pairs);
        }
    }

    float (&subband())[2][64] { return engine->subband; }

    void renderAndCompare()
    {
        reference.render(engine->subband, engine->bandCount);
        for (Library& library : libraries) {
            library.operations->renderSurrounds(*engine, *library.surrounds);
            forEachCommonField(*library.surrounds, reference,
                               [&](const char* name, const auto& own, const auto& expected) {
                                   if (tests::firstDifference(own, expected) < 0) return;
                                   std::fprintf(stderr, "surrounds: %s: %s differs from the reference\n",
                                                library.operations->instructionSet, name);
                                   std::abort();
                               });
        }
    }

    /// Writes a number to an element of a state that the library and the reference both have.
    void write(std::uint32_t element, float number)
    {
        const auto writeTo = [&](auto& surrounds) {
            std::array<float*, 6> fields{surrounds.leftLeft,          surrounds.rightRight, surrounds.leftRight,
                                         surrounds.synthHistory + 64, surrounds.overlapNow, surrounds.overlapNext};
            fields[element / 16 % fields.size()][element % 16] = number;
        };
        writeTo(reference);
        for (Library& library : libraries) writeTo(*library.surrounds);
    }

private:
    struct Library
    {
        const BlockOperations* operations;
        std::unique_ptr<zrk_tarn::Surrounds> surrounds;
    };

    std::unique_ptr<ZRKTarn> engine = std::make_unique<ZRKTarn>();
    std::vector<Library> libraries;
    reference::Surrounds reference;
};

float anyNumber(tests::Random& random)
{
    return fuzz::numberOf(static_cast<std::uint8_t>(random.bits()), random);
}

/// Subbands of one kind, of a level from 2^-32 to 2^31.
class Source
{
public:
    explicit Source(ByteReader& bytes)
        : kind(bytes.byte() % 6), level(std::ldexp(1.0f, bytes.byte() % 64 - 32)), random(bytes.byte())
    {}

    void write(float (&subband)[2][64])
    {
        for (int b = 0; b < 64; ++b) {
            const float first = kind == 5 ? anyNumber(random) : level * static_cast<float>(random.uniform());
            const float second = kind == 5 ? anyNumber(random) : level * static_cast<float>(random.uniform());
            subband[0][b] = kind == 0 ? 0.0f : first;
            const float right[] = {0.0f, second, first, -first, 0.25f * first, second};
            subband[1][b] = right[kind];
        }
    }

private:
    std::uint32_t kind; ///< silence, diffuse, centred, opposite, panned, any numbers
    float level;
    tests::Random random;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/)
{
    ZRKTarn{}.Open();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    ByteReader decisions(bytes, size);
    Session session(decisions.oneOf(kRatesHz), 1 + static_cast<int>(decisions.below(2)));
    for (int blocks = 0; !decisions.empty() && blocks < kMaxBlocks;) {
        if (decisions.below(8) == 0) {
            const std::uint32_t element = decisions.byte();
            tests::Random random(decisions.byte());
            session.write(element, anyNumber(random));
        }
        Source source(decisions);
        for (std::uint32_t left = 1 + decisions.below(32); left > 0; --left, ++blocks) {
            source.write(session.subband());
            session.renderAndCompare();
        }
    }
    return 0;
}
