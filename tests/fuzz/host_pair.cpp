// Host objects of the library and of the reference that must agree after every step.
// SPDX-License-Identifier: MIT
#include "tests/fuzz/host_pair.h"

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

/// Copies a host object and its engine.
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

/// The bits of an element of a field.
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

HostBuffer::HostBuffer(std::size_t size) : storage(size + 2 * kGuard) {}

bool HostBuffer::operator==(const HostBuffer& other) const
{
    // The comparison of vector uses memcmp, from which libFuzzer takes hints.
    std::uint8_t differing = 0;
    for (std::size_t i = 0; i < storage.size(); ++i)
        differing = static_cast<std::uint8_t>(differing | (storage[i] ^ other.storage[i]));
    return differing == 0;
}

HostPair::LibraryHost::LibraryHost(const LibraryHost& other)
    : operations(other.operations), subnormalsAreSlow(other.subnormalsAreSlow)
{
    copyHost(other.host, host);
}

HostPair::HostPair()
{
    for (const zrk_tarn::BlockOperations* const set : zrk_tarn::usableOperations())
        for (const bool slow : {true, false}) libraryHosts.emplace_back(set, slow);
}

HostPair::HostPair(const HostPair& other) : libraryHosts(other.libraryHosts)
{
    copyHost(other.referenceHost, referenceHost);
}

void HostPair::fail(const char* what, const LibraryHost& library, const char* where)
{
    std::fprintf(stderr, "%s: the library (%s) and the reference differ in %s\n", what,
                 library.operations->instructionSet, where);
    std::abort();
}

void HostPair::requireSame(const char* what, LibraryHost& library, HostBuffer& buffer, HostBuffer& ofReference)
{
    const auto require = [&](const char* name, std::ptrdiff_t difference, const auto& a, const auto& b) {
        if (difference < 0) return;
        std::string where = std::string(name) + ", element " + std::to_string(difference);
        if constexpr (!std::is_pointer_v<tests::ElementOf<decltype(a)>>)
            where += ": " + bitsOf(a, difference) + " and " + bitsOf(b, difference);
        fail(what, library, where.c_str());
    };

    if (std::string_view(zrk_tarn_instruction_set()) != library.operations->instructionSet)
        fail(what, library, "the name of the instruction set");
    if (buffer != ofReference) fail(what, library, "a byte of the buffer");
    tests::forEachHostField(library.host, referenceHost, [&](const char* name, const auto& a, const auto& b) {
        static_assert(sizeof a == sizeof b);
        require(name, tests::firstDifference(a, b), a, b);
    });
    if ((library.host.engine == nullptr) != (referenceHost.engine == nullptr)) fail(what, library, "having an engine");
    if (referenceHost.engine == nullptr) return;
    tests::forEachField(*library.host.engine, *referenceHost.engine,
                        [&](const char* name, const auto& a, const auto& b) {
                            static_assert(sizeof a == sizeof b);
                            if constexpr (std::is_pointer_v<tests::ElementOf<decltype(a)>>) {
                                require(name,
                                        tests::firstDifference(a, *library.host.engine, buffer.data(), b,
                                                               *referenceHost.engine, ofReference.data()),
                                        a, b);
                            } else {
                                require(name, tests::firstDifference(a, b), a, b);
                            }
                        });
}

} // namespace fuzz
