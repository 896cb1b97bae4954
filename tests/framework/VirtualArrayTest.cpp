// VirtualArray<T> over a real temporary file: memory mode, placing and backing, what reaches the
// file and when, moves, reservations, write failures, the owner's cache bound, and a randomised
// comparison with a plain std::vector.
#include "framework/VirtualArray.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "framework/BridgeAnchor.h"
#include "tests/TestSupport.h"
#include "tests/framework/TempMovieFile.h"

namespace {

unsigned int bigEndianAt(std::vector<unsigned char> const& bytes, unsigned long at) {
    return (unsigned(bytes[at]) << 24) | (unsigned(bytes[at + 1]) << 16) | (unsigned(bytes[at + 2]) << 8) |
           unsigned(bytes[at + 3]);
}

void fillWithGarbage(char const* path, unsigned long n) {
    AutoRefPtr<BasicFileIO> file = BasicFileIO::open(path, BasicFileIO::ReadWrite);
    std::vector<unsigned char> garbage(n, 0xEE);
    file->writeAt(0, garbage.data(), n);
}

// A backed array of big-endian uint32 placed at `offset`, with `size` slots.
struct BackedArray {
    BackedArray(AutoRefPtr<BasicFileIO> file, unsigned long offset, unsigned int size) : array("test") {
        array.setIoPrep(&bigEndian32);
        array.setVirtualSize(size);
        array.setMap(offset);
        array.setBackingStore(file);
    }
    VirtualArray<unsigned int> array;
};

// Collects reservation events.
struct ReservationLog {
    bool record(VirtualBase::Reservation const& r) {
        events.push_back(r);
        return true;
    }
    std::vector<VirtualBase::Reservation> events;
};

// Sums the reported cache changes.
struct StorageLog {
    bool record(VirtualBase::StorageChange const& change) {
        total += change.delta;
        return true;
    }
    long total = 0;
};

}  // namespace

TEST(VirtualArrayTest, MapIndexKeepsEveryValueAndCompletesTheNewPlace) {
    TempMovieFile temp;
    fillWithGarbage(temp.path(), 600000);
    AutoRefPtr<BasicFileIO> file = BasicFileIO::open(temp.path(), BasicFileIO::ReadWrite);
    BackedArray backed(file, 1000, 50000);
    for (unsigned int i = 0; i < 30000; ++i) backed.array.setElementAt(i, i + 1, nullptr);
    ASSERT_TRUE(backed.array.flush());
    for (unsigned int i = 30000; i < 30010; ++i) backed.array.setElementAt(i, i + 1, nullptr);  // dirty only

    ASSERT_TRUE(backed.array.mapIndex(30010, 400000));
    FileIoClientRec agent;
    for (unsigned int i = 0; i < 30010; i += 331) ASSERT_EQ(backed.array.elementAt(i, &agent), i + 1);
    backed.array.setElementAt(30010, 30011, nullptr);
    ASSERT_TRUE(backed.array.flush());
    std::vector<unsigned char> disk = temp.bytes(400000, 50000 * 4);
    for (unsigned int i = 0; i <= 30010; ++i) ASSERT_EQ(bigEndianAt(disk, i * 4), i + 1) << i;
    EXPECT_EQ(bigEndianAt(disk, 30011 * 4), 0u);
    EXPECT_EQ(bigEndianAt(temp.bytes(1000, 4), 0), 1u);  // the old place is left as it was
    EXPECT_FALSE(backed.array.mapIndex(50001, 0));       // a first index past the size is refused
}

TEST(VirtualArrayTest, AFailedWriteKeepsTheChangesForALaterFlush) {
    TempMovieFile temp;
    AutoRefPtr<InstrumentedFile> file = InstrumentedFile::open(temp.path());
    BackedArray backed(asFile(file), 0, 3000);
    for (unsigned int i = 0; i < 3000; ++i) backed.array.setElementAt(i, i + 100, nullptr);
    {
        MessageCapture capture;
        file->failWrites(true);
        EXPECT_FALSE(backed.array.flush());
        EXPECT_TRUE(capture.contains("VirtualArray test: write of"));
    }
    EXPECT_TRUE(backed.array.isDirty());
    EXPECT_EQ(backed.array[2999], 3099u);
    file->failWrites(false);
    ASSERT_TRUE(backed.array.flush());
    std::vector<unsigned char> disk = temp.bytes(0, 3000 * 4);
    for (unsigned int i = 0; i < 3000; ++i) ASSERT_EQ(bigEndianAt(disk, i * 4), i + 100);
}

TEST(VirtualArrayTest, OwnerCacheIsBoundedWhateverTheLengthAndReportsEveryChange) {
    TempMovieFile temp;
    AutoRefPtr<BasicFileIO> file = BasicFileIO::open(temp.path(), BasicFileIO::ReadWrite);
    StorageLog storage;
    BridgeAnchor anchor(&storage, &StorageLog::record);
    BackedArray backed(file, 0, 1000000);
    backed.array.setStorageCallback(&anchor);
    unsigned long bound = (VirtualArrayBase::kOwnerPageLimit + 1) * static_cast<unsigned long>(VirtualArrayBase::kPageBytes);
    unsigned long peak = 0;
    for (unsigned int i = 0; i < 1000000; ++i) {
        backed.array.setElementAt(i, i, nullptr);
        peak = std::max(peak, backed.array.getStorageByteCount());
    }
    for (unsigned int i = 0; i < 1000000; i += 4099) {
        ASSERT_EQ(backed.array[i], i);
        peak = std::max(peak, backed.array.getStorageByteCount());
    }
    EXPECT_LE(peak, bound);
    EXPECT_EQ(static_cast<unsigned long>(storage.total), backed.array.getStorageByteCount());
    backed.array.close(nullptr);
    EXPECT_EQ(backed.array.getStorageByteCount(), 0u);
    EXPECT_EQ(storage.total, 0);
}

// Random appends, overwrites, reads, resizes, moves and flushes against a std::vector, over a file
// full of garbage so that a read of a slot that should be zero shows; after every flush the bytes
// in the file and a second array adopting them must agree with the model.
TEST(VirtualArrayTest, RandomOperationsAgreeWithAVectorModel) {
    for (unsigned int seed = 1; seed <= 12; ++seed) {
        TempMovieFile temp;
        fillWithGarbage(temp.path(), 3 << 20);
        AutoRefPtr<BasicFileIO> file = BasicFileIO::open(temp.path(), BasicFileIO::ReadWrite);
        std::mt19937 random(seed);
        auto pick = [&](unsigned int n) { return n ? static_cast<unsigned int>(random() % n) : 0u; };

        VirtualArray<unsigned int> array("model");
        array.setIoPrep(&bigEndian32);
        std::vector<unsigned int> model(16, 0);
        array.setVirtualSize(16);
        unsigned long place = 4096 + pick(1000) * 4;
        array.setMap(place);
        unsigned int next = 0;  // the append cursor
        FileIoClientRec readerA, readerB(3);

        for (int step = 0; step < 3000; ++step) {
            unsigned int op = pick(100);
            unsigned int size = static_cast<unsigned int>(model.size());
            if (op < 40) {  // append
                if (next < size) {
                    unsigned int value = static_cast<unsigned int>(random()) | 1;
                    ASSERT_TRUE(array.setElementAt(next, value, nullptr));
                    model[next++] = value;
                }
            } else if (op < 50 && size) {  // overwrite anywhere
                unsigned int at = pick(size), value = static_cast<unsigned int>(random());
                ASSERT_TRUE(array.setElementAt(at, value, nullptr));
                model[at] = value;
            } else if (op < 80 && size) {  // read through one of three paths
                unsigned int at = pick(size);
                FileIoClientRec* agent = op < 60 ? &readerA : op < 70 ? &readerB : nullptr;
                ASSERT_EQ(array.elementAt(at, agent), model[at]) << "seed " << seed << " step " << step;
            } else if (op < 86) {  // grow, and give the array its file once it is past 16
                unsigned int grown = std::min(size + 1 + pick(30000), 200000u);
                ASSERT_TRUE(array.setVirtualSize(grown));
                model.resize(grown, 0);
                if (grown > VirtualArrayBase::kResidentLimit) array.setBackingStore(file);
            } else if (op < 89) {  // shrink
                unsigned int shrunk = pick(size + 1);
                ASSERT_TRUE(array.setVirtualSize(shrunk));
                model.resize(shrunk);
                next = std::min(next, shrunk);
            } else if (op < 93) {  // move, by a little (overlapping) or far
                place = pick(2) && place > 8192 ? place + pick(64) * 4 - 128 : 4096 + pick(1 << 20);
                ASSERT_TRUE(array.mapIndex(next, place));
            } else {  // flush and check the file
                ASSERT_TRUE(array.flush());
                if (!array.isVirtual()) continue;
                std::vector<unsigned char> disk = temp.bytes(place, model.size() * 4);
                ASSERT_EQ(disk.size(), model.size() * 4);
                for (unsigned int i = 0; i < model.size(); ++i)
                    ASSERT_EQ(bigEndianAt(disk, i * 4), model[i]) << "seed " << seed << " slot " << i;
                VirtualArray<unsigned int> reopened("reopened");
                reopened.setIoPrep(&bigEndian32);
                reopened.setVirtualSize(static_cast<unsigned int>(model.size()));
                reopened.setBackingStore(BasicFileIO::open(temp.path(), BasicFileIO::ReadOnly));
                reopened.setMap(place);
                FileIoClientRec fresh;
                for (unsigned int i = 0; i < model.size(); i += 1 + pick(500))
                    ASSERT_EQ(reopened.elementAt(i, &fresh), model[i]);
            }
        }
    }
}
