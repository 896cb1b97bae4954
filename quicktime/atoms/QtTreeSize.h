// Value types of size and offset propagation: the result of recalculating a subtree
// (QtTreeSize), the reasons a movie needs room (QtResizeReq), and an escalating action level
// (QtResizeAction).
#pragma once

#include <cstdint>

#include "framework/AutoPtr.h"

struct QtTreeSize {
    QtTreeSize() = default;
    QtTreeSize(bool applyIt, unsigned long sizeIn, unsigned long offsetIn)
        : apply(applyIt), size(sizeIn), offset(offsetIn) {}

    bool apply = false;  // false: only compute; true: set sizes and offsets
    bool moved = false;  // some atom with a disk-backed table changes place
    unsigned long size = 0;
    unsigned long offset = 0;
};

class QtResizeReq {
public:
    enum Type : uint32_t {
        Samples = 0x01,
        Stsc = 0x02,
        Edts = 0x04,
        Track = 0x08,
        UserData = 0x10,
        ResizeNoFlush = 0x20,
    };

    void add(Type type) { m_value |= type; }
    uint32_t value() const { return m_value; }
    void clear() { m_value = 0; }
    // "req=0x%x{" followed by the name of each reason set, then "}".
    AutoPtr<char> toString() const;

private:
    uint32_t m_value = 0;
};

class QtResizeAction {
public:
    QtResizeAction() = default;
    explicit QtResizeAction(int32_t level) : m_level(level) {}
    // Combining keeps the greater level: actions escalate and never lower.
    QtResizeAction& operator+=(QtResizeAction const& other) {
        if (other.m_level > m_level) m_level = other.m_level;
        return *this;
    }
    int32_t level() const { return m_level; }

private:
    int32_t m_level = 0;
};
