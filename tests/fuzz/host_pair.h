// Host objects of the library and of the reference that must agree after every step.
// SPDX-License-Identifier: MIT
#pragma once

#include "dispatch/instruction_sets.h"
#include "host/zrk_tarn_processor.h"
#include "lanes/subnormal_speed.h"
#include "tests/reference/reference_processor.h"

#include <concepts>
#include <cstdint>
#include <vector>

namespace fuzz
{

/// A host buffer between guard bytes; without guards under AddressSanitizer, which checks every access.
class HostBuffer
{
public:
    explicit HostBuffer(std::size_t size = 0);

    std::uint8_t* data() { return storage.data() + kGuard; }
    std::size_t size() const { return storage.size() - 2 * kGuard; }

    /// Guards included.
    bool operator==(const HostBuffer& other) const;

private:
    static const std::size_t kGuard;
    std::vector<std::uint8_t> storage;
};

/// The host object of the library or of the reference.
template <typename T>
concept AnyHost = std::same_as<T, zrk_tarn_processor_t> || std::same_as<T, reference::Processor>;

/// One host object of the reference and one of the library for every usable instruction set.
///
/// After every step all must agree in every byte of the host buffer and every field of host object and engine; all NaNs
/// are equal. A difference is printed to standard error and aborts.
class HostPair
{
public:
    HostPair();

    /// Copies the engines too.
    HostPair(const HostPair& other);
    HostPair& operator=(const HostPair&) = delete;
    ~HostPair() = default;

    const reference::Processor& reference() const { return referenceHost; }

    /// Calls step(host, buffer), which returns a number, for every host object with a copy of the buffer, and compares.
    /// Engines keep no pointer into the buffer.
    ///
    /// what  the name of the step in messages
    template <typename Step>
    void runStep(const char* what, const HostBuffer& bytes, Step step)
    {
        HostBuffer ofReference = bytes;
        const auto expected = step(referenceHost, ofReference.data());
        for (LibraryHost& each : libraryHosts) {
            HostBuffer buffer = bytes;
            zrk_tarn::chooseOperations(*each.operations);
            zrk_tarn::subnormalsAreSlow = each.subnormalsAreSlow;
            const auto returned = step(each.host, buffer.data());
            if (returned != expected) fail(what, each, "the value returned");
            requireSame(what, each, buffer, ofReference);
            forgetBuffer(each.host.engine);
        }
        forgetBuffer(referenceHost.engine);
    }

    /// Calls change(host) for every host object without a comparison.
    template <typename Change>
    void change(Change change)
    {
        change(referenceHost);
        for (LibraryHost& each : libraryHosts) change(each.host);
    }

private:
    struct LibraryHost
    {
        const zrk_tarn::BlockOperations* operations;
        bool subnormalsAreSlow;
        zrk_tarn_processor_t host;

        LibraryHost(const zrk_tarn::BlockOperations* set, bool slow) : operations(set), subnormalsAreSlow(slow) {}
        LibraryHost(const LibraryHost& other);
    };

    template <typename Engine>
    static void forgetBuffer(Engine* engine)
    {
        if (engine != nullptr) engine->SetChannelPtrs(nullptr, nullptr, nullptr, nullptr);
    }

    void requireSame(const char* what, LibraryHost& library, HostBuffer& buffer, HostBuffer& ofReference);

    [[noreturn]] static void fail(const char* what, const LibraryHost& library, const char* where);

    std::vector<LibraryHost> libraryHosts;
    reference::Processor referenceHost;
};

} // namespace fuzz
