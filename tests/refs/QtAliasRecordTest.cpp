#include <gtest/gtest.h>

#include <cstring>
#include <string>

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
Bytes fixedPart(unsigned int size, unsigned int from, unsigned int to) {
    Bytes b;
    put16(b, 0x1234);
    putBytes(b, words({size, 0x00020000}));
    putName(b, "Vol", 32);
    putBytes(b, words({0xABCD, 7}));
    putName(b, "clip.mov", 80);
    putBytes(b, words({from << 16 | to, 1, 2, 3, 4}));
    return b;
}

void putRecord(Bytes& b, int tag, std::string const& data) {
    put16(b, static_cast<unsigned int>(tag) & 0xFFFF);
    put16(b, static_cast<unsigned int>(data.size()));
    b.insert(b.end(), data.begin(), data.end());
    if (data.size() & 1) b.push_back(0);
}

// Sets the record's size field to the bytes there are.
Bytes sized(Bytes b) {
    b[2] = b[3] = 0;
    b[4] = static_cast<unsigned char>(b.size() >> 8);
    b[5] = static_cast<unsigned char>(b.size());
    return b;
}

Bytes encode(QtAliasRecord const& record) {
    QtAtomBuffer out(16);
    EXPECT_TRUE(record.encode(out));
    return Bytes(out.ptrData(), out.ptrData() + out.nOccupied());
}

// Decodes `bytes` and returns how many were consumed.
unsigned int decode(QtAliasRecord& record, Bytes& bytes) {
    QtAtomBuffer in(bytes.data(), static_cast<unsigned int>(bytes.size()), QtAtomBuffer::Full);
    EXPECT_TRUE(record.decode(in));
    return in.bufferOffset();
}

std::string text(QtAliasRecord::VarInfo const* info) {
    return info ? std::string(reinterpret_cast<char const*>(info->data.get()), info->length) : "<none>";
}

}  // namespace

TEST(QtAliasRecord, PointsAtASiblingDirectoryRelativeToTheMovie) {
    QtAliasRecord record;
    ASSERT_TRUE(record.setPath("/a/b/movie.mov", "/a/c/clip.mov"));
    EXPECT_STREQ(record.getFile(), "clip.mov");
    EXPECT_STREQ(record.getDrive(), "NONAME");
    EXPECT_EQ(text(record.find(QtAliasRecord::MarkDir)), "c");
    EXPECT_EQ(text(record.find(QtAliasRecord::MarkAbs)), "NONAME:a:c:clip.mov");
    EXPECT_EQ(record.find(QtAliasRecord::MarkDrive), nullptr);
    ASSERT_NE(record.find(QtAliasRecord::MarkEnd), nullptr);
    // dir "c" (4 + 1 + pad), abs of 19 bytes (4 + 19 + pad), end (4)
    EXPECT_EQ(record.getVariableSize(), 6u + 24u + 4u);
    EXPECT_EQ(record.getSize(), 150u + 34u);

    // A path too long for a record is refused and the record kept.
    MessageCapture messages;
    EXPECT_FALSE(record.setPath("/a/b/movie.mov", ("/a/" + std::string(40000, 'x')).c_str()));
    EXPECT_EQ(text(record.find(QtAliasRecord::MarkAbs)), "NONAME:a:c:clip.mov");
}

TEST(QtAliasRecord, CountsTheLevelsUpFromTheMovieAndDownToTheTargetAndResolvesFromAMovedMovie) {
    struct Case {
        char const *movie, *target;
        int from, to;
        char const *movedMovie, *resolved;
    } const cases[] = {
        {"/a/b/movie.mov", "/a/c/clip.mov", 2, 2, "/a/b/movie.mov", "/a/c/clip.mov"},
        {"/a/b/movie.mov", "/a/b/clip.mov", 1, 1, "/elsewhere/movie.mov", "/elsewhere/clip.mov"},
        {"/a/b/movie.mov", "/a/b/movie.mov", 1, 1, nullptr, "/a/b/movie.mov"},  // both 0, counted as 1
        {"/v/p/edit/movie.mov", "/v/p/media/day1/clip.mov", 2, 3, "/bk/2024/p/edit/movie.mov",
         "/bk/2024/p/media/day1/clip.mov"},
        // A movie path too shallow for the stored levels, or none: the absolute path.
        {"/v/p/edit/movie.mov", "/v/p/media/day1/clip.mov", 2, 3, "/movie.mov", "/v/p/media/day1/clip.mov"},
        {"/v/p/edit/movie.mov", "/v/p/media/day1/clip.mov", 2, 3, nullptr, "/v/p/media/day1/clip.mov"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.target) + " from " + c.movie);
        QtAliasRecord record;
        ASSERT_TRUE(record.setPath(c.movie, c.target));
        EXPECT_EQ(record.getFrom(), c.from);
        EXPECT_EQ(record.getTo(), c.to);
        EXPECT_STREQ(record.getPath(c.movedMovie).get(), c.resolved);
    }
}

TEST(QtAliasRecord, DecodesAnotherWritersRecordByteForByte) {
    Bytes bytes = fixedPart(0, 1, 1);
    putRecord(bytes, QtAliasRecord::MarkDir, "clips");  // odd: padded
    putRecord(bytes, QtAliasRecord::MarkAbs, "Vol:clips:clip.mov");
    putRecord(bytes, 14, std::string("\x00\x01\x02", 3));  // a tag this code does not know
    putRecord(bytes, QtAliasRecord::MarkEnd, "");
    bytes = sized(bytes);
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
    bytes = sized(bytes);
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
    bytes = sized(bytes);
    QtAliasRecord record;
    decode(record, bytes);
    MessageCapture lines;
    record.show(2);
    EXPECT_EQ(lines.all(), "  var1=0x1234,size=" + std::to_string(bytes.size()) +
                               ",var2=0x2,var3=0x0,drive=Vol\n"
                               "  var4=0xabcd,var5=0x7,file=clip.mov,from=1,to=2\n"
                               "  var6[4]={0x1,2,3,4}\n"
                               "  abs=Vol:a:clip.mov\n"
                               "  drive=    D (0x20 20 20 20 44)\n"
                               "  tag[300]=zz\n"
                               "  end\n");
}
