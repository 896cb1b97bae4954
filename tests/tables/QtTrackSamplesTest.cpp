#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "tests/TestSupport.h"
#include "quicktime/tables/QtAtomEditList.h"
#include "quicktime/atoms/QtAtomHeader.h"
#include "quicktime/layout/QtAtomReader.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/tables/QtTrackSamples.h"

namespace {

std::string rowOf(unsigned int track, QtSampleInfo const& s) {
    char row[160];
    snprintf(row, sizeof row, "%u,%lu,%lu,%u,%lu,%ld,%d", track, s.sample, s.offset, s.size, s.dts, s.pts,
             s.key ? 1 : 0);
    return row;
}

std::vector<std::string> expectedRows(std::string const& movie) {
    std::vector<std::string> rows;
    std::istringstream text(readFileText(testDataPath(movie + ".samples.csv")));
    std::string line;
    std::getline(text, line);  // header
    while (std::getline(text, line)) rows.push_back(line);
    return rows;
}

}  // namespace

class CorpusSamples : public ::testing::TestWithParam<std::string> {};

TEST_P(CorpusSamples, WalkGivesEverySampleOfTheExpectation) {
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(testDataPath(GetParam()).c_str());
    ASSERT_TRUE(root);
    std::vector<std::string> rows;
    for (unsigned int t = 1; t <= QtTrackSamples::countTracks(*root); ++t) {
        QtTrackSamples track(QtTrackSamples::findTrackMedia(*root, t));
        ASSERT_TRUE(track.valid());
        QtTrackSamples::Iterator it(track, 0);
        QtSampleInfo info;
        unsigned long n = 0;
        while (it.next(info)) {
            rows.push_back(rowOf(t, info));
            ++n;
        }
        EXPECT_EQ(n, track.getNumSamples());
    }
    EXPECT_EQ(rows, expectedRows(GetParam()));
}

TEST_P(CorpusSamples, DirectLookupsAgreeWithTheWalk) {
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(testDataPath(GetParam()).c_str());
    ASSERT_TRUE(root);
    std::vector<std::string> expected = expectedRows(GetParam());
    size_t row = 0;
    for (unsigned int t = 1; t <= QtTrackSamples::countTracks(*root); ++t) {
        QtTrackSamples track(QtTrackSamples::findTrackMedia(*root, t));
        unsigned long n = track.getNumSamples();
        // Samples chosen across chunk and run boundaries, looked up backwards so that no cached
        // state from a previous lookup can help.
        for (unsigned long s : {n - 1, n / 2 + 1, n / 3, 17ul, 1ul, 0ul}) {
            if (s >= n) continue;
            QtSampleInfo info;
            ASSERT_TRUE(track.getSample(s, info));
            EXPECT_EQ(rowOf(t, info), expected[row + s]) << GetParam() << " track " << t << " sample " << s;
        }
        QtSampleInfo past;
        EXPECT_FALSE(track.getSample(n, past));
        row += n;
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, CorpusSamples, ::testing::ValuesIn(corpusMovies()), [](auto const& info) {
    std::string name = info.param.substr(0, info.param.find('.'));
    for (char& c : name)
        if (!isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
});

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
