#pragma once
// A work buffer of the writer and the converter: it follows the sizes asked of it, gives a large
// allocation back once much smaller blocks follow, and reports running out of memory as a
// result rather than an exception.

#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

class WorkBuffer
{
public:
    // Above this size the buffer is given back when a block of less than half its size follows.
    static constexpr uint64_t kKeptSize = 8u << 20;

    bool reserve(uint64_t size)
    {
        const bool shrink = capacity > kKeptSize && size < capacity / 2;
        if (size <= capacity && !shrink) return true;
        release();
        if (size > SIZE_MAX / 2) return false;
        bytes.reset(new (std::nothrow) char[std::max<uint64_t>(size, 1)]);
        if (!bytes) return false;
        capacity = size;
        return true;
    }
    void release()
    {
        bytes.reset();
        capacity = 0;
    }
    void swap(WorkBuffer& other)
    {
        bytes.swap(other.bytes);
        std::swap(capacity, other.capacity);
    }
    char* data() { return bytes.get(); }
    uint64_t size() const { return capacity; }

private:
    std::unique_ptr<char[]> bytes;
    uint64_t capacity = 0;
};
