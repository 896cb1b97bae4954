// QtAtomSampleSize ('stsz'): decoding into memory or onto disk, damaged counts, sizes read back,
// recording with reserved room, resizing and moving, encoding and the printout.
#include "quicktime/tables/QtAtomSampleSize.h"

#include "framework/FileIoClientRec.h"
#include "quicktime/atoms/QtDebug.h"
#include "tests/tables/TableTestSupport.h"

namespace {

// Sizes first, first + 3, ...
std::vector<uint64_t> sizesFrom(unsigned int first, unsigned int count) { return series(count, first, 3); }

Bytes stsz(unsigned int count, std::vector<uint64_t> const& sizes) { return tableAtom("stsz", {0, count}, sizes, 4); }

}  // namespace

TEST(QtAtomSampleSizeTest, ACountTheAtomCannotHoldGivesAnEmptyTableOfConstantSizeOne) {
    MovieOnDisk damaged(movieWithTable({stsz(21, sizesFrom(1, 20))}));
    auto const* table = damaged.table<QtAtomSampleSize>("stsz");
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(std::make_tuple(table->isFixed(), table->getConstantSampleSize(), table->getSampleCount(),
                              table->getCapacity()),
              std::make_tuple(true, 1u, 0u, 0u));

    // A constant table lists no sizes at all; its count is not checked against the room.
    MovieOnDisk constant(movieWithTable({tableAtom("stsz", {6, 32000}, {}, 4)}));
    table = constant.table<QtAtomSampleSize>("stsz");
    EXPECT_EQ(table->getConstantSampleSize(), 6u);
    EXPECT_EQ(table->getSampleCount(), 32000u);
    EXPECT_EQ(table->getSampleSize(10, 4, nullptr), 24u);
}

TEST(QtAtomSampleSizeTest, ASizeOfZeroEndsTheSumAndIsReportedAsAnAtomError) {
    MovieOnDisk movie(movieWithTable({stsz(3, {5, 0, 7})}));
    auto const* table = movie.table<QtAtomSampleSize>("stsz");
    EXPECT_EQ(table->getSampleSize(2, 1, nullptr), 7u);
    {
        MessageCapture quiet;
        EXPECT_EQ(table->getSampleSize(1, 1, nullptr), 0u);
        EXPECT_EQ(quiet.messages().size(), 0u);
    }
    ScopedDebugFlag atomErrors("quicktimeDbg", "atom errors");
    MessageCapture capture;
    EXPECT_EQ(table->getSampleSize(1, 1, nullptr), 0u);
    EXPECT_TRUE(capture.contains(": stsz[1]=0\n"));
    // The size of sample `first` times count, once per sample counted.
    EXPECT_EQ(table->getSampleSize(0, 2, nullptr), 5u * 2 * 2);
}

TEST(QtAtomSampleSizeTest, AddingPastTheRoomAsksTheMovieForAResizeAndStoresNothing) {
    MovieOnDisk movie(movieWithTable({stsz(16, sizesFrom(1, 16))}));
    auto const* table = movie.table<QtAtomSampleSize>("stsz");
    EXPECT_EQ(table->getHeadroom(), 0u);
    EXPECT_FALSE(table->write()->addSamples(16, 1, 99));
    EXPECT_EQ(table->getSizeNeeded(), 17u);
    EXPECT_EQ(table->getSampleCount(), 16u);
    EXPECT_NE(movie.root()->findAtom("moov", 0)->movieResizeNeeded() & QtResizeReq::Samples, 0u);

    table->write()->setCapacity(table->getSizeNeeded() * 2);
    EXPECT_EQ(table->getSizeNeeded(), 16u);  // no size pending: the count
    EXPECT_TRUE(table->hasVirtualTable());   // 34 slots do not stay in memory
    EXPECT_TRUE(table->write()->addSamples(16, 1, 99));
    EXPECT_EQ(table->getSampleSize(16, 1, nullptr), 99u);
    EXPECT_EQ(table->getSampleSize(3, 1, nullptr), 10u);
    EXPECT_EQ(table->getVariableSize(), 34u * 4);

    MessageCapture capture;
    EXPECT_FALSE(table->write()->addSamples(0xFFFFFFFFu, 1, 1));
    EXPECT_TRUE(capture.contains("addSamples"));
}

TEST(QtAtomSampleSizeTest, TrailingZeroSizesAreReportedWithoutChangingThem) {
    std::vector<uint64_t> sizes = sizesFrom(1, 300);
    for (unsigned int i = 290; i < 300; ++i) sizes[i] = 0;
    sizes[10] = 0;  // outside the last 256: not counted
    ScopedDebugFlag atomErrors("quicktimeDbg", "atom errors");
    MessageCapture capture;
    MovieOnDisk movie(movieWithTable({stsz(300, sizes)}));
    EXPECT_TRUE(capture.contains("[300]: last 10 of 256 zero\n")) << capture.all();
    auto const* table = movie.table<QtAtomSampleSize>("stsz");
    EXPECT_EQ(table->getSampleCount(), 300u);
    EXPECT_EQ(table->getSampleSize(289, 1, nullptr), 1u + 289 * 3);
}

TEST(QtAtomSampleSizeTest, TheSizesMoveWithTheAtom) {
    MovieOnDisk movie(movieWithTable({stsz(40, sizesFrom(11, 40))}));
    auto const* table = movie.table<QtAtomSampleSize>("stsz");
    ASSERT_TRUE(table->hasVirtualTable());
    unsigned long newPlace = 100000;
    {
        ScopedDebugFlag resize("quicktimeDbg", "resize1");
        MessageCapture capture;
        table->setSizeAndOffset(QtTreeSize(true, table->getSize(), newPlace));
        EXPECT_TRUE(capture.contains("stsz::set(180b@100000)"));
    }
    EXPECT_EQ(table->getFileOffset(), newPlace);
    FileIoClientRec agent;
    for (unsigned int i = 0; i < 40; ++i) ASSERT_EQ(table->getSampleSize(i, 1, &agent), 11 + i * 3);
    table->flushVirtualTable();
    Bytes file = readFileBytes(movie.path());
    ASSERT_GE(file.size(), newPlace + 20 + 40 * 4);
    for (unsigned int i = 0; i < 40; ++i) ASSERT_EQ(bigEndianAt(file, newPlace + 20 + i * 4, 4), 11 + i * 3);
}

// The root's count of table cache bytes stays bounded however many sizes, and is zero once closed.
TEST(QtAtomSampleSizeTest, TheRootsTableBytesFollowTheBoundedCacheOfTheSizes) {
    MovieOnDisk movie(movieWithTable({stsz(17, sizesFrom(1, 17))}));
    auto const* table = movie.table<QtAtomSampleSize>("stsz");
    BasicFileIO* file = movie.root()->file();
    EXPECT_EQ(file->cacheBytes(BasicIOTypes::CacheTable), VirtualArrayBase::kPageBytes);  // the primed page
    table->write()->setCapacity(500000);
    unsigned long peak = 0;
    for (unsigned int sample = 17; sample < 500000; ++sample) {
        ASSERT_TRUE(table->write()->addSamples(sample, 1, sample));
        peak = std::max(peak, file->cacheBytes(BasicIOTypes::CacheTable));
    }
    EXPECT_LE(peak, (VirtualArrayBase::kOwnerPageLimit + 1ul) * VirtualArrayBase::kPageBytes);
    table->closeVirtualTable(nullptr);
    EXPECT_EQ(file->cacheBytes(BasicIOTypes::CacheTable), 0u);
    EXPECT_EQ(table->getSampleSize(499999, 1, nullptr), 499999u);
}
