#include <gtest/gtest.h>

#include <vector>

#include "quicktime/quicktime.h"
#include "tests/TestSupport.h"

namespace {

// A leaf atom of a given body size, for building trees in memory.
class Leaf : public BaseQtAtom {
public:
    Leaf(QtAtomIdType id, BaseQtAtom const* parent, unsigned long size) : BaseQtAtom(id, parent, size) {}
};

}  // namespace

TEST(AtomHeader, DecodesAndEncodesTheWideForm) {
    Bytes bytes{0, 0, 0, 1, 'm', 'd', 'a', 't', 0, 0, 0, 1, 0, 0, 0, 0x10};
    BaseQtAtom atom;
    EXPECT_TRUE(decodeFrom(atom, bytes));
    EXPECT_EQ(atom.getId(), qtId("mdat"));
    EXPECT_EQ(atom.getSize(), 0x100000010ul);
    EXPECT_EQ(atom.getHeaderSize(), 16u);
    EXPECT_TRUE(atom.isDecoded());
    EXPECT_EQ(encodeToBytes(atom), bytes);
}

TEST(AtomHeader, ChoosesTheShortFormUnlessTheSizeNeedsMore) {
    BaseQtAtom small(qtId("free"), nullptr, 100);
    EXPECT_EQ(encodeToBytes(small), (Bytes{0, 0, 0, 100, 'f', 'r', 'e', 'e'}));
    BaseQtAtom large(qtId("mdat"), nullptr, 0x100000000ul);
    EXPECT_EQ(encodeToBytes(large),
              (Bytes{0, 0, 0, 1, 'm', 'd', 'a', 't', 0, 0, 0, 1, 0, 0, 0, 0}));
}

TEST(AtomHeader, UndersizedHeadersBecomeInvalid) {
    for (uint32_t size : {4u, 0u}) {
        BaseQtAtom atom;
        EXPECT_FALSE(decodeFrom(atom, concat({words({size}), Bytes{'m', 'o', 'o', 'v'}})));
        EXPECT_EQ(atom.getId(), 0u);
        EXPECT_FALSE(atom.isDecoded());
    }
}

TEST(AtomTree, AppendingToAnUndecodedAtomGrowsItAndItsAncestors) {
    QtAtomRoot root(AutoRefPtr<BasicFileIO>(), 0);
    auto* moov = new QtAtomHeader(qtId("moov"), &root);
    EXPECT_EQ(root.getSize(), 8u);
    new Leaf(qtId("mvhd"), moov, 20);
    EXPECT_EQ(moov->getSize(), 28u);
    EXPECT_EQ(root.getSize(), 28u);
    EXPECT_EQ(moov->getChild()->getFileOffset(), 8u);
    auto* trak = new QtAtomHeader(qtId("trak"), moov);
    EXPECT_EQ(trak->getFileOffset(), 28u);
    EXPECT_EQ(moov->getSize(), 36u);
}

TEST(AtomTree, LooksUpAtomsByPathAndCount) {
    BaseQtAtom moov(qtId("moov"), nullptr, 8);
    std::vector<BaseQtAtom const*> mdhd;
    for (int i = 0; i < 3; ++i) {
        auto* trak = new Leaf(qtId("trak"), &moov, 8);
        new Leaf(qtId("tkhd"), trak, 92);
        auto* mdia = new Leaf(qtId("mdia"), trak, 8);
        mdhd.push_back(new Leaf(qtId("mdhd"), mdia, 32));
    }
    EXPECT_EQ(moov.countAtom("trak"), 3u);
    EXPECT_EQ(moov.findAtom("trak", 1), moov.getChild()->getSibling());
    EXPECT_EQ(moov.findAtom("trak", 3), nullptr);
    EXPECT_EQ(moov.findAtom("trak.mdia.mdhd", 0), mdhd[0]);
    // Only the first match of an inner component is descended into.
    EXPECT_EQ(moov.countAtom("trak.mdia.mdhd"), 1u);
    EXPECT_EQ(moov.getChild()->getSibling()->findAtom("mdia.mdhd", 0), mdhd[1]);
    EXPECT_EQ(moov.findAtom("tra", 0), nullptr);
    EXPECT_EQ(moov.findAtom("trak/mdia", 0), nullptr);
    EXPECT_EQ(moov.findAtom("udta", 0), nullptr);
    EXPECT_EQ(moov.countAtom("udta"), 0u);
}

TEST(AtomTree, NamesAtomsByTheirPathFromTheRoot) {
    QtAtomRoot root(AutoRefPtr<BasicFileIO>(), 0);
    auto* moov = new QtAtomHeader(qtId("moov"), &root);
    new QtAtomHeader(qtId("trak"), moov);
    auto* second = new QtAtomHeader(qtId("trak"), moov);
    auto* mdia = new QtAtomHeader(qtId("mdia"), second);
    auto* mdhd = new Leaf(qtId("mdhd"), mdia, 32);
    EXPECT_STREQ(mdhd->getAtomPath().get(), "Root.moov.trak[1].mdia.mdhd");
    EXPECT_STREQ(moov->getAtomPath().get(), "Root.moov");
    EXPECT_EQ(mdhd->numGeneration(), 4u);
    EXPECT_EQ(QtAtomRoot::of(mdhd), &root);
    EXPECT_STREQ(mdhd->getMoviePath(), "<no movie path>");
    EXPECT_EQ(mdhd->findParent(qtId("trak")), second);
    EXPECT_EQ(mdhd->findAbove(qtId("trak"), 0), moov->getChild());
    EXPECT_EQ(mdhd->findAbove(qtId("trak"), 1), second);
    EXPECT_EQ(mdia->findSibling(qtId("mdia"), 0), mdia);
    EXPECT_EQ(second->countSibling(qtId("trak")), 2u);
}

TEST(AtomTree, InsertAndRemoveKeepLinksAndOffsets) {
    BaseQtAtom parent(qtId("moov"), nullptr, 100);
    parent.setDecoded();
    auto* a = new Leaf(qtId("aaaa"), &parent, 10);
    auto* c = new Leaf(qtId("cccc"), &parent, 30);
    auto* b = new Leaf(qtId("bbbb"), nullptr, 20);
    c->insertSibling(b);
    EXPECT_EQ(a->getSibling(), b);
    EXPECT_EQ(b->getFileOffset(), 18u);
    EXPECT_EQ(c->getFileOffset(), 38u);
    auto* first = new Leaf(qtId("zero"), nullptr, 4);
    a->insertSibling(first);
    EXPECT_EQ(parent.getChild(), first);
    b->removeSelf(true);
    EXPECT_EQ(a->getSibling(), c);
    EXPECT_EQ(c->getSize(), 50u);  // the follower absorbs the space
    EXPECT_EQ(b->getSibling(), nullptr);
    b->removeSelf(true);  // unlinking it again changes nothing
    delete b;
    auto* d = new Leaf(qtId("dddd"), nullptr, 5);
    c->appendSibling(d);
    EXPECT_EQ(d->getFileOffset(), c->getFileOffset() + c->getSize());
    EXPECT_EQ(parent.countChildren(), 4u);
    EXPECT_EQ(parent.getLastChild(), d);
}

TEST(AtomTree, WalksDepthFirstAndFindsDirtyAtoms) {
    BaseQtAtom root(qtId("Root"), nullptr, 0);
    auto* moov = new Leaf(qtId("moov"), &root, 8);
    auto* trak = new Leaf(qtId("trak"), moov, 8);
    new Leaf(qtId("tkhd"), trak, 8);
    new Leaf(qtId("udta"), moov, 8);
    new Leaf(qtId("free"), &root, 8);
    std::vector<QtAtomIdType> visited;
    static std::vector<QtAtomIdType>* s_visited;
    s_visited = &visited;
    struct Visitor : BaseQtAtom {
        void visit() const { s_visited->push_back(getId()); }
    };
    root.depthFirst(BaseQtAtom::MethodCall(static_cast<BaseQtAtom::MethodCall::Call0>(&Visitor::visit)));
    EXPECT_EQ(visited, (std::vector<QtAtomIdType>{qtId("Root"), qtId("moov"), qtId("trak"), qtId("tkhd"),
                                                   qtId("udta"), qtId("free")}));
    // Started at a last child, the walk stays below it.
    visited.clear();
    trak->depthFirst(BaseQtAtom::MethodCall(static_cast<BaseQtAtom::MethodCall::Call0>(&Visitor::visit)));
    EXPECT_EQ(visited.front(), qtId("trak"));

    root.depthFirst(BaseQtAtom::MethodCall(&BaseQtAtom::setClean));
    EXPECT_FALSE(root.checkForDirty());
    trak->getChild()->write();
    moov->getSibling()->write();
    EXPECT_TRUE(root.checkForDirty());
    MessageCapture capture;
    {
        ScopedDebugFlag all("quicktimeDbg", "dirty atoms");
        EXPECT_TRUE(root.checkForDirty());
    }
    EXPECT_EQ(capture.count(MsgLevel::Error), 2u);
    EXPECT_TRUE(capture.contains("Root.moov.trak.tkhd dirty\n"));
    EXPECT_TRUE(capture.contains("Root.free dirty\n"));
}

TEST(AtomTree, SettersMarkDirtyOnlyOnChange) {
    BaseQtAtom atom(qtId("free"), nullptr, 8);
    atom.setClean();
    atom.setSize(8);
    atom.setId(qtId("free"));
    EXPECT_FALSE(atom.isDirty());
    atom.setSize(16);
    EXPECT_TRUE(atom.isDirty());
}
