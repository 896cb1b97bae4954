// Builds a one-track movie around an 'stsd' from bytes and reads it with the library's reader, so
// that the table finds its handlers (and so its entry classes) exactly as in a real file.
#pragma once

#include <cstring>
#include <string>

#include "quicktime/quicktime.h"
#include "tests/TestSupport.h"
#include "tests/descriptions/QtxTestBytes.h"

// A handler reference with the given component type and subtype and no name.
inline Bytes handlerBytes(char const* type, char const* subtype) {
    Bytes body;
    put32(body, 0);
    putType(body, type);
    putType(body, subtype);
    putBytes(body, zeros(12));
    put8(body, 0);
    return atomBytes("hdlr", body);
}

// An 'stsd' whose count field says `count` around the given entry bytes.
inline Bytes stsdBytes(unsigned int count, Bytes const& entries) {
    Bytes body;
    put32(body, 0);
    put32(body, count);
    putBytes(body, entries);
    return atomBytes("stsd", body);
}

// The common 16-byte entry header.
inline Bytes entryHeader(unsigned int size, char const* format, unsigned int dataRefIndex = 1) {
    Bytes out;
    put32(out, size);
    putType(out, format);
    putBytes(out, zeros(6));
    put16(out, dataRefIndex);
    return out;
}

// A video entry: the 86 fixed bytes (width x height, colour table id) followed by `rest`.
inline Bytes videoEntry(char const* format, unsigned int width, unsigned int height, Bytes const& rest = {},
                        unsigned int colorTableId = 0xFFFF, char const* compressor = "test") {
    Bytes fields;
    put16(fields, 0);
    put16(fields, 0);
    putType(fields, "FFMP");
    put32(fields, 0);
    put32(fields, 512);
    put16(fields, width);
    put16(fields, height);
    put32(fields, 72 << 16);
    put32(fields, 72 << 16);
    put32(fields, 0);
    put16(fields, 1);
    Bytes name(32, 0);
    name[0] = static_cast<unsigned char>(strlen(compressor));
    memcpy(name.data() + 1, compressor, name[0]);
    putBytes(fields, name);
    put16(fields, 24);
    put16(fields, colorTableId);
    putBytes(fields, rest);
    Bytes entry = entryHeader(static_cast<unsigned int>(16 + fields.size()), format);
    putBytes(entry, fields);
    return entry;
}

// A one-track movie: moov.trak.mdia with the media handler, and minf with the data handler,
// optionally more bytes in minf (a 'dinf'), and stbl holding the 'stsd'.
inline Bytes trackMovie(Bytes const& mediaHandler, Bytes const& stsd, Bytes const& minfExtra = {}) {
    Bytes minf = handlerBytes("dhlr", "alis");
    putBytes(minf, minfExtra);
    putBytes(minf, atomBytes("stbl", stsd));
    Bytes mdia = mediaHandler;
    putBytes(mdia, atomBytes("minf", minf));
    return atomBytes("moov", atomBytes("trak", atomBytes("mdia", mdia)));
}

struct ReadTrack {
    TempFile file;
    AutoPtr<QtAtomRoot> root;
    QtAtomSampleDesc const* stsd = nullptr;

    explicit ReadTrack(Bytes const& movie) {
        file.write(movie);
        root = QtAtomReader::readFile(file.c_str());
        if (root)
            stsd = dynamic_cast<QtAtomSampleDesc const*>(root->findAtom("moov.trak.mdia.minf.stbl.stsd", 0));
    }
};
