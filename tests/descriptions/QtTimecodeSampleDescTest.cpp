// The timecode description: read and written back, built for a new track, and the track's timecode
// samples read through its tables and written back in place.
#include <gtest/gtest.h>

#include <string>

#include "quicktime/quicktime.h"
#include "quicktime/tables/QtSampleTable.h"
#include "quicktime/tables/QtTrackSamples.h"
#include "tests/TestSupport.h"
#include "tests/descriptions/SampleDescFixture.h"

namespace {

Bytes timecodeEntry(unsigned int flags, unsigned int timeScale, unsigned int frameDuration, unsigned int fps,
                    Bytes const& rest = {}, unsigned int dataRefIndex = 1) {
    Bytes entry = entryHeader(static_cast<unsigned int>(34 + rest.size()), "tmcd", dataRefIndex);
    put32(entry, 0);
    put32(entry, flags);
    put32(entry, timeScale);
    put32(entry, frameDuration);
    put8(entry, fps);
    put8(entry, 0);
    putBytes(entry, rest);
    return entry;
}

// The first timecode track of a movie file, with the tables it is read through.
struct TimecodeTrack {
    AutoPtr<QtAtomRoot> root;
    AutoPtr<QtSampleTable> table;
    QtTimecodeSampleDesc const* desc = nullptr;

    TimecodeTrack(std::string const& path, BasicFileIO::Mode mode) {
        root = QtAtomReader::readFile(path.c_str(), mode);
        for (unsigned int n = 1; root && !desc && n <= QtTrackSamples::countTracks(*root); ++n) {
            table.reset(new QtSampleTable(QtTrackSamples::findTrackMedia(*root, n)));
            table->validate();
            auto const* stsd = dynamic_cast<QtAtomSampleDesc const*>(table->getStsd());
            desc = stsd ? stsd->getTimecodeDesc(1) : nullptr;
        }
    }
    std::string start() const {
        QtTimeCode const* tc = desc->getTimecode(*table, 0);
        return tc ? tc->getText().get() : "none";
    }
};

// A copy of a real movie whose timecode track's tables are patched in place.
struct PatchedCopy {
    TempFile file;
    unsigned long stsz = 0, stsc = 0, stco = 0;

    explicit PatchedCopy(char const* movie) {
        file.write(readFileBytes(testDataPath(movie)));
        TimecodeTrack track(file.path(), BasicFileIO::ReadOnly);
        stsz = track.table->getStsz()->getFileOffset();
        stsc = track.table->getStsc()->getFileOffset();
        stco = track.table->getStco()->getFileOffset();
    }
    void patch(unsigned long at, unsigned int value) const {
        Bytes bytes = readFileBytes(file.path());
        for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<unsigned char>(value >> (24 - 8 * i));
        file.write(bytes);
    }
};
}  // namespace

TEST(QtTimecodeSampleDesc, EntryIsReadAndWrittenBackByteForByte) {
    Bytes entry = timecodeEntry(0x3, 30000, 1001, 30, {0xAB, 0xCD});
    ReadTrack track(trackMovie(handlerBytes("mhlr", "tmcd"), stsdBytes(1, entry)));
    QtTimecodeSampleDesc const* desc = track.stsd->getTimecodeDesc(1);
    ASSERT_NE(desc, nullptr);
    EXPECT_EQ(encodedAtom(*track.stsd), stsdBytes(1, entry));
    MessageCapture messages;
    desc->show(2);
    EXPECT_EQ(messages.all(),
              "  timecode: sz=36,fmt=tmcd,idx=1,frame=1001/30000,30fps\n  drop,wrap@24,discrete,tc=");

    // Too short for the fixed fields: kept as read.
    Bytes cut = entryHeader(20, "tmcd");
    put32(cut, 0x01020304);
    ReadTrack shortTrack(trackMovie(handlerBytes("mhlr", "tmcd"), stsdBytes(1, cut)));
    ASSERT_NE(shortTrack.stsd->getTimecodeDesc(1), nullptr);
    EXPECT_EQ(encodedAtom(*shortTrack.stsd), stsdBytes(1, cut));
}
