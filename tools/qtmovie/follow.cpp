// qtmovie follow FILE [--idle-timeout S]: `tail -f` for a movie being recorded by another process.
// Prints the CSV of `qtmovie samples`, each sample once, as soon as a completed flush makes it
// durable, and ends when the recording is closed (its last 'mdat' has its size) or has not grown
// for S seconds.
//
// What it trusts: the recorder keeps exactly one complete movie under a 'moov' header at every
// instant, never rewrites that movie's layout in place, and publishes a flush by raising each
// track's chunk-offset count last. So each look at the file reads the top-level headers and those
// counts (a few bytes each); the movie is read again only when its place or size changed or a
// count grew, and then only the movie under the 'moov' header that the walk found, never a 'skip'.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "framework/ByteOrder.h"
#include "quicktime/quicktime.h"
#include "quicktime/tables/QtAtomSampleChunkOff.h"
#include "quicktime/tables/QtTrackSamples.h"
#include "tools/qtmovie/QtMovieCommand.h"

namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(20);
constexpr QtAtomIdType kMoov = qtId("moov");
constexpr QtAtomIdType kMdat = qtId("mdat");

bool readFully(int fd, unsigned long offset, unsigned char* bytes, size_t size) {
    while (size > 0) {
        ssize_t got = pread(fd, bytes, size, static_cast<off_t>(offset));
        if (got <= 0) return false;
        bytes += got;
        offset += static_cast<unsigned long>(got);
        size -= static_cast<size_t>(got);
    }
    return true;
}

// What the top-level headers say.
struct TopLevel {
    unsigned int moovs = 0;
    unsigned long moovOffset = 0;
    unsigned long moovSize = 0;
    bool closed = false;  // the last 'mdat' has its own size: the recording is finished

    bool sameMovie(TopLevel const& other) const {
        return moovs == other.moovs && moovOffset == other.moovOffset && moovSize == other.moovSize;
    }
};

// Walks the top-level headers of the first `length` bytes. An atom that runs past them (being
// written, or damaged) ends the walk.
TopLevel walkTopLevel(int fd, unsigned long length) {
    TopLevel top;
    bool lastMdatOpen = true;
    for (unsigned long offset = 0; length - offset >= 8;) {
        unsigned char header[16];
        if (!readFully(fd, offset, header, 8)) break;
        unsigned long size = getBigEndian32(header);
        QtAtomIdType type = getBigEndian32(header + 4);
        unsigned int headerSize = 8;
        bool open = size == 0;
        if (size == 1) {
            if (length - offset < 16 || !readFully(fd, offset + 8, header + 8, 8)) break;
            size = getBigEndian64(header + 8);
            headerSize = 16;
        } else if (open) {
            size = length - offset;
        }
        if (size < headerSize || size > length - offset) break;
        if (type == kMoov) {
            ++top.moovs;
            top.moovOffset = offset;
            top.moovSize = size;
        } else if (type == kMdat) {
            lastMdatOpen = open;
        }
        offset += size;
    }
    top.closed = !lastMdatOpen;
    return top;
}

class Follower {
  public:
    explicit Follower(std::string path) : m_path(std::move(path)) {}
    ~Follower() {
        if (m_fd >= 0) close(m_fd);
    }
    Follower(Follower const&) = delete;
    Follower& operator=(Follower const&) = delete;

    // One look at the file: prints what became durable since the last look. True when the file
    // grew or samples were printed; `closed` once the recording is finished and fully printed.
    bool look(bool& closed) {
        closed = false;
        if (m_fd < 0 && (m_fd = open(m_path.c_str(), O_RDONLY | O_CLOEXEC)) < 0) return false;
        struct stat status;
        if (fstat(m_fd, &status) != 0) return false;
        unsigned long length = static_cast<unsigned long>(status.st_size);
        bool grew = length != m_length;
        m_length = length;
        TopLevel top = walkTopLevel(m_fd, length);
        if (top.moovs != 1) return grew;
        if (!top.sameMovie(m_top) || countsGrew()) {
            if (!readMovie(top)) return grew;
            grew = printNewSamples() || grew;
        }
        closed = top.closed;
        return grew;
    }

    bool sawMovie() const { return m_movie != nullptr; }

  private:
    struct Track {
        unsigned long printed = 0;      // samples printed so far
        unsigned long countOffset = 0;  // where the chunk-offset table's entry count lies
        uint32_t chunks = 0;            // that count when the movie was last read
    };

    // Whether a track's chunk-offset count differs from the one the movie was read with.
    bool countsGrew() const {
        for (Track const& track : m_tracks) {
            unsigned char count[4];
            if (track.countOffset && readFully(m_fd, track.countOffset, count, 4) &&
                getBigEndian32(count) != track.chunks)
                return true;
        }
        return false;
    }

    // Reads the file's tree again and takes the movie at the place the walk found; false (and the
    // old movie kept) when the file changed in between.
    bool readMovie(TopLevel const& top) {
        AutoPtr<QtAtomRoot> tree = QtAtomReader::readFile(m_path.c_str());
        if (!tree) return false;
        BaseQtAtom const* movie = nullptr;
        for (BaseQtAtom const* atom = tree->getChild(); atom && !movie; atom = atom->getSibling())
            if (atom->getDiskId() == kMoov && atom->getFileOffset() == top.moovOffset &&
                atom->getSize() == top.moovSize)
                movie = atom;
        if (!movie) return false;
        m_tree = std::move(tree);
        m_movie = movie;
        m_top = top;
        unsigned int count = movie->countAtom("trak");
        m_tracks.resize(count);
        for (unsigned int n = 0; n < count; ++n) {
            QtSampleTable table(media(n));
            table.validate();
            QtAtomSampleChunkOff const* stco = table.getStco();
            m_tracks[n].countOffset = stco ? stco->getFileOffset() + stco->getHeaderSize() + 4 : 0;
            m_tracks[n].chunks = stco ? stco->getNumChunks() : 0;
        }
        return true;
    }

    QtAtomHeader const* media(unsigned int track) const {
        BaseQtAtom const* trak = m_movie->findAtom("trak", track);
        return trak ? dynamic_cast<QtAtomHeader const*>(trak->findAtom("mdia", 0)) : nullptr;
    }

    bool printNewSamples() {
        bool printed = false;
        for (unsigned int n = 0; n < m_tracks.size(); ++n) {
            QtTrackSamples samples(media(n));
            QtSampleInfo info;
            for (QtTrackSamples::Iterator it(samples, m_tracks[n].printed); it.next(info);
                 ++m_tracks[n].printed) {
                qtMoviePrintSample(n + 1, info);
                printed = true;
            }
        }
        fflush(stdout);
        return printed;
    }

    std::string m_path;
    int m_fd = -1;
    unsigned long m_length = 0;
    TopLevel m_top;
    AutoPtr<QtAtomRoot> m_tree;
    BaseQtAtom const* m_movie = nullptr;  // in m_tree
    std::vector<Track> m_tracks;
};

int runFollow(std::vector<std::string> const& args) {
    std::string path;
    unsigned long idleSeconds = 0;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--idle-timeout") {
            if (i + 1 == args.size() || !qtMovieParseNumber(args[++i], idleSeconds) || idleSeconds == 0)
                return qtMovieUsageError("follow", "--idle-timeout needs a positive number of seconds");
        } else if (path.empty() && args[i].rfind("--", 0) != 0) {
            path = args[i];
        } else {
            return qtMovieUsageError("follow", "unexpected argument " + args[i]);
        }
    }
    if (path.empty()) return qtMovieUsageError("follow", "expected one FILE");
    printf("%s\n", kQtMovieSampleHeader);
    fflush(stdout);
    Follower follower(path);
    auto lastGrowth = std::chrono::steady_clock::now();
    for (bool closed = false; !closed;) {
        if (follower.look(closed)) lastGrowth = std::chrono::steady_clock::now();
        if (closed) break;
        if (idleSeconds &&
            std::chrono::steady_clock::now() - lastGrowth >= std::chrono::seconds(idleSeconds)) {
            if (follower.sawMovie()) break;
            fprintf(stderr, "qtmovie follow: %s: no movie appeared in %lu s\n", path.c_str(), idleSeconds);
            return 1;
        }
        std::this_thread::sleep_for(kPollInterval);
    }
    return 0;
}

QtMovieCommand followCommand(
    "follow", "FILE [--idle-timeout S]",
    "print each sample of a movie being recorded as soon as a flush makes it durable",
    {{"--idle-timeout", "S", "stop after S seconds in which the file did not grow (default: never)"}},
    "Prints the CSV of qtmovie samples (same header and columns), each sample once, in order\n"
    "within its track, within a poll (20 ms) of the flush that makes it durable. Waits for FILE\n"
    "to appear; ends when the recording is closed (its last mdat has its size).\n"
    "exit status: 0 the recording closed or went idle, 1 no movie appeared before the idle\n"
    "timeout, 2 wrong command line",
    runFollow);

}  // namespace
