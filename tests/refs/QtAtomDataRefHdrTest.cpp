#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "quicktime/quicktime.h"
#include "quicktime/refs/QtAtomDataAlias.h"
#include "quicktime/refs/QtAtomDataRefHdr.h"
#include "quicktime/refs/QtAtomDataResource.h"
#include "tests/TestSupport.h"

namespace {


void collect(BaseQtAtom const* atom, QtAtomIdType id, std::vector<BaseQtAtom const*>& out) {
    for (BaseQtAtom const* child = atom->getChild(); child; child = child->getSibling()) {
        if (child->getId() == id) out.push_back(child);
        collect(child, id, out);
    }
}

// A small movie: moov { dref { alis (self reference), url , rsrc with two stray bytes } }.
Bytes craftedMovie() {
    Bytes body;
    putAtomHeader(body, 12, "alis");
    put32(body, 1);
    putAtomHeader(body, 12, "url ");
    put32(body, 1);
    putAtomHeader(body, 14, "rsrc");
    put32(body, 0);
    body.push_back(0xAB);
    body.push_back(0xCD);
    Bytes dref;
    putAtomHeader(dref, static_cast<uint32_t>(16 + body.size()), "dref");
    put32(dref, 0);
    put32(dref, 3);
    dref.insert(dref.end(), body.begin(), body.end());
    Bytes movie;
    putAtomHeader(movie, static_cast<uint32_t>(8 + dref.size()), "moov");
    movie.insert(movie.end(), dref.begin(), dref.end());
    return movie;
}

}  // namespace

TEST(QtAtomDataRefHdr, ReadsAndWritesItsReferencesByteForByte) {
    TempFile source;
    Bytes movie = craftedMovie();
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
    Bytes bytes;
    putAtomHeader(bytes, 16, "dref");
    put32(bytes, 0);  // the count is missing
    QtAtomDataRefHdr dref(nullptr);
    QtAtomBuffer in(bytes.data(), static_cast<unsigned int>(bytes.size()), QtAtomBuffer::Full);
    EXPECT_FALSE(dref.decode(in));
    EXPECT_EQ(dref.getCount(), 0u);
    EXPECT_EQ(in.nOccupied(), 4u);
}
