// A track's sample table put together from its atoms, and the samples of a track cut short.
#include "quicktime/tables/QtTrackSamples.h"

#include <algorithm>

#include "quicktime/atoms/QtAtomHeader.h"
#include "quicktime/tables/QtAtomEditList.h"
#include "quicktime/tables/QtAtomSampleChunk.h"
#include "quicktime/tables/QtAtomSampleChunkOff.h"
#include "tests/tables/TableTestSupport.h"
#include "tests/tools/QtMovieRun.h"

TEST(QtSampleTable, MakesUpAnEditListForATrackWithoutOne) {
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(testDataPath("hevc_sdtp.mov").c_str());
    ASSERT_TRUE(root);
    BaseQtAtom const* trak = root->findAtom("moov.trak", 0);
    BaseQtAtom const* edts = trak->findAtom("edts", 0);
    ASSERT_NE(edts, nullptr);
    auto const* media = dynamic_cast<QtAtomHeader const*>(trak->findAtom("mdia", 0));
    {
        QtSampleTable table(media);
        EXPECT_TRUE(table.validate());
        EXPECT_EQ(table.getSpareAtom(), nullptr);
        EXPECT_EQ(table.getEdts(), edts);
    }
    // Without the file's edit list the table makes a one-edit list of the whole media.
    edts->removeSelf(false);
    {
        QtSampleTable table(media);
        EXPECT_TRUE(table.validate());
        ASSERT_NE(table.getSpareAtom(), nullptr);
        EXPECT_EQ(table.getSpareAtom()->getId(), qtId("edts"));
        ASSERT_NE(table.getElst(), nullptr);
        EXPECT_EQ(table.getElst()->getNumEdits(), 1u);
        EXPECT_EQ((*table.getElst())[0].numSamples, 60u);
        QtSampleTable copy(table);
        EXPECT_NE(copy.getSpareAtom(), table.getSpareAtom());
        EXPECT_EQ((*copy.getElst())[0].numSamples, 60u);
        EXPECT_TRUE(copy.allAtomsDefined());
    }
    delete edts;
}

// A movie cut short in the middle of a flush: its chunk offset count (written last) still says
// fewer chunks than the other tables cover. The track counts the samples those chunks hold, and so
// do `qtmovie info` and `samples`.
TEST(QtTrackSamples, CountsOnlyTheSamplesThatTheChunkOffsetsReach) {
    Bytes source = readFileBytes(testDataPath("h264_faststart.mov"));
    unsigned long stcoAt = 0;
    {
        AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(testDataPath("h264_faststart.mov").c_str());
        ASSERT_TRUE(root);
        QtTrackSamples sound(QtTrackSamples::findTrackMedia(*root, 2));
        ASSERT_EQ(sound.getSampleTable().getStco()->getNumChunks(), 249u);
        ASSERT_EQ(sound.getNumSamples(), 470u);
        stcoAt = sound.getSampleTable().getStco()->getFileOffset();
    }
    // Chunks of the sound track here hold 1 to 3 samples.
    for (unsigned int chunks : {1u, 97u, 248u}) {
        SCOPED_TRACE(chunks);
        Bytes cut = source;
        for (int i = 0; i < 4; ++i) cut[stcoAt + 12 + i] = static_cast<unsigned char>(chunks >> (24 - 8 * i));
        TempFile temp("cut.mov");
        temp.write(cut);
        AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(temp.c_str());
        ASSERT_TRUE(root);
        QtTrackSamples sound(QtTrackSamples::findTrackMedia(*root, 2));
        unsigned long count = sound.getNumSamples();
        // The last sample counted lies in the last chunk listed; the next one past it.
        QtChunkSet set;
        unsigned long first = 0;
        ASSERT_TRUE(sound.getSampleTable().getStsc()->getChunkSet(count - 1, set));
        EXPECT_EQ(set.getChunk(count - 1, first), chunks - 1);
        ASSERT_TRUE(sound.getSampleTable().getStsc()->getChunkSet(count, set));
        EXPECT_EQ(set.getChunk(count, first), chunks);
        QtTrackSamples::Iterator walk(sound, 0);
        QtSampleInfo info;
        unsigned long walked = 0;
        while (walk.next(info)) ++walked;
        EXPECT_EQ(walked, count);
        EXPECT_NE(runQtMovie("info " + temp.path()).out.find(", " + std::to_string(count) + " samples"), std::string::npos);
        std::string rows = runQtMovie("samples " + temp.path() + " --track 2").out;
        EXPECT_EQ(static_cast<unsigned long>(std::count(rows.begin(), rows.end(), '\n')), count + 1);
    }
}
