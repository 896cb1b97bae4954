// QtGrowingSlots: the in-memory entries of a small run-length table (stts, stsc) that one recording
// thread fills and grows while reader threads look them up. Each value is kept as 32-bit atomic
// words, so a reader never races the recorder on a word; growing copies the slots into a larger
// block and publishes it, and the blocks it replaces stay alive until the table is reset or
// destroyed, so that a reader still walking an old block reads valid memory. The tables grow by
// doubling (or rarely at all), so the blocks kept add up to less than twice the current one.
//
// Threads: set, resize and reset belong to the owner thread; reset and the destructor only while no
// reader runs (decode, destruction). get may be called from any thread. A value is consistent as a
// whole only when the owner does not change it meanwhile: the table says how (a count published
// after the slot is stored, or a sequence count around a rewrite).
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>
#include <vector>

template <class Value>
class QtGrowingSlots {
    static_assert(std::is_trivially_copyable_v<Value> && sizeof(Value) % 4 == 0, "values of whole 32-bit words");
    static constexpr unsigned int kWords = sizeof(Value) / 4;

    struct Block {
        explicit Block(unsigned int slots) : size(slots), words(new std::atomic<uint32_t>[slots * kWords]()) {}
        unsigned int size;
        std::unique_ptr<std::atomic<uint32_t>[]> words;
    };

public:
    explicit QtGrowingSlots(unsigned int slots = 0) { reset(slots); }
    QtGrowingSlots(QtGrowingSlots const&) = delete;
    QtGrowingSlots& operator=(QtGrowingSlots const&) = delete;

    unsigned int size() const { return m_current.load(std::memory_order_acquire)->size; }

    // The slots as they are now, for a reader that reads several: the block is taken once.
    class View {
    public:
        explicit View(Block const* block) : m_block(block) {}
        // The value of a slot; a zero value past the size.
        Value get(unsigned int index) const {
            Value value{};
            if (index >= m_block->size) return value;
            uint32_t words[kWords];
            for (unsigned int k = 0; k < kWords; ++k)
                words[k] = m_block->words[index * kWords + k].load(std::memory_order_relaxed);
            memcpy(&value, words, sizeof(Value));
            return value;
        }

    private:
        Block const* m_block;
    };
    View view() const { return View(m_current.load(std::memory_order_acquire)); }

    Value get(unsigned int index) const { return view().get(index); }

    // Owner thread: stores a value (ignored past the size).
    void set(unsigned int index, Value const& value) {
        Block* block = m_current.load(std::memory_order_relaxed);
        if (index >= block->size) return;
        uint32_t words[kWords];
        memcpy(words, &value, sizeof(Value));
        for (unsigned int k = 0; k < kWords; ++k)
            block->words[index * kWords + k].store(words[k], std::memory_order_relaxed);
    }

    // Owner thread: a new size, keeping the values of the slots both sizes have; new slots are zero.
    void resize(unsigned int slots) {
        Block const* old = m_current.load(std::memory_order_relaxed);
        if (slots == old->size) return;
        auto grown = std::make_unique<Block>(slots);
        unsigned int kept = (slots < old->size ? slots : old->size) * kWords;
        for (unsigned int k = 0; k < kept; ++k)
            grown->words[k].store(old->words[k].load(std::memory_order_relaxed), std::memory_order_relaxed);
        m_current.store(grown.get(), std::memory_order_release);
        m_blocks.push_back(std::move(grown));
    }

    // Owner thread, no reader running: `slots` zero slots, and every earlier block freed.
    void reset(unsigned int slots) {
        auto fresh = std::make_unique<Block>(slots);
        m_current.store(fresh.get(), std::memory_order_release);
        m_blocks.clear();
        m_blocks.push_back(std::move(fresh));
    }

private:
    std::atomic<Block*> m_current{nullptr};
    std::vector<std::unique_ptr<Block>> m_blocks;  // the current block last
};
