// Helpers shared by the tests: capturing the library's messages, temporary files, reading the
// small real movies kept in tests/data, and building atoms from bytes.
#pragma once

// Built with AddressSanitizer: memory and time carry the sanitizer's own bookkeeping.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
constexpr bool kSanitized = __has_feature(address_sanitizer);
#else
constexpr bool kSanitized = false;
#endif

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "framework/DebuggerOn.h"
#include "framework/Messages.h"
#include "framework/QtAtomBuffer.h"
#include "quicktime/atoms/BaseQtAtom.h"

// Collects every message issued while it lives, with its level.
class MessageCapture {
public:
    MessageCapture() {
        m_previous = setMessageSink([this](MsgLevel level, std::string const& text) {
            m_messages.push_back({level, text});
        });
    }
    ~MessageCapture() { setMessageSink(std::move(m_previous)); }

    struct Message {
        MsgLevel level;
        std::string text;
    };
    std::vector<Message> const& messages() const { return m_messages; }
    size_t count(MsgLevel level) const {
        return std::count_if(m_messages.begin(), m_messages.end(),
                             [&](Message const& m) { return m.level == level; });
    }
    bool contains(std::string const& part) const {
        return std::any_of(m_messages.begin(), m_messages.end(),
                           [&](Message const& m) { return m.text.find(part) != std::string::npos; });
    }
    std::string all() const {
        std::string text;
        for (auto const& m : m_messages) text += m.text;
        return text;
    }
    void clear() { m_messages.clear(); }

private:
    MessageSink m_previous;
    std::vector<Message> m_messages;
};

// Sets a debug flag for the lifetime of the object.
class ScopedDebugFlag {
public:
    ScopedDebugFlag(char const* table, char const* flag) : m_table(table), m_flag(flag) {
        DebuggerOn::set(table, flag, true);
    }
    ~ScopedDebugFlag() { DebuggerOn::set(m_table, m_flag, false); }

private:
    char const* m_table;
    char const* m_flag;
};

// A file in a fresh temporary directory, removed with the object.
class TempFile {
public:
    explicit TempFile(std::string const& name = "movie.mov") {
        char pattern[] = "/tmp/qttest.XXXXXX";
        char* dir = mkdtemp(pattern);
        m_dir = dir ? dir : "/tmp";
        m_path = m_dir + "/" + name;
    }
    ~TempFile() {
        std::remove(m_path.c_str());
        rmdir(m_dir.c_str());
    }
    std::string const& path() const { return m_path; }
    char const* c_str() const { return m_path.c_str(); }
    void write(std::vector<unsigned char> const& bytes) const {
        std::ofstream out(m_path, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<char const*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }

private:
    std::string m_dir;
    std::string m_path;
};

inline std::string testDataPath(std::string const& name) { return std::string(QT_TEST_DATA_DIR) + "/" + name; }

inline std::vector<unsigned char> readFileBytes(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

inline std::string readFileText(std::string const& path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The movies of tests/data (real files written by ffmpeg, with their expectations beside them).
inline std::vector<std::string> corpusMovies() {
    return {"co64.mov",        "dnxhd_avid.mov",           "dnxhr_adhr.mov",  "h264_bframes_aac_tc.mov",
            "h264_faststart.mov", "h264_negcts.mov",       "h264_negcts_cslg_alis.mov", "hevc_sdtp.mov",
            "long_gop_many.mov", "mjpeg_pcm24le_dftc.mov", "mpeg2_twos.mov",  "uyvy_clap_lpcm.mov"};
}

// The one builder of atom bytes: big-endian fields, atoms around a body, and the decode and encode
// of one atom object against byte literals.
using Bytes = std::vector<unsigned char>;

inline void put8(Bytes& out, unsigned int v) { out.push_back(static_cast<unsigned char>(v)); }
inline void putBigEndian(Bytes& out, uint64_t v, int bytes) {
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) put8(out, static_cast<unsigned int>(v >> shift));
}
inline void put16(Bytes& out, unsigned int v) { putBigEndian(out, v, 2); }
inline void put32(Bytes& out, uint32_t v) { putBigEndian(out, v, 4); }
inline void put64(Bytes& out, uint64_t v) { putBigEndian(out, v, 8); }
inline void putType(Bytes& out, char const* type) { out.insert(out.end(), type, type + 4); }
inline void putBytes(Bytes& out, Bytes const& more) { out.insert(out.end(), more.begin(), more.end()); }
inline void putText(Bytes& out, std::string const& text) { out.insert(out.end(), text.begin(), text.end()); }
inline void putAtomHeader(Bytes& out, uint32_t size, char const* type) {
    put32(out, size);
    putType(out, type);
}

inline Bytes zeros(size_t n) { return Bytes(n, 0); }
inline Bytes filled(size_t n, unsigned char fill) { return Bytes(n, fill); }
inline Bytes words(std::vector<uint32_t> const& values) {
    Bytes out;
    for (uint32_t v : values) put32(out, v);
    return out;
}
inline Bytes concat(std::vector<Bytes> const& parts) {
    Bytes all;
    for (Bytes const& part : parts) putBytes(all, part);
    return all;
}

// An atom of `type` around `body`, its size counting the 8 header bytes.
inline Bytes atomBytes(char const* type, Bytes const& body) {
    Bytes out;
    putAtomHeader(out, static_cast<uint32_t>(8 + body.size()), type);
    putBytes(out, body);
    return out;
}

// A full atom: version and flags 0, the 32-bit words, then `extraZeroBytes` zeros.
inline Bytes fullAtom(char const* type, std::vector<uint32_t> const& body, unsigned int extraZeroBytes = 0) {
    Bytes all = words({0});
    putBytes(all, words(body));
    all.resize(all.size() + extraZeroBytes, 0);
    return atomBytes(type, all);
}

// Decodes `atom` from `bytes` (all of them occupied); returns what decode() returned and leaves in
// `consumed` how many bytes it took.
inline bool decodeFrom(BaseQtAtom& atom, Bytes bytes, unsigned int* consumed = nullptr) {
    QtAtomBuffer buffer(bytes.data(), static_cast<unsigned int>(bytes.size()), QtAtomBuffer::Full);
    bool ok = atom.decode(buffer);
    if (consumed) *consumed = buffer.bufferOffset();
    return ok;
}

// What the atom writes, in a buffer far larger than any atom, so a test sees every byte it writes.
inline Bytes encodeToBytes(BaseQtAtom const& atom) {
    Bytes storage(1 << 16, 0xEE);
    QtAtomBuffer buffer(storage.data(), static_cast<unsigned int>(storage.size()), QtAtomBuffer::Empty);
    atom.encode(buffer);
    return Bytes(storage.begin(), storage.begin() + buffer.nOccupied());
}

// What the atom writes into a buffer of exactly the size a writer would give it.
inline Bytes encodedAtom(BaseQtAtom const& atom) {
    QtAtomBuffer out(atom.getEncodeSize());
    atom.encode(out);
    return Bytes(out.ptrData(), out.ptrEnd());
}
