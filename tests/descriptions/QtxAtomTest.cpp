// Qtx::Atom and Qtx::create: reading one extension atom, the tree operations and their size
// bookkeeping, ownership, and the text forms.
#include <gtest/gtest.h>

#include "quicktime/atoms/QtIdName.h"
#include "quicktime/descriptions/Qtx.h"
#include "quicktime/descriptions/QtxACLR.h"
#include "quicktime/descriptions/QtxARES.h"
#include "quicktime/descriptions/QtxAtom.h"
#include "quicktime/descriptions/QtxAvcDecoderInfo.h"
#include "quicktime/descriptions/QtxCleanAperture.h"
#include "quicktime/descriptions/QtxColorInfo.h"
#include "quicktime/descriptions/QtxEndian.h"
#include "quicktime/descriptions/QtxFieldInfo.h"
#include "quicktime/descriptions/QtxFormat.h"
#include "quicktime/descriptions/QtxMpeg4ElementaryStreamDescriptor.h"
#include "quicktime/descriptions/QtxPixelAspectRatio.h"
#include "tests/TestSupport.h"
#include "tests/descriptions/QtxTestBytes.h"

namespace {

// Counts live instances, to observe what destroying an atom destroys.
struct CountedAtom : Qtx::Atom {
    static int alive;
    explicit CountedAtom(QtAtomIdType type = qtId("test")) : Atom(type, 8) { ++alive; }
    ~CountedAtom() override { --alive; }
};
int CountedAtom::alive = 0;

Bytes frmaBytes(char const* format) {
    Bytes body;
    putType(body, format);
    return atomBytes("frma", body);
}

Bytes endaBytes(unsigned int value) {
    Bytes body;
    put16(body, value);
    return atomBytes("enda", body);
}

TEST(QtxCreate, RefusesHeadersThatDoNotFitOrAreTooSmall) {
    Bytes fiel = atomBytes("fiel", {1, 0});
    QtAtomBuffer shortBuffer(fiel.data(), 7, QtAtomBuffer::Full);
    EXPECT_EQ(Qtx::create(shortBuffer, 10), nullptr);
    EXPECT_EQ(shortBuffer.nOccupied(), 7u) << "fewer than 8 bytes: nothing is consumed";

    QtAtomBuffer claimsMore(fiel.data(), 10, QtAtomBuffer::Full);
    EXPECT_EQ(Qtx::create(claimsMore, 9), nullptr) << "the size exceeds what the caller allows";
    QtAtomBuffer bufferShort(fiel.data(), 9, QtAtomBuffer::Full);
    EXPECT_EQ(Qtx::create(bufferShort, 10), nullptr) << "the size exceeds what the buffer holds";

    for (unsigned int size : {1u, 4u, 7u}) {
        Bytes tiny;
        put32(tiny, size);
        putType(tiny, "abcd");
        put32(tiny, 0);
        EXPECT_EQ(createFrom(tiny).get(), nullptr) << size;
    }
}

TEST(QtxAtomChildren, ReadsAGroupThatItsChildrenFillExactly) {
    Bytes body = frmaBytes("in24");
    putBytes(body, endaBytes(1));
    Bytes terminator = zeros(8);
    terminator[3] = 8;
    putBytes(body, terminator);
    Bytes wave = atomBytes("wave", body);
    AutoPtr<Qtx::Atom> atom = createFrom(wave);
    ASSERT_TRUE(atom);
    EXPECT_STREQ(atom->treeString().get(), "wave{frma={in24},enda={little},pad}");
    EXPECT_TRUE(atom->findChild(qtId("enda"))->isLittleEndian());
    EXPECT_EQ(encoded(*atom), wave);
}

TEST(QtxAtomChildren, RefusesGroupsNestedBeyondTheLimit) {
    Bytes nested = frmaBytes("in24");
    for (unsigned int level = 0; level < Qtx::Atom::kMaxNesting + 4; ++level)
        nested = atomBytes("wave", nested);
    EXPECT_EQ(createFrom(nested).get(), nullptr);

    Bytes shallow = frmaBytes("in24");
    for (unsigned int level = 0; level < Qtx::Atom::kMaxNesting - 1; ++level)
        shallow = atomBytes("wave", shallow);
    AutoPtr<Qtx::Atom> atom = createFrom(shallow);
    ASSERT_TRUE(atom);
    EXPECT_EQ(encoded(*atom), shallow);
}

TEST(QtxAtomTree, AppendReplaceAndRemoveKeepTheChildOrder) {
    Qtx::Root root;
    auto* first = new Qtx::FieldInfo();
    auto* second = new Qtx::PixelAspectRatio();
    auto* third = new Qtx::FieldInfo();
    root.appendChild(first);
    root.appendChild(second);
    first->appendSibling(third);  // directly after `first`
    EXPECT_STREQ(root.treeString().get(),
                 "{fiel={ fields=1, detail=onlyOneField},fiel={ fields=1, detail=onlyOneField},"
                 "pasp={hSpacing=0, vSpacing=0}}");
    EXPECT_EQ(third->getParent(), &root);

    auto* colr = new Qtx::ColorInfo();
    root.replaceChild(new Qtx::FieldInfo());  // both 'fiel' go, the new one comes last
    root.appendChild(colr);
    EXPECT_STREQ(root.treeString().get(),
                 "{pasp={hSpacing=0, vSpacing=0},fiel={ fields=1, detail=onlyOneField},"
                 "colr={ type='nclc', primaries=1, xferFunc=1, matrix=1}}");

    Qtx::Atom* middle = root.findChild(qtId("fiel"));
    middle->removeSelf();
    EXPECT_EQ(middle->getParent(), nullptr);
    EXPECT_EQ(middle->getSibling(), nullptr);
    EXPECT_STREQ(root.treeString().get(),
                 "{pasp={hSpacing=0, vSpacing=0},colr={ type='nclc', primaries=1, xferFunc=1, matrix=1}}");
    delete middle;

    root.getChild()->removeSelf();  // the first child
    EXPECT_EQ(root.getChild(), colr);
    delete second;
}

}  // namespace
