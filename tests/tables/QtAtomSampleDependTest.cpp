#include "quicktime/tables/QtAtomSampleDepend.h"

#include "framework/FileIoClientRec.h"
#include "tests/tables/TableTestSupport.h"

namespace {

// A movie whose 'sdtp' holds the given bytes.
MovieOnDisk dependMovie(Bytes const& flags) {
    return MovieOnDisk(movieWithTable({stszAtom(0), atomBytes("sdtp", concat({zeros(4), flags}))}));
}

}  // namespace

TEST(QtAtomSampleDepend, ReadsEveryByteOfTheCorpusTableThroughAReadersAgent) {
    std::string path = testDataPath("hevc_sdtp.mov");
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(path.c_str());
    ASSERT_TRUE(root);
    auto const* sdtp = dynamic_cast<QtAtomSampleDepend const*>(root->findAtom("moov.trak.mdia.minf.stbl.sdtp", 0));
    ASSERT_NE(sdtp, nullptr);
    EXPECT_EQ(sdtp->getFileOffset(), 13073u);
    EXPECT_EQ(sdtp->getNumEntries(), 60u);  // the 'stsz' after it has 60 samples
    EXPECT_TRUE(sdtp->hasVirtualTable());
    Bytes file = readFileBytes(path);
    FileIoClientRec agent;
    for (unsigned int i = 0; i < 60; ++i) ASSERT_EQ(sdtp->getSampleDepend(i, &agent), file[13073 + 12 + i]) << i;
    EXPECT_EQ(sdtp->getSampleDepend(60, &agent), 0);
}

TEST(QtAtomSampleDepend, StoresUpToItsCapacityAndAsksForRoomPastIt) {
    MovieOnDisk movie = dependMovie(zeros(4));
    auto const* sdtp = movie.table<QtAtomSampleDepend>("sdtp");
    EXPECT_TRUE(sdtp->addSamples(3, 0x24));
    EXPECT_EQ(sdtp->getSampleDepend(3, nullptr), 0x24);
    EXPECT_FALSE(sdtp->addSamples(4, 0x18));
    EXPECT_EQ(sdtp->getSizeNeeded(), 5u);
    EXPECT_EQ(sdtp->movieResizeNeeded(), static_cast<uint32_t>(QtResizeReq::Samples));
    EXPECT_EQ(sdtp->getSampleDepend(4, nullptr), 0);
    EXPECT_FALSE(sdtp->addSamples(0xFFFFFFFFul, 1));
    sdtp->setCapacity(5);
    EXPECT_EQ(sdtp->getSizeNeeded(), 0u);
    EXPECT_TRUE(sdtp->addSamples(4, 0x18));
}

TEST(QtAtomSampleDepend, CapacityIsTheRequestedCountEvenWhenSmaller) {
    MovieOnDisk movie = dependMovie(filled(100, 7));
    auto const* sdtp = movie.table<QtAtomSampleDepend>("sdtp");
    ASSERT_EQ(sdtp->getArray().getVirtualSize(), 100u);
    sdtp->setCapacity(10);
    EXPECT_EQ(sdtp->getArray().getVirtualSize(), 10u);
    EXPECT_EQ(sdtp->getSampleDepend(9, nullptr), 7);
    EXPECT_EQ(sdtp->getSampleDepend(10, nullptr), 0);
}
