#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "framework/Messages.h"
#include "framework/QtAtomBuffer.h"
#include "quicktime/refs/QtAliasRecord.h"
#include "tests/TestSupport.h"

namespace {


void putName(Bytes& b, char const* name, unsigned int width) {
    size_t n = strlen(name);
    b.push_back(static_cast<unsigned char>(n));
    b.insert(b.end(), name, name + n);
    b.resize(b.size() + width - 1 - n, 0);
}

// The 150 fixed bytes of a record, as another writer would lay them out.
Bytes fixedPart(unsigned int size, unsigned int from, unsigned int to, char const* volume = "Vol",
                char const* file = "clip.mov") {
    Bytes b;
    put16(b, 0x1234);
    put32(b, size);
    put16(b, 2);
    put16(b, 0);
    putName(b, volume, 32);
    put32(b, 0xABCD);
    put32(b, 7);
    putName(b, file, 80);
    put16(b, from);
    put16(b, to);
    for (unsigned int v : {1u, 2u, 3u, 4u}) put32(b, v);
    return b;
}

void putRecord(Bytes& b, int tag, std::string const& data) {
    put16(b, static_cast<unsigned int>(tag) & 0xFFFF);
    put16(b, static_cast<unsigned int>(data.size()));
    b.insert(b.end(), data.begin(), data.end());
    if (data.size() & 1) b.push_back(0);
}

Bytes encode(QtAliasRecord const& record) {
    QtAtomBuffer out(16);
    EXPECT_TRUE(record.encode(out));
    return Bytes(out.ptrData(), out.ptrData() + out.nOccupied());
}

// Decodes `bytes` and returns how many were consumed.
unsigned int decode(QtAliasRecord& record, Bytes& bytes, bool expectOk = true) {
    QtAtomBuffer in(bytes.data(), static_cast<unsigned int>(bytes.size()), QtAtomBuffer::Full);
    EXPECT_EQ(record.decode(in), expectOk);
    return in.bufferOffset();
}

std::string text(QtAliasRecord::VarInfo const* info) {
    return info ? std::string(reinterpret_cast<char const*>(info->data.get()), info->length) : "<none>";
}

std::vector<std::string> captureShow(QtAliasRecord const& record) {
    std::vector<std::string> lines;
    MessageSink old = setMessageSink([&](MsgLevel, std::string const& line) { lines.push_back(line); });
    record.show(2);
    setMessageSink(old);
    return lines;
}

}  // namespace

TEST(QtAliasRecord, PointsAtASiblingDirectoryRelativeToTheMovie) {
    QtAliasRecord record;
    ASSERT_TRUE(record.setPath("/a/b/movie.mov", "/a/c/clip.mov"));
    EXPECT_EQ(record.getFrom(), 2);
    EXPECT_EQ(record.getTo(), 2);
    EXPECT_STREQ(record.getFile(), "clip.mov");
    EXPECT_STREQ(record.getDrive(), "NONAME");
    EXPECT_EQ(text(record.find(QtAliasRecord::MarkDir)), "c");
    EXPECT_EQ(text(record.find(QtAliasRecord::MarkAbs)), "NONAME:a:c:clip.mov");
    EXPECT_EQ(record.find(QtAliasRecord::MarkDrive), nullptr);
    ASSERT_NE(record.find(QtAliasRecord::MarkEnd), nullptr);
    // dir "c" (4 + 1 + pad), abs of 19 bytes (4 + 19 + pad), end (4)
    EXPECT_EQ(record.getVariableSize(), 6u + 24u + 4u);
    EXPECT_EQ(record.getSize(), 150u + 34u);
    EXPECT_STREQ(record.getPath("/a/b/movie.mov").get(), "/a/c/clip.mov");
}

TEST(QtAliasRecord, ResolvesRelativeToAMovedMovie) {
    QtAliasRecord record;
    ASSERT_TRUE(record.setPath("/vol/proj/edit/movie.mov", "/vol/proj/media/day1/clip.mov"));
    EXPECT_EQ(record.getFrom(), 2);
    EXPECT_EQ(record.getTo(), 3);
    EXPECT_STREQ(record.getPath("/backup/2024/proj/edit/movie.mov").get(),
                 "/backup/2024/proj/media/day1/clip.mov");
    // A movie path too shallow for the stored levels falls back to the absolute path.
    EXPECT_STREQ(record.getPath("/movie.mov").get(), "/vol/proj/media/day1/clip.mov");
    EXPECT_STREQ(record.getPath(nullptr).get(), "/vol/proj/media/day1/clip.mov");
}

TEST(QtAliasRecord, TargetInTheMoviesOwnDirectoryGoesUpOneLevel) {
    QtAliasRecord record;
    ASSERT_TRUE(record.setPath("/a/b/movie.mov", "/a/b/clip.mov"));
    EXPECT_EQ(record.getFrom(), 1);
    EXPECT_EQ(record.getTo(), 1);
    EXPECT_STREQ(record.getPath("/elsewhere/movie.mov").get(), "/elsewhere/clip.mov");
    // The movie itself: both differences are 0 and count as 1.
    ASSERT_TRUE(record.setPath("/a/b/movie.mov", "/a/b/movie.mov"));
    EXPECT_EQ(record.getFrom(), 1);
    EXPECT_EQ(record.getTo(), 1);
}

TEST(QtAliasRecord, DecodesAnotherWritersRecordByteForByte) {
    Bytes bytes = fixedPart(0, 1, 1);
    putRecord(bytes, QtAliasRecord::MarkDir, "clips");  // odd: padded
    putRecord(bytes, QtAliasRecord::MarkAbs, "Vol:clips:clip.mov");
    putRecord(bytes, 14, std::string("\x00\x01\x02", 3));  // a tag this code does not know
    putRecord(bytes, QtAliasRecord::MarkEnd, "");
    bytes[2] = 0;
    bytes[3] = 0;
    bytes[4] = static_cast<unsigned char>(bytes.size() >> 8);
    bytes[5] = static_cast<unsigned char>(bytes.size());
    QtAliasRecord record;
    EXPECT_EQ(decode(record, bytes), bytes.size());
    EXPECT_STREQ(record.getDrive(), "Vol");
    EXPECT_EQ(text(record.find(static_cast<QtAliasRecord::Mark>(14))), std::string("\x00\x01\x02", 3));
    EXPECT_EQ(encode(record), bytes);
    EXPECT_STREQ(record.getPath("/x/clips/movie.mov").get(), "/x/clips/clip.mov");
}

TEST(QtAliasRecord, NeverReadsPastTheBytesThatAreThere) {
    // The size field claims far more than the buffer holds, and the last record is odd-length
    // right at the end, so its pad byte is missing.
    Bytes bytes = fixedPart(100000, 1, 1);
    putRecord(bytes, QtAliasRecord::MarkDir, "abc");
    bytes.pop_back();
    bytes.push_back(0);
    bytes.push_back(0);                           // two stray bytes: too few for another header
    Bytes exact(bytes.begin(), bytes.end() - 3);  // ends inside "abc"'s data
    QtAliasRecord record;
    EXPECT_EQ(decode(record, exact), exact.size());
    EXPECT_EQ(text(record.find(QtAliasRecord::MarkDir)), "ab");
    QtAliasRecord other;
    EXPECT_EQ(decode(other, bytes), bytes.size() - 1);  // the last stray byte cannot hold a header
}

TEST(QtAliasRecord, StopsAtTheEndRecord) {
    Bytes bytes = fixedPart(0, 1, 1);
    putRecord(bytes, QtAliasRecord::MarkEnd, "");
    putRecord(bytes, QtAliasRecord::MarkDir, "after");
    unsigned int size = static_cast<unsigned int>(bytes.size());
    bytes[4] = static_cast<unsigned char>(size >> 8);
    bytes[5] = static_cast<unsigned char>(size);
    QtAliasRecord record;
    EXPECT_EQ(decode(record, bytes), 154u);
    EXPECT_EQ(record.find(QtAliasRecord::MarkDir), nullptr);
    // The size field now describes what the record holds.
    EXPECT_EQ(record.getVariableSize(), 4u);
    EXPECT_EQ(record.getSize(), 154u);
}

TEST(QtAliasRecord, ListsFieldsAndRecords) {
    Bytes bytes = fixedPart(0, 1, 2);
    putRecord(bytes, QtAliasRecord::MarkAbs, "Vol:a:clip.mov");
    putRecord(bytes, QtAliasRecord::MarkDrive, "    D");
    putRecord(bytes, 300, "zz");
    putRecord(bytes, QtAliasRecord::MarkEnd, "");
    bytes[5] = static_cast<unsigned char>(bytes.size());
    QtAliasRecord record;
    decode(record, bytes);
    std::vector<std::string> lines = captureShow(record);
    std::vector<std::string> expected = {
        "  var1=0x1234,size=" + std::to_string(bytes.size()) + ",var2=0x2,var3=0x0,drive=Vol\n",
        "  var4=0xabcd,var5=0x7,file=clip.mov,from=1,to=2\n",
        "  var6[4]={0x1,2,3,4}\n",
        "  abs=Vol:a:clip.mov\n",
        "  drive=    D (0x20 20 20 20 44)\n",
        "  tag[300]=zz\n",
        "  end\n",
    };
    EXPECT_EQ(lines, expected);
}
