// QtAtomSampleTime ('stts'): media time to sample and back, spans, the dominant duration and the
// rate setters of recording with their deliberate quirks.
#include "quicktime/tables/QtAtomSampleTime.h"

#include "tests/tables/TableTestSupport.h"

namespace {

Bytes stts(std::vector<uint64_t> const& pairs) {
    return tableAtom("stts", {static_cast<uint32_t>(pairs.size() / 2)}, pairs, 4);
}

}  // namespace

TEST(QtAtomSampleTimeTest, MediaTimeMapsToTheNearestSampleWithAHalfRoundingUp) {
    MovieOnDisk movie(movieWithTable({stts({10, 100, 5, 40})}));
    auto const* table = movie.table<QtAtomSampleTime>("stts");
    ASSERT_NE(table, nullptr);
    // Half a duration rounds up; 1000 starts the second entry; past the end: the number of samples.
    for (auto [time, sample] : {std::pair{0u, 0u}, {149u, 1u}, {150u, 2u}, {1000u, 10u}, {1020u, 11u}, {5000u, 15u}})
        EXPECT_EQ(table->getSample(time), sample) << time;
    EXPECT_EQ(table->getSampleTime(12), 1080u);
    EXPECT_EQ(table->getTotalSamples(), 15u);
}

TEST(QtAtomSampleTimeTest, ASpanEndingHalfADurationIntoASampleRoundsDown) {
    MovieOnDisk movie(movieWithTable({stts({10, 100, 5, 40})}));
    auto const* table = movie.table<QtAtomSampleTime>("stts");
    QtAtomSampleTime::Span span = table->getSpan(250, 450);
    EXPECT_EQ(span.firstSample, 3u);
    EXPECT_EQ(span.endSample, 4u);  // 450 is half a duration into sample 4
    EXPECT_EQ(span.endTime, 400u);
    span = table->getSpan(0, 1060);
    EXPECT_EQ(span.endSample, 11u);  // the second entry: 60 into 40-tick samples is 1.5, rounded down
    EXPECT_EQ(span.endTime, 1040u);
    span = table->getSpan(900, 100);
    EXPECT_EQ(span.firstSample, 0u);
    EXPECT_EQ(span.endSample, 0u);
}

TEST(QtAtomSampleTimeTest, TheDominantDurationIsThatOfTheEntryWithMostSamples) {
    MovieOnDisk movie(movieWithTable({stts({3, 100, 7, 0, 5, 40, 5, 80})}));
    EXPECT_EQ(movie.table<QtAtomSampleTime>("stts")->getTicksPerSample(), 40u);  // first of two equal counts
}

TEST(QtAtomSampleTimeTest, FixTicksPerSampleRescalesOnlyAOneEntryTable) {
    MovieOnDisk movie(movieWithTable({stts({100, 1001}), stts({1, 2, 3, 4})}));
    QtAtomSampleTime* one = movie.table<QtAtomSampleTime>("stts")->write();
    auto* two = dynamic_cast<QtAtomSampleTime const*>(one->getSibling())->write();
    EXPECT_TRUE(one->fixTicksPerSample(500));
    EXPECT_EQ(one->getEntry(0).count, (1002u * 100 - 1) / 500);
    EXPECT_EQ(one->getEntry(0).duration, 500u);
    EXPECT_FALSE(two->fixTicksPerSample(500));
    EXPECT_EQ(two->getEntry(0).duration, 2u);
    EXPECT_EQ(two->getEntry(1).count, 3u);
}

TEST(QtAtomSampleTimeTest, SetFixedRateSplitsCountsAt32BitsAndTrimsUnreasonableTables) {
    QtAtomSampleTime table(nullptr);
    table.setFixedRate(0, 25);
    ASSERT_EQ(table.getNumEntries(), 1u);
    EXPECT_EQ(table.getEntry(0).count, 0u);
    table.setFixedRate(0xFFFFFFFFul, 25);
    ASSERT_EQ(table.getNumEntries(), 2u);
    EXPECT_EQ(table.getEntry(0).count, 0xFFFFFFFFu);
    EXPECT_EQ(table.getEntry(1).count, 0u);
    // The same number of entries leaves the table as it was, counts and durations included.
    table.setFixedRate(0x100000000ul, 50);
    EXPECT_EQ(table.getEntry(1).count, 0u);
    EXPECT_EQ(table.getEntry(0).duration, 25u);

    MessageCapture capture;
    table.setFixedRate(0x100000000ul * 401, 10);
    EXPECT_TRUE(capture.contains("QtAtomSampleTime::setFixedRate: unreasonable table size: 402; trimed to 400\n"))
        << capture.all();
    EXPECT_EQ(table.getNumEntries(), 400u);
    EXPECT_EQ(table.getEntry(399).duration, 10u);
}

TEST(QtAtomSampleTimeTest, AddSamplesGrowsTheLastEntryUntilItsCountWouldPass32Bits) {
    QtAtomSampleTime table(nullptr);
    table.addSamples(3, 1001);
    table.addSamples(4, 2002);  // durations are not compared: the recorder's rate is fixed
    ASSERT_EQ(table.getNumEntries(), 1u);
    EXPECT_EQ(table.getEntry(0).count, 7u);
    EXPECT_EQ(table.getEntry(0).duration, 1001u);
    QtAtomSampleTime full(nullptr);
    full.setFixedRate(0xFFFFFFF0ul, 1);
    full.addSamples(100, 1);  // would pass 32 bits: setFixedRate(100) keeps its one entry as it is
    ASSERT_EQ(full.getNumEntries(), 1u);
    EXPECT_EQ(full.getEntry(0).count, 0xFFFFFFF0u);
}
