#include <gtest/gtest.h>

#include "quicktime/quicktime.h"
#include "tests/TestSupport.h"

TEST(QtAtomDataRefHdr, ReadsAndWritesItsReferencesByteForByte) {
    // moov { dref { alis (self reference), url , rsrc with two stray bytes } }
    Bytes refs = concat({atomBytes("alis", words({1})), atomBytes("url ", words({1})),
                         atomBytes("rsrc", Bytes{0, 0, 0, 0, 0xAB, 0xCD})});
    Bytes movie = atomBytes("moov", atomBytes("dref", concat({words({0, 3}), refs})));
    TempFile source;
    source.write(movie);
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(source.c_str());
    ASSERT_TRUE(root);
    auto const* dref = dynamic_cast<QtAtomDataRefHdr const*>(root->findAtom("moov.dref", 0));
    ASSERT_NE(dref, nullptr);
    EXPECT_EQ(dref->getCount(), 3u);
    EXPECT_NE(dynamic_cast<QtAtomDataAlias const*>(dref->findAtom("alis", 0)), nullptr);
    EXPECT_NE(dynamic_cast<QtAtomDataResource const*>(dref->findAtom("rsrc", 0)), nullptr);
    ASSERT_NE(dref->findAtom("url ", 0), nullptr);

    TempFile copy;
    AutoRefPtr<BasicFileIO> out = BasicFileIO::open(copy.c_str(), BasicFileIO::Create);
    ASSERT_TRUE(out);
    ASSERT_TRUE(QtAtomWriter::copyTree(*root, *out));
    EXPECT_EQ(readFileBytes(copy.path()), movie);

    // After a full recalculation the sizes stay as they were read.
    root->recalcOffset(QtTreeSize(true, 0, 0));
    EXPECT_EQ(dref->getSize(), movie.size() - 8);
    EXPECT_EQ(dref->findAtom("rsrc", 0)->getSize(), 14u);
}

TEST(QtAtomDataRefHdr, AListCutShortIsNotReadPastItsBytes) {
    Bytes bytes = concat({words({16}), Bytes{'d', 'r', 'e', 'f', 0, 0, 0, 0}});  // the count is missing
    QtAtomDataRefHdr dref(nullptr);
    unsigned int consumed = 0;
    EXPECT_FALSE(decodeFrom(dref, bytes, &consumed));
    EXPECT_EQ(dref.getCount(), 0u);
    EXPECT_EQ(consumed, 8u) << "the version and flags are left";
}
