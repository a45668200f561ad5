#include "tests/fuzz/lives.h"

#include "tests/support/field_bits.h"
#include "tests/support/record_fields.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <type_traits>

namespace fuzz
{

namespace
{

/// Makes a host object what another is, with an engine of its own.
template <AnyHost Host>
void copyHost(const Host& from, Host& to)
{
    tests::forEachHostField(from, to, [](const char* /*name*/, const auto& field, auto& copy) {
        std::memcpy(&copy, &field, sizeof field);
    });
    if (from.engine == nullptr) return;
    using Engine = std::remove_pointer_t<decltype(to.engine)>;
    to.engine = new Engine(*from.engine);
    for (auto*& row : to.engine->outputPtr)
        if (row != nullptr) row = to.engine->outputBlock[(row - from.engine->outputBlock[0]) / 64];
}

/// An element of a field as the bits that it has.
template <typename Field>
std::string bitsOf(const Field& field, std::ptrdiff_t index)
{
    static_assert(sizeof(tests::ElementOf<Field>) == 4);
    std::uint32_t bits = 0;
    std::memcpy(&bits, reinterpret_cast<const unsigned char*>(&field) + 4 * index, 4);
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", bits);
    return text;
}

} // namespace

#if defined __has_feature
#if __has_feature(address_sanitizer)
#define FUZZ_ADDRESS_SANITIZER
#endif
#endif

#if defined FUZZ_ADDRESS_SANITIZER || defined __SANITIZE_ADDRESS__
const std::size_t HostBuffer::kGuard = 0;
#else
const std::size_t HostBuffer::kGuard = 32;
#endif

HostBuffer::HostBuffer(std::size_t size) : bytes_(size + 2 * kGuard) {}

bool HostBuffer::operator==(const HostBuffer& other) const
{
    // Not vector's own comparison, which is memcmp: libFuzzer listens to that for what the input might be.
    std::uint8_t differing = 0;
    for (std::size_t i = 0; i < bytes_.size(); ++i)
        differing = static_cast<std::uint8_t>(differing | (bytes_[i] ^ other.bytes_[i]));
    return differing == 0;
}

Lives::Life::Life(const Life& other) : operations(other.operations)
{
    copyHost(other.host, host);
}

Lives::Lives()
{
    for (const zrk_tarn::BlockOperations* const set : zrk_tarn::usableOperations()) lives_.emplace_back(set);
}

Lives::Lives(const Lives& other) : lives_(other.lives_)
{
    copyHost(other.reference_, reference_);
}

void Lives::fail(const char* what, const Life& life, const char* where)
{
    std::fprintf(stderr, "%s: the library (%s) and the reference differ in %s\n", what, life.operations->instructionSet,
                 where);
    std::abort();
}

void Lives::requireSame(const char* what, Life& life, HostBuffer& buffer, HostBuffer& ofReference)
{
    const auto require = [&](const char* name, std::ptrdiff_t difference, const auto& a, const auto& b) {
        if (difference < 0) return;
        std::string where = std::string(name) + ", element " + std::to_string(difference);
        if constexpr (!std::is_pointer_v<tests::ElementOf<decltype(a)>>)
            where += ": " + bitsOf(a, difference) + " and " + bitsOf(b, difference);
        fail(what, life, where.c_str());
    };

    if (std::string_view(zrk_tarn_instruction_set()) != life.operations->instructionSet)
        fail(what, life, "the name of the instruction set");
    if (buffer != ofReference) fail(what, life, "a byte of the buffer");
    tests::forEachHostField(life.host, reference_, [&](const char* name, const auto& a, const auto& b) {
        static_assert(sizeof a == sizeof b);
        require(name, tests::firstDifference(a, b), a, b);
    });
    if ((life.host.engine == nullptr) != (reference_.engine == nullptr)) fail(what, life, "having an engine");
    if (reference_.engine == nullptr) return;
    tests::forEachField(*life.host.engine, *reference_.engine, [&](const char* name, const auto& a, const auto& b) {
        static_assert(sizeof a == sizeof b);
        if constexpr (std::is_pointer_v<tests::ElementOf<decltype(a)>>) {
            require(
                name,
                tests::firstDifference(a, *life.host.engine, buffer.data(), b, *reference_.engine, ofReference.data()),
                a, b);
        } else {
            require(name, tests::firstDifference(a, b), a, b);
        }
    });
}

} // namespace fuzz
