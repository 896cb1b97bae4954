// Helpers for the tests of the sync, composition offset and dependency tables: building the bytes of
// a small movie around a track's sample table, reading it back, and the per-sample expectations of
// the corpus movies (samples.csv).
#pragma once

#include <cstdint>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "../TestSupport.h"
#include "quicktime/atoms/QtAtomReader.h"
#include "quicktime/layout/QtAtomRoot.h"

namespace SyncTest {

using Bytes = std::vector<unsigned char>;

inline Bytes atom(char const* type, Bytes const& body) {
    Bytes out;
    putAtomHeader(out, static_cast<uint32_t>(body.size() + 8), type);
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

inline Bytes concat(std::vector<Bytes> const& parts) {
    Bytes out;
    for (Bytes const& part : parts) out.insert(out.end(), part.begin(), part.end());
    return out;
}

// A full atom whose body is version/flags 0 followed by 32-bit words.
inline Bytes fullAtom(char const* type, std::vector<uint32_t> const& words, unsigned int extraZeroBytes = 0) {
    Bytes body;
    putUint32(body, 0);
    for (uint32_t w : words) putUint32(body, w);
    body.resize(body.size() + extraZeroBytes, 0);
    return atom(type, body);
}

// 'stss'/'stps' with the given stored (1-based) numbers, and `reserve` zero slots after them.
inline Bytes syncAtom(char const* type, std::vector<uint32_t> const& stored, unsigned int reserve = 0) {
    std::vector<uint32_t> words{static_cast<uint32_t>(stored.size())};
    words.insert(words.end(), stored.begin(), stored.end());
    return fullAtom(type, words, reserve * 4);
}

// A constant-size 'stsz' of `count` samples.
inline Bytes stszAtom(uint32_t count) { return fullAtom("stsz", {1, count}); }

// 'ctts' of (count, offset) runs, with `reserve` zero slots after them.
inline Bytes cttsAtom(std::vector<std::pair<uint32_t, int32_t>> const& runs, unsigned int reserve = 0) {
    std::vector<uint32_t> words{static_cast<uint32_t>(runs.size())};
    for (auto const& run : runs) {
        words.push_back(run.first);
        words.push_back(static_cast<uint32_t>(run.second));
    }
    return fullAtom("ctts", words, reserve * 8);
}

// moov > trak > mdia > minf > stbl holding the given atoms.
inline Bytes movieWithTable(std::vector<Bytes> const& stblChildren) {
    return atom("moov", atom("trak", atom("mdia", atom("minf", atom("stbl", concat(stblChildren))))));
}

// Writes the bytes to the file and reads them as a movie (read-write, so tables can grow in place).
inline AutoPtr<QtAtomRoot> readMovie(TempFile const& file, Bytes const& bytes) {
    file.write(bytes);
    return QtAtomReader::readFile(file.c_str(), BasicFileIO::ReadWrite);
}

constexpr char const* kStblPath = "moov.trak.mdia.minf.stbl";

// One row of a corpus movie's samples.csv.
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
        std::stringstream fields(line);
        std::string track, sample, offset, size, dts, pts, key;
        std::getline(fields, track, ',');
        std::getline(fields, sample, ',');
        std::getline(fields, offset, ',');
        std::getline(fields, size, ',');
        std::getline(fields, dts, ',');
        std::getline(fields, pts, ',');
        std::getline(fields, key, ',');
        SampleRow row{static_cast<unsigned int>(std::stoul(track)), std::stoul(sample), std::stol(dts), std::stol(pts),
                      key == "1"};
        rows[row.track].push_back(row);
    }
    return rows;
}

// The n-th (0-based) track's sample table of a movie tree.
inline BaseQtAtom const* trackTable(QtAtomRoot const& root, unsigned int track) {
    BaseQtAtom const* trak = root.findAtom("moov.trak", track);
    return trak ? trak->findAtom("mdia.minf.stbl", 0) : nullptr;
}

}  // namespace SyncTest
