#include <gtest/gtest.h>

#include "CompTimeTestSupport.h"
#include "framework/FileIoClientRec.h"
#include "quicktime/tables/QtAtomCompSeed.h"


using namespace CompTest;

namespace {

constexpr unsigned int kGops = 4000;  // 48000 samples: seed slots at 0, 16384 and 32768

std::string stream() { return repeat("IBBPBBPBBPBB", kGops); }

// The seed of the stream's table, taken after a walk over all of it, as the bytes of its atom.
Bytes seedAtomBytes(unsigned int entriesClaimed = 0) {
    TempFile file;
    AutoPtr<QtAtomRoot> root = readMovie(file, gopMovie(stream(), 1));
    BaseQtAtom const* stbl = root->findAtom(kStblPath, 0);
    QtAtomCompTime const* ctts = compTable(stbl);
    ctts->getSample(stream().size() - 1, nullptr);
    QtAtomCompSeed seed(nullptr, 3);
    EXPECT_TRUE(seed.store(*ctts, stream().size()));
    QtAtomBuffer buffer(256);
    seed.encode(buffer);
    Bytes bytes(buffer.ptrData(), buffer.ptrData() + buffer.nOccupied());
    if (entriesClaimed) {  // the entry count at offset 28
        Bytes count;
        put32(count, entriesClaimed);
        std::copy(count.begin(), count.end(), bytes.begin() + 28);
    }
    return bytes;
}

}  // namespace

TEST(QtAtomCompSeed, AFreshReaderStartsFromTheKeptAnchors) {
    Bytes seed = seedAtomBytes();
    ASSERT_EQ(seed.size(), QtAtomCompSeed::kHeadSize + 3 * QtAtomCompSeed::kSlotSize);
    for (bool matching : {true, false}) {
        Bytes kept = matching ? seed : seedAtomBytes(12345);
        TempFile file;
        std::string types = stream();
        std::vector<uint32_t> keys;
        for (size_t i = 0; i < types.size(); i += 12) keys.push_back(static_cast<uint32_t>(i + 1));
        AutoPtr<QtAtomRoot> root = readMovie(
            file, movieWithTable({fullAtom("stts", {1, static_cast<uint32_t>(types.size()), 1}),
                                  stszAtom(static_cast<uint32_t>(types.size())), syncAtom("stss", keys),
                                  cttsAtom(derivedRuns(types, 1)), kept}));
        QtAtomCompTime const* ctts = compTable(root->findAtom(kStblPath, 0));
        QtAtomCompSeed const* found = QtAtomCompSeed::findFor(*ctts);
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(found->getSeed().used, 3u);
        FileIoClientRec agent;
        std::vector<Sample> expected = referenceDecode(*ctts, types.size());
        unsigned long far = 33000;  // unit 128 holds the third anchor
        EXPECT_EQ(ctts->getSample(far, &agent), expected[far]);
        // Kept anchors: the walk began at unit 128, so nothing below it was walked.
        EXPECT_EQ(ctts->getSparseArray().get(1).valid(), !matching) << (matching ? "kept" : "stale");
        EXPECT_EQ(ctts->getSparseArray().get(128).valid(), true);
    }
}
