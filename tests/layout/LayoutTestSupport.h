// Helpers for the layout tests: building atoms from byte literals under a tree, and an independent
// scan of a file's top-level atom headers with plain pread (not the library's reader), so that what
// is on disk is judged without trusting the code under test.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "framework/FaultyFileIO.h"
#include "framework/QtAtomBuffer.h"
#include "quicktime/atoms/QtAtomPreserved.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/tables/QtTrackSamples.h"
#include "tests/TestSupport.h"

// A QtAtomPreserved of `type` with `bodySize` bytes of `fill`, decoded from bytes and attached
// under `parent`.
// A finished long-GOP track as it was recorded: every sample's size and key flag, and each B frame
// shown before the reference decoded just before it.
template <class SizeOf, class CodingOf>
void expectRecordedGop(QtTrackSamples const& track, unsigned int count, SizeOf sizeOf, CodingOf codingOf) {
    FileIoClientRec agent;
    QtTrackSamples::Iterator walk(track, 0, &agent);
    QtSampleInfo info;
    long referencePts = 0;
    for (unsigned int s = 0; s < count; ++s) {
        ASSERT_TRUE(walk.next(info)) << s;
        ASSERT_EQ(info.size, sizeOf(s)) << s;
        ASSERT_EQ(info.key, codingOf(s) == SampleCodingI) << s;
        if (codingOf(s) != SampleCodingB)
            referencePts = info.pts;
        else
            ASSERT_LT(info.pts, referencePts) << s;
    }
}

inline QtAtomPreserved const* addPreserved(BaseQtAtom const* parent, char const* type, unsigned int bodySize,
                                           unsigned char fill) {
    std::vector<unsigned char> bytes(8 + bodySize, fill);
    unsigned int size = 8 + bodySize;
    for (int i = 0; i < 4; ++i) bytes[i] = static_cast<unsigned char>(size >> (24 - 8 * i));
    for (int i = 0; i < 4; ++i) bytes[4 + i] = static_cast<unsigned char>(type[i]);
    auto* atom = new QtAtomPreserved(parent, qtId("????"));
    unsigned long offset = atom->getFileOffset();
    QtAtomBuffer buffer(bytes.data(), static_cast<unsigned int>(bytes.size()), QtAtomBuffer::Full);
    buffer.setFileOffset(offset);
    atom->decode(buffer);
    return atom;
}

// A tree over a new file whose layer loses, on a simulated crash, what was not synced.
struct CrashableTree {
    TempFile temp;
    AutoRefPtr<FaultyFileIO> file = FaultyFileIO::open(temp.c_str(), BasicFileIO::Create);
    AutoPtr<QtAtomRoot> root{new QtAtomRoot(AutoRefPtr<BasicFileIO>(file.get()), 0)};
};

struct TopLevelAtom {
    std::string type;
    unsigned long offset;
    unsigned long size;
};

struct TopLevelScan {
    std::vector<TopLevelAtom> atoms;
    unsigned long fileLength = 0;
    bool coversFile = false;  // the headers chain exactly to the end of the file

    int count(char const* type) const {
        return static_cast<int>(std::count_if(atoms.begin(), atoms.end(), [&](auto const& atom) { return atom.type == type; }));
    }
    TopLevelAtom const* find(char const* type) const {
        auto it = std::find_if(atoms.begin(), atoms.end(), [&](auto const& atom) { return atom.type == type; });
        return it == atoms.end() ? nullptr : &*it;
    }
};

// Walks the top-level headers of a file: 32-bit size and type, a 64-bit size after them when the
// size is 1, a size of 0 meaning "to the end of the file".
inline TopLevelScan scanTopLevel(std::string const& path) {
    TopLevelScan scan;
    int fd = ::open(path.c_str(), O_RDONLY);
    if (fd < 0) return scan;
    scan.fileLength = static_cast<unsigned long>(::lseek(fd, 0, SEEK_END));
    unsigned long offset = 0;
    while (offset + 8 <= scan.fileLength) {
        unsigned char header[16];
        if (::pread(fd, header, 8, static_cast<off_t>(offset)) != 8) break;
        unsigned long size =
            (static_cast<unsigned long>(header[0]) << 24) | (header[1] << 16) | (header[2] << 8) | header[3];
        if (size == 1) {
            if (::pread(fd, header + 8, 8, static_cast<off_t>(offset + 8)) != 8) break;
            size = 0;
            for (int i = 8; i < 16; ++i) size = (size << 8) | header[i];
        } else if (size == 0) {
            size = scan.fileLength - offset;
        }
        if (size < 8) break;
        scan.atoms.push_back({std::string(reinterpret_cast<char*>(header) + 4, 4), offset, size});
        offset += size;
    }
    scan.coversFile = offset == scan.fileLength;
    ::close(fd);
    return scan;
}

// `size` bytes of the file from `offset`, fewer where the file ends.
inline Bytes readRange(std::string const& path, unsigned long offset, unsigned long size) {
    Bytes bytes = readFileBytes(path);
    if (offset >= bytes.size()) return {};
    return Bytes(bytes.begin() + offset, bytes.begin() + std::min<unsigned long>(bytes.size(), offset + size));
}
