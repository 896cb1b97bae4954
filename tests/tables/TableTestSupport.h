// Test support for the sample tables: table atoms built from bytes, wrapped in a movie
// (moov.trak.mdia.minf.stbl) written to a real temporary file and read back through the reader,
// so that tables of more than 16 entries are disk-backed on that file as in any real movie.
#pragma once

#include <string>
#include <vector>

#include "../TestSupport.h"
#include "framework/VirtualArrayBase.h"
#include "quicktime/atoms/QtAtomReader.h"
#include "quicktime/layout/QtAtomRoot.h"

inline void putUint64(std::vector<unsigned char>& out, uint64_t v) {
    putUint32(out, static_cast<uint32_t>(v >> 32));
    putUint32(out, static_cast<uint32_t>(v));
}

// A full atom: header, version and flags 0, the head fields, then the entries (4 or 8 bytes each).
inline std::vector<unsigned char> tableAtom(char const* type, std::vector<uint32_t> const& head,
                                            std::vector<uint64_t> const& entries, unsigned int entryBytes) {
    std::vector<unsigned char> out;
    putAtomHeader(out, static_cast<uint32_t>(12 + 4 * head.size() + entryBytes * entries.size()), type);
    putUint32(out, 0);
    for (uint32_t field : head) putUint32(out, field);
    for (uint64_t entry : entries) {
        if (entryBytes == 8)
            putUint64(out, entry);
        else
            putUint32(out, static_cast<uint32_t>(entry));
    }
    return out;
}

inline std::vector<unsigned char> containerAtom(char const* type, std::vector<unsigned char> const& body) {
    std::vector<unsigned char> out;
    putAtomHeader(out, static_cast<uint32_t>(8 + body.size()), type);
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

// A movie whose only track's sample table holds the given atoms, in order.
inline std::vector<unsigned char> movieWithTables(std::vector<std::vector<unsigned char>> const& tables) {
    std::vector<unsigned char> stbl;
    for (auto const& table : tables) stbl.insert(stbl.end(), table.begin(), table.end());
    return containerAtom(
        "moov", containerAtom("trak", containerAtom("mdia", containerAtom("minf", containerAtom("stbl", stbl)))));
}

// A movie file read back through the reader; `table<T>(type)` finds a table of its sample table.
class MovieOnDisk {
public:
    explicit MovieOnDisk(std::vector<unsigned char> const& bytes, BasicFileIO::Mode mode = BasicFileIO::ReadWrite) {
        m_file.write(bytes);
        m_root = QtAtomReader::readFile(m_file.c_str(), mode);
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
