#include "framework/DebuggerOn.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

namespace {

struct Registry {
    std::mutex mutex;
    std::vector<DebuggerOn*> tables;
};

// Function-local so that tables constructed during static initialisation find it ready.
Registry& registry() {
    static Registry r;
    return r;
}

}  // namespace

DebuggerOn::DebuggerOn(char const* tableName, unsigned int flagCount, char const* const* flagNames)
    : m_name(tableName), m_count(std::min(flagCount, 32u)), m_flagNames(flagNames) {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.tables.push_back(this);
}

DebuggerOn::~DebuggerOn() {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.tables.erase(std::remove(r.tables.begin(), r.tables.end(), this), r.tables.end());
}

void DebuggerOn::setBit(unsigned int bit, bool value) {
    if (bit >= m_count) return;
    uint32_t mask = 1u << bit;
    if (value)
        m_bits.fetch_or(mask);
    else
        m_bits.fetch_and(~mask);
}

int DebuggerOn::findFlag(char const* flagName) const {
    if (!flagName) return -1;
    for (unsigned int i = 0; i < m_count; ++i)
        if (m_flagNames[i] && strcmp(m_flagNames[i], flagName) == 0) return static_cast<int>(i);
    return -1;
}

DebuggerOn* DebuggerOn::find(char const* table) {
    if (!table) return nullptr;
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    for (DebuggerOn* t : r.tables)
        if (strcmp(t->m_name, table) == 0) return t;
    return nullptr;
}

bool DebuggerOn::get(char const* table, char const* flag) {
    DebuggerOn* t = find(table);
    if (!t) return false;
    int bit = t->findFlag(flag);
    return bit >= 0 && t->on(static_cast<unsigned int>(bit));
}

bool DebuggerOn::set(char const* table, char const* flag, bool on) {
    DebuggerOn* t = find(table);
    if (!t) return false;
    int bit = t->findFlag(flag);
    if (bit < 0) return false;
    t->setBit(static_cast<unsigned int>(bit), on);
    return true;
}

bool DebuggerOn::setFromText(char const* tableColonFlag) {
    if (!tableColonFlag) return false;
    char const* colon = strchr(tableColonFlag, ':');
    if (!colon) return false;
    std::string table(tableColonFlag, static_cast<size_t>(colon - tableColonFlag));
    return set(table.c_str(), colon + 1, true);
}
