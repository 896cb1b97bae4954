// Composition offsets recorded sample by sample, derived from the frame types or given by the
// encoder, and read back.
#include "framework/FileIoClientRec.h"
#include "tests/tables/CompTimeTestSupport.h"

using namespace CompTest;
using DiskEntry = QtAtomCompTime::DiskEntry;

namespace {

SampleCodingType codingType(char letter) {
    return letter == 'I' ? SampleCodingI : letter == 'P' ? SampleCodingP : SampleCodingB;
}

// A track ready to record `samples` samples of `ticks`: room in 'stss' and 'ctts', and a 'cslg'
// whose shift is one frame when asked for.
struct Recording {
    Recording(unsigned int samples, unsigned int ticksIn, bool withShift)
        : ticks(ticksIn),
          movie(movieWithTable({fullAtom("stts", {1, samples, ticks}), stszAtom(samples),
                                syncAtom("stss", {}, samples), cttsAtom({}, samples + 4),
                                withShift ? fullAtom("cslg", {ticks, 0, 0, 0, 0}) : Bytes{}})) {}

    // The sync table learns of a key frame before the composition table records it.
    Sample append(unsigned long s, char letter, std::optional<int> displayOffset = {}) {
        EXPECT_TRUE(letter != 'I' || stss->appendKey(s));
        SampleInfo info = displayOffset ? SampleInfo(codingType(letter), static_cast<int8_t>(*displayOffset))
                                        : SampleInfo(codingType(letter));
        return ctts->appendSample(s, info, ticks, cslg);
    }

    std::vector<DiskEntry> entries() const {
        std::vector<DiskEntry> out;
        for (unsigned int i = 0; i < ctts->getNumEntries(); ++i) out.push_back(ctts->getEntry(i, nullptr));
        return out;
    }

    unsigned int ticks;
    MovieOnDisk movie;
    QtAtomCompTime const* ctts = movie.table<QtAtomCompTime>("ctts");
    QtAtomSampleSync const* stss = movie.table<QtAtomSampleSync>("stss");
    QtAtomCompShift const* cslg = ctts->getCslg();
};

// Display slots of a decode-order stream: each reference is shown after the B frames that follow
// it; with `pyramid`, of three B frames the first in decode order is the middle one shown.
std::vector<long> displaySlots(std::string const& types, bool pyramid) {
    std::vector<long> display(types.size());
    for (size_t g = 0; g < types.size();) {
        size_t k = 0;
        while (g + 1 + k < types.size() && types[g + 1 + k] == 'B') ++k;
        display[g] = static_cast<long>(g + k);
        for (size_t i = 1; i <= k; ++i) display[g + i] = static_cast<long>(g + i - 1);
        if (pyramid && k == 3) {
            display[g + 1] = static_cast<long>(g + 1);
            display[g + 2] = static_cast<long>(g);
        }
        g += k + 1;
    }
    return display;
}

}  // namespace

TEST(QtAtomCompTimeRecording, DerivesTheRunsOfAnIBBPStream) {
    Recording track(8, 1, false);
    std::string types = "IBBPBBP";
    MessageCapture messages;
    for (size_t s = 0; s < types.size(); ++s) track.append(s, types[s]);
    EXPECT_FALSE(messages.contains("recording sample")) << "consecutive samples leave no gap";
    EXPECT_TRUE(track.ctts->isDeriveMode());
    EXPECT_EQ(track.entries(),
              (std::vector<DiskEntry>{{1, 3}, {2, 0}, {1, 3}, {2, 0}, {1, 1}}));  // the last P provisional
    EXPECT_EQ(track.ctts->getCTTSCache().getState(), 1u);
}

// I/P/B streams in decode order, derived or with the encoder's offsets: the types read back are the
// types recorded, every sample is shown in its display slot, and the frame sets the recorder kept
// up to date agree with a decode of the table.
TEST(QtAtomCompTimeRecording, StreamsReadBackAsRecorded) {
    struct Stream {
        char const* name;
        std::string gop;
        bool pyramid;
    };
    std::vector<Stream> streams{
        {"gop 1", "I", false},
        {"gop 12 open", "IBBPBBPBBPBB", false},
        {"gop 12 closed", "IPBBPBBPBBPB", false},
        {"gop 15 open", "IBBPBBPBBPBBPBB", false},
        {"gop 15 closed", "IPBBPBBPBBPBBPB", false},
        {"gop 50, 3 B pyramid", "I" + repeat("PBBB", 12) + "P", true},
    };
    enum Mode { Derived, DerivedWithShift, Direct };
    for (Stream const& stream : streams) {
        std::string types = repeat(stream.gop, 1500 / static_cast<unsigned int>(stream.gop.size()) + 1);
        std::vector<long> display = displaySlots(types, stream.pyramid);
        for (Mode mode : {Derived, DerivedWithShift, Direct}) {
            std::string what = std::string(stream.name) + (mode == Direct ? ", offsets given" : mode ? ", shift" : "");
            Recording track(static_cast<unsigned int>(types.size()), 100, mode != Derived);
            for (size_t s = 0; s < types.size(); ++s) {
                std::optional<int> given;
                if (mode == Direct) given = static_cast<int>(display[s] - static_cast<long>(s));
                Sample recorded = track.append(s, types[s], given);
                ASSERT_EQ(recorded.sample, s) << what;
            }
            FileIoClientRec agent;
            std::vector<Sample> expected = referenceDecode(*track.ctts, types.size());
            for (size_t s = 0; s < types.size(); ++s) {
                Sample got = track.ctts->getSample(s, s % 2 ? &agent : nullptr);
                ASSERT_EQ(got, expected[s]) << what << " sample " << s;
                bool pyramidB = stream.pyramid && types[s] == 'B' && mode == Direct;
                if (!pyramidB) {
                    ASSERT_EQ(sampleCodingLetter(got.type), types[s]) << what << " sample " << s;
                }
                if (stream.pyramid && mode != Direct) continue;  // derived offsets know no pyramid
                ASSERT_EQ(static_cast<long>(s) + got.offset, display[s]) << what << " sample " << s;
            }
        }
    }
}

TEST(QtAtomCompTimeRecording, AFullTableAsksForRoomWhenOffsetsAreGiven) {
    MovieOnDisk movie(movieWithTable({stszAtom(40), cttsAtom({}, 2), fullAtom("cslg", {10, 0, 0, 0, 0})}));
    auto const* ctts = movie.table<QtAtomCompTime>("ctts");
    for (unsigned long s = 0; s < 2; ++s) ctts->appendSample(s, SampleInfo(SampleCodingP, int8_t(s)), 10, ctts->getCslg());
    Sample refused = ctts->appendSample(2, SampleInfo(SampleCodingP, 5), 10, ctts->getCslg());
    EXPECT_EQ(refused, Sample(0));
    EXPECT_EQ(ctts->getNumEntries(), 2u);
    EXPECT_EQ(ctts->movieResizeNeeded(), static_cast<uint32_t>(QtResizeReq::Samples));
}

TEST(QtAtomCompTimeRecording, GapsAreReportedAndFilledWithBFrames) {
    Recording track(12, 1, false);
    MessageCapture capture;
    track.append(0, 'I');
    track.append(1, 'P');
    track.append(4, 'P');  // samples 2 and 3 never came
    EXPECT_TRUE(capture.contains("QtAtomCompTime::appendSample: recording sample 4 after sample 1")) << capture.all();
    EXPECT_EQ(track.entries(), (std::vector<DiskEntry>{{1, 1}, {1, 3}, {2, 0}, {1, 1}}));
}

TEST(QtAtomCompTimeRecording, ABFrameWithNothingBeforeItIsRefused) {
    Recording track(4, 1, false);
    MessageCapture capture;
    track.append(0, 'B');
    EXPECT_TRUE(capture.contains("B frame received without previous I or P frame.")) << capture.all();
    EXPECT_EQ(track.ctts->getNumEntries(), 0u);
}
