// LZ4 block compressor that matches the lz4 library's fast compressor (acceleration 1) built with a
// larger hash table than Debian's library allows (its memory-usage setting stops at 20).
//
// The library clears its whole table before every block, and a block touches only a few entries
// per input byte. So the table is kept as a sparse map from hash value to position whose missing
// entries read as the zero a cleared table holds: the output is exactly what the real table gives,
// and the cost follows the input instead of 1 GiB per call. Only when a block fills the map beyond
// a 64th of the real table's entries (64 MiB of map) is it compressed again with a real table,
// obtained from calloc so that only the pages it touches are ever zeroed.

#include "creation/codecs.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <type_traits>

namespace {

constexpr int kMinMatch = 4;
constexpr size_t kLastLiterals = 5;    // a block ends with at least this many literals
constexpr size_t kMatchFindLimit = 12; // no match may start within the last 12 bytes
constexpr size_t kMinLength = kMatchFindLimit + 1;
constexpr uint32_t kMaxDistance = 65535;
constexpr int kMaxInput = 0x7E000000;
constexpr int kSmallInputLimit = 65536 + kMatchFindLimit - 1; // below it: 16-bit table entries
constexpr int kSkipTrigger = 6;
constexpr unsigned kRunMask = 15;
constexpr unsigned kMatchLengthMask = 15;

inline uint32_t load32(const uint8_t* p)
{
    uint32_t v;
    std::memcpy(&v, p, 4);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    v = __builtin_bswap32(v);
#endif
    return v;
}

inline uint64_t load64(const uint8_t* p)
{
    uint64_t v;
    std::memcpy(&v, p, 8);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    v = __builtin_bswap64(v);
#endif
    return v;
}

// Number of equal bytes at a and b, stopping before limit (which bounds a; b lies before a).
inline size_t countEqual(const uint8_t* a, const uint8_t* b, const uint8_t* limit)
{
    const uint8_t* const start = a;
    while (limit - a >= 8) {
        const uint64_t diff = load64(a) ^ load64(b);
        if (diff) return size_t(a - start) + size_t(__builtin_ctzll(diff) >> 3);
        a += 8;
        b += 8;
    }
    while (a < limit && *a == *b) {
        ++a;
        ++b;
    }
    return size_t(a - start);
}

struct FreeDeleter
{
    void operator()(void* p) const { std::free(p); }
};

// Hash value -> last position stored under it, 0 where nothing was stored. Open addressing with
// linear probing, at most half full; gives up (full()) beyond maxKeys distinct hash values.
// Positions of inputs on 16-bit tables stay below 65,536, so no value needs truncating.
class SparseTable
{
public:
    // Sized for expectedKeys without growing (within reason), never beyond what maxKeys needs.
    SparseTable(size_t maxKeys, size_t expectedKeys)
        : maxKeys_(maxKeys)
    {
        int bits = 8;
        while (bits < 16 && (size_t(1) << bits) < expectedKeys * 2
               && (size_t(1) << bits) <= maxKeys * 2)
            ++bits;
        allocate(bits);
    }

    bool ok() const { return bool(slots_); }
    bool full() const { return full_; }

    // Stores position under hash and returns the position stored there before.
    __attribute__((always_inline)) uint32_t exchange(uint32_t hash, uint32_t position)
    {
        Slot* const slots = slots_.get();
        for (size_t i = slotOf(hash);; i = (i + 1) & mask_) {
            Slot& s = slots[i];
            if (s.key == hash) {
                const uint32_t old = s.value;
                s.value = position;
                return old;
            }
            if (s.key == kEmpty) {
                if (full_) return 0; // the caller discards this run; keep free slots free
                s = Slot {hash, position};
                if (++used_ > growAt_) grow();
                return 0;
            }
        }
    }

    void put(uint32_t hash, uint32_t position) { exchange(hash, position); }

private:
    struct Slot
    {
        uint32_t key;
        uint32_t value;
    };
    static constexpr uint32_t kEmpty = 0xFFFFFFFFu; // above every hash value

    // Hash values come from a 32-bit multiplicative hash; a 64-bit multiplier spreads them again.
    size_t slotOf(uint32_t hash) const
    {
        return size_t((uint64_t(hash) * 0x9E3779B97F4A7C15ull) >> shift_);
    }

    bool allocate(int bits)
    {
        const size_t count = size_t(1) << bits;
        slots_.reset(static_cast<Slot*>(std::malloc(count * sizeof(Slot))));
        if (!slots_) return false;
        std::memset(slots_.get(), 0xFF, count * sizeof(Slot));
        bits_ = bits;
        shift_ = 64 - bits;
        mask_ = count - 1;
        growAt_ = count / 2;
        used_ = 0;
        return true;
    }

    __attribute__((noinline)) void grow()
    {
        // Past the limit the caller starts over on a real table; until it notices, no more
        // keys go in, so probing always ends at a free slot.
        if (used_ > maxKeys_) {
            full_ = true;
            return;
        }
        std::unique_ptr<Slot, FreeDeleter> old(slots_.release());
        const size_t oldCount = mask_ + 1;
        if (!allocate(bits_ + 1)) {
            slots_ = std::move(old);
            full_ = true;
            return;
        }
        for (size_t j = 0; j < oldCount; ++j) {
            const Slot& s = old.get()[j];
            if (s.key == kEmpty) continue;
            size_t i = slotOf(s.key);
            while (slots_.get()[i].key != kEmpty)
                i = (i + 1) & mask_;
            slots_.get()[i] = s;
            ++used_;
        }
    }

    size_t maxKeys_;
    std::unique_ptr<Slot, FreeDeleter> slots_;
    int bits_ = 0;
    int shift_ = 64;
    size_t mask_ = 0;
    size_t growAt_ = 0;
    size_t used_ = 0;
    bool full_ = false;
};

// The real table, 2^bits entries of T, zero-filled by calloc.
template<class T>
class DenseTable
{
public:
    explicit DenseTable(int bits)
        : entries_(static_cast<T*>(std::calloc(size_t(1) << bits, sizeof(T))))
    { }
    bool ok() const { return bool(entries_); }
    bool full() const { return false; }
    __attribute__((always_inline)) uint32_t exchange(uint32_t hash, uint32_t position)
    {
        T* const e = static_cast<T*>(entries_.get());
        const uint32_t old = e[hash];
        e[hash] = T(position);
        return old;
    }
    void put(uint32_t hash, uint32_t position)
    {
        static_cast<T*>(entries_.get())[hash] = T(position);
    }

private:
    std::unique_ptr<void, FreeDeleter> entries_;
};

// Appends a literal or match length continuation (the part beyond the token's 15).
inline size_t putLength(uint8_t* out, size_t op, size_t rest)
{
    for (; rest >= 255; rest -= 255)
        out[op++] = 255;
    out[op++] = uint8_t(rest);
    return op;
}

struct Block
{
    const uint8_t* src;
    size_t length;
    uint8_t* out;
    int64_t room;
    bool limited; // room is below the worst case: check before every write
    int tableBits;
};

constexpr int kTableFull = -1; // start over with the real table

template<bool Narrow>
inline uint32_t hashAt(const uint8_t* p, int tableBits)
{
    if (Narrow) return (load32(p) * 2654435761u) >> (32 - tableBits);
    return uint32_t(((load64(p) << 24) * 889523592379ull) >> (64 - tableBits));
}

// The block compressor proper. Returns the block length, 0 when the destination is too small,
// or kTableFull as soon as the table asks to be replaced.
template<bool Narrow, class Table>
int compressBlock(const Block& b, Table& table)
{
    const uint8_t* const src = b.src;
    uint8_t* const out = b.out;
    const size_t end = b.length;
    const int bits = b.tableBits;
    size_t anchor = 0;
    size_t op = 0;

    if (end >= kMinLength) {
        const size_t matchFindEnd = end - kMatchFindLimit + 1; // a match starts before this
        const uint8_t* const matchEnd = src + end - kLastLiterals;
        table.put(hashAt<Narrow>(src, bits), 0);
        size_t ip = 1;
        uint32_t forwardHash = hashAt<Narrow>(src + ip, bits);

        for (;;) {
            size_t match = 0;
            // Look for a 4-byte match, stepping further the longer nothing is found.
            {
                size_t forward = ip;
                size_t step = 1;
                unsigned searchCount = 1u << kSkipTrigger;
                for (;;) {
                    const uint32_t h = forwardHash;
                    ip = forward;
                    forward += step;
                    step = searchCount++ >> kSkipTrigger;
                    if (forward > matchFindEnd) goto lastLiterals;
                    forwardHash = hashAt<Narrow>(src + forward, bits);
                    const uint32_t candidate = table.exchange(h, uint32_t(ip));
                    if (!Narrow && candidate + kMaxDistance < ip) continue;
                    if (load32(src + candidate) == load32(src + ip)) {
                        match = candidate;
                        break;
                    }
                }
            }
            if (table.full()) return kTableFull;
            while (ip > anchor && match > 0 && src[ip - 1] == src[match - 1]) {
                --ip;
                --match;
            }

            size_t token = op++;
            {
                const size_t literals = ip - anchor;
                if (b.limited && int64_t(op + literals + 8 + literals / 255) > b.room) return 0;
                if (literals >= kRunMask) {
                    out[token] = uint8_t(kRunMask << 4);
                    op = putLength(out, op, literals - kRunMask);
                } else {
                    out[token] = uint8_t(literals << 4);
                }
                std::memcpy(out + op, src + anchor, literals);
                op += literals;
            }

            // One match, then further sequences without literals while the position right after
            // a match matches again.
            for (;;) {
                const size_t offset = ip - match;
                out[op++] = uint8_t(offset);
                out[op++] = uint8_t(offset >> 8);
                const size_t extra
                    = countEqual(src + ip + kMinMatch, src + match + kMinMatch, matchEnd);
                ip += extra + kMinMatch;
                if (b.limited && int64_t(op + 6 + (extra + 240) / 255) > b.room) return 0;
                if (extra >= kMatchLengthMask) {
                    out[token] = uint8_t(out[token] + kMatchLengthMask);
                    op = putLength(out, op, extra - kMatchLengthMask);
                } else {
                    out[token] = uint8_t(out[token] + extra);
                }
                anchor = ip;
                if (ip >= matchFindEnd) goto lastLiterals;

                table.put(hashAt<Narrow>(src + ip - 2, bits), uint32_t(ip - 2));
                const uint32_t candidate
                    = table.exchange(hashAt<Narrow>(src + ip, bits), uint32_t(ip));
                if (table.full()) return kTableFull;
                if ((Narrow || candidate + kMaxDistance >= ip)
                    && load32(src + candidate) == load32(src + ip)) {
                    match = candidate;
                    token = op++;
                    out[token] = 0;
                    continue;
                }
                break;
            }
            ++ip;
            forwardHash = hashAt<Narrow>(src + ip, bits);
        }
    }

lastLiterals:
    if (table.full()) return kTableFull;
    const size_t rest = end - anchor;
    if (b.limited && int64_t(op + rest + 1 + (rest + 255 - kRunMask) / 255) > b.room) return 0;
    if (rest >= kRunMask) {
        out[op++] = uint8_t(kRunMask << 4);
        op = putLength(out, op, rest - kRunMask);
    } else {
        out[op++] = uint8_t(rest << 4);
    }
    std::memcpy(out + op, src + anchor, rest);
    op += rest;
    return int(op);
}

template<bool Narrow>
int compressWithTables(const Block& b)
{
    const size_t entries = size_t(1) << b.tableBits;
    {
        // Every input position stores at most one new key.
        SparseTable sparse(entries >> 6, b.length);
        if (!sparse.ok()) return 0;
        const int n = compressBlock<Narrow>(b, sparse);
        // A run that overflowed the map proves nothing, not even a destination too small.
        if (!sparse.full()) return n;
    }
    using Entry = typename std::conditional<Narrow, uint16_t, uint32_t>::type;
    DenseTable<Entry> dense(b.tableBits);
    if (!dense.ok()) return 0;
    return compressBlock<Narrow>(b, dense);
}

} // namespace

int compressLz4WithMemoryUsage(const char* source, int length, char* destination, int capacity,
                               int memoryUsage)
{
    if (memoryUsage < 10 || memoryUsage > 30) return 0;
    if (uint32_t(length) > uint32_t(kMaxInput)) return 0; // negative lengths included
    const int64_t bound = int64_t(length) + length / 255 + 16;
    Block b;
    b.src = reinterpret_cast<const uint8_t*>(source);
    b.length = size_t(length);
    b.out = reinterpret_cast<uint8_t*>(destination);
    b.room = capacity;
    // Below the worst-case bound every step checks the room left, as the library does, and gives
    // up (0) on the same conservative margins.
    b.limited = int64_t(capacity) < bound;
    if (length == 0) {
        if (b.limited && capacity <= 0) return 0;
        b.out[0] = 0;
        return 1;
    }
    // Small inputs get 16-bit entries, twice as many, a 4-byte hash and no distance check.
    const bool narrow = length < kSmallInputLimit;
    b.tableBits = narrow ? memoryUsage - 1 : memoryUsage - 2;
    return narrow ? compressWithTables<true>(b) : compressWithTables<false>(b);
}

int compressLz4Large(const char* source, int length, char* destination, int capacity)
{
    return compressLz4WithMemoryUsage(source, length, destination, capacity, 30);
}
