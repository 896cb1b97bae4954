#include "quicktime/tables/QtAtomEditList.h"

#include "quicktime/quicktime.h"
#include "quicktime/tables/QtAtomSampleTime.h"
#include "tests/tables/TableTestSupport.h"

namespace {

struct NewEdit {
    uint32_t duration, mediaTime;
    bool empty;
};

// A movie of the given time scale with one trak: the edits, then a media of 100 samples of 100 at
// 2400; the media of each edit is calculated.
struct Track {
    Track(unsigned int movieScale, std::vector<NewEdit> const& edits) {
        new QtAtomMvhd(&moov, movieScale);
        auto* trak = new QtAtomHeader(qtId("trak"), &moov);
        list = new QtAtomEditList(new QtAtomHeader(qtId("edts"), trak), static_cast<unsigned int>(edits.size()));
        auto* mdia = new QtAtomHeader(qtId("mdia"), trak);
        (new QtAtomMediaHdr(mdia))->set(0, 2400);
        auto* stbl = new QtAtomHeader(qtId("stbl"), new QtAtomHeader(qtId("minf"), mdia));
        (new QtAtomSampleTime(stbl))->setFixedRate(100, 100);
        for (unsigned int i = 0; i < edits.size(); ++i) {
            QtAtomEditList::Edit& edit = (*list->write())[i];
            std::tie(edit.trackDuration, edit.mediaTime, edit.empty) =
                std::tie(edits[i].duration, edits[i].mediaTime, edits[i].empty);
        }
        list->calcMedia(true);
    }
    QtAtomHeader moov{qtId("moov"), nullptr};
    QtAtomEditList* list;
};

// One movie second of nothing (24 samples), then media samples 0..47.
Track emptyThenMedia() { return Track(600, {{600, 0, true}, {1200, 0, false}}); }

}  // namespace

TEST(QtAtomEditList, ResizeBeyondTheCapacityAsksTheMovieForRoom) {
    QtAtomMoov moov(nullptr, qtId("moov"));
    auto* trak = new QtAtomHeader(qtId("trak"), &moov);
    auto* list = new QtAtomEditList(new QtAtomHeader(qtId("edts"), trak), 1);
    list->setClean();
    EXPECT_FALSE(list->resize(4));
    EXPECT_EQ(list->getNumEdits(), 1u);
    EXPECT_FALSE(list->isDirty());
    EXPECT_EQ(list->movieResizeNeeded(), uint32_t(QtResizeReq::Edts));
    EXPECT_TRUE(list->resize(3));
    EXPECT_EQ(list->getNumEdits(), 3u);
    EXPECT_EQ((*list)[2].mediaRate, 0x10000u);
    EXPECT_TRUE(list->isDirty());
}

TEST(QtAtomEditList, CalcMediaTurnsEditsIntoSamplesOnRealTracks) {
    // Video (250 samples of 512), audio (469 of 1024 and one of 768) and timecode (one of 128000)
    // of h264_bframes_aac_tc.mov: the video and audio edits start 1024 media units in, that is
    // two frames and one audio packet.
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(testDataPath("h264_bframes_aac_tc.mov").c_str());
    ASSERT_TRUE(root);
    struct Expected {
        uint32_t first, samples, offset;
    } expected[] = {{2, 248, 126976}, {1, 469, 480000}, {0, 1, 128000}};
    for (unsigned int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i + 1);
        BaseQtAtom const* trak = root->findAtom("moov.trak", i);
        ASSERT_NE(trak, nullptr);
        auto const* list = dynamic_cast<QtAtomEditList const*>(trak->findAtom("edts.elst", 0));
        ASSERT_NE(list, nullptr);
        ASSERT_EQ(static_cast<BaseQtAtom const*>(list->findSampleTime()),
                  trak->findAtom("mdia.minf.stbl.stts", 0));
        EXPECT_FALSE(list->isMediaCalculated());
        list->calcMedia(false);
        ASSERT_TRUE(list->isMediaCalculated());
        EXPECT_EQ((*list)[0].firstSample, expected[i].first);
        EXPECT_EQ((*list)[0].numSamples, expected[i].samples);
        EXPECT_EQ((*list)[0].offset, expected[i].offset);
    }
}

TEST(QtAtomEditList, OnlyTheLastEditKeepsTheSlackOfACoarseMovieTimeScale) {
    // Media 2400 over movie 600: every edit gains a slack of 3 media units, which the cut to whole
    // movie units takes off again for all edits but the last. Starting 48 units into a sample, the
    // last edit's end passes the half of its 25th sample and takes it; the first edit's does not.
    Track coarse(600, {{600, 48, false}, {600, 48, false}});
    EXPECT_EQ((*coarse.list)[0].numSamples, 24u);
    EXPECT_EQ((*coarse.list)[1].numSamples, 25u);
    // A finer movie time scale has no slack.
    Track fine(1000, {{1000, 50, false}});
    EXPECT_EQ((*fine.list)[0].numSamples, 24u);
}

TEST(QtAtomEditList, MapsMediaSamplesPastEmptyEditsToPresentationSamples) {
    EXPECT_EQ(QtAtomEditList(nullptr, 0).physicalToVirtualSample(17), 17u);
    Track track = emptyThenMedia();
    for (auto [media, shown] : {std::pair{0u, 24u}, {10u, 34u}, {47u, 71u}, {60u, 60u}})  // 60: beyond all edits
        EXPECT_EQ(track.list->physicalToVirtualSample(media), shown) << media;
}

TEST(QtAtomEditList, SpanFindsTheEditAndMediaPositionOfAPresentationPosition) {
    EXPECT_EQ(QtAtomEditList(nullptr, 0).getSpan(5, 3).end, 0u);
    Track track = emptyThenMedia();
    QtAtomEditList::Phys inEmpty = track.list->getSpan(5, 100);
    EXPECT_EQ(std::tie(inEmpty.index, inEmpty.empty, inEmpty.remain), std::make_tuple(0u, true, 19ul));
    EXPECT_EQ(inEmpty.end - inEmpty.first, 19u);  // cut at the edit's end
    EXPECT_EQ(track.list->getSpan(30, 10).remain, 42u);
    // In the media edit, from where the empty one ends, and with media positions moved by an offset.
    struct Case {
        unsigned long at, length, mediaOffset, first, end;
    };
    for (Case c : {Case{30, 10, 0, 6, 16}, Case{24, 10, 0, 0, 10}, Case{130, 10, 100, 106, 116},
                   Case{80, 4, 0, 56, 60}}) {
        track.list->setMediaOffset(c.mediaOffset);
        QtAtomEditList::Phys span = track.list->getSpan(c.at, c.length);
        EXPECT_EQ(std::tie(span.index, span.empty, span.first, span.end), std::make_tuple(1u, false, c.first, c.end))
            << c.at;
    }
}
