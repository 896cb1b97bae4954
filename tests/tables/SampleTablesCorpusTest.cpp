// The sample tables against the real movies of tests/data: for every sample of every track, the
// file offset (stsc, stco/co64, stsz), the size (stsz) and the decode time (stts) must be those the
// movie's .samples.csv lists, with every table of more than 16 entries read from disk.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "framework/FileIoClientRec.h"
#include "quicktime/atoms/QtAtomReader.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/tables/QtAtomSampleChunk.h"
#include "quicktime/tables/QtAtomSampleChunkOff.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "quicktime/tables/QtAtomSampleTime.h"
#include "tests/TestSupport.h"

namespace {

struct ExpectedSample {
    unsigned long offset;
    unsigned long size;
    unsigned long dts;
};

// Rows of `track,sample,offset,size,dts,pts,key`, by track (1-based) in sample order.
std::vector<std::vector<ExpectedSample>> expectedSamples(std::string const& movie) {
    std::vector<std::vector<ExpectedSample>> tracks;
    std::istringstream text(readFileText(testDataPath(movie + ".samples.csv")));
    std::string line;
    std::getline(text, line);  // header
    while (std::getline(text, line)) {
        unsigned long track, sample;
        ExpectedSample row{};
        if (sscanf(line.c_str(), "%lu,%lu,%lu,%lu,%lu", &track, &sample, &row.offset, &row.size, &row.dts) != 5)
            continue;
        if (tracks.size() < track) tracks.resize(track);
        tracks[track - 1].push_back(row);
    }
    return tracks;
}

struct TrackTables {
    QtAtomSampleTime const* stts = nullptr;
    QtAtomSampleChunk const* stsc = nullptr;
    QtAtomSampleSize const* stsz = nullptr;
    QtAtomSampleChunkOff const* chunkOffsets = nullptr;
};

TrackTables tablesOf(BaseQtAtom const* trak) {
    TrackTables tables;
    BaseQtAtom const* stbl = trak->findAtom("mdia.minf.stbl", 0);
    for (BaseQtAtom const* atom = stbl ? stbl->getChild() : nullptr; atom; atom = atom->getSibling()) {
        if (auto const* stts = dynamic_cast<QtAtomSampleTime const*>(atom)) tables.stts = stts;
        if (auto const* stsc = dynamic_cast<QtAtomSampleChunk const*>(atom)) tables.stsc = stsc;
        if (auto const* stsz = dynamic_cast<QtAtomSampleSize const*>(atom)) tables.stsz = stsz;
        if (auto const* offsets = dynamic_cast<QtAtomSampleChunkOff const*>(atom)) tables.chunkOffsets = offsets;
    }
    return tables;
}

}  // namespace

class SampleTablesCorpus : public ::testing::TestWithParam<std::string> {};

TEST_P(SampleTablesCorpus, GiveEverySamplesOffsetSizeAndDecodeTime) {
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(testDataPath(GetParam()).c_str());
    ASSERT_TRUE(root);
    std::vector<std::vector<ExpectedSample>> expected = expectedSamples(GetParam());
    ASSERT_FALSE(expected.empty());
    BaseQtAtom const* moov = root->findAtom("moov", 0);
    ASSERT_NE(moov, nullptr);
    FileIoClientRec agent;
    unsigned int track = 0;
    for (BaseQtAtom const* trak = moov->findAtom("trak", 0); trak; trak = trak->findSibling(qtId("trak"), track)) {
        ++track;
        ASSERT_LE(track, expected.size());
        TrackTables tables = tablesOf(trak);
        ASSERT_TRUE(tables.stts && tables.stsc && tables.stsz && tables.chunkOffsets) << "track " << track;
        std::vector<ExpectedSample> const& samples = expected[track - 1];
        ASSERT_EQ(tables.stsz->getSampleCount(), samples.size()) << "track " << track;
        bool sizesListed = !tables.stsz->isFixed();
        EXPECT_EQ(tables.stsz->hasVirtualTable(), sizesListed && tables.stsz->getSampleCount() > 16) << track;
        EXPECT_EQ(tables.chunkOffsets->hasVirtualTable(), tables.chunkOffsets->getNumChunks() > 16) << track;

        QtChunkSet set;
        unsigned long offset = 0;
        for (unsigned long sample = 0; sample < samples.size(); ++sample) {
            ASSERT_TRUE(tables.stsc->getChunkSet(sample, set)) << "track " << track << " sample " << sample;
            unsigned long chunkStart = 0;
            unsigned int chunk = set.getChunk(sample, chunkStart);
            unsigned long size = tables.stsz->getSampleSize(static_cast<unsigned int>(sample), 1, &agent);
            if (sample == chunkStart)
                offset = tables.chunkOffsets->getChunkOffset(chunk, &agent);
            else
                offset += tables.stsz->getSampleSize(static_cast<unsigned int>(sample - 1), 1, &agent);
            ASSERT_EQ(offset, samples[sample].offset) << "track " << track << " sample " << sample;
            ASSERT_EQ(size, samples[sample].size) << "track " << track << " sample " << sample;
            ASSERT_EQ(tables.stts->getSampleTime(sample), samples[sample].dts) << "track " << track << " sample " << sample;
        }
        EXPECT_EQ(tables.stts->getTotalSamples(), samples.size());
    }
    EXPECT_EQ(track, expected.size());
    root->closeVirtualChildren(&agent);
    EXPECT_EQ(agent.getPageCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Corpus, SampleTablesCorpus, ::testing::ValuesIn(corpusMovies()), [](auto const& info) {
    std::string name = info.param.substr(0, info.param.find('.'));
    for (char& c : name)
        if (!isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
});
