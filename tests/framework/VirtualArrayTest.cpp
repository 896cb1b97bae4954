// VirtualArray<T> over a real temporary file: placing and backing, what reaches the file and when,
// moves, write failures, the owner's cache bound, the readers' agents (FileIoClientRec), readers on
// their own threads (run under ThreadSanitizer too), and a randomised comparison with a std::vector.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <random>
#include <thread>

#include "framework/BridgeAnchor.h"
#include "framework/FaultyFileIO.h"
#include "framework/FileIoClientRec.h"
#include "framework/VirtualArray.h"
#include "tests/TestSupport.h"

namespace {

// An existing empty temporary file, read back at any offset.
struct TempMovieFile : TempFile {
    TempMovieFile() { write({}); }
    char const* path() const { return c_str(); }
    Bytes bytes(unsigned long offset, unsigned long n) const {
        Bytes out(n);
        int fd = ::open(c_str(), O_RDONLY);
        long got = fd >= 0 ? ::pread(fd, out.data(), n, static_cast<off_t>(offset)) : -1;
        if (fd >= 0) ::close(fd);
        out.resize(got > 0 ? static_cast<unsigned long>(got) : 0);
        return out;
    }
};

// A file that counts its reads and can be told to fail its writes.
class InstrumentedFile : public BasicFileIO {
  public:
    static AutoRefPtr<InstrumentedFile> open(char const* path) {
        int fd = ::open(path, O_RDWR | O_CLOEXEC);
        return AutoRefPtr<InstrumentedFile>(fd >= 0 ? new InstrumentedFile(fd, path) : nullptr);
    }
    long readAt(unsigned long offset, void* buffer, unsigned long n) override {
        m_reads.fetch_add(1);
        return BasicFileIO::readAt(offset, buffer, n);
    }
    long writeAt(unsigned long offset, void const* buffer, unsigned long n) override {
        return m_failWrites.load() ? -1 : BasicFileIO::writeAt(offset, buffer, n);
    }
    unsigned long reads() const { return m_reads.load(); }
    void failWrites(bool on) { m_failWrites.store(on); }

  private:
    InstrumentedFile(int fd, char const* path) : BasicFileIO(fd, path, true) {}
    std::atomic<unsigned long> m_reads{0};
    std::atomic<bool> m_failWrites{false};
};

AutoRefPtr<BasicFileIO> asFile(AutoRefPtr<InstrumentedFile> const& file) {
    return AutoRefPtr<BasicFileIO>(file.get());
}
AutoRefPtr<BasicFileIO> openFile(char const* path) { return BasicFileIO::open(path, BasicFileIO::ReadWrite); }

// Big-endian 32-bit elements on disk, as the sample tables store them.
unsigned int bigEndian32(unsigned int const* source, unsigned int* destination, unsigned int count, int) {
    for (unsigned int i = 0; i < count; ++i) destination[i] = __builtin_bswap32(source[i]);
    return count;
}

unsigned int bigEndianAt(Bytes const& bytes, unsigned long at) {
    return (unsigned(bytes[at]) << 24) | (unsigned(bytes[at + 1]) << 16) | (unsigned(bytes[at + 2]) << 8) |
           unsigned(bytes[at + 3]);
}

void fillWithGarbage(char const* path, unsigned long n) {
    openFile(path)->writeAt(0, filled(n, 0xEE).data(), n);
}

// A backed array of big-endian uint32 placed at `offset`, with `size` slots.
struct BackedArray {
    BackedArray(AutoRefPtr<BasicFileIO> file, unsigned long offset, unsigned int size) : array("test") {
        array.setIoPrep(&bigEndian32);
        array.setVirtualSize(size);
        array.setMap(offset);
        backed = array.setBackingStore(file);
    }
    VirtualArray<unsigned int> array;
    bool backed;
};

// Sums the reported cache changes.
struct StorageLog {
    bool record(VirtualBase::StorageChange const& change) {
        total += change.delta;
        return true;
    }
    long total = 0;
};

// A file holding `count` big-endian values i * 3 at offset 0, and an array adopting them.
struct ArrayOnFile {
    explicit ArrayOnFile(unsigned int count) : file(withValues(temp, count)), array("agent") {
        array.setIoPrep(&bigEndian32);
        array.setVirtualSize(count);
        array.setBackingStore(asFile(file));
        array.setMap(0);
    }
    static AutoRefPtr<InstrumentedFile> withValues(TempMovieFile const& temp, unsigned int count) {
        std::vector<unsigned int> disk(count);
        for (unsigned int i = 0; i < count; ++i) disk[i] = __builtin_bswap32(i * 3);
        openFile(temp.path())->writeAt(0, disk.data(), disk.size() * 4);
        return InstrumentedFile::open(temp.path());
    }
    TempMovieFile temp;
    AutoRefPtr<InstrumentedFile> file;
    VirtualArray<unsigned int> array;
};

}  // namespace

TEST(VirtualArrayTest, MapIndexKeepsEveryValueAndCompletesTheNewPlace) {
    TempMovieFile temp;
    fillWithGarbage(temp.path(), 600000);
    BackedArray backed(openFile(temp.path()), 1000, 50000);
    for (unsigned int i = 0; i < 30000; ++i) backed.array.setElementAt(i, i + 1, nullptr);
    ASSERT_TRUE(backed.array.flush());
    for (unsigned int i = 30000; i < 30010; ++i) backed.array.setElementAt(i, i + 1, nullptr);  // dirty only

    ASSERT_TRUE(backed.array.mapIndex(30010, 400000));
    FileIoClientRec agent;
    for (unsigned int i = 0; i < 30010; i += 331) ASSERT_EQ(backed.array.elementAt(i, &agent), i + 1);
    backed.array.setElementAt(30010, 30011, nullptr);
    ASSERT_TRUE(backed.array.flush());
    Bytes disk = temp.bytes(400000, 50000 * 4);
    for (unsigned int i = 0; i <= 30010; ++i) ASSERT_EQ(bigEndianAt(disk, i * 4), i + 1) << i;
    EXPECT_EQ(bigEndianAt(disk, 30011 * 4), 0u);
    EXPECT_EQ(bigEndianAt(temp.bytes(1000, 4), 0), 1u);  // the old place is left as it was
    EXPECT_FALSE(backed.array.mapIndex(50001, 0));       // a first index past the size is refused
}

TEST(VirtualArrayTest, ChangedPagesReachTheFileWhenTheArrayIsDestroyed) {
    TempMovieFile temp;
    {
        BackedArray backed(openFile(temp.path()), 64, 100);
        ASSERT_TRUE(backed.backed);
        backed.array.setElementAt(3, 0x0A0B0C0Du, nullptr);
    }
    EXPECT_EQ(temp.bytes(64 + 12, 4), (Bytes{0x0A, 0x0B, 0x0C, 0x0D}));
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
    Bytes disk = temp.bytes(0, 3000 * 4);
    for (unsigned int i = 0; i < 3000; ++i) ASSERT_EQ(bigEndianAt(disk, i * 4), i + 100);
}

TEST(VirtualArrayTest, EveryWayToTheFileReportsAFailedWrite) {
    TempMovieFile temp;
    AutoRefPtr<FaultyFileIO> file = FaultyFileIO::open(temp.path(), BasicFileIO::ReadWrite);
    unsigned int page = VirtualArrayBase::kPageBytes / 4;
    BackedArray backed(AutoRefPtr<BasicFileIO>(file.get()), 0, 3 * page);
    MessageCapture capture;
    backed.array.setElementAt(0, 1, nullptr);
    backed.array.setElementAt(2 * page, 2, nullptr);
    file->failWrite(2);  // the zeros between the first page and the third
    EXPECT_FALSE(backed.array.flush());
    file->failWrite(1);
    EXPECT_FALSE(backed.array.writeDirtyPages());
    file->failWrite(1);
    EXPECT_FALSE(backed.array.mapIndex(0, 100000));  // the copy to the new place
    EXPECT_EQ(backed.array.getMapOffset(), 0u);
    ASSERT_TRUE(backed.array.flush());
    EXPECT_EQ(bigEndianAt(temp.bytes(2 * page * 4, 4), 0), 2u);
}

TEST(VirtualArrayTest, OwnerCacheIsBoundedWhateverTheLengthAndReportsEveryChange) {
    TempMovieFile temp;
    StorageLog storage;
    BridgeAnchor anchor(&storage, &StorageLog::record);
    BackedArray backed(openFile(temp.path()), 0, 1000000);
    backed.array.setStorageCallback(&anchor);
    unsigned long bound =
        (VirtualArrayBase::kOwnerPageLimit + 1) * static_cast<unsigned long>(VirtualArrayBase::kPageBytes);
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
        AutoRefPtr<BasicFileIO> file = openFile(temp.path());
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
                Bytes disk = temp.bytes(place, model.size() * 4);
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

// A reader's agent: its pages belong to it alone, stay within its budget, and are never used once
// the array has changed them.
TEST(FileIoClientRecTest, OneAgentsReadsNeverEvictAnothersPages) {
    ArrayOnFile on(2000000);
    unsigned int perPage = on.array.getPageElements();
    FileIoClientRec quiet(4), busy(4);
    for (unsigned int page = 0; page < 4; ++page)
        EXPECT_EQ(on.array.elementAt(page * perPage, &quiet), page * perPage * 3);
    unsigned long readsBefore = on.file->reads();
    for (unsigned int i = 0; i < 2000000; i += perPage / 2) ASSERT_EQ(on.array.elementAt(i, &busy), i * 3);
    EXPECT_GT(on.file->reads() - readsBefore, 4u);

    readsBefore = on.file->reads();
    for (unsigned int page = 0; page < 4; ++page)
        for (unsigned int i = 0; i < perPage; i += 97)
            ASSERT_EQ(on.array.elementAt(page * perPage + i, &quiet), (page * perPage + i) * 3);
    EXPECT_EQ(on.file->reads(), readsBefore);  // all four pages still held by the quiet agent
    EXPECT_EQ(busy.getPageCount(), 4u);
}

TEST(FileIoClientRecTest, APageIsReloadedOnceTheOwnerChangesIt) {
    ArrayOnFile on(50000);
    FileIoClientRec agent;
    EXPECT_EQ(on.array.elementAt(10, &agent), 30u);
    EXPECT_EQ(on.array.elementAt(11, &agent), 33u);
    on.array.setElementAt(11, 7, nullptr);  // same page, held by the owner's cache, not yet flushed
    EXPECT_EQ(on.array.elementAt(11, &agent), 7u);
    on.array.setVirtualSize(11);
    EXPECT_EQ(on.array.elementAt(10, &agent), 30u);
    EXPECT_EQ(on.array.elementAt(11, &agent), 0u);
    on.array.setVirtualSize(50000);
    on.array.setElementAt(11, 9, nullptr);
    EXPECT_EQ(on.array.elementAt(11, &agent), 9u);
}

TEST(VirtualArrayThreadTest, ReadersWithTheirOwnAgentsSeeEveryPublishedElementWhileTheOwnerAppends) {
    constexpr unsigned int kCount = 300000;
    auto valueOf = [](unsigned int index) { return index * 2654435761u + 1; };
    TempMovieFile temp;
    BackedArray backed(openFile(temp.path()), 4096, kCount);
    ASSERT_TRUE(backed.backed);
    VirtualArray<unsigned int>& array = backed.array;

    std::atomic<unsigned int> published{0};
    std::atomic<bool> done{false};
    std::atomic<unsigned long> mismatches{0}, reads{0};
    auto reader = [&](unsigned int seed) {
        FileIoClientRec agent(6);
        std::mt19937 random(seed);
        unsigned int cursor = 0;
        while (!done.load(std::memory_order_acquire)) {
            unsigned int count = published.load(std::memory_order_acquire);
            if (count == 0) continue;
            unsigned int at = seed % 2 ? static_cast<unsigned int>(random() % count) : cursor++ % count;
            if (array.elementAt(at, &agent) != valueOf(at)) mismatches.fetch_add(1);
            reads.fetch_add(1, std::memory_order_relaxed);
        }
        array.close(&agent);
    };
    std::vector<std::thread> readers;
    for (unsigned int seed = 1; seed <= 3; ++seed) readers.emplace_back(reader, seed);

    // The owner's failures are collected rather than asserted, so that the readers are always joined.
    unsigned long place = 4096;
    unsigned int ownerFailures = 0;
    for (unsigned int i = 0; i < kCount; ++i) {
        ownerFailures += !array.setElementAt(i, valueOf(i), nullptr);
        published.store(i + 1, std::memory_order_release);
        if (i % 20000 == 19999) ownerFailures += !array.flush();
        if (i % 100000 == 99999) {
            place += (i / 100000) % 2 ? 40 : 8 * 1024 * 1024;  // one overlapping move, one far away
            ownerFailures += !array.mapIndex(i + 1, place);
        }
    }
    while (reads.load() < 100000) std::this_thread::yield();
    done.store(true, std::memory_order_release);
    for (std::thread& t : readers) t.join();
    EXPECT_EQ(ownerFailures, 0u);
    EXPECT_EQ(mismatches.load(), 0u);
    ASSERT_TRUE(array.flush());
    FileIoClientRec agent;
    for (unsigned int i = 0; i < kCount; i += 7) ASSERT_EQ(array.elementAt(i, &agent), valueOf(i));
}
