// QtAudioSampleDesc: the three layouts, values derived per version, bits per sample by format,
// byte order and the sample format setters.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/descriptions/SampleDescFixture.h"

namespace {

// A sound entry: the classic fields, `extra` (version 1 or 2 fields), then `rest`.
Bytes soundEntry(char const* format, unsigned int version, unsigned int channels, unsigned int compressionId,
                 Bytes const& extra, Bytes const& rest = {}) {
    Bytes fields;
    put16(fields, version);
    put16(fields, 0);
    putType(fields, "FFMP");
    put16(fields, channels);
    put16(fields, 16);
    put16(fields, compressionId);
    put16(fields, 0);
    put32(fields, 8000u << 16);
    putBytes(fields, extra);
    putBytes(fields, rest);
    Bytes entry = entryHeader(static_cast<unsigned int>(16 + fields.size()), format);
    putBytes(entry, fields);
    return entry;
}

Bytes version1(unsigned int bytesPerPacket) {
    Bytes out;
    for (unsigned int v : {1u, bytesPerPacket, 2 * bytesPerPacket, bytesPerPacket}) put32(out, v);
    return out;
}
struct SoundTrack : ReadTrack {
    explicit SoundTrack(Bytes const& entry)
        : ReadTrack(trackMovie(handlerBytes("mhlr", "soun"), stsdBytes(1, entry))) {}
    QtAudioSampleDesc const* audio() const { return stsd ? stsd->getAudioDesc(1) : nullptr; }
};

TEST(QtAudioSampleDesc, AVersion1EntryOf52BytesReadsItsFieldsAndNoExtensions) {
    Bytes entry = soundEntry("twos", 1, 2, 0, version1(3));
    ASSERT_EQ(entry.size(), 52u);
    SoundTrack track(entry);
    ASSERT_NE(track.audio(), nullptr);
    EXPECT_EQ(track.audio()->getBytesPerPacket(), 3u);
    EXPECT_EQ(track.audio()->getBitsPerSample(), 24u)
        << "twos, version 1, compression id 0: bytes per packet x 8";
    EXPECT_TRUE(track.audio()->getExtensions().isEmpty());
    EXPECT_EQ(encodedAtom(*track.stsd), stsdBytes(1, entry));

    SoundTrack compressed(soundEntry("twos", 1, 2, 0xFFFE, version1(3)));
    EXPECT_EQ(compressed.audio()->getBitsPerSample(), 16u);
}

TEST(QtAudioSampleDesc, SetBitsPerSampleChoosesTheFormat) {
    SoundTrack track(soundEntry("raw ", 1, 2, 0, version1(4)));
    QtAudioSampleDesc* audio = track.stsd->write()->getAudioDesc(1);
    ASSERT_NE(audio, nullptr);
    EXPECT_TRUE(audio->setBitsPerSample(24, false, 0));
    EXPECT_EQ(audio->getFormat(), qtId("in24"));
    EXPECT_EQ(audio->getSampleSize(), 16);
    EXPECT_TRUE(audio->isLittleEndian());
    EXPECT_EQ(audio->getSize(), 52u + 30 + 8) << "the wave group and the terminator after it";
    EXPECT_EQ(track.stsd->getSize(), 16u + audio->getSize());

    EXPECT_TRUE(audio->setBitsPerSample(16, true, qtId("mp4a")));
    EXPECT_EQ(audio->getFormat(), qtId("mp4a"));
    EXPECT_TRUE(audio->setBitsPerSample(16, false, 0));
    EXPECT_EQ(audio->getFormat(), qtId("sowt"));
    EXPECT_TRUE(audio->setBitsPerSample(16, true, 0));
    EXPECT_EQ(audio->getFormat(), qtId("twos"));
    EXPECT_FALSE(audio->setBitsPerSample(16, true, qtId("ac-3")));
    EXPECT_EQ(audio->getFormat(), qtId("twos"));
    EXPECT_FALSE(audio->setBitsPerSample(20, true, 0));
}

TEST(QtAudioSampleDesc, EqualityComparesTheSoundNotTheVendorOrExtensions) {
    SoundTrack a(soundEntry("twos", 1, 2, 0, version1(2)));
    SoundTrack b(soundEntry("twos", 1, 2, 0, version1(2), atomBytes("chan", zeros(16))));
    SoundTrack c(soundEntry("twos", 1, 1, 0, version1(2)));
    EXPECT_TRUE(*a.audio() == *b.audio());
    EXPECT_FALSE(*a.audio() == *c.audio());
}

}  // namespace
