// Test support for the sample tables: table atoms built from bytes, wrapped in a movie
// (moov.trak.mdia.minf.stbl) written to a real temporary file and read back through the reader, so
// that tables of more than 16 entries are disk-backed on that file as in any real movie; and the
// per-sample expectations of the movies of tests/data (samples.csv).
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <map>
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

constexpr char const* kStblPath = "moov.trak.mdia.minf.stbl";

// A movie whose only track's sample table holds the given atoms, in order.
inline Bytes movieWithTable(std::vector<Bytes> const& tables) {
    return atomBytes("moov", atomBytes("trak", atomBytes("mdia", atomBytes("minf", atomBytes("stbl", concat(tables))))));
}

// Writes the bytes to the file and reads them as a movie (read-write, so tables can grow in place).
inline AutoPtr<QtAtomRoot> readMovie(TempFile const& file, Bytes const& bytes) {
    file.write(bytes);
    return QtAtomReader::readFile(file.c_str(), BasicFileIO::ReadWrite);
}

// A movie file read back through the reader; `table<T>(type)` finds a table of its sample table.
class MovieOnDisk {
public:
    explicit MovieOnDisk(Bytes const& bytes) : m_root(readMovie(m_file, bytes)) {}
    QtAtomRoot const* root() const { return m_root.get(); }
    std::string const& path() const { return m_file.path(); }
    template <class T>
    T const* table(char const* type) const {
        std::string path = std::string(kStblPath) + "." + type;
        return m_root ? dynamic_cast<T const*>(m_root->findAtom(path.c_str(), 0)) : nullptr;
    }

private:
    TempFile m_file;
    AutoPtr<QtAtomRoot> m_root;
};

// One row of a movie's samples.csv.
struct SampleRow {
    unsigned int track;
    unsigned long sample;
    long dts;
    long pts;
    bool key;
};

// Rows by 1-based track number, in sample order.
inline std::map<unsigned int, std::vector<SampleRow>> readSampleRows(std::string const& movie) {
    std::map<unsigned int, std::vector<SampleRow>> rows;
    std::ifstream in(testDataPath(movie + ".samples.csv"));
    std::string line;
    std::getline(in, line);  // header
    while (std::getline(in, line)) {
        unsigned int track, key;
        unsigned long sample, offset, size;
        long dts, pts;
        if (sscanf(line.c_str(), "%u,%lu,%lu,%lu,%ld,%ld,%u", &track, &sample, &offset, &size, &dts, &pts, &key) == 7)
            rows[track].push_back({track, sample, dts, pts, key == 1});
    }
    return rows;
}

// The n-th (0-based) track's sample table of a movie tree.
inline BaseQtAtom const* trackTable(QtAtomRoot const& root, unsigned int track) {
    BaseQtAtom const* trak = root.findAtom("moov.trak", track);
    return trak ? trak->findAtom("mdia.minf.stbl", 0) : nullptr;
}
