// Makes the starting inputs of the fuzz targets from real movies: each movie with its media data
// cut to 256 bytes (for fuzz_movie), the 'stbl' body of each track (fuzz_tables), the handler and
// 'stsd' body of each track (fuzz_descriptions), and each alias record with two paths in front
// (fuzz_alias; the movies hold none with a record, so records are also made for a few paths).
//   make_seeds OUTDIR MOVIE...   writes OUTDIR/{movie,tables,descriptions,alias}/
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "framework/QtAtomBuffer.h"
#include "quicktime/refs/QtAliasRecord.h"

namespace {

using Bytes = std::vector<unsigned char>;

struct Atom {
    std::string type;
    size_t offset;  // of the header
    size_t header;
    size_t size;
};

uint32_t be32(Bytes const& b, size_t at) {
    return uint32_t(b[at]) << 24 | uint32_t(b[at + 1]) << 16 | uint32_t(b[at + 2]) << 8 | b[at + 3];
}

// The atoms between `from` and `to`; stops at the first header that does not fit.
std::vector<Atom> atomsIn(Bytes const& b, size_t from, size_t to) {
    std::vector<Atom> atoms;
    while (from + 8 <= to) {
        size_t size = be32(b, from), header = 8;
        if (size == 1 && from + 16 <= to) {
            size = size_t(be32(b, from + 8)) << 32 | be32(b, from + 12);
            header = 16;
        }
        if (size == 0) size = to - from;
        if (size < header || size > to - from) break;
        atoms.push_back({std::string(b.begin() + from + 4, b.begin() + from + 8), from, header, size});
        from += size;
    }
    return atoms;
}

Bytes bodyOf(Bytes const& b, Atom const& a) { return Bytes(b.begin() + a.offset + a.header, b.begin() + a.offset + a.size); }

void save(std::string const& path, Bytes const& bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<char const*>(bytes.data()), long(bytes.size()));
}

bool isContainer(std::string const& type) {
    for (char const* c : {"moov", "trak", "mdia", "minf", "stbl", "dinf", "edts", "udta"})
        if (type == c) return true;
    return false;
}

// Walks the containers below [from, to), calling `visit` for every atom met.
template <class Visit>
void walk(Bytes const& b, size_t from, size_t to, Visit const& visit) {
    for (Atom const& a : atomsIn(b, from, to)) {
        visit(a);
        if (isContainer(a.type)) walk(b, a.offset + a.header, a.offset + a.size, visit);
        if (a.type == "dref") walk(b, a.offset + a.header + 8, a.offset + a.size, visit);
    }
}

// The two paths fuzz_alias reads first: a backslash doubled, each path ended by a backslash and
// another character.
Bytes pathsFor(std::string const& movie, std::string const& target) {
    std::string text;
    for (std::string const& path : {movie, target}) {
        for (char c : path) text += c == '\\' ? std::string("\\\\") : std::string(1, c);
        text += "\\;";
    }
    return Bytes(text.begin(), text.end());
}

void saveMadeRecords(std::string const& dir) {
    char const* pairs[][2] = {{"/Users/editor/Movies/cut.mov", "/Users/editor/Media/clip 01.mov"},
                              {"/Volumes/Media/show/edit.mov", "/Volumes/Archive/show/a/b/take.mov"},
                              {"C:\\Projects\\edit.mov", "D:\\Media\\take.mov"},
                              {"movie.mov", "../media/sound.wav"}};
    int n = 0;
    for (auto const& pair : pairs) {
        QtAliasRecord record;
        if (!record.setPath(pair[0], pair[1])) continue;
        Bytes bytes(150 + record.getVariableSize());
        QtAtomBuffer buffer(bytes.data(), static_cast<unsigned int>(bytes.size()), QtAtomBuffer::Empty);
        if (!record.encode(buffer)) continue;
        Bytes seed = pathsFor(pair[0], pair[1]);
        seed.insert(seed.end(), bytes.begin(), bytes.begin() + buffer.nOccupied());
        save(dir + "/made." + std::to_string(++n), seed);
    }
}

unsigned char handlerIndex(std::string const& subtype) {
    char const* handlers[] = {"vide", "soun", "tmcd", "text", "sbtl", "m2v ", "hint", "meta"};
    for (unsigned char i = 0; i < 8; ++i)
        if (subtype == handlers[i]) return i;
    return 7;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: make_seeds OUTDIR MOVIE...\n");
        return 2;
    }
    std::string out = argv[1];
    for (char const* dir : {"", "/movie", "/tables", "/descriptions", "/alias"}) mkdir((out + dir).c_str(), 0755);
    int made = 0;
    for (int i = 2; i < argc; ++i) {
        std::ifstream in(argv[i], std::ios::binary);
        Bytes b((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::string name = std::to_string(i - 1);
        Bytes cut;
        for (Atom const& a : atomsIn(b, 0, b.size())) {
            Bytes whole(b.begin() + a.offset, b.begin() + a.offset + a.size);
            if (a.type == "mdat" && a.size > a.header + 256) {
                whole.assign(b.begin() + a.offset, b.begin() + a.offset + a.header + 256);
                size_t size = a.header + 256;
                for (int k = 0; k < 4; ++k) whole[(a.header == 16 ? 12 : 0) + k] = (unsigned char)(size >> (24 - 8 * k));
            }
            cut.insert(cut.end(), whole.begin(), whole.end());
        }
        save(out + "/movie/" + name, cut);
        std::string subtype;
        int track = 0;
        walk(b, 0, b.size(), [&](Atom const& a) {
            if (a.type == "trak") subtype.clear();
            // The media handler comes first; the data handler of 'minf' says nothing of the media.
            if (a.type == "hdlr" && a.size >= a.header + 16 && subtype.empty())
                subtype = std::string(b.begin() + a.offset + a.header + 8, b.begin() + a.offset + a.header + 12);
            if (a.type == "stbl") save(out + "/tables/" + name + "." + std::to_string(++track), bodyOf(b, a));
            if (a.type == "stsd" && a.size > a.header + 4) {
                Bytes seed{handlerIndex(subtype)};
                seed.insert(seed.end(), b.begin() + a.offset + a.header + 4, b.begin() + a.offset + a.size);
                save(out + "/descriptions/" + name + "." + std::to_string(track), seed);
            }
            if (a.type == "alis" && a.size > a.header + 4) {
                Bytes seed = pathsFor("/Users/editor/Movies/cut.mov", "../Media/clip 01.mov");
                seed.insert(seed.end(), b.begin() + a.offset + a.header + 4, b.begin() + a.offset + a.size);
                save(out + "/alias/" + name + "." + std::to_string(++made), seed);
            }
        });
    }
    saveMadeRecords(out + "/alias");
    printf("seeds for %d movies in %s\n", argc - 2, out.c_str());
    return 0;
}
