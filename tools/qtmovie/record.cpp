// qtmovie record OUT --from IN [--flush-every N] [--planned-seconds S] [--realtime]
// [--kill-after-bytes B]: records IN again into OUT through QtMovieRecorder, as a live recorder
// receives it: every track shaped like IN's, every sample in decode order with the tracks
// interleaved by time, a flush at the chosen cadence, then close. --kill-after-bytes ends the
// process without closing anything, so that the file left behind shows what a crash leaves.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "quicktime/quicktime.h"
#include "quicktime/recorder/QtMovieRecorder.h"
#include "quicktime/tables/QtAtomSampleTime.h"
#include "quicktime/tables/QtTrackSamples.h"
#include "tools/qtmovie/QtMovieCommand.h"

namespace {

// Exit status of a recording that --kill-after-bytes cut short.
constexpr int kKilledStatus = 3;

struct RecordOptions {
    std::string out, in;
    unsigned long flushEvery = 0;      // samples between flushes; 0: one second of media
    unsigned long plannedSeconds = 0;  // the recorder's first table room; 0: its default
    bool realtime = false;
    bool kill = false;
    unsigned long killAfterBytes = 0;
};

// One track of IN: a cursor on its next sample in decode order, and its track in OUT. Not movable
// (the iterator holds on to the track's tables).
class SourceTrack {
  public:
    SourceTrack(unsigned int number, QtAtomHeader const* media, uint32_t recorded)
        : number(number), recorded(recorded), m_samples(media), m_it(m_samples, 0) {
        auto const* mdhd = media ? dynamic_cast<QtAtomMediaHdr const*>(media->findAtom("mdhd", 0)) : nullptr;
        timeScale = mdhd && mdhd->getTimeScale() ? mdhd->getTimeScale() : 1;
        m_stts = m_samples.getSampleTable().getStts();
        m_hasCtts = m_samples.getSampleTable().getCtts() != nullptr;
        m_pending = m_it.next(m_next);
    }
    SourceTrack(SourceTrack const&) = delete;
    SourceTrack& operator=(SourceTrack const&) = delete;

    bool hasSample() const { return m_pending; }
    QtSampleInfo const& peek() const { return m_next; }
    unsigned long expected() const { return m_samples.getNumSamples(); }
    unsigned long taken() const { return m_taken; }
    std::string whyNoSamples() const { return m_samples.getSampleTable().whyNoSamples(); }

    // The recorder's form of the next sample (bytes aside); steps on. False when its composition
    // offset is not a whole number of its own durations within the range a display offset holds.
    bool take(QtMovieRecorder::Sample& sample) {
        sample.size = m_next.size;
        sample.duration = nextDuration();
        sample.key = m_next.key;
        bool exact = true;
        if (m_hasCtts) {
            long offset = m_next.pts - static_cast<long>(m_next.dts);
            long ticks = sample.duration ? static_cast<long>(sample.duration) : 1;
            long frames = offset / ticks;
            exact = offset % ticks == 0 && frames > -128 && frames < 128;
            if (!exact) frames = frames < -127 ? -127 : frames > 127 ? 127 : frames;
            sample.info = SampleInfo(codingType(), static_cast<int8_t>(frames));
        } else {
            sample.info = SampleInfo();
        }
        ++m_taken;
        m_pending = m_it.next(m_next);
        return exact;
    }

    // The `size` bytes at `offset` in IN, read through a window over the track's data so that the
    // small samples of a chunk cost one read together; null when they cannot be read.
    unsigned char const* bytesAt(BasicFileIO& file, unsigned long offset, uint32_t size) {
        if (offset < m_windowStart || offset - m_windowStart + size > m_windowLength) {
            m_window.resize(std::max<unsigned long>(size, kWindowBytes));
            long got = file.readAt(offset, m_window.data(), m_window.size());
            m_windowStart = offset;
            m_windowLength = got > 0 ? static_cast<unsigned long>(got) : 0;
            if (m_windowLength < size) return nullptr;
        }
        return m_window.data() + (offset - m_windowStart);
    }

    unsigned int number;  // in IN, from 1
    uint32_t recorded;    // in OUT
    uint32_t timeScale = 1;

  private:
    // The duration of the next sample from the time-to-sample runs (the last run's for samples
    // past a short table).
    uint32_t nextDuration() {
        if (!m_stts) return 0;
        while (m_sttsLeft == 0 && m_sttsIndex < m_stts->getNumEntries()) {
            QtAtomSampleTime::Entry entry = m_stts->getEntry(m_sttsIndex++);
            m_sttsLeft = entry.count;
            m_duration = entry.duration;
        }
        if (m_sttsLeft) --m_sttsLeft;
        return m_duration;
    }

    // Key frames are I; a frame shown before one decoded earlier is a B frame; the rest are P.
    SampleCodingType codingType() {
        bool before = m_taken > 0 && m_next.pts < m_latestPts;
        if (m_taken == 0 || m_next.pts > m_latestPts) m_latestPts = m_next.pts;
        return m_next.key ? SampleCodingI : before ? SampleCodingB : SampleCodingP;
    }

    static constexpr unsigned long kWindowBytes = 256ul << 10;

    QtTrackSamples m_samples;
    std::vector<unsigned char> m_window;
    unsigned long m_windowStart = 0;
    unsigned long m_windowLength = 0;
    QtTrackSamples::Iterator m_it;
    QtSampleInfo m_next;
    bool m_pending = false;
    unsigned long m_taken = 0;
    QtAtomSampleTime const* m_stts = nullptr;
    unsigned int m_sttsIndex = 0;
    unsigned int m_sttsLeft = 0;
    uint32_t m_duration = 0;
    bool m_hasCtts = false;
    long m_latestPts = 0;
};

// The track whose next sample is decoded first, in seconds; the earlier track on a tie. Null when
// every track is done.
SourceTrack* earliest(std::vector<std::unique_ptr<SourceTrack>> const& tracks) {
    SourceTrack* best = nullptr;
    for (auto const& track : tracks) {
        if (!track->hasSample()) continue;
        if (!best || static_cast<unsigned __int128>(track->peek().dts) * best->timeScale <
                         static_cast<unsigned __int128>(best->peek().dts) * track->timeScale)
            best = track.get();
    }
    return best;
}

double secondsOf(SourceTrack const& track) {
    return static_cast<double>(track.peek().dts) / static_cast<double>(track.timeScale);
}

class Recording {
  public:
    explicit Recording(RecordOptions const& options) : m_options(options) {}

    int run() {
        m_source = QtAtomReader::readFile(m_options.in.c_str());
        if (!m_source) return 1;
        auto const* mvhd = dynamic_cast<QtAtomMvhd const*>(m_source->findAtom("moov.mvhd", 0));
        if (!mvhd) return fail(m_options.in + " has no movie header");
        QtMovieRecorder::Options recorderOptions;
        if (mvhd->getTimeScale()) recorderOptions.timeScale = mvhd->getTimeScale();
        recorderOptions.gatherWrites = true;  // nothing here reads the recording's bytes meanwhile
        if (m_options.plannedSeconds)
            recorderOptions.plannedSeconds = static_cast<uint32_t>(m_options.plannedSeconds);
        m_recorder = QtMovieRecorder::create(m_options.out.c_str(), recorderOptions);
        if (!m_recorder) return 1;
        if (!addTracks()) return 1;
        if (!recordSamples()) return 1;
        if (!m_recorder->close()) return fail("could not close " + m_options.out);
        printf("%s: %lu samples of %zu tracks, %lu flushes\n", m_options.out.c_str(), m_samples,
               m_tracks.size(), m_flushes);
        return m_faithful ? 0 : 1;
    }

  private:
    int fail(std::string const& message) {
        fprintf(stderr, "qtmovie record: %s\n", message.c_str());
        return 1;
    }
    bool failed(std::string const& message) {
        fail(message);
        return false;
    }
    void unfaithful(SourceTrack const& track, std::string const& what) {
        fprintf(stderr, "qtmovie record: track %u: %s\n", track.number, what.c_str());
        m_faithful = false;
    }

    bool addTracks() {
        unsigned int count = QtTrackSamples::countTracks(*m_source);
        for (unsigned int number = 1; number <= count; ++number) {
            BaseQtAtom const* trak = m_source->findAtom("moov.trak", number - 1);
            uint32_t recorded = trak ? m_recorder->addTrackLike(*trak) : 0;
            if (!recorded) return failed("could not add a track like track " + std::to_string(number));
            auto track = std::make_unique<SourceTrack>(
                number, QtTrackSamples::findTrackMedia(*m_source, number), recorded);
            std::string why = track->whyNoSamples();
            if (!why.empty() && track->expected() > 0)
                unfaithful(*track, "its samples cannot be read: " + why);
            m_tracks.push_back(std::move(track));
        }
        return true;
    }

    bool recordSamples() {
        auto start = std::chrono::steady_clock::now();
        double nextFlush = 1.0;
        unsigned long sinceFlush = 0;
        unsigned long essence = 0;
        while (SourceTrack* track = earliest(m_tracks)) {
            double seconds = secondsOf(*track);
            if (m_options.flushEvery == 0 && seconds >= nextFlush && sinceFlush > 0) {
                if (!flush()) return false;
                sinceFlush = 0;
                nextFlush = std::floor(seconds) + 1.0;
            }
            if (m_options.realtime)
                std::this_thread::sleep_until(start + std::chrono::duration<double>(seconds));
            if (track->peek().descIndex > 1 && !m_warnedDescriptions) {
                unfaithful(*track, "samples of its later sample descriptions are recorded under the first");
                m_warnedDescriptions = true;
            }
            unsigned long offset = track->peek().offset;
            QtMovieRecorder::Sample sample;
            if (!track->take(sample) && !m_warnedOffsets) {
                unfaithful(*track, "composition offsets that are not whole frames are rounded to frames");
                m_warnedOffsets = true;
            }
            sample.bytes = track->bytesAt(*m_source->file(), offset, sample.size);
            if (!sample.bytes)
                return failed("could not read sample " + std::to_string(track->taken() - 1) + " of track " +
                              std::to_string(track->number) + " from " + m_options.in);
            if (!m_recorder->appendSample(track->recorded, sample))
                return failed("could not record sample " + std::to_string(track->taken() - 1) + " of track " +
                              std::to_string(track->number));
            ++m_samples;
            essence += sample.size;
            if (m_options.kill && essence >= m_options.killAfterBytes) {
                fflush(stdout);
                _exit(kKilledStatus);
            }
            if (m_options.flushEvery && ++sinceFlush == m_options.flushEvery) {
                if (!flush()) return false;
                sinceFlush = 0;
            } else if (!m_options.flushEvery) {
                ++sinceFlush;
            }
        }
        for (auto const& track : m_tracks)
            if (track->taken() < track->expected())
                unfaithful(*track, "only " + std::to_string(track->taken()) + " of its " +
                                       std::to_string(track->expected()) + " samples could be read");
        return true;
    }

    bool flush() {
        if (!m_recorder->flush()) return failed("could not flush " + m_options.out);
        ++m_flushes;
        return true;
    }

    RecordOptions const& m_options;
    AutoPtr<QtAtomRoot> m_source;
    std::unique_ptr<QtMovieRecorder> m_recorder;
    std::vector<std::unique_ptr<SourceTrack>> m_tracks;
    unsigned long m_samples = 0;
    unsigned long m_flushes = 0;
    bool m_faithful = true;
    bool m_warnedDescriptions = false;
    bool m_warnedOffsets = false;
};

int runRecord(std::vector<std::string> const& args) {
    RecordOptions options;
    for (size_t i = 0; i < args.size(); ++i) {
        std::string const& a = args[i];
        if (a == "--from" && i + 1 < args.size()) {
            options.in = args[++i];
        } else if (a == "--flush-every" || a == "--planned-seconds" || a == "--kill-after-bytes") {
            unsigned long& target = a == "--flush-every"       ? options.flushEvery
                                    : a == "--planned-seconds" ? options.plannedSeconds
                                                               : options.killAfterBytes;
            if (i + 1 == args.size() || !qtMovieParseNumber(args[++i], target) ||
                (target == 0 && a != "--kill-after-bytes") || target > 0xFFFFFFFFul)
                return qtMovieUsageError("record", a + " needs a positive number");
            options.kill = options.kill || a == "--kill-after-bytes";
        } else if (a == "--realtime") {
            options.realtime = true;
        } else if (options.out.empty() && a.rfind("--", 0) != 0) {
            options.out = a;
        } else {
            return qtMovieUsageError("record", "unexpected argument " + a);
        }
    }
    if (options.out.empty() || options.in.empty())
        return qtMovieUsageError("record", "expected OUT and --from IN");
    return Recording(options).run();
}

QtMovieCommand recordCommand(
    "record", "OUT --from IN [--flush-every N] [--planned-seconds S] [--realtime] [--kill-after-bytes B]",
    "record IN again into OUT through the recorder, as a live recorder receives its samples",
    {{"--from", "IN", "the movie whose tracks and samples are recorded"},
     {"--flush-every", "N", "flush after every N samples (default: after each second of media)"},
     {"--planned-seconds", "S", "give the tables room for S seconds of media at first (default 60)"},
     {"--realtime", nullptr, "append each sample no earlier than its decode time after the start"},
     {"--kill-after-bytes", "B", "end the process abruptly, without closing, after B bytes of samples"}},
    "Every track of IN is added with its header, edit list, descriptions and references; its\n"
    "samples follow in decode order, the tracks interleaved by decode time, each with its bytes,\n"
    "duration, key flag and composition offset. Prints \"OUT: N samples of T tracks, F flushes\".\n"
    "exit status: 0 recorded, 1 IN unreadable, OUT not written or not a faithful copy (a line on\n"
    "stderr says what differs), 2 wrong command line, 3 ended by --kill-after-bytes",
    runRecord);

}  // namespace
