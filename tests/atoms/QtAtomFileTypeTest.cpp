#include <gtest/gtest.h>

#include "quicktime/atoms/QtAtomFileType.h"
#include "tests/TestSupport.h"
#include "tests/atoms/AtomBytes.h"

namespace {

Bytes fileTypeBytes(uint32_t size, std::vector<char const*> const& compatible, unsigned int strayBytes = 0) {
    Bytes b;
    putAtomHeader(b, size, "ftyp");
    putType(b, "qt  ");
    putUint32(b, 0x200);
    for (char const* brand : compatible) putType(b, brand);
    b.insert(b.end(), strayBytes, 0x5A);
    return b;
}

}  // namespace

TEST(QtAtomFileType, CompatibleBrandsRunToTheEndOfTheAtom) {
    QtAtomFileType fileType(nullptr);
    ASSERT_TRUE(decodeFrom(fileType, fileTypeBytes(24, {"qt  ", "isom"})));
    EXPECT_EQ(fileType.getMajorBrand(), qtId("qt  "));
    EXPECT_EQ(fileType.getMinorVersion(), 0x200u);
    ASSERT_EQ(fileType.getCompatibleBrands().size(), 2u);
    EXPECT_EQ(fileType.getCompatibleBrands()[1], qtId("isom"));
    EXPECT_EQ(encodeToBytes(fileType), fileTypeBytes(24, {"qt  ", "isom"}));

    ASSERT_TRUE(decodeFrom(fileType, fileTypeBytes(16, {})));
    EXPECT_TRUE(fileType.getCompatibleBrands().empty());
    EXPECT_EQ(fileType.getVariableSize(), 0u);
}

TEST(QtAtomFileType, OddBytesAfterTheLastBrandAreNotReadAsABrand) {
    // Three stray bytes, followed in the buffer by bytes of the next atom.
    Bytes bytes = fileTypeBytes(23, {"qt  "}, 3);
    putAtomHeader(bytes, 8, "free");
    QtAtomFileType fileType(nullptr);
    unsigned int consumed = 0;
    ASSERT_TRUE(decodeFrom(fileType, bytes, &consumed));
    EXPECT_EQ(consumed, 23u);
    EXPECT_EQ(fileType.getCompatibleBrands().size(), 1u);
    Bytes written = encodeToBytes(fileType);
    EXPECT_EQ(written.size(), 23u);
}

TEST(QtAtomFileType, NewAtomIsEmptyAndShowListsTheBrands) {
    QtAtomFileType fileType(nullptr);
    EXPECT_EQ(fileType.getSize(), 16u);
    EXPECT_EQ(encodeToBytes(fileType), (Bytes{0, 0, 0, 16, 'f', 't', 'y', 'p', 0, 0, 0, 0, 0, 0, 0, 0}));
    fileType.setBrands(qtId("qt  "), 0x200, {qtId("qt  "), qtId("pana")});
    EXPECT_EQ(fileType.resetSize(), 24u);
    MessageCapture capture;
    fileType.show();
    EXPECT_EQ(capture.all(),
              "ftyp: 24b@0,major_brand=qt  ,minor_version=0x200,compatible_brands={qt  ,pana}\n");
}
