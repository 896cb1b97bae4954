// The recorder through its public interface: movies recorded with video, PCM and AAC sound and
// timecode, read back sample for sample by a fresh reader and by ffprobe.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/TestSupport.h"
#include "tests/layout/LayoutTestSupport.h"
#include "tests/recorder/RecorderTestSupport.h"
#include "tests/tools/QtMovieRun.h"

namespace {

bool haveFfprobe() { return system("command -v ffprobe >/dev/null 2>&1") == 0; }

}  // namespace

TEST(QtMovieRecorder, RecordedTracksReadBackSampleForSampleAcrossRelocations) {
    TempFile temp("recorded.mov");
    QtMovieRecorder::Options options;
    options.plannedSeconds = 1;  // small tables: recording outgrows them again and again
    std::unique_ptr<QtMovieRecorder> recorder = QtMovieRecorder::create(temp.c_str(), options);
    ASSERT_TRUE(recorder);
    TestStream::addTracks(*recorder);
    ASSERT_EQ(recorder->addTimecodeTrack(600, 20, 30, false, 3600 * 30, TestStream::kVideo), 4u);
    unsigned long units[4] = {0, 0, 0, 0};
    for (unsigned long n = 0; n < 400; ++n) {
        ASSERT_TRUE(TestStream::append(*recorder, TestStream::kVideo, units[1]++));
        if (n % 10 == 0) { ASSERT_TRUE(TestStream::append(*recorder, TestStream::kPcm, units[2]++)); }
        if (n % 2 == 0) { ASSERT_TRUE(TestStream::append(*recorder, TestStream::kAac, units[3]++)); }
        if (n % 50 == 49) {
            ASSERT_TRUE(recorder->flush());
            EXPECT_EQ(recorder->durableSamples(TestStream::kVideo), n + 1);
        }
    }
    ASSERT_TRUE(recorder->close());
    recorder.reset();

    TopLevelScan scan = scanTopLevel(temp.path());
    EXPECT_TRUE(scan.coversFile);
    EXPECT_EQ(scan.count("moov"), 1);
    EXPECT_EQ(scan.atoms.back().type, "mdat");
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(temp.c_str());
    ASSERT_TRUE(root);
    for (uint32_t track = 1; track <= 3; ++track)
        EXPECT_EQ(compareTrack(*root, track, units[track], true), "") << track;

    if (!haveFfprobe()) GTEST_SKIP() << "ffprobe not installed";
    CommandRun probe = runCommand("ffprobe -v error -show_entries stream=codec_type,nb_frames:stream_tags=timecode -of csv=p=0 '" +
                                  temp.path() + "'");
    // The samples hold no real pictures or sound: only the container may not complain.
    EXPECT_EQ(probe.err.find("mov,"), std::string::npos) << probe.err;
    EXPECT_NE(probe.out.find("video,400"), std::string::npos) << probe.out;
    EXPECT_NE(probe.out.find("01:00:00:00"), std::string::npos) << probe.out;
}

// Real movies re-recorded track by track (addTrackLike) open in ffprobe without an error; their
// samples are compared with the source's by the qtmovie record tests.
TEST(QtMovieRecorder, RealMoviesReRecordedOpenInFfprobeWithoutAnError) {
    if (!haveFfprobe()) GTEST_SKIP() << "ffprobe not installed";
    for (char const* name : {"h264_bframes_aac_tc.mov", "mjpeg_pcm24le_dftc.mov"}) {
        SCOPED_TRACE(name);
        TempFile temp("copied.mov");
        CommandRun run = runQtMovie("record " + temp.path() + " --from '" + testDataPath(name) + "' --planned-seconds 1");
        ASSERT_EQ(run.status, 0) << run.err;
        CommandRun probe = runCommand("ffprobe -v error -show_entries stream=nb_frames -of csv=p=0 '" + temp.path() + "'");
        EXPECT_EQ(probe.err, "");
        EXPECT_NE(probe.out, "");
    }
}
