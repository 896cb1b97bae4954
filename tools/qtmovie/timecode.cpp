// qtmovie timecode FILE [--track N] [--set HH:MM:SS:FF | HH:MM:SS;FF]: one line "TRACK,TIMECODE"
// per timecode track, its start timecode (';' before the frames for drop frame); or, with --set,
// the start timecode of the file's timecode track rewritten in place. Only the 4 bytes of the
// first sample change; a timecode the track's rate does not count leaves the file untouched.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "quicktime/quicktime.h"
#include "quicktime/tables/QtSampleTable.h"
#include "quicktime/tables/QtTrackSamples.h"
#include "tools/qtmovie/QtMovieCommand.h"

namespace {


struct TimecodeTrack {
    unsigned int number;  // 1-based, in file order
    QtSampleTable table;
    QtTimecodeSampleDesc const* desc;
};

// The timecode tracks of the movie, all or only track `only` (1-based) when it is not 0.
std::vector<TimecodeTrack> timecodeTracks(QtAtomRoot const& root, unsigned int only) {
    std::vector<TimecodeTrack> tracks;
    std::vector<BaseQtAtom const*> all = QtTrackSamples::tracksOf(root);
    for (unsigned int number = 1; number <= all.size(); ++number) {
        if (only && number != only) continue;
        QtSampleTable table(QtTrackSamples::mediaOf(all[number - 1]));
        table.validate();
        auto const* stsd = dynamic_cast<QtAtomSampleDesc const*>(table.getStsd());
        if (QtTimecodeSampleDesc const* desc = stsd ? stsd->getTimecodeDesc(1) : nullptr)
            tracks.push_back({number, table, desc});
    }
    return tracks;
}

// Why a track does not count `timecode`, or empty when it does.
std::string refusal(QtTimecodeSampleDesc const& desc, QtTimeCode const& timecode) {
    unsigned int fps = QtTimeCode::framesPerSecond(desc.getTimeScale(), desc.getFrameDuration());
    if (timecode.dropFrame() != desc.dropFrame())
        return desc.dropFrame() ? "the track counts drop-frame timecodes: write HH:MM:SS;FF"
                                : "the track counts non-drop timecodes: write HH:MM:SS:FF";
    if (timecode.isValidAt(desc.getTimeScale(), desc.getFrameDuration())) return "";
    if (timecode.getFraction() >= fps)
        return "the track counts " + std::to_string(fps) + " frames a second, numbered 00 to " +
               std::to_string(fps - 1);
    if (timecode.getHours() >= 24 || timecode.getMinutes() >= 60 || timecode.getSeconds() >= 60)
        return "hours run from 00 to 23, minutes and seconds from 00 to 59";
    return "drop-frame numbering skips frames 00 to 0" + std::to_string(fps / 15 - 1) +
           " at the start of each minute but every tenth";
}

// A packed-record track stores the fields themselves; the sign bit of the old record is kept.
QtTimeCode packedRecord(QtTimeCode const& timecode, QtTimeCode const& old) {
    QtTimeCode packed;
    packed.setDiscrete((old.getDiscrete() & 0x8000u) | timecode.getHours() | timecode.getMinutes() << 8 |
                       timecode.getSeconds() << 16 | timecode.getFraction() << 24);
    return packed;
}

int setStart(BasicFileIO& file, TimecodeTrack const& track, char const* text) {
    QtTimeCode timecode;
    if (!timecode.setText(text)) {
        fprintf(
            stderr,
            "qtmovie timecode: '%s' is not a timecode: write HH:MM:SS:FF, or HH:MM:SS;FF for drop frame\n",
            text);
        return 2;
    }
    QtTimecodeSampleDesc const& desc = *track.desc;
    std::string why = refusal(desc, timecode);
    if (!why.empty()) {
        fprintf(stderr,
                "qtmovie timecode: %s is not a timecode of track %u (%u/%u frames a second): %s; file "
                "unchanged\n",
                text, track.number, desc.getTimeScale(), desc.getFrameDuration(), why.c_str());
        return 1;
    }
    QtTimeCode const* old = desc.getTimecode(track.table, 0);
    if (!old) return 1;
    if (desc.getFlags() & QtTimecodeSampleDesc::kPackedRecords) timecode = packedRecord(timecode, *old);
    if (!desc.setTimecode(timecode) || !desc.writeTimecodes() || !file.sync()) {
        fprintf(stderr, "qtmovie timecode: could not write the timecode into %s\n", file.path());
        return 1;
    }
    printf("%u,%s\n", track.number, text);
    return 0;
}

int usageError(std::string const& problem) { return qtMovieUsageError("timecode", problem); }

int runTimecode(std::vector<std::string> const& args) {
    std::string path, newStart;
    unsigned long only = 0;
    for (size_t i = 0; i < args.size(); ++i) {
        bool hasValue = i + 1 < args.size();
        char* end = nullptr;
        if (args[i] == "--track" && hasValue) {
            only = strtoul(args[++i].c_str(), &end, 10);
            if (only == 0 || *end) return usageError("--track needs a track number");
        } else if (args[i] == "--set" && hasValue) {
            newStart = args[++i];
        } else if (path.empty() && args[i].rfind("--", 0) != 0) {
            path = args[i];
        } else {
            return usageError("unexpected argument " + args[i]);
        }
    }
    if (path.empty()) return usageError("no file given");
    BasicFileIO::Mode mode = newStart.empty() ? BasicFileIO::ReadOnly : BasicFileIO::ReadWrite;
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(path.c_str(), mode);
    if (!root) return 1;
    std::vector<TimecodeTrack> tracks = timecodeTracks(*root, static_cast<unsigned int>(only));
    if (only && tracks.empty()) {
        fprintf(stderr, "qtmovie timecode: track %lu of %s is not a timecode track\n", only, path.c_str());
        return 1;
    }
    if (!newStart.empty()) {
        if (tracks.size() == 1) return setStart(*root->file(), tracks.front(), newStart.c_str());
        fprintf(stderr, "qtmovie timecode: %s has %zu timecode tracks: %s\n", path.c_str(), tracks.size(),
                tracks.empty() ? "nothing to set" : "choose one with --track N");
        return tracks.empty() ? 1 : 2;
    }
    int status = 0;
    for (TimecodeTrack const& track : tracks) {
        QtTimeCode const* start = track.desc->getTimecode(track.table, 0);
        if (start)
            printf("%u,%s\n", track.number, start->getText().get());
        else
            status = 1;
    }
    return status;
}

QtMovieCommand timecodeCommand(
    "timecode", "FILE [--track N] [--set HH:MM:SS:FF | HH:MM:SS;FF]",
    "print or set the start timecode of timecode tracks",
    {{"--track", "N", "only track N (tracks count from 1 in file order)"},
     {"--set", "TIMECODE", "rewrite the start timecode in place (';' before the frames for drop frame)"}},
    "Prints \"TRACK,TIMECODE\" per timecode track, from its first sample. --set changes only the\n"
    "4 bytes of that sample; a timecode the track cannot count is refused and the file left as it was.\n"
    "exit status: 0 done, 1 the file cannot be read or the timecode is refused, 2 wrong command line",
    runTimecode);

}  // namespace
