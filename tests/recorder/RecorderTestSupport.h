// Helpers for the recorder tests: a deterministic multi-track stream (every sample's bytes, size,
// duration, key flag and composition info follow from its track and number), and an independent
// read-back of a file through a fresh tree that compares each track with that stream.
#pragma once

#include <string>
#include <vector>

#include "framework/BasicFileIO.h"
#include "framework/FileIoClientRec.h"
#include "quicktime/layout/QtAtomReader.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/recorder/QtMovieRecorder.h"
#include "quicktime/tables/QtTrackSamples.h"

// Track 1: video, 600 ticks a second, 20 ticks a frame, a key frame every 12, I/P/B display offsets.
// Track 2: 16-bit stereo PCM at 8000 Hz, 400 frames per call. Track 3: AAC-like, 1024 ticks each.
struct TestStream {
    static constexpr uint32_t kVideo = 1, kPcm = 2, kAac = 3;

    static unsigned int sizeOf(uint32_t track, unsigned long n) {
        if (track == kPcm) return 400 * 4;
        return track == kVideo ? 300 + static_cast<unsigned int>((n * 7919) % 1500)
                               : 100 + static_cast<unsigned int>((n * 31) % 200);
    }
    static unsigned int durationOf(uint32_t track, unsigned long) {
        return track == kVideo ? 20 : track == kPcm ? 400 : 1024;
    }
    static bool keyOf(uint32_t track, unsigned long n) { return track != kVideo || n % 12 == 0; }
    // Display offsets in frames of an I B B P B B P ... stream in decode order (direct mode).
    static int8_t displayOffsetOf(unsigned long n) {
        unsigned long inGop = n % 12;
        if (inGop == 0) return 0;
        return inGop % 3 == 1 ? 2 : -1;
    }
    static std::vector<unsigned char> bytesOf(uint32_t track, unsigned long n) {
        std::vector<unsigned char> bytes(sizeOf(track, n));
        for (unsigned int i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(track * 37 + n * 11 + i * 7);
        return bytes;
    }
    // The tracks of a movie recorded by `record`.
    static void addTracks(QtMovieRecorder& recorder) {
        recorder.addVideoTrack(qtId("jpeg"), 600, 320, 240);
        recorder.addSoundTrack(qtId("sowt"), 8000, 2, 16);
        recorder.addSoundTrack(qtId("mp4a"), 44100, 2, 16);
    }
    static bool append(QtMovieRecorder& recorder, uint32_t track, unsigned long n) {
        std::vector<unsigned char> bytes = bytesOf(track, n);
        return recorder.appendSample(
            track, {bytes.data(), static_cast<uint32_t>(bytes.size()), durationOf(track, n), keyOf(track, n),
                    track == kVideo ? SampleInfo(SampleCodingUnknown, displayOffsetOf(n)) : SampleInfo()});
    }
};

// Compares the first `count` recorded units of `track` (PCM: calls of 400 frames) with the file;
// returns an empty string when they match, else what differs.
inline std::string compareTrack(QtAtomRoot const& root, uint32_t track, unsigned long count, bool exactCount) {
    QtAtomHeader const* media = QtTrackSamples::findTrackMedia(root, track);
    if (!media) return count ? "no track " + std::to_string(track) : "";
    QtTrackSamples samples(media);
    if (!samples.valid()) return count ? "track not valid" : "";
    unsigned long perUnit = track == TestStream::kPcm ? 400 : 1;
    unsigned long expected = count * perUnit;
    std::string const name = "track " + std::to_string(track);
    if (samples.getNumSamples() < expected || (exactCount && samples.getNumSamples() != expected))
        return name + " has " + std::to_string(samples.getNumSamples()) + " samples, expected " + std::to_string(expected);
    FileIoClientRec agent;
    QtTrackSamples::Iterator it(samples, 0, &agent);
    unsigned long dts = 0;
    std::vector<unsigned char> bytes;
    for (unsigned long n = 0; n < count; ++n) {
        std::string const sample = name + " sample " + std::to_string(n);
        QtSampleInfo info;
        unsigned long firstOffset = 0;
        unsigned int total = 0;
        for (unsigned long k = 0; k < perUnit; ++k) {
            if (!it.next(info)) return sample + ": the walk ended";
            if (k == 0) firstOffset = info.offset;
            if (info.offset != firstOffset + total) return sample + " is not contiguous";
            total += info.size;
            if (info.dts != dts) return sample + " dts " + std::to_string(info.dts) + " expected " + std::to_string(dts);
            dts += TestStream::durationOf(track, n) / perUnit;
        }
        if (total != TestStream::sizeOf(track, n)) return sample + " size " + std::to_string(total);
        if (perUnit == 1 && info.key != TestStream::keyOf(track, n)) return sample + " key flag";
        long offset = info.pts - static_cast<long>(info.dts);
        if (track == TestStream::kVideo && offset != TestStream::displayOffsetOf(n) * 20L)
            return sample + " composition offset " + std::to_string(offset);
        bytes.resize(total);
        if (root.file()->readAt(firstOffset, bytes.data(), total) != static_cast<long>(total) ||
            bytes != TestStream::bytesOf(track, n))
            return sample + " bytes";
    }
    return "";
}
