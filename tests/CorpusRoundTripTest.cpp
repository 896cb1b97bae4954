// The one round trip of the real movies of tests/data: every atom is listed as the independent
// listing (.atoms.txt) has it, fits the room a writer gives it, and, all marked changed, is written
// back by its own encoder to the bytes of the file (the aperture dimensions to their settled
// fraction form); `qtmovie copy` reproduces each movie byte for byte. Atoms grown in memory without
// their size being recomputed also fit their room.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "quicktime/quicktime.h"
#include "tests/TestSupport.h"
#include "tests/tools/QtMovieRun.h"

namespace {

// The printout of every atom of a tree, one line each, without leading blanks.
void showAll(BaseQtAtom const* atom) {
    for (BaseQtAtom const* child = atom->getChild(); child; child = child->getSibling()) {
        child->show();
        showAll(child);
    }
}

std::string unindented(std::string const& line) {
    size_t start = line.find_first_not_of(' ');
    return start == std::string::npos ? std::string() : line.substr(start);
}

std::vector<std::string> shownLines(QtAtomRoot const& root) {
    MessageCapture capture;
    showAll(&root);
    std::vector<std::string> lines;
    std::istringstream text(capture.all());
    for (std::string line; std::getline(text, line);) lines.push_back(unindented(line));
    return lines;
}

// The atom lines of a listing, without the entries of sample descriptions (shown by the description
// classes) and the comment lines.
std::vector<std::string> listedAtomLines(std::string const& movie) {
    std::vector<std::string> lines;
    std::istringstream text(readFileText(testDataPath(movie + ".atoms.txt")));
    size_t skipDeeperThan = std::string::npos;
    for (std::string line; std::getline(text, line);) {
        size_t indent = line.find_first_not_of(' ');
        if (line.rfind("# ", 0) == 0) continue;
        if (skipDeeperThan != std::string::npos && indent > skipDeeperThan) continue;
        skipDeeperThan = line.find("stsd:") == indent ? indent : std::string::npos;
        lines.push_back(unindented(line));
    }
    return lines;
}

// The room a writer gives an atom's encoding: its encode size, or its fixed part when the body
// stays on disk; caller storage of exactly that size refuses anything beyond it.
::testing::AssertionResult encodesWithinItsRoom(BaseQtAtom const& atom) {
    unsigned int fixed = atom.getFixedSize();
    unsigned int room = std::max(atom.hasUntouchedData() ? fixed : atom.getEncodeSize(), fixed);
    Bytes storage(room);
    QtAtomBuffer buffer(storage.data(), room, QtAtomBuffer::Empty);
    atom.encode(buffer);
    if (!buffer.overflowed() && buffer.nOccupied() <= room) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << atom.getAtomPath().get() << " did not fit a room of " << room;
}

// Checks the room of every atom and marks it changed, so that the writer encodes each one.
void checkRoomAndMarkChanged(BaseQtAtom const* atom) {
    for (BaseQtAtom const* child = atom->getChild(); child; child = child->getSibling()) {
        EXPECT_TRUE(encodesWithinItsRoom(*child));
        child->write();
        checkRoomAndMarkChanged(child);
    }
}

// The file offsets of the aperture dimension words, which are written back as n/1 fractions.
std::vector<std::pair<unsigned long, unsigned long>> apertureWords(QtAtomRoot const& root) {
    std::vector<std::pair<unsigned long, unsigned long>> ranges;
    for (BaseQtAtom const* trak = root.findAtom("moov.trak", 0); trak; trak = trak->getSibling())
        for (char const* type : {"clef", "prof", "enof"})
            if (BaseQtAtom const* a = trak->findAtom((std::string("tapt.") + type).c_str(), 0))
                ranges.push_back({a->getFileOffset() + 12, a->getFileOffset() + 20});
    return ranges;
}

std::string testName(::testing::TestParamInfo<std::string> const& info) {
    std::string name = info.param.substr(0, info.param.find('.'));
    for (char& c : name)
        if (!isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
}

}  // namespace

class CorpusRoundTrip : public ::testing::TestWithParam<std::string> {};

TEST_P(CorpusRoundTrip, ListsEveryAtomAndWritesEachBackByItsOwnEncoder) {
    std::string source = testDataPath(GetParam());
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(source.c_str());
    ASSERT_TRUE(root);
    EXPECT_FALSE(root->checkForDirty());
    std::vector<std::string> shown = shownLines(*root);
    for (std::string const& expected : listedAtomLines(GetParam())) {
        bool found = std::any_of(shown.begin(), shown.end(),
                                 [&](std::string const& line) { return line.rfind(expected, 0) == 0; });
        EXPECT_TRUE(found) << "missing '" << expected << "'";
    }

    checkRoomAndMarkChanged(root.get());
    TempFile copy;
    AutoRefPtr<BasicFileIO> out = BasicFileIO::open(copy.c_str(), BasicFileIO::Create);
    ASSERT_TRUE(QtAtomWriter::copyTree(*root, *out));
    out.reset();
    Bytes expected = readFileBytes(source), actual = readFileBytes(copy.path());
    ASSERT_EQ(actual.size(), expected.size());
    auto aperture = apertureWords(*root);
    for (size_t i = 0; i < expected.size(); ++i) {
        bool normalised = std::any_of(aperture.begin(), aperture.end(),
                                      [i](auto const& range) { return i >= range.first && i < range.second; });
        if (!normalised) {
            ASSERT_EQ(actual[i], expected[i]) << "differs at byte " << i;
        }
    }
}

TEST_P(CorpusRoundTrip, QtMovieCopyReproducesTheMovie) {
    // Unchanged atoms are copied as they stand, so even the aperture fractions survive a copy.
    TempFile copy;
    CommandRun run = runQtMovie("copy '" + testDataPath(GetParam()) + "' '" + copy.path() + "'");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.all(), "");
    EXPECT_TRUE(readFileBytes(copy.path()) == readFileBytes(testDataPath(GetParam())));
}

INSTANTIATE_TEST_SUITE_P(Corpus, CorpusRoundTrip, ::testing::ValuesIn(corpusMovies()), testName);

TEST(AtomEncodeSize, AtomsGrownWithoutANewSizeStillEncodeWithinTheirRoom) {
    struct Case {
        char const* name;
        std::function<BaseQtAtom*(BaseQtAtom const* parent)> grow;
    } const cases[] = {
        {"elst", [](BaseQtAtom const* p) { return new QtAtomEditList(p, 1); }},
        {"stts", [](BaseQtAtom const* p) {
             auto* a = new QtAtomSampleTime(p);
             a->setFixedRate(0x1FFFFFFFFul, 1);
             return a;
         }},
        {"stsc", [](BaseQtAtom const* p) {
             auto* a = new QtAtomSampleChunk(p);
             for (unsigned int samples = 1; samples <= 5; ++samples) {
                 QtSampleLocation location(1, samples, true);
                 a->addCapacity();
                 a->addSamples(location);
             }
             return a;
         }},
        {"hdlr", [](BaseQtAtom const* p) {
             auto* a = new QtAtomHandler(p, qtId("mhlr"), qtId("vide"));
             a->setName("a handler name longer than the room");
             return a;
         }},
        {"tcmi", [](BaseQtAtom const* p) {
             auto* a = new QtAtomTimecodeInf(p);
             a->setFontName("Helvetica Neue");
             return a;
         }},
        {"stsz", [](BaseQtAtom const* p) {
             auto* a = new QtAtomSampleSize(p);
             a->setCapacity(40);
             return a;
         }},
        {"alis", [](BaseQtAtom const* p) {
             auto* a = new QtAtomDataAlias(p);
             a->setPath("/a/b/movie.mov", "/a/c/clip.mov");
             return a;
         }},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        QtAtomHeader parent(qtId("stbl"), nullptr);
        EXPECT_TRUE(encodesWithinItsRoom(*c.grow(&parent)));
    }
}
