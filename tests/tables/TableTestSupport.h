// Test support for the sample tables: table atoms built from bytes, wrapped in a movie written to a
// real file and read back, so that tables of more than 16 entries are disk-backed as in any movie.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/VirtualArrayBase.h"
#include "quicktime/layout/QtAtomReader.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "tests/TestSupport.h"

// `count` values from `first`, `step` apart.
inline std::vector<uint64_t> series(unsigned int count, uint64_t first, uint64_t step) {
    std::vector<uint64_t> out;
    for (unsigned int i = 0; i < count; ++i) out.push_back(first + i * step);
    return out;
}

// The big-endian value of `width` bytes at `at`.
inline uint64_t bigEndianAt(Bytes const& bytes, unsigned long at, unsigned int width) {
    uint64_t value = 0;
    for (unsigned int i = 0; i < width; ++i) value = (value << 8) | bytes[at + i];
    return value;
}

// A corpus movie's name as a test parameter name.
inline std::string corpusName(::testing::TestParamInfo<std::string> const& info) {
    std::string name = info.param.substr(0, info.param.find('.'));
    for (char& c : name)
        if (!isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
}

// A full atom: the head fields, then the entries (4 or 8 bytes each).
inline Bytes tableAtom(char const* type, std::vector<uint32_t> const& head, std::vector<uint64_t> const& entries,
                       unsigned int entryBytes) {
    Bytes body = words({0});
    putBytes(body, words(head));
    for (uint64_t entry : entries) entryBytes == 8 ? put64(body, entry) : put32(body, static_cast<uint32_t>(entry));
    return atomBytes(type, body);
}

// 'stss'/'stps' with the given stored (1-based) numbers, and `reserve` zero slots after them.
inline Bytes syncAtom(char const* type, std::vector<uint32_t> const& stored, unsigned int reserve = 0) {
    std::vector<uint32_t> body{static_cast<uint32_t>(stored.size())};
    body.insert(body.end(), stored.begin(), stored.end());
    return fullAtom(type, body, reserve * 4);
}

// A constant-size 'stsz' of `count` samples.
inline Bytes stszAtom(uint32_t count) { return fullAtom("stsz", {1, count}); }

// 'ctts' of (count, offset) runs, with `reserve` zero slots after them.
inline Bytes cttsAtom(std::vector<std::pair<uint32_t, int32_t>> const& runs, unsigned int reserve = 0) {
    std::vector<uint32_t> body{static_cast<uint32_t>(runs.size())};
    for (auto const& run : runs) body.insert(body.end(), {run.first, static_cast<uint32_t>(run.second)});
    return fullAtom("ctts", body, reserve * 8);
}

// A movie whose only track's sample table holds the given atoms, in order.
inline Bytes movieWithTable(std::vector<Bytes> const& tables) {
    return atomBytes("moov", atomBytes("trak", atomBytes("mdia", atomBytes("minf", atomBytes("stbl", concat(tables))))));
}

// A movie file read back (read-write, so tables can grow in place); `table<T>(type)` finds a table
// of its sample table.
class MovieOnDisk {
public:
    explicit MovieOnDisk(Bytes const& bytes) {
        m_file.write(bytes);
        m_root = QtAtomReader::readFile(m_file.c_str(), BasicFileIO::ReadWrite);
    }
    QtAtomRoot const* root() const { return m_root.get(); }
    std::string const& path() const { return m_file.path(); }
    template <class T>
    T const* table(char const* type) const {
        std::string path = std::string("moov.trak.mdia.minf.stbl.") + type;
        return m_root ? dynamic_cast<T const*>(m_root->findAtom(path.c_str(), 0)) : nullptr;
    }

private:
    TempFile m_file;
    AutoPtr<QtAtomRoot> m_root;
};
