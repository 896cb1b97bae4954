// FileIoClientRec, the reader's agent: its pages belong to it alone, stay within its budget, are
// dropped per array on close, and are never used once the array has changed them.
#include "framework/FileIoClientRec.h"

#include <gtest/gtest.h>

#include <memory>

#include "framework/VirtualArray.h"
#include "tests/framework/TempMovieFile.h"

namespace {

// A file holding `count` big-endian values i * 3 at offset 0, and an array adopting them.
struct ArrayOnFile {
    explicit ArrayOnFile(unsigned int count) : array("agent") {
        {
            AutoRefPtr<BasicFileIO> plain = BasicFileIO::open(temp.path(), BasicFileIO::ReadWrite);
            std::vector<unsigned int> disk(count);
            for (unsigned int i = 0; i < count; ++i) disk[i] = __builtin_bswap32(i * 3);
            plain->writeAt(0, disk.data(), disk.size() * 4);
        }
        file = InstrumentedFile::open(temp.path());
        array.setIoPrep(&bigEndian32);
        array.setVirtualSize(count);
        array.setBackingStore(asFile(file));
        array.setMap(0);
    }
    TempMovieFile temp;
    AutoRefPtr<InstrumentedFile> file;
    VirtualArray<unsigned int> array;
};

}  // namespace

TEST(FileIoClientRecTest, OneAgentsReadsNeverEvictAnothersPages) {
    ArrayOnFile on(2000000);
    unsigned int perPage = on.array.getPageElements();
    FileIoClientRec quiet(4), busy(4);
    for (unsigned int page = 0; page < 4; ++page) EXPECT_EQ(on.array.elementAt(page * perPage, &quiet), page * perPage * 3);
    unsigned long readsBefore = on.file->reads();
    for (unsigned int i = 0; i < 2000000; i += perPage / 2) ASSERT_EQ(on.array.elementAt(i, &busy), i * 3);
    unsigned long busyReads = on.file->reads() - readsBefore;
    EXPECT_GT(busyReads, 4u);

    readsBefore = on.file->reads();
    for (unsigned int page = 0; page < 4; ++page)
        for (unsigned int i = 0; i < perPage; i += 97) ASSERT_EQ(on.array.elementAt(page * perPage + i, &quiet), (page * perPage + i) * 3);
    EXPECT_EQ(on.file->reads(), readsBefore);  // all four pages still held by the quiet agent
    EXPECT_EQ(busy.getPageCount(), 4u);
}

TEST(FileIoClientRecTest, APageIsReloadedOnceTheOwnerChangesIt) {
    ArrayOnFile on(50000);
    FileIoClientRec agent;
    EXPECT_EQ(on.array.elementAt(10, &agent), 30u);
    EXPECT_EQ(on.array.elementAt(11, &agent), 33u);
    on.array.setElementAt(11, 7, nullptr);  // same page, held by the owner's cache, not yet flushed
    EXPECT_EQ(on.array.elementAt(11, &agent), 7u);
    on.array.setVirtualSize(11);
    EXPECT_EQ(on.array.elementAt(10, &agent), 30u);
    EXPECT_EQ(on.array.elementAt(11, &agent), 0u);
    on.array.setVirtualSize(50000);
    on.array.setElementAt(11, 9, nullptr);
    EXPECT_EQ(on.array.elementAt(11, &agent), 9u);
}
