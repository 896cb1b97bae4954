// Crafted movies that lie about their sizes and counts, built from bytes: a small movie with one
// video track whose tables a test replaces, and the wide and sparse forms no real writer makes.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/TestSupport.h"
#include "tests/layout/LayoutTestSupport.h"

namespace hostile {

// An atom with a wide header giving `size` (whatever the body really is).
inline Bytes wideAtom(char const* type, uint64_t size, Bytes const& body) {
    Bytes out = words({1});
    putType(out, type);
    put32(out, static_cast<uint32_t>(size >> 32));
    put32(out, static_cast<uint32_t>(size));
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

// An atom whose 32-bit size field says `size` (whatever the body really is).
inline Bytes lyingAtom(char const* type, uint32_t size, Bytes const& body) {
    Bytes out;
    putAtomHeader(out, size, type);
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

// A table: version and flags 0, the count, then the words of its entries.
inline Bytes table(char const* type, uint32_t count, std::vector<uint32_t> const& entries) {
    return atomBytes(type, concat({words({0, count}), words(entries)}));
}

inline Bytes constantSizes(uint32_t size, uint32_t count) { return atomBytes("stsz", words({0, size, count})); }

// A video description of 86 bytes followed by `extensions`.
inline Bytes videoDescriptions(Bytes const& extensions) {
    Bytes entry = words({static_cast<uint32_t>(86 + extensions.size())});
    putType(entry, "avc1");
    Bytes fields(78, 0);
    fields[7] = 1;                       // data reference index
    fields[32 - 8] = 0x02;               // width 640
    fields[33 - 8] = 0x80;
    fields[34 - 8] = 0x01;               // height 480
    fields[35 - 8] = 0xE0;
    fields[75] = 24;                     // depth
    fields[76] = fields[77] = 0xFF;      // no colour table
    entry.insert(entry.end(), fields.begin(), fields.end());
    entry.insert(entry.end(), extensions.begin(), extensions.end());
    return atomBytes("stsd", concat({words({0, 1}), entry}));
}

struct Track {
    Bytes stts = table("stts", 1, {4, 1});
    Bytes stsc = table("stsc", 1, {1, 4, 1});
    Bytes stsz = constantSizes(16, 4);
    Bytes stco = table("stco", 1, {28});
    Bytes stsd = table("stsd", 0, {});
    Bytes more;  // further tables, after stco (so that a table that runs past the file can be last)
    bool trackHeader = true;
    bool editList = true;
};

// ftyp, an 'mdat' of `media` bytes at offset 20 (its body at 28), then the movie.
inline Bytes movie(Track const& track, unsigned int media = 64) {
    Bytes stbl = atomBytes("stbl", concat({track.stsd, track.stts, track.stsc, track.stsz, track.stco, track.more}));
    Bytes mdhd = atomBytes("mdhd", words({0, 0, 0, 600, 4, 0}));
    Bytes hdlr = atomBytes("hdlr", concat({words({0}), Bytes{'m', 'h', 'l', 'r', 'v', 'i', 'd', 'e'}, words({0, 0, 0}),
                                          Bytes{0}}));
    Bytes mdia = atomBytes("mdia", concat({mdhd, hdlr, atomBytes("minf", stbl)}));
    Bytes trak = mdia;
    if (track.editList) trak = concat({atomBytes("edts", table("elst", 1, {4, 0, 0x10000})), trak});
    if (track.trackHeader) trak = concat({atomBytes("tkhd", filled(84, 0)), trak});
    Bytes moov = atomBytes("moov", concat({atomBytes("mvhd", filled(100, 0)), atomBytes("trak", trak)}));
    return concat({atomBytes("ftyp", Bytes{'q', 't', ' ', ' ', 0, 0, 0, 0, 'q', 't', ' ', ' '}),
                   atomBytes("mdat", filled(media, 0x5A)), moov});
}

inline Bytes fileType() { return atomBytes("ftyp", Bytes{'q', 't', ' ', ' ', 0, 0, 0, 0, 'q', 't', ' ', ' '}); }

// A file of `bytes` followed by a hole up to `length` bytes (sparse: nothing is written there).
inline void writeSparse(std::string const& path, Bytes const& bytes, unsigned long length) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) return;
    if (::write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) length = bytes.size();
    if (::ftruncate(fd, static_cast<off_t>(length)) != 0) length = 0;
    ::close(fd);
}

}  // namespace hostile
