// Bitset: a bit array with a size that can shrink and grow inside the capacity it was built with.
// Used for the key frames of a 256-frame stretch, where many readers test bits while the recorder
// may set one.
//
// Threads: bits and the size are atomic, so get/set/resize/|= may run concurrently as long as the
// size stays within the capacity (never reallocating). Growing past the capacity reallocates the
// word array and must not race with any other use of the set; the owners of shared sets create
// them with the largest size they will ever need.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

class Bitset {
public:
    // A set of `size` bits, all equal to `fill`; the capacity is `size` rounded up to 64.
    explicit Bitset(unsigned int size = 0, bool fill = false);
    Bitset(Bitset const& other);
    Bitset& operator=(Bitset const& other);
    ~Bitset() = default;

    unsigned int size() const { return m_size.load(std::memory_order_acquire); }
    unsigned int capacity() const { return m_wordCount * kWordBits; }
    bool empty() const { return size() == 0; }

    // Changes the size. Bits that enter the set are clear; bits that leave it are cleared, so that
    // growing again shows them clear.
    void resize(unsigned int size);
    // Grows the size to at least `size` (never shrinks); atomic against other growers.
    void growTo(unsigned int size);

    // A bit outside the size is clear.
    bool get(unsigned int bit) const {
        if (bit >= size()) return false;
        return (m_words[bit / kWordBits].load(std::memory_order_relaxed) >> (bit % kWordBits)) & 1u;
    }
    // Sets (or clears) a bit inside the size; a bit outside it is ignored (returns false).
    bool set(unsigned int bit, bool value = true);
    // Sets a bit and grows the size to include it. The bit is stored before the size is published,
    // so a reader that sees the new size also sees the bit.
    void setAndGrow(unsigned int bit);

    // Sets every bit that is set in `other`; the size becomes the larger of the two.
    Bitset& operator|=(Bitset const& other);
    bool operator==(Bitset const& other) const;

    // Number of set bits.
    unsigned int count() const;
    // Index of the first set bit at or after `from`, or size() when there is none.
    unsigned int findNext(unsigned int from) const;

private:
    static constexpr unsigned int kWordBits = 64;
    static unsigned int wordsFor(unsigned int bits) { return (bits + kWordBits - 1) / kWordBits; }
    void reserve(unsigned int bits);
    void clearFrom(unsigned int bit);

    std::unique_ptr<std::atomic<uint64_t>[]> m_words;
    unsigned int m_wordCount = 0;
    std::atomic<unsigned int> m_size{0};
};
