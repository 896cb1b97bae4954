// Recording a long track into the sample tables of a movie over a real (sparse) file, as a
// recorder drives them: a table that runs out of room refuses the entry and asks the movie for a
// resize; the owner then gives every table the capacity it asks for, runs the dry and the applied
// offset passes (moving the movie to the end of the file when it no longer fits) and adds the
// entry again; now and then the tables and the movie are flushed. A million samples take the
// chunk offsets past 4 GiB, so the 'stco' turns into a 'co64'. Read back with a fresh root, every
// size, offset, run and duration must be there.
#include <gtest/gtest.h>

#include "framework/FileIoClientRec.h"
#include "quicktime/atoms/QtAtomReader.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/layout/QtAtomMdat.h"
#include "quicktime/layout/QtAtomMoov.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/tables/QtAtomSampleChunk.h"
#include "quicktime/tables/QtAtomSampleChunkOff.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "quicktime/tables/QtAtomSampleTime.h"
#include "tests/TestSupport.h"
#include "tests/layout/LayoutTestSupport.h"

namespace {

constexpr unsigned int kSamples = 1000000;
constexpr unsigned long kChunkSpacing = 60000;  // chunk offsets reach 6 GB
constexpr unsigned long kEssenceBytes = 6200000000ul;
constexpr unsigned int kTicks = 1001;

unsigned int sizeOf(unsigned int sample) { return 1000 + (sample * 7919u) % 50000; }
// Chunks of 10 samples, every hundredth of 5: runs of the sample-to-chunk table.
unsigned int samplesInChunk(unsigned int chunk) { return chunk % 100 == 99 ? 5 : 10; }

class Recorder {
public:
    explicit Recorder(TempFile const& temp) {
        file = BasicFileIO::open(temp.c_str(), BasicFileIO::Create);
        root.reset(new QtAtomRoot(file, 0));
        addPreserved(root.get(), "ftyp", 12, 'f');
        mdat = new QtAtomMdat(root.get(), kEssenceBytes);
        moov = new QtAtomMoov(root.get(), QtAtomMoov::kMoovId);
        auto* stbl = new QtAtomHeader(
            qtId("stbl"),
            new QtAtomHeader(qtId("minf"), new QtAtomHeader(qtId("mdia"), new QtAtomHeader(qtId("trak"), moov))));
        stts = new QtAtomSampleTime(stbl);
        stsc = new QtAtomSampleChunk(stbl);
        stsz = new QtAtomSampleSize(stbl);
        ScopedDebugFlag useStco("quicktimeLegacyDbg", "use stco");  // so that it has to widen
        chunkOffsets = new QtAtomSampleChunkOff(stbl);
        root->recalcOffset(QtTreeSize(true, 0, 0));
    }

    unsigned long chunkOffset(unsigned int chunk) const { return mdat->getDataOffset() + chunk * kChunkSpacing; }

    void record() {
        unsigned int chunk = 0;
        for (unsigned int sample = 0; sample < kSamples; ++chunk) {
            while (!chunkOffsets->write()->addOffset(static_cast<long>(chunkOffset(chunk)))) resize();
            if (stsc->getHeadroom() == 0) {
                stsc->write()->addCapacity();
                resize();
            }
            QtSampleLocation location(1, samplesInChunk(chunk), true);
            ASSERT_TRUE(stsc->write()->addSamples(location));
            for (unsigned int i = 0; i < samplesInChunk(chunk) && sample < kSamples; ++i, ++sample) {
                while (!stsz->write()->addSamples(sample, 1, sizeOf(sample))) resize();
                stts->write()->addSamples(1, kTicks);
            }
            if (chunk % 40000 == 39999) flush();
        }
        flush();
        chunks = chunk;
    }

    // The owner's answer to a table without room: capacity for twice what each table asks, the new
    // sizes and places, and the movie moved to the end of the file when it no longer fits.
    void resize() {
        ++resizes;
        stsz->write()->setCapacity(2ul * stsz->getSizeNeeded());
        chunkOffsets->write()->setCapacity(2ul * chunkOffsets->getSizeNeeded());
        moov->clearResizeNeeded();
        QtTreeSize dry = moov->recalcOffset(QtTreeSize(false, 0, moov->getFileOffset()));
        if (dry.size > moov->getSize() && moov->relocate()) ++relocations;
        root->recalcOffset(QtTreeSize(true, 0, 0));
    }

    // Tables first, so that the movie's image holds their current entries; the next entries are
    // added only once the movie is durable.
    void flush() {
        root->flushVirtualChildren();
        ASSERT_TRUE(root->writeDirty());
        root->flush(moov);
        root->hasFinalForm(true);
        if (root->isIdUpdateNeeded() && moov->updateDiskId()) {
            root->setIdUpdateNeeded(false);
            ASSERT_TRUE(root->writeDirty());
        }
        root->coalesceSkip();
        ASSERT_TRUE(root->writeDirty());
    }

    AutoRefPtr<BasicFileIO> file;
    AutoPtr<QtAtomRoot> root;
    QtAtomMdat const* mdat = nullptr;
    QtAtomMoov const* moov = nullptr;
    QtAtomSampleTime const* stts = nullptr;
    QtAtomSampleChunk const* stsc = nullptr;
    QtAtomSampleSize const* stsz = nullptr;
    QtAtomSampleChunkOff const* chunkOffsets = nullptr;
    unsigned int chunks = 0;
    unsigned int resizes = 0;
    unsigned int relocations = 0;
};

template <class T>
T const* tableOf(QtAtomRoot const& root, char const* type) {
    std::string path = std::string("moov.trak.mdia.minf.stbl.") + type;
    return dynamic_cast<T const*>(root.findAtom(path.c_str(), 0));
}

}  // namespace

TEST(TableRecordingTest, AMillionSamplesRecordedInGrowingTablesReadBackWithAFreshRoot) {
    TempFile temp;
    Recorder recorder(temp);
    ASSERT_NO_FATAL_FAILURE(recorder.record());
    EXPECT_GT(recorder.resizes, 10u);
    EXPECT_GT(recorder.relocations, 5u);
    EXPECT_TRUE(recorder.chunkOffsets->is64Bit());
    EXPECT_TRUE(recorder.root->hasFinalForm(true));
    TopLevelScan scan = scanTopLevel(temp.path());
    EXPECT_TRUE(scan.coversFile);
    EXPECT_EQ(scan.count("moov"), 1);
    unsigned int chunks = recorder.chunks;
    unsigned long mdatData = recorder.mdat->getDataOffset();
    recorder.root.reset();

    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(temp.c_str());
    ASSERT_TRUE(root);
    auto const* stsz = tableOf<QtAtomSampleSize>(*root, "stsz");
    auto const* stco = tableOf<QtAtomSampleChunkOff>(*root, "co64");
    auto const* stsc = tableOf<QtAtomSampleChunk>(*root, "stsc");
    auto const* stts = tableOf<QtAtomSampleTime>(*root, "stts");
    ASSERT_TRUE(stsz && stco && stsc && stts);
    EXPECT_TRUE(stsz->hasVirtualTable());
    EXPECT_TRUE(stco->hasVirtualTable());

    FileIoClientRec agent;
    ASSERT_EQ(stsz->getSampleCount(), kSamples);
    for (unsigned int sample = 0; sample < kSamples; ++sample)
        ASSERT_EQ(stsz->getSampleSize(sample, 1, &agent), sizeOf(sample)) << sample;
    ASSERT_EQ(stco->getNumChunks(), chunks);
    for (unsigned int chunk = 0; chunk < chunks; ++chunk)
        ASSERT_EQ(stco->getChunkOffset(chunk, &agent), mdatData + chunk * kChunkSpacing) << chunk;
    EXPECT_GT(stco->getChunkOffset(chunks - 1, &agent), 0xFFFFFFFFul);

    EXPECT_EQ(stsc->getNumChunks(), chunks);
    QtChunkSet set;
    unsigned int chunk = 0, firstOfChunk = 0;
    for (unsigned int sample = 0; sample < kSamples; ++sample) {
        if (sample == firstOfChunk + samplesInChunk(chunk)) firstOfChunk += samplesInChunk(chunk++);
        ASSERT_TRUE(stsc->getChunkSet(sample, set)) << sample;
        unsigned long chunkStart = 0;
        ASSERT_EQ(set.getChunk(sample, chunkStart), chunk) << sample;
        ASSERT_EQ(chunkStart, firstOfChunk) << sample;
    }
    EXPECT_EQ(stts->getTotalSamples(), kSamples);
    EXPECT_EQ(stts->getNumEntries(), 1u);
    EXPECT_EQ(stts->getSampleTime(kSamples - 1), (kSamples - 1ul) * kTicks);
}
