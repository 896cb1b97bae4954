#include <gtest/gtest.h>

#include <algorithm>

#include "quicktime/quicktime.h"
#include "tests/TestSupport.h"

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

Bytes header(uint32_t size, char const* type) { return concat({words({size}), Bytes(type, type + 4)}); }

template <class T>
bool isA(BaseQtAtom const* atom) {
    return dynamic_cast<T const*>(atom) != nullptr;
}

}  // namespace

TEST(QtAtomFactory, BuildsContainersKeepsUnknownBytesAndPadsUserData) {
    QtAtomRoot root(AutoRefPtr<BasicFileIO>(), 100);
    BaseQtAtom* moov = make(header(100, "moov"), &root);
    ASSERT_NE(moov, nullptr);
    EXPECT_TRUE(moov->hasEncodedChildren());
    EXPECT_EQ(moov->getSize(), 100u);
    EXPECT_EQ(root.getChild(), moov);

    EXPECT_TRUE(isA<QtAtomPreserved>(make(header(1024, "abcd"), moov)));
    BaseQtAtom* large = make(header(1025, "abcd"), moov);
    EXPECT_TRUE(isA<QtAtomUnknown>(large));
    EXPECT_TRUE(large->hasUntouchedData());
    {
        ScopedDebugFlag allSizes("quicktimeDbg", "all sizes");
        EXPECT_TRUE(isA<QtAtomPreserved>(make(header(5000, "abcd"), moov)));
    }
    EXPECT_TRUE(isA<QtAtomFree>(make(header(16, "free"), &root)));
    EXPECT_TRUE(isA<QtAtomWide>(make(header(8, "wide"), &root)));
    BaseQtAtom* wide = make(concat({header(1, "free"), words({0, 24})}), &root);
    ASSERT_NE(wide, nullptr);
    EXPECT_EQ(wide->getHeaderSize(), 16u);
    EXPECT_EQ(wide->getSize(), 24u);

    // Four zero bytes at the end of user data are its padding.
    BaseQtAtom* udta = make(header(30, "udta"), &root);
    BaseQtAtom* pad = make({0, 0, 0, 0}, udta, 26);
    ASSERT_TRUE(isA<QtAtomPad>(pad));
    EXPECT_EQ(pad->getSize(), 4u);
    EXPECT_TRUE(isA<QtAtomPreserved>(make(header(12, "abcd"), udta)));
}

TEST(QtAtomFactory, ReportsInvalidAtomsAfterAMoovButNotAfterAnMdat) {
    TempFile file;
    file.write(Bytes(64, 0));
    QtAtomRoot root(BasicFileIO::open(file.c_str(), BasicFileIO::ReadOnly), 64);
    Bytes garbage = {0, 0, 0, 3, 1, 2, 3, 4};
    make(header(16, "moov"), &root, 0);
    {
        MessageCapture capture;
        EXPECT_EQ(make(garbage, &root, 16), nullptr);
        ASSERT_EQ(capture.messages().size(), 1u);
        EXPECT_EQ(capture.messages()[0].level, MsgLevel::Warning);
        // The undersized header's id became 0, which renders as nothing.
        EXPECT_EQ(capture.messages()[0].text, file.path() + ": invalid atom Root., 3@16\n");
    }
    root.file()->setStatusFlag(false);
    {
        MessageCapture capture;
        make(garbage, &root, 16);
        ASSERT_EQ(capture.messages().size(), 1u);
        EXPECT_EQ(capture.messages()[0].level, MsgLevel::Info);
    }
    make(header(16, "mdat"), &root, 16);
    MessageCapture capture;
    EXPECT_EQ(make(garbage, &root, 32), nullptr);
    EXPECT_TRUE(capture.messages().empty());
}

TEST(QtAtomFactory, MakesEachStructureTypeAsItsOwnClass) {
    struct Case {
        char const* type;
        bool (*isExpected)(BaseQtAtom const*);
    } const cases[] = {
        {"mvhd", isA<QtAtomMvhd>},          {"tkhd", isA<QtAtomTrakHdr>},     {"mdhd", isA<QtAtomMediaHdr>},
        {"hdlr", isA<QtAtomHandler>},       {"vmhd", isA<QtAtomVideoInf>},    {"smhd", isA<QtAtomSoundInf>},
        {"gmin", isA<QtAtomBaseInf>},       {"tcmi", isA<QtAtomTimecodeInf>}, {"hmhd", isA<QtAtomHintMediaHdr>},
        {"elst", isA<QtAtomEditList>},      {"tref", isA<QtAtomTrakRef>},     {"ftyp", isA<QtAtomFileType>},
        {"clef", isA<QtAtomApertDimensions>}, {"prof", isA<QtAtomApertDimensions>},
        {"enof", isA<QtAtomApertDimensions>}, {"iods", isA<QtAtomObjectDesc>},
        {"sean", isA<QtAtomValueTriple>},     {"m12v", isA<QtAtomValueTriple>},
    };
    for (Case const& c : cases) {
        QtAtomHeader parent(qtId("trak"), nullptr);
        BaseQtAtom* made = make(header(200, c.type), &parent);
        ASSERT_NE(made, nullptr) << c.type;
        EXPECT_TRUE(c.isExpected(made)) << c.type;
        EXPECT_EQ(made->getSize(), 200u) << c.type;
    }
}
