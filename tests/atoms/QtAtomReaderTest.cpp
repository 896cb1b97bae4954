#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "../TestSupport.h"
#include "quicktime/atoms/QtAtomReader.h"
#include "quicktime/atoms/QtAtomUnknown.h"
#include "quicktime/atoms/QtAtomWriter.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/layout/QtAtomRoot.h"

namespace {

void collectShow(BaseQtAtom const* atom) {
    for (BaseQtAtom const* child = atom->getChild(); child; child = child->getSibling()) {
        child->show();
        collectShow(child);
    }
}

// The printout of every atom of a tree, one line each.
std::vector<std::string> dumpLines(QtAtomRoot const& root) {
    MessageCapture capture;
    collectShow(&root);
    std::vector<std::string> lines;
    std::istringstream text(capture.all());
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
}

// A line without its leading blanks: the listings indent in their own way.
std::string unindented(std::string const& line) {
    size_t start = line.find_first_not_of(' ');
    return start == std::string::npos ? std::string() : line.substr(start);
}

// The atom lines of an expectation file, without the entries of sample descriptions (shown by the
// description classes), notes in parentheses and the closing file-length lines.
std::vector<std::string> expectedAtomLines(std::string const& movie) {
    std::vector<std::string> lines;
    std::istringstream text(readFileText(testDataPath(movie + ".atoms.txt")));
    size_t skipDeeperThan = std::string::npos;
    for (std::string line; std::getline(text, line);) {
        size_t indent = line.find_first_not_of(' ');
        if (line.rfind("# ", 0) == 0) continue;
        if (skipDeeperThan != std::string::npos && indent > skipDeeperThan) continue;
        skipDeeperThan = std::string::npos;
        if (line.find("stsd:") == indent) skipDeeperThan = indent;
        lines.push_back(unindented(line));
    }
    return lines;
}

void markAllChanged(BaseQtAtom const* atom) {
    atom->write();
    for (BaseQtAtom const* child = atom->getChild(); child; child = child->getSibling()) markAllChanged(child);
}

AutoPtr<QtAtomRoot> readBytes(TempFile const& file, std::vector<unsigned char> const& bytes) {
    file.write(bytes);
    return QtAtomReader::readFile(file.c_str());
}

std::vector<unsigned char> smallMovie() {
    std::vector<unsigned char> bytes;
    putAtomHeader(bytes, 20, "ftyp");
    putType(bytes, "qt  ");
    putUint32(bytes, 0x200);
    putType(bytes, "qt  ");
    putAtomHeader(bytes, 16, "mdat");
    bytes.resize(bytes.size() + 8, 0xAB);
    putAtomHeader(bytes, 24, "moov");
    putAtomHeader(bytes, 16, "udta");
    putAtomHeader(bytes, 8, "abcd");
    return bytes;
}

}  // namespace

class CorpusTree : public ::testing::TestWithParam<std::string> {};

TEST_P(CorpusTree, ListsEveryAtomOfTheFileWithItsSizeAndOffset) {
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(testDataPath(GetParam()).c_str());
    ASSERT_TRUE(root);
    std::vector<std::string> dumped = dumpLines(*root);
    for (std::string const& expected : expectedAtomLines(GetParam())) {
        bool found = false;
        for (std::string const& line : dumped) found = found || unindented(line).rfind(expected, 0) == 0;
        EXPECT_TRUE(found) << GetParam() << ": missing '" << expected << "'";
    }
}

TEST_P(CorpusTree, CopiesByteForByte) {
    std::string source = testDataPath(GetParam());
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(source.c_str());
    ASSERT_TRUE(root);
    EXPECT_FALSE(root->checkForDirty());
    TempFile copy;
    AutoRefPtr<BasicFileIO> out = BasicFileIO::open(copy.c_str(), BasicFileIO::Create);
    ASSERT_TRUE(QtAtomWriter::copyTree(*root, *out));
    EXPECT_EQ(readFileBytes(copy.path()), readFileBytes(source));
}

TEST_P(CorpusTree, ReencodesEveryAtomByteForByte) {
    // Every atom marked changed, so that the whole movie is written by the atoms' encoders.
    std::string source = testDataPath(GetParam());
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(source.c_str());
    ASSERT_TRUE(root);
    markAllChanged(root.get());
    TempFile copy;
    AutoRefPtr<BasicFileIO> out = BasicFileIO::open(copy.c_str(), BasicFileIO::Create);
    ASSERT_TRUE(QtAtomWriter::copyTree(*root, *out));
    std::vector<unsigned char> expected = readFileBytes(source), actual = readFileBytes(copy.path());
    ASSERT_EQ(actual.size(), expected.size());
    // Aperture dimensions store a whole width as n/1, so their denominators read back as 1.
    std::vector<std::pair<unsigned long, unsigned long>> normalised;
    for (char const* type : {"clef", "prof", "enof"})
        for (BaseQtAtom const* trak = root->findAtom("moov.trak", 0); trak; trak = trak->getSibling())
            if (BaseQtAtom const* a = trak->findAtom((std::string("tapt.") + type).c_str(), 0))
                normalised.push_back({a->getFileOffset() + 12, a->getFileOffset() + 20});
    for (size_t i = 0; i < expected.size(); ++i) {
        bool inAperture = false;
        for (auto const& [from, to] : normalised) inAperture = inAperture || (i >= from && i < to);
        if (inAperture) continue;
        ASSERT_EQ(actual[i], expected[i]) << GetParam() << " differs at byte " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, CorpusTree, ::testing::ValuesIn(corpusMovies()),
                         [](auto const& info) {
                             std::string name = info.param.substr(0, info.param.find('.'));
                             for (char& c : name)
                                 if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                             return name;
                         });

TEST(QtAtomReader, LeavesLargeBodiesOnDisk) {
    TempFile file;
    std::vector<unsigned char> bytes;
    putAtomHeader(bytes, 0x100010, "mdat");
    bytes.resize(0x100010, 0xCD);
    putAtomHeader(bytes, 16, "moov");
    putAtomHeader(bytes, 8, "udta");
    AutoPtr<QtAtomRoot> root = readBytes(file, bytes);
    ASSERT_TRUE(root);
    BaseQtAtom const* mdat = root->findAtom("mdat", 0);
    ASSERT_NE(dynamic_cast<QtAtomUnknown const*>(mdat), nullptr);
    EXPECT_EQ(mdat->getSize(), 0x100010u);
    EXPECT_NE(root->findAtom("moov.udta", 0), nullptr);
}

TEST(QtAtomReader, RefusesFilesThatAreNotMovies) {
    TempFile file;
    MessageCapture capture;
    EXPECT_FALSE(readBytes(file, {}));
    EXPECT_FALSE(readBytes(file, std::vector<unsigned char>(4096, 0)));
    std::string text = "hello world, this is not a movie at all\n";
    EXPECT_FALSE(readBytes(file, std::vector<unsigned char>(text.begin(), text.end())));
    EXPECT_TRUE(capture.contains("not a QuickTime movie"));
    EXPECT_FALSE(QtAtomReader::readFile("/nonexistent/dir/movie.mov"));
    EXPECT_TRUE(capture.contains("cannot open"));
}

TEST(QtAtomReader, KeepsGarbageAfterTheMdatAndCopiesIt) {
    TempFile file;
    std::vector<unsigned char> bytes = smallMovie();
    std::vector<unsigned char> withGarbage(bytes.begin(), bytes.begin() + 36);
    for (int i = 0; i < 37; ++i) withGarbage.push_back(static_cast<unsigned char>(i * 7 + 3));
    MessageCapture capture;
    AutoPtr<QtAtomRoot> root = readBytes(file, withGarbage);
    ASSERT_TRUE(root);
    EXPECT_EQ(root->countChildren(), 2u);
    EXPECT_EQ(capture.count(MsgLevel::Warning), 0u);  // silent after a top-level mdat
    TempFile copy;
    AutoRefPtr<BasicFileIO> out = BasicFileIO::open(copy.c_str(), BasicFileIO::Create);
    ASSERT_TRUE(QtAtomWriter::copyTree(*root, *out));
    EXPECT_EQ(readFileBytes(copy.path()), withGarbage);
}

TEST(QtAtomReader, ReportsGarbageAfterAMoov) {
    TempFile file;
    std::vector<unsigned char> bytes = smallMovie();
    bytes.insert(bytes.end(), {0xFF, 0xFF, 0xFF, 0xFF, 0x01, 0x02, 0x03, 0x04, 0x05});
    MessageCapture capture;
    AutoPtr<QtAtomRoot> root = readBytes(file, bytes);
    ASSERT_TRUE(root);
    EXPECT_TRUE(capture.contains("invalid atom Root."));
    EXPECT_EQ(capture.count(MsgLevel::Warning), 1u);
}

TEST(QtAtomReader, KeepsAnAtomCutShortByTheEndOfTheFile) {
    TempFile file;
    std::vector<unsigned char> bytes = smallMovie();
    bytes.erase(bytes.end() - 6, bytes.end());  // cut inside moov.udta.abcd
    MessageCapture capture;
    AutoPtr<QtAtomRoot> root = readBytes(file, bytes);
    ASSERT_TRUE(root);
    EXPECT_TRUE(capture.contains("cut short"));
    BaseQtAtom const* moov = root->findAtom("moov", 0);
    ASSERT_NE(moov, nullptr);
    EXPECT_EQ(moov->getSize(), 24u);
    TempFile copy;
    AutoRefPtr<BasicFileIO> out = BasicFileIO::open(copy.c_str(), BasicFileIO::Create);
    ASSERT_TRUE(QtAtomWriter::copyTree(*root, *out));
    EXPECT_EQ(readFileBytes(copy.path()), bytes);
}

TEST(QtAtomReader, EndsAnOpenMdatWhereTheFileEndedWhenItsRootWasSized) {
    TempFile file;
    std::vector<unsigned char> bytes = smallMovie();
    size_t movie = bytes.size();
    putAtomHeader(bytes, 0, "mdat");
    bytes.resize(bytes.size() + 100, 0xAB);
    file.write(bytes);
    AutoRefPtr<BasicFileIO> io = BasicFileIO::open(file.c_str(), BasicFileIO::ReadOnly);
    QtAtomRoot root(io, bytes.size());
    bytes.resize(bytes.size() + 64, 0xCD);  // the recorder appends while the tree is read
    file.write(bytes);
    MessageCapture capture;
    ASSERT_TRUE(QtAtomReader::readTree(root));
    BaseQtAtom const* mdat = root.findAtom("mdat", 1);
    ASSERT_NE(mdat, nullptr);
    EXPECT_EQ(mdat->getFileOffset() + mdat->getSize(), movie + 108);
    EXPECT_EQ(capture.count(MsgLevel::Warning), 0u) << capture.all();
}

TEST(QtAtomReader, KeepsDeeplyNestedContainersWithoutRecursingForever) {
    TempFile file;
    std::vector<unsigned char> bytes;
    const unsigned depth = 5000;
    for (unsigned i = 0; i < depth; ++i) putAtomHeader(bytes, 8 * (depth - i), "trak");
    AutoPtr<QtAtomRoot> root = readBytes(file, bytes);
    ASSERT_TRUE(root);
    unsigned levels = 0;
    for (BaseQtAtom const* a = root->getChild(); a; a = a->getChild()) ++levels;
    EXPECT_EQ(levels, QtAtomReader::kMaxDepth + 1);
}

TEST(QtAtomReader, FuzzedMoviesNeverCrash) {
    // Flip bytes of a real movie's moov and read it back; every result must be handled softly.
    std::vector<unsigned char> original = readFileBytes(testDataPath("h264_negcts.mov"));
    ASSERT_GT(original.size(), 1000u);
    TempFile file;
    uint32_t seed = 12345;
    MessageCapture quiet;
    for (int round = 0; round < 200; ++round) {
        std::vector<unsigned char> bytes = original;
        for (int k = 0; k < 8; ++k) {
            seed = seed * 1103515245u + 12345u;
            size_t at = bytes.size() - 1 - (seed >> 8) % 1500;
            bytes[at] = static_cast<unsigned char>(seed >> 3);
        }
        AutoPtr<QtAtomRoot> root = readBytes(file, bytes);
        if (root) {
            TempFile copy;
            AutoRefPtr<BasicFileIO> out = BasicFileIO::open(copy.c_str(), BasicFileIO::Create);
            EXPECT_TRUE(QtAtomWriter::copyTree(*root, *out));
        }
    }
}

TEST(QtAtomWriter, WritesBackOnlyDirtyAtomsInPlace) {
    TempFile file;
    std::vector<unsigned char> bytes = smallMovie();
    file.write(bytes);
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(file.c_str(), BasicFileIO::ReadWrite);
    ASSERT_TRUE(root);
    BaseQtAtom const* item = root->findAtom("moov.udta.abcd", 0);
    ASSERT_NE(item, nullptr);
    item->setId(qtId("wxyz"));
    EXPECT_TRUE(root->checkForDirty());
    ASSERT_TRUE(root->writeDirty());
    EXPECT_FALSE(root->checkForDirty());
    std::vector<unsigned char> expected = bytes;
    std::copy_n("wxyz", 4, expected.end() - 4);
    EXPECT_EQ(readFileBytes(file.path()), expected);
}
