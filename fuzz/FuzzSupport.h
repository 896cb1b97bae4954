// What the fuzz targets share: silencing the library's messages and the commands' output, writing
// an input to a temporary file, and reading that file back as a movie: printing and copying it, and
// walking every track's samples in order and at random.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "quicktime/quicktime.h"
#include "quicktime/tables/QtTrackSamples.h"

namespace fuzz {

using Bytes = std::vector<unsigned char>;

// Messages and command output cost time and tell the fuzzer nothing; crash reports go to stderr,
// which stays open.
inline void quiet() {
    setMessageSink([](MsgLevel, std::string const&) {});
    if (!freopen("/dev/null", "w", stdout)) abort();
}

// A file holding the input for as long as the object lives.
class TempInput {
public:
    TempInput(uint8_t const* data, size_t size) {
        char path[] = "/tmp/qtfuzz.XXXXXX";
        int fd = mkstemp(path);
        if (fd < 0) abort();
        if (size && write(fd, data, size) != static_cast<ssize_t>(size)) abort();
        close(fd);
        m_path = path;
    }
    explicit TempInput(std::vector<unsigned char> const& bytes) : TempInput(bytes.data(), bytes.size()) {}
    ~TempInput() { unlink(m_path.c_str()); }
    std::string const& path() const { return m_path; }

private:
    std::string m_path;
};

inline void putUint32(Bytes& out, uint32_t v) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<unsigned char>(v >> shift));
}

inline Bytes atom(char const* type, Bytes const& body) {
    Bytes out;
    putUint32(out, static_cast<uint32_t>(8 + body.size()));
    out.insert(out.end(), type, type + 4);
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

inline Bytes join(std::vector<Bytes> const& parts) {
    Bytes all;
    for (Bytes const& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

// A movie of one track of handler `handler` whose 'stbl' holds `tables` as they are, after an
// 'mdat' of 4 KiB of patterned media bytes (starting at file offset 28); `information` goes before
// the 'stbl' in the 'minf'.
inline Bytes movieWithTables(Bytes const& tables, char const* handler, Bytes const& information = {}) {
    Bytes media(4096);
    for (size_t i = 0; i < media.size(); ++i) media[i] = static_cast<unsigned char>(i * 7);
    Bytes mdhd = atom("mdhd", Bytes(24, 0));
    mdhd[8 + 15] = 25;  // time scale 25
    Bytes hdlr = atom("hdlr", join({Bytes(4, 0), Bytes{'m', 'h', 'l', 'r'}, Bytes(handler, handler + 4),
                                    Bytes(13, 0)}));
    Bytes minf = atom("minf", join({information, atom("stbl", tables)}));
    Bytes trak = join({atom("tkhd", Bytes(84, 0)), atom("mdia", join({mdhd, hdlr, minf}))});
    Bytes ftyp = atom("ftyp", Bytes{'q', 't', ' ', ' ', 0, 0, 0, 0, 'q', 't', ' ', ' '});
    return join({ftyp, atom("mdat", media), atom("moov", join({atom("mvhd", Bytes(100, 0)), atom("trak", trak)}))});
}

// Reads the file as a movie and asks every track for its samples: an in-order walk and lookups of
// single samples at places taken from `seed`.
inline void walkSamples(std::string const& path, uint8_t const* seed, size_t seedSize) {
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(path.c_str());
    if (!root) return;
    unsigned int tracks = QtTrackSamples::countTracks(*root);
    for (unsigned int t = 1; t <= tracks && t <= 8; ++t) {
        QtTrackSamples track(QtTrackSamples::findTrackMedia(*root, t));
        (void)track.getSampleTable().whyNoSamples();
        QtSampleInfo info;
        QtTrackSamples::Iterator it(track, 0);
        // Overlapping chunks can list more samples than the file has bytes; a bounded walk still
        // reaches every kind of table entry.
        for (unsigned int n = 0; n < 65536 && it.next(info); ++n) {
        }
        unsigned long count = track.getNumSamples();
        for (size_t i = 0; i + 4 <= seedSize && i < 128; i += 4) {
            unsigned long at = static_cast<unsigned long>(seed[i]) << 24 | static_cast<unsigned long>(seed[i + 1]) << 16 |
                               static_cast<unsigned long>(seed[i + 2]) << 8 | seed[i + 3];
            track.getSample(count ? at % (count + 2) : at, info);
        }
    }
}

// Prints the tree as dump does and writes a copy of the file.
inline void printAndCopy(std::string const& path) {
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(path.c_str());
    if (!root) return;
    root->depthFirst(BaseQtAtom::MethodCall(&BaseQtAtom::show));
    std::string copy = path + ".copy";
    AutoRefPtr<BasicFileIO> out = BasicFileIO::open(copy.c_str(), BasicFileIO::Create);
    if (out) QtAtomWriter::copyTree(*root, *out);
    unlink(copy.c_str());
}

}  // namespace fuzz
