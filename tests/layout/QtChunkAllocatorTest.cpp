#include <gtest/gtest.h>

#include "quicktime/layout/QtAtomMdat.h"
#include "quicktime/layout/QtAtomMoov.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/layout/QtChunkAllocator.h"
#include "tests/TestSupport.h"

namespace {

using Chunk = QtChunkAllocator::Chunk;

std::vector<QtAtomMdat const*> mdats(QtAtomRoot const& root) {
    std::vector<QtAtomMdat const*> found;
    for (BaseQtAtom const* atom = root.getChild(); atom; atom = atom->getSibling())
        if (auto const* mdat = dynamic_cast<QtAtomMdat const*>(atom)) found.push_back(mdat);
    return found;
}

}  // namespace

TEST(QtChunkAllocator, FirstChunkMakesAnMdatOfExactlyItsSizeAndLaterOnesGrowIt) {
    QtAtomRoot root(AutoRefPtr<BasicFileIO>(), 0);
    root.appendChild(new QtAtomMoov(nullptr, QtAtomMoov::kMoovId));
    QtChunkAllocator allocator;

    Chunk first = allocator.alloc(1000, &root);
    ASSERT_EQ(mdats(root).size(), 1u);
    QtAtomMdat const* mdat = mdats(root)[0];
    EXPECT_EQ(mdat->getSize(), 16u + 1000u);
    EXPECT_EQ(first, (Chunk{mdat->getDataOffset(), 1000}));

    // The mdat is the last atom: the next chunk follows the first in the same mdat.
    EXPECT_EQ(allocator.alloc(500, &root), (Chunk{mdat->getDataOffset() + 1000, 500}));
    EXPECT_EQ(mdat->getSize(), 16u + 1500u);
    EXPECT_EQ(mdats(root).size(), 1u);
}

TEST(QtChunkAllocator, AnMdatThatIsNotLastKeepsServingItsRoomButNeverGrows) {
    QtAtomRoot root(AutoRefPtr<BasicFileIO>(), 0);
    QtChunkAllocator allocator;
    ASSERT_EQ(allocator.find(300, &root).chunk.size, 300u);
    Chunk first = allocator.alloc(100, &root);
    QtAtomMdat const* old = mdats(root)[0];
    root.appendChild(new QtAtomMoov(nullptr, QtAtomMoov::kMoovId));  // the movie now follows the mdat

    // 200 bytes are left in the old mdat: a chunk that fits is still taken from there.
    EXPECT_EQ(allocator.alloc(150, &root), (Chunk{first.offset + 100, 150}));
    // One that does not fit makes a new mdat after the movie; the old one keeps its size.
    Chunk far = allocator.alloc(500, &root);
    ASSERT_EQ(mdats(root).size(), 2u);
    QtAtomMdat const* fresh = mdats(root)[1];
    EXPECT_EQ(old->getSize(), 16u + 300u);
    EXPECT_EQ(fresh->getSize(), 16u + 500u);
    EXPECT_EQ(far, (Chunk{fresh->getDataOffset(), 500}));
    EXPECT_GT(fresh->getFileOffset(), root.getChild()->getSibling()->getFileOffset());
    // The old room's last 50 bytes still serve a small chunk.
    EXPECT_EQ(allocator.alloc(50, &root), (Chunk{first.offset + 250, 50}));
}
