// Errors of the GStreamer element: out of memory and unreadable input.
// SPDX-License-Identifier: MIT
#include "tests/hosts/gstreamer/element.h"

#include <cstdlib>
#include <new>

namespace
{

bool outOfMemory = false;

} // namespace

/// Allocates engines, the only objects with extended alignment.
void* operator new(std::size_t size, std::align_val_t alignment)
{
    void* const memory = outOfMemory ? nullptr : std::aligned_alloc(static_cast<std::size_t>(alignment), size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void operator delete(void* memory, std::align_val_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t, std::align_val_t) noexcept
{
    std::free(memory);
}

namespace tests
{

namespace
{

/// An allocator that fails, or whose memory cannot be mapped.
struct BadAllocator
{
    GstAllocator base;
    bool allocates; ///< memory that cannot be mapped
};

GstMemory* badMemory(GstAllocator* allocator, gsize size, GstAllocationParams*)
{
    if (!reinterpret_cast<BadAllocator*>(allocator)->allocates) return nullptr;
    auto* const memory = g_new0(GstMemory, 1);
    gst_memory_init(memory, GST_MEMORY_FLAG_NO_SHARE, allocator, nullptr, size, 0, 0, size);
    return memory;
}

GstAllocator* badAllocator(bool allocatesMemory)
{
    static const GType kType = g_type_register_static_simple(
        GST_TYPE_ALLOCATOR, "BadAllocator", sizeof(GstAllocatorClass),
        [](gpointer ownClass, gpointer) {
            static_cast<GstAllocatorClass*>(ownClass)->alloc = badMemory;
            static_cast<GstAllocatorClass*>(ownClass)->free = [](GstAllocator*, GstMemory* memory) { g_free(memory); };
        },
        sizeof(BadAllocator),
        [](GTypeInstance* instance, gpointer) {
            auto* const allocator = reinterpret_cast<GstAllocator*>(instance);
            allocator->mem_type = "bad";
            allocator->mem_map = [](GstMemory*, gsize, GstMapFlags) { return gpointer{nullptr}; };
        },
        GTypeFlags{});
    auto* const allocator = static_cast<BadAllocator*>(g_object_new(kType, nullptr));
    gst_object_ref_sink(allocator);
    allocator->allocates = allocatesMemory;
    return &allocator->base;
}

/// Expects at least one error message, and none with another code.
void expectError(Element& element, GstResourceError code)
{
    int count = 0;
    for (; GstMessage* const message = element.message(GST_MESSAGE_ERROR); ++count) {
        GError* error = nullptr;
        gst_message_parse_error(message, &error, nullptr);
        EXPECT_TRUE(g_error_matches(error, GST_RESOURCE_ERROR, code)) << error->message;
        g_error_free(error);
        gst_message_unref(message);
    }
    EXPECT_GT(count, 0);
}

TEST(Failures, OutOfMemoryForTheStreamIsAnError)
{
    const Bytes first = stereoOf(3000, kS16);
    const Bytes second = stereoOf(3000, kS32);
    Element element;
    element.pushAll(first, kS16, 48000);
    outOfMemory = true;
    element.setCaps(capsOf(kS32, 96000));
    expectError(element, GST_RESOURCE_ERROR_NO_SPACE_LEFT);
    EXPECT_EQ(element.push(second, 0), GST_FLOW_NOT_NEGOTIATED);
    expectError(element, GST_RESOURCE_ERROR_NO_SPACE_LEFT);
    outOfMemory = false;
    EXPECT_TRUE(element.output() == upmixOf(first, kS16, 48000)); // with its tail

    element.pushAll(second, kS32, 96000);
    element.end();
    EXPECT_TRUE(element.output() == upmixOf(second, kS32, 96000));
}

TEST(Failures, OutOfMemoryForTheOutputIsAnError)
{
    for (const bool allocates : {false, true}) {
        SCOPED_TRACE(allocates);
        Element element;
        GstAllocator* const good = gst_allocator_find(nullptr);
        gst_allocator_set_default(badAllocator(allocates));
        EXPECT_EQ(element.push(stereoOf(kLatency, kS16), 0), GST_FLOW_ERROR); // also if all frames are latency
        expectError(element, GST_RESOURCE_ERROR_NO_SPACE_LEFT);
        element.end(); // the tail
        expectError(element, GST_RESOURCE_ERROR_NO_SPACE_LEFT);
        gst_allocator_set_default(good);
        EXPECT_TRUE(element.takeBuffers().empty());
    }
}

TEST(Failures, UnreadableInputIsAnError)
{
    Element element;
    GstAllocator* const allocator = badAllocator(true);
    GstBuffer* const buffer = gst_buffer_new_allocate(allocator, 4096, nullptr);
    GST_BUFFER_PTS(buffer) = 0;
    EXPECT_EQ(gst_harness_push(element.harness(), buffer), GST_FLOW_ERROR);
    gst_object_unref(allocator);
    expectError(element, GST_RESOURCE_ERROR_READ);
}

} // namespace

} // namespace tests
