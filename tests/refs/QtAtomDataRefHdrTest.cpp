#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "quicktime/quicktime.h"
#include "quicktime/refs/QtAtomDataAlias.h"
#include "quicktime/refs/QtAtomDataRefHdr.h"
#include "quicktime/refs/QtAtomDataResource.h"
#include "tests/TestSupport.h"

namespace {

using Bytes = std::vector<unsigned char>;

void collect(BaseQtAtom const* atom, QtAtomIdType id, std::vector<BaseQtAtom const*>& out) {
    for (BaseQtAtom const* child = atom->getChild(); child; child = child->getSibling()) {
        if (child->getId() == id) out.push_back(child);
        collect(child, id, out);
    }
}

std::string line(BaseQtAtom const* atom) {
    return std::string(atom->idName().render()) + ": " + std::to_string(atom->getSize()) + "b@" +
           std::to_string(atom->getFileOffset());
}

// A small movie: moov { dref { alis (self reference), url , rsrc with two stray bytes } }.
Bytes craftedMovie() {
    Bytes body;
    putAtomHeader(body, 12, "alis");
    putUint32(body, 1);
    putAtomHeader(body, 12, "url ");
    putUint32(body, 1);
    putAtomHeader(body, 14, "rsrc");
    putUint32(body, 0);
    body.push_back(0xAB);
    body.push_back(0xCD);
    Bytes dref;
    putAtomHeader(dref, static_cast<uint32_t>(16 + body.size()), "dref");
    putUint32(dref, 0);
    putUint32(dref, 3);
    dref.insert(dref.end(), body.begin(), body.end());
    Bytes movie;
    putAtomHeader(movie, static_cast<uint32_t>(8 + dref.size()), "moov");
    movie.insert(movie.end(), dref.begin(), dref.end());
    return movie;
}

}  // namespace

TEST(QtAtomDataRefHdr, ListsItsReferencesAsChildAtomsInEveryCorpusMovie) {
    for (std::string const& name : corpusMovies()) {
        SCOPED_TRACE(name);
        AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(testDataPath(name).c_str());
        ASSERT_TRUE(root);
        std::string expected = readFileText(testDataPath(name + ".atoms.txt"));
        std::vector<BaseQtAtom const*> drefs;
        collect(root.get(), qtId("dref"), drefs);
        ASSERT_FALSE(drefs.empty());
        for (BaseQtAtom const* atom : drefs) {
            auto const* dref = dynamic_cast<QtAtomDataRefHdr const*>(atom);
            ASSERT_NE(dref, nullptr);
            EXPECT_EQ(dref->countChildren(), dref->getCount());
            EXPECT_NE(expected.find(line(dref) + "\n"), std::string::npos) << line(dref);
            for (BaseQtAtom const* ref = dref->getChild(); ref; ref = ref->getSibling())
                EXPECT_NE(expected.find(line(ref) + "\n"), std::string::npos) << line(ref);
        }
    }
}

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

TEST(QtAtomDataRefHdr, ShowsTheReferenceCount) {
    TempFile source;
    source.write(craftedMovie());
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(source.c_str());
    ASSERT_TRUE(root);
    MessageCapture capture;
    root->findAtom("moov.dref", 0)->show();
    EXPECT_EQ(capture.all(), "    dref: 54b@8,nref=3\n");
}

TEST(QtAtomDataRefHdr, ANewListIsSixteenBytesWithoutReferences) {
    QtAtomDataRefHdr dref(nullptr);
    EXPECT_EQ(dref.getSize(), 16u);
    EXPECT_EQ(dref.getFixedSize(), 16u);
    EXPECT_FALSE(dref.hasEncodedChildren());
    QtAtomBuffer out(16);
    ASSERT_TRUE(dref.encode(out));
    Bytes expected;
    putAtomHeader(expected, 16, "dref");
    putUint32(expected, 0);
    putUint32(expected, 0);
    EXPECT_EQ(Bytes(out.ptrData(), out.ptrData() + out.nOccupied()), expected);
}

TEST(QtAtomDataRefHdr, AListCutShortIsNotReadPastItsBytes) {
    Bytes bytes;
    putAtomHeader(bytes, 16, "dref");
    putUint32(bytes, 0);  // the count is missing
    QtAtomDataRefHdr dref(nullptr);
    QtAtomBuffer in(bytes.data(), static_cast<unsigned int>(bytes.size()), QtAtomBuffer::Full);
    EXPECT_FALSE(dref.decode(in));
    EXPECT_EQ(dref.getCount(), 0u);
    EXPECT_EQ(in.nOccupied(), 4u);
}
