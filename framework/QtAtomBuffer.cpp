#include "framework/QtAtomBuffer.h"

#include <algorithm>
#include <cstring>

#include "framework/BasicFileIO.h"
#include "framework/Messages.h"

QtAtomBuffer::QtAtomBuffer(unsigned char* bytes, unsigned int length, DataState state)
    : m_storage(bytes), m_capacity(length), m_occupied(state == Full ? length : 0) {}

QtAtomBuffer::QtAtomBuffer(unsigned int capacity)
    : m_storage(capacity ? new unsigned char[capacity] : nullptr), m_capacity(capacity), m_owned(true) {}

QtAtomBuffer::~QtAtomBuffer() {
    if (m_owned) delete[] m_storage;
}

void QtAtomBuffer::removeInput(unsigned long n) {
    unsigned int k = static_cast<unsigned int>(std::min<unsigned long>(n, m_occupied));
    m_readPos += k;
    m_occupied -= k;
}

void QtAtomBuffer::prepend(unsigned int n) {
    unsigned int k = std::min(n, m_readPos);
    m_readPos -= k;
    m_occupied += k;
}

bool QtAtomBuffer::append(unsigned int n, bool fill) {
    if (!reserveRoom(n)) return false;
    if (fill && n) memset(ptrEnd(), 0, n);
    m_occupied += n;
    return true;
}

bool QtAtomBuffer::append(void const* bytes, unsigned int n) {
    if (!reserveRoom(n)) return false;
    if (n) memcpy(ptrEnd(), bytes, n);
    m_occupied += n;
    return true;
}

void QtAtomBuffer::reset(DataState state) {
    m_readPos = 0;
    m_occupied = state == Full ? m_capacity : 0;
    m_overflowed = false;
}

bool QtAtomBuffer::reserveRoom(unsigned int n) {
    if (m_overflowed) return false;
    if (room() >= n) return true;
    if (!m_owned) return refuse(n);
    unsigned long needed = static_cast<unsigned long>(m_readPos) + m_occupied + n;
    if (needed > 0xFFFFFFFFul) return refuse(n);
    unsigned long grown = std::max<unsigned long>(needed, static_cast<unsigned long>(m_capacity) * 2);
    unsigned int capacity = static_cast<unsigned int>(std::min<unsigned long>(grown, 0xFFFFFFFFul));
    unsigned char* storage = new unsigned char[capacity];
    if (m_storage) memcpy(storage, m_storage, m_readPos + m_occupied);
    delete[] m_storage;
    m_storage = storage;
    m_capacity = capacity;
    return true;
}

bool QtAtomBuffer::refuse(unsigned int n) {
    m_overflowed = true;
    errorMsg("QtAtomBuffer: no room for %u more bytes (%u of %u in use)\n", n, m_readPos + m_occupied,
             m_capacity);
    return false;
}

unsigned int QtAtomBuffer::fillFrom(BasicFileIO& file, unsigned long offset, unsigned int n) {
    if (!m_owned) {
        m_storage = nullptr;
        m_capacity = 0;
        m_owned = true;
    }
    m_readPos = 0;
    m_occupied = 0;
    m_overflowed = false;
    m_fileOffset = offset;
    if (!reserveRoom(n)) return 0;
    long got = file.readAt(offset, m_storage, n);
    m_occupied = got > 0 ? static_cast<unsigned int>(got) : 0;
    return m_occupied;
}

bool QtAtomBuffer::writeTo(BasicFileIO& file) const {
    if (m_occupied == 0) return true;
    return file.writeAt(fileOffset(), ptrData(), m_occupied) == static_cast<long>(m_occupied);
}
