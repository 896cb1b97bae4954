#include <gtest/gtest.h>

#include <functional>

#include "tests/TestSupport.h"
#include "framework/FaultyFileIO.h"
#include "quicktime/layout/QtAtomReader.h"
#include "quicktime/atoms/QtAtomUnknown.h"
#include "quicktime/atoms/QtAtomWriter.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/layout/QtAtomRoot.h"

namespace {

AutoPtr<QtAtomRoot> readBytes(TempFile const& file, Bytes const& bytes) {
    file.write(bytes);
    return QtAtomReader::readFile(file.c_str());
}

// ftyp@0 (20), mdat@20 (16), moov@36 (24: udta holding an empty abcd).
Bytes smallMovie() {
    Bytes brand = {'q', 't', ' ', ' '};
    return concat({atomBytes("ftyp", concat({brand, words({0x200}), brand})), atomBytes("mdat", filled(8, 0xAB)),
                   atomBytes("moov", atomBytes("udta", atomBytes("abcd", {})))});
}

}  // namespace

TEST(QtAtomReader, LeavesLargeBodiesOnDisk) {
    TempFile file;
    AutoPtr<QtAtomRoot> root =
        readBytes(file, concat({atomBytes("mdat", filled(0x100008, 0xCD)), atomBytes("moov", atomBytes("udta", {}))}));
    ASSERT_TRUE(root);
    BaseQtAtom const* mdat = root->findAtom("mdat", 0);
    ASSERT_NE(dynamic_cast<QtAtomUnknown const*>(mdat), nullptr);
    EXPECT_EQ(mdat->getSize(), 0x100010u);
    EXPECT_NE(root->findAtom("moov.udta", 0), nullptr);
}

TEST(QtAtomReader, RefusesFilesThatAreNotMovies) {
    TempFile file;
    MessageCapture capture;
    EXPECT_FALSE(readBytes(file, {}));
    EXPECT_FALSE(readBytes(file, Bytes(4096, 0)));
    std::string text = "hello world, this is not a movie at all\n";
    EXPECT_FALSE(readBytes(file, Bytes(text.begin(), text.end())));
    EXPECT_TRUE(capture.contains("not a QuickTime movie"));
    EXPECT_FALSE(QtAtomReader::readFile("/nonexistent/dir/movie.mov"));
    EXPECT_TRUE(capture.contains("cannot open"));
}

TEST(QtAtomReader, KeepsGarbageAfterTheMdatAndAnAtomCutShortAndCopiesThemBack) {
    Bytes movie = smallMovie();
    Bytes garbage(movie.begin(), movie.begin() + 36);  // after the top-level mdat
    for (int i = 0; i < 37; ++i) garbage.push_back(static_cast<unsigned char>(i * 7 + 3));
    Bytes cut(movie.begin(), movie.end() - 6);  // inside moov.udta.abcd
    for (bool isCut : {false, true}) {
        SCOPED_TRACE(isCut ? "cut short" : "garbage");
        Bytes const& bytes = isCut ? cut : garbage;
        TempFile file;
        MessageCapture capture;
        AutoPtr<QtAtomRoot> root = readBytes(file, bytes);
        ASSERT_TRUE(root);
        if (isCut) {
            EXPECT_TRUE(capture.contains("cut short"));
            ASSERT_NE(root->findAtom("moov", 0), nullptr);
            EXPECT_EQ(root->findAtom("moov", 0)->getSize(), 24u);
        } else {
            EXPECT_EQ(root->countChildren(), 2u);
            EXPECT_EQ(capture.count(MsgLevel::Warning), 0u);  // silent after a top-level mdat
        }
        TempFile copy;
        AutoRefPtr<BasicFileIO> out = BasicFileIO::open(copy.c_str(), BasicFileIO::Create);
        ASSERT_TRUE(QtAtomWriter::copyTree(*root, *out));
        EXPECT_EQ(readFileBytes(copy.path()), bytes);
    }
}

TEST(QtAtomReader, EndsAnOpenMdatWhereTheFileEndedWhenItsRootWasSized) {
    TempFile file;
    Bytes bytes = smallMovie();
    size_t movie = bytes.size();
    putAtomHeader(bytes, 0, "mdat");
    bytes.resize(bytes.size() + 100, 0xAB);
    file.write(bytes);
    AutoRefPtr<BasicFileIO> io = BasicFileIO::open(file.c_str(), BasicFileIO::ReadOnly);
    QtAtomRoot root(io, bytes.size());
    bytes.resize(bytes.size() + 64, 0xCD);  // the recorder appends while the tree is read
    file.write(bytes);
    MessageCapture capture;
    ASSERT_TRUE(QtAtomReader::readTree(root));
    BaseQtAtom const* mdat = root.findAtom("mdat", 1);
    ASSERT_NE(mdat, nullptr);
    EXPECT_EQ(mdat->getFileOffset() + mdat->getSize(), movie + 108);
    EXPECT_EQ(capture.count(MsgLevel::Warning), 0u) << capture.all();
}

TEST(QtAtomReader, KeepsDeeplyNestedContainersWithoutRecursingForever) {
    TempFile file;
    Bytes bytes;
    const unsigned depth = 5000;
    for (unsigned i = 0; i < depth; ++i) putAtomHeader(bytes, 8 * (depth - i), "trak");
    AutoPtr<QtAtomRoot> root = readBytes(file, bytes);
    ASSERT_TRUE(root);
    unsigned levels = 0;
    for (BaseQtAtom const* a = root->getChild(); a; a = a->getChild()) ++levels;
    EXPECT_EQ(levels, QtAtomReader::kMaxDepth + 1);
}

TEST(QtAtomWriter, WritesBackOnlyDirtyAtomsInPlace) {
    TempFile file;
    Bytes bytes = smallMovie();
    file.write(bytes);
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(file.c_str(), BasicFileIO::ReadWrite);
    ASSERT_TRUE(root);
    BaseQtAtom const* item = root->findAtom("moov.udta.abcd", 0);
    ASSERT_NE(item, nullptr);
    item->setId(qtId("wxyz"));
    EXPECT_TRUE(root->checkForDirty());
    ASSERT_TRUE(root->writeDirty());
    EXPECT_FALSE(root->checkForDirty());
    Bytes expected = bytes;
    std::copy_n("wxyz", 4, expected.end() - 4);
    EXPECT_EQ(readFileBytes(file.path()), expected);
}

TEST(QtAtomWriter, AFailedWriteOfAChangedAtomFailsTheCopy) {
    TempFile file;
    AutoPtr<QtAtomRoot> root = readBytes(file, smallMovie());
    ASSERT_TRUE(root);
    std::function<void(BaseQtAtom const*)> markChanged = [&](BaseQtAtom const* atom) {
        for (BaseQtAtom const* child = atom->getChild(); child; child = child->getSibling()) {
            child->write();
            markChanged(child);
        }
    };
    markChanged(root.get());
    TempFile copy;
    AutoRefPtr<FaultyFileIO> out = FaultyFileIO::open(copy.c_str(), BasicFileIO::Create);
    out->failWrite(1);
    MessageCapture messages;
    EXPECT_FALSE(QtAtomWriter::copyTree(*root, *out));
    EXPECT_TRUE(messages.contains("cannot write"));
}
