#pragma once

#include "dispatch/instruction_sets.h"
#include "host/zrk_tarn_processor.h"
#include "tests/reference/reference_processor.h"

#include <concepts>
#include <cstdint>
#include <vector>

namespace fuzz
{

/// Bytes of a host buffer between guards. Under AddressSanitizer, which sees every byte, there are none.
class HostBuffer
{
public:
    explicit HostBuffer(std::size_t size = 0);

    std::uint8_t* data() { return bytes_.data() + kGuard; }
    std::size_t size() const { return bytes_.size() - 2 * kGuard; }

    /// Guards included.
    bool operator==(const HostBuffer& other) const;

private:
    static const std::size_t kGuard;
    std::vector<std::uint8_t> bytes_;
};

/// The host object of the library or of the reference.
template <typename T>
concept AnyHost = std::same_as<T, zrk_tarn_processor_t> || std::same_as<T, reference::Processor>;

/// A stream led by the library, once with every instruction set of this processor, and by the reference, which all
/// have to agree after every step: in each byte of the host buffer and in each field of host object and engine. NaN is
/// NaN, whatever its sign and payload. Where they do not, says so on standard error and aborts.
class Lives
{
public:
    Lives();

    /// The same streams at the same place, with engines of their own.
    Lives(const Lives& other);
    Lives& operator=(const Lives&) = delete;
    ~Lives() = default;

    const reference::Processor& reference() const { return reference_; }

    /// Calls step(host, buffer) for every host object, which is to return a number. A buffer is a copy of bytes; none
    /// of its addresses is kept in an engine afterwards.
    ///
    /// what  names the step where it fails
    template <typename Step>
    void lead(const char* what, const HostBuffer& bytes, Step step)
    {
        HostBuffer ofReference = bytes;
        const auto expected = step(reference_, ofReference.data());
        for (Life& life : lives_) {
            HostBuffer buffer = bytes;
            zrk_tarn::chooseOperations(*life.operations);
            const auto returned = step(life.host, buffer.data());
            if (returned != expected) fail(what, life, "the value returned");
            requireSame(what, life, buffer, ofReference);
            forgetBuffer(life.host.engine);
        }
        forgetBuffer(reference_.engine);
    }

    /// Calls change(host) for every host object and compares nothing: that is for the next step.
    template <typename Change>
    void change(Change change)
    {
        change(reference_);
        for (Life& life : lives_) change(life.host);
    }

private:
    struct Life
    {
        const zrk_tarn::BlockOperations* operations;
        zrk_tarn_processor_t host;

        explicit Life(const zrk_tarn::BlockOperations* set) : operations(set) {}
        Life(const Life& other);
    };

    template <typename Engine>
    static void forgetBuffer(Engine* engine)
    {
        if (engine != nullptr) engine->SetChannelPtrs(nullptr, nullptr, nullptr, nullptr);
    }

    void requireSame(const char* what, Life& life, HostBuffer& buffer, HostBuffer& ofReference);

    [[noreturn]] static void fail(const char* what, const Life& life, const char* where);

    std::vector<Life> lives_;
    reference::Processor reference_;
};

} // namespace fuzz
