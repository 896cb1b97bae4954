// DebuggerOn: a named table of up to 32 process-wide debug flags, built during static
// initialisation from a table name and flag names in bit order. Code tests a flag by bit number
// (`on`); operators and tests set or read one by table and flag name. Every table registers itself
// so that names can be resolved from anywhere; flags are atomic, so a reader may see a change late
// but never a torn value.
#pragma once

#include <atomic>
#include <cstdint>

class DebuggerOn {
public:
    DebuggerOn(char const* tableName, unsigned int flagCount, char const* const* flagNames);
    ~DebuggerOn();
    DebuggerOn(DebuggerOn const&) = delete;
    DebuggerOn& operator=(DebuggerOn const&) = delete;

    bool on(unsigned int bit) const {
        return bit < m_count && (m_bits.load(std::memory_order_relaxed) >> bit) & 1u;
    }
    void setBit(unsigned int bit, bool value);
    void clearAll() { m_bits.store(0); }

    char const* name() const { return m_name; }
    unsigned int flagCount() const { return m_count; }
    char const* flagName(unsigned int bit) const { return bit < m_count ? m_flagNames[bit] : nullptr; }
    // Bit number of a flag name, or -1.
    int findFlag(char const* flagName) const;

    // Looks a flag up by table and flag name: false when either is unknown or the flag is clear.
    static bool get(char const* table, char const* flag);
    // Sets a flag by table and flag name; false for an unknown table or flag.
    static bool set(char const* table, char const* flag, bool on);
    // Parses "TABLE:FLAG" (the operator's form) and sets the flag on.
    static bool setFromText(char const* tableColonFlag);
    static DebuggerOn* find(char const* table);

private:
    char const* m_name;
    unsigned int m_count;
    char const* const* m_flagNames;
    std::atomic<uint32_t> m_bits{0};
};
