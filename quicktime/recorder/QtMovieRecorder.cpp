#include "quicktime/recorder/QtMovieRecorder.h"

#include <algorithm>
#include <vector>

#include "framework/ByteOrder.h"
#include "framework/Clock.h"
#include "framework/Messages.h"
#include "quicktime/atoms/QtAtomMvhd.h"
#include "quicktime/descriptions/QtAtomSampleDesc.h"
#include "quicktime/descriptions/QtAudioSampleDesc.h"
#include "quicktime/descriptions/QtTimecodeSampleDesc.h"
#include "quicktime/descriptions/QtVideoSampleDesc.h"
#include "quicktime/layout/QtAtomMoov.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/recorder/QtAtomCloner.h"
#include "quicktime/recorder/QtRecorderTrack.h"
#include "quicktime/recorder/QtRecordingLayout.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "quicktime/tables/QtAtomSampleTime.h"

namespace {

constexpr QtAtomIdType kAvc1 = qtId("avc1");
constexpr QtAtomIdType kMp4a = qtId("mp4a");
constexpr QtAtomIdType kLpcm = qtId("lpcm");
constexpr QtAtomIdType kSowt = qtId("sowt");
constexpr QtAtomIdType kTwos = qtId("twos");
constexpr QtAtomIdType kStbl = qtId("stbl");
constexpr unsigned int kFixed1 = 0x00010000;

// What a new track's template needs beyond its media.
struct TrackShape {
    uint32_t number;
    uint32_t timeScale;
    char const* handler;      // 'vide', 'soun', 'tmcd'
    char const* handlerName;  // lengths chosen so that each handler atom is a multiple of 4 bytes
    unsigned int width = 0, height = 0;
    bool sound = false;
};

void fourcc(QtAtomBytes& bytes, QtAtomIdType id) { bytes.u32(id); }

void trackHeader(QtAtomBytes& b, TrackShape const& shape) {
    b.open("tkhd").u32(shape.handler[0] == 't' ? 0 : 0xF).u32(0).u32(0).u32(shape.number).u32(0).u32(0).zeros(8);
    b.u16(0).u16(0).u16(shape.sound ? 0x100 : 0).u16(0);
    b.u32(kFixed1).u32(0).u32(0).u32(0).u32(kFixed1).u32(0).u32(0).u32(0).u32(0x40000000);
    b.u32(static_cast<unsigned long>(shape.width) << 16).u32(static_cast<unsigned long>(shape.height) << 16).close();
}

void mediaInformationHeader(QtAtomBytes& b, TrackShape const& shape) {
    if (shape.handler[0] == 'v') {
        b.open("vmhd").u32(1).u16(0x40).u16(0x8000).u16(0x8000).u16(0x8000).close();
    } else if (shape.sound) {
        b.open("smhd").u32(0).u16(0).u16(0).close();
    } else {
        b.open("gmhd").open("gmin").u32(0).u16(0x40).u16(0x8000).u16(0x8000).u16(0x8000).u16(0).u16(0).close();
        b.open("tmcd").open("tcmi").u32(0).u16(0).u16(0).u16(12).u16(0).zeros(12).pascal("").zeros(2).close();
        b.close().close();
    }
}

// A complete track with an empty sample description table (the entry follows in `entry`).
std::vector<unsigned char> trackTemplate(TrackShape const& shape, std::vector<unsigned char> const& entry) {
    QtAtomBytes b;
    b.open("trak");
    trackHeader(b, shape);
    b.open("mdia");
    b.open("mdhd").u32(0).u32(0).u32(0).u32(shape.timeScale).u32(0).u16(0).u16(0).close();
    b.open("hdlr").u32(0).fourcc("mhlr").fourcc(shape.handler).u32(0).u32(0).u32(0).pascal(shape.handlerName).close();
    b.open("minf");
    mediaInformationHeader(b, shape);
    b.open("hdlr").u32(0).fourcc("dhlr").fourcc("alis").u32(0).u32(0).u32(0).pascal("DataHandler").close();
    b.open("dinf").open("dref").u32(0).u32(1).open("alis").u32(1).close().close().close();
    b.open("stbl").open("stsd").u32(0).u32(entry.empty() ? 0 : 1);
    for (unsigned char byte : entry) b.u8(byte);
    b.close().close();
    b.close().close().close();
    return b.bytes();
}

std::vector<unsigned char> videoEntry(QtAtomIdType format, uint16_t width, uint16_t height) {
    QtAtomBytes b;
    b.u32(0);
    fourcc(b, format);
    b.zeros(6).u16(1).u16(0).u16(0).u32(0).u32(0).u32(0);
    b.u16(width).u16(height).u32(0x00480000).u32(0x00480000).u32(0).u16(1).zeros(32).u16(24).u16(0xFFFF);
    std::vector<unsigned char> bytes = b.bytes();
    bytes[3] = static_cast<unsigned char>(bytes.size());
    return bytes;
}

std::vector<unsigned char> soundEntry(QtAtomIdType format, uint32_t rate, uint16_t channels, uint16_t bits) {
    QtAtomBytes b;
    b.u32(0);
    fourcc(b, format);
    b.zeros(6).u16(1);
    if (format == kLpcm) {
        // Version 2: the rate as a double, the layout of a frame in the flags (signed, packed, big-endian).
        double value = rate;
        uint64_t raw;
        static_assert(sizeof raw == sizeof value);
        std::copy_n(reinterpret_cast<unsigned char const*>(&value), sizeof raw, reinterpret_cast<unsigned char*>(&raw));
        b.u16(2).u16(0).u32(0).u16(3).u16(16).u16(0xFFFE).u16(0).u32(kFixed1).u32(72);
        b.u32(raw >> 32).u32(raw & 0xFFFFFFFF).u32(channels).u32(0x7F000000).u32(bits).u32(0xE);
        b.u32(static_cast<unsigned long>(channels) * bits / 8).u32(1);
    } else if (format == kMp4a) {
        b.u16(1).u16(0).u32(0).u16(channels).u16(16).u16(0xFFFE).u16(0).u32(static_cast<unsigned long>(rate) << 16);
        b.u32(1024).u32(0).u32(0).u32(2);
    } else {
        b.u16(0).u16(0).u32(0).u16(channels).u16(bits).u16(0).u16(0).u32(static_cast<unsigned long>(rate) << 16);
    }
    std::vector<unsigned char> bytes = b.bytes();
    bytes[3] = static_cast<unsigned char>(bytes.size());
    return bytes;
}

}  // namespace

struct QtMovieRecorder::Impl {
    Options options;
    AutoRefPtr<BasicFileIO> file;
    AutoPtr<QtAtomRoot> root;
    std::unique_ptr<QtRecordingLayout> layout;
    std::vector<std::unique_ptr<QtRecorderTrack>> tracks;
    unsigned long essenceBytes = 0;
    bool closed = false;

    QtRecorderTrack* track(uint32_t number) const {
        return number >= 1 && number <= tracks.size() ? tracks[number - 1].get() : nullptr;
    }
    unsigned long plannedSamples(uint32_t samplesPerSecond) const {
        return static_cast<unsigned long>(std::max(options.plannedSeconds, 1u)) * std::max(samplesPerSecond, 1u);
    }
    uint32_t addTrak(BaseQtAtom const* trak, QtRecorderTrack::Kind kind, unsigned int constantSize,
                     uint32_t samplesPerSecond);
    uint32_t buildTrack(TrackShape shape, std::vector<unsigned char> const& entry, QtRecorderTrack::Kind kind,
                        unsigned int constantSize, uint32_t samplesPerSecond);
    bool flush();
};

QtMovieRecorder::QtMovieRecorder() : m_impl(std::make_unique<Impl>()) {}

QtMovieRecorder::~QtMovieRecorder() {
    if (m_impl && m_impl->layout && !m_impl->closed) close();
}

std::unique_ptr<QtMovieRecorder> QtMovieRecorder::create(char const* path, Options const& options) {
    AutoRefPtr<BasicFileIO> file = BasicFileIO::open(path, BasicFileIO::Create);
    if (!file) {
        errorMsg("%s: cannot create: %s\n", path ? path : "<no path>", BasicFileIO::lastOpenError().c_str());
        return nullptr;
    }
    return create(file, options);
}

std::unique_ptr<QtMovieRecorder> QtMovieRecorder::create(AutoRefPtr<BasicFileIO> file, Options const& options) {
    if (!file || !file->writable()) {
        errorMsg("QtMovieRecorder: no writable file\n");
        return nullptr;
    }
    std::unique_ptr<QtMovieRecorder> recorder(new QtMovieRecorder());
    Impl& impl = *recorder->m_impl;
    impl.options = options;
    impl.file = file;
    impl.root.reset(new QtAtomRoot(file, 0));
    impl.layout = std::make_unique<QtRecordingLayout>(*impl.root, *file);
    if (!impl.layout->create(options.timeScale)) {
        errorMsg("%s: cannot write the new movie\n", file->path());
        impl.closed = true;
        return nullptr;
    }
    impl.layout->movieHeader()->setTime(Clock::now());
    return recorder;
}

uint32_t QtMovieRecorder::Impl::addTrak(BaseQtAtom const* trak, QtRecorderTrack::Kind kind, unsigned int constantSize,
                                        uint32_t samplesPerSecond) {
    uint32_t number = static_cast<uint32_t>(tracks.size() + 1);
    tracks.push_back(std::make_unique<QtRecorderTrack>(number, kind, trak, constantSize, layout->chunks(),
                                                       plannedSamples(samplesPerSecond)));
    tracks.back()->gatherWrites(options.gatherWrites);
    tracks.back()->reserve(nullptr);
    // The tables have their room; the movie is placed anew before anything is written to them.
    if (!layout->relocate()) return 0;
    return number;
}

uint32_t QtMovieRecorder::Impl::buildTrack(TrackShape shape, std::vector<unsigned char> const& entry,
                                           QtRecorderTrack::Kind kind, unsigned int constantSize,
                                           uint32_t samplesPerSecond) {
    if (closed) return 0;
    shape.number = static_cast<uint32_t>(tracks.size() + 1);
    std::vector<unsigned char> bytes = trackTemplate(shape, entry);
    BaseQtAtom const* trak = QtAtomCloner::build(layout->moov(), bytes.data(), bytes.size());
    BaseQtAtom const* stbl = trak ? trak->findAtom("mdia.minf.stbl", 0) : nullptr;
    if (!stbl) return 0;
    layout->addToMovie(trak);
    layout->movieHeader()->allocTrackId();
    QtRecorderTrack::addTables(stbl);
    return addTrak(trak, kind, constantSize, samplesPerSecond);
}

uint32_t QtMovieRecorder::addVideoTrack(QtAtomIdType format, uint32_t timeScale, uint16_t width, uint16_t height) {
    TrackShape shape{0, timeScale, "vide", "Video Media", width, height};
    uint32_t number = m_impl->buildTrack(shape, videoEntry(format, width, height), QtRecorderTrack::Video, 0, 60);
    if (number && format == kAvc1) {
        QtAtomSampleDesc* stsd = m_impl->track(number)->descriptions()->write();
        if (QtVideoSampleDesc* desc = stsd->getVideoDesc(1)) desc->setAvcDecoderInfo();
    }
    return number;
}

uint32_t QtMovieRecorder::addSoundTrack(QtAtomIdType format, uint32_t timeScale, uint16_t channels,
                                        uint16_t bitsPerSample) {
    bool pcm = format == kLpcm || format == kSowt || format == kTwos;
    if ((!pcm && format != kMp4a) || channels == 0 || (pcm && (bitsPerSample == 0 || bitsPerSample % 8))) {
        errorMsg("QtMovieRecorder::addSoundTrack: unsupported sound %s, %u channels of %u bits\n",
                 QtIdName(format).render(), channels, bitsPerSample);
        return 0;
    }
    if ((format == kSowt || format == kTwos) && bitsPerSample > 16) format = kLpcm;
    TrackShape shape{0, timeScale, "soun", "Sound Media"};
    shape.sound = true;
    unsigned int frameBytes = pcm ? static_cast<unsigned int>(channels) * bitsPerSample / 8 : 0;
    uint32_t number = m_impl->buildTrack(shape, soundEntry(format, timeScale, channels, bitsPerSample),
                                         QtRecorderTrack::Sound, frameBytes, pcm ? 4 : timeScale / 1024 + 1);
    if (number && format == kMp4a) {
        QtAtomSampleDesc* stsd = m_impl->track(number)->descriptions()->write();
        if (QtAudioSampleDesc* desc = stsd->getAudioDesc(1)) desc->setMpeg4DecoderInfo(128000, timeScale, channels);
    }
    return number;
}

uint32_t QtMovieRecorder::addTimecodeTrack(uint32_t timeScale, uint32_t frameDuration, uint8_t framesPerSecond,
                                           bool dropFrame, uint32_t startFrame, uint32_t videoTrack) {
    Impl& impl = *m_impl;
    QtRecorderTrack* video = impl.track(videoTrack);
    if ((videoTrack && !video) || frameDuration == 0 || framesPerSecond == 0) return 0;
    TrackShape shape{0, timeScale, "tmcd", "Time Code Media"};
    uint32_t number = impl.buildTrack(shape, {}, QtRecorderTrack::Timecode, 4, 1);
    if (!number) return 0;
    QtRecorderTrack* track = impl.track(number);
    QtAtomSampleDesc* stsd = track->descriptions()->write();
    QtTimecodeSampleDesc* desc = stsd->addTimecodeDesc();
    desc->setRate(timeScale, frameDuration, dropFrame);
    desc->setFlags(desc->getFlags() | QtTimecodeSampleDesc::kWrapsAt24Hours);
    if (video) {
        QtAtomBytes tref;
        tref.open("tref").open("tmcd").u32(number).close().close();
        QtAtomCloner::build(video->trak(), tref.bytes().data(), tref.bytes().size());
    }
    if (!impl.layout->relocate()) return 0;
    unsigned char counter[4];
    putBigEndian32(counter, startFrame);
    Sample sample;
    sample.bytes = counter;
    sample.size = 4;
    sample.duration = frameDuration;
    (void)framesPerSecond;  // the description counts frames from its rate
    return appendSample(number, sample) ? number : 0;
}

uint32_t QtMovieRecorder::addTrackLike(BaseQtAtom const& sourceTrak) {
    Impl& impl = *m_impl;
    if (impl.closed || sourceTrak.getId() != qtId("trak")) return 0;
    QtAtomRoot const* sourceRoot = QtAtomRoot::of(&sourceTrak);
    BasicFileIO* source = sourceRoot ? sourceRoot->file() : nullptr;
    // Everything but the sample tables; of those only the descriptions.
    auto keep = [](BaseQtAtom const& atom) {
        BaseQtAtom const* parent = atom.getParent();
        return !parent || parent->getId() != kStbl || atom.getId() == qtId("stsd");
    };
    std::vector<unsigned char> bytes;
    if (!QtAtomCloner::serialize(sourceTrak, source, bytes, keep)) return 0;
    BaseQtAtom const* trak = QtAtomCloner::build(impl.layout->moov(), bytes.data(), bytes.size());
    BaseQtAtom const* stbl = trak ? trak->findAtom("mdia.minf.stbl", 0) : nullptr;
    if (!stbl || !stbl->findAtom("stsd", 0)) {
        errorMsg("%s: the track to copy has no sample descriptions\n", impl.root->getMoviePath());
        if (trak) {
            trak->removeSelf(false);
            delete trak;
        }
        return 0;
    }
    impl.layout->addToMovie(trak);
    impl.layout->movieHeader()->allocTrackId();
    QtRecorderTrack::addTables(stbl);
    QtAtomIdType type = 0;
    if (BaseQtAtom const* hdlr = trak->findAtom("mdia.hdlr", 0)) {
        std::vector<unsigned char> head;
        QtAtomCloner::serialize(*hdlr, nullptr, head, [](BaseQtAtom const&) { return true; });
        if (head.size() >= 20) type = getBigEndian32(head.data() + 16);
    }
    // Equal-sized samples (PCM) keep their constant size; everything else is recorded sample by sample.
    unsigned int constantSize = 0;
    QtRecorderTrack::Kind kind = QtRecorderTrack::Other;
    if (type == qtId("soun")) kind = QtRecorderTrack::Sound;
    if (type == qtId("vide")) kind = QtRecorderTrack::Video;
    auto const* stsz = dynamic_cast<QtAtomSampleSize const*>(sourceTrak.findAtom("mdia.minf.stbl.stsz", 0));
    if (stsz && stsz->isFixed()) constantSize = stsz->getConstantSampleSize();
    return impl.addTrak(trak, kind, constantSize, 60);
}

QtSampleDesc* QtMovieRecorder::getDescription(uint32_t track) {
    QtRecorderTrack* recorded = m_impl->track(track);
    if (!recorded || m_impl->closed) return nullptr;
    QtAtomSampleDesc* stsd = recorded->descriptions()->write();
    if (QtVideoSampleDesc* video = stsd->getVideoDesc(1)) return video;
    if (QtAudioSampleDesc* audio = stsd->getAudioDesc(1)) return audio;
    if (QtTimecodeSampleDesc* timecode = stsd->getTimecodeDesc(1)) return timecode;
    return nullptr;
}

bool QtMovieRecorder::appendSample(uint32_t track, Sample const& sample) {
    Impl& impl = *m_impl;
    QtRecorderTrack* recorded = impl.track(track);
    if (!recorded || impl.closed || (!sample.bytes && sample.size)) {
        errorMsg("QtMovieRecorder::appendSample: no track %u to record into\n", track);
        return false;
    }
    if (recorded->needsRoom(sample)) {
        recorded->reserve(&sample);
        if (!impl.layout->relocate()) return false;
    }
    return recorded->append(sample, *impl.root, *impl.file, impl.essenceBytes);
}

bool QtMovieRecorder::Impl::flush() {
    if (closed) return false;
    uint32_t movieScale = layout->movieHeader()->getTimeScale();
    unsigned long longest = 0;
    for (auto const& track : tracks)
        if (track->kind() != QtRecorderTrack::Timecode) longest = std::max(longest, track->movieDuration(movieScale));
    for (auto const& track : tracks)
        if (!track->writePending(*file)) {
            errorMsg("%s: writing samples failed\n", root->getMoviePath());
            return false;
        }
    for (auto const& track : tracks) {
        track->closeChunk();
        if (track->kind() == QtRecorderTrack::Timecode && track->appended() == 1) {
            // The one counter sample lasts as long as the movie.
            unsigned long ticks = longest * track->timeScale() / movieScale;
            track->setSingleSampleDuration(static_cast<unsigned int>(std::max(ticks, 1ul)));
        }
        if (!track->prepareFlush(movieScale, longest)) {
            if (!layout->relocate() || !track->prepareFlush(movieScale, longest)) return false;
        }
        longest = std::max(longest, track->movieDuration(movieScale));
    }
    QtAtomMvhd const* mvhd = layout->movieHeader();
    if (mvhd->getDuration() != longest) {
        mvhd->set(static_cast<unsigned int>(longest), mvhd->getSelectionTime(), mvhd->getSelectionDuration());
        mvhd->write();
    }
    if (!layout->flush()) return false;
    for (auto const& track : tracks) track->flushDone();
    return true;
}

bool QtMovieRecorder::flush() { return m_impl->flush(); }

bool QtMovieRecorder::close() {
    Impl& impl = *m_impl;
    if (impl.closed) return false;
    unsigned long essenceEnd = 0;
    for (auto const& track : impl.tracks) essenceEnd = std::max(essenceEnd, track->essenceEnd());
    bool ok = impl.flush() && impl.layout->close(essenceEnd);
    impl.closed = true;
    return ok;
}

unsigned long QtMovieRecorder::durableSamples(uint32_t track) const {
    QtRecorderTrack const* recorded = m_impl->track(track);
    return recorded ? recorded->durable() : 0;
}

unsigned long QtMovieRecorder::appendedSamples(uint32_t track) const {
    QtRecorderTrack const* recorded = m_impl->track(track);
    return recorded ? recorded->appended() : 0;
}

unsigned long QtMovieRecorder::essenceBytes() const { return m_impl->essenceBytes; }

QtAtomRoot const& QtMovieRecorder::getRoot() const { return *m_impl->root; }
