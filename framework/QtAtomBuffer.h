// QtAtomBuffer: the byte window through which atoms are decoded and encoded. Decoders consume from
// the front (`ptrData`, `removeInput`); encoders add at the end with `append`. The buffer either
// wraps caller-owned storage or owns storage it allocated itself (`QtAtomBuffer(n)`). Nothing is
// ever written past the storage: owned storage grows as bytes are added, caller storage that lacks
// the room refuses them and reports it. The file offset of the storage's first byte lets decoders
// learn where in the file the next byte came from. A buffer belongs to one thread at a time.
#pragma once

#include <cstdint>

class BasicFileIO;

class QtAtomBuffer {
public:
    enum DataState { Empty = 0, Full = 1 };

    // Wraps caller-owned storage of `length` bytes; with Full every byte is occupied.
    QtAtomBuffer(unsigned char* bytes, unsigned int length, DataState state);
    // Owns `capacity` bytes of its own storage, empty.
    explicit QtAtomBuffer(unsigned int capacity = 0);
    ~QtAtomBuffer();
    QtAtomBuffer(QtAtomBuffer const&) = delete;
    QtAtomBuffer& operator=(QtAtomBuffer const&) = delete;

    unsigned int nOccupied() const { return m_occupied; }
    unsigned int bufferOffset() const { return m_readPos; }
    unsigned long fileOffset() const { return m_fileOffset + m_readPos; }
    unsigned char* ptrData() const { return m_storage + m_readPos; }
    unsigned char* ptrEnd() const { return m_storage + m_readPos + m_occupied; }
    unsigned int capacity() const { return m_capacity; }
    unsigned char* storage() const { return m_storage; }
    // Bytes that can still be committed at ptrEnd().
    unsigned int room() const { return m_capacity - m_readPos - m_occupied; }

    // Consumes n bytes (never more than are occupied).
    void removeInput(unsigned long n);
    // Gives back the last n consumed bytes (never more than were consumed).
    void prepend(unsigned int n);
    // Commits n bytes at ptrEnd(): with fill the buffer zeroes them, without it the caller has
    // written them there after reserveRoom(n). False, and nothing committed, when refused.
    bool append(unsigned int n, bool fill);
    // Copies n bytes to ptrEnd() and commits them. False, and nothing written, when refused.
    bool append(void const* bytes, unsigned int n);
    // Back to the starting condition of `state` over the current storage; clears a refusal.
    void reset(DataState state);

    void setFileOffset(unsigned long offsetOfStorage) { m_fileOffset = offsetOfStorage; }
    unsigned long storageFileOffset() const { return m_fileOffset; }

    // Makes sure `n` more bytes can be committed at ptrEnd(). A buffer that owns its storage grows;
    // caller storage without the room refuses: the overflow is reported as an error once, and every
    // later append is refused too, so that an encoding never goes on past a field it could not hold.
    bool reserveRoom(unsigned int n);
    // True once bytes were refused for want of room (until reset or fillFrom).
    bool overflowed() const { return m_overflowed; }

    // Replaces the contents with `n` bytes read from the file at `offset`, owned by the buffer.
    // Returns the number of bytes actually read (less at the end of the file).
    unsigned int fillFrom(BasicFileIO& file, unsigned long offset, unsigned int n);
    // Writes the occupied bytes to the file at fileOffset(); true when all were written.
    bool writeTo(BasicFileIO& file) const;

private:
    bool refuse(unsigned int n);

    unsigned char* m_storage = nullptr;
    unsigned int m_capacity = 0;
    unsigned int m_occupied = 0;
    unsigned int m_readPos = 0;
    unsigned long m_fileOffset = 0;
    bool m_owned = false;
    bool m_overflowed = false;
};
