#include <gtest/gtest.h>

#include "tests/tables/TableTestSupport.h"
#include "framework/FileIoClientRec.h"
#include "quicktime/atoms/QtAtomWriter.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/tables/QtAtomSampleDepend.h"



namespace {

QtAtomSampleDepend const* dependTable(QtAtomRoot const& root) {
    BaseQtAtom const* stbl = root.findAtom(kStblPath, 0);
    return stbl ? dynamic_cast<QtAtomSampleDepend const*>(stbl->findAtom("sdtp", 0)) : nullptr;
}

Bytes sdtpAtom(Bytes const& flags) {
    Bytes body{0, 0, 0, 0};
    body.insert(body.end(), flags.begin(), flags.end());
    return atomBytes("sdtp", body);
}

}  // namespace

TEST(QtAtomSampleDepend, ReadsEveryByteOfTheCorpusTableThroughAReadersAgent) {
    std::string path = testDataPath("hevc_sdtp.mov");
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(path.c_str());
    ASSERT_TRUE(root);
    QtAtomSampleDepend const* sdtp = dependTable(*root);
    ASSERT_NE(sdtp, nullptr);
    EXPECT_EQ(sdtp->getFileOffset(), 13073u);
    EXPECT_EQ(sdtp->getNumEntries(), 60u);  // the 'stsz' after it has 60 samples
    EXPECT_TRUE(sdtp->hasVirtualTable());
    Bytes file = readFileBytes(path);
    FileIoClientRec agent;
    bool someDiffer = false;
    for (unsigned int i = 0; i < 60; ++i) {
        ASSERT_EQ(sdtp->getSampleDepend(i, &agent), file[13073 + 12 + i]) << i;
        someDiffer = someDiffer || file[13073 + 12 + i] != file[13073 + 12];
    }
    EXPECT_TRUE(someDiffer);
    EXPECT_EQ(sdtp->getSampleDepend(60, &agent), 0);
}

TEST(QtAtomSampleDepend, StoresUpToItsCapacityAndAsksForRoomPastIt) {
    TempFile file;
    AutoPtr<QtAtomRoot> root = readMovie(file, movieWithTable({stszAtom(0), sdtpAtom(Bytes(4, 0))}));
    QtAtomSampleDepend const* sdtp = dependTable(*root);
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
    TempFile file;
    AutoPtr<QtAtomRoot> root = readMovie(file, movieWithTable({stszAtom(0), sdtpAtom(Bytes(100, 7))}));
    QtAtomSampleDepend const* sdtp = dependTable(*root);
    ASSERT_EQ(sdtp->getArray().getVirtualSize(), 100u);
    sdtp->setCapacity(10);
    EXPECT_EQ(sdtp->getArray().getVirtualSize(), 10u);
    EXPECT_EQ(sdtp->getSampleDepend(9, nullptr), 7);
    EXPECT_EQ(sdtp->getSampleDepend(10, nullptr), 0);
}
