// movie_tracks: the library in a few calls. Opens a movie, lists its tracks, and tells where one
// sample lies in the file and when it is decoded and shown.
//
//   movie_tracks MOVIE [TRACK SAMPLE]      (TRACK counts from 1, SAMPLE from 0; default 1 0)
//
// Built against an installed package: see CMakeLists.txt beside it, or with pkg-config:
//   g++ -std=c++20 movie_tracks.cpp $(pkg-config --cflags --libs quicktime-movie)
#include <cstdio>
#include <cstdlib>

#include "quicktime/quicktime.h"

namespace {

void listTracks(QtAtomRoot const& root) {
    unsigned int tracks = QtTrackSamples::countTracks(root);
    printf("%u tracks\n", tracks);
    for (unsigned int track = 1; track <= tracks; ++track) {
        QtAtomHeader const* media = QtTrackSamples::findTrackMedia(root, track);
        auto const* handler = dynamic_cast<QtAtomHandler const*>(media->findAtom("hdlr", 0));
        auto const* header = dynamic_cast<QtAtomMediaHdr const*>(media->findAtom("mdhd", 0));
        QtTrackSamples samples(media);
        printf("track %u: %s, %lu samples, time scale %u\n", track,
               handler ? QtIdName(handler->getComponentSubtype()).render() : "?", samples.getNumSamples(),
               header ? header->getTimeScale() : 0);
    }
}

// Place (file offset and size) and time (decode and display, in media units and seconds).
bool showSample(QtAtomRoot const& root, unsigned int track, unsigned long sample) {
    QtAtomHeader const* media = QtTrackSamples::findTrackMedia(root, track);
    if (!media) return false;
    auto const* header = dynamic_cast<QtAtomMediaHdr const*>(media->findAtom("mdhd", 0));
    double scale = header && header->getTimeScale() ? header->getTimeScale() : 1.0;
    QtTrackSamples samples(media);
    QtSampleInfo info;
    if (!samples.getSample(sample, info)) return false;
    printf("track %u sample %lu: offset %lu, size %u, dts %lu (%.3f s), pts %ld (%.3f s), %s\n", track,
           info.sample, info.offset, info.size, info.dts, info.dts / scale, info.pts, info.pts / scale,
           info.key ? "key" : "not key");
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 && argc != 4) {
        fprintf(stderr, "usage: movie_tracks MOVIE [TRACK SAMPLE]\n");
        return 2;
    }
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(argv[1]);  // null, with a message, on failure
    if (!root) return 1;
    listTracks(*root);
    unsigned int track = argc == 4 ? static_cast<unsigned int>(strtoul(argv[2], nullptr, 10)) : 1;
    unsigned long sample = argc == 4 ? strtoul(argv[3], nullptr, 10) : 0;
    if (!showSample(*root, track, sample)) {
        fprintf(stderr, "%s: no sample %lu in track %u\n", argv[1], sample, track);
        return 1;
    }
    return 0;
}
