#include <gtest/gtest.h>

#include <vector>

#include "tests/TestSupport.h"
#include "quicktime/atoms/QtAtomHeader.h"
#include "quicktime/atoms/QtAtomPreserved.h"
#include "quicktime/layout/QtAtomReader.h"
#include "quicktime/atoms/QtAtomUnknown.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/quicktime.h"

namespace {

// Decodes a prototype from the bytes and runs the factory under `parent`.
BaseQtAtom* make(Bytes bytes, BaseQtAtom const* parent, unsigned long offset = 0) {
    QtAtomBuffer buffer(bytes.data(), static_cast<unsigned int>(std::min<size_t>(bytes.size(), 16)),
                        QtAtomBuffer::Full);
    buffer.setFileOffset(offset);
    BaseQtAtom prototype;
    prototype.decode(buffer);
    return prototype.createActual(parent);
}

Bytes header(uint32_t size, char const* type) {
    Bytes bytes;
    putAtomHeader(bytes, size, type);
    return bytes;
}

struct FileRoot {
    explicit FileRoot(char const* name = "movie.mov") : file(name) {
        file.write(Bytes(64, 0));
        root = new QtAtomRoot(BasicFileIO::open(file.c_str(), BasicFileIO::ReadOnly), 64);
    }
    ~FileRoot() { delete root; }
    TempFile file;
    QtAtomRoot* root;
};

}  // namespace

TEST(QtAtomFactory, BuildsContainersAndKeepsUnknownBytes) {
    QtAtomRoot root(AutoRefPtr<BasicFileIO>(), 100);
    BaseQtAtom* moov = make(header(100, "moov"), &root);
    ASSERT_NE(moov, nullptr);
    EXPECT_TRUE(moov->hasEncodedChildren());
    EXPECT_EQ(moov->getSize(), 100u);
    EXPECT_EQ(root.getChild(), moov);

    BaseQtAtom* small = make(header(1024, "abcd"), moov);
    EXPECT_NE(dynamic_cast<QtAtomPreserved*>(small), nullptr);
    BaseQtAtom* large = make(header(1025, "abcd"), moov);
    EXPECT_NE(dynamic_cast<QtAtomUnknown*>(large), nullptr);
    EXPECT_TRUE(large->hasUntouchedData());
    {
        ScopedDebugFlag allSizes("quicktimeDbg", "all sizes");
        EXPECT_NE(dynamic_cast<QtAtomPreserved*>(make(header(5000, "abcd"), moov)), nullptr);
    }
    EXPECT_NE(dynamic_cast<QtAtomFree*>(make(header(16, "free"), &root)), nullptr);
    EXPECT_NE(dynamic_cast<QtAtomWide*>(make(header(8, "wide"), &root)), nullptr);
}

TEST(QtAtomFactory, KeepsTheWideHeaderForm) {
    QtAtomRoot root(AutoRefPtr<BasicFileIO>(), 100);
    Bytes bytes = header(1, "free");
    put32(bytes, 0);
    put32(bytes, 24);
    BaseQtAtom* atom = make(bytes, &root);
    ASSERT_NE(atom, nullptr);
    EXPECT_EQ(atom->getHeaderSize(), 16u);
    EXPECT_EQ(atom->getSize(), 24u);
}

TEST(QtAtomFactory, PadsTheEndOfUserData) {
    QtAtomRoot root(AutoRefPtr<BasicFileIO>(), 100);
    BaseQtAtom* udta = make(header(30, "udta"), &root);
    BaseQtAtom* pad = make({0, 0, 0, 0}, udta, 26);
    ASSERT_NE(dynamic_cast<QtAtomPad*>(pad), nullptr);
    EXPECT_EQ(pad->getSize(), 4u);
    BaseQtAtom* item = make(header(12, "abcd"), udta);
    EXPECT_NE(dynamic_cast<QtAtomPreserved*>(item), nullptr);
}

TEST(QtAtomFactory, ReportsInvalidAtomsAfterAMoovButNotAfterAnMdat) {
    FileRoot f;
    Bytes garbage = {0, 0, 0, 3, 1, 2, 3, 4};
    make(header(16, "moov"), f.root, 0);
    {
        MessageCapture capture;
        EXPECT_EQ(make(garbage, f.root, 16), nullptr);
        ASSERT_EQ(capture.messages().size(), 1u);
        EXPECT_EQ(capture.messages()[0].level, MsgLevel::Warning);
        // The undersized header's id became 0, which renders as nothing.
        EXPECT_EQ(capture.messages()[0].text, f.file.path() + ": invalid atom Root., 3@16\n");
    }
    f.root->file()->setStatusFlag(false);
    {
        MessageCapture capture;
        make(garbage, f.root, 16);
        ASSERT_EQ(capture.messages().size(), 1u);
        EXPECT_EQ(capture.messages()[0].level, MsgLevel::Info);
    }
    make(header(16, "mdat"), f.root, 16);
    {
        MessageCapture capture;
        EXPECT_EQ(make(garbage, f.root, 32), nullptr);
        EXPECT_TRUE(capture.messages().empty());
    }
}

TEST(QtAtomFactory, MakesEachStructureTypeAsItsOwnClass) {
    struct Case {
        char const* type;
        bool (*isExpected)(BaseQtAtom const*);
    } const cases[] = {
        {"mvhd", [](BaseQtAtom const* a) { return !!dynamic_cast<QtAtomMvhd const*>(a); }},
        {"tkhd", [](BaseQtAtom const* a) { return !!dynamic_cast<QtAtomTrakHdr const*>(a); }},
        {"mdhd", [](BaseQtAtom const* a) { return !!dynamic_cast<QtAtomMediaHdr const*>(a); }},
        {"hdlr", [](BaseQtAtom const* a) { return !!dynamic_cast<QtAtomHandler const*>(a); }},
        {"vmhd", [](BaseQtAtom const* a) { return !!dynamic_cast<QtAtomVideoInf const*>(a); }},
        {"smhd", [](BaseQtAtom const* a) { return !!dynamic_cast<QtAtomSoundInf const*>(a); }},
        {"gmin", [](BaseQtAtom const* a) { return !!dynamic_cast<QtAtomBaseInf const*>(a); }},
        {"tcmi", [](BaseQtAtom const* a) { return !!dynamic_cast<QtAtomTimecodeInf const*>(a); }},
        {"hmhd", [](BaseQtAtom const* a) { return !!dynamic_cast<QtAtomHintMediaHdr const*>(a); }},
        {"elst", [](BaseQtAtom const* a) { return !!dynamic_cast<QtAtomEditList const*>(a); }},
        {"tref", [](BaseQtAtom const* a) { return !!dynamic_cast<QtAtomTrakRef const*>(a); }},
        {"ftyp", [](BaseQtAtom const* a) { return !!dynamic_cast<QtAtomFileType const*>(a); }},
        {"clef", [](BaseQtAtom const* a) { return !!dynamic_cast<QtAtomApertDimensions const*>(a); }},
        {"prof", [](BaseQtAtom const* a) { return !!dynamic_cast<QtAtomApertDimensions const*>(a); }},
        {"enof", [](BaseQtAtom const* a) { return !!dynamic_cast<QtAtomApertDimensions const*>(a); }},
        {"iods", [](BaseQtAtom const* a) { return !!dynamic_cast<QtAtomObjectDesc const*>(a); }},
        {"sean", [](BaseQtAtom const* a) { return !!dynamic_cast<QtAtomValueTriple const*>(a); }},
        {"m12v", [](BaseQtAtom const* a) { return !!dynamic_cast<QtAtomValueTriple const*>(a); }},
    };
    for (Case const& c : cases) {
        QtAtomHeader parent(qtId("trak"), nullptr);
        BaseQtAtom* made = make(header(200, c.type), &parent);
        ASSERT_NE(made, nullptr) << c.type;
        EXPECT_TRUE(c.isExpected(made)) << c.type;
        EXPECT_EQ(made->getSize(), 200u) << c.type;
    }
}
