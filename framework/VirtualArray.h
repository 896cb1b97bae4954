// VirtualArray<T>: a disk-backed array of T, the storage of the sample tables. The engine (memory
// mode, mapping, caches, threads) is VirtualArrayBase; this layer gives typed access and the three
// conversion hooks: initPhys makes new slots zero, copyPhys copies element by element, and ioPrep
// converts between memory and disk through the function given to setIoPrep (none: bytes as they are).
//
// T is a trivially copyable integer-like type no wider than a cache page. The I/O preparation
// function takes (source, destination, count, direction) with direction VirtualArrayBase::kToDisk
// or kFromDisk, may be called with source == destination, and returns the number converted. It must
// turn zero bytes on disk into zero in memory: slots never written are zero bytes on disk.
#pragma once

#include <cstring>
#include <type_traits>

#include "framework/VirtualArrayBase.h"

template <class T>
class VirtualArray : public VirtualArrayBase {
    static_assert(std::is_trivially_copyable_v<T>, "VirtualArray holds plain values");

public:
    using IoPrep = unsigned int (*)(T const* source, T* destination, unsigned int count, int direction);

    explicit VirtualArray(char const* label) : VirtualArrayBase(label, sizeof(T)) {}
    // Changes still only in the cache reach the file before the conversion hooks go away.
    ~VirtualArray() override { writeDirtyPages(); }

    // Set once, before the array is used.
    void setIoPrep(IoPrep prep) { m_ioPrep = prep; }

    // The element at index, read through a reader's agent (null: the owner thread). Zero past the
    // virtual size and for slots never written.
    T elementAt(unsigned int index, FileIoClientRec* agent) const {
        T value;
        if (agent) {
            if (unsigned char const* bytes = findInAgent(index, *agent)) {
                memcpy(&value, bytes, sizeof(T));
                return value;
            }
        }
        readElement(index, agent, &value);
        return value;
    }
    T operator[](unsigned int index) const { return elementAt(index, nullptr); }
    // Copies a stretch of elements in bulk (see VirtualArrayBase::readElements).
    unsigned int readElements(unsigned int first, unsigned int count, FileIoClientRec* agent, T* out) const {
        return VirtualArrayBase::readElements(first, count, agent, out);
    }

    // Stores a value (owner thread); false past the virtual size or when its page cannot be read.
    // The agent is the writer's own and is not needed to store: changed pages are detected by
    // every reader through the page stamps.
    bool setElementAt(unsigned int index, T const& value, FileIoClientRec* agent) {
        (void)agent;
        return writeElement(index, &value);
    }

protected:
    void initPhys(void* elements, unsigned int count) const override {
        T* out = static_cast<T*>(elements);
        for (unsigned int i = 0; i < count; ++i) out[i] = T();
    }
    void copyPhys(void const* source, void* destination, unsigned int count) const override {
        memmove(destination, source, static_cast<size_t>(count) * sizeof(T));
    }
    unsigned int ioPrep(void const* source, void* destination, unsigned int count, int direction) const override {
        if (!m_ioPrep) {
            if (source != destination) copyPhys(source, destination, count);
            return count;
        }
        return m_ioPrep(static_cast<T const*>(source), static_cast<T*>(destination), count, direction);
    }

private:
    IoPrep m_ioPrep = nullptr;
};
