// Helpers shared by the tests: capturing the library's messages, temporary files, reading the
// small real movies kept in tests/data.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "framework/DebuggerOn.h"
#include "framework/Messages.h"

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
        size_t n = 0;
        for (auto const& m : m_messages) n += m.level == level;
        return n;
    }
    bool contains(std::string const& part) const {
        for (auto const& m : m_messages)
            if (m.text.find(part) != std::string::npos) return true;
        return false;
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
        m_ok = DebuggerOn::set(table, flag, true);
    }
    ~ScopedDebugFlag() { DebuggerOn::set(m_table, m_flag, false); }
    bool ok() const { return m_ok; }

private:
    char const* m_table;
    char const* m_flag;
    bool m_ok;
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
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The movies of tests/data (real files written by ffmpeg, with their expectations beside them).
inline std::vector<std::string> corpusMovies() {
    return {"co64.mov",        "dnxhd_avid.mov",           "dnxhr_adhr.mov",  "h264_bframes_aac_tc.mov",
            "h264_faststart.mov", "h264_negcts.mov",       "h264_negcts_cslg_alis.mov", "hevc_sdtp.mov",
            "long_gop_many.mov", "mjpeg_pcm24le_dftc.mov", "mpeg2_twos.mov",  "uyvy_clap_lpcm.mov"};
}

// Big-endian byte builders for crafted atoms.
inline void putUint32(std::vector<unsigned char>& out, uint32_t v) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<unsigned char>(v >> shift));
}
inline void putType(std::vector<unsigned char>& out, char const* type) { out.insert(out.end(), type, type + 4); }
inline void putAtomHeader(std::vector<unsigned char>& out, uint32_t size, char const* type) {
    putUint32(out, size);
    putType(out, type);
}
