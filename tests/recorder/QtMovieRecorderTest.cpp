// The recorder through its public interface: movies recorded with video, PCM and AAC sound and
// timecode, read back sample for sample by a fresh reader and by ffprobe.
#include <gtest/gtest.h>

#include <cstdlib>

#include "quicktime/atoms/QtAtomHeader.h"
#include "quicktime/atoms/QtAtomMediaHdr.h"
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
    uint32_t timecode = recorder->addTimecodeTrack(600, 20, 30, false, 3600 * 30, TestStream::kVideo);
    ASSERT_EQ(timecode, 4u);
    unsigned long units[4] = {0, 0, 0, 0};
    for (unsigned long n = 0; n < 400; ++n) {
        ASSERT_TRUE(TestStream::append(*recorder, TestStream::kVideo, units[1]++));
        if (n % 10 == 0) {
            ASSERT_TRUE(TestStream::append(*recorder, TestStream::kPcm, units[2]++));
        }
        if (n % 2 == 0) {
            ASSERT_TRUE(TestStream::append(*recorder, TestStream::kAac, units[3]++));
        }
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

// Every track of real movies copied with addTrackLike and every sample re-recorded in decode order,
// interleaved by time: sizes, decode and display times, key flags and bytes read back as the
// source's, and ffprobe opens the copy without an error.
TEST(QtMovieRecorder, TracksCopiedFromRealMoviesKeepEverySample) {
    for (char const* name : {"h264_bframes_aac_tc.mov", "mjpeg_pcm24le_dftc.mov"}) {
        SCOPED_TRACE(name);
        AutoPtr<QtAtomRoot> source = QtAtomReader::readFile(testDataPath(name).c_str());
        ASSERT_TRUE(source);
        TempFile temp("copied.mov");
        QtMovieRecorder::Options options;
        options.timeScale = source->findAtom("moov.mvhd", 0)->getMovieTimeScale();
        std::unique_ptr<QtMovieRecorder> recorder = QtMovieRecorder::create(temp.c_str(), options);
        ASSERT_TRUE(recorder);
        unsigned int tracks = QtTrackSamples::countTracks(*source);
        struct Cursor {
            std::unique_ptr<QtTrackSamples> samples;
            std::unique_ptr<QtTrackSamples::Iterator> it;
            QtSampleInfo next;
            bool more = false;
            std::vector<QtSampleInfo> all;
            double timeScale = 1;
            uint32_t lastDuration = 1;
        };
        std::vector<Cursor> cursors(tracks);
        for (unsigned int t = 0; t < tracks; ++t) {
            QtAtomHeader const* media = QtTrackSamples::findTrackMedia(*source, t + 1);
            ASSERT_EQ(recorder->addTrackLike(*media->getParent()), t + 1);
            cursors[t].samples = std::make_unique<QtTrackSamples>(media);
            cursors[t].timeScale = dynamic_cast<QtAtomMediaHdr const*>(media->findAtom("mdhd", 0))->getTimeScale();
            cursors[t].it = std::make_unique<QtTrackSamples::Iterator>(*cursors[t].samples, 0);
            cursors[t].more = cursors[t].it->next(cursors[t].next);
        }
        std::vector<unsigned char> bytes;
        for (unsigned long appended = 0;; ++appended) {
            // The track whose next sample is decoded first, in seconds.
            int pick = -1;
            double earliest = 0;
            for (unsigned int t = 0; t < tracks; ++t) {
                if (!cursors[t].more) continue;
                double at = static_cast<double>(cursors[t].next.dts) / cursors[t].timeScale;
                if (pick < 0 || at < earliest) pick = static_cast<int>(t), earliest = at;
            }
            if (pick < 0) break;
            Cursor& cursor = cursors[pick];
            QtSampleInfo info = cursor.next;
            cursor.more = cursor.it->next(cursor.next);
            bytes.resize(info.size);
            ASSERT_EQ(source->file()->readAt(info.offset, bytes.data(), info.size), static_cast<long>(info.size));
            QtMovieRecorder::Sample sample;
            sample.bytes = bytes.data();
            sample.size = info.size;
            sample.duration = cursor.more ? static_cast<uint32_t>(cursor.next.dts - info.dts) : cursor.lastDuration;
            cursor.lastDuration = sample.duration;
            sample.key = info.key;
            long offset = info.pts - static_cast<long>(info.dts);
            uint32_t frame = sample.duration ? sample.duration : 1;
            if (cursor.samples->getSampleTable().getCtts())
                sample.info = SampleInfo(SampleCodingUnknown, static_cast<int8_t>(offset / static_cast<long>(frame)));
            ASSERT_TRUE(recorder->appendSample(pick + 1, sample));
            cursor.all.push_back(info);
            if (appended % 2000 == 1999) {
                ASSERT_TRUE(recorder->flush());
            }
        }
        ASSERT_TRUE(recorder->close());
        recorder.reset();

        AutoPtr<QtAtomRoot> copy = QtAtomReader::readFile(temp.c_str());
        ASSERT_TRUE(copy);
        ASSERT_EQ(QtTrackSamples::countTracks(*copy), tracks);
        for (unsigned int t = 0; t < tracks; ++t) {
            QtTrackSamples samples(QtTrackSamples::findTrackMedia(*copy, t + 1));
            ASSERT_EQ(samples.getNumSamples(), cursors[t].all.size()) << t;
            QtTrackSamples::Iterator it(samples, 0);
            std::vector<unsigned char> original, copied;
            for (QtSampleInfo const& expected : cursors[t].all) {
                QtSampleInfo info;
                ASSERT_TRUE(it.next(info));
                ASSERT_EQ(info.size, expected.size);
                ASSERT_EQ(info.dts, expected.dts);
                ASSERT_EQ(info.pts, expected.pts);
                ASSERT_EQ(info.key, expected.key);
                original.resize(info.size);
                copied.resize(info.size);
                source->file()->readAt(expected.offset, original.data(), info.size);
                copy->file()->readAt(info.offset, copied.data(), info.size);
                ASSERT_EQ(original, copied);
            }
        }
        if (!haveFfprobe()) continue;
        CommandRun probe = runCommand("ffprobe -v error -show_entries stream=nb_frames -of csv=p=0 '" + temp.path() + "'");
        EXPECT_EQ(probe.err, "");
    }
}
