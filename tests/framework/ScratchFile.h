// ScratchFile: a uniquely named file in the test's temporary directory, removed when the object goes
// away, with helpers to set and read its whole contents through plain POSIX calls (independent of
// the file layer under test).
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <vector>

class ScratchFile {
  public:
    explicit ScratchFile(char const* stem = "scratch") {
        static std::atomic<unsigned int> serial{0};
        m_path = ::testing::TempDir() + stem + "-" + std::to_string(getpid()) + "-" +
                 std::to_string(serial++) + ".mov";
        ::unlink(m_path.c_str());
    }
    ~ScratchFile() { ::unlink(m_path.c_str()); }
    ScratchFile(ScratchFile const&) = delete;
    ScratchFile& operator=(ScratchFile const&) = delete;

    char const* path() const { return m_path.c_str(); }

    void write(std::vector<unsigned char> const& bytes) const {
        int fd = ::open(m_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        ::close(fd);
    }
    std::vector<unsigned char> read() const {
        std::vector<unsigned char> bytes;
        int fd = ::open(m_path.c_str(), O_RDONLY);
        if (fd < 0) return bytes;
        unsigned char chunk[4096];
        ssize_t got;
        while ((got = ::read(fd, chunk, sizeof chunk)) > 0) bytes.insert(bytes.end(), chunk, chunk + got);
        ::close(fd);
        return bytes;
    }

  private:
    std::string m_path;
};
