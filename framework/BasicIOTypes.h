// The types that pass between the file layer and its clients: a request to write a region of the
// file durably in the background (FlushReq), the notice that such a write has finished
// (FlushNotify), and the kinds of bytes a client keeps cached in memory (CacheBytesType).
#pragma once

#include <vector>

class BridgeAnchor;

namespace BasicIOTypes {

// The notice a flush request gets back when its bytes are on disk (or could not be put there). It
// is delivered on the file's flush thread through the request's anchor, whose owner's member takes
// `const BasicIOTypes::FlushNotify&`.
struct FlushNotify {
    void* element = nullptr;   // the request's element, handed back as it was given
    unsigned long offset = 0;  // where the bytes were written
    unsigned long size = 0;    // how many bytes
    bool ok = false;           // true only when every byte was written and then fdatasync()ed
};

// One region of a scattered request: the next `size` bytes of the request's bytes, written at
// `offset`.
struct FlushSpan {
    unsigned long offset = 0;
    unsigned long size = 0;
};

// A request to write `bytes` at `offset` and make them durable. The request owns its bytes, so the
// client may change its own copy while the write is outstanding. `element` is opaque to the file
// layer: it names the request in the notice (the root passes its record of the pending flush).
// A scattered request lists `spans`: `bytes` is then their concatenation, each written at its own
// offset, all before the one fdatasync (which also makes durable whatever the client wrote itself
// before it asked). The region announced as reserved and named in the notice is `extent` bytes from
// `offset` (0: the size of `bytes`); it should cover the spans.
struct FlushReq {
    BridgeAnchor const* anchor = nullptr;  // receives the FlushNotify; may be null for no notice
    void* element = nullptr;
    unsigned long offset = 0;
    std::vector<unsigned char> bytes;
    std::vector<FlushSpan> spans;
    unsigned long extent = 0;

    unsigned long regionSize() const { return extent ? extent : bytes.size(); }
};

// The kinds of bytes that a client of a file keeps in memory, accounted separately in the file's
// cache budget: the essence (sample data) and the sample tables.
enum CacheBytesType : unsigned int {
    CacheEssence = 0,
    CacheTable = 1,
};
constexpr unsigned int kCacheBytesTypes = 2;

}  // namespace BasicIOTypes
