// The recorder's memory does not grow with the length of the recording: ten times more samples
// leave the tables' cache accounting and the process's resident memory where they were.
#include <gtest/gtest.h>

#include <cstdio>

#include "framework/BasicFileIO.h"
#include "framework/VirtualArrayBase.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/recorder/QtMovieRecorder.h"
#include "tests/TestSupport.h"

namespace {

unsigned long residentBytes() {
    unsigned long pages = 0, resident = 0;
    FILE* statm = std::fopen("/proc/self/statm", "r");
    if (!statm) return 0;
    if (std::fscanf(statm, "%lu %lu", &pages, &resident) != 2) resident = 0;
    std::fclose(statm);
    return resident * 4096;
}

}  // namespace

TEST(RecorderMemory, TenTimesMoreSamplesNeedNoMoreMemory) {
    TempFile temp("long.mov");
    QtMovieRecorder::Options options;
    options.plannedSeconds = 10;
    std::unique_ptr<QtMovieRecorder> recorder = QtMovieRecorder::create(temp.c_str(), options);
    ASSERT_TRUE(recorder);
    uint32_t video = recorder->addVideoTrack(qtId("jpeg"), 600, 64, 48);
    unsigned char bytes[64] = {};
    auto record = [&](unsigned long from, unsigned long to) {
        for (unsigned long n = from; n < to; ++n) {
            ASSERT_TRUE(recorder->appendSample(video, {bytes, 16 + static_cast<uint32_t>(n % 48), 20, n % 30 == 0,
                                                       SampleInfo(SampleCodingUnknown, n % 30 == 0 ? 0 : 1)}));
            if (n % 30000 == 29999) {
                ASSERT_TRUE(recorder->flush());
            }
        }
    };
    BasicFileIO* file = recorder->getRoot().file();
    record(0, 60000);
    unsigned long tableBytes = file->cacheBytes(BasicIOTypes::CacheTable);
    unsigned long resident = residentBytes();
    record(60000, 600000);
    // Four disk-backed tables (sizes, chunk offsets, key frames, composition offsets), each caching
    // at most its page limit whatever the length.
    unsigned long bound = 4ul * VirtualArrayBase::kOwnerPageLimit * VirtualArrayBase::kPageBytes;
    EXPECT_LE(tableBytes, bound);
    EXPECT_LE(file->cacheBytes(BasicIOTypes::CacheTable), bound);
    // A sanitizer keeps freed memory in quarantine: only the tables' accounting is judged there.
    if (!kSanitized) { EXPECT_LE(residentBytes(), resident + (2ul << 20)); }
    ASSERT_TRUE(recorder->close());
}
