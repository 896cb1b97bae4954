#include "framework/Bitset.h"

#include <bit>

Bitset::Bitset(unsigned int size, bool fill) {
    reserve(size);
    if (fill) {
        for (unsigned int w = 0; w < size / kWordBits; ++w) m_words[w].store(~uint64_t(0), std::memory_order_relaxed);
        if (size % kWordBits)
            m_words[size / kWordBits].store((uint64_t(1) << (size % kWordBits)) - 1, std::memory_order_relaxed);
    }
    m_size.store(size, std::memory_order_release);
}

Bitset::Bitset(Bitset const& other) : Bitset(0) { *this = other; }

Bitset& Bitset::operator=(Bitset const& other) {
    if (this == &other) return *this;
    unsigned int size = other.size();
    reserve(size);
    for (unsigned int w = 0; w < m_wordCount; ++w)
        m_words[w].store(w < wordsFor(size) ? other.m_words[w].load(std::memory_order_relaxed) : 0,
                         std::memory_order_relaxed);
    m_size.store(size, std::memory_order_release);
    return *this;
}

void Bitset::reserve(unsigned int bits) {
    unsigned int words = wordsFor(bits);
    if (words <= m_wordCount) return;
    std::unique_ptr<std::atomic<uint64_t>[]> grown(new std::atomic<uint64_t>[words]);
    for (unsigned int w = 0; w < words; ++w)
        grown[w].store(w < m_wordCount ? m_words[w].load(std::memory_order_relaxed) : 0, std::memory_order_relaxed);
    m_words = std::move(grown);
    m_wordCount = words;
}

void Bitset::clearFrom(unsigned int bit) {
    unsigned int w = bit / kWordBits;
    if (w >= m_wordCount) return;
    if (bit % kWordBits) {
        m_words[w].fetch_and((uint64_t(1) << (bit % kWordBits)) - 1, std::memory_order_relaxed);
        ++w;
    }
    for (; w < m_wordCount; ++w) m_words[w].store(0, std::memory_order_relaxed);
}

void Bitset::resize(unsigned int size) {
    unsigned int old = m_size.load(std::memory_order_acquire);
    if (size < old) {
        m_size.store(size, std::memory_order_release);
        clearFrom(size);
        return;
    }
    reserve(size);
    m_size.store(size, std::memory_order_release);
}

void Bitset::growTo(unsigned int size) {
    reserve(size);
    unsigned int old = m_size.load(std::memory_order_acquire);
    while (old < size && !m_size.compare_exchange_weak(old, size, std::memory_order_acq_rel)) {
    }
}

bool Bitset::set(unsigned int bit, bool value) {
    if (bit >= size()) return false;
    uint64_t mask = uint64_t(1) << (bit % kWordBits);
    if (value)
        m_words[bit / kWordBits].fetch_or(mask, std::memory_order_relaxed);
    else
        m_words[bit / kWordBits].fetch_and(~mask, std::memory_order_relaxed);
    return true;
}

void Bitset::setAndGrow(unsigned int bit) {
    reserve(bit + 1);
    m_words[bit / kWordBits].fetch_or(uint64_t(1) << (bit % kWordBits), std::memory_order_relaxed);
    growTo(bit + 1);
}

Bitset& Bitset::operator|=(Bitset const& other) {
    if (this == &other) return *this;
    unsigned int otherSize = other.size();
    reserve(otherSize);
    for (unsigned int w = 0; w < wordsFor(otherSize); ++w)
        m_words[w].fetch_or(other.m_words[w].load(std::memory_order_relaxed), std::memory_order_relaxed);
    growTo(otherSize);
    return *this;
}

bool Bitset::operator==(Bitset const& other) const {
    unsigned int n = size();
    if (n != other.size()) return false;
    for (unsigned int w = 0; w < wordsFor(n); ++w)
        if (m_words[w].load(std::memory_order_relaxed) != other.m_words[w].load(std::memory_order_relaxed))
            return false;
    return true;
}

unsigned int Bitset::count() const {
    unsigned int n = size(), total = 0;
    for (unsigned int w = 0; w < wordsFor(n); ++w)
        total += static_cast<unsigned int>(std::popcount(m_words[w].load(std::memory_order_relaxed)));
    return total;
}

unsigned int Bitset::findNext(unsigned int from) const {
    unsigned int n = size();
    for (unsigned int bit = from; bit < n;) {
        uint64_t word = m_words[bit / kWordBits].load(std::memory_order_relaxed) >> (bit % kWordBits);
        if (word) {
            unsigned int found = bit + static_cast<unsigned int>(std::countr_zero(word));
            return found < n ? found : n;
        }
        bit = (bit / kWordBits + 1) * kWordBits;
    }
    return n;
}
