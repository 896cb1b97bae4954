// qtmovie samples [FILE] [--track N] [--from S] [--count K]: one CSV row per sample,
// "track,sample,offset,size,dts,pts,key", tracks numbered from 1 in file order.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "quicktime/quicktime.h"
#include "quicktime/tables/QtTrackSamples.h"
#include "tools/qtmovie/QtMovieCommand.h"

namespace {

void printTrack(unsigned int track, QtAtomHeader const* media, unsigned long from, unsigned long count) {
    QtTrackSamples samples(media);
    std::string why = media ? samples.getSampleTable().whyNoSamples() : "no 'mdia'";
    if (!why.empty()) {
        fprintf(stderr, "qtmovie samples: track %u has no samples to list: %s\n", track, why.c_str());
        return;
    }
    QtTrackSamples::Iterator it(samples, from);
    QtSampleInfo info;
    for (unsigned long n = 0; n < count && it.next(info); ++n)
        qtMoviePrintSample(track, info);
}

int runSamples(std::vector<std::string> const& args) {
    std::string path;
    unsigned long track = 0, from = 0, count = ~0ul;
    // Every option here takes a value, which follows it as the next word.
    for (size_t i = 0; i < args.size(); ++i) {
        std::string const& a = args[i];
        if (a == "--track" || a == "--from" || a == "--count") {
            unsigned long& target = a == "--track" ? track : a == "--from" ? from : count;
            if (i + 1 == args.size() || !qtMovieParseNumber(args[++i], target))
                return qtMovieUsageError("samples", a + " needs a number");
        } else if (path.empty()) {
            path = a;
        } else {
            return qtMovieUsageError("samples", "expected at most one FILE");
        }
    }
    if (path.empty()) path = defaultSamplePath();
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(path.c_str());
    if (!root) return 1;
    std::vector<BaseQtAtom const*> tracks = QtTrackSamples::tracksOf(*root);
    if (track > tracks.size()) {
        fprintf(stderr, "qtmovie samples: %s has %zu tracks\n", path.c_str(), tracks.size());
        return 1;
    }
    printf("%s\n", kQtMovieSampleHeader);
    for (unsigned int t = 1; t <= tracks.size(); ++t)
        if (track == 0 || t == track) printTrack(t, QtTrackSamples::mediaOf(tracks[t - 1]), from, count);
    fflush(stdout);
    return 0;
}

QtMovieCommand samplesCommand(
    "samples", "[FILE] [--track N] [--from S] [--count K]",
    "one CSV row per sample: where it lies and when it is decoded and shown",
    {{"--track", "N", "only track N (tracks count from 1 in file order; 0: every track)"},
     {"--from", "S", "start at sample S of each track (samples count from 0)"},
     {"--count", "K", "at most K samples of each track"}},
    "Columns of \"track,sample,offset,size,dts,pts,key\": track number, sample number, file offset\n"
    "of its first byte, size in bytes, decode time and display time (decode time plus the\n"
    "composition offset) in the track's media time scale, 1 for a key frame.\n"
    "exit status: 0 listed, 1 the file cannot be read or has no track N, 2 wrong command line",
    runSamples);

}  // namespace
