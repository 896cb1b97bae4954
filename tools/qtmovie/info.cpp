// qtmovie info FILE [--json]: one block per track: track id, handler subtype, codec, duration,
// sample count; for video the picture size, pixel aspect, colour and field order when the
// description carries them; for sound the rate, channels and bits per sample; the start timecode
// of timecode tracks. With --json one JSON document whose field names follow ffprobe -show_streams
// and -show_format.
//
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "quicktime/quicktime.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "quicktime/tables/QtSampleTable.h"
#include "quicktime/tables/QtTrackSamples.h"
#include "tools/qtmovie/QtMovieCommand.h"

namespace {

struct TrackInfo {
    unsigned int index = 0;
    std::optional<unsigned int> trackId;
    QtAtomIdType handler = 0;
    QtAtomIdType codec = 0;
    std::optional<double> duration;
    std::optional<unsigned int> sampleCount;
    std::string noSamples;  // why the track lists no samples, when it does not
    // video
    std::optional<unsigned int> width, height;
    std::optional<std::string> pixelAspect, primaries, transfer, matrix, fieldOrder;
    // sound
    std::optional<unsigned int> sampleRate, channels, bitsPerSample;
    std::optional<std::string> timecode;
};

std::string idText(QtAtomIdType id) { return QtIdName(id).render(); }

// ffprobe's names of the colour parameter numbers; a number without one is printed as it is.
std::string colourName(unsigned int value,
                       std::initializer_list<std::pair<unsigned int, char const*>> names) {
    for (auto const& [number, name] : names)
        if (number == value) return name;
    return std::to_string(value);
}

std::optional<std::string> fieldOrderOf(Qtx::Atom const* fiel) {
    if (!fiel) return std::nullopt;
    if (fiel->getNumFields() == 1) return "progressive";
    switch (fiel->getDetail()) {
        case FieldDetailTopFirst:
            return "tt";
        case FieldDetailBottomFirst:
            return "bb";
        case FieldDetailFirstLineEarly:
            return "tb";
        case FieldDetailFirstLineLate:
            return "bt";
        default:
            return "unknown";
    }
}

void describeVideo(QtVideoSampleDesc const& video, TrackInfo& info) {
    info.width = video.getWidth();
    info.height = video.getHeight();
    Qtx const& extensions = video.getExtensions();
    if (auto const* pasp = dynamic_cast<Qtx::PixelAspectRatio const*>(extensions.findAtom(qtId("pasp"))))
        info.pixelAspect = std::to_string(pasp->getHSpacing()) + ":" + std::to_string(pasp->getVSpacing());
    if (Qtx::Atom const* colr = extensions.findAtom(qtId("colr"))) {
        info.primaries = colourName(colr->getPrimaries(), {{1, "bt709"},
                                                           {2, "unknown"},
                                                           {4, "bt470m"},
                                                           {5, "bt470bg"},
                                                           {6, "smpte170m"},
                                                           {7, "smpte240m"},
                                                           {9, "bt2020"}});
        info.transfer = colourName(colr->getTransferFunction(), {{1, "bt709"},
                                                                 {2, "unknown"},
                                                                 {7, "smpte240m"},
                                                                 {8, "linear"},
                                                                 {13, "iec61966-2-1"},
                                                                 {16, "smpte2084"},
                                                                 {18, "arib-std-b67"}});
        info.matrix = colourName(colr->getMatrix(), {{1, "bt709"},
                                                     {2, "unknown"},
                                                     {5, "bt470bg"},
                                                     {6, "smpte170m"},
                                                     {7, "smpte240m"},
                                                     {9, "bt2020nc"},
                                                     {10, "bt2020c"}});
    }
    info.fieldOrder = fieldOrderOf(extensions.findAtom(qtId("fiel")));
}

// Bits per sample of uncompressed sound; 0 for compressed formats, as ffprobe reports them.
unsigned int uncodedBitsPerSample(QtAudioSampleDesc const& audio) {
    for (QtAtomIdType compressed : {qtId("mp4a"), qtId("ac-3"), qtId("ec-3"), qtId(".mp3"), qtId("alac"),
                                    qtId("Opus"), qtId("samr"), qtId("ima4")})
        if (audio.getFormat() == compressed) return 0;
    if (audio.getVersion() == 2) return audio.getBitsPerChannel();
    return audio.getBitsPerSample();
}

void describeAudio(QtAudioSampleDesc const& audio, TrackInfo& info) {
    double rate = audio.getVersion() == 2 ? audio.getAudioSampleRate() : audio.getSampleRate() / 65536.0;
    info.sampleRate = rate >= 0 && rate < 4294967296.0 ? static_cast<unsigned int>(rate) : 0;
    info.channels = audio.getChannels();
    info.bitsPerSample = uncodedBitsPerSample(audio);
}

// The start timecode of a timecode track: its first sample, read through the track's tables.
std::optional<std::string> startTimecode(BaseQtAtom const* trak, QtAtomSampleDesc const& stsd) {
    QtSampleTable table(dynamic_cast<QtAtomHeader const*>(trak->findAtom("mdia", 0)));
    QtTimecodeSampleDesc const* desc = stsd.getTimecodeDesc(1);
    QtTimeCode const* timecode = desc && table.validate() ? desc->getTimecode(table, 0) : nullptr;
    if (!timecode) return std::nullopt;
    return std::string(timecode->getText().get());
}

TrackInfo describeTrack(BaseQtAtom const* trak, unsigned int index) {
    TrackInfo info;
    info.index = index;
    if (auto const* tkhd = dynamic_cast<QtAtomTrakHdr const*>(trak->findAtom("tkhd", 0)))
        info.trackId = tkhd->getTrackId();
    auto const* mdhd = dynamic_cast<QtAtomMediaHdr const*>(trak->findAtom("mdia.mdhd", 0));
    if (mdhd && mdhd->getTimeScale()) info.duration = double(mdhd->getDuration()) / mdhd->getTimeScale();
    if (auto const* hdlr = dynamic_cast<QtAtomHandler const*>(trak->findAtom("mdia.hdlr", 0)))
        info.handler = hdlr->getComponentSubtype();
    if (auto const* stsz = dynamic_cast<QtAtomSampleSize const*>(trak->findAtom("mdia.minf.stbl.stsz", 0)))
        info.sampleCount = stsz->getSampleCount();
    if (auto const* media = dynamic_cast<QtAtomHeader const*>(trak->findAtom("mdia", 0))) {
        QtSampleTable tables(media);
        tables.validate();
        info.noSamples = tables.whyNoSamples();
        // The samples a reader reaches: fewer than the sizes claim when the chunk offsets stop first.
        if (info.noSamples.empty())
            info.sampleCount = static_cast<unsigned int>(std::min<unsigned long>(QtTrackSamples(media).getNumSamples(), ~0u));
    } else {
        info.noSamples = "no 'mdia'";
    }

    auto const* stsd = dynamic_cast<QtAtomSampleDesc const*>(trak->findAtom("mdia.minf.stbl.stsd", 0));
    QtSampleDesc const* desc = stsd ? stsd->getDesc(1) : nullptr;
    if (!desc) return info;
    info.codec = desc->getFormat();
    if (QtVideoSampleDesc const* video = stsd->getVideoDesc(1)) describeVideo(*video, info);
    if (QtAudioSampleDesc const* audio = stsd->getAudioDesc(1)) describeAudio(*audio, info);
    if (info.handler == qtId("tmcd")) info.timecode = startTimecode(trak, *stsd);
    return info;
}

char const* codecType(QtAtomIdType handler) {
    if (handler == qtId("vide")) return "video";
    if (handler == qtId("soun")) return "audio";
    if (handler == qtId("sbtl") || handler == qtId("text")) return "subtitle";
    return "data";
}

std::string jsonText(std::string const& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20 || c >= 0x7F) {
            char escaped[8];
            snprintf(escaped, sizeof escaped, "\\u%04x", c);
            out += escaped;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

// Appends one member to a JSON object being written on one line per member.
class JsonObject {
public:
    explicit JsonObject(std::string& out) : m_out(out) { m_out += "    {\n"; }
    void number(char const* name, std::optional<unsigned int> value) {
        if (value) raw(name, std::to_string(*value));
    }
    void text(char const* name, std::optional<std::string> const& value) {
        if (value) raw(name, jsonText(*value));
    }
    void raw(char const* name, std::string const& value) {
        if (!m_first) m_out += ",\n";
        m_first = false;
        m_out += "      " + jsonText(name) + ": " + value;
    }
    void close() { m_out += "\n    }"; }

private:
    std::string& m_out;
    bool m_first = true;
};

std::string durationText(double seconds) {
    char text[32];
    snprintf(text, sizeof text, "%.6f", seconds);
    return text;
}

// The file as a whole, beside the streams: ffprobe's -show_format names where it has the field,
// and the top-level atoms under "layout" (the type each has on disk, as qtmovie check lists them).
std::string formatJson(QtAtomRoot const& root, std::string const& path, size_t streams) {
    std::string out = "  \"format\": {\n    \"filename\": " + jsonText(path) + ",\n";
    out += "    \"nb_streams\": " + std::to_string(streams) + ",\n";
    if (auto const* mvhd = dynamic_cast<QtAtomMvhd const*>(root.findAtom("moov.mvhd", 0)))
        if (mvhd->getTimeScale())
            out += "    \"duration\": " +
                   jsonText(durationText(double(mvhd->getDuration()) / mvhd->getTimeScale())) + ",\n";
    if (root.file()) out += "    \"size\": " + jsonText(std::to_string(root.file()->length())) + ",\n";
    out += "    \"layout\": [";
    for (BaseQtAtom const* atom = root.getChild(); atom; atom = atom->getSibling()) {
        out += atom == root.getChild() ? "\n" : ",\n";
        out += "      { \"type\": " + jsonText(idText(atom->getDiskId())) +
               ", \"offset\": " + std::to_string(atom->getFileOffset()) +
               ", \"size\": " + std::to_string(atom->getSize()) + " }";
    }
    out += "\n    ]";
    if (auto const* ftyp = dynamic_cast<QtAtomFileType const*>(root.findAtom("ftyp", 0))) {
        std::string brands;
        for (QtAtomIdType brand : ftyp->getCompatibleBrands()) brands += idText(brand);
        out += ",\n    \"tags\": {\n      \"major_brand\": " + jsonText(idText(ftyp->getMajorBrand())) +
               ",\n      \"minor_version\": " + jsonText(std::to_string(ftyp->getMinorVersion())) +
               ",\n      \"compatible_brands\": " + jsonText(brands) + "\n    }";
    }
    return out + "\n  }\n";
}

std::string json(QtAtomRoot const& root, std::string const& path, std::vector<TrackInfo> const& tracks) {
    std::string out = "{\n  \"streams\": [\n";
    for (TrackInfo const& track : tracks) {
        if (&track != &tracks.front()) out += ",\n";
        JsonObject stream(out);
        stream.number("index", track.index);
        stream.number("id", track.trackId);
        stream.text("codec_type", std::string(codecType(track.handler)));
        stream.text("handler_type", idText(track.handler));
        stream.text("codec_tag_string", idText(track.codec));
        if (track.duration) stream.text("duration", durationText(*track.duration));
        if (track.sampleCount) stream.text("nb_frames", std::to_string(*track.sampleCount));
        stream.number("width", track.width);
        stream.number("height", track.height);
        stream.text("sample_aspect_ratio", track.pixelAspect);
        stream.text("color_primaries", track.primaries);
        stream.text("color_transfer", track.transfer);
        stream.text("color_space", track.matrix);
        stream.text("field_order", track.fieldOrder);
        if (track.sampleRate) stream.text("sample_rate", std::to_string(*track.sampleRate));
        stream.number("channels", track.channels);
        stream.number("bits_per_sample", track.bitsPerSample);
        if (track.timecode) stream.raw("tags", "{ \"timecode\": " + jsonText(*track.timecode) + " }");
        stream.close();
    }
    return out + "\n  ],\n" + formatJson(root, path, tracks.size()) + "}\n";
}

std::string text(std::vector<TrackInfo> const& tracks) {
    std::string out;
    for (TrackInfo const& track : tracks) {
        out += "track " + std::to_string(track.index + 1);
        if (track.trackId) out += " (id " + std::to_string(*track.trackId) + ")";
        out += ": " + idText(track.handler) + " " + idText(track.codec);
        if (track.duration) out += ", " + durationText(*track.duration) + " s";
        if (track.sampleCount) out += ", " + std::to_string(*track.sampleCount) + " samples";
        if (!track.noSamples.empty()) out += " (no samples: " + track.noSamples + ")";
        out += "\n";
        if (track.width) {
            out += "  video " + std::to_string(*track.width) + "x" + std::to_string(*track.height);
            if (track.pixelAspect) out += ", pixel aspect " + *track.pixelAspect;
            if (track.primaries)
                out += ", colour " + *track.primaries + "/" + *track.transfer + "/" + *track.matrix;
            if (track.fieldOrder) out += ", field order " + *track.fieldOrder;
            out += "\n";
        }
        if (track.sampleRate)
            out += "  audio " + std::to_string(*track.sampleRate) + " Hz, " +
                   std::to_string(*track.channels) + " channels, " + std::to_string(*track.bitsPerSample) +
                   " bits per sample\n";
        if (track.timecode) out += "  start timecode " + *track.timecode + "\n";
    }
    return out;
}

int runInfo(std::vector<std::string> const& args) {
    bool asJson = false;
    std::vector<std::string> files;
    for (std::string const& arg : args) {
        if (arg == "--json")
            asJson = true;
        else
            files.push_back(arg);
    }
    if (files.size() != 1) return qtMovieUsageError("info", "expected one FILE");
    std::string const& path = files.front();
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(path.c_str());
    if (!root) return 1;
    std::vector<TrackInfo> tracks;
    for (BaseQtAtom const* trak : QtTrackSamples::tracksOf(*root))
        tracks.push_back(describeTrack(trak, static_cast<unsigned int>(tracks.size())));
    std::string output = asJson ? json(*root, path, tracks) : text(tracks);
    if (tracks.empty() && !asJson) output = path + ": no tracks\n";
    fputs(output.c_str(), stdout);
    fflush(stdout);
    return 0;
}

QtMovieCommand infoCommand(
    "info", "FILE [--json]", "print each track's codec, duration, picture size, sound rate and timecode",
    {{"--json", nullptr, "one JSON document: \"streams\" and \"format\" with ffprobe's field names"}},
    "Plain output: \"track N (id ID): HANDLER CODEC, SECONDS s, COUNT samples\", then for video\n"
    "\"  video WxH\" with pixel aspect, colour and field order when the file gives them, for sound\n"
    "\"  audio RATE Hz, CHANNELS channels, BITS bits per sample\", for timecode \"  start timecode T\".\n"
    "exit status: 0 printed, 1 the file cannot be read as a movie, 2 wrong command line",
    runInfo);

}  // namespace
