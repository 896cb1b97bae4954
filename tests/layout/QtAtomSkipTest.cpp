#include <gtest/gtest.h>

#include "quicktime/layout/QtAtomReader.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/layout/QtAtomSkip.h"
#include "tests/TestSupport.h"
#include "tests/layout/LayoutTestSupport.h"

TEST(QtAtomSkip, SkipReadFromAFileIsASkipOnDiskAndRewritesOnlyItsHeader) {
    TempFile temp;
    temp.write(concat({atomBytes("ftyp", filled(12, 'f')), atomBytes("skip", filled(40, 's'))}));
    AutoRefPtr<BasicFileIO> file = BasicFileIO::open(temp.c_str(), BasicFileIO::ReadWrite);
    QtAtomRoot root(file, file->length());
    ASSERT_TRUE(QtAtomReader::readTree(root));
    auto const* skip = dynamic_cast<QtAtomSkip const*>(root.getChild()->getSibling());
    ASSERT_NE(skip, nullptr);
    EXPECT_EQ(skip->getDiskId(), QtAtomSkip::kSkipId);
    EXPECT_EQ(skip->getSize(), 48u);
    EXPECT_EQ(skip->getEncodeSize(), 8u);
    skip->write();
    ASSERT_TRUE(root.writeDirty());
    EXPECT_EQ(readFileBytes(temp.path()),
              concat({atomBytes("ftyp", filled(12, 'f')), atomBytes("skip", filled(40, 's'))}));
}
