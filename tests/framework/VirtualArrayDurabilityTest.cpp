// A disk-backed array never drops its changes: pages changed in its cache reach the file when the
// array goes away without a flush.
#include <gtest/gtest.h>

#include "framework/VirtualArray.h"
#include "tests/framework/TempMovieFile.h"

TEST(VirtualArrayDurability, ChangedPagesReachTheFileWhenTheArrayIsDestroyed) {
    TempMovieFile temp;
    AutoRefPtr<BasicFileIO> file = BasicFileIO::open(temp.path(), BasicFileIO::ReadWrite);
    {
        VirtualArray<unsigned int> array("stsz");
        array.setIoPrep(&bigEndian32);
        array.setVirtualSize(100);
        array.setMap(64);
        ASSERT_TRUE(array.setBackingStore(file));
        array.setElementAt(3, 0x0A0B0C0Du, nullptr);
    }
    EXPECT_EQ(temp.bytes(64 + 12, 4), (std::vector<unsigned char>{0x0A, 0x0B, 0x0C, 0x0D}));
}
